#pragma once
// A SQLite file layer that keeps a checksum in the reserved bytes of every page it writes.

#include <cstdint>

#include "qx_db/platform/outcome.h"

struct sqlite3_vfs;

namespace qx {

/// Bytes at the end of every page that SQLite leaves to us.
inline constexpr int kPageReserve = 8;

/// Name under which the layer is registered with SQLite; registers it on the first call. The
/// layer sits on the default file layer, or on the one set by SetBaseVfs.
const char* CheckedVfs();

/// Lets tests put a file layer of their own under the checked one. Null: the default.
QXDB_API void SetBaseVfs(sqlite3_vfs* base);

/// Where the header of a database keeps what we look at before SQLite does.
struct DatabaseHeader {
  std::uint32_t page_size;
  std::uint32_t page_count;
  std::uint32_t application_id;
  std::uint32_t format;  ///< the user version
  std::uint64_t file_size;
  std::uint64_t PageBytes() const { return std::uint64_t{page_size} * page_count; }
};

/// Reads the file at `path` raw: it must be a database with the application id given, of whole
/// pages, each with the right checksum. What follows the pages is not looked at. The first fault is
/// reported with its page. Cost: one sequential read.
Result<DatabaseHeader> CheckPages(const std::string& path, std::uint32_t application_id);

}  // namespace qx
