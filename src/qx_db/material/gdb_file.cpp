#include "qx_db/material/gdb_file.h"

#include <span>

#include "qx_db/platform/file.h"
#include "qx_db/platform/local_date.h"

namespace qx {
namespace {

constexpr std::size_t kLongestLine = 4096;
constexpr std::string_view kVersionMark = "**Version";
constexpr std::string_view kUnitMark = "**Unit";

/// The versions that are read, with the values that a line has after its name. That which Save
/// writes is not among them, deliberately: a saved file is read once someone has looked at it and
/// set its version.
struct VersionRow {
  std::string_view version;
  std::size_t values;
};
constexpr std::array<VersionRow, 2> SetVersionData() {
  return {{{"2.6.5", kGdbValues}, {"2.7.0", kGdbpValues}}};
}

constexpr UnitBase kUnitOrder[] = {UnitBase::kForce, UnitBase::kLength, UnitBase::kHeat,
                                   UnitBase::kTemperature, UnitBase::kTime};
constexpr std::int32_t T_UNIT_INDEX::*kUnitPlaces[] = {
    &T_UNIT_INDEX::force, &T_UNIT_INDEX::length, &T_UNIT_INDEX::heat, &T_UNIT_INDEX::temperature,
    &T_UNIT_INDEX::time};

bool Has(std::string_view text, std::string_view part) {
  return text.find(part) != std::string_view::npos;
}

std::string Quoted(std::string_view text) { return "\"" + std::string(text) + "\""; }

/// Index of a unit, -1 when unknown. "mJ" must not be taken for the "MJ" that it is a billionth of.
int FindFileUnit(UnitBase base, std::string_view name) {
  const int index = FindUnit(base, name);
  if (index < 0) return index;
  const std::string_view found = UnitsOf(base)[static_cast<std::size_t>(index)].name;
  const bool prefixed = found == "MN" || found == "mN" || found == "MJ";
  return prefixed && name[0] != found[0] ? -1 : index;
}

/// Reads the lines of one file.
class GdbReader {
 public:
  GdbReader(TextLines& lines, bool gdbp, const MaterialLint& lint)
      : lines_(lines), gdbp_(gdbp), values_(gdbp ? 0 : kGdbValues), lint_(lint) {}

  Result<GdbFile> Read() {
    file_.page = lines_.Page();
    // A growing list would hold its materials up to three times; a line has its separators at
    // least.
    file_.materials.reserve(lines_.MostLines(kGdbValues + 1));
    std::string_view line;
    while (lines_.Next(line)) {
      if (IsRemark(line)) continue;
      Outcome read = !file_.units.flag && Has(line, kUnitMark) ? ReadUnits(line)
                     : Has(line, kVersionMark)                 ? GetVersion(line)
                                                               : ReadMaterial(line);
      if (!read) return read.Error();
    }
    if (Outcome check = lines_.Check(); !check) return check.Error();
    if (Outcome head = CheckHead("the file ends without"); !head) {
      if (Outcome empty = lint_.Doubt(head.Error()); !empty) return empty.Error();
    }
    // Without a version, and so without materials, a line would have what this version writes.
    file_.values = values_ != 0 ? values_ : kGdbpValues;
    return std::move(file_);
  }

 private:
  void Note(const std::string& why) const {
    if (lint_) lint_(lines_.Number(), why);
  }

  /// Lines that are left out by their looks. One with "//" may be meant otherwise.
  bool IsRemark(std::string_view line) const {
    if (Trimmed(line).empty() || line[0] == ';') return true;
    if (!Has(line, "//")) return false;
    if (!Trimmed(line).starts_with("//")) Note("left out: \"//\" makes the whole line a remark");
    return true;
  }

  Outcome ReadUnits(std::string_view line) {
    const auto wrong = ParseUnitLine(line, gdbp_, file_.units);
    if (!wrong) return {};
    return lines_.At(*wrong, "write **Unit, force, length, heat, temperature by known names");
  }

  Outcome GetVersion(std::string_view line) {
    if (!gdbp_ || values_ != 0) {
      Note(gdbp_ ? "left out: the version was given before"
                 : "left out: a file in the older form has no version");
      return {};
    }
    SplitFields(line, ',', parts_);
    if (parts_.size() != 2) {
      return lines_.At("is no version line of 2 fields", "write **Version, 2.7.0");
    }
    const std::string_view version = Trimmed(parts_[1]);
    for (const VersionRow& row : SetVersionData()) {
      if (EqualNoCase(row.version, version)) values_ = row.values;
    }
    if (values_ != 0) return {};
    return lines_.At("has the version " + Quoted(version) + ", not 2.6.5 or 2.7.0",
                     "write 2.7.0 if its lines have a name and 17 values");
  }

  /// What must stand before the first material.
  Outcome CheckHead(const std::string& what) const {
    if (values_ == 0) return lines_.At(what + " a **Version line", "add **Version, 2.7.0");
    if (!file_.units.flag) return lines_.At(what + " a **Unit line", "add **Unit, N, mm, J, C");
    return {};
  }

  Outcome ReadMaterial(std::string_view line) {
    if (Outcome head = CheckHead("has data before"); !head) return head;
    SplitFields(line, ',', parts_);
    if (parts_.size() != values_ + 1) {
      Note("left out: " + std::to_string(parts_.size()) + " fields where " +
           std::to_string(values_ + 1) + " are needed");
      return {};
    }
    GdbMaterial& material = file_.materials.emplace_back();
    material.name = CString::FromUtf8(Trimmed(parts_[0]));
    material.units = file_.units;
    return values_ == kGdbValues ? Load_GDB(material) : Load_Lastest(material);
  }

  /// A line of the older form: the name and the first 12 values.
  Outcome Load_GDB(GdbMaterial& material) {
    return SetData(std::span(material.values).first(kGdbValues));
  }
  /// A line of the newer form: the name and all 17.
  Outcome Load_Lastest(GdbMaterial& material) { return SetData(material.values); }

  /// The numbers of a line, which stay in the units of the file.
  Outcome SetData(std::span<double> values) {
    for (std::size_t i = 0; i < values.size(); ++i) {
      const ParsedNumber number = ParseNumber(parts_[i + 1]);
      if (!number.in_range) {
        return lines_.At(Quoted(Trimmed(parts_[i + 1])) + " is too large", "correct the number");
      }
      if (!number.whole && lint_) NoteOddNumber(i, number.value);
      values[i] = number.value;
    }
    return {};
  }

  void NoteOddNumber(std::size_t i, double value) const {
    Note("field " + std::to_string(i + 2) + " (" + std::string(StructuralColumns()[i].property) +
         ") " + Quoted(Trimmed(parts_[i + 1])) + " is read as " + ShortestText(value));
  }

  TextLines& lines_;
  const bool gdbp_;
  std::size_t values_;  // of a line; 0 until the version says so
  const MaterialLint& lint_;
  GdbFile file_;
  std::vector<std::string_view> parts_;
};

/// A name that would come back as another one, or not at all.
Outcome CheckGdbName(const CString& name, const std::string& file) {
  if (Outcome whole = CheckName(name, file); !whole) return whole;
  const std::string utf8 = name.ToUtf8();
  const bool read_otherwise = utf8.find_first_of(std::string_view(",\r\n\0", 4)) != utf8.npos ||
                              Trimmed(utf8) != utf8 || utf8.starts_with(';') || Has(utf8, "//") ||
                              Has(utf8, kVersionMark) || Has(utf8, kUnitMark);
  if (!read_otherwise) return {};
  return Failure{file, "material " + Quoted(utf8),
                 "has a name that would not read back: a comma, a line end, \"//\", a mark of the "
                 "format, or blanks around it",
                 "give it another name"};
}

Outcome AppendMaterial(const GdbMaterial& material, const GdbStyle& style, const std::string& file,
                       std::string& text) {
  if (Outcome good = CheckGdbName(material.name, file); !good) return good;
  const std::string name = material.name.ToUtf8();
  if (material.name.GetLength() > 1024) {
    return Failure{file, "material " + Quoted(material.name.Left(40).ToUtf8()),
                   "has a name of over 1024 characters", "give it a shorter name"};
  }
  if (Outcome good = CheckValues(material.name, material.values, file); !good) return good;
  text += name;
  for (const double value : material.values) {
    text += ",\t";
    text += style.number(value);
  }
  text += '\n';
  return {};
}

/// The version line and the unit line.
std::string WriteUnit(const T_UNIT_INDEX& units, const GdbStyle& style) {
  std::string text =
      std::string(kVersionMark) + ", " + std::string(style.version) + "\n" + std::string(kUnitMark);
  for (std::size_t i = 0; i < 4; ++i) {
    const auto index = static_cast<std::size_t>(units.*kUnitPlaces[i]);
    text += ", " + std::string(UnitsOf(kUnitOrder[i])[index].name);
  }
  return text + "\n\n";
}

/// All that stands before the first material.
std::string WriteInfo(const std::vector<CString>& titles, const T_UNIT_INDEX& units,
                      const GdbStyle& style) {
  const std::string rule = ";" + std::string(75, '-') + "\n";
  const LocalDate today = Today();
  std::string text = rule + ";  Material DataBase File.\n;  Date : " + std::to_string(today.year) +
                     "/" + std::to_string(today.month) + "/" + std::to_string(today.day) + "\n" +
                     rule + "\n" + WriteUnit(units, style) + ";";
  for (std::size_t i = 0; i < titles.size(); ++i) {
    // A line end in a title would put the rest of it among the data.
    std::string title = titles[i].ToUtf8();
    std::erase_if(title, [](char c) { return c == '\n' || c == '\r' || c == '\0'; });
    text += (i > 0 ? ", " : "") + title;
  }
  return text + "\n";
}

}  // namespace

const GdbStyle kSavedStyle = {"3.7.0", SixDigitText};
const GdbStyle kReadableStyle = {"2.7.0", ShortestText};

UnitSystem SystemOfFile(const T_UNIT_INDEX& units) {
  UnitSystem system;
  for (std::size_t i = 0; i < std::size(kUnitOrder); ++i) {
    system[kUnitOrder[i]] = units.*kUnitPlaces[i];
  }
  return system;
}

std::optional<std::string> ParseUnitLine(std::string_view line, bool gdbp, T_UNIT_INDEX& units) {
  std::vector<std::string_view> names;
  SplitFields(line, ',', names);
  names.erase(names.begin());
  const std::size_t least = gdbp ? 4 : 2;
  if (names.size() < least || names.size() > std::size(kUnitOrder)) {
    return "names " + std::to_string(names.size()) + " units, not " + std::to_string(least) +
           " to 5";
  }
  T_UNIT_INDEX found;
  for (std::size_t i = 0; i < names.size(); ++i) {
    const int index = FindFileUnit(kUnitOrder[i], Trimmed(names[i]));
    if (index < 0) {
      return Quoted(Trimmed(names[i])) + " is no known unit of " +
             std::string(UnitBaseName(kUnitOrder[i]));
    }
    found.*kUnitPlaces[i] = index;
  }
  found.flag = 1;
  units = found;
  return std::nullopt;
}

void ConvertMaterials(std::vector<GdbMaterial>& materials, const UnitSystem& from,
                      const UnitSystem& to) {
  if (from == to) return;
  CQXUnitCtrl units;
  units.SetModel(to);
  units.SetCurrent(from);
  for (GdbMaterial& material : materials) {
    for (std::size_t i = 0; i < kGdbpValues; ++i) {
      material.values[i] = units.In(StructuralColumns()[i].kind, material.values[i]);
    }
  }
}

bool IsGdbp(std::string_view path) {
  constexpr std::string_view kExtension = ".gdbp";
  return path.size() >= kExtension.size() &&
         EqualNoCase(path.substr(path.size() - kExtension.size()), kExtension);
}

Result<GdbFile> ParseGdbFile(std::string bytes, const std::string& file, bool gdbp,
                             const CodePage& page, const MaterialLint& lint) {
  Result<TextLines> lines = TextLines::FromBytes(std::move(bytes), file, page, kLongestLine, lint);
  if (!lines) return lines.Error();
  return GdbReader(*lines, gdbp, lint).Read();
}

Result<GdbFile> ReadGdbFile(const std::string& path, const CodePage& page,
                            const MaterialLint& lint) {
  Result<std::string> bytes = ReadWholeFile(path);
  if (!bytes) return bytes.Error();
  return ParseGdbFile(std::move(*bytes), path, IsGdbp(path), page, lint);
}

std::vector<CString> GdbTitles() {
  std::vector<CString> titles = {u"Name"};
  for (const StructuralColumn& column : StructuralColumns().first(kGdbpValues)) {
    titles.push_back(CString::FromUtf8(column.property));
  }
  return titles;
}

Outcome WriteGdbFile(const std::string& path, const std::vector<GdbMaterial>& materials,
                     const std::vector<CString>& titles, const T_UNIT_INDEX& units,
                     const CodePage& page, const GdbStyle& style) {
  if (Outcome may = CheckMayWrite(path); !may) return may;
  std::string text = WriteInfo(titles, units, style);
  for (const GdbMaterial& material : materials) {
    if (Outcome good = AppendMaterial(material, style, path, text); !good) return good;
  }
  const Result<std::string> bytes = EncodedFile(std::move(text), page, path);
  return bytes ? WriteWholeFile(path, *bytes) : bytes.AsOutcome();
}

}  // namespace qx
