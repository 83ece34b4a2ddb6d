#include "qx_db/pool/external_records.h"

namespace qx {

ExternalRecords::ExternalRecords(DPoolBase& pool)
    : pool_(pool), store_(pool.Set().Operations(), KeyedSetBase::kDefaultHashSize) {}

int ExternalRecords::SetAt(ITR item, const TStructBase& record) {
  if (!store_.SetAt(item, record)) return 0;
  external_keys_.erase(item);
  return 1;
}

void ExternalRecords::SetHashSize(std::int32_t n) {
  key_map_.SetHashSize(n);
  store_.SetHashSize(n);
}

ITR ExternalRecords::PositionOf(const Transferred& transferred) const {
  const ITR pos = transferred.record.item;
  if (!pool_.Set().IsAlive(transferred.record) || KeyedSetBase::IsRemoved(pos)) return 0;
  const bool undone =
      transferred.former &&
      Differences(pool_.GetSchema(), *transferred.former, *KeyedSetBase::RecordAt(pos)).empty();
  return undone ? 0 : pos;
}

ITR ExternalRecords::PositionOf(Key external) {
  const auto found = transferred_.find(external);
  if (found == transferred_.end()) return 0;
  const ITR pos = PositionOf(found->second);
  if (!pos) ForgetLost();
  return pos;
}

/// Lets the records whose copies have left the pool be what they were before they were transferred:
/// under their external keys, and in no map. Cost: a walk over what was transferred.
void ExternalRecords::ForgetLost() {
  for (auto at = transferred_.begin(); at != transferred_.end();) {
    if (PositionOf(at->second)) {
      ++at;
      continue;
    }
    const ITR item = at->second.item;
    if (external_keys_.erase(item)) {
      const std::unique_ptr<TStructBase> record = store_.CopyRecord(item);
      KeyedSetBase::SetKey(*record, at->first);
      store_.SetAt(item, *record);
    }
    key_map_.Remove(key_map_.Find(at->first));
    at = transferred_.erase(at);
  }
}

ITR ExternalRecords::Find(Key key, int& external) {
  if (const ITR pos = PositionOf(key)) {
    external = 0;
    return pos;
  }
  const ITR item = store_.Find(key);
  if (!item || !IsTransferred(item)) return item;
  // The new key of a transferred record may be the external key of another.
  const auto hidden = shadowed_.find(key);
  return hidden == shadowed_.end() ? 0 : hidden->second;
}

ITR ExternalRecords::Transfer(ITR item, int keep_key, Key free_key) {
  const auto known = external_keys_.find(item);
  const Key own =
      known == external_keys_.end() ? KeyedSetBase::RecordAt(item)->GetKey() : known->second;
  if (const ITR pos = PositionOf(own)) return pos;
  if (!moving_) moving_ = store_.NewRecord();
  store_.CopyTo(*moving_, item);
  ITR pos = keep_key ? pool_.Find(own) : 0;
  const Key target = keep_key ? own : free_key;
  std::unique_ptr<TStructBase> former;
  if (pos) {
    former = pool_.CopyRecord(pos);
    if (!pool_.SetAtNU(pos, moving_.get())) return 0;
    const TStructBase& now = *KeyedSetBase::RecordAt(pos);
    if (Differences(pool_.GetSchema(), *former, now).empty()) former.reset();
  } else {
    KeyedSetBase::SetKey(*moving_, target);
    pos = pool_.InsertNU(moving_.get());
    if (!pos) return 0;
    const ITR hidden = target != own ? store_.Find(target) : 0;
    if (hidden && !IsTransferred(hidden)) shadowed_[target] = hidden;
    if (const auto at = shadowed_.find(own); at != shadowed_.end() && at->second == item) {
      shadowed_.erase(at);
    }
    store_.SetAt(item, *moving_);
  }
  tagTKeyMap entry;
  entry.key = own;
  entry.value = target;
  key_map_.InsertNU(entry);
  external_keys_[item] = own;
  transferred_[own] = {item, pool_.Stamp(pos), std::move(former)};
  return pos;
}

}  // namespace qx
