// What a file says of its model as a whole: what the records say, and nothing where it cannot know.

#include "qx_db/core/model_summary.h"

#include <cmath>
#include <functional>
#include <gtest/gtest.h>
#include <limits>

#include "qx_db/core/read_snapshot.h"
#include "qx_db/core/state_hash.h"

#include "tests/core/trust.h"

namespace qx {
namespace {

class ModelSummaryTest : public TrustTest {
 protected:
  static void Fill(CQXDBSession& session) {
    auto& nodes = *session.GetPool<DPoolNode>(code::kNode);
    auto& elements = *session.GetPool<DPoolElem>(code::kElem);
    for (Key key = 1; key <= 9; ++key) {
      tagTNode node;
      node.key = key;
      node.position = {0.1 * key, -1.0 / key, 3};
      nodes.InsertNU(node);
      tagTElem element;
      element.key = key;
      element.type = key < 8 ? 2 : 5;
      element.nodes = {nodes.Find(key)};
      elements.InsertNU(element);
    }
    tagTActiveElemSet set;
    set.key = 4;
    set.elements = {elements.Find(1), elements.Find(2)};
    session.GetPool<PoolOf<tagTActiveElemSet>::type>(code::kActiveElemSet)->InsertNU(set);
  }

  /// What the file says; `sets` gets the pool that is read along.
  std::optional<ModelGlance> Glance(const std::string& path) {
    shown_ = std::make_unique<CQXDBSession>(SetUpSmallModel);
    constexpr std::uint16_t kSets[] = {code::kActiveElemSet};
    return GlanceAtModel(path, *shown_, kSets);
  }

  std::unique_ptr<CQXDBSession> shown_;
};

TEST_F(ModelSummaryTest, SaysWhatTheRecordsSay) {
  const std::string path = Path("a.qxm");
  CQXDocBase document(SetUpSmallModel);
  CQXDBSession& session = *document.GetDBSession();
  UnitSystem mm;
  mm[UnitBase::kLength] = FindUnit(UnitBase::kLength, "mm");
  session.Units().SetModel(mm);
  ASSERT_EQ(document.SaveAs(path).Line(), "");
  ASSERT_TRUE(Glance(path)) << "of an empty model";
  EXPECT_TRUE(Glance(path)->summary.elements.empty() && !Glance(path)->summary.box);

  Fill(session);
  ASSERT_EQ(document.Save().Line(), "");
  const auto glance = Glance(path);
  ASSERT_TRUE(glance);
  const ModelSummary& said = glance->summary;
  EXPECT_EQ(said.state, session.StateHash());
  EXPECT_EQ(said.elements, (std::map<std::int32_t, std::int64_t>{{2, 7}, {5, 2}}));
  ASSERT_TRUE(said.box);
  EXPECT_EQ(+said.box->low.x, 0.1);  // to the last bit
  EXPECT_EQ(+said.box->high.x, 0.1 * 9);
  EXPECT_EQ(+said.box->low.y, -1);
  EXPECT_EQ(+said.box->high.y, -1.0 / 9);
  EXPECT_EQ(glance->report.revision, 2);
  EXPECT_EQ(shown_->Units().Model(), mm);
  EXPECT_EQ(shown_->GetDataPool(code::kNode)->GetSize(), 0) << "was not asked for";
  const auto& sets = *shown_->GetPool<PoolOf<tagTActiveElemSet>::type>(code::kActiveElemSet);
  EXPECT_EQ(sets.GetAtNU(sets.Find(4)).elements.GetSize(), 2);
  EXPECT_EQ(FindSummaryFault(path, session), "");
}

TEST_F(ModelSummaryTest, IsSilentWhereThePagesDoNotHoldTheLastState) {
  const std::string path = Path("steps.qxm");
  const auto document = Kept(path, 3);
  CQXDBSession& session = *document->GetDBSession();
  document->Release();
  EXPECT_FALSE(Glance(path)) << "steps behind the pages";
  ASSERT_EQ(document->Save().Line(), "");
  EXPECT_TRUE(Glance(path)) << "past ones alone";
  ASSERT_EQ(document->KeepSteps().Line(), "");
  EXPECT_TRUE(Glance(path)) << "open for editing, nothing done";
  ASSERT_EQ(InsertNode(session, 4), 1);
  EXPECT_FALSE(Glance(path)) << "a step since";
  ASSERT_EQ(session.Undo(), 1);
  ASSERT_EQ(document->Save().Line(), "");
  document->Release();
  EXPECT_FALSE(Glance(path)) << "a step that is undone";

  Fill(session);
  tagTNode misplaced;
  misplaced.key = 10;
  misplaced.position = {std::numeric_limits<double>::quiet_NaN(), 0, 0};
  session.GetPool<DPoolNode>(code::kNode)->InsertNU(misplaced);
  ASSERT_EQ(SaveModel(session, Path("nan.qxm")).Line(), "");
  EXPECT_FALSE(Glance(Path("nan.qxm"))) << "no box holds such a node";
  EXPECT_EQ(StateAt(Path("nan.qxm")), session.StateHash());
  EXPECT_FALSE(Glance(Path("none.qxm")));
}

/// Changes what a file says to what its writer did not say, under the right checksum.
TEST_F(ModelSummaryTest, OneThatIsDamagedIsPassedOverAndOneThatLiesIsFound) {
  CQXDBSession session(SetUpSmallModel);
  Fill(session);
  const std::string path = Path("true.qxm");
  ASSERT_EQ(SaveModel(session, path).Line(), "");
  const std::string bytes = BytesOf(path);
  char state[17];
  std::snprintf(state, sizeof(state), "%016llx",
                static_cast<unsigned long long>(session.StateHash()));
  struct Case {
    std::string from, to;
    bool is_read;
    std::string fault;
  };
  const Case cases[] = {
      {"summary.elements2 7 5 2", "summary.elements2 7 5 2", true, ""},
      {"summary.elements2 7 5 2", "summary.elements2 6 5 3", true, "elements"},
      {"summary.elements2 7 5 2", "summary.elements2 7 2 2", false, ""},
      {"summary.elements2 7 5 2", "summary.elements2 7 5 3", false, ""},
      {"summary.elements2 7 5 2", "summary.elements2 7 5 x", false, ""},
      {"summary.elements2 7 5 2", "summary.elements2 9 5 0", false, ""},
      {"summary.elements2 7 5 2", "summary.elements99    2", false, ""},
      {"summary.elements2 7 5 2", "summary.elephant2 7 5 2", false, ""},
      {"summary.box0.1 -1 3", "summary.box0.2 -1 3", true, "box"},
      {"summary.box0.1 -1 3", "summary.box0.1 -1 x", false, ""},
      {"summary.box0.1 -1 3", "summary.box0.1 -1  ", false, ""},
      {"summary.box0.1 -1 3", "summary.box1e999 -1", false, ""},
      {"summary.box0.1 -1 3", "summary.bog0.1 -1 3", false, ""},
      {state, std::string(16, '7'), true, "state"},
      {state, std::string(15, '7') + "g", false, ""},
      {"summary.state", "summary.stale", false, ""},
  };
  for (const Case& c : cases) {
    ASSERT_EQ(c.from.size(), c.to.size());
    std::string forged = bytes;
    const std::size_t at = forged.find(c.from);
    ASSERT_NE(at, std::string::npos) << c.from;
    forged.replace(at, c.to.size(), c.to);
    WriteBytes(Path("unsealed.qxm"), forged);
    EXPECT_EQ(Glance(Path("unsealed.qxm")).has_value(), c.from == c.to) << c.to;
    Seal(forged, at / 4096);
    const std::string file = Path("forged.qxm");
    WriteBytes(file, forged);
    EXPECT_EQ(Glance(file).has_value(), c.is_read) << c.to;
    const std::string fault = FindSummaryFault(file, session);
    EXPECT_EQ(fault.empty(), c.fault.empty()) << c.to << ": " << fault;
    EXPECT_NE(fault.find(c.fault), std::string::npos) << c.to << ": " << fault;
    EXPECT_EQ(StateAt(file), session.StateHash()) << c.to << ": who reads all is not deceived";
  }
}

/// What is remembered of a state is never taken for another's: against a copy, of which nothing is
/// remembered.
TEST_F(ModelSummaryTest, KnownStatesAreThoseOfTheRecords) {
  CQXDBSession session(SetUpSmallModel);
  Fill(session);
  auto& nodes = *session.GetPool<DPoolNode>(code::kNode);
  const ITR first = nodes.Find(1);
  UnitSystem mm;
  mm[UnitBase::kLength] = FindUnit(UnitBase::kLength, "mm");
  const auto in_step = [&](const std::function<void()>& edit) {
    CTransaction transaction(&session);
    transaction.Begin(u"Edit");
    edit();
    EXPECT_EQ(transaction.Commit(), 1);
  };
  const auto move = [&](Key key) {
    tagTNode node = nodes.GetAtNU(first);
    node.key = key;
    node.position.x = node.position.x + 1;
    nodes.SetAtNU(first, node);
  };
  const std::function<void()> edits[] = {
      [&] { in_step([&] { move(1); }); },
      [&] { in_step([&] { move(50); }); },  // elements name it by its key
      [&] { session.ChangeUnits(mm); },
      [&] {
        CTransaction taken_back(&session);
        taken_back.Begin(u"Edit");
        move(60);
        EXPECT_EQ(KnownStateHash(session), TakeSnapshot(session)->StateHash());
      },
      [&] { in_step([&] { nodes.Remove(nodes.Find(2)); }); },
      [&] { in_step([&] { nodes.SortAsc(); }); },
      [&] { session.Undo(); },
      [&] { session.Undo(); },
      [&] { session.Undo(); },
      [&] { session.Redo(); },
      [&] { session.ForgetHistory(); },
  };
  for (std::size_t i = 0; i < std::size(edits); ++i) {
    edits[i]();
    const std::uint64_t state = TakeSnapshot(session)->StateHash();
    EXPECT_EQ(session.StateHash(), state) << i;
    EXPECT_EQ(KnownStateHash(session), state) << i;
    EXPECT_EQ(KnownStateHash(session), state) << i << ", asked again";
  }
  for (int other = 0; other < 20; ++other) {  // more than are remembered
    CQXDBSession model(SetUpSmallModel);
    tagTNode node;
    node.key = other + 1;
    model.GetPool<DPoolNode>(code::kNode)->InsertNU(node);
    EXPECT_EQ(KnownStateHash(model), model.StateHash());
  }
  EXPECT_EQ(KnownStateHash(session), session.StateHash());
}

}  // namespace
}  // namespace qx
