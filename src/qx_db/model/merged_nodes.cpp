// Taking nodes apart again that a merge made common to line elements of different properties.

#include <map>
#include <unordered_set>

#include "qx_db/core/session.h"
#include "qx_db/core/transaction.h"
#include "qx_db/lib/message.h"
#include "qx_db/model/mesh_pools.h"

namespace qx {
namespace {

/// Whether an element is one of those that are told apart: a line element that has a property.
bool IsLineOfAProperty(const tagTElem& element) {
  return (element.type == 2 || element.type == 3) && IsLive(element.property);
}

/// The copies made of nodes, one a property.
class NodeCopies {
 public:
  explicit NodeCopies(DPoolNode& nodes) : nodes_(nodes) {}

  /// The copy of a node for a property, made when there is none yet; 0 when no key is left.
  ITR For(ITR node, ITR property) {
    ITR& copy = copies_[{node, property}];
    if (copy == 0) {
      tagTNode record = nodes_.GetAtNU(node);
      record.key = nodes_.Set().GetFreeKey();
      copy = nodes_.InsertNU(record);
    }
    return copy;
  }

 private:
  DPoolNode& nodes_;
  std::map<std::pair<ITR, ITR>, ITR> copies_;
};

/// The property of the first line element of each node, by the node's slot; and the nodes that
/// line elements of other properties have too.
struct Sharing {
  std::vector<ITR> keeper;
  std::vector<bool> seen;
  std::unordered_set<ITR> shared;
};

Sharing FindShared(const DPoolElem& elements, const DPoolNode& nodes) {
  Sharing sharing;
  const std::size_t slots = nodes.Set().SlotLimit();
  sharing.keeper.resize(slots);
  sharing.seen.resize(slots);
  for (ITR pos = elements.GetHeadPosition(); pos; elements.Next(pos)) {
    const tagTElem& element = elements.GetAtNU(pos);
    if (!IsLineOfAProperty(element)) continue;
    for (const ITR node : element.nodes) {
      if (node == 0) continue;
      const std::size_t slot = nodes.Set().SlotOf(node);
      if (!sharing.seen[slot]) {
        sharing.seen[slot] = true;
        sharing.keeper[slot] = element.property;
      } else if (sharing.keeper[slot] != element.property) {
        sharing.shared.insert(node);
      }
    }
  }
  return sharing;
}

/// Copies join the sets of the elements that got them.
int JoinSets(CQXDBSession& session, const std::map<ITR, std::vector<ITR>>& copies_of_element) {
  auto* sets = session.GetPool<DPool<tagTMset>>(code::kMset);
  if (!sets) return 1;
  for (ITR pos = sets->GetHeadPosition(); pos; sets->Next(pos)) {
    std::set<ITR> joining;
    for (const ITR element : sets->GetAtNU(pos).elements) {
      const auto found = copies_of_element.find(element);
      if (found != copies_of_element.end()) {
        joining.insert(found->second.begin(), found->second.end());
      }
    }
    if (joining.empty()) continue;
    tagTMset set = sets->GetAtNU(pos);
    for (const ITR node : joining) set.nodes.Add(node);
    if (!sets->SetAtNU(pos, set)) return 0;
  }
  return 1;
}

}  // namespace

int DPoolElem::SplitMergedTendonNode() {
  auto* nodes = GetSession()->GetPool<DPoolNode>(code::kNode);
  if (!nodes) return 0;
  const Sharing sharing = FindShared(*this, *nodes);
  if (sharing.shared.empty()) return 1;
  CTransaction transaction(GetSession());
  if (!transaction.Begin(qxLoadText("IDS_QX_TRANS_SPLIT_NODES").c_str())) return 0;
  NodeCopies copies(*nodes);
  std::map<ITR, std::vector<ITR>> copies_of_element;
  for (ITR pos = GetHeadPosition(); pos; Next(pos)) {
    if (!IsLineOfAProperty(GetAtNU(pos))) continue;
    tagTElem element = GetAtNU(pos);
    std::vector<ITR> got;
    for (ITR& node : element.nodes) {
      if (!sharing.shared.contains(node)) continue;
      if (sharing.keeper[nodes->Set().SlotOf(node)] == element.property) continue;
      node = copies.For(node, element.property);
      if (node == 0) return 0;
      got.push_back(node);
    }
    if (got.empty()) continue;
    if (!SetAtNU(pos, element)) return 0;
    copies_of_element.emplace(pos, std::move(got));
  }
  if (!JoinSets(*GetSession(), copies_of_element)) return 0;
  return transaction.Commit();
}

}  // namespace qx
