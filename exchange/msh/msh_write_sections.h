#pragma once
// The sections of a written MSH file, by version of the format.
// Threads: shares nothing; one at a time for each object.

#include "exchange/msh/msh_model.h"
#include "exchange/msh/msh_sink.h"
#include "exchange/msh/msh_writer.h"

namespace qx::exchange {

/// Entities, nodes and elements of version 4.1: msh_write4.cpp.
void WriteMesh41(const MshModel& model, MshSink& out);
/// Nodes and elements of version 2.2: msh_write2.cpp.
void WriteMesh22(const MshModel& model, MshSink& out, bool binary, LossReport& report);
/// Fields as data sections, in every version alike: msh_write_data.cpp.
void WriteFields(const MshModel& model, MshSink& out, bool binary, bool with_partitions,
                 LossReport& report);
/// What was carried from a file of the format: msh_write_data.cpp.
void WriteCarried(const MshModel& model, MshSink& out, bool binary, MshVersion version,
                  LossReport& report);
/// The carried text of the ghost entities, which stands at the head of the partitioned ones; ""
/// when there is none.
std::string GhostEntities(const MshModel& model);

/// Nodes of an element in the order of the file.
std::array<Key, 20> NodesInFile(const tagTElem& element, const std::int8_t* order);

}  // namespace qx::exchange
