#include "qx_db/mesh/mesh_surface.h"

#include "qx_db/mesh/mesh_adjacency.h"

namespace qx {
namespace {

/// The list for faces of so many nodes; null when no face has that many.
FaceList* ListFor(MeshSurface& surface, std::size_t nodes) {
  for (FaceList& list : surface.faces) {
    if (list.nodes_per_face == nodes) return &list;
  }
  return nullptr;
}

void AddLine(MeshSurface& surface, std::uint32_t e, std::uint32_t from, std::uint32_t to) {
  surface.line_nodes.insert(surface.line_nodes.end(), {from, to});
  surface.line_elements.push_back(e);
}

void AddElement(MeshSurface& surface, const DenseMesh& mesh, std::uint32_t e) {
  const auto nodes = mesh.Nodes(e);
  switch (mesh.Shape(e)) {
    case CornerShape::kTriangle:
    case CornerShape::kQuadrilateral:
      if (FaceList* list = ListFor(surface, nodes.size())) {
        list->nodes.insert(list->nodes.end(), nodes.begin(), nodes.end());
        list->elements.push_back(e);
        list->sides.push_back(FaceList::kWholeElement);
      }
      return;
    case CornerShape::kLine:
      if (nodes.size() == 3) {  // the one between stands last
        AddLine(surface, e, nodes[0], nodes[2]);
        AddLine(surface, e, nodes[2], nodes[1]);
      } else {
        AddLine(surface, e, nodes[0], nodes[1]);
      }
      return;
    case CornerShape::kPoint:
    case CornerShape::kNone:
      if (nodes.size() == 1) {
        surface.point_nodes.push_back(nodes[0]);
        surface.point_elements.push_back(e);
      }
      for (const NodeLine& line :
           topology::OutlineOf(mesh.Element(e).type, static_cast<std::int32_t>(nodes.size()))) {
        AddLine(surface, e, nodes[static_cast<std::size_t>(line.from)],
                nodes[static_cast<std::size_t>(line.to)]);
      }
      return;
    default:
      return;  // solids show their free faces
  }
}

}  // namespace

std::size_t MeshSurface::FaceCount() const {
  std::size_t count = 0;
  for (const FaceList& list : faces) count += list.Count();
  return count;
}

std::size_t MeshSurface::CornerCount() const {
  std::size_t count = 0;
  for (const FaceList& list : faces) count += list.nodes.size();
  return count;
}

MeshSurface SurfaceOf(const DenseMesh& mesh) {
  MeshSurface surface;
  constexpr std::uint32_t kSizes[] = {3, 4, 6, 8};
  for (std::size_t i = 0; i < surface.faces.size(); ++i) {
    surface.faces[i].nodes_per_face = kSizes[i];
  }
  for (const DenseSide& side : OuterFaces(mesh)) {
    const auto nodes = mesh.Nodes(side.element);
    const auto face = ElementTopology(mesh.Element(side.element).type)
                          .Face(static_cast<std::int32_t>(side.side), true);
    FaceList* list = ListFor(surface, face.size());
    if (!list) continue;
    for (const std::int32_t place : face) {
      list->nodes.push_back(nodes[static_cast<std::size_t>(place)]);
    }
    list->elements.push_back(side.element);
    list->sides.push_back(static_cast<std::uint8_t>(side.side));
  }
  for (std::uint32_t e = 0; e < mesh.ElementCount(); ++e) {
    if (mesh.IsUsable(e)) AddElement(surface, mesh, e);
  }
  surface.lone_nodes = UnreferencedNodes(mesh);
  return surface;
}

}  // namespace qx
