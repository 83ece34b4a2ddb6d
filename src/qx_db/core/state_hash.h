#pragma once
// The hash that tells two states of a model apart (CQXDBSession::StateHash), for who has the images
// of the records in hand, and what is known of it already.
// Threads: a hasher is one thread's; what is remembered is guarded, any.

#include <cstdint>
#include <memory>
#include <span>

#include "qx_db/core/session.h"

namespace qx {

/// Takes what a state consists of in the order that the hash has: the units, then the pools by
/// ascending type code, each with the images of its records (image_stream.h) in list order.
class StateHasher {
 public:
  explicit StateHasher(const CQXUnitCtrl& units);
  ~StateHasher();
  /// The images of `records` of a pool follow. One without records is passed over, and so must be
  /// one that is not saved.
  void BeginPool(std::uint16_t type, std::int32_t records);
  void AddImage(std::span<const char> image);
  std::uint64_t Digest() const;

 private:
  struct State;
  std::unique_ptr<State> state_;
};

/// StateHash of the session, from memory where neither its units nor the revision of a pool have
/// changed since this was asked. It remembers a few states of the process. Who tests whether
/// something has been changed past the revisions asks StateHash, which looks at every record.
QXDB_API std::uint64_t KnownStateHash(const CQXDBSession& session);

}  // namespace qx
