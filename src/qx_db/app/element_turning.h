#pragma once
// Turning elements over, and what other records tell of their sides with them.
// Threads: the one that drives the session.

#include <cstdint>
#include <span>

#include "qx_db/export.h"
#include "qx_db/record/types.h"

namespace qx {

class CQXDBSession;

/// Two places of an element's node list.
struct NodeExchange {
  std::int32_t a, b;
};

/// The exchanges that turn an element of a type over; none for points, lines and unknown types.
QXDB_API std::span<const NodeExchange> FlipOf(std::int32_t type);

/// The number that a side (3 face, 4 edge) of an element of the type has when the element has been
/// turned over; the number itself where there is no such side.
QXDB_API std::int32_t SideWhenTurned(std::int32_t type, int kind, std::int32_t side);

/// Turns elements over (CQXMeshUtil::FlipElement). What records tell of them stays where it is in
/// space: side numbers in whatever record, thicknesses by corner and offsets of plates. These
/// offsets stay as they are for elements that were reflected: their upper side is where it was
/// before both. Call it in a transaction; false when a pool refused a change.
QXDB_API bool TurnElements(CQXDBSession& session, std::span<const ITR> elements,
                           bool were_reflected = false);

}  // namespace qx
