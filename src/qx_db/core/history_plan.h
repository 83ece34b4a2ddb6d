#pragma once
// Which steps of a history a model file keeps.
// Threads: reads the session, on the thread that drives it.

#include <cstddef>
#include <cstdint>
#include <vector>

#include "qx_db/core/session.h"
#include "qx_db/core/step_codec.h"

namespace qx {

/// A step with what it takes in the file.
struct PlannedStep {
  const Step* step;
  StepSize size;
};

/// The steps of a session that go into its file, nearest to the present first: those that can be
/// undone, and those that can be redone. It begins where two records shared a key, or where the
/// list of a pool was sorted since, neither of which a file can hold. `current` is a step whose
/// changes are made already, and for which there is a place at the end of the history. Cost
/// proportional to the changes of the steps kept.
class HistoryPlan {
 public:
  HistoryPlan(const CQXDBSession& session, const Step* current, const HistoryLimits& kept);
  const std::vector<PlannedStep>& Done() const { return done_; }
  const std::vector<PlannedStep>& Undone() const { return undone_; }
  std::uint64_t Bytes() const { return bytes_; }

 private:
  bool Add(std::vector<PlannedStep>& to, const Step& step, StepForm form);

  const CQXDBSession& session_;
  const HistoryLimits kept_;
  std::vector<PlannedStep> done_, undone_;
  std::uint64_t bytes_ = 0;
};

/// What a file of the session would keep of its history, saved now within such limits.
struct HistoryFit {
  std::size_t done = 0, undone = 0;  ///< steps, the nearest to the present
  std::uint64_t bytes = 0;           ///< that these take
};
QXDB_API HistoryFit FitHistory(const CQXDBSession& session, const HistoryLimits& kept);

}  // namespace qx
