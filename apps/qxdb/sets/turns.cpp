#include "apps/qxdb/sets/turns.h"

#include <algorithm>
#include <fmt/format.h>

#include "qx_db/record/verbs.h"

namespace qx::app {
namespace {

std::string AxesText(bool has, const double (&axes)[3][3]) {
  if (!has) return "none";
  std::string text;
  for (const auto& row : axes) {
    text += fmt::format("{}({:.6g}, {:.6g}, {:.6g})", text.empty() ? "" : " ", row[0] + 0.0,
                        row[1] + 0.0, row[2] + 0.0);
  }
  return text;
}

void WriteAxes(JsonText& json, const char* name, bool has, const double (&axes)[3][3]) {
  json.BeginArray(name);
  for (const auto& row : axes) {
    for (const double value : row) {
      if (has) json.Real({}, value);
    }
  }
  json.End();
}

}  // namespace

void AddYes(Command& command, bool& yes) {
  command.Add("--yes", &yes, "Turn elements whose orientation or system goes, without asking");
}

std::string TurnsText(const std::vector<Turn>& turns, bool all) {
  constexpr std::size_t kShown = 10;
  if (turns.empty()) return "";
  Table table({"turned element", "local x, y, z before", "after"});
  const std::size_t shown = all ? turns.size() : std::min(kShown, turns.size());
  for (std::size_t i = 0; i < shown; ++i) {
    const Turn& turn = turns[i];
    table.Row({std::to_string(KeyOf(turn.element)), AxesText(turn.has_axes, turn.before),
               AxesText(turn.will_have_axes, turn.after)});
  }
  std::string text = table.Text();
  if (shown < turns.size()) {
    text += fmt::format("and {} more; --json has them all\n", turns.size() - shown);
  }
  return text;
}

void WriteTurns(const std::vector<Turn>& turns, JsonText& json) {
  json.BeginArray("turns");
  for (const Turn& turn : turns) {
    json.Begin().Integer("element", KeyOf(turn.element));
    WriteAxes(json, "before", turn.has_axes, turn.before);
    WriteAxes(json, "after", turn.will_have_axes, turn.after);
    json.End();
  }
  json.End();
}

Outcome AskForTurns(const std::vector<Turn>& turns, bool yes, const std::string& model,
                    const std::string& place) {
  if (turns.empty() || yes) return {};
  std::string what =
      fmt::format("would turn {} element{}:", turns.size(), turns.size() > 1 ? "s" : "");
  constexpr std::size_t kNamed = 6;
  for (std::size_t i = 0; i < std::min(kNamed, turns.size()); ++i) {
    what += fmt::format("{} {}", i ? "," : "", KeyOf(turns[i].element));
  }
  if (turns.size() > kNamed) what += ", ...";
  return Failure{model, place, what,
                 "see the axes with --dry-run; to have them turned repeat it with --yes"};
}

}  // namespace qx::app
