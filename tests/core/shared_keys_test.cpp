// Two records with one key: a session can come to hold them, no file can. Who would write them down
// says so, and no step of the history leads there.

#include <functional>
#include <gtest/gtest.h>

#include "qx_db/qx_db.h"

#include "tests/core/mesh_session.h"
#include "tests/core/trust.h"

namespace qx {
namespace {

/// Gives the second of two nodes the key of the first, as no step.
ITR Share(CQXDBSession& session) {
  auto& nodes = *session.GetPool<DPoolNode>(code::kNode);
  const ITR second = nodes.Find(2);
  EXPECT_EQ(nodes.SetAtNU(second, Node(1, 2)), 1);
  return second;
}

class SharedKeys : public TrustTest {};

TEST_F(SharedKeys, AreWrittenByNobody) {
  MeshSession m;
  m.Add(1);
  m.Add(2);
  Share(m.session);
  for (const bool copied : {false, true}) {
    const auto snapshot = copied ? TakeSnapshot(m.session) : nullptr;
    CQXDBSession& session = copied ? *snapshot : m.session;
    DPoolBase& nodes = *session.GetDataPool(code::kNode);
    const std::string path = Path("shared");
    CQXBulkHandler records(path);
    const Outcome model = SaveModel(session, path), pool = records.Write(nodes, {});
    for (const Outcome& outcome : {model, pool}) {
      EXPECT_NE(outcome.Line().find("two records share the key 1"), std::string::npos) << copied;
    }
    dbgateway::DataBase document;
    const std::string said = WriteDocument(session, document).Line();
    EXPECT_NE(said.find("two records share the key 1"), std::string::npos) << said;
    EXPECT_EQ(document.Report().size(), 1u);
    DPoolTmp<tagTNode> passed_over;
    Outcome told;
    EXPECT_EQ(qxLoadDPool(records, passed_over, &told), 0) << "by a handler that has refused";
    EXPECT_NE(told.Line(), "");
    EXPECT_EQ(document.ToText().find("NODE"), std::string::npos);
    EXPECT_EQ(Names(), std::vector<std::string>{}) << copied;
  }
}

// However a step mends a shared key, taking it back would bring it again.
TEST_F(SharedKeys, NoUndoLeadsBackToThem) {
  using Mend = std::function<void(DPoolNode&, ITR)>;
  const Mend mends[] = {
      [](DPoolNode& nodes, ITR second) { nodes.SetAtNU(second, Node(7)); },
      [](DPoolNode& nodes, ITR second) { nodes.Remove(second); },
      [](DPoolNode& nodes, ITR second) {  // by way of another key, and the first goes as well
        nodes.SetAtNU(second, Node(7));
        nodes.SetAtNU(second, Node(8));
        nodes.Remove(nodes.Find(1));
      },
      [](DPoolNode& nodes, ITR second) {  // the first gives way
        for (ITR at = nodes.GetHeadPosition(); at; nodes.Next(at)) {
          if (at != second) return static_cast<void>(nodes.SetAtNU(at, Node(7)));
        }
      },
  };
  const std::string path = Path("mended.qxm");
  for (const Mend& mend : mends) {
    for (const bool kept : {false, true}) {
      SCOPED_TRACE(testing::Message() << "mend " << &mend - mends << ", kept " << kept);
      const auto document = kept ? Kept(path, 2) : std::make_unique<CQXDocBase>(SetUpSmallModel);
      CQXDBSession& session = *document->GetDBSession();
      if (!kept) InsertNode(session, 1), InsertNode(session, 2);
      const ITR second = Share(session);
      {
        CTransaction step(&session);
        step.Begin(u"mend");
        mend(*session.GetPool<DPoolNode>(code::kNode), second);
        ASSERT_EQ(step.Commit(), 1);
      }
      ASSERT_EQ(InsertNode(session, 20), 1);
      const std::uint64_t last = session.StateHash();
      EXPECT_EQ(session.Undo(), 1);
      const std::uint64_t mended = session.StateHash();
      const MessageCapture messages;
      EXPECT_FALSE(session.CanUndo()) << "as Undo says";
      EXPECT_EQ(session.Undo(), 0);
      ASSERT_EQ(messages.Messages().size(), 1u);
      EXPECT_EQ(session.StateHash(), mended);
      EXPECT_EQ(session.Validate(), "");
      EXPECT_EQ(session.Redo(), 1) << "the history goes on as before";
      EXPECT_EQ(session.StateHash(), last);
      if (!kept) continue;
      EXPECT_EQ(document->Keeper()->Fault().Line(), "");
      for (const bool saved : {false, true}) {
        ASSERT_TRUE(!saved || document->Save());
        CQXDocBase reader(SetUpSmallModel);
        ASSERT_EQ(reader.Open(path).Line(), "");
        CQXDBSession& read = *reader.GetDBSession();
        EXPECT_EQ(read.StateHash(), last);
        EXPECT_EQ(read.Undo(), 1);
        EXPECT_EQ(read.Undo(), 0) << "what came before cannot be in a file";
        EXPECT_EQ(read.StateHash(), mended);
        EXPECT_EQ(read.Redo(), 1);
      }
    }
  }
}

TEST_F(SharedKeys, ThatAreThereAlreadyHinderNoUndo) {
  MeshSession m;
  m.Add(1);
  m.Add(2);
  const ITR second = Share(m.session);
  m.Step(u"move", [&] { m.nodes.SetAtNU(second, Node(1, 9)); });
  EXPECT_EQ(m.session.Undo(), 1);
  EXPECT_EQ(+m.nodes.GetAtNU(second).position.x, 2);
  EXPECT_EQ(m.session.Redo(), 1);
}

}  // namespace
}  // namespace qx
