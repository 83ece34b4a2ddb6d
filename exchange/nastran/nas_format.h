#pragma once
// The row of Nastran bulk data in the registry.
// Threads: any; the tables never change.

#include "exchange/format.h"

namespace qx::exchange {

Format NastranFormat();

}  // namespace qx::exchange
