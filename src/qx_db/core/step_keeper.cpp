#include "qx_db/core/step_keeper.h"

#include <algorithm>
#include <utility>

#include "qx_db/core/history_plan.h"
#include "qx_db/core/step_codec.h"
#include "qx_db/lib/message.h"
#include "qx_db/platform/clock.h"
#include "qx_db/platform/file.h"
#include "qx_db/record/verbs.h"

namespace qx {
namespace {

/// Makes room for one more, so that adding it cannot fail.
void MakeRoom(std::vector<std::int64_t>& states) {
  if (states.size() == states.capacity()) states.reserve(2 * states.size() + 16);
}

/// Writes the history that goes into a file, after the pages that hold the session's state.
class HistoryWriter {
 public:
  HistoryWriter(const CQXDBSession& session, const Step* current, const HistoryLimits& kept)
      : session_(session), plan_(session, current, kept) {
    numbers_.Reset(session);
  }

  Outcome Write(StepLog& log) {
    const auto& done = plan_.Done();
    for (const PlannedStep& each : done) {
      NumberRecords(session_, *each.step, tagTRNotify::kRemoved, numbers_);
    }
    for (const PlannedStep& each : plan_.Undone()) {
      NumberRecords(session_, *each.step, tagTRNotify::kInserted, numbers_);
    }
    for (auto each = done.rbegin(); each != done.rend(); ++each) {
      Outcome written = Append(log, FrameKind::kPast, *each, StepForm::kBackward);
      if (!written) return written;
      undoable_.push_back(each->step->State());
    }
    for (const PlannedStep& each : plan_.Undone()) {
      Outcome written = Append(log, FrameKind::kCommit, each, StepForm::kForward);
      if (!written) return written;
      redoable_.insert(redoable_.begin(), each.step->State());
    }
    for (std::size_t i = 0; i < redoable_.size(); ++i) {
      Outcome written = log.Append(FrameKind::kUndo, NowMs(), {}, false);
      if (!written) return written;
    }
    return {};
  }
  StepNumbers& Numbers() { return numbers_; }
  /// The steps that the file can take back, and do again, as StepKeeper has them.
  std::vector<std::int64_t>& Undoable() { return undoable_; }
  std::vector<std::int64_t>& Redoable() { return redoable_; }

 private:
  Outcome Append(StepLog& log, FrameKind kind, const PlannedStep& planned, StepForm form) {
    const auto encode = [&](FrameSink& out) {
      EncodeStep(session_, *planned.step, form, numbers_, planned.size, out);
    };
    return log.Append(kind, planned.step->time_ms, {planned.size.bytes, encode}, false);
  }

  const CQXDBSession& session_;
  const HistoryPlan plan_;
  StepNumbers numbers_;
  std::vector<std::int64_t> undoable_, redoable_;
};

}  // namespace

StepKeeper::StepKeeper(CQXDBSession& session, const std::string& path,
                       std::unique_ptr<ModelLock> lock, const DurabilityOptions& options)
    : session_(session), path_(LinkTarget(path)), lock_(std::move(lock)), options_(options) {
  session_.SetStepSink(this);
  StartTimer();
}

StepKeeper::~StepKeeper() {
  StopTimer();
  session_.SetStepSink(nullptr);
  // What fails here was acknowledged as durable before, or was not to be durable yet.
  if (log_) [[maybe_unused]]
    const Outcome closed = log_->Close();
}

void StepKeeper::SetOptions(const DurabilityOptions& options) {
  StopTimer();
  options_ = options;
  StartTimer();
}

void StepKeeper::GoOn(ModelContinuation& continuation) {
  const std::lock_guard guard(mutex_);
  log_ = std::move(continuation.log);
  if (continuation.numbers) numbers_ = std::move(*continuation.numbers);
  behind_ = log_ == nullptr;
  next_number_ = session_.NumberSteps(next_number_, NowMs());
  const auto states_of = [](const auto& steps) {
    std::vector<std::int64_t> states;
    for (const Step& step : steps) states.push_back(step.State());
    return states;
  };
  undoable_ = states_of(session_.History().Done());
  redoable_ = states_of(session_.History().Undone());
  LearnOrder();
}

/// Tells without a look into the file what is in it.
std::string StepKeeper::PathOfStepsFrom(std::int64_t state) const {
  const auto has = [&](const std::vector<std::int64_t>& states) {
    return std::find(states.begin(), states.end(), state) != states.end();
  };
  return !behind_ && (has(undoable_) || has(redoable_)) ? path_ : std::string();
}

// ---- the order of the lists ---------------------------------------------------------------------

StepKeeper::Keeping StepKeeper::HowToKeep() {
  const std::lock_guard guard(mutex_);
  // A file that was removed is written anew; one that was replaced refuses what is appended.
  if (behind_ || !log_ || log_->SyncFailed() || !OrderIsKnown() ||
      log_->Look() == StepLog::Place::kGone) {
    return Keeping::kFold;
  }
  const std::size_t most = std::max(options_.log_bytes, 2 * session_.KeptHistory().bytes);
  return log_->Bytes() > most ? Keeping::kFoldIfPossible : Keeping::kAppend;
}

ModelStamp StepKeeper::Stamp() {
  const std::lock_guard guard(mutex_);
  return log_ ? ModelStamp{log_->Id(), log_->Sequence()} : ModelStamp{};
}

bool StepKeeper::OrderIsKnown() const {
  const auto pools = session_.Pools();
  if (pools.size() != list_epochs_.size()) return false;
  for (std::size_t i = 0; i < pools.size(); ++i) {
    if (pools[i]->Set().ListEpoch() != list_epochs_[i] && pools[i]->NeedSaveNLoad()) return false;
  }
  return true;
}

void StepKeeper::LearnOrder() {
  list_epochs_.clear();
  for (const DPoolBase* pool : session_.Pools()) list_epochs_.push_back(pool->Set().ListEpoch());
}

// ---- writing anew -------------------------------------------------------------------------------

Outcome StepKeeper::Save() {
  next_number_ = session_.NumberSteps(next_number_, NowMs());
  return Fold(nullptr, session_.KeptHistory());
}

Outcome StepKeeper::SaveWithoutHistory() { return Fold(nullptr, {0, 0}); }

/// Writes pages and history as of now; `current` is a step whose changes are made already.
Outcome StepKeeper::Fold(const Step* current, const HistoryLimits& kept) {
  // The history leads to the state before an open step, the pages would hold one amid it.
  if (!current && session_.History().IsOpen()) {
    return Failure{path_, "", "a step is open", "commit it or roll it back, then save"};
  }
  if (log_ && log_->Look() == StepLog::Place::kReplaced) return log_->CheckName();
  HistoryWriter history(session_, current, kept);
  std::unique_ptr<StepLog> log;
  list_epochs_.reserve(session_.Pools().size());
  // Until it is known which of the files has the name, only another such save is safe.
  const bool was_behind = std::exchange(behind_, true);
  Outcome written;
  try {
    written = WriteModel(
        session_, path_, [&](StepLog& steps) { return history.Write(steps); }, &log);
  } catch (...) {
    if (log_ && !log) behind_ = was_behind;
    throw;
  }
  const std::lock_guard guard(mutex_);
  if (!written && !log) {  // the old file still has its name
    if (log_) behind_ = was_behind;
    return written;
  }
  log_ = std::move(log);
  if (!written) return written;  // the new one has it, but not durably
  numbers_ = std::move(history.Numbers());
  undoable_.swap(history.Undoable());
  redoable_.swap(history.Redoable());
  LearnOrder();
  behind_ = false;
  if (kept.steps > 0) TellOfLetGo(undoable_.size());
  return written;
}

/// Tells of the steps done of which the file keeps only the last; of none twice.
void StepKeeper::TellOfLetGo(std::size_t kept) {
  const auto& done = session_.History().Done();
  if (done.size() <= kept) return;
  const std::int64_t newest = done[done.size() - kept - 1].number;
  const auto is_news = [&](const Step& step) {
    return step.number > last_let_go_ && step.number <= newest;
  };
  const auto count = std::count_if(done.begin(), done.end(), is_news);
  last_let_go_ = std::max(last_let_go_, newest);
  if (count == 0) return;
  const HistoryLimits& limits = session_.KeptHistory();
  qxMsgOut(
      Severity::kInfo, "IDS_QX_HISTORY_LET_GO",
      {path_, std::to_string(count), std::to_string(limits.steps), std::to_string(limits.bytes)});
}

// ---- steps --------------------------------------------------------------------------------------

bool StepKeeper::Report(Outcome outcome) {
  fault_ = std::move(outcome);
  if (fault_) return true;
  qxMsgOut(Severity::kError, "IDS_QX_STEP_NOT_KEPT", {fault_.Line()});
  return false;
}

Outcome StepKeeper::Append(FrameKind kind, std::int64_t time_ms, const FramePayload& payload) {
  const std::lock_guard guard(mutex_);
  return log_->Append(kind, time_ms, payload, options_.durability == Durability::kEveryStep);
}

Outcome StepKeeper::AppendStep(const Step& step) {
  for (const DPoolBase* pool : session_.Pools()) {
    if (!pool->HasChanged(DPoolBase::kModifiedFlag) || !pool->Set().MayShareKeys()) continue;
    for (const Change& change : step.changes) {
      if (change.type != pool->GetTypeCode() || KeyedSetBase::IsRemoved(change.item)) continue;
      if (pool->Find(KeyOf(change.item)) == change.item) continue;
      return Failure{path_, pool->GetAPIName().ToUtf8() + " " + std::to_string(KeyOf(change.item)),
                     "two records share the key", "renumber one of them"};
    }
  }
  Outcome done;
  MakeRoom(undoable_);
  NumberRecords(session_, step, tagTRNotify::kInserted, numbers_);
  const auto take_numbers_back = [&] {
    for (std::size_t i = step.changes.size(); i-- > 0;) {
      const DPoolBase& pool = *session_.GetDataPool(step.changes[i].type);
      if (step.changes[i].operation == tagTRNotify::kInserted && pool.NeedSaveNLoad()) {
        numbers_.TakeBack(pool);
      }
    }
  };
  try {
    const StepSize size = SizeOfStep(session_, step, StepForm::kForward);
    const auto encode = [&](FrameSink& out) {
      EncodeStep(session_, step, StepForm::kForward, numbers_, size, out);
    };
    done = size.fault.empty() ? Append(FrameKind::kCommit, step.time_ms, {size.bytes, encode})
                              : Outcome(Failure{path_, "the step", size.fault, "split the record"});
  } catch (...) {
    take_numbers_back();
    throw;
  }
  if (!done) {
    take_numbers_back();
    return done;
  }
  undoable_.push_back(step.State());
  redoable_.clear();
  return done;
}

/// Writes the file anew where that is due. `append` tells whether the step is yet to be appended.
Outcome StepKeeper::FoldFirst(const Step* current, bool& append) {
  const Keeping keeping = HowToKeep();
  append = keeping == Keeping::kAppend;
  // Going back and forth is no reason to let steps go.
  if (!current && keeping == Keeping::kFoldIfPossible) {
    append = FitHistory(session_, session_.KeptHistory()).done < session_.History().Done().size();
  }
  if (append) return {};
  Outcome folded = Fold(current, session_.KeptHistory());
  append = !folded && keeping == Keeping::kFoldIfPossible && !behind_;
  return folded;
}

bool StepKeeper::OnCommit(CQXDBSession&, Step& step) {
  step.number = next_number_;
  step.time_ms = NowMs();
  if (options_.durability == Durability::kOnSave) {
    behind_ = true;
  } else {
    bool append = false;
    Outcome kept = FoldFirst(&step, append);
    if (append) kept = AppendStep(step);
    if (!Report(std::move(kept))) return false;
  }
  ++next_number_;
  return true;
}

bool StepKeeper::AppendMove(FrameKind kind, std::vector<std::int64_t>& from,
                            std::vector<std::int64_t>& to) {
  move_unwritten_ = false;
  if (options_.durability == Durability::kOnSave) return behind_ = true;
  bool append = false;
  if (Outcome folded = FoldFirst(nullptr, append); !folded && !append) {
    return Report(std::move(folded));
  }
  // A step that memory still has, but no longer the file: its outcome is written as a whole.
  if (from.empty()) return move_unwritten_ = true;
  MakeRoom(to);
  if (!Report(Append(kind, NowMs(), {}))) return false;
  to.push_back(from.back());
  from.pop_back();
  return true;
}

bool StepKeeper::OnUndo(CQXDBSession&) {
  return AppendMove(FrameKind::kUndo, undoable_, redoable_);
}

bool StepKeeper::OnRedo(CQXDBSession&) {
  return AppendMove(FrameKind::kRedo, redoable_, undoable_);
}

bool StepKeeper::OnMoved(CQXDBSession&) {
  return !std::exchange(move_unwritten_, false) || Report(Fold(nullptr, session_.KeptHistory()));
}

// ---- intervals ----------------------------------------------------------------------------------

Outcome StepKeeper::Flush() {
  if (HowToKeep() == Keeping::kFold) return Fold(nullptr, session_.KeptHistory());
  const std::lock_guard guard(mutex_);
  Outcome synced = log_->Sync();
  return synced ? log_->CheckName() : synced;
}

void StepKeeper::StartTimer() {
  if (options_.durability != Durability::kInterval) return;
  stop_ = false;
  timer_ = std::thread([this] { SyncAtIntervals(); });
}

void StepKeeper::StopTimer() {
  if (!timer_.joinable()) return;
  {
    const std::lock_guard guard(mutex_);
    stop_ = true;
  }
  wake_.notify_all();
  timer_.join();
}

void StepKeeper::SyncAtIntervals() {
  std::unique_lock guard(mutex_);
  while (!wake_.wait_for(guard, options_.interval, [this] { return stop_; })) {
    // Where it fails, the log remembers, and the next step writes all anew.
    if (log_) [[maybe_unused]]
      const Outcome synced = log_->Sync();
  }
}

}  // namespace qx
