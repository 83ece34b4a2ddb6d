#pragma once
// What the command line offers, declared: commands, their arguments, options and flags. The parser
// (command_line.h), the help, the manual pages and the completions all read these declarations.

#include <cstddef>
#include <cstdint>
#include <functional>
#include <list>
#include <optional>
#include <string>
#include <utility>
#include <variant>
#include <vector>

namespace qx::app {

/// What a value is, for those who complete it. Which values pass is said by OneOf, Range and Check.
enum class ValueKind {
  kText,       ///< something of the user's own: a name, a number
  kFile,       ///< a file, see Option::extensions
  kPool,       ///< a pool by its table name
  kKeys,       ///< keys of records
  kRecord,     ///< a record type or a pool
  kSet,        ///< a mesh set of the model by its name
  kSelection,  ///< a selection of nodes, elements or faces
  kCommand     ///< a command of this program
};

/// A demand on a value that a range cannot say.
struct ValueCheck {
  /// What is wrong with a value, "" when nothing is.
  std::function<std::string(const std::string&)> fault;
  std::string hint;  ///< for the help, in the place of a range; may be empty
};

/// An argument ("model"), an option with values ("--count") or a flag ("--dry-run"). The functions
/// declare more of it and return it; the members are for reading.
class Option {
 public:
  /// Where its value goes, which also says of which type and how many.
  using Target = std::variant<bool*, std::string*, std::int32_t*, std::int64_t*, std::size_t*,
                              double*, std::optional<std::int32_t>*, std::optional<double>*,
                              std::vector<double>*, std::vector<std::string>*>;

  Option& Required() { return is_required = true, *this; }
  /// The help shows the value that the target has now.
  Option& ShowDefault() { return shows_default = true, *this; }
  /// As many values as this, in one go.
  Option& Count(int count) { return Count(count, count); }
  Option& Count(int least, int most) { return least_count = least, most_count = most, *this; }
  /// One value at a time; the option may be given again.
  Option& OneAtATime() { return is_one_at_a_time = true, *this; }
  /// Values may also stand in one word, apart by commas.
  Option& SplitAtCommas() { return splits_at_commas = true, *this; }
  Option& OneOf(std::vector<std::string> all) { return values = std::move(all), *this; }
  Option& Range(std::int64_t least, std::int64_t most) { return range = {least, most}, *this; }
  Option& Check(ValueCheck demand) { return check = std::move(demand), *this; }
  /// Not together with that one.
  Option& Excludes(Option& other) { return excluded.push_back(&other), *this; }

  Option& Pool() { return kind = ValueKind::kPool, *this; }
  Option& Keys() { return kind = ValueKind::kKeys, *this; }
  Option& Record() { return kind = ValueKind::kRecord, *this; }
  Option& Set() { return kind = ValueKind::kSet, *this; }
  Option& Selection() { return kind = ValueKind::kSelection, *this; }
  Option& CommandName() { return kind = ValueKind::kCommand, *this; }
  /// A file with such an extension (".msh"); with any when none is named.
  Option& File(std::vector<std::string> with = {}) {
    return kind = ValueKind::kFile, extensions = std::move(with), *this;
  }
  Option& Model() { return File({".qxm"}); }
  /// The model that the command works on: in a shell the one that is open, and not typed.
  Option& OpenModel() { return is_open_model = true, Model(); }

  bool IsFlag() const { return std::holds_alternative<bool*>(target); }
  bool IsArgument() const { return name[0] != '-'; }
  bool TakesMany() const;

  std::string name;  ///< with its dashes, if it has any
  std::string what;  ///< one line of help
  Target target;
  ValueKind kind = ValueKind::kText;
  std::vector<std::string> extensions;
  std::vector<std::string> values;  ///< the only ones, when there are any
  std::optional<std::pair<std::int64_t, std::int64_t>> range;
  std::optional<ValueCheck> check;
  std::vector<Option*> excluded;
  int least_count = 0, most_count = 0;  ///< 0: as the target says
  bool is_required = false;
  bool shows_default = false;
  bool is_one_at_a_time = false;
  bool splits_at_commas = false;
  bool is_given = false;  ///< known when the command's work begins
  bool is_open_model = false;
  bool is_typed = true;         ///< not the open model's name in a shell
  std::function<void()> reset;  ///< gives the target the value back that it was declared with
};

/// A command, or a group of commands below it.
class Command {
 public:
  Command(std::string its_name, std::string its_what, std::string its_example)
      : name(std::move(its_name)), what(std::move(its_what)), example(std::move(its_example)) {}
  Command(const Command&) = delete;
  Command& operator=(const Command&) = delete;

  Command& AddCommand(std::string its_name, std::string its_what, std::string its_example);
  /// An argument when the name has no dash, else an option or, for a bool, a flag. The target must
  /// live as long as the command.
  Option& Add(std::string its_name, Option::Target target, std::string its_what);

  /// Declares options of which at most one may be given, under a heading of their own.
  void AtMostOne(std::string heading, std::string explained, std::vector<Option*> of);
  /// Declares two of which one must be given, and only one.
  void ExactlyOne(Option& first, Option& second);

  /// The command below this one with that name, or null.
  Command* Find(const std::string& command);

  /// For one more command line: every target, of the commands below too, has the value that it was
  /// declared with. Where `model` is not empty, it is the model of all commands that work on one,
  /// and is not typed.
  void Reset(const std::string& model);

  struct Group {
    std::string heading;
    std::string what;
    std::vector<Option*> options;
  };

  std::string name;
  std::string what;     ///< one line
  std::string example;  ///< one command line
  std::string notes;    ///< printed after the example; may be empty
  std::list<Option> options;
  std::vector<Group> groups;
  std::vector<std::pair<Option*, Option*>> choices;  ///< of ExactlyOne
  std::list<Command> commands;
  bool is_hidden = false;  ///< neither known nor listed
  /// Nothing for a group that needs one of its commands; what it does when it is given alone.
  std::function<void()> work;
};

}  // namespace qx::app
