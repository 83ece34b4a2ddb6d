#pragma once
// One writer to a model file.
// Threads: any; a lock may be let go of on another than took it.

#include <memory>
#include <string>

#include "qx_db/platform/file_lock.h"
#include "qx_db/platform/outcome.h"

namespace qx {

/// The right to write to a model file, kept in "<model>.lock" with host and process.
class QXDB_API ModelLock {
 public:
  /// Refused, naming the holder's host and process, while another document writes to the file.
  static Result<std::unique_ptr<ModelLock>> Take(const std::string& model);
  /// "host, process n" of who seems to write to the file now; "" when nobody does. Takes nothing.
  static std::string Writer(const std::string& model);
  /// "host, process n" of a holder that ended without letting go; "" when there was none.
  const std::string& Stale() const { return stale_; }

 private:
  std::unique_ptr<FileLock> lock_;
  std::string stale_;
};

}  // namespace qx
