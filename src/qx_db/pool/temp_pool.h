#pragma once
// Scratch pools, for what is not of the model yet.

#include "qx_db/pool/data_pool.h"

namespace qx {

/// A pool outside undo and outside saving: changes leave no notice, a removed record is freed at
/// once. It takes part in the gateway exchange like any pool; what a read has put in stays, also
/// when the read is refused. Not added to a session, which has a pool of that type of its own.
/// Threads: shares nothing; one thread at a time.
template <class T>
class QXDB_API DPoolTmp : public DPool<T> {
 public:
  /// `session` serves conversions; it does not hear of the pool.
  explicit DPoolTmp(CQXDBSession* session = nullptr)
      : DPool<T>(T::kType, session), io_name_(IONameOf(T::GetSchema().Name())), deletor_(*this) {
    this->recorder_ = nullptr;
  }

  DeletorBase* GetDeletor() override { return &deletor_; }
  const char16_t* GetIOName() const override { return io_name_.c_str(); }
  int NeedSaveNLoad() const override { return 0; }

  /// The pool's own scratch record, apart from that of the type.
  T& GetDefault() { return scratch_; }
  TStructBase* GetDataPtrForUndoRedo() override { return &scratch_; }
  TStructBase* CopyToDummyPtr(ITR& pos) override {
    scratch_ = this->GetAtNU(pos);
    return &scratch_;
  }

 private:
  T scratch_;
  std::u16string io_name_;
  DeletorBase deletor_;
};

}  // namespace qx
