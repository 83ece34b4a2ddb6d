// The units of a session: changed by steps, and shown for a while.

#include <algorithm>
#include <array>
#include <gtest/gtest.h>
#include <memory>

#include "qx_db/qx_db.h"

#include "tests/core/mesh_session.h"
#include "tests/core/session_listener.h"
#include "tests/scratch_folder.h"

namespace qx {
namespace {

TEST(UnitsAsAStep, AreUndoneKeptInTheLogAndMakeTheModelModified) {
  const ScratchFolder folder;
  const std::string path = folder.Path("model.qxm");
  const UnitSystem metres, millimetres = Millimetres();
  {
    CQXDocBase document(AddStandardPools);
    CQXDBSession& session = *document.GetDBSession();
    ASSERT_TRUE(document.SaveAs(path) && document.KeepSteps());
    EXPECT_EQ(session.ChangeUnits(millimetres), 1);
    EXPECT_EQ(session.Units().Current(), millimetres);
    EXPECT_TRUE(document.IsModified());
    EXPECT_EQ(session.Undo(), 1);
    EXPECT_EQ(session.Units().Current(), metres);
    EXPECT_FALSE(document.IsModified());
    EXPECT_EQ(session.Redo(), 1);
    EXPECT_EQ(session.Units().Current(), millimetres);
    EXPECT_EQ(session.Units().Previous(), metres);
  }
  for (const bool folded : {false, true}) {
    CQXDocBase document(AddStandardPools);
    CQXDBSession& session = *document.GetDBSession();
    ASSERT_TRUE(document.OpenForEditing(path)) << folded;
    EXPECT_EQ(session.Units().Current(), millimetres) << folded;
    EXPECT_EQ(session.Undo(), 1);
    EXPECT_EQ(session.Units().Current(), metres) << folded;
    EXPECT_EQ(session.Redo(), 1);
    EXPECT_EQ(session.Units().Current(), millimetres) << folded;
    ASSERT_TRUE(document.Save());  // the steps go behind new pages
  }
}

TEST(UnitsAsAStep, AreOneAlsoOutsideATransactionOnceThereIsAModel) {
  MeshSession m;
  const UnitSystem metres, millimetres = Millimetres();
  m.session.Units().SetModel(millimetres);
  m.session.Units().SetCurrent(millimetres);
  EXPECT_FALSE(m.session.CanUndo()) << "that was said of a model to come";
  m.nodes.InsertNU(Node(1));
  Listener listener(m.session);
  const std::int64_t before = m.session.State();
  m.session.Units().SetCurrent(metres);
  EXPECT_EQ(listener.heard, std::vector{SessionEvent::kCommitted});
  EXPECT_EQ(Since(m, before), "units");
  EXPECT_EQ(m.session.Undo(), 1);
  EXPECT_EQ(Since(m, before), "");
  EXPECT_EQ(m.session.Units().Current(), millimetres);
  m.session.Units().SetCurrent(millimetres);
  EXPECT_TRUE(m.session.CanRedo()) << "those it has already";
}

// What every new model has does not make it a model; what was made of that does.
TEST(UnitsAsAStep, AreOneOnceARecordOfANewModelIsAnother) {
  for (const bool is_edited : {false, true}) {
    CQXDBSession session(AddStandardPools);
    session.EnableRecording(false);
    for (DPoolBase* pool : session.Pools()) pool->AddDefault();
    auto& sets = *session.GetPool<DPoolMset>(code::kMset);
    ASSERT_EQ(sets.GetSize(), 1);
    if (is_edited) {
      const ITR only = sets.DefaultItr();
      tagTMset set = sets.GetAtNU(only);
      set.name.Set(u"of somebody's own");
      ASSERT_EQ(sets.SetAtNU(only, set), 1);
    }
    session.EnableRecording(true);
    session.Units().SetCurrent(Millimetres());
    EXPECT_EQ(session.CanUndo(), is_edited);
  }
}

// Known as the converter that it is besides, the session's is its own all the same.
TEST(UnitsAsAStep, AreOneByWhateverNameTheyAreChanged) {
  const UnitSystem millimetres = Millimetres();
  MeshSession m;
  m.Add(1);
  CQXUnitCtrl& units = m.session.Units();
  CQXUnitCtrl other;
  other.SetCurrent(millimetres);
  units.SetCurrent(millimetres);
  units.SetModel(millimetres);
  units = other;
  EXPECT_EQ(m.session.History().Done().size(), 4u);
  while (m.session.Undo()) {
  }
  EXPECT_EQ(m.session.Units(), CQXUnitCtrl());
}

TEST(UnitsAsAStep, AreNoneWhileTheyAreOnlyShown) {
  const UnitSystem metres, millimetres = Millimetres();
  const ScratchFolder folder;
  CQXDocBase document(AddStandardPools);
  CQXDBSession& session = *document.GetDBSession();
  ASSERT_TRUE(document.SaveAs(folder.Path("model.qxm")) && document.KeepSteps());
  auto& nodes = *session.GetPool<DPoolNode>(code::kNode);
  {
    const UnitsShown shown(session, millimetres);
    const UnitsShown again(session, millimetres);
    EXPECT_EQ(session.Units().Current(), millimetres);
    EXPECT_FALSE(document.IsModified());
    EXPECT_EQ(TakeSnapshot(session)->Units().Current(), metres);
    EXPECT_EQ(nodes.InsertNU(Node(1)), 0u);
    EXPECT_EQ(session.ChangeUnits(millimetres), 0);
    ASSERT_TRUE(document.Save());
  }
  EXPECT_EQ(session.Units(), CQXUnitCtrl());
  EXPECT_FALSE(document.IsModified() || session.CanUndo());
  MeshSession read;
  ASSERT_TRUE(LoadModel(read.session, folder.Path("model.qxm")));
  EXPECT_EQ(read.session.Units().Current(), metres);
}

// In whatever order those who show units end, the last that is left shows its own, and with the
// last of all the session has its units back and can be edited.
TEST(UnitsAsAStep, AreTheSessionsAgainInWhateverOrderOthersWereShown) {
  const UnitSystem millimetres = Millimetres();
  UnitSystem feet, inches;
  feet[UnitBase::kLength] = FindUnit(UnitBase::kLength, "ft");
  inches[UnitBase::kLength] = FindUnit(UnitBase::kLength, "in");
  const std::array<UnitSystem, 3> systems = {millimetres, feet, inches};
  std::array<std::size_t, 3> order = {0, 1, 2};
  do {
    SCOPED_TRACE(testing::Message() << order[0] << order[1] << order[2]);
    MeshSession m;
    m.Add(1);
    const std::uint64_t before = m.session.StateHash();
    CTransaction step(&m.session);
    step.Begin(u"taken back while units are shown");
    m.session.Units().SetCurrent(inches);
    std::array<std::unique_ptr<UnitsShown>, 3> shown;
    for (std::size_t i = 0; i < 3; ++i) {
      shown[i] = std::make_unique<UnitsShown>(m.session, systems[i]);
    }
    EXPECT_EQ(step.Rollback(), 1);
    for (const std::size_t ended : order) {
      const std::size_t last = shown[2] ? 2 : shown[1] ? 1 : 0;
      EXPECT_EQ(m.session.Units().Current(), systems[last]);
      EXPECT_EQ(m.nodes.InsertNU(Node(2)), 0u);
      EXPECT_EQ(m.session.StateHash(), before);
      shown[ended].reset();
    }
    EXPECT_EQ(m.session.StateHash(), before);
    EXPECT_EQ(m.session.Units(), CQXUnitCtrl());
    m.Add(2);
    EXPECT_EQ(m.nodes.GetSize(), 2);
    auto ended = std::make_unique<CQXDBSession>(AddStandardPools);
    const UnitsShown outlives(*ended, millimetres);
    ended.reset();
  } while (std::next_permutation(order.begin(), order.end()));
}

// Whatever becomes of the inner part, the step knows the units from which it began.
TEST(UnitsAsAStep, OfNestedTransactionsAreOneChange) {
  const UnitSystem metres, millimetres = Millimetres();
  for (const bool commit : {true, false}) {
    for (const bool edit : {true, false}) {
      SCOPED_TRACE(testing::Message() << commit << edit);
      const ScratchFolder folder;
      const std::string path = folder.Path("model.qxm");
      CQXDocBase document(AddStandardPools);
      CQXDBSession& session = *document.GetDBSession();
      session.ChangeUnits(millimetres);
      session.ChangeUnits(metres);
      ASSERT_TRUE(document.SaveAs(path) && document.KeepSteps());
      const std::uint64_t before = session.StateHash();
      CTransaction outer(&session);
      outer.Begin(u"outer");
      session.Units().SetCurrent(millimetres);
      {
        CTransaction inner(&session);
        inner.Begin(u"inner");
        session.Units().SetCurrent(metres);
      }
      EXPECT_EQ(session.Units().Current(), millimetres);
      if (edit) session.GetPool<DPoolNode>(code::kNode)->InsertNU(Node(5));
      EXPECT_EQ(commit ? outer.Commit() : outer.Rollback(), 1);
      EXPECT_EQ(session.Units().Current(), commit ? millimetres : metres);
      const std::uint64_t after = session.StateHash();
      EXPECT_EQ(after == before, !commit);
      document.Release();
      MeshSession read;
      ASSERT_TRUE(LoadModel(read.session, path));
      EXPECT_EQ(read.session.StateHash(), after);
      EXPECT_EQ(read.session.Undo(), 1);
      EXPECT_EQ(read.session.Units().Current(), commit ? metres : millimetres);
    }
  }
}

TEST(UnitsAsAStep, GoBackWithTheTransactionThatChangedThem) {
  MeshSession m;
  const UnitSystem metres, millimetres = Millimetres();
  CTransaction outer(&m.session), inner(&m.session);
  outer.Begin(u"outer");
  m.session.Units().SetModel(millimetres);
  inner.Begin(u"inner");
  EXPECT_EQ(m.session.ChangeUnits(millimetres), 1);
  inner.Rollback();
  EXPECT_EQ(m.session.Units().Current(), metres);
  EXPECT_EQ(m.session.Units().Model(), millimetres);
  outer.Commit();
  EXPECT_EQ(m.session.Undo(), 1);
  EXPECT_EQ(m.session.Units().Model(), metres);
  outer.Begin(u"outer");
  m.session.ChangeUnits(millimetres);
  m.session.ChangeUnits(metres);
  outer.Rollback();
  EXPECT_TRUE(m.session.CanRedo()) << "nothing came of it";
  Listener listener(m.session);
  listener.act = [&](std::span<const Change>) {
    m.session.Units().SetCurrent(millimetres);
    EXPECT_EQ(m.session.ChangeUnits(millimetres), 0);
  };
  m.Add(1);
  EXPECT_EQ(m.session.Units().Current(), metres);
}

}  // namespace
}  // namespace qx
