// Where records meet the session: keys are looked up in its pools.

#include "qx_db/core/session.h"
#include "qx_db/record/verbs.h"

namespace qx {

ITR FindRecord(CQXDBSession& session, std::uint16_t type, Key key) {
  const DPoolBase* pool = session.GetDataPool(type);
  return pool ? pool->Find(key) : 0;
}

int KeysToIterators(const Schema& schema, TStructBase& record, CQXDBSession& session,
                    ReferenceScope scope) {
  int unknown = 0;
  const Row* current = nullptr;
  const KeyedSetBase* pool = nullptr;
  ForEachReference(schema, record, [&](const Row& row, char* slot) {
    if (row.reference_rule == ReferenceRule::kLeftAlone && scope == ReferenceScope::kOwn) return;
    if (&row != current) {
      current = &row;
      DPoolBase* target = session.GetDataPool(row.target);
      pool = target ? &target->Set() : nullptr;
    }
    const auto key = LoadAt<Key>(slot);  // the key is in the low half
    // An array's entries are always looked up, a single reference only when it is set.
    const bool optional = !row.IsArray() && row.reference_rule != ReferenceRule::kAlwaysLookUp;
    const ITR found = pool && !(optional && key == 0) ? pool->Find(key) : 0;
    if (found == 0 && key != 0 && row.reference_rule != ReferenceRule::kNotSaved) ++unknown;
    StoreAt(slot, found);
  });
  return unknown;
}

}  // namespace qx
