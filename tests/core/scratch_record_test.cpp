// The scratch record of a pool type is one of the process: nothing that the library does by itself
// may read or write it, or two threads with a model each would meet there.

#include <gtest/gtest.h>

#include "qx_db/qx_db.h"

#include "tests/scratch_folder.h"

namespace qx {
namespace {

/// Marks the scratch record of every pool; tells whether one was written.
class Watch {
 public:
  explicit Watch(CQXDBSession& session) : session_(session) {
    for (DPoolBase* pool : session_.Pools()) Mark(*pool);
  }
  ~Watch() {
    for (DPoolBase* pool : session_.Pools()) pool->GetDataPtrForUndoRedo()->Init();
  }
  std::string Written() const {
    std::string names;
    for (DPoolBase* pool : session_.Pools()) {
      if (pool->GetDataPtrForUndoRedo()->GetKey() == kMark) continue;
      names += Utf8(pool->GetIOName());
      Mark(*pool);
    }
    return names;
  }

 private:
  static constexpr Key kMark = 0x5AFE;
  static void Mark(DPoolBase& pool) {
    StoreAt(reinterpret_cast<char*>(pool.GetDataPtrForUndoRedo()) + 8, kMark);
  }
  CQXDBSession& session_;
};

TEST(ScratchRecord, IsLeftAloneByAllThatTheLibraryDoes) {
  const ScratchFolder folder;
  const std::string path = folder.Path("model.qxm");
  CQXDocBase document(AddStandardPools);
  CQXDBSession& session = *document.GetDBSession();
  auto& nodes = *session.GetPool<DPoolNode>(code::kNode);
  auto& regions = *session.GetPool<DPool<tagTRegion>>(code::kRegion);
  const Watch watch(session);
  const auto step = [&](auto&& edit) {
    CTransaction transaction(&session);
    transaction.Begin(u"step");
    edit();
    EXPECT_EQ(transaction.Commit(), 1);
  };
  ASSERT_TRUE(document.SaveAs(path) && document.KeepSteps());
  step([&] {
    tagTRegion region;
    region.key = 1;
    for (Key key = 1; key <= 4; ++key) {
      tagTNode node;
      node.key = key;
      region.nodes.Add(nodes.InsertNU(node));
    }
    regions.InsertNU(region);
  });
  EXPECT_EQ(watch.Written(), "") << "inserting";
  step([&] { nodes.Remove(nodes.Find(2)); });
  EXPECT_EQ(watch.Written(), "") << "repairing references";
  const std::vector<ITR> some{nodes.Find(1), nodes.Find(3)};
  EXPECT_TRUE(Renumber(session, nodes, ConsecutiveKeys(some, 50)));
  EXPECT_EQ(watch.Written(), "") << "renumbering";
  EXPECT_EQ(session.Undo() + session.Undo() + session.Redo() + session.Redo(), 4);
  EXPECT_EQ(watch.Written(), "") << "undo and redo";
  dbgateway::DataBase gateway;
  EXPECT_TRUE(WriteDocument(session, gateway));
  EXPECT_EQ(watch.Written(), "") << "the gateway out";
  EXPECT_TRUE(ReadDocument(session, gateway));
  EXPECT_EQ(watch.Written(), "") << "the gateway in";
  for (DPoolBase* pool : session.Pools()) {
    dbgateway::DataBase described;
    auto fields = described.NewDescription("POOL");
    EXPECT_TRUE(pool->DescAPI(&fields));
  }
  EXPECT_EQ(watch.Written(), "") << "describing";
  const auto snapshot = TakeSnapshot(session);
  EXPECT_EQ(snapshot->StateHash(), session.StateHash());
  CQXBulkHandler file(folder.Path("nodes.records"));
  EXPECT_TRUE(file.Write(nodes, session.Units().Model()));
  ASSERT_TRUE(document.Save());
  CQXDBSession other(AddStandardPools);
  ASSERT_TRUE(LoadModel(other, path));
  EXPECT_TRUE(ImportRecordFile(other, file.Path(), {}));
  EXPECT_EQ(watch.Written(), "") << "snapshots, saving, opening, importing";
}

}  // namespace
}  // namespace qx
