#pragma once
// The row of VTK XML unstructured grids in the registry.
// Threads: any; the tables never change.

#include "exchange/format.h"

namespace qx::exchange {

Format VtuFormat();

}  // namespace qx::exchange
