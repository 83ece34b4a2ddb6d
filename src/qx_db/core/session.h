#pragma once
// One open model: its pools, its units, and the history of its edits.

#include <array>
#include <exception>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "qx_db/core/journal.h"
#include "qx_db/lib/units.h"
#include "qx_db/pool/pool_base.h"

namespace qx {

class Belongings;
class CQXDocBase;
class Relations;

/// What happened to a session as a whole.
enum class SessionEvent {
  kCommitted,
  kUndone,
  kRedone,
  kLoaded,
  /// An outermost transaction that had changed something, or of which nothing is left but what one
  /// inside it had changed and taken back.
  kRolledBack,
};

/// A host hears of finished steps here, on the thread that drives the session. Called after the
/// change, with the change flags of the pools still set. The session cannot be edited meanwhile:
/// transactions do not begin, undo and redo, loading, and every change of a pool or of the units
/// are refused. What a listener throws reaches the caller of Commit, Rollback, Undo or Redo, once
/// all have heard; where several throw, the first; from the end of a transaction by its destructor,
/// nobody. The step stays done.
class QXDB_API ISessionListener {
 public:
  virtual ~ISessionListener() = default;
  /// `changes` name the records concerned, in the order of the edit, also where they were taken
  /// back; empty for kLoaded. Not among them is what an inner transaction took back before: those
  /// records are gone, and only the change flags of their pools tell of them. A removed record can
  /// still be read through its iterator during the call.
  virtual void OnSessionEvent(CQXDBSession& session, SessionEvent event,
                              std::u16string_view step_name, std::span<const Change> changes) = 0;
};

/// Somebody who shows a session, as the selection lists do: see CQXDBSession::AddView.
class QXDB_API SessionView {
 public:
  /// The session ends. It has taken the view off.
  virtual void OnSessionEnd() = 0;

 protected:
  ~SessionView() = default;
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
  /// The file that has every step from the state of that name, as Step::State gives it, to the
  /// session's present one; "" where none has.
  virtual std::string PathOfStepsFrom(std::int64_t /*state*/) const { return {}; }
};

/// The units of a session. Changed in a transaction that records, they are part of its step, and
/// undone and redone with it. Outside of one a change is a step of its own, once the model has
/// records, a history or a file that keeps its steps; before, it is of no step, as by who has yet
/// to fill the model. Refused while the session tells of a step. Who needs other current units for
/// a while makes both changes in one transaction, or, to read only, takes UnitsShown.
class QXDB_API SessionUnits final : public CQXUnitCtrl {
 public:
  SessionUnits(const SessionUnits&) = delete;
  void SetModel(const UnitSystem& system) override;
  void SetCurrent(const UnitSystem& system) override;
  SessionUnits& operator=(const CQXUnitCtrl& units) override;
  SessionUnits& operator=(const SessionUnits& units) {
    return *this = static_cast<const CQXUnitCtrl&>(units);
  }

 private:
  friend class CQXDBSession;
  explicit SessionUnits(CQXDBSession& session) : session_(session) {}
  bool AreDeclared() const;
  void Change(const CQXUnitCtrl& changed);
  CQXDBSession& session_;
};

class CTransaction;

/// Shows the numbers of a session in other current units for as long as it lives, to who writes
/// them out. The model keeps its own: this is no step, what is saved meanwhile has those, and
/// nothing can be edited. Of several the one made last is seen; they may end in any order, and
/// after the session. Threads: as who edits the session.
class QXDB_API UnitsShown {
 public:
  UnitsShown(CQXDBSession& session, const UnitSystem& current);
  ~UnitsShown();
  UnitsShown(const UnitsShown&) = delete;
  UnitsShown& operator=(const UnitsShown&) = delete;

 private:
  friend class CQXDBSession;
  CQXDBSession* session_;  // null once it has ended
  const UnitSystem current_;
};

/// A session owns one pool per type code for the life of the model. Not copyable.
///
/// Threads: nothing is locked. One thread at a time drives a session: edits, steps, undo, loading.
/// While none changes it, any number of threads may read it: what is const here and in its pools,
/// StateHash, Validate, SaveModel, TakeSnapshot, the gateway out, a DenseMesh. Exports of mesh
/// files and the lists of CQXMeshUtil mark records, and are for one thread at a time. Sessions
/// share nothing that is written: a snapshot may be read, exported, checked and saved by one thread
/// while its original is edited by another, and many snapshots by as many. The callback interfaces
/// and the selection lists hear on the thread that drives the session; lists are of the user
/// interface, and so must be the sessions that they are bound to. Of a session that no list is
/// bound to they know nothing.
class QXDB_API CQXDBSession final : public ChangeRecorder {
 public:
  /// Adds the pools of a kind of model to an empty session.
  using PoolSetup = void (*)(CQXDBSession&);

  explicit CQXDBSession(PoolSetup setup = nullptr, CQXDocBase* document = nullptr);
  ~CQXDBSession();
  CQXDBSession(const CQXDBSession&) = delete;
  CQXDBSession& operator=(const CQXDBSession&) = delete;

  // ---- pools ------------------------------------------------------------------------------------

  /// Takes a pool over, under its type code. 0 refuses one whose code is taken or whose records
  /// have a schema with a fault; SetupFault() tells it.
  int AddPool(std::unique_ptr<DPoolBase> pool);
  /// Why the first pool that was refused was; "" when none was. A session that lacks a pool opens
  /// and saves no model.
  const std::string& SetupFault() const { return setup_fault_; }
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
  SessionUnits& Units() { return units_; }
  const CQXUnitCtrl& Units() const { return units_; }
  /// The same, whatever UnitsShown shows: those that are saved with the model.
  const CQXUnitCtrl& OwnUnits() const { return shown_.empty() ? units_ : own_units_; }
  /// Makes `current` the units that users see, as one undoable step or as part of the open one. 0,
  /// changing nothing, where it is no unit system, or a step is being told of.
  int ChangeUnits(const UnitSystem& current);

  // ---- recording --------------------------------------------------------------------------------

  /// Whether transactions record their changes; on at first. Turning it off makes bulk loading
  /// cheaper and its edits final: a record removed meanwhile is freed. References to it are cleared
  /// where that is within a transaction, at its end; otherwise they dangle.
  void EnableRecording(bool on);
  bool RecordingEnabled() const { return recording_enabled_; }

  void PushNotify(const tagTRNotify& notice) override;
  void ReserveNotices(std::size_t count) override { journal_.Reserve(count); }
  /// Drops the history: records it relies on may be about to be freed. Refuses, while a step is
  /// being told of.
  bool AllowUnrecorded() override;
  bool TakesRemoved(std::uint16_t type, std::span<const ITR> items) override;
  void OnTakenOut() override;

  void OnNewKey(std::uint16_t type, ITR item, Key former) override;

  // ---- what follows -----------------------------------------------------------------------------

  /// What belongs to records by their keys.
  Belongings& Owned() { return *belongings_; }
  const Belongings& Owned() const { return *belongings_; }
  /// What the rows say of the open step.
  Relations& Follow() { return *relations_; }
  /// Whether the relations of a step are being processed.
  bool IsProcessingRelations() const { return round_ > 0; }
  /// In which round, from 1 on; 0 while they are not. They are processed again while repairs cause
  /// others.
  int RelationRound() const { return round_; }
  /// Whether a step is only rehearsed, to be taken back: rules that would refuse it say so and let
  /// it go on.
  bool IsRehearsing() const { return rehearsing_; }

  // ---- history ----------------------------------------------------------------------------------

  /// Whether Undo and Redo would act, as far as the session decides that: who keeps the steps may
  /// still refuse. Constant time, but where two records of a pool have shared a key: then as what
  /// the step changed there.
  bool CanUndo() const { return CanReplay(true); }
  bool CanRedo() const { return CanReplay(false); }
  /// Take back the last step, or do the last undone one again, whole. 0 when there is none, a
  /// transaction is open or a step is being announced; or when it would lead to two records with
  /// one key, of which a message tells.
  int Undo();
  int Redo();
  /// Whether a transaction is open, or a step is being told of.
  bool IsBusy() const { return innermost_ != nullptr || telling_; }
  /// Names the present state of the model, to ask ChangesSince later: after the last step done, by
  /// a number that holds as long as a history or a file has the step, and that no other model has.
  /// Where no step leads to it, by a number below 1 that holds in this session only, and until its
  /// contents are exchanged.
  std::int64_t State();
  /// Names of the steps that Undo and Redo would act on; empty when there is none.
  std::u16string_view UndoName() const;
  std::u16string_view RedoName() const;
  const Journal& History() const { return journal_; }
  /// Of the history in memory. What a commit pushes out beyond them a message tells, as the first
  /// such loss of the session and where it is more than the one step that made room.
  void SetHistoryLimits(const HistoryLimits& limits);
  /// How much of the history a file of the model keeps: a part of the model, which is saved and
  /// loaded with it, but no step. Holds from the next save on; memory keeps at least as much.
  const HistoryLimits& KeptHistory() const { return kept_history_; }
  void SetKeptHistory(const HistoryLimits& kept);
  void ForgetHistory();
  /// Gives the steps without a time this one. Returns the number after the highest, at least
  /// `next`: that of the next step.
  std::int64_t NumberSteps(std::int64_t next, std::int64_t time_ms) {
    return journal_.NumberSteps(next, time_ms);
  }

  /// Has every step kept; null for none. Not owned.
  void SetStepSink(StepSink* sink);
  const StepSink* GetStepSink() const { return sink_; }

  // ---- listeners --------------------------------------------------------------------------------

  /// Listeners are not owned and hear in the order they were added.
  void AddListener(ISessionListener* listener);
  void RemoveListener(ISessionListener* listener);

  /// Those who show the session, and are brought up to date by IUpdateDB. Not owned.
  void AddView(SessionView& view) { views_.push_back(&view); }
  void RemoveView(SessionView& view) { std::erase(views_, &view); }
  bool HasViews() const { return !views_.empty(); }

  // ---- the whole --------------------------------------------------------------------------------

  /// A 64-bit hash over the model's and the current units, and the images of all records of the
  /// pools that are saved, in list order with keys for references: equal for models that a file
  /// would not tell apart.
  std::uint64_t StateHash() const;
  /// "" or the first broken invariant, by number, with the pool's I/O name and the record's key.
  /// Those of the pools' containers (1 to 5, see KeyedSetBase), and of the model:
  ///  6 no two records of a pool share a key
  ///  7 arrays are as long as they say
  ///  8 a reference is 0 or a record that is in its target pool; in an open step also one that the
  ///    step removed
  ///  9 the units exist
  /// 10 what the history names exists (see Journal)
  /// Cost proportional to the model and its history. Sound on any content: it follows no reference
  /// that it has not checked.
  std::string Validate() const;
  /// Exchanges the records and units of two sessions with the same pools. Drops this history, and
  /// takes over the other's. 0, changing nothing, when one of them is busy.
  int SwapContents(CQXDBSession& other);
  /// Tells listeners that the contents were replaced as a whole.
  void AnnounceLoaded();

 private:
  friend class CTransaction;
  friend class Journal;
  friend class Rehearsal;
  friend class SessionUnits;
  friend class StepReplay;
  friend class UnitsShown;
  static constexpr std::uint16_t kDense = 128;

  DPoolBase* FindOutlier(std::uint16_t type) const;
  void BeginTransaction(CTransaction& transaction, std::u16string_view name);
  int CommitTransaction();
  void RollbackTransaction(CTransaction& transaction);
  void RollbackOutermost();
  int ProcessRelations();
  int RefuseSharedKeys();
  bool CanReplay(bool undo, bool tell = false) const;
  void ForgetStep();
  void SettleFinal();
  void SetUnits(const CQXUnitCtrl& units);
  void Show(UnitsShown& units);
  void EndShowing(UnitsShown& units);
  class Telling;
  void BeginTelling();
  void EndTelling();
  [[nodiscard]] std::exception_ptr Announce(SessionEvent event, const Step& step);
  void FlagChanges(const Step& step);
  void ClearFlags();
  void BoundHistory();
  int Replay(bool undo);
  const Step& ReplayLast(bool undo);
  void UpdateHistoryMark();

  PoolSetup setup_;
  CQXDocBase* document_;
  SessionUnits units_{*this};
  std::vector<UnitsShown*> shown_;  // instead, the last one's
  CQXUnitCtrl own_units_;           // while some are shown
  std::array<DPoolBase*, kDense> dense_{};
  std::vector<DPoolBase*> order_;
  std::vector<std::unique_ptr<DPoolBase>> pools_;
  std::string setup_fault_;
  std::vector<ISessionListener*> listeners_;
  std::vector<SessionView*> views_;
  bool recording_enabled_ = true;
  CTransaction* innermost_ = nullptr;  // of the open transactions
  int tellings_ = 0;                   // how many tell of a step, or show units
  bool bound_ = false;                 // the history, once a step has been told of
  bool loss_told_ = false;             // that steps were pushed out of the history
  bool inner_taken_back_ = false;      // of the open step, something by an inner transaction
  bool state_known_ = false;           // somebody may ask for changes since the present state
  int round_ = 0;                      // of the relations that are being processed
  bool rehearsing_ = false;
  StepSink* sink_ = nullptr;
  HistoryLimits kept_history_ = kUsualKept;
  Journal journal_;
  std::unique_ptr<Belongings> belongings_;
  std::unique_ptr<Relations> relations_;
  struct Rekeyed {
    DPoolBase* pool;
    ITR item;
    Key former;
  };
  std::vector<Rekeyed> rekeyed_;  // in the open step
};

/// Called once per event that listeners hear of, before them, with the change flags set, on the
/// thread that drives the session. The first IUpdateDB that is made installs its refresh here; null
/// for none. Returns the former one. To be set before there are sessions on other threads.
using StepHook = void (*)(CQXDBSession&);
QXDB_API StepHook SetStepHook(StepHook hook);

}  // namespace qx
