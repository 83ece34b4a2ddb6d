// What mesh sets list: adding, taking away, merging, and bringing the lists in line with the mesh.

#include <algorithm>
#include <map>
#include <unordered_set>
#include <vector>

#include "qx_db/core/session.h"
#include "qx_db/lib/message.h"
#include "qx_db/model/mesh_set_pool.h"
#include "qx_db/model/set_rules.h"

namespace qx {
namespace {

bool AllLive(const TArray<ITR>& items) { return std::all_of(items.begin(), items.end(), IsLive); }

/// A list of items in the making, each once.
class DistinctItems {
 public:
  explicit DistinctItems(const DPoolBase& pool) : met_(pool) {}

  void Append(std::span<const ITR> items) {
    for (const ITR item : items) {
      if (IsLive(item) && met_.Insert(item)) items_.Add(item);
    }
  }
  TArray<ITR> Take() { return std::move(items_); }

 private:
  ItemMarks met_;
  TArray<ITR> items_;
};

/// The items of several lists, in order, each once, without those that are dead.
TArray<ITR> United(const DPoolBase& pool, std::initializer_list<const TArray<ITR>*> lists) {
  DistinctItems united(pool);
  for (const TArray<ITR>* list : lists) united.Append(std::span<const ITR>(*list));
  return united.Take();
}

TArray<ITR> Without(const DPoolBase& pool, const TArray<ITR>& list, const TArray<ITR>& taken) {
  ItemMarks marks(pool);
  marks.Add(std::span<const ITR>(taken));
  TArray<ITR> rest;
  for (const ITR item : list) {
    if (!marks.Has(item)) rest.Add(item);
  }
  return rest;
}

/// The set of that key, or the nearest set above it that is not gone; 0 for none.
Key Survivor(Key key, const std::map<Key, Key>& parent_of_gone) {
  for (std::size_t step = 0; step <= parent_of_gone.size(); ++step) {
    const auto gone = parent_of_gone.find(key);
    if (gone == parent_of_gone.end()) return key;
    key = gone->second;
  }
  return 0;  // they are a ring
}

}  // namespace

int DPoolMset::Private_Add_NodeElem(const ITR& set, const TArray<ITR>& nodes,
                                    const TArray<ITR>& elements) {
  if (!Holds(set) || !AllLive(nodes) || !AllLive(elements)) return 0;
  tagTMset changed = GetAtNU(set);
  changed.nodes = United(*GetSession()->GetDataPool(code::kNode), {&changed.nodes, &nodes});
  changed.elements =
      United(*GetSession()->GetDataPool(code::kElem), {&changed.elements, &elements});
  return SetAtNU(set, changed);
}

int DPoolMset::Private_Del_NodeElem(const ITR& set, const TArray<ITR>& nodes,
                                    const TArray<ITR>& elements) {
  if (!Holds(set)) return 0;
  tagTMset changed = GetAtNU(set);
  changed.nodes = Without(*GetSession()->GetDataPool(code::kNode), changed.nodes, nodes);
  changed.elements = Without(*GetSession()->GetDataPool(code::kElem), changed.elements, elements);
  return SetAtNU(set, changed);
}

// ---- merging ------------------------------------------------------------------------------------

int DPoolMset::Merge(ITR into, const TArray<ITR>& others) {
  return InStep("IDS_QX_TRANS_Merge_Mesh_Set",
                [&] { return MergeInto(into, std::span<const ITR>(others)); });
}

int DPoolMset::Merge(ITR into, const std::list<ITR>& others) {
  const std::vector<ITR> sets(others.begin(), others.end());
  return InStep("IDS_QX_TRANS_Merge_Mesh_Set", [&] { return MergeInto(into, sets); });
}

int DPoolMset::MergeInto(ITR into, std::span<const ITR> others) {
  std::vector<ITR> all(others.begin(), others.end());
  all.push_back(into);
  if (!HoldsAll(all)) return 0;
  if (others.empty()) return 1;
  for (const ITR set : others) {
    if (RuleOf(*GetSession(), set).empty()) continue;
    qxMsgOut(Severity::kRefusal, "IDS_QX_DB_SET_RULE_MERGE", {Utf8(GetAtNU(set).name.View())});
    return 0;
  }

  DistinctItems nodes(*GetSession()->GetDataPool(code::kNode));
  DistinctItems elements(*GetSession()->GetDataPool(code::kElem));
  std::rotate(all.begin(), all.end() - 1, all.end());  // its own come first
  for (const ITR set : all) {
    nodes.Append(std::span<const ITR>(GetAtNU(set).nodes));
    elements.Append(std::span<const ITR>(GetAtNU(set).elements));
  }
  tagTMset merged = GetAtNU(into);
  merged.nodes = nodes.Take();
  merged.elements = elements.Take();

  // A set that is below one of those it takes in moves up past it.
  std::map<Key, Key> gone;
  for (const ITR set : others) gone.emplace(GetAtNU(set).key, GetAtNU(set).parent_key);
  merged.parent_key = Survivor(merged.parent_key, gone);
  if (!SetAtNU(into, merged)) return 0;

  // A set that stays may lie between the merged one and a set above that it takes in. It keeps its
  // place above, or there would be a ring.
  std::unordered_set<Key> above;
  for (Key key = merged.parent_key; key != 0 && above.insert(key).second;) {
    const ITR at = Find(key);
    key = at ? GetAtNU(at).parent_key : 0;
  }
  for (const ITR set : others) {
    if (!Remove(set)) return 0;
  }
  for (ITR pos = GetHeadPosition(); pos; Next(pos)) {
    const auto taken_in = gone.find(GetAtNU(pos).parent_key);
    if (pos == into || taken_in == gone.end()) continue;
    tagTMset child = GetAtNU(pos);
    child.parent_key = above.contains(child.key) ? Survivor(taken_in->second, gone) : merged.key;
    if (!SetAtNU(pos, child)) return 0;
  }
  return 1;
}

// ---- in line with the mesh ----------------------------------------------------------------------

int DPoolMset::RebuildMeshset(int gather) {
  return InStep("IDS_QX_TRANS_Rebuild_Mesh_Set", [&] { return Rebuild(gather != 0); });
}

int DPoolMset::Rebuild(bool gather) {
  DPoolBase& nodes = *GetSession()->GetDataPool(code::kNode);
  DPoolBase& elements = *GetSession()->GetDataPool(code::kElem);
  if (gather && !DefaultItr() && !AddDefault()) return 0;
  const ITR rest = gather ? DefaultItr() : 0;
  TArray<ITR> all_nodes;
  TArray<ITR> all_elements;
  if (gather) {
    nodes.Set().GetItrList(all_nodes);
    elements.Set().GetItrList(all_elements);
  }
  ItemMarks free_nodes(nodes);
  ItemMarks free_elements(elements);
  free_nodes.Add(std::span<const ITR>(all_nodes));
  free_elements.Add(std::span<const ITR>(all_elements));

  const auto repair = [&](ITR pos, const TArray<ITR>& more_nodes,
                          const TArray<ITR>& more_elements) {
    tagTMset set = GetAtNU(pos);
    set.elements = United(elements, {&set.elements, &more_elements});
    DistinctItems listed(nodes);
    const auto nodes_of = [](ITR element) -> const TArray<ITR>& {
      return static_cast<const tagTElem*>(KeyedSetBase::RecordAt(element))->nodes;
    };
    listed.Append(std::span<const ITR>(set.nodes));
    for (const ITR element : set.elements) listed.Append(std::span<const ITR>(nodes_of(element)));
    listed.Append(std::span<const ITR>(more_nodes));
    set.nodes = listed.Take();
    free_nodes.Drop(std::span<const ITR>(set.nodes));
    free_elements.Drop(std::span<const ITR>(set.elements));
    const bool same = set.nodes == GetAtNU(pos).nodes && set.elements == GetAtNU(pos).elements;
    return same || SetAtNU(pos, set);
  };
  for (ITR pos = GetHeadPosition(); pos; Next(pos)) {
    if (!repair(pos, {}, {})) return 0;
  }
  if (!gather) return 1;
  const auto in_pool_order = [](const TArray<ITR>& all, const ItemMarks& marks) {
    TArray<ITR> chosen;
    for (const ITR item : all) {
      if (marks.Has(item)) chosen.Add(item);
    }
    return chosen;
  };
  return repair(rest, in_pool_order(all_nodes, free_nodes),
                in_pool_order(all_elements, free_elements));
}

int DPoolMset::TR_Modify_NoGeom() {
  const DPoolBase* geometry = GetSession()->GetDataPool(code::kGeom);
  return InStep("IDS_QX_TRANS_Modify_Mesh_Set", [&] {
    for (ITR pos = GetHeadPosition(); pos; Next(pos)) {
      const tagTMset& set = GetAtNU(pos);
      const bool has_geometry = geometry && IsLive(set.geometry);
      const bool is_clean = set.geometry == 0 && set.connected == 0 && set.connected_nodes == 0;
      if (has_geometry || is_clean) continue;
      tagTMset changed = set;
      changed.geometry = 0;
      changed.connected = changed.connected_nodes = 0;
      if (!SetAtNU(pos, changed)) return 0;
    }
    return 1;
  });
}

}  // namespace qx
