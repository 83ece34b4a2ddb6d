#pragma once
// Models as Exodus II files.

#include "exchange/format.h"

namespace qx::exchange {

/// Name of an attribute of the files that are written here.
inline constexpr const char* kExodusOwn = "written_by_qxdb";

/// Writes all nodes and all elements of codes 1 to 15 in current units. Sets that came as blocks
/// are blocks again, as is every other set of elements of one type of which no block has any; the
/// elements that are left over are blocks by type. Other sets of elements are element sets, sets of
/// nodes node sets, sets of sides side sets. Fields by node and element are variables, those of
/// attributes attributes. `report` tells what the format has no place for. The file is complete or
/// not there.
Outcome WriteExodus(CQXDBSession& session, const std::string& path, const WriteOptions& options,
                    LossReport& report);

}  // namespace qx::exchange
