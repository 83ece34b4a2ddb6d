#pragma once
// Pools with a second store for records from outside.

#include <map>
#include <memory>
#include <span>
#include <unordered_map>
#include <vector>

#include "qx_db/pool/data_pool.h"
#include "qx_db/record/key_map_record.h"
#include "qx_db/record/verbs.h"

namespace qx {

/// The external side of a pool, whatever its record type.
class IExternalStore {
 public:
  virtual ~IExternalStore() = default;
  /// Adds a copy to the external store; 0 when its key is negative or taken there.
  virtual ITR InsertNUExtDB(const TStructBase* record) = 0;
  /// Replaces a record of the external store; 0 for a negative key.
  virtual int SetAtNUExtDB(ITR item, const TStructBase* record) = 0;
  /// Where the record of an external key is: `external` 0 and a position in the pool proper once
  /// it was transferred, else 1 and a position in the external store, 0 when it is not there.
  virtual ITR FindExtDB(Key key, int& external) const = 0;
  /// Brings a record of the external store into the pool and returns its position there, the same
  /// for every call; 0 when the pool refuses it. One whose copy has left the pool since, or whose
  /// coming was undone, comes again.
  ///
  /// With `keep_key` 0 it receives `key` when that is positive and free, otherwise a new key.
  /// Otherwise it keeps its own, and overwrites the pool's record of that key.
  virtual ITR TransferToDB(ITR item, int keep_key, Key key) = 0;
  /// The same for a record that is in no external store, by who knows itself what came where.
  virtual ITR BringToDB(const TStructBase& record, int keep_key, Key key) = 0;
  /// The record at a position of the external store.
  virtual TStructBase& ExternalAt(ITR item) = 0;
  /// Gives records that came from outside, at `items` in the pool, names of their own where the
  /// pool tells its records apart by name; adds the renamed ones to `renamed`. 0 when the pool
  /// refuses a change.
  virtual int NameApart(std::span<const ITR> /*items*/, std::vector<ITR>& /*renamed*/) { return 1; }
};

/// A pool proper with an external store, the map from external keys to the keys that the records
/// received, and the map from those to positions. The three are emptied together; they take no
/// memory until a record comes from outside.
template <class T>
class QXDB_API DPoolExtDB : public DPool<T>, public IExternalStore {
 public:
  using DPool<T>::DPool;

  ITR InsertNUExtDB(const T& record) { return Outside().store.InsertNU(record); }
  ITR InsertNUExtDB(const TStructBase* record) override {
    return InsertNUExtDB(static_cast<const T&>(*record));
  }
  ITR InsertNUCustom(const TStructBase* record) override { return InsertNUExtDB(record); }
  /// Replaces a record of the external store. One that was transferred becomes a new one there.
  int SetAtNUExtDB(ITR item, const T& record);
  int SetAtNUExtDB(ITR item, const TStructBase* record) override {
    return SetAtNUExtDB(item, static_cast<const T&>(*record));
  }
  /// The positions in the external store, as CKeySet::GetItrList gives them.
  std::int32_t GetItrListExtDB(TArray<ITR>& out, int sorted) {
    return Outside().store.GetItrList(out, sorted);
  }
  ITR FindExtDB(Key key, int& external) const override;
  ITR TransferToDB(ITR item, int keep_key, Key key) override;
  ITR BringToDB(const TStructBase& record, int keep_key, Key key) override;
  /// Transfers those of the keys that have not been; every key must be in one of the stores. 0 at
  /// the first transfer that fails.
  int Private_Import(const TArray<Key>& keys, int keep_key, Key key);
  TStructBase& ExternalAt(ITR item) override { return Outside().store.GetAtNU(item); }

  void SetExtHashSize(std::int32_t n) override {
    Outside().key_map.SetHashSize(n);
    Outside().store.SetHashSize(n);
  }
  void RemoveAllExtDB() override { outside_.reset(); }

 private:
  /// Marks a record of the external store that was transferred; its key is its new one.
  static constexpr std::uint32_t kTransferredBit = KeyedSetBase::kModifiedBit;

  struct External {
    CKeySet<tagTKeyMap> key_map;
    CKeySet<T> store;
    std::map<Key, ITR> transfer_map;
    std::map<Key, T> overwritten;  ///< by key: the pool's records as they were before
  };
  External& Outside() {
    if (!outside_) outside_ = std::make_unique<External>();
    return *outside_;
  }
  static bool IsTransferred(ITR item) {
    return (KeyedSetBase::StateOf(item) & kTransferredBit) != 0;
  }
  /// The position that a key of the pool proper was transferred to; 0 when it was not, when the
  /// record has left the pool since, or when one that was overwritten is what it was before.
  ITR Transferred(Key key) const {
    const auto found = outside_->transfer_map.find(key);
    if (found == outside_->transfer_map.end() || this->Find(key) != found->second) return 0;
    const auto former = outside_->overwritten.find(key);
    const bool undone =
        former != outside_->overwritten.end() &&
        Differences(T::GetSchema(), former->second, this->GetAtNU(found->second)).empty();
    return undone ? 0 : found->second;
  }
  void ForgetLost() const;
  /// `key` when it is positive and free, otherwise a new one.
  Key FreeKey(Key key) {
    if (this->IsEmpty()) this->ResetMinMaxKey();
    return key > 0 && !this->Find(key) ? key : this->GetNewKey();
  }

  std::unique_ptr<External> outside_;
};

template <class T>
int DPoolExtDB<T>::SetAtNUExtDB(ITR item, const T& record) {
  if (!Outside().store.SetAtNU(item, record)) return 0;
  KeyedSetBase::SetState(item, KeyedSetBase::StateOf(item) & ~kTransferredBit);
  return 1;
}

/// Lets the records whose copies have left the pool be what they were before they were transferred:
/// under their external keys, and in no map. Cost: a walk over the external store.
template <class T>
void DPoolExtDB<T>::ForgetLost() const {
  CKeySet<T>& store = outside_->store;
  CKeySet<tagTKeyMap>& key_map = outside_->key_map;
  std::vector<ITR> lost;  // entries of the key map
  for (ITR entry = key_map.GetHeadPosition(); entry; key_map.Next(entry)) {
    const Key inside = key_map.GetAtNU(entry).value;
    if (outside_->transfer_map.contains(inside) && !Transferred(inside)) lost.push_back(entry);
  }
  std::unordered_map<Key, ITR> items;  // by the keys they received
  for (ITR item = store.GetHeadPosition(); item && !lost.empty(); store.Next(item)) {
    if (IsTransferred(item)) items.emplace(store.GetAtNU(item).GetKey(), item);
  }
  for (const ITR entry : lost) {
    const tagTKeyMap& keys = key_map.GetAtNU(entry);
    if (const auto found = items.find(keys.value); found != items.end()) {
      T record = store.GetAtNU(found->second);
      record.key = keys.key;
      store.SetAtNU(found->second, record);
      KeyedSetBase::SetState(found->second,
                             KeyedSetBase::StateOf(found->second) & ~kTransferredBit);
    }
    outside_->transfer_map.erase(keys.value);
    outside_->overwritten.erase(keys.value);
    key_map.Remove(entry);
  }
}

template <class T>
ITR DPoolExtDB<T>::FindExtDB(Key key, int& external) const {
  external = 1;
  if (key < 0 || !outside_) return 0;
  if (const ITR entry = outside_->key_map.Find(key)) {
    if (const ITR pos = Transferred(outside_->key_map.GetAtNU(entry).value)) {
      external = 0;
      return pos;
    }
    ForgetLost();
  }
  const CKeySet<T>& store = outside_->store;
  ITR item = store.Find(key);
  if (!item || !IsTransferred(item)) return item;
  // The new key of a transferred record may be the external key of another.
  for (item = store.GetHeadPosition(); item; store.Next(item)) {
    if (!IsTransferred(item) && store.GetAtNU(item).GetKey() == key) break;
  }
  return item;
}

template <class T>
ITR DPoolExtDB<T>::TransferToDB(ITR item, int keep_key, Key key) {
  External& outside = Outside();
  Key own = outside.store.GetAtNU(item).GetKey();
  const ITR known = outside.key_map.Find(own);
  if (known || IsTransferred(item)) {
    const Key inside = IsTransferred(item) ? own : outside.key_map.GetAtNU(known).value;
    if (const ITR pos = Transferred(inside)) return pos;
    ForgetLost();
    own = outside.store.GetAtNU(item).GetKey();
    if (IsTransferred(item) || outside.key_map.Find(own)) return 0;
  }
  T record = outside.store.GetAtNU(item);
  ITR pos = keep_key ? this->Find(own) : 0;
  const Key target = keep_key ? own : FreeKey(key);
  if (pos) {
    const T former = this->GetAtNU(pos);
    if (!this->SetAtNU(pos, record)) return 0;
    if (!Differences(T::GetSchema(), former, this->GetAtNU(pos)).empty()) {
      outside.overwritten.emplace(own, former);
    }
  } else {
    if (outside.transfer_map.contains(target)) ForgetLost();  // of one that left the pool
    record.key = target;
    pos = this->InsertNU(record);
    if (!pos) return 0;
    outside.store.SetAtNU(item, record);
  }
  tagTKeyMap entry;
  entry.key = own;
  entry.value = target;
  outside.key_map.InsertNU(entry);
  outside.transfer_map.emplace_hint(outside.transfer_map.end(), target, pos);
  KeyedSetBase::SetState(item, KeyedSetBase::StateOf(item) | kTransferredBit);
  return pos;
}

template <class T>
ITR DPoolExtDB<T>::BringToDB(const TStructBase& outside, int keep_key, Key key) {
  // Of its own, since `outside` may be the pool's scratch record; one for all, for its arrays'
  // room.
  thread_local T record;
  record = static_cast<const T&>(outside);
  if (!keep_key) {
    record.key = FreeKey(key);
  } else if (const ITR pos = this->Find(record.GetKey())) {
    return this->SetAtNU(pos, record) ? pos : 0;
  }
  return this->InsertNU(record);
}

template <class T>
int DPoolExtDB<T>::Private_Import(const TArray<Key>& keys, int keep_key, Key key) {
  for (const Key wanted : keys) {
    int external = 0;
    const ITR item = FindExtDB(wanted, external);
    if (external && (!item || !TransferToDB(item, keep_key, key))) return 0;
  }
  return 1;
}

/// A pool without rules of its own: a deletor, and the I/O name that follows from the record's:
/// tagTNode lives in "_NODE", tagMGInfo in "_MGINFO".
template <class T>
class QXDB_API DPoolPlain : public DPoolExtDB<T> {
 public:
  explicit DPoolPlain(CQXDBSession* session)
      : DPoolExtDB<T>(T::kType, session),
        io_name_(IONameOf(T::GetSchema().Name())),
        deletor_(*this) {}

  DeletorBase* GetDeletor() override { return &deletor_; }
  const char16_t* GetIOName() const override { return io_name_.c_str(); }

 private:
  std::u16string io_name_;
  DeletorBase deletor_;
};

}  // namespace qx
