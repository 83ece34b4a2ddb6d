// Any bytes as the image of any record: what passes the check must read and write unchanged.

#include <cstdlib>
#include <vector>

#include "qx_db/qx_db.h"
#include "qx_db/record/verbs.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace qx;
  static CQXDBSession session(AddStandardPools);
  if (size < 1) return 0;
  DPoolBase& pool = *session.Pools()[data[0] % session.Pools().size()];
  std::vector<char> image(data + 1, data + size);
  const Schema& schema = pool.GetSchema();
  if (!CheckImage(schema, image.data(), image.size()).empty()) return 0;
  const auto made = pool.NewRecord();
  TStructBase& record = *made;
  if (!record.Stream2Data(image.data(), static_cast<int>(image.size()))) std::abort();
  if (record.GetSizePlusVfptr() - 8 != image.size()) std::abort();
  KeysToIterators(schema, record, session, ReferenceScope::kAll);
  std::vector<char> written(image.size());
  record.Data2Stream(written.data(), static_cast<int>(written.size()));
  if (!CheckImage(schema, written.data(), written.size()).empty()) std::abort();
  ImageIteratorsToKeys(schema, written.data());
  return 0;
}
