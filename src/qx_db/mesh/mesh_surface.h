#pragma once
// What of a mesh is seen from outside: faces, lines, points.
// Threads: one at a time for a session: its owner, or whoever reads a snapshot of it.

#include <array>
#include <cstdint>
#include <vector>

#include "qx_db/mesh/dense_mesh.h"

namespace qx {

/// Faces of one number of nodes, corners first, outwards from a solid. Numbers are of a DenseMesh.
struct FaceList {
  std::uint32_t nodes_per_face = 0;  ///< 3, 4, 6 or 8
  std::vector<std::uint32_t> nodes;
  std::vector<std::uint32_t> elements;  ///< whose face it is
  std::vector<std::uint8_t> sides;      ///< the solid's face, kWholeElement of a surface element

  static constexpr std::uint8_t kWholeElement = 255;
  std::size_t Count() const { return elements.size(); }
};

/// The outer faces of solids (OuterFaces) and all surface elements as faces; lines as pairs of
/// nodes, one element of three nodes giving two; points. Special elements, whose shape is the
/// application's, are a point when they have one node, and else the lines of their outline
/// (topology::OutlineOf); both sides of an interface are among these. Elements with a missing node
/// or a coordinate that is no number are left out.
struct QXDB_API MeshSurface {
  std::array<FaceList, 4> faces;  ///< of 3, 4, 6 and 8 nodes
  std::vector<std::uint32_t> line_nodes;
  std::vector<std::uint32_t> line_elements;  ///< one for each pair
  std::vector<std::uint32_t> point_nodes;
  std::vector<std::uint32_t> point_elements;
  std::vector<std::uint32_t> lone_nodes;  ///< that no element has

  std::size_t FaceCount() const;
  std::size_t CornerCount() const;  ///< of all faces, nodes between corners included
};

/// Linear in the number of faces of the mesh, as OuterFaces is.
QXDB_API MeshSurface SurfaceOf(const DenseMesh& mesh);

}  // namespace qx
