#pragma once
// VTK XML unstructured grids, for every tool that reads VTK files.

#include "exchange/mesh.h"

namespace qx::exchange {

/// How the arrays of the file are stored.
enum class VtuEncoding {
  kAppendedRaw,  ///< raw bytes behind the XML, the smallest and fastest
  kAppendedBase64,
  kInlineBase64,
  kAscii,
};

/// How the arrays of the file are packed. Text never is.
enum class VtuCompression { kNone, kZlib, kLz4 };

/// A further value for every cell: `values` has one for every element of the pool, in the order
/// of its list, also for elements that are left out.
struct CellData {
  std::string name;
  std::vector<double> values;
};

/// Writes all nodes and all elements of codes 1 to 15, in current units. Point data: "node_key",
/// fields by node, and for each mesh set with nodes of its own a 0/1 array under the set's name.
/// Cell data: "element_key", "element_type", "property_key" (0 for none), a 0/1 array for each mesh
/// set (but an empty default one) and each active element set under the set's name, fields by
/// element, and `extra`. An array whose name is taken gets the set's key or a number behind it.
/// What VTK cannot say of them (keys, tags, hierarchy and colours of sets, steps and units of
/// fields) is kept in processing instructions, from which our reader takes it. Elements of other
/// codes or without all their nodes, and records that the format has no place for, are left out;
/// `report` says so with counts. The file is complete or not there. Uses the parameter indices of
/// nodes and elements as scratch numbers.
Outcome WriteVtu(const CQXDBSession& session, const std::string& path,
                 VtuEncoding encoding = VtuEncoding::kAppendedBase64,
                 const std::vector<CellData>& extra = {}, LossReport* report = nullptr,
                 const Progress& progress = {}, VtuCompression compression = VtuCompression::kNone);

}  // namespace qx::exchange
