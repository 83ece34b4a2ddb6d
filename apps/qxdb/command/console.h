#pragma once
// What commands print: text for people, JSON for machines, a progress bar for the patient.

#include <chrono>
#include <cstdint>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "qx_db/platform/long_work.h"
#include "qx_db/platform/outcome.h"

namespace qx::app {

/// A table of text with aligned columns; numbers, it is told, to the right.
class Table {
 public:
  /// A heading that starts with '>' is a column of numbers.
  explicit Table(std::vector<std::string> headings);
  /// Each cell becomes one line, whatever it holds.
  void Row(std::vector<std::string> cells);
  bool IsEmpty() const { return rows_.empty(); }
  std::string Text() const;

 private:
  std::vector<std::string> headings_;
  std::vector<bool> right_;
  std::vector<std::vector<std::string>> rows_;
};

/// A JSON object written member by member.
class JsonText {
 public:
  JsonText& Begin(std::string_view name = {});       ///< an object
  JsonText& BeginArray(std::string_view name = {});  ///< an array
  JsonText& End();                                   ///< of the innermost object or array
  JsonText& Text(std::string_view name, std::string_view value);
  JsonText& Integer(std::string_view name, std::int64_t value);
  JsonText& Real(std::string_view name, double value);
  JsonText& Bool(std::string_view name, bool value);
  /// A value that is JSON already.
  JsonText& Raw(std::string_view name, std::string_view json);
  const std::string& Result() const { return out_; }

 private:
  void Name(std::string_view name);
  std::string out_;
  std::vector<char> open_;
  bool first_ = true;
};

/// 1234567 as "1 234 567".
std::string Grouped(std::int64_t number);
/// "1.2 MB" of a number of bytes.
std::string Bytes(std::uint64_t bytes);
/// A number in at most six significant digits.
std::string Short(double number);
/// The state hash as people compare it.
std::string HashText(std::uint64_t hash);

/// A bar on stderr for work that takes over a second, when stderr is a terminal. Of bars within one
/// another the innermost is shown. What is printed meanwhile takes its place.
class ProgressBar {
 public:
  explicit ProgressBar(std::string what);
  ~ProgressBar();
  ProgressBar(const ProgressBar&) = delete;
  ProgressBar& operator=(const ProgressBar&) = delete;
  /// With 1 and more the time that passed is shown instead of a part: the work has more to do than
  /// it could say.
  void Show(double fraction);
  /// Takes what is shown off the terminal.
  static void Hide();

 private:
  std::string what_;
  ProgressBar* outer_;
  std::chrono::steady_clock::time_point start_ = std::chrono::steady_clock::now();
};

/// Ctrl-C while this lives: it is told here, and the command stops where it leaves nothing half
/// done; a second one ends the program at once. One within another is the same.
class Interrupt {
 public:
  Interrupt();
  ~Interrupt();
  Interrupt(const Interrupt&) = delete;
  Interrupt& operator=(const Interrupt&) = delete;

  bool IsAsked() const;
  /// Whether one lives and is asked.
  static bool IsAnyAsked();
  /// What was asked for so far is answered; listens for the next.
  void Renew();

 private:
  void (*before_)(int) = nullptr;
  bool is_outermost_;
};

/// Thrown out of work that Ctrl-C ends.
struct Stopped {};

/// A part of a command that may take long, told as a bar, while this lives; ends by Stopped when an
/// Interrupt is asked.
class LongTask {
 public:
  explicit LongTask(const std::string& what);

 private:
  ProgressBar bar_;
  WorkWatch watch_;
};

/// A message's text as the middle of a line: without its capital and full stop.
std::string MidLine(std::string text);

/// Keeps the last message that refused something, which says why better than a result of 0.
void ListenForRefusals();
/// For one more command.
void ForgetRefusals();
/// Its text as the middle of a line; "" when there was none.
const std::string& LastRefusal();

/// The failure that the last refusal tells of, its remedy taken apart from it.
Failure RefusalOf(const std::string& file, const std::string& place = "");

/// What qxdb ends with.
enum ExitCode : int {
  kDone = 0,
  kRefused = 1,    ///< a file, a model or the system stopped it
  kNo = kRefused,  ///< done, and the answer is no: a limit exceeded, a difference, a problem
  kMisuse = 2,     ///< what was typed makes no sense
};

struct ExitMeaning {
  ExitCode code;
  const char* meaning;
};
inline constexpr ExitMeaning kExitMeanings[] = {
    {kDone, "done"},
    {kRefused,
     "refused: a file cannot be read, written or understood, or the model forbids it; or the "
     "answer is no: a limit exceeded, a difference, a problem, no connection"},
    {kMisuse, "misuse: the command line makes no sense"},
};

/// What every command is given and gives back.
struct Context {
  bool json = false;
  int threads = 0;          ///< to use; 0: one for each core
  bool yes = false;         ///< the command may go on where it would ask
  bool yes_to_all = false;  ///< and so may every other of the shell or script
  int exit_code = kDone;
  std::vector<std::string> names_of_lines;  ///< arguments with line ends, to be shown without
  bool is_shell = false;      ///< whether commands are typed without the program's name
  std::string place;          ///< "build.qx:3", the line of a script that is run; else empty
  mutable bool told = false;  ///< whether Tell was called

  /// Prints a command's result: its text, or its JSON when that was asked for. All that a command
  /// prints passes here or through Conclude, where what could drive a terminal is taken out of it;
  /// a name within a text is to be made OneLine by who puts it there.
  void Print(const std::string& text, const JsonText& json_text) const;
  /// Prints what stopped a command, if anything did, as one line on stderr (as an object with
  /// --json). A failure that concerns no file is one of what was typed, which the exit code says.
  void Conclude(const Outcome& outcome);
  /// Prints one of several faults as Conclude does the last.
  void Tell(const Failure& failure) const;
};

}  // namespace qx::app
