#pragma once
// Lengths, areas, volumes and moments of elements as all their nodes shape them: the sides of one
// of second order bend through the nodes between its corners. Threads: one at a time for a session:
// its owner, or whoever reads a snapshot of it.

#include "qx_db/mesh/element_volume.h"
#include "qx_db/record/mesh_records.h"

namespace qx {

/// What an element measures.
struct ShapeMeasure {
  CornerShape shape = CornerShape::kNone;  ///< kNone of an element without a shape or a node
  Moments moments;                         ///< of density 1; signed as ShapeMoments are
  bool is_curved = false;                  ///< a node between corners lies off the straight side
};

/// The moments of a shape from its nodes, corners first and then one on each edge, in the order of
/// the edges: the shape functions of second order (those of a pyramid after G. Bedrosian, 1992)
/// integrated by a Gauss rule, which is exact for the volumes and mass centres of solids.
QXDB_API Moments CurvedMoments(CornerShape shape, const Point3* nodes);

/// The same of an element: of a curved one by all its nodes, of any other by its corners, which
/// give the same there and cost less.
QXDB_API ShapeMeasure MeasureShape(const tagTElem& element);

/// The length, area or signed volume of an element as it is shaped; 0 without a shape. What
/// CQXMeshUtil::GetElemQuantity and GetElemVolume tell is that of the corners.
QXDB_API double ElementSize(const tagTElem& element);

}  // namespace qx
