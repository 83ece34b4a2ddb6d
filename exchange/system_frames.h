#pragma once
// Where the coordinate systems of a session are, for writers that give points in them.
// Threads: as the session they read.

#include <map>

#include "qx_db/core/session.h"
#include "qx_db/lib/math.h"
#include "qx_db/record/geometry_records.h"
#include "qx_db/record/types.h"

namespace qx::exchange {

/// A system in global coordinates, in current units.
struct SystemFrame {
  std::int32_t type = 0;  ///< of tagTCord: rectangular, cylindrical, spherical
  Vector3 origin;
  Vector3 x;  ///< unit axes
  Vector3 y;
  Vector3 z;

  /// A global point in the coordinates that the system counts in.
  Vector3 FromGlobal(const Vector3& point) const;
};

/// By the key of the system. Those whose points give no axes are not there.
using SystemFrames = std::map<Key, SystemFrame>;
SystemFrames SystemsOf(const CQXDBSession& session);

}  // namespace qx::exchange
