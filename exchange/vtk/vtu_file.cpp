#include "exchange/vtk/vtu_file.h"

#include <algorithm>
#include <bit>
#include <fmt/format.h>
#include <iterator>
#include <limits>
#include <sstream>

#include "qx_db/platform/file.h"

namespace qx::exchange {
namespace {

// What stands in the document for the values of an array; no markup can contain it.
constexpr const char* kPlaceholder = "@";

VtkCompression CompressionOf(const VtuForm& form) {
  if (!form.IsPacked()) return VtkCompression::kNone;
  return form.compression == VtuCompression::kLz4 ? VtkCompression::kLz4 : VtkCompression::kZlib;
}

std::uint64_t StoredSize(const DataArray& array, const VtuForm& form) {
  const std::uint64_t bytes = sizeof(std::uint64_t) + array.Bytes();
  return form.IsBase64() ? Base64Size(bytes) : bytes;
}

/// A name without control characters, which XML 1.0 does not know.
std::string XmlName(std::string name) {
  for (char& c : name) c = static_cast<unsigned char>(c) < 0x20 ? '?' : c;
  return name;
}

class Writer {
 public:
  Writer(const VtuContent& content, std::ostream& out, const VtuForm& form,
         const Progress& progress)
      : content_(content), out_(out), form_(form), progress_(progress) {}

  void Write() {
    // How long packed arrays are is known when they are written: then the document is written
    // again, in the same length.
    std::vector<std::uint64_t> offsets;
    const std::string text = Document(offsets);
    ArraySink sink(out_, form_, TotalValues(), progress_);
    // The document, with the values of the arrays where they are awaited.
    std::size_t at = 0;
    const auto put_up_to = [&](std::string_view tag) {
      const std::size_t place = text.find(kPlaceholder + std::string(tag), at);
      out_ << std::string_view(text).substr(at, place - at);
      at = place + 1;
    };
    if (form_.IsAppended()) {
      put_up_to("</AppendedData>");
      out_ << "\n_";
      std::uint64_t offset = 0;
      ForEachArray([&](const DataArray& array) {
        offsets.push_back(offset);
        offset += PutValues(array, sink);
      });
      out_ << '\n';
    } else {
      ForEachArray([&](const DataArray& array) {
        put_up_to("</DataArray>");
        out_ << '\n';
        PutValues(array, sink);
        out_ << '\n';
      });
    }
    out_ << std::string_view(text).substr(at);
    if (!form_.IsAppended() || !form_.IsPacked()) return;
    const std::string again = Document(offsets);
    out_.seekp(0);
    out_ << std::string_view(again).substr(
        0, again.find(kPlaceholder + std::string("</AppendedData>")));
  }

 private:
  std::uint64_t TotalValues() const {
    std::uint64_t total = 0;
    for (const VtuContent::Section& section : content_.sections) {
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

  /// The file without values. `offsets` are those of packed arrays, as far as they are known: they
  /// take the same number of digits.
  std::string Document(const std::vector<std::uint64_t>& offsets) {
    pugi::xml_document document;
    document.append_child(pugi::node_declaration).append_attribute("version") = "1.0";
    content_.notes.Write(document);
    pugi::xml_node root = document.append_child("VTKFile");
    root.append_attribute("type") = "UnstructuredGrid";
    root.append_attribute("version") = "1.0";
    constexpr bool kLittle = std::endian::native == std::endian::little;
    root.append_attribute("byte_order") = kLittle ? "LittleEndian" : "BigEndian";
    root.append_attribute("header_type") = "UInt64";
    if (form_.IsPacked()) {
      root.append_attribute("compressor") = CompressionOf(form_) == VtkCompression::kLz4
                                                ? "vtkLZ4DataCompressor"
                                                : "vtkZLibDataCompressor";
    }
    pugi::xml_node grid = root.append_child("UnstructuredGrid");
    if (content_.time) {
      pugi::xml_node time = grid.append_child("FieldData").append_child("DataArray");
      time.append_attribute("type") = "Float64";
      time.append_attribute("Name") = "TimeValue";
      time.append_attribute("NumberOfTuples") = 1;
      time.append_attribute("format") = "ascii";
      time.text() = fmt::format("{}", *content_.time).c_str();
    }
    pugi::xml_node piece = grid.append_child("Piece");
    piece.append_attribute("NumberOfPoints") = std::to_string(content_.points).c_str();
    piece.append_attribute("NumberOfCells") = std::to_string(content_.cells).c_str();
    std::uint64_t offset = 0;
    auto packed_offset = offsets.begin();
    for (const VtuContent::Section& section : content_.sections) {
      pugi::xml_node parent = piece.append_child(section.name);
      for (const DataArray& array : section.arrays) {
        if (form_.IsPacked()) {
          Declare(parent, array, fmt::format("{:018}", offsets.empty() ? 0 : *packed_offset++));
        } else {
          Declare(parent, array, std::to_string(offset));
          offset += StoredSize(array, form_);
        }
      }
    }
    if (form_.IsAppended()) {
      pugi::xml_node appended = root.append_child("AppendedData");
      appended.append_attribute("encoding") = form_.IsBase64() ? "base64" : "raw";
      appended.text() = kPlaceholder;
    }
    std::ostringstream text;
    document.save(text, "");
    return text.str();
  }

  void Declare(pugi::xml_node parent, const DataArray& array, const std::string& offset) {
    pugi::xml_node node = parent.append_child("DataArray");
    node.append_attribute("type") = array.type;
    node.append_attribute("Name") = XmlName(array.name).c_str();
    node.append_attribute("NumberOfComponents") = array.components;
    node.append_attribute("format") = form_.IsText()       ? "ascii"
                                      : form_.IsAppended() ? "appended"
                                                           : "binary";
    if (form_.IsAppended()) {
      node.append_attribute("offset") = offset.c_str();
    } else {
      node.text() = kPlaceholder;
    }
  }

  static std::uint64_t PutValues(const DataArray& array, ArraySink& sink) {
    if (!sink.Good()) return 0;
    sink.Begin(array.Bytes(), array.components > 1 ? array.components : 16);
    array.fill(sink);
    return sink.End();
  }

  const VtuContent& content_;
  std::ostream& out_;
  VtuForm form_;
  const Progress& progress_;
};

}  // namespace

// ---- ArraySink ----------------------------------------------------------------------------------

ArraySink::ArraySink(std::ostream& out, const VtuForm& form, std::uint64_t total,
                     const Progress& progress)
    : out_(out), form_(form), packer_(CompressionOf(form)), total_(total), progress_(progress) {
  if (!progress_) next_report_ = std::numeric_limits<std::uint64_t>::max();
}

void ArraySink::Begin(std::uint64_t bytes, int values_a_line) {
  values_a_line_ = values_a_line;
  in_line_ = 0;
  bytes_ = bytes;
  written_ = 0;
  if (form_.IsText()) return;
  if (form_.IsPacked()) {
    packed_sizes_.clear();
    begin_ = out_.tellp();
    return WriteHeader();
  }
  std::memcpy(buffer_.data(), &bytes, sizeof(bytes));
  used_ = sizeof(bytes);
}

void ArraySink::PutText(double value) {
  char* const to = buffer_.data() + used_;
  used_ += static_cast<std::size_t>(fmt::format_to(to, "{}", value) - to);
  EndTextValue();
}

void ArraySink::PutText(std::int64_t value) {
  char* const to = buffer_.data() + used_;
  used_ += static_cast<std::size_t>(fmt::format_to(to, "{}", value) - to);
  EndTextValue();
}

void ArraySink::EndTextValue() {
  const bool full = ++in_line_ == values_a_line_;
  buffer_[used_++] = full ? '\n' : ' ';
  if (full) in_line_ = 0;
}

/// Bytes into the file, by base64 where that is the file's encoding.
void ArraySink::Write(std::string_view bytes) {
  if (form_.IsBase64()) {
    encoded_.clear();
    base64_.Add(bytes, encoded_);
    bytes = encoded_;
  }
  out_ << bytes;
  written_ += bytes.size();
}

void ArraySink::EndStream() {
  if (!form_.IsBase64()) return;
  encoded_.clear();
  base64_.Finish(encoded_);
  out_ << encoded_;
  written_ += encoded_.size();
}

/// Packs the whole blocks that there are; gives what is left.
std::string_view ArraySink::PackBlocks(std::string_view bytes) {
  for (; bytes.size() >= VtkPacker::kBlockBytes; bytes.remove_prefix(VtkPacker::kBlockBytes)) {
    PackBlock(bytes.substr(0, VtkPacker::kBlockBytes));
  }
  return bytes;
}

void ArraySink::PackBlock(std::string_view block) {
  const std::string_view packed = packer_.Pack(block);
  packed_sizes_.push_back(packed.size());
  Write(packed);
}

void ArraySink::Flush() {
  if (form_.IsPacked()) {
    const std::string_view rest = PackBlocks({buffer_.data(), used_});
    used_ = rest.size();
    std::memmove(buffer_.data(), rest.data(), used_);
  } else {
    Write({buffer_.data(), used_});
    used_ = 0;
  }
  if (count_ < next_report_) return;
  progress_(static_cast<double>(count_) / static_cast<double>(total_ + 1));
  next_report_ = count_ + total_ / 90 + 1;
}

/// Many bytes, which need no buffer but for what makes no whole block.
void ArraySink::PutBytes(std::string_view bytes) {
  while (!bytes.empty()) {
    std::size_t taken = bytes.size();
    if (used_ > 0 || taken < VtkPacker::kBlockBytes) {
      taken = std::min(taken, kBufferSize - used_);
      std::memcpy(buffer_.data() + used_, bytes.data(), taken);
      used_ += taken;
      if (used_ >= kBufferSize) Flush();
    } else {
      if (form_.IsPacked()) {
        taken -= PackBlocks(bytes).size();
      } else {
        Write(bytes);
      }
      Flush();
    }
    bytes.remove_prefix(taken);
  }
}

/// In base64 the header of a packed array is a stream of its own.
void ArraySink::WriteHeader() {
  const std::vector<std::uint64_t> header = VtkPacker::HeaderOf(bytes_, packed_sizes_);
  Write({reinterpret_cast<const char*>(header.data()), header.size() * sizeof(header[0])});
  EndStream();
}

std::uint64_t ArraySink::End() {
  Flush();
  if (form_.IsPacked() && used_ > 0) PackBlock({buffer_.data(), used_});
  used_ = 0;
  EndStream();
  if (!form_.IsPacked()) return written_;
  const auto end = out_.tellp();
  const std::uint64_t all = written_;
  out_.seekp(begin_);
  WriteHeader();
  out_.seekp(end);
  return all;
}

// ---- the file -----------------------------------------------------------------------------------

Outcome WriteVtuFile(const VtuContent& content, const std::string& path, const VtuForm& form,
                     const Progress& progress) {
  Outcome outcome =
      WriteFileBy(path, [&](std::ostream& out) { Writer(content, out, form, progress).Write(); });
  if (outcome && progress) progress(1.0);
  return outcome;
}

}  // namespace qx::exchange
