#include "qx_db/core/checked_vfs.h"

#define XXH_INLINE_ALL
#include <algorithm>
#include <cstring>
#include <fstream>
#include <new>
#include <sqlite3.h>
#include <string>
#include <vector>
#include <xxhash.h>

#include "qx_db/platform/file.h"
#include "qx_db/record/types.h"

namespace qx {
namespace {

sqlite3_vfs* g_base = nullptr;

sqlite3_vfs* Base() { return g_base ? g_base : sqlite3_vfs_find(nullptr); }

/// Checksum of a page but for its own bytes. The page's number takes part, so that a page in
/// another's place is found out.
std::uint64_t PageChecksum(const char* page, std::size_t size, std::uint64_t number) {
  return XXH3_64bits_withSeed(page, size - kPageReserve, number);
}

/// An open file: our methods, then the base layer's file object.
struct CheckedFile {
  sqlite3_file methods;
  bool is_database;
  std::vector<char>* page;  // room to finish a page in; owned
  sqlite3_file* Inner() { return reinterpret_cast<sqlite3_file*>(this + 1); }
};

CheckedFile* Self(sqlite3_file* file) { return reinterpret_cast<CheckedFile*>(file); }

int Close(sqlite3_file* file) {
  CheckedFile* self = Self(file);
  delete self->page;
  self->page = nullptr;
  return self->Inner()->pMethods->xClose(self->Inner());
}

int Read(sqlite3_file* file, void* to, int size, sqlite3_int64 at) {
  sqlite3_file* inner = Self(file)->Inner();
  return inner->pMethods->xRead(inner, to, size, at);
}

int Write(sqlite3_file* file, const void* from, int size, sqlite3_int64 at) {
  CheckedFile* self = Self(file);
  sqlite3_file* inner = self->Inner();
  const bool whole_page = size >= 512 && (size & (size - 1)) == 0 && at % size == 0;
  if (!self->is_database || !whole_page) return inner->pMethods->xWrite(inner, from, size, at);
  std::vector<char>& page = *self->page;
  const auto bytes = static_cast<std::size_t>(size);
  try {
    page.assign(static_cast<const char*>(from), static_cast<const char*>(from) + bytes);
  } catch (const std::bad_alloc&) {  // nothing may be thrown through SQLite
    return SQLITE_IOERR_NOMEM;
  }
  StoreAt(page.data() + bytes - kPageReserve,
          PageChecksum(page.data(), bytes, static_cast<std::uint64_t>(at / size)));
  return inner->pMethods->xWrite(inner, page.data(), size, at);
}

int Truncate(sqlite3_file* file, sqlite3_int64 size) {
  sqlite3_file* inner = Self(file)->Inner();
  return inner->pMethods->xTruncate(inner, size);
}
int Sync(sqlite3_file* file, int flags) {
  sqlite3_file* inner = Self(file)->Inner();
  return inner->pMethods->xSync(inner, flags);
}
int FileSize(sqlite3_file* file, sqlite3_int64* size) {
  sqlite3_file* inner = Self(file)->Inner();
  return inner->pMethods->xFileSize(inner, size);
}
int Lock(sqlite3_file* file, int level) {
  sqlite3_file* inner = Self(file)->Inner();
  return inner->pMethods->xLock(inner, level);
}
int Unlock(sqlite3_file* file, int level) {
  sqlite3_file* inner = Self(file)->Inner();
  return inner->pMethods->xUnlock(inner, level);
}
int CheckReservedLock(sqlite3_file* file, int* result) {
  sqlite3_file* inner = Self(file)->Inner();
  return inner->pMethods->xCheckReservedLock(inner, result);
}
int FileControl(sqlite3_file* file, int op, void* argument) {
  sqlite3_file* inner = Self(file)->Inner();
  return inner->pMethods->xFileControl(inner, op, argument);
}
int SectorSize(sqlite3_file* file) {
  sqlite3_file* inner = Self(file)->Inner();
  return inner->pMethods->xSectorSize(inner);
}
int DeviceCharacteristics(sqlite3_file* file) {
  sqlite3_file* inner = Self(file)->Inner();
  return inner->pMethods->xDeviceCharacteristics(inner);
}

// Version 1: no shared memory and no memory mapping, so that every page passes through Write.
const sqlite3_io_methods kMethods = {1,
                                     Close,
                                     Read,
                                     Write,
                                     Truncate,
                                     Sync,
                                     FileSize,
                                     Lock,
                                     Unlock,
                                     CheckReservedLock,
                                     FileControl,
                                     SectorSize,
                                     DeviceCharacteristics,
                                     nullptr,
                                     nullptr,
                                     nullptr,
                                     nullptr,
                                     nullptr,
                                     nullptr};

int Open(sqlite3_vfs*, const char* name, sqlite3_file* file, int flags, int* out_flags) {
  auto* self = Self(file);
  sqlite3_vfs* base = Base();
  std::memset(static_cast<void*>(self), 0, sizeof(*self));
  const int result = base->xOpen(base, name, self->Inner(), flags, out_flags);
  if (result != SQLITE_OK) return result;
  self->is_database = (flags & SQLITE_OPEN_MAIN_DB) != 0;
  self->page = new (std::nothrow) std::vector<char>();
  if (!self->page) {
    self->Inner()->pMethods->xClose(self->Inner());
    return SQLITE_NOMEM;
  }
  self->methods.pMethods = &kMethods;
  return SQLITE_OK;
}

sqlite3_vfs MakeVfs() {
  sqlite3_vfs vfs = *sqlite3_vfs_find(nullptr);
  vfs.pNext = nullptr;
  vfs.zName = "qx-checked";
  vfs.xOpen = Open;
  // Every other operation of the layer goes to the base through a call without state of its own.
  vfs.xDelete = [](sqlite3_vfs*, const char* name, int sync) {
    return Base()->xDelete(Base(), name, sync);
  };
  vfs.xAccess = [](sqlite3_vfs*, const char* name, int flags, int* result) {
    return Base()->xAccess(Base(), name, flags, result);
  };
  vfs.xFullPathname = [](sqlite3_vfs*, const char* name, int size, char* out) {
    return Base()->xFullPathname(Base(), name, size, out);
  };
  return vfs;
}

std::uint32_t BigEndian(const char* at) {
  const auto byte = [&](int i) {
    return static_cast<std::uint32_t>(static_cast<unsigned char>(at[i]));
  };
  return byte(0) << 24 | byte(1) << 16 | byte(2) << 8 | byte(3);
}

}  // namespace

void SetBaseVfs(sqlite3_vfs* base) {
  CheckedVfs();
  g_base = base;
}

const char* CheckedVfs() {
  static sqlite3_vfs vfs = [] {
    sqlite3_initialize();
    return MakeVfs();
  }();
  static const int registered = [] {
    vfs.szOsFile = static_cast<int>(sizeof(CheckedFile)) + 1024;  // room for any base's object
    return sqlite3_vfs_register(&vfs, 0);
  }();
  return registered == SQLITE_OK ? vfs.zName : nullptr;
}

Result<DatabaseHeader> CheckPages(const std::string& path, std::uint32_t application_id) {
  constexpr const char* kForeign = "open it with the program that made it";
  constexpr const char* kDamaged = "restore it from a backup";
  if (Outcome is_file = CheckIsFile(path); !is_file) return is_file.Error();
  std::ifstream in(PathFromUtf8(path), std::ios::binary);
  if (!in) return Failure{path, "", "cannot be opened", "check permissions"};
  char head[100] = {};
  in.read(head, sizeof(head));
  const std::streamsize got = in.gcount();
  if (got == 0) return Failure{path, "", "is empty", kDamaged};
  if (got < static_cast<std::streamsize>(sizeof(head)) ||
      std::memcmp(head, "SQLite format 3", 16) != 0 || BigEndian(head + 68) != application_id) {
    return Failure{path, "header", "is not a model file", kForeign};
  }
  DatabaseHeader header{};
  const auto raw_size = static_cast<std::uint32_t>(static_cast<unsigned char>(head[16])) << 8 |
                        static_cast<unsigned char>(head[17]);
  header.page_size = raw_size == 1 ? 65536 : raw_size;
  header.page_count = BigEndian(head + 28);
  header.application_id = BigEndian(head + 68);
  header.format = BigEndian(head + 60);
  const bool possible = header.page_size >= 512 &&
                        (header.page_size & (header.page_size - 1)) == 0 &&
                        head[20] == kPageReserve;
  if (!possible) return Failure{path, "header", "is damaged", kDamaged};
  in.seekg(0, std::ios::end);
  const auto size = static_cast<std::uint64_t>(in.tellg());
  header.file_size = size;
  if (size < header.PageBytes()) {
    return Failure{path, "byte " + std::to_string(size),
                   "is truncated: " + std::to_string(size) + " of " +
                       std::to_string(header.PageBytes()) + " bytes",
                   kDamaged};
  }
  in.seekg(0);
  constexpr std::size_t kBlock = std::size_t{1} << 20;
  std::vector<char> block(std::max<std::size_t>(kBlock, header.page_size));
  for (std::uint64_t page = 0; page < header.page_count;) {
    in.read(block.data(), static_cast<std::streamsize>(block.size()));
    const auto bytes = static_cast<std::size_t>(in.gcount());
    for (std::size_t at = 0; at + header.page_size <= bytes && page < header.page_count;
         at += header.page_size, ++page) {
      const char* bytes_of_page = block.data() + at;
      if (LoadAt<std::uint64_t>(bytes_of_page + header.page_size - kPageReserve) !=
          PageChecksum(bytes_of_page, header.page_size, page)) {
        return Failure{path, "page " + std::to_string(page + 1), "is damaged: its checksum differs",
                       kDamaged};
      }
    }
    if (bytes == 0)
      return Failure{path, "page " + std::to_string(page + 1), "cannot be read", "check the disk"};
  }
  return header;
}

}  // namespace qx
