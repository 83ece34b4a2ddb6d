#pragma once
// What has changed since a state that somebody knows.

#include <cstdint>
#include <optional>
#include <vector>

#include "qx_db/core/session.h"

namespace qx {

/// What became of one record, whatever happened to it in between.
struct RecordChange {
  std::uint16_t type = 0;       ///< type code of its pool
  std::uint16_t operation = 0;  ///< as in tagTRNotify
  ITR item = 0;                 ///< a removed record can be read until the history drops it
  /// Of a modified record the rows that differ, in member order; references by what they refer to.
  std::vector<const Row*> members = {};
};

/// The changes of a session's records since the state that CQXDBSession::State named `state`, each
/// record once, in the order in which they were first concerned: inserted, removed, or modified and
/// not as before. Steps done, undone and redone since are in the history, or were read with it from
/// the file whose log has them, so that a number remembered from an earlier run of a program serves
/// as well, as long as it is positive. Nothing where the history no longer leads there, or a
/// transaction is open: then all is to be read anew. Cost proportional to the steps in between.
/// Threads: the one that drives the session.
QXDB_API std::optional<std::vector<RecordChange>> ChangesSince(const CQXDBSession& session,
                                                               std::int64_t state);

/// The same of the open step, from the change on that is its `from`th (Journal::Mark).
std::vector<RecordChange> ChangesOfOpenStep(const CQXDBSession& session, std::size_t from);

}  // namespace qx
