#pragma once
// Libraries that are loaded when something asks for them, because loading them takes longer than
// most runs of a program do.
// Threads: any.

#include <string>

#include "qx_db/platform/outcome.h"

namespace qx {

/// The address of the function or variable `name` in the shared library of the file name `library`,
/// which is loaded now unless it is already, and stays: from beside this library, else from where
/// the system looks. Its own names are hidden from other libraries. Fails, naming the library, when
/// it cannot be loaded or has no such name.
QXDB_API Result<void*> FindInLibrary(const std::string& library, const char* name);

}  // namespace qx
