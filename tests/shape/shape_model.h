#pragma once
// Meshes of every kind of element, with what records may say of them, and what is measured of them.

#include <array>
#include <cmath>
#include <gtest/gtest.h>
#include <map>
#include <random>
#include <set>
#include <string>
#include <vector>

#include "qx_db/core/transaction.h"
#include "qx_db/mesh/dense_mesh.h"
#include "qx_db/mesh/element_access.h"
#include "qx_db/mesh/element_volume.h"
#include "qx_db/mesh/mesh_adjacency.h"
#include "qx_db/model/standard_pools.h"
#include "qx_db/platform/outcome.h"
#include "qx_db/record/attribute_records.h"
#include "qx_db/record/control_records.h"
#include "qx_db/record/deck_records.h"
#include "qx_db/record/element_types.h"
#include "qx_db/shape/element_change.h"
#include "qx_db/shape/shape_report.h"

#include "tests/mesh/mesh_builder.h"

namespace qx::testing {

/// Length, area and volume of all elements, by dimension.
struct Sizes {
  std::array<double, 4> total{};
  std::array<std::int64_t, 4> count{};
  double least_volume = 1e300;
};
inline Sizes SizesOf(const CQXDBSession& session) {
  Sizes sizes;
  const DenseMesh mesh(session);
  for (std::uint32_t e = 0; e < mesh.ElementCount(); ++e) {
    if (mesh.Shape(e) == CornerShape::kNone || !mesh.IsUsable(e)) continue;
    Point3 p[8];
    mesh.CornerPositions(e, p);
    const auto dimension = static_cast<std::size_t>(topology::DimensionOf(mesh.Shape(e)));
    const double size = ShapeSize(mesh.Shape(e), p);
    sizes.total[dimension] += size;
    ++sizes.count[dimension];
    if (dimension == 3) sizes.least_volume = std::min(sizes.least_volume, size);
  }
  return sizes;
}

/// All records of a pool, in its order.
template <class T>
std::vector<ITR> All(const CQXDBSession& session) {
  std::vector<ITR> all;
  auto* pool = session.GetDataPool(T::kType);
  for (ITR at = pool->GetHeadPosition(); at; pool->Next(at)) all.push_back(at);
  return all;
}

/// Does `work`, which gives an Outcome, as one step.
template <class Work>
Outcome AsStep(CQXDBSession& session, Work&& work) {
  CTransaction step(&session);
  step.Begin(u"Shape");
  const Outcome done = work();
  if (!done) return done;
  EXPECT_TRUE(step.Commit());
  EXPECT_EQ(session.Validate(), "");
  return done;
}

/// One element of each of the types 2 to 15, each somewhere else, stretched and sheared by chance
/// but not turned inside out.
inline void Zoo(Model& model, std::mt19937& random) {
  std::uniform_real_distribution<double> any(-0.2, 0.2);
  for (std::int32_t type = element::kLine2; type <= element::kHex20; ++type) {
    std::vector<Point3> corners = IdealCorners(topology::ShapeOf(type));
    Triad rows{{1 + any(random), any(random), any(random)},
               {any(random), 1 + any(random), any(random)},
               {any(random), any(random), 1 + any(random)}};
    for (Point3& p : corners) p = rows.ToLocal(p) + Point3(3.0 * type, any(random), 0);
    model.Element(type, corners);
  }
}

/// A mesh set of some elements, with their nodes.
inline ITR AddSet(Model& model, const char16_t* name, const std::vector<ITR>& elements) {
  tagTMset set;
  set.key = Pool<tagTMset>(model.session).NewSetKey();
  set.name.Set(name);
  std::set<ITR> met;
  for (const ITR element : elements) {
    set.elements.Add(element);
    for (const ITR node : model.At(element).nodes) {
      if (met.insert(node).second) set.nodes.Add(node);
    }
  }
  return Pool<tagTMset>(model.session).InsertNU(set);
}

using Change = Outcome (*)(CQXDBSession&, std::span<const ITR>, ShapeReport&);

inline ShapeReport Do(CQXDBSession& session, Change change, const std::vector<ITR>& elements) {
  ShapeReport report;
  const Outcome done = AsStep(session, [&] { return change(session, elements, report); });
  EXPECT_TRUE(done) << done.Line();
  return report;
}

/// Vertices - edges + faces of the outer surface of the solids.
inline int EulerOfSurface(const DenseMesh& mesh) {
  std::set<std::uint32_t> vertices;
  std::set<std::pair<std::uint32_t, std::uint32_t>> edges;
  const auto faces = OuterFaces(mesh);
  for (const DenseSide& side : faces) {
    const ElementTopology type(mesh.Element(side.element).type);
    const auto places = type.Face(static_cast<std::int32_t>(side.side), false);
    for (std::size_t i = 0; i < places.size(); ++i) {
      const auto at = [&](std::size_t k) {
        return mesh.Nodes(side.element)[static_cast<std::size_t>(places[k % places.size()])];
      };
      vertices.insert(at(i));
      edges.insert(std::minmax(at(i), at(i + 1)));
    }
  }
  return static_cast<int>(vertices.size()) - static_cast<int>(edges.size()) +
         static_cast<int>(faces.size());
}

/// A block of hexahedra, wedges, pyramids and tetrahedra that fit, with quadrilaterals on it; node
/// keys in random order, so that every pattern of diagonals comes up.
inline void MixedBlock(Model& model, std::mt19937& random, bool quadratic) {
  model.Block(3, 2, 2);
  auto& nodes = Pool<tagTNode>(model.session);
  std::vector<Key> keys;
  for (const ITR node : model.nodes) keys.push_back(KeyOf(node) + 1000);
  std::shuffle(keys.begin(), keys.end(), random);
  for (std::size_t i = 0; i < keys.size(); ++i) {
    tagTNode node = nodes.GetAtNU(model.nodes[i]);
    node.key = keys[i];
    ASSERT_TRUE(nodes.SetAtNU(model.nodes[i], node));
  }
  const auto place = [&](ITR node) {
    return static_cast<int>(std::find(model.nodes.begin(), model.nodes.end(), node) -
                            model.nodes.begin());
  };
  const auto at = [&](const tagTElem& e, int i) { return place(e.nodes[i]); };
  auto& elements = Pool<tagTElem>(model.session);
  // Two on each other become wedges, one becomes six pyramids about its centre.
  for (const std::size_t lower : {3u, 9u}) {
    const tagTElem a = elements.GetAtNU(model.elements[lower]);
    elements.Remove(model.elements[lower]);
    for (const auto& corners : {std::array{0, 1, 2}, std::array{0, 2, 3}}) {
      std::vector<int> places;
      for (const int level : {0, 4}) {
        for (const int corner : corners) places.push_back(at(a, corner + level));
      }
      model.Element(element::kWedge6, places);
    }
  }
  const tagTElem b = elements.GetAtNU(model.elements[7]);
  elements.Remove(model.elements[7]);
  Point3 centre;
  for (int i = 0; i < 8; ++i) centre += 0.125 * Point3(NodeAt(b.nodes[i])->position);
  const int apex = model.Node(centre);
  const ElementTopology hex(element::kHex8);
  for (std::int32_t f = 0; f < 6; ++f) {
    const auto face = hex.Face(f, false);
    model.Element(element::kPyramid5, std::vector<int>{at(b, face[3]), at(b, face[2]),
                                                       at(b, face[1]), at(b, face[0]), apex});
  }
  // Plates on the bottom, seen from below.
  const tagTElem c = elements.GetAtNU(model.elements[0]);
  model.Element(element::kQuad4, std::vector<int>{at(c, 0), at(c, 3), at(c, 2), at(c, 1)});
  for (const ITR itr : model.nodes) {
    tagTNode node = nodes.GetAtNU(itr);
    node.position.x += 0.2 * node.position.y;  // affine: faces stay flat
    nodes.SetAtNU(itr, node);
  }
  if (quadratic) Do(model.session, ToQuadratic, All<tagTElem>(model.session));
}

}  // namespace qx::testing
