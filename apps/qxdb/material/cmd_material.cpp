// Material libraries: looking at them, turning one form into another, taking materials into a
// model.

#include <algorithm>
#include <cmath>
#include <fmt/format.h>
#include <map>
#include <memory>

#include "qx_db/material/gdb_file.h"
#include "qx_db/material/material_file.h"
#include "qx_db/platform/file.h"
#include "qx_db/platform/new_file.h"
#include "qx_db/platform/plain_text.h"
#include "qx_db/qx_db.h"

#include "apps/qxdb/command/output.h"
#include "apps/qxdb/commands.h"

namespace qx::app {
namespace {

struct MaterialOptions {
  std::string file;
  std::string form;      ///< empty: as the file says
  std::string encoding;  ///< empty: as the bytes look
  std::string units;     ///< empty: as the file has them
  bool lint = false;
  bool strict = false;
  std::vector<std::string> names;
  std::string target;
  std::string target_form;
  std::string target_encoding;
  std::string model;
  bool all = false;
  bool replace = false;
  bool force = false;
};

struct Note {
  std::int64_t line;  ///< or record; 0: the file as such
  std::string why;
};

/// A library as a user named it.
struct Opened {
  MaterialForm form = MaterialForm::kText;
  CodePage page;
  MaterialTable table;
  UnitSystem units;  ///< those asked for, or else the file's
  std::vector<Note> notes;
};

Result<Opened> OpenLibrary(const MaterialOptions& options) {
  Opened opened;
  const auto form = options.form.empty() ? FormOfFile(options.file) : FormNamed(options.form);
  if (!form) return form.Error();
  opened.form = *form;
  bool assumed = false;
  const auto page = options.encoding.empty() ? GuessPage(options.file, opened.form, &assumed)
                                             : CodePage::Named(options.encoding);
  if (!page) return page.Error();
  opened.page = *page;
  if (assumed) {
    opened.notes.push_back({0, "is read as " + page->Name() + "; --encoding names another"});
  }
  const auto note = [&](std::int64_t line, const std::string& why) {
    opened.notes.push_back({line, why});
  };
  auto table = ReadMaterials(options.file, opened.form, opened.page, {note, options.strict});
  if (!table) return table.Error();
  opened.table = std::move(*table);
  opened.units = UnitsOfTable(opened.table);
  if (options.units.empty()) return opened;
  const auto units = SystemNamed(options.units, opened.units);
  if (!units) return units.Error();
  opened.units = *units;
  return opened;
}

// ---- what is printed ----------------------------------------------------------------------------

/// The table that people see: in the units asked for, or as the file has it.
MaterialTable Shown(const Opened& opened, const MaterialOptions& options) {
  return options.units.empty() ? opened.table : InUnits(opened.table, opened.units);
}

std::string Heading(const MaterialColumn& column) {
  const std::string unit = UnitText(column.kind, column.units);
  return unit.empty() ? column.property : fmt::format("{} [{}]", column.property, unit);
}

/// "record" for the form that counts records, "line" for the others.
std::string_view PlaceWord(MaterialForm form) {
  return form == MaterialForm::kFluid ? "record" : "line";
}

/// What concerns the file as a whole, and with `lines` also each line that was left out or read
/// otherwise than it looks.
std::string NotesText(const Opened& opened, const MaterialOptions& options, bool lines) {
  std::string text;
  for (const Note& note : opened.notes) {
    if (note.line == 0) {
      text += fmt::format("{}: {}\n", options.file, note.why);
    } else if (lines) {
      text +=
          fmt::format("{}: {} {}: {}\n", options.file, PlaceWord(opened.form), note.line, note.why);
    }
  }
  return text;
}

/// The same as --lint asks for it.
std::string LintText(const Opened& opened, const MaterialOptions& options) {
  const std::string text = NotesText(opened, options, options.lint);
  return text.empty() && options.lint ? options.file + ": nothing was left out\n" : text;
}

void WriteNotes(const Opened& opened, const MaterialOptions& options, JsonText& json) {
  if (!options.lint && opened.notes.empty()) return;
  json.BeginArray("lint");
  for (const Note& note : opened.notes) {
    json.Begin().Integer(PlaceWord(opened.form), note.line).Text("why", note.why).End();
  }
  json.End();
}

void WriteMaterial(const MaterialTable& table, const Material& material, JsonText& json) {
  json.Begin().Text("category", material.category.ToUtf8()).Text("name", material.name.ToUtf8());
  json.Begin("values");
  for (std::size_t i = 0; i < table.columns.size(); ++i) {
    const MaterialColumn& column = table.columns[i];
    json.Begin(column.property);
    // JSON has no word for what is not finite.
    if (std::isfinite(material.values[i])) {
      json.Real("value", material.values[i]);
    } else {
      json.Raw("value", "null");
    }
    json.Text("unit", UnitText(column.kind, column.units)).End();
  }
  json.End().End();
}

JsonText LibraryJson(const Opened& opened, const MaterialOptions& options,
                     const MaterialTable& table, const std::vector<const Material*>& materials) {
  JsonText json;
  json.Begin().Text("file", options.file).Text("form", InfoOf(opened.form).name);
  json.BeginArray("materials");
  for (const Material* material : materials) WriteMaterial(table, *material, json);
  json.End();
  WriteNotes(opened, options, json);
  json.End();
  return json;
}

// ---- list and show ------------------------------------------------------------------------------

Outcome List(const MaterialOptions& options, const Context& context) {
  const Result<Opened> opened = OpenLibrary(options);
  if (!opened) return opened.Error();
  const MaterialTable table = Shown(*opened, options);
  const bool grouped = std::any_of(table.materials.begin(), table.materials.end(),
                                   [](const Material& m) { return !m.category.IsEmpty(); });
  std::vector<std::string> headings = {"material"};
  if (grouped) headings.insert(headings.begin(), "category");
  std::vector<std::size_t> columns;
  for (const char* property : {"elastic modulus", "Poisson's ratio", "mass density",
                               "dynamic viscosity", "expansion coefficient", "tensile strength"}) {
    const auto at = table.Find(property);
    if (!at) continue;
    columns.push_back(*at);
    headings.push_back(">" + Heading(table.columns[*at]));
  }
  Table text(headings);
  std::vector<const Material*> all;
  for (const Material& material : table.materials) {
    all.push_back(&material);
    std::vector<std::string> cells = {material.name.ToUtf8()};
    if (grouped) cells.insert(cells.begin(), material.category.ToUtf8());
    for (const std::size_t at : columns) cells.push_back(Short(material.values[at]));
    text.Row(std::move(cells));
  }
  const bool is_odd = all.empty() && !options.lint;
  context.Print(
      fmt::format("{}{}{} material{}, {}{}\n", text.IsEmpty() ? "" : text.Text(),
                  LintText(*opened, options), Grouped(static_cast<std::int64_t>(all.size())),
                  all.size() == 1 ? "" : "s", InfoOf(opened->form).what,
                  is_odd ? "; --lint names what was left out" : ""),
      LibraryJson(*opened, options, table, all));
  return {};
}

/// The materials of a name; those whose case fits when there are such.
std::vector<const Material*> Named(const MaterialTable& table, const std::string& name) {
  std::vector<const Material*> found;
  for (const bool exact : {true, false}) {
    for (const Material& material : table.materials) {
      const std::string own = material.name.ToUtf8();
      if (exact ? own == name : EqualNoCase(own, name)) found.push_back(&material);
    }
    if (!found.empty()) break;
  }
  return found;
}

Failure NoSuchMaterial(const MaterialOptions& options, const std::string& name) {
  return {options.file, "material \"" + name + "\"", "is not in this library",
          "see qxdb material list " + options.file};
}

/// Reads strictly and prints what a lenient reader would pass over.
Outcome Lint(const MaterialOptions& given, const Context& context) {
  MaterialOptions options = given;
  options.lint = true;
  options.strict = true;
  const Result<Opened> opened = OpenLibrary(options);
  if (!opened) return opened.Error();
  JsonText json;
  json.Begin().Text("file", options.file).Text("form", InfoOf(opened->form).name);
  WriteNotes(*opened, options, json);
  context.Print(LintText(*opened, options), json.End());
  return {};
}

Outcome Show(const MaterialOptions& options, const Context& context) {
  const Result<Opened> opened = OpenLibrary(options);
  if (!opened) return opened.Error();
  const MaterialTable table = Shown(*opened, options);
  const auto found = Named(table, options.names[0]);
  if (found.empty()) return NoSuchMaterial(options, options.names[0]);
  std::string text;
  for (const Material* material : found) {
    const std::string category = OneLine(material->category.ToUtf8());
    text +=
        OneLine(material->name.ToUtf8()) + (category.empty() ? "" : "  (" + category + ")") + "\n";
    Table values({"property", ">value", "unit"});
    for (std::size_t i = 0; i < table.columns.size(); ++i) {
      const MaterialColumn& column = table.columns[i];
      values.Row({column.property, fmt::format("{:.12g}", material->values[i]),
                  UnitText(column.kind, column.units)});
    }
    text += values.Text();
  }
  context.Print(text + LintText(*opened, options), LibraryJson(*opened, options, table, found));
  return {};
}

// ---- convert ------------------------------------------------------------------------------------

/// Fails for units that the form would not be written in.
Outcome CheckUnits(const MaterialOptions& options, MaterialForm form) {
  if (options.units.empty() || form == MaterialForm::kGdb) return {};
  if (form != MaterialForm::kGdbp) {
    return Failure{"", "--units",
                   fmt::format("a {} is always in the same units", InfoOf(form).what),
                   "leave it out, or write a .gdbp file"};
  }
  const UnitSystem fixed = SystemOfFile({});
  const auto asked = SystemNamed(options.units, fixed);
  if (!asked) return asked.AsOutcome();
  for (const UnitBase base : {UnitBase::kMass, UnitBase::kTime}) {
    if ((*asked)[base] == fixed[base]) continue;
    return Failure{"", "--units", fmt::format("a {} is always in kg and sec", InfoOf(form).what),
                   "leave the unit of mass and time out"};
  }
  return {};
}

/// Whether a library is byte for byte what we write of what it says: then nobody put anything into
/// it that replacing it would lose for good.
bool IsOwnLibrary(const std::string& path, MaterialForm form) {
  const auto page = GuessPage(path, form);
  const auto table = page ? ReadMaterials(path, form, *page) : page.Error();
  if (!table) return false;
  const auto again = NewFile::Create(path);
  if (!again) return false;
  const std::string& name = (*again)->Name();
  if (!WriteMaterials(*table, name, form, *page, UnitsOfTable(*table))) return false;
  const auto old_bytes = ReadWholeFile(path), new_bytes = ReadWholeFile(name);
  return old_bytes && new_bytes && *old_bytes == *new_bytes;
}

Outcome Convert(const MaterialOptions& options, const Context& context) {
  const Result<Opened> opened = OpenLibrary(options);
  if (!opened) return opened.Error();
  const auto form =
      options.target_form.empty() ? FormOfName(options.target) : FormNamed(options.target_form);
  if (!form) return form.Error();
  if (Outcome taken = CheckUnits(options, *form); !taken) return taken;
  const auto page = options.target_encoding.empty() ? Result<CodePage>(opened->page)
                                                    : CodePage::Named(options.target_encoding);
  if (!page) return page.Error();
  if (opened->table.materials.empty() && !options.force) {
    return Failure{options.file, "", "has no materials", "see qxdb material lint " + options.file};
  }
  const auto is_own = [&](const std::string& path) { return IsOwnLibrary(path, *form); };
  if (Outcome free = CheckOutput(options.target, is_own, options.force, {options.file}); !free) {
    return free;
  }
  std::vector<std::string> lost;
  const Outcome written =
      WriteMaterials(opened->table, options.target, *form, *page, opened->units, &lost);
  if (!written) return written.Error();
  const auto count = static_cast<std::int64_t>(opened->table.materials.size());
  std::string text =
      fmt::format("{}: {} materials as {}\n", options.target, Grouped(count), InfoOf(*form).what);
  JsonText json;
  json.Begin().Text("file", options.target).Text("form", InfoOf(*form).name);
  json.Integer("materials", count).BeginArray("lost");
  for (const std::string& what : lost) {
    text += "not kept, for the form has no place for it: " + what + "\n";
    json.Text({}, what);
  }
  json.End();
  WriteNotes(*opened, options, json);
  context.Print(text + LintText(*opened, options), json.End());
  return {};
}

// ---- import -------------------------------------------------------------------------------------

struct Destination {
  std::string_view property;
  double tagTMatl::*member;
};
constexpr Destination kDestinations[] = {
    {"elastic modulus", &tagTMatl::elastic_modulus},
    {"shear modulus", &tagTMatl::shear_modulus},
    {"Poisson's ratio", &tagTMatl::poisson_ratio},
    {"mass density", &tagTMatl::density},
    {"expansion coefficient", &tagTMatl::thermal_expansion},
    {"reference temperature", &tagTMatl::reference_temperature},
    {"conductivity", &tagTMatl::conductivity},
    {"specific heat", &tagTMatl::specific_heat},
    {"heat generation factor", &tagTMatl::heat_generation_factor},
    {"structural damping", &tagTMatl::structural_damping},
    {"mass proportional damping", &tagTMatl::mass_damping},
    {"stiffness proportional damping", &tagTMatl::stiffness_damping},
    {"tensile strength", &tagTMatl::tensile_strength},
    {"compressive strength", &tagTMatl::compressive_strength},
    {"shear strength", &tagTMatl::shear_strength},
    {"yield stress", &tagTMatl::yield_stress},
    {"tangent modulus", &tagTMatl::tangent_modulus},
    {"endurance limit", &tagTMatl::endurance_limit},
    {"cycles at endurance", &tagTMatl::endurance_cycles},
    {"dynamic viscosity", &tagTMatl::dynamic_viscosity},
};

/// The materials that were asked for, in the order of the names.
Result<std::vector<const Material*>> Chosen(const MaterialTable& table,
                                            const MaterialOptions& options) {
  std::vector<const Material*> chosen;
  if (options.all) {
    for (const Material& material : table.materials) chosen.push_back(&material);
    return chosen;
  }
  for (const std::string& name : options.names) {
    const auto found = Named(table, name);
    if (found.empty()) return NoSuchMaterial(options, name);
    if (found.size() > 1) {
      return Failure{options.file, "material \"" + name + "\"",
                     "is in the library " + std::to_string(found.size()) + " times",
                     "give its copies different names, or import all"};
    }
    chosen.push_back(found[0]);
  }
  return chosen;
}

std::int32_t KindOf(MaterialForm form) {
  if (form == MaterialForm::kFluid) return tagTMatl::kFluid;
  return form == MaterialForm::kParticle ? tagTMatl::kParticle : tagTMatl::kIsotropic;
}

template <std::size_t N>
Outcome SetText(TString<N>& to, const CString& text, const std::string& file) {
  to.Set(text.View());
  if (to.View() == text.View()) return {};
  return Failure{file, "\"" + text.Left(40).ToUtf8() + "\"",
                 fmt::format("is longer than the {} characters that a model keeps", N - 1),
                 "give it a shorter name in the library"};
}

/// The properties of a material that a record has no member for.
std::vector<std::string> Homeless(const MaterialTable& table,
                                  const std::vector<const Material*>& materials) {
  std::vector<std::string> names;
  for (std::size_t i = 0; i < table.columns.size(); ++i) {
    const std::string& property = table.columns[i].property;
    const bool has_place = std::any_of(std::begin(kDestinations), std::end(kDestinations),
                                       [&](const auto& to) { return to.property == property; });
    const bool used = std::any_of(materials.begin(), materials.end(),
                                  [&](const Material* m) { return m->values[i] != 0.0; });
    if (!has_place && used) names.push_back(property);
  }
  return names;
}

Outcome FillRecord(const MaterialTable& table, const Material& material,
                   const MaterialOptions& options, tagTMatl& record) {
  if (material.name.View().empty()) {
    return Failure{options.file, "", "a material has no name", "name it in the library"};
  }
  Outcome fits = CheckName(material.name, options.file);
  if (fits) fits = SetText(record.name, material.name, options.file);
  if (fits) fits = SetText(record.library_category, material.category, options.file);
  if (!fits) return fits;
  // The library's name only tells where the material came from, so a long one is cut.
  const std::string library = options.file.substr(options.file.find_last_of("/\\") + 1);
  record.library.Set(Utf16(library));
  for (const Destination& to : kDestinations) {
    const auto at = table.Find(to.property);
    if (!at) continue;
    if (!std::isfinite(material.values[*at])) {
      return Failure{options.file, "material \"" + material.name.ToUtf8() + "\"",
                     "has no finite " + std::string(to.property), "correct it in the library"};
    }
    StoreAt(reinterpret_cast<char*>(&(record.*to.member)), double{material.values[*at]});
  }
  return {};
}

/// The materials of a model by name and category, as a library tells its own apart.
class KnownMaterials {
 public:
  explicit KnownMaterials(DPoolMatl& pool) {
    for (ITR next = pool.GetHeadPosition(); next != 0;) {
      const ITR item = next;
      Add(pool.GetNextNU(next), item);
    }
  }
  void Add(const tagTMatl& record, ITR item) { items_.emplace(NamesOf(record), item); }
  /// 0 when there is none.
  ITR Find(const tagTMatl& record) const {
    const auto found = items_.find(NamesOf(record));
    return found == items_.end() ? 0 : found->second;
  }

 private:
  using Names = std::pair<std::u16string, std::u16string>;
  static Names NamesOf(const tagTMatl& record) {
    return {std::u16string(record.name.View()), std::u16string(record.library_category.View())};
  }
  std::map<Names, ITR> items_;
};

/// Puts one material into the pool; returns its key.
Result<Key> Put(DPoolMatl& pool, KnownMaterials& known, const MaterialTable& table,
                const Material& material, const MaterialOptions& options, std::int32_t kind) {
  tagTMatl record;
  record.type = kind;
  if (Outcome filled = FillRecord(table, material, options, record); !filled) {
    return filled.Error();
  }
  ITR there = known.Find(record);
  if (!there) {
    record.key = pool.Set().GetFreeKey();
    known.Add(record, pool.InsertNU(record));
    return record.key;
  }
  const tagTMatl& old = pool.GetAtNU(there);
  if (!options.replace) {
    return Failure{options.model, "material " + std::to_string(old.key),
                   "has the name \"" + material.name.ToUtf8() + "\" already",
                   "use --replace to overwrite it"};
  }
  record.key = old.key;
  record.color = old.color;
  pool.SetAtNU(there, record);
  return record.key;
}

Outcome ImportMaterials(const MaterialOptions& options, const Context& context) {
  const Result<Opened> opened = OpenLibrary(options);
  if (!opened) return opened.AsOutcome();
  Model model(options.model);
  model.yes = context.yes;
  if (Outcome open = model.Open(); !open) return open;
  const MaterialTable table = InUnits(opened->table, model.session.Units().Model());
  const auto chosen = Chosen(table, options);
  if (!chosen) return chosen.AsOutcome();
  auto& pool = *model.session.GetPool<DPoolMatl>(code::kMatl);
  Table text({">key", "material"});
  JsonText json;
  json.Begin().Text("model", options.model).BeginArray("materials");
  Edit edit(model);
  Outcome done = edit.Do(u"Import materials", [&]() -> Outcome {
    KnownMaterials known(pool);
    for (const Material* material : *chosen) {
      const Result<Key> key = Put(pool, known, table, *material, options, KindOf(opened->form));
      if (!key) return key.AsOutcome();
      text.Row({std::to_string(*key), material->name.ToUtf8()});
      json.Begin().Integer("key", *key).Text("name", material->name.ToUtf8()).End();
    }
    return {};
  });
  if (done) done = edit.Save();
  if (!done) return done;
  std::string result = text.IsEmpty() ? "no materials\n" : text.Text();
  json.End().BeginArray("lost");
  for (const std::string& property : Homeless(table, *chosen)) {
    result += "not kept, for a model's material has no place for it: " + property + "\n";
    json.Text({}, property);
  }
  json.End();
  WriteNotes(*opened, options, json);
  context.Print(result + NotesText(*opened, options, true), json.End());
  return {};
}

using Job = Outcome (*)(const MaterialOptions&, const Context&);

}  // namespace

void AddMaterial(Command& app, Context& context) {
  Command* command =
      AddCommand(app, context, "material", "List, convert and import material libraries",
                 "qxdb material list examples/materials/common.gdbp --units m,kN");
  const auto add_plain = [&](const char* name, const char* what, const char* example, Job job) {
    auto added = AddCommand<MaterialOptions>(*command, context, name, what, example, job);
    const auto& [sub, options] = added;
    sub->Add("file", &options->file, "Library file").File().Required();
    sub->Add("--form", &options->form,
             "Its form (text, binary, fluid, particle, gdb, gdbp); else as it looks");
    sub->Add("--encoding", &options->encoding,
             "Of a text without a mark: UTF-8, 1252, ...; else UTF-8 where its bytes are that, or "
             "the code page of the locale");
    return added;
  };
  const auto add = [&](const char* name, const char* what, const char* example, Job job) {
    auto added = add_plain(name, what, example, job);
    const auto& [sub, options] = added;
    sub->Add("--lint", &options->lint,
             "Name each line that is left out or read otherwise than it looks");
    return added;
  };
  const auto [list, list_options] = add("list", "List the materials of a library",
                                        "qxdb material list steel.gdbp --units m,kN --lint", List);
  const auto [show, show_options] =
      add("show", "Print all properties of a material",
          "qxdb material show steel.gdbp S235 --units in,lbf,F", Show);
  add_plain(
      "lint",
      "Name all that is left out or read otherwise than it looks, and refuse what is doubtful",
      "qxdb material lint steel.gdbp", Lint);
  const auto [convert, convert_options] =
      add("convert", "Write a library in another form",
          "qxdb material convert steel.txt steel.gdbp --units mm,N", Convert);
  const auto [import, import_options] =
      add("import", "Take materials into a model, as one undoable step",
          "qxdb material import steel.gdbp bracket.qxm S235 S355", ImportMaterials);
  const char* units = "Units by name, such as mm,N,J,C; the others as the file has them";
  list->Add("--units", &list_options->units, units);
  show->Add("name", &show_options->names, "Name of the material").Count(1).Required();
  show->Add("--units", &show_options->units, units);
  convert->Add("target", &convert_options->target, "File to write").File().Required();
  AddForce(*convert, convert_options->force);
  convert->Add("--to", &convert_options->target_form,
               "Its form; else by its extension: .txt .bin .cfd .cfdbin .gdbp");
  convert->Add("--to-encoding", &convert_options->target_encoding,
               "Code page of what is written; else that of what is read");
  convert->Add("--units", &convert_options->units,
               "The same, for a .gdbp file; other forms have units of their own");
  import->Add("model", &import_options->model, "Model file").OpenModel().Required();
  Option& names = import->Add("names", &import_options->names, "Names of materials");
  Option& all = import->Add("--all", &import_options->all, "All materials of the library");
  import->ExactlyOne(names, all);
  import->Add("--replace", &import_options->replace, "Overwrite materials of the same name");
}

}  // namespace qx::app
