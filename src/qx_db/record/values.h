#pragma once
// The value types that record members are made of. All are packed to 4 bytes, like the records.
// Threads: records are values (TStructBase).

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <initializer_list>
#include <new>
#include <stdexcept>
#include <string_view>
#include <type_traits>

#include "qx_db/platform/text.h"
#include "qx_db/record/types.h"

namespace qx {

#pragma pack(push, 4)

/// A vector of three float or double components.
template <class T>
struct tagTVector3 {
  T x{};
  T y{};
  T z{};
  friend bool operator==(const tagTVector3&, const tagTVector3&) = default;
};

/// A double in an array of a record, where it lies at an address aligned to 4 bytes only. Reads and
/// writes as a double; that its address is none of a double, no compiler has to be told.
struct PackedDouble {
  constexpr PackedDouble(double number = 0) : value(number) {}
  constexpr operator double() const { return value; }
  constexpr PackedDouble& operator+=(double other) { return *this = value + other; }
  constexpr PackedDouble& operator-=(double other) { return *this = value - other; }
  constexpr PackedDouble& operator*=(double other) { return *this = value * other; }
  constexpr PackedDouble& operator/=(double other) { return *this = value / other; }

  double value;
};

/// A fixed text of N UTF-16 units: at most N - 1 units of text, always terminated, and zero after
/// the terminator, so that equal texts are equal bytes.
template <std::size_t N>
struct TString {
  char16_t units[N]{};

  TString() = default;
  TString(std::u16string_view text) { Set(text); }

  /// Takes the first N - 1 units of `text`, up to a zero; a surrogate pair is never cut in half.
  void Set(std::u16string_view text) {
    text = text.substr(0, text.find(u'\0'));
    std::size_t count = std::min(text.size(), N - 1);
    const bool splits_pair =
        count < text.size() && count > 0 && text[count - 1] >= 0xD800 && text[count - 1] <= 0xDBFF;
    if (splits_pair) --count;
    std::copy_n(text.begin(), count, units);
    std::fill(units + count, units + N, u'\0');
  }
  std::u16string_view View() const {
    return {units, static_cast<std::size_t>(std::find(units, units + N, u'\0') - units)};
  }
  CString Text() const { return CString(View()); }
  bool IsEmpty() const { return units[0] == 0; }
  friend bool operator==(const TString& a, const TString& b) { return a.View() == b.View(); }
};

/// An array's storage without its element type, so that one verb serves every array member:
/// pointer, count, capacity; 16 bytes.
struct ArrayStorage {
  void* data = nullptr;
  std::int32_t count = 0;
  std::int32_t capacity = 0;

  /// Makes room for `n` elements of `element_size` bytes, keeping the first ones; new elements
  /// are zero bytes. Throws std::bad_alloc.
  void Resize(std::int64_t n, std::size_t element_size) {
    if (n > capacity) Reserve(n, element_size);
    if (n > count) {
      std::memset(static_cast<char*>(data) + static_cast<std::size_t>(count) * element_size, 0,
                  static_cast<std::size_t>(n - count) * element_size);
    }
    count = static_cast<std::int32_t>(n);
  }
  void Reserve(std::int64_t n, std::size_t element_size) {
    if (n <= capacity) return;
    if (n > kMaxKey) throw std::bad_alloc();
    void* grown = std::realloc(data, static_cast<std::size_t>(n) * element_size);
    if (!grown) throw std::bad_alloc();
    data = grown;
    capacity = static_cast<std::int32_t>(n);
  }
  void Free() {
    std::free(data);
    data = nullptr;
    count = capacity = 0;
  }
};

/// A growable array of plain values: keys, iterators, numbers or packed structures.
template <class T>
class TArray : private ArrayStorage {
  static_assert(std::is_trivially_copyable_v<T>, "elements are copied as bytes");

 public:
  TArray() = default;
  TArray(std::initializer_list<T> values) { Assign(values.begin(), values.size()); }
  TArray(const TArray& other) { Assign(other.data(), other.size()); }
  TArray(TArray&& other) noexcept { Swap(other); }
  TArray& operator=(const TArray& other) {
    if (this != &other) Assign(other.data(), other.size());
    return *this;
  }
  TArray& operator=(TArray&& other) noexcept {
    Swap(other);
    return *this;
  }
  ~TArray() { std::free(ArrayStorage::data); }

  std::int32_t GetSize() const { return count; }
  bool IsEmpty() const { return count == 0; }
  std::size_t size() const { return static_cast<std::size_t>(count); }
  T* data() { return static_cast<T*>(ArrayStorage::data); }
  const T* data() const { return static_cast<const T*>(ArrayStorage::data); }
  T* begin() { return data(); }
  T* end() { return data() + count; }
  const T* begin() const { return data(); }
  const T* end() const { return data() + count; }
  /// No check of the index.
  T& operator[](std::ptrdiff_t i) { return data()[i]; }
  const T& operator[](std::ptrdiff_t i) const { return data()[i]; }
  /// Throws std::out_of_range.
  T& GetAt(std::ptrdiff_t i) {
    if (i < 0 || i >= count) throw std::out_of_range("TArray index");
    return data()[i];
  }

  /// Sets the count; kept elements stay, new ones are zero.
  void SetSize(std::int64_t n) { Resize(std::max<std::int64_t>(n, 0), sizeof(T)); }
  void Reserve(std::int64_t n) { ArrayStorage::Reserve(n, sizeof(T)); }
  /// Empties the array and frees its storage.
  void RemoveAll() { Free(); }
  /// Appends a value, which may be an element of this array.
  void Add(T value) {
    if (count == capacity) {
      ArrayStorage::Reserve(std::max<std::int64_t>(4, std::int64_t{capacity} * 2), sizeof(T));
    }
    data()[count++] = value;
  }
  void Append(const TArray& other) {
    const std::int32_t old = count;
    const std::int32_t more = other.count;
    SetSize(std::int64_t{old} + more);
    if (more) std::memcpy(data() + old, other.data(), static_cast<std::size_t>(more) * sizeof(T));
  }
  void RemoveAt(std::ptrdiff_t i) {
    std::copy(begin() + i + 1, end(), begin() + i);
    --count;
  }
  void Assign(const T* values, std::size_t n) {
    SetSize(static_cast<std::int64_t>(n));
    if (n) std::memcpy(static_cast<void*>(data()), values, n * sizeof(T));
  }
  void Swap(TArray& other) noexcept {
    std::swap(static_cast<ArrayStorage&>(*this), static_cast<ArrayStorage&>(other));
  }
  friend bool operator==(const TArray& a, const TArray& b) {
    return std::equal(a.begin(), a.end(), b.begin(), b.end());
  }
};

#pragma pack(pop)

static_assert(sizeof(TArray<ITR>) == 16 && alignof(TArray<ITR>) == 4);
static_assert(sizeof(tagTVector3<double>) == 24 && alignof(tagTVector3<double>) == 4);
static_assert(sizeof(PackedDouble) == 8 && alignof(PackedDouble) == 4);

}  // namespace qx
