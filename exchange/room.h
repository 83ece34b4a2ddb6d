#pragma once
// Room for the large arrays of a mesh.
// Threads: shares nothing.

#include <algorithm>
#include <cstddef>
#include <vector>

#include "qx_db/platform/pages.h"

namespace qx::exchange {

/// Reserves room for `count` values in all, on large pages where the system has them: touching a
/// hundred megabytes for the first time otherwise takes longer than filling them. Room that is
/// there already grows by half at least, so that many small calls stay cheap.
template <class T>
void MakeRoom(std::vector<T>& values, std::size_t count) {
  if (count <= values.capacity()) return;
  values.reserve(std::max(count, values.capacity() / 2 * 3));
  PreferHugePages(values.data(), values.capacity() * sizeof(T));
}

/// Appends `count` values, which `fill` writes piece by piece: it is told where to, from which one
/// on, and how many. Cheaper than resize(), which writes every value twice to memory.
template <class T, class Fill>
void AppendBy(std::vector<T>& values, std::size_t count, Fill&& fill) {
  constexpr std::size_t kPiece = 4096;  // stays in the cache
  MakeRoom(values, values.size() + count);
  for (std::size_t done = 0; done < count;) {
    const std::size_t piece = std::min(kPiece, count - done);
    const std::size_t base = values.size();
    values.resize(base + piece);
    fill(values.data() + base, done, piece);
    done += piece;
  }
}

}  // namespace qx::exchange
