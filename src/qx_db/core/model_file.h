#pragma once
// The model file: one SQLite database per model. Its form is described in docs/model-file.md.
// Threads: writing reads the session only, beside other readers; loading is on the thread that
// drives it. Readers and writers of files share nothing, one thread at a time each.

#include <cstdint>
#include <functional>
#include <memory>
#include <span>
#include <string>
#include <vector>

#include "qx_db/core/session.h"
#include "qx_db/platform/outcome.h"

namespace qx {

/// What tells a state of a model file from any other: the writing, and the steps behind it.
struct ModelStamp {
  std::uint64_t writing = 0;  ///< random for each save
  std::uint64_t steps = 0;    ///< frames of the log
  bool operator==(const ModelStamp&) const = default;
};

/// What a load or a check found in a model file.
struct QXDB_API ModelFileReport {
  struct Pool {
    std::uint16_t type = 0;
    std::string io_name;
    std::int64_t records = 0;
    std::int64_t bytes = 0;                  ///< of images
    std::int64_t unresolved_references = 0;  ///< keys that name no record
  };
  std::vector<Pool> pools;
  std::uint64_t file_bytes = 0;
  std::int64_t revision = 0;     ///< counts the saves of this file
  std::int64_t steps = 0;        ///< commits, undos and redos read that came after the last save
  bool closed = true;            ///< no writer has it open, or ended without closing it
  bool history_cut = false;      ///< older steps led to states that cannot be, and were dropped
  bool unfinished_step = false;  ///< passed over: one that was never acknowledged
  std::string stale_lock;        ///< "host, process n" of a writer that ended without leaving
  std::string writer;            ///< the same of one that is at work; not told when this is it
  ModelStamp stamp;
  std::int64_t UnresolvedReferences() const;
};

class RawFile;
class StepLog;
class StepNumbers;
struct ModelContinuation;
/// Puts the history of the model into the file's log of steps.
using StepFill = std::function<Outcome(StepLog&)>;

/// A model file being written. Nothing is visible under its name until Finish succeeds; an
/// unfinished one removes itself.
class QXDB_API ModelFileWriter {
 public:
  /// `expected_bytes` is a hint for the page size.
  static Result<std::unique_ptr<ModelFileWriter>> Create(const std::string& path,
                                                         std::uint64_t expected_bytes);
  ~ModelFileWriter();
  Outcome WriteUnits(const CQXUnitCtrl& units);
  Outcome WriteKeptHistory(const HistoryLimits& kept);
  Outcome WritePool(const DPoolBase& pool);
  /// Makes the file durable and puts it in the place of the old one. `log` is given the log of
  /// steps, to go on with.
  Outcome Finish(std::int64_t revision, const StepFill& fill = {},
                 std::unique_ptr<StepLog>* log = nullptr);

 private:
  struct Impl;
  Outcome WriteSteps(std::int64_t id, const StepFill& fill, std::unique_ptr<StepLog>& steps);
  explicit ModelFileWriter(std::unique_ptr<Impl> impl);
  std::unique_ptr<Impl> impl_;
};

/// A model file being read, from one open handle: whatever becomes of its name meanwhile, all that
/// is read is of one file. Opening reads its header and directory; each page is checked when it is
/// read.
class QXDB_API ModelFileReader {
 public:
  /// With `writing`, for who has the right to append steps (ReadSteps).
  static Result<std::unique_ptr<ModelFileReader>> Open(const std::string& path,
                                                       bool writing = false);
  /// The same of a file that is open already; `path` is what failures name.
  static Result<std::unique_ptr<ModelFileReader>> Open(const std::string& path,
                                                       std::shared_ptr<RawFile> file);
  ~ModelFileReader();
  const ModelFileReport& Report() const;
  /// Checks every page, also those that no question touches. Cost: one sequential read.
  Outcome CheckAllPages();
  Outcome ReadUnits(CQXUnitCtrl& units);
  /// How much of the history the file is to keep; kUsualKept of one that does not say.
  HistoryLimits ReadKeptHistory();
  /// Called with the images of a chunk (image_stream.h) and their number; gives "" or what is wrong
  /// with them, which ends the reading.
  using ChunkVisit = std::function<std::string(std::span<const char> images, std::int64_t records)>;
  /// The chunks of a pool in the order of its list, each checked by its checksum. None of a pool
  /// that the file does not hold. What is not asked for is not read.
  Outcome ForEachChunk(std::uint16_t type, const ChunkVisit& visit);
  /// Fills an empty pool, keys still standing for references. A pool that the file does not hold
  /// stays empty.
  Outcome ReadPool(DPoolBase& pool);
  /// Brings the session, filled from the pages, to where the steps behind them lead, with its
  /// history. `to_go_on` is given what appending takes.
  Outcome ReadSteps(CQXDBSession& session, ModelContinuation* to_go_on = nullptr);

 private:
  struct Impl;
  explicit ModelFileReader(std::unique_ptr<Impl> impl);
  std::unique_ptr<Impl> impl_;
};

/// One pool to or from a model file, for pools whose NeedSaveNLoad answers non-zero (others are
/// passed over); 1 or 0, the reason in `outcome` when given.
QXDB_API int qxSaveDPool(ModelFileWriter& file, const DPoolBase& pool, Outcome* outcome = nullptr);
QXDB_API int qxLoadDPool(ModelFileReader& file, DPoolBase& pool, Outcome* outcome = nullptr);

/// Saves a session: a file of that name holds the old model or the new one, whole, whatever
/// happens. The session is not touched. Refused while another document keeps its steps there.
QXDB_API Outcome SaveModel(const CQXDBSession& session, const std::string& path);
/// The same by who has the right to write, with a history; see ModelFileWriter::Finish.
Outcome WriteModel(const CQXDBSession& session, const std::string& path, const StepFill& fill,
                   std::unique_ptr<StepLog>* log);

/// Opens the file of a model, unread.
Result<std::shared_ptr<RawFile>> OpenModelFile(const std::string& path, bool writing);

/// The stamp of the file at `path`; all zero where there is none that can be read. Pages are not
/// checked.
QXDB_API ModelStamp StampOf(const std::string& path);

/// What going on with a file takes: its log, and the numbers of the session's records in it. The
/// log is null when the file has to be written anew first.
struct ModelContinuation {
  std::unique_ptr<StepLog> log;
  std::unique_ptr<StepNumbers> numbers;
  ModelContinuation();
  ~ModelContinuation();
};

/// Replaces the contents of a session by a file's, as ReadModel reads it, with its history. On
/// failure the session is as it was. Whoever goes on with the file (`continuation`) calls
/// RunLoadHooks when steps are kept again.
QXDB_API Outcome LoadModel(CQXDBSession& session, const std::string& path,
                           ModelFileReport* report = nullptr,
                           ModelContinuation* continuation = nullptr);

struct ModelReadOptions {
  /// Fails where a reference leads to no record, naming such references by pool and key. Otherwise
  /// they are cleared, and counted in the report.
  bool complete = false;
};

/// Reads a model file into a session of its own. This is the one way in which files are read, for
/// opening, editing, importing, comparing and verifying: all pools are read, then keys become
/// iterators, then the steps since the last save are done again with the history, then the pools'
/// OnAfterLoad hooks run.
QXDB_API Result<std::unique_ptr<CQXDBSession>> ReadModel(const std::string& path,
                                                         CQXDBSession::PoolSetup setup,
                                                         const ModelReadOptions& options = {},
                                                         ModelFileReport* report = nullptr);

/// Runs the pools' OnAfterLoad hooks. What they change is one step, undoable as any other, so that
/// the history stays. While there are undone steps, which a new one would end, nothing is changed.
/// 1, or 0 when the step was refused.
QXDB_API int RunLoadHooks(CQXDBSession& session);

}  // namespace qx
