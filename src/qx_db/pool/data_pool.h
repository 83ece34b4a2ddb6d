#pragma once
// The typed store of all records of one type in one model.

#include "qx_db/pool/deletor.h"
#include "qx_db/pool/keyed_set.h"
#include "qx_db/pool/pool_base.h"
#include "qx_db/record/verbs.h"

namespace qx {

/// A pool of records of type T: a keyed set that reports its changes. While the session records,
/// a removal detaches the record and reports it, so that undo can put it back; otherwise it frees
/// it, at once or, within a step, with its end. While the session tells of a step, every change is
/// refused. A concrete pool supplies GetDeletor and GetIOName. Threads: see DPoolBase.
template <class T>
class QXDB_API DPool : public DPoolBase {
 public:
  DPool(std::uint16_t type, CQXDBSession* session) : DPoolBase(type, session) {
    set_ = &records_;
    schema_ = &T::GetSchema();
  }

  /// The scratch record of the pool type, one of the process. Overwritten by CopyToDummyPtr; the
  /// library itself neither reads nor writes it.
  static T& GetDefault() {
    static T scratch;
    return scratch;
  }

  ITR Find(Key key) const override { return records_.Find(key); }
  std::int32_t GetKeyList(TArray<Key>& out, int sorted) override {
    return ListKeys(out, sorted != 0);
  }
  std::int32_t GetItrList(TArray<ITR>& out, int sorted) override {
    return ListItems(out, sorted != 0);
  }
  ITR InsertNU(const TStructBase* record) override {
    return InsertNU(static_cast<const T&>(*record));
  }
  int SetAtNU(ITR pos, const TStructBase* record) override {
    return SetAtNU(pos, static_cast<const T&>(*record));
  }
  int RemoveWithoutDelete(const ITR& pos) override {
    if (!MayChangeUnrecorded() || !records_.RemoveWithoutDelete(pos)) return 0;
    if (recorder_) recorder_->OnTakenOut();
    return 1;
  }
  int Remove(const ITR& pos) override;
  TStructBase* GetDataPtrForUndoRedo() override { return &GetDefault(); }
  void Optimize() override { records_.Optimize(); }
  void RebuildHash() override { records_.RebuildHash(); }
  const IO_VAR* GetVarIOInfo() const override { return T::GetVarIOInfo(); }
  void RemoveAll() override;
  ITR GetHeadPosition() const override { return records_.GetHeadPosition(); }
  std::int32_t GetSize() const override { return records_.GetSize(); }
  void Next(ITR& pos) const override { records_.Next(pos); }
  TStructBase* CopyToDummyPtr(ITR& pos) override {
    GetDefault() = records_.GetAtNU(pos);
    return &GetDefault();
  }
  void SetMinMaxKey(Key key) override {
    if (MayRearrange()) records_.SetMinMaxKey(key);
  }
  void ResetMinMaxKey() override {
    if (MayRearrange()) records_.ResetMinMaxKey();
  }
  std::uint32_t GetCheckSize() const override { return sizeof(T); }

  // ---- 42 to 46 of the virtual operations -------------------------------------------------------

  /// Adds a copy of the record; 0, without a notice, when the key is negative or taken, or the
  /// record's image would exceed kMaxImageSize.
  virtual ITR InsertNU(const T& record);
  /// Replaces the record at `pos`; 0, without a notice, where that is of no record in the pool, or
  /// the image of one or the other would exceed kMaxImageSize. A change that the set refuses is
  /// still reported, before and after.
  virtual int SetAtNU(ITR pos, const T& record);
  /// Removes and moves `pos` on.
  virtual int RemoveNext(ITR& pos);
  virtual Key GetMaxKey() const { return records_.GetMaxKey(); }
  virtual Key GetNewKey() const { return records_.GetNewKey(); }

  // ---- forwarded to the set ---------------------------------------------------------------------

  T& GetAtNU(ITR pos) { return records_.GetAtNU(pos); }
  const T& GetAtNU(ITR pos) const { return records_.GetAtNU(pos); }
  T& GetNextNU(ITR& pos) { return records_.GetNextNU(pos); }
  T& GetPrevNU(ITR& pos) { return records_.GetPrevNU(pos); }
  void Prev(ITR& pos) const { records_.Prev(pos); }
  bool IsEmpty() const { return records_.IsEmpty(); }
  void SortAsc() {
    if (MayRearrange()) records_.SortAsc();
  }
  void SetHashSize(std::int32_t n) { records_.SetHashSize(n); }
  void SetDefaultHashSize(std::int32_t n) { records_.SetDefaultHashSize(n); }
  std::uint32_t GetParamIdx(ITR pos) const { return records_.GetParamIdx(pos); }
  void SetParamIdx(ITR pos, std::uint32_t index) { records_.SetParamIdx(pos, index); }

 private:
  /// What has no image can be neither saved nor brought back by undo.
  bool HasImage(const T& record) const {
    return !schema_->HasArrays() || ImageSize(*schema_, record) <= kMaxImageSize;
  }

  CKeySet<T> records_;
};

template <class T>
ITR DPool<T>::InsertNU(const T& record) {
  const bool recording = IsRecording();
  if (!HasImage(record) || (!recording && !MayChangeUnrecorded())) return 0;
  const ITR pos = records_.InsertNU(record);
  if (pos == 0 || !recording) return pos;
  try {
    Notify(tagTRNotify::kInserted, pos);
  } catch (...) {
    records_.Remove(pos);
    throw;
  }
  change_flags_ |= kInsertedFlag;
  return pos;
}

template <class T>
int DPool<T>::SetAtNU(ITR pos, const T& record) {
  if (!records_.IsLinked(pos) || !HasImage(record)) return 0;
  const Key former = records_.GetAtNU(pos).GetKey();
  if (!IsRecording()) {
    if (!MayChangeUnrecorded() || !records_.SetAtNU(pos, record)) return 0;
    TellNewKey(pos, former);
    return 1;
  }
  if (!HasImage(GetAtNU(pos))) return 0;
  Notify(tagTRNotify::kModified, pos, 0);
  change_flags_ |= kModifiedFlag;
  KeyedSetBase::SetState(pos, KeyedSetBase::StateOf(pos) | KeyedSetBase::kModifiedBit);
  const int result = records_.SetAtNU(pos, record);
  Notify(tagTRNotify::kModified, pos, 1);
  if (result) TellNewKey(pos, former);
  return result;
}

template <class T>
int DPool<T>::Remove(const ITR& pos) {
  ITR moving = pos;
  return DPool<T>::RemoveNext(moving);
}

template <class T>
int DPool<T>::RemoveNext(ITR& pos) {
  if (!records_.IsLinked(pos)) return 0;
  const ITR removed = pos;
  if (!IsRecording()) {
    if (!MayChangeUnrecorded()) return 0;
    return TakesRemoved({&removed, 1}) ? records_.RemoveNextWithoutDelete(pos)
                                       : records_.RemoveNext(pos);
  }
  const std::uint32_t list_epoch = records_.ListEpoch();
  const std::uint32_t hash_epoch = records_.HashEpoch();
  if (!records_.RemoveNextWithoutDelete(pos)) return 0;
  try {
    Notify(tagTRNotify::kRemoved, removed);
  } catch (...) {
    records_.Relink(removed, list_epoch, hash_epoch);
    throw;
  }
  change_flags_ |= kRemovedFlag;
  ++removals_;
  return 1;
}

template <class T>
void DPool<T>::RemoveAll() {
  if (!IsRecording() || records_.IsEmpty()) {
    if (!records_.IsEmpty() && !MayChangeUnrecorded()) return;
    if (TakesRemoved({})) {
      TArray<ITR> items;
      ListItems(items, false);
      TakesRemoved({items.data(), items.size()});
      records_.RemoveAllWithoutDelete();
    }
    records_.RemoveAll();
    return;
  }
  recorder_->ReserveNotices(static_cast<std::size_t>(records_.GetSize()));
  change_flags_ |= kRemovedFlag;
  ++removals_;
  for (ITR pos = records_.GetHeadPosition(); pos; records_.Next(pos)) {
    Notify(tagTRNotify::kRemoved, pos);
  }
  records_.RemoveAllWithoutDelete();
}

}  // namespace qx
