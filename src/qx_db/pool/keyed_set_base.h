#pragma once
// The part of the keyed set that does not depend on the record type.

#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <vector>

#include "qx_db/pool/chain_table.h"
#include "qx_db/pool/key_window.h"
#include "qx_db/pool/used_keys.h"
#include "qx_db/record/struct_base.h"
#include "qx_db/record/values.h"

namespace qx {

/// What a keyed set must know of its record type.
struct RecordOps {
  std::uint32_t size;
  bool trivial;  ///< no arrays: nothing to destroy
  /// A record on its own: a copy, or with the defaults where there is nothing to copy.
  TStructBase* (*make)(const TStructBase* from);
  void (*construct)(char* at, const TStructBase& from);
  void (*destroy)(char* at);
  /// Throws std::bad_alloc, leaving the record as it was.
  void (*assign)(char* to, const TStructBase& from);
};

/// A position, and which of the records that its slot has held was meant.
struct RecordStamp {
  ITR item = 0;
  std::uint64_t generation = 0;  ///< never 0 of a record
  friend bool operator==(const RecordStamp&, const RecordStamp&) = default;
};

/// An insertion-ordered, doubly linked list of records threaded through a chained hash table on
/// the record's key. Positions (ITR) are addresses of items and stay valid for an item's life.
///
/// As long as the keys lie close together and no two records share one, a window of slot numbers
/// (see KeyWindow) stands for the table, which is then not made at all: it would answer the same,
/// from more memory. A key far from the others, or a shared one, brings the table; it is given up
/// again when it would have to be rebuilt anyway and the keys have become dense.
///
/// An item, packed to 4 bytes:
///   state word (u32) | record | hash previous | hash next | list previous | list next
/// Bits of the state word: 0-28 parameter index, 29 removed but alive, 30 modified while changes
/// were recorded, 31 reserved.
///
/// Invariants, checked by Validate() under these numbers:
///  1 every linked item is in exactly the chain of (key mod buckets), and the table's own
///    invariants hold (see ChainTable); or the window holds the slots of all linked items, no other
///  2 the list holds exactly `count` items, linked both ways, from head to tail
///  3 keys are not negative
///  4 min key <= every key <= max key
///  5 no linked item carries the removed mark
///  6 a list that is known to be ascending is
///
/// Threads: none inside the set. While nobody changes it, any number of threads may call what is
/// const, save GetNewKeyUp, which remembers where it looked.
class QXDB_API KeyedSetBase {
 public:
  static constexpr std::uint32_t kParamMask = 0x1FFFFFFF;
  static constexpr std::uint32_t kRemovedBit = 0x20000000;
  static constexpr std::uint32_t kModifiedBit = 0x40000000;
  static constexpr std::int32_t kDefaultHashSize = 10000;

  KeyedSetBase(const RecordOps& ops, std::int32_t hash_size);
  ~KeyedSetBase();
  KeyedSetBase(const KeyedSetBase&) = delete;
  KeyedSetBase& operator=(const KeyedSetBase&) = delete;

  // ---- sizing -----------------------------------------------------------------------------------

  /// Sets the default size, below which explicit sizing never goes, and grows the table to it.
  void SetDefaultHashSize(std::int32_t n);
  /// Resizes to n buckets; ignored unless n is positive, above the default size and not the current
  /// one.
  void SetHashSize(std::int32_t n);
  /// One bucket a record, when there are more records than the default size.
  void Optimize();
  /// Empties the chains and pushes every item, in list order, at the front of its chain.
  void RebuildHash();
  /// The number of buckets asked for. A table has that many, or ChainTable::kMinSize: fewer would
  /// save nothing, and nothing but time depends on it.
  std::int32_t HashSize() const { return hash_size_; }

  // ---- looking up and walking -------------------------------------------------------------------

  /// Position of the record with this key, 0 when there is none. Expected constant time.
  ITR Find(Key key) const {
    if (dense_) {
      const std::uint32_t slot = window_.SlotOf(key);
      return slot == KeyWindow::kNone ? 0 : ToItr(store_.At(slot));
    }
    return key < 0 ? 0 : ToItr(table_.Find(key, shared_keys_));
  }
  /// Another record of the same key, after this one among those; 0 when there is none.
  ITR NextOfKey(ITR pos) const;
  /// The positions of many keys at once; overlapping the cache misses makes this faster than as
  /// many calls of Find. Requires found.size() == keys.size().
  void FindMany(std::span<const Key> keys, std::span<ITR> found) const;
  ITR GetHeadPosition() const { return ToItr(head_); }
  ITR GetTailPosition() const { return ToItr(tail_); }
  std::int32_t GetSize() const { return count_; }
  bool IsEmpty() const { return count_ == 0; }
  void Next(ITR& pos) const { pos = ToItr(LinksOf(ToItem(pos)).list_next); }
  void Prev(ITR& pos) const { pos = ToItr(LinksOf(ToItem(pos)).list_prev); }
  /// Fill `out` with all positions or keys in list order, ascending by key when `sorted` is not
  /// 0 (which sorts the set itself); return the count. `out` is freed first.
  std::int32_t GetItrList(TArray<ITR>& out, int sorted);
  std::int32_t GetItrList(TArray<ITR>& out) const;
  std::int32_t GetKeyList(TArray<Key>& out, int sorted);
  /// Sorts the list ascending by key; records that share one in the order of their chain. Pairs of
  /// key and slot are sorted by digits, or lie sorted in the window, and the links written after:
  /// proportional to the count. Nothing is done where the list is known to be in order.
  void SortAsc();

  // ---- changing ---------------------------------------------------------------------------------

  /// Appends a copy of `record`. 0, changing nothing, for a negative key or one already present.
  ITR Insert(const TStructBase& record);
  /// Replaces the record at `pos`, re-keying it where needed. Deliberately no check that the new
  /// key is free: two records may then share it, and Find gives the re-keyed one. 0 when pos is
  /// 0 or of a removed record, the new key is negative, or the stored key is not found. Where
  /// memory runs out, everything is as it was.
  int SetAt(ITR pos, const TStructBase& record);
  /// Destroys the record. 0 for a null position; it must be of a record that is in the set.
  int Remove(ITR pos);
  /// Removes and moves `pos` to the next position in list order.
  int RemoveNext(ITR& pos);
  /// Unlinks the item but keeps it alive, marked removed; the caller owns it from then on.
  int RemoveWithoutDelete(ITR pos);
  int RemoveNextWithoutDelete(ITR& pos);
  /// Destroys everything; min and max key become 0.
  void RemoveAll();
  /// Marks every item removed and empties the set; min and max key stay, so that keys handed out
  /// before remain reserved while the items may come back.
  void RemoveAllWithoutDelete();

  // ---- keys -------------------------------------------------------------------------------------

  void SetMinMaxKey(Key key);
  void ResetMinMaxKey();
  Key GetMaxKey() const { return max_key_; }
  Key GetMinKey() const { return min_key_; }
  /// Max key + 1. Removals never lower the max key, so keys are not reused until it is reset.
  Key GetNewKey() const { return static_cast<Key>(static_cast<std::uint32_t>(max_key_) + 1); }
  /// The smallest key >= start that no record uses. A negative start, or a search that passes the
  /// largest key, gives a negative number. Expected constant time where keys are dense: a full
  /// range is known by its count, and a run of used keys once walked is remembered.
  Key GetNewKeyUp(Key start) const;
  /// The key for a new record: above all, or, once the largest is in use, the smallest free one
  /// from 1 on. Negative where there is none.
  Key GetFreeKey() const {
    const Key next = GetNewKey();
    return next > 0 ? next : GetNewKeyUp(1);
  }
  std::uint32_t GetParamIdx(ITR pos) const { return StateOf(pos) & kParamMask; }
  void SetParamIdx(ITR pos, std::uint32_t index) {
    SetState(pos, (StateOf(pos) & ~kParamMask) | (index & kParamMask));
  }

  // ---- for what is derived from the records -----------------------------------------------------

  /// Another number after every change of the set or of a record in it, undo and redo included; no
  /// two sets of the process ever have the same. What was derived from the records holds as long as
  /// this number stays.
  std::uint64_t Revision() const { return revision_; }
  /// To be called after a record was changed in place.
  void Touch() { revision_ = ++last_revision_; }
  /// What of a set depends on more than its records. Recalled once the records are as they were
  /// when it was remembered, it makes the set what it was; no revision in between is given again.
  struct Memory {
    std::uint64_t revision;
    Key max_key, min_key;
    bool shared_keys;
  };
  Memory Remember() const { return {revision_, max_key_, min_key_, shared_keys_}; }
  void Recall(const Memory& memory) {
    revision_ = memory.revision;
    max_key_ = memory.max_key;
    min_key_ = memory.min_key;
    shared_keys_ = memory.shared_keys;
  }
  /// A number below SlotLimit() of each item, linked or removed; it stays the item's own for life.
  std::uint32_t SlotOf(ITR pos) const { return store_.NumberOf(ToItem(pos)); }
  std::uint32_t SlotLimit() const { return store_.SlotLimit(); }
  /// Whether a position is of an item of this set, linked or removed.
  bool Owns(ITR pos) const {
    const std::uint32_t slot = SlotOf(pos);
    return slot < SlotLimit() && ToItr(store_.At(slot)) == pos;
  }
  /// Whether a position is of a record in the set: not of one removed, nor, as long as its slot is
  /// free, of one freed, nor anything else.
  bool IsLinked(ITR pos) const { return Owns(pos) && !IsRemoved(pos); }

  /// Whether the slot of an item that the set owned has been freed since.
  bool IsFree(ITR pos) const { return ItemStore::IsReturned(ToItem(pos)); }

  // ---- records and positions that outlive them --------------------------------------------------

  /// A record of the set's type that is in no set: with its defaults, or a copy.
  std::unique_ptr<TStructBase> NewRecord() const {
    return std::unique_ptr<TStructBase>(ops_.make(nullptr));
  }
  std::unique_ptr<TStructBase> CopyRecord(ITR pos) const {
    return std::unique_ptr<TStructBase>(ops_.make(RecordAt(pos)));
  }
  /// Makes a record of the set's type a copy of the one at `pos`.
  void CopyTo(TStructBase& record, ITR pos) const {
    ops_.assign(reinterpret_cast<char*>(&record), *RecordAt(pos));
  }
  /// The record at `pos`, linked or detached, and no later one of its slot. A stamp of nothing
  /// where there is none. Generations are counted beside the items, from the first stamp on.
  RecordStamp Stamp(ITR pos);
  /// Whether the stamp's record is still alive, linked or detached. Constant time.
  bool IsAlive(const RecordStamp& stamp) const {
    return stamp.generation != 0 && Owns(stamp.item) &&
           GenerationOf(stamp.item) == stamp.generation;
  }
  /// Whether the slots of freed records are used again. In debug builds they are not, so that every
  /// operation that checks a position tells a stale one.
  static bool ReusesSlots() { return ItemStore::kReuses; }

  /// Whether a record has ever been put under a key that another one had at that moment, in
  /// whatever way.
  bool MayShareKeys() const { return shared_keys_; }
  /// A key that two records share, -1 when there is none. Constant time unless MayShareKeys.
  Key SharedKey() const;
  /// Whether another record has the key of this one, which is not removed.
  bool SharesKey(ITR pos) const;

  // ---- for the undo journal ---------------------------------------------------------------------

  /// Counters that tell whether the order of the list, or the hash table, was rearranged as a
  /// whole since an item was detached.
  std::uint32_t ListEpoch() const { return list_epoch_; }
  std::uint32_t HashEpoch() const { return hash_epoch_; }
  /// Puts a detached item back. With unchanged epochs, and when all later changes have been taken
  /// back in reverse order, it lands exactly where it stood, in constant time. With a changed
  /// hash it goes to the front of its chain. With a changed list nothing happens and the result
  /// is false: use AppendDetached.
  bool Relink(ITR pos, std::uint32_t list_epoch, std::uint32_t hash_epoch);
  /// Puts a detached item back at the tail of the list.
  void AppendDetached(ITR pos);
  /// Moves an item to the tail of the list. Detached items cannot be relinked after that.
  void MoveToTail(ITR pos);
  /// Detaches, front to back, items that are the tail of the list in this order, so that Relink
  /// in the same order restores them. Cheaper than one by one when they are most of the set.
  /// False, changing nothing, when they are not the tail.
  bool DetachTail(std::span<const ITR> items);
  /// A detached item that holds a copy of the record, for a history read from a file. Give it its
  /// former neighbours before Relink.
  ITR CreateDetached(const TStructBase& record);
  void SetFormerNeighbours(ITR pos, ITR previous, ITR next);
  /// The neighbours in the list, of a detached item its former ones.
  ITR PreviousOf(ITR pos) const { return ToItr(LinksOf(ToItem(pos)).list_prev); }
  ITR NextOf(ITR pos) const { return ToItr(LinksOf(ToItem(pos)).list_next); }
  /// Destroys and frees a detached item.
  void FreeDetached(ITR pos);

  static std::uint32_t StateOf(ITR pos) { return LoadAt<std::uint32_t>(ToItem(pos)); }
  static void SetState(ITR pos, std::uint32_t state) { StoreAt(ToItem(pos), state); }
  static bool IsRemoved(ITR pos) { return (StateOf(pos) & kRemovedBit) != 0; }
  static TStructBase* RecordAt(ITR pos) {
    return reinterpret_cast<TStructBase*>(ToItem(pos) + kRecordOffset);
  }
  /// Gives a record that is in no set another key.
  static void SetKey(TStructBase& record, Key key) {
    StoreAt(reinterpret_cast<char*>(&record) + kKeyOffset, key);
  }
  /// What the set knows of its record type, for another set of it.
  const RecordOps& Operations() const { return ops_; }

  /// Exchanges the whole contents with a set of the same record type; positions stay valid.
  void Swap(KeyedSetBase& other);
  /// "" or the first broken invariant, by number. Cost proportional to count + hash size.
  std::string Validate() const;
  /// Bytes held for items and buckets.
  std::size_t Footprint() const;

 protected:
  static constexpr std::uint32_t kRecordOffset = 4;
  static constexpr std::uint32_t kKeyOffset = 8;  // in a record

  static char* ToItem(ITR pos) { return reinterpret_cast<char*>(pos); }
  static ITR ToItr(const char* item) { return reinterpret_cast<ITR>(item); }
  static Key KeyAt(const char* item) { return LoadAt<Key>(item + kRecordOffset + kKeyOffset); }
  ItemLinks& LinksOf(char* item) const {
    return *reinterpret_cast<ItemLinks*>(item + links_offset_);
  }

 private:
  std::uint64_t GenerationOf(ITR pos) const {
    return std::uint64_t{incarnation_} << 32 | store_.GenerationOf(SlotOf(pos));
  }
  char* NewItem(const TStructBase& record);
  void DestroyItem(char* item);
  void InsertToList(char* item);
  void RemoveFromList(char* item);
  void Resize(std::int32_t n);
  void HashWholeList();
  void Reach(Key key);
  void LeaveWindow();
  bool EnterWindow();
  void AddToIndex(char* item);
  void TakeFromIndex(char* item);
  void ClearIndex();
  bool IsWindowWide() const;
  struct KeySlot;
  std::vector<KeySlot> SortedSlots() const;
  void LinkAscending(const std::vector<KeySlot>& sorted);
  std::vector<KeySlot> Sort();
  bool InOrder() const;
  bool FitsItsPlace(const ItemLinks& links, Key key) const {
    return (!links.list_prev || KeyAt(links.list_prev) < key) &&
           (!links.list_next || key < KeyAt(links.list_next));
  }
  void OnUnlink(const char* item) {
    Touch();
    used_keys_.OnFreed(KeyAt(item));
  }
  void GrowIfCrowded() {
    if (count_ >= HashSize()) Grow();
  }
  void Grow();
  void Revive(char* item);
  void LearnSharing(Key key);
  template <class F>
  void ForEachItem(F&& visit) const;

  std::int32_t default_hash_size_ = kDefaultHashSize;
  std::int32_t hash_size_;
  char* head_ = nullptr;
  char* tail_ = nullptr;
  std::int32_t count_ = 0;
  Key max_key_ = 0;
  Key min_key_ = 0;

  RecordOps ops_;
  std::uint32_t links_offset_;
  std::uint32_t list_epoch_ = 0;
  std::uint32_t hash_epoch_ = 0;
  std::int32_t detached_ = 0;      // items alive but not linked
  bool shared_keys_ = false;       // two records have been given one key
  bool dense_ = true;              // the window is the index, else the table
  bool ascending_ = true;          // the list is known to be in ascending order, no two keys equal
  std::uint32_t incarnation_ = 1;  // of the slots as a whole
  std::uint64_t last_revision_;    // given so far
  std::uint64_t revision_;
  mutable UsedKeys used_keys_;
  ItemStore store_;
  KeyWindow window_;
  ChainTable table_;
};

}  // namespace qx
