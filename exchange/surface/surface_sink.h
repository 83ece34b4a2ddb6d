#pragma once
// The bytes of a file of a surface, a piece at a time.
// Threads: shares nothing; one at a time for each object.

#include <fmt/format.h>
#include <iterator>
#include <ostream>
#include <string>
#include <utility>

#include "exchange/surface/surface_model.h"

namespace qx::exchange {

/// Collects what is written, and tells the progress as steps are made.
class SurfaceSink {
 public:
  /// `steps` that are expected. Nothing is owned.
  SurfaceSink(std::ostream& out, std::size_t steps, const Progress& progress)
      : out_(out), steps_(steps), progress_(progress) {}
  /// Without the progress, which may throw to end the writing.
  ~SurfaceSink() { out_ << text_; }
  SurfaceSink(const SurfaceSink&) = delete;
  SurfaceSink& operator=(const SurfaceSink&) = delete;

  void Put(std::string_view text) { text_ += text; }
  template <class... Args>
  void Add(fmt::format_string<Args...> form, Args&&... args) {
    fmt::format_to(std::back_inserter(text_), form, std::forward<Args>(args)...);
  }
  /// A number as this machine stores it.
  template <class T>
  void Bytes(T value) {
    text_.append(reinterpret_cast<const char*>(&value), sizeof(value));
  }
  void Step() {
    if (++done_ % 4096 != 0) return;
    out_ << text_;
    text_.clear();
    if (progress_) progress_(0.6 + 0.4 * static_cast<double>(done_) / static_cast<double>(steps_));
  }

 private:
  std::ostream& out_;
  std::size_t steps_;
  const Progress& progress_;
  std::string text_;
  std::size_t done_ = 0;
};

/// Writes a file of a surface: `write` is given where to. Complete or not there.
Outcome WriteSurface(const SurfaceModel& surface, const std::string& path,
                     const WriteOptions& options, const std::function<void(SurfaceSink&)>& write);

}  // namespace qx::exchange
