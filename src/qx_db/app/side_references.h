#pragma once
// The sides of elements that records name, and changing them.
// Threads: the one that drives the session.

#include <functional>
#include <optional>

#include "qx_db/export.h"
#include "qx_db/record/array_elements.h"

namespace qx {

class CQXDBSession;
struct Row;

/// The kind of what names an element as a whole: of an item of geometry that is neither face nor
/// edge.
inline constexpr int kWholeElement = -1;

/// What names a side from now on: another one, or the same. Nothing where none can.
using SideChange = std::function<std::optional<tagTElemSide>(int kind, const tagTElemSide& side)>;

/// Whether a row's elements are sides of elements.
bool NamesSides(const Row* row);

/// Asks `change` about every side that a record names, of the kind that its number is of (3 face, 4
/// edge): elements on geometry, by the type of the item, kWholeElement too; arrays of sides, where
/// the number of a solid is one of a face as long as it has that many, and any other an edge. A
/// side for which there is nothing stays as it is, and so does one that the record would name
/// twice. Call it in a transaction; false when a pool refused a change.
QXDB_API bool ChangeSides(CQXDBSession& session, const SideChange& change);

}  // namespace qx
