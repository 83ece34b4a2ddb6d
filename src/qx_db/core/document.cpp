#include "qx_db/core/document.h"

#include "qx_db/platform/file.h"

namespace qx {

CQXDocBase::CQXDocBase(CQXDBSession::PoolSetup setup) : session_(setup, this) {
  saved_state_ = session_.StateHash();
}

void CQXDocBase::New() {
  CQXDBSession fresh(session_.Setup());
  for (DPoolBase* pool : fresh.Pools()) pool->AddDefault();
  Release();
  session_.SwapContents(fresh);
  session_.AnnounceLoaded();
  path_.clear();
  saved_state_ = session_.StateHash();
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
  Outcome loaded;
  try {
    loaded = LoadModel(session_, path, report, continuation);
  } catch (...) {
    if (revision() != before) Release();
    session_.SetStepSink(keeper_.get());
    throw;
  }
  if (loaded) {
    Release();
    path_ = path;
    saved_state_ = session_.StateHash();
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
  if (keeper_ && keeper_->Path() == path) {
    return Failure{path, "", "is being edited by this document", "release it first"};
  }
  auto lock = ModelLock::Take(path);
  if (!lock) return lock.AsOutcome();
  ModelContinuation continuation;
  if (Outcome loaded = Load(path, report, &continuation); !loaded) return loaded;
  keeper_ = std::make_unique<StepKeeper>(session_, path, std::move(*lock), options);
  keeper_->GoOn(continuation);
  if (report) report->stale_lock = keeper_->StaleLock();
  return {};
}

Outcome CQXDocBase::Save() {
  if (path_.empty()) return Failure{"", "", "the model has no file yet", "save it under a name"};
  return SaveAs(path_);
}

Outcome CQXDocBase::SaveAs(const std::string& path) {
  if (keeper_ && path == keeper_->Path()) {
    if (Outcome saved = keeper_->Save(); !saved) return saved;
  } else {
    auto lock = ModelLock::Take(path);
    if (!lock) return lock.AsOutcome();
    auto other = std::make_unique<StepKeeper>(session_, path, std::move(*lock),
                                              keeper_ ? keeper_->Options() : DurabilityOptions());
    Outcome saved = other->Save();
    if (saved && keeper_) keeper_.swap(other);
    other.reset();
    session_.SetStepSink(keeper_.get());
    if (!saved) return saved;
  }
  path_ = path;
  saved_state_ = session_.StateHash();
  return {};
}

Outcome CQXDocBase::KeepSteps(const DurabilityOptions& options) {
  if (path_.empty()) return Failure{"", "", "the model has no file yet", "save it under a name"};
  if (!keeper_) {
    auto lock = ModelLock::Take(path_);
    if (!lock) return lock.AsOutcome();
    keeper_ = std::make_unique<StepKeeper>(session_, path_, std::move(*lock), options);
  }
  keeper_->SetOptions(options);
  Outcome saved = Save();
  if (!saved) Release();
  return saved;
}

}  // namespace qx
