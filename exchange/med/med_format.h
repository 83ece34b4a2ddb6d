#pragma once
// The row of MED files in the registry.
// Threads: any; the tables never change.

#include "exchange/format.h"

namespace qx::exchange {

Format MedFormat();

}  // namespace qx::exchange
