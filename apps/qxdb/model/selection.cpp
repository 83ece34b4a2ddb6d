#include "apps/qxdb/model/selection.h"

#include <algorithm>
#include <charconv>

#include "qx_db/core/pool_names.h"
#include "qx_db/platform/text.h"

namespace qx::app {
namespace {

/// A key that fills the whole text.
bool ParseKey(std::string_view text, Key& key) {
  const char* end = text.data() + text.size();
  const auto result = std::from_chars(text.data(), end, key);
  return !text.empty() && text[0] != '-' && result.ec == std::errc() && result.ptr == end;
}

}  // namespace

Result<KeyRanges> KeyRanges::Parse(const std::string& text) {
  KeyRanges parsed;
  if (EqualNoCase(text, "all")) {
    parsed.ranges_.emplace_back(0, kMaxKey);
    return parsed;
  }
  for (std::size_t begin = 0; begin <= text.size();) {
    const std::size_t end = std::min(text.find(',', begin), text.size());
    const std::string_view part = std::string_view(text).substr(begin, end - begin);
    const auto dash = part.find('-');
    Key first = 0;
    Key last = kMaxKey;
    bool good = ParseKey(part.substr(0, dash), first);
    if (dash == std::string_view::npos) {
      last = first;
    } else if (dash + 1 < part.size()) {
      good = good && ParseKey(part.substr(dash + 1), last);
    }
    if (!good || last < first) {
      return Failure{"", "keys \"" + text + "\"", "\"" + std::string(part) + "\" is no range",
                     "write keys as 1-5,9,100- or all"};
    }
    parsed.ranges_.emplace_back(first, last);
    begin = end + 1;
  }
  return parsed;
}

bool KeyRanges::Contains(Key key) const {
  return std::any_of(ranges_.begin(), ranges_.end(),
                     [&](const auto& r) { return key >= r.first && key <= r.second; });
}

TArray<ITR> KeyRanges::Select(const DPoolBase& pool) const {
  TArray<ITR> selected;
  for (ITR pos = pool.GetHeadPosition(); pos; pool.Next(pos)) {
    if (Contains(KeyedSetBase::RecordAt(pos)->GetKey())) selected.Add(pos);
  }
  return selected;
}

std::string PoolLabel(const DPoolBase& pool) { return PoolName(pool); }

Result<DPoolBase*> FindPool(CQXDBSession& session, const std::string& name) {
  if (DPoolBase* pool = FindPoolByName(session, name)) return pool;
  std::string known;
  for (const DPoolBase* pool : session.Pools())
    known += (known.empty() ? "" : ", ") + PoolName(*pool);
  return Failure{"", "pool \"" + name + "\"", "there is no such pool", "name one of " + known};
}

std::int64_t CountOf(const TArray<ITR>& list) {
  std::vector<ITR> items(list.begin(), list.end());
  std::sort(items.begin(), items.end());
  const auto end = std::unique(items.begin(), items.end());
  return end - items.begin() - (end != items.begin() && items.front() == 0);
}

Failure NothingSelected(const std::string& file, const DPoolBase& pool, const std::string& keys) {
  return {file, "pool " + PoolLabel(pool), "has no record with keys " + keys,
          "see the keys with: qxdb show " + file + " " + PoolLabel(pool)};
}

}  // namespace qx::app
