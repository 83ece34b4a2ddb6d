#pragma once
// Units of a model on the command line.

#include <string>

#include "qx_db/lib/units.h"

#include "apps/qxdb/command/console.h"

namespace qx::app {

class Command;

/// "mm,N,kg,sec,C,J,deg"
std::string UnitsText(const UnitSystem& system);

/// show, set and convert, below the command that lists units.
void AddModelUnits(Command& units, Context& context);

}  // namespace qx::app
