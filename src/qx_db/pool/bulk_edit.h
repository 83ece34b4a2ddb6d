#pragma once
// Changes of many records at once.

#include <cstddef>
#include <functional>
#include <span>

#include "qx_db/pool/data_pool.h"

namespace qx {

/// Changes the records at `positions`, in their order: each becomes what `change(copy, i)` makes of
/// a copy of it, i being its place among the positions. All is as if each were copied, changed and
/// given to SetAtNU: the pool's rules, notices, images, listeners, undo; a position may come twice.
/// It is faster because memory is fetched ahead, most so where positions lie in no order.
///
/// Returns the number of records that were changed: all, or the place of the first that is not in
/// the pool or that the pool refuses, such as all in a listener. What `change` throws ends it as
/// well. Those before stay changed until the transaction is rolled back.
/// Threads: the one that edits the pool.
QXDB_API std::size_t SetMany(DPoolBase& pool, std::span<const ITR> positions,
                             const std::function<void(TStructBase&, std::size_t)>& change);

/// The same for the records of a pool whose type is known.
template <class T, class F>
std::size_t SetMany(DPool<T>& pool, std::span<const ITR> positions, F&& change) {
  return SetMany(static_cast<DPoolBase&>(pool), positions,
                 [&](TStructBase& record, std::size_t i) { change(static_cast<T&>(record), i); });
}

}  // namespace qx
