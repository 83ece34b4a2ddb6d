#pragma once
// The untyped interface of every pool: what the session, the gateway and the host see.

#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "qx_db/pool/keyed_set_base.h"
#include "qx_db/pool/notify.h"
#include "qx_db/record/schema.h"

namespace qx {

class CQXDBSession;
class CStringArray;
class DeletorBase;
namespace dbgateway {
class DataBase;
}

/// The I/O name of the pool of a record type: "_NODE" for "tagTNode".
QXDB_API std::u16string IONameOf(std::string_view record_name);

/// What became of a record that a stamp names.
struct StampCheck {
  bool same = false;  ///< it is there
  /// Otherwise the step that took it away, as long as the history has it: its name and its number,
  /// which is 0 for the step that is open. Empty and -1 once nothing is known of the record.
  std::u16string removed_by;
  std::int64_t step = -1;
  explicit operator bool() const { return same; }
};

/// One pool of a session. The order of the virtual operations is part of the binary interface;
/// DPool<T> continues it. Unless said otherwise operations return 1 or an iterator for success
/// and 0 for failure.
///
/// Threads: a pool is its session's, and used from the thread that drives it. While nobody changes
/// the session, as with a snapshot, any number of threads may call what is const, and NewRecord and
/// CopyRecord; not GetKeyList and GetItrList with `sorted`, not CopyToDummyPtr, whose record is one
/// of the process, and not the marks of SetParamIdx.
class QXDB_API DPoolBase {
 public:
  /// Bits of the change flags, set while the session records.
  static constexpr std::uint32_t kInsertedFlag = 1;
  static constexpr std::uint32_t kRemovedFlag = 2;
  static constexpr std::uint32_t kModifiedFlag = 4;

  virtual ~DPoolBase();

  // ---- 1 to 3: looking up -----------------------------------------------------------------------
  virtual ITR Find(Key key) const = 0;
  virtual std::int32_t GetKeyList(TArray<Key>& out, int sorted) = 0;
  virtual std::int32_t GetItrList(TArray<ITR>& out, int sorted) = 0;
  // ---- 4 to 6 -----------------------------------------------------------------------------------
  /// The object that deletes records of this pool together with what refers to them.
  virtual DeletorBase* GetDeletor() = 0;
  /// The first record of that name in list order, 0 when there is none.
  virtual ITR GetItr(const char16_t* name);
  /// Repairs the references of this pool's records after an edit; 0 refuses the edit. Unless
  /// overridden, references to removed records are cleared and dropped from arrays.
  virtual int ProcessRelation();
  // ---- 7 to 14: changing ------------------------------------------------------------------------
  virtual ITR InsertNU(const TStructBase* record) = 0;
  /// Inserts into the external store, in pools that have one; otherwise 0.
  virtual ITR InsertNUCustom(const TStructBase* record);
  virtual int SetAtNU(ITR pos, const TStructBase* record) = 0;
  virtual int RemoveWithoutDelete(const ITR& pos) = 0;
  virtual int Remove(const ITR& pos) = 0;
  virtual TStructBase* GetDataPtrForUndoRedo() = 0;
  virtual void Optimize() = 0;
  virtual void RebuildHash() = 0;
  // ---- 15 to 24 ---------------------------------------------------------------------------------
  virtual const IO_VAR* GetVarIOInfo() const = 0;
  virtual void RemoveAll() = 0;
  /// Name of the whole pool in files: "_NODE".
  virtual const char16_t* GetIOName() const = 0;
  virtual ITR GetHeadPosition() const = 0;
  virtual std::int32_t GetSize() const = 0;
  virtual void Next(ITR& pos) const = 0;
  /// Copies the record at `pos` into the pool type's scratch record, which it returns. The next
  /// call overwrites it, from whatever session and thread: the library itself uses CopyRecord.
  virtual TStructBase* CopyToDummyPtr(ITR& pos) = 0;
  virtual void SetMinMaxKey(Key key) = 0;
  virtual void ResetMinMaxKey() = 0;
  /// Bytes of a record in memory, with its vptr.
  virtual std::uint32_t GetCheckSize() const = 0;
  // ---- 25 to 37: hooks of concrete pools; unless overridden they do nothing and return 0 --------
  virtual void OnAfterActive(unsigned long flags, void* context);
  virtual void OnAfterLoad(unsigned long flags, void* context);
  virtual void OnAfterUndoRedo();
  virtual void ConvertA2D();
  virtual void ConvertD2A();
  /// Creates the pool's default record, where it has one. Returns 1.
  virtual int AddDefault();
  /// Whether the pool goes into the model file; 1 unless overridden.
  virtual int NeedSaveNLoad() const;
  virtual int CheckElemType(ITR pos, std::vector<std::uint32_t>& types);
  virtual std::int32_t GetItrBySet(ITR set, TArray<ITR>& out);
  virtual int IsExtDB() const;
  virtual void RemoveAllExtDB();
  virtual void SetExtHashSize(std::int32_t n);
  virtual std::int32_t GetExtDBIdName(TArray<Key>& ids, CStringArray& names);
  // ---- 38 to 41: gateway ------------------------------------------------------------------------
  /// Brings a table of the document into the pool in one transaction: adds or replaces records,
  /// or, with `remove` not 0, removes those that the document's deletion table lists. True when
  /// the transaction committed.
  virtual bool ReadAPI(dbgateway::DataBase* from, int remove);
  /// Writes the records of `keys` (filled with all keys when empty) into a new table. False,
  /// telling the document and without a table, while two records of the pool share a key.
  virtual bool WriteAPI(dbgateway::DataBase* to, TArray<Key>& keys, int unused);
  virtual bool DescAPI(dbgateway::Field* to);
  /// Name of the pool's table in the gateway; the I/O name without its underscore unless
  /// overridden.
  virtual CString GetAPIName() const;

  // ---- not virtual ------------------------------------------------------------------------------

  CQXDBSession* GetSession() const { return session_; }
  std::uint16_t GetTypeCode() const { return type_; }
  std::uint32_t ChangeFlags() const { return change_flags_; }
  void SetChangeFlags(std::uint32_t flags) { change_flags_ = flags; }
  bool HasChanged(std::uint32_t mask) const { return (change_flags_ & mask) != 0; }
  /// The same before the step's own repairs: while relations are processed, by the flags with which
  /// that began; otherwise by those of now.
  bool WasEdited(std::uint32_t mask) const;

  /// A record of the pool's type that is in no pool: with the default of every member, or a copy of
  /// the one at `pos`. The caller's own.
  std::unique_ptr<TStructBase> NewRecord() const { return set_->NewRecord(); }
  std::unique_ptr<TStructBase> CopyRecord(ITR pos) const { return set_->CopyRecord(pos); }

  /// Names the record at `pos` beyond its removal; a stamp of nothing for a position of none. Costs
  /// four bytes a slot of the pool, once the first is taken. Throws std::bad_alloc.
  RecordStamp Stamp(ITR pos) { return set_->Stamp(pos); }
  /// Whether the stamp still means the same record, in constant time, and else which step removed
  /// it, which walks back through the history. Loading, and emptying the pool outside a step, end
  /// all stamps.
  StampCheck Check(const RecordStamp& stamp) const;

  /// Makes room in the hash table for `records`, once rather than by doubling.
  void ReserveHash(std::int64_t records);

  /// The positions of a list of keys, entry by entry; 0 for an unknown key.
  void TArrayK2TArrayITR(const TArray<Key>& keys, TArray<ITR>& out) const;

  /// The set under the pool, to be read, and the schema of its records. Changes go through the
  /// pool, which tells its session of them.
  const KeyedSetBase& Set() const { return *set_; }
  const Schema& GetSchema() const { return *schema_; }

  DPoolBase(const DPoolBase&) = delete;
  DPoolBase& operator=(const DPoolBase&) = delete;

 protected:
  DPoolBase(std::uint16_t type, CQXDBSession* session);

  bool IsRecording() const { return recorder_ && recorder_->IsRecording(); }
  void Notify(std::uint16_t operation, ITR item, std::int32_t phase = 0) {
    recorder_->PushNotify({type_, operation, item, phase});
  }
  /// To be asked before a change that is not recorded. False refuses it.
  bool MayChangeUnrecorded() {
    return !recorder_ || !recorder_->MindsUnrecorded() || recorder_->AllowUnrecorded();
  }

  /// Whether records about to be removed unrecorded are the session's to free, see ChangeRecorder.
  bool TakesRemoved(std::span<const ITR> items) {
    return recorder_ && recorder_->TakesRemoved(type_, items);
  }

  /// Whether the order of the list may change, and which keys are given out.
  bool MayRearrange() const { return !recorder_ || !recorder_->IsTelling(); }
  /// GetKeyList and GetItrList: sorted in the set itself where that may change, else beside it.
  std::int32_t ListKeys(TArray<Key>& out, bool sorted);
  std::int32_t ListItems(TArray<ITR>& out, bool sorted);

  void TellNewKey(ITR item, Key former) {
    if (recorder_ && KeyedSetBase::RecordAt(item)->GetKey() != former) {
      recorder_->OnNewKey(type_, item, former);
    }
  }

  CQXDBSession* session_;
  std::uint16_t type_;
  std::uint32_t change_flags_ = 0;
  std::uint64_t removals_ = 0;  // recorded ones, for whoever refers to the records

  friend class CQXDBSession;
  friend class Relations;
  friend struct PoolInside;
  std::uint32_t edited_flags_ = 0;            // see WasEdited
  std::vector<std::uint64_t> seen_removals_;  // by reference row: its target's, as repaired last

  ChangeRecorder* recorder_;  // the session, as pools see it; null without a session
  KeyedSetBase* set_ = nullptr;
  const Schema* schema_ = nullptr;
};

/// The set under a pool, changed past its session: for those who bring records back or in, and keep
/// the promises of history and files themselves.
struct PoolInside {
  static KeyedSetBase& SetOf(DPoolBase& pool) { return *pool.set_; }
};

}  // namespace qx
