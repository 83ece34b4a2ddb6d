#include "qx_db/material/text_table.h"

#include "qx_db/platform/file.h"

namespace qx {
namespace {

constexpr std::size_t kLongestTableLine = 2048;
/// Bounds the memory that a file of many short lines can take.
constexpr std::size_t kMostCategories = 65536;

/// Reads the lines of one table into categories.
class TableReader {
 public:
  TableReader(TextLines& lines, const MaterialLint& lint) : lines_(lines), lint_(lint) {}

  Result<MaterialCategories> Read() {
    std::string_view line;
    while (lines_.Next(line)) {
      Outcome read = line.starts_with('*') ? ReadCategory(line) : ReadRow(line);
      if (!read) return read.Error();
    }
    if (Outcome check = lines_.Check(); !check) return check.Error();
    return std::move(categories_);
  }

 private:
  void Note(const std::string& why) const {
    if (lint_) lint_(lines_.Number(), why);
  }

  Outcome ReadCategory(std::string_view line) {
    if (categories_.size() == kMostCategories) {
      return lines_.At("opens more than 65536 categories", "check that this is the right file");
    }
    SplitTokens(line, '*', parts_);
    if (parts_.empty()) Note("opens a category without a name");
    if (parts_.size() > 1) Note("the category's name ends at its '*'");
    const std::string_view name = parts_.empty() ? std::string_view() : Trimmed(parts_[0]);
    categories_.push_back({CString::FromUtf8(name), {}});
    return {};
  }

  Outcome ReadRow(std::string_view line) {
    SplitTokens(line, '|', parts_);
    if (parts_.size() <= kTextValues) {
      NoteSkipped(line);
      return {};
    }
    if (lint_ && Trimmed(line).starts_with('#')) {
      Note("starts with '#' but has 17 fields, so it is read as a material; take a '|' out of it");
    }
    if (lint_ && line.find("||") != std::string_view::npos) {
      Note("has an empty field, so the fields behind it move up by one; write 0");
    }
    MaterialRow row;
    row.name = CString::FromUtf8(Trimmed(parts_[0]));
    row.values.resize(kTextValues);
    for (std::size_t i = 0; i < kTextValues; ++i) {
      const ParsedNumber number = ParseNumber(parts_[i + 1]);
      if (!number.in_range) {
        return lines_.At("\"" + std::string(Trimmed(parts_[i + 1])) + "\" is too large",
                         "correct the number");
      }
      if (!number.whole && lint_) NoteOddNumber(i, number.value);
      row.values[i] = number.value;
    }
    if (categories_.empty()) {
      Note("stands before the first category, so it goes into one without a name");
      categories_.emplace_back();
    }
    categories_.back().rows.push_back(std::move(row));
    return {};
  }

  /// Blank lines and remarks, which start with '#', are meant to be left out.
  void NoteSkipped(std::string_view line) const {
    const std::string_view text = Trimmed(line);
    if (!lint_ || text.empty() || text[0] == '#') return;
    Note("left out: " + std::to_string(parts_.size()) + " fields where 17 are needed");
  }

  void NoteOddNumber(std::size_t i, double value) const {
    Note("field " + std::to_string(i + 2) + " (" + std::string(StructuralColumns()[i].property) +
         ") \"" + std::string(Trimmed(parts_[i + 1])) + "\" is read as " + ShortestText(value));
  }

  TextLines& lines_;
  const MaterialLint& lint_;
  MaterialCategories categories_;
  std::vector<std::string_view> parts_;
};

Outcome CheckText(const CString& name, const char* forbidden, const std::string& file) {
  const std::string utf8 = name.ToUtf8();
  const auto refuse = [&](const char* what) {
    return Failure{file, "\"" + utf8 + "\"", what, "give it another name"};
  };
  if (utf8.find_first_of(forbidden) != std::string::npos || utf8.find('\0') != std::string::npos) {
    return refuse("has a character in its name that separates fields or lines");
  }
  if (utf8.starts_with('*') || Trimmed(utf8) != utf8) {
    return refuse("has a name that starts or ends with what a text table drops");
  }
  return CheckName(name, file);
}

Outcome AppendRow(const MaterialRow& row, const std::string& file, std::string& text) {
  if (Outcome good = CheckText(row.name, "|\r\n", file); !good) return good;
  if (Outcome good = CheckValues(row.name, row.values, file); !good) return good;
  const std::size_t start = text.size();
  text += row.name.ToUtf8();
  for (std::size_t i = 0; i < kTextValues; ++i) {
    const double value = i < row.values.size() ? row.values[i] : 0.0;
    text += " | " + ShortestText(value);
  }
  text += '\n';
  if (text.size() - start <= kLongestTableLine) return {};
  return Failure{file, "\"" + row.name.ToUtf8() + "\"", "makes a line of over 2048 characters",
                 "give it a shorter name"};
}

}  // namespace

Result<MaterialCategories> ParseTextTable(std::string bytes, const std::string& file,
                                          const CodePage& page, const MaterialLint& lint) {
  Result<TextLines> lines =
      TextLines::FromBytes(std::move(bytes), file, page, kLongestTableLine, lint);
  if (!lines) return lines.Error();
  return TableReader(*lines, lint).Read();
}

Result<MaterialCategories> ReadTextTable(const std::string& path, const CodePage& page,
                                         const MaterialLint& lint) {
  Result<std::string> bytes = ReadWholeFile(path);
  if (!bytes) return bytes.Error();
  return ParseTextTable(std::move(*bytes), path, page, lint);
}

Outcome WriteTextTable(const MaterialCategories& categories, const std::string& path,
                       const CodePage& page) {
  if (Outcome may = CheckMayWrite(path); !may) return may;
  std::string text;
  for (const MaterialCategory& category : categories) {
    if (Outcome good = CheckText(category.name, "*\r\n", path); !good) return good;
    text += "*" + category.name.ToUtf8() + "\n";
    for (const MaterialRow& row : category.rows) {
      if (Outcome good = AppendRow(row, path, text); !good) return good;
    }
  }
  const Result<std::string> bytes = EncodedFile(std::move(text), page, path);
  return bytes ? WriteWholeFile(path, *bytes) : bytes.AsOutcome();
}

}  // namespace qx
