#pragma once
// Texts from outside as they may be shown: a name can hold what drives a terminal, ends a line,
// turns the direction of writing, or is no text at all.
// Threads: any; nothing is kept between calls.

#include <string>
#include <string_view>

#include "qx_db/export.h"

namespace qx {

/// The text with U+FFFD for every byte that is no UTF-8.
QXDB_API std::string ValidUtf8(std::string_view text);

/// The same as one line: U+FFFD also stands for control characters, line ends among them, and for
/// those that change the direction of writing.
QXDB_API std::string OneLine(std::string_view text);

/// The same, line by line.
QXDB_API std::string PlainLines(std::string_view text);

/// A JSON text in UTF-8 with these characters as escapes: it says the same.
QXDB_API std::string PlainJson(std::string_view text);

}  // namespace qx
