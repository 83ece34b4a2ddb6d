// What a session tells, whom, and what it refuses meanwhile.

#include <functional>
#include <gtest/gtest.h>

#include "qx_db/qx_db.h"

#include "tests/core/mesh_session.h"
#include "tests/core/session_listener.h"
#include "tests/scratch_folder.h"

namespace qx {
namespace {

TEST(SessionNews, AListenerCannotEditInAnyWay) {
  MeshSession m;
  m.Add(1);
  Listener listener(m.session);
  const ITR first = m.nodes.Find(1);
  listener.act = [&](std::span<const Change>) {
    ITR moving = first;
    EXPECT_EQ(m.nodes.InsertNU(Node(77)), 0u);
    EXPECT_EQ(m.nodes.SetAtNU(first, Node(1, 5)), 0);
    EXPECT_EQ(m.nodes.Remove(first), 0);
    EXPECT_EQ(m.nodes.RemoveNext(moving), 0);
    EXPECT_EQ(m.nodes.RemoveWithoutDelete(first), 0);
    m.nodes.RemoveAll();
    m.session.EnableRecording(true);
    EXPECT_EQ(m.nodes.InsertNU(Node(78)), 0u);
    m.session.SetHistoryLimits({0, 0});
    m.session.ForgetHistory();
    m.nodes.SortAsc();
    m.nodes.SetMinMaxKey(1000);
    m.nodes.ResetMinMaxKey();
    TArray<ITR> items;
    TArray<Key> keys;
    m.nodes.GetItrList(items, 1);
    m.nodes.GetKeyList(keys, 1);
    EXPECT_EQ(keys, (TArray<Key>{0, 1, 2}));
    EXPECT_EQ(items, (TArray<ITR>{m.nodes.Find(0), first, m.nodes.Find(2)}));
  };
  m.nodes.SetMinMaxKey(50);
  EXPECT_EQ(m.Step(u"add", [&] { m.nodes.InsertNU(Node(2)), m.nodes.InsertNU(Node(0)); }), 1);
  EXPECT_EQ(m.nodes.GetNewKey(), 51);
  TArray<Key> keys;
  m.nodes.GetKeyList(keys, 0);
  EXPECT_EQ(keys, (TArray<Key>{1, 2, 0})) << "the order of a list is the model's, too";
  EXPECT_EQ(m.nodes.GetSize(), 3);
  EXPECT_EQ(m.nodes.Find(1), first);
  EXPECT_FALSE(m.session.CanUndo()) << "the limits it set hold from then on";
  listener.act = nullptr;
  m.session.SetHistoryLimits({});
  EXPECT_EQ(m.Add(3), 1);
  EXPECT_TRUE(m.session.CanUndo());
  EXPECT_EQ(m.session.Validate(), "");
}

// A pool of an application that answers an undo by edits of its own.
struct MeddlingPool : DPoolPlain<tagTBset> {
  using DPoolPlain<tagTBset>::DPoolPlain;
  void OnAfterUndoRedo() override {
    ++heard;
    CTransaction step(GetSession());
    done = step.Begin(u"meddling") + GetSession()->Undo() + GetSession()->Redo() +
           (InsertNU(tagTBset()) != 0) + Remove(GetHeadPosition());
    RemoveAll();
    if (fail) throw std::runtime_error("pool");
  }
  int heard = 0, done = 0;
  bool fail = false;
};

TEST(SessionNews, APoolsHookCannotEditEither) {
  CQXDBSession session;
  auto owned = std::make_unique<MeddlingPool>(&session);
  MeddlingPool& pool = *owned;
  ASSERT_EQ(session.AddPool(std::move(owned)), 1);
  for (Key key = 1; key <= 3; ++key) {
    CTransaction step(&session);
    step.Begin(u"a step whose name is too long to lie within the text object itself");
    tagTBset set;
    set.key = key;
    pool.InsertNU(set);
    step.Commit();
  }
  Listener listener(session, code::kBset);
  for (const bool fail : {false, true}) {
    pool.fail = fail;
    const auto move = [&](auto&& call) {
      if (fail) {
        EXPECT_THROW(call(), std::runtime_error);
      } else {
        EXPECT_EQ(call(), 1);
      }
    };
    move([&] { return session.Undo(); });
    EXPECT_EQ(pool.GetSize(), 2);
    move([&] { return session.Redo(); });
    EXPECT_EQ(pool.GetSize(), 3);
    EXPECT_EQ(pool.done, 0);
    EXPECT_FALSE(session.IsBusy());
    EXPECT_EQ(session.Validate(), "");
  }
  EXPECT_EQ(pool.heard, 4);
  EXPECT_EQ(listener.heard.size(), 4u);
}

TEST(SessionNews, WhatAnInnerTransactionTookBackIsTold) {
  for (const bool commit : {true, false}) {
    MeshSession m;
    Listener listener(m.session);
    CTransaction outer(&m.session);
    outer.Begin(u"outer");
    {
      CTransaction inner(&m.session);
      inner.Begin(u"inner");
      m.nodes.InsertNU(Node(1));
    }
    EXPECT_EQ(commit ? outer.Commit() : outer.Rollback(), 1);
    EXPECT_EQ(listener.heard, std::vector{SessionEvent::kRolledBack}) << commit;
    EXPECT_EQ(listener.flags, DPoolBase::kInsertedFlag);
    EXPECT_FALSE(m.session.CanUndo());
    m.Step(u"nothing", [] {});
    EXPECT_EQ(listener.heard.size(), 1u) << "it is told once";
  }
}

TEST(SessionNews, AListenerThatThrowsSilencesNobodyAndUnboundsNothing) {
  MeshSession m;
  m.session.SetHistoryLimits({3, std::size_t{1} << 20});
  Listener first(m.session), second(m.session);
  first.act = [](std::span<const Change>) { throw std::runtime_error("listener"); };
  for (Key key = 1; key <= 10; ++key) EXPECT_THROW(m.Add(key), std::runtime_error);
  EXPECT_EQ(m.nodes.GetSize(), 10);
  EXPECT_EQ(m.session.History().Done().size(), 3u);
  EXPECT_EQ(second.heard.size(), 10u);
}

TEST(SessionNews, AnOuterTransactionWaitsForTheInnerOne) {
  MeshSession m;
  CTransaction outer(&m.session), inner(&m.session);
  outer.Begin(u"outer");
  m.nodes.InsertNU(Node(1));
  inner.Begin(u"inner");
  m.nodes.InsertNU(Node(2));
  EXPECT_EQ(outer.Commit(), 0);
  EXPECT_TRUE(outer.IsOpen() && inner.IsOpen());
  EXPECT_EQ(inner.Commit(), 1);
  EXPECT_EQ(outer.Commit(), 1);
  EXPECT_EQ(m.nodes.GetSize(), 2);
  EXPECT_EQ(m.session.History().Done().size(), 1u);
  // Taken back, the outer one ends those inside it.
  outer.Begin(u"outer");
  inner.Begin(u"inner");
  m.nodes.InsertNU(Node(3));
  EXPECT_EQ(outer.Rollback(), 1);
  EXPECT_FALSE(inner.IsOpen());
  EXPECT_EQ(inner.Commit() + inner.Rollback(), 0);
  EXPECT_EQ(m.nodes.GetSize(), 2);
  EXPECT_EQ(m.Add(3), 1);
}

TEST(SessionNews, AnUnrecordedChangeFreesNothingThatIsStillNamed) {
  for (const bool commit : {true, false}) {
    MeshSession m;
    auto& groups = *m.session.GetPool<DPool<tagTRegion>>(code::kRegion);
    m.Step(u"mesh", [&] {
      for (Key key = 1; key <= 3; ++key) m.nodes.InsertNU(Node(key));
      tagTRegion set;
      set.key = 1;
      set.nodes = {m.nodes.Find(1), m.nodes.Find(2), m.nodes.Find(3)};
      groups.InsertNU(set);
    });
    CTransaction transaction(&m.session);
    transaction.Begin(u"mixed");
    m.nodes.Remove(m.nodes.Find(2));
    m.session.EnableRecording(false);
    m.nodes.InsertNU(Node(50));
    m.session.EnableRecording(true);
    m.nodes.InsertNU(Node(60));
    if (commit) {
      EXPECT_EQ(transaction.Commit(), 1);
    } else {
      EXPECT_EQ(transaction.Rollback(), 1);
    }
    std::vector<Key> keys;
    for (const ITR node : groups.GetAtNU(groups.Find(1)).nodes) keys.push_back(KeyOf(node));
    EXPECT_EQ(keys, (std::vector<Key>{1, 3})) << commit;
    EXPECT_EQ(m.session.Validate(), "");
  }
}

// However a record goes unrecorded within a step, and whatever was recorded before: who referred to
// it never comes to refer to one that takes its place.
TEST(SessionNews, AnUnrecordedRemovalLeavesNoReferenceToAnother) {
  using Edit = std::function<void(MeshSession&)>;
  const Edit nothing = [](MeshSession&) {};
  const Edit befores[] = {nothing, [](MeshSession& m) { m.nodes.InsertNU(Node(60)); },
                          [](MeshSession& m) { m.nodes.Remove(m.nodes.Find(4)); }};
  const Edit removals[] = {[](MeshSession& m) { m.nodes.Remove(m.nodes.Find(2)); },
                           [](MeshSession& m) { m.nodes.RemoveAll(); },
                           [](MeshSession& m) {
                             m.nodes.RemoveWithoutDelete(m.nodes.Find(2));
                             m.nodes.InsertNU(Node(61));
                           }};
  for (const Edit& before : befores) {
    for (const Edit& removal : removals) {
      for (const bool commit : {true, false}) {
        SCOPED_TRACE(testing::Message() << &before - befores << &removal - removals << commit);
        MeshSession m;
        auto& groups = *m.session.GetPool<DPool<tagTRegion>>(code::kRegion);
        m.Step(u"mesh", [&] {
          for (Key key = 1; key <= 4; ++key) m.nodes.InsertNU(Node(key));
          tagTRegion set;
          set.key = 1;
          set.nodes = {m.nodes.Find(1), m.nodes.Find(2), m.nodes.Find(3)};
          groups.InsertNU(set);
        });
        CTransaction transaction(&m.session);
        transaction.Begin(u"mixed");
        before(m);
        m.session.EnableRecording(false);
        removal(m);
        m.session.EnableRecording(true);
        m.nodes.InsertNU(Node(50));
        EXPECT_EQ(commit ? transaction.Commit() : transaction.Rollback(), 1);
        m.nodes.InsertNU(Node(51));
        EXPECT_EQ(m.session.Validate(), "");
        if (&removal == &removals[1]) {
          EXPECT_EQ(m.nodes.Find(2), 0u);
          continue;
        }
        std::vector<Key> keys;
        for (const ITR node : groups.GetAtNU(groups.Find(1)).nodes) keys.push_back(KeyOf(node));
        EXPECT_EQ(keys, (std::vector<Key>{1, 3}));
      }
    }
  }
}

TEST(SessionNews, ARollBackIsHeardWhileWhatItTookBackCanStillBeRead) {
  MeshSession m;
  m.Add(1);
  Listener listener(m.session);
  std::vector<Key> keys;
  listener.act = [&](std::span<const Change> changes) {
    for (const Change& change : changes) keys.push_back(KeyOf(change.item));
  };
  {
    CTransaction outer(&m.session);
    outer.Begin(u"dialog");
    {
      CTransaction inner(&m.session);
      inner.Begin(u"inner");
      m.nodes.InsertNU(Node(8));
    }
    EXPECT_TRUE(listener.heard.empty()) << "the outermost one counts";
    m.nodes.InsertNU(Node(7));
    m.nodes.SetAtNU(m.nodes.Find(1), Node(1, 4));
  }
  EXPECT_EQ(listener.heard, std::vector{SessionEvent::kRolledBack});
  EXPECT_EQ(listener.flags, DPoolBase::kInsertedFlag | DPoolBase::kModifiedFlag);
  EXPECT_EQ(keys, (std::vector<Key>{7, 1}));
  EXPECT_EQ(m.nodes.ChangeFlags(), 0u);
  m.Step(u"nothing", [] {});
  { CTransaction(&m.session).Begin(u"nothing"); }
  EXPECT_EQ(listener.heard.size(), 1u) << "what changed nothing is no news";
  // A listener that throws is heard of from Rollback, not from a destructor.
  listener.act = [](std::span<const Change>) { throw std::runtime_error("listener"); };
  CTransaction transaction(&m.session);
  transaction.Begin(u"thrown");
  m.nodes.InsertNU(Node(9));
  EXPECT_THROW(transaction.Rollback(), std::runtime_error);
  {
    CTransaction ended(&m.session);
    ended.Begin(u"thrown");
    m.nodes.InsertNU(Node(9));
  }
  EXPECT_EQ(m.nodes.GetSize(), 1);
  EXPECT_EQ(m.session.Validate(), "");
}

// ---- stamps -------------------------------------------------------------------------------------

TEST(Stamps, TellTheRecordFromALaterOneInItsPlace) {
  MeshSession m;
  m.Add(1);
  const ITR pos = m.nodes.Find(1);
  const RecordStamp stamp = m.nodes.Stamp(pos);
  EXPECT_TRUE(m.nodes.Check(stamp));
  m.Step(u"modify", [&] { m.nodes.SetAtNU(pos, Node(5, 2)); });
  EXPECT_TRUE(m.nodes.Check(stamp)) << "another key is no other record";
  {
    CTransaction transaction(&m.session);
    transaction.Begin(u"remove it");
    m.nodes.Remove(pos);
    EXPECT_EQ(m.nodes.Check(stamp).removed_by, u"remove it");
    EXPECT_EQ(m.nodes.Check(stamp).step, 0) << "which is open";
    transaction.Commit();
  }
  EXPECT_FALSE(m.nodes.Check(stamp));
  EXPECT_EQ(m.nodes.Check(stamp).removed_by, u"remove it");
  EXPECT_EQ(m.nodes.Check(stamp).step, m.session.History().Done().back().number);
  m.session.Undo();
  EXPECT_TRUE(m.nodes.Check(stamp)) << "it is the same one that came back";
  m.session.Undo();
  m.session.Undo();
  EXPECT_EQ(m.nodes.Check(stamp).removed_by, u"add") << "that which brought it, undone";
  m.Add(2);  // ends the redo, and with it the record
  EXPECT_FALSE(m.nodes.Check(stamp));
  EXPECT_EQ(m.nodes.Check(stamp).step, -1);
  EXPECT_EQ(m.nodes.SetAtNU(pos, Node(9)), m.nodes.Find(2) == pos ? 1 : 0);
  EXPECT_TRUE(KeyedSetBase::ReusesSlots() || m.nodes.Find(2) != pos);
  EXPECT_FALSE(m.nodes.Check(stamp));
}

TEST(Stamps, AreOfNothingForPositionsOfNone) {
  MeshSession m;
  EXPECT_EQ(m.nodes.Stamp(0), RecordStamp{});
  EXPECT_FALSE(m.nodes.Check({}));
  for (Key key = 1; key <= 3; ++key) m.nodes.InsertNU(Node(key));
  std::vector<RecordStamp> stamps;
  for (Key key = 1; key <= 3; ++key) stamps.push_back(m.nodes.Stamp(m.nodes.Find(key)));
  EXPECT_EQ(m.nodes.Stamp(stamps[0].item + 4), RecordStamp{});
  for (const ITR beside : {stamps[0].item + 4, stamps[1].item - 1}) {  // of no record
    EXPECT_EQ(m.nodes.Remove(beside) + m.nodes.SetAtNU(beside, Node(9)), 0);
  }
  m.nodes.RemoveAll();  // unrecorded: the slots, and here their memory, are given back
  for (const RecordStamp& stamp : stamps) {
    EXPECT_FALSE(m.nodes.Check(stamp));
    EXPECT_EQ(m.nodes.Stamp(stamp.item), RecordStamp{});
    EXPECT_EQ(m.nodes.SetAtNU(stamp.item, Node(1)), 0);
    EXPECT_EQ(m.nodes.Remove(stamp.item), 0);
  }
  for (Key key = 1; key <= 3; ++key) m.nodes.InsertNU(Node(key));
  for (const RecordStamp& stamp : stamps) EXPECT_FALSE(m.nodes.Check(stamp));
  MeshSession other;
  stamps = {m.nodes.Stamp(m.nodes.Find(1))};
  EXPECT_EQ(m.session.SwapContents(other.session), 1);
  EXPECT_FALSE(m.nodes.Check(stamps[0]) || other.nodes.Check(stamps[0]));
}

// ---- changes since ------------------------------------------------------------------------------

TEST(ChangesSince, ComeCoalescedPerRecordInBothDirections) {
  MeshSession m;
  const std::int64_t empty = m.session.State();
  EXPECT_EQ(Since(m, empty), "");
  m.Add(1);
  const std::int64_t one = m.session.State();
  m.Step(u"several", [&] {
    m.nodes.InsertNU(Node(2));
    m.nodes.InsertNU(Node(3));
    m.nodes.SetAtNU(m.nodes.Find(1), Node(1, 5));
  });
  const std::int64_t three = m.session.State();
  m.Step(u"more", [&] {
    m.nodes.Remove(m.nodes.Find(3));
    m.nodes.SetAtNU(m.nodes.Find(2), Node(20, 1));
  });
  EXPECT_EQ(Since(m, empty), "+1 +20") << "3 came and went";
  EXPECT_EQ(Since(m, one), "+20 ~1(_POSITION)");
  EXPECT_EQ(Since(m, three), "-3 ~20(_KEY)(_POSITION)");
  EXPECT_EQ(Since(m, m.session.State()), "");
  const std::int64_t last = m.session.State();
  m.session.Undo();
  EXPECT_EQ(Since(m, last), "~2(_KEY)(_POSITION) +3");
  m.session.Undo();
  EXPECT_EQ(Since(m, last), "-2 ~1(_POSITION)");
  EXPECT_EQ(Since(m, one), "");
  m.Step(u"back and forth", [&] { m.nodes.SetAtNU(m.nodes.Find(1), Node(1, 7)); });
  m.Step(u"back and forth", [&] { m.nodes.SetAtNU(m.nodes.Find(1), Node(1, 0)); });
  EXPECT_EQ(Since(m, one), "") << "in the end as before";
  EXPECT_EQ(Since(m, last), "unknown") << "that way has been left";
  m.session.SetHistoryLimits({1, 1 << 20});
  EXPECT_EQ(Since(m, one), "unknown");
  const std::int64_t present = m.session.State();
  m.nodes.InsertNU(Node(100));  // of no step
  EXPECT_EQ(Since(m, present), "unknown");
  const std::int64_t unnamed = m.session.State();
  m.nodes.InsertNU(Node(101));
  EXPECT_EQ(Since(m, unnamed), "unknown") << "heard although there is no history to lose";
  EXPECT_NE(m.session.State(), unnamed);
}

TEST(ChangesSince, KnowTheStepsOfAFileByTheirNumbers) {
  const ScratchFolder folder;
  const std::string path = folder.Path("model.qxm");
  std::int64_t known = 0;
  {
    CQXDocBase document(AddStandardPools);
    ASSERT_TRUE(document.SaveAs(path) && document.KeepSteps());
    auto& session = *document.GetDBSession();
    auto& nodes = *session.GetPool<DPoolNode>(code::kNode);
    for (const Key key : {1, 2}) {
      CTransaction step(&session);
      step.Begin(u"add");
      nodes.InsertNU(Node(key));
      step.Commit();
      if (key == 1) known = session.State();
    }
  }
  MeshSession m;
  ASSERT_TRUE(LoadModel(m.session, path));
  EXPECT_EQ(Since(m, known), "+2");
  // Steps of another file, which count from 1 as well, are other steps.
  const std::string other = folder.Path("other.qxm");
  {
    CQXDocBase document(AddStandardPools);
    ASSERT_TRUE(document.SaveAs(other) && document.KeepSteps());
    auto& session = *document.GetDBSession();
    for (Key key = 1; key <= 4; ++key) {
      CTransaction step(&session);
      step.Begin(u"add");
      session.GetPool<DPoolNode>(code::kNode)->InsertNU(Node(100 + key));
      step.Commit();
    }
  }
  const std::int64_t present = m.session.State();
  ASSERT_TRUE(LoadModel(m.session, other));
  EXPECT_EQ(Since(m, known), "unknown");
  EXPECT_EQ(Since(m, present), "unknown");
  EXPECT_EQ(Since(m, m.session.State()), "");
}

TEST(ChangesSince, FindInTheFileWhatMemoryHasDropped) {
  const ScratchFolder folder;
  CQXDocBase document(AddStandardPools);
  CQXDBSession& session = *document.GetDBSession();
  auto& nodes = *session.GetPool<DPoolNode>(code::kNode);
  ASSERT_TRUE(document.SaveAs(folder.Path("model.qxm")) && document.KeepSteps());
  session.SetHistoryLimits({2, 1 << 20});
  const auto step = [&](auto&& edit) {
    CTransaction transaction(&session);
    transaction.Begin(u"edit");
    edit();
    EXPECT_EQ(transaction.Commit(), 1);
  };
  step([&] { nodes.InsertNU(Node(1)), nodes.InsertNU(Node(2)), nodes.InsertNU(Node(3)); });
  const std::int64_t known = session.State();
  step([&] { nodes.Remove(nodes.Find(1)); });
  step([&] { nodes.SetAtNU(nodes.Find(2), Node(2, 5)); });
  step([&] { nodes.InsertNU(Node(4)); });
  EXPECT_EQ(session.ChangeUnits(Millimetres()), 1);
  const auto since = [&] {
    const auto changes = ChangesSince(session, known);
    if (!changes) return std::string("unknown");
    std::string text = changes->units ? "units" : "";
    for (const RecordChange& change : changes->records) {
      EXPECT_EQ(change.item, nodes.Find(change.key));
      text += std::string(" ") + "+-~"[change.operation - tagTRNotify::kInserted] +
              std::to_string(change.key);
    }
    return text;
  };
  EXPECT_EQ(since(), "units -1 ~2 +4");
  EXPECT_EQ(session.Undo(), 1);
  EXPECT_EQ(since(), " -1 ~2 +4");
  session.EnableRecording(false);
  nodes.InsertNU(Node(5));  // of no step: the file has not come along
  EXPECT_EQ(since(), "unknown");
}

// ---- what must be true --------------------------------------------------------------------------

TEST(Validate, NamesWhatABrokenModelBreaks) {
  const auto fault = [](auto&& break_it) {
    MeshSession m;
    m.Step(u"mesh", [&] {
      for (Key key = 1; key <= 3; ++key) m.nodes.InsertNU(Node(key));
      tagTElem element;
      element.key = 4;
      element.nodes = {m.nodes.Find(1), m.nodes.Find(2)};
      m.elements.InsertNU(element);
    });
    EXPECT_EQ(m.session.Validate(), "");
    break_it(m);
    return m.session.Validate();
  };
  EXPECT_EQ(fault([](MeshSession& m) { m.nodes.SetAtNU(m.nodes.Find(3), Node(2)); }),
            "_NODE: invariant 6 at key 2: another record has the key");
  EXPECT_EQ(fault([](MeshSession& m) { m.nodes.Remove(m.nodes.Find(2)); }),
            "_ELEM: invariant 8 at key 4: _NODE_IDS refers to what is no record of its pool");
  EXPECT_EQ(fault([](MeshSession& m) {
              auto& nodes = m.elements.GetAtNU(m.elements.Find(4)).nodes;
              const_cast<ITR&>(nodes.data()[1]) = m.elements.Find(4);
            }),
            "_ELEM: invariant 8 at key 4: _NODE_IDS refers to what is no record of its pool");
  EXPECT_EQ(fault([](MeshSession& m) {
              UnitSystem units;
              units[UnitBase::kMass] = 4711;
              m.session.Units().SetCurrent(units);
            }),
            "invariant 9: a unit does not exist");
}

}  // namespace
}  // namespace qx
