#pragma once
// Edits that the page may ask for: the commands delete, sets add, edit move, fix, undo and redo.

#include <functional>
#include <string>
#include <string_view>

#include "qx_db/core/session.h"
#include "qx_db/platform/outcome.h"

namespace qx::viewer {

/// Why the model refused an edit, as its host heard it.
using RefusalText = std::function<std::string()>;

/// Does what `request` asks, as one step. JSON, by its member "edit":
///   delete  records, turn          {table: keys, ...} and what hangs on them; refused where it
///   turns
///                                  elements that stay, unless turn is true
///   set     name, elements, nodes  a mesh set of those keys, with the nodes of the elements
///   move    nodes, by              nodes by three lengths in current units
///   fix     solids, shells, duplicate_elements, unreferenced_nodes (true), merge_tolerance
///   undo, redo
/// On failure the session is as it was.
Outcome ApplyEdit(CQXDBSession& session, std::string_view request, const RefusalText& refusal);

/// What it would do, tried on a copy of the session: the pack of LastChanges. Fails as the edit
/// would, and for undo and redo: what their step changed tells it. Cost: a copy of every record.
Result<std::string> PreviewEdit(const CQXDBSession& session, std::string_view request,
                                const RefusalText& refusal);

}  // namespace qx::viewer
