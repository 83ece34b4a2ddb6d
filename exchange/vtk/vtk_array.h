#pragma once
// The arrays of VTK files: numbers of one type, in memory or still in the file's bytes.

#include <cstdint>
#include <cstring>
#include <limits>
#include <string>
#include <string_view>
#include <type_traits>
#include <vector>

#include "exchange/vtk/buffer.h"

namespace qx::exchange {

enum class VtkNumber : std::uint8_t {
  kInt8,
  kUInt8,
  kInt16,
  kUInt16,
  kInt32,
  kUInt32,
  kInt64,
  kUInt64,
  kFloat32,
  kFloat64,
};

constexpr std::size_t SizeOf(VtkNumber number) {
  constexpr std::size_t kSizes[] = {1, 1, 2, 2, 4, 4, 8, 8, 4, 8};
  return kSizes[static_cast<std::size_t>(number)];
}

/// A number of either byte order from the bytes at `at`.
template <class T>
T LoadNumber(const char* at, bool swapped) {
  using Bits = std::conditional_t<
      sizeof(T) == 1, std::uint8_t,
      std::conditional_t<sizeof(T) == 2, std::uint16_t,
                         std::conditional_t<sizeof(T) == 4, std::uint32_t, std::uint64_t>>>;
  Bits bits;
  std::memcpy(&bits, at, sizeof(bits));
  if (swapped) {
    if constexpr (sizeof(T) == 2) bits = __builtin_bswap16(bits);
    if constexpr (sizeof(T) == 4) bits = __builtin_bswap32(bits);
    if constexpr (sizeof(T) == 8) bits = __builtin_bswap64(bits);
  }
  T value;
  std::memcpy(&value, &bits, sizeof(T));
  return value;
}

/// An array. Movable; one that borrows lives as long as the bytes it was given.
class VtkArray {
 public:
  std::string name;
  std::string place;  ///< for messages: "line 12, array \"Points\""
  VtkNumber number = VtkNumber::kFloat64;
  std::uint32_t components = 1;
  bool swapped = false;  ///< the bytes are in the other order than the machine's

  VtkArray() = default;
  VtkArray(VtkArray&&) = default;
  VtkArray& operator=(VtkArray&&) = default;

  void Borrow(std::string_view bytes) { bytes_ = bytes; }
  /// Room for so many bytes of its own, to be filled.
  char* Allocate(std::size_t bytes) {
    own_ = Buffer(bytes);
    bytes_ = own_.View();
    return own_.Data();
  }
  /// Takes numbers of the machine's own kind.
  void Own(const std::vector<std::int64_t>& values) { OwnNumbers(values, VtkNumber::kInt64); }
  void Own(const std::vector<double>& values) { OwnNumbers(values, VtkNumber::kFloat64); }

  std::size_t Count() const { return bytes_.size() / SizeOf(number); }
  bool IsInteger() const { return number < VtkNumber::kFloat32; }
  /// Leaves out values at the beginning.
  void DropFirst(std::size_t count) { bytes_.remove_prefix(count * SizeOf(number)); }

  /// Calls `visit` with every value, in its own type.
  template <class F>
  void ForEach(F&& visit) const {
    switch (number) {
      case VtkNumber::kInt8:
        return Each<std::int8_t>(visit);
      case VtkNumber::kUInt8:
        return Each<std::uint8_t>(visit);
      case VtkNumber::kInt16:
        return Each<std::int16_t>(visit);
      case VtkNumber::kUInt16:
        return Each<std::uint16_t>(visit);
      case VtkNumber::kInt32:
        return Each<std::int32_t>(visit);
      case VtkNumber::kUInt32:
        return Each<std::uint32_t>(visit);
      case VtkNumber::kInt64:
        return Each<std::int64_t>(visit);
      case VtkNumber::kUInt64:
        return Each<std::uint64_t>(visit);
      case VtkNumber::kFloat32:
        return Each<float>(visit);
      case VtkNumber::kFloat64:
        return Each<double>(visit);
    }
  }

  /// All values as whole numbers; those that are none, or do not fit, become the least one there
  /// is.
  std::vector<std::int64_t> Integers() const;

 private:
  template <class T, class F>
  void Each(F& visit) const {
    const char* at = bytes_.data();
    const std::size_t count = Count();
    if (swapped) {
      for (std::size_t i = 0; i < count; ++i) visit(LoadNumber<T>(at + i * sizeof(T), true));
    } else {
      for (std::size_t i = 0; i < count; ++i) visit(LoadNumber<T>(at + i * sizeof(T), false));
    }
  }
  template <class T>
  void OwnNumbers(const std::vector<T>& values, VtkNumber of) {
    number = of;
    swapped = false;
    char* const bytes = Allocate(values.size() * sizeof(T));
    if (!values.empty()) std::memcpy(bytes, values.data(), bytes_.size());
  }

  Buffer own_;
  std::string_view bytes_;
};

/// One grid, or one part of it, as the files tell it.
struct VtkPiece {
  std::string place;  ///< for messages: "piece 2"; may be empty
  std::uint64_t points = 0;
  std::uint64_t cells = 0;
  VtkArray coordinates;   ///< three a point
  VtkArray connectivity;  ///< places of points, from 0
  VtkArray offsets;       ///< where each cell's end
  VtkArray types;
  std::vector<VtkArray> point_data;
  std::vector<VtkArray> cell_data;
};

}  // namespace qx::exchange
