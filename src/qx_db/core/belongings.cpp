#include "qx_db/core/belongings.h"

#include <unordered_set>

#include "qx_db/core/session.h"
#include "qx_db/record/verbs.h"

namespace qx {

void Belongings::Learn(DPoolBase& pool) {
  const auto rows = pool.GetSchema().Rows();
  if (!rows.empty() && rows.front().key_of) {
    kinds_[rows.front().key_of].push_back({&pool, &rows.front()});
  }
}

std::span<const Belongings::Kind> Belongings::Of(std::uint16_t owner_type) const {
  const auto found = kinds_.find(owner_type);
  return found == kinds_.end() ? std::span<const Kind>() : std::span<const Kind>(found->second);
}

/// Of the records under a key, the one that is known to be the owner's; or else one of which nobody
/// is known to be the owner.
ITR Belongings::FindAt(const Kind& kind, Key key, ITR owner) const {
  const KeyedSetBase& set = kind.pool->Set();
  if (set.IsEmpty()) return 0;
  ITR unowned = 0;
  for (ITR item = set.Find(key); item; item = set.NextOfKey(item)) {
    if (owner_of_.empty()) return item;
    const auto known = owner_of_.find(item);
    if (known == owner_of_.end()) {
      if (!unowned) unowned = item;
    } else if (known->second == owner) {
      return item;
    }
  }
  return unowned;
}

ITR Belongings::Find(const Kind& kind, ITR owner) const {
  return FindAt(kind, KeyOf(owner), owner);
}

ITR Belongings::Find(std::uint16_t type, ITR owner) const {
  const DPoolBase* pool = session_->GetDataPool(type);
  if (!pool || owner == 0 || !pool->GetSchema().Rows().front().key_of) return 0;
  if (owner_of_.empty()) return pool->Set().Find(KeyOf(owner));
  for (const Kind& kind : Of(pool->GetSchema().Rows().front().key_of)) {
    if (kind.pool == pool) return Find(kind, owner);
  }
  return 0;
}

void Belongings::FollowKey(DPoolBase& owners, ITR owner, Key former) {
  if (Of(owners.GetTypeCode()).empty()) return;
  const Key key = KeyOf(owner);
  // Another owner that has had this key until now.
  ITR other = owners.Set().Find(key);
  while (other == owner) other = owners.Set().NextOfKey(other);
  for (const Kind& kind : Of(owners.GetTypeCode())) {
    DPoolBase& pool = *kind.pool;
    const ITR item = FindAt(kind, former, owner);
    const ITR there = FindAt(kind, key, other);
    if (there && !other) found_.push_back({&kind, owners.GetTypeCode(), there});
    if (there && (other || item)) owner_of_[there] = other;  // or nobody's
    if (!item) continue;
    const auto record = pool.CopyRecord(item);
    KeyedSetBase::SetKey(*record, key);
    pool.SetAtNU(item, record.get());
    if (there || other) {
      owner_of_[item] = owner;
    } else {
      owner_of_.erase(item);
    }
    // Who is left alone under the former key is known by that again.
    const ITR rest = owner_of_.empty() ? 0 : pool.Set().Find(former);
    if (rest && !pool.Set().NextOfKey(rest)) owner_of_.erase(rest);
  }
}

void Belongings::ComeFromElsewhere(const DPoolBase& owners, ITR owner) {
  for (const Kind& kind : Of(owners.GetTypeCode())) {
    const ITR there = kind.pool->Set().Find(KeyOf(owner));
    if (there) found_.push_back({&kind, owners.GetTypeCode(), there});
  }
}

int Belongings::RemoveOrphans(const Step& step) {
  if (found_.empty() || !session_->RecordingEnabled()) return 1;
  std::unordered_set<ITR> orphans;
  for (const Orphan& found : found_) orphans.insert(found.item);
  for (const Change& change : step.changes) orphans.erase(ITR{change.item});
  for (const Orphan& found : found_) {
    const bool is_one = orphans.contains(found.item) &&
                        found.kind->pool->Set().IsLinked(found.item) &&
                        session_->GetDataPool(found.owner_type)->Find(KeyOf(found.item));
    if (is_one && !found.kind->pool->Remove(found.item)) return 0;
  }
  return 1;
}

int Belongings::TakeAlong(std::uint16_t owner_type, ITR owner) {
  for (const Kind& kind : Of(owner_type)) {
    if (kind.row->on_removal != OnRemoval::kDie) continue;
    const TStructBase& record = *KeyedSetBase::RecordAt(owner);
    if (kind.row->taken_along && !kind.row->taken_along(record)) continue;
    const ITR item = Find(kind, owner);
    if (item && !kind.pool->Remove(item)) return 0;
  }
  return 1;
}

}  // namespace qx
