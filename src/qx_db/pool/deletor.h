#pragma once
// Deletion with its consequences.

#include "qx_db/pool/pool_base.h"

namespace qx {

/// Deletes records of one pool and sees to what refers to them. Each concrete pool owns one.
/// Threads: on the one that drives the session.
class QXDB_API DeletorBase {
 public:
  explicit DeletorBase(DPoolBase& pool) : pool_(pool) {}
  virtual ~DeletorBase();

  /// Removes the records in one transaction, whose relation processing repairs what referred to
  /// them. 1 when it committed; 0, with nothing changed, when a pool refused.
  virtual int Delete(const TArray<ITR>& items);

 private:
  DPoolBase& pool_;
};

}  // namespace qx
