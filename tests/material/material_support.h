#pragma once
// What tests of material files share: bytes put together by hand, and the messages a user would
// see.

#include <csignal>
#include <cstdint>
#include <cstring>
#include <fstream>
#include <functional>
#include <gtest/gtest.h>
#include <string>
#include <sys/resource.h>
#include <vector>

#include "qx_db/lib/message.h"
#include "qx_db/platform/file.h"
#include "qx_db/platform/outcome.h"

#include "tests/scratch_folder.h"

namespace qx {

/// Collects messages as long as it lives.
class Messages final : public IMessageSink {
 public:
  Messages() {
    InstallTexts({});  // keys will do
    SetMessageSink(this);
  }
  ~Messages() override { SetMessageSink(nullptr); }
  void Show(const Message& message) override { all.push_back(message); }
  std::vector<Message> all;
};

/// As long as it lives, no file of this process grows beyond `bytes`, as on a full disk.
class FullDisk {
 public:
  explicit FullDisk(rlim_t bytes) {
    getrlimit(RLIMIT_FSIZE, &old_);
    const rlimit limit{bytes, old_.rlim_max};
    handler_ = std::signal(SIGXFSZ, SIG_IGN);
    setrlimit(RLIMIT_FSIZE, &limit);
  }
  ~FullDisk() {
    setrlimit(RLIMIT_FSIZE, &old_);
    std::signal(SIGXFSZ, handler_);
  }
  FullDisk(const FullDisk&) = delete;
  FullDisk& operator=(const FullDisk&) = delete;

 private:
  rlimit old_{};
  void (*handler_)(int);
};

/// A folder of the test's own with files in it.
class MaterialFiles : public testing::Test {
 protected:
  /// Writes a file and returns its path.
  std::string Put(const std::string& name, const std::string& bytes) const {
    const std::string path = folder_.Path(name);
    std::ofstream(path, std::ios::binary) << bytes;
    return path;
  }
  std::u16string Wide(const std::string& name) const { return Utf16(folder_.Path(name)); }
  std::string Bytes(const std::string& name) const {
    const auto bytes = ReadWholeFile(folder_.Path(name));
    return bytes ? *bytes : "no file: " + bytes.Error().what;
  }
  std::size_t FileCount() const {
    return static_cast<std::size_t>(
        std::distance(std::filesystem::directory_iterator(folder_.Path()), {}));
  }
  bool Exists(const std::string& name) const { return std::filesystem::exists(folder_.Path(name)); }

  const ScratchFolder folder_;
  Messages messages_;
};

// Little-endian pieces of a golden file.

inline std::string U32(std::uint32_t value) {
  std::string bytes;
  for (int shift = 0; shift < 32; shift += 8) bytes += static_cast<char>(value >> shift & 0xFF);
  return bytes;
}
inline std::string F64(double value) {
  std::uint64_t bits = 0;
  std::memcpy(&bits, &value, sizeof(bits));
  return U32(static_cast<std::uint32_t>(bits)) + U32(static_cast<std::uint32_t>(bits >> 32));
}
/// ASCII as UTF-16LE.
inline std::string Wide16(std::string_view ascii) {
  std::string bytes;
  for (const char c : ascii) bytes += {c, '\0'};
  return bytes;
}
inline std::string Block(std::string_view ascii) {
  std::string bytes = Wide16(ascii);
  bytes.resize(512);
  return bytes;
}

/// A failure that says what a user needs: which file, and what is wrong.
inline bool IsClear(const Failure& failure) {
  return !failure.file.empty() && !failure.what.empty() &&
         failure.Line().find('\n') == std::string::npos;
}

/// Hands every truncation of `bytes` to `try_it`, then every bit flip.
inline void Attack(const std::string& bytes,
                   const std::function<void(const std::string& bytes, bool cut)>& try_it) {
  for (std::size_t length = 0; length < bytes.size(); ++length) {
    try_it(bytes.substr(0, length), true);
  }
  std::string flipped = bytes;
  for (std::size_t i = 0; i < 8 * bytes.size(); ++i) {
    const auto bit = static_cast<char>(1 << i % 8);
    flipped[i / 8] = static_cast<char>(flipped[i / 8] ^ bit);
    try_it(flipped, false);
    flipped[i / 8] = static_cast<char>(flipped[i / 8] ^ bit);
  }
}

}  // namespace qx
