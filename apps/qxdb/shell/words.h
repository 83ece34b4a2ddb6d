#pragma once
// A line of a script or of the shell as words.

#include <string>
#include <vector>

#include "qx_db/platform/outcome.h"

namespace qx::app {

/// The words of a line, and how it ends. Words stand apart by blanks. '...' and "..." keep blanks,
/// the latter with \" and \\ for these two; outside of quotes a backslash takes a blank, a quote,
/// # or a backslash as it is, and is itself before all else. # at the start of a word begins a
/// comment.
struct LineWords {
  std::vector<std::string> words;
  bool is_in_word = false;   ///< whether the last is still being typed
  char quote = 0;            ///< that was not closed
  std::size_t quote_at = 0;  ///< where it stands
  bool goes_on = false;      ///< a backslash ends the line: the next one belongs to it
};

LineWords SplitLine(const std::string& line);

/// The words of a whole line; fails where a quote is not closed.
Result<std::vector<std::string>> WordsOf(const std::string& line);

/// A word as SplitLine reads it back, quoted where it must be.
std::string QuotedWord(const std::string& word);

}  // namespace qx::app
