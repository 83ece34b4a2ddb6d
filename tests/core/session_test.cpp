#include <algorithm>
#include <gtest/gtest.h>
#include <map>
#include <rapidcheck/gtest.h>

#include "qx_db/qx_db.h"

#include "tests/core/mesh_session.h"

namespace qx {
namespace {

class Listener : public ISessionListener {
 public:
  void OnSessionEvent(CQXDBSession&, SessionEvent event, std::u16string_view name,
                      std::span<const Change> changes) override {
    heard.push_back(std::to_string(static_cast<int>(event)) + Utf8(name) +
                    std::to_string(changes.size()));
  }
  std::vector<std::string> heard;
};

TEST(Session, DeadNodesTakeTheirElementsAndTheElementsLeaveTheirSets) {
  MeshSession m;
  m.Step(u"mesh", [&] { m.AddChain(1, 5); });
  const std::uint64_t whole = m.session.StateHash();
  EXPECT_EQ(m.Step(u"delete", [&] { m.nodes.Remove(m.nodes.Find(3)); }), 1);
  EXPECT_EQ(m.elements.GetSize(), 2);
  EXPECT_EQ(m.sets.GetAtNU(m.sets.Find(1)).elements,
            (TArray<ITR>{m.elements.Find(2), m.elements.Find(5)}));
  const std::uint64_t cut = m.session.StateHash();
  EXPECT_EQ(m.session.Undo(), 1);
  EXPECT_EQ(m.session.StateHash(), whole);
  EXPECT_EQ(m.session.Redo(), 1);
  EXPECT_EQ(m.session.StateHash(), cut);
  EXPECT_EQ(m.session.Validate(), "");
}

TEST(Session, RecordedChangesAreNoticedAndMarked) {
  MeshSession m;
  CTransaction transaction(&m.session);
  m.nodes.RemoveAll();
  transaction.Begin(u"marks");
  m.nodes.RemoveAll();
  EXPECT_EQ(m.nodes.ChangeFlags(), 0u) << "an empty pool has nothing to remove";
  EXPECT_EQ(m.nodes.InsertNU(Node(-1)), 0u);
  EXPECT_EQ(m.nodes.ChangeFlags(), 0u);
  const ITR pos = m.nodes.InsertNU(Node(1, 4));
  EXPECT_EQ(m.nodes.ChangeFlags(), 1u);
  EXPECT_EQ(m.nodes.SetAtNU(pos, Node(-3)), 0) << "refused, and still reported";
  EXPECT_EQ(m.nodes.ChangeFlags(), 5u);
  EXPECT_TRUE(KeyedSetBase::StateOf(pos) & KeyedSetBase::kModifiedBit);
  m.nodes.Remove(pos);
  EXPECT_EQ(m.nodes.ChangeFlags(), 7u);
  EXPECT_TRUE(KeyedSetBase::IsRemoved(pos));
  EXPECT_EQ(double{m.nodes.GetAtNU(pos).position.x}, 4) << "a removed record can still be read";
  EXPECT_EQ(m.session.History().Current().changes.size(), 3u);
  EXPECT_EQ(transaction.Commit(), 1);
  EXPECT_EQ(m.nodes.ChangeFlags(), 0u);
}

TEST(Session, NestedTransactionsJoinAndRollBackTheirPart) {
  MeshSession m;
  {
    CTransaction outer(&m.session);
    outer.Begin(u"outer");
    {
      CTransaction inner(&m.session);
      inner.Begin(u"inner");
      m.nodes.InsertNU(Node(1));
    }  // not committed
    EXPECT_EQ(m.nodes.GetSize(), 0);
    m.nodes.InsertNU(Node(2));
    {
      CTransaction inner(&m.session);
      inner.Begin(u"inner");
      m.nodes.SetAtNU(m.nodes.Find(2), Node(3));
      EXPECT_EQ(inner.Commit(), 1);
    }
    EXPECT_FALSE(m.session.CanUndo());
    EXPECT_EQ(outer.Begin(u"again"), 0);
    EXPECT_EQ(outer.Commit(), 1);
  }
  EXPECT_EQ(m.session.UndoName(), u"outer");
  EXPECT_NE(m.nodes.Find(3), 0u);
  m.session.Undo();
  EXPECT_EQ(m.nodes.GetSize(), 0);
  EXPECT_EQ(m.session.Undo(), 0);
}

TEST(Session, HistoryIsBoundedByStepsAndBytes) {
  MeshSession m;
  m.session.SetHistoryLimits({3, 1 << 20});
  for (Key key = 1; key <= 10; ++key) m.Step(u"add", [&] { m.nodes.InsertNU(Node(key)); });
  for (int i = 0; i < 3; ++i) EXPECT_EQ(m.session.Undo(), 1);
  EXPECT_EQ(m.session.Undo(), 0);
  EXPECT_EQ(m.nodes.GetSize(), 7);
  m.session.SetHistoryLimits({2, 1 << 20});
  EXPECT_EQ(m.session.Redo() + m.session.Redo(), 2);
  EXPECT_EQ(m.session.Redo(), 0) << "the step farthest from the present went";
  EXPECT_EQ(m.nodes.GetSize(), 9);
  const std::size_t footprint = m.nodes.Set().Footprint();
  // A byte bound too small for a single step keeps that one, and frees what was removed before.
  m.session.SetHistoryLimits({1000, 100});
  for (int round = 0; round < 200; ++round) {
    m.Step(u"add", [&] {
      for (Key k = 100; k < 200; ++k) m.nodes.InsertNU(Node(k));
    });
    m.Step(u"del", [&] {
      for (Key k = 100; k < 200; ++k) m.nodes.Remove(m.nodes.Find(k));
    });
  }
  EXPECT_EQ(m.session.Undo(), 1) << "the last step can always be undone";
  EXPECT_EQ(m.session.Undo(), 0);
  EXPECT_EQ(m.session.Redo(), 1);
  if (KeyedSetBase::ReusesSlots()) {
    EXPECT_LE(m.nodes.Set().Footprint(), footprint + (64 << 10));
  }
}

TEST(Session, HistoryCountsWhatItAloneKeeps) {
  MeshSession m;
  const auto held = [&] { return m.session.History().Footprint(); };
  m.Step(u"add", [&] { m.AddChain(1, 500); });
  const std::size_t added = held();
  EXPECT_EQ(m.session.Undo(), 1);
  EXPECT_GE(held(), added + 500 * (sizeof(tagTNode) + sizeof(tagTElem)));
  EXPECT_EQ(m.session.Redo(), 1);
  EXPECT_EQ(held(), added);
  m.Step(u"delete", [&] { m.nodes.Remove(m.nodes.Find(250)); });
  const std::size_t deleted = held();
  m.session.Undo();
  EXPECT_EQ(held(), deleted - 2 * (sizeof(tagTElem) + 36) - 4 * sizeof(ITR) - sizeof(tagTNode) - 36)
      << "the node and its two elements are the model's again";
  m.session.Redo();
  EXPECT_EQ(held(), deleted);
  {
    // A record that changes its size and goes, and comes back with the inner transaction.
    CTransaction outer(&m.session);
    outer.Begin(u"outer");
    m.nodes.InsertNU(Node(1000));
    CTransaction inner(&m.session);
    inner.Begin(u"inner");
    tagTActiveElemSet empty;
    empty.key = 1;
    m.sets.SetAtNU(m.sets.Find(1), empty);
    m.sets.Remove(m.sets.Find(1));
    inner.Rollback();
    EXPECT_EQ(m.session.History().Current().held, 0u);
    outer.Commit();
  }
  EXPECT_EQ(m.session.History().Done().size(), 3u);
  m.session.Undo();
  m.session.Undo();
  m.session.SetHistoryLimits({1000, 100});
  EXPECT_EQ(m.session.History().Done().size(), 1u);
  EXPECT_EQ(m.session.History().Undone().size(), 1u);
  m.session.SetHistoryLimits({0, 100});
  EXPECT_FALSE(m.session.CanUndo() || m.session.CanRedo());
}

TEST(Session, WhatAStepDoesUnrecordedIsFinal) {
  MeshSession m;
  const auto insert = [&](Key key, bool recorded = true) {
    m.session.EnableRecording(recorded);
    m.nodes.InsertNU(Node(key));
    m.session.EnableRecording(true);
  };
  const auto keys = [&] {
    TArray<Key> out;
    m.nodes.GetKeyList(out, 1);
    return std::vector<Key>(out.begin(), out.end());
  };
  insert(1);
  {
    CTransaction outer(&m.session);
    outer.Begin(u"outer");
    insert(2);
    insert(3);
    {
      CTransaction inner(&m.session);
      inner.Begin(u"inner");
      insert(4);
      insert(5, false);
      insert(6);
    }
    EXPECT_EQ(keys(), (std::vector<Key>{1, 2, 3, 4, 5})) << "of the inner one, what is not final";
    insert(7);
    EXPECT_EQ(outer.Commit(), 1);
  }
  EXPECT_EQ(m.session.UndoName(), u"outer");
  EXPECT_EQ(m.session.Undo(), 1);
  EXPECT_EQ(keys(), (std::vector<Key>{1, 2, 3, 4, 5}));
  EXPECT_EQ(m.session.Undo(), 0);
  EXPECT_EQ(m.session.Redo(), 1);
  {
    CTransaction lost(&m.session);
    lost.Begin(u"lost");
    m.nodes.Remove(m.nodes.Find(1));
    insert(8, false);
    insert(9);
    const ITR last = m.nodes.Find(9);
    m.session.EnableRecording(false);
    EXPECT_EQ(m.nodes.Remove(last), 1) << "freed: the step may not name it any more";
    m.session.EnableRecording(true);
    m.nodes.Remove(m.nodes.Find(2));
  }
  EXPECT_EQ(keys(), (std::vector<Key>{2, 3, 4, 5, 7, 8}));
  EXPECT_EQ(m.session.Validate(), "");
}

TEST(Session, WhatWasRemovedIsLeftAlone) {
  for (const bool recorded : {true, false}) {
    MeshSession m;
    m.session.EnableRecording(recorded);
    m.Step(u"add", [&] { m.AddChain(1, 3); });
    const ITR stale[] = {m.sets.Find(1), m.elements.Find(3), 0};
    m.Step(u"remove", [&] {
      m.sets.Remove(stale[0]);
      m.elements.Remove(stale[1]);
    });
    m.Step(u"again", [&] {
      tagTActiveElemSet set;
      set.key = 7;
      tagTElem element;
      element.key = 7;
      ITR moving = stale[0];
      EXPECT_EQ(m.sets.SetAtNU(stale[0], set) + m.elements.SetAtNU(stale[1], element), 0);
      EXPECT_EQ(m.sets.Remove(stale[0]) + m.elements.Remove(stale[1]), 0);
      EXPECT_EQ(m.sets.RemoveNext(moving), 0);
      EXPECT_EQ(m.sets.SetAtNU(stale[2], set) + m.sets.Remove(stale[2]), 0);
    });
    EXPECT_EQ(m.session.History().Done().size(), recorded ? 2u : 0u);
    EXPECT_EQ(m.sets.Remove(0), 0);
    EXPECT_EQ(m.session.CanUndo(), recorded) << "what changes nothing ends no history";
    EXPECT_EQ(m.session.Validate(), "");
  }
}

TEST(Session, AnUnrecordedEditEndsTheHistory) {
  MeshSession m;
  m.Step(u"add", [&] { m.nodes.InsertNU(Node(1)); });
  m.Step(u"del", [&] { m.nodes.Remove(m.nodes.Find(1)); });
  EXPECT_TRUE(m.session.CanUndo());
  m.nodes.InsertNU(Node(2));
  EXPECT_FALSE(m.session.CanUndo());
  m.session.EnableRecording(false);
  EXPECT_EQ(m.Step(u"bulk", [&] { m.nodes.InsertNU(Node(3)); }), 1);
  EXPECT_FALSE(m.session.CanUndo());
  EXPECT_EQ(m.nodes.GetSize(), 2);
}

TEST(Session, AStepThatChangesNothingLeavesNoTrace) {
  MeshSession m;
  m.Step(u"add", [&] { m.nodes.InsertNU(Node(1)); });
  m.session.Undo();
  EXPECT_EQ(m.Step(u"nothing", [] {}), 1);
  EXPECT_TRUE(m.session.CanRedo());
  m.Step(u"other", [&] { m.nodes.InsertNU(Node(2)); });
  EXPECT_FALSE(m.session.CanRedo());
}

TEST(Session, ListenersAndTheHookHearOnceAStep) {
  static int hooked = 0;
  static std::uint32_t flags = 0;
  MeshSession m;
  Listener listener;
  m.session.AddListener(&listener);
  const StepHook former = SetStepHook([](CQXDBSession& session) {
    ++hooked;
    flags = session.GetDataPool(code::kNode)->ChangeFlags();
  });
  m.Step(u"a", [&] {
    m.nodes.InsertNU(Node(1));
    m.nodes.InsertNU(Node(2));
  });
  EXPECT_EQ(flags, DPoolBase::kInsertedFlag);
  m.session.Undo();
  m.session.Redo();
  m.Step(u"nothing", [] {});
  SetStepHook(former);
  m.session.RemoveListener(&listener);
  m.Step(u"b", [&] { m.nodes.InsertNU(Node(3)); });
  EXPECT_EQ(listener.heard, (std::vector<std::string>{"0a2", "1a2", "2a2"}));
  EXPECT_EQ(hooked, 3);
}

TEST(Session, ListenersMayThrowOrLeaveAndTheStepStays) {
  struct Unruly : ISessionListener {
    void OnSessionEvent(CQXDBSession& session, SessionEvent, std::u16string_view,
                        std::span<const Change> changes) override {
      ++heard;
      if (leaving) session.RemoveListener(std::exchange(leaving, nullptr));
      CTransaction transaction(&session);
      EXPECT_EQ(transaction.Begin(u"again"), 0);
      EXPECT_EQ(session.Undo() + session.Redo(), 0);
      session.ForgetHistory();
      for (const Change& change : changes) KeyOf(change.item);
      if (fail) throw std::runtime_error("listener");
    }
    int heard = 0;
    bool fail = false;
    ISessionListener* leaving = nullptr;
  } first, second;
  MeshSession m;
  m.session.AddListener(&first);
  m.session.AddListener(&second);
  first.leaving = &second;
  const auto step = [&](Key key) { return m.Step(u"add", [&] { m.nodes.InsertNU(Node(key)); }); };
  EXPECT_EQ(step(1), 1);
  EXPECT_EQ(second.heard, 0) << "it was gone before its turn";
  first.fail = true;
  EXPECT_THROW(step(2), std::runtime_error);
  EXPECT_THROW(m.session.Undo(), std::runtime_error);
  EXPECT_THROW(m.session.Redo(), std::runtime_error);
  EXPECT_EQ(m.nodes.GetSize(), 2) << "each step was done all the same";
  EXPECT_EQ(m.nodes.ChangeFlags(), 0u);
  first.fail = false;
  EXPECT_EQ(m.session.Undo(), 1);
  EXPECT_EQ(m.session.Redo(), 1);
  EXPECT_EQ(step(4), 1);
  EXPECT_EQ(m.session.Undo(), 1);
  EXPECT_EQ(m.session.Validate(), "");
}

TEST(Session, CommandsAreUndoableSteps) {
  MeshSession m;
  CQXCommandObj::Register(u"AddNode", [&](CQXDBSession&, const std::vector<CommandParam>& params) {
    m.nodes.InsertNU(Node(std::get<std::int32_t>(params.at(0))));
    return std::get<double>(params.at(1)) > 0 ? 1 : 0;
  });
  const auto run = [&](const char16_t* name, Key key, double verdict) {
    CQXCommandObj command(&m.session, name);
    command.AddParam(key);
    command.AddParam(verdict);
    return command.Execute();
  };
  EXPECT_EQ(run(u"AddNode", 1, 1.0), 1);
  EXPECT_EQ(run(u"AddNode", 2, -1.0), 0);
  EXPECT_EQ(run(u"Unknown", 3, 1.0), 0);
  EXPECT_EQ(m.nodes.GetSize(), 1);
  EXPECT_EQ(m.session.UndoName(), u"AddNode");
}

TEST(Session, DeletorsDeleteWithConsequences) {
  MeshSession m;
  m.Step(u"mesh", [&] { m.AddChain(1, 4); });
  EXPECT_EQ(m.nodes.GetDeletor()->Delete({m.nodes.Find(2), 0, m.nodes.Find(2)}), 1);
  EXPECT_EQ(m.nodes.GetSize(), 3);
  EXPECT_EQ(m.elements.GetSize(), 1);
  EXPECT_EQ(m.session.Undo(), 1);
  EXPECT_EQ(m.elements.GetSize(), 3);
}

/// A pool that refuses every edit while it is told to.
class Stubborn : public DPoolPlain<tagTESid> {
 public:
  explicit Stubborn(CQXDBSession* session) : DPoolPlain(session) {}
  int ProcessRelation() override { return refuse ? 0 : 1; }
  bool refuse = false;
};

TEST(Session, APoolThatRefusesRollsEverythingBack) {
  CQXDBSession session;
  session.AddPool(std::make_unique<DPoolNode>(&session));
  session.AddPool(std::make_unique<Stubborn>(&session));
  auto& nodes = *session.GetPool<DPoolNode>(code::kNode);
  session.GetPool<Stubborn>(code::kESid)->refuse = true;
  CTransaction transaction(&session);
  transaction.Begin(u"refused");
  nodes.InsertNU(Node(1));
  EXPECT_EQ(transaction.Commit(), 0);
  EXPECT_FALSE(transaction.IsOpen());
  EXPECT_EQ(nodes.GetSize(), 0);
  EXPECT_FALSE(session.CanUndo());
}

// ---- random sessions against a naive model
// ---------------------------------------------------------

using NaiveModel = std::vector<std::pair<Key, double>>;

NaiveModel Contents(DPoolNode& nodes) {
  NaiveModel model;
  for (ITR pos = nodes.GetHeadPosition(); pos;) {
    const tagTNode& node = nodes.GetNextNU(pos);
    model.emplace_back(node.key, double{node.position.x});
  }
  return model;
}

/// One random edit of nodes, on the pool and on the model.
void RandomEdit(DPoolNode& nodes, NaiveModel& model) {
  const Key key = *rc::gen::inRange<Key>(0, 40) * (*rc::gen::arbitrary<bool>() ? 10000 : 1);
  const double x = *rc::gen::inRange(0, 1000);
  const ITR pos = nodes.Find(key);
  const auto known =
      std::find_if(model.begin(), model.end(), [&](auto& r) { return r.first == key; });
  RC_ASSERT((pos != 0) == (known != model.end()));
  switch (*rc::gen::inRange(0, 8)) {
    case 0:
    case 1:
    case 2:
      if (nodes.InsertNU(Node(key, x))) model.emplace_back(key, x);
      break;
    case 3:
    case 4:
      if (pos && nodes.SetAtNU(pos, Node(key, x))) known->second = x;
      break;
    case 5: {
      const Key other = key + 7;
      if (!pos || nodes.Find(other)) break;
      nodes.SetAtNU(pos, Node(other, x));
      *known = {other, x};
      break;
    }
    case 6:
      if (pos && nodes.Remove(pos)) model.erase(known);
      break;
    default:
      if (*rc::gen::inRange(0, 10) == 0) {
        nodes.RemoveAll();
        model.clear();
      }
  }
}

RC_GTEST_PROP(Session, UndoAndRedoRetraceEveryState, ()) {
  MeshSession m;
  NaiveModel model;
  std::vector<NaiveModel> states{model};
  std::vector<std::uint64_t> hashes{m.session.StateHash()};
  const int steps = *rc::gen::inRange(1, 12);
  for (int step = 0; step < steps; ++step) {
    const bool commit = *rc::gen::inRange(0, 4) != 0;
    CTransaction transaction(&m.session);
    transaction.Begin(u"step");
    const int edits = *rc::gen::inRange(0, 10);
    for (int i = 0; i < edits; ++i) RandomEdit(m.nodes, model);
    const bool changed = !m.session.History().Current().changes.empty();
    if (!commit) {
      transaction.Rollback();
      model = states.back();
    } else {
      RC_ASSERT(transaction.Commit() == 1);
      if (changed) {
        states.push_back(model);
        hashes.push_back(m.session.StateHash());
      }
    }
    RC_ASSERT(m.session.Validate() == "");
    RC_ASSERT(Contents(m.nodes) == states.back());
    RC_ASSERT(m.session.StateHash() == hashes.back());
    if (*rc::gen::inRange(0, 3) != 0) continue;
    // Back a random way and either forth again or on from there.
    const auto back = *rc::gen::inRange<std::size_t>(0, states.size());
    for (std::size_t i = 0; i < back; ++i) {
      RC_ASSERT(m.session.Undo() == 1);
      const std::size_t at = states.size() - 2 - i;
      RC_ASSERT(Contents(m.nodes) == states[at]);
      RC_ASSERT(m.session.StateHash() == hashes[at]);
      RC_ASSERT(m.session.Validate() == "");
    }
    if (*rc::gen::arbitrary<bool>()) {
      for (std::size_t i = 0; i < back; ++i) RC_ASSERT(m.session.Redo() == 1);
      RC_ASSERT(m.session.StateHash() == hashes.back());
    } else {
      states.resize(states.size() - back);
      hashes.resize(states.size());
      model = states.back();
    }
  }
}

TEST(Session, UndoAfterASortPutsRecordsBackAtTheEndByKey) {
  MeshSession m;
  m.Step(u"add", [&] {
    for (const Key k : {5, 3, 9, 1}) m.nodes.InsertNU(Node(k));
  });
  m.Step(u"del", [&] {
    for (const Key k : {9, 5}) m.nodes.Remove(m.nodes.Find(k));
  });
  m.nodes.SortAsc();
  m.session.Undo();
  EXPECT_EQ(Contents(m.nodes), (NaiveModel{{1, 0}, {3, 0}, {5, 0}, {9, 0}}));
  m.session.Redo();
  m.session.Undo();
  EXPECT_EQ(Contents(m.nodes), (NaiveModel{{1, 0}, {3, 0}, {5, 0}, {9, 0}}));
  EXPECT_EQ(m.session.Validate(), "");
  m.session.Undo();
  EXPECT_EQ(m.nodes.GetSize(), 0);
  m.session.Redo();
  EXPECT_EQ(m.nodes.GetSize(), 4);
  EXPECT_EQ(m.session.Validate(), "");
  // Sorted within a step, between its removals and insertions.
  m.Step(u"sort", [&] {
    for (const Key k : {20, 7}) m.nodes.InsertNU(Node(k));
    for (const Key k : {20, 9, 5}) m.nodes.Remove(m.nodes.Find(k));
    m.nodes.SortAsc();
    m.nodes.InsertNU(Node(2));
  });
  for (int round = 0; round < 2; ++round) {
    EXPECT_EQ(m.session.Undo(), 1);
    EXPECT_EQ(Contents(m.nodes), (NaiveModel{{1, 0}, {3, 0}, {5, 0}, {9, 0}}));
    EXPECT_EQ(m.session.Validate(), "");
    EXPECT_EQ(m.session.Redo(), 1);
    EXPECT_EQ(Contents(m.nodes).size(), 4u);
    EXPECT_EQ(m.session.Validate(), "");
  }
}

TEST(Session, LargeStepsAreTakenBackAtOnceAndExactly) {
  MeshSession m;
  m.Step(u"few", [&] {
    for (Key k = 1; k <= 100; ++k) m.nodes.InsertNU(Node(k * 3));
  });
  const std::uint64_t few = m.session.StateHash();
  m.Step(u"many", [&] {
    for (Key k = 1; k <= 50000; ++k) m.nodes.InsertNU(Node(1000000 - k));
  });
  const std::uint64_t many = m.session.StateHash();
  m.Step(u"none", [&] { m.nodes.RemoveAll(); });
  EXPECT_EQ(m.nodes.GetNewKey(), 1000000);
  for (int round = 0; round < 2; ++round) {
    m.session.Undo();
    EXPECT_EQ(m.session.StateHash(), many);
    m.session.Undo();
    EXPECT_EQ(m.session.StateHash(), few);
    EXPECT_EQ(m.session.Validate(), "");
    m.session.Redo();
    EXPECT_EQ(m.session.StateHash(), many);
    EXPECT_EQ(m.session.Validate(), "");
    m.session.Redo();
    EXPECT_EQ(m.nodes.GetSize(), 0);
  }
}

}  // namespace
}  // namespace qx
