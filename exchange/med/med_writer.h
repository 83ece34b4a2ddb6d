#pragma once
// Models as MED files.

#include "exchange/format.h"

namespace qx::exchange {

/// Writes all nodes and all elements of codes 1 to 15 in current units as one unstructured mesh, in
/// the layout of version 3.0, which every later library reads. Mesh sets are groups: a family
/// stands for the nodes, or elements, that are in the same of them. `report` tells what the format
/// has no place for. The file is complete or not there.
Outcome WriteMed(CQXDBSession& session, const std::string& path, const WriteOptions& options,
                 LossReport& report);

}  // namespace qx::exchange
