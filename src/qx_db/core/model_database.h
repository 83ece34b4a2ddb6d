#pragma once
// The database in a model file: its tables, and statements over them. docs/model-file.md has its
// form.
// Threads: shares nothing; one at a time for each object.

#include <cstdint>
#include <memory>
#include <new>
#include <span>
#include <sqlite3.h>
#include <string>
#include <utility>
#include <vector>

#include "qx_db/core/checked_vfs.h"
#include "qx_db/platform/outcome.h"

namespace qx {

inline constexpr std::uint32_t kApplicationId = 0x51584D31;  // "QXM1"
inline constexpr int kModelFormat = 2;                       // 1 had no steps
inline constexpr const char* kRestore = "restore it from a backup";

/// The tables of every model file, statement by statement as they stand in its schema.
inline constexpr const char* kModelTables[] = {
    "CREATE TABLE meta(name TEXT PRIMARY KEY, value) WITHOUT ROWID",
    "CREATE TABLE pool(code INTEGER PRIMARY KEY, io_name TEXT NOT NULL, record TEXT NOT NULL,"
    " schema TEXT NOT NULL, records INTEGER NOT NULL, bytes INTEGER NOT NULL)",
    "CREATE TABLE chunk(code INTEGER NOT NULL, part INTEGER NOT NULL, records INTEGER NOT NULL,"
    " checksum INTEGER NOT NULL, images BLOB NOT NULL, UNIQUE(code, part))"};

/// Closes what SQLite opened.
struct CloseDatabase {
  void operator()(sqlite3* db) const { sqlite3_close_v2(db); }
};
struct FinalizeStatement {
  void operator()(sqlite3_stmt* statement) const { sqlite3_finalize(statement); }
};
using Database = std::unique_ptr<sqlite3, CloseDatabase>;

/// A prepared statement that is reset after each run.
class Statement {
 public:
  Statement() = default;
  Statement(sqlite3* db, const char* sql) {
    sqlite3_stmt* raw = nullptr;
    sqlite3_prepare_v2(db, sql, -1, &raw, nullptr);
    statement_.reset(raw);
  }
  Statement& Bind(int at, std::int64_t value) {
    return Bound(sqlite3_bind_int64(statement_.get(), at, value));
  }
  Statement& Bind(int at, const std::string& value) {
    return Bound(sqlite3_bind_text64(statement_.get(), at, value.data(), value.size(),
                                     SQLITE_TRANSIENT, SQLITE_UTF8));
  }
  /// The bytes must live until the statement has run.
  Statement& BindBlob(int at, const std::vector<char>& value) {
    return Bound(
        sqlite3_bind_blob64(statement_.get(), at, value.data(), value.size(), SQLITE_STATIC));
  }
  /// Runs a statement without rows; not with a value that could not be bound, which would be null.
  bool Run() {
    if (!std::exchange(bound_, true)) return false;
    const int result = sqlite3_step(statement_.get());
    sqlite3_reset(statement_.get());
    return result == SQLITE_DONE;
  }
  /// SQLITE_ROW, SQLITE_DONE or an error.
  int Step() { return sqlite3_step(statement_.get()); }
  void Reset() { sqlite3_reset(statement_.get()); }
  std::int64_t Int(int column) { return sqlite3_column_int64(statement_.get(), column); }
  std::string Text(int column) {
    const bool null = sqlite3_column_type(statement_.get(), column) == SQLITE_NULL;
    const auto* text = sqlite3_column_text(statement_.get(), column);
    if (!text && !null) throw std::bad_alloc();
    return text ? reinterpret_cast<const char*>(text) : "";
  }
  std::span<const char> Blob(int column) {
    const int size = sqlite3_column_bytes(statement_.get(), column);
    const void* bytes = sqlite3_column_blob(statement_.get(), column);
    if (!bytes && size > 0) throw std::bad_alloc();
    return {static_cast<const char*>(bytes), static_cast<std::size_t>(size)};
  }

 private:
  Statement& Bound(int result) {
    bound_ = bound_ && result == SQLITE_OK;
    return *this;
  }
  bool bound_ = true;
  std::unique_ptr<sqlite3_stmt, FinalizeStatement> statement_;
};

/// Of the images of a chunk.
std::int64_t ChunkChecksum(std::span<const char> bytes);

/// A model file's database, open to be read. The file must outlive it.
struct ModelDatabase {
  DatabaseHeader header{};
  std::unique_ptr<std::uint64_t> work_left;  // no question may take more than such a file can need
  Database db;

  /// Refuses what is no model file, one of a later version, and one whose schema is not exactly
  /// that of kModelTables: a view or a computed column could make every question endless. Pages are
  /// checked as they are read.
  static Result<ModelDatabase> Open(RawFile& file, const std::string& path);
  /// What the tables say of the file: 0 where they do not.
  std::int64_t Revision() const;
  std::uint64_t StepsId() const;
};

}  // namespace qx
