#pragma once
// A model file taken apart into rows, chunks and steps, and put together again with every checksum
// right; and what must be true of such a file that opens.

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <sqlite3.h>
#include <string>
#include <vector>
#define XXH_INLINE_ALL
#include <xxhash.h>

#include "qx_db/bulk/model_import.h"
#include "qx_db/core/checked_vfs.h"
#include "qx_db/core/model_check.h"
#include "qx_db/core/model_database.h"
#include "qx_db/core/step_log.h"
#include "qx_db/platform/file.h"
#include "qx_db/qx_db.h"

#include "fuzz/scratch.h"
#include "tests/core/durable_model.h"

namespace qx::fuzz {

inline constexpr std::size_t kPage = 4096;
inline constexpr std::size_t kHead = 80;  // of a frame

struct PoolRow {
  std::int64_t code = 0, records = 0, bytes = 0;
  std::string io_name, record, schema;
};
struct ChunkRow {
  std::int64_t code = 0, part = 0, records = 0;
  std::string images;
};
struct FrameRow {
  FrameKind kind{};
  std::int64_t time_ms = 0;
  std::string payload;
};

/// All that a model file says.
struct FileParts {
  std::vector<std::pair<std::string, std::string>> texts;  // of the table meta
  std::vector<std::pair<std::string, std::int64_t>> numbers;
  std::vector<PoolRow> pools;
  std::vector<ChunkRow> chunks;
  std::vector<FrameRow> frames;
};

template <class T>
T Load(const std::string& bytes, std::size_t at) {
  T value;
  std::memcpy(&value, bytes.data() + at, sizeof(value));
  return value;
}
template <class T>
void Store(std::string& bytes, std::size_t at, T value) {
  std::memcpy(bytes.data() + at, &value, sizeof(value));
}
inline void Need(bool holds) {
  if (!holds) std::abort();
}

/// Few pools, so that a session is made in no time: with references of every kind between them.
inline void SetUp(CQXDBSession& session) {
  SetUpSmallModel(session);
  session.AddPool(std::make_unique<PoolOf<tagTMset>::type>(&session));
  session.AddPool(std::make_unique<PoolOf<tagTCord>::type>(&session));
}

/// The file of a model with sets, references, and steps of every kind.
inline std::string BaseFile() {
  const std::string path = Folder() + "/base.qxm";
  {
    CQXDocBase document(SetUp);
    CQXDBSession& session = *document.GetDBSession();
    RandomEdits edits(5);
    for (int i = 0; i < 30; ++i) edits.Step(session);
    CTransaction step(&session);
    step.Begin(u"sets");
    tagTMset set;
    set.key = 1;
    set.name.Set(u"first");
    session.GetPool<DPoolNode>(code::kNode)->GetItrList(set.nodes, 0);
    session.GetPool<DPoolMset>(code::kMset)->InsertNU(set);
    tagTCord system;
    system.key = 1;
    const ITR first = session.GetPool<DPoolCord>(code::kCord)->InsertNU(system);
    system.key = 2;
    system.reference = first;
    session.GetPool<DPoolCord>(code::kCord)->InsertNU(system);
    Need(step.Commit() == 1);
    Need(static_cast<bool>(document.SaveAs(path)));
    Need(static_cast<bool>(document.KeepSteps()));
    for (int i = 0; i < 14; ++i) edits.Step(session);
    UnitSystem units = session.Units().Current();
    units[UnitBase::kLength] = 0;
    session.ChangeUnits(units);
    for (int i = 0; i < 4; ++i) session.Undo();
    session.Redo();
  }
  return *ReadWholeFile(path);
}

inline std::string TextOf(sqlite3_stmt* row, int column) {
  const void* bytes = sqlite3_column_blob(row, column);
  const auto size = static_cast<std::size_t>(sqlite3_column_bytes(row, column));
  return size ? std::string(static_cast<const char*>(bytes), size) : std::string();
}

template <class Take>
void ForEachRow(sqlite3* db, const char* sql, Take&& take) {
  sqlite3_stmt* row = nullptr;
  Need(sqlite3_prepare_v2(db, sql, -1, &row, nullptr) == SQLITE_OK);
  while (sqlite3_step(row) == SQLITE_ROW) take(row);
  sqlite3_finalize(row);
}

inline FileParts TakeApart(std::string file) {
  FileParts parts;
  const std::size_t start = file.find("QXSF");
  Need(start % kPage == 0);
  sqlite3* raw = nullptr;
  Need(sqlite3_open(":memory:", &raw) == SQLITE_OK);
  const Database db(raw);
  const auto size = static_cast<sqlite3_int64>(start);
  Need(sqlite3_deserialize(raw, "main", reinterpret_cast<unsigned char*>(file.data()), size, size,
                           SQLITE_DESERIALIZE_READONLY) == SQLITE_OK);
  ForEachRow(raw, "SELECT name, value FROM meta", [&](sqlite3_stmt* row) {
    if (sqlite3_column_type(row, 1) == SQLITE_INTEGER) {
      parts.numbers.emplace_back(TextOf(row, 0), sqlite3_column_int64(row, 1));
    } else {
      parts.texts.emplace_back(TextOf(row, 0), TextOf(row, 1));
    }
  });
  ForEachRow(raw, "SELECT code, io_name, record, schema, records, bytes FROM pool",
             [&](sqlite3_stmt* row) {
               parts.pools.push_back({sqlite3_column_int64(row, 0), sqlite3_column_int64(row, 4),
                                      sqlite3_column_int64(row, 5), TextOf(row, 1), TextOf(row, 2),
                                      TextOf(row, 3)});
             });
  ForEachRow(raw, "SELECT code, part, records, images FROM chunk", [&](sqlite3_stmt* row) {
    parts.chunks.push_back({sqlite3_column_int64(row, 0), sqlite3_column_int64(row, 1),
                            sqlite3_column_int64(row, 2), TextOf(row, 3)});
  });
  std::size_t at = start + kPage;
  while (at + kHead <= file.size() && file.compare(at, 4, "QXSF") == 0) {
    const auto kind = Load<FrameKind>(file, at + 4);
    if (kind >= FrameKind::kMark) break;
    const auto bytes = Load<std::uint64_t>(file, at + 48);
    parts.frames.push_back(
        {kind, Load<std::int64_t>(file, at + 40), file.substr(at + kHead, bytes)});
    at += (kHead + bytes + kPage - 1) / kPage * kPage;
  }
  Need(parts.frames.size() > 20 && parts.chunks.size() > 3);
  return parts;
}

/// The pages that hold the tables.
inline std::string Pages(const FileParts& parts) {
  sqlite3* raw = nullptr;
  Need(sqlite3_open(":memory:", &raw) == SQLITE_OK);
  const Database db(raw);
  int reserve = kPageReserve;
  sqlite3_file_control(raw, "main", SQLITE_FCNTL_RESERVE_BYTES, &reserve);
  std::string sql =
      "PRAGMA page_size=4096;PRAGMA application_id=" + std::to_string(kApplicationId) +
      ";PRAGMA user_version=" + std::to_string(kModelFormat) + ";";
  for (const char* table : kModelTables) sql += std::string(table) + ";";
  Need(sqlite3_exec(raw, (sql + "BEGIN").c_str(), nullptr, nullptr, nullptr) == SQLITE_OK);
  // A row that the tables themselves refuse is none.
  Statement meta(raw, "INSERT OR IGNORE INTO meta VALUES(?,?)");
  for (const auto& [name, value] : parts.texts) meta.Bind(1, name).Bind(2, value).Run();
  for (const auto& [name, value] : parts.numbers) meta.Bind(1, name).Bind(2, value).Run();
  Statement pool(raw, "INSERT OR IGNORE INTO pool VALUES(?,?,?,?,?,?)");
  for (const PoolRow& p : parts.pools) {
    pool.Bind(1, p.code).Bind(2, p.io_name).Bind(3, p.record).Bind(4, p.schema);
    pool.Bind(5, p.records).Bind(6, p.bytes).Run();
  }
  Statement chunk(raw, "INSERT OR IGNORE INTO chunk VALUES(?,?,?,?,?)");
  for (const ChunkRow& c : parts.chunks) {
    const std::vector<char> images(c.images.begin(), c.images.end());
    chunk.Bind(1, c.code).Bind(2, c.part).Bind(3, c.records);
    chunk.Bind(4, static_cast<std::int64_t>(XXH3_64bits(images.data(), images.size())));
    chunk.BindBlob(5, images).Run();
  }
  meta = Statement();
  pool = Statement();
  chunk = Statement();
  Need(sqlite3_exec(raw, "COMMIT", nullptr, nullptr, nullptr) == SQLITE_OK);
  sqlite3_int64 size = 0;
  unsigned char* bytes = sqlite3_serialize(raw, "main", &size, 0);
  std::string pages(reinterpret_cast<char*>(bytes), static_cast<std::size_t>(size));
  sqlite3_free(bytes);
  for (std::size_t at = 0; at < pages.size(); at += kPage) {
    Store(pages, at + kPage - kPageReserve,
          XXH3_64bits_withSeed(pages.data() + at, kPage - kPageReserve, at / kPage));
  }
  return pages;
}

/// The file that says this, with every checksum right, behind such pages.
inline std::string PutTogether(const FileParts& parts, std::string pages) {
  std::string file = std::move(pages);
  std::uint64_t id = 0;
  for (const auto& [name, value] : parts.numbers) {
    if (name == "steps") id = static_cast<std::uint64_t>(value);
  }
  std::uint64_t sequence = 0, chain = 0;
  const auto put = [&](FrameKind kind, std::int64_t time_ms, const std::string& payload) {
    const std::size_t at = file.size();
    file.resize(at + (kHead + payload.size() + kPage - 1) / kPage * kPage);
    file.replace(at, 4, "QXSF");
    Store(file, at + 4, kind);
    Store(file, at + 6, std::uint16_t{1});
    Store(file, at + 8, id);
    Store(file, at + 16, sequence);
    Store(file, at + 40, time_ms);
    Store(file, at + 48, std::uint64_t{payload.size()});
    if (sequence > 0) Store(file, at + 56, XXH3_64bits(payload.data(), payload.size()));
    Store(file, at + 64, chain);
    Store(file, at + 72, XXH3_64bits_withSeed(file.data() + at, 72, at));
    file.replace(at + kHead, payload.size(), payload);
    if (sequence++ > 0) chain = Load<std::uint64_t>(file, at + 72);
  };
  put(FrameKind::kBegin, 0, {});
  for (const FrameRow& frame : parts.frames) put(frame.kind, frame.time_ms, frame.payload);
  return file;
}

/// A file that opens is a model like any other.
inline void OpenAndUse(const std::string& path) {
  CQXDocBase document(SetUp);
  CQXDBSession& session = *document.GetDBSession();
  const Outcome opened = document.Open(path);
  if (!opened) {
    Need(opened.Error().file == path && !opened.Error().what.empty());
    return;
  }
  Need(session.Validate().empty());
  [[maybe_unused]] const Outcome circles = CheckCircles(session, ReferenceForm::kIterators, path);
  [[maybe_unused]] const auto whole = ExternalModel::Open(path, SetUp);
  Need(static_cast<bool>(document.SaveAs(Folder() + "/again.qxm")));
  const std::uint64_t state = session.StateHash();
  {
    CQXDocBase again(SetUp);
    Need(static_cast<bool>(again.Open(document.Path())));
    Need(again.GetDBSession()->StateHash() == state);
  }
  while (session.Undo()) session.StateHash();
  while (session.Redo()) session.StateHash();
  // Steps may lead to states that no edit could have made. To go on from there is safe all the
  // same: the steps that were undone go, and the records with them that only these kept.
  RandomEdits edits(static_cast<std::uint32_t>(state));
  for (const int back : {1, 2, 100}) {
    for (int i = 0; i < back && session.Undo(); ++i) {
    }
    for (int i = 0; i < 3; ++i) edits.Step(session);
    session.StateHash();
    [[maybe_unused]] const std::string fault = session.Validate();
  }
}

}  // namespace qx::fuzz
