// The texts themselves are in texts_en.txt: add a line there for a new resource key.

#include "host/texts.h"

#include <algorithm>

#include "qx_db/platform/file.h"

namespace qx::host {
namespace {

constexpr std::string_view kEnglishLines =
#include "texts_en.inc"
    ;

std::string_view Trimmed(std::string_view text) {
  constexpr std::string_view kBlanks = " \t\r";
  const std::size_t first = text.find_first_not_of(kBlanks);
  if (first == std::string_view::npos) return {};
  return text.substr(first, text.find_last_not_of(kBlanks) - first + 1);
}

bool IsKey(std::string_view text) {
  const auto fits = [](char c) {
    return c == '_' || (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9');
  };
  return text.starts_with("IDS_") && std::all_of(text.begin(), text.end(), fits);
}

/// How many arguments a text takes.
int Slots(std::string_view text) {
  int slots = 0;
  for (std::size_t at = 0; (at = text.find("{}", at)) != std::string_view::npos; at += 2) ++slots;
  return slots;
}

std::string WithLineBreaks(std::string_view text) {
  std::string result(text);
  for (std::size_t at = 0; (at = result.find("\\n", at)) != std::string::npos; ++at) {
    result.replace(at, 2, "\n");
  }
  return result;
}

}  // namespace

Result<TextCatalogue> TextCatalogue::Parse(std::string_view lines, const std::string& file,
                                           const TextCatalogue* original) {
  TextCatalogue catalogue;
  constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";
  if (lines.starts_with(kByteOrderMark)) lines.remove_prefix(kByteOrderMark.size());
  for (int number = 1; !lines.empty(); ++number) {
    const std::size_t end = std::min(lines.find('\n'), lines.size());
    const std::string_view line = Trimmed(lines.substr(0, end));
    lines.remove_prefix(std::min(end + 1, lines.size()));
    if (line.empty() || line.front() == '#') continue;
    const auto failure = [&](const std::string& what, const std::string& remedy) {
      return Failure{file, "line " + std::to_string(number), what, remedy};
    };
    if (!IsUtf8(line)) return failure("is not UTF-8", "save the file as UTF-8");
    const std::size_t equals = line.find('=');
    const std::string_view key = Trimmed(line.substr(0, equals));
    if (equals == std::string_view::npos || !IsKey(key)) {
      return failure("is not a resource key and its text", "write IDS_KEY = text");
    }
    const std::string text = WithLineBreaks(Trimmed(line.substr(equals + 1)));
    std::string translated;
    if (original && original->Text(key, translated) && Slots(text) != Slots(translated)) {
      return failure(
          "has another number of {} than the English text, which is \"" + translated + '"',
          "write {} once for each argument");
    }
    if (!catalogue.texts_.emplace(key, text).second) {
      return failure("gives a text to a key that has one", "keep one of the two lines");
    }
  }
  return catalogue;
}

const TextCatalogue& TextCatalogue::English() {
  // A fault in the file would be one of this program: without texts, keys are shown instead.
  static const TextCatalogue english = [] {
    Result<TextCatalogue> parsed = Parse(kEnglishLines, "texts_en.txt");
    return parsed ? *parsed : TextCatalogue();
  }();
  return english;
}

bool TextCatalogue::Text(std::string_view key, std::string& text) const {
  const auto found = texts_.find(key);
  if (found == texts_.end()) return this != &English() && English().Text(key, text);
  text = found->second;
  return true;
}

Outcome RegisterTexts(const std::string& translation) {
  static TextCatalogue translated;
  SetTextSource(&TextCatalogue::English());
  if (translation.empty()) return {};
  const Result<std::string> lines = ReadWholeFile(translation);
  if (!lines) return lines.Error();
  Result<TextCatalogue> parsed =
      TextCatalogue::Parse(*lines, translation, &TextCatalogue::English());
  if (!parsed) return parsed.Error();
  translated = *parsed;
  SetTextSource(&translated);
  return {};
}

}  // namespace qx::host
