// Steps and history in a model file: whatever is done, a reopened model is the one that was left.

#include <algorithm>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <set>
#include <sys/wait.h>
#include <unistd.h>

#include "qx_db/core/read_snapshot.h"
#include "qx_db/platform/file.h"
#include "qx_db/record/deck_records.h"

#include "tests/core/durable_model.h"
#include "tests/core/test_disk.h"
#include "tests/scratch_folder.h"

namespace qx {
namespace {

namespace fs = std::filesystem;

class DurabilityTest : public testing::Test {
 protected:
  std::string Path(const std::string& name) const { return folder_.Path(name); }

  /// Opens a copy of the file as it is now, as after a kill of its writer.
  void ExpectFileHolds(const std::string& path, const NaiveHistory& history) {
    const std::string copy = path + ".copy";
    fs::copy_file(path, copy, fs::copy_options::overwrite_existing);
    CQXDocBase document(SetUpSmallModel);
    ASSERT_EQ(document.Open(copy).Line(), "");
    ExpectIs(*document.GetDBSession(), history);
  }

  /// The state, the whole history back and forth, and back to where it was.
  void ExpectIs(CQXDBSession& session, const NaiveHistory& history) {
    ASSERT_EQ(session.StateHash(), history.State());
    ASSERT_EQ(session.Validate(), "");
    std::size_t at = history.at;
    while (session.Undo()) {
      ASSERT_GT(at, 0u);
      ASSERT_EQ(session.StateHash(), history.states[--at]);
    }
    ASSERT_EQ(at, 0u) << "history was lost";
    while (session.Redo()) {
      ASSERT_LT(at + 1, history.states.size());
      ASSERT_EQ(session.StateHash(), history.states[++at]);
    }
    ASSERT_EQ(at + 1, history.states.size()) << "history was lost";
    while (at-- > history.at) session.Undo();
    ASSERT_EQ(session.StateHash(), history.State());
    ASSERT_EQ(session.Validate(), "");
  }

  const ScratchFolder folder_;
};

TEST_F(DurabilityTest, RandomSequencesAgainstANaiveHistory) {
  const int sequences = Rounds("QX_DURABILITY_SEQUENCES", 150);
  for (int sequence = 0; sequence < sequences; ++sequence) {
    SCOPED_TRACE("sequence " + std::to_string(sequence));
    const std::string path = Path("random.qxm");
    fs::remove(path);
    RandomEdits edits(static_cast<std::uint32_t>(sequence));
    auto document = std::make_unique<CQXDocBase>(SetUpSmallModel);
    ASSERT_EQ(document->SaveAs(path).Line(), "");
    ASSERT_EQ(document->KeepSteps().Line(), "");
    NaiveHistory history(document->GetDBSession()->StateHash());
    for (int i = 0; i < 100; ++i) {
      CQXDBSession& session = *document->GetDBSession();
      switch (edits.Pick(20)) {
        case 0:
        case 1:
        case 2:
        case 3:
          ASSERT_EQ(session.Undo() == 1, history.at > 0);
          if (history.at > 0) --history.at;
          break;
        case 4:
        case 5:
          ASSERT_EQ(session.Redo() == 1, history.at + 1 < history.states.size());
          if (history.at + 1 < history.states.size()) ++history.at;
          break;
        case 6:
          ASSERT_EQ(document->Save().Line(), "");
          break;
        case 7:
          document.reset();
          document = std::make_unique<CQXDocBase>(SetUpSmallModel);
          ASSERT_EQ(document->OpenForEditing(path).Line(), "");
          break;
        case 8: {  // killed: the file goes on from a copy, and its lock is nobody's
          const std::string left = Path("left.qxm");
          fs::copy_file(path, left, fs::copy_options::overwrite_existing);
          document.reset();
          fs::rename(left, path);
          document = std::make_unique<CQXDocBase>(SetUpSmallModel);
          ASSERT_EQ(document->OpenForEditing(path).Line(), "");
          break;
        }
        default: {
          const auto done = session.History().Done().size();
          edits.Step(session);
          if (session.History().Done().size() == done + 1) history.Commit(session.StateHash());
        }
      }
      ASSERT_EQ(document->GetDBSession()->StateHash(), history.State()) << "edit " << i;
    }
    ExpectFileHolds(path, history);
    ExpectIs(*document->GetDBSession(), history);
    if (HasFatalFailure()) return;
  }
}

TEST_F(DurabilityTest, AKilledWriterLosesNoAcknowledgedStep) {
  const int rounds = Rounds("QX_DURABILITY_KILLS", 60);
  const std::string path = Path("killed.qxm");
  const std::string said = Path("acknowledged");
  for (int round = 0; round < rounds; ++round) {
    fs::remove(path);
    fs::remove(said);
    const pid_t child = fork();
    if (child == 0) {
      CQXDocBase document(SetUpSmallModel);
      if (!document.SaveAs(path) || !document.KeepSteps()) _exit(1);
      RandomEdits edits(static_cast<std::uint32_t>(round));
      std::ofstream acknowledged(said, std::ios::binary);
      for (int i = 0; i < 100000; ++i) {
        CQXDBSession& session = *document.GetDBSession();
        if (i % 40 == 39) {
          if (!document.Save()) _exit(1);
        } else if (edits.Pick(5) == 0) {
          session.Undo();
        } else {
          edits.Step(session);
        }
        acknowledged << session.StateHash() << ' ' << session.History().Done().size() << std::endl;
      }
      _exit(1);
    }
    usleep(static_cast<useconds_t>(5000 + 1300 * round % 60000));
    kill(child, SIGKILL);
    int status = 0;
    waitpid(child, &status, 0);
    ASSERT_TRUE(WIFSIGNALED(status));
    if (!fs::exists(path)) continue;
    std::vector<std::pair<std::uint64_t, std::size_t>> states;
    std::ifstream lines(said);
    std::uint64_t state = 0;
    std::size_t steps = 0;
    while (lines >> state >> steps) states.emplace_back(state, steps);
    CQXDocBase document(SetUpSmallModel);
    ModelFileReport report;
    ASSERT_EQ(document.OpenForEditing(path, {}, &report).Line(), "");
    if (states.empty()) continue;
    // The last one acknowledged, or one more that was being made. Play on to learn that one.
    CQXDBSession& session = *document.GetDBSession();
    const auto acknowledged = [&] {
      return session.StateHash() == states.back().first &&
             session.History().Done().size() == states.back().second;
    };
    bool found = acknowledged();
    if (!found && session.Undo()) {
      found = acknowledged();
      if (!found) session.Redo();  // it was an undo
    }
    EXPECT_TRUE(found || (session.Redo() && acknowledged()))
        << "round " << round << " after " << states.size() << " steps";
  }
}

// Steps are written in pieces: an image may fill one to the last byte, or need more than one alone.
TEST_F(DurabilityTest, AStepOfOneImageOfAnySizeComesBack) {
  constexpr int kSizes[] = {0,      1,      3800,   3950,   4000,   4096,    8192,
                            261000, 262000, 262144, 266240, 524288, 1000000, 10000000};
  const std::string path = Path("sizes.qxm");
  std::uint64_t state = 0;
  const auto edit = [&](CQXDBSession& session, int size, Key key) {
    CTransaction step(&session);
    step.Begin(u"text");
    tagTCarried carried;
    carried.key = key;
    const std::string text(static_cast<std::size_t>(size), 'x');
    carried.text.Assign(text.data(), text.size());
    ASSERT_NE(Pool<tagTCarried>(session).InsertNU(carried), 0u);
    ASSERT_EQ(step.Commit(), 1);
    state = session.StateHash();
  };
  {
    CQXDocBase document(AddStandardPools);
    ASSERT_EQ(document.SaveAs(path).Line(), "");
  }
  Key key = 0;
  for (const int size : kSizes) {
    {
      CQXDocBase document(AddStandardPools);
      ASSERT_EQ(document.OpenForEditing(path).Line(), "") << size;
      edit(*document.GetDBSession(), size, ++key);
      // And a history that is saved whole: its frames are written in the same way.
      if (key % 3 == 0) {
        ASSERT_EQ(document.Save().Line(), "");
      }
    }
    CQXDocBase again(AddStandardPools);
    ASSERT_EQ(again.Open(path).Line(), "") << size;
    EXPECT_EQ(again.GetDBSession()->StateHash(), state) << size;
    EXPECT_EQ(again.GetDBSession()->History().Done().size(), static_cast<std::size_t>(key));
  }
}

TEST_F(DurabilityTest, WhatNoStepTellsIsWrittenWithTheNext) {
  const std::string path = Path("untold.qxm");
  CQXDocBase document(SetUpSmallModel);
  CQXDBSession& session = *document.GetDBSession();
  ASSERT_EQ(document.SaveAs(path).Line(), "");
  ASSERT_EQ(document.KeepSteps().Line(), "");
  auto& nodes = *session.GetPool<DPoolNode>(code::kNode);
  const auto insert = [&](Key key) {
    tagTNode node;
    node.key = key;
    nodes.InsertNU(node);
  };
  const auto step = [&](Key key) {
    CTransaction transaction(&session);
    transaction.Begin(u"Insert");
    insert(key);
    return transaction.Commit();
  };
  insert(30);  // outside a transaction
  EXPECT_EQ(step(20), 1);
  NaiveHistory history(0);
  history.Commit(session.StateHash());
  const auto expect_reopened = [&] {
    CQXDocBase other(SetUpSmallModel);
    ASSERT_EQ(other.Open(path).Line(), "");
    EXPECT_EQ(other.GetDBSession()->StateHash(), session.StateHash());
    EXPECT_EQ(other.GetDBSession()->CanUndo(), session.CanUndo());
  };
  expect_reopened();
  nodes.SortAsc();
  EXPECT_EQ(step(10), 1);
  expect_reopened();
  EXPECT_EQ(session.Undo(), 1);
  expect_reopened();
  session.EnableRecording(false);
  insert(5);
  session.EnableRecording(true);
  EXPECT_EQ(step(6), 1);
  expect_reopened();
}

TEST_F(DurabilityTest, HistoryStaysWithinItsLimits) {
  const std::string path = Path("limits.qxm");
  CQXDocBase document(SetUpSmallModel);
  CQXDBSession& session = *document.GetDBSession();
  ASSERT_EQ(document.SaveAs(path).Line(), "");
  session.SetKeptHistory({4, kUsualKept.bytes});
  ASSERT_EQ(document.KeepSteps().Line(), "");
  std::vector<std::uint64_t> states;
  for (Key key = 1; key <= 10; ++key) {
    CTransaction transaction(&session);
    transaction.Begin(u"Insert");
    tagTNode node;
    node.key = key;
    session.GetPool<DPoolNode>(code::kNode)->InsertNU(node);
    ASSERT_EQ(transaction.Commit(), 1);
    states.push_back(session.StateHash());
  }
  const auto file_steps = [&](std::uint64_t state) {
    CQXDocBase other(SetUpSmallModel);
    EXPECT_EQ(other.Open(path).Line(), "");
    EXPECT_EQ(other.GetDBSession()->StateHash(), state);
    return other.GetDBSession()->History().Done().size();
  };
  EXPECT_EQ(file_steps(states[9]), 10u) << "until they are folded in";
  ASSERT_EQ(document.Save().Line(), "");
  EXPECT_EQ(file_steps(states[9]), 4u);
  // Memory goes back further than the file.
  for (int i = 8; i >= 1; --i) {
    ASSERT_EQ(session.Undo(), 1);
    file_steps(states[static_cast<std::size_t>(i)]);
  }
  for (std::size_t i = 2; i < 10; ++i) {
    ASSERT_EQ(session.Redo(), 1);
    file_steps(states[i]);
  }
  ASSERT_EQ(document.Keeper()->SaveWithoutHistory().Line(), "");
  EXPECT_EQ(file_steps(states[9]), 0u);
  ASSERT_EQ(session.Undo(), 1);
  file_steps(states[8]);
}

TEST_F(DurabilityTest, EachSettingIsDurableWhenItSays) {
  const std::string path = Path("settings.qxm");
  for (const auto setting : {Durability::kEveryStep, Durability::kInterval, Durability::kOnSave}) {
    CQXDocBase document(SetUpSmallModel);
    RandomEdits edits(3);
    CQXDBSession& session = *document.GetDBSession();
    ASSERT_EQ(document.SaveAs(path).Line(), "");
    DurabilityOptions options;
    options.durability = setting;
    options.interval = std::chrono::milliseconds(2);
    ASSERT_EQ(document.KeepSteps(options).Line(), "");
    const std::uint64_t before = session.StateHash();
    for (int i = 0; i < 30; ++i) edits.Step(session);
    session.Undo();
    const auto in_file = [&] {
      CQXDocBase other(SetUpSmallModel);
      EXPECT_EQ(other.Open(path).Line(), "");
      return other.GetDBSession()->StateHash();
    };
    EXPECT_EQ(in_file(), setting == Durability::kOnSave ? before : session.StateHash());
    ASSERT_EQ(document.Keeper()->Flush().Line(), "");
    EXPECT_EQ(in_file(), session.StateHash());
    EXPECT_EQ(session.Redo(), 1);
    ASSERT_EQ(document.Save().Line(), "");
    EXPECT_EQ(in_file(), session.StateHash());
  }
}

TEST_F(DurabilityTest, NothingIsWrittenAnewAmidAStep) {
  for (const bool kept : {true, false}) {
    const std::string path = Path("amid.qxm");
    CQXDocBase document(SetUpSmallModel);
    CQXDBSession& session = *document.GetDBSession();
    RandomEdits edits(3);
    for (int i = 0; i < 10; ++i) edits.Step(session);
    ASSERT_EQ(document.SaveAs(path).Line(), "");
    if (kept) {
      ASSERT_EQ(document.KeepSteps().Line(), "");
    }
    const std::uint64_t before = session.StateHash();
    {
      CTransaction step(&session);
      step.Begin(u"Open");
      session.GetPool<DPoolNode>(code::kNode)->RemoveAll();
      EXPECT_FALSE(document.Save());
      EXPECT_FALSE(document.SaveAs(Path("other.qxm")));
      EXPECT_FALSE(fs::exists(Path("other.qxm")));
      if (kept) {
        EXPECT_FALSE(document.Keeper()->Save());
      }
    }
    EXPECT_EQ(session.StateHash(), before);
    EXPECT_EQ(document.Save().Line(), "");
    CQXDocBase reopened(SetUpSmallModel);
    EXPECT_EQ(reopened.Open(path).Line(), "");
    EXPECT_EQ(reopened.GetDBSession()->StateHash(), before);
  }
}

TEST_F(DurabilityTest, ASaveWithoutAKeeperKeepsTheHistory) {
  const std::string path = Path("saved.qxm");
  CQXDocBase document(SetUpSmallModel);
  CQXDBSession& session = *document.GetDBSession();
  RandomEdits edits(21);
  NaiveHistory history(session.StateHash());
  for (int i = 0; i < 30; ++i) {
    const auto done = session.History().Done().size();
    edits.Step(session);
    if (session.History().Done().size() > done) history.Commit(session.StateHash());
  }
  for (int i = 0; i < 4; ++i, --history.at) session.Undo();
  ASSERT_EQ(document.SaveAs(path).Line(), "");
  ExpectFileHolds(path, history);
  std::int64_t number = 0;
  for (const Step& step : session.History().Done()) {
    EXPECT_EQ(step.number, ++number);
    EXPECT_GT(step.time_ms, 0);
  }
}

TEST_F(DurabilityTest, ASnapshotStaysWhileTheModelIsEdited) {
  CQXDBSession session(SetUpSmallModel);
  RandomEdits edits(5);
  for (int i = 0; i < 200; ++i) {
    edits.Step(session);
    const std::uint64_t then = session.StateHash();
    const auto snapshot = TakeSnapshot(session);
    edits.Step(session);
    session.Undo();
    edits.Step(session);
    ASSERT_EQ(snapshot->StateHash(), then);
    ASSERT_EQ(snapshot->Validate(), "");
  }
}

TEST_F(DurabilityTest, OneWriterManyReaders) {
  const std::string path = Path("shared.qxm");
  CQXDocBase writer(SetUpSmallModel);
  ASSERT_EQ(writer.SaveAs(path).Line(), "");
  ASSERT_EQ(writer.KeepSteps().Line(), "");
  CQXDocBase second(SetUpSmallModel);
  const Outcome refused = second.OpenForEditing(path);
  ASSERT_FALSE(refused);
  EXPECT_NE(refused.Line().find(HostName() + ", process " + std::to_string(getpid())),
            std::string::npos)
      << refused.Line();
  EXPECT_FALSE(second.SaveAs(path)) << "as little as a save";
  ASSERT_EQ(second.Open(path).Line(), "");
  writer.Release();
  EXPECT_EQ(second.OpenForEditing(path).Line(), "");
  second.Release();
  EXPECT_FALSE(fs::exists(path + ".lock"));

  std::ofstream(path + ".lock") << HostName() << "\n999999999\n";
  const auto stale = ModelLock::Take(path);
  ASSERT_TRUE(stale) << stale.Error().Line();
  EXPECT_NE((*stale)->Stale().find("999999999"), std::string::npos);

  const std::string elsewhere = Path("elsewhere.qxm");
  std::ofstream(elsewhere + ".lock") << "far-away\n7\n";
  const auto foreign = ModelLock::Take(elsewhere);
  ASSERT_FALSE(foreign);
  EXPECT_NE(foreign.Error().Line().find("far-away, process 7"), std::string::npos);
  EXPECT_TRUE(fs::exists(elsewhere + ".lock"));
}

TEST_F(DurabilityTest, OneFileIsOneWhateverItsNames) {
  const std::string path = Path("names.qxm");
  const std::string link = Path("link.qxm");
  const std::string twin = Path("twin.qxm");
  CQXDocBase writer(SetUpSmallModel);
  ASSERT_EQ(writer.SaveAs(path).Line(), "");
  fs::permissions(path, fs::perms::owner_read | fs::perms::owner_write);
  fs::create_symlink("names.qxm", link);
  ASSERT_EQ(writer.OpenForEditing(link).Line(), "");
  ASSERT_EQ(writer.Save().Line(), "");
  fs::create_hard_link(path, twin);
  EXPECT_TRUE(fs::is_symlink(link));
  EXPECT_EQ(fs::status(path).permissions(), fs::perms::owner_read | fs::perms::owner_write);
  RandomEdits edits(3);
  edits.Step(*writer.GetDBSession());
  CQXDocBase second(SetUpSmallModel);
  for (const std::string& name : {path, link, twin}) {
    EXPECT_FALSE(second.OpenForEditing(name)) << name;
    EXPECT_FALSE(second.SaveAs(name)) << name;
  }
  fs::remove(path + ".lock");
  EXPECT_FALSE(second.OpenForEditing(path)) << "its lock file was removed";
  edits.Step(*writer.GetDBSession());
  const std::uint64_t state = writer.GetDBSession()->StateHash();
  writer.Release();
  ASSERT_EQ(second.Open(twin).Line(), "");
  EXPECT_EQ(second.GetDBSession()->StateHash(), state);
}

TEST_F(DurabilityTest, ASaveDoesNotUndoWhatOthersSaved) {
  const std::string path = Path("two.qxm");
  CQXDocBase first(SetUpSmallModel);
  CQXDocBase second(SetUpSmallModel);
  RandomEdits edits(21);
  ASSERT_EQ(first.SaveAs(path).Line(), "");
  const auto expect_refused = [&](CQXDocBase& late) {
    edits.Step(*late.GetDBSession());
    const ModelStamp before = StampOf(path);
    for (const Outcome& saved : {late.Save(), late.KeepSteps()}) {
      EXPECT_NE(saved.Line().find("was changed since it was opened"), std::string::npos)
          << saved.Line();
    }
    EXPECT_TRUE(StampOf(path) == before);
    EXPECT_EQ(late.SaveAs(Path("aside.qxm")).Line(), "");
  };
  ASSERT_EQ(second.Open(path).Line(), "");
  edits.Step(*second.GetDBSession());
  ASSERT_EQ(second.Save().Line(), "");
  ASSERT_EQ(second.Save().Line(), "") << "its own save is no other's";
  expect_refused(first);
  ASSERT_EQ(first.Open(path).Line(), "");
  ASSERT_EQ(second.KeepSteps().Line(), "");
  edits.Step(*second.GetDBSession());  // in the log only
  second.Release();
  ASSERT_EQ(second.Save().Line(), "");
  expect_refused(first);
}

TEST_F(DurabilityTest, AfterAFailedSyncTheFileIsWrittenAnew) {
  const std::string path = Path("sync.qxm");
  TestDisk disk;
  CQXDocBase document(SetUpSmallModel);
  RandomEdits edits(9);
  ASSERT_EQ(document.SaveAs(path).Line(), "");
  ASSERT_EQ(document.KeepSteps({Durability::kInterval, std::chrono::hours(1)}).Line(), "");
  for (int i = 0; i < 3; ++i) edits.Step(*document.GetDBSession());
  const ModelStamp before = StampOf(path);
  disk.FailSyncs(1);
  EXPECT_FALSE(document.Keeper()->Flush());
  EXPECT_TRUE(document.Keeper()->Flush());
  EXPECT_NE(StampOf(path).writing, before.writing);
  // So it is when the log has outgrown its bound.
  DurabilityOptions small;
  small.log_bytes = 16384;
  document.GetDBSession()->SetKeptHistory({1000, small.log_bytes});
  document.Keeper()->SetOptions(small);
  std::set<std::uint64_t> writings;
  for (int i = 0; i < 40; ++i) {
    edits.Step(*document.GetDBSession());
    writings.insert(StampOf(path).writing);
    ASSERT_LT(fs::file_size(path), 200000u);
  }
  EXPECT_GT(writings.size(), 2u);
}

TEST_F(DurabilityTest, ReadersSeeWholeStepsWhileAnotherProcessWrites) {
  const std::string path = Path("read.qxm");
  const std::string said = Path("states");
  const pid_t child = fork();
  if (child == 0) {
    CQXDocBase document(SetUpSmallModel);
    if (!document.SaveAs(path) || !document.KeepSteps()) _exit(1);
    RandomEdits edits(11);
    std::ofstream states(said, std::ios::binary);
    for (int i = 0; i < 400; ++i) {
      edits.Step(*document.GetDBSession());
      if (i % 20 == 19 && !document.Save()) _exit(1);
      states << document.GetDBSession()->StateHash() << '\n';
    }
    states.close();
    _exit(0);
  }
  std::vector<std::uint64_t> seen;
  int status = 0;
  std::string faults;
  while (waitpid(child, &status, WNOHANG) == 0) {
    if (!fs::exists(path)) continue;
    CQXDocBase reader(SetUpSmallModel);
    const Outcome opened = reader.Open(path);
    if (opened) {
      seen.push_back(reader.GetDBSession()->StateHash());
    } else {
      faults += opened.Line() + "\n";
    }
  }
  EXPECT_EQ(faults, "");
  ASSERT_EQ(status, 0);
  std::vector<std::uint64_t> states = {CQXDBSession(SetUpSmallModel).StateHash()};
  std::ifstream lines(said);
  for (std::uint64_t state = 0; lines >> state;) states.push_back(state);
  ASSERT_FALSE(seen.empty());
  for (const std::uint64_t state : seen) {
    EXPECT_NE(std::find(states.begin(), states.end(), state), states.end());
  }
}

}  // namespace
}  // namespace qx
