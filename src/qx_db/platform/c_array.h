#pragma once
// The growable array that the interfaces of the calculators fill.
// Threads: values: one at a time for each object.

#include <cstddef>
#include <cstdint>
#include <stdexcept>
#include <utility>
#include <vector>

namespace qx {

/// A growable array of T. `Arg` is how elements were passed and is kept for declarations that name
/// it. An index outside the array throws std::invalid_argument.
template <class T, class Arg = const T&>
class CArray {
 public:
  using Index = std::int32_t;

  Index GetSize() const { return static_cast<Index>(values_.size()); }
  Index GetCount() const { return GetSize(); }
  bool IsEmpty() const { return values_.empty(); }
  void RemoveAll() { values_.clear(); }
  void Reserve(Index n) { values_.reserve(static_cast<std::size_t>(n)); }
  /// Keeps the first elements; new ones are default values.
  void SetSize(Index n) { values_.resize(n > 0 ? static_cast<std::size_t>(n) : 0); }
  /// Returns the index of the new element.
  Index Add(Arg value) {
    values_.push_back(value);
    return GetSize() - 1;
  }
  T& GetAt(Index i) { return values_[Checked(i)]; }
  const T& GetAt(Index i) const { return values_[Checked(i)]; }
  void SetAt(Index i, Arg value) { values_[Checked(i)] = value; }
  T& operator[](Index i) { return GetAt(i); }
  const T& operator[](Index i) const { return GetAt(i); }
  void Copy(const CArray& other) { values_ = other.values_; }
  void Swap(CArray& other) noexcept { values_.swap(other.values_); }

  T* GetData() { return values_.data(); }
  const T* GetData() const { return values_.data(); }
  auto begin() { return values_.begin(); }
  auto end() { return values_.end(); }
  auto begin() const { return values_.begin(); }
  auto end() const { return values_.end(); }

 private:
  std::size_t Checked(Index i) const {
    if (i < 0 || i >= GetSize()) throw std::invalid_argument("CArray index");
    return static_cast<std::size_t>(i);
  }

  std::vector<T> values_;
};

}  // namespace qx
