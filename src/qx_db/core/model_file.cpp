#include "qx_db/core/model_file.h"

#define XXH_INLINE_ALL
#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <map>
#include <new>
#include <random>
#include <sqlite3.h>
#include <utility>
#include <xxhash.h>

#include "qx_db/core/checked_vfs.h"
#include "qx_db/core/image_stream.h"
#include "qx_db/core/model_lock.h"
#include "qx_db/core/schema_text.h"
#include "qx_db/core/step_log.h"
#include "qx_db/core/step_replay.h"
#include "qx_db/lib/message.h"
#include "qx_db/platform/file.h"
#include "qx_db/record/verbs.h"

namespace qx {
namespace {

constexpr std::uint32_t kApplicationId = 0x51584D31;  // "QXM1"
constexpr int kFormat = 2;                            // 1 had no steps
constexpr std::size_t kChunkBytes = std::size_t{1} << 20;
constexpr std::size_t kLargestImage = 900'000'000;  // below the largest value of a database
constexpr const char* kDamaged = "restore it from a backup";

constexpr const char* kTables =
    "CREATE TABLE meta(name TEXT PRIMARY KEY, value) WITHOUT ROWID;"
    "CREATE TABLE pool(code INTEGER PRIMARY KEY, io_name TEXT NOT NULL, record TEXT NOT NULL,"
    " schema TEXT NOT NULL, records INTEGER NOT NULL, bytes INTEGER NOT NULL);"
    "CREATE TABLE chunk(code INTEGER NOT NULL, part INTEGER NOT NULL, records INTEGER NOT NULL,"
    " checksum INTEGER NOT NULL, images BLOB NOT NULL, UNIQUE(code, part));";

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

std::int64_t Checksum(std::span<const char> bytes) {
  return static_cast<std::int64_t>(XXH3_64bits(bytes.data(), bytes.size()));
}

void RemoveFile(const std::string& path) { Files().Remove(path); }

/// Tells the log of this file from that of any other.
std::int64_t NewLogId() {
  std::random_device random;
  return static_cast<std::int64_t>(std::uint64_t{random()} << 32 | random());
}

/// A key that two records share, -1 when there is none. Such a file could not be read.
Key SharedKey(const DPoolBase& pool) {
  if (!pool.Set().MayShareKeys()) return -1;
  for (ITR pos = pool.GetHeadPosition(); pos; pool.Next(pos)) {
    if (pool.Find(KeyOf(pos)) != pos) return KeyOf(pos);
  }
  return -1;
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

std::int64_t ModelFileReport::UnresolvedReferences() const {
  std::int64_t sum = 0;
  for (const Pool& pool : pools) sum += pool.unresolved_references;
  return sum;
}

// ---- writing ------------------------------------------------------------------------------------

struct ModelFileWriter::Impl {
  std::string path;
  std::string sibling;
  Database db;
  Statement meta, pool, chunk;

  bool Exec(const char* sql) {
    return sqlite3_exec(db.get(), sql, nullptr, nullptr, nullptr) == SQLITE_OK;
  }
  void FinalizeStatements() {
    for (Statement* statement : {&meta, &pool, &chunk}) *statement = Statement();
  }
  Failure Fault() const { return WriteFailure(path, db.get()); }
};

ModelFileWriter::ModelFileWriter(std::unique_ptr<Impl> impl) : impl_(std::move(impl)) {}

ModelFileWriter::~ModelFileWriter() {
  if (!impl_->db) return;
  impl_->FinalizeStatements();
  impl_->db.reset();
  RemoveFile(impl_->sibling);
}

Result<std::unique_ptr<ModelFileWriter>> ModelFileWriter::Create(const std::string& path,
                                                                 std::uint64_t expected_bytes) {
  auto impl = std::make_unique<Impl>();
  impl->path = path;
  std::error_code error;
  if (std::filesystem::is_directory(PathFromUtf8(path), error)) {
    return Failure{path, "", "is a directory", "name a file in it"};
  }
  impl->sibling = SiblingName(LinkTarget(path));
  sqlite3* raw = nullptr;
  const int opened = sqlite3_open_v2(impl->sibling.c_str(), &raw,
                                     SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE, CheckedVfs());
  impl->db.reset(raw);
  if (opened != SQLITE_OK) {
    Failure fault = impl->Fault();
    impl->db.reset();
    return fault;
  }
  // The file is nobody's until it is renamed: no journal, and one sync at the end.
  int reserve = kPageReserve;
  sqlite3_file_control(raw, "main", SQLITE_FCNTL_RESERVE_BYTES, &reserve);
  const bool large = expected_bytes > (std::uint64_t{4} << 20);
  const std::string settings =
      std::string("PRAGMA page_size=") + (large ? "65536" : "4096") +
      ";PRAGMA journal_mode=OFF;PRAGMA synchronous=OFF;PRAGMA locking_mode=EXCLUSIVE;"
      "PRAGMA application_id=" +
      std::to_string(kApplicationId) + ";PRAGMA user_version=" + std::to_string(kFormat) +
      ";BEGIN;" + kTables;
  std::unique_ptr<ModelFileWriter> writer(new ModelFileWriter(std::move(impl)));
  Impl& w = *writer->impl_;
  if (!w.Exec(settings.c_str())) return w.Fault();
  w.meta = Statement(raw, "INSERT INTO meta VALUES(?,?)");
  w.pool = Statement(raw, "INSERT INTO pool VALUES(?,?,?,?,?,?)");
  w.chunk = Statement(raw, "INSERT INTO chunk VALUES(?,?,?,?,?)");
  return writer;
}

Outcome ModelFileWriter::WriteUnits(const CQXUnitCtrl& units) {
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

Outcome ModelFileWriter::WritePool(const DPoolBase& pool) {
  Impl& w = *impl_;
  const Schema& schema = pool.GetSchema();
  if (const Key key = SharedKey(pool); key >= 0) {
    return Failure{w.path, "pool " + Utf8(pool.GetIOName()),
                   "two records share the key " + std::to_string(key), "renumber one of them"};
  }
  std::vector<char> images;
  images.reserve(kChunkBytes + kChunkBytes / 4);
  std::int64_t in_chunk = 0;
  std::int64_t part = 0;
  std::int64_t bytes = 0;
  const auto flush = [&] {
    if (in_chunk == 0) return true;
    w.chunk.Bind(1, pool.GetTypeCode()).Bind(2, part++).Bind(3, in_chunk);
    w.chunk.Bind(4, Checksum(images)).BindBlob(5, images);
    images.clear();
    in_chunk = 0;
    return w.chunk.Run();
  };
  for (ITR pos = pool.GetHeadPosition(); pos; pool.Next(pos)) {
    const TStructBase& record = *KeyedSetBase::RecordAt(pos);
    const std::uint32_t size = ImageSize(schema, record);
    if (size > kLargestImage) {
      return Failure{w.path, std::string(schema.Name()) + " " + std::to_string(record.GetKey()),
                     "is too large for a model file", "split the record"};
    }
    bytes += AppendImage(schema, record, images);
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
  w.meta.Bind(1, std::string("revision")).Bind(2, revision);
  if (!w.meta.Run()) return w.Fault();
  w.meta.Bind(1, std::string("steps")).Bind(2, id);
  if (!w.meta.Run() || !w.Exec("COMMIT")) return w.Fault();
  w.FinalizeStatements();
  if (sqlite3_close(w.db.release()) != SQLITE_OK) {
    RemoveFile(w.sibling);
    return Failure{w.path, "", "cannot be closed", "save again"};
  }
  std::unique_ptr<StepLog> steps;
  Outcome done = WriteSteps(id, fill, steps);
  if (done) done = ReplaceFileDurably(w.sibling, w.path);
  if (!done) {
    Failure fault = done.Error();
    fault.file = w.path;
    RemoveFile(w.sibling);
    return fault;
  }
  steps->SetPath(LinkTarget(w.path));
  if (log) *log = std::move(steps);
  return done;
}

Outcome ModelFileWriter::WriteSteps(std::int64_t id, const StepFill& fill,
                                    std::unique_ptr<StepLog>& steps) {
  std::error_code error;
  const std::uintmax_t size = std::filesystem::file_size(PathFromUtf8(impl_->sibling), error);
  if (error) {
    return Failure{impl_->path, "", "cannot be read back: " + error.message(), "save again"};
  }
  auto created = StepLog::Create(impl_->sibling, size, static_cast<std::uint64_t>(id));
  if (!created) return created.Error();
  steps = std::move(*created);
  if (fill) {
    if (Outcome filled = fill(*steps); !filled) return filled;
  }
  return steps->FinishNew();
}

// ---- reading ------------------------------------------------------------------------------------

struct ModelFileReader::Impl {
  std::string path;
  Database db;
  ModelFileReport report;
  std::map<std::uint16_t, std::string> schemas;
  std::uint64_t steps_start = 0;
  std::uint64_t steps_id = 0;  // 0 in a file that has none

  Failure Fault(const std::string& place, const std::string& what) const {
    if (sqlite3_errcode(db.get()) == SQLITE_NOMEM) {
      return {path, place, "there is not enough memory to read it", "close other programs"};
    }
    return {path, place, what, kDamaged};
  }
  Outcome ReadDirectory();
  bool HasPresentForm(const CQXDBSession& session) const;
  Outcome ReadLog(StepLogContents& contents, ModelContinuation* to_go_on);
};

ModelFileReader::ModelFileReader(std::unique_ptr<Impl> impl) : impl_(std::move(impl)) {}
ModelFileReader::~ModelFileReader() = default;
const ModelFileReport& ModelFileReader::Report() const { return impl_->report; }

Outcome ModelFileReader::Impl::ReadDirectory() {
  Statement revision(db.get(), "SELECT value FROM meta WHERE name='revision'");
  if (revision.Step() != SQLITE_ROW) return Fault("table meta", "has no revision");
  report.revision = revision.Int(0);
  Statement steps(db.get(), "SELECT value FROM meta WHERE name='steps'");
  if (steps.Step() == SQLITE_ROW) steps_id = static_cast<std::uint64_t>(steps.Int(0));
  if (steps_id == 0 && report.file_bytes != steps_start) {
    return Fault("byte " + std::to_string(steps_start), "has bytes after its end");
  }
  Statement pools(db.get(), "SELECT code, io_name, schema, records, bytes FROM pool ORDER BY code");
  int step = 0;
  while ((step = pools.Step()) == SQLITE_ROW) {
    const std::int64_t type = pools.Int(0);
    if (type < 0 || type > 0xFFFF) return Fault("table pool", "has an impossible type code");
    report.pools.push_back(
        {static_cast<std::uint16_t>(type), pools.Text(1), pools.Int(3), pools.Int(4), 0});
    schemas[static_cast<std::uint16_t>(type)] = pools.Text(2);
  }
  if (step != SQLITE_DONE) return Fault("table pool", sqlite3_errmsg(db.get()));
  return {};
}

Result<std::unique_ptr<ModelFileReader>> ModelFileReader::Open(const std::string& path) {
  auto impl = std::make_unique<Impl>();
  impl->path = path;
  const Result<DatabaseHeader> header = CheckPages(path, kApplicationId);
  if (!header) return header.Error();
  if (header->format < 1 || header->format > kFormat) {
    return Failure{path, "header",
                   "has format " + std::to_string(header->format) +
                       ", this program reads formats up to " + std::to_string(kFormat),
                   "update this program"};
  }
  impl->report.file_bytes = header->file_size;
  impl->steps_start = header->PageBytes();
  sqlite3* raw = nullptr;
  const int opened = sqlite3_open_v2(path.c_str(), &raw, SQLITE_OPEN_READONLY, nullptr);
  impl->db.reset(raw);
  if (opened != SQLITE_OK) {
    return Failure{path, "", std::string("cannot be opened: ") + sqlite3_errmsg(raw), kDamaged};
  }
  sqlite3_exec(raw, "PRAGMA trusted_schema=OFF;BEGIN", nullptr, nullptr, nullptr);
  if (Outcome read = impl->ReadDirectory(); !read) return read.Error();
  return std::unique_ptr<ModelFileReader>(new ModelFileReader(std::move(impl)));
}

Outcome ModelFileReader::ReadUnits(CQXUnitCtrl& units) {
  Statement find(impl_->db.get(), "SELECT value FROM meta WHERE name=?");
  UnitSystem systems[2];
  const char* const prefixes[2] = {"units.model.", "units.current."};
  for (int s = 0; s < 2; ++s) {
    for (int b = 0; b < kUnitBaseCount; ++b) {
      const std::string name = prefixes[s] + std::string(UnitBaseName(static_cast<UnitBase>(b)));
      find.Bind(1, name);
      const bool present = find.Step() == SQLITE_ROW;
      const std::string unit = present ? find.Text(0) : "";
      find.Reset();
      const int index = FindUnit(static_cast<UnitBase>(b), unit);
      if (index < 0) return impl_->Fault(name, "names no known unit: \"" + unit + "\"");
      systems[s][static_cast<UnitBase>(b)] = index;
    }
  }
  units.SetModel(systems[0]);
  units.SetCurrent(systems[1]);
  return {};
}

Outcome ModelFileReader::ReadPool(DPoolBase& pool) {
  const auto found = impl_->schemas.find(pool.GetTypeCode());
  if (found == impl_->schemas.end()) return {};
  auto reader = ImageReader::Make(pool.GetSchema(), found->second);
  if (!reader) {
    Failure fault = reader.Error();
    fault.file = impl_->path;
    return fault;
  }
  const std::string pool_name = "pool " + Utf8(pool.GetIOName());
  const auto entry = std::find_if(impl_->report.pools.begin(), impl_->report.pools.end(),
                                  [&](const auto& p) { return p.type == pool.GetTypeCode(); });
  // Every record takes at least its fixed image: a count that lies cannot ask for much memory.
  const std::int64_t fits =
      static_cast<std::int64_t>(impl_->report.file_bytes) / pool.GetSchema().FixedImageSize();
  pool.Set().SetHashSize(static_cast<std::int32_t>(
      std::clamp<std::int64_t>(entry->records, 0, std::min<std::int64_t>(fits, kMaxKey))));
  Statement chunks(impl_->db.get(),
                   "SELECT records, checksum, images FROM chunk WHERE code=? ORDER BY part");
  chunks.Bind(1, pool.GetTypeCode());
  std::int64_t records = 0;
  int step = 0;
  for (int part = 0; (step = chunks.Step()) == SQLITE_ROW; ++part) {
    const std::string place = pool_name + ", chunk " + std::to_string(part);
    const std::span<const char> images = chunks.Blob(2);
    if (Checksum(images) != chunks.Int(1)) return impl_->Fault(place, "the checksum differs");
    const std::int64_t in_chunk = chunks.Int(0);
    if (const std::string fault = ReadImages(images, in_chunk, **reader, pool); !fault.empty()) {
      return impl_->Fault(place, fault);
    }
    records += in_chunk;
  }
  if (step != SQLITE_DONE) return impl_->Fault(pool_name, sqlite3_errmsg(impl_->db.get()));
  if (entry->records != records) {
    return impl_->Fault(pool_name, "holds " + std::to_string(records) + " of " +
                                       std::to_string(entry->records) + " records");
  }
  return {};
}

namespace {

/// Past steps are taken back newest first and done again; the others follow in their order.
std::string ReplaySteps(const StepLogContents& log, StepReplay& replay) {
  const auto past_end =
      std::find_if(log.frames.begin(), log.frames.end(),
                   [](const StepFrame& frame) { return frame.kind != FrameKind::kPast; });
  for (auto frame = past_end; frame != log.frames.begin();) {
    --frame;
    if (std::string fault = replay.TakeBackPast(frame->payload, frame->time_ms); !fault.empty()) {
      return "past step " + std::to_string(frame - log.frames.begin() + 1) + " " + fault;
    }
  }
  if (std::string fault = replay.EndPast(); !fault.empty()) return fault;
  for (auto frame = past_end; frame != log.frames.end(); ++frame) {
    std::string fault;
    if (frame->kind == FrameKind::kCommit) fault = replay.Commit(frame->payload, frame->time_ms);
    if (frame->kind == FrameKind::kUndo) fault = replay.Undo();
    if (frame->kind == FrameKind::kRedo) fault = replay.Redo();
    if (frame->kind == FrameKind::kPast) fault = "is a past one after others";
    if (!fault.empty()) {
      return "step frame " + std::to_string(frame - log.frames.begin() + 1) + " " + fault;
    }
  }
  return {};
}

}  // namespace

/// Whether every saved pool of the session stands in the file, in the form that it has here.
bool ModelFileReader::Impl::HasPresentForm(const CQXDBSession& session) const {
  return std::all_of(session.Pools().begin(), session.Pools().end(), [&](const DPoolBase* pool) {
    if (!pool->NeedSaveNLoad()) return true;
    const auto stored = schemas.find(pool->GetTypeCode());
    return stored != schemas.end() && stored->second == SchemaToText(pool->GetSchema());
  });
}

/// Reads the log of steps, and keeps it open to be appended to where `to_go_on` asks for it.
Outcome ModelFileReader::Impl::ReadLog(StepLogContents& contents, ModelContinuation* to_go_on) {
  if (!to_go_on) {
    auto read = StepLog::Read(path, steps_start, steps_id);
    if (!read) return read.AsOutcome();
    contents = std::move(*read);
    return {};
  }
  auto log = StepLog::Open(path, steps_start, steps_id, contents);
  if (!log) return log.AsOutcome();
  to_go_on->log = std::move(*log);
  return {};
}

Outcome ModelFileReader::ReadSteps(CQXDBSession& session, ModelContinuation* to_go_on) {
  Impl& r = *impl_;
  if (to_go_on) {
    to_go_on->numbers = std::make_unique<StepNumbers>();
    to_go_on->numbers->Reset(session);
  }
  r.report.stamp.writing = static_cast<std::uint64_t>(r.report.revision);
  if (r.steps_id == 0) return {};
  StepLogContents log;
  if (Outcome read = r.ReadLog(log, to_go_on && r.HasPresentForm(session) ? to_go_on : nullptr);
      !read) {
    return read;
  }
  r.report.closed = log.closed;
  r.report.unfinished_step = log.unfinished_step;
  r.report.stamp = {r.steps_id, log.frames.size()};
  if (log.frames.empty()) return {};
  std::map<std::uint16_t, std::unique_ptr<ImageReader>> readers;
  for (const auto& [type, schema] : r.schemas) {
    const DPoolBase* pool = session.GetDataPool(type);
    if (!pool) continue;
    auto reader = ImageReader::Make(pool->GetSchema(), schema);
    if (!reader) return r.Fault(reader.Error().place, reader.Error().what);
    readers[type] = std::move(*reader);
  }
  StepReplay replay(
      session,
      [&](std::uint16_t type) -> const ImageReader* {
        const auto found = readers.find(type);
        return found == readers.end() ? nullptr : found->second.get();
      },
      log.bytes.size());
  const std::string fault = ReplaySteps(log, replay);
  if (!fault.empty()) return r.Fault("steps", fault);
  for (const StepFrame& frame : log.frames) {
    r.report.steps += frame.kind == FrameKind::kCommit || frame.kind == FrameKind::kUndo ||
                      frame.kind == FrameKind::kRedo;
  }
  if (to_go_on) *to_go_on->numbers = std::move(replay.Numbers());
  return {};
}

// ---- whole models -------------------------------------------------------------------------------

namespace {

int Report(Outcome result, Outcome* outcome) {
  const int ok = result ? 1 : 0;
  if (outcome) *outcome = std::move(result);
  return ok;
}

/// What the tables of a file say of it, its pages unchecked.
struct Writing {
  std::int64_t revision = 0;
  std::uint64_t steps_id = 0;
  std::uint64_t page_bytes = 0;

  explicit Writing(const std::string& path) {
    std::error_code error;
    if (!std::filesystem::is_regular_file(PathFromUtf8(path), error)) return;
    sqlite3* raw = nullptr;
    const int opened = sqlite3_open_v2(path.c_str(), &raw, SQLITE_OPEN_READONLY, nullptr);
    const Database db(raw);
    if (opened != SQLITE_OK) return;
    const auto number = [&](const char* sql) -> std::int64_t {
      Statement statement(raw, sql);
      return statement.Step() == SQLITE_ROW ? statement.Int(0) : 0;
    };
    revision = number("SELECT value FROM meta WHERE name='revision'");
    steps_id = static_cast<std::uint64_t>(number("SELECT value FROM meta WHERE name='steps'"));
    page_bytes =
        static_cast<std::uint64_t>(number("PRAGMA page_count") * number("PRAGMA page_size"));
  }
};

}  // namespace

int qxSaveDPool(ModelFileWriter& file, const DPoolBase& pool, Outcome* outcome) {
  return Report(pool.NeedSaveNLoad() ? file.WritePool(pool) : Outcome(), outcome);
}

int qxLoadDPool(ModelFileReader& file, DPoolBase& pool, Outcome* outcome) {
  return Report(pool.NeedSaveNLoad() ? file.ReadPool(pool) : Outcome(), outcome);
}

Outcome SaveModel(const CQXDBSession& session, const std::string& path) {
  const auto lock = ModelLock::Take(path);
  return lock ? WriteModel(session, path, {}, nullptr) : lock.AsOutcome();
}

Outcome WriteModel(const CQXDBSession& session, const std::string& path, const StepFill& fill,
                   std::unique_ptr<StepLog>* log) {
  std::uint64_t expected = 0;
  for (const DPoolBase* pool : session.Pools()) {
    expected += static_cast<std::uint64_t>(pool->GetSize()) * pool->GetCheckSize();
  }
  const std::int64_t revision = Writing(path).revision + 1;
  auto writer = ModelFileWriter::Create(path, expected);
  if (!writer) return writer.AsOutcome();
  if (Outcome units = (*writer)->WriteUnits(session.Units()); !units) return units;
  Outcome outcome;
  for (const DPoolBase* pool : session.Pools()) {
    if (!qxSaveDPool(**writer, *pool, &outcome)) return outcome;
  }
  return (*writer)->Finish(revision, fill, log);
}

ModelStamp StampOf(const std::string& path) {
  const Writing writing(path);
  if (writing.steps_id == 0) return {static_cast<std::uint64_t>(writing.revision), 0};
  const auto log = StepLog::Read(path, writing.page_bytes, writing.steps_id);
  return {writing.steps_id, log ? log->frames.size() : 0};
}

ModelContinuation::ModelContinuation() = default;
ModelContinuation::~ModelContinuation() = default;

namespace {

/// Says what a crash has left, unless the writer is still at work.
void TellOfCrash(const std::string& path, const ModelFileReport& found) {
  if (found.closed || !found.writer.empty()) return;
  if (found.steps > 0) {
    qxMsgOut(Severity::kInfo, "IDS_QX_STEPS_RECOVERED", {path, std::to_string(found.steps)});
  }
  if (found.unfinished_step) qxMsgOut(Severity::kInfo, "IDS_QX_STEP_UNFINISHED", {path});
}

/// Reads pages and steps into an empty session.
Outcome ReadModel(ModelFileReader& reader, CQXDBSession& stage, ModelFileReport& found,
                  ModelContinuation* continuation) {
  if (Outcome units = reader.ReadUnits(stage.Units()); !units) return units;
  Outcome outcome;
  for (DPoolBase* pool : stage.Pools()) {
    if (!qxLoadDPool(reader, *pool, &outcome)) return outcome;
  }
  for (ModelFileReport::Pool& entry : found.pools) {
    const DPoolBase* pool = stage.GetDataPool(entry.type);
    if (!pool || pool->GetSchema().References().empty()) continue;
    for (ITR pos = pool->GetHeadPosition(); pos; pool->Next(pos)) {
      entry.unresolved_references += KeysToIterators(
          pool->GetSchema(), *KeyedSetBase::RecordAt(pos), stage, ReferenceScope::kAll);
    }
  }
  if (Outcome steps = reader.ReadSteps(stage, continuation); !steps) return steps;
  if (!stage.History().Done().empty() || !stage.History().Undone().empty()) {
    if (const std::string fault = stage.Validate(); !fault.empty()) {
      return Failure{"", "steps", fault, kDamaged};
    }
  }
  const ModelFileReport& now = reader.Report();
  found.steps = now.steps;
  found.closed = now.closed;
  found.unfinished_step = now.unfinished_step;
  found.stamp = now.stamp;
  return {};
}

Outcome LoadOnce(CQXDBSession& session, const std::string& path, ModelFileReport* report,
                 ModelContinuation* continuation) {
  if (continuation) continuation->log.reset();  // of a try before
  auto reader = ModelFileReader::Open(path);
  if (!reader) return reader.AsOutcome();
  ModelFileReport found = (*reader)->Report();
  for (const ModelFileReport::Pool& pool : found.pools) {
    const DPoolBase* known = session.GetDataPool(pool.type);
    if (!known && pool.records > 0) {
      return Failure{path, "pool " + pool.io_name,
                     "holds records of type " + std::to_string(pool.type) +
                         ", which this program does not know",
                     "open it with the program that wrote it"};
    }
  }
  // Everything is read into a session of its own, so that a fault leaves the open one alone.
  CQXDBSession stage(session.Setup());
  if (Outcome read = ReadModel(**reader, stage, found, continuation); !read) {
    Failure fault = read.Error();
    fault.file = path;
    return fault;
  }
  // What was read may not be on the device yet, if its writer was killed.
  if (continuation && continuation->log) {
    if (Outcome synced = continuation->log->Sync(); !synced) return synced;
  }
  session.SwapContents(stage);
  session.SetHistoryLimits(session.History().Limits());
  for (DPoolBase* pool : session.Pools()) pool->OnAfterLoad(0, nullptr);
  session.AnnounceLoaded();
  if (!continuation && !found.closed) found.writer = ModelLock::Writer(path);
  TellOfCrash(path, found);
  if (report) *report = std::move(found);
  return {};
}

}  // namespace

Outcome LoadModel(CQXDBSession& session, const std::string& path, ModelFileReport* report,
                  ModelContinuation* continuation) {
  // A file that another process replaces while it is read is read again.
  constexpr int kTries = 5;
  Outcome loaded;
  for (int i = 0; i < kTries; ++i) {
    const std::int64_t before = FileIdentity(path);
    loaded = LoadOnce(session, path, report, continuation);
    if (loaded || FileIdentity(path) == before) break;
  }
  return loaded;
}

}  // namespace qx
