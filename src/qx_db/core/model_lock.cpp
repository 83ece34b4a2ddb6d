#include "qx_db/core/model_lock.h"

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <filesystem>
#include <string_view>

#include "qx_db/platform/file.h"
#include "qx_db/platform/new_file.h"
#include "qx_db/platform/raw_file.h"

namespace qx {
namespace {

/// The lock file's text is "host\nprocess\n". What is not of this form tells nothing, and is not
/// shown.
struct Holder {
  std::string host;
  std::int64_t process = 0;

  explicit Holder(const std::string& text) {
    const std::size_t end = text.find('\n');
    if (end == std::string::npos || end == 0) return;
    const bool printable = std::all_of(text.begin(), text.begin() + static_cast<long>(end),
                                       [](unsigned char c) { return c > ' ' && c < 127; });
    const char* digits = text.data() + end + 1;
    const auto [stop, fault] = std::from_chars(digits, text.data() + text.size(), process);
    const bool whole =
        fault == std::errc() && std::string_view(stop, text.data() + text.size()) == "\n";
    if (printable && whole && process > 0) host = text.substr(0, end);
  }
  std::string Text() const {
    return host.empty() ? "an unknown process" : host + ", process " + std::to_string(process);
  }
};

std::string LockPath(const std::string& model) { return LinkTarget(model) + ".lock"; }

/// Whether the file itself is claimed by who opened it under another name, or lost its lock file.
bool IsClaimed(const std::string& model) {
  std::unique_ptr<RawFile> file;
  return Files().Open(model, false, file) == 0 && file->Claim() == EWOULDBLOCK;
}

}  // namespace

std::string ModelLock::Writer(const std::string& model) {
  const std::string path = LockPath(model);
  std::error_code error;
  if (!std::filesystem::is_regular_file(PathFromUtf8(path), error)) return {};
  const auto text = ReadWholeFile(path);
  const Holder holder(text ? *text : "");
  const bool ended =
      holder.host.empty() || (holder.host == HostName() && !IsProcessAlive(holder.process));
  return ended ? "" : holder.Text();
}

Result<std::unique_ptr<ModelLock>> ModelLock::Take(const std::string& model) {
  if (Outcome leads = CheckLink(model); !leads) return leads.Error();
  const std::string path = LockPath(model);
  const std::string ours = HostName() + "\n" + std::to_string(ProcessId()) + "\n";
  auto taken = std::make_unique<ModelLock>();
  for (;;) {
    std::string text;
    int error = 0;
    const FileLock::Result result = FileLock::Take(path, ours, taken->lock_, text, error);
    const Holder former(text);
    if (result == FileLock::Result::kHeld) {
      return Failure{model, "", "is being edited by " + former.Text(),
                     "close it there, or open it for reading"};
    }
    if (result == FileLock::Result::kFailed) {
      return Failure{path, "", "cannot be locked: " + ErrorText(error),
                     error == ENAMETOOLONG
                         ? "give the model a shorter name"
                         : "check the folder, its permissions, and that this is a plain file"};
    }
    if (taken->lock_->IsNew()) break;
    if (former.host.empty()) {
      taken->lock_->LeaveFile();
      return Failure{path, "", "is no lock, and stands where one would be",
                     "rename it, or save under another name"};
    }
    // A lock held on another host may be invisible from here.
    if (former.host != HostName()) {
      taken->lock_->LeaveFile();
      return Failure{model, "", "may still be edited by " + former.Text(),
                     "make sure that it is not, then remove " + path};
    }
    // Of one that ended: it goes, and a whole one takes its place.
    if (taken->stale_ == former.Text()) {
      taken->lock_->LeaveFile();
      return Failure{path, "", "is of " + former.Text() + ", which ended, and cannot be removed",
                     "remove it, or check the folder's permissions"};
    }
    taken->stale_ = former.Text();
    taken->lock_.reset();
  }
  if (IsClaimed(model)) {
    return Failure{model, "", "is being edited under another name",
                   "close it there, or open it for reading"};
  }
  NewFile::RemoveLeftovers(model);
  return taken;
}

}  // namespace qx
