#pragma once
// Lines typed at a terminal: edited, completed, and remembered until the program ends.

#include <cstddef>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace qx::app {

/// Reads lines from the terminal. Ctrl-C drops the line that is typed, at every moment of Read;
/// what is typed while nobody reads waits. One editor within another has lines of its own to go
/// back to. Lines are kept nowhere: they may hold what others should not see.
class LineEditor {
 public:
  /// What the word at the end of the line may become, whole words; and what follows the only one.
  struct Completions {
    std::vector<std::string> words;
    char end = ' ';
  };
  /// Given what stands before the cursor, and where the word begins in it.
  using Completer = std::function<Completions(const std::string& line, std::size_t at)>;

  /// `breaks`: the characters between words.
  LineEditor(Completer completer, std::string breaks);
  ~LineEditor();
  LineEditor(const LineEditor&) = delete;
  LineEditor& operator=(const LineEditor&) = delete;

  struct Line {
    std::string text;
    bool is_dropped = false;  ///< by Ctrl-C, which is shown
  };
  /// None at the end of the input.
  std::optional<Line> Read(const char* prompt);

  /// Whether standard input is a terminal.
  static bool IsTerminal();

 private:
  struct Impl;
  std::unique_ptr<Impl> impl_;
};

}  // namespace qx::app
