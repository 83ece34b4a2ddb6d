// Bringing meshes into models and handing them on: import and export.

#include <algorithm>
#include <filesystem>
#include <fmt/format.h>

#include "qx_db/platform/file.h"
#include "qx_db/platform/plain_text.h"
#include "qx_db/platform/text.h"
#include "qx_db/qx_db.h"

#include "apps/qxdb/command/output.h"
#include "apps/qxdb/commands.h"
#include "apps/qxdb/files/cad_input.h"
#include "apps/qxdb/model/selection.h"
#include "exchange/transfer.h"

namespace qx::app {
namespace {

std::string ExtensionOf(const std::string& path) {
  return AsciiUpper(Utf8FromPath(PathFromUtf8(path).extension()));
}

// ---- import -------------------------------------------------------------------------------------

struct ImportOptions {
  std::string file;
  std::string model;
  TargetOptions target;
  std::string units;
  std::string format;
  std::vector<std::string> include_dirs;
  std::vector<std::string> choices;
  bool strict = false;
  std::string report;
  bool force = false;
};

/// Writes all that was lost, changed and assumed to the report file, if one was asked for.
Outcome WriteReport(const exchange::LossReport& losses, const std::string& file,
                    const std::string& format, const char* direction,
                    const std::string& report_file) {
  if (report_file.empty()) return {};
  return WriteWholeFile(report_file, losses.ToJson(file, format, direction));
}

/// The same briefly, a line each.
void Print(const exchange::LossReport& losses, std::string& text, JsonText& json) {
  json.BeginArray("notes");
  for (const std::string& line : losses.Lines()) {
    text += "\nnote: " + OneLine(line);
    json.Text({}, line);
  }
  json.End();
}

/// The format of that name, null for an empty one.
Result<const exchange::Format*> NamedFormat(const std::string& name) {
  if (name.empty()) return static_cast<const exchange::Format*>(nullptr);
  if (const exchange::Format* format = exchange::FindFormat(name)) return format;
  std::string known;
  for (const exchange::Format& format : exchange::Formats()) {
    known += (known.empty() ? "" : ", ") + std::string(format.name);
  }
  return Failure{"", "", "'" + name + "' is no format", "name one of: " + known};
}

/// Reads every table of a gateway text.
Outcome ReadGatewayTables(CQXDBSession& session, const std::string& path,
                          exchange::LossReport& losses) {
  dbgateway::DataBase document;
  if (Outcome read = document.ReadFile(path); !read) return read;
  const std::uint64_t before = session.StateHash();
  if (Outcome done = ReadDocument(session, document); !done) {
    Failure failure = done.Error();
    failure.file = path;
    return failure;
  }
  for (const auto& entry : document.Report()) losses.Assumed(entry.Line());
  return CheckRead(path, session.StateHash() != before, document);
}

Outcome ReadGateway(CQXDBSession& session, const ImportOptions& options, bool is_new,
                    exchange::LossReport& losses) {
  CTransaction step(&session);
  step.Begin(qxLoadText("IDS_QX_TRANS_READ_GATEWAY").c_str());
  CQXUnitCtrl& in = session.Units();
  const CQXUnitCtrl before = in;
  if (!options.units.empty()) {
    const auto units = exchange::ParseUnits(options.units, before.Current());
    if (!units) return units.AsOutcome();
    if (is_new) in.SetModel(*units);
    in.SetCurrent(*units);  // the tables are converted from the current units
  } else {
    exchange::AssumeUnits(before.Current(), losses);
  }
  if (Outcome read = ReadGatewayTables(session, options.file, losses); !read) return read;
  if (!is_new) in = before;
  if (step.Commit()) return {};
  return Failure{options.file, "", "the model refuses it", "see the message above"};
}

Outcome ReadInto(CQXDBSession& session, const ImportOptions& options, bool is_new,
                 exchange::LossReport& losses, std::string& format_name) {
  if (Outcome is_file = CheckIsFile(options.file); !is_file) return is_file;
  const auto named = NamedFormat(options.format);
  if (!named) return named.AsOutcome();
  const std::string extension = ExtensionOf(options.file);
  if (!*named && extension == ".JSON") {
    format_name = "json";
    return ReadGateway(session, options, is_new, losses);
  }
  const auto found = *named ? named : exchange::FormatToRead(options.file);
  const bool is_cad =
      std::any_of(kCadExtensions.begin(), kCadExtensions.end(),
                  [&](const std::string& cad) { return AsciiUpper(cad) == extension; });
  if (!found && is_cad) {
    return Failure{options.file, "", "is geometry, not a mesh", "bring it in with: qxdb geom"};
  }
  if (!found) return found.AsOutcome();
  format_name = (*found)->name;
  const auto values = exchange::ParseOptionValues((*found)->read_options, options.choices);
  if (!values) return values.AsOutcome();
  const Interrupt interrupt;
  ProgressBar bar("Reading " + options.file);
  exchange::ImportOptions reading;
  reading.format = *found;
  reading.units = options.units;
  reading.set_model_units = is_new;
  reading.strict = options.strict;
  reading.read.include_dirs = options.include_dirs;
  reading.read.values = *values;
  reading.read.progress = [&](double done) { bar.Show(done); };
  reading.read.is_cancelled = [&] { return interrupt.IsAsked(); };
  return exchange::ImportFile(session, options.file, reading, losses);
}

/// Prints the faults of a file in their order but for the last, which is returned.
Outcome ToldOf(const exchange::LossReport& losses, const Outcome& read, const Context& context) {
  const std::vector<Failure>& faults = losses.faults;
  if (faults.size() < 2) return read;
  const bool is_full = faults.size() >= exchange::LossReport::kMostFaults;
  for (std::size_t i = 0; i + (is_full ? 0 : 1) < faults.size(); ++i) context.Tell(faults[i]);
  if (!is_full) return faults.back();
  return Failure{faults[0].file, "", fmt::format("reading ended with {} faults", faults.size()),
                 "correct these first: there may be more"};
}

Outcome Import(const ImportOptions& options, const Context& context) {
  if (Outcome free = CheckOutput(options.report, OutputKind::kReport, options.force,
                                 {options.file, options.model});
      !free) {
    return free;
  }
  Model model(options.model);
  model.yes = context.yes;
  if (Outcome opened = OpenTarget(model, options.target); !opened) return opened;
  CQXDBSession& session = model.session;
  const bool is_new = model.document.Path().empty();
  std::vector<std::int32_t> before;
  for (const DPoolBase* pool : session.Pools()) before.push_back(pool->GetSize());
  exchange::LossReport losses;
  std::string format;
  const Outcome read = ReadInto(session, options, is_new, losses, format);
  Outcome told = WriteReport(losses, options.file, format, "import", options.report);
  if (!told) return told;
  if (!read) return ToldOf(losses, read, context);
  if (is_new) session.ForgetHistory();  // a new model starts with what it holds
  if (Outcome saved = model.SaveAs(); !saved) return saved;

  std::string text = options.file + " -> " + options.model + ":";
  JsonText json;
  json.Begin().Text("model", options.model).Begin("added");
  for (std::size_t i = 0; i < before.size(); ++i) {
    const DPoolBase& pool = *session.Pools()[i];
    const std::int32_t added = pool.GetSize() - before[i];
    if (added == 0) continue;
    const std::string name = pool.GetAPIName().ToUtf8();
    text += fmt::format("\n  {:>9}  {}", Grouped(added), PoolLabel(pool));
    json.Integer(name, added);
  }
  json.End();
  Print(losses, text, json);
  context.Print(text, json.End());
  return {};
}

// ---- export -------------------------------------------------------------------------------------

struct ExportOptions {
  std::string model;
  std::string file;
  std::string units;
  std::string format;
  std::string encoding;
  std::vector<std::string> choices;
  bool strict = false;
  bool force = false;
  std::string report;
};

/// The format to write; null for a gateway text.
Result<const exchange::Format*> FormatOf(const ExportOptions& options) {
  const auto named = NamedFormat(options.format);
  if (!named || (!*named && ExtensionOf(options.file) == ".JSON")) return named;
  const auto found = *named ? named : exchange::FormatToWrite(options.file);
  if (found && !(*found)->write) {
    return Failure{"", "", "'" + std::string((*found)->name) + "' cannot be written",
                   "name another format"};
  }
  return found;
}

Outcome ExportTo(CQXDBSession& session, const ExportOptions& options,
                 const exchange::Format* format, exchange::LossReport& losses) {
  if (!format) {
    // JSON has no word for what is not finite, and null would come back as 0.
    if (Outcome fits = exchange::CheckCanBeWritten(session, options.file); !fits) return fits;
    const auto units = options.units.empty()
                           ? Result<UnitSystem>(session.Units().Current())
                           : exchange::ParseUnits(options.units, session.Units().Current());
    if (!units) return units.AsOutcome();
    const UnitsShown in_units(session, *units);  // the tables are converted to the current units
    dbgateway::DataBase document;
    if (Outcome whole = WriteDocument(session, document); !whole) return whole;
    return document.WriteFile(options.file, true);
  }
  std::vector<std::string> choices = options.choices;
  if (!options.encoding.empty()) choices.push_back("encoding=" + options.encoding);
  const auto values = exchange::ParseOptionValues(format->write_options, choices);
  if (!values) return values.AsOutcome();
  const Interrupt interrupt;
  ProgressBar bar("Writing " + options.file);
  exchange::ExportOptions write;
  write.format = format;
  write.units = options.units;
  write.strict = options.strict;
  write.write.values = *values;
  write.write.progress = [&](double done) { bar.Show(done); };
  write.write.is_cancelled = [&] { return interrupt.IsAsked(); };
  return exchange::ExportFile(session, options.file, write, losses);
}

/// The one rule for what an export writes.
Outcome CheckOutputs(const ExportOptions& options, const exchange::Format* format) {
  const std::vector<std::string> read = {options.model};
  Outcome free = format ? CheckOutput(options.file, *format, options.force, read)
                        : CheckOutput(options.file, OutputKind::kGateway, options.force, read);
  if (!free) return free;
  return CheckOutput(options.report, OutputKind::kReport, options.force,
                     {options.model, options.file});
}

/// Extensions that a command takes, that of gateway texts among them.
std::vector<std::string> Extensions(bool to_read) {
  std::vector<std::string> all;
  for (const exchange::Format& format : exchange::Formats()) {
    if (to_read ? !format.read : !format.write) continue;
    all.insert(all.end(), format.extensions.begin(), format.extensions.end());
  }
  all.emplace_back(".json");
  return all;
}

/// What the formats are called, and what can be chosen of them.
std::string FormatNotes(bool to_read) {
  std::string notes = "Formats:";
  for (const exchange::Format& format : exchange::Formats()) {
    if (to_read ? !format.read : !format.write) continue;
    notes += fmt::format("\n  {:<8} {}", format.name, format.title);
    notes += fmt::format("\n           keeps {}", exchange::CapabilityWords(format.capabilities));
    const auto options = to_read ? format.read_options : format.write_options;
    for (const exchange::FormatOption& option : options) {
      notes += fmt::format("\n           {}: {} ({})", option.name, option.meaning,
                           exchange::ValuesOf(option));
    }
  }
  return notes;
}

/// What any format offers as its encoding.
std::vector<std::string> Encodings() {
  std::vector<std::string> all;
  for (const exchange::Format& format : exchange::Formats()) {
    for (const exchange::FormatOption& option : format.write_options) {
      if (option.name != "encoding") continue;
      for (std::size_t at = 0; at < option.values.size();) {
        const std::size_t end = std::min(option.values.find(", ", at), option.values.size());
        std::string value(option.values.substr(at, end - at));
        if (std::find(all.begin(), all.end(), value) == all.end()) all.push_back(std::move(value));
        at = end + 2;
      }
    }
  }
  return all;
}

std::string Joined(const std::vector<std::string>& words) {
  std::string text;
  for (const std::string& word : words) text += (text.empty() ? "" : ", ") + word;
  return text;
}

Outcome Export(Model& model, const ExportOptions& options, const Context& context) {
  const auto format = FormatOf(options);
  if (!format) return format.AsOutcome();
  if (Outcome free = CheckOutputs(options, *format); !free) return free;
  exchange::LossReport losses;
  const Outcome written = ExportTo(model.session, options, *format, losses);
  const std::string format_name(*format ? (*format)->name : "json");
  Outcome told = WriteReport(losses, options.file, format_name, "export", options.report);
  if (!told) return told;
  if (!written) return written;
  std::error_code error;
  const auto size = std::filesystem::file_size(PathFromUtf8(options.file), error);
  std::string text = fmt::format("{} -> {} ({})", options.model, options.file, Bytes(size));
  JsonText json;
  json.Begin().Text("file", options.file).Integer("bytes", static_cast<std::int64_t>(size));
  Print(losses, text, json);
  context.Print(text, json.End());
  return {};
}

}  // namespace

void AddImport(Command& app, Context& context) {
  const auto [command, options] =
      AddCommand<ImportOptions>(app, context, "import", "Bring a mesh or a deck into a model",
                                "qxdb import bracket.msh bracket.qxm --units mm", Import);
  const std::vector<std::string> extensions = Extensions(true);
  command->Add("file", &options->file, "File to read: " + Joined(extensions))
      .File(extensions)
      .Required();
  command->Add("model", &options->model, "Model file to write").OpenModel().Required();
  AddTarget(*command, options->target);
  command->Add(
      "--units", &options->units,
      "Units of the file's numbers, as mm or mm,N,ton; untold those it names itself, or m");
  command->Add("--format", &options->format, "Format to read it as, whatever it looks like");
  command->Add("--include-dir", &options->include_dirs, "Folder that a deck may include files of")
      .OneAtATime();
  command->Add("--option", &options->choices, "Choice of the format, as points=merged")
      .OneAtATime();
  command->Add("--strict", &options->strict, "Refuse a file of which anything is lost or changed");
  command
      ->Add("--report", &options->report, "File for all that was lost, changed or assumed (JSON)")
      .File({".json"});
  command->Add("--force", &options->force, "Replace the file of --report, whatever it is");
  command->notes = FormatNotes(true);
}

void AddExport(Command& app, Context& context) {
  const auto [command, options] =
      AddModelCommand<ExportOptions>(app, context, "export", "Write a model for another program",
                                     "qxdb export bracket.qxm bracket.vtu", Export);
  const std::vector<std::string> extensions = Extensions(false);
  command->Add("file", &options->file, "File to write: " + Joined(extensions))
      .File(extensions)
      .Required();
  AddForce(*command, options->force);
  command->Add("--units", &options->units, "Units to write in, as mm or mm,N,ton");
  command->Add("--format", &options->format, "Format to write, whatever the extension");
  command->Add("--encoding", &options->encoding, "How numbers are stored, as the formats below say")
      .OneOf(Encodings());
  command->Add("--option", &options->choices, "Further choice of the format, as version=2.2")
      .OneAtATime();
  command->Add("--strict", &options->strict, "Refuse when anything is lost or changed");
  command
      ->Add("--report", &options->report, "File for all that was lost, changed or assumed (JSON)")
      .File({".json"});
  command->notes = FormatNotes(false);
}

}  // namespace qx::app
