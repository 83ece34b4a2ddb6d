#pragma once
// Base64 (RFC 4648) of a stream of bytes.

#include <cstdint>
#include <string>
#include <string_view>

namespace qx::exchange {

/// Characters of the base64 form of so many bytes, padding included.
constexpr std::uint64_t Base64Size(std::uint64_t bytes) { return (bytes + 2) / 3 * 4; }

/// Encodes bytes that come in pieces.
class Base64Encoder {
 public:
  /// Appends the characters of all complete triples to `out`; keeps what is left over.
  void Add(std::string_view bytes, std::string& out);
  /// Appends what is left over, padded, and begins anew.
  void Finish(std::string& out);

 private:
  std::string left_over_;  // 0 to 2 bytes
};

/// Decodes a text, in pieces, passing over blanks. Where a padded stream ends, the next one begins.
class Base64Decoder {
 public:
  explicit Base64Decoder(std::string_view text) : text_(text) {}

  /// The next `count` bytes; false when the text ends before or has another character.
  bool Read(char* out, std::size_t count);
  /// Most bytes that can follow.
  std::size_t MostBytes() const { return (text_.size() - at_) / 4 * 3 + 6; }
  /// Passes over the padding of the stream: the next bytes are another one's.
  void EndStream();

 private:
  bool ReadByte(char& out);

  std::string_view text_;
  std::size_t at_ = 0;
  std::uint32_t bits_ = 0;  // not given out yet
  int have_ = 0;            // their number
};

}  // namespace qx::exchange
