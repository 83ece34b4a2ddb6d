#pragma once
// A folder of a test's own, gone with the test.

#include <filesystem>
#include <string>
#include <unistd.h>

/// Unique to the process, so that tests run beside each other.
class ScratchFolder {
 public:
  ScratchFolder()
      : path_(std::filesystem::temp_directory_path() / ("qx_test_" + std::to_string(getpid()))) {
    std::filesystem::create_directories(path_);
  }
  ~ScratchFolder() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
  }
  ScratchFolder(const ScratchFolder&) = delete;
  ScratchFolder& operator=(const ScratchFolder&) = delete;

  const std::filesystem::path& Path() const { return path_; }
  std::string Path(const std::string& name) const { return (path_ / name).string(); }

 private:
  const std::filesystem::path path_;
};
