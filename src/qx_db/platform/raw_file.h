#pragma once
// Files as durability sees them: bytes at places, and when they are on the device.

#include <cerrno>
#include <cstdint>
#include <memory>
#include <string>

#include "qx_db/export.h"

namespace qx {

/// Tells a file from any other, whatever paths lead to it.
struct FileId {
  std::uint64_t device = 0;
  std::uint64_t number = 0;
  bool operator==(const FileId&) const = default;
};

/// An open file. Every operation gives 0 or the system's error number, never a short count.
/// Threads: one at a time.
class QXDB_API RawFile {
 public:
  virtual ~RawFile() = default;
  /// Reads exactly `size` bytes; what lies behind the end of the file reads as an error.
  virtual int Read(char* to, std::size_t size, std::uint64_t at) = 0;
  virtual int Write(const char* from, std::size_t size, std::uint64_t at) = 0;
  /// Cuts the file or extends it by zeros.
  virtual int Resize(std::uint64_t size) = 0;
  /// Lets the device begin with what was written there, where the system knows how; Sync waits.
  virtual int StartSync(std::uint64_t /*at*/, std::size_t /*size*/) { return 0; }
  /// Returns once everything written is on the device, the file's size included.
  virtual int Sync() = 0;
  virtual int Size(std::uint64_t& size) = 0;
  /// The first bytes at or behind `at` that are no hole: from `begin` up to `end`, the file's size
  /// twice where there are none. Where the system cannot tell, there are no holes.
  virtual int NextData(std::uint64_t at, std::uint64_t& begin, std::uint64_t& end);
  virtual int Id(FileId& id) = 0;
  /// Claims the file itself, under whatever name it was opened, until it is closed here;
  /// EWOULDBLOCK while another open file has the claim, ENOTSUP where the file system knows no
  /// claims.
  virtual int Claim() { return ENOTSUP; }
};

/// The bytes of a file that are no hole: as much as it can hold of anything; 0 where that cannot be
/// read.
QXDB_API std::uint64_t DataBytes(RawFile& file);

/// The operations whose order decides what a crash leaves behind. Tests put a layer of their own
/// in its place. Threads: any, at once.
class QXDB_API FileSystem {
 public:
  virtual ~FileSystem() = default;
  virtual int Open(const std::string& path, bool writing, std::unique_ptr<RawFile>& file);
  /// Makes a file where there is nothing of that name, not even a link; EEXIST where there is. With
  /// `guarded` only its owner may read it.
  virtual int Create(const std::string& path, bool guarded, std::unique_ptr<RawFile>& file);
  /// Which file a path leads to; ENOENT when none.
  virtual int IdOf(const std::string& path, FileId& id);
  virtual int Rename(const std::string& from, const std::string& to);
  virtual int Remove(const std::string& path);
  /// Makes the names in the folder of `path` durable.
  virtual int SyncFolderOf(const std::string& path);
};

/// The file system in use; from any thread.
QXDB_API FileSystem& Files();
/// Puts another in its place, null for the real one. Not while files are open, nor while another
/// thread reads or writes any.
QXDB_API void SetFiles(FileSystem* files);

/// Whether an error number says that there is no room for more: on the device, for the user, or in
/// a file.
QXDB_API bool IsFull(int error);
/// The system's text for an error number.
QXDB_API std::string ErrorText(int error);

}  // namespace qx
