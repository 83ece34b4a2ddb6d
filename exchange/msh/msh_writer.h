#pragma once
// Gmsh MSH files, versions 4.1 and 2.2.
// Threads: functions from any; a session given is read or filled as transfer.h says.

#include "exchange/mesh.h"

namespace qx::exchange {

enum class MshEncoding { kAscii, kBinary };
enum class MshVersion { k41, k22 };

/// Writes all nodes and all elements of codes 1 to 15, in pool order and current units, and every
/// mesh set but an empty default one. A set becomes a physical group for each dimension that it has
/// elements of, with the set's name, and the tag that it came with or else its key; the sections
/// $PhysicalNames and $Entities say so to every reader of the format. Sections of our own add what
/// that cannot say: $QXMeshSets (docs/mesh-sets.md), so that ReadMsh gives the sets back as they
/// were, and $QXUnits, the units of the numbers. Blocks that came from a MSH file are its entities
/// again, fields data sections; what such a file had besides goes back with the keys that its nodes
/// and elements have now. `report` tells what has no place. Fails for a node or element with key 0,
/// which the format does not know. The file is complete or not there. Uses the parameter indices of
/// nodes and elements as scratch numbers.
Outcome WriteMsh(const CQXDBSession& session, const std::string& path,
                 MshEncoding encoding = MshEncoding::kAscii, LossReport* report = nullptr,
                 const Progress& progress = {}, MshVersion version = MshVersion::k41);

}  // namespace qx::exchange
