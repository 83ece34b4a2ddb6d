#pragma once
// The steps behind the pages of a model file: an append-only log of checksummed frames.
//
// Its form, and why it survives a crash, is described in docs/durability.md.
// Threads: one at a time; StepKeeper's timer and its session take turns.

#include <cstdint>
#include <cstdlib>
#include <functional>
#include <memory>
#include <span>
#include <string>
#include <vector>

#include "qx_db/platform/outcome.h"
#include "qx_db/platform/raw_file.h"

namespace qx {

enum class FrameKind : std::uint16_t {
  kBegin = 1,   ///< the log's first block
  kPast = 2,    ///< a step done before the state in the pages, images before it
  kCommit = 3,  ///< a step since, images after it
  kUndo = 4,
  kRedo = 5,
  kRoom = 6,  ///< the file has grown
  kMark = 7,  ///< everything before is on the device; the next frame takes its place
  kEnd = 8,   ///< the same, by a writer that closed the file
};

/// A frame as a reader finds it; `payload` lies in the log that was read.
struct StepFrame {
  FrameKind kind;
  std::int64_t time_ms;
  std::span<const char> payload;
};

/// A log as read.
struct StepLogContents {
  std::vector<StepFrame> frames;
  std::unique_ptr<char, void (*)(void*)> bytes{nullptr, std::free};
  bool closed = true;            ///< by its writer, rather than left by one that ended
  bool unfinished_step = false;  ///< behind the last frame stands one that was never acknowledged
};

/// Takes the payload of a frame as it is made.
class FrameSink {
 public:
  virtual ~FrameSink() = default;
  /// Room for the next `bytes`, to be filled before the next call. Throws std::bad_alloc.
  virtual char* Room(std::size_t bytes) = 0;
};

/// What a frame is to hold, made while it is written.
struct FramePayload {
  std::uint64_t bytes = 0;  ///< as many as `make` asks room for
  std::function<void(FrameSink&)> make = {};
};

/// The log of one file, open for appending.
class QXDB_API StepLog {
 public:
  static constexpr std::size_t kBlock = 4096;

  /// Starts a log at byte `start` of a file that nobody sees yet. Append does not sync until
  /// FinishNew has made the file durable.
  static Result<std::unique_ptr<StepLog>> Create(std::shared_ptr<RawFile> file,
                                                 const std::string& path, std::uint64_t start,
                                                 std::uint64_t id);
  Outcome FinishNew();

  /// Reads the log at `start`, which has the id given, whole. A frame of which it is known that it
  /// was on the device must be there; what was still being written is passed over. `path` is what
  /// failures name.
  static Result<StepLogContents> Read(RawFile& file, const std::string& path, std::uint64_t start,
                                      std::uint64_t id);
  /// The same, to go on behind the last frame; from the next Sync on, all that was read is known to
  /// be on the device. `path` is the file's own name, not a link.
  static Result<std::unique_ptr<StepLog>> Open(std::shared_ptr<RawFile> file,
                                               const std::string& path, std::uint64_t start,
                                               std::uint64_t id, StepLogContents& contents);

  /// The id of the log at `start`, 0 where none stands. Gives 0 or the system's error number.
  static int IdAt(RawFile& file, std::uint64_t start, std::uint64_t& id);

  /// What has become of the file's name. A file that another was copied over is replaced, too,
  /// though device and number stay: its log is another one.
  enum class Place { kNamed, kGone, kReplaced };
  Place Look() const;
  /// Success while the path names this file; the failure says what became of it.
  Outcome CheckName() const;

  /// Appends a frame; with `sync` it is on the device afterwards. The path must name the file,
  /// before and, with `sync`, after. On failure, and when `make` throws, the log is as it was; the
  /// failure says so where the device does not promise that the frame stays away.
  Outcome Append(FrameKind kind, std::int64_t time_ms, const FramePayload& payload, bool sync);
  /// Puts everything appended on the device.
  Outcome Sync();
  /// Says that the writer is done, once that is durable.
  Outcome Close();

  std::uint64_t Bytes() const { return end_ - start_; }
  /// Whether putting something on the device has failed: what it holds is unknown from then on,
  /// and another try that succeeds proves nothing. The model has to be written anew.
  bool SyncFailed() const { return sync_failed_; }
  std::uint64_t Id() const { return id_; }
  /// The name that the file has come to have.
  void SetPath(const std::string& path) { path_ = path; }
  /// Where it stands; two readings agree when nobody wrote in between.
  std::uint64_t Sequence() const { return sequence_; }

 private:
  struct Head;
  struct Scan;
  class Content;
  class FrameWriter;
  StepLog(std::string path, std::shared_ptr<RawFile> file, std::uint64_t start, std::uint64_t id);
  static Result<Scan> ScanLog(RawFile& file, const std::string& path, std::uint64_t start,
                              std::uint64_t id);
  static Result<Scan> ScanBytes(RawFile& file, const std::string& path, std::uint64_t start,
                                std::uint64_t id);
  bool HoldsThisLog() const;
  int SyncFile();
  Head NextHead(FrameKind kind) const;
  Outcome MakeRoom(std::uint64_t bytes);
  void FillAhead(std::uint64_t bytes);
  Outcome Put(FrameKind kind, std::int64_t time_ms, const FramePayload& payload);
  Outcome PutBeyondEnd(FrameKind kind, std::int64_t time_ms, const FramePayload& payload,
                       bool& is_linked);
  void Mark(FrameKind kind, int& error);
  void WipeMark();
  bool Withdraw();
  Failure Fault(int error) const;

  std::string path_;
  std::shared_ptr<RawFile> file_;
  std::uint64_t start_;
  std::uint64_t id_;
  std::uint64_t end_;           // where the next frame goes
  std::uint64_t extent_ = 0;    // the file's size, durably; 0 while it is new
  std::uint64_t written_ = 0;   // up to here every block was written once
  std::uint64_t sequence_ = 0;  // of the last frame
  std::uint64_t synced_ = 0;    // the last frame known to be on the device
  std::uint64_t chain_ = 0;     // checksum of the last frame's head
  bool sync_failed_ = false;
};

}  // namespace qx
