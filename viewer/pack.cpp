#include "viewer/pack.h"

#include <bit>
#include <cmath>
#include <cstring>
#include <initializer_list>
#include <new>
#include <zlib.h>

namespace qx::viewer {

static_assert(std::endian::native == std::endian::little);

namespace {

/// Pieces one after another, compressed at the fastest level: what crosses the loopback need not be
/// small, and most of the gain is in the differences.
std::string Deflated(std::initializer_list<std::string_view> pieces) {
  constexpr std::size_t kStep = std::size_t{1} << 20;
  z_stream stream{};
  if (deflateInit(&stream, 1) != Z_OK) throw std::bad_alloc();
  std::string out;
  const auto run = [&](int flush) {
    int state = Z_OK;
    do {
      const std::size_t used = out.size();
      out.resize(used + kStep);
      stream.next_out = reinterpret_cast<Bytef*>(out.data() + used);
      stream.avail_out = static_cast<uInt>(kStep);
      state = deflate(&stream, flush);
      out.resize(out.size() - stream.avail_out);
    } while (stream.avail_out == 0 && state != Z_STREAM_END);
  };
  for (std::string_view piece : pieces) {
    while (!piece.empty()) {  // the library counts in 32 bits
      const std::string_view part = piece.substr(0, std::size_t{1} << 30);
      piece.remove_prefix(part.size());
      stream.next_in = reinterpret_cast<Bytef*>(const_cast<char*>(part.data()));
      stream.avail_in = static_cast<uInt>(part.size());
      run(Z_NO_FLUSH);
    }
  }
  run(Z_FINISH);
  deflateEnd(&stream);
  return out;
}

}  // namespace

Json& Json::Number(double value) {
  if (!std::isfinite(value)) {
    Null();
  } else {
    Double(value);
  }
  return *this;
}

Json& Json::Integers(std::string_view name, std::span<const std::int32_t> values) {
  Name(name).StartArray();
  for (const std::int32_t value : values) Int(value);
  EndArray();
  return *this;
}

char* Pack::Add(std::string_view name, char kind, std::size_t count, std::size_t bytes,
                int stride) {
  if (!any_) arrays_.StartObject();
  any_ = true;
  const std::size_t first = data_.size();
  arrays_.Name(name).StartArray();
  arrays_.Text(std::string_view(&kind, 1));
  arrays_.Uint64(first);
  arrays_.Uint64(count);
  arrays_.Int(stride);
  arrays_.EndArray();
  data_.resize(first + (bytes + 3) / 4 * 4);
  return data_.data() + first;
}

void Pack::Integers(std::string_view name, std::span<const std::int32_t> values, int stride) {
  char* out = Add(name, 'i', values.size(), values.size_bytes(), stride);
  const auto step = static_cast<std::size_t>(stride);
  for (std::size_t i = 0; i < values.size(); ++i, out += 4) {
    // Unsigned: differences of any two keys wrap around and back.
    const std::uint32_t before = i < step ? 0 : static_cast<std::uint32_t>(values[i - step]);
    const std::uint32_t difference = static_cast<std::uint32_t>(values[i]) - before;
    std::memcpy(out, &difference, 4);
  }
}

void Pack::Floats(std::string_view name, std::span<const float> values) {
  char* out = Add(name, 'f', values.size(), values.size_bytes(), 1);
  if (!values.empty()) std::memcpy(out, values.data(), values.size_bytes());
}

void Pack::Bytes(std::string_view name, std::span<const std::uint8_t> values) {
  char* out = Add(name, 'b', values.size(), values.size_bytes(), 1);
  if (!values.empty()) std::memcpy(out, values.data(), values.size_bytes());
}

std::string Pack::Finish() {
  if (any_) {
    arrays_.EndObject();
    const std::string arrays = arrays_.Result();
    text_.Name("arrays").RawValue(arrays.data(), arrays.size(), rapidjson::kObjectType);
  }
  text_.EndObject();
  std::string text = text_.Result();
  text.resize((text.size() + 3) / 4 * 4, ' ');
  std::string head = "QXP1";
  const auto length = static_cast<std::uint32_t>(text.size());
  head.append(reinterpret_cast<const char*>(&length), 4);
  head += text;
  std::string packed = Deflated({head, data_});
  data_.clear();
  return packed;
}

}  // namespace qx::viewer
