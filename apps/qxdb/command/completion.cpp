#include "apps/qxdb/command/completion.h"

#include <algorithm>

#include "qx_db/platform/text.h"

namespace qx::app {
namespace {

/// Where the words typed so far lead.
class Place {
 public:
  Place(Command& program, const std::vector<std::string>& words)
      : program_(&program), command_(&program) {
    for (std::size_t i = 0; i + 1 < words.size(); ++i) Take(words[i]);
  }

  Suggestions Suggest(const std::string& begun, const NamesOfKind& names) const {
    Suggestions found;
    begun_ = &begun;
    const std::size_t equals = begun.find('=');
    if (begun.starts_with("--") && equals != std::string::npos) {
      const Option* option = FindOption(begun.substr(0, equals));
      if (option) AddValues(*option, names, begun.substr(0, equals + 1), found);
    } else if (open_ && (values_ < Least(*open_) || equals == 0)) {
      AddValues(*open_, names, "", found);
    } else if (begun.starts_with("-")) {
      AddOptions(found);
    } else {
      if (open_) AddValues(*open_, names, "", found);
      if (arguments_.empty()) {
        for (const Command& each : command_->commands) {
          if (!each.is_hidden) found.words.push_back({each.name, each.what});
        }
      }
      if (const Option* argument = NextArgument()) AddValues(*argument, names, "", found);
    }
    // The case of a pool's name does not matter: NODE is what the tables of the gateway call it.
    const std::string start = begun == "=" ? "" : AsciiUpper(begun);
    std::erase_if(found.words,
                  [&](const auto& word) { return !AsciiUpper(word.text).starts_with(start); });
    return found;
  }

 private:
  static int Least(const Option& option) { return std::max(option.least_count, 1); }
  static int Most(const Option& option) {
    if (option.IsFlag()) return 0;
    if (!option.TakesMany() || option.is_one_at_a_time) return 1;
    return option.most_count > 0 ? option.most_count : 1 << 20;
  }

  void Take(const std::string& word) {
    if (word == "=") return;  // bash makes a word of it
    if (open_ && (values_ < Least(*open_) || !word.starts_with("-"))) {
      if (++values_ >= Most(*open_)) open_ = nullptr;
      return;
    }
    open_ = nullptr;
    if (word.starts_with("-")) {
      const std::size_t equals = word.find('=');
      const Option* option = FindOption(word.substr(0, equals));
      if (!option) return;
      given_.push_back(option);
      if (equals == std::string::npos && Most(*option) > 0) open_ = option;
      values_ = 0;
      return;
    }
    if (arguments_.empty()) {
      if (Command* next = command_->Find(word)) {
        command_ = next;
        return;
      }
    }
    if (const Option* argument = NextArgument()) {
      given_.push_back(argument);
      if (argument->is_open_model) model_ = word;
    }
    arguments_.push_back(word);
  }

  const Option* FindOption(const std::string& name) const {
    for (const Option& option : command_->options) {
      if (option.name == name) return &option;
    }
    return nullptr;
  }

  /// The argument in whose place the next word stands: the last takes what is left.
  const Option* NextArgument() const {
    std::size_t at = 0;
    const Option* last = nullptr;
    for (const Option& option : command_->options) {
      if (!option.IsArgument() || !option.is_typed) continue;
      last = &option;
      if (at++ == arguments_.size()) return last;
    }
    return last && last->TakesMany() ? last : nullptr;
  }

  bool IsGiven(const Option* option) const {
    return std::find(given_.begin(), given_.end(), option) != given_.end();
  }

  /// Whether an option that was given rules this one out.
  bool IsExcluded(const Option& option) const {
    const auto excludes = [](const Option& one, const Option& other) {
      return std::find(one.excluded.begin(), one.excluded.end(), &other) != one.excluded.end();
    };
    for (const Option* given : given_) {
      if (excludes(*given, option) || excludes(option, *given)) return true;
      for (const auto& [first, second] : command_->choices) {
        if ((first == &option && second == given) || (second == &option && first == given)) {
          return true;
        }
      }
    }
    for (const Command::Group& group : command_->groups) {
      const bool is_in =
          std::find(group.options.begin(), group.options.end(), &option) != group.options.end();
      if (is_in && std::any_of(group.options.begin(), group.options.end(),
                               [&](const Option* each) { return IsGiven(each); })) {
        return true;
      }
    }
    return false;
  }

  void AddOptions(Suggestions& found) const {
    for (const Option& option : command_->options) {
      if (option.IsArgument() || IsExcluded(option)) continue;
      if (IsGiven(&option) && !option.TakesMany()) continue;
      found.words.push_back({option.name, option.what});
    }
    found.words.push_back({"--help", "Explain the command"});
  }

  void AddValues(const Option& option, const NamesOfKind& names, const std::string& before,
                 Suggestions& found) const {
    const auto add = [&](const std::string& value) { found.words.push_back({before + value, ""}); };
    for (const std::string& value : option.values) add(value);
    switch (option.kind) {
      case ValueKind::kText:
        break;
      case ValueKind::kFile:
        found.are_files = true;
        found.extensions = option.extensions;
        break;
      case ValueKind::kKeys:
        add("all");
        break;
      case ValueKind::kPool:
      case ValueKind::kRecord:
      case ValueKind::kSet:
        for (const std::string& name : names(option.kind, model_)) add(name);
        break;
      case ValueKind::kSelection:
        AddSelection(names, before, found);
        break;
      case ValueKind::kCommand:
        AddCommands(found);
        break;
    }
  }

  /// The last word of a selection: a condition, or behind "set" the name of one.
  void AddSelection(const NamesOfKind& names, const std::string& before, Suggestions& found) const {
    const std::string text = begun_->substr(std::min(before.size(), begun_->size()));
    const std::size_t cut = text.find_last_of(" (");
    const std::string head = cut == std::string::npos ? "" : text.substr(0, cut + 1);
    const bool is_set = head == "set " || head.ends_with(" set ") || head.ends_with("(set ");
    for (const std::string& name :
         names(is_set ? ValueKind::kSet : ValueKind::kSelection, model_)) {
      found.words.push_back({before + head + name, ""});
    }
  }

  /// What is below the command that the arguments name.
  void AddCommands(Suggestions& found) const {
    Command* command = program_;
    for (const std::string& name : arguments_) {
      if (command) command = command->Find(name);
    }
    if (!command) return;
    for (const Command& each : command->commands) {
      if (!each.is_hidden) found.words.push_back({each.name, each.what});
    }
  }

  Command* program_;
  Command* command_;
  std::vector<std::string> arguments_;
  std::vector<const Option*> given_;
  const Option* open_ = nullptr;  ///< the option whose values the next words are
  int values_ = 0;                ///< how many of them there are
  std::string model_;             ///< the argument of the model that the command works on
  mutable const std::string* begun_ = nullptr;  ///< the word that is suggested for
};

}  // namespace

std::string Suggestions::Text() const {
  std::string text;
  if (are_files) {
    text += ":files";
    for (const std::string& ending : extensions) text += " " + ending;
    text += "\n";
  }
  for (const Word& word : words) {
    text += word.text + (word.what.empty() ? "" : "\t" + word.what) + "\n";
  }
  return text;
}

Suggestions Complete(Command& program, const std::vector<std::string>& words,
                     const NamesOfKind& names) {
  const std::string begun = words.empty() ? "" : words.back();
  return Place(program, words).Suggest(begun, names);
}

}  // namespace qx::app
