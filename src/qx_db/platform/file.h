#pragma once
// Files by UTF-8 path: read whole, written whole and atomically.
// Threads: any; two that write one file at once leave the file of one of them, whole.

#include <cstdint>
#include <filesystem>
#include <functional>
#include <iosfwd>
#include <string>
#include <string_view>

#include "qx_db/platform/outcome.h"

namespace qx {

/// The file system's form of a UTF-8 path, and back.
QXDB_API std::filesystem::path PathFromUtf8(std::string_view path);
QXDB_API std::string Utf8FromPath(const std::filesystem::path& path);

/// The content of a regular file. Fails, naming the file, when it is missing, is a directory, a
/// pipe or a device, or cannot be read.
QXDB_API Result<std::string> ReadWholeFile(const std::string& path);

/// Fails, naming the file and the remedy, unless `path` is a regular file that exists.
QXDB_API Outcome CheckIsFile(const std::string& path);

/// Writes a file so that `path` holds either its old content or all of the new: `write` fills a
/// neighbouring file, which is synced and renamed over it.
QXDB_API Outcome WriteFileBy(const std::string& path,
                             const std::function<void(std::ostream&)>& write);
QXDB_API Outcome WriteWholeFile(const std::string& path, std::string_view bytes);

/// The path of the file that a path leads to by symbolic links at its end; the path itself when it
/// is none. There need not be a file.
QXDB_API std::string LinkTarget(const std::string& path);

/// Fails, naming the file and the remedy, where a path is a symbolic link that leads to no file: to
/// write there would make a file in another place than the one that was named.
QXDB_API Outcome CheckLink(const std::string& path);

/// Whether two paths lead to one place in the folders.
QXDB_API bool IsSamePlace(const std::string& a, const std::string& b);

}  // namespace qx
