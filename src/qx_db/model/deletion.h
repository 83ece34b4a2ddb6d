#pragma once
// What a deletion would do, told before anything happens; deleting; and where a record is used.
//
// A preview is the deletion itself, rehearsed (core/rehearsal.h) and read from the journal. Where a
// record is used rests on the reference index of the element pool, which turns the references of a
// pool round once and keeps that until the pool changes; a question then costs what its answer is
// long.
// Threads: the one that drives the session; previews and uses keep an index in it, so that on a
// snapshot, too, they are for one at a time.

#include <functional>
#include <span>
#include <string>
#include <vector>

#include "qx_db/model/standard_pools.h"

namespace qx {

/// What happens to one record.
enum class Effect {
  kRemoved,
  kReset,    ///< an orientation goes back to the default of the edition
  kChanged,  ///< a reference to something removed is cleared, or leaves its list
};

/// One consequence of a deletion.
struct Consequence {
  std::uint16_t type = 0;  ///< type code of the record's pool
  ITR item = 0;
  Effect effect = Effect::kRemoved;
  /// The member that refers to what was removed, or that changes; null for what was asked for, and
  /// for what goes because it is keyed by another record.
  const Row* row = nullptr;
  std::uint16_t cause_type = 0;  ///< the removed record that brings it about; 0 when asked for
  ITR cause = 0;
};

/// A reason why a deletion would be refused: the key of the text that the user sees, and its
/// arguments.
struct Blocker {
  std::string text;
  std::vector<std::string> arguments;
  friend bool operator==(const Blocker&, const Blocker&) = default;
};

/// An element whose local axes an edit turns, because its orientation or special property goes, or
/// loses what it refers to. Rows are the unit vectors of local x, y and z.
struct Turn {
  ITR element = 0;
  bool has_axes = false;  ///< before; where it had none, these are zero
  bool will_have_axes = false;
  double before[3][3] = {};
  double after[3][3] = {};
};

struct QXDB_API DeletionPreview {
  /// A record appears once as removed or reset, or once for each changed member. Those asked for
  /// come first; causes come before what they bring about.
  std::vector<Consequence> consequences;
  std::vector<Blocker> blockers;
  /// The elements that it turns, each once.
  std::vector<Turn> turns;

  /// The removed records of a pool.
  std::vector<ITR> Removed(std::uint16_t type) const;
};

/// What DeleteRecords would do, by a rehearsal: no trace is left, but nobody else may use the
/// session meanwhile. Records that are null or removed already are passed over. In an open step
/// that is what would follow at its end and would not without the deletion. Cost: that of the
/// deletion, a few times over at most, and in an open step that of ending it.
QXDB_API DeletionPreview PreviewDeletion(const CQXDBSession& session, std::uint16_t type,
                                         std::span<const ITR> items);

/// An edit of a session; 0 where it fails.
using SessionEdit = std::function<int(CQXDBSession&)>;

/// The elements that would stay and be turned by an edit, whatever else it does: all that deletes
/// asks here, or a preview, before it does so. By a rehearsal, as above.
QXDB_API std::vector<Turn> TurnsOf(const CQXDBSession& session, const SessionEdit& edit);

/// Whether the orientations of the elements that stay allow a deletion: 0, with a message, where it
/// takes the reference node of one.
QXDB_API int CheckDeletion(const CQXDBSession& session, std::uint16_t type,
                           std::span<const ITR> items);

/// Deletes records with their consequences as one step; mesh sets together with those of their
/// nodes and elements that no other set holds. 0, with a message and nothing changed, when a rule
/// refuses.
QXDB_API int DeleteRecords(CQXDBSession& session, std::uint16_t type, std::span<const ITR> items);

/// One use of a record: by the member `row` of the record `item`; a null row for a record that is
/// keyed by it.
struct Use {
  std::uint16_t type = 0;
  ITR item = 0;
  const Row* row = nullptr;
};

/// Every use of a record, pool by pool.
QXDB_API std::vector<Use> WhereUsed(const CQXDBSession& session, std::uint16_t type, ITR item);

}  // namespace qx
