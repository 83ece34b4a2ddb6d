#pragma once
// What key a record received when it came from outside.
// Threads: records are values (TStructBase).

#include "qx_db/record/record.h"

namespace qx {

#pragma pack(push, 4)

/// An entry of a key map. Lives in the maps of external stores only, never in a model.
struct QXDB_API tagTKeyMap final : TRecord<tagTKeyMap, 0> {
  Key key = 0;             ///< in the external store
  std::int32_t value = 0;  ///< in the pool proper
};

#pragma pack(pop)

QX_DECLARE_RECORD(tagTKeyMap);

}  // namespace qx
