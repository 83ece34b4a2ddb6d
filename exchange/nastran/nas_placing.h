#pragma once
// Nodes of a deck in the basic system.
// Threads: shares nothing.

#include <array>
#include <unordered_map>
#include <vector>

#include "exchange/deck.h"

namespace qx::exchange {

/// A node as its card gives it.
struct NasGrid {
  Key key;
  Key system;  ///< that its coordinates are in
  Key output;  ///< that its displacements are in
  std::array<double, 3> at;
  std::size_t card;
};
/// A system that stands on nodes: on z, and in the plane of z and x.
struct NasOnNodes {
  std::size_t system;
  std::array<Key, 3> nodes;
};

/// What of the nodes and systems is where.
struct NasPlaced {
  std::vector<char> nodes;    ///< flags: it is in the basic system now
  std::vector<char> systems;  ///< flags: what it is given in is known
  std::vector<std::size_t> without_axes;
  std::uint64_t moved = 0;  ///< nodes that were given in a local system
};

/// Brings nodes from their systems into the basic one, and gives systems that stand on nodes their
/// points. Systems may rest on nodes, and nodes on systems, so both are worked through until
/// nothing more is known. `index_of` tells where a node is among the nodes.
NasPlaced PlaceNasNodes(std::vector<NasGrid>& nodes, std::vector<tagTCord>& systems,
                        const std::vector<NasOnNodes>& on_nodes,
                        const std::unordered_map<Key, std::size_t>& index_of);

}  // namespace qx::exchange
