#pragma once
// Memory in blocks of one size.

#include <algorithm>

#include "qx_db/pool/item_store.h"

namespace qx {

/// Hands out uninitialised blocks of one size, aligned to 16 bytes: a bump of a pointer each, or a
/// block that was given back. Blocks never move; all go at once with FreeAll or the manager.
/// Threads: one at a time for each object.
class CFixedSizeMemMgr {
 public:
  explicit CFixedSizeMemMgr(std::size_t block_bytes)
      : store_(static_cast<std::uint32_t>((std::max<std::size_t>(block_bytes, 1) + 15) / 16 * 16)) {
  }

  /// Throws std::bad_alloc.
  void* Alloc() { return store_.Take(); }
  /// Gives a block of this manager back; null is ignored.
  void Free(void* block) {
    if (block) store_.Return(static_cast<char*>(block));
  }
  void FreeAll() { store_.Clear(); }

 private:
  ItemStore store_;
};

}  // namespace qx
