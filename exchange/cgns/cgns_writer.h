#pragma once
// Models as CGNS files.

#include "exchange/format.h"

namespace qx::exchange {

/// Writes all nodes and all elements of codes 1 to 15 in current units, as one unstructured zone in
/// an HDF5 container. Sets that came as sections are sections again, as is every other set of
/// elements of one type that shares none with them; the elements that are left over are sections by
/// type. Other sets of faces and edges, and of nodes, are boundary conditions, of other elements
/// regions. A set that has what the sets below it have is a family. `report` tells what the format
/// has no place for. The file is complete or not there.
Outcome WriteCgns(CQXDBSession& session, const std::string& path, const WriteOptions& options,
                  LossReport& report);

}  // namespace qx::exchange
