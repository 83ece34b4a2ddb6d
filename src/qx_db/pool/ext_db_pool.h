#pragma once
// Pools with a second store for records from outside.

#include <memory>
#include <span>
#include <vector>

#include "qx_db/pool/data_pool.h"
#include "qx_db/pool/external_records.h"

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

/// A pool proper with an external store, which takes no memory until a record comes from outside.
/// Threads: see DPoolBase; the external store counts as part of the pool.
template <class T>
class QXDB_API DPoolExtDB : public DPool<T>, public IExternalStore {
 public:
  using DPool<T>::DPool;

  ITR InsertNUExtDB(const T& record) { return Outside().Store().Insert(record); }
  ITR InsertNUExtDB(const TStructBase* record) override {
    return InsertNUExtDB(static_cast<const T&>(*record));
  }
  ITR InsertNUCustom(const TStructBase* record) override { return InsertNUExtDB(record); }
  /// Replaces a record of the external store. One that was transferred becomes a new one there.
  int SetAtNUExtDB(ITR item, const T& record) { return Outside().SetAt(item, record); }
  int SetAtNUExtDB(ITR item, const TStructBase* record) override {
    return SetAtNUExtDB(item, static_cast<const T&>(*record));
  }
  /// The positions in the external store, as CKeySet::GetItrList gives them.
  std::int32_t GetItrListExtDB(TArray<ITR>& out, int sorted) {
    return Outside().Store().GetItrList(out, sorted);
  }
  ITR FindExtDB(Key key, int& external) const override {
    external = 1;
    return key < 0 || !outside_ ? 0 : outside_->Find(key, external);
  }
  ITR TransferToDB(ITR item, int keep_key, Key key) override {
    return Outside().Transfer(item, keep_key, keep_key ? 0 : FreeKey(key));
  }
  ITR BringToDB(const TStructBase& record, int keep_key, Key key) override;
  /// Transfers those of the keys that have not been; every key must be in one of the stores. 0 at
  /// the first transfer that fails. Expected time linear in the keys.
  int Private_Import(const TArray<Key>& keys, int keep_key, Key key);
  TStructBase& ExternalAt(ITR item) override { return *KeyedSetBase::RecordAt(item); }

  void SetExtHashSize(std::int32_t n) override { Outside().SetHashSize(n); }
  void RemoveAllExtDB() override { outside_.reset(); }

 private:
  ExternalRecords& Outside() {
    if (!outside_) outside_ = std::make_unique<ExternalRecords>(*this);
    return *outside_;
  }
  /// `key` when it is positive and free, otherwise a new one.
  Key FreeKey(Key key) {
    if (this->IsEmpty()) this->ResetMinMaxKey();
    return key > 0 && !this->Find(key) ? key : this->Set().GetFreeKey();
  }

  std::unique_ptr<ExternalRecords> outside_;
};

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
