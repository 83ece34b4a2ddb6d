#include "qx_db/core/document.h"

namespace qx {

CQXDocBase::CQXDocBase(CQXDBSession::PoolSetup setup) : session_(setup, this) {
  saved_state_ = session_.StateHash();
}

void CQXDocBase::New() {
  CQXDBSession fresh(session_.Setup());
  for (DPoolBase* pool : fresh.Pools()) pool->AddDefault();
  session_.SwapContents(fresh);
  session_.AnnounceLoaded();
  path_.clear();
  saved_state_ = session_.StateHash();
}

Outcome CQXDocBase::Open(const std::string& path, ModelFileReport* report) {
  Outcome loaded = LoadModel(session_, path, report);
  if (!loaded) return loaded;
  path_ = path;
  saved_state_ = session_.StateHash();
  return loaded;
}

Outcome CQXDocBase::Save() {
  if (path_.empty()) return Failure{"", "", "the model has no file yet", "save it under a name"};
  return SaveAs(path_);
}

Outcome CQXDocBase::SaveAs(const std::string& path) {
  Outcome saved = SaveModel(session_, path);
  if (!saved) return saved;
  path_ = path;
  saved_state_ = session_.StateHash();
  return saved;
}

}  // namespace qx
