#pragma once
// How the elements of a mesh meet: shared and free sides, orientation, parts, duplicates.
// Threads: one at a time for a session: its owner, or whoever reads a snapshot of it.

#include <cstdint>
#include <span>
#include <utility>
#include <vector>

#include "qx_db/mesh/dense_mesh.h"
#include "qx_db/record/array_elements.h"

namespace qx {

/// A side of an element by its number in a DenseMesh.
struct DenseSide {
  std::uint32_t element;
  std::uint32_t side;
};

/// Sides that belong to one element only, or to more than two. Faces of solids and edges of
/// surfaces are compared by their corners; unusable elements take no part. Both in the order of
/// elements and of their sides.
struct LooseSides {
  std::vector<DenseSide> free;
  std::vector<DenseSide> shared;  ///< by three or more elements: each of their sides
};

/// Of the faces of solids. Linear in the number of faces, save that the faces whose smallest node
/// is the same are sorted.
QXDB_API LooseSides LooseFaces(const DenseMesh& mesh);
/// What is seen of solids from outside: the faces with no solid on one side of them. Of solids that
/// share a face and lie on the same side of it, as duplicates do, the last one's.
QXDB_API std::vector<DenseSide> OuterFaces(const DenseMesh& mesh);
/// Of the edges of surface elements.
QXDB_API LooseSides LooseEdges(const DenseMesh& mesh);
/// The same sides by iterators.
QXDB_API TArray<tagTElemSide> ToElemSides(const DenseMesh& mesh, std::span<const DenseSide> sides);

/// Which surface elements to turn over so that neighbours across an edge of two agree. In each
/// connected patch the smaller number is turned.
struct ShellOrientation {
  std::vector<std::uint32_t> to_flip;  ///< in element order
  std::uint32_t patches = 0;
  std::uint32_t one_sided = 0;  ///< patches in which no choice makes all agree, left as they are
};
QXDB_API ShellOrientation OrientShells(const DenseMesh& mesh);

/// Parts of the mesh that hang together by nodes: a number for every element, from 0 in the order
/// of their first elements, and how many parts there are. Elements that are unusable or have no
/// nodes are in none, ~0u.
struct Parts {
  std::vector<std::uint32_t> of_element;
  std::uint32_t count = 0;
};
QXDB_API Parts ConnectedParts(const DenseMesh& mesh);

/// A number and the smaller one it repeats.
using Duplicate = std::pair<std::uint32_t, std::uint32_t>;

/// Nodes within `tolerance` of an earlier node that is itself no duplicate; with `among`, a mark
/// for each node, as if there were only the marked ones. Expected linear. Requires a tolerance that
/// is not negative.
QXDB_API std::vector<Duplicate> DuplicateNodes(const DenseMesh& mesh, double tolerance,
                                               std::span<const std::uint8_t> among = {});
/// Lines, surfaces and solids of the type and the set of nodes of an earlier one. Points and
/// special elements may well share their nodes: two masses, springs side by side.
QXDB_API std::vector<Duplicate> DuplicateElements(const DenseMesh& mesh);
/// Nodes that no element has.
QXDB_API std::vector<std::uint32_t> UnreferencedNodes(const DenseMesh& mesh);

}  // namespace qx
