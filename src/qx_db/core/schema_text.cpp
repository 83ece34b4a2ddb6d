#include "qx_db/core/schema_text.h"

#include <sstream>
#include <vector>

namespace qx {

std::string SchemaToText(const Schema& schema) {
  std::string text;
  for (const Row& row : schema.Rows()) {
    text += Utf8(row.name) + ' ' + std::to_string(static_cast<int>(row.kind)) + ' ' +
            std::to_string(row.size) + ' ' + std::to_string(row.element_size) + '\n';
  }
  return text;
}

Result<std::unique_ptr<ImageReader>> ImageReader::Make(const Schema& present,
                                                       const std::string& stored) {
  std::unique_ptr<ImageReader> reader(new ImageReader(present));
  if (stored == SchemaToText(present)) return reader;
  const std::string place = std::string("record ") + present.Name();
  std::vector<Row> rows;
  std::istringstream lines(stored);
  std::string name;
  int kind = 0;
  std::int32_t offset = 8;
  Row row;
  while (lines >> name >> kind >> row.size >> row.element_size) {
    const Row* match = present.Find(Utf16(name));
    if (!match) {
      return Failure{"", place, "has a member " + name + " that this version does not know",
                     "open it with the version that wrote it"};
    }
    row.kind = static_cast<MemberKind>(kind);
    if (row.kind != match->kind || row.size != match->size ||
        row.element_size != match->element_size) {
      return Failure{"", place, "member " + name + " has another form than in this version",
                     "open it with the version that wrote it"};
    }
    Row& stored_row = rows.emplace_back(*match);
    stored_row.name = reader->names_.emplace_back(match->name).c_str();
    stored_row.offset = offset;
    stored_row.beside = 0;  // what names other members by their place now
    stored_row.unit = UnitRule{};
    offset += row.size;
  }
  reader->stored_ = std::make_unique<Schema>(present.Name(), present.Type(), offset, rows);
  if (!lines.eof() || !reader->stored_->Validate().empty()) {
    return Failure{"", place, "the stored schema cannot be read", "restore it from a backup"};
  }
  return reader;
}

void ImageReader::Read(const char* image, TStructBase& record) const {
  if (!stored_) {
    ReadImage(present_, image, record);
    return;
  }
  record.Init();
  const std::vector<std::size_t> offsets = MemberOffsets(*stored_, image);
  for (std::size_t i = 0; i < stored_->Rows().size(); ++i) {
    const Row& to = *present_.Find(stored_->Rows()[i].name);
    const char* from = image + offsets[i];
    char* member = detail::Bytes(record) + to.offset;
    if (!to.IsArray()) {
      std::memcpy(member, from, static_cast<std::size_t>(to.size));
      continue;
    }
    const auto header = LoadAt<detail::ArrayHeader>(from);
    auto& array = *reinterpret_cast<ArrayStorage*>(member);
    const auto element = static_cast<std::size_t>(to.element_size);
    array.Resize(header.count, element);
    if (header.count) {
      std::memcpy(array.data, from + sizeof(header),
                  static_cast<std::size_t>(header.count) * element);
    }
  }
}

}  // namespace qx
