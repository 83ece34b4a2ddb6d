#pragma once
// Maps from old to new keys as JSON files: {"NODE": {"1": 101}}.

#include <string>

#include "qx_db/core/renumber.h"

namespace qx::app {

/// The entries of the pool's table, in their order.
Result<KeyMap> ReadKeyMap(const std::string& path, const DPoolBase& pool);
Outcome WriteKeyMap(const std::string& path, const DPoolBase& pool, const KeyMap& map);

}  // namespace qx::app
