#pragma once
// Models as universal files.

#include "exchange/format.h"

namespace qx::exchange {

/// Writes header, units, systems, nodes, elements, groups, results and carried datasets in current
/// units; what there is no dataset for is told in `report`. The file is complete or not there.
Outcome WriteUnv(CQXDBSession& session, const std::string& path, const WriteOptions& options,
                 LossReport& report);

}  // namespace qx::exchange
