#pragma once
// Pools with a second store for records from outside.

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

/// What a pool keeps of records from outside. Beside the pool, not in it, and told apart by a cast:
/// the header of every pool would else be dearer to compile by a third.
class ExternalRecordsBase {
 public:
  virtual ~ExternalRecordsBase() = default;
};
template <class T>
struct ExternalRecords;

/// A pool proper with an external store, the map from external keys to the keys that the records
/// received, and what tells where each came to be: by the record, so that it may get another key.
/// They are emptied together, and take no memory until a record comes from outside.
/// Threads: see DPoolBase; the external store counts as part of the pool.
template <class T>
class QXDB_API DPoolExtDB : public DPool<T>, public IExternalStore {
 public:
  using DPool<T>::DPool;

  ITR InsertNUExtDB(const T& record);
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
  std::int32_t GetItrListExtDB(TArray<ITR>& out, int sorted);
  ITR FindExtDB(Key key, int& external) const override;
  ITR TransferToDB(ITR item, int keep_key, Key key) override;
  ITR BringToDB(const TStructBase& record, int keep_key, Key key) override;
  /// Transfers those of the keys that have not been; every key must be in one of the stores. 0 at
  /// the first transfer that fails. Expected time linear in the keys.
  int Private_Import(const TArray<Key>& keys, int keep_key, Key key);
  TStructBase& ExternalAt(ITR item) override;

  void SetExtHashSize(std::int32_t n) override;
  void RemoveAllExtDB() override { outside_.reset(); }

 private:
  using External = ExternalRecords<T>;
  External& Outside();
  External& Known() const { return static_cast<External&>(*outside_); }
  bool IsTransferred(ITR item) const;
  /// Where the record of an external key came to be; 0 when it has not come, or is to come again.
  ITR Transferred(Key external) const;
  void ForgetLost() const;
  /// `key` when it is positive and free, otherwise a new one.
  Key FreeKey(Key key);

  std::unique_ptr<ExternalRecordsBase> outside_;  // an External
};

template <class T>
struct ExternalRecords : ExternalRecordsBase {
  /// What became of a record of the external store.
  struct Transfer {
    ITR item;                   ///< in the external store
    RecordStamp record;         ///< in the pool proper, whatever key it has there by now
    std::unique_ptr<T> former;  ///< the pool's record as it was before it was overwritten

    /// Where the record is in its pool; 0 when it has left it since, or when one that was
    /// overwritten is what it was before.
    ITR Position(const DPool<T>& pool) const {
      const ITR pos = record.item;
      if (!pool.Set().IsAlive(record) || KeyedSetBase::IsRemoved(pos)) return 0;
      const bool undone = former && Differences(T::GetSchema(), *former, pool.GetAtNU(pos)).empty();
      return undone ? 0 : pos;
    }
  };
  CKeySet<tagTKeyMap> key_map;  ///< external keys to received ones
  CKeySet<T> store;
  std::unordered_map<Key, Transfer> transfers;  ///< by external key
  std::unordered_map<ITR, Key> external_keys;   ///< of transferred items, which have received ones
  std::unordered_map<Key, ITR> shadowed;        ///< items whose external key another received
};

template <class T>
ExternalRecords<T>& DPoolExtDB<T>::Outside() {
  if (!outside_) outside_ = std::make_unique<External>();
  return Known();
}

template <class T>
bool DPoolExtDB<T>::IsTransferred(ITR item) const {
  return Known().external_keys.contains(item);
}

template <class T>
ITR DPoolExtDB<T>::Transferred(Key external) const {
  const auto found = Known().transfers.find(external);
  if (found == Known().transfers.end()) return 0;
  const ITR pos = found->second.Position(*this);
  if (!pos) ForgetLost();
  return pos;
}

template <class T>
Key DPoolExtDB<T>::FreeKey(Key key) {
  if (this->IsEmpty()) this->ResetMinMaxKey();
  return key > 0 && !this->Find(key) ? key : this->GetNewKey();
}

template <class T>
ITR DPoolExtDB<T>::InsertNUExtDB(const T& record) {
  return Outside().store.InsertNU(record);
}

template <class T>
std::int32_t DPoolExtDB<T>::GetItrListExtDB(TArray<ITR>& out, int sorted) {
  return Outside().store.GetItrList(out, sorted);
}

template <class T>
TStructBase& DPoolExtDB<T>::ExternalAt(ITR item) {
  return Outside().store.GetAtNU(item);
}

template <class T>
void DPoolExtDB<T>::SetExtHashSize(std::int32_t n) {
  Outside().key_map.SetHashSize(n);
  Outside().store.SetHashSize(n);
}

template <class T>
int DPoolExtDB<T>::SetAtNUExtDB(ITR item, const T& record) {
  if (!Outside().store.SetAtNU(item, record)) return 0;
  Known().external_keys.erase(item);
  return 1;
}

/// Lets the records whose copies have left the pool be what they were before they were transferred:
/// under their external keys, and in no map. Cost: a walk over what was transferred.
template <class T>
void DPoolExtDB<T>::ForgetLost() const {
  External& outside = Known();
  for (auto at = outside.transfers.begin(); at != outside.transfers.end();) {
    if (at->second.Position(*this)) {
      ++at;
      continue;
    }
    const ITR item = at->second.item;
    if (outside.external_keys.erase(item)) {
      T record = outside.store.GetAtNU(item);
      record.key = at->first;
      outside.store.SetAtNU(item, record);
    }
    outside.key_map.Remove(outside.key_map.Find(at->first));
    at = outside.transfers.erase(at);
  }
}

template <class T>
ITR DPoolExtDB<T>::FindExtDB(Key key, int& external) const {
  external = 1;
  if (key < 0 || !outside_) return 0;
  if (const ITR pos = Transferred(key)) {
    external = 0;
    return pos;
  }
  const ITR item = Known().store.Find(key);
  if (!item || !IsTransferred(item)) return item;
  // The new key of a transferred record may be the external key of another.
  const auto hidden = Known().shadowed.find(key);
  return hidden == Known().shadowed.end() ? 0 : hidden->second;
}

template <class T>
ITR DPoolExtDB<T>::TransferToDB(ITR item, int keep_key, Key key) {
  External& outside = Outside();
  const auto known = outside.external_keys.find(item);
  const Key own =
      known == outside.external_keys.end() ? outside.store.GetAtNU(item).GetKey() : known->second;
  if (const ITR pos = Transferred(own)) return pos;
  T record = outside.store.GetAtNU(item);
  ITR pos = keep_key ? this->Find(own) : 0;
  const Key target = keep_key ? own : FreeKey(key);
  std::unique_ptr<T> former;
  if (pos) {
    former = std::make_unique<T>(this->GetAtNU(pos));
    if (!this->SetAtNU(pos, record)) return 0;
    if (Differences(T::GetSchema(), *former, this->GetAtNU(pos)).empty()) former.reset();
  } else {
    record.key = target;
    pos = this->InsertNU(record);
    if (!pos) return 0;
    const ITR hidden = target != own ? outside.store.Find(target) : 0;
    if (hidden && !IsTransferred(hidden)) outside.shadowed[target] = hidden;
    if (const auto at = outside.shadowed.find(own);
        at != outside.shadowed.end() && at->second == item) {
      outside.shadowed.erase(at);
    }
    outside.store.SetAtNU(item, record);
  }
  tagTKeyMap entry;
  entry.key = own;
  entry.value = target;
  outside.key_map.InsertNU(entry);
  outside.external_keys[item] = own;
  outside.transfers[own] = {item, this->Stamp(pos), std::move(former)};
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
