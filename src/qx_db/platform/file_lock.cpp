#include "qx_db/platform/file_lock.h"

#include <cerrno>
#include <utility>

#include "qx_db/platform/file.h"

#ifdef _WIN32
#define WIN32_LEAN_AND_MEAN
#include <windows.h>
#else
#include <fcntl.h>
#include <signal.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>
#endif

namespace qx {

#ifdef _WIN32

struct FileLock::Handle {
  HANDLE file;
  ~Handle() { CloseHandle(file); }
};

FileLock::Result FileLock::Take(const std::string& path, const std::string& text,
                                std::unique_ptr<FileLock>& lock, std::string& former, int& error) {
  // The file is removed by the system with its last handle, so that one never grows stale here.
  HANDLE file = CreateFileW(PathFromUtf8(path).c_str(), GENERIC_READ | GENERIC_WRITE | DELETE,
                            FILE_SHARE_READ | FILE_SHARE_DELETE, nullptr, OPEN_ALWAYS,
                            FILE_FLAG_DELETE_ON_CLOSE, nullptr);
  const bool is_new = GetLastError() != ERROR_ALREADY_EXISTS;
  if (file == INVALID_HANDLE_VALUE) {
    error = EACCES;
    if (GetLastError() != ERROR_SHARING_VIOLATION) return Result::kFailed;
    HANDLE reader = CreateFileW(PathFromUtf8(path).c_str(), GENERIC_READ,
                                FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr,
                                OPEN_EXISTING, 0, nullptr);
    char found[256];
    DWORD got = 0;
    if (reader != INVALID_HANDLE_VALUE && ReadFile(reader, found, sizeof(found), &got, nullptr)) {
      former.assign(found, got);
    }
    if (reader != INVALID_HANDLE_VALUE) CloseHandle(reader);
    return Result::kHeld;
  }
  lock.reset(new FileLock(path, std::unique_ptr<Handle>(new Handle{file})));
  lock->is_new_ = is_new;
  DWORD written = 0;
  error =
      !is_new || WriteFile(file, text.data(), static_cast<DWORD>(text.size()), &written, nullptr)
          ? 0
          : EIO;
  return error ? Result::kFailed : Result::kTaken;
}

FileLock::~FileLock() = default;

std::string HostName() {
  char name[256];
  DWORD size = sizeof(name);
  return GetComputerNameA(name, &size) ? std::string(name, size) : "unknown";
}

std::int64_t ProcessId() { return static_cast<std::int64_t>(GetCurrentProcessId()); }

bool IsProcessAlive(std::int64_t process) {
  HANDLE found = OpenProcess(SYNCHRONIZE, FALSE, static_cast<DWORD>(process));
  if (!found) return false;
  const bool alive = WaitForSingleObject(found, 0) == WAIT_TIMEOUT;
  CloseHandle(found);
  return alive;
}

#else

struct FileLock::Handle {
  int fd = -1;
  ~Handle() {
    if (fd >= 0) close(fd);
  }
};

namespace {

std::string FolderOf(const std::string& path) {
  const std::size_t end = path.rfind('/');
  return end == path.npos ? "." : path.substr(0, end + 1);
}

int WriteText(int fd, const std::string& text) {
  const ssize_t written = pwrite(fd, text.data(), text.size(), 0);
  return written == static_cast<ssize_t>(text.size()) ? 0 : written < 0 ? errno : ENOSPC;
}

int LockNow(int fd) { return flock(fd, LOCK_EX | LOCK_NB) == 0 ? 0 : errno; }

/// Makes the file, locked and with its text, where none is (EEXIST).
int MakeLocked(const std::string& path, const std::string& text, int& fd) {
#ifdef O_TMPFILE
  // Written before it has a name, so that no kill leaves one behind that says nothing.
  fd = open(FolderOf(path).c_str(), O_TMPFILE | O_RDWR | O_CLOEXEC, 0666);
  if (fd >= 0 && WriteText(fd, text) == 0 && LockNow(fd) == 0) {
    const std::string unnamed = "/proc/self/fd/" + std::to_string(fd);
    const int flag = AT_SYMLINK_FOLLOW;
    if (linkat(AT_FDCWD, unnamed.c_str(), AT_FDCWD, path.c_str(), flag) == 0) return 0;
  }
  if (fd >= 0) close(fd);
#endif
  fd = open(path.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC | O_NOFOLLOW, 0666);
  if (fd < 0) return errno;
  int error = LockNow(fd);
  if (error == EWOULDBLOCK) {  // somebody has seen it first
    close(std::exchange(fd, -1));
    return EEXIST;
  }
  if (!error) error = WriteText(fd, text);
  if (error) unlink(path.c_str());
  return error;
}

}  // namespace

FileLock::Result FileLock::Take(const std::string& path, const std::string& text,
                                std::unique_ptr<FileLock>& lock, std::string& former, int& error) {
  for (;;) {
    auto handle = std::make_unique<Handle>();
    error = MakeLocked(path, text, handle->fd);
    const bool is_new = error == 0;
    if (error == EEXIST) {
      // Not through a link, which could make us write over what it leads to.
      handle->fd = open(path.c_str(), O_RDWR | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK);
      error = handle->fd < 0 ? errno : 0;
      if (error == ENOENT) continue;  // gone in between
    }
    struct stat found {};
    if (!error && fstat(handle->fd, &found) != 0) error = errno;
    if (!error && !S_ISREG(found.st_mode)) error = EINVAL;
    if (error) return Result::kFailed;
    const bool taken = is_new || flock(handle->fd, LOCK_EX | LOCK_NB) == 0;
    const int refused = taken ? 0 : errno;
    char held[256];
    const ssize_t got = is_new ? 0 : pread(handle->fd, held, sizeof(held), 0);
    former.assign(held, got > 0 ? static_cast<std::size_t>(got) : 0);
    if (!taken) {
      error = refused;
      return refused == EWOULDBLOCK ? Result::kHeld : Result::kFailed;
    }
    // The holder before us may have removed the file between our opening and our taking it.
    struct stat ours {};
    struct stat named {};
    if (fstat(handle->fd, &ours) == 0 && stat(path.c_str(), &named) == 0 &&
        ours.st_ino == named.st_ino && ours.st_dev == named.st_dev) {
      lock.reset(new FileLock(path, std::move(handle)));
      lock->is_new_ = is_new;
      return Result::kTaken;
    }
  }
}

FileLock::~FileLock() {
  if (!leave_file_) unlink(path_.c_str());
  flock(handle_->fd, LOCK_UN);  // also for a child that has inherited the handle
}

std::string HostName() {
  char name[256] = {};
  return gethostname(name, sizeof(name) - 1) == 0 ? name : "unknown";
}

std::int64_t ProcessId() { return getpid(); }

bool IsProcessAlive(std::int64_t process) {
  return process > 0 && (kill(static_cast<pid_t>(process), 0) == 0 || errno == EPERM);
}

#endif

FileLock::FileLock(std::string path, std::unique_ptr<Handle> handle)
    : path_(std::move(path)), handle_(std::move(handle)) {}

}  // namespace qx
