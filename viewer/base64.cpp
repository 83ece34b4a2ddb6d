#include "viewer/base64.h"

#include <openssl/evp.h>

namespace qx::viewer {
namespace {

/// The library counts in int; whole groups of three bytes go piece by piece.
constexpr std::size_t kPiece = std::size_t{3} << 20;

const unsigned char* BytesAt(std::string_view text, std::size_t at) {
  return reinterpret_cast<const unsigned char*>(text.data()) + at;
}
unsigned char* BytesAt(std::string& text, std::size_t at) {
  return reinterpret_cast<unsigned char*>(text.data()) + at;
}

}  // namespace

std::string ToBase64(std::string_view bytes) {
  std::string out((bytes.size() + 2) / 3 * 4 + 1, '\0');  // and the zero that the library adds
  for (std::size_t at = 0; at < bytes.size(); at += kPiece) {
    const auto count = static_cast<int>(bytes.substr(at, kPiece).size());
    EVP_EncodeBlock(BytesAt(out, at / 3 * 4), BytesAt(bytes, at), count);
  }
  out.pop_back();
  return out;
}

std::string FromBase64(std::string_view text) {
  constexpr std::size_t kTextPiece = kPiece / 3 * 4;
  std::string out(text.size() / 4 * 3, '\0');
  for (std::size_t at = 0; at < text.size(); at += kTextPiece) {
    const auto count = static_cast<int>(text.substr(at, kTextPiece).size());
    if (EVP_DecodeBlock(BytesAt(out, at / 4 * 3), BytesAt(text, at), count) < 0) return {};
  }
  // The library counts the padding as bytes.
  for (std::size_t i = 0; i < 2 && text.ends_with('='); ++i) {
    out.pop_back();
    text.remove_suffix(1);
  }
  return out;
}

}  // namespace qx::viewer
