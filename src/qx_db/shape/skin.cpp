#include <algorithm>
#include <array>
#include <map>
#include <set>

#include "qx_db/app/mesh_util.h"
#include "qx_db/mesh/element_access.h"
#include "qx_db/mesh/side_nodes.h"
#include "qx_db/platform/text.h"
#include "qx_db/record/element_types.h"
#include "qx_db/shape/faces.h"
#include "qx_db/shape/group_set.h"
#include "qx_db/shape/next_key.h"

namespace qx {
namespace {

using FaceKey = std::array<ITR, 4>;

FaceKey Sorted(std::span<const ITR> nodes) {
  FaceKey corners{};
  std::copy_n(nodes.begin(), std::min<std::size_t>(nodes.size(), 4), corners.begin());
  std::sort(corners.begin(), corners.end());
  return corners;
}

}  // namespace

std::vector<tagTElemSide> FacesAround(std::span<const ITR> solids) {
  std::map<FaceKey, int> uses;
  const auto for_each = [&](auto&& visit) {
    for (const ITR solid : solids) {
      const tagTElem* element = ElementAt(solid);
      const ElementTopology type(element ? element->type : 0);
      if (type.Class() != topology::kSolidClass) continue;
      for (std::int32_t f = 0; type.HasFace(f); ++f) {
        const tagTElemSide side{solid, f};
        const SideNodes nodes(CQXMeshUtil::kFaceSide, side, false);
        if (nodes.Count() > 0) visit(side, Sorted(nodes.Nodes()));
      }
    }
  };
  for_each([&](const tagTElemSide&, const FaceKey& corners) { ++uses[corners]; });
  std::vector<tagTElemSide> faces;
  for_each([&](const tagTElemSide& side, const FaceKey& corners) {
    if (uses[corners] == 1) faces.push_back(side);
  });
  return faces;
}

Outcome MakeSkin(CQXDBSession& session, std::span<const tagTElemSide> faces, const SkinPlan& plan,
                 ShapeReport& report) {
  auto& elements = Pool<tagTElem>(session);
  std::set<FaceKey> covered;
  for (ITR at = elements.GetHeadPosition(); at; elements.Next(at)) {
    if (topology::DimensionOf(elements.GetAtNU(at).type) != 2) continue;
    const SideNodes nodes(CQXMeshUtil::kFaceSide, tagTElemSide{at, 0}, false);
    if (nodes.Count() > 0) covered.insert(Sorted(nodes.Nodes()));
  }
  NextKey keys(elements);
  std::int64_t there = 0;
  std::vector<ITR> made;
  for (const tagTElemSide& face : faces) {
    const tagTElem* solid = ElementAt(face.element);
    if (!solid || ElementTopology(solid->type).Class() != topology::kSolidClass) continue;
    const SideNodes corners(CQXMeshUtil::kFaceSide, face, false);
    const SideNodes all(CQXMeshUtil::kFaceSide, face, true);
    if (corners.Count() == 0) continue;
    if (!covered.insert(Sorted(corners.Nodes())).second) {
      ++there;
      continue;
    }
    if (!keys.Has(1)) return RefusedByModel();
    tagTElem shell;
    shell.key = keys.Take();
    shell.type = (corners.Count() == 3 ? element::kTri3 : element::kQuad4) +
                 (all.Count() > corners.Count() ? 1 : 0);
    shell.property = plan.property;
    for (const ITR node : all.Nodes()) shell.nodes.Add(node);
    const ITR added = elements.InsertNU(shell);
    if (!added) return RefusedByModel();
    made.push_back(added);
    report.made.push_back({code::kElem, KeyOf(face.element), shell.key});
  }
  if (made.empty()) {
    return Failure{"", "where",
                   there ? "selects only faces that have a surface element already"
                         : "selects no face of a solid",
                   "select solids, or faces of solids"};
  }
  report.Note("faces have a surface element already and get no other", there);
  return AddGroupSet(session, plan.set, made, {}) ? Outcome() : RefusedByModel();
}

}  // namespace qx
