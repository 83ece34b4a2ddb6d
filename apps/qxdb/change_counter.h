#pragma once
// What a step changed, in numbers.

#include <array>
#include <map>
#include <string>

#include "qx_db/core/session.h"

#include "apps/qxdb/console.h"
#include "apps/qxdb/selection.h"

namespace qx::app {

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

}  // namespace qx::app
