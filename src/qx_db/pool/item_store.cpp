#include "qx_db/pool/item_store.h"

#include <algorithm>
#include <cstring>

#include "qx_db/record/types.h"

#if defined(__SANITIZE_ADDRESS__)
#define QX_ASAN 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
#define QX_ASAN 1
#endif
#endif
#ifdef QX_ASAN
#include <sanitizer/asan_interface.h>
#else
#define ASAN_POISON_MEMORY_REGION(p, n) (static_cast<void>(p), static_cast<void>(n))
#define ASAN_UNPOISON_MEMORY_REGION(p, n) (static_cast<void>(p), static_cast<void>(n))
#endif

namespace qx {
namespace {

/// The state word of a returned slot: removed, and reserved so that no live item looks like it.
constexpr std::uint32_t kReturnedState = 0xA0000000;
/// State word and link; the rest of a returned slot is closed to the address sanitizer.
constexpr std::size_t kUsedWhenReturned = 12;
/// Slot numbers, and the key of each, fit 31 bits.
constexpr std::size_t kMostSlots = std::size_t{1} << 31;

std::uint64_t InverseOfOdd(std::uint64_t odd) {
  std::uint64_t inverse = odd;  // right to three bits; each step doubles them
  for (int i = 0; i < 5; ++i) inverse *= 2 - odd * inverse;
  return inverse;
}

}  // namespace

#ifdef NDEBUG
const bool ItemStore::kReuses = true;
#else
const bool ItemStore::kReuses = false;
#endif

ItemStore::ItemStore(std::uint32_t slot_size)
    : slot_size_(slot_size),
      shift_(std::countr_zero(slot_size)),
      inverse_(InverseOfOdd(slot_size >> shift_)) {}

void ItemStore::Grow() {
  if (!range_.data()) {
    // No set can outgrow memory; twice that leaves room for swap and for returned slots. Of the
    // addresses that are left a share only, so that the sets of a session find some
    // under a limit that has room for their records.
    constexpr std::size_t kShare = 16;
    const std::size_t most =
        std::min(std::max<std::size_t>(2 * PhysicalMemory(), std::size_t{1} << 30),
                 AddressesLeft() / kShare);
    range_ = AddressRange(std::min(kMostSlots * slot_size_, most), slot_size_ * std::size_t{1024});
    next_ = range_.data();
  }
  range_.Back(static_cast<std::size_t>(next_ - range_.data()) + slot_size_);
  end_ = range_.data() + range_.backed() / slot_size_ * slot_size_;
}

char* ItemStore::TakeReturned() {
  char* slot = free_;
  free_ = LoadAt<char*>(slot + 4);
  ASAN_UNPOISON_MEMORY_REGION(slot, slot_size_);
  return slot;
}

/// Marks a slot as one that no record is in.
void ItemStore::Close(char* slot) {
  StoreAt(slot, kReturnedState);
  StoreAt(slot + 4, free_);
  ASAN_POISON_MEMORY_REGION(slot + kUsedWhenReturned, slot_size_ - kUsedWhenReturned);
}

void ItemStore::Return(char* slot) {
  Close(slot);
  if (!generations_.empty()) {
    if (const std::uint32_t number = NumberOf(slot); number < generations_.size()) {
      ++generations_[number];
    }
  }
  if (kReuses) free_ = slot;
}

bool ItemStore::IsReturned(const char* slot) {
  return LoadAt<std::uint32_t>(slot) == kReturnedState;
}

void ItemStore::CountGenerations() {
  if (generations_.size() < SlotLimit()) generations_.resize(SlotLimit());
}

void ItemStore::Clear() {
  if (kReuses) return Release();
  if (!closed_) closed_ = range_.data();
  for (; closed_ != next_; closed_ += slot_size_) Close(closed_);
}

void ItemStore::Release() {
  // What is mapped here next must not find it closed.
  if (range_.data()) ASAN_UNPOISON_MEMORY_REGION(range_.data(), range_.backed());
  range_ = AddressRange();
  generations_.clear();
  next_ = end_ = free_ = closed_ = nullptr;
}

}  // namespace qx
