#pragma once
// A session as Nastran bulk data.
// Threads: functions from any; a session given is read or filled as transfer.h says.

#include "exchange/format.h"

namespace qx::exchange {

/// Writes nodes, elements, properties, materials and coordinate systems in current units. A model
/// that came from a deck goes back as that deck: cards of which nothing changed keep their text,
/// and so do comments, control decks and cards that the model has no place for, with the numbers
/// that their nodes and elements have now; changed ones are written anew in their place, new ones
/// at the end of the bulk data. `report` tells what has no place. Fails, too, when a number in the
/// model is none, or greater than those of the format and not so in the deck that came. The file is
/// complete or not there.
Outcome WriteNastran(CQXDBSession& session, const std::string& path, const WriteOptions& options,
                     LossReport& report);

/// The text of that deck; `path` stands for it in messages.
Result<std::string> NasDeckText(CQXDBSession& session, const std::string& path, LossReport& report,
                                const Progress& progress = {});

/// Tells what a deck that the model came from says and the model has no place for: a file of
/// another format does not have it.
void TellNasText(CQXDBSession& session, LossReport& report);

}  // namespace qx::exchange
