#pragma once
// The row of the MSH format in the registry.
// Threads: any; the tables never change.

#include "exchange/format.h"

namespace qx::exchange {

Format MshFormat();

}  // namespace qx::exchange
