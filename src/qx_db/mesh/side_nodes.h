#pragma once
// The nodes of one side of an element.
// Threads: values: one at a time for each object.

#include <array>
#include <span>

#include "qx_db/mesh/element_access.h"
#include "qx_db/mesh/topology_table.h"
#include "qx_db/record/array_elements.h"

namespace qx {

/// The node iterators of a side in the order of the topology table. Empty when the kind is neither
/// 3 (face) nor 4 (edge), when there is no such side, and when the element has fewer nodes than its
/// type wants. A node may be null or removed: the list is what the element holds.
class SideNodes {
 public:
  SideNodes(int kind, const tagTElemSide& side, bool all) {
    const tagTElem* element = ElementAt(side.element);
    if (!element) return;
    const ElementTopology type(element->type);
    if (element->nodes.GetSize() < type.Nodes()) return;
    std::span<const std::int32_t> places;
    if (kind == 3 && type.HasFace(side.side)) places = type.Face(side.side, all);
    if (kind == 4 && type.HasEdge(side.side)) places = type.Edge(side.side, all);
    for (const std::int32_t place : places) nodes_[count_++] = element->nodes[place];
  }
  SideNodes(int kind, const tagTElemSide& side, int all) = delete;

  std::span<const ITR> Nodes() const& { return {nodes_.data(), count_}; }
  std::size_t Count() const { return count_; }

  /// The positions of the first `count` nodes; false when there are fewer, or one is gone.
  bool Positions(std::size_t count, Point3* out) const {
    if (count_ < count) return false;
    for (std::size_t i = 0; i < count; ++i) {
      const tagTNode* node = NodeAt(nodes_[i]);
      if (!node) return false;
      out[i] = node->position;
    }
    return true;
  }

 private:
  std::array<ITR, 8> nodes_;
  std::size_t count_ = 0;
};

}  // namespace qx
