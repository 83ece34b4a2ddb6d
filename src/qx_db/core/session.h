#pragma once
// One open model: its pools, its units, and the history of its edits.

#include <array>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "qx_db/core/journal.h"
#include "qx_db/lib/units.h"
#include "qx_db/pool/pool_base.h"

namespace qx {

class CQXDocBase;

/// What happened to a session as a whole.
enum class SessionEvent { kCommitted, kUndone, kRedone, kLoaded };

/// A host hears of finished steps here. Called after the change, with the change flags of the
/// pools still set. The session cannot be edited meanwhile: transactions do not begin, undo and
/// redo are refused. What a listener throws reaches the caller of Commit, Undo or Redo; the step
/// stays done, and the listeners behind it do not hear of it.
class QXDB_API ISessionListener {
 public:
  virtual ~ISessionListener() = default;
  /// `changes` name the records concerned, in the order of the edit; empty for kLoaded. A removed
  /// record can still be read through its iterator during the call.
  virtual void OnSessionEvent(CQXDBSession& session, SessionEvent event,
                              std::u16string_view step_name, std::span<const Change> changes) = 0;
};

/// Keeps each step before it counts: where a sink refuses, a commit is rolled back, and an undo or
/// redo does not happen.
class QXDB_API StepSink {
 public:
  virtual ~StepSink() = default;
  /// The open step, about to be committed. May set its number and time.
  virtual bool OnCommit(CQXDBSession& session, Step& step) = 0;
  /// Before the last done step is taken back, or the last undone one done again.
  virtual bool OnUndo(CQXDBSession& session) = 0;
  virtual bool OnRedo(CQXDBSession& session) = 0;
  /// After an undo or redo; where this refuses, it is reversed.
  virtual bool OnMoved(CQXDBSession& session) = 0;
  /// Records change in a way that no step tells: outside a transaction, or unrecorded.
  virtual void OnUnrecordedChange() = 0;
};

/// A session owns one pool per type code for the life of the model. Not copyable. Everything runs
/// on the thread that owns the session; nothing is locked.
class QXDB_API CQXDBSession final : public ChangeRecorder {
 public:
  /// Adds the pools of a kind of model to an empty session.
  using PoolSetup = void (*)(CQXDBSession&);

  explicit CQXDBSession(PoolSetup setup = nullptr, CQXDocBase* document = nullptr);
  ~CQXDBSession();
  CQXDBSession(const CQXDBSession&) = delete;
  CQXDBSession& operator=(const CQXDBSession&) = delete;

  // ---- pools ------------------------------------------------------------------------------------

  /// Takes a pool over, under its type code, which must be free.
  void AddPool(std::unique_ptr<DPoolBase> pool);
  /// The pool of a type code, null when there is none. Owned by the session.
  DPoolBase* GetDataPool(std::uint16_t type) const {
    return type < kDense ? dense_[type] : FindOutlier(type);
  }
  /// The same as its own type, which the caller vouches for.
  template <class P>
  P* GetPool(std::uint16_t type) const {
    return static_cast<P*>(GetDataPool(type));
  }
  /// All pools in the order they were added, in which relations are processed.
  std::span<DPoolBase* const> Pools() const { return order_; }
  PoolSetup Setup() const { return setup_; }

  CQXDocBase* GetDoc() const { return document_; }
  CQXUnitCtrl& Units() { return units_; }
  const CQXUnitCtrl& Units() const { return units_; }

  // ---- recording --------------------------------------------------------------------------------

  /// Whether transactions record their changes; on at first. Turning it off makes bulk loading
  /// cheaper and its edits final: a record removed meanwhile is freed, and references to it dangle.
  void EnableRecording(bool on);
  bool RecordingEnabled() const { return recording_enabled_; }

  void PushNotify(const tagTRNotify& notice) override;
  void ReserveNotices(std::size_t count) override { journal_.Reserve(count); }
  /// Drops the history: records it relies on may be about to be freed.
  void OnUnrecordedChange() override;

  // ---- history ----------------------------------------------------------------------------------

  bool CanUndo() const { return IsIdle() && !journal_.Done().empty(); }
  bool CanRedo() const { return IsIdle() && !journal_.Undone().empty(); }
  /// Take back the last step, or do the last undone one again, whole. 0 when there is none, a
  /// transaction is open or a step is being announced.
  int Undo();
  int Redo();
  /// Names of the steps that Undo and Redo would act on; empty when there is none.
  std::u16string_view UndoName() const;
  std::u16string_view RedoName() const;
  const Journal& History() const { return journal_; }
  void SetHistoryLimits(const HistoryLimits& limits);
  void ForgetHistory();
  /// Gives the steps without a number the next ones, from `next` on, and the time. Returns the
  /// number after the highest.
  std::int64_t NumberSteps(std::int64_t next, std::int64_t time_ms) {
    return journal_.NumberSteps(next, time_ms);
  }

  /// Has every step kept; null for none. Not owned.
  void SetStepSink(StepSink* sink);

  // ---- listeners --------------------------------------------------------------------------------

  /// Listeners are not owned and hear in the order they were added.
  void AddListener(ISessionListener* listener);
  void RemoveListener(ISessionListener* listener);

  // ---- the whole --------------------------------------------------------------------------------

  /// A 64-bit hash over the images of all records of the pools that are saved, in list order with
  /// keys for references: equal for models that a file would not tell apart.
  std::uint64_t StateHash() const;
  /// "" or the first broken invariant of any pool, by its I/O name.
  std::string Validate() const;
  /// Exchanges the records and units of two sessions with the same pools. Drops this history, and
  /// takes over the other's.
  void SwapContents(CQXDBSession& other);
  /// Tells listeners that the contents were replaced as a whole.
  void AnnounceLoaded();

 private:
  friend class CTransaction;
  friend class StepReplay;
  struct Announcement;
  static constexpr std::uint16_t kDense = 128;

  bool IsIdle() const { return depth_ == 0 && !announcing_; }
  DPoolBase* FindOutlier(std::uint16_t type) const;
  std::size_t BeginTransaction(std::u16string_view name);
  int CommitTransaction();
  void RollbackTransaction(std::size_t mark);
  int ProcessRelations();
  void Announce(SessionEvent event, const Step& step);
  void FlagChanges(const Step& step);
  void ClearFlags();
  int Replay(bool undo);
  const Step& ReplayLast(bool undo);
  void UpdateHistoryMark();

  PoolSetup setup_;
  CQXDocBase* document_;
  CQXUnitCtrl units_;
  std::array<DPoolBase*, kDense> dense_{};
  std::vector<DPoolBase*> order_;
  std::vector<std::unique_ptr<DPoolBase>> pools_;
  std::vector<ISessionListener*> listeners_;
  bool recording_enabled_ = true;
  int depth_ = 0;            // open transactions
  bool announcing_ = false;  // a step to hook and listeners
  bool forget_ = false;      // the history, once that is over
  StepSink* sink_ = nullptr;
  Journal journal_;
};

/// Called once per finished step, after relations and before the change flags are cleared. The
/// application layer installs its refresh here; null for none. Returns the former one.
using StepHook = void (*)(CQXDBSession&);
QXDB_API StepHook SetStepHook(StepHook hook);

}  // namespace qx
