#include "exchange/vtk/vtu_file.h"

#include <bit>
#include <fmt/format.h>
#include <iterator>
#include <limits>

#include "qx_db/platform/file.h"

namespace qx::exchange {
namespace {

struct EncodingNames {
  const char* format;    // of an array
  const char* appended;  // encoding of the appended data; null when there is none
};

constexpr EncodingNames kNames[] = {
    {"appended", "raw"}, {"appended", "base64"}, {"binary", nullptr}, {"ascii", nullptr}};

const EncodingNames& NamesOf(VtuEncoding encoding) {
  return kNames[static_cast<std::size_t>(encoding)];
}

bool IsBase64(VtuEncoding encoding) {
  return encoding == VtuEncoding::kAppendedBase64 || encoding == VtuEncoding::kInlineBase64;
}

/// The length that stands before the bytes of a binary array.
using ArrayHeader = std::uint64_t;

std::uint64_t StoredSize(const DataArray& array, VtuEncoding encoding) {
  const std::uint64_t bytes = sizeof(ArrayHeader) + array.Bytes();
  return IsBase64(encoding) ? Base64Size(bytes) : bytes;
}

/// A text as the value of an attribute. Control characters, which XML 1.0 does not know, become
/// question marks.
std::string XmlText(const std::string& text) {
  std::string out;
  for (const char c : text) {
    switch (c) {
      case '&':
        out += "&amp;";
        break;
      case '<':
        out += "&lt;";
        break;
      case '>':
        out += "&gt;";
        break;
      case '"':
        out += "&quot;";
        break;
      default:
        out += static_cast<unsigned char>(c) < 0x20 ? '?' : c;
    }
  }
  return out;
}

class Writer {
 public:
  Writer(const VtuContent& content, std::ostream& out, VtuEncoding encoding,
         const Progress& progress)
      : content_(content),
        out_(out),
        encoding_(encoding),
        sink_(out, encoding, TotalValues(content), progress) {}

  void Write() {
    constexpr bool kLittle = std::endian::native == std::endian::little;
    Put("<?xml version=\"1.0\"?>\n"
        "<VTKFile type=\"UnstructuredGrid\" version=\"1.0\" byte_order=\"{}\" "
        "header_type=\"UInt64\">\n<UnstructuredGrid>\n"
        "<Piece NumberOfPoints=\"{}\" NumberOfCells=\"{}\">\n",
        kLittle ? "LittleEndian" : "BigEndian", content_.points, content_.cells);
    for (const VtuContent::Section& section : content_.sections) {
      Put("<{}>\n", section.name);
      for (const DataArray& array : section.arrays) Declare(array);
      Put("</{}>\n", section.name);
    }
    Put("</Piece>\n</UnstructuredGrid>\n");
    if (const char* encoding = NamesOf(encoding_).appended) {
      Put("<AppendedData encoding=\"{}\">\n_", encoding);
      ForEachArray([this](const DataArray& array) { PutValues(array); });
      Put("\n</AppendedData>\n");
    }
    Put("</VTKFile>\n");
  }

 private:
  static std::uint64_t TotalValues(const VtuContent& content) {
    std::uint64_t total = 0;
    for (const VtuContent::Section& section : content.sections) {
      for (const DataArray& array : section.arrays) total += array.values;
    }
    return total;
  }

  template <class F>
  void ForEachArray(F&& visit) {
    for (const VtuContent::Section& section : content_.sections) {
      for (const DataArray& array : section.arrays) visit(array);
    }
  }

  template <class... Args>
  void Put(fmt::format_string<Args...> text, Args&&... args) {
    fmt::format_to(std::ostreambuf_iterator<char>(out_), text, std::forward<Args>(args)...);
  }

  void Declare(const DataArray& array) {
    Put("<DataArray type=\"{}\" Name=\"{}\" NumberOfComponents=\"{}\" format=\"{}\"", array.type,
        XmlText(array.name), array.components, NamesOf(encoding_).format);
    if (NamesOf(encoding_).appended) {
      Put(" offset=\"{}\"/>\n", offset_);
      offset_ += StoredSize(array, encoding_);
      return;
    }
    Put(">\n");
    PutValues(array);
    Put("\n</DataArray>\n");
  }

  void PutValues(const DataArray& array) {
    if (!sink_.Good()) return;
    sink_.Begin(array.Bytes(), array.components > 1 ? array.components : 16);
    array.fill(sink_);
    sink_.End();
  }

  const VtuContent& content_;
  std::ostream& out_;
  VtuEncoding encoding_;
  ArraySink sink_;
  std::uint64_t offset_ = 0;
};

}  // namespace

// ---- ArraySink ----------------------------------------------------------------------------------

ArraySink::ArraySink(std::ostream& out, VtuEncoding encoding, std::uint64_t total,
                     const Progress& progress)
    : out_(out), encoding_(encoding), total_(total), progress_(progress) {
  if (!progress_) next_report_ = std::numeric_limits<std::uint64_t>::max();
}

void ArraySink::Begin(std::uint64_t bytes, int values_a_line) {
  values_a_line_ = values_a_line;
  in_line_ = 0;
  if (encoding_ == VtuEncoding::kAscii) return;
  const ArrayHeader header = bytes;
  buffer_.append(reinterpret_cast<const char*>(&header), sizeof(header));
}

void ArraySink::PutText(double value) {
  fmt::format_to(std::back_inserter(buffer_), "{}", value);
  EndTextValue();
}

void ArraySink::PutText(std::int64_t value) {
  fmt::format_to(std::back_inserter(buffer_), "{}", value);
  EndTextValue();
}

void ArraySink::EndTextValue() {
  const bool full = ++in_line_ == values_a_line_;
  buffer_ += full ? '\n' : ' ';
  if (full) in_line_ = 0;
}

void ArraySink::Flush() {
  if (IsBase64(encoding_)) {
    encoded_.clear();
    base64_.Add(buffer_, encoded_);
    out_ << encoded_;
  } else {
    out_ << buffer_;
  }
  buffer_.clear();
  if (count_ < next_report_) return;
  progress_(static_cast<double>(count_) / static_cast<double>(total_ + 1));
  next_report_ = count_ + total_ / 90 + 1;
}

void ArraySink::End() {
  Flush();
  if (!IsBase64(encoding_)) return;
  encoded_.clear();
  base64_.Finish(encoded_);
  out_ << encoded_;
}

// ---- the file -----------------------------------------------------------------------------------

Outcome WriteVtuFile(const VtuContent& content, const std::string& path, VtuEncoding encoding,
                     const Progress& progress) {
  Outcome outcome = WriteFileBy(
      path, [&](std::ostream& out) { Writer(content, out, encoding, progress).Write(); });
  if (outcome && progress) progress(1.0);
  return outcome;
}

}  // namespace qx::exchange
