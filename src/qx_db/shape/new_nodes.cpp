#include "qx_db/shape/new_nodes.h"

#include <unordered_set>

#include "qx_db/mesh/element_access.h"
#include "qx_db/model/standard_pools.h"
#include "qx_db/record/control_records.h"
#include "qx_db/record/deck_records.h"

namespace qx {

NewNodes::NewNodes(CQXDBSession& session) : session_(session), next_key_(Pool<tagTNode>(session)) {}

void NewNodes::Know(ITR a, ITR b, ITR between) { between_.emplace(EndsOf(a, b), between); }

ITR NewNodes::Find(ITR a, ITR b) const {
  const auto found = between_.find(EndsOf(a, b));
  return found == between_.end() ? 0 : found->second;
}

ITR NewNodes::Make(ITR a, ITR b, const Point3& at) {
  const auto [place, is_new] = between_.try_emplace(EndsOf(a, b), 0);
  if (!is_new) return place->second;
  auto& nodes = Pool<tagTNode>(session_);
  if (!next_key_.Has(1)) return 0;
  tagTNode node;
  node.key = next_key_.Take();
  node.position = at.As<tagTVector3<double>>();
  place->second = nodes.InsertNU(node);
  if (place->second) {
    made_.emplace(place->second, place->first);
    in_order_.push_back(place->second);
  }
  return place->second;
}

template <class T>
bool NewNodes::JoinSets() {
  auto* pool = session_.GetPool<DPool<T>>(T::kType);
  for (ITR at = pool ? pool->GetHeadPosition() : 0; at; pool->Next(at)) {
    const T& set = pool->GetAtNU(at);
    if (set.nodes.IsEmpty()) continue;
    std::unordered_set<ITR> joined;
    TArray<ITR> more;
    if (set.elements.IsEmpty()) {
      const std::unordered_set<ITR> listed(set.nodes.begin(), set.nodes.end());
      for (const ITR node : in_order_) {
        const Ends& ends = made_.at(node);
        if (listed.contains(ends.a) && listed.contains(ends.b)) more.Add(node);
      }
    } else {
      for (const ITR element : set.elements) {
        const tagTElem* record = ElementAt(element);
        if (!record) continue;
        for (const ITR node : record->nodes) {
          if (made_.contains(node) && joined.insert(node).second) more.Add(node);
        }
      }
    }
    if (more.IsEmpty()) continue;
    T copy = set;
    for (const ITR node : more) copy.nodes.Add(node);
    if (!pool->SetAtNU(at, copy)) return false;
  }
  return true;
}

bool NewNodes::JoinSets() {
  return made_.empty() || (JoinSets<tagTMset>() && JoinSets<tagTBlock>());
}

}  // namespace qx
