#pragma once
// Work on many things at once.

#include <cstddef>
#include <functional>

#include "qx_db/export.h"

namespace qx {

/// How many threads the process's ParallelFor calls may use, the caller's among them: 1 until the
/// application says otherwise, for a library has no business taking cores unasked. 0 means one for
/// each core that there is. Threads: any; holds for calls that begin later.
QXDB_API void SetWorkThreads(unsigned threads);
/// At least 1.
QXDB_API unsigned WorkThreads();

/// Divides the numbers from 0 to `count` into ranges of at least `least`, one for each of the
/// WorkThreads(), and calls `work(begin, end)` for all of them at the same time, one on the calling
/// thread. Threads: to be called from any, also at once. Returns when all have ended, and then
/// throws what one of them threw. Where the system grants no thread, the caller does its work too.
/// Requires that `least` is above 0.
QXDB_API void ParallelFor(std::size_t count, std::size_t least,
                          const std::function<void(std::size_t, std::size_t)>& work);

}  // namespace qx
