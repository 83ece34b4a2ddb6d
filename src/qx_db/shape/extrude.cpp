#include <algorithm>
#include <cmath>
#include <map>
#include <set>
#include <unordered_map>

#include "qx_db/app/mesh_util.h"
#include "qx_db/mesh/element_access.h"
#include "qx_db/mesh/element_volume.h"
#include "qx_db/mesh/record_numbers.h"
#include "qx_db/mesh/side_nodes.h"
#include "qx_db/record/element_types.h"
#include "qx_db/shape/faces.h"
#include "qx_db/shape/group_set.h"
#include "qx_db/shape/next_key.h"

namespace qx {
namespace {

/// A face by its nodes: corners in order, and what lies between them.
struct Ring {
  tagTElemSide face;
  std::vector<ITR> corners;
  std::vector<ITR> between;  ///< after each corner; empty of a linear face
  Vector3 normal;            ///< twice the area long
};

Point3 PositionOf(ITR node) { return Point3(NodeAt(node)->position); }

Vector3 NormalOf(const std::vector<ITR>& corners) {
  const auto at = [&](std::size_t i) { return PositionOf(corners[i]); };
  return corners.size() == 3 ? Cross(at(1) - at(0), at(2) - at(0))
                             : Cross(at(2) - at(0), at(3) - at(1));
}

std::string PlaceOf(const tagTElemSide& face) {
  return "face " + std::to_string(KeyOf(face.element)) + "." + std::to_string(face.side);
}

class Extruder {
 public:
  Extruder(CQXDBSession& session, const ExtrusionPlan& plan, ShapeReport& report)
      : session_(session),
        plan_(plan),
        report_(report),
        nodes_(Pool<tagTNode>(session)),
        elements_(Pool<tagTElem>(session)),
        node_keys_(nodes_),
        element_keys_(elements_) {}

  Outcome Run(std::span<const tagTElemSide> faces) {
    for (const tagTElemSide& face : faces) {
      if (Outcome taken = Take(face); !taken) return taken;
    }
    if (rings_.empty()) {
      return Failure{"", "where", "selects no face", "select faces, or surface elements"};
    }
    report_.Note("faces lie on others of these and are extruded once", twice_);
    if (Outcome ways = FindWays(); !ways) return ways;
    for (int layer = 0; layer < plan_.layers; ++layer) {
      for (Ring& ring : rings_) {
        if (Outcome made = Make(ring, layer); !made) return made;
      }
    }
    return AddSets() ? Outcome() : RefusedByModel();
  }

 private:
  Outcome Take(const tagTElemSide& face) {
    const SideNodes all(CQXMeshUtil::kFaceSide, face, true);
    const std::size_t corners = SideNodes(CQXMeshUtil::kFaceSide, face, false).Count();
    const auto list = all.Nodes();
    if (corners < 3 || !std::all_of(list.begin(), list.end(), NodeAt)) {
      return Failure{"", PlaceOf(face), "lacks nodes", "select sound faces"};
    }
    Ring ring;
    ring.face = face;
    ring.corners.assign(list.begin(), list.begin() + static_cast<std::ptrdiff_t>(corners));
    ring.between.assign(list.begin() + static_cast<std::ptrdiff_t>(corners), list.end());
    ring.normal = NormalOf(ring.corners);
    if (!IsFinite(ring.normal) || Length(ring.normal) == 0) {
      return Failure{"", PlaceOf(face), "has no area", "leave it out"};
    }
    std::vector<ITR> sorted = ring.corners;
    std::sort(sorted.begin(), sorted.end());
    if (!taken_.insert(std::move(sorted)).second) {
      ++twice_;
      return {};
    }
    for (const ITR node : list) bottom_.Add(node);
    rings_.push_back(std::move(ring));
    return {};
  }

  /// Where every node of the bottom goes.
  Outcome FindWays() {
    if (plan_.by) {
      for (const ITR node : bottom_.Records()) way_[node] = *plan_.by;
    } else {
      for (const Ring& ring : rings_) {
        for (const auto* part : {&ring.corners, &ring.between}) {
          for (const ITR node : *part) way_[node] += ring.normal;
        }
      }
      for (auto& [node, way] : way_) {
        if (!Normalize(way)) {
          return Failure{"", "node " + std::to_string(KeyOf(node)),
                         "lies between faces that look opposite ways, so there is no normal",
                         "give a direction with --by, or extrude the sides one by one"};
        }
        way = plan_.height * way;
      }
    }
    for (Ring& ring : rings_) {
      Vector3 mean;
      for (const ITR node : ring.corners) mean += way_.at(node);
      const double along = Dot(mean, ring.normal) / (Length(mean) * Length(ring.normal));
      constexpr double kLeastSine = 1e-6;
      if (!(std::abs(along) > kLeastSine)) {
        return Failure{"", PlaceOf(ring.face), "lies along the way, so there is no height",
                       "leave it out, or extrude another way"};
      }
      if (along > 0) continue;
      std::reverse(ring.corners.begin() + 1, ring.corners.end());
      std::reverse(ring.between.begin(), ring.between.end());
    }
    return {};
  }

  /// The node above one of the bottom, by half layers; 0 where the pool refuses.
  ITR Above(ITR node, int halves) {
    if (halves == 0) return node;
    auto& column = columns_[node];
    if (column.empty()) column.assign(static_cast<std::size_t>(2 * plan_.layers) + 1, 0);
    ITR& above = column[static_cast<std::size_t>(halves)];
    if (above || !node_keys_.Has(1)) return above;
    tagTNode record;
    record.key = node_keys_.Take();
    const Point3 at = PositionOf(node) + (halves / (2.0 * plan_.layers)) * way_.at(node);
    record.position = at.As<tagTVector3<double>>();
    return above = nodes_.InsertNU(record);
  }

  Outcome Make(const Ring& ring, int layer) {
    const auto n = static_cast<std::int32_t>(ring.corners.size());
    const bool quadratic = !ring.between.empty();
    tagTElem solid;
    solid.type = (n == 3 ? element::kWedge6 : element::kHex8) + (quadratic ? 1 : 0);
    solid.property = plan_.property;
    for (const int halves : {2 * layer, 2 * layer + 2}) {
      for (const ITR node : ring.corners) solid.nodes.Add(Above(node, halves));
    }
    const ElementTopology type(solid.type);
    for (std::int32_t edge = 0; quadratic && edge < type.Edges(); ++edge) {
      const auto ends = type.Edge(edge, false);
      const std::int32_t a = std::min(ends[0], ends[1]), b = std::max(ends[0], ends[1]);
      const auto place = [](std::int32_t i) { return static_cast<std::size_t>(i); };
      if (a < n && b >= n) {
        solid.nodes.Add(Above(ring.corners[place(a)], 2 * layer + 1));
      } else {  // of a ring: from a corner to the next, or from the first to the last
        const std::int32_t first = b % n == a % n + 1 ? a % n : b % n;
        solid.nodes.Add(Above(ring.between[place(first)], 2 * layer + (a < n ? 0 : 2)));
      }
    }
    if (std::find(solid.nodes.begin(), solid.nodes.end(), 0) != solid.nodes.end() ||
        !element_keys_.Has(1)) {
      return RefusedByModel();
    }
    Point3 p[8];
    FirstPositions(solid, 2 * n, p);
    if (!(SolidVolume(2 * n, p) > 0)) {
      return Failure{"", PlaceOf(ring.face), "would give a solid without positive volume",
                     "extrude less far, or another way"};
    }
    solid.key = element_keys_.Take();
    const ITR added = elements_.InsertNU(solid);
    if (!added) return RefusedByModel();
    made_.push_back(added);
    report_.made.push_back({code::kElem, KeyOf(ring.face.element), solid.key});
    return {};
  }

  bool AddSets() {
    std::vector<ITR> top, sides;
    for (const ITR node : bottom_.Records()) top.push_back(Above(node, 2 * plan_.layers));
    // Edges of one face alone bound the whole.
    std::map<std::pair<ITR, ITR>, std::pair<int, ITR>> edges;
    for (const Ring& ring : rings_) {
      for (std::size_t i = 0; i < ring.corners.size(); ++i) {
        const ITR a = ring.corners[i], b = ring.corners[(i + 1) % ring.corners.size()];
        auto& [uses, between] = edges[{std::min(a, b), std::max(a, b)}];
        ++uses;
        between = ring.between.empty() ? 0 : ring.between[i];
      }
    }
    const auto add_column = [&](ITR node) {
      sides.push_back(node);
      const auto column = columns_.find(node);
      if (column == columns_.end()) return;
      for (const ITR above : column->second) {
        if (above) sides.push_back(above);
      }
    };
    for (const auto& [ends, edge] : edges) {
      if (edge.first != 1) continue;
      add_column(ends.first);
      add_column(ends.second);
      if (edge.second) add_column(edge.second);
    }
    return AddGroupSet(session_, plan_.set, made_, {}) &&
           AddGroupSet(session_, plan_.set + " bottom", {}, bottom_.Records()) &&
           AddGroupSet(session_, plan_.set + " top", {}, top) &&
           (sides.empty() || AddGroupSet(session_, plan_.set + " sides", {}, sides));
  }

  CQXDBSession& session_;
  const ExtrusionPlan& plan_;
  ShapeReport& report_;
  DPoolNode& nodes_;
  DPoolElem& elements_;
  NextKey node_keys_, element_keys_;
  std::vector<Ring> rings_;
  std::set<std::vector<ITR>> taken_;  ///< corners, sorted
  std::int64_t twice_ = 0;
  DistinctRecords bottom_;
  std::unordered_map<ITR, Vector3> way_;
  std::unordered_map<ITR, std::vector<ITR>> columns_;  ///< by half layers; 0: not made
  std::vector<ITR> made_;
};

}  // namespace

Outcome Extrude(CQXDBSession& session, std::span<const tagTElemSide> faces,
                const ExtrusionPlan& plan, ShapeReport& report) {
  return Extruder(session, plan, report).Run(faces);
}

}  // namespace qx
