#pragma once
// The sections of MSH files, one function each, by version of the format.
// Threads: shares nothing; one at a time for each object.

#include "exchange/msh/msh_builder.h"
#include "exchange/msh/msh_cursor.h"

namespace qx::exchange {

/// Reads one section, of which the cursor has passed the first line, up to its last line.
using ReadMshSection = void (*)(MshCursor& in, MshBuilder& mesh);

/// $PhysicalNames, the same in every version.
void ReadPhysicalNames(MshCursor& in, MshBuilder& mesh);

/// $QXMeshSets, this system's own, which other programs pass over: msh_mesh_sets.cpp.
void ReadMeshSets(MshCursor& in, MshBuilder& mesh);

/// $NodeData, $ElementData and $ElementNodeData, the same in every version: msh_data.cpp.
void ReadNodeData(MshCursor& in, MshBuilder& mesh);
void ReadElementData(MshCursor& in, MshBuilder& mesh);
void ReadElementNodeData(MshCursor& in, MshBuilder& mesh);

/// Sections that are carried: msh_carried.cpp. Their keys follow the records.
void ReadPeriodicText(MshCursor& in, MshBuilder& mesh);  ///< versions 2 and 4.0, text
void ReadPeriodic41(MshCursor& in, MshBuilder& mesh);
void ReadGhostElements(MshCursor& in, MshBuilder& mesh);
/// The head of $PartitionedEntities: the number of partitions, and the ghost entities.
void CarryPartitions(MshCursor& in, MshBuilder& mesh);
/// A section that this library knows nothing of: carried from a text, left out of a binary file.
void CarryUnknown(MshCursor& in, MshBuilder& mesh, std::string_view name);
/// $QXUnits, this system's own: the units that the numbers are in.
void ReadUnits(MshCursor& in, MshBuilder& mesh);

/// A name in quotes, the rest of a line. It may hold quotes itself.
std::string ReadQuotedName(MshCursor& in);

namespace msh2 {
void ReadNodes(MshCursor& in, MshBuilder& mesh);
void ReadParametricNodes(MshCursor& in, MshBuilder& mesh);
void ReadElements(MshCursor& in, MshBuilder& mesh);
}  // namespace msh2

namespace msh40 {
void ReadEntities(MshCursor& in, MshBuilder& mesh);
void ReadPartitionedEntities(MshCursor& in, MshBuilder& mesh);
void ReadNodes(MshCursor& in, MshBuilder& mesh);
void ReadElements(MshCursor& in, MshBuilder& mesh);
}  // namespace msh40

namespace msh41 {
void ReadEntities(MshCursor& in, MshBuilder& mesh);
void ReadPartitionedEntities(MshCursor& in, MshBuilder& mesh);
void ReadNodes(MshCursor& in, MshBuilder& mesh);
void ReadElements(MshCursor& in, MshBuilder& mesh);
}  // namespace msh41

}  // namespace qx::exchange
