#include "qx_db/pool/key_window.h"

#include <new>
#include <utility>

namespace qx {
namespace {

constexpr std::uint64_t kKeys = std::uint64_t{kMaxKey} + 1;
constexpr std::uint32_t kStep = 4096;  // keys; a page or so of system memory each

}  // namespace

bool KeyWindow::Cover(Key least, Key most) {
  const std::uint32_t first = static_cast<std::uint32_t>(least);
  const std::uint64_t end = std::uint64_t{static_cast<std::uint32_t>(most)} + 1;
  try {
    if (size_ == 0 || first < base_) {
      // Downwards it has to move: by as much again as it spans, so that it seldom does.
      const std::uint64_t to = std::max(end, std::uint64_t{base_} + size_);
      const std::uint64_t span = size_ == 0 ? 0 : to - first;
      const auto base =
          static_cast<std::uint32_t>(first - std::min<std::uint64_t>(first, span)) / kStep * kStep;
      AddressRange memory((kKeys - base) * sizeof(*slots_), (to - base) * sizeof(*slots_));
      memory.Back(static_cast<std::size_t>(to - base) * sizeof(*slots_));
      auto* slots = reinterpret_cast<std::uint32_t*>(memory.data());
      if (size_ > 0) std::memcpy(slots + (base_ - base), slots_, size_ * sizeof(*slots_));
      memory_ = std::move(memory);
      slots_ = slots;
      base_ = base;
    } else {
      memory_.Back(static_cast<std::size_t>(end - base_) * sizeof(*slots_));
    }
  } catch (const std::bad_alloc&) {
    return false;
  }
  size_ = static_cast<std::uint32_t>(
      std::min<std::uint64_t>(memory_.backed() / sizeof(*slots_), kKeys - base_));
  return true;
}

void KeyWindow::Swap(KeyWindow& other) {
  std::swap(base_, other.base_);
  std::swap(size_, other.size_);
  std::swap(slots_, other.slots_);
  std::swap(memory_, other.memory_);
}

}  // namespace qx
