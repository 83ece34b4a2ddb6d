#include "qx_db/pool/bulk_edit.h"

#include <algorithm>

#include "qx_db/platform/long_work.h"
#include "qx_db/platform/prefetch.h"
#include "qx_db/record/verbs.h"

namespace qx {
namespace {

constexpr std::size_t kItemsAhead = 12;  // items on their way while one is changed
constexpr std::size_t kLine = 64;

/// Starts loading the arrays of a record, which must be in the cache.
void FetchArrays(const Schema& schema, ITR at) {
  const char* record = reinterpret_cast<const char*>(KeyedSetBase::RecordAt(at));
  for (const Schema::Segment& segment : schema.Segments()) {
    if (segment.array) Prefetch(detail::ArrayAt(record, *segment.array).data);
  }
}

}  // namespace

std::size_t SetMany(DPoolBase& pool, std::span<const ITR> positions,
                    const std::function<void(TStructBase&, std::size_t)>& change) {
  const KeyedSetBase& set = pool.Set();
  const Schema& schema = pool.GetSchema();
  // What follows the first lines of a long record the processor fetches by itself.
  const std::size_t bytes =
      std::min<std::size_t>(sizeof(std::uint32_t) + pool.GetCheckSize(), 4 * kLine);
  const auto fetch = [&](std::size_t i) {
    if (i < positions.size()) {
      for (std::size_t at = 0; at < bytes; at += kLine) Prefetch(positions[i] + at);
    }
    const std::size_t near = i - kItemsAhead / 2;  // fetched a while ago
    if (schema.HasArrays() && i >= kItemsAhead / 2 && near < positions.size() &&
        set.IsLinked(positions[near])) {
      FetchArrays(schema, positions[near]);
    }
  };
  for (std::size_t i = 0; i < kItemsAhead; ++i) fetch(i);
  LongWork work(positions.size());
  const auto record = pool.NewRecord();  // one for all, for its arrays' room
  for (std::size_t i = 0; i < positions.size(); ++i) {
    fetch(i + kItemsAhead);
    work.Step();
    if (!set.IsLinked(positions[i])) return i;
    set.CopyTo(*record, positions[i]);
    change(*record, i);
    if (!pool.SetAtNU(positions[i], record.get())) return i;
  }
  return positions.size();
}

}  // namespace qx
