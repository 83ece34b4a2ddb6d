#pragma once
// The row of CGNS files in the registry.
// Threads: any; the tables never change.

#include "exchange/format.h"

namespace qx::exchange {

Format CgnsFormat();

}  // namespace qx::exchange
