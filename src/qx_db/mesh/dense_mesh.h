#pragma once
// The elements and nodes of a session as plain arrays of numbers, for questions about all of them.

#include <cstdint>
#include <span>
#include <vector>

#include "qx_db/mesh/point3.h"
#include "qx_db/mesh/record_numbers.h"
#include "qx_db/mesh/topology_table.h"
#include "qx_db/record/mesh_records.h"

namespace qx {

class CQXDBSession;

/// What may be wrong with one element by itself, as bits. An element with none of the first four
/// is usable: its corners can be counted on.
namespace fault {
inline constexpr std::uint8_t kUnknownType = 1;     ///< neither an ordinary nor a special code
inline constexpr std::uint8_t kWrongNodeCount = 2;  ///< not as many nodes as its type has
inline constexpr std::uint8_t kMissingNode = 4;     ///< a node is null or removed
inline constexpr std::uint8_t kNotFinite = 8;       ///< a coordinate is no number, or left out
inline constexpr std::uint8_t kUnusable = 15;
inline constexpr std::uint8_t kRepeatedNode = 16;  ///< one node more than once
}  // namespace fault

/// A picture of the mesh taken at construction. Nodes are numbered in the order of their pool,
/// elements in that of theirs. Editing the session makes it out of date. Special elements have
/// their nodes but no shape: what they mean, and whether they may lie on one spot or on each other,
/// is the application's business. Throws std::length_error when there are 2^29 nodes, or all
/// elements together have 2^32.
/// Threads: reads the session and writes nothing to it; once made, any number may read it.
class QXDB_API DenseMesh {
 public:
  explicit DenseMesh(const CQXDBSession& session);

  /// What it is a picture of.
  const CQXDBSession& Session() const { return *session_; }

  std::uint32_t ElementCount() const { return static_cast<std::uint32_t>(elements_.size() - 1); }
  ITR ElementItr(std::uint32_t e) const { return elements_[e].itr; }
  const tagTElem& Element(std::uint32_t e) const;
  std::uint8_t Faults(std::uint32_t e) const { return elements_[e].faults; }
  bool IsUsable(std::uint32_t e) const { return (Faults(e) & fault::kUnusable) == 0; }
  /// kNone for special and unknown types.
  CornerShape Shape(std::uint32_t e) const { return elements_[e].shape; }
  /// Numbers of all nodes of an element, corners first; PoolNumbers::kNone for a missing one.
  std::span<const std::uint32_t> Nodes(std::uint32_t e) const {
    const std::size_t first = elements_[e].first_node;
    return std::span(nodes_).subspan(first, elements_[e + 1].first_node - first);
  }
  /// The corners alone. Requires a usable element.
  std::span<const std::uint32_t> Corners(std::uint32_t e) const {
    return std::span(nodes_).subspan(elements_[e].first_node, elements_[e].corners);
  }
  /// Their positions, at most 8. Requires a usable element.
  void CornerPositions(std::uint32_t e, Point3* out) const {
    for (const std::uint32_t node : Corners(e)) *out++ = positions_[node];
  }

  /// Makes the elements at these nodes unusable, as if they had no position; a mark for each node.
  void LeaveOutAt(std::span<const std::uint8_t> nodes);

  /// The numbers of nodes, to find those of other records' references.
  const PoolNumbers& Numbers() const { return numbers_; }
  std::uint32_t NodeCount() const { return numbers_.Count(); }
  ITR NodeItr(std::uint32_t n) const { return numbers_.Records()[n]; }
  Key NodeKey(std::uint32_t n) const;
  const Point3& Position(std::uint32_t n) const { return positions_[n]; }

 private:
  /// What the type code of an element says.
  struct Type {
    explicit Type(std::int32_t type_code);

    std::int32_t code;
    std::int32_t nodes;  ///< 0 for any number
    bool is_special;
    CornerShape shape;
    std::uint8_t corners;
    std::uint8_t faults;
  };
  /// Four of them fill a cache line.
  struct Row {
    ITR itr;
    std::uint32_t first_node;
    CornerShape shape;
    std::uint8_t corners;
    std::uint8_t faults;
  };

  void AddElement(ITR itr, const Type& type);

  PoolNumbers numbers_;
  std::vector<Point3> positions_;
  bool all_finite_ = true;
  std::vector<Row> elements_;  ///< and one more, whose first node is the end of the last
  const CQXDBSession* session_;
  std::vector<std::uint32_t> nodes_;
};

}  // namespace qx
