#pragma once
// Gmsh MSH files, version 4.1.

#include "exchange/mesh.h"

namespace qx::exchange {

enum class MshEncoding { kAscii, kBinary };

/// Writes all nodes and all elements of codes 1 to 15, in pool order and current units, and every
/// mesh set but an empty default one. A set becomes a physical group for each dimension that it has
/// elements of, with the set's name, and its key as tag; the sections $PhysicalNames and $Entities
/// say so to every reader of the format. A section of our own, $QXMeshSets, adds what that cannot
/// say (docs/mesh-sets.md), so that ReadMsh gives the sets back as they were. Elements of other
/// codes or without all their nodes are left out, as are properties and active element sets;
/// `notes` says so with counts. Fails for a node or element with key 0, which the format does not
/// know. The file is complete or not there. Uses the parameter indices of elements as scratch
/// numbers.
Outcome WriteMsh(const CQXDBSession& session, const std::string& path,
                 MshEncoding encoding = MshEncoding::kAscii,
                 std::vector<std::string>* notes = nullptr, const Progress& progress = {});

}  // namespace qx::exchange
