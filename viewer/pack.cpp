#include "viewer/pack.h"

#include <bit>
#include <cmath>
#include <cstring>
#include <new>
#include <zlib.h>

namespace qx::viewer {

static_assert(std::endian::native == std::endian::little);

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
  std::string plain = "QXP1";
  const auto length = static_cast<std::uint32_t>(text.size());
  plain.append(reinterpret_cast<const char*>(&length), 4);
  plain += text;
  plain += data_;
  data_.clear();
  // The fastest level: what crosses the loopback need not be small, and most of the gain is in the
  // differences.
  uLongf size = compressBound(plain.size());
  std::string packed(size, '\0');
  if (compress2(reinterpret_cast<Bytef*>(packed.data()), &size,
                reinterpret_cast<const Bytef*>(plain.data()), plain.size(), 1) != Z_OK) {
    throw std::bad_alloc();
  }
  packed.resize(size);
  return packed;
}

}  // namespace qx::viewer
