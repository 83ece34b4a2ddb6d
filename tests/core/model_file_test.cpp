#include <chrono>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <sqlite3.h>
#include <sys/wait.h>
#include <unistd.h>

#include "qx_db/core/schema_text.h"
#include "qx_db/platform/file.h"
#include "qx_db/qx_db.h"

#include "tests/scratch_folder.h"

namespace qx {
namespace {

namespace fs = std::filesystem;

class ModelFile : public testing::Test {
 protected:
  std::string Path(const char* name) const { return folder_.Path(name); }

  static void FillMesh(CQXDBSession& session, Key last) {
    auto& nodes = *session.GetPool<DPoolNode>(code::kNode);
    auto& elements = *session.GetPool<DPoolElem>(code::kElem);
    for (Key key = 1; key <= last; ++key) {
      tagTNode node;
      node.key = key;
      node.position = {key * 0.5, -1.0 / key, 3};
      nodes.InsertNU(node);
      if (key == 1) continue;
      tagTElem element;
      element.key = key;
      element.type = 2;
      element.nodes = {nodes.Find(key), nodes.Find(key - 1)};
      elements.InsertNU(element);
    }
  }

  const ScratchFolder folder_;
};

TEST_F(ModelFile, KeepsRecordsReferencesAndUnits) {
  CQXDocBase document(AddStandardPools);
  CQXDBSession& session = *document.GetDBSession();
  UnitSystem mm;
  mm[UnitBase::kLength] = FindUnit(UnitBase::kLength, "mm");
  session.Units().SetModel(mm);
  FillMesh(session, 30000);
  const ITR first = session.GetDataPool(code::kNode)->Find(1);
  const std::uint64_t state = session.StateHash();
  EXPECT_FALSE(document.Save()) << "it has no name yet";
  ASSERT_EQ(document.SaveAs(Path("a.qxm")).Line(), "");
  // Saving left every reference an iterator.
  EXPECT_EQ(session.GetPool<DPoolElem>(code::kElem)
                ->GetAtNU(session.GetDataPool(code::kElem)->Find(2))
                .nodes[1],
            first);
  EXPECT_EQ(session.StateHash(), state);
  ASSERT_EQ(document.Save().Line(), "");

  CQXDocBase other(AddStandardPools);
  ModelFileReport report;
  ASSERT_EQ(other.Open(Path("a.qxm"), &report).Line(), "");
  EXPECT_EQ(report.revision, 2);
  EXPECT_EQ(report.UnresolvedReferences(), 0);
  EXPECT_EQ(other.GetDBSession()->StateHash(), state);
  EXPECT_EQ(other.GetDBSession()->Validate(), "");
  EXPECT_EQ(other.GetDBSession()->Units().Model(), mm);
  EXPECT_FALSE(other.IsModified());
  EXPECT_FALSE(other.GetDBSession()->CanUndo());
}

TEST_F(ModelFile, AReferenceToARemovedRecordIsWrittenAsNone) {
  CQXDBSession session(AddStandardPools);
  FillMesh(session, 3);
  auto& sides = *session.GetPool<DPoolESid>(code::kESid);
  auto& nodes = *session.GetPool<DPoolNode>(code::kNode);
  tagTESid side;
  side.key = 1;
  side.nodes = {nodes.Find(1), nodes.Find(2)};
  sides.InsertNU(side);
  PoolInside::SetOf(nodes).RemoveWithoutDelete(nodes.Find(1));
  ASSERT_EQ(SaveModel(session, Path("b.qxm")).Line(), "");
  CQXDBSession opened(AddStandardPools);
  ASSERT_EQ(LoadModel(opened, Path("b.qxm")).Line(), "");
  const auto& restored =
      opened.GetPool<DPoolESid>(code::kESid)->GetAtNU(opened.GetDataPool(code::kESid)->Find(1));
  EXPECT_EQ(restored.nodes, (TArray<ITR>{0, opened.GetDataPool(code::kNode)->Find(2)}));
}

TEST_F(ModelFile, ElementsGeneratedOnGeometryStayOutAndTheRestVerifies) {
  CQXDBSession session(AddStandardPools);
  auto& entries = *session.GetPool<PoolOf<tagTGElem>::type>(code::kGElem);
  auto& heads = *session.GetPool<PoolOf<tagTGElemHead>::type>(code::kGElemHead);
  tagTGElem entry;
  tagTGElemHead head;
  for (Key key = 1; key <= 3; ++key) {
    entry.key = key;
    head.data.Add(entries.InsertNU(entry));
  }
  head.key = 1;
  heads.InsertNU(head);
  ASSERT_EQ(SaveModel(session, Path("a.qxm")).Line(), "");
  CQXDBSession opened(AddStandardPools);
  ModelFileReport report;
  ASSERT_EQ(LoadModel(opened, Path("a.qxm"), &report).Line(), "");
  for (const ModelFileReport::Pool& pool : report.pools) {
    EXPECT_NE(pool.type, code::kGElem);
    EXPECT_EQ(pool.unresolved_references, 0) << pool.io_name;
  }
  EXPECT_EQ(opened.GetDataPool(code::kGElem)->GetSize(), 0);
  const auto& read = *opened.GetPool<PoolOf<tagTGElemHead>::type>(code::kGElemHead);
  EXPECT_TRUE(read.GetAtNU(read.Find(1)).data.IsEmpty()) << "nothing stands for what is not there";
  EXPECT_EQ(opened.StateHash(), session.StateHash());
  EXPECT_EQ(opened.Validate(), "");
}

/// Models past one GiB, where the database leaves out a page: it is moved forward to try that.
TEST_F(ModelFile, OpensWhenItReachesPastThePageThatIsLeftOut) {
  const int lock_byte = sqlite3_test_control(SQLITE_TESTCTRL_PENDING_BYTE, 1 << 20);
  for (const Key last : {20000, 100000}) {  // of small pages and of large ones
    CQXDBSession session(AddStandardPools);
    FillMesh(session, last);
    const std::string path = Path("past.qxm");
    ASSERT_EQ(SaveModel(session, path).Line(), "");
    ASSERT_GT(fs::file_size(path), 3 << 19);
    CQXDBSession opened(AddStandardPools);
    EXPECT_EQ(LoadModel(opened, path).Line(), "");
    EXPECT_EQ(opened.StateHash(), session.StateHash());
    // Nothing hides in the hole.
    std::fstream file(path, std::ios::in | std::ios::out | std::ios::binary);
    file.seekp((1 << 20) + 100);
    file.put('x');
    file.close();
    EXPECT_NE(LoadModel(opened, path).Line(), "");
  }
  sqlite3_test_control(SQLITE_TESTCTRL_PENDING_BYTE, lock_byte);
}

TEST_F(ModelFile, IsADatabaseThatAnyToolCanRead) {
  CQXDBSession session(AddStandardPools);
  FillMesh(session, 10);
  ASSERT_EQ(SaveModel(session, Path("c.qxm")).Line(), "");
  sqlite3* db = nullptr;
  ASSERT_EQ(sqlite3_open_v2(Path("c.qxm").c_str(), &db, SQLITE_OPEN_READONLY, nullptr), SQLITE_OK);
  sqlite3_stmt* query = nullptr;
  sqlite3_prepare_v2(db, "SELECT records, schema FROM pool WHERE io_name='_NODE'", -1, &query,
                     nullptr);
  ASSERT_EQ(sqlite3_step(query), SQLITE_ROW);
  EXPECT_EQ(sqlite3_column_int(query, 0), 10);
  EXPECT_STREQ(reinterpret_cast<const char*>(sqlite3_column_text(query, 1)),
               "_KEY 3 4 0\n_POSITION 3 24 0\n_FLAGS 3 4 0\n");
  sqlite3_finalize(query);
  sqlite3_close(db);
}

/// Opening `path` must fail in one line that names the file, and leave the session alone.
void ExpectRefused(const std::string& path, const std::string& what) {
  CQXDBSession session(AddStandardPools);
  tagTNode node;
  node.key = 77;
  session.GetPool<DPoolNode>(code::kNode)->InsertNU(node);
  const std::uint64_t before = session.StateHash();
  const Outcome outcome = LoadModel(session, path);
  ASSERT_FALSE(outcome) << what;
  EXPECT_TRUE(outcome.Line().starts_with(path + ": ")) << outcome.Line();
  EXPECT_NE(outcome.Error().remedy, "") << outcome.Line();
  EXPECT_EQ(session.StateHash(), before) << what;
}

TEST_F(ModelFile, EveryChangedByteAndEveryTruncationIsRefused) {
  CQXDBSession session(AddStandardPools);
  FillMesh(session, 4);
  ASSERT_EQ(SaveModel(session, Path("d.qxm")).Line(), "");
  const std::string bytes = *ReadWholeFile(Path("d.qxm"));
  const std::string damaged_path = Path("damaged.qxm");
  ASSERT_GT(bytes.size(), 1000u);
  // Every byte of the first page and a stride through the others; a bit of each in turn. What
  // follows the pages, the log of steps, has a test of its own.
  const std::size_t pages = bytes.find("QXSF");
  ASSERT_LT(pages, bytes.size());
  for (std::size_t at = 0; at < pages; at += at < 4096 ? 1 : 61) {
    std::string damaged = bytes;
    damaged[at] = static_cast<char>(damaged[at] ^ (1 << (at % 8)));
    std::ofstream(damaged_path, std::ios::binary) << damaged;
    ExpectRefused(damaged_path, "byte " + std::to_string(at));
    if (HasFatalFailure()) return;
  }
  for (std::size_t size = 0; size < bytes.size(); size += 509) {
    std::ofstream(damaged_path, std::ios::binary) << bytes.substr(0, size);
    ExpectRefused(damaged_path, "cut at " + std::to_string(size));
  }
  std::ofstream(damaged_path, std::ios::binary) << bytes << "more";
  ExpectRefused(damaged_path, "bytes after the end");
}

TEST_F(ModelFile, WhatIsNoModelIsRefused) {
  ExpectRefused(Path("missing.qxm"), "missing");
  ExpectRefused(folder_.Path().string(), "a directory");
  std::ofstream(Path("text.qxm")) << std::string(5000, 'x');
  ExpectRefused(Path("text.qxm"), "a text");
  sqlite3* db = nullptr;
  sqlite3_open(Path("foreign.qxm").c_str(), &db);
  sqlite3_exec(db, "CREATE TABLE t(x)", nullptr, nullptr, nullptr);
  sqlite3_close(db);
  ExpectRefused(Path("foreign.qxm"), "another database");
}

TEST_F(ModelFile, AFailedSaveLeavesTheOldFileAndNoRubbish) {
  CQXDBSession session(AddStandardPools);
  FillMesh(session, 100);
  EXPECT_NE(SaveModel(session, Path("no/such/folder/x.qxm")).Line(), "");
  EXPECT_NE(SaveModel(session, folder_.Path().string()).Line(), "");
  ASSERT_EQ(SaveModel(session, Path("e.qxm")).Line(), "");
  std::size_t files = 0;
  for ([[maybe_unused]] const auto& entry : fs::directory_iterator(folder_.Path())) ++files;
  EXPECT_EQ(files, 1u);
}

TEST_F(ModelFile, AKilledSaveLeavesAWholeFile) {
  const std::string path = Path("killed.qxm");
  CQXDBSession first(AddStandardPools);
  FillMesh(first, 20000);
  CQXDBSession second(AddStandardPools);
  FillMesh(second, 30000);
  const std::uint64_t states[] = {first.StateHash(), second.StateHash()};
  ASSERT_EQ(SaveModel(first, path).Line(), "");
  for (int round = 0; round < 30; ++round) {
    const pid_t child = fork();
    if (child == 0) {
      for (;;) {
        if (!SaveModel(second, path) || !SaveModel(first, path)) _exit(1);
      }
    }
    usleep(static_cast<useconds_t>(2000 + 1700 * round));
    kill(child, SIGKILL);
    int status = 0;
    waitpid(child, &status, 0);
    ASSERT_TRUE(WIFSIGNALED(status));
    CQXDBSession opened(AddStandardPools);
    ASSERT_EQ(LoadModel(opened, path).Line(), "");
    EXPECT_TRUE(opened.StateHash() == states[0] || opened.StateHash() == states[1]);
  }
}

// ---- schemas of other versions
// --------------------------------------------------------------------

std::string ImageOf(const TStructBase& record) {
  std::string image(record.GetSizePlusVfptr() - 8, '\0');
  record.Data2Stream(image.data(), static_cast<int>(image.size()));
  return image;
}

TEST(StoredSchema, AMissingMemberGetsItsDefault) {
  // As if written by a version whose elements had no overlap marker.
  auto reader = ImageReader::Make(tagTElem::GetSchema(),
                                  "_KEY 3 4 0\n_TYPE 3 4 0\n_NODE_IDS 5 16 8\n_PROPERTY 7 8 0\n"
                                  "_FLAGS 3 4 0\n");
  ASSERT_TRUE(reader) << reader.Error().Line();
  tagTElem element;
  element.key = 4;
  element.nodes = {10, 20, 30};
  element.flags = 6;
  std::string image = ImageOf(element);
  EXPECT_NE((*reader)->Check(image.data(), image.size()), "");
  image.resize(image.size() - 4);
  ASSERT_EQ((*reader)->Check(image.data(), image.size()), "");
  tagTElem restored;
  restored.overlap = 5;
  (*reader)->Read(image.data(), restored);
  EXPECT_TRUE(Differences(tagTElem::GetSchema(), element, restored).empty());
}

TEST(StoredSchema, WhatCannotBeUnderstoodIsRefused) {
  struct Case {
    const char* schema;
    const char* what;
  };
  const Case cases[] = {
      {"_KEY 3 4 0\n_POSITION 3 24 0\n_FLAGS 3 4 0\n_MORE 3 4 0\n", "_MORE"},
      {"_KEY 3 4 0\n_POSITION 3 12 0\n_FLAGS 3 4 0\n", "_POSITION"},
      {"_KEY 3 4 0\n_POSITION what\n", "cannot be read"},
      {"", "cannot be read"},
      {"_POSITION 3 24 0\n", "cannot be read"},
  };
  for (const Case& c : cases) {
    const auto reader = ImageReader::Make(tagTNode::GetSchema(), c.schema);
    ASSERT_FALSE(reader) << c.schema;
    EXPECT_NE(reader.Error().Line().find(c.what), std::string::npos) << reader.Error().Line();
  }
}

}  // namespace
}  // namespace qx
