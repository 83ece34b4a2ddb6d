#pragma once
// A deck's text with what changed in the model since it was read: field by field, so that what did
// not change keeps its text.
// Threads: shares nothing; one at a time for each object.

#include "qx_db/lib/units.h"

#include "exchange/deck.h"
#include "exchange/nastran/nas_control.h"

namespace qx::exchange {

/// The text of `carried` as the model `now` has it. Systems of `now` have the numbers of the format
/// as keys; `systems` gives them for the keys that the records of the model have. `units` has the
/// units of the text as those of the model and the units of `now` as current ones: where they
/// differ, it is told which cards keep numbers of the former. Fails when the text does not read any
/// more.
Result<std::string> RenewNasDeck(const tagTCarried& carried, const Deck& now,
                                 const std::map<Key, Key>& systems, const NasSetTags& tags,
                                 const CQXUnitCtrl& units, const std::string& path,
                                 LossReport& report, const Progress& progress = {});

}  // namespace qx::exchange
