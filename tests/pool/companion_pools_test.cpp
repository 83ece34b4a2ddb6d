// The companions of a pool: value arrays, scratch pools, external stores.

#include <gtest/gtest.h>
#include <rapidcheck/gtest.h>

#include "qx_db/qx_db.h"

#include "tests/scratch_folder.h"

namespace qx {
namespace {

tagTNode NodeAt(Key key, double x = 0) {
  tagTNode node;
  node.key = key;
  node.position = {x, 0, 0};
  return node;
}

TEST(ValueArray, AnotherSizeStartsAfreshAndTheSameSizeKeeps) {
  TVArray<tagTElem> array;
  array.SetSize(3);
  array[1].nodes = {7, 8};
  array.SetSize(3);
  EXPECT_EQ(array[1].nodes.GetSize(), 2);
  const TVArray<tagTElem> copy = array;
  array.SetSize(2);
  EXPECT_EQ(array[1].nodes.GetSize(), 0) << "the old contents are not kept";
  EXPECT_EQ(copy[1].nodes, (TArray<ITR>{7, 8}));
  array = copy;
  array = *&array;
  EXPECT_EQ(array[1].nodes[0], 7u);
  array.SetSize(-4);
  EXPECT_TRUE(array.IsEmpty());
}

TEST(ScratchPool, IsNeitherSavedNorLoadedWithOrWithoutASession) {
  const ScratchFolder folder;
  CQXBulkHandler file(folder.Path("nodes.qxp"));
  DPoolTmp<tagTNode> scratch;
  tagTNode node;
  node.key = 1;
  scratch.InsertNU(node);
  Outcome outcome;
  EXPECT_EQ(qxSaveDPool(file, scratch, &outcome), 1);
  EXPECT_FALSE(std::filesystem::exists(file.Path()));
  EXPECT_EQ(qxLoadDPool(file, scratch, &outcome), 1);
  EXPECT_EQ(scratch.GetSize(), 1);
  // The nodes of a model in a file do not get into it either.
  CQXDBSession session(AddStandardPools);
  auto& nodes = *session.GetPool<DPoolNode>(code::kNode);
  node.key = 2;
  nodes.InsertNU(node);
  ASSERT_EQ(qxSaveDPool(file, nodes, &outcome), 1);
  EXPECT_EQ(qxLoadDPool(file, scratch, &outcome), 1);
  EXPECT_EQ(scratch.GetSize(), 1);
}

TEST(ScratchPool, LeavesNoTraceInTheSession) {
  CQXDBSession session(AddStandardPools);
  const std::uint64_t before = session.StateHash();
  DPoolTmp<tagTNode> scratch(&session);
  CTransaction transaction(&session);
  transaction.Begin(u"mesh");
  const ITR first = scratch.InsertNU(NodeAt(1, 5));
  ITR second = scratch.InsertNU(NodeAt(2));
  scratch.SetAtNU(first, NodeAt(9, 6));
  EXPECT_TRUE(scratch.RemoveNext(second));
  transaction.Rollback();
  EXPECT_EQ(scratch.GetSize(), 1) << "outside undo";
  EXPECT_EQ(scratch.Find(9), first);
  EXPECT_EQ(scratch.NeedSaveNLoad(), 0);
  EXPECT_EQ(session.StateHash(), before);
  ITR pos = first;
  EXPECT_NE(scratch.CopyToDummyPtr(pos), session.GetDataPool(code::kNode)->GetDataPtrForUndoRedo())
      << "filling it must not disturb the model's scratch record";
  dbgateway::DataBase document;
  TArray<Key> all;
  EXPECT_TRUE(scratch.WriteAPI(&document, all, 0));
  EXPECT_EQ(document.ToText(), R"({"NODE":{"9":{"POS":[6.0,0.0,0.0]}}})");
}

struct ExternalNodes : testing::Test {
  CQXDBSession session{AddStandardPools};
  DPoolNode& nodes = *session.GetPool<DPoolNode>(code::kNode);
  ITR Outside(Key key, double x) { return nodes.InsertNUExtDB(NodeAt(key, x)); }
  double X(ITR pos) { return nodes.GetAtNU(pos).position.x; }
};

TEST_F(ExternalNodes, TransferGivesKeysByTheRules) {
  nodes.InsertNU(NodeAt(10, 1));
  struct Case {
    Key outside;
    int keep;
    Key asked;
    Key received;
    int size;
  };
  const Case cases[] = {
      {5, 0, 3, 3, 2},    // the key asked for is free
      {6, 0, 10, 11, 3},  // taken: the largest and one
      {7, 0, 0, 12, 4},   // none asked for
      {8, 1, 99, 8, 5},   // keeps its own
      {10, 1, 0, 10, 5},  // overwrites the model's
  };
  const ITR tenth = nodes.Find(10);
  for (const Case& c : cases) {
    const ITR item = Outside(c.outside, c.outside);
    const ITR pos = nodes.TransferToDB(item, c.keep, c.asked);
    EXPECT_EQ(KeyOf(pos), c.received) << c.outside;
    EXPECT_EQ(X(pos), c.outside);
    EXPECT_EQ(nodes.TransferToDB(item, 0, 77), pos) << "once only";
    int external = 9;
    EXPECT_EQ(nodes.FindExtDB(c.outside, external), pos);
    EXPECT_EQ(external, 0);
    EXPECT_EQ(nodes.GetSize(), c.size);
  }
  EXPECT_EQ(nodes.Find(10), tenth) << "overwritten in place";
}

TEST_F(ExternalNodes, AReceivedKeyDoesNotHideTheExternalRecordOfThatKey) {
  const ITR first = Outside(1, 100);
  const ITR second = Outside(2, 200);
  EXPECT_EQ(KeyOf(nodes.TransferToDB(first, 0, 2)), 2);
  int external = 0;
  EXPECT_EQ(nodes.FindExtDB(2, external), second);
  EXPECT_EQ(external, 1);
  EXPECT_EQ(X(nodes.TransferToDB(second, 0, 0)), 200);
  EXPECT_EQ(nodes.FindExtDB(-1, external), 0u);
  EXPECT_EQ(external, 1);
  nodes.RemoveAllExtDB();
  EXPECT_EQ(nodes.FindExtDB(1, external), 0u);
  EXPECT_EQ(nodes.GetSize(), 2);
}

TEST_F(ExternalNodes, ARecordIsKnownWhateverKeyItGets) {
  const ITR outside = Outside(5, 5);
  const ITR pos = nodes.TransferToDB(outside, 0, 40);
  ASSERT_EQ(KeyOf(pos), 40);
  ASSERT_EQ(nodes.SetAtNU(pos, NodeAt(77, 5)), 1);
  EXPECT_EQ(nodes.TransferToDB(outside, 0, 0), pos);
  int external = 9;
  EXPECT_EQ(nodes.FindExtDB(5, external), pos);
  EXPECT_EQ(external, 0);
  // The key that it had is free for another, which does not pass for it.
  const ITR other = Outside(6, 6);
  const ITR second = nodes.TransferToDB(other, 0, 40);
  EXPECT_EQ(KeyOf(second), 40);
  EXPECT_EQ(nodes.TransferToDB(outside, 0, 0), pos);
  // Nor does a record that takes the place of the first, which was freed.
  nodes.Remove(pos);
  nodes.InsertNU(NodeAt(77, 9));
  const ITR again = nodes.TransferToDB(outside, 0, 0);
  EXPECT_EQ(X(again), 5);
  EXPECT_NE(again, nodes.Find(77));
}

TEST_F(ExternalNodes, WhatWasUndoneOrRemovedComesAgain) {
  nodes.InsertNU(NodeAt(2, 7));
  Outside(1, 1);
  Outside(2, 2);
  for (const int keep_key : {0, 1}) {  // a new record beside the model's, and one over it
    const auto import = [&] {
      CTransaction transaction(&session);
      transaction.Begin(u"import");
      EXPECT_EQ(nodes.Private_Import({1, 2, 1}, keep_key, 0), 1);
      return transaction.Commit();
    };
    const auto expect_outside = [&](const char* why) {
      for (const Key key : {1, 2}) {
        int external = 0;
        const ITR item = nodes.FindExtDB(key, external);
        ASSERT_TRUE(external && item) << why;
        EXPECT_EQ(static_cast<tagTNode&>(nodes.ExternalAt(item)).position.x + 0, key) << why;
      }
    };
    const std::uint64_t before = session.StateHash();
    ASSERT_TRUE(import());
    const std::uint64_t after = session.StateHash();
    ASSERT_TRUE(session.Undo());
    EXPECT_EQ(session.StateHash(), before);
    expect_outside("undone");
    ASSERT_TRUE(import());
    if (keep_key) {
      EXPECT_EQ(session.StateHash(), after);
    }
    EXPECT_EQ(nodes.GetSize(), keep_key ? 2 : 3);
    ASSERT_TRUE(session.Undo());
  }
  EXPECT_EQ(session.Validate(), "");
}

/// Whatever is transferred in whatever way, every external key leads to its own record.
RC_GTEST_PROP(ExternalStore, EveryExternalKeyLeadsToItsRecord, ()) {
  CQXDBSession session(AddStandardPools);
  auto& nodes = *session.GetPool<DPoolNode>(code::kNode);
  std::map<Key, ITR> outside;
  for (int i = *rc::gen::inRange(1, 20); i > 0; --i) {
    const Key key = *rc::gen::inRange(1, 30);
    const ITR item = nodes.InsertNUExtDB(NodeAt(key, key));
    if (item) outside[key] = item;
  }
  for (const auto& [key, item] : outside) {
    if (*rc::gen::inRange(0, 3) == 0) continue;
    nodes.TransferToDB(item, 0, *rc::gen::inRange(0, 30));
  }
  for (const auto& [key, item] : outside) {
    int external = 0;
    const ITR pos = nodes.FindExtDB(key, external);
    const double x =
        (external ? static_cast<tagTNode&>(nodes.ExternalAt(pos)) : nodes.GetAtNU(pos)).position.x;
    RC_ASSERT(x == key);
  }
  RC_ASSERT(session.Validate() == "");
}

}  // namespace
}  // namespace qx
