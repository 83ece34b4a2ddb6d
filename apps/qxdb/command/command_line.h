#pragma once
// Reads a command line by the declarations of command.h and does what it says. Only its source
// knows the parser behind it, whose headers cost more to compile than any command.

#include <string>
#include <vector>

#include "apps/qxdb/command/command.h"
#include "apps/qxdb/command/console.h"

namespace qx::app {

/// Reads the command line into the targets of its options and does the work of its command. Misuse
/// is concluded as a failure. Returns what the program ends with.
int RunCommandLine(Command& program, Context& context, int argc, char** argv);

/// The help of a command, which is named as it is typed; of the program without a name. Fails when
/// there is no such command.
Result<std::string> HelpOf(Command& program, const std::vector<std::string>& names);

}  // namespace qx::app
