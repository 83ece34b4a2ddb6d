#include "qx_db/material/material_file.h"

#include <algorithm>
#include <cstring>
#include <fstream>

#include "qx_db/material/fluid_library.h"
#include "qx_db/material/gdb_file.h"
#include "qx_db/material/structural_library.h"
#include "qx_db/material/text_table.h"
#include "qx_db/platform/file.h"

namespace qx {
namespace {

constexpr MaterialFormInfo kForms[] = {
    {"text", ".txt", "text table of structural materials"},
    {"binary", ".bin", "binary library of structural materials"},
    {"fluid", ".cfd", "keyword file of fluid materials"},
    {"particle", ".cfdbin", "binary library of fluid and particle materials"},
    {"gdb", ".gdb", "user library, older form (read only)"},
    {"gdbp", ".gdbp", "user library"},
};

std::vector<MaterialColumn> StructuralTableColumns(std::size_t count, const UnitSystem& units) {
  std::vector<MaterialColumn> columns;
  for (const StructuralColumn& column : StructuralColumns().first(count)) {
    columns.push_back({std::string(column.property), column.kind, units});
  }
  return columns;
}

std::vector<MaterialColumn> FluidTableColumns() {
  std::vector<MaterialColumn> columns;
  for (const FluidProperty& property : FluidProperties()) {
    columns.push_back({std::string(property.property), property.kind, property.units});
  }
  return columns;
}

/// Of rows of up to `values` numbers; a library of fewer columns makes a table of as many.
MaterialTable TableOf(MaterialCategories categories, std::size_t values) {
  std::size_t longest = 0;
  bool has_rows = false;
  for (const MaterialCategory& category : categories) {
    for (const MaterialRow& row : category.rows) longest = std::max(longest, row.values.size());
    has_rows |= !category.rows.empty();
  }
  if (has_rows) values = std::min(values, longest);
  MaterialTable table;
  table.columns = StructuralTableColumns(values, LibraryUnits());
  for (MaterialCategory& category : categories) {
    for (MaterialRow& row : category.rows) {
      row.values.resize(values);
      table.materials.push_back({category.name, std::move(row.name), std::move(row.values)});
    }
  }
  return table;
}

MaterialTable TableOf(const FluidLibrary& library) {
  MaterialTable table;
  table.title = library.title;
  table.numbering_offset = library.numbering_offset;
  table.columns = FluidTableColumns();
  for (const FluidMaterial& material : library.materials) {
    CString name = material.name;
    name.Trim();  // a record is filled up with blanks, which its reader keeps
    table.materials.push_back({{}, name, {material.values.begin(), material.values.end()}});
  }
  return table;
}

MaterialTable TableOf(const GdbFile& file, const std::string& path) {
  MaterialTable table;
  table.title = CString::FromUtf8(Utf8FromPath(PathFromUtf8(path).stem()));
  table.columns = StructuralTableColumns(file.values, SystemOfFile(file.units));
  for (const GdbMaterial& material : file.materials) {
    const auto first = material.values.begin();
    table.materials.push_back(
        {{}, material.name, {first, first + static_cast<std::ptrdiff_t>(file.values)}});
  }
  return table;
}

/// What a reader gave, as a table.
template <class T, class... More>
Result<MaterialTable> AsTable(Result<T> read, const More&... more) {
  if (!read) return read.Error();
  return TableOf(std::move(*read), more...);
}

/// Categories of consecutive materials; those without one go under the library's title.
MaterialCategories CategoriesOf(const MaterialTable& table) {
  MaterialCategories categories;
  for (const Material& material : table.materials) {
    const CString& name = material.category.IsEmpty() ? table.title : material.category;
    if (categories.empty() || categories.back().name != name) categories.push_back({name, {}});
    categories.back().rows.push_back({material.name, material.values});
  }
  return categories;
}

FluidLibrary FluidLibraryOf(const MaterialTable& table) {
  FluidLibrary library;
  library.title = table.title;
  library.numbering_offset = table.numbering_offset.value_or(FluidLibrary::kFirstNumber);
  for (const Material& material : table.materials) {
    FluidMaterial& fluid = library.materials.emplace_back();
    fluid.name = material.name;
    std::copy(material.values.begin(), material.values.end(), fluid.values.begin());
  }
  return library;
}

/// Tells of the categories, for a form that has none.
void LoseCategories(const MaterialTable& table, std::vector<std::string>* lost) {
  const bool any = std::any_of(table.materials.begin(), table.materials.end(),
                               [](const Material& m) { return !m.category.IsEmpty(); });
  if (any && lost) lost->push_back("the categories of materials");
}

/// Tells of names that a keyword file, which is read in upper case, changes.
void LoseLowerCase(const FluidLibrary& library, std::vector<std::string>* lost) {
  const bool any =
      std::any_of(library.materials.begin(), library.materials.end(),
                  [](const FluidMaterial& m) { return CString(m.name).MakeUpper() != m.name; });
  if (any && lost) lost->push_back("the lower case of names");
}

Outcome WriteAsFluids(const MaterialTable& table, const std::string& path, MaterialForm form,
                      std::vector<std::string>* lost) {
  const FluidLibrary library = FluidLibraryOf(WithColumns(table, FluidTableColumns(), lost));
  LoseCategories(table, lost);
  if (form == MaterialForm::kParticle) return WriteParticleLibrary(library, path);
  LoseLowerCase(library, lost);
  return WriteFluidFile(library, path);
}

Outcome WriteAsGdbp(const MaterialTable& table, const std::string& path, const CodePage& page,
                    const UnitSystem& units, std::vector<std::string>* lost) {
  const T_UNIT_INDEX written = {units[UnitBase::kForce], units[UnitBase::kLength],
                                units[UnitBase::kHeat], units[UnitBase::kTemperature], 1};
  const MaterialTable fitted =
      WithColumns(table, StructuralTableColumns(kGdbpValues, SystemOfFile(written)), lost);
  LoseCategories(table, lost);
  std::vector<GdbMaterial> materials;
  for (const Material& material : fitted.materials) {
    GdbMaterial& one = materials.emplace_back();
    one.name = material.name;
    one.units = written;
    std::copy(material.values.begin(), material.values.end(), one.values.begin());
  }
  return WriteGdbFile(path, materials, GdbTitles(), written, page, kReadableStyle);
}

/// The first bytes of a file that can be read; empty otherwise.
std::u16string Beginning(const std::string& path) {
  char bytes[160] = {};
  std::ifstream in(PathFromUtf8(path), std::ios::binary);
  in.read(bytes, sizeof(bytes));
  std::u16string units(static_cast<std::size_t>(in.gcount()) / 2, u'\0');
  std::memcpy(units.data(), bytes, 2 * units.size());
  return units;
}

Result<MaterialForm> FormWhere(std::string_view MaterialFormInfo::*member, std::string_view text,
                               Failure failure) {
  for (std::size_t i = 0; i < std::size(kForms); ++i) {
    if (EqualNoCase(kForms[i].*member, text)) return static_cast<MaterialForm>(i);
  }
  for (const MaterialFormInfo& info : kForms) {
    failure.remedy += (&info == kForms ? "use " : ", ") + std::string(info.*member);
  }
  return failure;
}

}  // namespace

std::span<const MaterialFormInfo> MaterialForms() { return kForms; }

const MaterialFormInfo& InfoOf(MaterialForm form) { return kForms[static_cast<std::size_t>(form)]; }

Result<MaterialForm> FormNamed(std::string_view name) {
  return FormWhere(&MaterialFormInfo::name, name,
                   {"", "form \"" + std::string(name) + "\"", "is not known", ""});
}

Result<MaterialForm> FormOfName(const std::string& path) {
  return FormWhere(&MaterialFormInfo::extension, Utf8FromPath(PathFromUtf8(path).extension()),
                   {path, "", "has no extension of a material file", ""});
}

Result<MaterialForm> FormOfFile(const std::string& path) {
  if (Outcome is_file = CheckIsFile(path); !is_file) return is_file.Error();
  const std::u16string start = Beginning(path);
  if (start.starts_with(kParticleMagic)) return MaterialForm::kParticle;
  // The column count, in its two units, tells a library from a keyword file of the same magic.
  constexpr std::size_t kColumnsAt = kStructuralMagic.size() + 2;
  if (start.starts_with(kStructuralMagic) && start.size() > kColumnsAt + 1 &&
      start[kColumnsAt] >= 1 && start[kColumnsAt] <= kStructuralColumnCount &&
      start[kColumnsAt + 1] == 0) {
    return MaterialForm::kBinary;
  }
  if (start.find(kFluidMagic) != start.npos) return MaterialForm::kFluid;
  const Result<MaterialForm> by_name = FormOfName(path);
  return by_name ? *by_name : Result<MaterialForm>(MaterialForm::kText);
}

Result<CodePage> GuessPage(const std::string& path, MaterialForm form, bool* told) {
  if (told) *told = false;
  const bool is_text =
      form == MaterialForm::kText || form == MaterialForm::kGdb || form == MaterialForm::kGdbp;
  if (!is_text) return CodePage();
  const Result<std::string> bytes = ReadWholeFile(path);
  if (!bytes) return bytes.Error();
  const bool ascii =
      std::all_of(bytes->begin(), bytes->end(), [](char c) { return (c & 0x80) == 0; });
  if (told) *told = !ascii && !bytes->starts_with("\xEF\xBB\xBF");
  return IsUtf8(*bytes) ? CodePage() : CodePage::OfLocale();
}

Result<MaterialTable> ReadMaterials(const std::string& path, MaterialForm form,
                                    const CodePage& page, const MaterialLint& lint) {
  switch (form) {
    case MaterialForm::kText:
      return AsTable(ReadTextTable(path, page, lint), kTextValues);
    case MaterialForm::kBinary: {
      Result<StructuralLibrary> read = ReadStructuralLibrary(path, lint);
      if (!read) return read.Error();
      return TableOf(std::move(read->categories), kBinaryValues);
    }
    case MaterialForm::kFluid:
      return AsTable(ReadFluidFile(path, lint));
    case MaterialForm::kParticle:
      return AsTable(ReadParticleLibrary(path, lint));
    case MaterialForm::kGdb:
    case MaterialForm::kGdbp:
      return AsTable(ReadGdbFile(path, page, lint), path);
  }
  return Failure{path, "", "has an unknown form", "name one"};
}

UnitSystem UnitsOfTable(const MaterialTable& table) {
  const bool mixed = std::any_of(
      table.columns.begin(), table.columns.end(),
      [&](const MaterialColumn& column) { return column.units != table.columns[0].units; });
  return mixed || table.columns.empty() ? LibraryUnits() : table.columns[0].units;
}

Outcome WriteMaterials(const MaterialTable& table, const std::string& path, MaterialForm form,
                       const CodePage& page, const UnitSystem& units,
                       std::vector<std::string>* lost) {
  switch (form) {
    case MaterialForm::kText:
      return WriteTextTable(CategoriesOf(WithColumns(
                                table, StructuralTableColumns(kTextValues, LibraryUnits()), lost)),
                            path, page);
    case MaterialForm::kBinary:
      return WriteStructuralLibrary(
          CategoriesOf(
              WithColumns(table, StructuralTableColumns(kBinaryValues, LibraryUnits()), lost)),
          path);
    case MaterialForm::kFluid:
    case MaterialForm::kParticle:
      return WriteAsFluids(table, path, form, lost);
    case MaterialForm::kGdb:
      break;
    case MaterialForm::kGdbp:
      return WriteAsGdbp(table, path, page, units, lost);
  }
  return Failure{path, "", "the older form .gdb is read only", "write a .gdbp file"};
}

}  // namespace qx
