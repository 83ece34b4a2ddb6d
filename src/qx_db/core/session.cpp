#include "qx_db/core/session.h"

#include <algorithm>
#include <new>
#include <utility>

#include "qx_db/core/belongings.h"
#include "qx_db/core/key_forecast.h"
#include "qx_db/core/relations.h"
#include "qx_db/core/transaction.h"
#include "qx_db/lib/message.h"
#include "qx_db/platform/clock.h"
#include "qx_db/platform/long_work.h"
#include "qx_db/record/verbs.h"

namespace qx {
namespace {

StepHook g_step_hook = nullptr;

}  // namespace

/// A step is being told of as long as one of these lives: nothing can be edited, and the steps stay
/// as they are.
class CQXDBSession::Telling {
 public:
  explicit Telling(CQXDBSession& session) : session_(session) { session_.BeginTelling(); }
  ~Telling() { session_.EndTelling(); }
  Telling(const Telling&) = delete;
  Telling& operator=(const Telling&) = delete;

 private:
  CQXDBSession& session_;
};

void CQXDBSession::BeginTelling() {
  telling_ = ++tellings_ > 0;
  UpdateHistoryMark();
}

void CQXDBSession::EndTelling() {
  telling_ = --tellings_ > 0;
  if (telling_) return;
  std::erase(listeners_, nullptr);
  if (std::exchange(bound_, false)) journal_.EnforceLimits();
  UpdateHistoryMark();
}

StepHook SetStepHook(StepHook hook) { return std::exchange(g_step_hook, hook); }

CQXDBSession::CQXDBSession(PoolSetup setup, CQXDocBase* document)
    : setup_(setup),
      document_(document),
      journal_(*this),
      belongings_(std::make_unique<Belongings>(*this)),
      relations_(std::make_unique<Relations>(*this)) {
  if (setup_) setup_(*this);
}

CQXDBSession::~CQXDBSession() {
  while (!views_.empty()) {
    SessionView* const view = views_.back();
    views_.pop_back();
    view->OnSessionEnd();
  }
  for (UnitsShown* shown : shown_) shown->session_ = nullptr;
  // Detached records are freed through their pools, so history goes first.
  journal_.Discard();
  journal_.Forget();
  recording_ = minds_unrecorded_ = false;
  while (innermost_) {  // transactions that outlive their session have nothing to end
    innermost_->open_ = false;
    innermost_ = innermost_->outer_;
  }
}

// ---- pools --------------------------------------------------------------------------------------

int CQXDBSession::AddPool(std::unique_ptr<DPoolBase> pool) {
  const std::uint16_t type = pool->GetTypeCode();
  std::string fault = pool->GetSchema().Validate();
  if (fault.empty() && GetDataPool(type)) {
    fault = std::string(pool->GetSchema().Name()) + ": there is a pool of type code " +
            std::to_string(type) + " already";
  }
  if (!fault.empty()) {
    if (setup_fault_.empty()) setup_fault_ = std::move(fault);
    return 0;
  }
  if (type < kDense) dense_[type] = pool.get();
  order_.push_back(pool.get());
  belongings_->Learn(*pool);
  pools_.push_back(std::move(pool));
  return 1;
}

DPoolBase* CQXDBSession::FindOutlier(std::uint16_t type) const {
  const auto found = std::find_if(order_.begin(), order_.end(),
                                  [&](DPoolBase* pool) { return pool->GetTypeCode() == type; });
  return found == order_.end() ? nullptr : *found;
}

// ---- recording ----------------------------------------------------------------------------------

void CQXDBSession::EnableRecording(bool on) {
  recording_enabled_ = on;
  recording_ = on && innermost_;
  if (recording_) UpdateHistoryMark();  // what is recorded from now on can be lost again
}

void CQXDBSession::PushNotify(const tagTRNotify& notice) { journal_.Record(notice); }

/// A record has another key than before: what belongs to it follows.
void CQXDBSession::OnNewKey(std::uint16_t type, ITR item, Key former) {
  DPoolBase* pool = GetDataPool(type);
  if (!pool || !pool->Set().Owns(item)) return;  // of a pool that is not the session's
  if (recording_) rekeyed_.push_back({pool, item, former});
  relations_->NoteNewKey();
  belongings_->FollowKey(*pool, item, former);
}

void CQXDBSession::SetStepSink(StepSink* sink) {
  sink_ = sink;
  UpdateHistoryMark();
}

bool CQXDBSession::AllowUnrecorded() {
  if (telling_) return false;
  if (sink_) sink_->OnUnrecordedChange();
  // Inside a transaction what the open step recorded so far becomes final: it, too, names records
  // that may be about to be freed.
  journal_.Finalize();
  journal_.Forget();
  journal_.NewState();
  state_known_ = false;
  minds_unrecorded_ = sink_ != nullptr;
  return true;
}

bool CQXDBSession::TakesRemoved(std::uint16_t type, std::span<const ITR> items) {
  if (!journal_.IsOpen() || GetDataPool(type) == nullptr) return false;
  journal_.TakeRemoved(type, items);
  return true;
}

void CQXDBSession::OnTakenOut() {
  if (journal_.IsOpen()) journal_.NoteTakenOut();
}

/// With a sink, or somebody who knows the present state, unrecorded changes are to be heard of even
/// without a history to lose; while a step is told of, to be refused.
void CQXDBSession::UpdateHistoryMark() {
  minds_unrecorded_ = telling_ || sink_ || state_known_ || journal_.IsOpen() ||
                      !journal_.Done().empty() || !journal_.Undone().empty();
}

std::int64_t CQXDBSession::State() {
  state_known_ = true;
  UpdateHistoryMark();
  return journal_.State();
}

// ---- units --------------------------------------------------------------------------------------

void SessionUnits::Change(const CQXUnitCtrl& changed) {
  if (session_.telling_) return;
  CTransaction own(&session_);
  if (!session_.innermost_ && session_.recording_enabled_ && !AreDeclared()) {
    own.Begin(qxLoadText("IDS_QX_TRANS_UNITS").c_str());
  }
  if (session_.IsRecording()) {
    session_.journal_.BeforeUnits();
    session_.SetUnits(changed);
    session_.journal_.AfterUnits();
  } else {
    session_.AllowUnrecorded();
    session_.SetUnits(changed);
  }
  own.Commit();
}

/// Whether a change only says what the units of a model to come are: nothing is there yet but what
/// every new model has, and nobody keeps track.
bool SessionUnits::AreDeclared() const {
  const Journal& history = session_.journal_;
  if (session_.sink_ || !history.Done().empty() || !history.Undone().empty()) return false;
  const std::span<DPoolBase* const> pools = session_.order_;
  const auto is_empty = [](const DPoolBase* pool) { return pool->GetSize() == 0; };
  if (std::all_of(pools.begin(), pools.end(), is_empty)) return true;
  CQXDBSession fresh(session_.Setup());
  for (DPoolBase* pool : fresh.order_) pool->AddDefault();
  const auto is_as_large = [](const DPoolBase* pool, const DPoolBase* new_one) {
    return pool->GetSize() == new_one->GetSize();
  };
  if (!std::equal(pools.begin(), pools.end(), fresh.order_.begin(), fresh.order_.end(),
                  is_as_large)) {
    return false;
  }
  fresh.SetUnits(session_.OwnUnits());
  return fresh.StateHash() == session_.StateHash();
}

void SessionUnits::SetModel(const UnitSystem& system) {
  CQXUnitCtrl changed = session_.OwnUnits();
  changed.SetModel(system);
  Change(changed);
}

void SessionUnits::SetCurrent(const UnitSystem& system) {
  CQXUnitCtrl changed = session_.OwnUnits();
  changed.SetCurrent(system);
  Change(changed);
}

SessionUnits& SessionUnits::operator=(const CQXUnitCtrl& units) {
  Change(units);
  return *this;
}

/// Makes `units` the session's own; what is shown instead of them stays.
void CQXDBSession::SetUnits(const CQXUnitCtrl& units) {
  if (!shown_.empty()) own_units_ = units;
  units_.CQXUnitCtrl::operator=(units);
  if (!shown_.empty()) units_.CQXUnitCtrl::SetCurrent(shown_.back()->current_);
}

void CQXDBSession::Show(UnitsShown& units) {
  const CQXUnitCtrl own = OwnUnits();
  shown_.push_back(&units);
  SetUnits(own);
  BeginTelling();
}

void CQXDBSession::EndShowing(UnitsShown& units) {
  const CQXUnitCtrl own = OwnUnits();
  std::erase(shown_, &units);
  SetUnits(own);
  EndTelling();
}

UnitsShown::UnitsShown(CQXDBSession& session, const UnitSystem& current)
    : session_(&session), current_(current) {
  session.Show(*this);
}

UnitsShown::~UnitsShown() {
  if (session_) session_->EndShowing(*this);
}

int CQXDBSession::ChangeUnits(const UnitSystem& current) {
  CTransaction step(this);
  if (!IsValid(current) || !step.Begin(qxLoadText("IDS_QX_TRANS_UNITS").c_str())) return 0;
  units_.SetCurrent(current);
  return step.Commit();
}

// ---- transactions -------------------------------------------------------------------------------

void CQXDBSession::BeginTransaction(CTransaction& transaction, std::u16string_view name) {
  if (!innermost_) {
    journal_.Open(name);  // may throw, and then nothing has begun
    inner_taken_back_ = false;
  }
  transaction.mark_ = journal_.Mark();
  transaction.units_ = OwnUnits();
  transaction.outer_ = std::exchange(innermost_, &transaction);
  if (transaction.outer_) return;
  recording_ = recording_enabled_;
  UpdateHistoryMark();
}

/// Lets every pool repair its references, again while repairs cause others. 0 when one refuses.
int CQXDBSession::ProcessRelations() {
  constexpr int kMaxRounds = 16;
  if (journal_.Mark() > 0) {  // repairs belong to what they repair
    recording_ = true;
    UpdateHistoryMark();
  }
  for (DPoolBase* pool : order_) pool->edited_flags_ = pool->change_flags_;
  std::size_t seen = 0;
  // Of what is final in the step nobody knows what it touched.
  int kept = !journal_.IsOpen() || journal_.HasFinal() ||
             belongings_->RemoveOrphans(journal_.Current()) || rehearsing_;
  for (round_ = 1; kept && round_ <= kMaxRounds && journal_.Mark() != seen; ++round_) {
    seen = journal_.Mark();
    for (DPoolBase* pool : order_) {
      kept = pool->ProcessRelation() || rehearsing_;
      if (!kept) break;
    }
  }
  round_ = 0;
  return kept;
}

/// Refuses a step that gave a record a key which another one of its pool has.
int CQXDBSession::RefuseSharedKeys() {
  for (const Rekeyed& one : rekeyed_) {
    const KeyedSetBase& set = one.pool->Set();
    if (!set.IsLinked(one.item)) continue;
    const Key key = KeyOf(one.item);
    const ITR first = set.Find(key);
    const ITR second = set.NextOfKey(first);
    if (!second) continue;
    const auto former = [&](ITR item) {
      const auto known = std::find_if(rekeyed_.begin(), rekeyed_.end(),
                                      [&](const Rekeyed& other) { return other.item == item; });
      return std::to_string(known == rekeyed_.end() ? key : known->former);
    };
    qxMsgOut(Severity::kRefusal, "IDS_QX_DB_KEY_SHARED",
             {one.pool->GetAPIName().ToUtf8(), former(second), former(first), std::to_string(key)});
    return rehearsing_;
  }
  return 1;
}

/// What is known of the open step only.
void CQXDBSession::ForgetStep() {
  round_ = 0;
  rekeyed_.clear();
  belongings_->Forget();
  relations_->Forget();
  relations_->ForgetNewKeys();
}

/// Frees what is gone for good in the open step, once nothing refers to it: no record, in whatever
/// way its pool deals with relations, and no image that could be put back.
void CQXDBSession::SettleFinal() {
  recording_ = true;
  relations_->Forget();  // whatever was repaired already
  try {
    for (std::size_t seen = ~std::size_t{0}; journal_.Mark() != seen;) {
      seen = journal_.Mark();
      for (DPoolBase* pool : order_) relations_->Process(*pool);
    }
  } catch (const std::bad_alloc&) {  // in place, then
  }
  recording_ = false;
  for (DPoolBase* pool : order_) ClearDeadReferences(*pool);
  journal_.FreeFinal();
}

int CQXDBSession::CommitTransaction() {
  CTransaction& transaction = *innermost_;
  if (transaction.outer_) {
    innermost_ = transaction.outer_;
    transaction.open_ = false;
    return 1;
  }
  if (!ProcessRelations() || !RefuseSharedKeys()) return 0;  // still open: the caller rolls back
  const WorkWatch nobody({});                                // from here on there is no way back
  const bool changed = journal_.Mark() > 0 || journal_.Current().ChangesUnits();
  if (journal_.HasFinal()) SettleFinal();
  if (journal_.IsOpen() && !journal_.Current().IsEmpty()) {
    journal_.ReserveClose();  // room first: nothing may fail once the step is made
    journal_.Current().time_ms = NowMs();
    if (sink_ && !sink_->OnCommit(*this, journal_.Current())) return 0;
  }
  innermost_ = nullptr;
  transaction.open_ = false;
  recording_ = false;
  const bool kept = journal_.IsOpen() && journal_.Close();
  std::exception_ptr fault;
  if (changed) {
    fault = Announce(SessionEvent::kCommitted, kept ? journal_.Done().back() : journal_.Current());
  } else if (inner_taken_back_) {
    fault = Announce(SessionEvent::kRolledBack, journal_.Current());
  }
  BoundHistory();
  ClearFlags();
  ForgetStep();
  UpdateHistoryMark();
  if (fault) std::rethrow_exception(fault);
  return 1;
}

/// Takes back what the transaction did, and ends it with those inside it.
void CQXDBSession::RollbackTransaction(CTransaction& transaction) {
  const WorkWatch nobody({});  // half of it is no state
  for (CTransaction* inner = innermost_; inner != &transaction; inner = inner->outer_) {
    inner->open_ = false;
  }
  innermost_ = transaction.outer_;
  transaction.open_ = false;
  if (!innermost_) return RollbackOutermost();
  // Who shows the model may have come to know of it meanwhile.
  inner_taken_back_ = inner_taken_back_ || journal_.Mark() > transaction.mark_ ||
                      !(transaction.units_ == OwnUnits());
  journal_.RollbackTo(transaction.mark_);
  relations_->Forget();
  SetUnits(transaction.units_);
  if (journal_.Current().units) journal_.AfterUnits();
}

void CQXDBSession::RollbackOutermost() {
  const bool changed =
      journal_.Mark() > 0 || journal_.Current().ChangesUnits() || inner_taken_back_;
  if (journal_.HasFinal()) {
    journal_.RollbackTo(0);
    SettleFinal();
  } else {
    journal_.TakeBackOpen();
  }
  recording_ = false;
  std::exception_ptr fault;
  if (changed) fault = Announce(SessionEvent::kRolledBack, journal_.Current());
  journal_.Discard();
  ClearFlags();
  ForgetStep();
  UpdateHistoryMark();
  if (fault) std::rethrow_exception(fault);
}

// ---- history ------------------------------------------------------------------------------------

const Step& CQXDBSession::ReplayLast(bool undo) {
  try {
    return undo ? journal_.Undo() : journal_.Redo();
  } catch (...) {
    if (sink_) sink_->OnUnrecordedChange();  // it was told of what did not happen
    throw;
  }
}

/// Whether there is a step to take back or do again, and two records would not come to share a key
/// by it that have none of it now, which no commit would have let pass; `tell` tells of these.
bool CQXDBSession::CanReplay(bool undo, bool tell) const {
  if (IsBusy() || (undo ? journal_.Done().empty() : journal_.Undone().empty())) return false;
  const Step& step = undo ? journal_.Done().back() : journal_.Undone().back();
  const KeyForecast::Clash clash = KeyForecast(*this).Pass(step, undo);
  if (clash && tell) {
    qxMsgOut(Severity::kRefusal, "IDS_QX_DB_KEY_SHARED",
             {clash.pool->GetAPIName().ToUtf8(), std::to_string(KeyOf(clash.first)),
              std::to_string(KeyOf(clash.second)), std::to_string(clash.key)});
  }
  return !clash;
}

int CQXDBSession::Replay(bool undo) {
  if (!CanReplay(undo, true)) return 0;
  const WorkWatch nobody({});  // half a step is no state
  std::exception_ptr fault;
  {
    const Telling telling(*this);  // also while the step is kept, and pools put things in order
    if (sink_ && !(undo ? sink_->OnUndo(*this) : sink_->OnRedo(*this))) return 0;
    const Step& step = ReplayLast(undo);
    if (sink_ && !sink_->OnMoved(*this)) {
      ReplayLast(!undo);
      return 0;
    }
    FlagChanges(step);
    fault = Announce(undo ? SessionEvent::kUndone : SessionEvent::kRedone, step);
  }
  if (fault) std::rethrow_exception(fault);
  return 1;
}

int CQXDBSession::Undo() { return Replay(true); }
int CQXDBSession::Redo() { return Replay(false); }

std::u16string_view CQXDBSession::UndoName() const {
  return journal_.Done().empty() ? std::u16string_view() : journal_.Done().back().name;
}

std::u16string_view CQXDBSession::RedoName() const {
  return journal_.Undone().empty() ? std::u16string_view() : journal_.Undone().back().name;
}

void CQXDBSession::SetHistoryLimits(const HistoryLimits& limits) {
  journal_.SetLimits(limits);
  if (telling_) {  // the steps are being read
    bound_ = true;
    return;
  }
  journal_.EnforceLimits();
  UpdateHistoryMark();
}

void CQXDBSession::SetKeptHistory(const HistoryLimits& kept) {
  kept_history_ = kept;
  HistoryLimits limits = journal_.Limits();
  limits.steps = std::max(limits.steps, kept.steps);
  limits.bytes = std::max(limits.bytes, kept.bytes);
  journal_.SetLimits(limits);
}

/// Once the history is full, every step pushes out one: that is told once. A step that costs
/// several is told each time.
void CQXDBSession::BoundHistory() {
  const std::size_t lost = journal_.EnforceLimits();
  if (lost == 0 || (lost == 1 && loss_told_)) return;
  loss_told_ = true;
  const HistoryLimits& limits = journal_.Limits();
  qxMsgOut(Severity::kInfo, "IDS_QX_HISTORY_PUSHED_OUT",
           {std::to_string(lost), std::to_string(limits.steps), std::to_string(limits.bytes)});
}

void CQXDBSession::ForgetHistory() {
  if (IsBusy()) return;
  journal_.Forget();
  UpdateHistoryMark();
}

void CQXDBSession::FlagChanges(const Step& step) {
  for (const Change& change : step.changes) {
    DPoolBase* pool = GetDataPool(change.type);
    pool->SetChangeFlags(pool->ChangeFlags() | 1u << (change.operation - tagTRNotify::kInserted));
  }
}

void CQXDBSession::ClearFlags() {
  for (DPoolBase* pool : order_) pool->SetChangeFlags(0);
}

// ---- listeners ----------------------------------------------------------------------------------

void CQXDBSession::AddListener(ISessionListener* listener) { listeners_.push_back(listener); }

void CQXDBSession::RemoveListener(ISessionListener* listener) {
  if (telling_) {  // the list is being walked
    std::replace(listeners_.begin(), listeners_.end(), listener,
                 static_cast<ISessionListener*>(nullptr));
  } else {
    std::erase(listeners_, listener);
  }
}

/// Tells everyone, whoever throws; returns what was thrown first. What is told of stays as it is
/// until then, also by the pools, which hear of undo and redo before all others.
std::exception_ptr CQXDBSession::Announce(SessionEvent event, const Step& step) {
  std::exception_ptr fault;
  const auto tell = [&](auto&& call) {
    try {
      call();
    } catch (...) {
      if (!fault) fault = std::current_exception();
    }
  };
  const Telling telling(*this);
  for (DPoolBase* pool : event == SessionEvent::kUndone || event == SessionEvent::kRedone
                             ? Pools()
                             : std::span<DPoolBase* const>()) {
    if (pool->ChangeFlags()) tell([&] { pool->OnAfterUndoRedo(); });
  }
  if (g_step_hook) tell([&] { g_step_hook(*this); });
  const std::size_t count = listeners_.size();  // one that comes meanwhile hears of the next
  for (std::size_t i = 0; i < count; ++i) {
    if (!listeners_[i]) continue;  // one that heard before has taken this one off
    tell([&] {
      listeners_[i]->OnSessionEvent(*this, event, step.name,
                                    {step.changes.data(), step.changes.size()});
    });
  }
  ClearFlags();
  return fault;
}

void CQXDBSession::AnnounceLoaded() {
  for (DPoolBase* pool : order_) {
    pool->SetChangeFlags(DPoolBase::kInsertedFlag | DPoolBase::kRemovedFlag);
  }
  if (const auto fault = Announce(SessionEvent::kLoaded, Step{})) std::rethrow_exception(fault);
}

// ---- the whole ----------------------------------------------------------------------------------

int CQXDBSession::SwapContents(CQXDBSession& other) {
  if (IsBusy() || other.IsBusy()) return 0;
  AllowUnrecorded();
  for (DPoolBase* pool : order_) {
    if (DPoolBase* twin = other.GetDataPool(pool->GetTypeCode())) {
      PoolInside::SetOf(*pool).Swap(PoolInside::SetOf(*twin));
    }
  }
  const CQXUnitCtrl units = OwnUnits();
  SetUnits(other.OwnUnits());
  other.SetUnits(units);
  journal_.SwapHistory(other.journal_);
  std::swap(kept_history_, other.kept_history_);
  SetKeptHistory(kept_history_);
  other.SetKeptHistory(other.kept_history_);
  UpdateHistoryMark();
  other.UpdateHistoryMark();
  return 1;
}

}  // namespace qx
