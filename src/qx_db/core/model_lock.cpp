#include "qx_db/core/model_lock.h"

#include "qx_db/platform/raw_file.h"

namespace qx {
namespace {

/// The lock file's text is "host\nprocess\n".
struct Holder {
  std::string host;
  std::string process;

  explicit Holder(const std::string& text) {
    const std::size_t end = text.find('\n');
    if (end == std::string::npos) return;
    host = text.substr(0, end);
    process = text.substr(end + 1, text.find('\n', end + 1) - end - 1);
  }
  std::string Text() const {
    return host.empty() ? "a process that is just starting" : host + ", process " + process;
  }
};

}  // namespace

Result<std::unique_ptr<ModelLock>> ModelLock::Take(const std::string& model) {
  const std::string path = model + ".lock";
  auto taken = std::make_unique<ModelLock>();
  std::string text;
  int error = 0;
  const FileLock::Result result = FileLock::Take(path, taken->lock_, text, error);
  const Holder former(text);
  if (result == FileLock::Result::kHeld) {
    return Failure{model, "", "is being edited by " + former.Text(),
                   "close it there, or open it for reading"};
  }
  if (result == FileLock::Result::kFailed) {
    return Failure{path, "", "cannot be locked: " + ErrorText(error),
                   "check the folder and its permissions"};
  }
  // A lock held on another host may be invisible from here.
  if (!former.host.empty() && former.host != HostName()) {
    taken->lock_->LeaveFile();
    return Failure{model, "", "may still be edited by " + former.Text(),
                   "make sure that it is not, then remove " + path};
  }
  if (!text.empty()) taken->stale_ = former.Text();
  if (const int failed =
          taken->lock_->Write(HostName() + "\n" + std::to_string(ProcessId()) + "\n")) {
    return Failure{path, "", "cannot be written: " + ErrorText(failed), "free some disk space"};
  }
  return taken;
}

}  // namespace qx
