// Any bytes as the steps behind the pages of a good model, with every checksum right: refused, or a
// model that stands its checks, can be saved, undone and redone.
//
// An input is a row of frames: kind, length in 16 bits, payload.

#include <algorithm>

#include "fuzz/model_parts.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size) {
  using namespace qx;
  using namespace qx::fuzz;
  static const FileParts base = TakeApart(BaseFile());
  static const std::string pages = Pages(base);
  static const std::string path = Folder() + "/steps.qxm";
  FileParts parts;
  parts.numbers = base.numbers;
  for (std::size_t at = 0; at + 3 <= size;) {
    const auto kind = static_cast<FrameKind>(bytes[at] % 10);
    const std::size_t length =
        std::min<std::size_t>(bytes[at + 1] | bytes[at + 2] << 8, size - at - 3);
    at += 3;
    parts.frames.push_back({kind, 0, {reinterpret_cast<const char*>(bytes + at), length}});
    at += length;
  }
  std::ofstream(path, std::ios::binary | std::ios::trunc) << PutTogether(parts, pages);
  OpenAndUse(path);
  return 0;
}
