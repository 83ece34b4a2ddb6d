// A mesh set with a rule goes out as the list that it is now, in every format, and the report says
// that the rule does not.

#include "qx_db/model/set_rules.h"

#include <algorithm>
#include <gtest/gtest.h>

#include "qx_db/core/transaction.h"

#include "exchange/format.h"
#include "exchange/transfer.h"
#include "host/session.h"
#include "random_deck.h"
#include "tests/scratch_folder.h"

namespace qx::exchange {
namespace {

/// What a file has of sets: name, and keys of elements and nodes.
using Group = std::tuple<std::string, std::vector<Key>, std::vector<Key>>;

TEST(SetRules, GoOutAsTheListsThatTheyAreInEveryFormat) {
  const ScratchFolder folder;
  for (const Format& format : Formats()) {
    if (!format.write || !format.read) continue;
    SCOPED_TRACE(format.name);
    CQXDBSession session(host::SetUpModel);
    LossReport ignored;
    ASSERT_EQ(AddDeck(session, sample::RandomDeck(5), "random", ignored).Line(), "");
    ITR set = 0;
    ASSERT_TRUE(Pool<tagTMset>(session).TR_Add(u"by rule", 0, set));
    {
      CTransaction step(&session);
      step.Begin(u"Rule");
      ASSERT_EQ(SetRule(session, set, "not (x < 0.3 and y < 0.3)").Line(), "");
      ASSERT_TRUE(step.Commit());
    }
    ASSERT_FALSE(MembersOf(session, set).Elements().IsEmpty());
    const auto write = [&](const std::string& name, LossReport& report) {
      const std::string path = folder.Path(name + std::string(format.extensions.front()));
      EXPECT_EQ(format.write(session, path, {}, report).Line(), "");
      std::vector<Failure> faults;
      const auto deck = format.read(path, {}, faults);
      EXPECT_TRUE(deck) << deck.AsOutcome().Line();
      std::vector<Group> groups;
      if (!deck) return groups;
      for (const Mesh::Group& group : deck->groups) {
        groups.emplace_back(group.name, group.elements, group.nodes);
      }
      return groups;
    };
    LossReport with_rule, as_list;
    const auto ruled = write("ruled", with_rule);
    {
      CTransaction step(&session);
      step.Begin(u"List");
      ASSERT_EQ(MakePlain(session, set).Line(), "");
      ASSERT_TRUE(step.Commit());
    }
    EXPECT_EQ(ruled, write("listed", as_list));
    // What is lost is the same, but for the rule.
    const auto is_rule = [](const Loss& loss) {
      return loss.what == "rules of mesh sets were left out" && loss.count == 1 &&
             loss.where == "by rule";
    };
    EXPECT_EQ(std::erase_if(with_rule.entries, is_rule), 1u);
    EXPECT_EQ(with_rule.Lines(), as_list.Lines());
  }
}

}  // namespace
}  // namespace qx::exchange
