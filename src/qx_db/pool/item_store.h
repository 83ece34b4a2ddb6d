#pragma once
// Memory for the items of one keyed set: slots of one size in one range of addresses.

#include <bit>
#include <cstddef>
#include <cstdint>

#include "qx_db/platform/pages.h"

namespace qx {

/// Hands out uninitialised slots. A slot never moves, and its number and its address convert into
/// each other by arithmetic, so that a hash table can name it in 32 bits. Taking is a bump of a
/// pointer or a pop of the list of returned slots; giving everything back is at once.
class QXDB_API ItemStore {
 public:
  explicit ItemStore(std::uint32_t slot_size);
  ~ItemStore() { Clear(); }
  ItemStore(ItemStore&&) noexcept = default;
  ItemStore& operator=(ItemStore&&) noexcept = default;

  /// Throws std::bad_alloc.
  char* Take() {
    if (free_) return TakeReturned();
    if (next_ == end_) Grow();
    char* slot = next_;
    next_ += slot_size_;
    return slot;
  }
  /// Gives a slot back. Its first word keeps the mark of a removed item until it is taken again.
  void Return(char* slot);
  /// Gives back all slots and their memory.
  void Clear();

  char* At(std::uint32_t number) const { return range_.data() + std::size_t{number} * slot_size_; }
  std::uint32_t NumberOf(const char* slot) const {
    // Exact division: the odd part of the slot size has an inverse modulo 2^64.
    const auto distance = static_cast<std::uint64_t>(slot - range_.data());
    return static_cast<std::uint32_t>((distance >> shift_) * inverse_);
  }
  /// One more than the highest slot number taken so far.
  std::uint32_t SlotLimit() const { return static_cast<std::uint32_t>(Footprint() / slot_size_); }
  /// Bytes that slots have taken so far.
  std::size_t Footprint() const { return static_cast<std::size_t>(next_ - range_.data()); }

 private:
  char* TakeReturned();
  void Grow();

  std::uint32_t slot_size_;
  int shift_;
  std::uint64_t inverse_;
  char* next_ = nullptr;
  char* end_ = nullptr;
  char* free_ = nullptr;  // returned slots, linked through their bytes 4 to 11
  AddressRange range_;
};

}  // namespace qx
