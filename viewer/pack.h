#pragma once
// The form in which numbers reach the page: one compressed block of named arrays before a text.
//
// Inflated (zlib), a pack is: the arrays, each from a multiple of 4 bytes on; a text, JSON, padded
// with blanks to a multiple of 4 bytes; its length as uint32; "QXP2". What stands last is what is
// known last, so that a pack is compressed as it is made and never held as a whole. The member
// "arrays" of the text names them: {"name": [kind, first byte, count, stride]}.
// Kind "i": int32, each as its difference from the one `stride` before it, which makes numbers of
// meshes compress; "f": float32; "b": uint8. Numbers are little-endian.

#include <cstdint>
#include <memory>
#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

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

/// Builds a pack. Members are written to Text() between construction and Finish. Everything but
/// Text() throws std::bad_alloc.
class Pack {
 public:
  Pack();
  ~Pack();
  Pack(const Pack&) = delete;
  Pack& operator=(const Pack&) = delete;
  Json& Text() { return text_; }
  void Integers(std::string_view name, std::span<const std::int32_t> values, int stride = 1) {
    IntegersBy(name, values.size(), stride, [&](std::size_t i) { return values[i]; });
  }
  /// The same of numbers that are asked for one after another: get(0) to get(count - 1).
  template <class Get>
  void IntegersBy(std::string_view name, std::size_t count, int stride, Get&& get) {
    AddArray(name, 'i', count, 4 * count, stride);
    std::vector<std::uint32_t> before(static_cast<std::size_t>(stride), 0);
    for (std::size_t i = 0, at = 0; i < count; ++i) {
      // Unsigned: differences of any two numbers wrap around and back.
      const auto value = static_cast<std::uint32_t>(get(i));
      const std::uint32_t difference = value - std::exchange(before[at], value);
      Write(&difference, 4);
      if (++at == before.size()) at = 0;
    }
  }
  void Floats(std::string_view name, std::span<const float> values);
  void Bytes(std::string_view name, std::span<const std::uint8_t> values);
  /// The compressed whole; the pack is spent.
  std::string Finish();

 private:
  void AddArray(std::string_view name, char kind, std::size_t count, std::size_t bytes, int stride);
  void Write(const void* bytes, std::size_t count) {
    if (waiting_.size() + count > kAtOnce) Deflate(false);
    const char* from = static_cast<const char*>(bytes);
    waiting_.insert(waiting_.end(), from, from + count);
  }
  void WriteAll(const char* bytes, std::size_t count);
  void Deflate(bool last);

  static constexpr std::size_t kAtOnce = std::size_t{1} << 16;
  struct Stream;  // of zlib
  std::unique_ptr<Stream> stream_;
  std::vector<char> waiting_;
  std::string packed_;
  std::uint64_t written_ = 0;
  Json text_;
  Json arrays_;
  bool any_ = false;
};

}  // namespace qx::viewer
