#include "apps/qxdb/command/line_editor.h"

#include <cstdlib>
#include <cstring>
#include <fmt/format.h>

#ifdef _WIN32
#include <io.h>
#else
#include <unistd.h>
#endif
#ifdef QX_HAS_LIBEDIT
#include <clocale>
#include <csignal>
#include <editline/readline.h>
#else
#include <iostream>
#endif

namespace qx::app {

bool LineEditor::IsTerminal() {
#ifdef _WIN32
  return _isatty(0) != 0;
#else
  return isatty(0) != 0;
#endif
}

#ifdef QX_HAS_LIBEDIT

struct LineEditor::Impl {
  Completer completer;
  std::string breaks;
  std::vector<std::string> lines;  // typed so far
  Completions found;               // of the word that is completed now
};

namespace {

LineEditor::Completions* t_found = nullptr;  // libedit asks functions alone
std::function<void(const std::string&, std::size_t)> t_complete;
bool t_is_dropped = false;  // the line, by Ctrl-C

/// The i-th completion in storage of its own, which libedit frees; null behind the last.
char* Completion(const char*, int i) {
  const auto at = static_cast<std::size_t>(i);
  return at < t_found->words.size() ? strdup(t_found->words[at].c_str()) : nullptr;
}

char** Complete(const char* word, int start, int end) {
  rl_attempted_completion_over = 1;  // names of files come from the completer, where they may stand
  const std::string line = rl_line_buffer ? rl_line_buffer : "";
  const auto length = static_cast<std::size_t>(end);
  t_complete(line.substr(0, length), static_cast<std::size_t>(start));
  rl_completion_append_character = t_found->end;
  return rl_completion_matches(word, Completion);
}

int DropLine(int, int) {
  t_is_dropped = true;
  rl_done = 1;
  return 0;
}

int Suspend(int, int) { return raise(SIGTSTP); }

/// Ctrl-C is a key while a line is typed, so no moment of the prompt is without an answer to it.
/// With it all such keys are; Ctrl-Z is given its meaning back. Each line starts from the
/// terminal's own modes, so this is said for each.
int TakeSignalKeys() {
  static char no_signals[] = "setty -d -isig";
  rl_parse_and_bind(no_signals);
  rl_add_defun("qxdb-drop-line", DropLine, 'C' & 0x1F);
  rl_add_defun("qxdb-suspend", Suspend, 'Z' & 0x1F);
  return 0;
}

}  // namespace

LineEditor::LineEditor(Completer completer, std::string breaks) : impl_(std::make_unique<Impl>()) {
  impl_->completer = std::move(completer);
  impl_->breaks = std::move(breaks);
  std::setlocale(LC_CTYPE, "");  // or letters beyond ASCII cannot be typed
  static char name[] = "qxdb";
  rl_readline_name = name;
  rl_attempted_completion_function = Complete;
  rl_pre_input_hook = TakeSignalKeys;
  using_history();
}

LineEditor::~LineEditor() = default;

std::optional<LineEditor::Line> LineEditor::Read(const char* prompt) {
  Impl& self = *impl_;
  clear_history();
  for (const std::string& line : self.lines) add_history(line.c_str());
  rl_basic_word_break_characters = self.breaks.c_str();
  t_found = &self.found;
  t_complete = [&self](const std::string& line, std::size_t at) {
    self.found = self.completer(line, at);
  };
  t_is_dropped = false;
  char* typed = readline(prompt);
  if (t_is_dropped) {
    std::free(typed);
    fmt::print("^C\n");
    std::fflush(stdout);
    return Line{"", true};
  }
  if (!typed) return std::nullopt;
  Line line{typed};
  std::free(typed);
  const bool is_again = !self.lines.empty() && self.lines.back() == line.text;
  if (!line.text.empty() && !is_again) self.lines.push_back(line.text);
  return line;
}

#else

struct LineEditor::Impl {};

LineEditor::LineEditor(Completer, std::string) {}
LineEditor::~LineEditor() = default;

std::optional<LineEditor::Line> LineEditor::Read(const char* prompt) {
  fmt::print("{}", prompt);
  std::fflush(stdout);
  Line line;
  if (!std::getline(std::cin, line.text)) return std::nullopt;
  return line;
}

#endif

}  // namespace qx::app
