#pragma once
// Files that commands write for people and other programs.

#include <functional>
#include <string>
#include <vector>

#include "qx_db/platform/outcome.h"

#include "apps/qxdb/command/command.h"
#include "exchange/format.h"

namespace qx::app {

/// A drawing that says behind its first tag that it is ours.
std::string MarkedSvg(std::string svg);
/// The first line of a manual page of ours.
inline constexpr const char* kManualMark = ".\\\" made by qxdb manual\n";

/// What a command writes. A file of ours is told by how it begins.
enum class OutputKind {
  kGateway,  ///< JSON of tables
  kKeyMap,   ///< JSON of keys for keys
  kSvg,
  kHtml,  ///< a page of the viewer
  kPng,
  kPool,    ///< a record file
  kPoints,  ///< JSON of seeds
  kReport,  ///< JSON of what an import or export lost
  kManual,  ///< a manual page
};

/// The one rule for all commands: a file that exists is replaced only when we wrote it and it
/// is of the kind, or empty, or with --force; and never one of `others`, which the command reads or
/// writes, too. An empty path is no output.
Outcome CheckOutput(const std::string& output, OutputKind kind, bool force,
                    const std::vector<std::string>& others);
/// The same for a file of a registered format: it is replaced when it is one of ours.
Outcome CheckOutput(const std::string& output, const exchange::Format& format, bool force,
                    const std::vector<std::string>& others);
/// The same for a kind that takes more to tell.
Outcome CheckOutput(const std::string& output,
                    const std::function<bool(const std::string&)>& is_kind, bool force,
                    const std::vector<std::string>& others);

/// The flag --force, which a command may give a second meaning: `also` is added to its help.
void AddForce(Command& command, bool& force, const char* also = "");

}  // namespace qx::app
