#include "qx_db/core/transaction.h"

#include <map>

#include "qx_db/core/session.h"

namespace qx {

int CTransaction::Begin(const char16_t* name) {
  if (!session_ || open_ || session_->announcing_) return 0;
  mark_ = session_->BeginTransaction(name ? name : u"");
  open_ = true;
  return 1;
}

int CTransaction::Commit(int) {
  if (!open_) return 0;
  open_ = false;
  try {
    if (session_->CommitTransaction()) return 1;
  } catch (...) {
    if (session_->depth_ > 0) session_->RollbackTransaction(mark_);
    throw;
  }
  session_->RollbackTransaction(mark_);
  return 0;
}

int CTransaction::Rollback() {
  if (!open_) return 0;
  open_ = false;
  session_->RollbackTransaction(mark_);
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
