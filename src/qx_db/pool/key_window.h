#pragma once
// From key to slot by subtraction, while the keys of a set lie close together.
// Threads: as KeyedSetBase, of which it is a part.

#include <algorithm>
#include <cstdint>
#include <cstring>

#include "qx_db/platform/pages.h"
#include "qx_db/platform/prefetch.h"
#include "qx_db/record/types.h"

namespace qx {

/// An array of slot numbers over the keys [base, base + size): a lookup is one load of four bytes,
/// a sixteenth of what a hash table's line takes of a cache. It holds no two records of one key.
class QXDB_API KeyWindow {
 public:
  static constexpr std::uint32_t kNone = ~std::uint32_t{0};

  /// The slot of a key, kNone where it has none. Any key may be asked for.
  std::uint32_t SlotOf(Key key) const {
    const std::uint32_t at = Distance(key);
    return at < size_ ? ~slots_[at] : kNone;
  }
  bool Covers(Key key) const { return Distance(key) < size_; }
  /// How many keys the window would span, were it to cover this one as well.
  std::uint64_t SpanWith(Key key) const {
    const std::uint64_t at = static_cast<std::uint32_t>(key);
    if (size_ == 0) return 1;
    return std::max(at + 1, std::uint64_t{base_} + size_) - std::min<std::uint64_t>(at, base_);
  }
  /// Makes the window cover all keys from `least` to `most`, keeping what it holds. False, changing
  /// nothing, where the system has no room for that.
  bool Cover(Key least, Key most);
  /// Requires Covers(key).
  void Set(Key key, std::uint32_t slot) { slots_[Distance(key)] = ~slot; }
  void Unset(Key key) { slots_[Distance(key)] = 0; }
  void Prefetch(Key key) const {
    if (Covers(key)) qx::Prefetch(reinterpret_cast<std::uint64_t>(slots_ + Distance(key)));
  }

  struct FetchNothing {
    void operator()(std::uint32_t) const {}
  };
  /// Calls visit(key, slot) for every key that has one, ascending; fetch(slot) some steps before,
  /// to start loading what the visit will need.
  template <class Visit, class Fetch = FetchNothing>
  void ForEach(Visit&& visit, Fetch&& fetch = {}) const {
    constexpr std::uint32_t kAhead = 16;
    for (std::uint32_t at = 0; at < size_; ++at) {
      if (at + kAhead < size_ && slots_[at + kAhead]) fetch(~slots_[at + kAhead]);
      if (slots_[at]) visit(static_cast<Key>(base_ + at), ~slots_[at]);
    }
  }

  /// Forgets all slots, and the keys that it covers.
  void Close() {
    memory_ = AddressRange();
    slots_ = nullptr;
    base_ = size_ = 0;
  }
  /// Forgets all slots.
  void Empty() {
    if (size_ > 0) std::memset(slots_, 0, size_ * sizeof(*slots_));
  }
  std::size_t Footprint() const { return size_ * sizeof(*slots_); }
  void Swap(KeyWindow& other);

 private:
  std::uint32_t Distance(Key key) const { return static_cast<std::uint32_t>(key) - base_; }

  std::uint32_t base_ = 0;
  std::uint32_t size_ = 0;  // base + size is at most 2^31, so that no negative key is covered
  std::uint32_t* slots_ = nullptr;  // slot numbers inverted: fresh memory, all zero, holds none
  AddressRange memory_;
};

}  // namespace qx
