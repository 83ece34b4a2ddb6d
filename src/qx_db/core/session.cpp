#include "qx_db/core/session.h"

#include <algorithm>
#include <cassert>

namespace qx {
namespace {

StepHook g_step_hook = nullptr;

}  // namespace

StepHook SetStepHook(StepHook hook) { return std::exchange(g_step_hook, hook); }

CQXDBSession::CQXDBSession(PoolSetup setup, CQXDocBase* document)
    : setup_(setup), document_(document), journal_(*this) {
  if (setup_) setup_(*this);
}

CQXDBSession::~CQXDBSession() {
  // Detached records are freed through their pools, so history goes first.
  journal_.Discard();
  journal_.Forget();
  recording_ = has_history_ = false;
}

// ---- pools --------------------------------------------------------------------------------------

void CQXDBSession::AddPool(std::unique_ptr<DPoolBase> pool) {
  const std::uint16_t type = pool->GetTypeCode();
  assert(!GetDataPool(type) && "one pool per type code");
  if (type < kDense) dense_[type] = pool.get();
  order_.push_back(pool.get());
  pools_.push_back(std::move(pool));
}

DPoolBase* CQXDBSession::FindOutlier(std::uint16_t type) const {
  const auto found = std::find_if(order_.begin(), order_.end(),
                                  [&](DPoolBase* pool) { return pool->GetTypeCode() == type; });
  return found == order_.end() ? nullptr : *found;
}

// ---- recording ----------------------------------------------------------------------------------

void CQXDBSession::EnableRecording(bool on) {
  recording_enabled_ = on;
  recording_ = on && depth_ > 0;
  if (recording_) UpdateHistoryMark();  // what is recorded from now on can be lost again
}

void CQXDBSession::PushNotify(const tagTRNotify& notice) { journal_.Record(notice); }

void CQXDBSession::SetStepSink(StepSink* sink) {
  sink_ = sink;
  UpdateHistoryMark();
}

void CQXDBSession::OnUnrecordedChange() {
  if (sink_) sink_->OnUnrecordedChange();
  if (announcing_) {  // the steps are being read
    forget_ = true;
    return;
  }
  // Inside a transaction the open step, too, names records that may be about to be freed; what it
  // recorded so far becomes final.
  journal_.Finalize();
  journal_.Forget();
  has_history_ = sink_ != nullptr;
}

/// With a sink, unrecorded changes are to be heard of even without a history to lose.
void CQXDBSession::UpdateHistoryMark() {
  has_history_ =
      sink_ || journal_.IsOpen() || !journal_.Done().empty() || !journal_.Undone().empty();
}

// ---- transactions -------------------------------------------------------------------------------

std::size_t CQXDBSession::BeginTransaction(std::u16string_view name) {
  if (depth_ == 0) journal_.Open(name);  // may throw, and then nothing has begun
  if (depth_++ > 0) return journal_.Mark();
  recording_ = recording_enabled_;
  UpdateHistoryMark();
  return 0;
}

/// Lets every pool repair its references, again while repairs cause others. 0 when one refuses.
int CQXDBSession::ProcessRelations() {
  constexpr int kMaxRounds = 16;
  std::size_t seen = 0;
  for (int round = 0; round < kMaxRounds; ++round) {
    if (journal_.Current().changes.size() == seen) break;
    seen = journal_.Current().changes.size();
    for (DPoolBase* pool : order_) {
      if (!pool->ProcessRelation()) return 0;
    }
  }
  return 1;
}

int CQXDBSession::CommitTransaction() {
  if (depth_ > 1) {
    --depth_;
    return 1;
  }
  if (!ProcessRelations()) return 0;  // still open: the caller rolls back
  if (sink_ && journal_.IsOpen() && !journal_.Current().changes.empty()) {
    journal_.ReserveClose();
    if (!sink_->OnCommit(*this, journal_.Current())) return 0;
  }
  depth_ = 0;
  recording_ = false;
  if (journal_.IsOpen() && journal_.Close()) {
    Announce(SessionEvent::kCommitted, journal_.Done().back());
    journal_.EnforceLimits();
  }
  ClearFlags();
  UpdateHistoryMark();
  return 1;
}

void CQXDBSession::RollbackTransaction(std::size_t mark) {
  if (--depth_ > 0) {  // the outer transaction goes on
    if (journal_.IsOpen()) journal_.RollbackTo(mark);
    return;
  }
  journal_.Discard();
  recording_ = false;
  ClearFlags();
  UpdateHistoryMark();
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

int CQXDBSession::Replay(bool undo) {
  if (undo ? !CanUndo() : !CanRedo()) return 0;
  if (sink_ && !(undo ? sink_->OnUndo(*this) : sink_->OnRedo(*this))) return 0;
  const Step& step = ReplayLast(undo);
  if (sink_ && !sink_->OnMoved(*this)) {
    ReplayLast(!undo);
    return 0;
  }
  FlagChanges(step);
  for (DPoolBase* pool : order_) {
    if (pool->ChangeFlags()) pool->OnAfterUndoRedo();
  }
  Announce(undo ? SessionEvent::kUndone : SessionEvent::kRedone, step);
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
  UpdateHistoryMark();
}

void CQXDBSession::ForgetHistory() {
  if (depth_ > 0 || announcing_) return;
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

void CQXDBSession::RemoveListener(ISessionListener* listener) { std::erase(listeners_, listener); }

/// What was announced stays until everyone has heard, also where one throws.
struct CQXDBSession::Announcement {
  explicit Announcement(CQXDBSession& of) : session(of) { session.announcing_ = true; }
  ~Announcement() {
    session.announcing_ = false;
    if (std::exchange(session.forget_, false)) session.journal_.Forget();
    session.ClearFlags();
    session.UpdateHistoryMark();
  }
  CQXDBSession& session;
};

void CQXDBSession::Announce(SessionEvent event, const Step& step) {
  const Announcement announcement(*this);
  if (g_step_hook) g_step_hook(*this);
  for (ISessionListener* listener : std::vector(listeners_)) {
    // One that heard before may have taken this one off.
    if (std::find(listeners_.begin(), listeners_.end(), listener) == listeners_.end()) continue;
    listener->OnSessionEvent(*this, event, step.name, {step.changes.data(), step.changes.size()});
  }
}

void CQXDBSession::AnnounceLoaded() {
  for (DPoolBase* pool : order_) {
    pool->SetChangeFlags(DPoolBase::kInsertedFlag | DPoolBase::kRemovedFlag);
  }
  Announce(SessionEvent::kLoaded, Step{});
}

// ---- the whole ----------------------------------------------------------------------------------

std::string CQXDBSession::Validate() const {
  for (const DPoolBase* pool : order_) {
    if (const std::string fault = pool->Set().Validate(); !fault.empty()) {
      return Utf8(pool->GetIOName()) + ": " + fault;
    }
  }
  return {};
}

void CQXDBSession::SwapContents(CQXDBSession& other) {
  OnUnrecordedChange();
  for (DPoolBase* pool : order_) {
    if (DPoolBase* twin = other.GetDataPool(pool->GetTypeCode())) pool->Set().Swap(twin->Set());
  }
  std::swap(units_, other.units_);
  journal_.SwapHistory(other.journal_);
  UpdateHistoryMark();
  other.UpdateHistoryMark();
}

}  // namespace qx
