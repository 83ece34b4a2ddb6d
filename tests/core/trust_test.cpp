// What others do to a model file, by mistake or on purpose: programs that replace it, disks that
// fill up, writers beside each other. Nothing acknowledged is lost, nothing of theirs either, and
// nothing is told that is not so.

#include "tests/core/trust.h"

#include <chrono>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <functional>
#include <gtest/gtest.h>
#include <sys/file.h>
#include <sys/wait.h>
#include <unistd.h>

#include "qx_db/platform/file.h"
#include "qx_db/platform/file_lock.h"
#include "qx_db/platform/new_file.h"

#include "tests/core/durable_model.h"
#include "tests/core/test_disk.h"

namespace qx {
namespace {

namespace fs = std::filesystem;

TEST_F(TrustTest, NoStepIsAcknowledgedIntoAFileThatLostItsName) {
  const std::string path = Path("mine.qxm");
  const std::string theirs = Path("theirs.qxm");
  Kept(theirs, 7)->Release();
  const std::string their_bytes = BytesOf(theirs);
  for (const auto& [between, over] : {std::pair(false, false), std::pair(true, false),
                                      std::pair(false, true), std::pair(true, true)}) {
    SCOPED_TRACE(between ? "between sync and acknowledgement" : "before the step");
    SCOPED_TRACE(over ? "copied over it" : "renamed over it");
    TestDisk disk;
    const auto document = Kept(path, 3);
    CQXDBSession& session = *document->GetDBSession();
    const std::uint64_t before = session.StateHash();
    const auto replace = [&, over = over] {
      if (over) return WriteBytes(path, their_bytes);
      fs::copy_file(theirs, path + ".theirs", fs::copy_options::overwrite_existing);
      fs::rename(path + ".theirs", path);
    };
    if (between) {
      disk.after_sync = replace;
    } else {
      replace();
    }
    EXPECT_EQ(InsertNode(session, 50), 0);
    EXPECT_EQ(session.StateHash(), before);
    const std::string said = document->Keeper()->Fault().Line();
    EXPECT_NE(said.find("was replaced by another program"), std::string::npos) << said;
    EXPECT_EQ(session.Undo(), 0);
    EXPECT_FALSE(document->Save()) << "the other's work would be lost";
    EXPECT_TRUE(BytesOf(path) == their_bytes);
    EXPECT_EQ(document->SaveAs(Path("aside.qxm")).Line(), "");
    EXPECT_EQ(InsertNode(session, 50), 1);
    EXPECT_EQ(StateAt(Path("aside.qxm")), session.StateHash());
    EXPECT_TRUE(BytesOf(path) == their_bytes);
  }
}

TEST_F(TrustTest, AFileThatWasRemovedIsWrittenAnew) {
  const std::string path = Path("removed.qxm");
  const auto document = Kept(path, 3);
  CQXDBSession& session = *document->GetDBSession();
  fs::remove(path);
  EXPECT_EQ(InsertNode(session, 50), 1);
  ASSERT_TRUE(fs::exists(path));
  EXPECT_EQ(StateAt(path), session.StateHash());
  fs::remove(path);
  EXPECT_EQ(session.Undo(), 1);
  EXPECT_EQ(StateAt(path), session.StateHash());
  EXPECT_EQ(session.Redo(), 1);
  EXPECT_EQ(StateAt(path), session.StateHash());
}

// ---- disks --------------------------------------------------------------------------------------

TEST_F(TrustTest, AFailedSaveDoesNotBlockStepsThatFit) {
  const std::string path = Path("full.qxm");
  TestDisk disk;
  const auto document = Kept(path, 3);
  CQXDBSession& session = *document->GetDBSession();
  disk.FailCreating(ENOSPC);
  EXPECT_FALSE(document->Save());
  EXPECT_EQ(InsertNode(session, 50), 1) << document->Keeper()->Fault().Line();
  EXPECT_EQ(session.Undo(), 1);
  EXPECT_EQ(session.Redo(), 1);
  EXPECT_EQ(StateAt(path), session.StateHash());
  // So it is where the log has outgrown its bound, and would be folded in.
  DurabilityOptions small;
  small.log_bytes = 4096;
  session.SetKeptHistory({1000, small.log_bytes});
  document->Keeper()->SetOptions(small);
  EXPECT_EQ(InsertNode(session, 51), 1) << document->Keeper()->Fault().Line();
  EXPECT_EQ(StateAt(path), session.StateHash());
  disk.FailNever();
  EXPECT_EQ(InsertNode(session, 52), 1);
  EXPECT_EQ(StateAt(path), session.StateHash());
}

TEST_F(TrustTest, ARefusedStepDoesNotComeBack) {
  const std::string path = Path("refused.qxm");
  for (const int failing : {1, 1000}) {
    TestDisk disk;
    const auto document = Kept(path, 3);
    CQXDBSession& session = *document->GetDBSession();
    const std::uint64_t before = session.StateHash();
    disk.FailSyncs(failing);
    EXPECT_EQ(InsertNode(session, 50), 0);
    const std::string said = document->Keeper()->Fault().Line();
    const bool warned = said.find("may come back") != std::string::npos;
    EXPECT_EQ(warned, failing > 1) << said;
    fs::copy_file(path, Path("killed.qxm"), fs::copy_options::overwrite_existing);
    disk.FailNever();
    EXPECT_EQ(StateAt(Path("killed.qxm")), before);
  }
}

TEST_F(TrustTest, AFileClosedRightAfterALargeStepOpensAgain) {
  const std::string path = Path("large.qxm");
  TestDisk disk;  // which syncs at once
  // Frames that fit, that take new room, and that go beyond the end, by a block more or less.
  for (const Key count : {1, 1300, 5370, 5455, 5540, 9000}) {
    for (const bool killed : {false, true}) {
      SCOPED_TRACE(std::to_string(count) + (killed ? " nodes, killed" : " nodes, closed"));
      fs::remove(path);
      const auto document = Kept(path, 1);
      CQXDBSession& session = *document->GetDBSession();
      const auto insert = [&](Key first) {
        CTransaction transaction(&session);
        transaction.Begin(u"Insert");
        tagTNode node;
        for (node.key = first; node.key < first + count; ++node.key) {
          session.GetPool<DPoolNode>(code::kNode)->InsertNU(node);
        }
        return transaction.Commit();
      };
      for (const Key first : {100, 100000}) {
        ASSERT_EQ(insert(first), 1) << document->Keeper()->Fault().Line();
        if (killed) {
          fs::copy_file(path, Path("killed.qxm"), fs::copy_options::overwrite_existing);
          EXPECT_EQ(StateAt(Path("killed.qxm")), session.StateHash());
          continue;
        }
        document->Release();
        ASSERT_EQ(document->OpenForEditing(path).Line(), "");
      }
      const std::uint64_t state = session.StateHash();
      EXPECT_EQ(session.Undo(), 1);
      EXPECT_EQ(session.Undo(), 1);
      EXPECT_EQ(session.Redo(), 1);
      EXPECT_EQ(session.Redo(), 1);
      document->Release();
      EXPECT_EQ(StateAt(path), state);
    }
  }
}

// ---- readers beside a writer --------------------------------------------------------------------

TEST_F(TrustTest, ReadersBesideABusyWriterAreToldOfNoDamage) {
  const std::string path = Path("busy.qxm");
  // Files of two lengths in turn, so that what is read of one does not fit the other.
  const auto fill = [](CQXDBSession& session, Key last) {
    tagTNode node;
    for (node.key = 1; node.key < last; ++node.key) {
      session.GetPool<DPoolNode>(code::kNode)->InsertNU(node);
    }
  };
  CQXDBSession first(SetUpSmallModel);
  CQXDBSession second(SetUpSmallModel);
  fill(first, 100);
  fill(second, 2000);
  ASSERT_EQ(SaveModel(first, path).Line(), "");
  const pid_t child = fork();
  if (child == 0) {
    TestDisk disk;  // which syncs at once
    while (SaveModel(second, path) && SaveModel(first, path)) {
    }
    _exit(1);
  }
  std::string faults;
  for (int i = 0; i < 100; ++i) {
    CQXDocBase reader(SetUpSmallModel);
    if (const Outcome opened = reader.Open(path); !opened) faults += opened.Line() + "\n";
    const auto from = ExternalModel::Open(path, SetUpSmallModel);
    const std::string said = from.AsOutcome().Line();
    if (!from && said.find("lead nowhere") == std::string::npos) faults += said + "\n";
  }
  kill(child, SIGKILL);
  int status = 0;
  waitpid(child, &status, 0);
  EXPECT_TRUE(WIFSIGNALED(status)) << "the writer ended by itself";
  EXPECT_EQ(faults, "");
}

/// Two models alike in every size, so that half of one and half of the other would pass for a
/// model; and what may put one in the other's place.
class ReplacingTest : public TrustTest {
 protected:
  std::uint64_t Make(const std::string& path, double x) {
    CQXDocBase document(SetUpSmallModel);
    CQXDBSession& session = *document.GetDBSession();
    tagTNode node;
    node.position.x = x;
    tagTElem element;
    element.overlap = static_cast<int>(x);
    for (node.key = 1; node.key < 300; ++node.key) {
      session.GetPool<DPoolNode>(code::kNode)->InsertNU(node);
      element.key = node.key;
      session.GetDataPool(code::kElem)->InsertNU(&element);
    }
    EXPECT_EQ(document.SaveAs(path).Line(), "");
    EXPECT_EQ(document.KeepSteps().Line(), "");
    EXPECT_EQ(InsertNode(session, 1000), 1);
    return session.StateHash();
  }

  const std::string path_ = Path("model.qxm");
  const std::string ours_ = Path("ours.qxm");
  const std::string theirs_ = Path("theirs.qxm");
  const std::uint64_t our_state_ = Make(ours_, 1);
  const std::uint64_t their_state_ = Make(theirs_, 2);
  /// By name, as savers do it; and by writing over it, as copying does.
  const std::vector<std::function<void()>> replacements_ = {
      [this] {
        fs::copy_file(theirs_, path_ + ".theirs");
        fs::rename(path_ + ".theirs", path_);
      },
      [this] { WriteBytes(path_, BytesOf(theirs_)); }};
};

TEST_F(ReplacingTest, AFileReplacedAtAnyMomentOfItsOpeningIsReadWhole) {
  ASSERT_EQ(fs::file_size(ours_), fs::file_size(theirs_));
  TestDisk disk;
  for (std::size_t how = 0; how < replacements_.size(); ++how) {
    for (const bool editing : {false, true}) {
      bool within = true;
      int refused = 0;
      int moment = 0;
      for (; within; ++moment) {
        SCOPED_TRACE("way " + std::to_string(how) + (editing ? ", editing" : ", reading") +
                     ", moment " + std::to_string(moment));
        fs::remove(path_);
        fs::copy_file(ours_, path_);
        int left = moment;
        disk.before_look = [&] {
          if (left-- == 0) replacements_[how]();
        };
        CQXDocBase document(SetUpSmallModel);
        CQXDBSession& session = *document.GetDBSession();
        const Outcome opened = editing ? document.OpenForEditing(path_) : document.Open(path_);
        disk.before_look = nullptr;
        within = left < 0;
        if (!within) replacements_[how]();
        ASSERT_EQ(opened.Line(), "");
        const std::uint64_t state = session.StateHash();
        ASSERT_TRUE(state == our_state_ || state == their_state_) << "half of one and half";
        if (!editing) continue;
        // A step goes into the file that has the name, or nowhere.
        if (InsertNode(session, 2000)) {
          ASSERT_EQ(state, their_state_);
          ASSERT_EQ(StateAt(path_), session.StateHash());
        } else {
          ++refused;
          ASSERT_EQ(StateAt(path_), their_state_);
        }
      }
      EXPECT_GT(moment, 20);
      // Only what happens behind the last look of an opening is left to the first step to notice.
      EXPECT_LE(refused, 2);
    }
  }
}

// ---- names in the folder ------------------------------------------------------------------------

TEST_F(TrustTest, PlantedLinksAreNotFollowed) {
  const std::string victim = Path("victim");
  const std::string path = Path("linked.qxm");
  WriteBytes(victim, "precious");
  for (int serial = 1; serial < 3000; ++serial) {
    fs::create_symlink(
        victim, path + "." + std::to_string(getpid()) + "-" + std::to_string(serial) + ".new");
  }
  CQXDocBase document(SetUpSmallModel);
  EXPECT_EQ(document.SaveAs(path).Line(), "");
  EXPECT_TRUE(WriteWholeFile(Path("linked.qxm"), "text"));
  EXPECT_EQ(BytesOf(victim), "precious");
}

// Where a file of that name is, it is the one that was meant. Where none is, one would be made in a
// place that nobody named.
TEST_F(TrustTest, ALinkIsFollowedToAFileOnly) {
  const std::string link = Path("linked.qxm");
  const std::string target = Path("elsewhere/model.qxm");
  fs::create_directory(Path("elsewhere"));
  fs::create_symlink("elsewhere/model.qxm", link);
  fs::create_symlink(link, Path("twice.qxm"));
  CQXDBSession session(SetUpSmallModel);
  const auto write = [&](int way, const std::string& path) {
    CQXDocBase document(SetUpSmallModel);
    switch (way) {
      case 0:
        return document.SaveAs(path);
      case 1:
        return SaveModel(session, path);
      default:
        return WriteWholeFile(path, "text");
    }
  };
  for (const std::string& path : {link, Path("twice.qxm")}) {
    for (const int way : {0, 1, 2}) {
      const std::string said = write(way, path).Line();
      EXPECT_NE(said.find(path + ": is a link to "), std::string::npos) << said;
      EXPECT_NE(said.find("elsewhere/model.qxm, where there is no file"), std::string::npos)
          << said;
      EXPECT_TRUE(fs::is_empty(Path("elsewhere")));
    }
  }
  for (const int way : {0, 1, 2}) {
    WriteBytes(target, "");
    EXPECT_EQ(write(way, Path("twice.qxm")).Line(), "");
    EXPECT_TRUE(fs::is_symlink(link) && fs::file_size(target) > 0);
  }
  EXPECT_EQ(Names(), (std::vector<std::string>{"elsewhere", "linked.qxm", "twice.qxm"}));
}

// A program that puts a file where a lock is, or removes the lock so that another takes it anew,
// does not have it removed by the one who held it before.
TEST_F(TrustTest, AHolderRemovesItsOwnLockOnly) {
  const std::string path = Path("held.lock");
  std::string former;
  int error = 0;
  std::unique_ptr<FileLock> first, second;
  ASSERT_EQ(FileLock::Take(path, "host\n1\n", first, former, error), FileLock::Result::kTaken);
  fs::remove(path);
  ASSERT_EQ(FileLock::Take(path, "host\n2\n", second, former, error), FileLock::Result::kTaken);
  first.reset();
  EXPECT_EQ(BytesOf(path), "host\n2\n");
  ASSERT_EQ(FileLock::Take(path, "host\n3\n", first, former, error), FileLock::Result::kHeld);
  WriteBytes(path + ".theirs", "notes");
  fs::rename(path + ".theirs", path);
  second.reset();
  EXPECT_EQ(BytesOf(path), "notes");
}

// Whatever the file system can do: see exfat_test.sh.
TEST_F(TrustTest, ALockIsHeldByOneAtATimeAndLeavesNothing) {
  const std::string path = Path("contested.lock");
  const std::string inside = Path("inside");
  std::vector<pid_t> children;
  for (int i = 0; i < 4; ++i) {
    children.push_back(fork());
    if (children.back() != 0) continue;
    for (int taken = 0; taken < 50;) {
      std::unique_ptr<FileLock> lock;
      std::string former;
      int error = 0;
      const FileLock::Result result = FileLock::Take(path, "host\n4711\n", lock, former, error);
      if (result == FileLock::Result::kFailed) _exit(1);
      if (result == FileLock::Result::kHeld) {
        usleep(100);
        continue;
      }
      if (!lock->IsNew()) _exit(2);  // nobody was killed
      const int alone = open(inside.c_str(), O_CREAT | O_EXCL | O_RDWR, 0600);
      if (alone < 0) _exit(3);
      close(alone);
      if (unlink(inside.c_str()) != 0) _exit(4);
      ++taken;
    }
    _exit(0);
  }
  for (const pid_t child : children) {
    int status = 0;
    waitpid(child, &status, 0);
    EXPECT_TRUE(WIFEXITED(status));
    EXPECT_EQ(WEXITSTATUS(status), 0);
  }
  EXPECT_TRUE(Names().empty());
}

TEST_F(TrustTest, AFileThatIsNoLockStaysWhatItIs) {
  const std::string path = Path("locked.qxm");
  for (const std::string& text : {std::string(), std::string("notes of mine\n"),
                                  std::string(5000, 'x'), std::string("host\n12\nand more\n")}) {
    WriteBytes(path + ".lock", text);
    CQXDocBase document(SetUpSmallModel);
    const std::string said = document.SaveAs(path).Line();
    EXPECT_NE(said.find(".lock"), std::string::npos) << said;
    EXPECT_TRUE(BytesOf(path + ".lock") == text);
    EXPECT_FALSE(fs::exists(path));
  }
}

// A lock without its text is nobody's, and would have to be removed by hand: none is ever seen, at
// whatever moment its maker is killed.
TEST_F(TrustTest, AKilledWriterLeavesNoLockThatSaysNothing) {
  const std::string lock = Path("killed.qxm.lock");
  int seen = 0;
  for (int round = 0; round < 200; ++round) {
    const pid_t child = fork();
    if (child == 0) {
      for (;;) {
        std::unique_ptr<FileLock> taken;
        std::string former;
        int error = 0;
        FileLock::Take(lock, "host\n4711\n", taken, former, error);
      }
    }
    usleep(static_cast<useconds_t>(300 + 37 * round % 700));
    kill(child, SIGKILL);
    int status = 0;
    waitpid(child, &status, 0);
    if (!fs::exists(lock)) continue;
    ++seen;
    ASSERT_EQ(BytesOf(lock), "host\n4711\n") << round;
    fs::remove(lock);
  }
  RecordProperty("locks_left", seen);
  CQXDocBase document(SetUpSmallModel);
  EXPECT_EQ(document.SaveAs(Path("killed.qxm")).Line(), "");
  EXPECT_EQ(Names(), std::vector<std::string>{"killed.qxm"});
}

TEST_F(TrustTest, LeftoversOfKilledSavesAreCleanedUpByTheNextWriter) {
  const std::string path = Path("left.qxm");
  WriteBytes(path + ".lock.0123456789abcdef.new", "half a lock");
  WriteBytes(path + ".4711-3.new", "of a version before");
  WriteBytes(path + ".0123456789abcdef.new", "half a model");
  WriteBytes(path + ".notes.new", "the user's own");
  WriteBytes(Path("other.qxm.0123456789abcdef.new"), "of another model");
  WriteBytes(path + ".fedcba9876543210.new", "being written");
  const int held = open((path + ".fedcba9876543210.new").c_str(), O_RDWR);
  ASSERT_EQ(flock(held, LOCK_EX), 0);
  Kept(path, 1)->Release();
  close(held);
  const std::vector<std::string> expected = {"left.qxm", "left.qxm.fedcba9876543210.new",
                                             "left.qxm.notes.new",
                                             "other.qxm.0123456789abcdef.new"};
  EXPECT_EQ(Names(), expected);
}

TEST_F(TrustTest, LeftoversOfKilledExportsAreCleanedUpByTheNextWriter) {
  const std::string path = Path("left.vtu");
  const pid_t child = fork();
  if (child == 0) {
    const Outcome never = WriteFileBy(path, [](std::ostream& out) {
      out << std::string(100000, 'x') << std::flush;
      kill(getpid(), SIGKILL);
    });
    _exit(1);
  }
  int status = 0;
  waitpid(child, &status, 0);
  ASSERT_TRUE(WIFSIGNALED(status));
  ASSERT_EQ(Names().size(), 1u) << "the kill left nothing";
  WriteBytes(path + ".0123456789abcdef.new.fedcba9876543210.new", "of one that was strict");
  const std::string longest(255, 'd');
  WriteBytes(Path(longest.substr(0, 234) + ".0123456789abcdef.new"), "of a long name");
  ASSERT_EQ(WriteWholeFile(Path(longest), "text").Line(), "");
  fs::remove(Path(longest));
  WriteBytes(path + ".0123456789abcdef.new.fedcba98765432.new", "the user's own");
  WriteBytes(Path("victim"), "precious");
  fs::create_symlink(Path("victim"), path + ".00000000000000aa.new");
  fs::create_directory(path + ".00000000000000bb.new");
  WriteBytes(path + ".00000000000000cc.new", "being written");
  const int held = open((path + ".00000000000000cc.new").c_str(), O_RDONLY);
  ASSERT_EQ(flock(held, LOCK_EX), 0);
  ASSERT_EQ(WriteWholeFile(path, "text").Line(), "");
  close(held);
  const std::vector<std::string> expected = {"left.vtu",
                                             "left.vtu.00000000000000aa.new",
                                             "left.vtu.00000000000000bb.new",
                                             "left.vtu.00000000000000cc.new",
                                             "left.vtu.0123456789abcdef.new.fedcba98765432.new",
                                             "victim"};
  EXPECT_EQ(Names(), expected);
  EXPECT_EQ(BytesOf(Path("victim")), "precious");
}

TEST_F(TrustTest, LeftoversGoByAgeWhereFilesKnowNoClaims) {
  TestDisk disk;
  disk.knows_claims = false;
  const std::string path = Path("left.json");
  WriteBytes(path, "as it was");
  const std::string mine = path + ".0123456789abcdef.new";
  WriteBytes(mine, "of today");
  const std::string old = path + ".fedcba9876543210.new";
  WriteBytes(old, "of long ago");
  fs::last_write_time(old, fs::file_time_type::clock::now() - std::chrono::hours(25));
  auto slow = NewFile::Create(path);
  ASSERT_TRUE(slow);
  EXPECT_FALSE(fs::exists(old));
  EXPECT_TRUE(fs::exists(mine));
  // One that takes more than a day is refused what another has taken for a leftover.
  fs::last_write_time((*slow)->Name(), fs::file_time_type::clock::now() - std::chrono::hours(25));
  NewFile::RemoveLeftovers(path);
  const std::string said = (*slow)->TakePlace().Line();
  EXPECT_NE(said.find("repeat it"), std::string::npos) << said;
  EXPECT_EQ(BytesOf(path), "as it was");
}

TEST_F(TrustTest, WritersOfOneFileLeaveEachOtherAlone) {
  const std::string path = Path("shared.json");
  std::vector<pid_t> children;
  for (int i = 0; i < 4; ++i) {
    children.push_back(fork());
    if (children.back() != 0) continue;
    TestDisk disk;  // which syncs at once
    bool written = true;
    for (int round = 0; round < 500 && written; ++round) {
      written = static_cast<bool>(WriteWholeFile(path, std::string(3000, 'x')));
    }
    _exit(written ? 0 : 1);
  }
  for (const pid_t child : children) {
    int status = 0;
    waitpid(child, &status, 0);
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
  }
  EXPECT_EQ(Names(), std::vector<std::string>{"shared.json"});
  EXPECT_EQ(BytesOf(path), std::string(3000, 'x'));
}

}  // namespace
}  // namespace qx
