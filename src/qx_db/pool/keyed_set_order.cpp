// The list of a keyed set: handed out, and put in order.

#include <algorithm>
#include <utility>
#include <vector>

#include "qx_db/platform/prefetch.h"
#include "qx_db/pool/keyed_set_walk.h"

namespace qx {

struct KeyedSetBase::KeySlot {
  Key key;
  std::uint32_t slot;
};

std::int32_t KeyedSetBase::GetItrList(TArray<ITR>& out, int sorted) {
  const std::vector<KeySlot> pairs = sorted ? Sort() : std::vector<KeySlot>();
  if (pairs.empty()) return std::as_const(*this).GetItrList(out);
  out.RemoveAll();
  out.SetSize(count_);
  ITR* at = out.data();
  for (const KeySlot& pair : pairs) *at++ = ToItr(store_.At(pair.slot));
  return count_;
}

std::int32_t KeyedSetBase::GetItrList(TArray<ITR>& out) const {
  out.RemoveAll();
  out.SetSize(count_);
  ITR* at = out.data();
  if (dense_ && ascending_ && !IsWindowWide()) {  // without looking at a record
    window_.ForEach([&](Key, std::uint32_t slot) {
      if (at != out.end()) *at++ = ToItr(store_.At(slot));
    });
  } else {
    ForEachItem([&](char* item) { *at++ = ToItr(item); });
  }
  return count_;
}

std::int32_t KeyedSetBase::GetKeyList(TArray<Key>& out, int sorted) {
  out.RemoveAll();
  const std::vector<KeySlot> pairs = sorted ? Sort() : std::vector<KeySlot>();
  out.SetSize(count_);
  Key* at = out.data();
  if (!pairs.empty()) {
    for (const KeySlot& pair : pairs) *at++ = pair.key;
  } else if (dense_ && ascending_ && !IsWindowWide()) {
    window_.ForEach([&](Key key, std::uint32_t) {
      if (at != out.end()) *at++ = key;
    });
  } else {
    ForEachItem([&](char* item) { *at++ = KeyAt(item); });
  }
  return count_;
}

bool KeyedSetBase::InOrder() const {
  for (char* item = head_; item; item = LinksOf(item).list_next) {
    const char* next = LinksOf(item).list_next;
    if (next && KeyAt(item) >= KeyAt(next)) return false;
  }
  return true;
}

/// All records, ascending by key, in the order of their chain where keys are equal.
std::vector<KeyedSetBase::KeySlot> KeyedSetBase::SortedSlots() const {
  std::vector<KeySlot> pairs, sorted;
  pairs.reserve(static_cast<std::size_t>(count_));
  if (dense_) {
    ForEachItem([&](const char* item) { pairs.push_back({KeyAt(item), store_.NumberOf(item)}); });
  } else {
    table_.ForEach(shared_keys_, [&](Key key, std::uint32_t slot) {
      pairs.push_back({key, slot});
    });
  }
  sorted.resize(pairs.size());
  // By digits from the lowest up, as many as the range of keys has.
  constexpr int kBits = 11;
  constexpr std::uint32_t kDigits = 1u << kBits;
  const auto range = static_cast<std::uint32_t>(max_key_ - min_key_);
  const auto least = static_cast<std::uint32_t>(min_key_);
  for (int shift = 0; shift < 32 && range >> shift != 0; shift += kBits) {
    std::uint32_t begin[kDigits] = {};
    const auto digit = [&](const KeySlot& pair) {
      return (static_cast<std::uint32_t>(pair.key) - least) >> shift & (kDigits - 1);
    };
    for (const KeySlot& pair : pairs) ++begin[digit(pair)];
    std::uint32_t sum = 0;
    for (std::uint32_t& n : begin) sum += std::exchange(n, sum);
    for (const KeySlot& pair : pairs) sorted[begin[digit(pair)]++] = pair;
    pairs.swap(sorted);
  }
  return pairs;
}

/// Links the items that are listed or, where none is, those of the window.
void KeyedSetBase::LinkAscending(const std::vector<KeySlot>& sorted) {
  char* last = nullptr;
  const auto fetch = [&](std::uint32_t slot) {
    const char* links = store_.At(slot) + links_offset_;
    Prefetch(links);
    Prefetch(links + sizeof(ItemLinks) - 1);
  };
  const auto append = [&](std::uint32_t slot) {
    char* item = store_.At(slot);
    LinksOf(item).list_prev = last;
    (last ? LinksOf(last).list_next : head_) = item;
    last = item;
  };
  if (sorted.empty()) {
    window_.ForEach([&](Key, std::uint32_t slot) { append(slot); }, fetch);
  } else {
    constexpr std::size_t kAhead = 16;
    for (std::size_t i = 0; i < sorted.size(); ++i) {
      if (i + kAhead < sorted.size()) fetch(sorted[i + kAhead].slot);
      append(sorted[i].slot);
    }
  }
  LinksOf(last).list_next = nullptr;
  tail_ = last;
}

/// Sorts the list, and returns what it is in order, where that had to be found out by sorting.
std::vector<KeyedSetBase::KeySlot> KeyedSetBase::Sort() {
  if (count_ == 0) return {};
  Optimize();
  if (ascending_) return {};
  std::vector<KeySlot> sorted;
  if (!InOrder()) {  // as it is after undo, which costs one walk
    if (!dense_ || IsWindowWide()) sorted = SortedSlots();
    ++list_epoch_;
    LinkAscending(sorted);
  }
  ascending_ = !shared_keys_;
  return sorted;
}

void KeyedSetBase::SortAsc() { Sort(); }

}  // namespace qx
