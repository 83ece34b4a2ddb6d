// What others do to a model file, by mistake or on purpose: programs that replace it, disks that
// fill up, strangers who send one. Nothing acknowledged is lost, nothing of theirs either, and
// nothing is told that is not so.

#define XXH_INLINE_ALL
#include <csignal>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <gtest/gtest.h>
#include <sqlite3.h>
#include <sys/file.h>
#include <sys/wait.h>
#include <unistd.h>
#include <xxhash.h>

#include "qx_db/bulk/model_import.h"
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

/// What a file holds; "" where there is none.
std::string BytesOf(const std::string& path) {
  const auto bytes = ReadWholeFile(path);
  return bytes ? *bytes : std::string();
}

/// A transaction that inserts one node; 1 when it was committed.
int InsertNode(CQXDBSession& session, Key key) {
  CTransaction transaction(&session);
  transaction.Begin(u"Insert");
  tagTNode node;
  node.key = key;
  session.GetPool<DPoolNode>(code::kNode)->InsertNU(node);
  return transaction.Commit();
}

class TrustTest : public testing::Test {
 protected:
  std::string Path(const std::string& name) const { return folder_.Path(name); }

  std::vector<std::string> Names() const {
    std::vector<std::string> names;
    for (const auto& entry : fs::directory_iterator(folder_.Path())) {
      names.push_back(entry.path().filename().string());
    }
    std::sort(names.begin(), names.end());
    return names;
  }

  /// A document that keeps its steps at `path`, with the nodes 1 to `last` a step each.
  std::unique_ptr<CQXDocBase> Kept(const std::string& path, Key last) {
    auto document = std::make_unique<CQXDocBase>(SetUpSmallModel);
    EXPECT_EQ(document->SaveAs(path).Line(), "");
    EXPECT_EQ(document->KeepSteps().Line(), "");
    for (Key key = 1; key <= last; ++key) {
      EXPECT_EQ(InsertNode(*document->GetDBSession(), key), 1);
    }
    return document;
  }

  /// The state that a new reader finds; 0 with a failed expectation when it cannot be read.
  static std::uint64_t StateAt(const std::string& path) {
    CQXDocBase reader(SetUpSmallModel);
    const Outcome opened = reader.Open(path);
    EXPECT_EQ(opened.Line(), "");
    return opened ? reader.GetDBSession()->StateHash() : 0;
  }

  const ScratchFolder folder_;
};

// ---- files that others replace ------------------------------------------------------------------

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
  small.kept.bytes = small.log_bytes = 4096;
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

// ---- strangers' files ---------------------------------------------------------------------------

constexpr std::size_t kPage = 4096;
constexpr std::size_t kReserve = 8;

/// Writes a page's checksum as its maker would.
void Seal(std::string& bytes, std::size_t page) {
  char* at = bytes.data() + page * kPage;
  const std::uint64_t sum = XXH3_64bits_withSeed(at, kPage - kReserve, page);
  std::memcpy(at + kPage - kReserve, &sum, sizeof(sum));
}

/// A database that claims to be a model, made by these statements and sealed.
std::string ForgedDatabase(const std::string& path, const std::string& statements) {
  fs::remove(path);
  sqlite3* db = nullptr;
  sqlite3_open(path.c_str(), &db);
  int reserve = kReserve;
  sqlite3_file_control(db, "main", SQLITE_FCNTL_RESERVE_BYTES, &reserve);
  const std::string all =
      "PRAGMA page_size=4096;PRAGMA application_id=1364741425;"
      "PRAGMA user_version=1;" +
      statements;
  EXPECT_EQ(sqlite3_exec(db, all.c_str(), nullptr, nullptr, nullptr), SQLITE_OK)
      << sqlite3_errmsg(db);
  sqlite3_close(db);
  std::string bytes = BytesOf(path);
  for (std::size_t page = 0; page < bytes.size() / kPage; ++page) Seal(bytes, page);
  return bytes;
}

/// Runs `work` in a process of its own. How it ended: "", or what went wrong.
std::string InTime(const std::function<bool()>& work) {
  const pid_t child = fork();
  if (child == 0) {
    alarm(20);
    _exit(work() ? 0 : 1);
  }
  int status = 0;
  waitpid(child, &status, 0);
  if (WIFSIGNALED(status)) return "ended by signal " + std::to_string(WTERMSIG(status));
  return WEXITSTATUS(status) == 0 ? "" : "answered wrongly";
}

TEST_F(TrustTest, AViewInPlaceOfATableIsRefusedAtOnce) {
  const std::string meta =
      "CREATE TABLE meta(name TEXT PRIMARY KEY, value) WITHOUT ROWID;"
      "INSERT INTO meta VALUES('revision',1);";
  const std::string pool =
      "CREATE TABLE pool(code INTEGER PRIMARY KEY, io_name TEXT NOT NULL, record TEXT NOT NULL,"
      " schema TEXT NOT NULL, records INTEGER NOT NULL, bytes INTEGER NOT NULL);";
  const std::string chunk =
      "CREATE TABLE chunk(code INTEGER NOT NULL, part INTEGER NOT NULL, records INTEGER NOT NULL,"
      " checksum INTEGER NOT NULL, images BLOB NOT NULL, UNIQUE(code, part));";
  const std::string endless_meta =
      "CREATE VIEW meta AS WITH RECURSIVE r(name,value) AS (SELECT 'revision',1 UNION ALL"
      " SELECT 'x',value+1 FROM r) SELECT * FROM r;";
  const std::string endless_pool =
      "CREATE VIEW pool AS WITH RECURSIVE r(code,io_name,record,schema,records,bytes) AS"
      " (SELECT 1,'_NODE','tagTNode','_KEY 3 4 0',0,0 UNION ALL SELECT 1,io_name,record,schema,0,0"
      " FROM r) SELECT * FROM r;";
  const std::pair<const char*, std::string> cases[] = {
      {"meta", endless_meta + pool + chunk},
      {"pool", meta + endless_pool + chunk},
      {"a computed column",
       "CREATE TABLE meta(name TEXT PRIMARY KEY, value AS (abs(-1)))"
       " WITHOUT ROWID;" +
           pool + chunk},
      {"a trigger",
       meta + pool + chunk + "CREATE TRIGGER t AFTER INSERT ON meta BEGIN SELECT 1; END;"},
      {"a missing table", meta + pool},
  };
  const std::string path = Path("forged.qxm");
  for (const auto& [what, statements] : cases) {
    WriteBytes(path, ForgedDatabase(Path("raw.db"), statements));
    EXPECT_EQ(InTime([&] {
                CQXDocBase reader(SetUpSmallModel);
                return reader.Open(path).Line().starts_with(path + ": ");
              }),
              "")
        << what << ", opened";
    EXPECT_EQ(InTime([&] {
                CQXDocBase document(SetUpSmallModel);
                return static_cast<bool>(document.SaveAs(path));
              }),
              "")
        << what << ", saved over";
  }
  // The same with nothing wrong is a model, so that the cases are refused for what they say.
  WriteBytes(path, ForgedDatabase(Path("raw.db"), meta + pool + chunk));
  CQXDocBase reader(SetUpSmallModel);
  const std::string said = reader.Open(path).Line();
  EXPECT_NE(said.find("names no known unit"), std::string::npos) << said;
}

TEST_F(TrustTest, WhatLiesBesideAFileDoesNotChangeWhatIsRead) {
  const std::string path = Path("beside.qxm");
  const auto document = Kept(path, 3);
  const std::uint64_t state = document->GetDBSession()->StateHash();
  document->Release();
  // A journal that looks as if it had to be played back.
  WriteBytes(path + "-journal", std::string("\xd9\xd5\x05\xf9\x20\xa1\x63\xd7", 8) +
                                    std::string("\0\0\0\1", 4) + std::string(2000, '\x07'));
  EXPECT_EQ(StateAt(path), state);
  fs::remove(path + "-journal");
  // A header that asks for a log beside the file; its checksum is right.
  std::string bytes = BytesOf(path);
  for (const auto& [at, value] : {std::pair(18, 2), {19, 2}, {52, 1}, {59, 2}, {64, 1}}) {
    std::string forged = bytes;
    forged[static_cast<std::size_t>(at)] = static_cast<char>(value);
    Seal(forged, 0);
    WriteBytes(Path("header.qxm"), forged);
    CQXDocBase reader(SetUpSmallModel);
    const std::string said = reader.Open(Path("header.qxm")).Line();
    EXPECT_NE(said.find("header"), std::string::npos) << "byte " << at << ": " << said;
  }
}

TEST_F(TrustTest, NamesOfAnyKindAreNames) {
  const fs::path before = fs::current_path();
  fs::current_path(folder_.Path());
  std::string deep = folder_.Path().string();
  while (deep.size() < 900) deep += "/" + std::string(100, 'd');
  fs::create_directories(deep);
  for (const std::string& path :
       {std::string("file:name.qxm"), std::string("file:other.qxm?mode=ro"),
        std::string(":memory:"), std::string("-x.qxm"), deep + "/long.qxm",
        std::string(246, 'd') + ".qxm"}) {
    CQXDocBase document(SetUpSmallModel);
    EXPECT_EQ(document.SaveAs(path).Line(), "");
    EXPECT_TRUE(fs::exists(path)) << path;
    EXPECT_EQ(document.KeepSteps().Line(), "");
    EXPECT_EQ(InsertNode(*document.GetDBSession(), 4), 1);
    EXPECT_EQ(StateAt(path), document.GetDBSession()->StateHash());
  }
  fs::current_path(before);
}

/// Elements whose nodes are not looked after: a host that forgets its references.
class CarelessElements final : public PoolOf<tagTElem>::type {
 public:
  using PoolOf<tagTElem>::type::type;
  int ProcessRelation() override { return 1; }
};

void SetUpCareless(CQXDBSession& session) {
  session.AddPool(std::make_unique<CarelessElements>(&session));
  session.AddPool(std::make_unique<PoolOf<tagTNode>::type>(&session));
  session.AddPool(std::make_unique<PoolOf<tagTActiveElemSet>::type>(&session));
}

TEST_F(TrustTest, ReferencesThatStepsLeaveToRemovedRecordsAreClearedAndTold) {
  const std::string path = Path("dangling.qxm");
  CQXDocBase document(SetUpCareless);
  CQXDBSession& session = *document.GetDBSession();
  ASSERT_EQ(document.SaveAs(path).Line(), "");
  ASSERT_EQ(document.KeepSteps().Line(), "");
  InsertNode(session, 1);
  InsertNode(session, 2);
  auto& nodes = *session.GetPool<DPoolNode>(code::kNode);
  CTransaction transaction(&session);
  transaction.Begin(u"Element");
  tagTElem element;
  element.key = 9;
  element.type = 2;
  element.nodes = {nodes.Find(1), nodes.Find(2)};
  session.GetPool<DPoolElem>(code::kElem)->InsertNU(element);
  ASSERT_EQ(transaction.Commit(), 1);
  StateAt(path);
  CTransaction removal(&session);
  removal.Begin(u"Remove");
  ASSERT_EQ(nodes.Remove(nodes.Find(2)), 1);
  ASSERT_EQ(removal.Commit(), 1);
  document.Release();
  CQXDocBase reader(SetUpSmallModel);
  ModelFileReport report;
  ASSERT_EQ(reader.Open(path, &report).Line(), "");
  EXPECT_EQ(report.UnresolvedReferences(), 1);
  const auto& elements = *reader.GetDBSession()->GetPool<DPoolElem>(code::kElem);
  EXPECT_EQ(elements.GetAtNU(elements.GetHeadPosition()).nodes[1], 0u);
  const auto from = ExternalModel::Open(path, SetUpSmallModel);
  ASSERT_FALSE(from);
  EXPECT_NE(from.Error().Line().find("removed records in ELEM"), std::string::npos)
      << from.Error().Line();
}

/// Makes every checksum of a model file right again: of its pages, and of the frames behind them.
void SealAll(std::string& bytes) {
  constexpr std::size_t kHead = 80;
  const auto load = [&](std::size_t at) {
    std::uint64_t value = 0;
    std::memcpy(&value, bytes.data() + at, sizeof(value));
    return value;
  };
  const auto store = [&](std::size_t at, std::uint64_t value) {
    std::memcpy(bytes.data() + at, &value, sizeof(value));
  };
  std::size_t at = bytes.find("QXSF");
  ASSERT_EQ(at % kPage, 0u);
  for (std::size_t page = 0; page < at / kPage; ++page) Seal(bytes, page);
  std::uint64_t chain = 0;
  for (bool first = true; at + kHead <= bytes.size() && bytes.compare(at, 4, "QXSF") == 0;
       first = false) {
    const std::uint64_t size = load(at + 48);
    if (size > bytes.size() - at - kHead) return;
    const bool marks = bytes[at + 4] >= 7;
    if (size > 0) store(at + 56, XXH3_64bits(bytes.data() + at + kHead, size));
    store(at + 64, chain);
    store(at + 72, XXH3_64bits_withSeed(bytes.data() + at, 72, at));
    if (!first) chain = load(at + 72);
    if (marks) return;
    at += (kHead + size + kPage - 1) / kPage * kPage;
  }
}

TEST_F(TrustTest, StepsToTwoRecordsWithOneKeyAreFoundOnOpening) {
  const std::string path = Path("shared.qxm");
  // A commit, undone since, so that only doing it again would lead there.
  {
    const auto document = Kept(path, 3);
    EXPECT_EQ(InsertNode(*document->GetDBSession(), 0x4D4D4D4D), 1);
    EXPECT_EQ(document->GetDBSession()->Undo(), 1);
  }
  const auto forge = [&path](char key) {
    std::string bytes = BytesOf(path);
    int forged = 0;
    for (std::size_t at = 0; (at = bytes.find("MMMM", at)) != std::string::npos; ++forged) {
      bytes.replace(at, 4, std::string{key, 0, 0, 0});
    }
    ASSERT_GE(forged, 2) << "the change and the image name the key";
    SealAll(bytes);
    WriteBytes(path, bytes);
  };
  forge(2);
  CQXDocBase reader(SetUpSmallModel);
  const std::string said = reader.Open(path).Line();
  EXPECT_NE(said.find("gives two records of NODE the key 2"), std::string::npos) << said;

  // A past that went through such a state: it ends there, and that is told.
  CQXDocBase document(SetUpSmallModel);
  CQXDBSession& session = *document.GetDBSession();
  auto& nodes = *session.GetPool<DPoolNode>(code::kNode);
  const auto rekey = [&](ITR pos, Key key) {
    CTransaction transaction(&session);
    transaction.Begin(u"Key");
    tagTNode node = nodes.GetAtNU(pos);
    node.key = key;
    nodes.SetAtNU(pos, node);
    return transaction.Commit();
  };
  InsertNode(session, 1);
  InsertNode(session, 2);
  const ITR second = nodes.Find(2);
  ASSERT_EQ(rekey(second, 0x4D4D4D4D), 1);
  ASSERT_EQ(rekey(second, 3), 1);
  InsertNode(session, 4);
  ASSERT_EQ(document.SaveAs(path).Line(), "");
  forge(1);
  ASSERT_EQ(session.History().Done().size(), 5u);
  ModelFileReport report;
  ASSERT_EQ(reader.OpenForEditing(path, {}, &report).Line(), "");
  EXPECT_TRUE(report.history_cut);
  CQXDBSession& read = *reader.GetDBSession();
  EXPECT_EQ(read.StateHash(), session.StateHash());
  EXPECT_EQ(read.History().Done().size(), 1u) << "nothing leads to the shared key";
  // What is left of the history is one like any other, also in the file.
  EXPECT_EQ(InsertNode(read, 5), 1);
  while (read.Undo()) EXPECT_EQ(read.Validate(), "");
  while (read.Redo()) EXPECT_EQ(read.Validate(), "");
  const std::uint64_t state = read.StateHash();
  reader.Release();
  EXPECT_EQ(StateAt(path), state);
}

TEST_F(TrustTest, BytesThatAStrangerChangedAndSealedDoNoHarm) {
  const std::string path = Path("stranger.qxm");
  {
    CQXDocBase document(SetUpSmallModel);
    RandomEdits edits(31);
    for (int i = 0; i < 12; ++i) edits.Step(*document.GetDBSession());
    ASSERT_EQ(document.SaveAs(path).Line(), "");
    ASSERT_EQ(document.KeepSteps().Line(), "");
    for (int i = 0; i < 12; ++i) edits.Step(*document.GetDBSession());
    for (int i = 0; i < 3; ++i) document.GetDBSession()->Undo();
  }
  const std::string whole = BytesOf(path);
  std::string sealed = whole;
  SealAll(sealed);
  ASSERT_TRUE(sealed == whole) << "the seals are not those of the library";
  // Bytes that mean something: what is zero in the file is mostly room.
  std::vector<std::size_t> places;
  for (std::size_t at = 100; at < whole.size(); ++at) {
    if (whole[at] != 0 || whole[at - 1] != 0 || whole[at - 4] != 0) places.push_back(at);
  }
  std::mt19937 random(7);
  int opened = 0;
  const int rounds = Rounds("QX_TRUST_FORGERIES", 1000);
  for (int round = 0; round < rounds; ++round) {
    std::string forged = whole;
    for (std::uint32_t i = 0, count = 1 + random() % 3; i < count; ++i) {
      const std::size_t at = places[random() % places.size()];
      const std::uint32_t how = random() % 4;
      const char old = forged[at];
      forged[at] = static_cast<char>(how == 0   ? old ^ 1 << random() % 8
                                     : how == 1 ? old + 1
                                     : how == 2 ? -1
                                                : static_cast<int>(random() % 256));
    }
    SealAll(forged);
    WriteBytes(path, forged);
    CQXDocBase reader(SetUpSmallModel);
    CQXDBSession& session = *reader.GetDBSession();
    const Outcome outcome = reader.Open(path);
    if (!outcome) {
      ASSERT_TRUE(outcome.Line().starts_with(path + ": ")) << outcome.Line();
      continue;
    }
    ++opened;
    ASSERT_EQ(session.Validate(), "") << "round " << round;
    ASSERT_EQ(reader.SaveAs(Path("again.qxm")).Line(), "") << "round " << round;
    // A forged past may hold what no edit could have made; going there must not be the end of us.
    while (session.Undo()) session.StateHash();
    while (session.Redo()) session.StateHash();
  }
  EXPECT_GT(opened, rounds / 20) << "nothing but refusals tries little";
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

TEST_F(TrustTest, AFileThatIsNoLockStaysWhatItIs) {
  const std::string path = Path("locked.qxm");
  for (const std::string& text : {std::string("notes of mine\n"), std::string(5000, 'x'),
                                  std::string("host\n12\nand more\n")}) {
    WriteBytes(path + ".lock", text);
    CQXDocBase document(SetUpSmallModel);
    const std::string said = document.SaveAs(path).Line();
    EXPECT_NE(said.find(".lock"), std::string::npos) << said;
    EXPECT_TRUE(BytesOf(path + ".lock") == text);
    EXPECT_FALSE(fs::exists(path));
  }
}

TEST_F(TrustTest, LeftoversOfKilledSavesAreCleanedUpByTheNextWriter) {
  const std::string path = Path("left.qxm");
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
