// Deleting records with all that hangs on them, and asking beforehand what that would be.

#include <algorithm>
#include <fmt/format.h>
#include <map>

#include "qx_db/lib/message.h"
#include "qx_db/model/deletion.h"
#include "qx_db/qx_db.h"

#include "apps/qxdb/commands.h"
#include "apps/qxdb/model/selection.h"
#include "apps/qxdb/model/where.h"
#include "apps/qxdb/sets/turns.h"

namespace qx::app {
namespace {

struct DeleteOptions {
  std::string model;
  std::string pool;
  std::string keys;
  std::string where;
  bool dry_run = false;
  bool list = false;
  bool yes = false;
};

constexpr const char* kEffects[] = {"removed", "reset", "changed"};

std::string NameOf(const CQXDBSession& session, std::uint16_t type, ITR item) {
  return fmt::format("{} {}", PoolLabel(*session.GetDataPool(type)),
                     KeyedSetBase::RecordAt(item)->GetKey());
}

/// "elem 7 by _NODE_IDS", the way in which a record depends on what goes; "" when asked for.
std::string Reason(const CQXDBSession& session, const Consequence& one) {
  if (one.cause == 0) return "";
  const std::string cause = NameOf(session, one.cause_type, one.cause);
  return one.row ? cause + " by " + Utf8(one.row->name) : cause + " by its key";
}

std::string Summary(const CQXDBSession& session, const DeletionPreview& preview) {
  ChangeCounts counts;
  for (const Consequence& one : preview.consequences) {
    const bool is_removed = one.effect == Effect::kRemoved;
    ++counts[PoolLabel(*session.GetDataPool(one.type))][is_removed ? 1 : 2];
  }
  return ChangesText(counts);
}

std::string Listing(const CQXDBSession& session, const DeletionPreview& preview) {
  Table table({"record", "effect", "because of"});
  for (const Consequence& one : preview.consequences) {
    table.Row({NameOf(session, one.type, one.item), kEffects[static_cast<std::size_t>(one.effect)],
               Reason(session, one)});
  }
  return table.Text();
}

void WriteJson(const CQXDBSession& session, const DeletionPreview& preview, JsonText& json) {
  json.BeginArray("consequences");
  for (const Consequence& one : preview.consequences) {
    json.Begin().Text("pool", PoolLabel(*session.GetDataPool(one.type)));
    json.Integer("key", KeyedSetBase::RecordAt(one.item)->GetKey());
    json.Text("effect", kEffects[static_cast<std::size_t>(one.effect)]);
    json.Text("because_of", Reason(session, one)).End();
  }
  json.End();
  WriteTurns(preview.turns, json);
  json.BeginArray("blockers");
  for (const Blocker& blocker : preview.blockers) {
    json.Begin().Text("key", blocker.text).Text("text", qxText(blocker.text, blocker.arguments));
    json.End();
  }
  json.End();
}

Outcome Delete(Model& model, const DeleteOptions& options, const Context& context) {
  const auto picked = PickRecords(model, options.pool, options.keys, options.where);
  if (!picked) return picked.Error();
  const auto& [pool, items] = *picked;
  CQXDBSession& session = model.session;
  const std::uint16_t type = pool->GetTypeCode();
  const std::span<const ITR> asked(items.data(), items.size());
  const DeletionPreview preview = PreviewDeletion(session, type, asked);
  std::string text = options.list ? Listing(session, preview) : Summary(session, preview);
  text += TurnsText(preview.turns, options.list);
  for (const Blocker& blocker : preview.blockers) {
    text += "blocked: " + qxText(blocker.text, blocker.arguments) + "\n";
  }
  Edit edit(model);
  JsonText json;
  json.Begin().Text("model", model.path);
  WriteJson(session, preview, json);  // while the records are there
  if (!options.dry_run) {
    const std::string& which = options.where.empty() ? options.keys : options.where;
    const std::string place = PoolLabel(*pool) + " " + which;
    if (!preview.blockers.empty()) {
      const Blocker& first = preview.blockers.front();
      return Failure{model.path, place, MidLine(qxText(first.text, first.arguments)),
                     "see all reasons with --dry-run"};
    }
    if (Outcome asks = AskForTurns(preview.turns, options.yes, model.path, place); !asks) {
      return asks;
    }
    if (!DeleteRecords(session, type, asked)) return RefusalOf(model.path, place);
  }
  if (Outcome saved = edit.Save(options.dry_run); !saved) return saved;
  edit.WriteStates(json);
  edit.Changes().Write(json);
  context.Print(text + (options.dry_run ? "(not saved)\n" : edit.StateLine()), json.End());
  return {};
}

Outcome ListUses(Model& model, const DeleteOptions& options, const Context& context) {
  const auto picked = PickRecords(model, options.pool, options.keys, options.where);
  if (!picked) return picked.Error();
  const auto& [pool, items] = *picked;
  const CQXDBSession& session = model.session;
  Table table({"record", "used by", "as"});
  JsonText json;
  json.Begin().Text("model", model.path).BeginArray("uses");
  for (const ITR item : items) {
    for (const Use& use : WhereUsed(session, pool->GetTypeCode(), item)) {
      const std::string as = use.row ? Utf8(use.row->name) : "key";
      table.Row(
          {NameOf(session, pool->GetTypeCode(), item), NameOf(session, use.type, use.item), as});
      json.Begin().Integer("of", KeyOf(item));
      json.Text("pool", PoolLabel(*session.GetDataPool(use.type)));
      json.Integer("key", KeyOf(use.item)).Text("as", as).End();
    }
  }
  context.Print(table.IsEmpty() ? "used nowhere\n" : table.Text(), json.End().End());
  return {};
}

void AddSelection(Command& command, DeleteOptions& options) {
  command.Add("pool", &options.pool, "Table of the records: node, elem, mset, ...")
      .Pool()
      .Required();
  Option& keys = command.Add("keys", &options.keys, "Keys: 1-5,9,100- or all").Keys();
  command.ExactlyOne(keys, AddWhere(command, options.where, "Nodes or elements by a selection"));
}

}  // namespace

void AddDelete(Command& app, Context& context, const std::string& under) {
  const auto [command, options] = AddModelCommand<DeleteOptions>(
      app, context, "delete", "Delete records and what hangs on them",
      "qxdb " + under + "delete wing.qxm node 1-5 --dry-run", Delete);
  AddSelection(*command, *options);
  command->Add("--dry-run", &options->dry_run, "Say what would happen, change nothing");
  AddYes(*command, options->yes);
  command->Add("--list", &options->list, "Name every record instead of counting them");
}

void AddWhereUsed(Command& app, Context& context) {
  const auto [command, options] =
      AddModelCommand<DeleteOptions>(app, context, "where-used", "Show what refers to records",
                                     "qxdb where-used wing.qxm node 12", ListUses);
  AddSelection(*command, *options);
}

}  // namespace qx::app
