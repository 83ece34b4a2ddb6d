#include "qx_db/app/element_turning.h"

#include <algorithm>
#include <set>
#include <unordered_set>
#include <utility>
#include <vector>

#include "qx_db/app/mesh_util.h"
#include "qx_db/app/side_references.h"
#include "qx_db/core/session.h"
#include "qx_db/mesh/element_access.h"
#include "qx_db/mesh/topology_table.h"
#include "qx_db/model/standard_pools.h"
#include "qx_db/record/attribute_records.h"

namespace qx {
namespace {

using Turned = std::unordered_set<ITR>;

std::int32_t TypeOf(ITR element) { return ElementAt(element)->type; }

/// Changes a copy of every record of a pool and stores it where `change` says that it did.
template <class T, class Change>
bool ChangeEach(CQXDBSession& session, Change&& change) {
  auto* pool = session.GetPool<typename PoolOf<T>::type>(T::kType);
  for (ITR at = pool ? pool->GetHeadPosition() : 0; at; pool->Next(at)) {
    T copy = *LiveRecord<T>(at);
    if (change(copy) && !pool->SetAtNU(at, copy)) return false;
  }
  return true;
}

// ---- what plates are given ----------------------------------------------------------------------

void TurnOver(tagTE2DThick& record, std::int32_t type) {
  if (record.uniform || FlipOf(type).empty()) return;  // a line has nothing to exchange
  // Later exchanges are of mid-side nodes, which have no thickness.
  const NodeExchange corners = FlipOf(type)[0];
  std::swap(record.thickness[corners.a], record.thickness[corners.b]);
}

void TurnOver(tagTE2DOffset& record, std::int32_t) { record.offset = -record.offset; }

bool SameForPlates(const tagTE2DThick& a, const tagTE2DThick& b) {
  return std::equal(a.thickness, a.thickness + 4, b.thickness);
}
bool SameForPlates(const tagTE2DOffset& a, const tagTE2DOffset& b) { return a.offset == b.offset; }

/// Gives the turned plates of a record one of their own where they need other numbers; a record of
/// which no plate stays takes the numbers itself.
template <class T>
bool SplitTurned(CQXDBSession& session, const Turned& turned) {
  auto* pool = session.GetPool<typename PoolOf<T>::type>(T::kType);
  std::vector<T> added;
  const bool done = ChangeEach<T>(session, [&](T& record) {
    const T before = record;
    TArray<ITR> rest, triangles, quadrilaterals;
    for (const ITR element : before.elements) {
      const bool is_turned = turned.contains(element);
      const bool is_triangle = is_turned && ElementTopology(TypeOf(element)).Corners() == 3;
      (is_triangle ? triangles : is_turned ? quadrilaterals : rest).Add(element);
    }
    std::vector<T> parts;
    for (const TArray<ITR>* part : {&triangles, &quadrilaterals}) {
      if (part->IsEmpty()) continue;
      T other = before;
      TurnOver(other, TypeOf((*part)[0]));
      if (SameForPlates(before, other)) {
        for (const ITR element : *part) rest.Add(element);
        continue;
      }
      other.elements = *part;
      parts.push_back(other);
    }
    if (parts.empty()) return false;
    record.elements = rest;
    if (rest.IsEmpty()) {
      record = parts.back();
      parts.pop_back();
    }
    added.insert(added.end(), parts.begin(), parts.end());
    return true;
  });
  if (!done) return false;
  for (T& record : added) {
    record.key = pool->Set().GetFreeKey();
    if (!pool->InsertNU(record)) return false;
  }
  return true;
}

}  // namespace

std::int32_t SideWhenTurned(std::int32_t type, int kind, std::int32_t side) {
  const ElementTopology topology(type);
  const bool is_face = kind == CQXMeshUtil::kFaceSide;
  const auto has = [&](std::int32_t number) {
    return is_face ? topology.HasFace(number) : topology.HasEdge(number);
  };
  const auto places = [&](std::int32_t number) {
    const auto list = is_face ? topology.Face(number, false) : topology.Edge(number, false);
    return std::set<std::int32_t>(list.begin(), list.end());
  };
  if (!has(side)) return side;
  std::set<std::int32_t> now;
  for (std::int32_t place : places(side)) {
    for (const NodeExchange& exchange : FlipOf(type)) {
      if (place == exchange.a || place == exchange.b) {
        place = exchange.a + exchange.b - place;
        break;
      }
    }
    now.insert(place);
  }
  for (std::int32_t number = 0; has(number); ++number) {
    if (places(number) == now) return number;
  }
  return side;
}

bool TurnElements(CQXDBSession& session, std::span<const ITR> elements, bool were_reflected) {
  const CQXMeshUtil util(&session);
  for (const ITR element : elements) {
    if (!util.FlipElement(element)) return false;
  }
  if (elements.empty()) return true;
  const Turned turned(elements.begin(), elements.end());
  const auto renumbered = [&](int kind, const tagTElemSide& side) -> std::optional<tagTElemSide> {
    if (kind == kWholeElement || !turned.contains(+side.element)) return {};
    return tagTElemSide{side.element, SideWhenTurned(TypeOf(side.element), kind, side.side)};
  };
  return ChangeSides(session, renumbered) && SplitTurned<tagTE2DThick>(session, turned) &&
         (were_reflected || SplitTurned<tagTE2DOffset>(session, turned));
}

}  // namespace qx
