#pragma once
// The arrays of VTK files: numbers of one type, in memory or still in the file's bytes.

#include <cmath>
#include <cstdint>
#include <cstring>
#include <limits>
#include <string>
#include <string_view>
#include <type_traits>
#include <vector>

#include "exchange/room.h"
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

/// A value as a whole number; the least one there is for what is none, or does not fit.
template <class T>
std::int64_t AsInteger(T value) {
  constexpr auto kNone = std::numeric_limits<std::int64_t>::min();
  if constexpr (std::is_floating_point_v<T>) {
    const bool is_whole =
        value >= T{-9.2e18} && value <= T{9.2e18} && std::nearbyint(value) == value;
    return is_whole ? static_cast<std::int64_t>(value) : kNone;
  } else if constexpr (std::is_same_v<T, std::uint64_t>) {
    return value >> 63 ? kNone : static_cast<std::int64_t>(value);
  } else {
    return value;
  }
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
  /// Room for numbers of its own, of the machine's kind, to be filled.
  template <class T>
  T* Allocate(VtkNumber of, std::size_t count) {
    number = of;
    swapped = false;
    return reinterpret_cast<T*>(Allocate(count * sizeof(T)));
  }
  /// Takes numbers of the machine's own kind.
  void Own(const std::vector<std::int64_t>& values) { OwnNumbers(values, VtkNumber::kInt64); }
  void Own(const std::vector<double>& values) { OwnNumbers(values, VtkNumber::kFloat64); }

  std::size_t Count() const { return bytes_.size() / SizeOf(number); }
  bool IsInteger() const { return number < VtkNumber::kFloat32; }
  /// Leaves out values at the beginning.
  void DropFirst(std::size_t count) { bytes_.remove_prefix(count * SizeOf(number)); }

  /// Calls `visit` with any number of the type that the values have.
  template <class F>
  void InOwnType(F&& visit) const {
    switch (number) {
      case VtkNumber::kInt8:
        return visit(std::int8_t{});
      case VtkNumber::kUInt8:
        return visit(std::uint8_t{});
      case VtkNumber::kInt16:
        return visit(std::int16_t{});
      case VtkNumber::kUInt16:
        return visit(std::uint16_t{});
      case VtkNumber::kInt32:
        return visit(std::int32_t{});
      case VtkNumber::kUInt32:
        return visit(std::uint32_t{});
      case VtkNumber::kInt64:
        return visit(std::int64_t{});
      case VtkNumber::kUInt64:
        return visit(std::uint64_t{});
      case VtkNumber::kFloat32:
        return visit(float{});
      case VtkNumber::kFloat64:
        return visit(double{});
    }
  }
  /// The value at a place, of the type that InOwnType told.
  template <class T>
  T At(std::size_t index) const {
    return LoadNumber<T>(bytes_.data() + index * sizeof(T), swapped);
  }

  /// Calls `visit` with every value, in its own type.
  template <class F>
  void ForEach(F&& visit) const {
    InOwnType([&]<class T>(T) {
      const char* at = bytes_.data();
      const std::size_t count = Count();
      for (std::size_t i = 0; i < count; ++i, at += sizeof(T)) visit(LoadNumber<T>(at, swapped));
    });
  }

  /// Appends what `convert` makes of every value.
  template <class To, class F>
  void AppendTo(std::vector<To>& to, F&& convert) const {
    InOwnType([&]<class T>(T) {
      AppendBy(to, Count(), [&](To* out, std::size_t first, std::size_t count) {
        const char* const at = bytes_.data() + first * sizeof(T);
        for (std::size_t i = 0; i < count; ++i) {
          out[i] = convert(LoadNumber<T>(at + i * sizeof(T), swapped));
        }
      });
    });
  }

  /// All values as whole numbers; those that are none, or do not fit, become the least one there
  /// is.
  std::vector<std::int64_t> Integers() const;

 private:
  template <class T>
  void OwnNumbers(const std::vector<T>& values, VtkNumber of) {
    T* const to = Allocate<T>(of, values.size());
    std::copy(values.begin(), values.end(), to);
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
