#pragma once
// What records tell of elements and nodes, told of those that were made of them as well.
// Threads: the one that drives the session.

#include <array>
#include <cstdint>
#include <functional>
#include <map>
#include <span>
#include <unordered_map>
#include <vector>

#include "qx_db/core/session.h"
#include "qx_db/export.h"
#include "qx_db/model/standard_pools.h"
#include "qx_db/record/array_elements.h"
#include "qx_db/record/verbs.h"

namespace qx {

/// A record, and one that was made of it.
struct Made {
  ITR of;
  ITR made;
};

/// Which mesh sets and active sets what was made joins.
enum class SetsOfMade : std::uint8_t {
  kSame,  ///< those that list what it was made of
  kNew,   ///< a new one beside each of those, under a copy name
  kNone
};

struct AttachedPlan {
  /// Those of one record follow each other.
  std::span<const Made> nodes, elements;
  SetsOfMade sets = SetsOfMade::kSame;
  /// What was made stands in the place of what it was made of, and where that was: elements on
  /// geometry list it too, and it has the values that fields have for the whole.
  bool in_place = false;
  /// Appends the sides of `made` (3 face, 4 edge) that stand for a side of what it was made of.
  std::function<void(int kind, const tagTElemSide& of, ITR made, std::vector<tagTElemSide>& out)>
      sides;
};

/// Has lists, attributes, belongings and sides tell of what was made as they do of what it was made
/// of. Call it in a transaction; false when a pool refused a change. Counts in `left`, by type
/// code, records that tell of the old and of which nothing was passed on.
QXDB_API bool PassOn(CQXDBSession& session, const AttachedPlan& plan,
                     std::map<std::uint16_t, std::int64_t>& left);

/// Numbers of an attribute that may differ from element to element.
template <std::size_t N>
using AttributeNumbers = std::array<double, N>;

/// Has every record of T that lists some of the elements say of each what `numbers(record,
/// element)` gives, put into it by `put(record, numbers)`: elements for which that is something
/// else leave for records of their own, one for all of a kind. Call it in a transaction; false when
/// a pool refused a change.
template <class T, std::size_t N, class IsConcerned, class Get, class Numbers, class Put>
bool Regroup(CQXDBSession& session, IsConcerned&& is_concerned, Get&& get, Numbers&& numbers,
             Put&& put) {
  auto* pool = session.GetPool<typename PoolOf<T>::type>(T::kType);
  if (!pool) return true;
  std::vector<T> added;
  std::vector<ITR> all;
  for (ITR at = pool->GetHeadPosition(); at; pool->Next(at)) all.push_back(at);
  for (const ITR at : all) {
    T record = pool->GetAtNU(at);
    const AttributeNumbers<N> own = get(record);
    std::map<AttributeNumbers<N>, TArray<ITR>> other;
    TArray<ITR> rest;
    for (const ITR element : record.elements) {
      const AttributeNumbers<N> now =
          element && is_concerned(record, element) ? numbers(record, element) : own;
      (now == own ? rest : other[now]).Add(element);
    }
    if (other.empty()) continue;
    for (auto entry = other.begin(); entry != other.end(); ++entry) {
      T part = record;
      part.elements = entry->second;
      put(part, entry->first);
      if (rest.IsEmpty()) {  // the record itself becomes the first of them
        if (!pool->SetAtNU(at, part)) return false;
        rest = entry->second;
        continue;
      }
      added.push_back(std::move(part));
    }
    if (record.elements.GetSize() != rest.GetSize() && !(pool->GetAtNU(at).elements == rest)) {
      record.elements = rest;
      if (!pool->SetAtNU(at, record)) return false;
    }
  }
  for (T& record : added) {
    record.key = pool->Set().GetFreeKey();
    if (!pool->InsertNU(record)) return false;
  }
  return true;
}

}  // namespace qx
