#pragma once
// What an import of records decided, for people and machines: one account for every command.

#include <string>

#include "qx_db/bulk/model_import.h"

#include "apps/qxdb/command/console.h"

namespace qx::app {

/// The text of all that the report holds, the first lines of each kind; and all of it as the
/// members "pools", "renumbered_sets", "clashes", "renamed", "left", "loose" and "unconverted".
std::string DescribeImport(const ImportReport& report, const CQXDBSession& session, JsonText& json);

}  // namespace qx::app
