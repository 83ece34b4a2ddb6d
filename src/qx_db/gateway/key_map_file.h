#pragma once
// Maps from old to new keys as JSON files: {"NODE": {"1": 101}}.
// Threads: as the document and the pool that are given.

#include <string>

#include "qx_db/core/document.h"
#include "qx_db/core/renumber.h"

namespace qx {

/// The entries of the pool's table, in their order.
QXDB_API Result<KeyMap> ReadKeyMap(const std::string& path, const DPoolBase& pool);
QXDB_API std::string KeyMapText(const DPoolBase& pool, const KeyMap& map);

/// Writes the map of what became of the keys, where `path` is not empty, and, but for a dry run,
/// saves the model. Where that fails the file at `path` is as it was.
QXDB_API Outcome SaveWith(CQXDocBase& document, const std::string& path, const std::string& map,
                          bool dry_run);

}  // namespace qx
