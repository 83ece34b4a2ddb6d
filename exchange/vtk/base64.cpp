#include "exchange/vtk/base64.h"

#include <algorithm>

namespace qx::exchange {
namespace {

constexpr char kAlphabet[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

std::uint32_t Byte(char c) { return static_cast<unsigned char>(c); }

void EncodeTriple(const char* in, char* out) {
  const std::uint32_t bits = Byte(in[0]) << 16 | Byte(in[1]) << 8 | Byte(in[2]);
  for (int i = 0; i < 4; ++i) out[i] = kAlphabet[(bits >> (18 - 6 * i)) & 63];
}

void EncodeTriples(std::string_view bytes, std::string& out) {
  const std::size_t old = out.size();
  out.resize(old + bytes.size() / 3 * 4);
  char* to = out.data() + old;
  for (std::size_t i = 0; i < bytes.size(); i += 3, to += 4) EncodeTriple(&bytes[i], to);
}

}  // namespace

void Base64Encoder::Add(std::string_view bytes, std::string& out) {
  while (!left_over_.empty() && left_over_.size() < 3 && !bytes.empty()) {
    left_over_ += bytes.front();
    bytes.remove_prefix(1);
  }
  if (left_over_.size() == 3) {
    EncodeTriples(left_over_, out);
    left_over_.clear();
  }
  const std::size_t whole = bytes.size() / 3 * 3;
  EncodeTriples(bytes.substr(0, whole), out);
  left_over_ += bytes.substr(whole);
}

void Base64Encoder::Finish(std::string& out) {
  const std::size_t count = left_over_.size();
  if (count == 0) return;
  left_over_.resize(3, '\0');
  EncodeTriples(left_over_, out);
  std::fill(out.end() - static_cast<std::ptrdiff_t>(3 - count), out.end(), '=');
  left_over_.clear();
}

}  // namespace qx::exchange
