#pragma once
// The row of universal files in the registry.
// Threads: any; the tables never change.

#include "exchange/format.h"

namespace qx::exchange {

Format UnvFormat();

}  // namespace qx::exchange
