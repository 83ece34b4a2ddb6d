#pragma once
// The row of Exodus II files in the registry.
// Threads: any; the tables never change.

#include "exchange/format.h"

namespace qx::exchange {

Format ExodusFormat();

}  // namespace qx::exchange
