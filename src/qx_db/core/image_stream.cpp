#include "qx_db/core/image_stream.h"

#include <algorithm>
#include <cstring>

namespace qx {

std::uint64_t DropUnsaved(const Schema& schema, char* image, std::uint64_t size) {
  const auto is_unsaved = [](const Row* row) {
    return row->IsArray() && row->reference_rule == ReferenceRule::kNotSaved;
  };
  const auto& references = schema.References();
  if (std::none_of(references.begin(), references.end(), is_unsaved)) return size;
  const std::vector<std::size_t> offsets = MemberOffsets(schema, image);
  for (std::size_t i = schema.Rows().size(); i-- > 0;) {  // what stands behind one moves first
    if (!is_unsaved(&schema.Rows()[i])) continue;
    auto header = LoadAt<detail::ArrayHeader>(image + offsets[i]);
    header.count = 0;
    StoreAt(image + offsets[i], header);
    const std::size_t entries = offsets[i] + sizeof(header);
    std::memmove(image + entries, image + offsets[i + 1], size - offsets[i + 1]);
    size -= offsets[i + 1] - entries;
  }
  return size;
}

Outcome CheckKeys(const DPoolBase& pool, const std::string& path) {
  const Key key = pool.Set().SharedKey();
  if (key < 0) return {};
  return Failure{path, "pool " + Utf8(pool.GetIOName()),
                 "two records share the key " + std::to_string(key), "renumber one of them"};
}

std::uint32_t AppendImage(const Schema& schema, const TStructBase& record,
                          std::vector<char>& stream) {
  const std::uint64_t whole = ImageSize(schema, record);
  const std::size_t at = stream.size();
  stream.resize(at + 4 + whole);
  char* const image = stream.data() + at + 4;
  WriteImage(schema, record, image);
  const auto size = static_cast<std::uint32_t>(DropUnsaved(schema, image, whole));
  StoreAt(stream.data() + at, size);
  stream.resize(at + 4 + size);
  ImageIteratorsToKeys(schema, image);
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
    if (!PoolInside::SetOf(pool).Insert(*record)) {
      return fault_of("key " + std::to_string(record->GetKey()) +
                      (record->GetKey() < 0 ? " is negative" : " is used twice"));
    }
    at += 4 + size;
  }
  return at == stream.size() ? "" : "there are bytes after the last record";
}

}  // namespace qx
