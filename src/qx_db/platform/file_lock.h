#pragma once
// A file that one process holds at a time, with a text for the others to read.
// Threads: any; a lock may be let go of on another than took it.

#include <cstdint>
#include <memory>
#include <string>

#include "qx_db/export.h"

namespace qx {

/// A hold on a lock file. The system ends it with the process, however that ends.
class QXDB_API FileLock {
 public:
  enum class Result { kTaken, kHeld, kFailed };

  /// Takes the lock file at `path`, made with `text` in it if need be. `former` is the text found
  /// in it: of the holder (kHeld), of one that ended without leaving (kTaken). `error` tells why it
  /// failed. A file is never seen without its text, but where the file system can neither link nor
  /// rename without replacing: there a kill while it is made leaves one that is empty.
  static Result Take(const std::string& path, const std::string& text,
                     std::unique_ptr<FileLock>& lock, std::string& former, int& error);
  /// Removes the file, where it still is the one that was taken, and lets go.
  ~FileLock();
  /// Whether the file was made rather than found.
  bool IsNew() const { return is_new_; }
  /// Leaves the file and its text behind when the hold ends.
  void LeaveFile() { leave_file_ = true; }

 private:
  struct Handle;
  FileLock(std::string path, std::unique_ptr<Handle> handle);
  std::string path_;
  std::unique_ptr<Handle> handle_;
  bool leave_file_ = false;
  bool is_new_ = false;
};

QXDB_API std::string HostName();
QXDB_API std::int64_t ProcessId();
/// Whether a process of this host runs.
QXDB_API bool IsProcessAlive(std::int64_t process);

}  // namespace qx
