#include "qx_db/core/read_snapshot.h"

#include "qx_db/core/step_numbers.h"
#include "qx_db/platform/long_work.h"
#include "qx_db/pool/hash_size.h"
#include "qx_db/record/verbs.h"

namespace qx {

std::unique_ptr<CQXDBSession> TakeSnapshot(const CQXDBSession& session) {
  auto copy = std::make_unique<CQXDBSession>(session.Setup());
  copy->Units() = session.OwnUnits();
  copy->SetKeptHistory(session.KeptHistory());
  // The copies first, each by the slot of its original, then what they refer to.
  StepNumbers numbers;
  numbers.Reset(session);
  std::vector<std::vector<ITR>> copies(0x10000);
  std::size_t records = 0;
  for (const DPoolBase* pool : session.Pools()) {
    records += static_cast<std::size_t>(pool->GetSize());
  }
  LongWork work(2 * records);
  for (const DPoolBase* pool : session.Pools()) {
    DPoolBase* to = copy->GetDataPool(pool->GetTypeCode());
    if (!pool->NeedSaveNLoad() || !to) continue;
    auto& items = copies[pool->GetTypeCode()];
    items.reserve(static_cast<std::size_t>(pool->GetSize()));
    KeyedSetBase& set = PoolInside::SetOf(*to);
    set.SetHashSize(GF_GetHashSizeByCount(pool->GetSize()));
    for (ITR pos = pool->GetHeadPosition(); pos; pool->Next(pos)) {
      work.Step();
      const ITR item = set.CreateDetached(*KeyedSetBase::RecordAt(pos));
      set.AppendDetached(item);
      items.push_back(item);
    }
  }
  for (const DPoolBase* pool : copy->Pools()) {
    const Schema& schema = pool->GetSchema();
    if (schema.References().empty()) continue;
    for (const ITR item : copies[pool->GetTypeCode()]) {
      work.Step();
      ForEachReference(schema, *KeyedSetBase::RecordAt(item), [&](const Row& row, char* slot) {
        const auto original = LoadAt<ITR>(slot);
        const DPoolBase* target = session.GetDataPool(row.target);
        if (!original) return;
        const std::uint32_t number = target && !KeyedSetBase::IsRemoved(original)
                                         ? numbers.Of(*target, original)
                                         : StepNumbers::kNone;
        StoreAt(slot, number == StepNumbers::kNone ? ITR{0} : copies[row.target][number]);
      });
    }
  }
  return copy;
}

}  // namespace qx
