#pragma once
// How much of its history a model keeps, and what a step that is too large for it would cost.

#include <string>

#include "qx_db/core/history_plan.h"

#include "apps/qxdb/command/command.h"
#include "apps/qxdb/command/console.h"
#include "apps/qxdb/model/model.h"

namespace qx::app {

/// "1 000 steps and 67.1 MB".
std::string BoundsText(const HistoryLimits& kept);
/// "3 steps, 1.2 MB; at most 1 000 steps and 67.1 MB are kept".
std::string HistoryText(const CQXDBSession& session);
/// The same as the object "history".
void WriteHistory(const CQXDBSession& session, JsonText& json);

/// Fails where saving the model would push steps out of the history that its file has, and nobody
/// has said yes. A dry run says so on stderr instead.
Outcome CheckHistory(Model& model, bool dry_run);

/// `history show` and `history set`.
void AddHistoryBounds(Command& app, Context& context);

/// Gives every command that may save a model the flag --yes, where it has none yet, and tells the
/// context of it. To be called when all commands are there.
void AddYesToAll(Command& app, Context& context);

}  // namespace qx::app
