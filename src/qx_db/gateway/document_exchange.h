#pragma once
// Whole documents: every table at once, and the JSON Schema of them all.
// Threads: as the session: the one that drives it, to write out any number that only read.

#include <span>
#include <string>

#include "qx_db/core/session.h"
#include "qx_db/gateway/document.h"

namespace qx {

/// Reads the tables of the pools (all of the session's when none are given) as one undoable step.
/// Records that refer to each other may stand in any order: first every new record is made, then
/// all are filled. A strict document is refused, and everything rolled back, for whatever would be
/// reported. The document's report holds what was told.
QXDB_API Outcome ReadDocument(CQXDBSession& session, dbgateway::DataBase& document,
                              std::span<DPoolBase* const> pools = {});

/// Applies the deletion tables of the pools, last pool first, as one undoable step.
QXDB_API Outcome ApplyDeletions(CQXDBSession& session, dbgateway::DataBase& document,
                                std::span<DPoolBase* const> pools = {});

/// Writes the tables of the pools, all that are not empty when none are given. Fails where one
/// could not be written, because two of its records share a key, and is left out; the report tells
/// of each.
[[nodiscard]] QXDB_API Outcome WriteDocument(CQXDBSession& session, dbgateway::DataBase& document,
                                             std::span<DPoolBase* const> pools = {});

/// The JSON Schema (draft 4) of the gateway document of a session's pools, as an indented text.
QXDB_API std::string GatewayJsonSchema(const CQXDBSession& session);

}  // namespace qx
