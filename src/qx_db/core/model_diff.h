#pragma once
// What distinguishes two models.
// Threads: any number while none changes the session.

#include <cstdint>
#include <vector>

#include "qx_db/core/session.h"

namespace qx {

/// One difference. References are compared by the keys of their targets.
struct RecordDifference {
  enum class Kind {
    kOnlyInFirst,
    kOnlyInSecond,
    kChanged,
    kOrder,  ///< the same keys in another list order; of the pool, with key 0
  };
  Kind kind;
  std::uint16_t type;  ///< type code of the pool
  Key key;
  std::vector<const Row*> members;  ///< of a changed record, in member order
};

/// Compares record by record the pools that are saved, in the order of the first session's pools.
/// A pool that only one session has is compared with an empty one.
QXDB_API std::vector<RecordDifference> DiffModels(const CQXDBSession& first,
                                                  const CQXDBSession& second);

}  // namespace qx
