// Mesh sets with rules: their members beside the selection of the same text, whatever is done to
// the model; what a rule holds, and what it may name.

#include "qx_db/model/set_rules.h"

#include <gtest/gtest.h>
#include <random>

#include "qx_db/core/document.h"
#include "qx_db/core/transaction.h"
#include "qx_db/gateway/document_exchange.h"
#include "qx_db/lib/message.h"
#include "qx_db/select/selection.h"

#include "host/session.h"
#include "tests/mesh/mesh_builder.h"
#include "tests/scratch_folder.h"

namespace qx {
namespace {

using testing::Model;

struct Messages : IMessageSink {
  Messages() { SetMessageSink(this); }
  ~Messages() override { SetMessageSink(nullptr); }
  void Show(const Message& message) override { last = message; }
  Message last;
};

/// A block of hexahedra in one pool order, with sets to give rules to.
class SetRules : public ::testing::Test {
 protected:
  SetRules() {
    session.EnableRecording(false);
    model.Block(4, 3, 3);
    session.EnableRecording(true);
  }

  ITR Add(const char16_t* name, Key parent = 0) {
    ITR set = 0;
    EXPECT_TRUE(Sets().TR_Add(name, parent, set));
    return set;
  }
  ITR AddRule(const char16_t* name, const std::string& rule) {
    const ITR set = Add(name);
    const Outcome given = Give(set, rule);
    EXPECT_TRUE(given) << given.Line();
    return set;
  }
  Outcome Give(ITR set, const std::string& rule) {
    CTransaction step(&session);
    step.Begin(u"Rule");
    if (Outcome given = SetRule(session, set, rule); !given) return given;
    return step.Commit() ? Outcome() : Outcome(Failure{"", "step", messages.last.key, ""});
  }
  template <class Work>
  bool Do(Work&& work) {
    CTransaction step(&session);
    step.Begin(u"Step");
    work();
    return step.Commit() != 0;
  }
  DPoolMset& Sets() { return Pool<tagTMset>(session); }

  static std::vector<ITR> Vector(const TArray<ITR>& items) { return {items.begin(), items.end()}; }

  Messages messages;
  Model model;
  CQXDBSession& session = model.session;
};

/// Every kind of condition: of records, of places, of measures, of neighbours, of other sets.
constexpr const char* kRules[] = {
    "hex8",
    "nodes keys 1:40",
    "property none and keys 1:20",
    "x >= 2 and z < 2",
    "nodes sphere 2,1,1 1.5",
    "box 0,0,0 2,2,2 or keys 30-",
    "scaled-jacobian < 0.9",
    "volume < 0.95",
    "not (volume < 0.95)",
    "surface",
    "nodes surface and x = 0",
    "connected to (keys 1)",
    "within 1 rings of (x < 1)",
    "elements touching (nodes x = 4)",
    "nodes unused",
    "set list",
    "set list or x > 3",
    "set places and not set list",
    "orphan",
};

TEST_F(SetRules, MembersAreWhatTheTextSelectsWhateverWasDone) {
  const ITR list = Add(u"list");
  AddRule(u"places", "y < 1.5");
  std::vector<std::pair<ITR, std::string>> sets;
  for (const char* const rule : kRules) {
    const std::string name = "by " + std::string(rule);
    sets.emplace_back(AddRule(Utf16(name).c_str(), rule), rule);
  }
  const auto check = [&](const CQXDBSession& now, const std::string& what) {
    const auto& pool = Pool<tagTMset>(now);
    for (ITR set = pool.GetHeadPosition(); set; pool.Next(set)) {
      const std::string rule = RuleOf(now, set);
      EXPECT_TRUE(pool.GetAtNU(set).nodes.IsEmpty() || rule.empty()) << rule;
      EXPECT_TRUE(pool.GetAtNU(set).elements.IsEmpty() || rule.empty()) << rule;
      if (rule.empty()) continue;
      const auto selected = Select(now, rule);
      ASSERT_TRUE(selected) << selected.AsOutcome().Line();
      const SetMembers members = MembersOf(now, set);
      ASSERT_FALSE(members.Fault()) << members.Fault()->what;
      const bool of_nodes = selected->kind == SelectKind::kNodes;
      ASSERT_EQ(Vector(of_nodes ? members.Nodes() : members.Elements()), Vector(selected->items))
          << rule << " after " << what;
    }
  };
  check(session, "nothing");
  const ScratchFolder folder;
  std::mt19937 random(7);
  const auto pick = [&](DPoolBase& pool) {
    TArray<ITR> all;
    pool.Set().GetItrList(all);
    return all.IsEmpty() ? ITR{0} : all[static_cast<int>(random() % all.size())];
  };
  auto& nodes = Pool<tagTNode>(session);
  auto& elements = Pool<tagTElem>(session);
  for (int round = 0; round < 120; ++round) {
    const unsigned what = random() % 8;
    const auto edit = [&] {
      if (what == 0) {
        const ITR at = pick(nodes);
        tagTNode node = nodes.GetAtNU(at);
        const double x = node.position.x, y = node.position.y;
        node.position = {x + 0.3, y - 0.2, +node.position.z};
        nodes.SetAtNU(at, node);
      } else if (what == 1) {
        elements.Remove(pick(elements));
      } else if (what == 2) {
        tagTElem element = elements.GetAtNU(pick(elements));
        element.key = 0;
        elements.InsertNU(element);
      } else if (what == 3) {
        TArray<ITR> none, some{pick(elements), pick(elements)};
        if (some[0] && some[1]) Sets().Private_Add_NodeElem(list, none, some);
      } else if (what == 4 && random() % 4 == 0) {
        nodes.Remove(pick(nodes));
      } else if (what == 4) {
        tagTNode node;
        node.position = {round % 5 + 0.1, 0.2, 0.3};
        nodes.InsertNU(node);
      } else if (what == 5) {
        const ITR at = pick(elements);
        tagTElem element = elements.GetAtNU(at);
        element.nodes[0] = pick(nodes);
        elements.SetAtNU(at, element);
      }
      if (round % 7 == 0) check(session, "an edit in a step");
    };
    if (what < 6) {
      ASSERT_TRUE(Do(edit));
    } else if (what == 6) {
      session.Undo();
    } else {
      session.Redo();
    }
    check(session, "round " + std::to_string(round));
    if (HasFatalFailure()) return;
  }
  ASSERT_TRUE(SaveModel(session, folder.Path("rules.qxm")));
  const auto again = ReadModel(folder.Path("rules.qxm"), session.Setup());
  ASSERT_TRUE(again);
  EXPECT_EQ((*again)->StateHash(), session.StateHash());
  check(**again, "saving");
  check(*TakeSnapshot(session), "a snapshot");
  while (session.Undo()) {
  }
  check(session, "undoing everything");
}

TEST_F(SetRules, AskOnlyWhatAStepTouchedWhereOneAnswersForItself) {
  const struct {
    const char* rule;
    bool follows;
  } cases[] = {{"x <= 2 and hex8", true},
               {"nodes sphere 0,0,0 2", true},
               {"set list or x < 1", true},
               {"property none and not keys 3", true},
               {"connected to (keys 1)", false},
               {"surface", false},
               {"volume < 2", false},
               {"set by_rule", false}};
  Add(u"list");
  AddRule(u"by_rule", "surface");
  const auto& rules = Pool<tagTSetRule>(session);
  for (const auto& each : cases) {
    const ITR set = AddRule(u"asked", each.rule);
    MembersOf(session, set);
    auto& nodes = Pool<tagTNode>(session);
    ASSERT_TRUE(Do([&] {
      tagTNode node = nodes.GetAtNU(model.nodes[0]);
      const double x = node.position.x;
      node.position.x = x + 0.25;
      nodes.SetAtNU(model.nodes[0], node);
    }));
    const std::uint64_t before = rules.Asked();
    MembersOf(session, set);
    const std::uint64_t asked = rules.Asked() - before;
    EXPECT_EQ(asked < 8, each.follows) << each.rule << ": " << asked;
    const std::uint64_t after = rules.Asked();
    MembersOf(session, set);
    EXPECT_EQ(rules.Asked(), after);  // nothing has changed
    ASSERT_TRUE(Sets().TR_Del(TArray<ITR>{set}));
  }
}

TEST_F(SetRules, HoldNothingInTheSenseOfDeletion) {
  const ITR set = AddRule(u"all", "all");
  const ITR list = Add(u"list");
  ASSERT_TRUE(Do([&] { Sets().Private_Add_NodeElem(list, {}, {model.elements[0]}); }));
  const int elements = Pool<tagTElem>(session).GetSize();
  ASSERT_TRUE(Sets().TR_Del_EmptyMset());
  EXPECT_TRUE(IsLive(set));  // it lists nothing, and is no empty set
  ASSERT_TRUE(Sets().TR_Del(TArray<ITR>{list}));
  EXPECT_EQ(Pool<tagTElem>(session).GetSize(), elements - 1);  // no rule kept it
  ASSERT_TRUE(Sets().TR_Del(TArray<ITR>{set}));
  EXPECT_EQ(Pool<tagTElem>(session).GetSize(), elements - 1);
  EXPECT_EQ(Pool<tagTSetRule>(session).GetSize(), 0);  // went with its set
  session.Undo();
  EXPECT_EQ(RuleOf(session, set), "all");
  EXPECT_EQ(MembersOf(session, set).Elements().GetSize(), elements - 1);
}

TEST_F(SetRules, ConvertIntoListsAndBack) {
  const ITR set = AddRule(u"part", "x <= 2");
  const SetMembers members = MembersOf(session, set);
  const auto elements = Vector(members.Elements()), nodes = Vector(members.Nodes());
  ASSERT_EQ(elements.size(), 18u);
  ASSERT_EQ(nodes.size(), 48u);  // those of the elements come along
  ASSERT_TRUE(Do([&] { EXPECT_TRUE(MakePlain(session, set)); }));
  EXPECT_EQ(RuleOf(session, set), "");
  EXPECT_EQ(Vector(Sets().GetAtNU(set).elements), elements);
  EXPECT_EQ(Vector(Sets().GetAtNU(set).nodes), nodes);
  ASSERT_TRUE(session.Undo());
  EXPECT_TRUE(Sets().GetAtNU(set).elements.IsEmpty());
  // Besides a list: what is listed comes first, and nothing twice.
  ASSERT_TRUE(Do([&] {
    Sets().Private_Add_NodeElem(set, {}, {model.elements[3], model.elements[0]});
  }));
  const auto both = Vector(MembersOf(session, set).Elements());
  ASSERT_EQ(both.size(), 19u);
  EXPECT_EQ(both[0], model.elements[3]);
  EXPECT_EQ(both[1], model.elements[0]);
}

TEST_F(SetRules, FollowTheNamesAndKeysOfTheSetsTheyName) {
  const ITR one = Add(u"one"), other = Add(u"other");
  const std::string key = std::to_string(KeyOf(one));
  const ITR by_name = AddRule(u"by name", "set one,other and not set \"one\"");
  const ITR by_key = AddRule(u"by key", "set " + key);
  const struct {
    const char16_t* name;
    const char* rule;
  } cases[] = {{u"left side", "set \"left side\",other and not set \"left side\""},
               {u"a \"b\"", "set 'a \"b\"',other and not set 'a \"b\"'"},
               {u"any", "set \"any\",other and not set \"any\""},
               {u"'\"", nullptr},
               {u"one", "set one,other and not set one"}};
  for (const auto& each : cases) {
    ASSERT_TRUE(Sets().TR_Rename(one, each.name));
    const std::string wanted = each.rule ? each.rule : "set " + key + ",other and not set " + key;
    EXPECT_EQ(RuleOf(session, by_name), wanted);
    if (!each.rule) break;  // it names the set by its key now, which no name changes
  }
  ASSERT_TRUE(Do([&] {
    tagTMset set = Sets().GetAtNU(one);
    set.key = 900;
    Sets().SetAtNU(one, set);
  }));
  EXPECT_EQ(RuleOf(session, by_key), "set 900");
  EXPECT_EQ(messages.last.key, "IDS_QX_DB_SET_RULE_FOLLOWS");
  // What a rule names stays, also where cleaning up would take it away for being empty.
  EXPECT_FALSE(Sets().TR_Del(TArray<ITR>{other}));
  EXPECT_EQ(messages.last.key, "IDS_QX_DB_SET_RULE_NAMES");
  ASSERT_TRUE(Sets().TR_Del_EmptyMset());
  EXPECT_TRUE(IsLive(other));
  EXPECT_TRUE(Sets().TR_Del(TArray<ITR>{one, other, by_name, by_key}));
}

TEST_F(SetRules, NameNoCircle) {
  const ITR a = Add(u"a"), b = Add(u"b"), c = Add(u"c");
  const ITR under = Add(u"under", KeyOf(c));
  ASSERT_TRUE(Give(a, "set b"));
  ASSERT_TRUE(Give(b, "set c with children"));
  const std::uint64_t before = session.StateHash();
  const auto refused = [&](const char* why, const std::string& circle) {
    EXPECT_EQ(session.StateHash(), before) << why;
    EXPECT_NE((messages.last.text +
               (messages.last.arguments.empty() ? "" : messages.last.arguments.back()))
                  .find(circle),
              std::string::npos)
        << why << ": " << messages.last.arguments.back();
  };
  const Outcome itself = Give(c, "hex8 or set a");
  ASSERT_FALSE(itself);
  EXPECT_NE(itself.Line().find("\"c\" names \"a\" names \"b\" names \"c\""), std::string::npos)
      << itself.Line();
  EXPECT_FALSE(Give(a, "set a"));
  EXPECT_FALSE(Give(a, "set any"));
  EXPECT_FALSE(Give(under, "set a"));
  EXPECT_FALSE(Give(a, "faces surface"));
  EXPECT_FALSE(Give(a, "set nowhere"));
  EXPECT_FALSE(Give(a, "hex8 or not size < 5"));  // of which unit?
  EXPECT_EQ(session.StateHash(), before);
  // Past SetRule: by a record, by a parent, by the gateway.
  tagTSetRule rule;
  rule.key = KeyOf(c);
  rule.text.Set(u"set a");
  EXPECT_FALSE(Do([&] { Pool<tagTSetRule>(session).InsertNU(rule); }));
  refused("a record", "\"c\" names \"a\"");
  EXPECT_FALSE(Sets().TR_SetParent(a, KeyOf(c)));
  refused("a parent", "\"a\" names \"b\" names \"a\"");
  dbgateway::DataBase document;
  ASSERT_TRUE(document.Parse("{\"SETRULE\": {\"" + std::to_string(KeyOf(c)) +
                             "\": {\"TEXT\": \"set a\"}}}"));
  EXPECT_FALSE(ReadDocument(session, document));
  refused("the gateway", "\"c\" names \"a\"");
  rule.text.Set(u"nonsense");
  EXPECT_FALSE(Do([&] { Pool<tagTSetRule>(session).InsertNU(rule); }));
  refused("nonsense", "no condition");
}

TEST_F(SetRules, MeanTheSameInOtherUnits) {
  UnitSystem metres = session.Units().Current();
  const ITR set = AddRule(u"part", "box 0,0,0 2,2,2 and volume < 2 and max-angle < 120");
  const auto before = Vector(MembersOf(session, set).Elements());
  ASSERT_EQ(before.size(), 8u);
  const std::string rule = RuleOf(session, set);
  const std::string unit(
      UnitsOf(UnitBase::kLength)[static_cast<std::size_t>(metres[UnitBase::kLength])].name);
  EXPECT_EQ(rule, "box 0" + unit + ",0" + unit + ",0" + unit + " 2" + unit + ",2" + unit + ",2" +
                      unit + " and volume < 2" + unit + "3 and max-angle < 120");
  for (std::size_t other = 0; other < UnitsOf(UnitBase::kLength).size(); ++other) {
    metres[UnitBase::kLength] = static_cast<int>(other);
    ASSERT_TRUE(session.ChangeUnits(metres));
    EXPECT_EQ(RuleOf(session, set), rule);
    EXPECT_EQ(Vector(MembersOf(session, set).Elements()), before);
  }
}

}  // namespace
}  // namespace qx
