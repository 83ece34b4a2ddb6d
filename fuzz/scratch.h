#pragma once
// Where a target puts files.

#include <cstdlib>
#include <filesystem>
#include <string>
#include <unistd.h>

namespace qx::fuzz {

/// A folder of the process, in memory where the system has such a place; it goes with the process.
inline const std::string& Folder() {
  struct Made {
    std::string path =
        std::filesystem::exists("/dev/shm") ? "/dev/shm/fuzzXXXXXX" : "/tmp/fuzzXXXXXX";
    Made() {
      if (!mkdtemp(path.data())) std::abort();
    }
    ~Made() { std::filesystem::remove_all(path); }
  };
  static const Made made;
  return made.path;
}

}  // namespace qx::fuzz
