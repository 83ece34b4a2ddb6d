// Editing models: each command is one transaction, prints what it changed, and saves the model.

#include <algorithm>
#include <cmath>
#include <fmt/format.h>
#include <memory>
#include <unordered_set>

#include "qx_db/core/renumber.h"
#include "qx_db/gateway/key_map_file.h"
#include "qx_db/qx_db.h"

#include "apps/qxdb/command/output.h"
#include "apps/qxdb/commands.h"
#include "apps/qxdb/model/change_counter.h"
#include "apps/qxdb/model/selection.h"

namespace qx::app {
namespace {

struct EditOptions {
  std::string model;
  std::string pool = "node";
  std::string keys;
  std::vector<double> by;
  Key from = 1;
  std::string map;        // file of new keys
  std::string write_map;  // file for what was done
  bool force = false;
  bool dry_run = false;
};

/// Text for the file of options.write_map, where the edit has any.
using Change = Result<std::string> (*)(CQXDBSession&, const Picked&, const EditOptions&);

Result<std::string> Move(CQXDBSession& session, const Picked& picked, const EditOptions& options) {
  auto& nodes = static_cast<DPoolNode&>(*picked.pool);
  const auto is_finite = [](double shift) { return std::isfinite(shift); };
  if (!std::all_of(options.by.begin(), options.by.end(), is_finite)) {
    return Failure{"", "--by", "is not a finite shift", "give three numbers"};
  }
  Vector3 shift;
  for (int i = 0; i < 3; ++i) {
    shift[i] = session.Units().In(CQXNodeUnit::Instance().Code(0),
                                  options.by[static_cast<std::size_t>(i)]);
  }
  for (const ITR item : picked.items) {
    tagTNode node = nodes.GetAtNU(item);
    node.position.x += shift.x;
    node.position.y += shift.y;
    node.position.z += shift.z;
    if (!IsFinite(Vector3(node.position))) {
      return Failure{options.model, fmt::format("node {}", node.key),
                     "would have a coordinate that is no finite number", "move it less far"};
    }
    nodes.SetAtNU(item, node);
  }
  return std::string();
}

/// Gives the records consecutive keys, in list order, or those that a map names.
Result<std::string> RenumberRecords(CQXDBSession& session, const Picked& picked,
                                    const EditOptions& options) {
  DPoolBase& pool = *picked.pool;
  const TArray<ITR>& items = picked.items;
  if (options.map.empty() && options.from - 1 > kMaxKey - items.GetSize()) {
    return Failure{options.model, fmt::format("{} {}", PoolLabel(pool), options.keys),
                   fmt::format("{} records have no keys from {} on", items.GetSize(), options.from),
                   "begin lower"};
  }
  KeyMap map = ConsecutiveKeys({items.begin(), items.end()}, options.from);
  if (!options.map.empty()) {
    Result<KeyMap> read = ReadKeyMap(options.map, pool);
    if (!read) return read.Error();
    const std::unordered_set<ITR> chosen(items.begin(), items.end());
    map.clear();
    std::copy_if(read->begin(), read->end(), std::back_inserter(map), [&](const auto& entry) {
      const ITR item = pool.Find(entry.first);
      return !item || chosen.contains(item);  // one that is not there is for the model to name
    });
  }
  if (Outcome done = Renumber(session, pool, map); !done) {
    Failure fault = done.Error();
    fault.file = options.model;
    return fault;
  }
  return options.write_map.empty() ? std::string() : KeyMapText(pool, map);
}

Outcome Run(Model& model, const EditOptions& options, const char16_t* name, Change change,
            const Context& context) {
  if (Outcome free = CheckOutput(options.write_map, OutputKind::kKeyMap, options.force,
                                 {options.model, options.map});
      !free) {
    return free;
  }
  const auto picked = PickRecords(model, options.pool, options.keys);
  if (!picked) return picked.Error();
  Edit edit(model);
  std::string map;
  Outcome done = edit.Do(name, [&]() -> Outcome {
    const Result<std::string> changed = change(model.session, *picked, options);
    if (changed) map = *changed;
    return changed.AsOutcome();
  });
  if (done) done = edit.Save(options.dry_run, options.write_map, map);
  if (!done) return done;
  JsonText json;
  json.Begin().Text("model", options.model);
  edit.WriteStates(json);
  edit.Changes().Write(json);
  context.Print(edit.Changes().Text() + edit.StateLine(), json.End());
  return {};
}

}  // namespace

void AddEdit(Command& app, Context& context) {
  Command* command = AddCommand(app, context, "edit", "Change records of a model",
                                "qxdb edit move bracket.qxm 1-100 --by 0 0 2.5");
  const auto add = [&](const char* name, const char* what, const char* example,
                       const char16_t* step, Change change, bool any_pool) {
    const auto run = [=](Model& model, const EditOptions& options, const Context& the_context) {
      return Run(model, options, step, change, the_context);
    };
    auto added = AddModelCommand<EditOptions>(*command, context, name, what, example, run);
    const auto& [sub, options] = added;
    if (any_pool) sub->Add("pool", &options->pool, "node or elem").Pool().Required();
    sub->Add("keys", &options->keys, "Keys: 1-5,9,100- or all").Keys().Required();
    sub->Add("--dry-run", &options->dry_run, "Say what would change, save nothing");
    return added;
  };
  auto [move, move_options] =
      add("move", "Shift nodes", "qxdb edit move bracket.qxm 1-100 --by 0 0 2.5", u"Move nodes",
          Move, false);
  move->Add("--by", &move_options->by, "Shift in x, y and z, in current length units")
      .Count(3)
      .Required();
  auto [renumber, renumber_options] = add("renumber", "Give records new keys",
                                          "qxdb edit renumber bracket.qxm node all --from 1001",
                                          u"Renumber", RenumberRecords, true);
  Option& from =
      renumber
          ->Add("--from", &renumber_options->from, "First new key; the others follow in list order")
          .Range(Key{1}, kMaxKey)
          .ShowDefault();
  renumber
      ->Add("--map", &renumber_options->map,
            "JSON file of new keys by old ones: {\"NODE\": {\"1\": 101}}")
      .File({".json"})
      .Excludes(from);
  renumber
      ->Add("--write-map", &renumber_options->write_map,
            "Write the keys as they changed to a JSON file")
      .File({".json"});
  AddForce(*renumber, renumber_options->force);
  AddDelete(*command, context, "edit ");
}

}  // namespace qx::app
