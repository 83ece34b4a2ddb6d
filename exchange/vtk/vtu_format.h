#pragma once
// The row of VTK XML unstructured grids in the registry.

#include "exchange/format.h"

namespace qx::exchange {

Format VtuFormat();

}  // namespace qx::exchange
