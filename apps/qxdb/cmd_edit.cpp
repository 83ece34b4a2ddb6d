// Editing models: each command is one transaction, prints what it changed, and saves the model.

#include <fmt/format.h>
#include <map>
#include <memory>
#include <set>

#include "qx_db/qx_db.h"

#include "apps/qxdb/commands.h"
#include "apps/qxdb/selection.h"

namespace qx::app {
namespace {

/// Counts what a step inserted, removed and modified, pool by pool.
class ChangeCounter final : public ISessionListener {
 public:
  void OnSessionEvent(CQXDBSession& session, SessionEvent, std::u16string_view,
                      std::span<const Change> changes) override {
    for (const Change& change : changes) {
      const DPoolBase& pool = *session.GetDataPool(change.type);
      ++counts_[PoolLabel(pool)][change.operation - tagTRNotify::kInserted];
    }
  }

  std::string Text() const {
    Table table({"pool", ">inserted", ">removed", ">modified"});
    for (const auto& [pool, count] : counts_) {
      table.Row({pool, Grouped(count[0]), Grouped(count[1]), Grouped(count[2])});
    }
    return table.IsEmpty() ? "nothing changed\n" : table.Text();
  }
  void Write(JsonText& json) const {
    json.Begin("changes");
    for (const auto& [pool, count] : counts_) {
      json.Begin(pool).Integer("inserted", count[0]).Integer("removed", count[1]);
      json.Integer("modified", count[2]).End();
    }
    json.End();
  }

 private:
  std::map<std::string, std::array<std::int64_t, 3>> counts_;
};

struct EditOptions {
  std::string model;
  std::string pool = "node";
  std::string keys;
  std::vector<double> by;
  Key from = 1;
  bool dry_run = false;
};

using Edit = Outcome (*)(CQXDBSession&, DPoolBase&, const TArray<ITR>&, const EditOptions&);

Outcome Move(CQXDBSession& session, DPoolBase& pool, const TArray<ITR>& items,
             const EditOptions& options) {
  auto& nodes = static_cast<DPoolNode&>(pool);
  for (const ITR item : items) {
    tagTNode node = nodes.GetAtNU(item);
    node.position.x += session.Units().In(unit::kLength, options.by[0]);
    node.position.y += session.Units().In(unit::kLength, options.by[1]);
    node.position.z += session.Units().In(unit::kLength, options.by[2]);
    nodes.SetAtNU(item, node);
  }
  return {};
}

/// Gives the records consecutive keys from `from` on, in list order.
Outcome Renumber(CQXDBSession&, DPoolBase& pool, const TArray<ITR>& items,
                 const EditOptions& options) {
  if (options.from < 1 || items.GetSize() > kMaxKey - options.from + 1) {
    return Failure{options.model, "key " + std::to_string(options.from),
                   "leaves no room for " + Grouped(items.GetSize()) + " keys", "start lower"};
  }
  const std::set<ITR> moving(items.begin(), items.end());
  for (std::int32_t i = 0; i < items.GetSize(); ++i) {
    const ITR there = pool.Find(options.from + i);
    if (there && !moving.contains(there)) {
      return Failure{options.model, PoolLabel(pool) + " " + std::to_string(options.from + i),
                     "the key is taken by a record that keeps it", "start elsewhere"};
    }
  }
  for (std::int32_t i = 0; i < items.GetSize(); ++i) {
    ITR item = items[i];
    TStructBase* record = pool.CopyToDummyPtr(item);
    StoreAt<Key>(reinterpret_cast<char*>(record) + 8, options.from + i);
    pool.SetAtNU(item, record);
  }
  return {};
}

Outcome Delete(CQXDBSession&, DPoolBase& pool, const TArray<ITR>& items,
               const EditOptions& options) {
  for (const ITR item : items) {
    if (!pool.Remove(item)) {
      return Failure{options.model, PoolLabel(pool), "cannot be deleted", "see the message above"};
    }
  }
  return {};
}

void Run(const EditOptions& options, const char16_t* name, Edit edit, Context& context) {
  CQXDocBase document(AddStandardPools);
  if (Outcome opened = document.Open(options.model); !opened) {
    return context.Refuse(opened.Error());
  }
  CQXDBSession& session = *document.GetDBSession();
  const auto pool = FindPool(session, options.pool);
  if (!pool) return context.Refuse(pool.Error());
  const auto ranges = KeyRanges::Parse(options.keys);
  if (!ranges) return context.Refuse(ranges.Error());
  const TArray<ITR> items = ranges->Select(**pool);
  if (items.IsEmpty()) {
    return context.Refuse(NothingSelected(options.model, **pool, options.keys));
  }
  const std::string before = HashText(session.StateHash());
  ChangeCounter counter;
  session.AddListener(&counter);
  CTransaction transaction(&session);
  transaction.Begin(name);
  if (Outcome done = edit(session, **pool, items, options); !done) {
    return context.Refuse(done.Error());
  }
  if (!transaction.Commit()) {
    return context.Refuse({options.model, "", "the edit was refused", "see the message above"});
  }
  if (!options.dry_run) {
    if (Outcome saved = document.Save(); !saved) return context.Refuse(saved.Error());
  }
  const std::string after = HashText(session.StateHash());
  JsonText json;
  json.Begin().Text("model", options.model).Text("before", before).Text("after", after);
  json.Bool("saved", !options.dry_run);
  counter.Write(json);
  context.Print(counter.Text() + fmt::format("state {} -> {}{}\n", before, after,
                                             options.dry_run ? " (not saved)" : ""),
                json.End());
}

}  // namespace

void AddEdit(CLI::App& app, Context& context) {
  CLI::App* command = AddCommand(app, context, "edit", "Change records of a model",
                                 "qxdb edit move bracket.qxm 1-100 --by 0 0 2.5");
  command->require_subcommand(1);
  const auto add = [&](const char* name, const char* what, const char* example,
                       const char16_t* step, Edit edit, bool any_pool) {
    CLI::App* sub = AddCommand(*command, context, name, what, example);
    auto options = std::make_shared<EditOptions>();
    sub->add_option("model", options->model, "Model file")->required();
    if (any_pool) sub->add_option("pool", options->pool, "node or elem")->required();
    sub->add_option("keys", options->keys, "Keys: 1-5,9,100- or all")->required();
    sub->add_flag("--dry-run", options->dry_run, "Say what would change, save nothing");
    sub->callback([options, step, edit, &context] { Run(*options, step, edit, context); });
    return std::pair(sub, options);
  };
  auto [move, move_options] =
      add("move", "Shift nodes", "qxdb edit move bracket.qxm 1-100 --by 0 0 2.5", u"Move nodes",
          Move, false);
  move->add_option("--by", move_options->by, "Shift in x, y and z, in current length units")
      ->expected(3)
      ->required();
  auto [renumber, renumber_options] =
      add("renumber", "Give records new keys",
          "qxdb edit renumber bracket.qxm node all --from 1001", u"Renumber", Renumber, true);
  renumber->add_option("--from", renumber_options->from, "First new key")->required();
  add("delete", "Delete records and what hangs on them", "qxdb edit delete bracket.qxm elem 1-500",
      u"Delete", Delete, true);
}

}  // namespace qx::app
