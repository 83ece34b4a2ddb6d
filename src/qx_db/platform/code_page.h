#pragma once
// The 8-bit code pages of text files: converted without loss, or refused with the place.

#include <string>
#include <string_view>

#include "qx_db/platform/outcome.h"

namespace qx {

/// One code page, of which all are supersets of ASCII: UTF-8, or what Windows calls an ANSI code
/// page (874, 932, 936, 949, 950, 1250 to 1258). A small value, copied freely. Threads: any.
class QXDB_API CodePage {
 public:
  /// UTF-8.
  CodePage() = default;

  /// By number or name, whatever the case: "1252", "cp1252", "windows-1252", "UTF-8". Fails for a
  /// code page that is not in the list above.
  static Result<CodePage> Named(std::string_view name);
  /// The ANSI code page of a POSIX locale name such as "ko_KR.UTF-8", by its language, as Windows
  /// would have it; 1252 for "C", "" and languages without one.
  static CodePage OfLocaleName(std::string_view locale);
  /// That of this thread's locale: on Windows the system's word, elsewhere OfLocaleName of the
  /// first of LC_ALL, LC_CTYPE and LANG that is set.
  static CodePage OfLocale();

  /// 65001 for UTF-8.
  int Number() const { return number_; }
  /// "windows-1252" or "UTF-8".
  std::string Name() const;
  friend bool operator==(const CodePage&, const CodePage&) = default;

  /// UTF-8 of text in this code page. Fails, naming file and line, at bytes that mean nothing in
  /// it.
  Result<std::string> Decode(std::string bytes, const std::string& file) const;
  /// Text in this code page. Fails, naming file, line and character, where there is none for one;
  /// nothing is replaced by a question mark or a similar character.
  Result<std::string> Encode(std::string utf8, const std::string& file) const;

 private:
  explicit CodePage(int number) : number_(number) {}
  int number_ = 65001;
};

/// "line n" of a place in a text; a line ends with CR, LF or both.
QXDB_API std::string LinePlace(std::string_view text, std::size_t at);

}  // namespace qx
