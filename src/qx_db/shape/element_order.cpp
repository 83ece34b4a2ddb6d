// Elements of another order.

#include <algorithm>
#include <cmath>
#include <unordered_set>

#include "qx_db/app/mesh_findings.h"
#include "qx_db/mesh/element_access.h"
#include "qx_db/model/standard_pools.h"
#include "qx_db/record/deck_records.h"
#include "qx_db/record/element_types.h"
#include "qx_db/shape/element_change.h"
#include "qx_db/shape/group_set.h"
#include "qx_db/shape/new_nodes.h"

namespace qx {
namespace {

/// The quadratic type of the same shape; 0 for none. Types come in pairs, the linear one first.
std::int32_t QuadraticOf(std::int32_t type) {
  return type >= element::kLine2 && type <= element::kHex20 && type % 2 == 0 ? type + 1 : 0;
}
std::int32_t LinearOf(std::int32_t type) {
  return type >= element::kLine2 && type <= element::kHex20 && type % 2 == 1 ? type - 1 : 0;
}

/// Whether all nodes that the type has are there.
bool IsWhole(const tagTElem& element) {
  return element.nodes.GetSize() == ElementTopology(element.type).Nodes() &&
         std::all_of(element.nodes.begin(), element.nodes.end(),
                     [](ITR node) { return NodeAt(node) != nullptr; });
}

/// Elements of ordinary types alone carry orientations that name their type.
bool Store(DPoolElem& elements, ITR at, const tagTElem& element) {
  tagTEcrd orientation;
  return elements.GetElemCSys(at, orientation)
             ? elements.SetAtNUwCsys(at, element, orientation, 0) != 0
             : elements.SetAtNU(at, element) != 0;
}

/// Values of fields at the nodes of elements: those of corners stay, those between come as the mean
/// of both ends or go.
bool AdjustFields(CQXDBSession& session, const std::unordered_set<ITR>& changed) {
  auto* pool = session.GetPool<DPool<tagTField>>(tagTField::kType);
  for (ITR at = pool ? pool->GetHeadPosition() : 0; at; pool->Next(at)) {
    const tagTField& field = pool->GetAtNU(at);
    if (field.place != tagTField::kElementNodes || field.components < 1) continue;
    const auto& list = field.element_values;
    TArray<tagTElemValue> now;
    bool is_changed = false;
    for (std::int64_t begin = 0, end; begin < list.GetSize(); begin = end) {
      const ITR target = list[begin].target;
      for (end = begin; end < list.GetSize() && ITR{list[end].target} == target;) ++end;
      const tagTElem* element = changed.contains(target) ? ElementAt(target) : nullptr;
      const ElementTopology type(element ? element->type : 0);
      const std::int64_t parts = field.components, corners = type.Corners() * parts;
      if (!element || end - begin < corners) {
        for (std::int64_t i = begin; i < end; ++i) now.Add(list[i]);
        continue;
      }
      is_changed = true;
      for (std::int64_t i = begin; i < begin + corners; ++i) now.Add(list[i]);
      for (std::int32_t e = 0; type.Nodes() > type.Corners() && e < type.Edges(); ++e) {
        const auto ends = type.Edge(e, false);
        for (std::int64_t part = 0; part < parts; ++part) {
          tagTElemValue value = list[begin + ends[0] * parts + part];
          value.value = 0.5 * (value.value + list[begin + ends[1] * parts + part].value);
          if (field.integers) value.value = std::floor(value.value);
          now.Add(value);
        }
      }
    }
    if (!is_changed) continue;
    tagTField copy = field;
    copy.element_values = now;
    if (!pool->SetAtNU(at, copy)) return false;
  }
  return true;
}

}  // namespace

Outcome ToQuadratic(CQXDBSession& session, std::span<const ITR> elements, ShapeReport& report) {
  auto& pool = Pool<tagTElem>(session);
  const auto& nodes = Pool<tagTNode>(session);
  NewNodes between(session);
  // A quadratic neighbour has the nodes already.
  for (ITR at = pool.GetHeadPosition(); at; pool.Next(at)) {
    const tagTElem& element = pool.GetAtNU(at);
    if (!LinearOf(element.type) || !IsWhole(element)) continue;
    const ElementTopology type(element.type);
    for (std::int32_t e = 0; e < type.Edges(); ++e) {
      const auto places = type.Edge(e, true);
      between.Know(element.nodes[places[0]], element.nodes[places[1]], element.nodes[places[2]]);
    }
  }
  std::unordered_set<ITR> changed;
  std::int64_t broken = 0;
  for (const ITR at : elements) {
    tagTElem element = pool.GetAtNU(at);
    const std::int32_t quadratic = QuadraticOf(element.type);
    if (!quadratic) continue;
    if (!IsWhole(element)) {
      ++broken;
      continue;
    }
    const ElementTopology type(element.type);
    for (std::int32_t e = 0; e < type.Edges(); ++e) {
      const auto places = type.Edge(e, false);
      const ITR a = element.nodes[places[0]], b = element.nodes[places[1]];
      const ITR node = between.Make(a, b, 0.5 * (nodes.Position(a) + nodes.Position(b)));
      if (!node) return RefusedByModel();
      element.nodes.Add(node);
    }
    element.type = quadratic;
    if (!Store(pool, at, element)) return RefusedByModel();
    changed.insert(at);
  }
  if (changed.empty()) {
    return Failure{"", "where", "selects no linear line, surface or solid element",
                   "select elements such as: linear and not special"};
  }
  std::int64_t beside = 0;
  for (ITR at = pool.GetHeadPosition(); at; pool.Next(at)) {
    const tagTElem& element = pool.GetAtNU(at);
    if (!QuadraticOf(element.type) || !IsWhole(element)) continue;
    const ElementTopology type(element.type);
    for (std::int32_t e = 0; e < type.Edges(); ++e) {
      const auto places = type.Edge(e, false);
      if (!between.Find(element.nodes[places[0]], element.nodes[places[1]])) continue;
      ++beside;
      break;
    }
  }
  report.Note("linear elements beside these share their edges without their new nodes", beside);
  report.Note("elements that lack nodes stay as they are", broken);
  auto* fields = session.GetPool<DPool<tagTField>>(tagTField::kType);
  std::int64_t nodal = 0;
  for (ITR at = fields ? fields->GetHeadPosition() : 0; at; fields->Next(at)) {
    nodal += fields->GetAtNU(at).node_values.IsEmpty() ? 0 : 1;
  }
  report.Note("fields of nodal values have none at the new nodes", nodal);
  return between.JoinSets() && AdjustFields(session, changed) ? Outcome() : RefusedByModel();
}

Outcome ToLinear(CQXDBSession& session, std::span<const ITR> elements, ShapeReport& report) {
  auto& pool = Pool<tagTElem>(session);
  std::unordered_set<ITR> changed, dropped;
  std::int64_t broken = 0;
  for (const ITR at : elements) {
    tagTElem element = pool.GetAtNU(at);
    const std::int32_t linear = LinearOf(element.type);
    if (!linear) continue;
    const std::int32_t corners = ElementTopology(linear).Nodes();
    if (element.nodes.GetSize() < corners) {
      ++broken;
      continue;
    }
    for (std::int32_t i = corners; i < element.nodes.GetSize(); ++i) {
      dropped.insert(element.nodes[i]);
    }
    element.nodes.SetSize(corners);
    element.type = linear;
    if (!Store(pool, at, element)) return RefusedByModel();
    changed.insert(at);
  }
  if (changed.empty()) {
    return Failure{"", "where", "selects no quadratic element", "select elements by: quadratic"};
  }
  if (!AdjustFields(session, changed)) return RefusedByModel();
  std::vector<ITR> unused;
  {
    const DenseMesh mesh(session);
    for (const std::uint32_t n : FindUnusedNodes(mesh).unused) {
      if (dropped.contains(mesh.NodeItr(n))) unused.push_back(mesh.NodeItr(n));
    }
  }
  auto& nodes = Pool<tagTNode>(session);
  for (const ITR node : unused) {
    if (!nodes.Remove(node)) return RefusedByModel();
  }
  report.Note("nodes between corners stay: other elements or records have them",
              static_cast<std::int64_t>(dropped.size() - unused.size()));
  report.Note("elements that lack nodes stay as they are", broken);
  return {};
}

}  // namespace qx
