#include "exchange/nastran/nas_names.h"

#include <algorithm>
#include <charconv>
#include <fmt/format.h>

#include "qx_db/platform/text.h"

namespace qx::exchange {
namespace {

struct KindWord {
  NasKind kind;
  std::string_view word;
};
constexpr KindWord kTitles[] = {{NasKind::kProperty, "Property"},
                                {NasKind::kMaterial, "Material"},
                                {NasKind::kSystem, "System"}};

bool TakeWord(std::string_view& text, std::string_view word) {
  if (!text.starts_with(word)) return false;
  text.remove_prefix(word.size());
  return true;
}

/// Whether a name is that of a card and its number, as a reader gives it.
bool IsGiven(NasKind kind, std::string_view name) {
  const std::size_t blank = name.rfind(' ');
  if (blank == std::string_view::npos || blank + 1 == name.size()) return false;
  if (name.substr(blank + 1).find_first_not_of("0123456789") != std::string_view::npos)
    return false;
  const std::string_view card = name.substr(0, blank);
  const bool is_word = std::all_of(card.begin(), card.end(), [](char c) {
    return (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9');
  });
  switch (kind) {
    case NasKind::kProperty:
      return name.starts_with(kNasPlaceholder) || (is_word && card.starts_with('P'));
    case NasKind::kMaterial:
      return is_word && card.starts_with("MAT");
    default:
      return is_word && card.starts_with("CORD");
  }
}

template <class T>
void Give(std::vector<T>& records, const NasName& name) {
  for (T& record : records) {
    if (record.key == name.number) record.name.Set(Utf16(name.name));
  }
}

}  // namespace

std::string NasQuoted(std::string_view name) {
  std::string text = "\"";
  for (const char c : name) {
    if (c == '"' || c == '\\') text += '\\';
    if (c == '\n') {
      text += "\\n";
    } else if (c == '\r') {
      text += "\\r";
    } else {
      text += c;
    }
  }
  return text + '"';
}

std::optional<std::string> NasUnquoted(std::string_view& text) {
  if (!text.starts_with('"')) return std::nullopt;
  std::string name;
  for (std::size_t i = 1; i < text.size(); ++i) {
    if (text[i] == '"') {
      text.remove_prefix(i + 1);
      return name;
    }
    if (text[i] != '\\' || i + 1 == text.size()) {
      name += text[i];
      continue;
    }
    ++i;
    name += text[i] == 'n' ? '\n' : text[i] == 'r' ? '\r' : text[i];
  }
  return std::nullopt;
}

std::vector<NasName> NasNamesOf(const NasText& text) {
  std::vector<NasName> names;
  const std::string_view all(text.Text());
  for (std::size_t at = all.find("$ "); at != std::string_view::npos; at = all.find("$ ", at + 2)) {
    if (at > 0 && all[at - 1] != '\n') continue;
    const std::size_t end = std::min(all.find('\n', at), all.size() - 1) + 1;
    std::string_view line = all.substr(at + 2, end - at - 2);
    for (const KindWord& title : kTitles) {
      if (!TakeWord(line, title.word) || !TakeWord(line, " ")) continue;
      NasName name;
      name.kind = title.kind;
      const char* stop = std::from_chars(line.data(), line.data() + line.size(), name.number).ptr;
      line.remove_prefix(static_cast<std::size_t>(stop - line.data()));
      if (!TakeWord(line, ": ")) break;
      auto quoted = NasUnquoted(line);
      if (!quoted) break;
      name.name = std::move(*quoted);
      name.begin = at;
      name.end = end;
      names.push_back(std::move(name));
      break;
    }
  }
  return names;
}

std::string NasNameLine(NasKind kind, Key number, std::string_view name) {
  if (name.empty() || IsGiven(kind, name)) return {};
  for (const KindWord& title : kTitles) {
    if (title.kind == kind)
      return fmt::format("$ {} {}: {}\n", title.word, number, NasQuoted(name));
  }
  return {};
}

void ReadNasNames(const NasText& text, Deck& deck) {
  for (const NasName& name : NasNamesOf(text)) {
    if (name.kind == NasKind::kProperty) Give(deck.Of<tagTProp>(), name);
    if (name.kind == NasKind::kMaterial) Give(deck.Of<tagTMatl>(), name);
    if (name.kind == NasKind::kSystem) Give(deck.Of<tagTCord>(), name);
  }
}

}  // namespace qx::exchange
