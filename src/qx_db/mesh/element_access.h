#pragma once
// From iterators to elements and node positions, without a lookup: an iterator is an address.
// Threads: one at a time for a session: its owner, or whoever reads a snapshot of it.

#include <cstdint>

#include "qx_db/mesh/point3.h"
#include "qx_db/mesh/topology_table.h"
#include "qx_db/pool/keyed_set_base.h"
#include "qx_db/record/mesh_records.h"

namespace qx {

/// The record at an iterator of its pool; null for a null iterator and for one whose record was
/// removed. An iterator from before its pool was emptied as a whole is beyond telling.
template <class T>
const T* LiveRecord(ITR itr) {
  if (itr == 0 || KeyedSetBase::IsRemoved(itr)) return nullptr;
  return static_cast<const T*>(KeyedSetBase::RecordAt(itr));
}
inline const tagTElem* ElementAt(ITR itr) { return LiveRecord<tagTElem>(itr); }
inline const tagTNode* NodeAt(ITR itr) { return LiveRecord<tagTNode>(itr); }

/// The positions of the first `count` nodes; false when the element has fewer, or one is gone.
inline bool FirstPositions(const tagTElem& element, std::int32_t count, Point3* out) {
  if (element.nodes.GetSize() < count) return false;
  const ITR* nodes = element.nodes.data();
  for (std::int32_t i = 0; i < count; ++i) {
    const tagTNode* node = NodeAt(nodes[i]);
    if (!node) return false;
    out[i] = node->position;
  }
  return true;
}

/// The corners of an element of an ordinary type; false for a special or unknown one, when it has
/// fewer nodes than corners, and when one of these is gone.
inline bool CornersOf(const tagTElem& element, CornerShape& shape, Point3* out) {
  shape = topology::ShapeOf(element.type);
  return shape != CornerShape::kNone && FirstPositions(element, TableOf(shape).corners, out);
}

}  // namespace qx
