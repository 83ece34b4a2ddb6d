#include "qx_db/app/side_references.h"

#include <algorithm>
#include <utility>
#include <vector>

#include "qx_db/app/mesh_util.h"
#include "qx_db/core/session.h"
#include "qx_db/mesh/element_access.h"
#include "qx_db/mesh/topology_table.h"
#include "qx_db/model/standard_pools.h"
#include "qx_db/record/geometry_records.h"
#include "qx_db/record/verbs.h"

namespace qx {
namespace {

// ---- elements on geometry -----------------------------------------------------------------------

constexpr std::int32_t kLists = 12;

/// Moves elements to the lists of the sides that stand for theirs now.
bool Change(tagTGElem& data, int kind, const SideChange& change) {
  TArray<ITR> now[kLists];
  bool changed = false;
  for (std::int32_t number = 0; number < kLists; ++number) {
    for (const ITR element : data.elements[number]) {
      const tagTElemSide was{element, number};
      tagTElemSide side = change(kind, was).value_or(was);
      if (side.side < 0 || side.side >= kLists) side = was;
      TArray<ITR>& list = now[side.side];
      const auto is_in = [&](const TArray<ITR>& named) {
        return std::find(named.begin(), named.end(), ITR{side.element}) != named.end();
      };
      // Turning an element exchanges its numbers: only another element's side can be there before.
      if (side.element != was.element && (is_in(list) || is_in(data.elements[side.side]))) {
        now[number].Add(element);
        continue;
      }
      list.Add(side.element);
      changed |= side != was;
    }
  }
  for (std::int32_t side = 0; changed && side < kLists; ++side) {
    data.elements[side] = std::move(now[side]);
  }
  return changed;
}

/// The type of the geometry item tells what the numbers of a record name: faces on a face, edges on
/// an edge, elsewhere nothing.
bool ChangeOnGeometry(CQXDBSession& session, const SideChange& change) {
  auto* heads = session.GetPool<PoolOf<tagTGElemHead>::type>(tagTGElemHead::kType);
  auto* pool = session.GetPool<PoolOf<tagTGElem>::type>(tagTGElem::kType);
  if (!heads || !pool) return true;
  for (ITR at = heads->GetHeadPosition(); at; heads->Next(at)) {
    const auto* head = LiveRecord<tagTGElemHead>(at);
    const auto* item = LiveRecord<tagTGKey>(head->geometry_key);
    const std::int32_t type = item ? item->ItemType() : 0;
    const int kind = type == tagTGKey::kFace   ? CQXMeshUtil::kFaceSide
                     : type == tagTGKey::kEdge ? CQXMeshUtil::kEdgeSide
                                               : kWholeElement;
    for (const ITR entry : std::vector<ITR>(head->data.begin(), head->data.end())) {
      const auto* data = LiveRecord<tagTGElem>(entry);
      if (!data) continue;
      tagTGElem copy = *data;
      if (Change(copy, kind, change) && !pool->SetAtNU(entry, copy)) return false;
    }
  }
  return true;
}

// ---- arrays of sides ----------------------------------------------------------------------------

int KindOf(const tagTElemSide& side) {
  const tagTElem* element = ElementAt(side.element);
  const ElementTopology type(element ? element->type : 0);
  return type.Class() == topology::kSolidClass && type.HasFace(side.side) ? CQXMeshUtil::kFaceSide
                                                                          : CQXMeshUtil::kEdgeSide;
}

bool Change(const Schema& schema, TStructBase& record, const SideChange& change) {
  bool changed = false;
  for (const Row* row : schema.References()) {
    if (!NamesSides(row)) continue;
    ArrayStorage& array = detail::ArrayAt(detail::Bytes(record), *row);
    const std::span<tagTElemSide> sides(static_cast<tagTElemSide*>(array.data),
                                        static_cast<std::size_t>(array.count));
    for (tagTElemSide& side : sides) {
      const tagTElemSide now = change(KindOf(side), side).value_or(side);
      const bool is_there =
          now.element != side.element && std::find(sides.begin(), sides.end(), now) != sides.end();
      if (now == side || is_there) continue;
      side = now;
      changed = true;
    }
  }
  return changed;
}

bool ChangeInArrays(DPoolBase& pool, const SideChange& change) {
  for (ITR at = pool.GetHeadPosition(); at; pool.Next(at)) {
    const auto copy = pool.CopyRecord(at);
    if (Change(pool.GetSchema(), *copy, change) && !pool.SetAtNU(at, copy.get())) return false;
  }
  return true;
}

}  // namespace

bool NamesSides(const Row* row) { return row->elements == &tagTElemSide::GetSchema(); }

bool ChangeSides(CQXDBSession& session, const SideChange& change) {
  for (DPoolBase* pool : session.Pools()) {
    const auto rows = pool->GetSchema().References();
    if (std::none_of(rows.begin(), rows.end(), NamesSides)) continue;
    if (!ChangeInArrays(*pool, change)) return false;
  }
  return ChangeOnGeometry(session, change);
}

}  // namespace qx
