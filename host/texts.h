#pragma once
// The English texts of the reference host.

#include <span>

#include "qx_db/lib/message.h"

namespace qx::host {

/// Every resource key of the library with its text. One per process is enough; see Register.
class TextCatalogue final : public ITextSource {
 public:
  bool Text(std::string_view key, std::string& text) const override;
  /// Makes the catalogue the process's text source.
  static void Register();
};

/// The catalogue as a table, for translators and for the test that no key lacks a text.
struct TextEntry {
  std::string_view key;
  std::string_view text;
};
std::span<const TextEntry> EnglishTexts();

}  // namespace qx::host
