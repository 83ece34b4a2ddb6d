#pragma once
// Bodies, faces and edges of a shape under numbers. For the .cpp files of this folder only.
// Threads: what the CAD session has.

#include <TopTools_IndexedMapOfShape.hxx>

#include "qx_db/model/cad_session.h"

namespace qx::occt {

/// Fills the topology and the edges by number. Bodies are solids, and what lies outside of any:
/// shells, faces, wires, edges.
void ReadTopology(const TopoDS_Shape& shape, CadTopology& topology,
                  TopTools_IndexedMapOfShape& edges);

}  // namespace qx::occt
