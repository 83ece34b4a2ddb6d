#pragma once
// The text of a Nastran deck with the numbers in it that follow nodes and elements.

#include <functional>
#include <map>
#include <string>

#include "exchange/nastran/nas_cards.h"

namespace qx::exchange {

/// Cards with numbers of nodes or elements, perhaps, that do not follow these.
struct NasUnchecked {
  std::map<std::string, std::uint64_t> cards;   ///< of which it is not known what they number
  std::map<std::string, std::uint64_t> ranges;  ///< with THRU, whose members have no text
};

/// The whole text. `is_there(true, number)` tells whether a node is there, with false an element.
tagTCarried CarryNasText(const NasText& text, const std::function<bool(bool, Key)>& is_there,
                         NasUnchecked& unchecked);

}  // namespace qx::exchange
