#include "apps/qxdb/model/history_bounds.h"

#include <algorithm>
#include <cmath>
#include <fmt/format.h>
#include <limits>
#include <memory>
#include <optional>
#include <set>

#include "qx_db/platform/text.h"

#include "apps/qxdb/command/option_values.h"
#include "apps/qxdb/commands.h"

namespace qx::app {
namespace {

constexpr HistoryLimits kAll{std::numeric_limits<std::size_t>::max(),
                             std::numeric_limits<std::size_t>::max()};

std::string Counted(std::size_t steps) {
  return fmt::format("{} step{}", Grouped(static_cast<std::int64_t>(steps)), steps == 1 ? "" : "s");
}

/// The command that makes room for the whole history, and as much again.
std::string RoomCommand(const Model& model, const HistoryFit& whole) {
  const HistoryLimits& kept = model.session.KeptHistory();
  std::string command = "qxdb history set " + model.path;
  const std::size_t steps = whole.done + whole.undone;
  if (steps > kept.steps) command += fmt::format(" --steps {}", 2 * steps);
  if (whole.bytes > kept.bytes)
    command += fmt::format(" --bytes {}MB", 2 * whole.bytes / 1000000 + 1);
  return command;
}

/// How many of the steps that could be undone when the model was opened its file would not have.
std::size_t PushedOut(const Model& model, const HistoryFit& fit) {
  std::set<std::int64_t> left;
  const auto& done = model.session.History().Done();
  for (std::size_t i = done.size() - fit.done; i < done.size(); ++i) left.insert(done[i].State());
  return static_cast<std::size_t>(
      std::count_if(model.undoable.begin(), model.undoable.end(),
                    [&](std::int64_t state) { return !left.contains(state); }));
}

/// The bytes that "64MiB", "1.5 GB" or "100000" names.
std::optional<std::size_t> ReadBytes(const std::string& text) {
  static constexpr std::pair<const char*, double> kUnits[] = {{"", 1},
                                                              {"B", 1},
                                                              {"KB", 1e3},
                                                              {"MB", 1e6},
                                                              {"GB", 1e9},
                                                              {"TB", 1e12},
                                                              {"KIB", 1024.0},
                                                              {"MIB", 1048576.0},
                                                              {"GIB", 1073741824.0},
                                                              {"TIB", 1099511627776.0}};
  const std::size_t digits = std::min(text.find_first_not_of("0123456789."), text.size());
  const std::optional<double> number = ReadReal(text.substr(0, digits));
  std::string unit = AsciiUpper(text.substr(digits));
  unit.erase(0, std::min(unit.find_first_not_of(' '), unit.size()));
  const auto* found = std::find_if(std::begin(kUnits), std::end(kUnits),
                                   [&](const auto& each) { return unit == each.first; });
  if (!number || found == std::end(kUnits)) return std::nullopt;
  const double bytes = *number * found->second;
  if (!(bytes <= 1e15)) return std::nullopt;
  return static_cast<std::size_t>(bytes);
}

struct BoundsOptions {
  std::string model;
  std::int64_t steps = 0;
  std::string bytes;
};

Outcome ShowBounds(Model& model, const BoundsOptions&, const Context& context) {
  JsonText json;
  json.Begin().Text("model", model.path);
  WriteHistory(model.session, json);
  context.Print(HistoryText(model.session), json.End());
  return {};
}

Outcome SetBounds(Model& model, const BoundsOptions& options, const Context& context) {
  const HistoryLimits before = model.session.KeptHistory();
  HistoryLimits kept = before;
  if (options.steps > 0) kept.steps = static_cast<std::size_t>(options.steps);
  if (!options.bytes.empty()) kept.bytes = *ReadBytes(options.bytes);
  if (options.steps == 0 && options.bytes.empty()) {
    return Failure{"", "history set", "neither --steps nor --bytes is given", "give one of them"};
  }
  if (!(kept == before)) {
    model.session.SetKeptHistory(kept);
    if (Outcome saved = model.Save(); !saved) return saved;
  }
  JsonText json;
  json.Begin().Text("model", model.path).Bool("saved", !(kept == before));
  WriteHistory(model.session, json);
  context.Print(fmt::format("{}: keeps {}{}", model.path, BoundsText(kept),
                            kept == before ? ", as before" : ", was " + BoundsText(before)),
                json.End());
  return {};
}

}  // namespace

std::string BoundsText(const HistoryLimits& kept) {
  return fmt::format("{} and {}", Counted(kept.steps), Bytes(kept.bytes));
}

std::string HistoryText(const CQXDBSession& session) {
  const Journal& history = session.History();
  const HistoryFit whole = FitHistory(session, kAll);
  return fmt::format("{}, {}; at most {} are kept, and always the last\n",
                     Counted(history.Done().size() + history.Undone().size()), Bytes(whole.bytes),
                     BoundsText(session.KeptHistory()));
}

void WriteHistory(const CQXDBSession& session, JsonText& json) {
  const Journal& history = session.History();
  const HistoryFit whole = FitHistory(session, kAll);
  const auto integer = [&](const char* name, std::uint64_t value) {
    json.Integer(name, static_cast<std::int64_t>(value));
  };
  json.Begin("history");
  integer("steps", history.Done().size() + history.Undone().size());
  integer("bytes", whole.bytes);
  integer("most_steps", session.KeptHistory().steps);
  integer("most_bytes", session.KeptHistory().bytes);
  json.End();
}

Outcome CheckHistory(Model& model, bool dry_run) {
  const CQXDBSession& session = model.session;
  const HistoryLimits& kept = session.KeptHistory();
  const HistoryFit fit = FitHistory(session, kept);
  const std::size_t lost = PushedOut(model, fit);
  model.pushed_out = lost + (session.History().Undone().size() - fit.undone);
  if (model.pushed_out > lost && !model.yes && !dry_run) {
    return Failure{model.path, "history",
                   fmt::format("would lose {} that can be done again",
                               Counted(session.History().Undone().size() - fit.undone)),
                   "repeat it with --yes to let them go, or keep more: qxdb history set " +
                       model.path + " --bytes SIZE"};
  }
  if (lost == 0 || (model.yes && !dry_run)) return {};
  const HistoryFit whole = FitHistory(session, kAll);
  // Of so many steps as are kept, the oldest goes for each new one: nobody is asked about that.
  const std::size_t done = session.History().Done().size();
  const std::size_t added = done - std::min(done, model.undoable.size());
  if (whole.bytes <= kept.bytes && lost <= added && PushedOut(model, whole) == 0) return {};
  const bool by_bounds = PushedOut(model, whole) < lost;
  std::string what = fmt::format("would lose {} of {}, ", lost, Counted(model.undoable.size()));
  what += by_bounds ? fmt::format("as it would be {} and {}, and keeps {}",
                                  Counted(whole.done + whole.undone), Bytes(whole.bytes),
                                  BoundsText(kept))
                    : "as the file has no form for what was reordered";
  if (dry_run) {
    fmt::print(stderr, "note: {} {}\n", model.path, what);
    return {};
  }
  std::string remedy = "repeat it with --yes to let them go";
  if (by_bounds) remedy += ", or keep more: " + RoomCommand(model, whole);
  return Failure{model.path, "history", what, remedy};
}

void AddHistoryBounds(Command& app, Context& context) {
  Command* command = AddCommand(app, context, "history", "How much of its history a model keeps",
                                "qxdb history set wing.qxm --bytes 1GB");
  AddModelCommand<BoundsOptions>(*command, context, "show",
                                 "Show how large the history is, and how large it may be",
                                 "qxdb history show wing.qxm", ShowBounds);
  const auto [set, options] = AddModelCommand<BoundsOptions>(
      *command, context, "set", "Say how much of its history the model keeps",
      "qxdb history set wing.qxm --steps 100 --bytes 1GB", SetBounds);
  set->Add("--steps", &options->steps, "Most steps, the last ones").Range(1, 1000000000);
  const auto fault = [](const std::string& text) {
    return ReadBytes(text) ? "" : fmt::format("\"{}\" is no size as 64MiB or 1GB", text);
  };
  set->Add("--bytes", &options->bytes, "Most that they take in the file; the last is always kept")
      .Check({fault, "SIZE"});
  set->notes =
      "Of so many steps the oldest goes for each new one. A step that would push out others "
      "because\n"
      "of its size is refused, unless --yes says to go on; qxdb sql --write does not ask. What is\n"
      "kept holds for all who write the model; it is a part of it, and no step.";
}

void AddYesToAll(Command& app, Context& context) {
  // Those that never save a model.
  static const std::set<std::string> readers = {
      "axes",  "blame",   "check",  "complete", "describe", "diff",    "dump",   "export",
      "help",  "info",    "list",   "log",      "manual",   "picture", "points", "preview",
      "probe", "records", "select", "show",     "tree",     "verify",  "view",   "where-used",
      "write", "sql",     "undo",   "redo",     "checkout"};
  for (Command& command : app.commands) {
    AddYesToAll(command, context);
    if (!command.work || readers.contains(command.name)) continue;
    const auto own = std::find_if(command.options.begin(), command.options.end(),
                                  [](const Option& option) { return option.name == "--yes"; });
    bool* flag = nullptr;
    if (own != command.options.end()) {
      flag = std::get<bool*>(own->target);
      own->what += "; let old steps of the history go";
    } else {
      auto kept = std::make_shared<bool>(false);
      flag = kept.get();
      command.Add("--yes", flag,
                  "Let old steps of the history go where the new one needs the room");
      command.work = [kept, work = std::move(command.work)] { work(); };
    }
    command.work = [flag, &context, work = std::move(command.work)] {
      context.yes = *flag || context.yes_to_all;
      work();
    };
  }
}

}  // namespace qx::app
