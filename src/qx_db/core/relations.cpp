#include "qx_db/core/relations.h"

#include <algorithm>
#include <vector>

#include "qx_db/core/session.h"
#include "qx_db/record/verbs.h"

namespace qx {
namespace {

bool IsDead(ITR itr) { return itr != 0 && KeyedSetBase::IsRemoved(itr); }

bool HasDeadReference(const std::vector<const Row*>& rows, TStructBase& record) {
  char* bytes = detail::Bytes(record);
  for (const Row* row : rows) {
    if (!row->IsArray()) {
      if (IsDead(LoadAt<ITR>(bytes + row->offset))) return true;
      continue;
    }
    const ArrayStorage& array = detail::ArrayAt(bytes, *row);
    const char* slot = static_cast<const char*>(array.data) + std::max(row->inner_reference, 0);
    for (std::int32_t i = 0; i < array.count; ++i, slot += row->element_size) {
      if (IsDead(LoadAt<ITR>(slot))) return true;
    }
  }
  return false;
}

void DropFrom(const std::vector<const Row*>& rows, TStructBase& record) {
  char* bytes = detail::Bytes(record);
  for (const Row* row : rows) {
    if (!row->IsArray()) {
      if (IsDead(LoadAt<ITR>(bytes + row->offset))) StoreAt<ITR>(bytes + row->offset, 0);
      continue;
    }
    ArrayStorage& array = detail::ArrayAt(bytes, *row);
    const auto size = static_cast<std::size_t>(row->element_size);
    char* kept = static_cast<char*>(array.data);
    for (std::int32_t i = 0; i < array.count; ++i) {
      const char* element = static_cast<char*>(array.data) + static_cast<std::size_t>(i) * size;
      if (IsDead(LoadAt<ITR>(element + std::max(row->inner_reference, 0)))) continue;
      std::memmove(kept, element, size);
      kept += size;
    }
    array.count =
        static_cast<std::int32_t>((kept - static_cast<char*>(array.data)) / row->element_size);
  }
}

}  // namespace

int DropDeadReferences(DPoolBase& pool) {
  std::vector<const Row*> rows;
  for (const Row* row : pool.GetSchema().References()) {
    const DPoolBase* target = pool.GetSession()->GetDataPool(row->target);
    if (target && target->HasChanged(DPoolBase::kRemovedFlag)) rows.push_back(row);
  }
  if (rows.empty()) return 0;
  int changed = 0;
  for (ITR pos = pool.GetHeadPosition(); pos; pool.Next(pos)) {
    if (!HasDeadReference(rows, *KeyedSetBase::RecordAt(pos))) continue;
    TStructBase* repaired = pool.CopyToDummyPtr(pos);
    DropFrom(rows, *repaired);
    changed += pool.SetAtNU(pos, repaired);
  }
  return changed;
}

}  // namespace qx
