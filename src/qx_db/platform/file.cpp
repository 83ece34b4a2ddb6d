#include "qx_db/platform/file.h"

#include <atomic>
#include <cerrno>
#include <cstring>
#include <fstream>
#include <system_error>

#ifdef _WIN32
#define WIN32_LEAN_AND_MEAN
#include <windows.h>
#else
#include <sys/stat.h>
#include <unistd.h>
#endif

#include "qx_db/platform/raw_file.h"

namespace qx {
namespace fs = std::filesystem;

namespace {

std::string Reason(int error) { return std::generic_category().message(error); }

}  // namespace

fs::path PathFromUtf8(std::string_view path) {
  return fs::path(std::u8string(path.begin(), path.end()));
}

std::string Utf8FromPath(const fs::path& path) {
  const std::u8string text = path.u8string();
  return std::string(text.begin(), text.end());
}

Outcome CheckIsFile(const std::string& path) {
  std::error_code error;
  const fs::file_status status = fs::status(PathFromUtf8(path), error);
  if (status.type() == fs::file_type::not_found) {
    return Failure{path, "", "no such file", "check the path"};
  }
  if (error) return Failure{path, "", "cannot be read: " + error.message(), "check permissions"};
  if (status.type() == fs::file_type::directory) {
    return Failure{path, "", "is a directory", "name a file in it"};
  }
  // What is read from a pipe or a device may never end, and is gone after one look at how it
  // begins.
  if (!fs::is_regular_file(status)) {
    return Failure{path, "", "is a pipe or a device, not a file",
                   "store what it gives in a file, and name that"};
  }
  return {};
}

Result<std::string> ReadWholeFile(const std::string& path) {
  if (Outcome is_file = CheckIsFile(path); !is_file) return is_file.Error();
  std::ifstream in(PathFromUtf8(path), std::ios::binary);
  if (!in) return Failure{path, "", "cannot be opened: " + Reason(errno), "check permissions"};
  std::string bytes;
  std::error_code error;
  const auto size = fs::file_size(PathFromUtf8(path), error);
  if (!error) {
    bytes.resize(size);
    in.read(bytes.data(), static_cast<std::streamsize>(size));
    bytes.resize(static_cast<std::size_t>(in.gcount()));
  }
  if (error || in.bad())
    return Failure{path, "", "cannot be read: " + Reason(errno), "check the disk"};
  return bytes;
}

std::string LinkTarget(const std::string& path) {
  fs::path at = PathFromUtf8(path);
  std::error_code error;
  constexpr int kMostLinks = 40;  // as many as the system follows
  for (int i = 0; i < kMostLinks && fs::is_symlink(at, error); ++i) {
    const fs::path target = fs::read_symlink(at, error);
    if (error) break;
    at = at.parent_path() / target;  // an absolute target replaces the whole
  }
  return Utf8FromPath(at);
}

bool IsSamePlace(const std::string& a, const std::string& b) {
  std::error_code error_a, error_b;
  const fs::path place_a = fs::weakly_canonical(PathFromUtf8(a), error_a);
  const fs::path place_b = fs::weakly_canonical(PathFromUtf8(b), error_b);
  return a == b || (!error_a && !error_b && place_a == place_b);
}

std::int64_t FileIdentity([[maybe_unused]] const std::string& path) {
#ifdef _WIN32
  return 0;
#else
  struct stat found {};
  return stat(path.c_str(), &found) == 0 ? static_cast<std::int64_t>(found.st_ino) : 0;
#endif
}

std::string SiblingName(const std::string& path) {
  static std::atomic<unsigned> serial{0};
#ifdef _WIN32
  const unsigned long process = GetCurrentProcessId();
#else
  const auto process = getpid();
#endif
  return path + "." + std::to_string(process) + "-" + std::to_string(++serial) + ".new";
}

namespace {

/// Gives a file that is to replace another its owner and permissions; an error where the other
/// may not be written.
int TakeOverPermissions([[maybe_unused]] const std::string& from,
                        [[maybe_unused]] const std::string& to) {
#ifndef _WIN32
  struct stat old {};
  if (stat(to.c_str(), &old) != 0) return 0;  // there is none
  if (access(to.c_str(), W_OK) != 0) return errno;
  // Only an administrator can give a file away; who is not keeps it.
  if ([[maybe_unused]] const int given = chown(from.c_str(), old.st_uid, old.st_gid); given != 0) {
    errno = 0;
  }
  if (chmod(from.c_str(), old.st_mode & 0777) != 0) return errno;
#endif
  return 0;
}

}  // namespace

Outcome ReplaceFileDurably(const std::string& from, const std::string& name) {
  const std::string to = LinkTarget(name);
  std::unique_ptr<RawFile> file;
  int error = TakeOverPermissions(from, to);
  if (error) {
    return Failure{to, "", "may not be replaced: " + Reason(error),
                   "change its permissions, or save under another name"};
  }
  error = Files().Open(from, true, file);
  if (error == 0) error = file->Sync();
  file.reset();
  if (error) {
    return Failure{to, "", "cannot be made durable: " + Reason(error), "check the disk"};
  }
  if ((error = Files().Rename(from, to)) != 0) {
    return Failure{to, "", "cannot be replaced: " + Reason(error), "check permissions"};
  }
  if ((error = Files().SyncFolderOf(to)) != 0) {
    return Failure{to, "", "cannot be made durable: " + Reason(error), "check the disk"};
  }
  return {};
}

Outcome WriteWholeFile(const std::string& path, std::string_view bytes) {
  return WriteFileBy(path, [&](std::ostream& out) {
    out.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
  });
}

Outcome WriteFileBy(const std::string& path, const std::function<void(std::ostream&)>& write) {
  const std::string sibling = SiblingName(LinkTarget(path));
  const auto failed = [&](const char* what, const char* remedy) {
    const std::string reason = Reason(errno);
    std::error_code ignored;
    fs::remove(PathFromUtf8(sibling), ignored);
    return Failure{path, "", std::string(what) + ": " + reason, remedy};
  };
  std::error_code error;
  const fs::file_status status = fs::status(PathFromUtf8(path), error);
  if (fs::exists(status) && !fs::is_regular_file(status) && !fs::is_directory(status)) {
    return Failure{path, "", "is not a file, and would be replaced by one", "name a file"};
  }
  std::ofstream out(PathFromUtf8(sibling), std::ios::binary | std::ios::trunc);
  if (!out) return failed("cannot be created", "check the folder and its permissions");
  write(out);
  out.close();
  if (!out) return failed("cannot be written", "free some disk space");
  Outcome replaced = ReplaceFileDurably(sibling, path);
  if (!replaced) {
    std::error_code ignored;
    fs::remove(PathFromUtf8(sibling), ignored);
  }
  return replaced;
}

}  // namespace qx
