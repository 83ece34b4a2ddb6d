#pragma once
// Memory for the items of one keyed set: slots of one size in one range of addresses.
// Threads: as KeyedSetBase, of which it is a part.

#include <bit>
#include <cstddef>
#include <cstdint>
#include <vector>

#include "qx_db/platform/pages.h"

namespace qx {

/// Hands out uninitialised slots. A slot never moves, and its number and its address convert into
/// each other by arithmetic, so that a hash table can name it in 32 bits. Taking is a bump of a
/// pointer or a pop of the list of returned slots; giving everything back is at once.
class QXDB_API ItemStore {
 public:
  explicit ItemStore(std::uint32_t slot_size);
  ~ItemStore() { Release(); }
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
  /// Whether a slot taken before has been given back since.
  static bool IsReturned(const char* slot);
  /// Gives back all slots and, where slots are used again, their memory.
  void Clear();

  /// Whether a returned slot may be taken again. Not so in a debug build of the library.
  static const bool kReuses;

  /// Counts from now on how often each slot that was taken so far is returned. Throws
  /// std::bad_alloc.
  void CountGenerations();
  /// The count; 0 for slots that are not counted.
  std::uint32_t GenerationOf(std::uint32_t number) const {
    return number < generations_.size() ? generations_[number] : 0;
  }

  char* At(std::uint32_t number) const { return range_.data() + std::size_t{number} * slot_size_; }
  std::uint32_t NumberOf(const char* slot) const {
    // Exact division: the odd part of the slot size has an inverse modulo 2^64.
    const auto distance = static_cast<std::uint64_t>(slot - range_.data());
    return static_cast<std::uint32_t>((distance >> shift_) * inverse_);
  }
  /// One more than the highest slot number taken so far.
  std::uint32_t SlotLimit() const { return NumberOf(next_); }
  /// Whether an address lies in a slot taken so far, returned or not.
  bool Covers(const char* slot) const {
    return reinterpret_cast<std::uintptr_t>(slot) -
               reinterpret_cast<std::uintptr_t>(range_.data()) <
           Footprint();
  }
  /// Bytes that slots have taken so far.
  std::size_t Footprint() const { return static_cast<std::size_t>(next_ - range_.data()); }

 private:
  char* TakeReturned();
  void Grow();
  void Release();
  void Close(char* slot);

  std::uint32_t slot_size_;
  int shift_;
  std::uint64_t inverse_;
  char* next_ = nullptr;
  char* end_ = nullptr;
  char* free_ = nullptr;    // returned slots, linked through their bytes 4 to 11
  char* closed_ = nullptr;  // up to here all slots were given back, where none is used again
  std::vector<std::uint32_t> generations_;
  AddressRange range_;
};

}  // namespace qx
