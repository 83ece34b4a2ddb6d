#include "apps/qxdb/shell/shell.h"

#include <algorithm>
#include <filesystem>
#include <fmt/format.h>
#include <istream>

#include "qx_db/platform/file.h"
#include "qx_db/platform/plain_text.h"

#include "apps/qxdb/command/command_line.h"
#include "apps/qxdb/command/completion.h"
#include "apps/qxdb/commands.h"
#include "apps/qxdb/model/names.h"
#include "apps/qxdb/shell/words.h"

namespace qx::app {
namespace {

namespace fs = std::filesystem;

/// A line of a script, also of one that was written on Windows.
bool TakeLine(std::istream& lines, std::string& line) {
  if (!std::getline(lines, line)) return false;
  if (line.ends_with('\r')) line.pop_back();
  return true;
}

/// Files whose names go on as `begun`, folders with a slash behind.
std::vector<std::string> FilesLike(const std::string& begun,
                                   const std::vector<std::string>& extensions) {
  const std::size_t slash = begun.rfind('/');
  const std::string folder = slash == std::string::npos ? "" : begun.substr(0, slash + 1);
  const std::string start = begun.substr(folder.size());
  std::vector<std::string> found;
  std::error_code error;
  for (fs::directory_iterator at(PathFromUtf8(folder.empty() ? "." : folder), error), end;
       !error && at != end; at.increment(error)) {
    const std::string name = Utf8FromPath(at->path().filename());
    if (!name.starts_with(start) || (name[0] == '.' && start.empty())) continue;
    std::error_code none;
    if (at->is_directory(none)) {
      found.push_back(folder + name + '/');
      continue;
    }
    const auto fits = [&](const std::string& ending) {
      return AsciiUpper(name).ends_with(AsciiUpper(ending));
    };
    if (extensions.empty() || std::any_of(extensions.begin(), extensions.end(), fits)) {
      found.push_back(folder + name);
    }
  }
  return found;
}

}  // namespace

Shell& Shell::Of(Command& program, Context& context) {
  static Shell shell(program, context);
  return shell;
}

Shell::Shell(Command& program, Context& context)
    : program_(program), context_(context), json_(context.json), threads_(context.threads) {
  context.is_shell = true;
  for (const char* name : {"shell", "complete"}) {
    if (Command* command = program.Find(name)) command->is_hidden = true;
  }
  program.notes = "'quit' or the end of the input leaves. Each command saves what it changed.";
  const auto [open, path] = AddCommand<std::string>(
      program, context, "open", "Work on another model", "open wing.qxm",
      [this](const std::string& to, const Context&) -> Outcome {
        if (is_bound_) {
          return Failure{"", "open", "cannot be within --atomic, which is about one model",
                         "give the other model a script of its own"};
        }
        Use(std::string(to));
        return {};
      });
  open->Add("file", path, "Model file").Model().Required();
  for (const char* name : {"quit", "exit"}) {
    AddCommand<bool>(program, context, name, "Leave", name,
                     [this](bool, const Context&) -> Outcome {
                       is_over_ = true;
                       return {};
                     });
  }
}

void Shell::Use(const std::string& path, const std::string& file) {
  model_.reset();
  if (!path.empty()) model_ = std::make_unique<OpenModel>(path, file);
}

int Shell::Run(std::vector<std::string> words) {
  // Examples are given with the program's name.
  if (words.size() > 1 && words[0] == program_.name) words.erase(words.begin());
  ForgetRefusals();
  program_.Reset(model_ ? model_->Path() : "");
  context_.json = json_;
  context_.threads = threads_;
  context_.exit_code = kDone;
  context_.told = false;
  const int code = RunCommandLine(program_, context_, std::move(words));
  std::fflush(stdout);
  return code;
}

int Shell::RunLine(const std::string& line) {
  auto words = WordsOf(line);
  if (!words) {
    context_.exit_code = kDone;
    context_.Conclude(words.AsOutcome());
    return context_.exit_code;
  }
  return words->empty() ? kDone : Run(std::move(*words));
}

int Shell::RunScript(std::istream& lines, const std::string& name, bool echo) {
  const std::string outer = context_.place;
  int code = kDone;
  int number = 0;
  for (std::string line; code == kDone && !is_over_ && TakeLine(lines, line);) {
    if (++number == 1 && line.starts_with("\xEF\xBB\xBF")) line.erase(0, 3);
    context_.place = fmt::format("{}:{}", name, number);
    while (SplitLine(line).goes_on) {
      line.back() = ' ';
      std::string next;
      if (!TakeLine(lines, next)) break;
      line += next;
      ++number;
    }
    if (echo && !SplitLine(line).words.empty()) fmt::print("> {}\n", OneLine(line));
    context_.told = false;
    code = RunLine(line);
    if (code != kDone && !context_.told) {
      context_.Tell({"", "", fmt::format("ended with {}, which stops the script", code),
                     "see what it printed"});
    }
  }
  context_.place = outer;
  context_.exit_code = code;
  return code;
}

int Shell::RunPrompt() {
  Interrupt interrupt;
  LineEditor editor([this](const std::string& line, std::size_t at) { return Complete(line, at); },
                    " \t\n\"'=(");
  const std::string name = model_ ? OneLine(model_->Path()) : "no model; open FILE opens one";
  std::error_code error;
  const bool is_there = !model_ || fs::exists(PathFromUtf8(model_->Path()), error);
  fmt::print("{}{}; help lists the commands, quit leaves\n", name,
             is_there ? "" : " is to be made by an import");
  std::string begun;
  while (!is_over_) {
    interrupt.Renew();
    const auto line = editor.Read(begun.empty() ? "qxdb> " : "  ...> ");
    if (!line) break;
    if (line->is_dropped) {
      begun.clear();
      continue;
    }
    begun += line->text;
    if (SplitLine(begun).goes_on) {
      begun.back() = ' ';
      continue;
    }
    std::string whole;
    whole.swap(begun);
    RunLine(whole);
  }
  if (!is_over_) fmt::print("\n");
  context_.exit_code = kDone;
  return kDone;
}

LineEditor::Completions Shell::Complete(const std::string& line, std::size_t at) const {
  LineWords split = SplitLine(line);
  if (!split.is_in_word && split.quote == 0) split.words.emplace_back();
  if (split.words.size() > 1 && split.words[0] == program_.name) {
    split.words.erase(split.words.begin());
  }
  const std::string begun = split.words.back();
  program_.Reset(model_ ? model_->Path() : "");
  const auto names = [this](ValueKind kind, const std::string& model) {
    return NamesOf(kind, model_ ? model_->Path() : model);
  };
  const Suggestions found = qx::app::Complete(program_, split.words, names);
  // What is typed of the word stands before the cursor, but for what its quotes and blanks cut off.
  const std::size_t typed = line.size() - at;
  const std::size_t cut = begun.size() > typed ? begun.size() - typed : 0;
  LineEditor::Completions all;
  const auto add = [&](const std::string& word) {
    if (word.size() < cut) return;
    all.words.push_back(split.quote || cut > 0 ? word.substr(cut) : QuotedWord(word));
  };
  for (const Suggestions::Word& word : found.words) add(word.text);
  if (found.are_files) {
    for (const std::string& file : FilesLike(begun, found.extensions)) add(file);
  }
  std::sort(all.words.begin(), all.words.end());
  all.words.erase(std::unique(all.words.begin(), all.words.end()), all.words.end());
  if (split.quote) all.end = split.quote;
  if (all.words.size() == 1 && all.words[0].ends_with('/')) all.end = '\0';
  return all;
}

}  // namespace qx::app
