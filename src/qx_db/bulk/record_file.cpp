#include "qx_db/bulk/record_file.h"

#define XXH_INLINE_ALL
#include <charconv>
#include <fmt/format.h>
#include <ostream>
#include <string_view>
#include <xxhash.h>

#include "qx_db/core/image_stream.h"
#include "qx_db/core/session.h"
#include "qx_db/platform/file.h"

namespace qx {
namespace {

/// Mark, length of the header and its checksum, each of eight bytes; then the header's lines.
constexpr std::string_view kMark = "QXDBREC1";
constexpr std::size_t kPrefix = 24;
constexpr std::size_t kWriteBytes = std::size_t{1} << 20;
constexpr const char* kDamaged = "fetch the file again from where it was written";

std::uint64_t Checksum(std::string_view bytes) { return XXH3_64bits(bytes.data(), bytes.size()); }

std::string HeaderText(const BulkHeader& header) {
  std::string text = fmt::format(
      "record {}\npool {}\ntype {}\nrecords {}\nbytes {}\nchecksum {:016x}\n", header.record,
      header.pool, header.type, header.records, header.bytes, header.checksum);
  for (int b = 0; b < kUnitBaseCount; ++b) {
    const auto base = static_cast<UnitBase>(b);
    const auto& unit = UnitsOf(base)[static_cast<std::size_t>(header.units[base])];
    text += fmt::format("unit.{} {}\n", UnitBaseName(base), unit.name);
  }
  return text + "schema\n" + header.schema;
}

/// Takes the header's lines one by one, each "name value".
class HeaderReader {
 public:
  explicit HeaderReader(std::string_view text) : text_(text) {}

  bool Take(std::string_view name, std::string& value) {
    const std::size_t end = text_.find('\n');
    if (end == std::string_view::npos || !text_.starts_with(name)) return false;
    if (end <= name.size() || text_[name.size()] != ' ') return false;
    value = text_.substr(name.size() + 1, end - name.size() - 1);
    text_.remove_prefix(end + 1);
    return true;
  }
  template <class Number>
  bool Take(std::string_view name, Number& number, int base = 10) {
    std::string value;
    if (!Take(name, value)) return false;
    const char* end = value.data() + value.size();
    const auto [stop, error] = std::from_chars(value.data(), end, number, base);
    return error == std::errc() && stop == end;
  }
  bool TakeSchema(std::string& schema) {
    constexpr std::string_view kTitle = "schema\n";
    if (!text_.starts_with(kTitle)) return false;
    schema = text_.substr(kTitle.size());
    return true;
  }

 private:
  std::string_view text_;
};

bool ParseHeader(std::string_view text, BulkHeader& header) {
  HeaderReader reader(text);
  if (!reader.Take("record", header.record) || !reader.Take("pool", header.pool) ||
      !reader.Take("type", header.type) || !reader.Take("records", header.records) ||
      !reader.Take("bytes", header.bytes) || !reader.Take("checksum", header.checksum, 16)) {
    return false;
  }
  for (int b = 0; b < kUnitBaseCount; ++b) {
    const auto base = static_cast<UnitBase>(b);
    std::string name;
    if (!reader.Take("unit." + std::string(UnitBaseName(base)), name)) return false;
    const int index = FindUnit(base, name);
    if (index < 0) return false;
    header.units[base] = index;
  }
  return reader.TakeSchema(header.schema);
}

/// The records of a pool in pieces, as they stand in the file.
template <class Piece>
void ForEachPiece(const DPoolBase& pool, Piece&& piece) {
  std::vector<char> bytes;
  bytes.reserve(kWriteBytes + kWriteBytes / 4);
  for (ITR pos = pool.GetHeadPosition(); pos; pool.Next(pos)) {
    AppendImage(pool.GetSchema(), *KeyedSetBase::RecordAt(pos), bytes);
    if (bytes.size() < kWriteBytes) continue;
    piece(bytes);
    bytes.clear();
  }
  piece(bytes);
}

int Told(Outcome result, Outcome* outcome) {
  const int ok = result ? 1 : 0;
  if (outcome) *outcome = std::move(result);
  return ok;
}

}  // namespace

void qxWriteBulkHeader(std::ostream& out, const BulkHeader& header) {
  const std::string text = HeaderText(header);
  const std::uint64_t numbers[2] = {text.size(), Checksum(text)};
  out.write(kMark.data(), static_cast<std::streamsize>(kMark.size()));
  out.write(reinterpret_cast<const char*>(numbers), sizeof numbers);
  out.write(text.data(), static_cast<std::streamsize>(text.size()));
}

Outcome CQXBulkHandler::Open() {
  Result<std::string> content = ReadWholeFile(path_);
  return content ? OpenBytes(std::move(*content)) : fault_ = content.AsOutcome();
}

Outcome CQXBulkHandler::OpenBytes(std::string bytes) {
  return fault_ = OpenWhole(std::move(bytes));
}

Outcome CQXBulkHandler::OpenWhole(std::string content) {
  const std::string_view bytes = content;
  if (!bytes.starts_with(kMark)) {
    return Failure{path_, "first bytes", "is not a record file",
                   "write one with: qxdb pool export"};
  }
  const Failure damaged{path_, "header", "is cut short or altered", kDamaged};
  if (bytes.size() < kPrefix) return damaged;
  const auto length = LoadAt<std::uint64_t>(bytes.data() + 8);
  if (length > bytes.size() - kPrefix) return damaged;
  const std::string_view text = bytes.substr(kPrefix, length);
  if (Checksum(text) != LoadAt<std::uint64_t>(bytes.data() + 16)) return damaged;
  BulkHeader header;
  if (!ParseHeader(text, header)) {
    return Failure{path_, "header", "has a line that this program does not understand",
                   "open it with the program that wrote it"};
  }
  const std::string_view body = bytes.substr(kPrefix + length);
  if (body.size() != header.bytes || Checksum(body) != header.checksum) {
    return Failure{path_, "records", "are cut short or altered", kDamaged};
  }
  header_ = std::move(header);
  body_ = kPrefix + length;
  content_ = std::move(content);
  return {};
}

Outcome CQXBulkHandler::Write(const DPoolBase& pool, const UnitSystem& units) {
  return fault_ = WriteWhole(pool, units);
}

Outcome CQXBulkHandler::WriteWhole(const DPoolBase& pool, const UnitSystem& units) {
  if (Outcome apart = CheckKeys(pool, path_); !apart) return apart;
  const Schema& schema = pool.GetSchema();
  for (ITR pos = pool.GetHeadPosition(); pos && schema.HasArrays(); pool.Next(pos)) {
    const std::string fault = ImageFault(schema, *KeyedSetBase::RecordAt(pos));
    if (!fault.empty()) return Failure{path_, "records", fault, "split the record"};
  }
  header_ = {schema.Name(), Utf8(pool.GetIOName()), pool.GetTypeCode(), pool.GetSize(), 0, 0,
             units,         SchemaToText(schema)};
  // Once over the records for what the header says of them, and once to write them.
  XXH3_state_t state;
  XXH3_64bits_reset(&state);
  ForEachPiece(pool, [&](const std::vector<char>& bytes) {
    header_.bytes += bytes.size();
    XXH3_64bits_update(&state, bytes.data(), bytes.size());
  });
  header_.checksum = XXH3_64bits_digest(&state);
  return WriteFileBy(path_, [&](std::ostream& out) {
    qxWriteBulkHeader(out, header_);
    ForEachPiece(pool, [&](const std::vector<char>& bytes) {
      out.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
    });
  });
}

Outcome CQXBulkHandler::Read(DPoolBase& pool) const {
  if (header_.type != pool.GetTypeCode() || header_.record != pool.GetSchema().Name()) {
    return Failure{path_, "header",
                   fmt::format("holds {}, not {}", header_.record, pool.GetSchema().Name()),
                   "read it into the pool " + header_.pool};
  }
  const auto reader = ImageReader::Make(pool.GetSchema(), header_.schema);
  if (!reader) {
    Failure fault = reader.Error();
    fault.file = path_;
    return fault;
  }
  const std::span<const char> body(content_.data() + body_, content_.size() - body_);
  const std::string fault = ReadImages(body, header_.records, **reader, pool);
  if (fault.empty()) return {};
  PoolInside::SetOf(pool).RemoveAll();
  return Failure{path_, "records", fault, kDamaged};
}

int qxSaveDPool(CQXBulkHandler& file, const DPoolBase& pool, Outcome* outcome) {
  if (!pool.NeedSaveNLoad()) return Told(file.Fault(), outcome);
  return Told(file.Write(pool, pool.GetSession()->Units().Model()), outcome);
}

int qxLoadDPool(CQXBulkHandler& file, DPoolBase& pool, Outcome* outcome) {
  if (!pool.NeedSaveNLoad()) return Told(file.Fault(), outcome);
  Outcome opened = file.Open();
  return Told(opened ? file.Read(pool) : std::move(opened), outcome);
}

Result<ImportReport> ImportRecordFile(CQXDBSession& session, const std::string& path,
                                      const ImportOptions& options) {
  CQXBulkHandler file(path);
  if (Outcome opened = file.Open(); !opened) return opened.Error();
  ExternalModel from(session.Setup(), path);
  DPoolBase* pool = from.Records().GetDataPool(file.Header().type);
  if (!pool) {
    return Failure{path, "header",
                   "holds " + file.Header().record + ", which this program does not know",
                   "open it with the program that wrote it"};
  }
  if (Outcome read = file.Read(*pool); !read) return read.Error();
  if (Outcome checked = from.CheckCircles(); !checked) return checked.Error();
  from.Records().Units().SetModel(file.Header().units);
  ImportOptions linked = options;
  linked.link_existing = true;
  return ImportRecords(session, from, linked);
}

}  // namespace qx
