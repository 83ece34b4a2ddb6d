#include "qx_db/core/transaction.h"

#include <map>

#include "qx_db/core/session.h"

namespace qx {

CTransaction::~CTransaction() {
  try {
    Rollback();
  } catch (...) {  // by a listener, when everything was taken back
  }
}

int CTransaction::Begin(const char16_t* name) {
  if (!session_ || open_ || session_->telling_) return 0;
  session_->BeginTransaction(*this, name ? name : u"");
  open_ = true;
  return 1;
}

int CTransaction::Commit(int) {
  if (!open_ || session_->innermost_ != this) return 0;
  try {
    if (session_->CommitTransaction()) return 1;
  } catch (...) {
    if (open_) session_->RollbackTransaction(*this);
    throw;
  }
  session_->RollbackTransaction(*this);
  return 0;
}

int CTransaction::Rollback() {
  if (!open_) return 0;
  session_->RollbackTransaction(*this);
  return 1;
}

namespace {

std::map<CString, CQXCommandObj::Handler>& Handlers() {
  static std::map<CString, CQXCommandObj::Handler> handlers;
  return handlers;
}

}  // namespace

void CQXCommandObj::Register(const CString& name, Handler handler) {
  Handlers()[name] = std::move(handler);
}

int CQXCommandObj::Execute() {
  const auto found = Handlers().find(name_);
  CTransaction transaction(session_);
  if (found == Handlers().end() || !transaction.Begin(name_.c_str())) return 0;
  return found->second(*session_, params_) ? transaction.Commit() : 0;
}

}  // namespace qx
