// The keyword file: records of 160 bytes of UTF-16, a keyword and a value each.

#include <algorithm>
#include <cstring>

#include "qx_db/lib/variants.h"
#include "qx_db/material/fluid_library.h"
#include "qx_db/platform/file.h"

namespace qx {
namespace {

constexpr std::size_t kRecordBytes = 160;
constexpr std::size_t kRecordUnits = 79;  // that are read of a record
constexpr std::size_t kValueStart = 30;
constexpr std::size_t kNameWidth = 48;
constexpr std::size_t kMostMaterials = std::size_t{1} << 31;  // beyond any count that fits

bool Has(std::u16string_view text, std::u16string_view part) {
  return text.find(part) != std::u16string_view::npos;
}

std::u16string_view Part(std::u16string_view text, std::size_t start, std::size_t count) {
  return start < text.size() ? text.substr(start, count) : std::u16string_view();
}

/// The records of a file, upper-cased.
class Records {
 public:
  Records(std::string_view bytes, std::string file) : bytes_(bytes), file_(std::move(file)) {}

  /// Of the last record, the two bytes that are never read may be missing.
  std::size_t Count() const { return (bytes_.size() + 2) / kRecordBytes; }
  bool EndsInsideARecord() const {
    return bytes_.size() % kRecordBytes != 0 && (bytes_.size() + 2) % kRecordBytes != 0;
  }

  /// The text of a record, up to its terminator or line end.
  std::u16string Text(std::size_t index) const {
    std::u16string units(kRecordUnits, u'\0');
    std::memcpy(units.data(), bytes_.data() + index * kRecordBytes, 2 * kRecordUnits);
    constexpr std::u16string_view kEnds(u"\0\r\n", 3);
    return units.substr(0, units.find_first_of(kEnds));
  }
  Failure At(std::size_t index, std::string what, std::string remedy) const {
    return {file_, "record " + std::to_string(index), std::move(what), std::move(remedy)};
  }

 private:
  std::string_view bytes_;
  std::string file_;
};

/// Reads one file. Records are counted from 0.
class FluidReader {
 public:
  FluidReader(const Records& records, const MaterialLint& lint) : records_(records), lint_(lint) {}

  Result<FluidLibrary> Read() {
    if (Outcome head = ReadHead(); !head) return head.Error();
    for (record_ = 2; record_ < records_.Count() && !library_.materials.empty(); ++record_) {
      const std::u16string upper(CString(records_.Text(record_)).MakeUpper().View());
      if (Outcome read = ReadRecord(upper); !read) return read.Error();
    }
    if (current_ < library_.materials.size()) {
      Outcome fewer = Doubt("the file ends after " + std::to_string(current_) + " of the " +
                                std::to_string(counted_) + " materials that it counts",
                            "use a complete copy of the file or correct the count in record 1");
      if (!fewer) return fewer.Error();
    }
    return std::move(library_);
  }

 private:
  Failure Refuse(std::string what, std::string remedy) const {
    return records_.At(record_, std::move(what), std::move(remedy));
  }
  Outcome Doubt(std::string what, std::string remedy) const {
    return lint_.Doubt(Refuse(std::move(what), std::move(remedy)));
  }
  void Note(const std::string& why) const { lint_(static_cast<std::int64_t>(record_), why); }

  Outcome ReadHead() {
    if (records_.Count() == 0 || !Has(records_.Text(0), kFluidMagic)) {
      return Refuse("does not contain " + Utf8(kFluidMagic), "check that this is a fluid file");
    }
    library_.title = CString(records_.Text(0)).Trim();
    record_ = records_.Count();
    if (records_.EndsInsideARecord()) {
      Outcome cut = Doubt("the file ends inside it", "use a complete copy of the file");
      if (!cut) return cut;
    }
    record_ = 1;
    if (records_.Count() == 1) {
      return Refuse("is missing", "use a complete copy of the file");
    }
    return ReadCount();
  }

  Outcome ReadCount() {
    std::u16string digits(Part(records_.Text(1), kValueStart, kRecordUnits));
    std::erase_if(digits, [](char16_t c) { return c == u' ' || c == u'*'; });
    const ParsedNumber number = ParseNumber(Utf8(digits));
    if (!number.whole) {
      Outcome none =
          Doubt("\"" + Utf8(digits) + "\" is no number of materials", "correct the number");
      if (!none) return none;
    }
    counted_ = number.value < 1                ? 0
               : number.value > kMostMaterials ? kMostMaterials
                                               : static_cast<std::size_t>(number.value);
    // A material takes a record at least: memory is taken for those that can be there.
    const std::size_t left = records_.Count() - 2;
    if (counted_ > left) {
      Outcome more = Doubt("counts " + Utf8(digits) + " materials, but only " +
                               std::to_string(left) + " records follow",
                           "use a complete copy of the file or correct the number");
      if (!more) return more;
    }
    library_.materials.resize(std::min(counted_, left));
    return {};
  }

  Outcome ReadRecord(const std::u16string& text) {
    if (Has(text, u"*SMATERIALNO")) return ReadNumbering(text);
    if (Has(text, u"*NAME")) {
      if (!IsOpen()) return NoteClosed();
      CString name(Part(text, kValueStart, kNameWidth));
      if (IsVariantBOnline()) name.Trim();
      library_.materials[current_].name = name;
      return {};
    }
    const auto& properties = FluidProperties();
    for (std::size_t i = 0; i < properties.size(); ++i) {
      const bool excepted = !properties[i].unless.empty() && Has(text, properties[i].unless);
      if (Has(text, properties[i].keyword) && !excepted) return ReadValue(text, i);
    }
    if (Has(text, u"*END")) {
      if (!IsOpen()) return NoteClosed();
      ++current_;
    } else if (!CString(text).Trim().IsEmpty()) {
      Note("left out: no known keyword in \"" + CString(text).Trim().ToUtf8() + "\"");
    }
    return {};
  }

  bool IsOpen() const { return current_ < library_.materials.size(); }
  /// Of a record behind the materials that the file counts.
  Outcome NoteClosed() const {
    return Doubt("belongs to no material: the " + std::to_string(current_) +
                     " that the file counts have ended",
                 "correct the count in record 1");
  }

  Outcome ReadNumbering(const std::u16string& text) {
    const ParsedNumber number = ParseNumber(Utf8(Part(text, kValueStart, kNameWidth)));
    if (!number.whole) Note("the number is read as " + ShortestText(number.value));
    const double offset = static_cast<double>(library_.materials.size()) - number.value;
    const bool usable = offset >= 1 && offset <= 2147483647.0;
    library_.numbering_offset =
        usable ? static_cast<std::int32_t>(offset) : FluidLibrary::kFirstNumber;
    return {};
  }

  Outcome ReadValue(const std::u16string& text, std::size_t index) {
    if (!IsOpen()) return NoteClosed();
    const FluidProperty& property = FluidProperties()[index];
    const std::string digits =
        Utf8(Part(text, kValueStart, static_cast<std::size_t>(property.width)));
    const ParsedNumber number = ParseNumber(digits);
    if (!number.in_range) return Refuse("\"" + digits + "\" is too large", "correct the number");
    if (!number.whole) {
      Note(std::string(property.property) + " \"" + CString::FromUtf8(digits).Trim().ToUtf8() +
           "\" is read as " + ShortestText(number.value));
    }
    library_.materials[current_].values[index] = number.value * property.factor;
    return {};
  }

  const Records& records_;
  const MaterialLint& lint_;
  FluidLibrary library_;
  std::size_t counted_ = 0;  // by record 1
  std::size_t current_ = 0;
  std::size_t record_ = 0;
};

/// Appends a record: a keyword, its value from character 30 on, a line end at the record's.
Outcome AppendRecord(std::u16string_view keyword, std::u16string_view value, std::size_t width,
                     const std::string& file, std::u16string& text) {
  if (value.size() > width) {
    return Failure{file, "\"" + Utf8(value) + "\"",
                   "is longer than the " + std::to_string(width) + " characters of a record",
                   "give it a shorter name"};
  }
  std::u16string record(kRecordBytes / 2, u' ');
  record.back() = u'\n';
  record.replace(0, keyword.size(), keyword);
  record.replace(kValueStart, value.size(), value);
  text += record;
  return {};
}

/// The name's letters as they will be read.
Outcome CheckFluidName(const CString& name, const std::string& file) {
  const bool plain =
      name.View().find_first_of(std::u16string_view(u"*\0\r\n", 4)) == std::u16string_view::npos;
  if (plain) return CheckName(name, file);
  return Failure{file, "material \"" + name.ToUtf8() + "\"",
                 "has a '*' or a line end in its name, which could be taken for a keyword",
                 "give it another name"};
}

Outcome AppendMaterial(const FluidMaterial& material, const std::string& file,
                       std::u16string& text) {
  if (Outcome good = CheckFluidName(material.name, file); !good) return good;
  Outcome added = AppendRecord(u"*NAME", material.name.View(), kNameWidth, file, text);
  for (std::size_t i = 0; added && i < kFluidPropertyCount; ++i) {
    const FluidProperty& property = FluidProperties()[i];
    if (material.values[i] == 0.0) continue;
    const double value = material.values[i] / property.factor;
    if (Outcome good = CheckValues(material.name, {&value, 1}, file); !good) return good;
    added = AppendRecord(property.keyword, Utf16(ShortestText(value)),
                         static_cast<std::size_t>(property.width), file, text);
  }
  return added ? AppendRecord(u"*END", u"", kNameWidth, file, text) : added;
}

}  // namespace

Result<FluidLibrary> ParseFluidFile(std::string_view bytes, const std::string& file,
                                    const MaterialLint& lint) {
  const Records records(bytes, file);
  return FluidReader(records, lint).Read();
}

Result<FluidLibrary> ReadFluidFile(const std::string& path, const MaterialLint& lint) {
  const Result<std::string> bytes = ReadWholeFile(path);
  return bytes ? ParseFluidFile(*bytes, path, lint) : Result<FluidLibrary>(bytes.Error());
}

Outcome WriteFluidFile(const FluidLibrary& library, const std::string& path) {
  if (Outcome may = CheckMayWrite(path); !may) return may;
  const auto count = static_cast<std::int64_t>(library.materials.size());
  std::u16string text;
  Outcome added = AppendRecord(kFluidMagic, u"", kNameWidth, path, text);
  if (added) {
    added = AppendRecord(u"*MATERIALS", Utf16(std::to_string(count)), kNameWidth, path, text);
  }
  if (added) {
    added = AppendRecord(u"*SMATERIALNO", Utf16(std::to_string(count - library.numbering_offset)),
                         kNameWidth, path, text);
  }
  for (std::size_t i = 0; added && i < library.materials.size(); ++i) {
    added = AppendMaterial(library.materials[i], path, text);
  }
  if (!added) return added;
  return WriteFileBy(path, [&](std::ostream& out) {
    CStdioFile file(out);
    WriteText(file, text);
  });
}

}  // namespace qx
