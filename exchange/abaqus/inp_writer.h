#pragma once
// A session as an Abaqus or CalculiX deck.

#include "exchange/format.h"

namespace qx::exchange {

/// Writes nodes, elements, sets, surfaces, sections, materials and coordinate systems in current
/// units. A model that came from a deck goes back as that deck: what the model did not change keeps
/// its text, and so do comments, steps and keywords that the model has no place for; what changed
/// is written anew in its place, what is new at the end of its part or before the first step. An
/// instance that is no longer like the others of its part gets a part of its own. `report` tells
/// what has no place. The file is complete or not there.
Outcome WriteAbaqus(CQXDBSession& session, const std::string& path, const WriteOptions& options,
                    LossReport& report);

}  // namespace qx::exchange
