#include "qx_db/core/checked_vfs.h"

#define XXH_INLINE_ALL
#include <algorithm>
#include <cerrno>
#include <cstring>
#include <new>
#include <sqlite3.h>
#include <vector>
#include <xxhash.h>

#include "qx_db/platform/long_work.h"
#include "qx_db/record/types.h"

namespace qx {
namespace {

constexpr const char* kDamaged = "restore it from a backup";

/// Checksum of a page but for its own bytes. The page's number takes part, so that a page in
/// another's place is found out.
std::uint64_t PageChecksum(const char* page, std::size_t size, std::uint64_t number) {
  return XXH3_64bits_withSeed(page, size - kPageReserve, number);
}

bool HasItsChecksum(const char* page, std::size_t size, std::uint64_t number) {
  return LoadAt<std::uint64_t>(page + size - kPageReserve) == PageChecksum(page, size, number);
}

/// The byte that SQLite locks where it locks, one GiB into a file. It never writes the page around
/// it (https://www.sqlite.org/fileformat2.html, "The Lock-Byte Page"), which is a hole then.
std::uint64_t LockByte() {
  return static_cast<std::uint32_t>(sqlite3_test_control(SQLITE_TESTCTRL_PENDING_BYTE, 0));
}

/// What SQLite is shown of a file.
struct Pages {
  RawFile* file = nullptr;
  std::uint64_t bytes = 0;      // of all pages, so far
  std::uint32_t page_size = 0;  // 0 while they are written
  std::vector<char> page = {};  // room to finish one in
};

/// Handed to Open, which SQLite calls on the same thread before sqlite3_open_v2 returns.
thread_local const Pages* t_opening = nullptr;

struct OpenPages {
  sqlite3_file methods;
  Pages* pages;  // owned
};

Pages& PagesOf(sqlite3_file* file) { return *reinterpret_cast<OpenPages*>(file)->pages; }

int CodeOf(int error, int otherwise) {
  if (IsFull(error)) return SQLITE_FULL;
  return error == ENOMEM ? SQLITE_IOERR_NOMEM : otherwise;
}

int Close(sqlite3_file* file) {
  delete reinterpret_cast<OpenPages*>(file)->pages;
  return SQLITE_OK;
}

int Read(sqlite3_file* file, void* to, int size, sqlite3_int64 at) {
  Pages& pages = PagesOf(file);
  const auto start = static_cast<std::uint64_t>(at);
  const auto wanted = static_cast<std::size_t>(size);
  const std::uint64_t there = pages.bytes - std::min(start, pages.bytes);
  const auto got = static_cast<std::size_t>(std::min<std::uint64_t>(wanted, there));
  auto* bytes = static_cast<char*>(to);
  if (const int error = got ? pages.file->Read(bytes, got, start) : 0) {
    return CodeOf(error, SQLITE_IOERR_READ);
  }
  if (got < wanted) {
    std::memset(bytes + got, 0, wanted - got);
    return SQLITE_IOERR_SHORT_READ;
  }
  const bool checked = wanted == pages.page_size && start % wanted == 0;
  return checked && !HasItsChecksum(bytes, wanted, start / wanted) ? SQLITE_CORRUPT : SQLITE_OK;
}

int Write(sqlite3_file* file, const void* from, int size, sqlite3_int64 at) {
  Pages& pages = PagesOf(file);
  if (pages.page_size) return SQLITE_READONLY;
  const auto start = static_cast<std::uint64_t>(at);
  const auto bytes = static_cast<std::size_t>(size);
  const char* out = static_cast<const char*>(from);
  if (size >= 512 && (size & (size - 1)) == 0 && at % size == 0) {
    try {
      pages.page.assign(out, out + bytes);
    } catch (const std::bad_alloc&) {  // nothing may be thrown through SQLite
      return SQLITE_IOERR_NOMEM;
    }
    StoreAt(pages.page.data() + bytes - kPageReserve, PageChecksum(out, bytes, start / bytes));
    out = pages.page.data();
  }
  if (const int error = pages.file->Write(out, bytes, start)) {
    return CodeOf(error, SQLITE_IOERR_WRITE);
  }
  pages.bytes = std::max(pages.bytes, start + bytes);
  return SQLITE_OK;
}

int Truncate(sqlite3_file* file, sqlite3_int64 size) {
  Pages& pages = PagesOf(file);
  if (pages.page_size) return SQLITE_READONLY;
  pages.bytes = static_cast<std::uint64_t>(size);
  return pages.file->Resize(pages.bytes) ? SQLITE_IOERR_TRUNCATE : SQLITE_OK;
}

int FileSize(sqlite3_file* file, sqlite3_int64* size) {
  *size = static_cast<sqlite3_int64>(PagesOf(file).bytes);
  return SQLITE_OK;
}

/// What is read does not change under SQLite, which then asks for no locks and plays back nothing.
int DeviceCharacteristics(sqlite3_file* file) {
  return PagesOf(file).page_size ? SQLITE_IOCAP_IMMUTABLE : 0;
}

// Version 1: no shared memory and no memory mapping, so that every page passes through here.
const sqlite3_io_methods kMethods = {
    1,
    Close,
    Read,
    Write,
    Truncate,
    [](sqlite3_file*, int) { return SQLITE_OK; },  // whoever owns the file syncs it
    FileSize,
    [](sqlite3_file*, int) { return SQLITE_OK; },
    [](sqlite3_file*, int) { return SQLITE_OK; },
    [](sqlite3_file*, int* reserved) { return *reserved = 0, SQLITE_OK; },
    [](sqlite3_file*, int, void*) { return SQLITE_NOTFOUND; },
    [](sqlite3_file*) { return 4096; },
    DeviceCharacteristics,
    nullptr,
    nullptr,
    nullptr,
    nullptr,
    nullptr,
    nullptr};

int Open(sqlite3_vfs*, const char*, sqlite3_file* file, int flags, int* out_flags) {
  auto* self = reinterpret_cast<OpenPages*>(file);
  std::memset(static_cast<void*>(self), 0, sizeof(*self));
  // Journals and temporary files have no place here.
  if (!t_opening || !(flags & SQLITE_OPEN_MAIN_DB)) return SQLITE_CANTOPEN;
  self->pages = new (std::nothrow) Pages(*t_opening);
  if (!self->pages) return SQLITE_NOMEM;
  self->methods.pMethods = &kMethods;
  if (out_flags) *out_flags = flags;
  return SQLITE_OK;
}

sqlite3_vfs MakeVfs() {
  sqlite3_initialize();
  sqlite3_vfs vfs = *sqlite3_vfs_find(nullptr);  // for time and chance
  vfs.pNext = nullptr;
  vfs.zName = "qx-pages";
  vfs.szOsFile = static_cast<int>(sizeof(OpenPages));
  vfs.xOpen = Open;
  vfs.xDelete = [](sqlite3_vfs*, const char*, int) { return SQLITE_OK; };
  vfs.xAccess = [](sqlite3_vfs*, const char*, int, int* result) { return *result = 0, SQLITE_OK; };
  vfs.xFullPathname = [](sqlite3_vfs*, const char* name, int size, char* out) {
    return sqlite3_snprintf(size, out, "%s", name), SQLITE_OK;
  };
  return vfs;
}

int OpenDatabase(const Pages& pages, int flags, sqlite3** database) {
  static sqlite3_vfs vfs = MakeVfs();
  static const int registered = sqlite3_vfs_register(&vfs, 0);
  *database = nullptr;
  if (registered != SQLITE_OK) return registered;
  t_opening = &pages;
  const int result = sqlite3_open_v2("model", database, flags, vfs.zName);
  t_opening = nullptr;
  return result;
}

std::uint32_t BigEndian(const char* at) {
  const auto byte = [&](int i) {
    return static_cast<std::uint32_t>(static_cast<unsigned char>(at[i]));
  };
  return byte(0) << 24 | byte(1) << 16 | byte(2) << 8 | byte(3);
}

/// What every database of ours says at the same place of its header.
bool IsMadeAsOurs(const char* head) {
  constexpr std::pair<int, int> kBytes[] = {{18, 1},  {19, 1},  {20, kPageReserve},
                                            {21, 64}, {22, 32}, {23, 32}};
  // Of its words: the form of the schema, no vacuum by steps, UTF-8.
  constexpr std::pair<int, std::uint32_t> kWords[] = {{44, 4}, {52, 0}, {56, 1}, {64, 0}};
  return std::all_of(std::begin(kBytes), std::end(kBytes),
                     [&](const auto& b) { return head[b.first] == b.second; }) &&
         std::all_of(std::begin(kWords), std::end(kWords),
                     [&](const auto& w) { return BigEndian(head + w.first) == w.second; });
}

}  // namespace

int OpenToRead(RawFile& file, const DatabaseHeader& header, sqlite3** database) {
  return OpenDatabase({&file, header.PageBytes(), header.page_size}, SQLITE_OPEN_READONLY,
                      database);
}

int OpenToWrite(RawFile& file, sqlite3** database) {
  return OpenDatabase({&file}, SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE, database);
}

Result<DatabaseHeader> ReadHeader(RawFile& file, const std::string& path,
                                  std::uint32_t application_id) {
  constexpr std::size_t kHeaderBytes = 100;
  DatabaseHeader header{};
  char head[kHeaderBytes] = {};
  int error = file.Size(header.file_size);
  if (!error && header.file_size == 0) return Failure{path, "", "is empty", kDamaged};
  if (!error) {
    error = file.Read(head, std::min<std::uint64_t>(kHeaderBytes, header.file_size), 0);
  }
  if (error) return Failure{path, "", "cannot be read: " + ErrorText(error), "check the disk"};
  if (header.file_size < kHeaderBytes || std::memcmp(head, "SQLite format 3", 16) != 0 ||
      BigEndian(head + 68) != application_id) {
    return Failure{path, "header", "is not a model file", "open it with the program that made it"};
  }
  const std::uint32_t raw_size = BigEndian(head + 14) & 0xFFFF;
  header.page_size = raw_size == 1 ? 65536 : raw_size;
  header.page_count = BigEndian(head + 28);
  header.format = BigEndian(head + 60);
  const bool possible = header.page_size >= 512 &&
                        (header.page_size & (header.page_size - 1)) == 0 && IsMadeAsOurs(head);
  if (!possible) return Failure{path, "header", "is damaged", kDamaged};
  if (header.file_size < header.PageBytes()) {
    const std::string size = std::to_string(header.file_size);
    return Failure{path, "byte " + size,
                   "is truncated: " + size + " of " + std::to_string(header.PageBytes()) + " bytes",
                   kDamaged};
  }
  return header;
}

Outcome CheckPages(RawFile& file, const std::string& path, const DatabaseHeader& header) {
  constexpr std::size_t kBlock = std::size_t{1} << 20;
  const std::size_t size = header.page_size;
  const std::uint64_t at_once = std::max<std::uint64_t>(1, kBlock / size);
  const std::uint64_t lock_page = LockByte() / size;
  std::vector<char> block(static_cast<std::size_t>(at_once) * size);
  LongWork work(header.page_count);
  for (std::uint64_t first = 0; first < header.page_count; first += at_once) {
    work.Step(first == 0 ? 0 : static_cast<std::size_t>(at_once));
    const std::uint64_t count = std::min<std::uint64_t>(at_once, header.page_count - first);
    if (const int error =
            file.Read(block.data(), static_cast<std::size_t>(count) * size, first * size)) {
      return Failure{path, "page " + std::to_string(first + 1),
                     "cannot be read: " + ErrorText(error), "check the disk"};
    }
    for (std::uint64_t i = 0; i < count; ++i) {
      const char* page = block.data() + static_cast<std::size_t>(i) * size;
      if (first + i == lock_page
              ? std::all_of(page, page + size, [](char byte) { return byte == 0; })
              : HasItsChecksum(page, size, first + i)) {
        continue;
      }
      return Failure{path, "page " + std::to_string(first + i + 1),
                     "is damaged: its checksum differs", kDamaged};
    }
  }
  return {};
}

}  // namespace qx
