#include "qx_db/core/key_forecast.h"

#include <algorithm>

#include "qx_db/record/verbs.h"

namespace qx {
namespace {

bool HasNow(ITR item, Key key) { return !KeyedSetBase::IsRemoved(item) && KeyOf(item) == key; }

}  // namespace

void KeyForecast::Follow(const Step& step, const Change& change, bool undo) {
  if (!session_.GetDataPool(change.type)->Set().MayShareKeys()) return;
  Key key = -1;
  if (change.operation == tagTRNotify::kModified) {
    const Step::Images& images = step.images[change.list_epoch];
    key = LoadAt<Key>(step.bytes.data() + (undo ? images.before : images.after));
  } else if ((change.operation == tagTRNotify::kRemoved) == undo) {
    key = KeyOf(change.item);  // it comes back as it went
  }
  const ITR item = change.item;
  Keys& keys = pools_[change.type];
  const auto [known, is_new] = keys.of.try_emplace(item, key);
  if (!is_new) {
    const auto [begin, end] = keys.holders.equal_range(known->second);
    const auto held =
        std::find_if(begin, end, [&](const auto& holder) { return holder.second == item; });
    if (held != end) keys.holders.erase(held);
    known->second = key;
  }
  if (key >= 0) keys.holders.emplace(key, item);
}

KeyForecast::Clash KeyForecast::ClashOf(const Change& change) const {
  const auto pool_keys = pools_.find(change.type);
  if (pool_keys == pools_.end()) return {};
  const Keys& keys = pool_keys->second;
  const ITR item = change.item;
  const Key key = keys.of.at(item);
  if (key < 0) return {};
  const DPoolBase& pool = *session_.GetDataPool(change.type);
  const auto is_new = [&](ITR other) {
    return other != item && !(HasNow(item, key) && HasNow(other, key));
  };
  const auto [begin, end] = keys.holders.equal_range(key);
  for (auto holder = begin; holder != end; ++holder) {
    if (is_new(holder->second)) return {&pool, item, holder->second, key};
  }
  for (ITR at = pool.Find(key); at; at = pool.Set().NextOfKey(at)) {
    if (!keys.of.contains(at) && is_new(at)) return {&pool, item, at, key};
  }
  return {};
}

KeyForecast::Clash KeyForecast::Pass(const Step& step, bool undo) {
  const auto& changes = step.changes;
  const auto pools = session_.Pools();
  if (std::none_of(pools.begin(), pools.end(),
                   [](const DPoolBase* pool) { return pool->Set().MayShareKeys(); })) {
    return {};
  }
  for (std::size_t i = 0; i < changes.size(); ++i) {
    Follow(step, changes[undo ? changes.size() - 1 - i : i], undo);
  }
  for (const Change& change : changes) {
    if (const Clash clash = ClashOf(change)) return clash;
  }
  return {};
}

}  // namespace qx
