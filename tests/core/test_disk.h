#pragma once
// A disk for tests under the library's files: it records what is written and
// synced, fails on demand, and tells what a crash at any moment may leave behind.

#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <random>
#include <string>
#include <vector>

#include "qx_db/platform/raw_file.h"

namespace qx {

/// While it lives, every write of a model file passes through it.
class TestDisk final : public FileSystem {
 public:
  TestDisk();
  ~TestDisk() override;

  // ---- failing ----------------------------------------------------------------------------------

  /// The operation of this number (from 0) fails with the error, `forever` all later ones, too.
  void FailAt(int operation, int error, bool forever);
  void FailNever() {
    fail_at_ = -1;
    syncs_to_fail_ = 0;
    failing_creation_ = 0;
  }
  /// Only syncs fail, the next `times` of them.
  void FailSyncs(int times) { syncs_to_fail_ = times; }
  /// Only new files cannot be created.
  void FailCreating(int error) { failing_creation_ = error; }
  /// Whether a file can be claimed, which not every file system knows.
  bool knows_claims = true;
  /// Called once, after the next sync that succeeds.
  std::function<void()> after_sync;
  /// Called before every look at a file or at its name.
  std::function<void()> before_look;
  void Look() {
    if (before_look) before_look();
  }
  /// Operations since the last FailAt.
  int Operations() const { return operations_; }
  bool HasFailed() const { return failed_; }

  // ---- crashing ---------------------------------------------------------------------------------

  /// Starts a recording. Files that exist already are not known to it.
  void Record();
  std::size_t Recorded() const { return log_.size(); }

  /// One thing that happened.
  struct Event {
    enum Kind { kWrite, kResize, kSync, kRename, kSyncFolder } kind;
    int file = 0;
    std::uint64_t at = 0;  // or the new size
    std::string bytes;
    std::string from, to;
  };
  const std::vector<Event>& Log() const { return log_; }

  // ---- the file system --------------------------------------------------------------------------

  int Open(const std::string& path, bool writing, std::unique_ptr<RawFile>& file) override;
  int Create(const std::string& path, bool guarded, std::unique_ptr<RawFile>& file) override;
  int IdOf(const std::string& path, FileId& id) override;
  int Rename(const std::string& from, const std::string& to) override;
  int SyncFolderOf(const std::string& path) override;

  /// Whether the next operation is to fail, and with what; 0 when not. A write that fails has
  /// written half.
  int Next();
  int NextSync();
  int FileOf(const std::string& path, bool fresh);
  void Add(Event event) {
    if (recording_) log_.push_back(std::move(event));
  }

 private:
  int fail_at_ = -1;
  int error_ = 0;
  bool forever_ = false;
  int syncs_to_fail_ = 0;
  int failing_creation_ = 0;
  bool failed_ = false;
  int operations_ = 0;
  bool recording_ = false;
  std::vector<Event> log_;
  std::map<std::string, int> names_;
  int files_ = 0;
};

/// Plays a recording and gives what a crash may leave of one file.
class CrashedDisk {
 public:
  explicit CrashedDisk(const std::vector<TestDisk::Event>& log) : log_(log) {}
  /// Goes on to the moment before event `end`.
  void PlayTo(std::size_t end);
  /// What the name may hold if power fails now: of everything not synced, sectors that arrived,
  /// did not, or did in part, in any order. Nothing when there is no such file.
  std::optional<std::string> Leftover(const std::string& path, std::mt19937& random) const;

 private:
  struct File {
    std::string synced;
    std::vector<const TestDisk::Event*> pending;
  };
  std::string Content(const File& file, std::mt19937* random) const;

  const std::vector<TestDisk::Event>& log_;
  std::size_t at_ = 0;
  std::map<int, File> files_;
  std::map<std::string, int> names_;             // as synced
  std::vector<const TestDisk::Event*> renames_;  // since
};

}  // namespace qx
