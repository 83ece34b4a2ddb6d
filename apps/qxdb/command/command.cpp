#include "apps/qxdb/command/command.h"

#include <algorithm>

namespace qx::app {

bool Option::TakesMany() const {
  return std::holds_alternative<std::vector<double>*>(target) ||
         std::holds_alternative<std::vector<std::string>*>(target);
}

Command& Command::AddCommand(std::string its_name, std::string its_what, std::string its_example) {
  return commands.emplace_back(std::move(its_name), std::move(its_what), std::move(its_example));
}

Option& Command::Add(std::string its_name, Option::Target target, std::string its_what) {
  Option& option = options.emplace_back();
  option.name = std::move(its_name);
  option.target = target;
  option.what = std::move(its_what);
  option.reset = std::visit(
      [](auto* value) -> std::function<void()> {
        return [value, before = *value] { *value = before; };
      },
      target);
  return option;
}

void Command::AtMostOne(std::string heading, std::string explained, std::vector<Option*> of) {
  groups.push_back({std::move(heading), std::move(explained), std::move(of)});
}

void Command::ExactlyOne(Option& first, Option& second) { choices.emplace_back(&first, &second); }

void Command::Reset(const std::string& model) {
  for (Option& option : options) {
    option.reset();
    if (!option.is_open_model) continue;
    option.is_typed = model.empty();
    if (!model.empty()) *std::get<std::string*>(option.target) = model;
  }
  for (Command& each : commands) each.Reset(model);
}

Command* Command::Find(const std::string& command) {
  const auto found = std::find_if(commands.begin(), commands.end(), [&](const Command& each) {
    return each.name == command && !each.is_hidden;
  });
  return found == commands.end() ? nullptr : &*found;
}

}  // namespace qx::app
