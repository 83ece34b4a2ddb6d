#pragma once
// Geometry from STEP, IGES and BREP files by Open CASCADE: link QX_db::occt.

#include "adapters/occt/occt_cad.h"
