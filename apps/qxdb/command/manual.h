#pragma once
// Manual pages, written from the declarations of the commands.

#include <string>
#include <vector>

#include "apps/qxdb/command/command.h"

namespace qx::app {

struct ManualPage {
  std::string name;  ///< "qxdb-sets-add": a command as it is typed, joined by dashes
  std::string text;  ///< in the language of man(7)
};

/// The page of every command, the program's first.
std::vector<ManualPage> ManualPages(const Command& program, const std::string& version);

}  // namespace qx::app
