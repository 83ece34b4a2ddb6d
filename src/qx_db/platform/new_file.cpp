#include "qx_db/platform/new_file.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <filesystem>
#include <memory>
#include <random>
#include <string_view>
#include <system_error>
#include <vector>

#ifndef _WIN32
#include <dirent.h>
#include <sys/stat.h>
#include <unistd.h>
#endif

#include "qx_db/platform/file.h"

namespace qx {
namespace fs = std::filesystem;

namespace {

constexpr std::string_view kEnding = ".new";
constexpr std::size_t kDigits = 16;
/// Of a longer name only so many bytes are in the name on the way, since 255 is the most there is.
constexpr std::size_t kLongestStem = 255 - 1 - kDigits - kEnding.size();

/// The length of the last part of a path.
std::size_t NameSize(const std::string& path) {
  return Utf8FromPath(PathFromUtf8(path).filename()).size();
}

/// Whether a file's name is one that this library gives to a file on its way to the name `target`,
/// or to such a name in turn; or, as versions before did, "<target>.<process>-<number>.new".
bool IsOnItsWayTo(std::string_view name, std::string_view target) {
  target = target.substr(0, kLongestStem);
  if (name.size() <= target.size() + kEnding.size() + 1 || !name.starts_with(target) ||
      !name.ends_with(kEnding) || name[target.size()] != '.') {
    return false;
  }
  name.remove_prefix(target.size() + 1);
  name.remove_suffix(kEnding.size());
  const auto all = [](std::string_view text, std::string_view of) {
    return !text.empty() && text.find_first_not_of(of) == std::string_view::npos;
  };
  const std::size_t dash = name.find('-');
  if (dash != std::string_view::npos) {
    return all(name.substr(0, dash), "0123456789") && all(name.substr(dash + 1), "0123456789");
  }
  while (name.size() > kDigits && name.substr(kDigits).starts_with(std::string(kEnding) + ".")) {
    if (!all(name.substr(0, kDigits), "0123456789abcdef")) return false;
    name.remove_prefix(kDigits + kEnding.size() + 1);
  }
  return name.size() == kDigits && all(name, "0123456789abcdef");
}

/// Whether a name still is that of an open file.
bool Names(const std::string& name, RawFile& file) {
  FileId named, ours;
  return Files().IdOf(name, named) == 0 && file.Id(ours) == 0 && named == ours;
}

/// Where the file system knows no claims, nobody can be asked whether he still writes: a file that
/// was not written to for a day is taken for a leftover. Whoever should be at it after all is
/// refused the place, and told to repeat it.
bool IsAbandoned(const std::string& path) {
  std::error_code error;
  const auto written = fs::last_write_time(PathFromUtf8(path), error);
  return !error && written + std::chrono::hours(24) < fs::file_time_type::clock::now();
}

/// Calls `take` with each name in a folder, "" for the present one; with none where it cannot be
/// read.
template <class Take>
void ForEachName(const std::string& folder, Take&& take) {
#ifdef _WIN32
  std::error_code error;
  const fs::path listed = folder.empty() ? fs::path(".") : PathFromUtf8(folder);
  for (fs::directory_iterator entry(listed, error), end; !error && entry != end;
       entry.increment(error)) {
    take(Utf8FromPath(entry->path().filename()));
  }
#else
  // Not the standard's iterator, of which some end the process where memory runs out.
  const std::unique_ptr<DIR, int (*)(DIR*)> listed(opendir(folder.empty() ? "." : folder.c_str()),
                                                   closedir);
  while (const dirent* entry = listed ? readdir(listed.get()) : nullptr) take(entry->d_name);
#endif
}

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

NewFile::NewFile(std::string target, std::string name, std::unique_ptr<RawFile> file)
    : target_(std::move(target)), name_(std::move(name)), file_(std::move(file)) {}

NewFile::~NewFile() {
  if (!has_place_) Files().Remove(name_);
}

std::string NewFile::RandomName(const std::string& target) {
  static constexpr char kHex[] = "0123456789abcdef";
  std::random_device random;
  std::string digits;
  for (std::size_t i = 0; i < kDigits; ++i) digits += kHex[random() % 16];
  const std::size_t name = NameSize(target);
  const std::size_t stem = target.size() - name + std::min(name, kLongestStem);
  return target.substr(0, stem) + "." + digits + std::string(kEnding);
}

Result<std::unique_ptr<NewFile>> NewFile::Create(const std::string& path) {
  std::error_code ignored;
  if (fs::is_directory(PathFromUtf8(path), ignored)) {
    return Failure{path, "", "is a directory", "name a file in it"};
  }
  if (Outcome leads = CheckLink(path); !leads) return leads.Error();
  RemoveLeftovers(path);
  std::string target = LinkTarget(path);
  std::unique_ptr<RawFile> file;
  std::string name;
  // The name on the way may be short enough where the target's is not.
  FileId old;
  const int looked = Files().IdOf(target, old);
  int error = looked == ENAMETOOLONG ? looked : EEXIST;
  for (int tries = 0; error == EEXIST && tries < 8; ++tries) {
    name = RandomName(target);
    error = Files().Create(name, looked == 0, file);
    if (error) continue;
    // Before it was claimed, another process may have taken it for a leftover.
    if (file->Claim() == EWOULDBLOCK || !Names(name, *file)) error = EEXIST;
  }
  if (error) {
    const bool full = IsFull(error);
    return Failure{path, "", "cannot be created: " + ErrorText(error),
                   full                    ? "free some disk space"
                   : error == ENAMETOOLONG ? "give it a shorter name"
                                           : "check the folder and its permissions"};
  }
  return std::unique_ptr<NewFile>(new NewFile(std::move(target), std::move(name), std::move(file)));
}

/// Opens and claims the file that has the name, where it is not the one that was made.
int NewFile::Follow() {
  if (Names(name_, *file_)) return 0;
  std::unique_ptr<RawFile> other;
  if (const int error = Files().Open(name_, true, other)) return error;
  if (other->Claim() == EWOULDBLOCK || !Names(name_, *other)) return ENOENT;
  file_ = std::move(other);
  return 0;
}

Outcome NewFile::TakePlace() {
  const auto fails = [&](const char* what, int error, const char* remedy) {
    return Failure{target_, "", what + (": " + ErrorText(error)), remedy};
  };
  if (const int error = Follow()) return fails("cannot be replaced", error, "repeat it");
  if (const int error = TakeOverPermissions(name_, target_)) {
    return fails("may not be replaced", error,
                 "change its permissions, or save under another name");
  }
  if (const int error = file_->Sync())
    return fails("cannot be made durable", error, "check the disk");
  if (const int error = Files().Rename(name_, target_)) {
    return fails("cannot be replaced", error, "check permissions");
  }
  has_place_ = true;
  if (const int error = Files().SyncFolderOf(target_)) {
    return fails("is written, but that cannot be made durable", error, "check the disk");
  }
  return {};
}

void NewFile::RemoveLeftovers(const std::string& path) {
  const std::string target = LinkTarget(path);
  const std::size_t folder = target.size() - NameSize(target);
  std::vector<std::string> found;
  ForEachName(target.substr(0, folder), [&](std::string_view file) {
    if (IsOnItsWayTo(file, std::string_view(target).substr(folder))) {
      found.push_back(target.substr(0, folder) + std::string(file));
    }
  });
  for (const std::string& leftover : found) {
    std::error_code unknown;
    if (!fs::is_regular_file(fs::symlink_status(PathFromUtf8(leftover), unknown))) continue;
    std::unique_ptr<RawFile> file;
    if (Files().Open(leftover, true, file) != 0) continue;
    const int claimed = file->Claim();
    if (claimed == 0 || (claimed != EWOULDBLOCK && IsAbandoned(leftover))) Files().Remove(leftover);
  }
}

}  // namespace qx
