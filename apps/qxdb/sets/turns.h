#pragma once
// Elements that a deletion turns: what every command that deletes tells of them, and asks first.

#include <string>
#include <vector>

#include "qx_db/model/deletion.h"
#include "qx_db/platform/outcome.h"

#include "apps/qxdb/command/command.h"
#include "apps/qxdb/command/console.h"

namespace qx::app {

/// The flag --yes, by which they are turned without asking.
void AddYes(Command& command, bool& yes);

/// The elements with their axes before and after; the first few unless all are asked for.
std::string TurnsText(const std::vector<Turn>& turns, bool all);
/// The same, all of them, as the array "turns".
void WriteTurns(const std::vector<Turn>& turns, JsonText& json);

/// Fails where an element would be turned and nobody has said yes.
Outcome AskForTurns(const std::vector<Turn>& turns, bool yes, const std::string& model,
                    const std::string& place);

}  // namespace qx::app
