#include "viewer/pack.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <new>
#include <zlib.h>

namespace qx::viewer {

static_assert(std::endian::native == std::endian::little);

struct Pack::Stream {
  z_stream z{};
};

Pack::Pack() : stream_(std::make_unique<Stream>()) {
  // The fastest level: what crosses the loopback need not be small, and most of the gain is in the
  // differences.
  if (deflateInit(&stream_->z, 1) != Z_OK) throw std::bad_alloc();
  waiting_.reserve(kAtOnce);
  text_.StartObject();
}

Pack::~Pack() { deflateEnd(&stream_->z); }

void Pack::Deflate(bool last) {
  constexpr std::size_t kStep = std::size_t{1} << 18;
  z_stream& z = stream_->z;
  z.next_in = reinterpret_cast<Bytef*>(waiting_.data());
  z.avail_in = static_cast<uInt>(waiting_.size());
  int state = Z_OK;
  do {
    const std::size_t used = packed_.size();
    packed_.resize(used + kStep);
    z.next_out = reinterpret_cast<Bytef*>(packed_.data() + used);
    z.avail_out = static_cast<uInt>(kStep);
    state = deflate(&z, last ? Z_FINISH : Z_NO_FLUSH);
    packed_.resize(packed_.size() - z.avail_out);
  } while (z.avail_out == 0 && state != Z_STREAM_END);
  waiting_.clear();
}

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

void Pack::AddArray(std::string_view name, char kind, std::size_t count, std::size_t bytes,
                    int stride) {
  constexpr std::uint32_t kBlank = 0;
  Write(&kBlank, (4 - written_ % 4) % 4);
  written_ += (4 - written_ % 4) % 4;
  if (!any_) arrays_.StartObject();
  any_ = true;
  arrays_.Name(name).StartArray();
  arrays_.Text(std::string_view(&kind, 1));
  arrays_.Uint64(written_);
  arrays_.Uint64(count);
  arrays_.Int(stride);
  arrays_.EndArray();
  written_ += bytes;
}

void Pack::WriteAll(const char* bytes, std::size_t count) {
  for (std::size_t part = 0; count > 0; bytes += part, count -= part) {
    part = std::min(count, kAtOnce);
    Write(bytes, part);
  }
}

void Pack::Floats(std::string_view name, std::span<const float> values) {
  AddArray(name, 'f', values.size(), values.size_bytes(), 1);
  WriteAll(reinterpret_cast<const char*>(values.data()), values.size_bytes());
}

void Pack::Bytes(std::string_view name, std::span<const std::uint8_t> values) {
  AddArray(name, 'b', values.size(), values.size_bytes(), 1);
  WriteAll(reinterpret_cast<const char*>(values.data()), values.size_bytes());
}

std::string Pack::Finish() {
  if (any_) {
    arrays_.EndObject();
    const std::string arrays = arrays_.Result();
    text_.Name("arrays").RawValue(arrays.data(), arrays.size(), rapidjson::kObjectType);
  }
  text_.EndObject();
  std::string text = text_.Result();
  // From a multiple of 4 to one, which the arrays of bytes before need not end at.
  text.insert(0, (4 - written_ % 4) % 4, ' ');
  text.resize((written_ + text.size() + 3) / 4 * 4 - written_, ' ');
  const auto length = static_cast<std::uint32_t>(text.size());
  WriteAll(text.data(), text.size());
  Write(&length, 4);
  Write("QXP2", 4);
  Deflate(true);
  return std::move(packed_);
}

}  // namespace qx::viewer
