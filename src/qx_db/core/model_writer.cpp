// Writing a model file.

#include <algorithm>
#include <limits>
#include <random>
#include <sqlite3.h>

#include "qx_db/core/image_stream.h"
#include "qx_db/core/model_database.h"
#include "qx_db/core/model_file.h"
#include "qx_db/core/model_summary.h"
#include "qx_db/core/schema_text.h"
#include "qx_db/core/step_log.h"
#include "qx_db/platform/file.h"
#include "qx_db/platform/long_work.h"
#include "qx_db/platform/new_file.h"
#include "qx_db/record/verbs.h"

namespace qx {
namespace {

constexpr std::size_t kChunkBytes = std::size_t{1} << 20;

/// Tells the log of this file from that of any other.
std::int64_t NewLogId() {
  std::random_device random;
  return static_cast<std::int64_t>(std::uint64_t{random()} << 32 | random());
}

/// The remedy for a database error while writing.
Failure WriteFailure(const std::string& path, sqlite3* db) {
  const int code = sqlite3_errcode(db) & 0xFF;
  const char* remedy = code == SQLITE_NOMEM ? "free some memory and save again"
                       : code == SQLITE_FULL || code == SQLITE_IOERR
                           ? "free some disk space and save again"
                           : "check the folder and its permissions";
  return {path, "", std::string("cannot be written: ") + sqlite3_errmsg(db), remedy};
}

}  // namespace

struct ModelFileWriter::Impl {
  std::string path;
  std::unique_ptr<NewFile> file;
  Database db;
  Statement meta, pool, chunk;
  std::unique_ptr<SummaryWriter> summary;  // from the units on

  bool Exec(const char* sql) {
    return sqlite3_exec(db.get(), sql, nullptr, nullptr, nullptr) == SQLITE_OK;
  }
  /// False when what it still had to write could not be written.
  bool CloseDatabase() {
    for (Statement* statement : {&meta, &pool, &chunk}) *statement = Statement();
    return !db || sqlite3_close(db.release()) == SQLITE_OK;
  }
  Failure Fault() const { return WriteFailure(path, db.get()); }
};

ModelFileWriter::ModelFileWriter(std::unique_ptr<Impl> impl) : impl_(std::move(impl)) {}

ModelFileWriter::~ModelFileWriter() { impl_->CloseDatabase(); }

Result<std::unique_ptr<ModelFileWriter>> ModelFileWriter::Create(const std::string& path,
                                                                 std::uint64_t expected_bytes) {
  auto impl = std::make_unique<Impl>();
  impl->path = path;
  auto file = NewFile::Create(path);
  if (!file) return file.Error();
  impl->file = std::move(*file);
  sqlite3* raw = nullptr;
  const int opened = OpenToWrite(impl->file->File(), &raw);
  impl->db.reset(raw);
  if (opened != SQLITE_OK) return impl->Fault();
  // The file is nobody's until it is renamed: no journal, and one sync at the end.
  int reserve = kPageReserve;
  sqlite3_file_control(raw, "main", SQLITE_FCNTL_RESERVE_BYTES, &reserve);
  const bool large = expected_bytes > (std::uint64_t{4} << 20);
  std::string settings =
      std::string("PRAGMA page_size=") + (large ? "65536" : "4096") +
      ";PRAGMA journal_mode=OFF;PRAGMA synchronous=OFF;PRAGMA locking_mode=EXCLUSIVE;"
      "PRAGMA temp_store=MEMORY;"
      "PRAGMA application_id=" +
      std::to_string(kApplicationId) + ";PRAGMA user_version=" + std::to_string(kModelFormat) +
      ";BEGIN;";
  for (const char* table : kModelTables) settings += std::string(table) + ";";
  std::unique_ptr<ModelFileWriter> writer(new ModelFileWriter(std::move(impl)));
  Impl& w = *writer->impl_;
  if (!w.Exec(settings.c_str())) return w.Fault();
  w.meta = Statement(raw, "INSERT INTO meta VALUES(?,?)");
  w.pool = Statement(raw, "INSERT INTO pool VALUES(?,?,?,?,?,?)");
  w.chunk = Statement(raw, "INSERT INTO chunk VALUES(?,?,?,?,?)");
  return writer;
}

Outcome ModelFileWriter::WriteUnits(const CQXUnitCtrl& units) {
  impl_->summary = std::make_unique<SummaryWriter>(units);
  const std::pair<const char*, const UnitSystem&> systems[] = {{"units.model.", units.Model()},
                                                               {"units.current.", units.Current()}};
  for (const auto& [prefix, system] : systems) {
    for (int b = 0; b < kUnitBaseCount; ++b) {
      const auto base = static_cast<UnitBase>(b);
      const auto unit = UnitsOf(base)[static_cast<std::size_t>(system[base])];
      impl_->meta.Bind(1, prefix + std::string(UnitBaseName(static_cast<UnitBase>(b))))
          .Bind(2, std::string(unit.name));
      if (!impl_->meta.Run()) return impl_->Fault();
    }
  }
  return {};
}

Outcome ModelFileWriter::WriteKeptHistory(const HistoryLimits& kept) {
  for (const auto& [name, value] :
       {std::pair("history.steps", kept.steps), std::pair("history.bytes", kept.bytes)}) {
    constexpr auto kMost = static_cast<std::size_t>(std::numeric_limits<std::int64_t>::max());
    impl_->meta.Bind(1, std::string(name))
        .Bind(2, static_cast<std::int64_t>(std::min(value, kMost)));
    if (!impl_->meta.Run()) return impl_->Fault();
  }
  return {};
}

Outcome ModelFileWriter::WritePool(const DPoolBase& pool) {
  Impl& w = *impl_;
  const Schema& schema = pool.GetSchema();
  if (Outcome apart = CheckKeys(pool, w.path); !apart) return apart;
  std::vector<char> images;
  images.reserve(kChunkBytes + kChunkBytes / 4);
  std::int64_t in_chunk = 0;
  std::int64_t part = 0;
  std::int64_t bytes = 0;
  const auto flush = [&] {
    if (in_chunk == 0) return true;
    w.chunk.Bind(1, pool.GetTypeCode()).Bind(2, part++).Bind(3, in_chunk);
    w.chunk.Bind(4, ChunkChecksum(images)).BindBlob(5, images);
    images.clear();
    in_chunk = 0;
    return w.chunk.Run();
  };
  const auto records = static_cast<std::size_t>(pool.GetSize());
  if (w.summary) w.summary->BeginPool(pool);
  LongWork work(records, records * pool.GetCheckSize());
  for (ITR pos = pool.GetHeadPosition(); pos; pool.Next(pos)) {
    work.Step();
    const TStructBase& record = *KeyedSetBase::RecordAt(pos);
    const std::uint64_t size = ImageSize(schema, record);
    if (size > kMaxStoredImage) {
      return Failure{w.path, std::string(schema.Name()) + " " + std::to_string(record.GetKey()),
                     "is too large for a model file", "split the record"};
    }
    const std::uint32_t image = AppendImage(schema, record, images);
    if (w.summary) w.summary->Add(record, std::span(images).last(image));
    bytes += image;
    ++in_chunk;
    if (images.size() >= kChunkBytes && !flush()) return w.Fault();
  }
  if (!flush()) return w.Fault();
  w.pool.Bind(1, pool.GetTypeCode()).Bind(2, Utf8(pool.GetIOName()));
  w.pool.Bind(3, std::string(schema.Name())).Bind(4, SchemaToText(schema));
  w.pool.Bind(5, pool.GetSize()).Bind(6, bytes);
  return w.pool.Run() ? Outcome() : Outcome(w.Fault());
}

Outcome ModelFileWriter::Finish(std::int64_t revision, const StepFill& fill,
                                std::unique_ptr<StepLog>* log) {
  Impl& w = *impl_;
  const std::int64_t id = NewLogId();
  const auto summary = w.summary ? w.summary->Summary() : std::nullopt;
  for (const auto& [name, value] : summary ? summary->Rows() : ModelSummary::TextRows()) {
    w.meta.Bind(1, name).Bind(2, value);
    if (!w.meta.Run()) return w.Fault();
  }
  w.meta.Bind(1, std::string("revision")).Bind(2, revision);
  if (!w.meta.Run()) return w.Fault();
  w.meta.Bind(1, std::string("steps")).Bind(2, id);
  if (!w.meta.Run() || !w.Exec("COMMIT")) return w.Fault();
  if (!w.CloseDatabase()) return Failure{w.path, "", "cannot be closed", "save again"};
  std::unique_ptr<StepLog> steps;
  Outcome done = WriteSteps(id, fill, steps);
  if (done) done = w.file->TakePlace();
  if (steps && w.file->HasPlace()) {
    steps->SetPath(LinkTarget(w.path));
    if (log) *log = std::move(steps);
  }
  if (done) return done;
  Failure fault = done.Error();
  fault.file = w.path;
  return fault;
}

Outcome ModelFileWriter::WriteSteps(std::int64_t id, const StepFill& fill,
                                    std::unique_ptr<StepLog>& steps) {
  std::uint64_t size = 0;
  if (const int error = impl_->file->File().Size(size)) {
    return Failure{impl_->path, "", "cannot be read back: " + ErrorText(error), "save again"};
  }
  auto created =
      StepLog::Create(impl_->file->Share(), impl_->path, size, static_cast<std::uint64_t>(id));
  if (!created) return created.Error();
  steps = std::move(*created);
  if (fill) {
    if (Outcome filled = fill(*steps); !filled) return filled;
  }
  return steps->FinishNew();
}

}  // namespace qx
