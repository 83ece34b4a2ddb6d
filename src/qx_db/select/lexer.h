#pragma once
// A selection's text as words, numbers with their units, quoted names and signs.
// Threads: values: one at a time for each object.

#include <string>
#include <string_view>
#include <vector>

#include "qx_db/platform/outcome.h"

namespace qx::select {

struct Token {
  enum class Kind { kWord, kNumber, kText, kSign, kEnd };

  Kind kind = Kind::kEnd;
  std::string_view raw;    ///< as it was written, without the unit of a number
  std::string_view unit;   ///< written against a number: "mm", "mm2"; may be empty
  std::string text;        ///< of a quoted name
  double value = 0;        ///< of a number
  std::size_t at = 0;      ///< where it begins, in bytes
  bool is_joined = false;  ///< no blank stands before it

  bool Is(std::string_view sign) const { return kind == Kind::kSign && raw == sign; }
};

/// The failure of a place in a text of UTF-8, by column.
Failure FaultAt(std::string_view text, std::size_t at, std::string what, std::string remedy);

/// All tokens of a text, the end among them. They point into it.
Result<std::vector<Token>> Tokens(std::string_view text);

}  // namespace qx::select
