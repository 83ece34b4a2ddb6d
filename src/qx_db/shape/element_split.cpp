// Elements divided into triangles and tetrahedra.

#include <algorithm>
#include <array>
#include <set>
#include <unordered_map>
#include <unordered_set>

#include "qx_db/app/mesh_util.h"
#include "qx_db/mesh/dense_mesh.h"
#include "qx_db/mesh/element_access.h"
#include "qx_db/mesh/element_division.h"
#include "qx_db/mesh/element_volume.h"
#include "qx_db/mesh/side_nodes.h"
#include "qx_db/record/attribute_records.h"
#include "qx_db/record/element_types.h"
#include "qx_db/shape/attached_data.h"
#include "qx_db/shape/element_change.h"
#include "qx_db/shape/group_set.h"
#include "qx_db/shape/material_directions.h"
#include "qx_db/shape/new_nodes.h"

namespace qx {
namespace {

using Quadrilateral = std::array<std::uint32_t, 4>;

/// Calls `visit` for the corners of every quadrilateral of an element, sorted.
template <class Visit>
void ForEachQuadrilateral(const DenseMesh& mesh, std::uint32_t e, Visit&& visit) {
  const ShapeTable& table = TableOf(mesh.Shape(e));
  const auto corners = mesh.Corners(e);
  for (std::int32_t f = 0; f < table.faces; ++f) {
    if (table.face[f][3] < 0) continue;
    Quadrilateral face;
    for (std::size_t i = 0; i < 4; ++i)
      face[i] = corners[static_cast<std::size_t>(table.face[f][i])];
    std::sort(face.begin(), face.end());
    visit(face);
  }
}

class Splitter {
 public:
  Splitter(CQXDBSession& session, std::span<const ITR> elements, ShapeReport& report)
      : session_(session),
        report_(report),
        pool_(Pool<tagTElem>(session)),
        next_key_(pool_),
        chosen_(elements.begin(), elements.end()),
        between_(session),
        material_(session) {}

  Outcome Run() {
    if (Outcome divided = Divide(); !divided) return divided;
    material_.Take(wholes_);
    for (const auto& [of, made] : parts_) material_.Inherit(of, made);
    AttachedPlan plan;
    plan.elements = parts_;
    plan.in_place = true;
    plan.sides = [](int kind, const tagTElemSide& of, ITR made, std::vector<tagTElemSide>& out) {
      AddSides(kind, of, made, out);
    };
    std::map<std::uint16_t, std::int64_t> left;
    if (!PassOn(session_, plan, left) || !between_.JoinSets() || !GiveThickness() ||
        !material_.Put()) {
      return RefusedByModel();
    }
    std::int64_t lost = 0;
    for (const auto& [type, count] : left) lost += count;
    report_.Note("records tell of a whole alone and nothing of its parts", lost);
    for (const Made& part : parts_) {
      report_.made.push_back({code::kElem, KeyOf(part.of), KeyOf(part.made)});
    }
    for (const ITR whole : wholes_) {
      if (!pool_.Remove(whole)) return RefusedByModel();
    }
    return {};
  }

 private:
  static bool CanDivide(CornerShape shape) {
    return shape == CornerShape::kQuadrilateral || shape >= CornerShape::kPyramid;
  }

  Outcome Divide() {
    const DenseMesh mesh(session_);
    std::set<Quadrilateral> cut;
    std::vector<std::uint32_t> wholes;
    std::int64_t broken = 0;
    for (std::uint32_t e = 0; e < mesh.ElementCount(); ++e) {
      if (!chosen_.contains(mesh.ElementItr(e)) || !CanDivide(mesh.Shape(e))) continue;
      if (!mesh.IsUsable(e)) {
        ++broken;
        continue;
      }
      wholes.push_back(e);
      ForEachQuadrilateral(mesh, e, [&](const Quadrilateral& face) { cut.insert(face); });
    }
    if (wholes.empty()) {
      return Failure{"", "where", "selects nothing that can be divided",
                     "select elements such as: quad or hex or wedge or pyramid"};
    }
    report_.Note("elements that lack nodes or coordinates stay as they are", broken);
    NoteBeside(mesh, cut);
    for (const std::uint32_t e : wholes) {
      if (!Divide(mesh, e)) return RefusedByModel();
    }
    report_.Note("tetrahedra have no positive volume: their whole is warped or inside out", flat_);
    report_.Note("triangles overlap others or have no area: their whole is concave", turned_);
    report_.Note("diagonals of degenerate elements gave no part", degenerate_);
    report_.Note("degenerate elements have no parts and stay as they are", without_parts_);
    return {};
  }

  void NoteBeside(const DenseMesh& mesh, const std::set<Quadrilateral>& cut) {
    std::int64_t beside = 0;
    for (std::uint32_t e = 0; e < mesh.ElementCount(); ++e) {
      if (chosen_.contains(mesh.ElementItr(e)) || !CanDivide(mesh.Shape(e)) || !mesh.IsUsable(e)) {
        continue;
      }
      bool meets = false;
      ForEachQuadrilateral(mesh, e, [&](const Quadrilateral& f) { meets |= cut.contains(f); });
      beside += meets;
    }
    report_.Note("elements beside these share a quadrilateral that is cut, and stay whole", beside);
  }

  bool Divide(const DenseMesh& mesh, std::uint32_t e) {
    const ITR whole = mesh.ElementItr(e);
    const tagTElem record = pool_.GetAtNU(whole);
    const CornerShape shape = mesh.Shape(e);
    const auto corners = static_cast<std::size_t>(TableOf(shape).corners);
    std::vector<std::uint64_t> order;
    for (std::size_t i = 0; i < corners; ++i) {
      order.push_back(static_cast<std::uint64_t>(KeyOf(record.nodes[static_cast<int>(i)])));
    }
    const bool quadratic = record.nodes.GetSize() > static_cast<std::int32_t>(corners);
    const bool is_plate = shape == CornerShape::kQuadrilateral;
    tagTElem part = record;
    part.type = is_plate ? (quadratic ? element::kTri6 : element::kTri3)
                         : (quadratic ? element::kTet10 : element::kTet4);
    const ElementTopology type(part.type);
    const std::size_t before = parts_.size();
    for (const SimplexPlaces& places : DivisionOf(shape, order)) {
      const auto place = [&](std::int32_t i) { return places[static_cast<std::size_t>(i)]; };
      part.nodes = TArray<ITR>();
      std::set<ITR> distinct;
      for (std::int32_t i = 0; i < type.Corners(); ++i) {
        part.nodes.Add(record.nodes[place(i)]);
        distinct.insert(record.nodes[place(i)]);
      }
      if (static_cast<std::int32_t>(distinct.size()) < type.Corners()) {
        ++degenerate_;
        continue;
      }
      for (std::int32_t edge = 0; quadratic && edge < type.Edges(); ++edge) {
        const auto ends = type.Edge(edge, false);
        const ITR node = NodeBetween(record, shape, place(ends[0]), place(ends[1]));
        if (!node) return false;
        part.nodes.Add(node);
      }
      if (!next_key_.Has(1)) return false;
      part.key = next_key_.Take();
      const ITR made = pool_.InsertNU(part);
      if (!made) return false;
      parts_.push_back({whole, made});
      Point3 p[4];
      if (!is_plate && FirstPositions(part, 4, p) && !(SolidVolume(4, p) > 0)) ++flat_;
      Point3 of[4];
      if (is_plate && FirstPositions(part, 3, p) && FirstPositions(record, 4, of) &&
          !(Dot(Cross(p[1] - p[0], p[2] - p[0]), Cross(of[2] - of[0], of[3] - of[1])) > 0)) {
        ++turned_;
      }
    }
    if (parts_.size() > before) {
      wholes_.push_back(whole);
    } else {
      ++without_parts_;
    }
    return true;
  }

  /// The node between two corners of a quadratic element: its own, or one on a diagonal.
  ITR NodeBetween(const tagTElem& record, CornerShape shape, std::int32_t a, std::int32_t b) {
    const std::int32_t corners = TableOf(shape).corners;
    const std::int32_t edge = EdgeBetween(shape, a, b);
    if (edge >= 0) return record.nodes[corners + edge];
    // Shape functions in the middle: -1/4 at corners, and what makes the sum 1 at the others.
    const DiagonalNodes of = DiagonalOf(shape, a, b);
    const auto& nodes = Pool<tagTNode>(session_);
    Point3 at;
    for (const std::int32_t corner : of.corners) {
      at += -0.25 * nodes.Position(record.nodes[corner]);
    }
    const double weight =
        (1 + 0.25 * static_cast<double>(of.corners.size())) / static_cast<double>(of.edges.size());
    for (const std::int32_t number : of.edges) {
      at += weight * nodes.Position(record.nodes[corners + number]);
    }
    return between_.Make(record.nodes[a], record.nodes[b], at);
  }

  /// The sides of a part that lie in a side of the whole.
  static void AddSides(int kind, const tagTElemSide& of, ITR made, std::vector<tagTElemSide>& out) {
    const SideNodes whole(kind, of, false);
    const std::set<ITR> nodes(whole.Nodes().begin(), whole.Nodes().end());
    const ElementTopology type(ElementAt(made)->type);
    const bool is_face = kind == CQXMeshUtil::kFaceSide;
    for (std::int32_t n = 0; is_face ? type.HasFace(n) : type.HasEdge(n); ++n) {
      const SideNodes side(kind, tagTElemSide{made, n}, false);
      const auto list = side.Nodes();
      if (!list.empty() &&
          std::all_of(list.begin(), list.end(), [&](ITR node) { return nodes.contains(node); })) {
        out.push_back({made, n});
      }
    }
  }

  /// Thicknesses by corner stay with the corners.
  bool GiveThickness() {
    std::unordered_map<ITR, ITR> whole_of;
    for (const Made& part : parts_) whole_of.emplace(part.made, part.of);
    using Numbers = AttributeNumbers<4>;
    const auto get = [](const tagTE2DThick& record) {
      return Numbers{record.thickness[0], record.thickness[1], record.thickness[2],
                     record.thickness[3]};
    };
    const auto concerned = [&](const tagTE2DThick& record, ITR element) {
      return !record.uniform && whole_of.contains(element);
    };
    const auto numbers = [&](const tagTE2DThick& record, ITR element) {
      const auto& whole = pool_.GetAtNU(whole_of.at(element)).nodes;
      const auto& part = pool_.GetAtNU(element).nodes;
      Numbers now = get(record);
      for (std::int32_t i = 0; i < 3; ++i) {
        for (std::int32_t k = 0; k < 4; ++k) {
          if (whole[k] == part[i]) now[static_cast<std::size_t>(i)] = record.thickness[k];
        }
      }
      now[3] = now[2];
      return now;
    };
    const auto put = [](tagTE2DThick& record, const Numbers& now) {
      for (std::size_t i = 0; i < 4; ++i) record.thickness[i] = now[i];
    };
    return Regroup<tagTE2DThick, 4>(session_, concerned, get, numbers, put);
  }

  CQXDBSession& session_;
  ShapeReport& report_;
  DPoolElem& pool_;
  NextKey next_key_;
  const std::unordered_set<ITR> chosen_;
  NewNodes between_;
  MaterialDirections material_;
  std::vector<ITR> wholes_;
  std::vector<Made> parts_;
  std::int64_t flat_ = 0;
  std::int64_t turned_ = 0;
  std::int64_t without_parts_ = 0;
  std::int64_t degenerate_ = 0;
};

}  // namespace

Outcome SplitElements(CQXDBSession& session, std::span<const ITR> elements, ShapeReport& report) {
  return Splitter(session, elements, report).Run();
}

}  // namespace qx
