#include "qx_db/core/rehearsal.h"

#include <utility>

#include "qx_db/core/relations.h"

namespace qx {

Rehearsal::Rehearsal(const CQXDBSession& session)
    : session_(const_cast<CQXDBSession&>(session)),
      transaction_(&session_),
      outer_(session_.innermost_),
      rolled_back_(!outer_ && session_.journal_.IsOpen()),
      units_(session_.OwnUnits()),
      tellings_(std::exchange(session_.tellings_, 0)),
      recording_(session_.recording_),
      minds_unrecorded_(session_.minds_unrecorded_),
      rehearsing_(session_.rehearsing_),
      round_(session_.round_),
      rekeyed_(session_.rekeyed_.size()),
      belongings_(*session_.belongings_) {
  for (const DPoolBase* pool : session_.Pools()) {
    pools_.push_back({pool->ChangeFlags(), pool->Set().Remember()});
  }
  if (rolled_back_) aside_ = std::move(session_.journal_.Current());
  session_.telling_ = false;
  session_.round_ = 0;
  session_.relations_->Forget();  // what it knows may be of a step that is being told of
  session_.BeginTransaction(transaction_, u"");
  session_.rehearsing_ = session_.recording_ = true;
  begin_ = session_.journal_.Mark();
}

Rehearsal::~Rehearsal() {
  if (session_.journal_.Mark() != begin_) session_.journal_.RollbackTo(begin_);
  if (rolled_back_) {
    session_.journal_.TakeBackOpen();  // as which it is known
    session_.journal_.Current() = std::move(aside_);
  } else if (!outer_) {
    session_.journal_.Discard();
  }
  session_.SetUnits(units_);
  session_.innermost_ = outer_;
  session_.tellings_ += tellings_;
  session_.telling_ = session_.tellings_ > 0;
  session_.recording_ = recording_;
  session_.minds_unrecorded_ = minds_unrecorded_;
  session_.round_ = round_;
  session_.rehearsing_ = rehearsing_;
  session_.rekeyed_.resize(rekeyed_);
  session_.relations_->Forget();
  *session_.belongings_ = std::move(belongings_);
  std::size_t i = 0;
  for (DPoolBase* pool : session_.Pools()) {
    pool->SetChangeFlags(pools_[i].flags);
    PoolInside::SetOf(*pool).Recall(pools_[i++].memory);
  }
}

void Rehearsal::Settle() {
  session_.ProcessRelations();
  session_.RefuseSharedKeys();
}

std::vector<RecordChange> Rehearsal::Changes() const { return ChangesOfOpenStep(session_, begin_); }

}  // namespace qx
