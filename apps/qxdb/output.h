#pragma once
// Files that commands write for people and other programs.

#include <functional>
#include <string>
#include <vector>

#include "qx_db/platform/outcome.h"

#include "apps/qxdb/command.h"

namespace qx::app {

/// What a command writes. A file of a kind is told by how it begins.
enum class OutputKind {
  kGateway,  ///< JSON of tables, key maps too
  kMsh,
  kVtu,
  kSvg,
  kHtml,  ///< a page of the viewer
  kPng,
  kPool,    ///< a record file
  kPoints,  ///< JSON of seeds
};

/// The kind of a file to be exported, by its extension; kGateway for an unknown one.
OutputKind OutputKindOf(const std::string& path);

/// The one rule for all commands: a file that exists is replaced only when it is of the kind that
/// is written, or empty, or with --force; and never one that the command reads. An empty path is no
/// output.
Outcome CheckOutput(const std::string& output, OutputKind kind, bool force,
                    const std::vector<std::string>& inputs);
/// The same for a kind that takes more to tell.
Outcome CheckOutput(const std::string& output,
                    const std::function<bool(const std::string&)>& is_kind, bool force,
                    const std::vector<std::string>& inputs);

/// The flag --force, which a command may give a second meaning: `also` is added to its help.
void AddForce(Command& command, bool& force, const char* also = "");

}  // namespace qx::app
