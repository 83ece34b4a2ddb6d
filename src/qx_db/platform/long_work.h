#pragma once
// Long work that tells how far it has come, and that whoever waits for it can end.
// Threads: each has its own watch and its own work; helpers of ParallelFor tell nothing.

#include <chrono>
#include <cstddef>
#include <functional>

#include "qx_db/export.h"

namespace qx {

/// Somebody who waits for the library's work on this thread, from construction to destruction; an
/// inner watch takes the place of an outer one, and one that tells nobody lets work run to its end.
///
/// `tell` is called on this thread, with `pause` between two calls, with the part done, 0 to 1,
/// which never falls. What it throws ends the work as a lack of memory would: the exception reaches
/// the caller, and once its recorded transaction is rolled back the model and its file are as they
/// were; without recording, what is done stays. Undo, redo, roll-back and kept commits do not end.
class QXDB_API WorkWatch {
 public:
  using Pause = std::chrono::milliseconds;
  explicit WorkWatch(std::function<void(double)> tell, Pause pause = Pause(50));
  ~WorkWatch();
  WorkWatch(const WorkWatch&) = delete;
  WorkWatch& operator=(const WorkWatch&) = delete;

 private:
  friend class LongWork;
  std::function<void(double)> tell_;
  Pause pause_;
  std::chrono::steady_clock::time_point next_;  // when it is told again
  double told_ = 0;
  WorkWatch* outer_;
  class LongWork* outer_work_;
};

/// Work of `steps` parts, of which Step counts those that are done. Work within it is its present
/// part. Without a watch, and between two looks at the clock, a step costs an addition.
class QXDB_API LongWork {
 public:
  /// Within other work, it is `share` of that one's parts.
  explicit LongWork(std::size_t steps, std::size_t share = 1);
  ~LongWork();
  LongWork(const LongWork&) = delete;
  LongWork& operator=(const LongWork&) = delete;

  /// Throws what the watch throws.
  void Step(std::size_t parts = 1) {
    done_ += parts;
    if (done_ >= look_) Look();
  }

 private:
  static bool IsWatched();
  void Look();

  std::size_t steps_;
  std::size_t share_;
  std::size_t done_ = 0;
  std::size_t look_;  // from here on the clock is asked
  LongWork* outer_;
};

}  // namespace qx
