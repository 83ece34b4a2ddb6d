#pragma once
// The words by which a selection names types of elements, derived from the table of types.
// Threads: any; nothing is kept between calls.

#include <cstdint>
#include <string>
#include <vector>

namespace qx::select {

/// Every such word: types ("hex8"), shapes ("hex"), dimensions ("solid", ...), orders, "special".
std::vector<std::string> TypeWords();

/// Whether a type code is one of those that a word of TypeWords names.
bool IsOfType(const std::string& word, std::int32_t code);

}  // namespace qx::select
