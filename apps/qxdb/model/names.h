#pragma once
// The names that may stand for something in a command line, for those who complete it.

#include <string>
#include <vector>

#include "apps/qxdb/command/command.h"

namespace qx::app {

/// The names there are of such a kind, those of mesh sets in the model at `model`: none when it
/// cannot be read, or not in the time that somebody waits for a key to do something.
std::vector<std::string> NamesOf(ValueKind kind, const std::string& model);

}  // namespace qx::app
