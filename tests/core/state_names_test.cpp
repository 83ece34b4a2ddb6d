// The names of the states of a model, by which somebody asks later what has changed.

#include <gtest/gtest.h>
#include <set>

#include "qx_db/qx_db.h"

#include "tests/core/mesh_session.h"
#include "tests/core/test_disk.h"
#include "tests/scratch_folder.h"

namespace qx {
namespace {

// Steps of one name, number and millisecond lead to other states, also in copies of one model.
TEST(StateNames, AreOfOneModelOnly) {
  constexpr int kModels = 200;
  std::set<std::int64_t> states;
  const ScratchFolder folder;
  const std::string path = folder.Path("model.qxm");
  {
    CQXDocBase document(AddStandardPools);
    ASSERT_TRUE(document.SaveAs(path));
  }
  for (int i = 0; i < kModels; ++i) {
    MeshSession fresh, copy;
    ASSERT_TRUE(LoadModel(copy.session, path));
    fresh.Add(1);
    copy.Add(1);
    states.insert({fresh.session.State(), copy.session.State()});
  }
  EXPECT_EQ(states.size(), 2u * kModels);
}

// Whatever the name of a step, one that no file could have told included, its state keeps its name
// in the file: appended, folded, done and undone.
TEST(StateNames, AreTheSameInTheFile) {
  const std::u16string smile = u"\U0001F600";
  std::u16string long_name(kMaxStepName - 1, u'x');
  long_name += smile;
  const std::u16string names[] = {u"", u"add", std::u16string(kMaxStepName, u'y'), long_name,
                                  std::u16string(3 * kMaxStepName, u'z')};
  const ScratchFolder folder;
  const std::string path = folder.Path("model.qxm");
  CQXDocBase document(AddStandardPools);
  CQXDBSession& session = *document.GetDBSession();
  ASSERT_TRUE(document.SaveAs(path) && document.KeepSteps());
  std::vector<std::int64_t> states;
  const auto check = [&](const char* how) {
    SCOPED_TRACE(how);
    MeshSession read;
    ASSERT_TRUE(LoadModel(read.session, path));
    EXPECT_EQ(read.session.UndoName(), session.UndoName());
    for (std::size_t i = states.size(); i-- > 0;) {
      EXPECT_EQ(read.session.State(), states[i]) << i;
      EXPECT_EQ(read.session.Undo(), 1) << i;
    }
    for (const std::int64_t state : states) {
      EXPECT_EQ(read.session.Redo(), 1);
      EXPECT_EQ(read.session.State(), state);
    }
  };
  for (const std::u16string& name : names) {
    CTransaction step(&session);
    step.Begin(name.c_str());
    session.GetPool<DPoolNode>(code::kNode)->InsertNU(Node(static_cast<Key>(states.size() + 1)));
    ASSERT_EQ(step.Commit(), 1);
    states.push_back(session.State());
    const std::u16string kept(session.UndoName());
    EXPECT_TRUE(name.starts_with(kept));
    EXPECT_EQ(kept.size(), name == long_name ? kMaxStepName - 1
                                             : std::min<std::size_t>(name.size(), kMaxStepName));
  }
  check("appended");
  ASSERT_TRUE(document.Save());
  check("folded");
}

// Asked again and again for a state that nobody has, a session with a file does not read that.
TEST(StateNames, ThatNobodyHasCostNoLookIntoTheFile) {
  const ScratchFolder folder;
  const std::string path = folder.Path("model.qxm");
  CQXDocBase document(AddStandardPools);
  CQXDBSession& session = *document.GetDBSession();
  ASSERT_TRUE(document.SaveAs(path) && document.KeepSteps());
  session.SetHistoryLimits({2, 1 << 20});
  std::vector<std::int64_t> states;
  const auto add = [&](Key key) {
    CTransaction step(&session);
    step.Begin(u"add");
    session.GetPool<DPoolNode>(code::kNode)->InsertNU(Node(key));
    EXPECT_EQ(step.Commit(), 1);
    states.push_back(session.State());
  };
  for (Key key = 1; key <= 6; ++key) add(key);
  session.Undo();
  add(7);  // ends the sixth
  int looks = 0;
  const auto ask = [&](std::int64_t state) {
    TestDisk disk;
    looks = 0;
    disk.before_look = [&] { ++looks; };
    return ChangesSince(session, state).has_value();
  };
  for (const bool saved : {false, true}) {
    ASSERT_TRUE(!saved || document.Save());
    EXPECT_FALSE(ask(4711));
    EXPECT_EQ(looks, 0);
    EXPECT_FALSE(ask(states[5]));
    EXPECT_EQ(looks, 0) << "which the file has passed through, but has no way from";
    EXPECT_TRUE(ask(states[6]));
    EXPECT_EQ(looks, 0) << "memory has it";
    EXPECT_EQ(ask(states[0]), !saved) << "a save keeps what memory has";
    EXPECT_EQ(looks > 0, !saved);
  }
  document.Release();
  ASSERT_TRUE(document.OpenForEditing(path));
  EXPECT_FALSE(ask(states[0]));
  EXPECT_EQ(looks, 0);
}

}  // namespace
}  // namespace qx
