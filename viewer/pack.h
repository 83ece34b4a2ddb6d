#pragma once
// The form in which numbers reach the page: one compressed block of named arrays behind a text.
//
// Inflated (zlib), a pack is: "QXP1"; the length of the text as uint32; the text, JSON, padded with
// blanks to a multiple of 4 bytes; the arrays, each from a multiple of 4 bytes on. The member
// "arrays" of the text names them: {"name": [kind, first byte behind the text, count, stride]}.
// Kind "i": int32, each as its difference from the one `stride` before it, which makes numbers of
// meshes compress; "f": float32; "b": uint8. Numbers are little-endian.

#include <cstdint>
#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>
#include <span>
#include <string>
#include <string_view>

namespace qx::viewer {

/// A JSON text being written. Values that are no number become null.
class Json : public rapidjson::Writer<rapidjson::StringBuffer> {
 public:
  Json() : Writer(buffer_) {}
  Json& Name(std::string_view name) {
    Key(name.data(), static_cast<rapidjson::SizeType>(name.size()));
    return *this;
  }
  Json& Text(std::string_view value) {
    String(value.data(), static_cast<rapidjson::SizeType>(value.size()));
    return *this;
  }
  Json& Number(double value);
  Json& Text(std::string_view name, std::string_view value) { return Name(name).Text(value); }
  Json& Integer(std::string_view name, std::int64_t value) {
    Name(name).Int64(value);
    return *this;
  }
  Json& Number(std::string_view name, double value) { return Name(name).Number(value); }
  Json& Flag(std::string_view name, bool value) {
    Name(name).Bool(value);
    return *this;
  }
  /// A list of whole numbers under a name.
  Json& Integers(std::string_view name, std::span<const std::int32_t> values);
  std::string Result() const { return {buffer_.GetString(), buffer_.GetSize()}; }

 private:
  rapidjson::StringBuffer buffer_;
};

/// Builds a pack. Members are written to Text() between construction and Finish.
class Pack {
 public:
  Pack() { text_.StartObject(); }
  Json& Text() { return text_; }
  void Integers(std::string_view name, std::span<const std::int32_t> values, int stride = 1);
  void Floats(std::string_view name, std::span<const float> values);
  void Bytes(std::string_view name, std::span<const std::uint8_t> values);
  /// The compressed whole; the pack is spent. Throws std::bad_alloc.
  std::string Finish();

 private:
  char* Add(std::string_view name, char kind, std::size_t count, std::size_t bytes, int stride);

  Json text_;
  Json arrays_;
  bool any_ = false;
  std::string data_;
};

}  // namespace qx::viewer
