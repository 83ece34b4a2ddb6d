#pragma once
// The text of a rule that is kept: with its units, and with other names for what it names.
// Threads: any; nothing is kept between calls.

#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "qx_db/select/term.h"

namespace qx::select {

/// What takes the place of the word, name or number that begins at a byte of a text.
struct TextEdit {
  std::size_t at;
  std::string text;
};

/// A text of the language with other words. Requires that words begin at those places.
std::string Edited(std::string_view text, std::vector<TextEdit> edits);

/// A set's name as the language has it; its key where no quotes can hold the name.
std::string Quoted(ITR set);

/// A text with the unit of a system behind every length that has none, so that it means the same in
/// all. Returns it as it is where it cannot be read.
std::string WithUnits(const CQXDBSession& session, std::string_view text, const UnitSystem& units);

/// Visits every condition of a term that names mesh sets.
void ForEachSetCondition(const Term& term, const std::function<void(const Term&)>& visit);

}  // namespace qx::select
