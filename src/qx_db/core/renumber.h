#pragma once
// New keys for the records of a pool.
// Threads: the one that drives the session.

#include <span>
#include <utility>
#include <vector>

#include "qx_db/core/session.h"
#include "qx_db/platform/outcome.h"

namespace qx {

/// Old key and new key of each record, in the order in which they were given.
using KeyMap = std::vector<std::pair<Key, Key>>;

/// The map that gives the records at `items` consecutive keys from `first` on.
QXDB_API KeyMap ConsecutiveKeys(std::span<const ITR> items, Key first);

/// Gives the records of a pool new keys, all at once, so that keys may be exchanged, as one
/// undoable step. References are positions and stay; members that hold a key of the pool, and
/// records that belong to one of its records by their key, follow. Refused, with nothing changed,
/// when an old key is not there or named twice, or a new one is not from 1 to the largest, given
/// twice, or that of a record that keeps it.
QXDB_API Outcome Renumber(CQXDBSession& session, DPoolBase& pool, const KeyMap& map);

}  // namespace qx
