#include "apps/qxdb/command/command_line.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <fmt/format.h>
#include <map>
#include <new>
#include <string_view>

#include "qx_db/platform/parallel.h"

namespace qx::app {
namespace {

using Parsers = std::map<Option*, CLI::Option*>;

CLI::Option* AddOption(CLI::App& app, const Option& option) {
  const auto add = [&](auto* target) -> CLI::Option* {
    if constexpr (std::is_same_v<decltype(target), bool*>) {
      return app.add_flag(option.name, *target, option.what);
    } else {
      return app.add_option(option.name, *target, option.what);
    }
  };
  CLI::Option* parser = std::visit(add, option.target);
  if (option.is_required) parser->required();
  if (option.most_count > 0) parser->expected(option.least_count, option.most_count);
  if (option.is_one_at_a_time || option.most_count == 1) parser->allow_extra_args(false);
  if (option.splits_at_commas) parser->delimiter(',');
  if (!option.values.empty()) parser->check(CLI::IsMember(option.values));
  if (option.range) parser->check(CLI::Range(option.range->first, option.range->second));
  if (option.check) parser->check(CLI::Validator(option.check->fault, option.check->hint));
  if (option.shows_default) parser->capture_default_str();
  return parser;
}

/// What an example and notes look like below the help of a command.
std::string FooterOf(const Command& command) {
  return "Example:\n  " + command.example + (command.notes.empty() ? "" : "\n\n" + command.notes);
}

/// Where one of two is needed: the parser knows only what excludes what.
void CheckChoices(const Command& command, const Parsers& parsers) {
  for (const auto& [first, second] : command.choices) {
    if (parsers.at(first)->count() == 0 && parsers.at(second)->count() == 0) {
      throw CLI::RequiredError(first->name + " or " + second->name);
    }
  }
}

/// Tells the parser what is declared. The declarations outlive it.
void Declare(CLI::App& app, Command& command) {
  app.footer(FooterOf(command));
  std::map<Option*, CLI::App*> place;
  for (const Command::Group& group : command.groups) {
    CLI::App* options = app.add_option_group(group.heading, group.what);
    options->require_option(0, 1);
    for (Option* option : group.options) place[option] = options;
  }
  Parsers parsers;
  for (Option& option : command.options) {
    if (!option.is_typed) continue;
    const auto in_group = place.find(&option);
    parsers[&option] = AddOption(in_group == place.end() ? app : *in_group->second, option);
  }
  for (const auto& [option, parser] : parsers) {
    for (Option* other : option->excluded) parser->excludes(parsers.at(other));
  }
  for (const auto& [first, second] : command.choices) parsers[first]->excludes(parsers[second]);
  for (Command& each : command.commands) {
    if (each.is_hidden) continue;
    Declare(*app.add_subcommand(each.name, each.what), each);
  }
  if (!command.commands.empty()) app.require_subcommand(command.work ? 0 : 1, 1);
  if (!command.choices.empty()) {
    app.parse_complete_callback([&command, parsers] { CheckChoices(command, parsers); });
  }
  if (!command.work) return;
  app.callback([&app, &command, parsers] {
    if (!app.get_subcommands().empty()) return;
    for (const auto& [option, parser] : parsers) option->is_given = parser->count() > 0;
    const LongTask task(command.name);
    command.work();
  });
}

/// What a parser found wrong, with the command it was given to.
Failure MisuseOf(const CLI::App& app, const CLI::ParseError& error, bool is_shell) {
  std::string commands;
  for (const CLI::App* command = &app; !command->get_subcommands().empty();) {
    command = command->get_subcommands().front();
    commands += (commands.empty() ? "" : " ") + command->get_name();
  }
  const std::vector<std::string> rest = app.remaining(true);
  const bool is_unknown = commands.empty() && !rest.empty();
  return {"", commands, is_unknown ? "\"" + rest[0] + "\" is no command" : MidLine(error.what()),
          is_shell ? "see: help" + (commands.empty() ? "" : " " + commands)
                   : "see: qxdb " + commands + (commands.empty() ? "--help" : " --help")};
}

}  // namespace

int RunCommandLine(Command& program, Context& context, std::vector<std::string> words) {
  CLI::App app(program.what, program.name);
  app.set_version_flag("--version", program.name + " " QX_VERSION);
  Declare(app, program);
  app.parse_complete_callback([&] { SetWorkThreads(static_cast<unsigned>(context.threads)); });
  const bool is_json = std::find(words.begin(), words.end(), "--json") != words.end();
  try {
    std::reverse(words.begin(), words.end());  // as the parser takes them
    app.parse(std::move(words));
  } catch (const CLI::ParseError& error) {
    if (error.get_exit_code() == 0) return app.exit(error);  // help is no error
    context.json |= is_json;
    context.Conclude(MisuseOf(app, error, context.is_shell));
  } catch (const Stopped&) {
    context.exit_code = kRefused;
    context.Tell({"", "", "was stopped; the model is as it was", "give the command again"});
  } catch (const std::bad_alloc&) {
    fmt::print(stderr, "qxdb: not enough memory; close other programs or split the model\n");
    return kRefused;
  }
  return context.exit_code;
}

Result<std::string> HelpOf(Command& program, const std::vector<std::string>& names, bool is_shell) {
  std::string path = program.name;
  Command* command = &program;
  if (is_shell) path.clear();
  for (const std::string& name : names) {
    command = command->Find(name);
    if (!command) {
      return Failure{
          "", name, "is no command",
          is_shell ? "see: help" + (path.empty() ? "" : " " + path) : "see: " + path + " --help"};
    }
    path += (path.empty() ? "" : " ") + name;
  }
  CLI::App app(command->what, command->name);
  if (command == &program && !is_shell) app.set_version_flag("--version", "");
  Declare(app, *command);
  return app.get_formatter()->make_help(&app, path, CLI::AppFormatMode::Normal);
}

}  // namespace qx::app
