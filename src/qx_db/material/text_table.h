#pragma once
// The text table of structural materials: "*category" lines, and a line of fields per material.
// Threads: functions from any; objects are values, one at a time for each.

#include "qx_db/material/material_library.h"

namespace qx {

/// Reads a table (docs/material-files.md). Lines of fewer than 17 fields are left out; `lint`, if
/// any, hears of them. Fails, naming file and line, for what is no text, a line of over 2048
/// characters or a number too large for a double.
QXDB_API Result<MaterialCategories> ReadTextTable(const std::string& path, const CodePage& page,
                                                  const MaterialLint& lint = {});
QXDB_API Result<MaterialCategories> ParseTextTable(std::string bytes, const std::string& file,
                                                   const CodePage& page,
                                                   const MaterialLint& lint = {});

/// Writes a table that reads back as it is, of the first 16 values of each row. Fails, and leaves
/// the file as it was, for a name that the form or the code page cannot hold.
QXDB_API Outcome WriteTextTable(const MaterialCategories& categories, const std::string& path,
                                const CodePage& page);

}  // namespace qx
