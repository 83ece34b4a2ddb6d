#include "qx_db/core/renumber.h"

#include <unordered_set>

#include "qx_db/core/transaction.h"
#include "qx_db/lib/message.h"
#include "qx_db/platform/long_work.h"
#include "qx_db/record/verbs.h"

namespace qx {
namespace {

/// A record and the key that it is to have.
using NewKey = std::pair<ITR, Key>;

Outcome Apply(DPoolBase& pool, const NewKey& change) {
  const auto [pos, key] = change;
  if (KeyOf(pos) == key) return {};
  const auto record = pool.CopyRecord(pos);
  KeyedSetBase::SetKey(*record, key);
  if (pool.SetAtNU(pos, record.get())) return {};
  return Failure{"", pool.GetAPIName().ToUtf8() + " " + std::to_string(KeyOf(pos)),
                 "cannot be given another key", "see the message above"};
}

/// Finds what is to change, or what stands in the way.
Result<std::vector<NewKey>> NewKeys(DPoolBase& pool, const KeyMap& map) {
  const auto fault = [&](Key key, const char* what, const char* remedy) {
    return Failure{"", pool.GetAPIName().ToUtf8() + " " + std::to_string(key), what, remedy};
  };
  std::vector<NewKey> changes;
  changes.reserve(map.size());
  std::unordered_set<Key> moving, taken;
  for (const auto& [old_key, new_key] : map) {
    const ITR pos = pool.Find(old_key);
    if (!pos) return fault(old_key, "is not there to renumber", "check the old keys");
    if (!moving.insert(old_key).second)
      return fault(old_key, "is renumbered twice", "name it once");
    if (new_key < 1) return fault(new_key, "is no key", "give keys from 1 on");
    if (!taken.insert(new_key).second) {
      return fault(new_key, "is given to two records", "give each its own key");
    }
    changes.emplace_back(pos, new_key);
  }
  for (const Key key : taken) {
    if (!moving.contains(key) && pool.Find(key)) {
      return fault(key, "the key is taken by a record that keeps it", "start elsewhere");
    }
  }
  return changes;
}

}  // namespace

KeyMap ConsecutiveKeys(std::span<const ITR> items, Key first) {
  KeyMap map;
  map.reserve(items.size());
  // In unsigned steps: past the largest key they become negative, which Renumber refuses.
  auto key = static_cast<std::uint32_t>(first);
  for (const ITR item : items) map.emplace_back(KeyOf(item), static_cast<Key>(key++));
  return map;
}

Outcome Renumber(CQXDBSession& session, DPoolBase& pool, const KeyMap& map) {
  const Result<std::vector<NewKey>> changes = NewKeys(pool, map);
  if (!changes) return changes.Error();
  CTransaction transaction(&session);
  transaction.Begin(qxLoadText("IDS_QX_TRANS_RENUMBER").c_str());
  // What belongs to the records follows them, and so do keys elsewhere when the step ends.
  LongWork work(changes->size());
  for (const NewKey& change : *changes) {
    work.Step();
    if (Outcome applied = Apply(pool, change); !applied) return applied;
  }
  if (transaction.Commit()) return {};
  return Failure{"", "", "the model refused the new keys", "see the message above"};
}

}  // namespace qx
