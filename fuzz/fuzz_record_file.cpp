// Any bytes as a record file: refused, or records that stand in their pool.

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <string>
#define XXH_INLINE_ALL
#include <xxhash.h>

#include "qx_db/qx_db.h"
#include "qx_db/record/verbs.h"

namespace {

/// Mends length and checksum of the header, so that the fuzzer gets behind them: the first byte
/// says where the header ends.
std::string Mended(const std::uint8_t* data, std::size_t size) {
  std::string file("QXDBREC1");
  const std::size_t text = std::min<std::size_t>(size - 1, 8U * data[0]);
  const std::uint64_t numbers[2] = {text, XXH3_64bits(data + 1, text)};
  file.append(reinterpret_cast<const char*>(numbers), sizeof numbers);
  return file.append(reinterpret_cast<const char*>(data + 1), size - 1);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace qx;
  static CQXDBSession session(AddStandardPools);
  if (size < 1) return 0;
  for (const bool mend : {false, true}) {
    CQXBulkHandler file("input");
    const Outcome opened = file.OpenBytes(
        mend ? Mended(data, size) : std::string(reinterpret_cast<const char*>(data), size));
    DPoolBase* pool = opened ? session.GetDataPool(file.Header().type) : nullptr;
    if (!pool || !file.Read(*pool)) continue;
    for (ITR pos = pool->GetHeadPosition(); pos; pool->Next(pos)) {
      KeysToIterators(pool->GetSchema(), *KeyedSetBase::RecordAt(pos), session,
                      ReferenceScope::kAll);
    }
    if (!session.Validate().empty()) std::abort();
    PoolInside::SetOf(*pool).RemoveAll();
  }
  return 0;
}
