#pragma once
// The sections of MSH files, one function each, by version of the format.

#include "exchange/msh_builder.h"
#include "exchange/msh_cursor.h"

namespace qx::exchange {

/// Reads one section, of which the cursor has passed the first line, up to its last line.
using ReadMshSection = void (*)(MshCursor& in, MshBuilder& mesh);

/// $PhysicalNames, the same in every version.
void ReadPhysicalNames(MshCursor& in, MshBuilder& mesh);

/// $QXMeshSets, this system's own, which other programs pass over: msh_mesh_sets.cpp.
void ReadMeshSets(MshCursor& in, MshBuilder& mesh);

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
