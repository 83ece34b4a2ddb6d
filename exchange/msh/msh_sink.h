#pragma once
// Writes numbers as a MSH file stores them, in text or binary.
// Threads: shares nothing; one at a time for each object.

#include <cstdint>
#include <fmt/format.h>
#include <iterator>
#include <ostream>
#include <string>

#include "exchange/mesh.h"

namespace qx::exchange {

/// The counterpart of MshCursor: text, and numbers in the file's encoding. In text every number is
/// followed by a blank, in binary EndLine writes nothing; Text is the same in both.
class MshSink {
 public:
  /// `total` is the number of items to be counted, for the progress. Nothing is owned.
  MshSink(std::ostream& out, bool binary, std::uint64_t total, const Progress& progress)
      : out_(out), binary_(binary), total_(total), progress_(progress) {}
  /// Without the progress, which may throw to end the writing.
  ~MshSink() { out_ << buffer_; }
  MshSink(const MshSink&) = delete;
  MshSink& operator=(const MshSink&) = delete;

  void Int(std::int32_t value) { Put(value); }
  void Size(std::uint64_t value) { Put(value); }
  void Real(double value) { Put(value); }
  void EndLine() {
    if (!binary_) buffer_ += '\n';
  }
  /// Text that is there in both encodings.
  template <class... Args>
  void Text(fmt::format_string<Args...> text, Args&&... args) {
    fmt::format_to(std::back_inserter(buffer_), text, std::forward<Args>(args)...);
  }
  /// A section's last line, on a line of its own.
  void EndSection(const char* name) {
    if (binary_) buffer_ += '\n';
    Text("$End{}\n", name);
  }
  /// Counts an item; false after a failed write: the rest need not be produced.
  bool CountItem() {
    ++count_;
    if (buffer_.size() >= kBufferSize) Flush();
    return out_.good();
  }

 private:
  static constexpr std::size_t kBufferSize = 1 << 16;

  template <class T>
  void Put(T value) {
    if (binary_) {
      buffer_.append(reinterpret_cast<const char*>(&value), sizeof(T));
    } else {
      fmt::format_to(std::back_inserter(buffer_), "{} ", value);
    }
  }
  void Flush() {
    out_ << buffer_;
    buffer_.clear();
    if (!progress_ || count_ < next_report_) return;
    progress_(static_cast<double>(count_) / static_cast<double>(total_ + 1));
    next_report_ = count_ + total_ / 90 + 1;
  }

  std::ostream& out_;
  bool binary_;
  std::uint64_t total_;
  const Progress& progress_;
  std::uint64_t count_ = 0;
  std::uint64_t next_report_ = 0;
  std::string buffer_;
};

}  // namespace qx::exchange
