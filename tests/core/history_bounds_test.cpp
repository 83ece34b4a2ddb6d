// How much of its history a model keeps: the last step always, of the others what the model says,
// and what goes is told.

#include <gtest/gtest.h>

#include "qx_db/core/document.h"
#include "qx_db/core/history_plan.h"
#include "qx_db/lib/message.h"

#include "tests/core/mesh_session.h"
#include "tests/scratch_folder.h"

namespace qx {
namespace {

class Told final : public IMessageSink {
 public:
  Told() { SetMessageSink(this); }
  ~Told() override { SetMessageSink(nullptr); }
  void Show(const Message& message) override {
    if (message.key.starts_with("IDS_QX_HISTORY")) heard.push_back(message);
  }
  std::vector<Message> heard;
};

class HistoryBounds : public testing::Test {
 protected:
  /// Moves all nodes as one step, which takes their images twice.
  void Move(CQXDBSession& session) {
    CTransaction step(&session);
    step.Begin(u"Move");
    auto& nodes = *session.GetPool<DPoolNode>(code::kNode);
    for (ITR at = nodes.GetHeadPosition(); at; nodes.Next(at)) {
      tagTNode node = nodes.GetAtNU(at);
      node.position.x += 1;
      nodes.SetAtNU(at, node);
    }
    ASSERT_EQ(step.Commit(), 1);
  }
  void Fill(CQXDBSession& session, Key count) {
    session.EnableRecording(false);
    auto& nodes = *session.GetPool<DPoolNode>(code::kNode);
    for (Key key = 1; key <= count; ++key) nodes.InsertNU(Node(key));
    session.EnableRecording(true);
  }

  const ScratchFolder folder_;
  const std::string path_ = folder_.Path("m.qxm");
  Told told_;
};

TEST_F(HistoryBounds, TheLastStepIsKeptWhateverItsSizeAndTheLossOfOthersIsTold) {
  CQXDocBase document(AddStandardPools);
  CQXDBSession& session = *document.GetDBSession();
  Fill(session, 1000);
  session.SetKeptHistory({1000, 100});
  std::uint64_t before_last = 0;
  for (int i = 0; i < 4; ++i) {
    before_last = session.StateHash();
    Move(session);
  }
  const HistoryFit fit = FitHistory(session, session.KeptHistory());
  EXPECT_EQ(fit.done, 1u);
  EXPECT_GT(fit.bytes, 24000u);
  ASSERT_EQ(document.SaveAs(path_).Line(), "");
  ASSERT_EQ(told_.heard.size(), 1u);
  EXPECT_EQ(told_.heard[0].arguments[1], "3") << "steps that went";
  ASSERT_EQ(document.Save().Line(), "");

  CQXDocBase other(AddStandardPools);
  ASSERT_EQ(other.OpenForEditing(path_).Line(), "");
  CQXDBSession& reopened = *other.GetDBSession();
  EXPECT_EQ(reopened.KeptHistory(), (HistoryLimits{1000, 100})) << "a part of the model";
  const std::uint64_t after = reopened.StateHash();
  EXPECT_EQ(reopened.Undo(), 1);
  EXPECT_EQ(reopened.StateHash(), before_last);
  ASSERT_EQ(other.Save().Line(), "");
  EXPECT_EQ(reopened.Redo(), 1) << "nor is what was undone last let go";
  EXPECT_EQ(reopened.StateHash(), after);
}

TEST_F(HistoryBounds, OfMemoryAreToldOnceAStepAndOfEachThatCostsMore) {
  MeshSession m;
  m.session.SetHistoryLimits({3, std::size_t{1} << 30});
  for (Key key = 1; key <= 10; ++key) m.Add(key);
  EXPECT_EQ(told_.heard.size(), 1u);
  m.session.SetHistoryLimits({3, m.session.History().Footprint() + 1000});
  m.Step(u"large", [&] {
    for (Key key = 11; key <= 1000; ++key) m.nodes.InsertNU(Node(key));
  });
  ASSERT_EQ(told_.heard.size(), 2u);
  EXPECT_EQ(told_.heard[1].arguments[0], "3");
  EXPECT_EQ(m.session.Undo(), 1);
}

TEST_F(HistoryBounds, UndoLetsNothingGo) {
  CQXDocBase document(AddStandardPools);
  CQXDBSession& session = *document.GetDBSession();
  Fill(session, 500);
  ASSERT_EQ(document.SaveAs(path_).Line(), "");
  DurabilityOptions options;
  options.log_bytes = 0;
  session.SetKeptHistory({1000, 20000});
  ASSERT_EQ(document.KeepSteps(options).Line(), "");
  for (int i = 0; i < 3; ++i) Move(session);
  const std::size_t told = told_.heard.size();
  const std::size_t undoable = session.History().Done().size();
  for (std::size_t i = 0; i < undoable; ++i) ASSERT_EQ(session.Undo(), 1);
  EXPECT_EQ(told_.heard.size(), told);
}

TEST_F(HistoryBounds, ASnapshotAndANewModelHaveTheirOwn) {
  CQXDocBase document(AddStandardPools);
  CQXDBSession& session = *document.GetDBSession();
  session.SetKeptHistory({7, std::size_t{1} << 33});
  EXPECT_GE(session.History().Limits().bytes, std::size_t{1} << 33) << "memory keeps as much";
  EXPECT_EQ(TakeSnapshot(session)->KeptHistory(), session.KeptHistory());
  ASSERT_EQ(document.New(), 1);
  EXPECT_EQ(session.KeptHistory(), kUsualKept);
}

}  // namespace
}  // namespace qx
