#pragma once
// How records are named on the command line: a pool by its table name, keys by ranges.

#include <string>
#include <utility>
#include <vector>

#include "qx_db/core/session.h"
#include "qx_db/platform/outcome.h"

namespace qx::app {

/// Ranges of keys, both ends included, as "1-5,9,100-" gives them ("all" for every key).
class KeyRanges {
 public:
  static Result<KeyRanges> Parse(const std::string& text);
  bool Contains(Key key) const;
  /// The positions of the pool's records with such keys, in list order.
  TArray<ITR> Select(const DPoolBase& pool) const;

 private:
  std::vector<std::pair<Key, Key>> ranges_;
};

/// The pool of that name in any spelling (FindPoolByName); a failure lists the names there are.
Result<DPoolBase*> FindPool(CQXDBSession& session, const std::string& name);

/// A pool's name as it is printed: "node".
std::string PoolLabel(const DPoolBase& pool);

/// How many records a list names: null entries and repeated ones are none.
std::int64_t CountOf(const TArray<ITR>& list);

/// The failure for keys that select nothing in a pool.
Failure NothingSelected(const std::string& file, const DPoolBase& pool, const std::string& keys);

}  // namespace qx::app
