#pragma once
// Mesh sets for what shaping makes.
// Threads: the one that drives the session.

#include <span>
#include <string>
#include <unordered_set>

#include "qx_db/model/standard_pools.h"
#include "qx_db/platform/outcome.h"
#include "qx_db/platform/text.h"

namespace qx {

/// What a verb fails with when a pool, which has said why, refuses a change.
inline Outcome RefusedByModel() {
  return Failure{"", "", "the model refuses the change", "see the message above"};
}

/// Adds a set of elements with their nodes, and of further nodes, under a name of UTF-8 or a copy
/// name of it. False when the pool refuses.
inline bool AddGroupSet(CQXDBSession& session, const std::string& name,
                        std::span<const ITR> elements, std::span<const ITR> nodes) {
  auto& sets = Pool<tagTMset>(session);
  tagTMset set;
  set.key = sets.NewSetKey();
  if (set.key < 0) return false;
  set.name.Set(sets.FreeName(Utf16(name)));
  set.color = DPoolMset::GetNewColor();
  std::unordered_set<ITR> met;
  const auto add = [&](ITR node) {
    if (node && met.insert(node).second) set.nodes.Add(node);
  };
  for (const ITR element : elements) {
    set.elements.Add(element);
    for (const ITR node : Pool<tagTElem>(session).GetAtNU(element).nodes) add(node);
  }
  for (const ITR node : nodes) add(node);
  return sets.InsertNU(set) != 0;
}

}  // namespace qx
