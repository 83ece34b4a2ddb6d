// The history that a model file keeps: looking at it, and going back and forth in it.

#include <ctime>
#include <fmt/format.h>
#include <map>

#include "qx_db/core/state_hash.h"
#include "qx_db/platform/plain_text.h"
#include "qx_db/qx_db.h"

#include "apps/qxdb/commands.h"
#include "apps/qxdb/model/history_bounds.h"
#include "apps/qxdb/model/selection.h"

namespace qx::app {
namespace {

struct HistoryOptions {
  std::string model;
  std::string pool;
  std::string keys;
  std::int64_t step = -1;
  int count = 1;
  bool keep_history = false;
};

enum class Clock { kLocal, kUtc };

/// For people on their clock, for programs (ISO 8601) on everyone's.
std::string TimeText(std::int64_t time_ms, Clock clock) {
  if (time_ms == 0) return "";
  const auto seconds = static_cast<std::time_t>(time_ms / 1000);
  const bool utc = clock == Clock::kUtc;
  std::tm parts{};
#ifdef _WIN32
  utc ? gmtime_s(&parts, &seconds) : localtime_s(&parts, &seconds);
#else
  utc ? gmtime_r(&seconds, &parts) : localtime_r(&seconds, &parts);
#endif
  char text[32];
  return {text, utc ? std::strftime(text, sizeof(text), "%Y-%m-%dT%H:%M:%SZ", &parts)
                    : std::strftime(text, sizeof(text), "%Y-%m-%d %H:%M:%S", &parts)};
}

struct Counts {
  std::int64_t inserted = 0, removed = 0, modified = 0;
};

Counts CountsOf(const Step& step) {
  Counts counts;
  for (const Change& change : step.changes) {
    counts.inserted += change.operation == tagTRNotify::kInserted;
    counts.removed += change.operation == tagTRNotify::kRemoved;
    counts.modified += change.operation == tagTRNotify::kModified;
  }
  return counts;
}

/// Who else has, or had, the file.
std::string WriterText(const ModelFileReport& report) {
  std::string text;
  if (!report.stale_lock.empty()) {
    text += "note: " + report.stale_lock + " ended without closing the file\n";
  }
  if (!report.writer.empty()) text += "note: being edited by " + report.writer + "\n";
  return text;
}

/// All steps, oldest first: the done ones, then those that can be redone.
std::vector<const Step*> AllSteps(const CQXDBSession& session) {
  std::vector<const Step*> steps;
  for (const Step& step : session.History().Done()) steps.push_back(&step);
  const auto& undone = session.History().Undone();
  for (auto step = undone.rbegin(); step != undone.rend(); ++step) steps.push_back(&*step);
  return steps;
}

void WriteStep(JsonText& json, const Step& step) {
  const Counts counts = CountsOf(step);
  json.Integer("step", step.number).Text("time", TimeText(step.time_ms, Clock::kUtc));
  json.Text("name", Utf8(step.name)).Integer("inserted", counts.inserted);
  json.Integer("removed", counts.removed).Integer("modified", counts.modified);
}

Outcome Log(Model& model, const HistoryOptions& options, const Context& context) {
  if (Outcome read = model.Reread(); !read) return read;
  const ModelFileReport& report = model.report;
  const CQXDBSession& session = model.session;
  const std::size_t done = session.History().Done().size();
  Table table({"", ">step", "time", ">inserted", ">removed", ">modified", "name"});
  JsonText json;
  json.Begin().Text("model", options.model).Integer("since_save", report.steps);
  json.Bool("closed", report.closed).Bool("unfinished_step", report.unfinished_step);
  json.Bool("history_cut", report.history_cut);
  json.Text("writer", report.writer);
  json.BeginArray("steps");
  const std::vector<const Step*> steps = AllSteps(session);
  for (std::size_t i = 0; i < steps.size(); ++i) {
    const Counts counts = CountsOf(*steps[i]);
    table.Row({i + 1 == done ? "*"
               : i >= done   ? "undone"
                             : "",
               std::to_string(steps[i]->number), TimeText(steps[i]->time_ms, Clock::kLocal),
               Grouped(counts.inserted), Grouped(counts.removed), Grouped(counts.modified),
               Utf8(steps[i]->name)});
    json.Begin();
    WriteStep(json, *steps[i]);
    json.Bool("done", i < done).End();
  }
  json.End();
  WriteHistory(session, json);
  context.Print(
      WriterText(report) + (steps.empty() ? "no history; " : table.Text()) + HistoryText(session),
      json.End());
  return {};
}

/// Opens for editing, moves in the history, and says where that led.
template <class Move>
Outcome Go(const HistoryOptions& options, const Context& context, Move&& move) {
  Model model(options.model);
  if (Outcome opened = model.OpenForEditing(); !opened) return opened;
  CQXDBSession& session = model.session;
  const std::string before = HashText(KnownStateHash(session));
  // However many steps it takes, they are put on the device once.
  StepKeeper& keeper = *model.document.Keeper();
  keeper.SetOptions({Durability::kInterval, std::chrono::hours(24)});
  Outcome moved = move(session);
  if (Outcome flushed = keeper.Flush(); moved && !flushed) moved = flushed;
  if (!moved) return keeper.Fault() ? moved : keeper.Fault();
  const auto& done = session.History().Done();
  const std::string after = HashText(KnownStateHash(session));
  JsonText json;
  json.Begin().Text("model", options.model).Text("before", before).Text("after", after);
  json.Integer("step", done.empty() ? 0 : done.back().number);
  json.Integer("undoable", static_cast<std::int64_t>(done.size()));
  json.Integer("redoable", static_cast<std::int64_t>(session.History().Undone().size())).End();
  const std::string at = done.empty() ? "before the first step"
                                      : fmt::format("at step {} \"{}\"", done.back().number,
                                                    OneLine(Utf8(done.back().name)));
  context.Print(WriterText(model.report) + fmt::format("{}: state {} -> {}\n", at, before, after),
                json);
  return {};
}

Outcome UndoOrRedo(const HistoryOptions& options, bool undo, const Context& context) {
  return Go(options, context, [&](CQXDBSession& session) -> Outcome {
    const std::size_t there =
        undo ? session.History().Done().size() : session.History().Undone().size();
    if (there < static_cast<std::size_t>(options.count)) {
      return Failure{options.model, "",
                     there == 0 ? fmt::format("there is nothing to {}", undo ? "undo" : "redo")
                                : fmt::format("only {} step{} can be {}", there,
                                              there == 1 ? "" : "s", undo ? "undone" : "redone"),
                     "see qxdb log"};
    }
    for (int i = 0; i < options.count; ++i) {
      if (!(undo ? session.Undo() : session.Redo())) {
        return RefusalOf(options.model);
      }
    }
    return {};
  });
}

Outcome Checkout(const HistoryOptions& options, const Context& context) {
  return Go(options, context, [&](CQXDBSession& session) -> Outcome {
    const std::vector<const Step*> steps = AllSteps(session);
    std::size_t wanted = 0;  // steps that are to be done
    while (wanted < steps.size() && options.step != 0 && steps[wanted]->number != options.step) {
      ++wanted;
    }
    if (options.step != 0) {
      if (wanted == steps.size()) {
        return Failure{options.model, "step " + std::to_string(options.step),
                       "is not in the history", "see qxdb log"};
      }
      ++wanted;
    }
    while (session.History().Done().size() != wanted) {
      if (!(session.History().Done().size() > wanted ? session.Undo() : session.Redo())) {
        return RefusalOf(options.model);
      }
    }
    return {};
  });
}

Outcome Compact(const HistoryOptions& options, const Context& context) {
  std::uint64_t bytes_before = 0;
  std::string writer;
  {
    Model model(options.model);
    model.yes = context.yes;
    if (Outcome opened = model.OpenForEditing(); !opened) return opened;
    StepKeeper& keeper = *model.document.Keeper();
    if (options.keep_history) {
      if (Outcome may = CheckHistory(model, false); !may) return may;
    }
    Outcome saved = options.keep_history ? keeper.Save() : keeper.SaveWithoutHistory();
    if (!saved) return saved;
    bytes_before = model.report.file_bytes;
    writer = WriterText(model.report);
  }
  Model now(options.model);
  if (Outcome opened = now.Open(); !opened) return opened;
  const auto steps = static_cast<std::int64_t>(AllSteps(now.session).size());
  JsonText json;
  json.Begin().Text("model", options.model).Integer("steps", steps);
  json.Integer("bytes_before", static_cast<std::int64_t>(bytes_before));
  json.Integer("bytes_after", static_cast<std::int64_t>(now.report.file_bytes)).End();
  context.Print(writer + fmt::format("{} -> {}, {} steps of history\n", Bytes(bytes_before),
                                     Bytes(now.report.file_bytes), steps),
                json);
  return {};
}

struct Blamed {
  const Step* step;
  bool removed;
};

Outcome Blame(Model& model, const HistoryOptions& options, const Context& context) {
  CQXDBSession& session = model.session;
  const auto pool = FindPool(session, options.pool);
  if (!pool) return pool.Error();
  const auto ranges = KeyRanges::Parse(options.keys);
  if (!ranges) return ranges.Error();
  // The last done step to name a record, there or removed; one pass over the history for all.
  std::map<Key, Blamed> records;
  for (const ITR item : ranges->Select(**pool)) records[KeyOf(item)] = {nullptr, false};
  std::vector<const Step*> last((*pool)->Set().SlotLimit());
  for (const Step& step : session.History().Done()) {
    for (const Change& change : step.changes) {
      if (change.type != (*pool)->GetTypeCode()) continue;
      last[(*pool)->Set().SlotOf(change.item)] = &step;
      if (change.operation != tagTRNotify::kRemoved) continue;
      const Key key = KeyOf(change.item);
      if (ranges->Contains(key) && !(*pool)->Find(key)) records[key] = {&step, true};
    }
  }
  if (records.empty()) {
    return NothingSelected(options.model, **pool, options.keys);
  }
  Table table({">key", ">step", "time", "name"});
  JsonText json;
  json.Begin().Text("model", options.model).BeginArray("records");
  for (auto& [key, blamed] : records) {
    const Step* step =
        blamed.removed ? blamed.step : last[(*pool)->Set().SlotOf((*pool)->Find(key))];
    json.Begin().Integer("key", key);
    if (step) {
      table.Row({std::to_string(key), std::to_string(step->number),
                 TimeText(step->time_ms, Clock::kLocal),
                 Utf8(step->name) + (blamed.removed ? " (removed)" : "")});
      WriteStep(json, *step);
      json.Bool("gone", blamed.removed);
    } else {
      table.Row({std::to_string(key), "-", "", "before the history"});
    }
    json.End();
  }
  json.End().End();
  context.Print(table.Text(), json);
  return {};
}

}  // namespace

void AddHistory(Command& app, Context& context) {
  AddHistoryBounds(app, context);
  AddModelCommand<HistoryOptions>(app, context, "log",
                                  "List the steps that a model file keeps; * is the last one done",
                                  "qxdb log wing.qxm", Log);
  // Those that go back and forth in the file open it for that.
  const auto add = [&](const char* name, const char* what, const char* example, auto work) {
    auto added = AddCommand<HistoryOptions>(app, context, name, what, example, work);
    added.first->Add("model", &added.second->model, "Model file").OpenModel().Required();
    return added;
  };
  for (const bool undo : {true, false}) {
    const auto [command, options] =
        add(undo ? "undo" : "redo", undo ? "Take steps back" : "Do steps again that were undone",
            undo ? "qxdb undo wing.qxm" : "qxdb redo wing.qxm --count 2",
            [undo](const HistoryOptions& o, const Context& c) { return UndoOrRedo(o, undo, c); });
    command->Add("--count", &options->count, "How many steps").Range(1, 1000000000).ShowDefault();
  }
  const auto [checkout, checkout_options] =
      add("checkout", "Go to the state after a step, back or forth; 0 is before the first",
          "qxdb checkout wing.qxm --step 3", Checkout);
  checkout->Add("--step", &checkout_options->step, "Number of the step, as in qxdb log")
      .Required()
      .Range(std::int64_t{0}, std::int64_t{1} << 53);
  const auto [compact, compact_options] =
      add("compact", "Write the file anew, without its history", "qxdb compact wing.qxm", Compact);
  compact->Add("--keep-history", &compact_options->keep_history,
               "Fold the steps in, keep the history within its limits");
  const auto [blame, blame_options] =
      AddModelCommand<HistoryOptions>(app, context, "blame", "Say which step last changed records",
                                      "qxdb blame wing.qxm node 1-20", Blame);
  blame->Add("pool", &blame_options->pool, "node, elem, ...").Pool().Required();
  blame->Add("keys", &blame_options->keys, "Keys: 1-5,9,100- or all").Keys().Required();
}

}  // namespace qx::app
