#include "qx_db/app/dense_mesh.h"

#include <algorithm>

#include "qx_db/app/element_access.h"
#include "qx_db/app/mesh_util.h"
#include "qx_db/core/session.h"
#include "qx_db/platform/pages.h"
#include "qx_db/platform/prefetch.h"
#include "qx_db/record/element_types.h"

namespace qx {

DenseMesh::DenseMesh(const CQXDBSession& session) {
  const DPoolBase* nodes = session.GetDataPool(code::kNode);
  const DPoolBase* elements = session.GetDataPool(code::kElem);
  const std::size_t node_count = nodes ? static_cast<std::size_t>(nodes->GetSize()) : 0;
  numbers_.Reserve(node_count);
  positions_.reserve(node_count);
  PreferHugePages(positions_.data(), node_count * sizeof(Point3));
  for (ITR at = node_count ? nodes->GetHeadPosition() : 0; at; nodes->Set().Next(at)) {
    numbers_.Of(at);
    positions_.push_back(NodeAt(at)->position);
  }
  const std::size_t count = elements ? static_cast<std::size_t>(elements->GetSize()) : 0;
  elements_.reserve(count);
  faults_.reserve(count);
  shapes_.reserve(count);
  corners_.reserve(count);
  first_node_.reserve(count + 1);
  nodes_.reserve(8 * count);
  PreferHugePages(nodes_.data(), nodes_.capacity() * sizeof(std::uint32_t));
  PreferHugePages(elements_.data(), count * sizeof(ITR));
  PreferHugePages(first_node_.data(), count * sizeof(std::size_t));
  first_node_.push_back(0);
  for (ITR at = count ? elements->GetHeadPosition() : 0; at;) {
    const ITR element = at;
    elements->Set().Next(at);
    if (at) {  // the nodes of the next one are on their way while this one is taken
      for (const ITR node : ElementAt(at)->nodes) Prefetch(node);
    }
    AddElement(element);
  }
}

void DenseMesh::AddElement(ITR itr) {
  constexpr int kUnknownDimension = 5;
  const tagTElem& element = *ElementAt(itr);
  const ElementTopology type(element.type);
  const bool is_special = element.type > element::kHex20;
  std::uint8_t faults = 0;
  if (type.Nodes() == 0) {
    if (CQXMeshUtil::GetElemDim(element.type) == kUnknownDimension) faults |= fault::kUnknownType;
  } else if (element.nodes.GetSize() != type.Nodes()) {
    faults |= fault::kWrongNodeCount;
  }
  const std::size_t first = nodes_.size();
  for (const ITR node : element.nodes) {
    const std::uint32_t number =
        node && !KeyedSetBase::IsRemoved(node) ? numbers_.Find(node) : RecordNumbers::kNone;
    if (number == RecordNumbers::kNone) {
      faults |= fault::kMissingNode;
    } else {
      if (!IsFinite(positions_[number])) faults |= fault::kNotFinite;
      const auto same =
          std::find(nodes_.begin() + static_cast<std::ptrdiff_t>(first), nodes_.end(), number);
      if (same != nodes_.end() && !is_special) faults |= fault::kRepeatedNode;
    }
    nodes_.push_back(number);
  }
  elements_.push_back(itr);
  faults_.push_back(faults);
  shapes_.push_back(is_special ? CornerShape::kNone : topology::ShapeOf(element.type));
  corners_.push_back(static_cast<std::uint8_t>(type.Corners()));
  first_node_.push_back(nodes_.size());
}

const tagTElem& DenseMesh::Element(std::uint32_t e) const { return *ElementAt(elements_[e]); }

Key DenseMesh::NodeKey(std::uint32_t n) const { return NodeAt(NodeItr(n))->key; }

}  // namespace qx
