#include "qx_db/core/model_diff.h"

#include <cstring>

#include "qx_db/core/image_stream.h"
#include "qx_db/record/verbs.h"

namespace qx {
namespace {

using Kind = RecordDifference::Kind;

/// A record's image with keys for references, which two sessions have in common.
void KeyedImage(const Schema& schema, ITR item, std::vector<char>& image) {
  const TStructBase& record = *KeyedSetBase::RecordAt(item);
  image.resize(ImageSize(schema, record));
  WriteImage(schema, record, image.data());
  image.resize(DropUnsaved(schema, image.data(), image.size()));
  ImageIteratorsToKeys(schema, image.data());
}

std::vector<const Row*> ChangedMembers(const Schema& schema, const std::vector<char>& a,
                                       const std::vector<char>& b) {
  std::vector<const Row*> changed;
  const auto in_a = MemberOffsets(schema, a.data());
  const auto in_b = MemberOffsets(schema, b.data());
  for (std::size_t i = 0; i < schema.Rows().size(); ++i) {
    const std::size_t size = in_a[i + 1] - in_a[i];
    const bool equal = in_b[i + 1] - in_b[i] == size &&
                       std::memcmp(a.data() + in_a[i], b.data() + in_b[i], size) == 0;
    if (!equal) changed.push_back(&schema.Rows()[i]);
  }
  return changed;
}

bool SameOrder(const DPoolBase& a, const DPoolBase& b) {
  ITR x = a.GetHeadPosition();
  ITR y = b.GetHeadPosition();
  while (x && y && KeyOf(x) == KeyOf(y)) {
    a.Next(x);
    b.Next(y);
  }
  return !x && !y;
}

void DiffPools(const DPoolBase& first, const DPoolBase* second,
               std::vector<RecordDifference>& differences) {
  const std::uint16_t type = first.GetTypeCode();
  const Schema& schema = first.GetSchema();
  const std::size_t before = differences.size();
  bool same_keys = true;
  std::vector<char> a;
  std::vector<char> b;
  for (ITR pos = first.GetHeadPosition(); pos; first.Next(pos)) {
    const Key key = KeyOf(pos);
    const ITR other = second ? second->Find(key) : 0;
    if (!other) {
      differences.push_back({Kind::kOnlyInFirst, type, key, {}});
      same_keys = false;
      continue;
    }
    KeyedImage(schema, pos, a);
    KeyedImage(schema, other, b);
    if (a == b) continue;
    differences.push_back({Kind::kChanged, type, key, ChangedMembers(schema, a, b)});
  }
  for (ITR pos = second ? second->GetHeadPosition() : 0; pos; second->Next(pos)) {
    if (first.Find(KeyOf(pos))) continue;
    differences.push_back({Kind::kOnlyInSecond, type, KeyOf(pos), {}});
    same_keys = false;
  }
  if (same_keys && second && !SameOrder(first, *second)) {
    differences.insert(differences.begin() + static_cast<std::ptrdiff_t>(before),
                       {Kind::kOrder, type, 0, {}});
  }
}

}  // namespace

std::vector<RecordDifference> DiffModels(const CQXDBSession& first, const CQXDBSession& second) {
  std::vector<RecordDifference> differences;
  for (const DPoolBase* pool : first.Pools()) {
    if (pool->NeedSaveNLoad()) {
      DiffPools(*pool, second.GetDataPool(pool->GetTypeCode()), differences);
    }
  }
  for (const DPoolBase* pool : second.Pools()) {
    if (!pool->NeedSaveNLoad() || first.GetDataPool(pool->GetTypeCode())) continue;
    for (ITR pos = pool->GetHeadPosition(); pos; pool->Next(pos)) {
      differences.push_back({Kind::kOnlyInSecond, pool->GetTypeCode(), KeyOf(pos), {}});
    }
  }
  return differences;
}

}  // namespace qx
