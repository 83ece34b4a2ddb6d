#include "qx_db/platform/plain_text.h"

#include <cstddef>

namespace qx {
namespace {

constexpr std::string_view kReplacement = "\xEF\xBF\xBD";

/// The code point at the start of a text, and its bytes; 0 bytes where there is none.
struct CodePoint {
  char32_t value = 0;
  std::size_t bytes = 0;
};

CodePoint First(std::string_view text) {
  const auto byte = [&](std::size_t i) {
    return static_cast<char32_t>(static_cast<unsigned char>(text[i]));
  };
  const char32_t lead = byte(0);
  if (lead < 0x80) return {lead, 1};
  const std::size_t bytes = lead >= 0xF0 ? 4 : lead >= 0xE0 ? 3 : 2;
  if (lead < 0xC2 || lead > 0xF4 || bytes > text.size()) return {};
  char32_t value = lead & (0x7Fu >> bytes);
  for (std::size_t i = 1; i < bytes; ++i) {
    if ((byte(i) & 0xC0) != 0x80) return {};
    value = value << 6 | (byte(i) & 0x3F);
  }
  constexpr char32_t kLeast[] = {0, 0, 0x80, 0x800, 0x10000};
  const bool surrogate = value >= 0xD800 && value <= 0xDFFF;
  if (value < kLeast[bytes] || value > 0x10FFFF || surrogate) return {};
  return {value, bytes};
}

bool ControlsTerminal(char32_t c) { return c < 0x20 || (c >= 0x7F && c < 0xA0); }

/// Line and paragraph separators, and what turns the direction of writing.
bool TurnsText(char32_t c) {
  return c == 0x61C || c == 0x200E || c == 0x200F || (c >= 0x2028 && c <= 0x202E) ||
         (c >= 0x2066 && c <= 0x2069);
}

template <class Shows>
std::string Filtered(std::string_view text, Shows&& shows) {
  std::string out;
  out.reserve(text.size());
  while (!text.empty()) {
    const CodePoint c = First(text);
    const std::size_t bytes = c.bytes ? c.bytes : 1;
    out += c.bytes && shows(c.value) ? text.substr(0, bytes) : kReplacement;
    text.remove_prefix(bytes);
  }
  return out;
}

}  // namespace

std::string ValidUtf8(std::string_view text) {
  return Filtered(text, [](char32_t) { return true; });
}

std::string OneLine(std::string_view text) {
  return Filtered(text, [](char32_t c) { return !ControlsTerminal(c) && !TurnsText(c); });
}

std::string PlainLines(std::string_view text) {
  return Filtered(text,
                  [](char32_t c) { return c == '\n' || (!ControlsTerminal(c) && !TurnsText(c)); });
}

std::string PlainJson(std::string_view text) {
  constexpr char kHex[] = "0123456789abcdef";
  std::string out;
  out.reserve(text.size());
  while (!text.empty()) {
    const CodePoint c = First(text);
    const std::size_t bytes = c.bytes ? c.bytes : 1;
    // Below a blank only line ends and tabs stand in such a text, between its values.
    if (c.value >= 0x20 && (ControlsTerminal(c.value) || TurnsText(c.value))) {
      out += "\\u";
      for (int shift = 12; shift >= 0; shift -= 4) out += kHex[c.value >> shift & 15];
    } else {
      out += text.substr(0, bytes);
    }
    text.remove_prefix(bytes);
  }
  return out;
}

}  // namespace qx
