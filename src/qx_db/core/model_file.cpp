// Whole models to and from files.

#include "qx_db/core/model_file.h"

#include <algorithm>
#include <functional>

#include "qx_db/core/model_check.h"
#include "qx_db/core/model_database.h"
#include "qx_db/core/model_lock.h"
#include "qx_db/core/step_log.h"
#include "qx_db/core/step_numbers.h"
#include "qx_db/core/transaction.h"
#include "qx_db/lib/message.h"
#include "qx_db/platform/file.h"
#include "qx_db/platform/long_work.h"
#include "qx_db/platform/new_file.h"
#include "qx_db/record/verbs.h"

namespace qx {

std::int64_t ModelFileReport::UnresolvedReferences() const {
  std::int64_t sum = 0;
  for (const Pool& pool : pools) sum += pool.unresolved_references;
  return sum;
}

namespace {

int Report(Outcome result, Outcome* outcome) {
  const int ok = result ? 1 : 0;
  if (outcome) *outcome = std::move(result);
  return ok;
}

/// The file at `path`, open, and what its tables say; false where there is none of ours.
bool Look(const std::string& path, std::unique_ptr<RawFile>& file, ModelDatabase& database) {
  if (!CheckIsFile(path) || Files().Open(path, false, file) != 0) return false;
  auto opened = ModelDatabase::Open(*file, path);
  if (opened) database = std::move(*opened);
  return static_cast<bool>(opened);
}

}  // namespace

int qxSaveDPool(ModelFileWriter& file, const DPoolBase& pool, Outcome* outcome) {
  return Report(pool.NeedSaveNLoad() ? file.WritePool(pool) : Outcome(), outcome);
}

int qxLoadDPool(ModelFileReader& file, DPoolBase& pool, Outcome* outcome) {
  return Report(pool.NeedSaveNLoad() ? file.ReadPool(pool) : Outcome(), outcome);
}

// ---- saving -------------------------------------------------------------------------------------

namespace {

/// A session that lacks a pool would lose its records.
Outcome CheckSetup(const CQXDBSession& session, const std::string& path) {
  if (session.SetupFault().empty()) return {};
  return Failure{path, "", session.SetupFault(), "correct the declaration of the record"};
}

}  // namespace

Outcome SaveModel(const CQXDBSession& session, const std::string& path) {
  const auto lock = ModelLock::Take(path);
  return lock ? WriteModel(session, path, {}, nullptr) : lock.AsOutcome();
}

Outcome WriteModel(const CQXDBSession& session, const std::string& path, const StepFill& fill,
                   std::unique_ptr<StepLog>* log) {
  if (Outcome whole = CheckSetup(session, path); !whole) return whole;
  std::uint64_t expected = 0;
  for (const DPoolBase* pool : session.Pools()) {
    expected += static_cast<std::uint64_t>(pool->GetSize()) * pool->GetCheckSize();
  }
  std::int64_t revision = 1;
  {
    std::unique_ptr<RawFile> file;
    ModelDatabase old;
    if (Look(path, file, old)) revision += old.Revision();
  }
  auto writer = ModelFileWriter::Create(path, expected);
  if (!writer) return writer.AsOutcome();
  if (Outcome units = (*writer)->WriteUnits(session.OwnUnits()); !units) return units;
  if (Outcome kept = (*writer)->WriteKeptHistory(session.KeptHistory()); !kept) return kept;
  Outcome outcome;
  LongWork work(expected);
  std::vector<DPoolBase*> pools(session.Pools().begin(), session.Pools().end());
  std::sort(pools.begin(), pools.end(),  // as the summary of a file has them
            [](auto* a, auto* b) { return a->GetTypeCode() < b->GetTypeCode(); });
  for (const DPoolBase* pool : pools) {
    if (!qxSaveDPool(**writer, *pool, &outcome)) return outcome;
    work.Step(static_cast<std::size_t>(pool->GetSize()) * pool->GetCheckSize());
  }
  return (*writer)->Finish(revision, fill, log);
}

ModelStamp StampOf(const std::string& path) {
  std::unique_ptr<RawFile> file;
  ModelDatabase database;
  if (!Look(path, file, database)) return {};
  const std::uint64_t id = database.StepsId();
  if (id == 0) return {static_cast<std::uint64_t>(database.Revision()), 0};
  const auto log = StepLog::Read(*file, path, database.header.PageBytes(), id);
  return {id, log ? log->frames.size() : 0};
}

ModelContinuation::ModelContinuation() = default;
ModelContinuation::~ModelContinuation() = default;

// ---- loading ------------------------------------------------------------------------------------

namespace {

/// Says what of the history cannot be, and what a crash has left, unless the writer is still at
/// work.
void TellOfSteps(const std::string& path, const ModelFileReport& found) {
  if (found.history_cut) qxMsgOut(Severity::kWarning, "IDS_QX_HISTORY_CUT", {path});
  if (found.closed || !found.writer.empty()) return;
  if (found.steps > 0) {
    qxMsgOut(Severity::kInfo, "IDS_QX_STEPS_RECOVERED", {path, std::to_string(found.steps)});
  }
  if (found.unfinished_step) qxMsgOut(Severity::kInfo, "IDS_QX_STEP_UNFINISHED", {path});
}

/// One reading of an open file into a session of its own.
class ModelReading {
 public:
  ModelReading(const std::string& path, std::shared_ptr<RawFile> file,
               CQXDBSession::PoolSetup setup, const ModelReadOptions& options)
      : path_(path),
        file_(std::move(file)),
        options_(options),
        stage_(std::make_unique<CQXDBSession>(setup)) {}

  Outcome Run(ModelContinuation* continuation) {
    Outcome read = Read(continuation);
    if (read || read.Error().file == path_) return read;
    Failure fault = read.Error();
    fault.file = path_;
    return fault;
  }
  std::unique_ptr<CQXDBSession> TakeSession() { return std::move(stage_); }
  ModelFileReport& Found() { return found_; }

 private:
  Outcome Read(ModelContinuation* continuation) {
    if (Outcome whole = CheckSetup(*stage_, path_); !whole) return whole;
    auto reader = ModelFileReader::Open(path_, file_);
    if (!reader) return reader.AsOutcome();
    LongWork work(6);
    if (Outcome sound = (*reader)->CheckAllPages(); !sound) return sound;
    work.Step();
    if (Outcome pages = ReadPages(**reader); !pages) return pages;
    work.Step(3);
    if (options_.complete) {
      if (Outcome whole = CheckReferences(*stage_, path_); !whole) return whole;
    }
    found_ = (*reader)->Report();
    Resolve();
    work.Step();
    if (Outcome steps = (*reader)->ReadSteps(*stage_, continuation); !steps) return steps;
    TakeStepsOf((*reader)->Report());
    if (Outcome sound = CheckSteps(); !sound) return sound;
    // What was read may not be on the device yet, if its writer was killed.
    return continuation && continuation->log ? continuation->log->Sync() : Outcome();
  }

  Outcome ReadPages(ModelFileReader& reader) {
    for (const ModelFileReport::Pool& pool : reader.Report().pools) {
      if (pool.records == 0 || stage_->GetDataPool(pool.type)) continue;
      return Failure{path_, "pool " + pool.io_name,
                     "holds records of type " + std::to_string(pool.type) +
                         ", which this program does not know",
                     "open it with the program that wrote it"};
    }
    if (Outcome units = reader.ReadUnits(stage_->Units()); !units) return units;
    stage_->SetKeptHistory(reader.ReadKeptHistory());
    Outcome outcome;
    std::size_t records = 0;
    for (const ModelFileReport::Pool& pool : reader.Report().pools) {
      records += static_cast<std::size_t>(std::max<std::int64_t>(pool.records, 0));
    }
    LongWork work(records);
    for (DPoolBase* pool : stage_->Pools()) {
      if (!qxLoadDPool(reader, *pool, &outcome)) return outcome;
      work.Step(static_cast<std::size_t>(pool->GetSize()));
    }
    return {};
  }

  /// Keys become iterators.
  void Resolve() {
    for (ModelFileReport::Pool& entry : found_.pools) {
      const DPoolBase* pool = stage_->GetDataPool(entry.type);
      if (!pool || pool->GetSchema().References().empty()) continue;
      LongWork work(static_cast<std::size_t>(pool->GetSize()));
      for (ITR pos = pool->GetHeadPosition(); pos; pool->Next(pos)) {
        work.Step();
        entry.unresolved_references += KeysToIterators(
            pool->GetSchema(), *KeyedSetBase::RecordAt(pos), *stage_, ReferenceScope::kAll);
      }
    }
  }

  void TakeStepsOf(const ModelFileReport& now) {
    found_.steps = now.steps;
    found_.closed = now.closed;
    found_.unfinished_step = now.unfinished_step;
    found_.history_cut = now.history_cut;
    found_.stamp = now.stamp;
  }

  /// Whatever the steps did, the model is one that could be saved.
  Outcome CheckSteps() {
    if (stage_->History().Done().empty() && stage_->History().Undone().empty()) return {};
    for (const auto& [type, count] : ClearDeadReferences(*stage_)) {
      for (ModelFileReport::Pool& entry : found_.pools) {
        if (entry.type == type) entry.unresolved_references += count;
      }
      if (!options_.complete) continue;
      return Failure{path_, "steps",
                     "leave references to removed records in " +
                         stage_->GetDataPool(type)->GetAPIName().ToUtf8(),
                     "open it, repair or delete these records, and save it"};
    }
    const std::string fault = stage_->Validate();  // unique keys among it
    return fault.empty() ? Outcome() : Failure{path_, "steps", fault, kRestore};
  }

  const std::string& path_;
  const std::shared_ptr<RawFile> file_;
  const ModelReadOptions options_;
  std::unique_ptr<CQXDBSession> stage_;
  ModelFileReport found_;
};

/// Tells what an open file holds from what other programs may have put in its place. The file tells
/// it from one that was given its name; its log, from one that was copied over it.
struct ModelIdentity {
  FileId file;
  std::uint64_t log = 0;  ///< 0 where there is none
  bool operator==(const ModelIdentity&) const = default;
};

ModelIdentity IdentityOf(RawFile& file, const std::string& path) {
  ModelIdentity identity;
  if (file.Id(identity.file) != 0) return {};
  const auto header = ReadHeader(file, path, kApplicationId);
  if (!header || StepLog::IdAt(file, header->PageBytes(), identity.log) != 0) identity.log = 0;
  return identity;
}

/// A file that another process replaces while it is read is read again.
Result<std::unique_ptr<CQXDBSession>> Read(const std::string& path, CQXDBSession::PoolSetup setup,
                                           const ModelReadOptions& options, ModelFileReport& found,
                                           ModelContinuation* continuation) {
  constexpr int kTries = 5;
  for (int i = 1;; ++i) {
    if (continuation) continuation->log.reset();  // of a try before
    auto file = OpenModelFile(path, continuation != nullptr);
    if (!file) return file.Error();
    const ModelIdentity before = IdentityOf(**file, path);
    ModelReading reading(path, *file, setup, options);
    Outcome read = reading.Run(continuation);
    // Half of one and half of another is no model: the log says so at the latest. One that is whole
    // is good for reading, but to be written to, it must still be there.
    FileId named;
    const bool overwritten = !(before == IdentityOf(**file, path));
    const bool renamed = Files().IdOf(path, named) != 0 || !(named == before.file);
    const bool moved = overwritten || renamed;
    if (read && !(continuation && moved)) {
      found = std::move(reading.Found());
      if (!continuation && !found.closed) found.writer = ModelLock::Writer(path);
      return reading.TakeSession();
    }
    if (!moved) return read.Error();
    if (i < kTries) continue;
    return Failure{path, "", "is replaced again and again by another program",
                   "end that program, or open a copy"};
  }
}

}  // namespace

int RunLoadHooks(CQXDBSession& session) {
  CTransaction repair(&session);
  if (!repair.Begin(qxLoadText("IDS_QX_TRANS_AFTER_LOAD").c_str())) return 0;
  for (DPoolBase* pool : session.Pools()) pool->OnAfterLoad(0, nullptr);
  // A new step would end what had been undone. Then the repair waits.
  if (!session.History().Undone().empty()) return repair.Rollback();
  return repair.Commit();
}

Result<std::unique_ptr<CQXDBSession>> ReadModel(const std::string& path,
                                                CQXDBSession::PoolSetup setup,
                                                const ModelReadOptions& options,
                                                ModelFileReport* report) {
  ModelFileReport found;
  auto session = Read(path, setup, options, found, nullptr);
  if (!session) return session;
  RunLoadHooks(**session);
  if (report) *report = std::move(found);
  return session;
}

Outcome LoadModel(CQXDBSession& session, const std::string& path, ModelFileReport* report,
                  ModelContinuation* continuation) {
  if (session.IsBusy()) {
    return Failure{path, "", "cannot be opened while a step is open or told of",
                   "commit it or roll it back, then open the file"};
  }
  ModelFileReport found;
  // Everything is read into a session of its own, so that a fault leaves the open one alone.
  auto stage = Read(path, session.Setup(), {}, found, continuation);
  if (!stage) return stage.AsOutcome();
  session.SwapContents(**stage);
  session.AnnounceLoaded();
  if (!continuation) RunLoadHooks(session);
  TellOfSteps(path, found);
  if (report) *report = std::move(found);
  return {};
}

}  // namespace qx
