#include "qx_db/pool/keyed_set_base.h"

#include <algorithm>
#include <atomic>
#include <cstring>
#include <utility>

#include "qx_db/platform/prefetch.h"
#include "qx_db/pool/keyed_set_walk.h"

namespace qx {

namespace {

/// Where the revisions of a new set begin. Each has 2^36 numbers of its own, so that what is kept
/// about one set cannot be taken for another's that came to lie at the same address.
std::uint64_t FirstRevision() {
  static std::atomic<std::uint64_t> sets{0};
  return ++sets << 36;
}

}  // namespace

KeyedSetBase::KeyedSetBase(const RecordOps& ops, std::int32_t hash_size)
    : hash_size_(std::max(hash_size, kDefaultHashSize)),
      ops_(ops),
      links_offset_(kRecordOffset + ops.size),
      last_revision_(FirstRevision()),
      revision_(last_revision_),
      store_(links_offset_ + sizeof(ItemLinks)),
      table_(store_, links_offset_) {}

KeyedSetBase::~KeyedSetBase() { RemoveAll(); }

// ---- items --------------------------------------------------------------------------------------

char* KeyedSetBase::NewItem(const TStructBase& record) {
  char* item = store_.Take();
  try {
    ops_.construct(item + kRecordOffset, record);
  } catch (...) {
    store_.Return(item);
    throw;
  }
  StoreAt<std::uint32_t>(item, 0);
  return item;
}

void KeyedSetBase::DestroyItem(char* item) {
  if (!ops_.trivial) ops_.destroy(item + kRecordOffset);
  store_.Return(item);
}

void KeyedSetBase::InsertToList(char* item) {
  ItemLinks& links = LinksOf(item);
  links.list_prev = tail_;
  links.list_next = nullptr;
  ascending_ = ascending_ && FitsItsPlace(links, KeyAt(item));
  (tail_ ? LinksOf(tail_).list_next : head_) = item;
  tail_ = item;
  ++count_;
}

void KeyedSetBase::RemoveFromList(char* item) {
  const ItemLinks& links = LinksOf(item);
  (links.list_prev ? LinksOf(links.list_prev).list_next : head_) = links.list_next;
  (links.list_next ? LinksOf(links.list_next).list_prev : tail_) = links.list_prev;
  --count_;
}

// ---- the index --------------------------------------------------------------------------------

/// The window may span so many keys a record before it takes clearly more memory than the table,
/// and comes back only well below that, so that no few edits can bring both about in turn.
constexpr std::uint64_t kMostKeysARecord = 6;
constexpr std::uint64_t kFewKeysARecord = 3;
constexpr std::uint64_t kAlwaysDense = 16384;

/// Makes the index one that can hold a record under `key`. Throws std::bad_alloc, leaving
/// everything as it was; never for a key that a detached record had when it was linked: the window
/// covers it still, or there has been a table since, whose memory is kept.
void KeyedSetBase::Reach(Key key) {
  if (!dense_ || window_.Covers(key)) return;
  const auto records = static_cast<std::uint64_t>(count_) + 1;
  const bool near = window_.SpanWith(key) <= std::max(kAlwaysDense, kMostKeysARecord * records);
  if (!near || !window_.Cover(key, key)) LeaveWindow();
}

/// Builds the table in place of the window. Throws std::bad_alloc, leaving everything as it was,
/// where no table has been before.
void KeyedSetBase::LeaveWindow() {
  try {
    table_.Allocate(hash_size_);
  } catch (const std::bad_alloc&) {  // a crowded table is only slower
    if (table_.Size() == 0) {
      table_.Allocate(ChainTable::kMinSize);
    } else {
      table_.Clear();
    }
  }
  window_.Close();
  dense_ = false;
  ++hash_epoch_;
  HashWholeList();
}

/// Puts the window in place of the table, where the keys are dense; tells whether it did, or
/// stands already. The table's memory is kept: an undo may lead to keys that are not dense, and
/// must not need any then.
bool KeyedSetBase::EnterWindow() {
  if (dense_) return true;
  if (shared_keys_ || count_ == 0) return false;
  const std::int64_t span = std::int64_t{max_key_} - min_key_ + 1;
  if (span > static_cast<std::int64_t>(kFewKeysARecord) * count_) return false;
  if (!window_.Cover(min_key_, max_key_)) return false;
  ForEachItem([&](const char* item) { window_.Set(KeyAt(item), store_.NumberOf(item)); });
  dense_ = true;
  ++hash_epoch_;
  return true;
}

/// Requires Reach(its key).
void KeyedSetBase::AddToIndex(char* item) {
  if (!dense_) return table_.PushFront(item);
  ItemLinks& links = LinksOf(item);
  links.hash_prev = links.hash_next = nullptr;
  window_.Set(KeyAt(item), store_.NumberOf(item));
}

void KeyedSetBase::TakeFromIndex(char* item) {
  if (!dense_) return table_.Unlink(item);
  const std::uint32_t slot = store_.NumberOf(item);
  Key key = KeyAt(item);
  if (window_.SlotOf(key) != slot) {  // somebody wrote into the record: where is it known?
    window_.ForEach([&](Key other, std::uint32_t named) { key = named == slot ? other : key; });
    if (window_.SlotOf(key) != slot) return;
  }
  window_.Unset(key);
}

/// Requires the records to be in the list still.
void KeyedSetBase::ClearIndex() {
  if (!dense_) {
    table_.Clear();
  } else if (IsWindowWide()) {
    ForEachItem([&](char* item) { TakeFromIndex(item); });
  } else {
    window_.Empty();
  }
}

/// Whether the window spans so many keys that a walk of the list is quicker than one of it.
bool KeyedSetBase::IsWindowWide() const {
  constexpr std::size_t kEntriesARecord = 8;
  return window_.Footprint() / sizeof(std::uint32_t) >
         kAlwaysDense / 4 + kEntriesARecord * static_cast<std::size_t>(count_);
}

/// To be called before a record that is not in the index gets there under `key`.
void KeyedSetBase::LearnSharing(Key key) {
  if (!Find(key)) return;
  if (dense_) LeaveWindow();
  shared_keys_ = true;
}

// ---- sizing -------------------------------------------------------------------------------------

void KeyedSetBase::Resize(std::int32_t n) {
  if (!EnterWindow()) {
    table_.Allocate(n);
    ++hash_epoch_;
    HashWholeList();
  }
  hash_size_ = n;
}

void KeyedSetBase::SetDefaultHashSize(std::int32_t n) {
  default_hash_size_ = n;
  if (HashSize() < n) Resize(n);
}

void KeyedSetBase::SetHashSize(std::int32_t n) {
  if (n > 0 && n > default_hash_size_ && n != HashSize()) Resize(n);
}

void KeyedSetBase::Optimize() {
  if (count_ > default_hash_size_ && count_ != HashSize()) Resize(count_);
}

void KeyedSetBase::RebuildHash() {
  if (EnterWindow()) return;
  ++hash_epoch_;
  table_.Clear();
  HashWholeList();
}

/// Pushes every item of the list, in order, at the front of its chain. Items lie mostly in list
/// order, buckets do not: those of the next items are fetched ahead.
void KeyedSetBase::HashWholeList() {
  constexpr int kAhead = 12;
  char* ahead = head_;
  const auto fetch = [&] {
    if (!ahead) return;
    table_.Prefetch(KeyAt(ahead));
    ahead = LinksOf(ahead).list_next;
  };
  for (int i = 0; i < kAhead; ++i) fetch();
  ForEachItem([&](char* item) {
    fetch();
    table_.PushFront(item);
  });
}

/// Doubles the table once items outnumber buckets. Doubling sends each key of chain b to chain b
/// or b + old size; where keys are shared the chains are split in their order, so that every Find
/// answers as it would have. Otherwise order does not matter and walking the list is faster.
/// A crowded table is only slower, so that no memory for a larger one is no failure.
void KeyedSetBase::Grow() {
  if (hash_size_ > kMaxKey / 2) return;
  hash_size_ *= 2;
  if (EnterWindow()) return;
  const std::int32_t size = table_.Size();
  if (hash_size_ <= size) return;  // the table has had more buckets than were asked for
  ChainTable grown(store_, links_offset_);
  try {
    grown.Allocate(size * 2);
  } catch (const std::bad_alloc&) {
    hash_size_ /= 2;
    return;
  }
  hash_size_ = grown.Size();
  table_.Swap(grown);  // `grown` is the old table now
  ++hash_epoch_;
  if (shared_keys_) {
    table_.TakeOver(grown);
  } else {
    HashWholeList();
  }
}

// ---- looking up and walking ---------------------------------------------------------------------

bool KeyedSetBase::SharesKey(ITR pos) const {
  if (dense_) return false;
  const Key key = KeyAt(ToItem(pos));
  char* item = table_.First(table_.PlaceOf(key).bucket);
  while (item && (KeyAt(item) != key || ToItr(item) == pos)) item = LinksOf(item).hash_next;
  return item != nullptr;
}

Key KeyedSetBase::SharedKey() const {
  if (!shared_keys_) return -1;
  for (const char* item = head_; item; item = LinksOf(const_cast<char*>(item)).list_next) {
    if (Find(KeyAt(item)) != ToItr(item)) return KeyAt(item);
  }
  return -1;
}

void KeyedSetBase::FindMany(std::span<const Key> keys, std::span<ITR> found) const {
  constexpr std::size_t kBatch = 16;
  for (std::size_t begin = 0; begin < keys.size(); begin += kBatch) {
    const std::size_t end = std::min(begin + kBatch, keys.size());
    for (std::size_t i = begin; i < end; ++i) {
      if (dense_) {
        window_.Prefetch(keys[i]);
      } else if (keys[i] >= 0) {
        table_.Prefetch(keys[i]);
      }
    }
    for (std::size_t i = begin; i < end; ++i) found[i] = Find(keys[i]);
  }
}

ITR KeyedSetBase::NextOfKey(ITR pos) const {
  if (dense_) return 0;
  const Key key = KeyAt(ToItem(pos));
  for (char* item = LinksOf(ToItem(pos)).hash_next; item; item = LinksOf(item).hash_next) {
    if (KeyAt(item) == key) return ToItr(item);
  }
  return 0;
}

// ---- changing -----------------------------------------------------------------------------------

ITR KeyedSetBase::Insert(const TStructBase& record) {
  const Key key = record.GetKey();
  if (key < 0) return 0;
  GrowIfCrowded();
  Reach(key);
  if (dense_) {
    if (window_.SlotOf(key) != KeyWindow::kNone) return 0;
    char* item = NewItem(record);
    SetMinMaxKey(key);
    AddToIndex(item);
    InsertToList(item);
    Touch();
    return ToItr(item);
  }
  const ChainTable::Place place = table_.PlaceOf(key);
  if (table_.Find(key, place, shared_keys_)) return 0;
  char* item = NewItem(record);
  SetMinMaxKey(key);
  table_.PushFront(item, place);
  InsertToList(item);
  Touch();
  return ToItr(item);
}

int KeyedSetBase::SetAt(ITR pos, const TStructBase& record) {
  const Key key = record.GetKey();
  if (pos == 0 || IsRemoved(pos) || key < 0) return 0;
  char* item = ToItem(pos);
  const Key former = KeyAt(item);
  Touch();
  if (key == former) {
    ops_.assign(item + kRecordOffset, record);
    return 1;
  }
  if (former < 0 || !Find(former)) return 0;
  Reach(key);
  const bool shared = shared_keys_;
  LearnSharing(key);
  TakeFromIndex(item);  // by the former key
  try {
    ops_.assign(item + kRecordOffset, record);
  } catch (...) {
    shared_keys_ = shared;
    if (dense_) {
      AddToIndex(item);
    } else {
      table_.Relink(item);
    }
    throw;
  }
  SetMinMaxKey(key);
  used_keys_.OnFreed(former);
  AddToIndex(item);
  ascending_ = ascending_ && FitsItsPlace(LinksOf(item), key);
  return 1;
}

int KeyedSetBase::Remove(ITR pos) { return RemoveNext(pos); }

int KeyedSetBase::RemoveNext(ITR& pos) {
  if (pos == 0) return 0;
  char* item = ToItem(pos);
  OnUnlink(item);
  TakeFromIndex(item);
  RemoveFromList(item);
  pos = ToItr(LinksOf(item).list_next);
  DestroyItem(item);
  return 1;
}

int KeyedSetBase::RemoveWithoutDelete(ITR pos) { return RemoveNextWithoutDelete(pos); }

int KeyedSetBase::RemoveNextWithoutDelete(ITR& pos) {
  if (pos == 0 || IsRemoved(pos)) return 0;  // once out, it is in no list to leave
  char* item = ToItem(pos);
  OnUnlink(item);
  TakeFromIndex(item);
  RemoveFromList(item);
  SetState(pos, StateOf(pos) | kRemovedBit);
  ++detached_;
  pos = ToItr(LinksOf(item).list_next);
  return 1;
}

void KeyedSetBase::RemoveAll() {
  max_key_ = min_key_ = 0;
  Touch();
  used_keys_.Forget();
  const bool by_page = detached_ == 0;
  if (by_page) ++incarnation_;
  if (count_ == 0) {  // the index is empty already
    if (by_page) store_.Clear();
    return;
  }
  if (!by_page) ClearIndex();
  if (!by_page || !ops_.trivial) {
    ForEachItem([&](char* item) {
      if (by_page) {
        ops_.destroy(item + kRecordOffset);
      } else {
        DestroyItem(item);
      }
    });
  }
  if (by_page) store_.Clear();
  head_ = tail_ = nullptr;
  count_ = 0;
  ++list_epoch_;
  ++hash_epoch_;
  shared_keys_ = false;
  ascending_ = true;
  if (!by_page) return;  // the index must be able to take detached records back
  dense_ = true;
  window_.Close();
  table_.Release();
}

void KeyedSetBase::RemoveAllWithoutDelete() {
  Touch();
  used_keys_.Forget();
  if (shared_keys_) {
    // One by one, so that chains with equal keys come back in their order.
    while (head_) RemoveWithoutDelete(ToItr(head_));
    return;
  }
  ClearIndex();
  // As if detached from the head one by one: each item remembers no predecessor, so that putting
  // them back from last to first rebuilds the list.
  ForEachItem([&](char* item) {
    SetState(ToItr(item), StateOf(ToItr(item)) | kRemovedBit);
    LinksOf(item).list_prev = nullptr;
  });
  detached_ += count_;
  head_ = tail_ = nullptr;
  count_ = 0;
  ascending_ = true;
  ++hash_epoch_;
}

// ---- keys ---------------------------------------------------------------------------------------

void KeyedSetBase::SetMinMaxKey(Key key) {
  max_key_ = count_ ? std::max(max_key_, key) : key;
  min_key_ = count_ ? std::min(min_key_, key) : key;
}

void KeyedSetBase::ResetMinMaxKey() {
  min_key_ = count_ ? kMaxKey : 0;
  max_key_ = 0;
  ForEachItem([&](const char* item) {
    max_key_ = std::max(max_key_, KeyAt(item));
    min_key_ = std::min(min_key_, KeyAt(item));
  });
}

Key KeyedSetBase::GetNewKeyUp(Key start) const {
  const auto next = [](Key key) { return static_cast<Key>(static_cast<std::uint32_t>(key) + 1); };
  const bool full = !shared_keys_ && count_ > 0 && std::int64_t{max_key_} - min_key_ + 1 == count_;
  if (full && start >= min_key_ && start <= max_key_) return next(max_key_);
  const auto is_used = [&](Key key) { return Find(key) != 0; };
  const Key first = start < 0 ? start : used_keys_.SkipUsed(start, is_used);
  Key key = first;
  while (key >= 0 && is_used(key)) key = next(key);
  if (key != first) used_keys_.Learn(first, key < 0 ? kMaxKey : key);
  return key;
}

// ---- for the undo journal -----------------------------------------------------------------------

/// What is about to be linked is alive, and its key in use, perhaps for the second time.
void KeyedSetBase::Revive(char* item) {
  Reach(KeyAt(item));
  LearnSharing(KeyAt(item));
  SetState(ToItr(item), StateOf(ToItr(item)) & ~kRemovedBit);
  Touch();
  --detached_;
  // Wider only: keys handed out while the item was away stay reserved.
  max_key_ = std::max(max_key_, KeyAt(item));
  min_key_ = std::min(min_key_, KeyAt(item));
}

bool KeyedSetBase::Relink(ITR pos, std::uint32_t list_epoch, std::uint32_t hash_epoch) {
  if (list_epoch != list_epoch_) return false;
  char* item = ToItem(pos);
  const ItemLinks& links = LinksOf(item);
  GrowIfCrowded();
  Revive(item);
  (links.list_prev ? LinksOf(links.list_prev).list_next : head_) = item;
  (links.list_next ? LinksOf(links.list_next).list_prev : tail_) = item;
  ++count_;
  if (!dense_ && hash_epoch == hash_epoch_) {
    table_.Relink(item);
  } else {
    AddToIndex(item);
  }
  ascending_ = ascending_ && FitsItsPlace(links, KeyAt(item));
  return true;
}

void KeyedSetBase::AppendDetached(ITR pos) {
  char* item = ToItem(pos);
  GrowIfCrowded();
  Revive(item);
  AddToIndex(item);
  InsertToList(item);
}

void KeyedSetBase::MoveToTail(ITR pos) {
  char* item = ToItem(pos);
  RemoveFromList(item);
  InsertToList(item);
  ++list_epoch_;
  Touch();
}

bool KeyedSetBase::DetachTail(std::span<const ITR> items) {
  if (items.empty() || ToItr(tail_) != items.back()) return false;
  for (std::size_t i = 1; i < items.size(); ++i) {
    if (ToItr(LinksOf(ToItem(items[i])).list_prev) != items[i - 1]) return false;
  }
  Touch();
  used_keys_.Forget();
  char* before = LinksOf(ToItem(items.front())).list_prev;
  const bool most = !dense_ && items.size() > static_cast<std::size_t>(count_) / 2 && !shared_keys_;
  for (std::size_t i = items.size(); i-- > 0;) {
    char* item = ToItem(items[i]);
    if (!most) TakeFromIndex(item);
    SetState(items[i], StateOf(items[i]) | kRemovedBit);
    LinksOf(item).list_next = nullptr;
  }
  tail_ = before;
  (before ? LinksOf(before).list_next : head_) = nullptr;
  count_ -= static_cast<std::int32_t>(items.size());
  detached_ += static_cast<std::int32_t>(items.size());
  if (most) {
    ++hash_epoch_;
    table_.Clear();
    HashWholeList();
  }
  return true;
}

ITR KeyedSetBase::CreateDetached(const TStructBase& record) {
  char* item = NewItem(record);
  LinksOf(item) = ItemLinks{};
  SetState(ToItr(item), kRemovedBit);
  ++detached_;
  return ToItr(item);
}

void KeyedSetBase::SetFormerNeighbours(ITR pos, ITR previous, ITR next) {
  ItemLinks& links = LinksOf(ToItem(pos));
  links.list_prev = ToItem(previous);
  links.list_next = ToItem(next);
}

void KeyedSetBase::FreeDetached(ITR pos) {
  --detached_;
  DestroyItem(ToItem(pos));
}

// ---- positions that outlive their records -------------------------------------------------------

RecordStamp KeyedSetBase::Stamp(ITR pos) {
  if (!Owns(pos) || IsFree(pos)) return {};
  store_.CountGenerations();
  return {pos, GenerationOf(pos)};
}

// ---- the whole ----------------------------------------------------------------------------------

void KeyedSetBase::Swap(KeyedSetBase& other) {
  std::swap(default_hash_size_, other.default_hash_size_);
  std::swap(hash_size_, other.hash_size_);
  std::swap(head_, other.head_);
  std::swap(tail_, other.tail_);
  std::swap(count_, other.count_);
  std::swap(max_key_, other.max_key_);
  std::swap(min_key_, other.min_key_);
  std::swap(list_epoch_, other.list_epoch_);
  std::swap(hash_epoch_, other.hash_epoch_);
  std::swap(detached_, other.detached_);
  std::swap(shared_keys_, other.shared_keys_);
  std::swap(dense_, other.dense_);
  std::swap(ascending_, other.ascending_);
  Touch();
  other.Touch();
  used_keys_.Forget();
  other.used_keys_.Forget();
  incarnation_ = other.incarnation_ = std::max(incarnation_, other.incarnation_) + 1;
  std::swap(store_, other.store_);
  window_.Swap(other.window_);
  table_.Swap(other.table_);
}

std::string KeyedSetBase::Validate() const {
  const auto broken = [](int number, Key key, const char* what) {
    return "invariant " + std::to_string(number) + " at key " + std::to_string(key) + ": " + what;
  };
  std::int32_t listed = 0;
  const char* previous = nullptr;
  for (char* item = head_; item; item = LinksOf(item).list_next) {
    const Key key = KeyAt(item);
    if (++listed > count_) return broken(2, key, "the list is longer than the count");
    if (LinksOf(item).list_prev != previous) return broken(2, key, "the list links disagree");
    if (key < 0) return broken(3, key, "the key is negative");
    if (key < min_key_ || key > max_key_) return broken(4, key, "the key is out of bounds");
    if (IsRemoved(ToItr(item))) return broken(5, key, "a linked item is marked removed");
    previous = item;
  }
  if (listed != count_ || previous != tail_) return broken(2, 0, "the list ends elsewhere");
  if (ascending_ && !InOrder()) return broken(6, 0, "the list is not ascending");
  if (!dense_) {
    const std::string fault = table_.Validate(count_);
    return fault.empty() ? fault : "invariant 1, of the table " + fault;
  }
  std::int32_t held = 0;
  window_.ForEach([&](Key, std::uint32_t) { ++held; });
  if (held != count_) return broken(1, 0, "the window does not hold every item");
  for (char* item = head_; item; item = LinksOf(item).list_next) {
    if (Find(KeyAt(item)) != ToItr(item)) return broken(1, KeyAt(item), "the window names another");
  }
  return {};
}

std::size_t KeyedSetBase::Footprint() const {
  return store_.Footprint() + window_.Footprint() + table_.Footprint();
}

}  // namespace qx
