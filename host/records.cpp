#include "host/records.h"

namespace qx::host {

bool RefersTo(DPoolBase& pool, std::uint16_t type, ITR itr) {
  const auto references = pool.GetSchema().References();
  const bool may = std::any_of(references.begin(), references.end(),
                               [&](const Row* row) { return row->target == type; });
  bool found = false;
  for (ITR pos = may ? pool.GetHeadPosition() : 0; pos && !found; pool.Next(pos)) {
    ForEachReference(pool.GetSchema(), *KeyedSetBase::RecordAt(pos),
                     [&](const Row& row, const char* slot) {
                       found |= row.target == type && LoadAt<ITR>(slot) == itr;
                     });
  }
  return found;
}

bool IsReferenced(CQXDBSession& session, std::uint16_t type, ITR itr) {
  const auto pools = session.Pools();
  return std::any_of(pools.begin(), pools.end(),
                     [&](DPoolBase* pool) { return RefersTo(*pool, type, itr); });
}

}  // namespace qx::host
