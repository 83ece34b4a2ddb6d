#pragma once
// Memory straight from the operating system: zeroed blocks, and address ranges that fill up.
// Threads: functions from any; an AddressRange one at a time.

#include <cstddef>
#include <utility>

#include "qx_db/export.h"

namespace qx {

/// Owns a range of addresses, reserved at once and backed by memory as it is used, so that what
/// grows in it never moves. Not copyable.
class QXDB_API AddressRange {
 public:
  AddressRange() = default;
  /// Reserves up to `wanted` bytes, fewer where the system grants only fewer. Throws
  /// std::bad_alloc when it grants less than `least`.
  AddressRange(std::size_t wanted, std::size_t least);
  AddressRange(AddressRange&& other) noexcept { Swap(other); }
  AddressRange& operator=(AddressRange&& other) noexcept {
    Swap(other);
    return *this;
  }
  AddressRange(const AddressRange&) = delete;
  AddressRange& operator=(const AddressRange&) = delete;
  ~AddressRange();

  char* data() const { return data_; }
  std::size_t size() const { return size_; }      ///< reserved
  std::size_t backed() const { return backed_; }  ///< usable, from the start

  /// Makes at least `bytes` from the start usable; fresh memory is zero. From 2 MiB on it asks
  /// for huge pages, which spare a large pool most page-table misses. Throws std::bad_alloc.
  void Back(std::size_t bytes);

 private:
  void Swap(AddressRange& other) {
    std::swap(data_, other.data_);
    std::swap(size_, other.size_);
    std::swap(backed_, other.backed_);
  }
  char* data_ = nullptr;
  std::size_t size_ = 0;
  std::size_t backed_ = 0;
};

/// Asks the system to back a block of ordinary memory with huge pages, where it spans some. Saves
/// most page faults of a block of many megabytes that is about to be filled. A hint only.
QXDB_API void PreferHugePages(void* at, std::size_t bytes);

/// Bytes of addresses that this process may still reserve, by the limit that it was given
/// (RLIMIT_AS) or by what the system has.
QXDB_API std::size_t AddressesLeft();

/// Bytes of physical memory of this machine.
QXDB_API std::size_t PhysicalMemory();

}  // namespace qx
