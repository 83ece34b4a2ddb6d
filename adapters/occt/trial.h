#pragma once
// Trying work on outside data where its failure does no harm. For the .cpp files of this folder.
// Threads: any.

#include <functional>

namespace qx::occt {

/// What came of a trial: the work's own answer, or that it crashed or went on for too long.
struct TrialResult {
  bool ended = false;
  int answer = 0;  ///< when it ended
};

/// Runs `work` in a child of this process, silently, for at most so many seconds of processor time.
/// The answer is from 0 to 100. Where processes cannot be split the work runs here.
TrialResult Try(const std::function<int()>& work, unsigned seconds);

}  // namespace qx::occt
