#include "qx_db/app/dense_mesh.h"

#include <algorithm>
#include <limits>
#include <stdexcept>

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
    all_finite_ &= IsFinite(positions_.back());
  }
  const std::size_t count = elements ? static_cast<std::size_t>(elements->GetSize()) : 0;
  elements_.reserve(count + 1);
  PreferHugePages(elements_.data(), count * sizeof(Row));
  nodes_.reserve(8 * count);
  PreferHugePages(nodes_.data(), nodes_.capacity() * sizeof(std::uint32_t));
  Type type(0);
  for (ITR at = count ? elements->GetHeadPosition() : 0; at;) {
    const ITR element = at;
    elements->Set().Next(at);
    if (at) {  // the nodes of the next one are on their way while this one is taken
      for (const ITR node : ElementAt(at)->nodes) Prefetch(node);
    }
    if (ElementAt(element)->type != type.code) type = Type(ElementAt(element)->type);
    AddElement(element, type);
  }
  if (nodes_.size() > std::numeric_limits<std::uint32_t>::max()) {
    throw std::length_error("the elements of this mesh have too many nodes");
  }
  elements_.push_back({0, static_cast<std::uint32_t>(nodes_.size()), CornerShape::kNone, 0, 0});
}

DenseMesh::Type::Type(std::int32_t type_code)
    : code(type_code), is_special(type_code > element::kHex20) {
  constexpr int kUnknownDimension = 5;
  const ElementTopology topology(code);
  nodes = topology.Nodes();
  shape = is_special ? CornerShape::kNone : topology::ShapeOf(code);
  corners = static_cast<std::uint8_t>(topology.Corners());
  const bool is_known = nodes != 0 || CQXMeshUtil::GetElemDim(code) != kUnknownDimension;
  faults = is_known ? 0 : fault::kUnknownType;
}

void DenseMesh::AddElement(ITR itr, const Type& type) {
  const tagTElem& element = *ElementAt(itr);
  std::uint8_t faults = type.faults;
  if (type.nodes != 0 && element.nodes.GetSize() != type.nodes) faults |= fault::kWrongNodeCount;
  const std::size_t first = nodes_.size();
  nodes_.resize(first + element.nodes.size());
  std::uint32_t* const begin = nodes_.data() + first;
  std::uint32_t* end = begin;
  for (const ITR node : element.nodes) {
    const std::uint32_t number =
        node && !KeyedSetBase::IsRemoved(node) ? numbers_.Find(node) : RecordNumbers::kNone;
    if (number == RecordNumbers::kNone) {
      faults |= fault::kMissingNode;
    } else {
      if (!all_finite_ && !IsFinite(positions_[number])) faults |= fault::kNotFinite;
      if (!type.is_special && std::find(begin, end, number) != end) faults |= fault::kRepeatedNode;
    }
    *end++ = number;
  }
  elements_.push_back({itr, static_cast<std::uint32_t>(first), type.shape, type.corners, faults});
}

const tagTElem& DenseMesh::Element(std::uint32_t e) const { return *ElementAt(ElementItr(e)); }

Key DenseMesh::NodeKey(std::uint32_t n) const { return NodeAt(NodeItr(n))->key; }

}  // namespace qx
