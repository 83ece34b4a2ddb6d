#pragma once
// Commands on one open model, line by line: from a terminal, from a file, from a pipe.

#include <iosfwd>
#include <memory>
#include <string>
#include <vector>

#include "apps/qxdb/command/command.h"
#include "apps/qxdb/command/console.h"
#include "apps/qxdb/command/line_editor.h"
#include "apps/qxdb/model/open_model.h"

namespace qx::app {

/// One for each process, from the moment on when lines are read until the program ends.
class Shell {
 public:
  /// The shell, which is made when it is first asked for. Commands are then known without the
  /// program's name, and those that make no sense in a shell no more.
  static Shell& Of(Command& program, Context& context);

  /// Works on the model at `path`, which need not be there yet; `file`: where it really is. With an
  /// empty path on none, and commands name theirs.
  void Use(const std::string& path, const std::string& file = {});

  /// Whether there is no going over to another model.
  void Bind(bool is_bound) { is_bound_ = is_bound; }

  /// Runs the commands of a script until one does not end with 0, and returns what that one ended
  /// with; it was told then, with the line.
  int RunScript(std::istream& lines, const std::string& name, bool echo);
  /// Reads commands from the terminal until it is left; returns 0.
  int RunPrompt();

  /// What may stand at the end of a begun line.
  LineEditor::Completions Complete(const std::string& line, std::size_t at) const;

 private:
  Shell(Command& program, Context& context);
  /// Runs the command that the words are, and returns what it ended with.
  int Run(std::vector<std::string> words);
  int RunLine(const std::string& line);

  Command& program_;
  Context& context_;
  const bool json_;
  const int threads_;
  std::unique_ptr<OpenModel> model_;
  bool is_over_ = false;
  bool is_bound_ = false;
};

}  // namespace qx::app
