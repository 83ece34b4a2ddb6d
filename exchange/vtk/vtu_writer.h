#pragma once
// VTK XML unstructured grids, for every tool that reads VTK files.
// Threads: functions from any; a session given is read or filled as transfer.h says.

#include "exchange/mesh.h"

namespace qx::exchange {

/// How the arrays of the file are stored.
enum class VtuEncoding {
  kAppendedRaw,  ///< raw bytes behind the XML, the smallest and fastest
  kAppendedBase64,
  kInlineBase64,
  kAscii,
};

/// A further value for every cell: `values` has one for every element of the pool, in the order
/// of its list, also for elements that are left out.
struct CellData {
  std::string name;
  std::vector<double> values;
};

/// Writes all nodes and all elements of codes 1 to 15, in current units. Point data: "node_key".
/// Cell data: "element_key", "element_type", "property_key" (0 for none), a 0/1 array for
/// each mesh set (but an empty default one) and each active element set under the set's name, and
/// `extra`. An array whose name is taken gets the
/// set's key or a number behind it. Elements of other codes or without all their nodes are left
/// out; `report` says so with counts. The file is complete or not there. Uses the parameter indices
/// of nodes and elements as scratch numbers.
Outcome WriteVtu(const CQXDBSession& session, const std::string& path,
                 VtuEncoding encoding = VtuEncoding::kAppendedBase64,
                 const std::vector<CellData>& extra = {}, LossReport* report = nullptr,
                 const Progress& progress = {});

}  // namespace qx::exchange
