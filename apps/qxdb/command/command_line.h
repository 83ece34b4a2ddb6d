#pragma once
// Reads a command line by the declarations of command.h and does what it says. Only its source
// knows the parser behind it, whose headers cost more to compile than any command.

#include <string>
#include <vector>

#include "apps/qxdb/command/command.h"
#include "apps/qxdb/command/console.h"

namespace qx::app {

/// Reads the words behind the program's name into the targets of their options and does the work of
/// their command. Misuse is concluded as a failure. Returns what the program ends with. May be
/// called within a command's work, once the targets are reset.
int RunCommandLine(Command& program, Context& context, std::vector<std::string> words);

/// The help of a command, which is named as it is typed; of the program without a name. Fails when
/// there is no such command. `is_shell`: for who does not type the program's name.
Result<std::string> HelpOf(Command& program, const std::vector<std::string>& names,
                           bool is_shell = false);

}  // namespace qx::app
