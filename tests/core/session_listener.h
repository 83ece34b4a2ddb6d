#pragma once
// One who hears what a session tells, and what changed as text.

#include <functional>
#include <gtest/gtest.h>
#include <string>
#include <vector>

#include "qx_db/qx_db.h"

#include "tests/core/mesh_session.h"

namespace qx {

inline UnitSystem Millimetres() {
  UnitSystem units;
  units[UnitBase::kLength] = FindUnit(UnitBase::kLength, "mm");
  return units;
}

struct Listener : ISessionListener {
  explicit Listener(CQXDBSession& session, std::uint16_t type = code::kNode)
      : of(session), pool(type) {
    of.AddListener(this);
  }
  ~Listener() override { of.RemoveListener(this); }
  void OnSessionEvent(CQXDBSession& session, SessionEvent event, std::u16string_view,
                      std::span<const Change> changes) override {
    heard.push_back(event);
    flags = session.GetDataPool(pool)->ChangeFlags();
    if (act) act(changes);
  }
  CQXDBSession& of;
  std::uint16_t pool;
  std::vector<SessionEvent> heard;
  std::uint32_t flags = 0;
  std::function<void(std::span<const Change>)> act;
};

/// Changes as text: "+7 -2 ~1(_POSITION)".
inline std::string Since(MeshSession& m, std::int64_t state) {
  const auto changes = ChangesSince(m.session, state);
  if (!changes) return "unknown";
  std::string text;
  if (changes->units) text = "units";
  for (const RecordChange& change : changes->records) {
    EXPECT_TRUE(change.item == 0 || change.key == KeyOf(change.item));
    const char sign = "+-~"[change.operation - tagTRNotify::kInserted];
    text += (text.empty() ? "" : " ") + (sign + std::to_string(change.key));
    for (const Row* row : change.members) text += "(" + Utf8(row->name) + ")";
  }
  return text;
}

}  // namespace qx
