#pragma once
// Base64 (RFC 4648) of a stream of bytes.
// Threads: shares nothing; one at a time for each object.

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

}  // namespace qx::exchange
