#pragma once
// The user texts of the reference host. The English ones stand in texts_en.txt, one line for each
// resource key; they are compiled in. A translator's file of the same form may go before them.
// Threads: registered before others start; then any, for catalogues never change.

#include <map>
#include <string>

#include "qx_db/lib/message.h"
#include "qx_db/platform/outcome.h"

namespace qx::host {

/// Texts by resource key.
class TextCatalogue final : public ITextSource {
 public:
  /// The English texts.
  static const TextCatalogue& English();
  /// Reads the lines of a catalogue; `file` names it in a failure. Fails, naming the line, for
  /// text that is no UTF-8, a line without "=", a key that is not one, and a key given twice; with
  /// the texts that these are a translation of, also for one that takes other arguments. Keys that
  /// only the translation has do no harm: it may be that of another version.
  static Result<TextCatalogue> Parse(std::string_view lines, const std::string& file,
                                     const TextCatalogue* original = nullptr);

  /// The text of a key; a catalogue other than the English one answers in English what it lacks.
  bool Text(std::string_view key, std::string& text) const override;
  const std::map<std::string, std::string, std::less<>>& Texts() const { return texts_; }

 private:
  std::map<std::string, std::string, std::less<>> texts_;
};

/// Makes the English texts those of the process; with the path (UTF-8) of a translation, that one.
/// When the translation cannot be used the texts are English and the failure says why.
Outcome RegisterTexts(const std::string& translation = {});

}  // namespace qx::host
