#pragma once
// What the tables of one model share: what is derived from its records, made when it is asked for
// and again when they have changed, and the writing.
// Threads: the one that drives the session.

#include <memory>
#include <span>
#include <unordered_map>
#include <vector>

#include "qx_db/core/transaction.h"
#include "qx_db/mesh/dense_mesh.h"
#include "qx_db/mesh/mesh_quality.h"
#include "qx_db/model/reference_index.h"
#include "qx_db/platform/outcome.h"

#include "sql/box_grid.h"
#include "sql/sqlite_api.h"

namespace qx::sql {

class RecordSource;

/// A session as the tables see it.
class Link {
 public:
  Link(CQXDBSession& session, bool writable)
      : session_(session), writable_(writable), references_(session) {}
  Link(const Link&) = delete;
  Link& operator=(const Link&) = delete;

  CQXDBSession& Session() const { return session_; }
  bool IsWritable() const { return writable_; }

  // ---- derived from the records -----------------------------------------------------------------

  /// The records of a pool in the order of their keys.
  std::shared_ptr<const std::vector<ITR>> InKeyOrder(const DPoolBase& pool);
  /// Nodes by their place.
  std::shared_ptr<const BoxGrid> Boxes(const DPoolBase& nodes);
  /// The records of a pool that refer to the target by a row; valid until the pool changes.
  std::span<const ITR> Users(const DPoolBase& pool, const Row& row, ITR target) {
    return references_.Users(pool, row, target);
  }
  std::shared_ptr<const DenseMesh> Mesh();
  /// The measure of an element; NaN where it has none. That of all is computed at once and kept.
  double QualityOf(const MeasureInfo& measure, ITR element);
  /// Another number whenever a record, the units or the history have changed.
  std::uint64_t State() const;

  // ---- writing ----------------------------------------------------------------------------------
  // As SQLite asks for it: one step of the session from the first change to the commit. Several
  // tables take part; the first to be told does the work.

  /// From the first change to the commit.
  bool IsWriting() const { return writing_ != Writing::kNone; }

  /// A change begins. Names the step by the statement that the connection runs.
  Outcome Begin(sqlite3* db);
  /// Ends the step; where the model refuses it everything is as before it.
  Outcome Sync();
  void Commit();
  /// Takes back the step, also one that Sync has ended.
  void Rollback();
  /// A savepoint that opens the transaction is level -1.
  void Savepoint(int level);
  void Release(int level);
  void RollbackTo(int level);

  /// To be called before the session is changed: readings that have begun keep what they have yet
  /// to give.
  void BeforeChange();
  /// Stores a record, now.
  Outcome Set(DPoolBase& pool, ITR item, const TStructBase& record);
  /// A copy of a record to be changed, ours; it is stored by Flush.
  Result<TStructBase*> Draft(DPoolBase& pool, ITR item);
  /// Another number whenever drafts have been stored or dropped.
  std::uint64_t DraftEpoch() const { return draft_epoch_; }
  /// A record is to be deleted, by Flush: together with the others, since rules look at all of
  /// them.
  Outcome Remove(DPoolBase& pool, ITR item);
  /// Stores what waits to be.
  Outcome Flush();
  /// The same as far as records of that pool wait.
  Outcome FlushOf(const DPoolBase& pool) { return pending_ == &pool ? Flush() : fault_; }

  void Add(RecordSource& source) { open_.push_back(&source); }
  void Forget(RecordSource& source) { std::erase(open_, &source); }

 private:
  Outcome StorePending();
  void DropPending();
  void OpenLevels(std::size_t count);

  CQXDBSession& session_;
  bool writable_;
  ReferenceIndex references_;
  template <class T>
  struct Kept {
    std::uint64_t revision = 0;
    std::shared_ptr<const T> value;
  };
  std::unordered_map<const DPoolBase*, Kept<std::vector<ITR>>> in_key_order_;
  Kept<BoxGrid> boxes_;
  struct MeshState {
    std::uint64_t nodes = 0, elements = 0;
    bool operator==(const MeshState&) const = default;
  };
  MeshState StateOfMesh() const;
  MeshState mesh_state_;
  std::shared_ptr<const DenseMesh> mesh_;
  MeshState quality_state_;
  PoolNumbers element_numbers_;
  std::unordered_map<Measure, std::vector<double>> quality_;

  std::vector<RecordSource*> open_;
  enum class Writing { kNone, kOpen, kSynced } writing_ = Writing::kNone;
  bool has_step_ = false;  // Sync has made one
  std::unique_ptr<CTransaction> step_;
  std::u16string step_name_;
  std::vector<std::unique_ptr<CTransaction>> levels_;
  DPoolBase* pending_ = nullptr;  // the pool of what waits
  std::uint64_t draft_epoch_ = 0;
  std::unordered_map<ITR, std::unique_ptr<TStructBase>> drafts_;
  std::vector<ITR> drafted_;  // in order
  std::vector<ITR> removed_;
  Outcome fault_;  // of a flush that nobody could be told of
};

}  // namespace qx::sql
