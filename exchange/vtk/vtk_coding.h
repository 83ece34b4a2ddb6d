#pragma once
// How VTK XML files store the bytes of an array: a header with lengths, blocks that may be
// compressed, base64 around them.

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "exchange/vtk/vtk_array.h"

namespace qx::exchange {

enum class VtkCompression { kNone, kZlib, kLz4 };

/// How a file says that its arrays are stored.
struct VtkCoding {
  bool swapped = false;           ///< numbers, in headers as in arrays
  std::size_t header_number = 4;  ///< bytes of a number in a header: 4 or 8
  VtkCompression compression = VtkCompression::kNone;
};

/// Told a word that is no number, or none of the type; gives whether to go on, with 0 for it.
using OnWrongWord = std::function<bool(std::string_view word)>;

/// The next numbers of a text, at most `most`; `text` begins behind them afterwards. False where it
/// did not go on.
bool ParseNumbers(std::string_view& text, std::uint64_t most, std::vector<std::int64_t>& values,
                  const OnWrongWord& on_wrong);
bool ParseNumbers(std::string_view& text, std::uint64_t most, std::vector<double>& values,
                  const OnWrongWord& on_wrong);

/// Unpacks arrays of one file, which share a bound on what they may unpack to, so that a few bytes
/// cannot fill the memory.
class VtkDecoder {
 public:
  /// `file_bytes` is the length of the whole file.
  VtkDecoder(const VtkCoding& coding, std::uint64_t file_bytes);
  ~VtkDecoder();

  /// The array whose header begins with `stored`; an array that need not be unpacked borrows from
  /// it. Its number type is set already; it must have `values` values, any number for kAnyCount.
  /// What is wrong, or "".
  static constexpr std::uint64_t kAnyCount = ~std::uint64_t{0};
  std::string Decode(std::string_view stored, bool is_base64, std::uint64_t values,
                     VtkArray& array);
  /// The same of numbers as text; of words that are none `on_wrong` is told.
  std::string Parse(std::string_view text, std::uint64_t values, VtkArray& array,
                    const OnWrongWord& on_wrong);

 private:
  class Source;
  class Inflater;

  std::string CheckLength(std::uint64_t bytes, std::uint64_t values, const VtkArray& array);
  std::string DecodeBlocks(Source& source, std::uint64_t values, VtkArray& array);
  std::uint64_t HeaderNumber(const char* at) const;

  VtkCoding coding_;
  std::uint64_t left_;  // bytes that may still be unpacked
  std::unique_ptr<Inflater> inflater_;
};

/// Packs arrays as such files have them, block after block; every block but the last is of
/// kBlockBytes. Headers have 64-bit numbers in the machine's byte order.
class VtkPacker {
 public:
  static constexpr std::size_t kBlockBytes = 32768;  ///< what VTK's own writer uses

  explicit VtkPacker(VtkCompression compression);
  ~VtkPacker();

  /// The block as it is packed, until the next call.
  std::string_view Pack(std::string_view block);
  /// Header of an array of `bytes` whose blocks were packed to `sizes`; of as many before they are.
  static std::vector<std::uint64_t> HeaderOf(std::uint64_t bytes,
                                             const std::vector<std::uint64_t>& sizes);

 private:
  class Deflater;

  VtkCompression compression_;
  std::vector<char> out_;
  std::unique_ptr<Deflater> deflater_;
};

}  // namespace qx::exchange
