#include "exchange/cgns/cgns_grid.h"

#include <algorithm>

#include "qx_db/record/element_types.h"

namespace qx::exchange {

void AddCells(Deck& deck, std::size_t first_node, const std::vector<std::int64_t>& shape,
              Key first_key) {
  constexpr std::int32_t kCodes[] = {element::kLine2, element::kQuad4, element::kHex8};
  const std::int32_t code = kCodes[shape.size() - 1];
  const auto used = static_cast<std::size_t>(FindElementType(code)->nodes);
  std::array<std::size_t, 3> cells{1, 1, 1}, step{1, 1, 1};
  for (std::size_t d = 0; d < shape.size(); ++d) {
    cells[d] = static_cast<std::size_t>(std::max<std::int64_t>(shape[d], 1)) - 1;
    if (d > 0) step[d] = step[d - 1] * static_cast<std::size_t>(shape[d - 1]);
  }
  const std::size_t a = step[1], b = step[2];
  const std::array<std::size_t, 8> corners{0, 1, 1 + a, a, b, 1 + b, 1 + a + b, a + b};
  for (std::size_t k = 0; k < cells[2]; ++k) {
    for (std::size_t j = 0; j < cells[1]; ++j) {
      for (std::size_t i = 0; i < cells[0]; ++i) {
        const std::size_t at = first_node + i + j * a + k * b;
        deck.elements.push_back({first_key++, code, deck.connectivity.size()});
        for (std::size_t c = 0; c < used; ++c) {
          deck.connectivity.push_back(deck.node_keys[at + corners[c]]);
        }
      }
    }
  }
}

void AddNodesOfBox(const Deck& deck, std::size_t first_node, const std::vector<std::int64_t>& shape,
                   const std::array<std::int64_t, 3>& low, const std::array<std::int64_t, 3>& high,
                   std::vector<Key>& nodes) {
  const std::int64_t row = shape[0];
  const std::int64_t layer = shape.size() > 1 ? row * shape[1] : row;
  for (std::int64_t k = low[2]; k <= high[2]; ++k) {
    for (std::int64_t j = low[1]; j <= high[1]; ++j) {
      for (std::int64_t i = low[0]; i <= high[0]; ++i) {
        const std::int64_t at = i - 1 + (j - 1) * row + (k - 1) * layer;
        nodes.push_back(deck.node_keys[first_node + static_cast<std::size_t>(at)]);
      }
    }
  }
}

}  // namespace qx::exchange
