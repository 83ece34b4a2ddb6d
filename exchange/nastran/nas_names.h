#pragma once
// Names of properties, materials and systems, which stand in comments: $ Property 5: "Wing skin".
// Threads: shares nothing.

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "exchange/deck.h"
#include "exchange/nastran/nas_rules.h"

namespace qx::exchange {

/// Beginning of the names of properties that hold a number only.
inline constexpr std::string_view kNasPlaceholder = "property ";

/// A name in quotes, in one line whatever is in it; and one taken off the front of a text, none
/// where that does not begin with one.
std::string NasQuoted(std::string_view name);
std::optional<std::string> NasUnquoted(std::string_view& text);

/// A comment that names something.
struct NasName {
  NasKind kind = NasKind::kProperty;
  Key number = 0;
  std::string name;
  std::size_t begin = 0;  ///< of its line
  std::size_t end = 0;
};
std::vector<NasName> NasNamesOf(const NasText& text);

/// The line of such a comment; "" for a name that a reader gives by itself.
std::string NasNameLine(NasKind kind, Key number, std::string_view name);

/// Gives the records of a deck the names that its comments say.
void ReadNasNames(const NasText& text, Deck& deck);

}  // namespace qx::exchange
