#pragma once
// The tables of a pool: one of its records, and one of each array that they have.
// Threads: the one that drives the session.

#include "sql/link.h"
#include "sql/table.h"

namespace qx::sql {

/// A row for each record; `rowid` is its position, which holds as long as the record does.
std::unique_ptr<Table> MakePoolTable(Link& link, const PoolColumns& columns);

/// A row for each element of an array: the key of the record, the place in the array from 0 on, and
/// the element. A row that is inserted goes to the end, or before the place it names; a row of
/// references that the record has already is refused.
std::unique_ptr<Table> MakeArrayTable(Link& link, const PoolColumns& owner,
                                      const ArrayColumns& array);

}  // namespace qx::sql
