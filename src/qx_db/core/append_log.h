#pragma once
// A vector of plain values that grows without copying where the system can remap pages.
// Threads: shares nothing; one at a time for each object.

#include <algorithm>
#include <cstddef>
#include <cstdlib>
#include <new>
#include <type_traits>
#include <utility>

#include "qx_db/platform/pages.h"

namespace qx {

/// The part of std::vector that an append-only log needs. Growth is by realloc, which moves a large
/// block by remapping its pages, and fresh elements are not initialised.
template <class T>
class AppendLog {
  static_assert(std::is_trivially_copyable_v<T>);

 public:
  AppendLog() = default;
  AppendLog(AppendLog&& other) noexcept { Swap(other); }
  AppendLog& operator=(AppendLog&& other) noexcept {
    Swap(other);
    return *this;
  }
  AppendLog(const AppendLog&) = delete;
  AppendLog& operator=(const AppendLog&) = delete;
  ~AppendLog() { std::free(data_); }

  std::size_t size() const { return size_; }
  std::size_t capacity() const { return capacity_; }
  bool empty() const { return size_ == 0; }
  T* data() { return data_; }
  const T* data() const { return data_; }
  T* begin() { return data_; }
  T* end() { return data_ + size_; }
  const T* begin() const { return data_; }
  const T* end() const { return data_ + size_; }
  T& operator[](std::size_t i) { return data_[i]; }
  const T& operator[](std::size_t i) const { return data_[i]; }
  T& back() { return data_[size_ - 1]; }

  /// Throws std::bad_alloc, as do the next two, leaving the log as it was.
  void reserve(std::size_t n) {
    if (n <= capacity_) return;
    n = std::max(n, std::max<std::size_t>(16, capacity_ * 2));
    void* grown = std::realloc(static_cast<void*>(data_), n * sizeof(T));
    if (!grown) throw std::bad_alloc();
    PreferHugePages(grown, n * sizeof(T));
    data_ = static_cast<T*>(grown);
    capacity_ = n;
  }
  void push_back(T value) {
    reserve(size_ + 1);
    data_[size_++] = value;
  }
  void resize(std::size_t n) {
    reserve(n);
    size_ = n;
  }
  void pop_back() { --size_; }

 private:
  void Swap(AppendLog& other) {
    std::swap(data_, other.data_);
    std::swap(size_, other.size_);
    std::swap(capacity_, other.capacity_);
  }
  T* data_ = nullptr;
  std::size_t size_ = 0;
  std::size_t capacity_ = 0;
};

}  // namespace qx
