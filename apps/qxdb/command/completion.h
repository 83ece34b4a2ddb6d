#pragma once
// Completion in a shell. The scripts that a shell loads (packaging/completions/) hand the words
// typed so far back to the program, which says by its own declarations what may stand next.

#include <functional>
#include <string>
#include <vector>

#include "apps/qxdb/command/command.h"

namespace qx::app {

/// What may stand in the place of a word.
struct Suggestions {
  struct Word {
    std::string text;
    std::string what;  ///< may be empty
  };
  std::vector<Word> words;
  bool are_files = false;  ///< files as well
  std::vector<std::string> extensions;

  /// A line for each: a word, and what it is after a tab; for files ":files" with what their names
  /// may end with, if that matters.
  std::string Text() const;
};

/// The names there are of pools, of records, of sets in the model at a path.
using NamesOfKind = std::function<std::vector<std::string>(ValueKind, const std::string& model)>;

/// Suggests for the last of the words after the program's name, which may be empty or begun. Knows
/// which options and arguments stand already, which exclude each other, and how many values each
/// takes.
Suggestions Complete(Command& program, const std::vector<std::string>& words,
                     const NamesOfKind& names);

}  // namespace qx::app
