// Power failures, failing disks, failing memory, damaged bytes.

#include <cerrno>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>

#include "qx_db/platform/file.h"

#include "tests/core/durable_model.h"
#include "tests/core/test_disk.h"
#include "tests/scratch_folder.h"

namespace qx {
namespace {

namespace fs = std::filesystem;

void WriteBytes(const std::string& path, const std::string& bytes) {
  std::ofstream(path, std::ios::binary | std::ios::trunc) << bytes;
}

// ---- power failures -----------------------------------------------------------------------------

/// What has been acknowledged by a moment of a recording.
struct Acknowledged {
  std::size_t event;
  std::uint64_t state;
  std::size_t undoable;
};

/// A session's work on a file, as the disk saw it and as the user was told.
class Recording {
 public:
  Recording(const std::string& path, std::uint32_t seed, int steps) {
    RandomEdits edits(seed);
    TestDisk disk;
    disk_ = &disk;
    disk.Record();
    CQXDocBase document(SetUpSmallModel);
    session_ = document.GetDBSession();
    EXPECT_EQ(document.SaveAs(path).Line(), "");
    EXPECT_EQ(document.KeepSteps().Line(), "");
    Told();
    for (int i = 0; i < steps; ++i) {
      const std::uint32_t what = edits.Pick(12);
      if (what == 0) {
        EXPECT_EQ(document.Save().Line(), "");
      } else if (what < 3) {
        session_->Undo();
      } else if (what == 3) {
        session_->Redo();
      } else {
        edits.Step(*session_);
      }
      Told();
    }
    log_ = disk.Log();
  }
  const std::vector<TestDisk::Event>& Log() const { return log_; }
  const std::vector<Acknowledged>& Steps() const { return told_; }

 private:
  void Told() {
    told_.push_back({disk_->Recorded(), session_->StateHash(), session_->History().Done().size()});
  }
  TestDisk* disk_ = nullptr;
  std::vector<TestDisk::Event> log_;
  CQXDBSession* session_ = nullptr;
  std::vector<Acknowledged> told_;
};

TEST(Crash, ReopensAsOfTheLastAcknowledgedStep) {
  const int wanted = Rounds("QX_DURABILITY_CRASHES", 10000);
  const ScratchFolder folder;
  const std::string path = folder.Path("crashed.qxm");
  const std::string left = folder.Path("left.qxm");
  int points = 0;
  int unfinished = 0;
  for (std::uint32_t seed = 0; points < wanted; ++seed) {
    fs::remove(path);
    const Recording recording(path, seed, 40);
    std::mt19937 random(seed);
    CrashedDisk disk(recording.Log());
    const auto& told = recording.Steps();
    std::size_t last = 0;
    for (std::size_t event = told[0].event; event <= recording.Log().size(); ++event) {
      disk.PlayTo(event);
      while (last + 1 < told.size() && told[last + 1].event <= event) ++last;
      for (int variant = 0; variant < 3; ++variant, ++points) {
        const auto bytes = disk.Leftover(path, random);
        ASSERT_TRUE(bytes);
        WriteBytes(left, *bytes);
        CQXDocBase document(SetUpSmallModel);
        ModelFileReport report;
        ASSERT_EQ(document.Open(left, &report).Line(), "")
            << "seed " << seed << ", event " << event << " of " << recording.Log().size();
        unfinished += report.unfinished_step;
        const CQXDBSession& session = *document.GetDBSession();
        const auto is = [&](const Acknowledged& step) {
          return session.StateHash() == step.state &&
                 session.History().Done().size() == step.undoable;
        };
        // The step being made at that moment may have arrived.
        ASSERT_TRUE(is(told[last]) || (last + 1 < told.size() && is(told[last + 1])))
            << "seed " << seed << ", event " << event << " of " << recording.Log().size();
        if (variant != 0 || random() % 8) continue;
        // Going on after the crash hides nothing of it.
        ASSERT_EQ(document.OpenForEditing(left).Line(), "");
        RandomEdits edits(seed + 1);
        for (int i = 0; i < 3; ++i) edits.Step(*document.GetDBSession());
        const std::uint64_t state = document.GetDBSession()->StateHash();
        document.Release();
        ASSERT_EQ(document.Open(left).Line(), "");
        ASSERT_EQ(document.GetDBSession()->StateHash(), state);
      }
    }
  }
  EXPECT_GT(unfinished, points / 100) << "the disk tore too little";
}

// A step too large to be written twice goes behind the end of the file, in an order of its own.
TEST(Crash, ALargeStepArrivesWholeOrNotAtAll) {
  const ScratchFolder folder;
  const std::string path = folder.Path("crashed.qxm");
  const std::string left = folder.Path("left.qxm");
  const auto insert = [](CQXDBSession& session, Key first, Key count) {
    CTransaction transaction(&session);
    transaction.Begin(u"Insert");
    tagTNode node;
    for (node.key = first; node.key < first + count; ++node.key) {
      session.GetPool<DPoolNode>(code::kNode)->InsertNU(node);
    }
    return transaction.Commit();
  };
  std::vector<TestDisk::Event> log;
  std::vector<Acknowledged> told;
  {
    TestDisk disk;
    disk.Record();
    CQXDocBase document(SetUpSmallModel);
    CQXDBSession& session = *document.GetDBSession();
    ASSERT_EQ(document.SaveAs(path).Line(), "");
    ASSERT_EQ(document.KeepSteps().Line(), "");
    Key next = 1;
    for (const Key count : {1, 5500, 1, 5600}) {
      told.push_back({disk.Recorded(), session.StateHash(), 0});
      ASSERT_EQ(insert(session, next, count), 1);
      next += count;
    }
    told.push_back({disk.Recorded(), session.StateHash(), 0});
    log = disk.Log();
  }
  std::mt19937 random(3);
  CrashedDisk crashed(log);
  TestDisk quick;  // which syncs at once
  std::size_t last = 0;
  int arrived = 0;
  for (std::size_t event = told[0].event; event <= log.size(); ++event) {
    crashed.PlayTo(event);
    while (last + 1 < told.size() && told[last + 1].event <= event) ++last;
    for (int variant = 0; variant < 12; ++variant) {
      const auto bytes = crashed.Leftover(path, random);
      ASSERT_TRUE(bytes);
      WriteBytes(left, *bytes);
      CQXDocBase reader(SetUpSmallModel);
      ASSERT_EQ(reader.OpenForEditing(left).Line(), "") << "event " << event;
      CQXDBSession& found = *reader.GetDBSession();
      const bool before = found.StateHash() == told[last].state;
      ASSERT_TRUE(before || (last + 1 < told.size() && found.StateHash() == told[last + 1].state))
          << "event " << event;
      arrived += !before;
      if (variant > 1) continue;
      // What is written next takes the place of what did not arrive.
      ASSERT_EQ(insert(found, 100000, variant ? 6000 : 1), 1) << reader.Keeper()->Fault().Line();
      const std::uint64_t state = found.StateHash();
      reader.Release();
      ASSERT_EQ(reader.Open(left).Line(), "") << "event " << event;
      ASSERT_EQ(found.StateHash(), state);
    }
  }
  EXPECT_GT(arrived, 0) << "no step arrived that was not acknowledged yet";
}

// ---- failing disks ------------------------------------------------------------------------------

// The address sanitizer makes each run twenty times as slow: there every fifth operation fails, and
// in each of the four ways another fifth.
#if defined(__SANITIZE_ADDRESS__)
constexpr int kFailEvery = 5;
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
constexpr int kFailEvery = 5;
#else
constexpr int kFailEvery = 1;
#endif
#else
constexpr int kFailEvery = 1;
#endif

TEST(Crash, EveryFailingOperationLeavesModelAndFileGood) {
  const ScratchFolder folder;
  const std::string path = folder.Path("failing.qxm");
  int failures = 0;
  int told = 0;
  int way = 0;
  for (const bool forever : {false, true}) {
    for (const int error : {ENOSPC, EIO}) {
      bool failed = true;
      for (int operation = way++ % kFailEvery; failed; operation += kFailEvery) {
        SCOPED_TRACE("operation " + std::to_string(operation));
        fs::remove(path);
        TestDisk disk;
        CQXDocBase document(SetUpSmallModel);
        CQXDBSession& session = *document.GetDBSession();
        RandomEdits edits(7);
        for (int i = 0; i < 20; ++i) edits.Step(session);
        ASSERT_EQ(document.SaveAs(path).Line(), "");
        ASSERT_EQ(document.KeepSteps().Line(), "");
        for (int i = 0; i < 5; ++i) edits.Step(session);
        disk.FailAt(operation, error, forever);
        // A save, a commit that makes the file grow, an undo, a redo: each happens or does not.
        std::vector<std::uint64_t> possible = {session.StateHash()};
        const auto check = [&](bool done, std::uint64_t before) {
          ASSERT_EQ(session.Validate(), "");
          if (!done) {
            ASSERT_EQ(session.StateHash(), before);
            ++told;
          } else {
            possible = {session.StateHash()};
          }
        };
        std::uint64_t before = session.StateHash();
        const Outcome saved = document.Save();
        if (!saved) {
          EXPECT_NE(saved.Error().remedy, "") << saved.Line();
          EXPECT_EQ(saved.Error().file, path);
        }
        check(static_cast<bool>(saved), before);
        // A step of one write; for one kind of failure, steps of several, beyond the end of the
        // file and in the room behind that.
        for (const auto& [first, count] : {std::pair{1000, 3000}, {10000, 5600}, {20000, 5500}}) {
          if (count > 3000 && (forever || error != EIO)) continue;
          before = session.StateHash();
          CTransaction transaction(&session);
          transaction.Begin(u"Many");
          auto& nodes = *session.GetPool<DPoolNode>(code::kNode);
          for (Key key = first; key < first + count; ++key) {
            tagTNode node;
            node.key = key;
            nodes.InsertNU(node);
          }
          const bool committed = transaction.Commit() == 1;
          check(committed, before);
          if (!committed) {
            EXPECT_NE(document.Keeper()->Fault().Error().remedy, "");
          }
        }
        for (const bool undo : {true, false}) {
          before = session.StateHash();
          check((undo ? session.Undo() : session.Redo()) == 1, before);
        }
        failed = disk.HasFailed();
        failures += failed;
        // A step that was refused may be in the file all the same, until something else is.
        disk.FailNever();
        edits.Step(session);
        const std::uint64_t state = session.StateHash();
        CQXDocBase other(SetUpSmallModel);
        ASSERT_EQ(other.Open(path).Line(), "");
        ASSERT_EQ(other.GetDBSession()->StateHash(), state);
        document.Release();
        ASSERT_EQ(other.Open(path).Line(), "");
        ASSERT_EQ(other.GetDBSession()->StateHash(), state);
      }
    }
  }
  EXPECT_GT(failures, 100 / kFailEvery);
  EXPECT_GT(told, failures / 2);
}

TEST(Crash, AFailingReadLeavesTheModelAlone) {
  const ScratchFolder folder;
  const std::string path = folder.Path("unreadable.qxm");
  TestDisk disk;
  {
    CQXDocBase document(SetUpSmallModel);
    ASSERT_EQ(document.SaveAs(path).Line(), "");
    ASSERT_EQ(document.KeepSteps().Line(), "");
    RandomEdits edits(5);
    for (int i = 0; i < 10; ++i) edits.Step(*document.GetDBSession());
  }
  bool failed = true;
  int failures = 0;
  for (int operation = 0; failed; ++operation) {
    CQXDocBase document(SetUpSmallModel);
    RandomEdits edits(6);
    edits.Step(*document.GetDBSession());
    const std::uint64_t before = document.GetDBSession()->StateHash();
    disk.FailAt(operation, EIO, true);
    const Outcome opened = document.OpenForEditing(path);
    failed = disk.HasFailed();
    failures += failed;
    disk.FailNever();
    EXPECT_EQ(static_cast<bool>(opened), !failed);
    if (!failed) break;
    EXPECT_TRUE(opened.Line().starts_with(path)) << opened.Line();
    EXPECT_EQ(document.GetDBSession()->StateHash(), before);
  }
  EXPECT_GT(failures, 2);
}

// ---- damaged bytes ------------------------------------------------------------------------------

TEST(Crash, EveryFlippedBitAndTruncationIsRefusedOrHarmless) {
  const ScratchFolder folder;
  const std::string path = folder.Path("whole.qxm");
  const std::string damaged_path = folder.Path("damaged.qxm");
  std::uint64_t state = 0;
  std::size_t undoable = 0;
  {
    CQXDocBase document(SetUpSmallModel);
    ASSERT_EQ(document.SaveAs(path).Line(), "");
    ASSERT_EQ(document.KeepSteps().Line(), "");
    RandomEdits edits(5);
    for (int i = 0; i < 6; ++i) edits.Step(*document.GetDBSession());
    ASSERT_EQ(document.Save().Line(), "");
    for (int i = 0; i < 6; ++i) edits.Step(*document.GetDBSession());
    document.GetDBSession()->Undo();
    state = document.GetDBSession()->StateHash();
    undoable = document.GetDBSession()->History().Done().size();
  }
  const std::string whole = *ReadWholeFile(path);
  const auto expect_refused_or_harmless = [&](const std::string& bytes, const std::string& what) {
    WriteBytes(damaged_path, bytes);
    CQXDocBase document(SetUpSmallModel);
    const Outcome opened = document.Open(damaged_path);
    if (!opened) {
      ASSERT_TRUE(opened.Line().starts_with(damaged_path + ": ")) << opened.Line();
      ASSERT_NE(opened.Error().place, "") << opened.Line();
      ASSERT_NE(opened.Error().remedy, "") << opened.Line();
      return;
    }
    ASSERT_EQ(document.GetDBSession()->StateHash(), state) << what;
    ASSERT_EQ(document.GetDBSession()->History().Done().size(), undoable) << what;
  };
  const std::size_t pages = whole.find("QXSF");
  ASSERT_NE(pages, std::string::npos);
  // A bit of every byte of the heads and payloads of the steps; of the pages, which one rule
  // covers, a stride. Or every one.
  const std::size_t stride = Rounds("QX_DURABILITY_EVERY_BIT", 0) ? 1 : 97;
  for (std::size_t at = 0; at < pages; at += stride) {
    std::string damaged = whole;
    damaged[at] = static_cast<char>(damaged[at] ^ (1 << (at % 8)));
    expect_refused_or_harmless(damaged, "byte " + std::to_string(at));
    if (testing::Test::HasFatalFailure()) return;
  }
  for (std::size_t block = pages; block < whole.size(); block += 4096) {
    const std::size_t looked_at = whole[block] == 0 && stride > 1 ? 8 : 240;
    for (std::size_t at = block; at < std::min(block + looked_at, whole.size()); ++at) {
      const int bits = block < pages + 20 * 4096 && stride == 1 ? 8 : 1;
      for (int bit = 0; bit < bits; ++bit) {
        std::string damaged = whole;
        damaged[at] =
            static_cast<char>(damaged[at] ^ (1 << ((at + static_cast<std::size_t>(bit)) % 8)));
        expect_refused_or_harmless(damaged, "byte " + std::to_string(at));
        if (testing::Test::HasFatalFailure()) return;
      }
    }
  }
  for (std::size_t size = 0; size < whole.size(); size += stride == 1 ? 1 : 256) {
    WriteBytes(damaged_path, whole.substr(0, size));
    CQXDocBase document(SetUpSmallModel);
    ASSERT_FALSE(document.Open(damaged_path)) << "cut at " << size;
  }
}

}  // namespace
}  // namespace qx
