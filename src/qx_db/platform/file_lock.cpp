#include "qx_db/platform/file_lock.h"

#include <cerrno>
#include <utility>

#include "qx_db/platform/file.h"
#include "qx_db/platform/new_file.h"

#ifdef _WIN32
#define WIN32_LEAN_AND_MEAN
#include <windows.h>
#else
#include <fcntl.h>
#include <signal.h>
#include <stdio.h>
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
  const auto open = [&](DWORD disposition, DWORD flags) {
    return CreateFileW(PathFromUtf8(path).c_str(), GENERIC_READ | GENERIC_WRITE | DELETE,
                       FILE_SHARE_READ | FILE_SHARE_DELETE, nullptr, disposition, flags, nullptr);
  };
  // What is made here the system removes with its last handle, so that it never grows stale. What
  // was there already may be another's.
  HANDLE file = open(CREATE_NEW, FILE_FLAG_DELETE_ON_CLOSE);
  const bool is_new = file != INVALID_HANDLE_VALUE;
  if (!is_new && GetLastError() == ERROR_FILE_EXISTS) file = open(OPEN_EXISTING, 0);
  char found[256];
  DWORD bytes = 0;
  if (file == INVALID_HANDLE_VALUE) {
    error = EACCES;
    if (GetLastError() != ERROR_SHARING_VIOLATION) return Result::kFailed;
    HANDLE reader = CreateFileW(PathFromUtf8(path).c_str(), GENERIC_READ,
                                FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr,
                                OPEN_EXISTING, 0, nullptr);
    if (reader != INVALID_HANDLE_VALUE && ReadFile(reader, found, sizeof(found), &bytes, nullptr)) {
      former.assign(found, bytes);
    }
    if (reader != INVALID_HANDLE_VALUE) CloseHandle(reader);
    return Result::kHeld;
  }
  lock.reset(new FileLock(path, std::unique_ptr<Handle>(new Handle{file})));
  lock->is_new_ = is_new;
  const bool done =
      is_new ? WriteFile(file, text.data(), static_cast<DWORD>(text.size()), &bytes, nullptr)
             : ReadFile(file, found, sizeof(found), &bytes, nullptr);
  former.assign(found, is_new || !done ? 0 : bytes);
  error = done ? 0 : EIO;
  if (done) return Result::kTaken;
  lock->LeaveFile();
  lock.reset();
  return Result::kFailed;
}

FileLock::~FileLock() {
  if (is_new_) return;
  FILE_DISPOSITION_INFO info{};
  info.DeleteFile = !leave_file_;
  SetFileInformationByHandle(handle_->file, FileDispositionInfo, &info, sizeof(info));
}

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

int WriteText(int fd, const std::string& text) {
  const ssize_t written = pwrite(fd, text.data(), text.size(), 0);
  return written == static_cast<ssize_t>(text.size()) ? 0 : written < 0 ? errno : ENOSPC;
}

int LockNow(int fd) { return flock(fd, LOCK_EX | LOCK_NB) == 0 ? 0 : errno; }

/// Whether a name is that of an open file itself, not of a link to it.
bool IsNameOf(const std::string& path, int fd) {
  struct stat ours {};
  struct stat named {};
  return fstat(fd, &ours) == 0 && lstat(path.c_str(), &named) == 0 && ours.st_ino == named.st_ino &&
         ours.st_dev == named.st_dev;
}

/// How often and how long one waits for a lock that is being made in place to have its text.
constexpr int kLooks = 50;
constexpr useconds_t kBetweenLooks = 2000;

/// Gives a file a second name, or, where the file system knows no such, another one; EEXIST where
/// that is taken, ENOTSUP where neither can be done.
int GiveName(const std::string& file, const std::string& name) {
  if (link(file.c_str(), name.c_str()) == 0) return 0;
  int error = errno;
  if (error == EEXIST || error == ENOENT) return error;
#ifdef RENAME_NOREPLACE
  if (renameat2(AT_FDCWD, file.c_str(), AT_FDCWD, name.c_str(), RENAME_NOREPLACE) == 0) return 0;
  error = errno;
  if (error == EEXIST || error == ENOENT) return error;
#endif
  return ENOTSUP;
}

/// The same under its own name from the start, for file systems that can do nothing else: a kill
/// at the wrong moment leaves a lock without a text there, which has to be removed by hand.
int MakeInPlace(const std::string& path, const std::string& text, int& fd) {
  fd = open(path.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC | O_NOFOLLOW, 0666);
  if (fd < 0) return errno;
  int error = LockNow(fd);
  for (int look = 0; error == EWOULDBLOCK && look < kLooks; ++look) {
    usleep(kBetweenLooks);  // another process looks whether there is a text
    error = LockNow(fd);
  }
  if (error == EWOULDBLOCK) error = EEXIST;
  if (!error) error = WriteText(fd, text);
  if (error) close(std::exchange(fd, -1));
  return error;
}

/// Makes the file, locked and with its text, where none is (EEXIST). It is given its name last, so
/// that no kill leaves one behind that says nothing; what a kill leaves goes here, too.
int MakeLocked(const std::string& path, const std::string& text, int& fd) {
  NewFile::RemoveLeftovers(path);
  const std::string name = NewFile::RandomName(path);
  fd = open(name.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC | O_NOFOLLOW, 0666);
  if (fd < 0) return errno;
  int error = LockNow(fd);
  if (!error) error = WriteText(fd, text);
  if (!error) error = GiveName(name, path);
  // Before it was locked, another process may have taken it for a leftover.
  if (error == EWOULDBLOCK || error == ENOENT) error = EEXIST;
  unlink(name.c_str());
  if (error) close(std::exchange(fd, -1));
  return error == ENOTSUP ? MakeInPlace(path, text, fd) : error;
}

}  // namespace

FileLock::Result FileLock::Take(const std::string& path, const std::string& text,
                                std::unique_ptr<FileLock>& lock, std::string& former, int& error) {
  for (int look = 0;;) {
    auto handle = std::make_unique<Handle>();
    // Not through a link, which could make us write over what it leads to.
    handle->fd = open(path.c_str(), O_RDWR | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK);
    error = handle->fd < 0 ? errno : 0;
    const bool is_new = error == ENOENT;
    if (is_new) error = MakeLocked(path, text, handle->fd);
    if (is_new && error == EEXIST) continue;  // made in between
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
    if (!is_new && got == 0 && look++ < kLooks) {  // it may have been made just now
      handle.reset();
      usleep(kBetweenLooks);
      continue;
    }
    // The holder before us may have removed the file between our opening and our taking it.
    if (IsNameOf(path, handle->fd)) {
      lock.reset(new FileLock(path, std::move(handle)));
      lock->is_new_ = is_new;
      return Result::kTaken;
    }
  }
}

FileLock::~FileLock() {
  if (!leave_file_ && IsNameOf(path_, handle_->fd)) unlink(path_.c_str());
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
