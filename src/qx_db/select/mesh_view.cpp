#include "qx_db/select/mesh_view.h"

#include <algorithm>
#include <cmath>

#include "qx_db/mesh/element_access.h"
#include "qx_db/mesh/usual_reach.h"
#include "qx_db/select/lexer.h"

namespace qx::select {
namespace {

PoolNumbers NumbersOf(const CQXDBSession& session, std::uint16_t type) {
  const DPoolBase* const pool = session.GetDataPool(type);
  return pool ? PoolNumbers(pool->Set()) : PoolNumbers();
}

bool IsSolid(CornerShape shape) { return shape >= CornerShape::kTetrahedron; }
bool IsSurface(CornerShape shape) {
  return shape == CornerShape::kTriangle || shape == CornerShape::kQuadrilateral;
}

}  // namespace

Numbering::Numbering(std::vector<ITR> few) : few_(std::move(few)) {
  for (std::uint32_t i = 0; i < few_.size(); ++i) places_.emplace(few_[i], i);
}

std::uint32_t Numbering::Find(ITR item) const {
  if (all_) return all_->Find(item);
  const auto found = places_.find(item);
  return found == places_.end() ? PoolNumbers::kNone : found->second;
}

Failure MeshView::Fault(std::size_t at, std::string what, std::string remedy) const {
  return FaultAt(text_, at, std::move(what), std::move(remedy));
}

const Numbering& MeshView::Nodes() const {
  if (nodes_) return *nodes_;
  if (mesh_) return nodes_.emplace(mesh_->Numbers());
  return nodes_.emplace(all_nodes_.emplace(NumbersOf(session_, code::kNode)));
}

const Numbering& MeshView::Elements() const {
  if (elements_) return *elements_;
  return elements_.emplace(all_elements_.emplace(NumbersOf(session_, code::kElem)));
}

std::size_t MeshView::Count(SelectKind kind) const {
  if (kind == SelectKind::kNodes) return Nodes().Count();
  return kind == SelectKind::kElements ? Elements().Count() : kFacesPerElement * Elements().Count();
}

const Marks& MeshView::All(SelectKind kind) const {
  std::optional<Marks>& all = all_[static_cast<std::size_t>(kind)];
  if (all) return *all;
  Marks marks(Count(kind));
  if (kind == SelectKind::kFaces) {
    for (std::uint32_t e = 0; e < Elements().Count(); ++e) {
      for (std::uint32_t side = 0; side < FaceCount(e); ++side) marks.Add(FaceNumber(e, side));
    }
  } else {
    marks.Fill([](std::size_t) { return true; });
  }
  return all.emplace(std::move(marks));
}

const DenseMesh& MeshView::Mesh() const {
  if (!mesh_) mesh_.emplace(session_);
  return *mesh_;
}

Point3 MeshView::Position(std::size_t node) const {
  if (mesh_) return mesh_->Position(static_cast<std::uint32_t>(node));
  return NodeAt(Nodes().Records()[node])->position;
}

double MeshView::Tolerance() const {
  if (tolerance_) return *tolerance_;
  constexpr double kShare = 1e-9;
  std::vector<double> reaches;
  reaches.reserve(Nodes().Count());
  for (std::size_t n = 0; n < Nodes().Count(); ++n) {
    reaches.push_back(ReachOf(Position(n)));
  }
  return tolerance_.emplace(kShare * UsualReach(std::move(reaches)));
}

std::uint32_t MeshView::FaceCount(std::uint32_t e) const {
  const CornerShape shape = Mesh().Shape(e);
  if (!Mesh().IsUsable(e) || (!IsSolid(shape) && !IsSurface(shape))) return 0;
  return static_cast<std::uint32_t>(TableOf(shape).faces);
}

std::span<const std::uint32_t> MeshView::FaceNodes(std::size_t face, bool all,
                                                   std::array<std::uint32_t, 8>& room) const {
  const auto e = static_cast<std::uint32_t>(face / kFacesPerElement);
  if (IsSurface(Mesh().Shape(e))) return all ? Mesh().Nodes(e) : Mesh().Corners(e);
  const auto nodes = Mesh().Nodes(e);
  const auto places = ElementTopology(Mesh().Element(e).type)
                          .Face(static_cast<std::int32_t>(face % kFacesPerElement), all);
  std::size_t count = 0;
  for (const std::int32_t place : places) room[count++] = nodes[static_cast<std::size_t>(place)];
  return {room.data(), count};
}

Point3 MeshView::FaceNormal(std::size_t face) const {
  std::array<std::uint32_t, 8> room;
  const auto corners = FaceNodes(face, false, room);
  const auto at = [&](std::size_t i) { return Mesh().Position(corners[i]); };
  if (corners.size() < 3) return {};
  return corners.size() == 3 ? Cross(at(1) - at(0), at(2) - at(0))
                             : Cross(at(2) - at(0), at(3) - at(1));
}

const std::vector<std::size_t>& MeshView::Surface() const {
  if (surface_) return *surface_;
  std::vector<std::size_t> faces;
  for (const DenseSide& side : LooseFaces(Mesh()).free) {
    faces.push_back(FaceNumber(side.element, side.side));
  }
  for (std::uint32_t e = 0; e < Mesh().ElementCount(); ++e) {
    if (IsSurface(Mesh().Shape(e)) && Mesh().IsUsable(e)) faces.push_back(FaceNumber(e, 0));
  }
  std::sort(faces.begin(), faces.end());
  return surface_.emplace(std::move(faces));
}

Marks MeshView::NodesOfElements(const Marks& elements) const {
  Marks nodes = None(SelectKind::kNodes);
  elements.ForEach([&](std::size_t e) {
    for (const std::uint32_t n : Mesh().Nodes(static_cast<std::uint32_t>(e))) {
      if (n != PoolNumbers::kNone) nodes.Add(n);
    }
  });
  return nodes;
}

Marks MeshView::NodesOfFaces(const Marks& faces) const {
  Marks nodes = None(SelectKind::kNodes);
  std::array<std::uint32_t, 8> room;
  faces.ForEach([&](std::size_t face) {
    for (const std::uint32_t n : FaceNodes(face, true, room)) nodes.Add(n);
  });
  return nodes;
}

Marks MeshView::ElementsWithin(const Marks& nodes) const {
  if (is_part_) {
    Marks elements = None(SelectKind::kElements);
    elements.Fill([&](std::size_t e) {
      const TArray<ITR>& own = Element(e).nodes;
      for (const ITR node : own) {
        const std::uint32_t n = Nodes().Find(node);
        if (n == PoolNumbers::kNone || !nodes.Has(n)) return false;
      }
      return !own.IsEmpty();
    });
    return elements;
  }
  const DenseMesh& mesh = Mesh();
  Marks elements = None(SelectKind::kElements);
  elements.Fill([&](std::size_t e) {
    const auto own = mesh.Nodes(static_cast<std::uint32_t>(e));
    for (const std::uint32_t n : own) {
      if (n == PoolNumbers::kNone || !nodes.Has(n)) return false;
    }
    return !own.empty();
  });
  return elements;
}

Marks MeshView::ElementsTouching(const Marks& nodes) const {
  const DenseMesh& mesh = Mesh();
  Marks elements = None(SelectKind::kElements);
  elements.Fill([&](std::size_t e) {
    for (const std::uint32_t n : mesh.Nodes(static_cast<std::uint32_t>(e))) {
      if (n != PoolNumbers::kNone && nodes.Has(n)) return true;
    }
    return false;
  });
  return elements;
}

Marks MeshView::FacesWithin(const Marks& nodes) const {
  Marks faces = None(SelectKind::kFaces);
  std::array<std::uint32_t, 8> room;
  All(SelectKind::kFaces).ForEach([&](std::size_t face) {
    const auto own = FaceNodes(face, true, room);
    if (std::all_of(own.begin(), own.end(), [&](std::uint32_t n) { return nodes.Has(n); })) {
      faces.Add(face);
    }
  });
  return faces;
}

Marks MeshView::ElementsOfFaces(const Marks& faces) const {
  Marks elements = None(SelectKind::kElements);
  faces.ForEach([&](std::size_t face) { elements.Add(face / kFacesPerElement); });
  return elements;
}

Marks MeshView::FacesOfElements(const Marks& elements) const {
  Marks faces = All(SelectKind::kFaces);
  std::vector<std::uint64_t>& words = faces.Words();
  for (std::size_t w = 0; w < words.size(); ++w) {
    std::uint64_t keep = 0;
    for (std::size_t i = 0; i < 64 / kFacesPerElement; ++i) {
      const std::size_t e = 64 / kFacesPerElement * w + i;
      if (e < elements.Count() && elements.Has(e)) keep |= std::uint64_t{0xFF} << 8 * i;
    }
    words[w] &= keep;
  }
  return faces;
}

}  // namespace qx::select
