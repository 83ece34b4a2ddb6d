#include "qx_db/core/document.h"

#include "qx_db/core/state_hash.h"
#include "qx_db/core/transaction.h"
#include "qx_db/lib/message.h"
#include "qx_db/platform/file.h"
#include "qx_db/platform/long_work.h"

namespace qx {

namespace {

/// The hash of a state that is saved or loaded: whoever waits may no longer end that.
std::uint64_t HashOf(const CQXDBSession& session) {
  const WorkWatch nobody({});
  return KnownStateHash(session);
}

}  // namespace

CQXDocBase::CQXDocBase(CQXDBSession::PoolSetup setup) : session_(setup, this) {
  saved_state_ = HashOf(session_);
}

int CQXDocBase::New() {
  if (session_.IsBusy()) return 0;
  CQXDBSession fresh(session_.Setup());
  for (DPoolBase* pool : fresh.Pools()) pool->AddDefault();
  Release();
  session_.SwapContents(fresh);
  session_.AnnounceLoaded();
  path_.clear();
  saved_state_ = HashOf(session_);
  return 1;
}

/// Loads past the keeper, which must not take the exchange for an edit. It stays when the load
/// fails, and goes once the contents are those of another file.
Outcome CQXDocBase::Load(const std::string& path, ModelFileReport* report,
                         ModelContinuation* continuation) {
  const auto revision = [&] {
    return session_.Pools().empty() ? 0 : session_.Pools()[0]->Set().Revision();
  };
  const std::uint64_t before = revision();
  session_.SetStepSink(nullptr);
  ModelFileReport found;
  Outcome loaded;
  try {
    loaded = LoadModel(session_, path, &found, continuation);
  } catch (...) {
    if (revision() != before) Release();
    session_.SetStepSink(keeper_.get());
    throw;
  }
  if (loaded) {
    Release();
    path_ = path;
    stamp_ = found.stamp;
    if (report) *report = std::move(found);
    saved_state_ = HashOf(session_);
  }
  session_.SetStepSink(keeper_.get());
  return loaded;
}

Outcome CQXDocBase::Open(const std::string& path, ModelFileReport* report) {
  return Load(path, report, nullptr);
}

Outcome CQXDocBase::OpenForEditing(const std::string& path, const DurabilityOptions& options,
                                   ModelFileReport* report) {
  if (Outcome is_file = CheckIsFile(path); !is_file) return is_file;
  if (keeper_ && IsSamePlace(keeper_->Path(), path)) {
    return Failure{path, "", "is being edited by this document", "release it first"};
  }
  auto lock = ModelLock::Take(path);
  if (!lock) return lock.AsOutcome();
  ModelContinuation continuation;
  if (Outcome loaded = Load(path, report, &continuation); !loaded) return loaded;
  keeper_ = std::make_unique<StepKeeper>(session_, path, std::move(*lock), options);
  keeper_->GoOn(continuation);
  RunLoadHooks(session_);
  saved_state_ = HashOf(session_);
  if (report) report->stale_lock = keeper_->StaleLock();
  return {};
}

int CQXDocBase::Activate() {
  CTransaction step(&session_);
  if (!step.Begin(qxLoadText("IDS_QX_TRANS_ACTIVATE").c_str())) return 0;
  for (DPoolBase* pool : session_.Pools()) pool->OnAfterActive(0, nullptr);
  return step.Commit();
}

Outcome CQXDocBase::Save() {
  if (path_.empty()) return Failure{"", "", "the model has no file yet", "save it under a name"};
  return SaveAs(path_);
}

/// What another process has made of the document's file in between must not be lost.
Outcome CQXDocBase::CheckUnchanged(const std::string& path) const {
  if (path_.empty() || !IsSamePlace(path, path_) || !CheckIsFile(path)) return {};
  if (StampOf(path) == stamp_) return {};
  return Failure{path, "", "was changed since it was opened",
                 "open it again and repeat the edit, or save under another name"};
}

/// Writes the model to a file that no keeper of this document has, and leaves it to `other`.
Outcome CQXDocBase::SaveElsewhere(const std::string& path, std::unique_ptr<StepKeeper>& other) {
  auto lock = ModelLock::Take(path);
  if (!lock) return lock.AsOutcome();
  if (Outcome same = keeper_ ? Outcome() : CheckUnchanged(path); !same) return same;
  other = std::make_unique<StepKeeper>(session_, path, std::move(*lock),
                                       keeper_ ? keeper_->Options() : DurabilityOptions());
  return other->Save();
}

Outcome CQXDocBase::SaveAs(const std::string& path) {
  if (keeper_ && IsSamePlace(path, keeper_->Path())) {
    if (Outcome saved = keeper_->Save(); !saved) return saved;
  } else {
    struct KeeperListens {
      CQXDocBase& document;
      ~KeeperListens() { document.session_.SetStepSink(document.keeper_.get()); }
    } const afterwards{*this};
    std::unique_ptr<StepKeeper> other;
    if (Outcome saved = SaveElsewhere(path, other); !saved) return saved;
    if (keeper_) {
      keeper_.swap(other);
    } else {
      stamp_ = other->Stamp();
    }
  }
  path_ = path;
  saved_state_ = HashOf(session_);
  return {};
}

void CQXDocBase::Release() {
  if (keeper_) stamp_ = keeper_->Stamp();
  keeper_.reset();
}

Outcome CQXDocBase::KeepSteps(const DurabilityOptions& options) {
  if (path_.empty()) return Failure{"", "", "the model has no file yet", "save it under a name"};
  if (!keeper_) {
    auto lock = ModelLock::Take(path_);
    if (!lock) return lock.AsOutcome();
    if (Outcome same = CheckUnchanged(path_); !same) return same;
    keeper_ = std::make_unique<StepKeeper>(session_, path_, std::move(*lock), options);
  }
  keeper_->SetOptions(options);
  Outcome saved = Save();
  if (!saved) Release();
  return saved;
}

}  // namespace qx
