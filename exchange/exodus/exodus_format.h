#pragma once
// The row of Exodus II files in the registry.

#include "exchange/format.h"

namespace qx::exchange {

Format ExodusFormat();

}  // namespace qx::exchange
