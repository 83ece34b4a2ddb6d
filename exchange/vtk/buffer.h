#pragma once
// Large pieces of memory, and files in them, that are not cleared before they are filled.

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <new>
#include <string>
#include <string_view>

#include "qx_db/platform/file.h"
#include "qx_db/platform/raw_file.h"

#ifdef __linux__
#include <sys/mman.h>
#endif

namespace qx::exchange {

/// Memory that is not cleared. Large pieces lie on large pages where the system has them: touching
/// a hundred megabytes for the first time otherwise takes longer than copying them.
class Buffer {
 public:
  Buffer() = default;
  explicit Buffer(std::size_t size) : size_(size) {
    constexpr std::size_t kPage = std::size_t{2} << 20;
    const bool is_large = size >= 2 * kPage && size <= SIZE_MAX - kPage;
    const std::size_t whole = is_large ? (size + kPage - 1) / kPage * kPage : size;
    data_.reset(static_cast<char*>(is_large ? std::aligned_alloc(kPage, whole)
                                            : std::malloc(std::max<std::size_t>(size, 1))));
    if (!data_) throw std::bad_alloc();
#if defined(__linux__) && defined(MADV_HUGEPAGE)
    if (is_large) madvise(data_.get(), whole, MADV_HUGEPAGE);  // may be refused: a wish
#endif
  }
  char* Data() { return data_.get(); }
  std::size_t Size() const { return size_; }
  std::string_view View() const { return {data_.get(), size_}; }

 private:
  struct Free {
    void operator()(char* data) const { std::free(data); }
  };
  std::unique_ptr<char, Free> data_;
  std::size_t size_ = 0;
};

/// The content of a file. Fails, naming it, as ReadWholeFile does.
inline Result<Buffer> ReadBuffer(const std::string& path) {
  if (Outcome is_file = CheckIsFile(path); !is_file) return is_file.Error();
  std::unique_ptr<RawFile> file;
  std::uint64_t size = 0;
  int error = Files().Open(path, false, file);
  if (error == 0) error = file->Size(size);
  if (error == 0) {
    Buffer bytes(static_cast<std::size_t>(size));
    error = file->Read(bytes.Data(), bytes.Size(), 0);
    if (error == 0) return Result<Buffer>(std::move(bytes));
  }
  return Failure{path, "", "cannot be read: " + ErrorText(error), "check its permissions"};
}

}  // namespace qx::exchange
