#include "qx_db/core/renumber.h"

#include <set>
#include <unordered_map>
#include <unordered_set>

#include "qx_db/core/transaction.h"
#include "qx_db/lib/message.h"
#include "qx_db/record/verbs.h"

namespace qx {
namespace {

/// A 32-bit member at `pos` that is to hold another key.
struct KeyChange {
  DPoolBase* pool;
  ITR pos;
  std::int32_t offset;
  Key key;
};

Outcome Apply(const KeyChange& change) {
  const ITR pos = change.pos;
  if (LoadAt<Key>(detail::Bytes(*KeyedSetBase::RecordAt(pos)) + change.offset) == change.key) {
    return {};
  }
  const auto record = change.pool->CopyRecord(pos);
  StoreAt(detail::Bytes(*record) + change.offset, change.key);
  if (change.pool->SetAtNU(pos, record.get())) return {};
  return Failure{"", change.pool->GetAPIName().ToUtf8() + " " + std::to_string(KeyOf(pos)),
                 "cannot be given another key", "see the message above"};
}

/// Finds what is to change in the pool itself, or what stands in the way.
Result<std::vector<KeyChange>> OwnKeys(DPoolBase& pool, const KeyMap& map) {
  const auto fault = [&](Key key, const char* what, const char* remedy) {
    return Failure{"", pool.GetAPIName().ToUtf8() + " " + std::to_string(key), what, remedy};
  };
  std::vector<KeyChange> changes;
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
    changes.push_back({&pool, pos, 8, new_key});
  }
  for (const Key key : taken) {
    if (!moving.contains(key) && pool.Find(key)) {
      return fault(key, "the key is taken by a record that keeps it", "start elsewhere");
    }
  }
  return changes;
}

/// Whether a record that belongs to another by its key would take the key of one that stays.
Outcome CheckOwned(const std::vector<KeyChange>& changes) {
  std::set<std::pair<const DPoolBase*, Key>> leaving;
  for (const KeyChange& change : changes) leaving.emplace(change.pool, KeyOf(change.pos));
  for (const KeyChange& change : changes) {
    if (change.offset != 8 || leaving.contains({change.pool, change.key})) continue;
    if (!change.pool->Find(change.key)) continue;
    return Failure{"", change.pool->GetAPIName().ToUtf8() + " " + std::to_string(change.key),
                   "has the key that another one would follow to, and belongs to nothing",
                   "delete it first"};
  }
  return {};
}

/// The members anywhere that hold a key of the pool which changes.
std::vector<KeyChange> KeysElsewhere(CQXDBSession& session, const DPoolBase& pool,
                                     const KeyMap& map) {
  std::vector<KeyChange> changes;
  std::unordered_map<Key, Key> new_keys;
  for (DPoolBase* other : session.Pools()) {
    for (const Row& row : other->GetSchema().Rows()) {
      if (row.key_of != pool.GetTypeCode() || other->GetSize() == 0) continue;
      if (new_keys.empty()) new_keys.insert(map.begin(), map.end());
      for (ITR pos = other->GetHeadPosition(); pos; other->Next(pos)) {
        const auto key = LoadAt<Key>(detail::Bytes(*KeyedSetBase::RecordAt(pos)) + row.offset);
        const auto found = new_keys.find(key);
        if (found != new_keys.end()) changes.push_back({other, pos, row.offset, found->second});
      }
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
  const Result<std::vector<KeyChange>> own = OwnKeys(pool, map);
  if (!own) return own.Error();
  const std::vector<KeyChange> elsewhere = KeysElsewhere(session, pool, map);
  if (Outcome free = CheckOwned(elsewhere); !free) return free;
  CTransaction transaction(&session);
  transaction.Begin(qxLoadText("IDS_QX_TRANS_RENUMBER").c_str());
  for (const auto* changes : {&*own, &elsewhere}) {
    for (const KeyChange& change : *changes) {
      if (Outcome applied = Apply(change); !applied) return applied;
    }
  }
  if (transaction.Commit()) return {};
  return Failure{"", "", "the model refused the new keys", "see the message above"};
}

}  // namespace qx
