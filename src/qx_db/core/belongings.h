#pragma once
// What belongs to a record by its key, as an orientation to its element, by the rows that say so.

#include <map>
#include <span>
#include <unordered_map>
#include <vector>

#include "qx_db/core/journal.h"
#include "qx_db/pool/pool_base.h"

namespace qx {

/// The belongings of a session's records. They follow an owner to a new key at once, so that both
/// are found under it, and go with it where their row says so.
///
/// While a step exchanges keys two owners share one for a moment, and so do their belongings. Whose
/// is whose is kept for these until the step ends, whatever else changes in between.
/// Threads: as its session.
class QXDB_API Belongings {
 public:
  explicit Belongings(CQXDBSession& session) : session_(&session) {}

  /// Records of a pool, each under the key of its owner; the row is that of the key.
  struct Kind {
    DPoolBase* pool;
    const Row* row;
  };
  /// A pool is added to the session.
  void Learn(DPoolBase& pool);
  /// What belongs to records of a type, in the order of the pools.
  std::span<const Kind> Of(std::uint16_t owner_type) const;
  /// The record of a kind that belongs to the owner; 0 for none.
  ITR Find(const Kind& kind, ITR owner) const;
  /// The same for the kind of a type code; 0 too where nothing of that type belongs to others.
  ITR Find(std::uint16_t type, ITR owner) const;

  /// The owner, which has a new key, had another.
  void FollowKey(DPoolBase& owners, ITR owner, Key former);
  /// Removes what goes with the owner, which is about to be removed. 0 where a pool refuses.
  int TakeAlong(std::uint16_t owner_type, ITR owner);
  /// The owner came with its key from another model or file.
  void ComeFromElsewhere(const DPoolBase& owners, ITR owner);
  /// Who takes a key by a new number, or brings it from elsewhere, does not take what lies there
  /// without an owner: removes it, unless the step itself has touched it. Who is made under a key
  /// takes what was stored for it before. 0 where a pool refuses. Nothing without recording, where
  /// it is not known what the step touched.
  int RemoveOrphans(const Step& step);
  /// The step has ended: keys alone say what belongs to what.
  void Forget() {
    owner_of_.clear();
    found_.clear();
  }

 private:
  ITR FindAt(const Kind& kind, Key key, ITR owner) const;

  struct Orphan {
    const Kind* kind;
    std::uint16_t owner_type;
    ITR item;
  };
  CQXDBSession* session_;
  std::map<std::uint16_t, std::vector<Kind>> kinds_;  // by the owner's type
  std::unordered_map<ITR, ITR> owner_of_;             // of belongings that share a key
  std::vector<Orphan> found_;  // under a key that an owner took, and then of no other owner
};

}  // namespace qx
