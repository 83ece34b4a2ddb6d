#pragma once
// Structured zones of CGNS files as elements.

#include <array>
#include <cstdint>
#include <vector>

#include "exchange/deck.h"

namespace qx::exchange {

/// Adds the cells of a zone of so many nodes in each of one to three directions: lines,
/// quadrilaterals or hexahedra, numbered from `first_key` on. Its nodes stand in the
/// deck from `first_node` on, the first direction counting fastest.
void AddCells(Deck& deck, std::size_t first_node, const std::vector<std::int64_t>& shape,
              Key first_key);

/// Adds the keys of the nodes between two corners, from 1, to `nodes`.
void AddNodesOfBox(const Deck& deck, std::size_t first_node, const std::vector<std::int64_t>& shape,
                   const std::array<std::int64_t, 3>& low, const std::array<std::int64_t, 3>& high,
                   std::vector<Key>& nodes);

}  // namespace qx::exchange
