#pragma once
// The rows of VTK's formats in the registry.

#include "exchange/format.h"

namespace qx::exchange {

Format VtuFormat();   ///< VTK XML unstructured grids
Format PvtuFormat();  ///< the files that gather their pieces
Format VtkFormat();   ///< the older form

}  // namespace qx::exchange
