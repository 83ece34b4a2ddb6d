#pragma once
// The records of mesh sets and of their rules.
// Threads: the one that drives the session.

#include "qx_db/core/belongings.h"
#include "qx_db/core/session.h"
#include "qx_db/model/set_rules.h"
#include "qx_db/model/standard_pools.h"

namespace qx::select {

inline const tagTMset& SetAt(ITR set) {
  return *static_cast<const tagTMset*>(KeyedSetBase::RecordAt(set));
}

/// Null where the kind of model has no rules.
inline DPoolSetRule* RulesOf(const CQXDBSession& session) {
  return session.GetPool<DPoolSetRule>(code::kSetRule);
}

/// The rule record of a set; 0 for none.
inline ITR RuleAt(const CQXDBSession& session, ITR set) {
  const DPoolSetRule* const rules = RulesOf(session);
  if (!rules || rules->GetSize() == 0) return 0;
  return session.Owned().Find(code::kSetRule, set);
}

}  // namespace qx::select
