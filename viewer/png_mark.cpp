#include "viewer/png_mark.h"

#include <string_view>
#include <zlib.h>

namespace qx::viewer {
namespace {

void AppendBigEndian(std::string& to, unsigned long value) {
  for (int shift = 24; shift >= 0; shift -= 8) to += static_cast<char>(value >> shift & 0xFF);
}

}  // namespace

std::string MarkedPng(std::string png) {
  using namespace std::string_view_literals;
  constexpr std::size_t kHeaderEnd = 8 + 4 + 4 + 13 + 4;  // signature and chunk IHDR
  if (!png.starts_with("\x89PNG") || png.size() < kHeaderEnd) return png;
  constexpr auto kData = "Software\0qxdb"sv;
  std::string body = "tEXt";
  body += kData;
  std::string chunk;
  AppendBigEndian(chunk, kData.size());
  chunk += body;
  AppendBigEndian(
      chunk, crc32(0, reinterpret_cast<const Bytef*>(body.data()), static_cast<uInt>(body.size())));
  return png.insert(kHeaderEnd, chunk);
}

}  // namespace qx::viewer
