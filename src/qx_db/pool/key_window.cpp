#include "qx_db/pool/key_window.h"

#include <algorithm>
#include <new>
#include <utility>

namespace qx {
namespace {

constexpr std::uint64_t kKeys = std::uint64_t{kMaxKey} + 1;
constexpr std::uint64_t kStep = 4096;  // a window begins at a multiple of so many keys
constexpr std::size_t kEntry = sizeof(std::uint32_t);

}  // namespace

bool KeyWindow::Cover(Key least, Key most) {
  const std::uint64_t first = static_cast<std::uint32_t>(least);
  const std::uint64_t end = std::uint64_t{static_cast<std::uint32_t>(most)} + 1;
  try {
    const bool moves = size_ == 0 || first < base_ || (end - base_) * kEntry > memory_.size();
    if (!moves) {
      memory_.Back(static_cast<std::size_t>(end - base_) * kEntry);
    } else {
      // With as much room again as it spans, below where it grows there, above else, so that it
      // seldom moves and takes no more addresses than it may need.
      const bool down = size_ > 0 && first < base_;
      const std::uint64_t from = size_ > 0 ? std::min<std::uint64_t>(first, base_) : first;
      const std::uint64_t to = std::max(end, size_ > 0 ? std::uint64_t{base_} + size_ : 0);
      const std::uint64_t more = to - from;
      const std::uint64_t base = (down ? from - std::min(from, more) : from) / kStep * kStep;
      const std::uint64_t last = down ? to : std::min(to + more, kKeys);
      const std::size_t needed = static_cast<std::size_t>(to - base) * kEntry;
      AddressRange memory(static_cast<std::size_t>(last - base) * kEntry, needed);
      memory.Back(needed);
      auto* slots = reinterpret_cast<std::uint32_t*>(memory.data());
      if (size_ > 0) std::memcpy(slots + (base_ - base), slots_, size_ * kEntry);
      memory_ = std::move(memory);
      slots_ = slots;
      base_ = static_cast<std::uint32_t>(base);
    }
  } catch (const std::bad_alloc&) {
    return false;
  }
  size_ =
      static_cast<std::uint32_t>(std::min<std::uint64_t>(memory_.backed() / kEntry, kKeys - base_));
  return true;
}

void KeyWindow::Swap(KeyWindow& other) {
  std::swap(base_, other.base_);
  std::swap(size_, other.size_);
  std::swap(slots_, other.slots_);
  std::swap(memory_, other.memory_);
}

}  // namespace qx
