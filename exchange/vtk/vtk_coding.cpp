#include "exchange/vtk/vtk_coding.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <fmt/format.h>
#include <lz4.h>
#include <new>
#include <zlib.h>

#include "exchange/vtk/base64.h"

namespace qx::exchange {
namespace {

// What a file may unpack to. Real meshes stay below a tenth of it: coordinates and connectivity
// shrink to a fifth or so, and all arrays have as many values as there are points or cells.
constexpr std::uint64_t kMostGrowth = 256;
constexpr std::uint64_t kAlwaysAllowed = std::uint64_t{64} << 20;

const char* Skip(const char* at, const char* end) {
  while (at != end && static_cast<unsigned char>(*at) <= ' ') ++at;
  return at;
}

template <class T>
bool ParseWords(std::string_view& text, std::uint64_t most, std::vector<T>& values,
                const OnWrongWord& on_wrong) {
  const char* at = text.data();
  const char* const end = at + text.size();
  while ((at = Skip(at, end)) != end && values.size() < most) {
    const char* const word = at;
    if (*at == '+' && end - at > 1 && at[1] != '-') ++at;
    T value{};
    const auto [stop, error] = std::from_chars(at, end, value);
    const bool is_whole = stop == end || static_cast<unsigned char>(*stop) <= ' ';
    bool is_good = error == std::errc() && is_whole;
    if (error == std::errc::result_out_of_range && std::is_same_v<T, double> && is_whole) {
      // Too small to be told from zero, or too large for anything.
      value = static_cast<T>(std::strtod(std::string(at, stop).c_str(), nullptr));
      is_good = !std::isinf(static_cast<double>(value));
    }
    at = stop;
    if (!is_good) {
      at = word;
      while (at != end && static_cast<unsigned char>(*at) > ' ') ++at;
      if (!on_wrong({word, static_cast<std::size_t>(at - word)})) return false;
      value = 0;
    }
    values.push_back(value);
  }
  text.remove_prefix(static_cast<std::size_t>(at - text.data()));
  return true;
}

}  // namespace

bool ParseNumbers(std::string_view& text, std::uint64_t most, std::vector<std::int64_t>& values,
                  const OnWrongWord& on_wrong) {
  return ParseWords(text, most, values, on_wrong);
}

bool ParseNumbers(std::string_view& text, std::uint64_t most, std::vector<double>& values,
                  const OnWrongWord& on_wrong) {
  return ParseWords(text, most, values, on_wrong);
}

std::vector<std::int64_t> VtkArray::Integers() const {
  std::vector<std::int64_t> values;
  AppendTo(values, [](auto value) { return AsInteger(value); });
  return values;
}

/// Bytes one after another, whether they stand in base64 or not.
class VtkDecoder::Source {
 public:
  Source(std::string_view stored, bool is_base64)
      : stored_(stored), is_base64_(is_base64), decoder_(stored) {}

  bool IsBase64() const { return is_base64_; }
  std::uint64_t MostBytes() const { return is_base64_ ? decoder_.MostBytes() : stored_.size(); }
  bool Read(char* out, std::size_t count) {
    if (is_base64_) return decoder_.Read(out, count);
    if (stored_.size() < count) return false;
    std::copy_n(stored_.data(), count, out);
    stored_.remove_prefix(count);
    return true;
  }
  /// The next bytes without a copy; of what is not in base64.
  std::string_view Take(std::size_t count) {
    const std::string_view bytes = stored_.substr(0, count);
    stored_.remove_prefix(bytes.size());
    return bytes;
  }
  void EndHeader() { decoder_.EndStream(); }

 private:
  std::string_view stored_;
  bool is_base64_;
  Base64Decoder decoder_;
};

/// zlib's state, kept from block to block.
class VtkDecoder::Inflater {
 public:
  Inflater() : good_(inflateInit(&stream_) == Z_OK) {}
  ~Inflater() { inflateEnd(&stream_); }
  Inflater(const Inflater&) = delete;
  Inflater& operator=(const Inflater&) = delete;

  /// Unpacks to exactly `size` bytes.
  bool Inflate(std::string_view packed, char* out, std::size_t size) {
    if (!good_ || inflateReset(&stream_) != Z_OK) return false;
    stream_.next_in = reinterpret_cast<Bytef*>(const_cast<char*>(packed.data()));
    stream_.avail_in = static_cast<uInt>(packed.size());
    stream_.next_out = reinterpret_cast<Bytef*>(out);
    stream_.avail_out = static_cast<uInt>(size);
    return inflate(&stream_, Z_FINISH) == Z_STREAM_END && stream_.avail_out == 0;
  }

 private:
  z_stream stream_{};
  bool good_;
};

VtkDecoder::VtkDecoder(const VtkCoding& coding, std::uint64_t file_bytes)
    : coding_(coding), left_(kAlwaysAllowed + kMostGrowth * file_bytes) {}
VtkDecoder::~VtkDecoder() = default;

std::uint64_t VtkDecoder::HeaderNumber(const char* at) const {
  return coding_.header_number == 8 ? LoadNumber<std::uint64_t>(at, coding_.swapped)
                                    : LoadNumber<std::uint32_t>(at, coding_.swapped);
}

std::string VtkDecoder::CheckLength(std::uint64_t bytes, std::uint64_t values,
                                    const VtkArray& array) {
  const std::uint64_t size = SizeOf(array.number);
  if (values != kAnyCount && bytes != values * size) {
    return fmt::format("it has {} bytes where {} values of {} are needed", bytes, values, size);
  }
  if (bytes % size != 0) return fmt::format("its {} bytes are no whole number of values", bytes);
  if (bytes > left_) return "the file unpacks to more than 256 times its size";
  return {};
}

std::string VtkDecoder::Decode(std::string_view stored, bool is_base64, std::uint64_t values,
                               VtkArray& array) {
  array.swapped = coding_.swapped;
  Source source(stored, is_base64);
  if (coding_.compression != VtkCompression::kNone) return DecodeBlocks(source, values, array);
  char header[8];
  if (!source.Read(header, coding_.header_number)) return "it ends within its length";
  const std::uint64_t bytes = HeaderNumber(header);
  if (std::string wrong = CheckLength(bytes, values, array); !wrong.empty()) return wrong;
  if (bytes > source.MostBytes()) return fmt::format("it ends before its {} bytes", bytes);
  if (!is_base64) {
    array.Borrow(source.Take(bytes));
    return {};
  }
  left_ -= bytes;
  if (!source.Read(array.Allocate(bytes), bytes)) {
    return fmt::format("its {} bytes are not all there as base64", bytes);
  }
  return {};
}

std::string VtkDecoder::DecodeBlocks(Source& source, std::uint64_t values, VtkArray& array) {
  constexpr const char* kShort = "it ends within the lengths of its blocks";
  const std::size_t width = coding_.header_number;
  char head[24];
  if (!source.Read(head, width)) return kShort;
  const std::uint64_t blocks = HeaderNumber(head);
  // Writers end the header of an array without blocks here or after two more numbers.
  if (blocks == 0) {
    if (std::string wrong = CheckLength(0, values, array); !wrong.empty()) return wrong;
    array.Allocate(0);
    return {};
  }
  if (!source.Read(head + width, 2 * width)) return kShort;
  const std::uint64_t block = HeaderNumber(head + width);
  const std::uint64_t last = HeaderNumber(head + 2 * width);
  if (blocks > source.MostBytes() / width) return kShort;
  if (block == 0 || last > block || block > std::numeric_limits<std::uint32_t>::max() / 2) {
    return fmt::format("blocks of {} and {} bytes cannot be", block, last);
  }
  const std::uint64_t bytes = (last == 0 ? blocks : blocks - 1) * block + last;
  if (blocks > (std::uint64_t{1} << 40) / block) return "it is larger than anything";
  if (std::string wrong = CheckLength(bytes, values, array); !wrong.empty()) return wrong;
  std::vector<char> header(blocks * width);
  if (!source.Read(header.data(), header.size())) return kShort;
  source.EndHeader();
  std::vector<std::uint64_t> sizes(blocks);
  std::uint64_t packed_bytes = 0;
  for (std::size_t i = 0; i < blocks; ++i) {
    sizes[i] = HeaderNumber(header.data() + i * width);
    if (sizes[i] > source.MostBytes() || (packed_bytes += sizes[i]) > source.MostBytes()) {
      return fmt::format("it ends before the {} bytes of block {}", sizes[i], i + 1);
    }
  }
  left_ -= bytes;
  std::vector<char> packed;
  char* to = array.Allocate(bytes);
  if (!inflater_) inflater_ = std::make_unique<Inflater>();
  for (std::size_t i = 0; i < blocks; ++i) {
    std::string_view from;
    if (source.IsBase64()) {
      packed.resize(sizes[i]);
      if (!source.Read(packed.data(), sizes[i])) {
        return fmt::format("block {} is not all there as base64", i + 1);
      }
      from = {packed.data(), packed.size()};
    } else {
      from = source.Take(sizes[i]);
    }
    const std::size_t size = i + 1 == blocks && last > 0 ? last : block;
    const bool is_good =
        coding_.compression == VtkCompression::kZlib
            ? inflater_->Inflate(from, to, size)
            : LZ4_decompress_safe(from.data(), to, static_cast<int>(from.size()),
                                  static_cast<int>(size)) == static_cast<int>(size);
    if (!is_good) return fmt::format("block {} cannot be unpacked to {} bytes", i + 1, size);
    to += size;
  }
  return {};
}

std::string VtkDecoder::Parse(std::string_view text, std::uint64_t values, VtkArray& array,
                              const OnWrongWord& on_wrong) {
  const std::uint64_t room = std::min<std::uint64_t>(values, text.size() / 2 + 1);
  const auto parse = [&]<class T>(std::vector<T> found) -> std::string {
    MakeRoom(found, values == kAnyCount ? 0 : room);
    if (!ParseNumbers(text, values, found, on_wrong)) return {};
    if (!text.empty()) return fmt::format("it has more than {} values", values);
    if (values != kAnyCount && found.size() != values) {
      return fmt::format("it has {} values of {}", found.size(), values);
    }
    array.Own(found);
    return {};
  };
  return array.IsInteger() ? parse(std::vector<std::int64_t>()) : parse(std::vector<double>());
}

/// zlib's state, kept from block to block.
class VtkPacker::Deflater {
 public:
  // The fastest level: a fifth more bytes than by the best, in a fifth of its time.
  Deflater() : good_(deflateInit(&stream_, 1) == Z_OK) {}
  ~Deflater() { deflateEnd(&stream_); }
  Deflater(const Deflater&) = delete;
  Deflater& operator=(const Deflater&) = delete;

  /// Packs a block to at most `room` bytes; gives how many.
  std::size_t Deflate(std::string_view block, char* out, std::size_t room) {
    if (!good_ || deflateReset(&stream_) != Z_OK) throw std::bad_alloc();
    stream_.next_in = reinterpret_cast<Bytef*>(const_cast<char*>(block.data()));
    stream_.avail_in = static_cast<uInt>(block.size());
    stream_.next_out = reinterpret_cast<Bytef*>(out);
    stream_.avail_out = static_cast<uInt>(room);
    deflate(&stream_, Z_FINISH);
    return room - stream_.avail_out;
  }

 private:
  z_stream stream_{};
  bool good_;
};

VtkPacker::VtkPacker(VtkCompression compression)
    : compression_(compression),
      out_(std::max<std::size_t>(compressBound(kBlockBytes), LZ4_COMPRESSBOUND(kBlockBytes))) {}

VtkPacker::~VtkPacker() = default;

std::string_view VtkPacker::Pack(std::string_view block) {
  if (compression_ == VtkCompression::kZlib) {
    if (!deflater_) deflater_ = std::make_unique<Deflater>();
    return {out_.data(), deflater_->Deflate(block, out_.data(), out_.size())};
  }
  // As VTK does by default: hardly more bytes than at 1, in two thirds of the time.
  constexpr int kAcceleration = 5;
  const int size = LZ4_compress_fast(block.data(), out_.data(), static_cast<int>(block.size()),
                                     static_cast<int>(out_.size()), kAcceleration);
  return {out_.data(), static_cast<std::size_t>(size)};
}

std::vector<std::uint64_t> VtkPacker::HeaderOf(std::uint64_t bytes,
                                               const std::vector<std::uint64_t>& sizes) {
  if (bytes == 0) return {0};
  const std::uint64_t blocks = (bytes + kBlockBytes - 1) / kBlockBytes;
  std::vector<std::uint64_t> header{blocks, kBlockBytes, bytes % kBlockBytes};
  header.insert(header.end(), sizes.begin(), sizes.end());
  header.resize(3 + blocks);
  return header;
}

}  // namespace qx::exchange
