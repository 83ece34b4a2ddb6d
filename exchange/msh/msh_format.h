#pragma once
// The row of the MSH format in the registry.

#include "exchange/format.h"

namespace qx::exchange {

Format MshFormat();

}  // namespace qx::exchange
