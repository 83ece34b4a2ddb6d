#pragma once
// The row of Nastran bulk data in the registry.

#include "exchange/format.h"

namespace qx::exchange {

Format NastranFormat();

}  // namespace qx::exchange
