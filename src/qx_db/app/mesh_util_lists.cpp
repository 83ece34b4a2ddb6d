// Elements and nodes of geometry, mesh sets, elements and sides.

#include <algorithm>
#include <span>
#include <utility>
#include <vector>

#include "qx_db/app/mesh_util.h"
#include "qx_db/core/session.h"
#include "qx_db/mesh/element_access.h"
#include "qx_db/mesh/record_numbers.h"
#include "qx_db/mesh/side_nodes.h"
#include "qx_db/model/set_rules.h"
#include "qx_db/record/control_records.h"
#include "qx_db/record/geometry_records.h"

namespace qx {
namespace {

/// Collects live records, each once.
class KeyCollector {
 public:
  void Add(ITR record) {
    if (record && !KeyedSetBase::IsRemoved(record)) found_.Add(record);
  }
  void Add(std::span<const ITR> records) {
    for (const ITR record : records) Add(record);
  }
  std::int32_t MoveTo(TArray<ITR>& out) const {
    out.Assign(found_.Records().data(), found_.Records().size());
    return out.GetSize();
  }

 private:
  DistinctRecords found_;
};

std::span<const ITR> NodesOfElement(ITR itr, bool all) {
  const tagTElem* element = ElementAt(itr);
  if (!element || CQXMeshUtil::GetElemDim(element->type) == 5) return {};
  const std::size_t listed = element->nodes.size();
  const auto corners = static_cast<std::size_t>(ElementTopology(element->type).Corners());
  return {element->nodes.data(), all ? listed : std::min(listed, corners)};
}

/// The current data of a geometry-element head; null when there is none.
const tagTGElem* CurrentData(ITR gelem) {
  const auto* head = LiveRecord<tagTGElemHead>(gelem);
  if (!head || head->data.IsEmpty()) return nullptr;
  return LiveRecord<tagTGElem>(head->data[head->data.GetSize() - 1]);
}

/// Finds the geometry-element heads of geometry keys. The first few are looked for one by one, as a
/// question about one key should cost no more than a walk; then all heads are sorted, once.
class HeadIndex {
 public:
  explicit HeadIndex(const CQXDBSession* session)
      : pool_(session ? session->GetDataPool(code::kGElemHead) : nullptr) {}

  ITR Find(ITR gkey) {
    if (!pool_ || !LiveRecord<tagTGKey>(gkey)) return 0;
    if (walks_ < kFewWalks) {
      ++walks_;
      ITR at = pool_->GetHeadPosition();
      while (at && LiveRecord<tagTGElemHead>(at)->geometry_key != gkey) pool_->Next(at);
      return at;
    }
    if (entries_.empty()) Sort();
    const auto at = std::lower_bound(entries_.begin(), entries_.end(), gkey,
                                     [](const Entry& a, ITR key) { return a.key < key; });
    return at != entries_.end() && at->key == gkey ? at->head : 0;
  }

 private:
  struct Entry {
    ITR key;
    ITR head;
  };
  static constexpr int kFewWalks = 4;

  void Sort() {
    for (ITR at = pool_->GetHeadPosition(); at; pool_->Next(at)) {
      entries_.push_back({LiveRecord<tagTGElemHead>(at)->geometry_key, at});
    }
    std::stable_sort(entries_.begin(), entries_.end(),
                     [](const Entry& a, const Entry& b) { return a.key < b.key; });
  }

  const DPoolBase* pool_;
  int walks_ = 0;
  std::vector<Entry> entries_;
};

void AppendSides(ITR gelem, TArray<tagTElemSide>& sides) {
  const tagTGElem* data = CurrentData(gelem);
  if (!data) return;
  for (std::int32_t number = 0; number < 12; ++number) {
    for (const ITR element : data->elements[number]) sides.Add({element, number});
  }
}

void CollectElements(ITR gelem, KeyCollector& found) {
  const tagTGElem* data = CurrentData(gelem);
  if (!data) return;
  for (const auto& list : data->elements) found.Add(std::span(list.data(), list.size()));
}

/// The nodes of a geometry item; `gkey` says of what type it is and may be null.
void CollectNodes(ITR gelem, const tagTGKey* gkey, bool all, KeyCollector& found) {
  const tagTGElem* data = CurrentData(gelem);
  if (!data) return;
  found.Add(data->node);
  const std::int32_t type = gkey ? gkey->ItemType() : 0;
  if (type == tagTGKey::kVertex) return;
  for (std::int32_t number = 0; number < 12; ++number) {
    for (const ITR element : data->elements[number]) {
      if (type != tagTGKey::kFace && type != tagTGKey::kEdge) {
        found.Add(NodesOfElement(element, all));
        continue;
      }
      const int kind = type == tagTGKey::kFace ? CQXMeshUtil::kFaceSide : CQXMeshUtil::kEdgeSide;
      found.Add(SideNodes(kind, {element, number}, all).Nodes());
    }
  }
}

/// The keys of all geometry items of the body that one belongs to, itself among them.
std::vector<ITR> KeysOfBody(const CQXDBSession* session, ITR gkey) {
  const auto* one = LiveRecord<tagTGKey>(gkey);
  const DPoolBase* pool = one && session ? session->GetDataPool(code::kGKey) : nullptr;
  std::vector<ITR> keys;
  for (ITR at = pool ? pool->GetHeadPosition() : 0; at; pool->Next(at)) {
    const auto* other = LiveRecord<tagTGKey>(at);
    if (other->geometry == one->geometry && other->instance == one->instance &&
        other->body == one->body) {
      keys.push_back(at);
    }
  }
  return keys;
}

void CollectNodes(HeadIndex& heads, std::span<const ITR> gkeys, bool all, KeyCollector& found) {
  for (const ITR gkey : gkeys) {
    CollectNodes(heads.Find(gkey), LiveRecord<tagTGKey>(gkey), all, found);
  }
}

std::span<const ITR> One(const ITR& itr) { return {&itr, 1}; }
std::span<const ITR> Many(const TArray<ITR>& itrs) { return {itrs.data(), itrs.size()}; }

}  // namespace

// ---- sides on geometry --------------------------------------------------------------------------

std::int32_t CQXMeshUtil::GetElemSideListByGKeyItr(ITR gkey, TArray<tagTElemSide>& sides) const {
  return GetElemSideListByGKeyItrArray({gkey}, sides);
}

std::int32_t CQXMeshUtil::GetElemSideListByGElemItr(ITR gelem, TArray<tagTElemSide>& sides) const {
  return GetElemSideListByGElemItrArray({gelem}, sides);
}

std::int32_t CQXMeshUtil::GetElemSideListByGKeyItrArray(const TArray<ITR>& gkeys,
                                                        TArray<tagTElemSide>& sides) const {
  sides.RemoveAll();
  HeadIndex heads(session_);
  for (const ITR gkey : gkeys) AppendSides(heads.Find(gkey), sides);
  return sides.GetSize();
}

std::int32_t CQXMeshUtil::GetElemSideListByGElemItrArray(const TArray<ITR>& gelems,
                                                         TArray<tagTElemSide>& sides) const {
  sides.RemoveAll();
  for (const ITR gelem : gelems) AppendSides(gelem, sides);
  return sides.GetSize();
}

// ---- elements -----------------------------------------------------------------------------------

std::int32_t CQXMeshUtil::GetElemListByMsetItrArray(const TArray<ITR>& msets,
                                                    TArray<ITR>& out) const {
  KeyCollector found;
  for (const ITR mset : msets) {
    if (LiveRecord<tagTMset>(mset)) found.Add(Many(MembersOf(*session_, mset).Elements()));
  }
  return found.MoveTo(out);
}

std::int32_t CQXMeshUtil::GetElemListByGKeyItr(ITR gkey, TArray<ITR>& out) const {
  return GetElemListByGKeyItrArray({gkey}, out);
}

std::int32_t CQXMeshUtil::GetElemListByGKeyItrArray(const TArray<ITR>& gkeys,
                                                    TArray<ITR>& out) const {
  KeyCollector found;
  HeadIndex heads(session_);
  for (const ITR gkey : gkeys) CollectElements(heads.Find(gkey), found);
  return found.MoveTo(out);
}

std::int32_t CQXMeshUtil::GetElemListByGElemItr(ITR gelem, TArray<ITR>& out) const {
  KeyCollector found;
  CollectElements(gelem, found);
  return found.MoveTo(out);
}

std::int32_t CQXMeshUtil::GetBodyElemListByGKeyItr(ITR gkey, TArray<ITR>& out) const {
  const std::vector<ITR> keys = KeysOfBody(session_, gkey);
  TArray<ITR> list;
  list.Assign(keys.data(), keys.size());
  return GetElemListByGKeyItrArray(list, out);
}

// ---- nodes --------------------------------------------------------------------------------------

std::int32_t CQXMeshUtil::GetNodeListByMsetItrArray(const TArray<ITR>& msets,
                                                    TArray<ITR>& out) const {
  KeyCollector found;
  for (const ITR mset : msets) {
    if (LiveRecord<tagTMset>(mset)) found.Add(Many(MembersOf(*session_, mset).Nodes()));
  }
  return found.MoveTo(out);
}

std::int32_t CQXMeshUtil::GetNodeListByGKeyItr(ITR gkey, TArray<ITR>& out, int all) const {
  KeyCollector found;
  HeadIndex heads(session_);
  CollectNodes(heads, One(gkey), all != 0, found);
  return found.MoveTo(out);
}

std::int32_t CQXMeshUtil::GetNodeListByGKeyItrArray(const TArray<ITR>& gkeys, TArray<ITR>& out,
                                                    int all) const {
  KeyCollector found;
  HeadIndex heads(session_);
  CollectNodes(heads, Many(gkeys), all != 0, found);
  return found.MoveTo(out);
}

std::int32_t CQXMeshUtil::GetNodeListByGElemItr(ITR gelem, TArray<ITR>& out, int all) const {
  KeyCollector found;
  if (const auto* head = LiveRecord<tagTGElemHead>(gelem)) {
    CollectNodes(gelem, LiveRecord<tagTGKey>(head->geometry_key), all != 0, found);
  }
  return found.MoveTo(out);
}

std::int32_t CQXMeshUtil::GetBodyNodeListByGKeyItr(ITR gkey, TArray<ITR>& out, int all) const {
  return GetBodyNodeListByGKeyItrArray({gkey}, out, all);
}

std::int32_t CQXMeshUtil::GetBodyNodeListByGKeyItrArray(const TArray<ITR>& gkeys, TArray<ITR>& out,
                                                        int all) const {
  KeyCollector found;
  HeadIndex heads(session_);
  for (const ITR gkey : gkeys) CollectNodes(heads, KeysOfBody(session_, gkey), all != 0, found);
  return found.MoveTo(out);
}

std::int32_t CQXMeshUtil::GetNodeListByElemItrArray(const TArray<ITR>& elems, TArray<ITR>& out,
                                                    int all) const {
  KeyCollector found;
  for (const ITR elem : elems) found.Add(NodesOfElement(elem, all != 0));
  return found.MoveTo(out);
}

std::int32_t CQXMeshUtil::GetCommonNodeListByElemItrArray(const TArray<ITR>& elems,
                                                          TArray<ITR>& out, int all) const {
  KeyCollector first;
  if (!elems.IsEmpty()) first.Add(NodesOfElement(elems[0], all != 0));
  TArray<ITR> common;  // apart from the output, which may be the input
  first.MoveTo(common);
  for (std::int32_t i = 1; i < elems.GetSize() && !common.IsEmpty(); ++i) {
    const std::span<const ITR> others = NodesOfElement(elems[i], all != 0);
    const auto missing = [&](ITR node) {
      return std::find(others.begin(), others.end(), node) == others.end();
    };
    common.SetSize(std::remove_if(common.begin(), common.end(), missing) - common.begin());
  }
  out = std::move(common);
  return out.GetSize();
}

std::int32_t CQXMeshUtil::GetNodeCountByElem(ITR elem) const {
  const tagTElem* element = ElementAt(elem);
  return element ? ElementTopology(element->type).Nodes() : 0;
}

// ---- nodes of sides -----------------------------------------------------------------------------

std::int32_t CQXMeshUtil::GetEdgeNodeList(const tagTElemSide& side, TArray<ITR>& out,
                                          int all) const {
  return GetNodeListByElemSide(kEdgeSide, side, out, all);
}

std::int32_t CQXMeshUtil::GetFaceNodeList(const tagTElemSide& side, TArray<ITR>& out,
                                          int all) const {
  return GetNodeListByElemSide(kFaceSide, side, out, all);
}

std::int32_t CQXMeshUtil::GetNodeListByElemSide(int kind, const tagTElemSide& side,
                                                TArray<ITR>& out, int all) const {
  const SideNodes nodes(kind, side, all != 0);
  out.RemoveAll();
  out.Assign(nodes.Nodes().data(), nodes.Nodes().size());
  return out.GetSize();
}

std::int32_t CQXMeshUtil::GetNodeListByElemSideArray(int kind, const TArray<tagTElemSide>& sides,
                                                     TArray<ITR>& out, int all) const {
  KeyCollector found;
  for (const tagTElemSide& side : sides) found.Add(SideNodes(kind, side, all != 0).Nodes());
  return found.MoveTo(out);
}

std::int32_t CQXMeshUtil::GetSequenceNodeListByElemSideArray(int kind,
                                                             const TArray<tagTElemSide>& sides,
                                                             TArray<ITR>& out, int all) const {
  out.RemoveAll();
  for (const tagTElemSide& side : sides) {
    const SideNodes nodes(kind, side, all != 0);
    for (const ITR node : nodes.Nodes()) out.Add(node);
  }
  return out.GetSize();
}

int CQXMeshUtil::GetEdgeType(const tagTElemSide& side) const {
  const std::size_t count = SideNodes(kEdgeSide, side, true).Nodes().size();
  return count == 2 || count == 3 ? static_cast<int>(count) : 0;
}

int CQXMeshUtil::GetFaceType(const tagTElemSide& side) const {
  constexpr int kByNodes[] = {0, 0, 0, 4, 6, 0, 5, 0, 7};
  return kByNodes[SideNodes(kFaceSide, side, true).Nodes().size()];
}

}  // namespace qx
