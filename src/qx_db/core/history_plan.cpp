#include "qx_db/core/history_plan.h"

#include <algorithm>

#include "qx_db/core/key_forecast.h"

namespace qx {
namespace {

/// Whether the step's removed records still name the neighbours that they had in the list.
bool KnowsPlaces(const CQXDBSession& session, const Step& step) {
  return std::all_of(step.changes.begin(), step.changes.end(), [&](const Change& change) {
    return change.operation != tagTRNotify::kRemoved ||
           change.list_epoch == session.GetDataPool(change.type)->Set().ListEpoch();
  });
}

}  // namespace

HistoryPlan::HistoryPlan(const CQXDBSession& session, const Step* current,
                         const HistoryLimits& kept)
    : session_(session), kept_(kept) {
  KeyForecast keys(session);
  const auto add_done = [&](const Step& step) {
    return done_.size() < kept.steps && KnowsPlaces(session, step) && !keys.Pass(step, true) &&
           Add(done_, step, StepForm::kBackward);
  };
  if (current && !add_done(*current)) return;  // older steps do not follow without it
  const auto& done = session.History().Done();
  bool is_whole = true;
  for (std::size_t i = done.size() - (current && !done.empty() ? 1 : 0); i-- > 0 && is_whole;) {
    is_whole = add_done(done[i]);
  }
  if (current) return;  // it ends what had been undone
  const auto& undone = session.History().Undone();
  for (auto step = undone.rbegin(); step != undone.rend(); ++step) {
    // Those that are farther from the present than what had to go.
    if (!is_whole && !undone_.empty()) break;
    if (done_.size() + undone_.size() >= kept.steps) break;
    if (!Add(undone_, *step, StepForm::kForward)) break;
  }
}

/// False where a step is too much for the file; the nearest one on its side is so only where its
/// form cannot hold it.
bool HistoryPlan::Add(std::vector<PlannedStep>& to, const Step& step, StepForm form) {
  StepSize size = SizeOfStep(session_, step, form);
  if (!size.fault.empty()) return false;
  if (!to.empty() && bytes_ + size.bytes > kept_.bytes) return false;
  bytes_ += size.bytes;
  to.push_back({&step, std::move(size)});
  return true;
}

HistoryFit FitHistory(const CQXDBSession& session, const HistoryLimits& kept) {
  const HistoryPlan plan(session, nullptr, kept);
  return {plan.Done().size(), plan.Undone().size(), plan.Bytes()};
}

}  // namespace qx
