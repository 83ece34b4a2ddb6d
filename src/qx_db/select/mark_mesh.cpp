// Conditions on how the mesh hangs together, and the ways from one kind to another.

#include <algorithm>

#include "qx_db/mesh/mesh_adjacency.h"
#include "qx_db/select/conditions.h"

namespace qx::select {
namespace {

/// Nodes of what a selection of any kind has.
Marks NodesOf(const MeshView& mesh, SelectKind kind, Marks marks) {
  if (kind == SelectKind::kElements) return mesh.NodesOfElements(marks);
  return kind == SelectKind::kFaces ? mesh.NodesOfFaces(marks) : marks;
}

/// The selection in parentheses.
Outcome MarkPart(const MeshView& mesh, const Term& term, Marks& marks) {
  return Mark(mesh, term.parts[0], marks);
}

SelectKind PartKind(const Term& term) { return term.parts[0].kind; }

}  // namespace

Outcome MarkSurface(const MeshView& mesh, const Term& term, Marks& marks) {
  Marks faces = mesh.None(SelectKind::kFaces);
  for (const std::size_t face : mesh.Surface()) faces.Add(face);
  marks = term.kind == SelectKind::kFaces      ? std::move(faces)
          : term.kind == SelectKind::kElements ? mesh.ElementsOfFaces(faces)
                                               : mesh.NodesOfFaces(faces);
  return {};
}

Outcome MarkFreeEdges(const MeshView& mesh, const Term& term, Marks& marks) {
  const DenseMesh& dense = mesh.Mesh();
  for (const DenseSide& side : LooseEdges(dense).free) {
    if (term.kind == SelectKind::kElements) {
      marks.Add(side.element);
      continue;
    }
    const auto nodes = dense.Nodes(side.element);
    const ElementTopology type(dense.Element(side.element).type);
    for (const std::int32_t place : type.Edge(static_cast<std::int32_t>(side.side), true)) {
      marks.Add(nodes[static_cast<std::size_t>(place)]);
    }
  }
  return {};
}

Outcome MarkUsed(const MeshView& mesh, const Term&, Marks& marks) {
  marks = mesh.NodesOfElements(mesh.All(SelectKind::kElements));
  return {};
}

Outcome MarkUnused(const MeshView& mesh, const Term& term, Marks& marks) {
  if (Outcome marked = MarkUsed(mesh, term, marks); !marked) return marked;
  marks.Complement(mesh.All(SelectKind::kNodes));
  return {};
}

Outcome MarkRings(const MeshView& mesh, const Term& term, Marks& marks) {
  if (Outcome marked = MarkPart(mesh, term, marks); !marked) return marked;
  const bool is_nodes = term.kind == SelectKind::kNodes;
  for (std::int64_t ring = 0; ring < term.arguments.count; ++ring) {
    Marks grown = is_nodes ? mesh.NodesOfElements(mesh.ElementsTouching(marks))
                           : mesh.ElementsTouching(mesh.NodesOfElements(marks));
    grown |= marks;  // a node without elements has no neighbours, but is there
    if (grown == marks) break;
    marks = std::move(grown);
  }
  return {};
}

Outcome MarkConnected(const MeshView& mesh, const Term& term, Marks& marks) {
  if (Outcome marked = MarkPart(mesh, term, marks); !marked) return marked;
  const bool is_nodes = term.kind == SelectKind::kNodes;
  const Marks seeds = is_nodes ? mesh.ElementsTouching(marks) : marks;
  const Parts parts = ConnectedParts(mesh.Mesh());
  constexpr std::uint32_t kNoPart = ~0u;
  std::vector<char> is_met(parts.count, 0);
  seeds.ForEach([&](std::size_t e) {
    if (parts.of_element[e] != kNoPart) is_met[parts.of_element[e]] = 1;
  });
  Marks elements = mesh.None(SelectKind::kElements);
  elements.Fill([&](std::size_t e) {
    const std::uint32_t part = parts.of_element[e];
    return part != kNoPart && is_met[part] != 0;
  });
  marks |= is_nodes ? mesh.NodesOfElements(elements) : elements;
  return {};
}

Outcome MarkNodesOf(const MeshView& mesh, const Term& term, Marks& marks) {
  Marks part;
  if (Outcome marked = MarkPart(mesh, term, part); !marked) return marked;
  marks = NodesOf(mesh, PartKind(term), std::move(part));
  return {};
}

Outcome MarkElementsOf(const MeshView& mesh, const Term& term, Marks& marks) {
  Marks part;
  if (Outcome marked = MarkPart(mesh, term, part); !marked) return marked;
  marks =
      PartKind(term) == SelectKind::kFaces ? mesh.ElementsOfFaces(part) : mesh.ElementsWithin(part);
  return {};
}

Outcome MarkElementsTouching(const MeshView& mesh, const Term& term, Marks& marks) {
  Marks part;
  if (Outcome marked = MarkPart(mesh, term, part); !marked) return marked;
  marks = mesh.ElementsTouching(NodesOf(mesh, PartKind(term), std::move(part)));
  return {};
}

Outcome MarkFacesOf(const MeshView& mesh, const Term& term, Marks& marks) {
  Marks part;
  if (Outcome marked = MarkPart(mesh, term, part); !marked) return marked;
  marks =
      PartKind(term) == SelectKind::kElements ? mesh.FacesOfElements(part) : mesh.FacesWithin(part);
  return {};
}

}  // namespace qx::select
