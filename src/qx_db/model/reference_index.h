#pragma once
// Who refers to a record: the references of the model, turned round.
// Threads: its pool's; a question may renew it, so one at a time also where nothing changes.

#include <functional>
#include <memory>
#include <span>
#include <vector>

#include "qx_db/pool/pool_base.h"

namespace qx {

/// The references of one row of one pool turned round: for each target the records that refer to
/// it, each once, in list order. Built by one walk over the pool, in time proportional to its
/// references; a lookup takes constant time.
class RowIndex {
 public:
  RowIndex(const DPoolBase& source, const Row& row, const DPoolBase& target);

  const Row& TheRow() const { return *row_; }
  /// Whether nothing changed in the source pool since the index was built.
  bool IsCurrent() const { return revision_ == source_->Set().Revision(); }
  std::span<const ITR> Users(ITR target) const;

 private:
  const DPoolBase* source_;
  const DPoolBase* target_;
  const Row* row_;
  std::uint64_t revision_;
  std::vector<std::uint32_t> first_;  // by slot of the target: where its users begin
  std::vector<ITR> users_;
};

/// The reference indices of a session. A row is indexed when it is first asked for, and again
/// when its pool has changed since; what nobody asks for costs nothing.
class QXDB_API ReferenceIndex {
 public:
  explicit ReferenceIndex(const CQXDBSession& session);
  ~ReferenceIndex();

  /// Calls `visit(pool, row, user)` for every record that refers to the record `target` of the
  /// pool with this type code, pool by pool and row by row.
  void ForEachUser(std::uint16_t type, ITR target,
                   const std::function<void(DPoolBase& pool, const Row& row, ITR user)>& visit);
  /// The records of a pool that refer to the target by a row; valid until the pool changes.
  std::span<const ITR> Users(const DPoolBase& source, const Row& row, ITR target);

 private:
  struct Entry {
    DPoolBase* source;
    const Row* row;
    std::unique_ptr<RowIndex> index;
  };
  std::span<const ITR> Users(Entry& entry, ITR target);

  const CQXDBSession& session_;
  std::vector<Entry> entries_;
};

}  // namespace qx
