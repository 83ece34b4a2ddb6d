#pragma once
// What a step changed, in numbers.

#include <array>
#include <map>
#include <string>
#include <unordered_map>

#include "qx_db/core/session.h"

#include "apps/qxdb/command/console.h"
#include "apps/qxdb/model/selection.h"

namespace qx::app {

/// How many records a step inserts, removes and modifies, by pool.
using ChangeCounts = std::map<std::string, std::array<std::int64_t, 3>>;

/// The one table in which changes are told.
inline std::string ChangesText(const ChangeCounts& counts) {
  Table table({"pool", ">inserted", ">removed", ">modified"});
  for (const auto& [pool, count] : counts) {
    table.Row({pool, Grouped(count[0]), Grouped(count[1]), Grouped(count[2])});
  }
  return table.IsEmpty() ? "nothing changed\n" : table.Text();
}

/// Counts the records that a step inserted, removed and modified, pool by pool: each once, by how
/// it stands in the end.
class ChangeCounter final : public ISessionListener {
 public:
  void OnSessionEvent(CQXDBSession& session, SessionEvent event, std::u16string_view,
                      std::span<const Change> changes) override {
    if (event == SessionEvent::kRolledBack) return;
    struct Fate {
      std::uint16_t type, first, last;
    };
    std::unordered_map<ITR, Fate> fates;
    for (const Change& change : changes) {
      const ITR item = change.item;  // out of the packed notice
      const Fate fate{change.type, change.operation, change.operation};
      const auto [known, is_new] = fates.emplace(item, fate);
      if (!is_new) known->second.last = change.operation;
    }
    for (const auto& [item, fate] : fates) {
      const bool inserted = fate.first == tagTRNotify::kInserted;
      const bool removed = fate.last == tagTRNotify::kRemoved;
      if (inserted && removed) continue;
      const std::uint16_t counts_as = inserted ? fate.first : fate.last;
      ++counts_[PoolLabel(*session.GetDataPool(fate.type))][counts_as - tagTRNotify::kInserted];
    }
  }
  bool IsEmpty() const { return counts_.empty(); }

  std::string Text() const { return ChangesText(counts_); }
  void Write(JsonText& json) const {
    json.Begin("changes");
    for (const auto& [pool, count] : counts_) {
      json.Begin(pool).Integer("inserted", count[0]).Integer("removed", count[1]);
      json.Integer("modified", count[2]).End();
    }
    json.End();
  }

 private:
  ChangeCounts counts_;
};

}  // namespace qx::app
