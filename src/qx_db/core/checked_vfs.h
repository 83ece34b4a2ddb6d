#pragma once
// Databases inside open files, with a checksum at the end of every page.
//
// SQLite knows nothing of paths here: it reads and writes through a file that is open already, of
// which it is shown the pages. So what else is in the folder (journals, logs of its own) and what a
// name looks like cannot matter, and the file that was checked is the one that is read.
// Threads: any, for a file each; the layer below SQLite is set up once.

#include <cstdint>
#include <string>

#include "qx_db/platform/outcome.h"
#include "qx_db/platform/raw_file.h"

struct sqlite3;

namespace qx {

/// Bytes at the end of every page that SQLite leaves to us.
inline constexpr int kPageReserve = 8;

/// What the header of a database says before SQLite looks at it.
struct DatabaseHeader {
  std::uint32_t page_size;
  std::uint32_t page_count;
  std::uint32_t format;  ///< the user version
  std::uint64_t file_size;
  std::uint64_t PageBytes() const { return std::uint64_t{page_size} * page_count; }
};

/// Reads the header: it must be that of a database with the application id given, made as ours are
/// (no log of writes, no vacuum, pages with room for a checksum), and the file must be long enough.
/// `path` is what failures name. What follows the pages is not looked at.
Result<DatabaseHeader> ReadHeader(RawFile& file, const std::string& path,
                                  std::uint32_t application_id);

/// Whether every page has the right checksum; the first that has not is named. Cost: one sequential
/// read.
Outcome CheckPages(RawFile& file, const std::string& path, const DatabaseHeader& header);

/// Opens the pages of a file to be read; each is checked when it is read. Gives a result code of
/// SQLite; `database` must be closed in any case, before the file.
int OpenToRead(RawFile& file, const DatabaseHeader& header, sqlite3** database);
/// Opens an empty file to be filled with pages; each gets its checksum when it is written.
int OpenToWrite(RawFile& file, sqlite3** database);

}  // namespace qx
