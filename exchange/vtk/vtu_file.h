#pragma once
// The file side of a VTK XML unstructured grid: declarations and streams of arrays.
// Threads: shares nothing; one at a time for each object.

#include <algorithm>
#include <cstring>
#include <functional>
#include <ostream>
#include <span>
#include <string>
#include <string_view>
#include <type_traits>
#include <vector>

#include "exchange/vtk/base64.h"
#include "exchange/vtk/vtk_coding.h"
#include "exchange/vtk/vtk_notes.h"
#include "exchange/vtk/vtu_writer.h"

namespace qx::exchange {

/// How a file is stored.
struct VtuForm {
  VtuEncoding encoding = VtuEncoding::kAppendedBase64;
  VtuCompression compression = VtuCompression::kNone;

  bool IsText() const { return encoding == VtuEncoding::kAscii; }
  bool IsBase64() const {
    return encoding == VtuEncoding::kAppendedBase64 || encoding == VtuEncoding::kInlineBase64;
  }
  bool IsAppended() const { return encoding <= VtuEncoding::kAppendedBase64; }
  bool IsPacked() const { return compression != VtuCompression::kNone && !IsText(); }
};

/// Takes the values of one array after another and writes them in the file's encoding. Of an array
/// that is packed, the header is written again when it is known.
class ArraySink {
 public:
  /// None is owned. `total` is the number of values to come, for the progress.
  ArraySink(std::ostream& out, const VtuForm& form, std::uint64_t total, const Progress& progress);

  void Begin(std::uint64_t bytes, int values_a_line);
  template <class T>
  void Put(T value) {
    if (form_.IsText()) {
      PutText(value);
    } else {
      std::memcpy(buffer_.data() + used_, &value, sizeof(T));
      used_ += sizeof(T);
    }
    ++count_;
    if (used_ >= kBufferSize) Flush();
  }
  template <class T>
  void PutAll(std::span<const T> values) {
    if (form_.IsText()) {
      for (const T value : values) Put(value);
    } else {
      constexpr std::size_t kPiece = 1 << 16;  // between two reports of progress
      while (!values.empty()) {
        const auto piece = values.first(std::min(kPiece, values.size()));
        count_ += piece.size();
        PutBytes({reinterpret_cast<const char*>(piece.data()), piece.size_bytes()});
        values = values.subspan(piece.size());
      }
    }
  }
  /// Ends the array and gives what it takes in the file, in bytes.
  std::uint64_t End();
  /// False after a failed write: the rest need not be produced.
  bool Good() const { return out_.good(); }

 private:
  static constexpr std::size_t kBufferSize = 1 << 16;
  static constexpr std::size_t kLongestValue = 64;  // as text

  void PutBytes(std::string_view bytes);
  void PutText(double value);
  void PutText(std::int64_t value);
  void PutText(std::int32_t value) { PutText(std::int64_t{value}); }
  void PutText(std::uint8_t value) { PutText(std::int64_t{value}); }
  void EndTextValue();
  void Flush();
  std::string_view PackBlocks(std::string_view bytes);
  void PackBlock(std::string_view block);
  void Write(std::string_view bytes);
  void EndStream();
  void WriteHeader();

  std::ostream& out_;
  VtuForm form_;
  VtkPacker packer_;
  std::uint64_t total_;
  const Progress& progress_;
  std::uint64_t count_ = 0;
  std::uint64_t next_report_ = 0;
  std::uint64_t written_ = 0;  // of this array, as all below
  std::uint64_t bytes_ = 0;
  std::ostream::pos_type begin_;             // in the file
  std::vector<std::uint64_t> packed_sizes_;  // of its blocks
  int values_a_line_ = 1;
  int in_line_ = 0;
  std::vector<char> buffer_ = std::vector<char>(kBufferSize + kLongestValue);
  std::size_t used_ = 0;
  std::string encoded_;
  Base64Encoder base64_;
};

/// One array: its declaration, and the function that puts its values into a sink.
struct DataArray {
  std::string name;
  const char* type;  ///< as VTK names it
  int components;
  std::uint64_t values;
  std::uint64_t value_bytes;
  std::function<void(ArraySink&)> fill;

  std::uint64_t Bytes() const { return values * value_bytes; }
};

/// An array of `values` numbers of type T.
template <class T>
DataArray MakeArray(std::string name, int components, std::uint64_t values,
                    std::function<void(ArraySink&)> fill) {
  constexpr const char* kType = std::is_same_v<T, double>         ? "Float64"
                                : std::is_same_v<T, std::int64_t> ? "Int64"
                                : std::is_same_v<T, std::int32_t> ? "Int32"
                                                                  : "UInt8";
  static_assert(std::is_same_v<T, double> || std::is_same_v<T, std::int64_t> ||
                std::is_same_v<T, std::int32_t> || std::is_same_v<T, std::uint8_t>);
  return {std::move(name), kType, components, values, sizeof(T), std::move(fill)};
}

/// All that is in the file.
struct VtuContent {
  struct Section {
    const char* name;  ///< "PointData"
    std::vector<DataArray> arrays;
  };
  std::uint64_t points = 0;
  std::uint64_t cells = 0;
  std::vector<Section> sections;
  std::optional<double> time;  ///< of the fields, when it is one
  VtkNotes notes;
};

/// Writes a whole file. Failure names the path, which then holds what it held before.
Outcome WriteVtuFile(const VtuContent& content, const std::string& path, const VtuForm& form,
                     const Progress& progress);

}  // namespace qx::exchange
