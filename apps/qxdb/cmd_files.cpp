// Bringing meshes into models and handing them on: import and export.

#include <algorithm>
#include <filesystem>
#include <fmt/format.h>

#include "qx_db/platform/file.h"
#include "qx_db/platform/text.h"
#include "qx_db/qx_db.h"

#include "apps/qxdb/commands.h"
#include "exchange/msh_reader.h"
#include "exchange/msh_writer.h"
#include "exchange/vtu_writer.h"

namespace qx::app {
namespace {

std::string ExtensionOf(const std::string& path) {
  return AsciiUpper(Utf8FromPath(PathFromUtf8(path).extension()));
}

// ---- import -------------------------------------------------------------------------------------

constexpr std::string_view kCadExtensions[] = {".STEP", ".STP", ".IGES", ".IGS", ".BREP"};

struct ImportOptions {
  std::string file;
  std::string model;
  TargetOptions target;
  std::string length_unit = "m";
  CLI::Option* length = nullptr;  // whether the unit was given
};

/// Reads every table of a gateway text.
Outcome ReadGatewayTables(CQXDBSession& session, const std::string& path,
                          std::vector<std::string>& notes) {
  dbgateway::DataBase document;
  if (Outcome read = document.ReadFile(path); !read) return read;
  const std::uint64_t before = session.StateHash();
  if (Outcome done = ReadDocument(session, document); !done) {
    Failure failure = done.Error();
    failure.file = path;
    return failure;
  }
  for (const auto& entry : document.Report()) notes.push_back(entry.Line());
  return CheckRead(path, session.StateHash() != before, document);
}

Outcome ReadInto(CQXDBSession& session, const std::string& path, std::vector<std::string>& notes) {
  if (Outcome is_file = CheckIsFile(path); !is_file) return is_file;
  const std::string extension = ExtensionOf(path);
  if (extension == ".JSON") return ReadGatewayTables(session, path, notes);
  if (extension != ".MSH") {
    const bool is_cad = std::find(std::begin(kCadExtensions), std::end(kCadExtensions),
                                  extension) != std::end(kCadExtensions);
    return Failure{path, "", is_cad ? "is geometry, not a mesh" : "has an unknown format",
                   is_cad ? "bring it in with: qxdb geom" : "use a .msh or .json file"};
  }
  ProgressBar bar("Reading " + path);
  auto mesh = exchange::ReadMsh(path, [&](double done) { bar.Show(done); });
  if (!mesh) return mesh.AsOutcome();
  notes = mesh->notes;
  exchange::AddReport added;
  Outcome done = exchange::AddMesh(session, *mesh, path, &added);
  notes.insert(notes.end(), added.notes.begin(), added.notes.end());
  return done;
}

/// Declares the unit that the file's lengths are in; a new model keeps them so.
void SetLengthUnit(CQXDBSession& session, const std::string& name) {
  UnitSystem units = session.Units().Model();
  units[UnitBase::kLength] = FindUnit(UnitBase::kLength, name);
  session.Units().SetModel(units);
  session.Units().SetCurrent(units);
}

Outcome Import(const ImportOptions& options, const Context& context) {
  Model model(options.model);
  if (Outcome opened = OpenTarget(model, options.target); !opened) return opened;
  CQXDBSession& session = model.session;
  const UnitSystem current = session.Units().Current();
  const bool is_new = model.document.Path().empty();
  if (is_new) {
    SetLengthUnit(session, options.length_unit);
  } else if (options.length->count() > 0) {
    UnitSystem of_file = current;
    of_file[UnitBase::kLength] = FindUnit(UnitBase::kLength, options.length_unit);
    session.Units().SetCurrent(of_file);  // the readers convert from the current units
  }
  std::vector<std::int32_t> before;
  for (const DPoolBase* pool : session.Pools()) before.push_back(pool->GetSize());
  std::vector<std::string> notes;
  if (Outcome read = ReadInto(session, options.file, notes); !read) return read;
  if (!is_new) session.Units().SetCurrent(current);
  if (is_new) session.ForgetHistory();  // a new model starts with what it holds
  if (Outcome saved = model.document.SaveAs(options.model); !saved) return saved;

  std::string text = options.file + " -> " + options.model + ":";
  JsonText json;
  json.Begin().Text("model", options.model).Begin("added");
  for (std::size_t i = 0; i < before.size(); ++i) {
    const DPoolBase& pool = *session.Pools()[i];
    const std::int32_t added = pool.GetSize() - before[i];
    if (added == 0) continue;
    const std::string name = pool.GetAPIName().ToUtf8();
    text += fmt::format("\n  {:>9}  {}", Grouped(added), name);
    json.Integer(name, added);
  }
  json.End().BeginArray("notes");
  for (const std::string& note : notes) {
    text += "\nnote: " + note;
    json.Text({}, note);
  }
  json.End().End();
  context.Print(text, json);
  return {};
}

// ---- export -------------------------------------------------------------------------------------

struct ExportOptions {
  std::string model;
  std::string file;
  std::string encoding = "base64";
};

Outcome ExportTo(CQXDBSession& session, const ExportOptions& options,
                 std::vector<std::string>& notes) {
  const std::string extension = ExtensionOf(options.file);
  if (extension == ".JSON") {
    // JSON has no word for what is not finite, and null would come back as 0.
    if (Outcome fits = exchange::CheckCanBeWritten(session, options.file); !fits) return fits;
    dbgateway::DataBase document;
    WriteDocument(session, document);
    return document.WriteFile(options.file, true);
  }
  if (extension != ".VTU" && extension != ".MSH") {
    return Failure{options.file, "", "has an unknown format", "use a .vtu, .msh or .json file"};
  }
  ProgressBar bar("Writing " + options.file);
  const auto progress = [&](double done) { bar.Show(done); };
  if (extension == ".MSH") {
    using exchange::MshEncoding;
    const MshEncoding msh_encoding =
        options.encoding == "ascii" ? MshEncoding::kAscii : MshEncoding::kBinary;
    return exchange::WriteMsh(session, options.file, msh_encoding, &notes, progress);
  }
  using exchange::VtuEncoding;
  const VtuEncoding encoding = options.encoding == "raw"      ? VtuEncoding::kAppendedRaw
                               : options.encoding == "inline" ? VtuEncoding::kInlineBase64
                               : options.encoding == "ascii"  ? VtuEncoding::kAscii
                                                              : VtuEncoding::kAppendedBase64;
  return exchange::WriteVtu(session, options.file, encoding, {}, &notes, progress);
}

Outcome Export(Model& model, const ExportOptions& options, const Context& context) {
  if (Outcome free = CheckOutput(options.file, {options.model}); !free) return free;
  std::vector<std::string> notes;
  if (Outcome written = ExportTo(model.session, options, notes); !written) return written;
  std::error_code error;
  const auto size = std::filesystem::file_size(PathFromUtf8(options.file), error);
  std::string text = fmt::format("{} -> {} ({})", options.model, options.file, Bytes(size));
  JsonText json;
  json.Begin().Text("file", options.file).Integer("bytes", static_cast<std::int64_t>(size));
  json.BeginArray("notes");
  for (const std::string& note : notes) {
    text += "\nnote: " + note;
    json.Text({}, note);
  }
  context.Print(text, json.End().End());
  return {};
}

}  // namespace

void AddImport(CLI::App& app, Context& context) {
  const auto [command, options] =
      AddCommand<ImportOptions>(app, context, "import", "Bring a mesh file into a model",
                                "qxdb import bracket.msh bracket.qxm", Import);
  command->add_option("file", options->file, "Mesh (.msh) or gateway text (.json)")->required();
  command->add_option("model", options->model, "Model file to write")->required();
  AddTarget(*command, options->target);
  std::vector<std::string> units;
  for (const UnitDefinition& unit : UnitsOf(UnitBase::kLength)) units.emplace_back(unit.name);
  options->length =
      command->add_option("--length", options->length_unit, "Unit of the lengths in the file")
          ->check(CLI::IsMember(units))
          ->capture_default_str();
}

void AddExport(CLI::App& app, Context& context) {
  const auto [command, options] =
      AddModelCommand<ExportOptions>(app, context, "export", "Write a model for another program",
                                     "qxdb export bracket.qxm bracket.vtu", Export);
  command->add_option("file", options->file, "File to write: .vtu, .msh or .json")->required();
  command
      ->add_option("--encoding", options->encoding,
                   "How a VTU stores its arrays; a MSH is text with ascii, else binary")
      ->check(CLI::IsMember({"raw", "base64", "inline", "ascii"}))
      ->capture_default_str();
}

}  // namespace qx::app
