// What happens to mesh sets when a step ends: the dead leave, children follow, rings are refused.

#include <algorithm>
#include <unordered_map>
#include <unordered_set>
#include <vector>

#include "qx_db/core/session.h"
#include "qx_db/lib/message.h"
#include "qx_db/model/mesh_set_pool.h"
#include "qx_db/record/verbs.h"

namespace qx {
namespace {

std::span<const ITR> Span(const TArray<ITR>& items) { return {items.data(), items.size()}; }

/// Marks on the nodes and elements that the open step removed.
struct DeadMesh {
  DeadMesh(const Step& step, const DPoolBase& node_pool, const DPoolBase& element_pool)
      : nodes(node_pool), elements(element_pool) {
    for (const Change& change : step.changes) {
      if (change.operation != tagTRNotify::kRemoved) continue;
      if (change.type == code::kNode) nodes.Insert(change.item);
      if (change.type == code::kElem) elements.Insert(change.item);
    }
  }

  ItemMarks nodes;
  ItemMarks elements;
};

void DropMarked(TArray<ITR>& list, const ItemMarks& marks) {
  TArray<ITR> rest;
  rest.Reserve(list.GetSize());
  for (const ITR item : list) {
    if (!marks.Has(item)) rest.Add(item);
  }
  list.Swap(rest);
}

/// How the hierarchy stood when the step began, as far as the step changed it.
class FormerHierarchy {
 public:
  FormerHierarchy(const DPoolMset& sets, const Step& step) : sets_(sets) {
    for (const Change& change : step.changes) {
      if (change.type != code::kMset) continue;
      changed_ = true;
      const ITR item = change.item;  // out of the packed notice
      if (change.operation == tagTRNotify::kInserted) {
        inserted_.insert(item);
      } else if (!former_.contains(item)) {
        former_.emplace(item, change.operation == tagTRNotify::kRemoved ? Identity{Now(item)}
                                                                        : Before(step, change));
      }
      touched_.insert(item);
    }
    for (const auto& [item, identity] : former_) {
      if (inserted_.contains(item)) continue;
      if (KeyedSetBase::IsRemoved(item) || Now(item).key != identity.key) {
        moved_.emplace(identity.key, item);
      }
    }
    for (const ITR item : touched_) {
      if (KeyedSetBase::IsRemoved(item)) gone_.emplace(Now(item).key, item);
    }
  }

  bool Changed() const { return changed_; }
  bool Touched(ITR set) const { return touched_.contains(set); }

  /// The parent key that a set should have now. A set that kept its parent key follows the set
  /// which had that key before; one that was given another only leaves a dead one.
  Key ParentOf(ITR set) const {
    const Key now = Now(set).parent;
    if (now == 0) return 0;
    const auto was = former_.find(set);
    const bool kept =
        !inserted_.contains(set) && (was == former_.end() || was->second.parent == now);
    const auto moved = moved_.find(now);
    if (kept && moved != moved_.end()) return Resolve(moved->second);
    if (sets_.Find(now)) return now;
    const auto gone = gone_.find(now);
    return gone == gone_.end() ? now : Resolve(gone->second);
  }

 private:
  struct Identity {
    Key key = 0;
    Key parent = 0;
  };

  static Identity Now(ITR item) {
    const auto& set = static_cast<const tagTMset&>(*KeyedSetBase::RecordAt(item));
    return {set.key, set.parent_key};
  }
  static Identity Before(const Step& step, const Change& change) {
    const char* image = step.bytes.data() + step.images[change.list_epoch].before;
    const auto last = MemberOffsets(tagTMset::GetSchema(), image);
    return {LoadAt<Key>(image), LoadAt<Key>(image + last[last.size() - 2])};
  }

  /// The present key of a set, or of the nearest set above it that lives; 0 for none.
  Key Resolve(ITR item) const {
    for (std::size_t step = 0; step <= touched_.size(); ++step) {
      if (!KeyedSetBase::IsRemoved(item)) return Now(item).key;
      const Key parent = Now(item).parent;
      const auto moved = moved_.find(parent);
      const auto gone = gone_.find(parent);
      item = moved != moved_.end() ? moved->second : sets_.Find(parent);
      if (item == 0 && gone != gone_.end()) item = gone->second;
      if (item == 0) return 0;
    }
    return 0;  // the dead are a ring
  }

  const DPoolMset& sets_;
  bool changed_ = false;
  std::unordered_set<ITR> inserted_;
  std::unordered_set<ITR> touched_;
  std::unordered_map<ITR, Identity> former_;  // of modified and removed sets
  std::unordered_map<Key, ITR> moved_;        // by former key: renumbered or removed
  std::unordered_map<Key, ITR> gone_;         // by last key: removed
};

/// A set that the step touched and that is its own ancestor; 0 when there is none. Rings that were
/// there before, as a file may bring them, are none of the step's business.
ITR FindRing(const DPoolMset& sets, const FormerHierarchy& step) {
  std::unordered_map<ITR, ITR> walk_of;  // by set: from where it was first walked over
  for (ITR start = sets.GetHeadPosition(); start; sets.Next(start)) {
    if (!step.Touched(start)) continue;
    ITR at = start;
    while (at && walk_of.emplace(at, start).second) at = sets.Find(sets.GetAtNU(at).parent_key);
    if (!at || walk_of[at] != start) continue;
    ITR on_ring = at;
    do {
      if (step.Touched(on_ring)) return on_ring;
      on_ring = sets.Find(sets.GetAtNU(on_ring).parent_key);
    } while (on_ring != at);
  }
  return 0;
}

}  // namespace

int DPoolMset::ProcessRelation() {
  const DPoolBase& nodes = *GetSession()->GetDataPool(code::kNode);
  const DPoolBase& elements = *GetSession()->GetDataPool(code::kElem);
  const DPoolBase* geometry = GetSession()->GetDataPool(code::kGeom);
  const bool geometry_died = geometry && geometry->HasChanged(kRemovedFlag);
  const bool mesh_died = nodes.HasChanged(kRemovedFlag) || elements.HasChanged(kRemovedFlag);
  if (!mesh_died && !geometry_died && ChangeFlags() == 0) return 1;

  const Step& step = GetSession()->History().Current();
  static const Step kNothing;
  const FormerHierarchy former(*this, ChangeFlags() ? step : kNothing);
  const DeadMesh dead(mesh_died ? step : kNothing, nodes, elements);
  for (ITR pos = GetHeadPosition(); pos; Next(pos)) {
    const tagTMset& set = GetAtNU(pos);
    const Key parent = former.Changed() ? former.ParentOf(pos) : set.parent_key;
    const bool lost_geometry = set.geometry != 0 && KeyedSetBase::IsRemoved(set.geometry);
    const bool lost_nodes = dead.nodes.HasAny(Span(set.nodes));
    const bool lost_elements = dead.elements.HasAny(Span(set.elements));
    if (!lost_nodes && !lost_elements && !lost_geometry && parent == set.parent_key) continue;
    tagTMset repaired = set;
    if (lost_nodes) DropMarked(repaired.nodes, dead.nodes);
    if (lost_elements) DropMarked(repaired.elements, dead.elements);
    if (lost_geometry) repaired.geometry = 0;
    if (parent != set.parent_key) repaired.parent_key = parent == set.key ? 0 : parent;
    if (!SetAtNU(pos, repaired)) return 0;
  }
  if (!former.Changed()) return 1;
  const ITR ring = FindRing(*this, former);
  if (!ring) return 1;
  const tagTMset& set = GetAtNU(ring);
  qxMsgOut(Severity::kRefusal, "IDS_QX_DB_MSET_PARENT_RING",
           {Utf8(set.name.View()), std::to_string(set.key)});
  return 0;
}

}  // namespace qx
