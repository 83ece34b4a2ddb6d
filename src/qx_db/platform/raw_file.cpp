#include "qx_db/platform/raw_file.h"

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <system_error>

#include "qx_db/platform/file.h"

#ifdef _WIN32
#define WIN32_LEAN_AND_MEAN
#include <windows.h>
#else
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>
#endif

namespace qx {
namespace fs = std::filesystem;

namespace {

FileSystem* g_files = nullptr;

#ifdef _WIN32

int LastError() {
  return std::system_category().default_error_condition(static_cast<int>(GetLastError())).value();
}

class SystemFile final : public RawFile {
 public:
  explicit SystemFile(HANDLE handle) : handle_(handle) {}
  ~SystemFile() override { CloseHandle(handle_); }
  int Read(char* to, std::size_t size, std::uint64_t at) override {
    return Each(size, at, [&](std::size_t done, DWORD bytes, DWORD& moved, OVERLAPPED& place) {
      return ReadFile(handle_, to + done, bytes, &moved, &place);
    });
  }
  int Write(const char* from, std::size_t size, std::uint64_t at) override {
    return Each(size, at, [&](std::size_t done, DWORD bytes, DWORD& moved, OVERLAPPED& place) {
      return WriteFile(handle_, from + done, bytes, &moved, &place);
    });
  }
  int Resize(std::uint64_t size) override {
    FILE_END_OF_FILE_INFO info{};
    info.EndOfFile.QuadPart = static_cast<LONGLONG>(size);
    return SetFileInformationByHandle(handle_, FileEndOfFileInfo, &info, sizeof(info))
               ? 0
               : LastError();
  }
  int Sync() override { return FlushFileBuffers(handle_) ? 0 : LastError(); }
  int Size(std::uint64_t& size) override {
    LARGE_INTEGER found{};
    if (!GetFileSizeEx(handle_, &found)) return LastError();
    size = static_cast<std::uint64_t>(found.QuadPart);
    return 0;
  }
  int Id(FileId& id) override {
    BY_HANDLE_FILE_INFORMATION info{};
    if (!GetFileInformationByHandle(handle_, &info)) return LastError();
    id = {info.dwVolumeSerialNumber, std::uint64_t{info.nFileIndexHigh} << 32 | info.nFileIndexLow};
    return 0;
  }
  int Claim() override {
    OVERLAPPED place{};  // the last byte a file could have: nobody reads or writes there
    place.Offset = 0xFFFFFFFE;
    place.OffsetHigh = 0x7FFFFFFF;
    if (LockFileEx(handle_, LOCKFILE_EXCLUSIVE_LOCK | LOCKFILE_FAIL_IMMEDIATELY, 0, 1, 0, &place)) {
      return 0;
    }
    return GetLastError() == ERROR_LOCK_VIOLATION ? EWOULDBLOCK : ENOTSUP;
  }

 private:
  template <class Move>
  int Each(std::size_t size, std::uint64_t at, Move&& move) {
    for (std::size_t done = 0; done < size;) {
      OVERLAPPED place{};
      place.Offset = static_cast<DWORD>(at + done);
      place.OffsetHigh = static_cast<DWORD>((at + done) >> 32);
      const auto bytes = static_cast<DWORD>(std::min<std::size_t>(size - done, 1u << 30));
      DWORD moved = 0;
      if (!move(done, bytes, moved, place)) return LastError();
      if (moved == 0) return EIO;
      done += moved;
    }
    return 0;
  }
  HANDLE handle_;
};

#else

class SystemFile final : public RawFile {
 public:
  explicit SystemFile(int fd) : fd_(fd) {}
  ~SystemFile() override {
    if (claimed_) flock(fd_, LOCK_UN);  // also for a child that has inherited the handle
    close(fd_);
  }
  int Read(char* to, std::size_t size, std::uint64_t at) override {
    return Each(size, [&](std::size_t done) {
      return pread(fd_, to + done, size - done, static_cast<off_t>(at + done));
    });
  }
  int Write(const char* from, std::size_t size, std::uint64_t at) override {
    return Each(size, [&](std::size_t done) {
      return pwrite(fd_, from + done, size - done, static_cast<off_t>(at + done));
    });
  }
  int Resize(std::uint64_t size) override {
    return ftruncate(fd_, static_cast<off_t>(size)) == 0 ? 0 : errno;
  }
#ifdef __linux__
  int StartSync(std::uint64_t at, std::size_t size) override {
    const int done = sync_file_range(fd_, static_cast<off_t>(at), static_cast<off_t>(size),
                                     SYNC_FILE_RANGE_WRITE);
    // Where it is not to be had, Sync does all of it; only what the device says counts.
    const bool failed = done != 0 && (errno == EIO || errno == ENOSPC || errno == EDQUOT);
    return failed ? errno : 0;
  }
#endif
  int Sync() override {
#ifdef __linux__
    return fdatasync(fd_) == 0 ? 0 : errno;
#else
    return fsync(fd_) == 0 ? 0 : errno;
#endif
  }
  int Size(std::uint64_t& size) override {
    struct stat found {};
    if (fstat(fd_, &found) != 0) return errno;
    size = static_cast<std::uint64_t>(found.st_size);
    return 0;
  }
#if defined(SEEK_DATA) && defined(SEEK_HOLE)
  int NextData(std::uint64_t at, std::uint64_t& begin, std::uint64_t& end) override {
    const off_t data = lseek(fd_, static_cast<off_t>(at), SEEK_DATA);
    if (data < 0 && errno != ENXIO) return RawFile::NextData(at, begin, end);
    const off_t hole = data < 0 ? -1 : lseek(fd_, data, SEEK_HOLE);
    if (const int error = Size(end)) return error;
    begin = data < 0 ? end : std::min(end, static_cast<std::uint64_t>(data));
    if (hole >= 0) end = std::min(end, static_cast<std::uint64_t>(hole));
    return 0;
  }
#endif
  int Id(FileId& id) override {
    struct stat found {};
    if (fstat(fd_, &found) != 0) return errno;
    id = {static_cast<std::uint64_t>(found.st_dev), static_cast<std::uint64_t>(found.st_ino)};
    return 0;
  }
  int Claim() override {
    claimed_ = flock(fd_, LOCK_EX | LOCK_NB) == 0;
    return claimed_ ? 0 : errno == EWOULDBLOCK ? EWOULDBLOCK : ENOTSUP;
  }

 private:
  template <class Move>
  static int Each(std::size_t size, Move&& move) {
    for (std::size_t done = 0; done < size;) {
      const ssize_t moved = move(done);
      if (moved > 0) {
        done += static_cast<std::size_t>(moved);
      } else if (moved == 0 || errno != EINTR) {
        return moved == 0 ? EIO : errno;
      }
    }
    return 0;
  }
  int fd_;
  bool claimed_ = false;
};

#endif

}  // namespace

int RawFile::NextData(std::uint64_t at, std::uint64_t& begin, std::uint64_t& end) {
  const int error = Size(end);
  begin = std::min(at, end);
  return error;
}

std::uint64_t DataBytes(RawFile& file) {
  std::uint64_t bytes = 0, size = 0, begin = 0, end = 0;
  if (file.Size(size) != 0) return 0;
  for (std::uint64_t at = 0; at < size && file.NextData(at, begin, end) == 0; at = end) {
    if (begin >= end) break;
    bytes += end - begin;
  }
  return bytes;
}

namespace {

#ifdef _WIN32

int OpenAs(const std::string& path, DWORD access, DWORD disposition,
           std::unique_ptr<RawFile>& file) {
  HANDLE handle = CreateFileW(PathFromUtf8(path).c_str(), access,
                              FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr,
                              disposition, FILE_ATTRIBUTE_NORMAL, nullptr);
  if (handle == INVALID_HANDLE_VALUE) return LastError();
  file = std::make_unique<SystemFile>(handle);
  return 0;
}

#else

int OpenAs(const std::string& path, int flags, mode_t mode, std::unique_ptr<RawFile>& file) {
  const int fd = open(path.c_str(), flags | O_CLOEXEC, mode);
  if (fd < 0) return errno;
  try {
    file = std::make_unique<SystemFile>(fd);
  } catch (...) {
    close(fd);
    throw;
  }
  return 0;
}

#endif

}  // namespace

int FileSystem::Open(const std::string& path, bool writing, std::unique_ptr<RawFile>& file) {
#ifdef _WIN32
  return OpenAs(path, writing ? GENERIC_READ | GENERIC_WRITE : GENERIC_READ, OPEN_EXISTING, file);
#else
  return OpenAs(path, writing ? O_RDWR : O_RDONLY, 0, file);
#endif
}

int FileSystem::Create(const std::string& path, [[maybe_unused]] bool guarded,
                       std::unique_ptr<RawFile>& file) {
#ifdef _WIN32
  return OpenAs(path, GENERIC_READ | GENERIC_WRITE, CREATE_NEW, file);
#else
  return OpenAs(path, O_RDWR | O_CREAT | O_EXCL | O_NOFOLLOW, guarded ? 0600 : 0666, file);
#endif
}

int FileSystem::IdOf(const std::string& path, FileId& id) {
#ifdef _WIN32
  std::unique_ptr<RawFile> file;
  const int error = OpenAs(path, 0, OPEN_EXISTING, file);
  return error ? error : file->Id(id);
#else
  struct stat found {};
  if (stat(path.c_str(), &found) != 0) return errno;
  id = {static_cast<std::uint64_t>(found.st_dev), static_cast<std::uint64_t>(found.st_ino)};
  return 0;
#endif
}

int FileSystem::Rename(const std::string& from, const std::string& to) {
#ifdef _WIN32
  return MoveFileExW(PathFromUtf8(from).c_str(), PathFromUtf8(to).c_str(),
                     MOVEFILE_REPLACE_EXISTING | MOVEFILE_WRITE_THROUGH)
             ? 0
             : LastError();
#else
  std::error_code error;
  fs::rename(PathFromUtf8(from), PathFromUtf8(to), error);
  return error.value();
#endif
}

int FileSystem::Remove(const std::string& path) {
  std::error_code error;
  fs::remove(PathFromUtf8(path), error);
  return error.value();
}

int FileSystem::SyncFolderOf([[maybe_unused]] const std::string& path) {
#ifdef _WIN32
  return 0;  // a rename that writes through has done it
#else
  const fs::path parent = PathFromUtf8(path).parent_path();
  const int fd = open(parent.empty() ? "." : parent.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (fd < 0) return errno;
  const int error = fsync(fd) == 0 ? 0 : errno;
  close(fd);
  return error;
#endif
}

FileSystem& Files() {
  static FileSystem real;
  return g_files ? *g_files : real;
}

void SetFiles(FileSystem* files) { g_files = files; }

bool IsFull(int error) {
#ifdef EDQUOT
  if (error == EDQUOT) return true;
#endif
  return error == ENOSPC || error == EFBIG;
}

std::string ErrorText(int error) { return std::generic_category().message(error); }

}  // namespace qx
