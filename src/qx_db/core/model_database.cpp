#include "qx_db/core/model_database.h"

#define XXH_INLINE_ALL
#include <algorithm>
#include <xxhash.h>

namespace qx {
namespace {

/// Operations of SQLite between two looks at how many there were.
constexpr int kOperationsAtOnce = 100000;

int Spend(void* left) {
  auto& looks = *static_cast<std::uint64_t*>(left);
  return looks == 0 ? 1 : (--looks, 0);
}

/// Pages can be linked so that a walk over a table meets the same ones for ever, and a value can
/// claim to be longer than the file.
void LimitWork(ModelDatabase& model) {
  constexpr std::uint64_t kLargestValue = 1'000'000'000;
  const std::uint64_t bytes = model.header.PageBytes();
  model.work_left = std::make_unique<std::uint64_t>(100 + bytes / kOperationsAtOnce * 16);
  sqlite3_progress_handler(model.db.get(), kOperationsAtOnce, Spend, model.work_left.get());
  sqlite3_limit(model.db.get(), SQLITE_LIMIT_LENGTH,
                static_cast<int>(std::min(bytes, kLargestValue)));
}

/// Whether the schema is that of a model file and nothing else.
bool HasOurTables(sqlite3* db) {
  Statement schema(db, "SELECT type, name, tbl_name, rootpage, sql FROM sqlite_schema");
  std::vector<std::string> found;
  int step = 0;
  while ((step = schema.Step()) == SQLITE_ROW) {
    if (schema.Text(0) == "index" && schema.Text(4).empty()) continue;  // of a UNIQUE
    if (schema.Text(0) != "table" || schema.Int(3) <= 0 || found.size() == 3) return false;
    found.push_back(schema.Text(4));
  }
  return step == SQLITE_DONE &&
         std::is_permutation(found.begin(), found.end(), std::begin(kModelTables),
                             std::end(kModelTables));
}

std::int64_t MetaNumber(sqlite3* db, const char* name) {
  Statement find(db, "SELECT value FROM meta WHERE name=?");
  find.Bind(1, std::string(name));
  return find.Step() == SQLITE_ROW ? find.Int(0) : 0;
}

}  // namespace

std::int64_t ChunkChecksum(std::span<const char> bytes) {
  return static_cast<std::int64_t>(XXH3_64bits(bytes.data(), bytes.size()));
}

Result<ModelDatabase> ModelDatabase::Open(RawFile& file, const std::string& path) {
  const auto header = ReadHeader(file, path, kApplicationId);
  if (!header) return header.Error();
  if (header->format < 1 || header->format > kModelFormat) {
    return Failure{path, "header",
                   "has format " + std::to_string(header->format) +
                       ", this program reads formats up to " + std::to_string(kModelFormat),
                   "update this program"};
  }
  ModelDatabase model;
  model.header = *header;
  sqlite3* raw = nullptr;
  const int opened = OpenToRead(file, *header, &raw);
  model.db.reset(raw);
  if (opened != SQLITE_OK) {
    return Failure{path, "", std::string("cannot be opened: ") + sqlite3_errstr(opened), kRestore};
  }
  LimitWork(model);
  sqlite3_exec(raw, "PRAGMA trusted_schema=OFF;PRAGMA temp_store=MEMORY;BEGIN", nullptr, nullptr,
               nullptr);
  const bool ours = HasOurTables(raw);
  const int code = sqlite3_errcode(raw) & 0xFF;
  if (ours) return model;
  if (code == SQLITE_NOMEM) {
    return Failure{path, "", "there is not enough memory to read it", "close other programs"};
  }
  return Failure{path, "schema", "is not that of a model file", kRestore};
}

std::int64_t ModelDatabase::Revision() const { return MetaNumber(db.get(), "revision"); }

std::uint64_t ModelDatabase::StepsId() const {
  return static_cast<std::uint64_t>(MetaNumber(db.get(), "steps"));
}

}  // namespace qx
