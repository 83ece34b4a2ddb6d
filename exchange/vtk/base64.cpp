#include "exchange/vtk/base64.h"

#include <algorithm>
#include <array>

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

// What a character stands for, or one of these, which have the highest bit set.
constexpr std::uint32_t kWrong = 0x80000000;
constexpr std::uint32_t kBlank = 0x80000001;
constexpr std::uint32_t kPadding = 0x80000002;

constexpr std::array<std::uint32_t, 256> MakeValues() {
  std::array<std::uint32_t, 256> values{};
  values.fill(kWrong);
  for (std::uint32_t i = 0; i < 64; ++i) values[static_cast<unsigned char>(kAlphabet[i])] = i;
  for (const char c : {' ', '\t', '\r', '\n'}) values[static_cast<unsigned char>(c)] = kBlank;
  values['='] = kPadding;
  return values;
}
constexpr std::array<std::uint32_t, 256> kValues = MakeValues();

std::uint32_t ValueOf(char c) { return kValues[static_cast<unsigned char>(c)]; }

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

bool Base64Decoder::Read(char* out, std::size_t count) {
  while (count > 0) {
    // Whole groups without blanks are nearly everything there is.
    while (have_ == 0 && count >= 3 && text_.size() - at_ >= 4) {
      const char* in = text_.data() + at_;
      const std::uint32_t a = ValueOf(in[0]), b = ValueOf(in[1]), c = ValueOf(in[2]),
                          d = ValueOf(in[3]);
      if ((a | b | c | d) & kWrong) break;
      const std::uint32_t bits = a << 18 | b << 12 | c << 6 | d;
      out[0] = static_cast<char>(bits >> 16);
      out[1] = static_cast<char>(bits >> 8);
      out[2] = static_cast<char>(bits);
      at_ += 4;
      out += 3;
      count -= 3;
    }
    if (count == 0) break;
    if (!ReadByte(*out)) return false;
    ++out;
    --count;
  }
  return true;
}

bool Base64Decoder::ReadByte(char& out) {
  while (have_ < 8) {
    if (at_ == text_.size()) return false;
    const std::uint32_t value = ValueOf(text_[at_]);
    if (value == kWrong) return false;
    ++at_;
    if (value == kBlank) continue;
    if (value == kPadding) {
      bits_ = 0;
      have_ = 0;
      continue;
    }
    bits_ = bits_ << 6 | value;
    have_ += 6;
  }
  have_ -= 8;
  out = static_cast<char>(bits_ >> have_);
  bits_ &= (1u << have_) - 1;
  return true;
}

void Base64Decoder::EndStream() {
  while (at_ < text_.size() && (ValueOf(text_[at_]) == kPadding || ValueOf(text_[at_]) == kBlank)) {
    ++at_;
  }
  bits_ = 0;
  have_ = 0;
}

}  // namespace qx::exchange
