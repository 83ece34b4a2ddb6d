// Reading a model file: its pages, and the steps behind them.

#include <algorithm>
#include <map>

#include "qx_db/core/image_stream.h"
#include "qx_db/core/model_database.h"
#include "qx_db/core/model_file.h"
#include "qx_db/core/schema_text.h"
#include "qx_db/core/step_log.h"
#include "qx_db/core/step_replay.h"
#include "qx_db/platform/file.h"
#include "qx_db/platform/long_work.h"

namespace qx {

struct ModelFileReader::Impl {
  std::string path;
  std::shared_ptr<RawFile> file;
  ModelDatabase database;  // reads the file, so that it goes first
  ModelFileReport report;
  std::map<std::uint16_t, std::string> schemas;
  std::uint64_t steps_id = 0;  // 0 in a file that has none

  sqlite3* Db() const { return database.db.get(); }
  std::uint64_t StepsStart() const { return database.header.PageBytes(); }
  Failure Fault(const std::string& place, const std::string& what) const {
    if (sqlite3_errcode(Db()) == SQLITE_NOMEM) {
      return {path, place, "there is not enough memory to read it", "close other programs"};
    }
    return {path, place, what, kRestore};
  }
  Outcome ReadDirectory();
  bool HasPresentForm(const CQXDBSession& session) const;
  Outcome ReadLog(StepLogContents& contents, ModelContinuation* to_go_on);
};

ModelFileReader::ModelFileReader(std::unique_ptr<Impl> impl) : impl_(std::move(impl)) {}
ModelFileReader::~ModelFileReader() = default;
const ModelFileReport& ModelFileReader::Report() const { return impl_->report; }

Outcome ModelFileReader::Impl::ReadDirectory() {
  report.file_bytes = database.header.file_size;
  Statement revision(Db(), "SELECT value FROM meta WHERE name='revision'");
  if (revision.Step() != SQLITE_ROW) return Fault("table meta", "has no revision");
  report.revision = revision.Int(0);
  steps_id = database.StepsId();
  if (steps_id == 0 && report.file_bytes != StepsStart()) {
    return Fault("byte " + std::to_string(StepsStart()), "has bytes after its end");
  }
  Statement pools(Db(), "SELECT code, io_name, schema, records, bytes FROM pool ORDER BY code");
  int step = 0;
  while ((step = pools.Step()) == SQLITE_ROW) {
    const std::int64_t type = pools.Int(0);
    const bool rises = report.pools.empty() || type > report.pools.back().type;
    if (type < 0 || type > 0xFFFF || !rises) {
      return Fault("table pool", "has an impossible type code");
    }
    report.pools.push_back(
        {static_cast<std::uint16_t>(type), pools.Text(1), pools.Int(3), pools.Int(4), 0});
    schemas[static_cast<std::uint16_t>(type)] = pools.Text(2);
  }
  if (step != SQLITE_DONE) return Fault("table pool", sqlite3_errmsg(Db()));
  return {};
}

Result<std::shared_ptr<RawFile>> OpenModelFile(const std::string& path, bool writing) {
  if (Outcome is_file = CheckIsFile(path); !is_file) return is_file.Error();
  std::unique_ptr<RawFile> file;
  if (const int error = Files().Open(path, writing, file)) {
    return Failure{path, "",
                   (writing ? "cannot be written: " : "cannot be read: ") + ErrorText(error),
                   "check permissions"};
  }
  return std::shared_ptr<RawFile>(std::move(file));
}

Result<std::unique_ptr<ModelFileReader>> ModelFileReader::Open(const std::string& path,
                                                               bool writing) {
  auto file = OpenModelFile(path, writing);
  if (!file) return file.Error();
  return Open(path, std::move(*file));
}

Result<std::unique_ptr<ModelFileReader>> ModelFileReader::Open(const std::string& path,
                                                               std::shared_ptr<RawFile> file) {
  auto impl = std::make_unique<Impl>();
  impl->path = path;
  impl->file = std::move(file);
  auto database = ModelDatabase::Open(*impl->file, path);
  if (!database) return database.Error();
  impl->database = std::move(*database);
  if (Outcome read = impl->ReadDirectory(); !read) return read.Error();
  return std::unique_ptr<ModelFileReader>(new ModelFileReader(std::move(impl)));
}

Outcome ModelFileReader::CheckAllPages() {
  return CheckPages(*impl_->file, impl_->path, impl_->database.header);
}

Outcome ModelFileReader::ReadUnits(CQXUnitCtrl& units) {
  Statement find(impl_->Db(), "SELECT value FROM meta WHERE name=?");
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

HistoryLimits ModelFileReader::ReadKeptHistory() {
  HistoryLimits kept = kUsualKept;
  Statement find(impl_->Db(), "SELECT value FROM meta WHERE name=?");
  for (const auto& [name, value] :
       {std::pair("history.steps", &kept.steps), std::pair("history.bytes", &kept.bytes)}) {
    find.Bind(1, std::string(name));
    if (find.Step() == SQLITE_ROW && find.Int(0) >= 0)
      *value = static_cast<std::size_t>(find.Int(0));
    find.Reset();
  }
  return kept;
}

Outcome ModelFileReader::ForEachChunk(std::uint16_t type, const ChunkVisit& visit) {
  const auto entry = std::find_if(impl_->report.pools.begin(), impl_->report.pools.end(),
                                  [&](const auto& pool) { return pool.type == type; });
  if (entry == impl_->report.pools.end()) return {};
  const std::string pool_name = "pool " + entry->io_name;
  Statement chunks(impl_->Db(),
                   "SELECT part, records, checksum, images FROM chunk WHERE code=? ORDER BY part");
  chunks.Bind(1, type);
  std::int64_t part = 0;
  int step = 0;
  for (; (step = chunks.Step()) == SQLITE_ROW; ++part) {
    const std::string place = pool_name + ", chunk " + std::to_string(part);
    if (chunks.Int(0) != part) return impl_->Fault(place, "is missing");
    const std::span<const char> images = chunks.Blob(3);
    if (ChunkChecksum(images) != chunks.Int(2)) return impl_->Fault(place, "the checksum differs");
    if (const std::string fault = visit(images, chunks.Int(1)); !fault.empty()) {
      return impl_->Fault(place, fault);
    }
  }
  return step == SQLITE_DONE ? Outcome() : impl_->Fault(pool_name, sqlite3_errmsg(impl_->Db()));
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
  const auto fits =
      static_cast<std::int64_t>(DataBytes(*impl_->file)) / pool.GetSchema().FixedImageSize();
  pool.ReserveHash(std::min(entry->records, fits));
  std::int64_t records = 0;
  const auto expected = static_cast<std::size_t>(std::max<std::int64_t>(entry->records, 0));
  LongWork work(expected, expected);
  Outcome read =
      ForEachChunk(pool.GetTypeCode(), [&](std::span<const char> images, std::int64_t in_chunk) {
        records += in_chunk;
        std::string fault = ReadImages(images, in_chunk, **reader, pool);
        work.Step(static_cast<std::size_t>(std::max<std::int64_t>(in_chunk, 0)));
        return fault;
      });
  if (!read) return read;
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
  LongWork work(log.frames.size());
  for (auto frame = past_end; frame != log.frames.begin() && !replay.IsCut();) {
    work.Step();
    --frame;
    if (std::string fault = replay.TakeBackPast(frame->payload, frame->time_ms); !fault.empty()) {
      return "past step " + std::to_string(frame - log.frames.begin() + 1) + " " + fault;
    }
  }
  if (std::string fault = replay.EndPast(); !fault.empty()) return fault;
  for (auto frame = past_end; frame != log.frames.end(); ++frame) {
    work.Step();
    std::string fault;
    if (frame->kind == FrameKind::kCommit) fault = replay.Commit(frame->payload, frame->time_ms);
    if (frame->kind == FrameKind::kUndo) fault = replay.Undo();
    if (frame->kind == FrameKind::kRedo) fault = replay.Redo();
    if (frame->kind == FrameKind::kPast) fault = "is a past one after others";
    if (!fault.empty()) {
      return "step frame " + std::to_string(frame - log.frames.begin() + 1) + " " + fault;
    }
  }
  replay.DropBeforeCut();
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
    auto read = StepLog::Read(*file, path, StepsStart(), steps_id);
    if (!read) return read.AsOutcome();
    contents = std::move(*read);
    return {};
  }
  auto log = StepLog::Open(file, LinkTarget(path), StepsStart(), steps_id, contents);
  if (!log) return log.AsOutcome();
  to_go_on->log = std::move(*log);
  return {};
}

Outcome ModelFileReader::ReadSteps(CQXDBSession& session, ModelContinuation* to_go_on) {
  Impl& r = *impl_;
  const auto without_steps = [&]() -> Outcome {
    if (to_go_on) to_go_on->numbers->Reset(session);
    return {};
  };
  if (to_go_on) to_go_on->numbers = std::make_unique<StepNumbers>();
  r.report.stamp.writing = static_cast<std::uint64_t>(r.report.revision);
  if (r.steps_id == 0) return without_steps();
  StepLogContents log;
  if (Outcome read = r.ReadLog(log, to_go_on && r.HasPresentForm(session) ? to_go_on : nullptr);
      !read) {
    return read;
  }
  r.report.closed = log.closed;
  r.report.unfinished_step = log.unfinished_step;
  r.report.stamp = {r.steps_id, log.frames.size()};
  if (log.frames.empty()) return without_steps();
  std::map<std::uint16_t, std::unique_ptr<ImageReader>> readers;
  for (const auto& [type, schema] : r.schemas) {
    const DPoolBase* pool = session.GetDataPool(type);
    if (!pool) continue;
    auto reader = ImageReader::Make(pool->GetSchema(), schema);
    if (!reader) return r.Fault(reader.Error().place, reader.Error().what);
    readers[type] = std::move(*reader);
  }
  std::uint64_t bytes = 0;
  for (const StepFrame& frame : log.frames) bytes += frame.payload.size();
  StepReplay replay(
      session,
      [&](std::uint16_t type) -> const ImageReader* {
        const auto found = readers.find(type);
        return found == readers.end() ? nullptr : found->second.get();
      },
      bytes);
  const std::string fault = ReplaySteps(log, replay);
  if (!fault.empty()) return r.Fault("steps", fault);
  r.report.history_cut = replay.IsCut();
  for (const StepFrame& frame : log.frames) {
    r.report.steps += frame.kind == FrameKind::kCommit || frame.kind == FrameKind::kUndo ||
                      frame.kind == FrameKind::kRedo;
  }
  if (to_go_on) *to_go_on->numbers = std::move(replay.Numbers());
  return {};
}

}  // namespace qx
