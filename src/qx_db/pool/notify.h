#pragma once
// Change notices: how a pool tells its session what happened, for undo, redo and refresh.

#include <cstddef>
#include <cstdint>
#include <span>

#include "qx_db/record/types.h"

namespace qx {

/// One change of one record.
struct tagTRNotify {
  static constexpr std::uint16_t kInserted = 100;
  static constexpr std::uint16_t kRemoved = 101;
  static constexpr std::uint16_t kModified = 102;

  std::uint16_t type = 0;       ///< type code of the pool
  std::uint16_t operation = 0;  ///< kInserted, kRemoved or kModified
  ITR item = 0;
  std::int32_t phase = 0;  ///< of a modification: 0 before it, 1 after it; otherwise 0
};

/// Whether, and to whom, changes are reported. Threads: the one that edits the pools.
class ChangeRecorder {
 public:
  bool IsRecording() const { return recording_; }
  /// Takes a notice. Throws std::bad_alloc, having kept nothing of it.
  virtual void PushNotify(const tagTRNotify& notice) = 0;
  /// Makes room, so that the next `count` notices of insertions or removals cannot fail.
  virtual void ReserveNotices(std::size_t count) = 0;
  /// Asked before a change that is not recorded, as long as MindsUnrecorded: while recorded ones
  /// could still be undone, or a step is being told of. False refuses the change.
  virtual bool AllowUnrecorded() = 0;
  /// Asked before records are removed unrecorded. True where a step is open, with `items` taken
  /// over: they are to be detached rather than freed, for others may refer to them until it ends.
  /// Throws std::bad_alloc, having taken none.
  virtual bool TakesRemoved(std::uint16_t type, std::span<const ITR> items) = 0;
  /// The caller has come to own a record that was removed, and to which others may refer.
  virtual void OnTakenOut() = 0;
  /// A record has another key than before, recorded or not: what belongs to it follows.
  virtual void OnNewKey(std::uint16_t type, ITR item, Key former) = 0;
  bool MindsUnrecorded() const { return minds_unrecorded_; }
  /// Whether a step is being told of: nothing may change meanwhile, the order of lists included.
  bool IsTelling() const { return telling_; }

 protected:
  ~ChangeRecorder() = default;
  bool recording_ = false;
  bool minds_unrecorded_ = false;
  bool telling_ = false;
};

}  // namespace qx
