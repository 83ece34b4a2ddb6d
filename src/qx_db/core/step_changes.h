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
  Key key = 0;  ///< that it has, or had when it was removed
};

/// What has changed of a model.
struct ModelChanges {
  std::vector<RecordChange>
      records;         ///< each once, in the order in which they were concerned first
  bool units = false;  ///< whether they are others
  bool IsEmpty() const { return records.empty() && !units; }
};

/// The changes of a session since the state that CQXDBSession::State named `state`, however many
/// steps were done, undone and redone since: records that were inserted, removed, or modified and
/// are not as before, and the units. A name remembered from an earlier run of a program serves as
/// well, as long as it is positive. Nothing where no way is known from there, or a transaction is
/// open: then all is to be read anew.
///
/// Cost proportional to the steps in between, as long as the history has them, and to those it has
/// where nobody knows the state. Of a session whose steps are kept in a file, those that the
/// history has dropped are read from there, at the cost of opening it; a removed record then has
/// the position 0, and only its key tells of it. Threads: the one that drives the session.
QXDB_API std::optional<ModelChanges> ChangesSince(const CQXDBSession& session, std::int64_t state);

/// The same of the open step, from the change on that is its `from`th (Journal::Mark).
std::vector<RecordChange> ChangesOfOpenStep(const CQXDBSession& session, std::size_t from);

}  // namespace qx
