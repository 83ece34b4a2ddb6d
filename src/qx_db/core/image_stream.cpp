#include "qx_db/core/image_stream.h"

namespace qx {

std::uint32_t AppendImage(const Schema& schema, const TStructBase& record,
                          std::vector<char>& stream) {
  const auto size = static_cast<std::uint32_t>(ImageSize(schema, record));
  const std::size_t at = stream.size();
  stream.resize(at + 4 + size);
  StoreAt(stream.data() + at, size);
  WriteImage(schema, record, stream.data() + at + 4);
  ImageIteratorsToKeys(schema, stream.data() + at + 4);
  return size;
}

std::string ReadImages(std::span<const char> stream, std::int64_t count, const ImageReader& reader,
                       DPoolBase& pool) {
  const auto record = pool.NewRecord();
  std::size_t at = 0;
  for (std::int64_t i = 0; i < count; ++i) {
    const auto fault_of = [i](const std::string& what) {
      return "record " + std::to_string(i) + ": " + what;
    };
    const std::size_t left = stream.size() - at;
    const std::uint32_t size = left >= 4 ? LoadAt<std::uint32_t>(stream.data() + at) : 0;
    if (left < 4 || size > left - 4) return fault_of("is cut short");
    const char* image = stream.data() + at + 4;
    if (const std::string fault = reader.Check(image, size); !fault.empty()) {
      return fault_of(fault);
    }
    reader.Read(image, *record);
    if (!pool.Set().Insert(*record)) {
      return fault_of("key " + std::to_string(record->GetKey()) +
                      (record->GetKey() < 0 ? " is negative" : " is used twice"));
    }
    at += 4 + size;
  }
  return at == stream.size() ? "" : "there are bytes after the last record";
}

}  // namespace qx
