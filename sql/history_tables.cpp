// Tables of the history and of the model as a whole.

#include <ctime>

#include "qx_db/pool/data_pool.h"
#include "qx_db/record/verbs.h"

#include "sql/derived_tables.h"

namespace qx::sql {
namespace {

using Given = Computed::Given;
using Rows = Computed::Rows;

/// Calls `visit(step, done)` for all steps, oldest first.
template <class Visit>
void ForEachStep(const CQXDBSession& session, Visit&& visit) {
  for (const Step& step : session.History().Done()) visit(step, true);
  const auto& undone = session.History().Undone();
  for (auto step = undone.rbegin(); step != undone.rend(); ++step) visit(*step, false);
}

/// ISO 8601, which SQLite's functions of dates take; NULL for a time that is not known.
Value TimeText(std::int64_t time_ms) {
  if (time_ms == 0) return {};
  const auto seconds = static_cast<std::time_t>(time_ms / 1000);
  std::tm parts{};
#ifdef _WIN32
  gmtime_s(&parts, &seconds);
#else
  gmtime_r(&seconds, &parts);
#endif
  char text[32];
  return std::string(text, std::strftime(text, sizeof(text), "%Y-%m-%dT%H:%M:%SZ", &parts));
}

Outcome FillSteps(Link& link, const Given&, Rows& rows) {
  ForEachStep(link.Session(), [&](const Step& step, bool done) {
    std::int64_t counts[3]{};
    for (const Change& change : step.changes) {
      ++counts[change.operation - tagTRNotify::kInserted];
    }
    rows.emplace_back(step.number);
    rows.push_back(TimeText(step.time_ms));
    rows.emplace_back(Utf8(step.name));
    for (const std::int64_t count : counts) rows.emplace_back(count);
    rows.emplace_back(std::int64_t{done});
  });
  return {};
}

/// The key that a changed record had after the change, and the members that differ.
std::pair<Key, std::string> Modified(const DPoolBase& pool, const Step& step,
                                     const Change& change) {
  const Step::Images& images = step.images[change.list_epoch];
  const Schema& schema = pool.GetSchema();
  const auto before = pool.NewRecord(), after = pool.NewRecord();
  ReadImage(schema, step.bytes.data() + images.before, *before);
  ReadImage(schema, step.bytes.data() + images.after, *after);
  std::string members;
  for (const Row* row : Differences(schema, *before, *after)) {
    members += (members.empty() ? "" : " ") + Utf8(row->name);
  }
  return {after->GetKey(), members};
}

/// Changes before those of the step that is asked for.
sqlite3_int64 FirstChange(Link& link, const Given& given) {
  sqlite3_int64 before = 0;
  bool is_before = given[0].has_value();
  ForEachStep(link.Session(), [&](const Step& step, bool) {
    is_before = is_before && given[0] != Value(step.number);
    if (is_before) before += static_cast<sqlite3_int64>(step.changes.size());
  });
  return before;
}

Outcome FillChanges(Link& link, const Given& given, Rows& rows) {
  constexpr const char* kWords[] = {"inserted", "removed", "modified"};
  ForEachStep(link.Session(), [&](const Step& step, bool) {
    if (given[0] && given[0] != Value(step.number)) return;
    std::int64_t place = 0;
    for (const Change& change : step.changes) {
      const DPoolBase& pool = *link.Session().GetDataPool(change.type);
      std::pair<Key, std::string> what{KeyOf(change.item), ""};
      if (change.operation == tagTRNotify::kModified) what = Modified(pool, step, change);
      rows.emplace_back(step.number);
      rows.emplace_back(place++);
      rows.emplace_back(TableName(pool));
      rows.emplace_back(std::int64_t{what.first});
      rows.emplace_back(std::string(kWords[change.operation - tagTRNotify::kInserted]));
      rows.emplace_back(what.second);
    }
  });
  return {};
}

Outcome FillPools(Link& link, const Given&, Rows& rows) {
  for (const DPoolBase* pool : link.Session().Pools()) {
    rows.emplace_back(TableName(*pool));
    rows.emplace_back(std::string(pool->GetSchema().Name()));
    rows.emplace_back(std::int64_t{pool->GetTypeCode()});
    rows.emplace_back(std::int64_t{pool->GetSize()});
    rows.emplace_back(static_cast<std::int64_t>(pool->Set().Footprint()));
  }
  return {};
}

}  // namespace

std::vector<Computed> HistoryTables() {
  return {
      {.name = "step",
       .meaning = "steps of the history, oldest first",
       .columns = {Integer("number", "as in qxdb log"), Text("time", "when it was made, UTC"),
                   Text("name", "what it did"), Integer("inserted", "records it added"),
                   Integer("removed", "records it removed"),
                   Integer("modified", "changes of records"),
                   Integer("done", "1, or 0 when it is undone")},
       .fill = FillSteps},
      {.name = "step_change",
       .meaning = "what steps changed",
       .columns = {Integer("step", "number of the step"),
                   Integer("position", "place among the step's changes, from 0 on"),
                   Text("pool", "table of the record"), Integer("key", "key of the record"),
                   Text("operation", "inserted, removed or modified"),
                   Text("members", "of a modified record those that became others")},
       .part = 0,
       .fill = FillChanges,
       .first_row_id = FirstChange},
      {.name = "pool",
       .meaning = "pools and how much they hold",
       .columns = {Text("name", "of the pool's table"), Text("record", "type of its records"),
                   Integer("type_code", "code of that type"),
                   Integer("records", "how many there are"),
                   Integer("bytes", "memory of records and their hash table")},
       .fill = FillPools},
  };
}

}  // namespace qx::sql
