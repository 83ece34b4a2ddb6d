#include "qx_db/pool/chain_table.h"

#include <algorithm>
#include <cstring>
#include <utility>

#include "qx_db/platform/prefetch.h"

namespace qx {

void ChainTable::Allocate(std::int32_t n) {
  n = std::max(n, kMinSize);
  const std::size_t bytes = LineCount(n) * sizeof(Line);
  AddressRange memory(bytes, bytes);
  memory.Back(bytes);
  memory_ = std::move(memory);
  lines_ = reinterpret_cast<Line*>(memory_.data());
  size_ = n;
  reciprocal_ = ~std::uint64_t{0} / static_cast<std::uint64_t>(n) + 1;
}

void ChainTable::Clear() {
  std::memset(static_cast<void*>(lines_), 0, LineCount(size_) * sizeof(Line));
}

void ChainTable::Prefetch(Key key) const {
  qx::Prefetch(reinterpret_cast<std::uint64_t>(&lines_[PlaceOf(key).line]));
}

char* ChainTable::Walk(std::uint32_t bucket, Key key) const {
  char* item = First(bucket);
  while (item && KeyAt(item) != key) item = LinksOf(item).hash_next;
  return item;
}

void ChainTable::Unlink(char* item) {
  const Place place = PlaceOf(KeyAt(item));
  Line& line = lines_[place.line];
  const unsigned mates = line.Matching(kUsed | place.local, kUsed | kLocalMask);
  if ((mates & (mates - 1)) == 0 && !line.IsIncomplete(place.local)) {
    // Alone in its chain, known without looking at its links.
    ItemLinks& links = LinksOf(item);
    links.hash_prev = links.hash_next = nullptr;
    line.tag[std::countr_zero(mates)] &= kIncomplete;
    return;
  }
  const ItemLinks& links = LinksOf(item);
  if (links.hash_next) LinksOf(links.hash_next).hash_prev = links.hash_prev;
  if (links.hash_prev) LinksOf(links.hash_prev).hash_next = links.hash_next;
  if (const unsigned entry = line.Naming(store_->NumberOf(item))) {
    line.tag[std::countr_zero(entry)] &= kIncomplete;
  }
  if (links.hash_prev) return;
  if (!links.hash_next) {  // the chain is empty, and so complete
    line.tag[place.local] &= ~kIncomplete;
    return;
  }
  // The next item is first now. Its key is looked at only when it has no entry yet.
  const std::uint32_t slot = store_->NumberOf(links.hash_next);
  if (const unsigned heir = line.Naming(slot)) {
    line.tag[std::countr_zero(heir)] |= kFirst;
  } else {
    AddEntry(line, PlaceOf(KeyAt(links.hash_next)), slot, true, EntriesFor(line, true));
  }
}

void ChainTable::Relink(char* item) {
  const Place place = PlaceOf(KeyAt(item));
  Line& line = lines_[place.line];
  const ItemLinks& links = LinksOf(item);
  const bool first = !links.hash_prev;
  const unsigned former = line.Matching(kUsed | kFirst | place.local, kFirstMask);
  const unsigned choice = EntriesFor(line, first);
  if (links.hash_next) LinksOf(links.hash_next).hash_prev = item;
  if (!first) LinksOf(links.hash_prev).hash_next = item;
  if (first && former) line.tag[std::countr_zero(former)] &= ~kFirst;
  AddEntry(line, place, store_->NumberOf(item), first, choice || !first ? choice : former);
}

void ChainTable::TakeOver(const ChainTable& old) {
  for (std::uint32_t b = 0; b < static_cast<std::uint32_t>(old.size_); ++b) {
    char* last[2] = {nullptr, nullptr};
    for (char* item = old.First(b); item;) {
      ItemLinks& links = LinksOf(item);
      char* next = links.hash_next;
      const Place place = PlaceOf(KeyAt(item));
      Line& line = lines_[place.line];
      char*& before = last[place.bucket != b];
      links.hash_prev = before;
      links.hash_next = nullptr;
      if (before) LinksOf(before).hash_next = item;
      AddEntry(line, place, store_->NumberOf(item), !before, EntriesFor(line, !before));
      before = item;
      item = next;
    }
  }
}

std::string ChainTable::ValidateEntries(std::uint32_t bucket, std::int32_t chained) const {
  const Line& line = lines_[bucket / kWidth];
  const std::uint32_t local = bucket % kWidth;
  const auto broken = [&](int number, const char* what) {
    return std::to_string(number) + " in bucket " + std::to_string(bucket) + ": " + what;
  };
  const unsigned entries = line.Matching(kUsed | local, kUsed | kLocalMask);
  const unsigned firsts = line.Matching(kUsed | kFirst | local, kFirstMask);
  if (std::popcount(firsts) != (chained > 0)) return broken(2, "has not one first entry");
  if (std::popcount(entries) < chained && !line.IsIncomplete(local)) {
    return broken(4, "hides items");
  }
  if (std::popcount(entries) > chained) return broken(3, "has entries of strangers");
  for (unsigned left = entries; left; left &= left - 1) {
    const int entry = std::countr_zero(left);
    const char* item = store_->At(line.slot[entry]);
    const Place place = PlaceOf(KeyAt(item));
    if (place.bucket != bucket || (line.tag[entry] & kNameMask) != place.Tag()) {
      return broken(3, "has an entry for another key");
    }
    for (unsigned others = left & (left - 1); others; others &= others - 1) {
      if (line.slot[std::countr_zero(others)] == line.slot[entry]) {
        return broken(3, "names an item twice");
      }
    }
  }
  return {};
}

std::string ChainTable::Validate(std::int32_t count) const {
  std::int32_t all = 0;
  for (std::uint32_t b = 0; b < static_cast<std::uint32_t>(size_); ++b) {
    if (!lines_[b / kWidth].Matching(kUsed, kUsed)) continue;  // none of its buckets has items
    const auto broken = [&](Key key, const char* what) {
      return "1 at key " + std::to_string(key) + ": " + what;
    };
    const char* before = nullptr;
    std::int32_t chained = 0;
    for (char* item = First(b); item; item = LinksOf(item).hash_next) {
      const Key key = KeyAt(item);
      if (++chained > count) return broken(key, "the chain does not end");
      if (static_cast<std::uint32_t>(key % size_) != b) return broken(key, "is in another's chain");
      if (LinksOf(item).hash_prev != before) return broken(key, "the chain links disagree");
      before = item;
    }
    all += chained;
    if (std::string fault = ValidateEntries(b, chained); !fault.empty()) return fault;
  }
  return all == count ? std::string() : "1: the chains do not hold every item";
}

void ChainTable::Swap(ChainTable& other) {
  std::swap(size_, other.size_);
  std::swap(reciprocal_, other.reciprocal_);
  std::swap(lines_, other.lines_);
  std::swap(memory_, other.memory_);
}

}  // namespace qx
