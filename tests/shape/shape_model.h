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
#include "qx_db/model/standard_pools.h"
#include "qx_db/platform/outcome.h"
#include "qx_db/record/attribute_records.h"
#include "qx_db/record/control_records.h"
#include "qx_db/record/deck_records.h"
#include "qx_db/record/element_types.h"
#include "qx_db/shape/shape_report.h"

#include "tests/mesh/mesh_builder.h"

namespace qx::testing {

inline double Length3(const Point3& v) { return Length(v); }

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

}  // namespace qx::testing
