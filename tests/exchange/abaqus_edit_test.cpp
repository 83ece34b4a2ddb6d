// Abaqus and CalculiX decks through a model: what follows edits, and what stays to the letter.

#include <algorithm>
#include <cmath>
#include <fmt/format.h>
#include <fmt/ranges.h>
#include <functional>
#include <gtest/gtest.h>
#include <map>
#include <set>

#include "qx_db/core/renumber.h"
#include "qx_db/gateway/document.h"
#include "qx_db/platform/file.h"
#include "qx_db/qx_db.h"

#include "abaqus_model.h"
#include "brief.h"
#include "exchange/transfer.h"
#include "host/session.h"

namespace qx::exchange {
namespace {

constexpr const char* kDeck =
    "*Heading\na deck\n** of our own\n*Node, nset=all\n  1, 0., 0.\n  2, 1.000, 0.\n"
    "  3, 1., 1.\n  4, 0., 1.\n  5, 2., 0.\n  6, 2., 1.\n** between\n"
    "*Element, type=S4R, elset=left\n1, 1, 2, 3, 4\n*Element, type=S4R, elset=right\n"
    "2, 2, 5, 6, 3\n*Elset, elset=both\nleft, right\n*Nset, nset=low\n1, 2, 5\n"
    "*Surface, name=top\nboth, SPOS\n"
    "*Material, name=steel\n*Elastic\n2.1e11, .3\n** heavy\n*Density\n7850.,\n"
    "*Plastic\n2e8, 0.\n*Shell section, elset=both, material=steel\n.1, 5\n"
    "*Step, name=one\n*Static\n** Name: held Type: Displacement\n*Boundary\nlow, 1, 3\n6, 2\n"
    "*Cload\n3, 3, -1.\n*End Step\n";

TEST_F(AbaqusModel, UntouchedDecksComeBackToTheLetter) {
  Import(kDeck);
  EXPECT_EQ(Export(), kDeck);
  EXPECT_EQ(Briefly(report_), (std::vector<std::string>{"the numbers are in m,N,kg,sec,C,J,deg"}));
  auto& conditions = *session_.GetDataPool(code::kBset);
  EXPECT_NE(const_cast<DPoolBase&>(conditions).GetItr(u"one: BOUNDARY held"), 0u);
  EXPECT_NE(const_cast<DPoolBase&>(conditions).GetItr(u"one: CLOAD"), 0u);
}

TEST_F(AbaqusModel, KeywordsThatStayInTheirUnitsAreTold) {
  Import(kDeck);
  ExportOptions options;
  options.units = "mm";
  ASSERT_EQ(ExportFile(session_, folder_.Path("mm.inp"), options, report_).Line(), "");
  const std::string told = fmt::format("{}", fmt::join(Briefly(report_), "\n"));
  for (const char* keyword : {"*BOUNDARY", "*CLOAD", "*PLASTIC"}) {
    const std::string line =
        fmt::format("{} keywords keep the units that the deck was read in: 1", keyword);
    EXPECT_NE(told.find(line), std::string::npos) << line << "\n" << told;
  }
  for (const char* keyword : {"*STATIC", "*DENSITY", "*ELASTIC", "*NODE"}) {
    EXPECT_EQ(told.find(keyword), std::string::npos) << keyword << "\n" << told;
  }
}

TEST_F(AbaqusModel, OnlyWhatChangedDiffers) {
  Import(kDeck);
  Edit([&] {
    Move(2, 1, 0.25, 0);
    Move(4, 0, 1, 0.5);
    Change<tagTMatl>(1, [](tagTMatl& steel) { steel.density = 8000; });
    Change<tagTProp>(1, [](tagTProp& plate) { plate.thickness = 0.2; });
  });
  ExpectEdited(kDeck, {{"2, 1.000, 0.\n", "2, 1.000, 0.25\n"},
                       {"  4, 0., 1.\n", "4, 0., 1., 0.5\n"},
                       {"*Density\n7850.,\n", "*Density\n8000.\n"},
                       {".1, 5\n", "0.2, 5\n"}});
  ASSERT_TRUE(session_.Undo());
  EXPECT_EQ(Export(), kDeck);
}

TEST_F(AbaqusModel, NumbersInCarriedKeywordsFollow) {
  Import(kDeck);
  Edit([&] { Change<tagTNode>(6, [](tagTNode& node) { node.key = 600; }); });
  ExpectEdited(kDeck, {{"  6, 2., 1.\n", ""},
                       {", nset=all\n", "\n"},
                       {"2, 2, 5, 6, 3\n", "2, 2, 5, 600, 3\n"},
                       {"** between\n", ""},
                       {"*Element, type=S4R, elset=left",
                        "*Nset, nset=all\n1, 2, 3, 4, 5, 600\n** between\n"
                        "*Element, type=S4R, elset=left"},
                       {"6, 2\n", "600, 2\n"},
                       {"*Node\n  1,", "*Node\n600, 2., 1., 0.\n*Node\n  1,"}});
}

TEST_F(AbaqusModel, SetsAndSectionsFollow) {
  Import(kDeck);
  Edit([&] {
    tagTProp thin = session_.GetPool<DPool<tagTProp>>(code::kProp)
                        ->GetAtNU(session_.GetPool<DPool<tagTProp>>(code::kProp)->Find(1));
    thin.key = 2;
    thin.name.Set(u"thin");
    thin.thickness = 0.01;
    const ITR added = session_.GetPool<DPool<tagTProp>>(code::kProp)->InsertNU(thin);
    Change<tagTElem>(2, [&](tagTElem& element) { element.property = added; });
    tagTMset set;
    set.key = sets_.NewSetKey();
    set.name.Set(u"corner");
    set.nodes.Add(nodes_.Find(1));
    ASSERT_TRUE(sets_.InsertNU(set));
  });
  ExpectEdited(kDeck, {{"*Shell section, elset=both",
                        "*Elset, elset=both~2\n1\n"
                        "*Shell section, elset=both~2"},
                       {"*Step, name=one",
                        "*Nset, nset=corner\n1\n*Elset, elset=thin\n2\n"
                        "*Shell Section, elset=thin, material=steel\n0.01\n*Step, name=one"}});
}

TEST_F(AbaqusModel, GeneratedNodesAreWrittenOutWhenOneMoves) {
  const std::string deck = "*Node\n1\n4, 3.\n*Ngen, nset=row\n1, 4, 1\n*Step\n*End step\n";
  Import(deck);
  EXPECT_EQ(Export(), deck);
  Edit([&] { Move(2, 1, 1, 0); });
  ExpectEdited(deck, {{"*Ngen, nset=row\n1, 4, 1\n",
                       "*Node\n2, 1., 1., 0.\n3, 2., 0., 0.\n"
                       "*Nset, nset=row, generate\n1, 4, 1\n"}});
}

const std::string& TwoInstances() {
  static const std::string deck =
      "*Part, name=p\n" + std::string(kBlock) +
      "*Nset, nset=low, generate\n1, 4, 1\n*Solid section, elset=solid, material=m\n,\n*End Part\n"
      "*Assembly, name=a\n*Instance, name=i, part=p\n*End Instance\n"
      "*Instance, name=j, part=p\n2., 0., 0.\n2., 0., 0., 2., 0., 1., 90.\n*End Instance\n"
      "*Nset, nset=tips, instance=j\n101, 102\n*End Assembly\n*Material, name=m\n"
      "*Elastic\n1., .3\n*Step, name=s\n*Boundary\nj.low, 1, 3\nj.104, 1\n*End Step\n";
  return deck;
}

TEST_F(AbaqusModel, InstancesStandWhereTheyArePlaced) {
  Import(TwoInstances());
  EXPECT_EQ(nodes_.GetSize(), 16);
  const tagTVector3<double> moved = nodes_.GetAtNU(nodes_.Find(104 + 2)).position;
  ExpectPoint({moved.x, moved.y, moved.z}, {2, 1, 0}, "node 2 of the second instance");
  EXPECT_EQ(Export(), TwoInstances());
}

TEST_F(AbaqusModel, InstancesThatBecomeUnlikeGetPartsOfTheirOwn) {
  Import(TwoInstances());
  Edit([&] { Move(103, 1, 1, 3); });  // of the first
  const std::string out = Export();
  const std::string copy = TwoInstances().substr(0, TwoInstances().find("*Assembly"));
  std::string first = copy;
  first.replace(first.find("103, 1., 1., 1."), 15, "103, 1., 1., 3.");
  std::string second = copy;
  second.replace(second.find("name=p"), 6, "name=p-j");
  std::string rest = TwoInstances().substr(copy.size());
  rest.replace(rest.find("name=j, part=p"), 14, "name=j, part=p-j");
  EXPECT_EQ(out, first + second + rest);
  ExpectEdited(out, {});
}

TEST_F(AbaqusModel, RenumberedInstancesKeepTheDecksNumbers) {
  Import(TwoInstances());
  Edit([&] {
    for (const Key key : {1, 2, 101, 105, 208}) {
      Change<tagTNode>(key, [&](tagTNode& node) { node.key = key + 1000; });
    }
    Change<tagTElem>(2, [](tagTElem& element) { element.key = 20; });
  });
  EXPECT_EQ(Export(), TwoInstances());
  Edit([&] {
    ASSERT_TRUE(elements_.Remove(elements_.Find(20)));
    ASSERT_TRUE(nodes_.Remove(nodes_.Find(1208)));
  });
  const std::string out = Export();
  EXPECT_EQ(out.find("j.104"), std::string::npos) << out;
  EXPECT_NE(out.find("part=p-j"), std::string::npos) << out;
  ExpectEdited(out, {});
}

TEST_F(AbaqusModel, SetsOfTheAssemblyAndTurnedInstancesFollow) {
  // One instance, turned by 90 degrees about z after a shift.
  const std::string deck =
      "*Part, name=p\n" + std::string(kBlock) +
      "*End Part\n*Assembly, name=a\n*Instance, name=j, part=p\n2., 0., 0.\n"
      "2., 0., 0., 2., 0., 1., 90.\n*End Instance\n*Nset, nset=tips, instance=j\n101, 102\n"
      "*Elset, elset=top, instance=j\n1\n*Surface, name=face\ntop, S2\n*End Assembly\n"
      "*Step\n*Boundary\nj.103, 1\ntips, 2\n*Initial conditions, type=stress\nj.1, 0.\n"
      "*Strange\n103, 1\n*End step\n";
  Import(deck);
  LossReport in;
  CQXDBSession other(host::SetUpModel);
  ASSERT_EQ(ImportFile(other, path_, {}, in).Line(), "");
  bool is_told = false;
  for (const Loss& loss : in.entries) {
    is_told = is_told || loss.what == "keywords not checked against renumbering: STRANGE 1";
  }
  EXPECT_TRUE(is_told);
  EXPECT_EQ(Export(), deck);
  Edit([&] {
    const tagTVector3<double> at = nodes_.GetAtNU(nodes_.Find(103)).position;
    ExpectPoint({at.x, at.y, at.z}, {1, 1, 1}, "node 103");
    Move(103, 1, 1.5, 1);  // along x of the part
    Change<tagTNode>(103, [](tagTNode& node) { node.key = 900; });
    Change<tagTNode>(101, [](tagTNode& node) { node.key = 901; });
  });
  ExpectEdited(deck, {{"101, 0., 0., 1.\n", ""},
                      {"103, 1., 1., 1.\n", ""},
                      {"4, 101, 102, 103, 104\n", "4, 901, 102, 900, 104\n"},
                      {"*Node\n1\n", "*Node\n901, 0., 0., 1.\n900, 1.5, 1., 1.\n*Node\n1\n"},
                      {"instance=j\n101, 102", "instance=j\n102, 901"},
                      {"j.103, 1\ntips", "j.900, 1\ntips"}});
}

TEST_F(AbaqusModel, OneCoordinateOfATurnedInstanceChanges) {
  Import(TwoInstances());
  const Key key = 208;  // 104 of the second
  Edit([&] {
    tagTNode node = nodes_.GetAtNU(nodes_.Find(key));
    node.position.z += 0.5;
    ASSERT_TRUE(nodes_.SetAtNU(nodes_.Find(key), node));
  });
  const std::string out = Export();
  EXPECT_NE(out.find("104, 0., 1., 1.5\n"), std::string::npos) << out;
  ExpectEdited(out, {});
}

TEST_F(AbaqusModel, ModelsOfOtherFormatsBecomeDecks) {
  const std::string msh = folder_.Path("sample.msh");
  ASSERT_TRUE(WriteWholeFile(msh, sample::Write(sample::Make(), sample::kForms[0])));
  LossReport report;
  ASSERT_EQ(ImportFile(session_, msh, {}, report).Line(), "");
  const std::string once = Export();
  CQXDBSession again(host::SetUpModel);
  ASSERT_EQ(ImportFile(again, folder_.Path("out.inp"), {}, report).Line(), "");
  std::int64_t lost = 0;
  for (const Loss& loss : report_.entries) {
    if (loss.what.find("pyramids") != std::string::npos ||
        loss.what.find("point") != std::string::npos) {
      lost += static_cast<std::int64_t>(loss.count);
    }
  }
  EXPECT_EQ(again.GetDataPool(code::kNode)->GetSize(), nodes_.GetSize());
  EXPECT_EQ(again.GetDataPool(code::kElem)->GetSize() + lost, elements_.GetSize());
  ASSERT_EQ(ExportFile(again, folder_.Path("twice.inp"), {}, report).Line(), "");
  EXPECT_EQ(*ReadWholeFile(folder_.Path("twice.inp")), once);
}

TEST_F(AbaqusModel, FilesOfDataStandInTheDeck) {
  ASSERT_TRUE(WriteWholeFile(folder_.Path("nodes.txt"), "1, 1.\n2, 2."));
  ASSERT_TRUE(WriteWholeFile(folder_.Path("more.inp"), "*Node\n3, 3.\n"));
  Import("*Node, input=nodes.txt, nset=all\n*Include, input=MORE.inp\n");
  EXPECT_EQ(Export(), "*Node, nset=all\n1, 1.\n2, 2.\n*Node\n3, 3.\n");
}

}  // namespace
}  // namespace qx::exchange
