#pragma once
// Whole records outside a pool.

#include <cstdint>
#include <memory>
#include <utility>

namespace qx {

/// An owned array of records, each fully constructed. An empty array holds no storage.
/// Threads: shares nothing; one thread at a time.
template <class T>
class TVArray {
 public:
  TVArray() = default;
  TVArray(const TVArray& other) { Copy(other); }
  TVArray(TVArray&& other) noexcept
      : elements_(std::move(other.elements_)), count_(std::exchange(other.count_, 0)) {}
  TVArray& operator=(const TVArray& other) {
    if (this != &other) Copy(other);
    return *this;
  }
  TVArray& operator=(TVArray&& other) noexcept {
    elements_ = std::move(other.elements_);
    count_ = std::exchange(other.count_, 0);
    return *this;
  }

  /// The same size keeps the contents; any other gives that many default records, or none.
  /// Deliberate: the old contents are not kept then.
  void SetSize(std::int32_t n) {
    if (n == count_) return;
    elements_.reset();
    count_ = 0;
    if (n <= 0) return;
    elements_ = std::make_unique<T[]>(static_cast<std::size_t>(n));
    count_ = n;
  }
  /// Replaces the contents by copies of another array's.
  void Copy(const TVArray& other) {
    auto copies =
        other.count_ > 0 ? std::make_unique<T[]>(static_cast<std::size_t>(other.count_)) : nullptr;
    for (std::int32_t i = 0; i < other.count_; ++i) copies[static_cast<std::size_t>(i)] = other[i];
    elements_ = std::move(copies);
    count_ = other.count_;
  }

  std::int32_t GetSize() const { return count_; }
  bool IsEmpty() const { return count_ == 0; }
  /// No check of the index.
  T& operator[](std::int32_t i) { return elements_[static_cast<std::size_t>(i)]; }
  const T& operator[](std::int32_t i) const { return elements_[static_cast<std::size_t>(i)]; }
  T* begin() { return elements_.get(); }
  T* end() { return elements_.get() + count_; }
  const T* begin() const { return elements_.get(); }
  const T* end() const { return elements_.get() + count_; }

 private:
  std::unique_ptr<T[]> elements_;
  std::int32_t count_ = 0;
};

}  // namespace qx
