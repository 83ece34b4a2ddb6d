// Deleting mesh sets, with the nodes and elements that no remaining set lists.

#include <algorithm>
#include <unordered_map>
#include <unordered_set>
#include <vector>

#include "qx_db/core/session.h"
#include "qx_db/model/mesh_set_pool.h"
#include "qx_db/model/set_rules.h"

namespace qx {
namespace {

std::vector<ITR> Vector(const std::list<ITR>& items) { return {items.begin(), items.end()}; }

constexpr const char* kDeleteStep = "IDS_QX_TRANS_Delete_Mesh_Set";

}  // namespace

int DPoolMset::TR_Del(const TArray<ITR>& sets) {
  if (sets.IsEmpty()) return 1;
  return InStep(kDeleteStep, [&] { return Private_Del(sets); });
}

int DPoolMset::TR_Del(const std::list<ITR>& sets) {
  if (sets.empty()) return 1;
  return InStep(kDeleteStep, [&] { return Private_Del(sets); });
}

int DPoolMset::Private_Del(const TArray<ITR>& sets) { return Delete(std::span<const ITR>(sets)); }
int DPoolMset::Private_Del(const std::list<ITR>& sets) { return Delete(Vector(sets)); }

int DPoolMset::TR_Del_All() {
  const ITR kept = DefaultItr();
  std::vector<ITR> sets;
  for (ITR pos = GetHeadPosition(); pos; Next(pos)) {
    if (pos != kept) sets.push_back(pos);
  }
  if (sets.empty() && !kept) return 1;
  return InStep(kDeleteStep, [&] { return Delete(sets, kept); });
}

bool DPoolMset::HoldsAll(std::span<const ITR> sets) const {
  std::unordered_set<ITR> wanted(sets.begin(), sets.end());
  if (wanted.size() != sets.size()) return false;  // one is given twice
  for (ITR pos = GetHeadPosition(); pos && !wanted.empty(); Next(pos)) wanted.erase(pos);
  return wanted.empty();
}

/// Deletes the sets, and empties one that stays.
int DPoolMset::Delete(std::span<const ITR> sets, ITR emptied) {
  if (!HoldsAll(sets)) return 0;
  const Orphans orphans = FindOrphans(sets, emptied);
  if (!MayDelete(orphans) && !GetSession()->IsRehearsing()) return 0;
  for (const ITR set : sets) {
    if (!Remove(set)) return 0;
  }
  if (emptied) {
    tagTMset kept = GetAtNU(emptied);
    kept.nodes.RemoveAll();
    kept.elements.RemoveAll();
    if (!SetAtNU(emptied, kept)) return 0;
  }
  return DeleteMesh(orphans);
}

/// Nodes and elements that the sets list and no other does.
DPoolMset::Orphans DPoolMset::FindOrphans(std::span<const ITR> sets, ITR emptied) const {
  Orphans orphans{ItemMarks(*GetSession()->GetDataPool(code::kNode)),
                  ItemMarks(*GetSession()->GetDataPool(code::kElem))};
  std::unordered_set<ITR> letting_go(sets.begin(), sets.end());
  if (emptied) letting_go.insert(emptied);
  for (const ITR set : letting_go) {
    orphans.nodes.Add(std::span<const ITR>(GetAtNU(set).nodes));
    orphans.elements.Add(std::span<const ITR>(GetAtNU(set).elements));
  }
  for (ITR pos = GetHeadPosition(); pos; Next(pos)) {
    if (letting_go.contains(pos)) continue;
    orphans.nodes.Drop(std::span<const ITR>(GetAtNU(pos).nodes));
    orphans.elements.Drop(std::span<const ITR>(GetAtNU(pos).elements));
  }
  return orphans;
}

/// Asks the orientations of elements whether their reference nodes may go.
bool DPoolMset::MayDelete(const Orphans& orphans) const {
  const auto* orientations = GetSession()->GetPool<DPoolEcrd>(code::kEcrd);
  if (!orientations) return true;  // nobody to ask
  return orientations->CheckRelation([&](ITR item) { return orphans.elements.Has(item); },
                                     [&](ITR item) { return orphans.nodes.Has(item); }) != 0;
}

int DPoolMset::DeleteMesh(const Orphans& orphans) {
  const auto remove_from = [](DPoolBase& pool) {
    return [&pool](ITR item) { return KeyedSetBase::IsRemoved(item) || pool.Remove(item) != 0; };
  };
  // Elements first: their removal takes along what is keyed by them.
  return orphans.elements.ForEach(remove_from(*GetSession()->GetDataPool(code::kElem))) &&
         orphans.nodes.ForEach(remove_from(*GetSession()->GetDataPool(code::kNode)));
}

// ---- empty sets ---------------------------------------------------------------------------------

int DPoolMset::TR_Del_EmptyMset() {
  if (IsEmpty()) return 1;
  return InStep(kDeleteStep, [&] {
    TArray<ITR> all;
    Set().GetItrList(all);
    return DeleteEmptyBelow(std::span<const ITR>(all));
  });
}

int DPoolMset::Private_Del_EmptyMset(ITR set) {
  return Holds(set) ? DeleteEmptyBelow({&set, 1}) : 0;
}

/// Removes what is empty among these sets and all below them, children before their parents.
int DPoolMset::DeleteEmptyBelow(std::span<const ITR> roots) {
  std::unordered_map<Key, std::vector<ITR>> children;
  for (ITR pos = GetHeadPosition(); pos; Next(pos)) {
    children[GetAtNU(pos).parent_key].push_back(pos);
  }
  // Parents before children; a set that was met before is not entered again, so that a ring of
  // parents in a file ends the walk instead of the program.
  std::vector<ITR> order;
  std::unordered_set<ITR> met;
  std::vector<ITR> open;
  for (const ITR root : roots) {
    open.push_back(root);
    while (!open.empty()) {
      const ITR set = open.back();
      open.pop_back();
      if (!met.insert(set).second) continue;
      order.push_back(set);
      const auto below = children.find(GetAtNU(set).key);
      if (below != children.end()) {
        open.insert(open.end(), below->second.begin(), below->second.end());
      }
    }
  }
  const ITR kept = DefaultItr();
  const auto* const rules = GetSession()->GetPool<DPoolSetRule>(code::kSetRule);
  for (auto set = order.rbegin(); set != order.rend(); ++set) {
    const tagTMset& record = GetAtNU(*set);
    if (*set == kept || !record.nodes.IsEmpty() || !record.elements.IsEmpty()) continue;
    // One with a rule has members without listing any; one that a rule names is in use.
    if (!RuleOf(*GetSession(), *set).empty() || (rules && rules->IsNamed(*set))) continue;
    if (!Remove(*set)) return 0;
  }
  return 1;
}

}  // namespace qx
