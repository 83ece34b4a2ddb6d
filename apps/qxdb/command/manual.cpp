#include "apps/qxdb/command/manual.h"

#include <algorithm>
#include <fmt/format.h>
#include <iterator>
#include <string_view>

#include "apps/qxdb/command/console.h"
#include "apps/qxdb/command/output.h"

namespace qx::app {
namespace {

/// Text as man(7) prints it: dashes that can be typed, no line taken for a request.
std::string Escaped(std::string_view text) {
  std::string out;
  for (const char c : text) {
    if (c == '\\') {
      out += "\\e";
    } else if (c == '-') {
      out += "\\-";
    } else if (c == '\'') {
      out += "\\(aq";
    } else if (c == '.' && (out.empty() || out.back() == '\n')) {
      out += "\\&.";
    } else {
      out += c;
    }
  }
  return out;
}

std::string Bold(std::string_view text) { return "\\fB" + Escaped(text) + "\\fR"; }
std::string Italic(std::string_view text) { return "\\fI" + Escaped(text) + "\\fR"; }

std::string Joined(const std::vector<std::string>& parts, std::string_view by) {
  return fmt::format("{}", fmt::join(parts, by));
}

/// What stands for one value of an option.
std::string ValueName(const Option& option) {
  switch (option.kind) {
    case ValueKind::kFile:
      return "FILE";
    case ValueKind::kPool:
      return "POOL";
    case ValueKind::kKeys:
      return "KEYS";
    case ValueKind::kRecord:
      return "RECORD";
    case ValueKind::kSet:
      return "SET";
    case ValueKind::kSelection:
      return "SELECTION";
    case ValueKind::kCommand:
      return "COMMAND";
    case ValueKind::kText:
      break;
  }
  if (!option.values.empty()) return "WORD";
  const bool is_text = std::holds_alternative<std::string*>(option.target) ||
                       std::holds_alternative<std::vector<std::string>*>(option.target);
  return is_text ? "TEXT" : "NUMBER";
}

/// An option as it is typed: "--by NUMBER NUMBER NUMBER", "model", "set...".
std::string Typed(const Option& option) {
  const bool goes_on = option.TakesMany() && !option.is_one_at_a_time &&
                       (option.most_count == 0 || option.most_count > option.least_count);
  const char* more = goes_on ? " \\&..." : "";
  if (option.IsArgument()) return Italic(option.name) + more;
  std::string typed = Bold(option.name);
  if (option.IsFlag()) return typed;
  for (int i = 0; i < std::max(option.least_count, 1); ++i)
    typed += " " + Italic(ValueName(option));
  return typed + more;
}

std::string DefaultOf(const Option& option) {
  const auto text = [](auto* target) -> std::string {
    using Value = std::decay_t<decltype(*target)>;
    if constexpr (std::is_same_v<Value, std::string> || std::is_arithmetic_v<Value>) {
      return fmt::format("{}", *target);
    } else {
      return "";
    }
  };
  return option.shows_default ? std::visit(text, option.target) : "";
}

class Page {
 public:
  Page(const Command& command, const std::string& path, const std::string& version)
      : command_(command), path_(path) {
    name_ = path;
    std::replace(name_.begin(), name_.end(), ' ', '-');
    std::string title = name_;
    std::transform(title.begin(), title.end(), title.begin(),
                   [](char c) { return c >= 'a' && c <= 'z' ? static_cast<char>(c - 32) : c; });
    text_ = kManualMark;
    text_ += fmt::format(".TH \"{}\" 1 \"\" \"{}\" \"QX_db\"\n", Escaped(title), Escaped(version));
    Section("NAME");
    text_ += Escaped(name_) + " \\- " + Escaped(MidLine(command.what)) + "\n";
    Section("SYNOPSIS");
    text_ += Bold(path) + Synopsis() + "\n";
    Options("ARGUMENTS", true);
    Options("OPTIONS", false);
    Commands();
    Section("EXAMPLE");
    text_ += ".nf\n.RS 4\n" + Escaped(command.example) + "\n.RE\n.fi\n";
    Notes();
    Section("EXIT STATUS");
    for (const ExitMeaning& exit : kExitMeanings) {
      text_ += fmt::format(".TP\n.B {}\n{}\n", static_cast<int>(exit.code), Escaped(exit.meaning));
    }
  }

  /// Ends the page with what else to read.
  ManualPage Ended(std::vector<std::string> others) {
    if (!others.empty()) {
      Section("SEE ALSO");
      for (std::string& other : others) other = ".BR " + Escaped(other) + " (1)";
      text_ += Joined(others, ",\n") + "\n";
    }
    return {name_, text_};
  }
  const std::string& Name() const { return name_; }

 private:
  void Section(std::string_view heading) { text_ += fmt::format(".SH {}\n", heading); }

  /// Options, then arguments, those that exclude each other side by side.
  std::string Synopsis() const {
    std::string line;
    std::vector<const Option*> told;
    for (const bool arguments : {false, true}) {
      for (const Option& option : command_.options) {
        if (option.IsArgument() != arguments || std::count(told.begin(), told.end(), &option)) {
          continue;
        }
        const std::vector<const Option*> all = Alternatives(option);
        const auto is_argument = [](const Option* each) { return each->IsArgument(); };
        // What may stand instead of an argument stands with it.
        if (!arguments && std::any_of(all.begin(), all.end(), is_argument)) continue;
        std::vector<std::string> parts;
        for (const Option* each : all) parts.push_back(Typed(*each));
        const char* form = option.is_required ? " {}" : IsChoice(option) ? " {{{}}}" : " [{}]";
        line += fmt::format(fmt::runtime(form), Joined(parts, " | "));
        told.insert(told.end(), all.begin(), all.end());
      }
    }
    if (!command_.commands.empty()) line += command_.work ? " [COMMAND]" : " COMMAND";
    return line;
  }

  /// Whether it is one of two of which one must be given.
  bool IsChoice(const Option& option) const {
    return std::any_of(command_.choices.begin(), command_.choices.end(), [&](const auto& choice) {
      return choice.first == &option || choice.second == &option;
    });
  }

  /// An option and those that exclude it.
  std::vector<const Option*> Alternatives(const Option& option) const {
    for (const auto& [first, second] : command_.choices) {
      if (first == &option || second == &option) return {first, second};
    }
    for (const Command::Group& group : command_.groups) {
      std::vector<const Option*> of;
      std::copy_if(group.options.begin(), group.options.end(), std::back_inserter(of),
                   [&](const Option* each) { return !IsChoice(*each); });
      if (std::count(of.begin(), of.end(), &option)) return of;
    }
    std::vector<const Option*> of = {&option};
    for (const Option& other : command_.options) {
      if (std::count(other.excluded.begin(), other.excluded.end(), &option)) of.push_back(&other);
    }
    return of;
  }

  void Options(std::string_view heading, bool arguments) {
    bool is_first = true;
    for (const Option& option : command_.options) {
      if (option.IsArgument() != arguments) continue;
      if (is_first) Section(heading);
      is_first = false;
      text_ += ".TP\n" + Typed(option) + "\n" + Explained(option) + "\n";
    }
    if (arguments) return;
    if (is_first) Section(heading);
    text_ += ".TP\n\\fB\\-h\\fR, \\fB\\-\\-help\\fR\nExplain the command.\n";
    if (path_.find(' ') == std::string::npos) {
      text_ += ".TP\n\\fB\\-\\-version\\fR\nPrint the version.\n";
    }
  }

  std::string Explained(const Option& option) const {
    std::string text = option.what + ".";
    if (!option.values.empty()) text += " One of " + Joined(option.values, ", ") + ".";
    if (option.range) {
      text += fmt::format(" From {} to {}.", option.range->first, option.range->second);
    }
    if (const std::string value = DefaultOf(option); !value.empty()) {
      text += " Without it: " + value + ".";
    }
    for (const Option* other : Alternatives(option)) {
      if (other != &option) text += " Not with " + other->name + ".";
    }
    return Escaped(text);
  }

  void Commands() {
    if (command_.commands.empty()) return;
    Section("COMMANDS");
    for (const Command& each : command_.commands) {
      text_ += ".TP\n" + Bold(each.name) + "\n" + Escaped(each.what) + ".\n";
    }
  }

  void Notes() {
    // Those of the program are its exit codes, which have a section on every page.
    if (command_.notes.empty() || path_.find(' ') == std::string::npos) return;
    Section("NOTES");
    std::string notes = command_.notes;
    for (std::size_t at = 0; (at = notes.find("\n  ", at)) != std::string::npos;) {
      notes.replace(at, 3, "\n");
    }
    text_ += Escaped(notes) + "\n";
  }

  const Command& command_;
  std::string path_;
  std::string name_;
  std::string text_;
};

/// The pages of a command and of all below it. Returns the name of its own.
std::string AddPages(const Command& command, const std::string& path, const std::string& version,
                     const std::vector<std::string>& above, std::vector<ManualPage>& pages) {
  Page page(command, path, version);
  const std::size_t place = pages.size();
  pages.emplace_back();
  std::vector<std::string> from_below = above;
  from_below.push_back(page.Name());
  std::vector<std::string> others = above;
  for (const Command& each : command.commands) {
    others.push_back(AddPages(each, path + " " + each.name, version, from_below, pages));
  }
  pages[place] = page.Ended(others);
  return page.Name();
}

}  // namespace

std::vector<ManualPage> ManualPages(const Command& program, const std::string& version) {
  std::vector<ManualPage> pages;
  AddPages(program, program.name, version, {}, pages);
  return pages;
}

}  // namespace qx::app
