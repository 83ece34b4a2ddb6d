#pragma once
// What becomes of references and keys when the records they name are removed, or get other keys: by
// the rows of the schemas, the one place that says it.
// Threads: the one that drives the session.

#include <functional>
#include <unordered_map>
#include <unordered_set>
#include <vector>

#include "qx_db/core/journal.h"
#include "qx_db/pool/pool_base.h"

namespace qx {

/// What the open step of a session does to records through their rows. The removed records are
/// taken from the journal, once for all pools. Threads: as its session.
class QXDB_API Relations {
 public:
  explicit Relations(CQXDBSession& session) : session_(session) {}

  /// How a row is to be taken, where a pool's own rule decides; null for what the rows say.
  using Rule = std::function<OnRemoval(const Row&)>;

  /// Does to the pool's records what their rows say of removed targets (OnRemoval), and gives keys
  /// that name renumbered or removed records the ones they should have. Looks at the records only
  /// when a pool they refer to has removals that they do not know yet. The changes are recorded
  /// like any other. 0, with a message, where a row refuses a removal.
  int Process(DPoolBase& pool, const Rule& rule = nullptr);
  /// The step has ended.
  void Forget();
  /// A record has another key than when the step began; none has, now that the step has ended.
  void NoteNewKey() { has_new_keys_ = true; }
  void ForgetNewKeys() { has_new_keys_ = false; }

 private:
  enum class Fate { kUntouched, kRepaired, kRemoved, kRefused };

  void Learn();
  bool HasNothingToFollow() const;
  std::vector<const Row*> RowsToRepair(DPoolBase& pool) const;
  bool MayHaveGone(const std::vector<const Row*>& rows, const TStructBase& record) const;
  bool HasGone(const Row& row, const TStructBase& record) const;
  bool KeepsAny(const Schema& schema, const TStructBase& record) const;
  Fate FateOf(const std::vector<const Row*>& rows, const Schema& schema, const TStructBase& record,
              const Rule& rule) const;
  void Repair(const std::vector<const Row*>& rows, TStructBase& record, const Rule& rule) const;
  void Refuse(const std::vector<const Row*>& rows, const TStructBase& record) const;
  int FollowKeys(DPoolBase& pool, const Row& row);
  /// A bit for every removed record, and by chance for few others. By value, for tight loops.
  struct Filter {
    const std::uint64_t* bits;
    int shift;

    static std::size_t HashOf(ITR itr, int shift) {
      return static_cast<std::size_t>(itr * 0x9E3779B97F4A7C15u >> shift);
    }
    /// In its lowest bit.
    std::uint64_t Bit(ITR itr) const {
      const std::size_t hash = HashOf(itr, shift);
      return bits[hash >> 6] >> (hash & 63);
    }
    bool IsGone(ITR itr) const {
      return (Bit(itr) & 1) != 0 && itr != 0 && KeyedSetBase::IsRemoved(itr);
    }
  };
  Filter Known() const { return {filter_.data(), shift_}; }
  bool Is(ITR itr) const { return Known().IsGone(itr); }
  void Mark(ITR itr) {
    const std::size_t hash = Filter::HashOf(itr, shift_);
    filter_[hash >> 6] |= std::uint64_t{1} << (hash & 63);
  }

  CQXDBSession& session_;
  std::size_t known_ = 0;  // changes of the open step that were looked at
  std::vector<ITR> gone_;  // removed by them
  bool has_new_keys_ = false;
  int shift_ = 64 - 12;
  std::vector<std::uint64_t> filter_ = std::vector<std::uint64_t>((1 << 12) / 64);
};

/// The records of a step that name others by a key which is not their own, and what they should
/// name now: see RowList::KeyOf.
class QXDB_API FormerKeys {
 public:
  /// Of the rows' pool and its targets', as far as the step changed them.
  FormerKeys(const DPoolBase& pool, const Row& row, const DPoolBase& targets, const Step& step);

  /// Whether a target has left a key that it had: otherwise nothing follows.
  bool Changed() const { return !moved_.empty() || !gone_.empty(); }
  /// The records and targets that the step touched.
  const std::unordered_set<ITR>& Touched() const { return touched_; }
  /// The target that had a key when the step began and has another now; 0 for none.
  ITR RenumberedFrom(Key key) const;
  /// The key that a record should name now. One that kept its member follows the target which had
  /// that key when the step began; one that was given another only leaves a removed one.
  Key WantedBy(ITR item) const;

 private:
  struct Identity {
    Key key = 0;
    Key names = 0;
  };
  Key NamedBy(ITR item) const;
  Identity Before(const Step& step, const Change& change) const;
  Key Resolve(ITR item) const;

  const DPoolBase& pool_;
  const Row& row_;
  const DPoolBase& targets_;
  std::unordered_set<ITR> inserted_;
  std::unordered_set<ITR> touched_;
  std::unordered_map<ITR, Identity> former_;  // of modified and removed records
  std::unordered_map<Key, ITR> moved_;        // targets by former key: renumbered or removed
  std::unordered_map<Key, ITR> gone_;         // targets by last key: removed
};

/// Clears every reference of the pool's records to a removed record, or drops it from its array, in
/// place and unrecorded. Takes no memory.
QXDB_API void ClearDeadReferences(DPoolBase& pool);

/// Drops the entries of a reference array, in the record at `bytes`, whose reference is gone, with
/// the entries beside them; the others keep their order.
QXDB_API void DropEntries(const Row& row, char* bytes, const std::function<bool(ITR)>& is_gone);

}  // namespace qx
