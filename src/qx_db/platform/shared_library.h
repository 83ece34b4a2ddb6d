#pragma once
// Libraries that are loaded when something asks for them, because loading them takes longer than
// most runs of a program do.
// Threads: any.

#include <string>

#include "qx_db/platform/outcome.h"

namespace qx {

/// A loaded library; it stays loaded. Its own names are hidden from other libraries.
class QXDB_API SharedLibrary {
 public:
  /// The library of the file name `name`, from beside this library, else from where the system
  /// looks. Fails, naming it, when it cannot be loaded.
  static Result<SharedLibrary> Load(const std::string& name);
  /// The address of a function or variable; null where the library has none of that name.
  void* Find(const char* name) const;

 private:
  explicit SharedLibrary(void* handle) : handle_(handle) {}
  void* handle_;
};

}  // namespace qx
