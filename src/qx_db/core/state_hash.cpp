// The hash that tells two states of a model apart.

#define XXH_INLINE_ALL
#include <algorithm>
#include <vector>
#include <xxhash.h>

#include "qx_db/core/image_stream.h"
#include "qx_db/core/session.h"
#include "qx_db/platform/long_work.h"
#include "qx_db/record/verbs.h"

namespace qx {

std::uint64_t CQXDBSession::StateHash() const {
  XXH3_state_t state;
  XXH3_64bits_reset(&state);
  for (const UnitSystem& system : {OwnUnits().Model(), OwnUnits().Current()}) {
    XXH3_64bits_update(&state, system.index.data(), sizeof(system.index));
  }
  std::vector<DPoolBase*> pools(order_);
  std::sort(pools.begin(), pools.end(),
            [](auto* a, auto* b) { return a->GetTypeCode() < b->GetTypeCode(); });
  std::vector<char> image;
  std::size_t records = 0;
  for (const DPoolBase* pool : pools) records += static_cast<std::size_t>(pool->GetSize());
  LongWork work(records);
  for (const DPoolBase* pool : pools) {
    if (!pool->NeedSaveNLoad() || pool->GetSize() == 0) continue;
    const std::int32_t head[2] = {pool->GetTypeCode(), pool->GetSize()};
    XXH3_64bits_update(&state, head, sizeof(head));
    const Schema& schema = pool->GetSchema();
    for (ITR pos = pool->GetHeadPosition(); pos; pool->Next(pos)) {
      work.Step();
      const TStructBase& record = *KeyedSetBase::RecordAt(pos);
      image.resize(ImageSize(schema, record));
      WriteImage(schema, record, image.data());
      image.resize(DropUnsaved(schema, image.data(), image.size()));
      ImageIteratorsToKeys(schema, image.data());
      XXH3_64bits_update(&state, image.data(), image.size());
    }
  }
  return XXH3_64bits_digest(&state);
}

}  // namespace qx
