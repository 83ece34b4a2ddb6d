#include "qx_db/mesh/dense_mesh.h"

#include <algorithm>
#include <limits>
#include <stdexcept>

#include "qx_db/core/session.h"
#include "qx_db/mesh/element_access.h"
#include "qx_db/platform/long_work.h"
#include "qx_db/platform/pages.h"
#include "qx_db/platform/prefetch.h"
#include "qx_db/record/element_types.h"

namespace qx {

DenseMesh::DenseMesh(const CQXDBSession& session) : session_(&session) {
  const DPoolBase* nodes = session.GetDataPool(code::kNode);
  const DPoolBase* elements = session.GetDataPool(code::kElem);
  if (nodes) numbers_ = PoolNumbers(nodes->Set());
  positions_.reserve(numbers_.Count());
  PreferHugePages(positions_.data(), numbers_.Count() * sizeof(Point3));
  for (const ITR node : numbers_.Records()) {
    positions_.push_back(NodeAt(node)->position);
    all_finite_ &= IsFinite(positions_.back());
  }
  const std::size_t count = elements ? static_cast<std::size_t>(elements->GetSize()) : 0;
  elements_.reserve(count + 1);
  PreferHugePages(elements_.data(), count * sizeof(Row));
  nodes_.reserve(8 * count);
  PreferHugePages(nodes_.data(), nodes_.capacity() * sizeof(std::uint32_t));
  // A second walk goes ahead, so that the list of an element's nodes is on its way when it is
  // taken.
  constexpr int kAhead = 8;
  ITR at = count ? elements->GetHeadPosition() : 0, ahead = at;
  const auto go_ahead = [&] {
    if (!ahead) return;
    Prefetch(ElementAt(ahead)->nodes.begin());
    Prefetch(ElementAt(ahead)->nodes.end());
    elements->Set().Next(ahead);
  };
  for (int i = 0; i < kAhead; ++i) go_ahead();
  LongWork work(count);
  for (Type type(0); at; elements->Set().Next(at)) {
    work.Step();
    go_ahead();
    if (ElementAt(at)->type != type.code) type = Type(ElementAt(at)->type);
    AddElement(at, type);
  }
  if (nodes_.size() > std::numeric_limits<std::uint32_t>::max()) {
    throw std::length_error("the elements of this mesh have too many nodes");
  }
  elements_.push_back({0, static_cast<std::uint32_t>(nodes_.size()), CornerShape::kNone, 0, 0});
}

DenseMesh::Type::Type(std::int32_t type_code)
    : code(type_code), is_special(type_code > element::kHex20) {
  const ElementTopology topology(code);
  nodes = topology.Nodes();
  shape = topology::ShapeOf(code);
  corners = static_cast<std::uint8_t>(topology.Corners());
  faults = topology::DimensionOf(code) == topology::kUnknownDimension ? fault::kUnknownType : 0;
}

void DenseMesh::AddElement(ITR itr, const Type& type) {
  const tagTElem& element = *ElementAt(itr);
  std::uint8_t faults = type.faults;
  if (type.nodes != 0 && element.nodes.GetSize() != type.nodes) faults |= fault::kWrongNodeCount;
  const std::size_t first = nodes_.size();
  nodes_.resize(first + element.nodes.size());
  std::uint32_t* const begin = nodes_.data() + first;
  std::uint32_t* end = begin;
  std::uint64_t met = 0;
  for (const ITR node : element.nodes) {
    const std::uint32_t number = numbers_.Find(node);
    if (number == PoolNumbers::kNone) {
      faults |= fault::kMissingNode;
    } else {
      if (!all_finite_ && !IsFinite(positions_[number])) faults |= fault::kNotFinite;
      // Numbers that differ in their last bits need no search.
      const std::uint64_t bit = std::uint64_t{1} << (number % 64);
      const bool maybe_met = (met & bit) != 0 && !type.is_special;
      if (maybe_met && std::find(begin, end, number) != end) faults |= fault::kRepeatedNode;
      met |= bit;
    }
    *end++ = number;
  }
  elements_.push_back({itr, static_cast<std::uint32_t>(first), type.shape, type.corners, faults});
}

void DenseMesh::LeaveOutAt(std::span<const std::uint8_t> nodes) {
  for (std::uint32_t e = 0; e < ElementCount(); ++e) {
    for (const std::uint32_t n : Nodes(e)) {
      if (n < nodes.size() && nodes[n]) elements_[e].faults |= fault::kNotFinite;
    }
  }
}

const tagTElem& DenseMesh::Element(std::uint32_t e) const { return *ElementAt(ElementItr(e)); }

Key DenseMesh::NodeKey(std::uint32_t n) const { return NodeAt(NodeItr(n))->key; }

}  // namespace qx
