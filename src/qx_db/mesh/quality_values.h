#pragma once
// A quality measure of every element of a mesh. On as many threads as are allowed (SetWorkThreads).
// Threads: one at a time for a session: its owner, or whoever reads a snapshot of it.

#include <cstdint>
#include <vector>

#include "qx_db/mesh/dense_mesh.h"
#include "qx_db/mesh/mesh_quality.h"

namespace qx {

/// Whether elements of this kind are rated: ordinary, and nothing wrong with their nodes.
QXDB_API bool IsRated(const DenseMesh& mesh, std::uint32_t e);

/// The values of a measure for all elements in list order, NaN where an element has none; lengths
/// in it are multiplied by `length_factor`. What tables, limits and cell data are all made of.
QXDB_API std::vector<double> ValuesOf(const DenseMesh& mesh, const MeasureInfo& info,
                                      double length_factor);
/// The same, bit for bit, straight from the records of a model: faster where one measure is all
/// that is asked of the mesh.
QXDB_API std::vector<double> ValuesOf(const CQXDBSession& session, const MeasureInfo& info,
                                      double length_factor);

}  // namespace qx
