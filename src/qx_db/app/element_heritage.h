#pragma once
// What a duplicate element leaves to the one that stays.
// Threads: the one that drives the session.

#include <cstdint>
#include <span>
#include <vector>

#include "qx_db/export.h"
#include "qx_db/record/types.h"

namespace qx {

class CQXDBSession;

/// An element that is about to go, and one of the same type on the same nodes that stays.
struct Replaced {
  ITR goes;
  ITR stays;
};

/// What of a duplicate the element that stays could not take: the record of this type that tells of
/// it, because it has one of its own, or lists its nodes in another order, on which what the record
/// says depends.
struct LeftBehind {
  Key duplicate;
  Key stays;
  std::uint16_t type;
};

/// Has everything that tells of the elements that go tell of those that stay: sets and other lists,
/// sides of elements (by their nodes), records that one element has one of (thickness, offset,
/// release, orientation, material axes), the property. Call it in a transaction, before they are
/// removed; false when a pool refused a change. Appends to `left_behind`.
QXDB_API bool HandOn(CQXDBSession& session, std::span<const Replaced> elements,
                     std::vector<LeftBehind>& left_behind);

}  // namespace qx
