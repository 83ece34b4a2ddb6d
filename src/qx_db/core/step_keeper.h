#pragma once
// Keeps every step of a session in its model file.

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "qx_db/core/model_file.h"
#include "qx_db/core/model_lock.h"
#include "qx_db/core/session.h"
#include "qx_db/core/step_log.h"
#include "qx_db/core/step_numbers.h"

namespace qx {

/// When a step is on the device.
enum class Durability {
  kEveryStep,  ///< when Commit, Undo or Redo returns
  kInterval,   ///< within the interval given
  kOnSave,     ///< when the model is saved
};

struct DurabilityOptions {
  Durability durability = Durability::kEveryStep;
  std::chrono::milliseconds interval{1000};
  /// Steps behind the pages from which on the next one writes the file anew, as a save does; at
  /// least twice the history that the model keeps (CQXDBSession::KeptHistory).
  std::size_t log_bytes = std::size_t{256} << 20;
};

/// The sink of a session whose model file it has the right to write. A step that cannot be kept
/// is refused; Fault() says why.
///
/// Threads: the one that drives the session; a timer of its own only puts on the device what has
/// been appended.
///
/// Invariant: unless `behind_`, the file's pages and steps give the session's state and history.
class QXDB_API StepKeeper final : public StepSink {
 public:
  StepKeeper(CQXDBSession& session, const std::string& path, std::unique_ptr<ModelLock> lock,
             const DurabilityOptions& options);
  /// Makes everything durable and leaves the file.
  ~StepKeeper() override;
  StepKeeper(const StepKeeper&) = delete;
  StepKeeper& operator=(const StepKeeper&) = delete;

  /// Goes on with the file as it was loaded; without a log in it, the next step writes it anew.
  void GoOn(ModelContinuation& continuation);
  /// Writes the file anew with the steps folded in, and of the history what the model keeps
  /// (FitHistory tells beforehand); of steps that go a message tells. Fails, as all writing anew
  /// does, while a transaction is open.
  Outcome Save();
  /// The same without a history.
  Outcome SaveWithoutHistory();
  /// Puts steps that wait for their interval on the device.
  Outcome Flush();

  const std::string& Path() const { return path_; }
  /// The state of the file as this keeper left it.
  ModelStamp Stamp();
  const std::string& StaleLock() const { return lock_->Stale(); }
  /// What refused the last step; success when it was kept.
  const Outcome& Fault() const { return fault_; }
  void SetOptions(const DurabilityOptions& options);
  const DurabilityOptions& Options() const { return options_; }

  bool OnCommit(CQXDBSession& session, Step& step) override;
  bool OnUndo(CQXDBSession& session) override;
  bool OnRedo(CQXDBSession& session) override;
  bool OnMoved(CQXDBSession& session) override;
  void OnUnrecordedChange() override { behind_ = true; }
  std::string PathOfStepsFrom(std::int64_t state) const override;

 private:
  bool Report(Outcome outcome);
  /// What has to be done to keep a step.
  enum class Keeping {
    kAppend,
    kFoldIfPossible,  ///< the log has outgrown its bound; appending does as well
    kFold,
  };
  Keeping HowToKeep();
  Outcome FoldFirst(const Step* current, bool& append);
  bool OrderIsKnown() const;
  void LearnOrder();
  Outcome Fold(const Step* current, const HistoryLimits& kept);
  void TellOfLetGo(std::size_t kept);
  Outcome AppendStep(const Step& step);
  bool AppendMove(FrameKind kind, std::vector<std::int64_t>& from, std::vector<std::int64_t>& to);
  Outcome Append(FrameKind kind, std::int64_t time_ms, const FramePayload& payload);
  void SyncAtIntervals();
  void StartTimer();
  void StopTimer();

  CQXDBSession& session_;
  std::string path_;
  std::unique_ptr<ModelLock> lock_;
  DurabilityOptions options_;
  std::unique_ptr<StepLog> log_;
  StepNumbers numbers_;
  std::vector<std::uint32_t> list_epochs_;  // of the session's pools, as the file knows them
  bool behind_ = true;
  bool move_unwritten_ = false;  // the file lacks the step that is undone or redone
  // The names of the states that the steps lead to which the file can take back, oldest first, and
  // do again, the next one last.
  std::vector<std::int64_t> undoable_, redoable_;
  std::int64_t next_number_ = 1;
  std::int64_t last_let_go_ = 0;  // the number of the newest step of which it was told
  Outcome fault_;

  std::mutex mutex_;  // guards log_ against the timer
  std::condition_variable wake_;
  bool stop_ = false;
  std::thread timer_;
};

}  // namespace qx
