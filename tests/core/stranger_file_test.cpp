// Model files that a stranger made, or changed and sealed again: each is refused with a reason, or
// is a model like any other.

#define XXH_INLINE_ALL
#include <csignal>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <gtest/gtest.h>
#include <random>
#include <sqlite3.h>
#include <sys/wait.h>
#include <unistd.h>
#include <xxhash.h>

#include "qx_db/bulk/model_import.h"

#include "tests/core/durable_model.h"
#include "tests/core/trust.h"

namespace qx {
namespace {

namespace fs = std::filesystem;

constexpr std::size_t kPage = 4096;
constexpr std::size_t kReserve = 8;

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

// A hole of a terabyte takes no room where it lies, and must take none where it is read.
TEST_F(TrustTest, HolesInAFileAreNotRead) {
  const std::string path = Path("holes.qxm");
  Kept(path, 3)->Release();
  const std::uint64_t state = StateAt(path);
  const std::uint64_t size = fs::file_size(path);
  constexpr std::uint64_t kHole = std::uint64_t{1} << 40;
  std::error_code too_large;
  fs::resize_file(path, size + kHole, too_large);
  if (too_large) GTEST_SKIP() << "the file system has no room for holes";
  EXPECT_EQ(StateAt(path), state);
  CQXDocBase document(SetUpSmallModel);
  ASSERT_EQ(document.OpenForEditing(path).Line(), "");
  EXPECT_EQ(InsertNode(*document.GetDBSession(), 4), 1);
  document.Release();
  const std::uint64_t after = document.GetDBSession()->StateHash();
  EXPECT_EQ(StateAt(path), after);
  // What stands behind the hole is looked at all the same.
  std::fstream(path, std::ios::binary | std::ios::in | std::ios::out)
      .seekp(static_cast<std::streamoff>(size + kHole - 5))
      .write("stray", 5);
  ModelFileReport report;
  ASSERT_EQ(document.Open(path, &report).Line(), "");
  EXPECT_EQ(document.GetDBSession()->StateHash(), after);
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

}  // namespace
}  // namespace qx
