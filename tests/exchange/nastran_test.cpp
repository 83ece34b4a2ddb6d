// Nastran decks: forms of cards, systems, what follows edits, and real decks through a model.

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <fmt/format.h>
#include <gtest/gtest.h>
#include <map>

#include "qx_db/gateway/document.h"
#include "qx_db/platform/file.h"
#include "qx_db/qx_db.h"

#include "exchange/nastran/nas_reader.h"
#include "exchange/nastran/nas_values.h"
#include "exchange/transfer.h"
#include "host/records.h"
#include "host/session.h"
#include "sample_mesh.h"
#include "tests/corpus.h"
#include "tests/scratch_folder.h"

namespace qx::exchange {
namespace {

Result<Deck> Parse(const std::string& bulk, std::vector<Failure>* all = nullptr) {
  std::vector<Failure> faults;
  const NasText text(bulk, "deck.bdf");
  Result<Deck> deck = ParseNastran(text, "deck.bdf", faults);
  if (all) *all = faults;
  return deck;
}

TEST(NastranNumbers, InEveryForm) {
  const std::pair<const char*, double> cases[] = {
      {"1.5", 1.5},    {"-2.+3", -2000}, {"2.9-7", 2.9e-7}, {"1.0D5", 1e5},
      {"+3.e-2", .03}, {".5", .5},       {"7.", 7},         {"-.1+1", -1},
  };
  for (const auto& [text, value] : cases) {
    ASSERT_TRUE(DeckReal(text)) << text;
    EXPECT_DOUBLE_EQ(*DeckReal(text), value) << text;
  }
  for (const char* text : {"", "x", "1.5x", "--1", "1.e", "+", "+-5"})
    EXPECT_FALSE(DeckReal(text)) << text;
}

TEST(NastranCards, SmallLargeFreeAndContinuedOnesSayTheSame) {
  const char* forms[] = {
      "GRID    7               1.5     -2.     3.\n",
      "GRID*   7                               1.5             -2.\n*       3.\n",
      "GRID,7,,1.5,-2.,3.\n",
      "GRID*,7,,1.5,-2.,+A\n*A,3.\n",
      "GRID\t7\t\t1.5\t-2.\t3.\n",
      "grid    7               1.5     -2.     3.     $ a comment, with commas\n",
      "GRID           7             1.5     -2.      3.\r\n",
  };
  for (const char* form : forms) {
    const Result<Deck> deck = Parse(form);
    ASSERT_TRUE(deck) << form << deck.AsOutcome().Line();
    EXPECT_EQ(deck->node_keys, std::vector<Key>{7}) << form;
    EXPECT_EQ(deck->coordinates, (std::vector<double>{1.5, -2, 3})) << form;
  }
}

std::string Grids(int count) {
  std::string text;
  for (int i = 1; i <= count; ++i)
    text += "GRID," + std::to_string(i) + ",," + std::to_string(i) + ".,0.,0.\n";
  return text;
}

TEST(NastranCards, ContinuationsAreFoundByTheirNames) {
  const std::string text =
      Grids(16) +
      "CHEXA   1       1       1       2       3       4       5       6       +A\n"
      "CHEXA   2       1       9       10      11      12      13      14      +B\n"
      "+B      15      16\n"
      "+A      7       8\n";
  const Result<Deck> deck = Parse(text);
  ASSERT_TRUE(deck) << deck.AsOutcome().Line();
  ASSERT_EQ(deck->elements.size(), 2u);
  EXPECT_EQ(deck->connectivity[7], 8);
  EXPECT_EQ(deck->connectivity[15], 16);
}

TEST(NastranCards, NodeOrdersOfQuadraticSolids) {
  std::string text =
      Grids(20) + "CHEXA,1,1,1,2,3,4,5,6\n,7,8,9,10,11,12,13,14\n,15,16,17,18,19,20\n";
  text += "CPENTA,2,1,1,2,3,4,5,6\n,7,8,9,10,11,12,13,14\n,15\n";
  const Result<Deck> deck = Parse(text);
  ASSERT_TRUE(deck) << deck.AsOutcome().Line();
  EXPECT_EQ(deck->elements[0].type, element::kHex20);
  EXPECT_EQ((std::vector<Key>(deck->connectivity.begin() + 12, deck->connectivity.begin() + 20)),
            (std::vector<Key>{17, 18, 19, 20, 13, 14, 15, 16}));
  EXPECT_EQ((std::vector<Key>(deck->connectivity.begin() + 29, deck->connectivity.begin() + 35)),
            (std::vector<Key>{13, 14, 15, 10, 11, 12}));
}

TEST(NastranFaults, AreAllNamed) {
  std::vector<Failure> faults;
  const Result<Deck> deck = Parse(
      "GRID,1,,x,0.,0.\nGRID,2,,0.,0.,0.\nGRID,2,,0.,0.,0.\nCROD,1,1,1,9\nGRID,3,8,0.,0.,0.\n"
      "GRID,99999999999,,0.,0.,0.\nCTRIA3,2,1,1,2\n=,*(1),=,*(1.),==\n",
      &faults);
  EXPECT_FALSE(deck);
  std::string all;
  for (const Failure& fault : faults) all += fault.Line() + "\n";
  for (const char* expected :
       {"deck.bdf: line 1, GRID: field 4 is 'x', not a number",
        "line 3, GRID: field 2: node 2 is there twice",
        "line 4, CROD: field 5: its node 9 is not there",
        "line 5, GRID: field 3: coordinate system 8", "line 6, GRID: field 2 is '99999999999'",
        "line 7, CTRIA3: field 6 is blank: it has fewer than 3 nodes",
        "line 8, =: replicated cards are not read"}) {
    EXPECT_NE(all.find(expected), std::string::npos) << expected << "\n" << all;
  }
}

TEST(NastranFaults, ManyWrongCardsAreAsManyLinesInTheOrderOfTheFile) {
  std::string text;
  for (int i = 0; i < 40; ++i) {
    constexpr const char* kWrong[] = {"GRID,1,,x,y,z\n", "CROD,5,1,1,99\n", "CTRIA3,6,1,1\n",
                                      "GRID,9,77,0.,0.,0.\n"};
    text += fmt::format("GRID,{},,0.,0.,0.\n", 100 + i);
    std::string wrong = kWrong[i % 4];
    text += wrong.replace(wrong.find(',') + 1, 1, std::to_string(1000 + i));
  }
  std::vector<Failure> faults;
  EXPECT_FALSE(Parse(text, &faults));
  ASSERT_EQ(faults.size(), 40u);
  for (std::size_t i = 0; i < faults.size(); ++i) {
    EXPECT_EQ(faults[i].place.substr(0, faults[i].place.find(',')),
              fmt::format("line {}", 2 * i + 2));
  }
}

TEST(NastranReports, TellWhatTheModelHasNoPlaceFor) {
  const std::pair<const char*, const char*> cases[] = {
      {"", "the deck was read to its end (no ENDDATA ends it)"},
      {"CQUAD4,1,1,1,2,3,4,45.,,,1,.5,.5,.5,.5\n",  // thicknesses as parts of the property's
       "1 CQUAD4 are held in part; their cards are carried whole"},
      {"CONROD,1,1,2,7,1.5\n", "1 CONROD are held in part"},
      {"CROD,1,,1,2\n", "1 CROD have no property (they name none"},
      {"CBUSH,1,1,1,2,1.,0.,0.,,.3\n", "1 CBUSH are held in part"},
      {"PSHELL,1,7,.1,8\nMAT1,7,1.\nMAT1,8,1.\n", "1 PSHELL are held in part"},
      {"PBARL,1,7,,ROD,,,,,.5\nMAT1,7,1.\n", "1 PBARL are held in part"},
      {"MAT8,1,1.,2.,.3\n", "1 MAT8 are held in part"},
      {"PSHELL,1,7,.1,7\nMAT1,7,1.\n", "1 PSHELL are held in part"},  // without shear
      {"PSHELL,1,,.1,7\nMAT1,7,1.\n", "1 PSHELL are held in part"},   // without membrane
      {"CQUAD4,1,1,1,2,3,4,9\n", "1 CQUAD4 are held in part"},        // no such system
      {"CTRIA3,1,1,1,2,3,,,,,,.5\n", "1 CTRIA3 are held in part"},    // one thickness of three
      {"CQUAD4,1,1,1,2,3,4,0.,,,.1\n", "1 CQUAD4 are held in part"},
      {"CELAS1,1,1,1,1,2,1\nPELAS,1,5.\n", "cards carried as text: CELAS1 1, PELAS 1"},
      {"CONM1,1,2,,5.\n", "cards carried as text: CONM1 1"},
      {"BEGIN SUPER=1\nGRID,1,,0.,0.,0.\nENDDATA\n", "1 superelements are carried as text"},
      {"CQUAD8,1,1,1,2,3,4,5\n", "CQUAD8 without all mid-side nodes were read by their corners: 1"},
      {"WEIRD,1,2\n", "cards not checked against renumbering: WEIRD 1"},
      {"CORD2R,9,,0.,0.,0.,0.,0.,0.,\n,0.,0.,0.\n", "1 CORD2R give no axes"},
  };
  for (const auto& [cards, expected] : cases) {
    const Result<Deck> deck = Parse(Grids(8) + cards);
    ASSERT_TRUE(deck) << deck.AsOutcome().Line();
    std::string told;
    for (const std::string& line : deck->report.Lines()) told += line + "\n";
    EXPECT_NE(told.find(expected), std::string::npos) << cards << told;
  }
}

/// Vectors count in the displacement system of a node, in the basic one, or along the element.
TEST(NastranShells, HaveTheirDirectionsOffsetsAndThicknesses) {
  const char* const cards[] = {
      "CTRIA3,1,1,1,2,3,30.,.5\n,,,.1,.2,.3\n",
      "CTRIAR,1,1,1,2,3,30.,.5\n,,,.1,.2,.3\n",
      "CTRIA6,1,1,1,2,3,4,5,6\n,30.,.5,.1,.2,.3\n",
      "CQUAD4,1,1,1,2,3,4,30.,.5\n,,,.1,.2,.3,.4\n",
      "CQUADR,1,1,1,2,3,4,30.,.5\n,,,.1,.2,.3,.4\n",
      "CQUAD8,1,1,1,2,3,4,5,6\n,7,8,.1,.2,.3,.4,30.,.5\n",
  };
  for (const std::string card : cards) {
    const Result<Deck> deck =
        Parse("BEGIN BULK\n" + Grids(8) + card + "PSHELL,1,1,.7,1,,1\nMAT1,1,1.\n");
    ASSERT_TRUE(deck) << deck.AsOutcome().Line();
    ASSERT_EQ(deck->Of<tagTE2DMatlCsys>().size(), 1u) << card;
    ASSERT_EQ(deck->Of<tagTE2DOffset>().size(), 1u) << card;
    ASSERT_EQ(deck->Of<tagTE2DThick>().size(), 1u) << card;
    EXPECT_EQ(deck->Of<tagTE2DMatlCsys>()[0].type, tagTE2DMatlCsys::kByAngle) << card;
    EXPECT_EQ(+deck->Of<tagTE2DMatlCsys>()[0].angle_deg, 30) << card;
    EXPECT_EQ(+deck->Of<tagTE2DOffset>()[0].offset, 0.5) << card;
    const tagTE2DThick& thick = deck->Of<tagTE2DThick>()[0];
    for (std::size_t i = 0; i < (card[1] == 'Q' ? 4u : 3u); ++i) {
      EXPECT_EQ(+thick.thickness[i], (static_cast<double>(i) + 1) / 10) << card;
    }
    EXPECT_EQ(+thick.uniform, 0) << card;
    EXPECT_EQ(thick.elements, (TArray<ITR>{1})) << card;
    for (const Loss& loss : deck->report.entries) {
      EXPECT_EQ(loss.what.find("held in part"), std::string::npos) << loss.Line();
    }
  }
}

TEST(NastranVectors, CountInTheSystemsThatTheirCardsName) {
  // Displacements of node 1 count along y and against x.
  const std::string deck =
      "CORD2C,5,,0.,0.,0.,0.,0.,1.,\n,1.,0.,0.\nGRID,1,,0.,2.,0.,5\nGRID,2,,0.,2.,4.\n"
      "CORD2R,6,,0.,0.,0.,1.,0.,0.,\n,0.,1.,0.\n";
  struct Case {
    const char* card;
    Vector3 orientation;
    std::array<Vector3, 2> offsets;
    std::array<int, 2> by_element;
  };
  const Case cases[] = {
      {"CBAR,1,1,1,2,1.,0.,0.,,\n,,,0.,1.,0.,0.,1.,0.\n",
       {0, 1, 0},
       {{{-1, 0, 0}, {0, 1, 0}}},
       {0, 0}},
      {"CBEAM,1,1,1,2,1.,0.,0.,BGO,\n,,,0.,1.,0.,0.,1.,0.\n",
       {1, 0, 0},
       {{{-1, 0, 0}, {0, 1, 0}}},
       {0, 1}},
      {"BAROR,,,,,1.,0.,0.,GOO\nCBAR,1,1,1,2,,,,,\n,,,0.,1.,0.,0.,1.,0.\n",
       {0, 1, 0},
       {{{0, 1, 0}, {0, 1, 0}}},
       {1, 1}},
  };
  for (const Case& c : cases) {
    const Result<Deck> read = Parse(deck + c.card);
    ASSERT_TRUE(read) << read.AsOutcome().Line();
    ASSERT_EQ(read->Of<tagTEcrd>().size(), 1u);
    EXPECT_LT(Distance(Vector3(read->Of<tagTEcrd>()[0].reference_vector), c.orientation), 1e-12)
        << c.card;
    for (const tagTE1DOffset& offset : read->Of<tagTE1DOffset>()) {
      for (std::size_t end = 0; end < 2; ++end) {
        if (!(end ? offset.end_b : offset.end_a)) continue;
        const auto& of = end ? offset.offset_b : offset.offset_a;
        EXPECT_LT(Distance(Vector3(of[0], of[1], of[2]), c.offsets[end]), 1e-12) << c.card;
        EXPECT_EQ(offset.csys_type, c.by_element[end]) << c.card;
      }
    }
  }
  const Result<Deck> bush = Parse(deck + "CBUSH,1,1,1,2,,,,6\nCONM2,2,1,-1,5.,1.,2.,3.\n");
  ASSERT_TRUE(bush) << bush.AsOutcome().Line();
  EXPECT_EQ(bush->Of<tagTEcrd>()[0].method, tagTEcrd::kByCoordinateSystem);
  EXPECT_EQ(bush->Of<tagTEcrd>()[0].coordinate_system, 6u);
  EXPECT_EQ(Vector3(bush->Of<tagTSprop>()[0].offset), Vector3(1, 0, 3));
}

TEST(NastranNumbers, HoldAllDigitsThatTheirFieldHas) {
  const std::pair<double, const char*> cases[] = {
      {0.123456789012345, ".123456789012345"},
      {-0.5, "-0.5"},
      {1e-7, "1.e-7"},
      {1.2345678901e-100, "1.2345678901-100"},
      {1.0 / 3, ".333333333333333"},
      {-123456.789012345, "-123456.78901235"},
      {2e11, "2.e11"},
      {0, "0."},
  };
  for (const auto& [value, text] : cases) EXPECT_EQ(NasReal(value, 16), text);
}

TEST(NastranFaults, EveryTruncationIsReadOrRefused) {
  const std::string whole =
      "SOL 101\nCEND\nBEGIN BULK\nCORD2R,1,,0.,0.,0.,0.,0.,1.\n,1.,0.,0.\n" + Grids(8) +
      "CHEXA   1       1       1       2       3       4       5       6       +A      \n"
      "+A      7       8\nPSOLID,1,1\nMAT1,1,2.+11,,.3\nSPC1,1,123,1,THRU,4\nENDDATA\n";
  for (std::size_t length = 0; length <= whole.size(); ++length) {
    const Result<Deck> deck = Parse(whole.substr(0, length));
    if (deck) {
      EXPECT_EQ(CheckMesh(*deck, "deck").Line(), "");
    }
  }
}

class NastranSession : public testing::Test {
 protected:
  void Import(const std::string& deck) {
    ASSERT_TRUE(WriteWholeFile(path_, deck));
    LossReport report;
    ASSERT_EQ(ImportFile(session_, path_, {}, report).Line(), "");
    EXPECT_EQ(session_.Validate(), "");
  }
  std::string Export() {
    LossReport report;
    const std::string out = folder_.Path("out.bdf");
    EXPECT_EQ(ExportFile(session_, out, {}, report).Line(), "");
    return *ReadWholeFile(out);
  }

  const ScratchFolder folder_;
  const std::string path_ = folder_.Path("in.bdf");
  CQXDBSession session_{host::SetUpModel};
};

constexpr const char* kBulk =
    "$ a deck of our own\nSOL 101\nCEND\nLOAD = 3\nBEGIN BULK\n"
    "GRID    1               0.0     0.0     0.0\n"
    "GRID    2               1.000   0.0     0.0             123\n"
    "$ between\n"
    "GRID,3,,1.,1.0,0.00\n"
    "GRID    4               0.0     1.0     0.0\n"
    "CQUAD4  1       5       1       2       3       4\n"
    "CROD,2,6,1,3\n"
    "PSHELL  5       7       .10     7               7\n"
    "PROD,6,7,.02\n"
    "MAT1    7       2.1+11          .3      7850.\n"
    "FORCE   3       2               10.     1.      0.      0.\n"
    "SPC1    1       123456  1       4\n"
    "WEIRD   1       2       3\n"
    "ENDDATA\n";

TEST_F(NastranSession, UntouchedDecksComeBackToTheLetter) {
  Import(kBulk);
  EXPECT_EQ(Export(), kBulk);
  const auto& sets = *session_.GetDataPool(code::kBset);
  EXPECT_EQ(sets.GetSize(), 2);
  EXPECT_NE(const_cast<DPoolBase&>(sets).GetItr(u"SPC 1"), 0u);
  EXPECT_NE(const_cast<DPoolBase&>(sets).GetItr(u"LOAD 3"), 0u);
}

TEST_F(NastranSession, OnlyMovedNodesDiffer) {
  Import(kBulk);
  auto& nodes = *session_.GetPool<DPoolNode>(code::kNode);
  CTransaction step(&session_);
  step.Begin(u"move");
  tagTNode node = nodes.GetAtNU(nodes.Find(4));
  node.position.z = 0.5;
  ASSERT_TRUE(nodes.SetAtNU(nodes.Find(4), node));
  node = nodes.GetAtNU(nodes.Find(2));
  node.position.x = 2;
  ASSERT_TRUE(nodes.SetAtNU(nodes.Find(2), node));
  ASSERT_TRUE(step.Commit());
  std::string expected = kBulk;
  const std::string was = "GRID    4               0.0     1.0     0.0\n";
  expected.replace(expected.find(was), was.size(), "GRID    4               0.0     1.0     0.5\n");
  const std::string constrained = "GRID    2               1.000   0.0     0.0             123\n";
  expected.replace(expected.find(constrained), constrained.size(),
                   "GRID    2               2.      0.0     0.0             123\n");
  EXPECT_EQ(Export(), expected);
  ASSERT_TRUE(session_.Undo());
  EXPECT_EQ(Export(), kBulk);
}

TEST_F(NastranSession, NumbersInCarriedCardsFollow) {
  std::string deck = kBulk;
  deck.insert(deck.find("WEIRD"), "PLOTEL  9       2       3\n");
  Import(deck);
  auto& nodes = *session_.GetPool<DPoolNode>(code::kNode);
  CTransaction step(&session_);
  step.Begin(u"renumber");
  tagTNode node = nodes.GetAtNU(nodes.Find(2));
  node.key = 2000;
  ASSERT_TRUE(nodes.SetAtNU(nodes.Find(2), node));
  ASSERT_TRUE(step.Commit());
  const std::string out = Export();
  EXPECT_NE(out.find("FORCE   3       2000            10.     1."), std::string::npos) << out;
  EXPECT_NE(out.find("CQUAD4  1       5       1       2000    3       4\n"), std::string::npos)
      << out;
  EXPECT_NE(out.find("SPC1    1       123456  1       4\n"), std::string::npos) << out;
  EXPECT_NE(out.find("PLOTEL  9       2000    3"), std::string::npos) << out;
}

TEST_F(NastranSession, ChangedCardsKeepTheirSystemsAndWhatOnlyTheySay) {
  Import(
      "BEGIN BULK\n"
      "GRDSET          5\n"
      "CORD2C  5               1.      0.      0.      1.      0.      1.\n"
      "        2.      0.      0.\n"
      "GRID    1               2.      90.     3.      5       6       7\n"
      "GRID    2       0       0.      0.      0.\n"
      "CQUAD4  1       5       1       2       3       4       45.\n"
      "GRID    3       0       1.      0.      0.\nGRID    4       0       1.      1.      0.\n"
      "ENDDATA\n");
  auto& nodes = *session_.GetPool<DPoolNode>(code::kNode);
  auto& elements = *session_.GetPool<DPoolElem>(code::kElem);
  CTransaction step(&session_);
  step.Begin(u"move");
  tagTNode node = nodes.GetAtNU(nodes.Find(1));
  EXPECT_NEAR(node.position.y, 2, 1e-12);
  node.position.z = 4;
  ASSERT_TRUE(nodes.SetAtNU(nodes.Find(1), node));
  node.key = 6;
  node.position = {1, 2, 3};
  ASSERT_TRUE(nodes.InsertNU(node));
  tagTElem element = elements.GetAtNU(elements.Find(1));
  std::swap(element.nodes[1], element.nodes[2]);
  ASSERT_TRUE(elements.SetAtNU(elements.Find(1), element));
  ASSERT_TRUE(step.Commit());
  const std::string text = Export();
  for (const char* card : {"GRID    1               2.      90.     4.      5       6       7\n",
                           "GRID    6       0       1.      2.      3.      0\n",
                           "CQUAD4  1       5       1       3       2       4       45.\n"}) {
    EXPECT_NE(text.find(card), std::string::npos) << card << text;
  }
}

TEST_F(NastranSession, IncludesStayBelowTheDeckUnlessTrusted) {
  const std::string sub = folder_.Path("sub");
  std::filesystem::create_directory(sub);
  const std::string path = sub + "/in.bdf";
  ASSERT_TRUE(WriteWholeFile(folder_.Path("far.inc"), "GRID,9,,0.,0.,0.\n"));
  ASSERT_TRUE(WriteWholeFile(sub + "/near.inc", "GRID,8,,0.,0.,0.\n"));
  ASSERT_TRUE(WriteWholeFile(sub + "/loop.inc", "INCLUDE 'loop.inc'\n"));
  const auto line = [&](const std::string& deck, std::vector<std::string> folders = {}) {
    EXPECT_TRUE(WriteWholeFile(path, deck));
    std::vector<Failure> faults;
    ReadOptions options;
    options.include_dirs = std::move(folders);
    const auto read = ReadNastran(path, options, faults);
    return read ? std::to_string(read->node_keys.size()) : read.Error().Line();
  };
  EXPECT_EQ(line("INCLUDE 'NEAR.inc'\nGRID,1,,0.,0.,0.\n"), "2");
  EXPECT_EQ(line("INCLUDE '.\\near.inc'\n"), "1");
  EXPECT_NE(line("INCLUDE '" + folder_.Path("far.inc") + "'\n").find("not below the deck's folder"),
            std::string::npos);
  EXPECT_EQ(line("INCLUDE 'far.inc'\n", {folder_.Path().string()}), "1");
  EXPECT_NE(line("INCLUDE 'loop.inc'\n").find("includes itself"), std::string::npos);
  for (int i = 0; i < 70; ++i) {
    const std::string name = "deep" + std::to_string(i) + ".inc";
    const std::string next = "INCLUDE 'deep" + std::to_string(i + 1) + ".inc'\n";
    ASSERT_TRUE(WriteWholeFile(sub + "/" + name, next));
  }
  EXPECT_NE(line("INCLUDE 'deep0.inc'\n").find("more than 64 deep"), std::string::npos);
  EXPECT_NE(line("INCLUDE 'gone.inc'\n").find("line 1: included file 'gone.inc' is not there"),
            std::string::npos);
}

class NastranCorpus : public testing::TestWithParam<const char*> {};
INSTANTIATE_TEST_SUITE_P(
    All, NastranCorpus,
    testing::Values("cbar_orientation.bdf", "cbush_test.bdf", "comp_plate.bdf", "cylinder.bdf",
                    "fixed_motor.bdf", "hemisphere.bdf", "kobayashi_wing.dat",
                    "rigid_point_mass.bdf", "simple_case.dat", "simple_case_basic.dat",
                    "test_mass.dat", "truss_rand_coords.dat", "two_hexs.bdf", "bwb/bwb_saero.bdf",
                    "elements/static_elements.bdf", "satellite/JOBS/QS/relative_path.bdf"),
    [](const auto& test) {
      std::string name = test.param;
      std::replace_if(
          name.begin(), name.end(),
          [](char c) { return !std::isalnum(static_cast<unsigned char>(c)); }, '_');
      return name;
    });

TEST_P(NastranCorpus, HasTheExpectedTotalsAndComesBack) {
  const std::string name = std::string("nastran/") + GetParam();
  QX_REQUIRE_CORPUS(totals_path, "expected/mesh_totals.json");
  QX_REQUIRE_CORPUS(path, name);
  dbgateway::DataBase document;
  ASSERT_TRUE(document.ReadFile(totals_path));
  dbgateway::Record expected;
  document.FindCollection("files")->ForEach(
      [&](Key, std::string_view file, dbgateway::Record record) {
        if (file == name) expected = record;
      });
  ASSERT_FALSE(expected.IsDetached());
  ImportOptions options;
  options.set_model_units = true;
  options.read.include_dirs = {CorpusFile("nastran/satellite")};
  CQXDBSession session(host::SetUpModel);
  LossReport in;
  ASSERT_EQ(ImportFile(session, path, options, in).Line(), "");
  EXPECT_EQ(session.Validate(), "");
  EXPECT_EQ(session.GetDataPool(code::kNode)->GetSize(), expected.Find("num_points").Integer());
  std::int64_t elements = 0;
  auto& pool = *session.GetPool<DPoolElem>(code::kElem);
  std::map<int, std::int64_t> by_corners;
  for (ITR at = pool.GetHeadPosition(); at;) {
    const tagTElem& element = pool.GetNextNU(at);
    if (element.type > element::kLine3) ++by_corners[FindElementType(element.type)->dimension];
    elements += element.type > element::kLine3;
  }
  std::int64_t wanted = 0;
  for (const char* kind :
       {"triangle", "quad", "tetra", "tetra10", "wedge", "hexahedron", "hexahedron20"}) {
    if (const dbgateway::Field totals = expected.Find("elements").Member(kind)) {
      wanted += totals.Member("count").Integer();
    }
  }
  // The totals leave out the CSHEAR, the CQUAD8 and the CTRIA6 of this deck.
  if (name.ends_with("static_elements.bdf")) wanted += 3;
  EXPECT_EQ(elements, wanted);
  if (const dbgateway::Field low = expected.Find("bbox_min")) {
    auto& nodes = *session.GetPool<DPoolNode>(code::kNode);
    for (std::size_t d = 0; d < 3; ++d) {
      double least = INFINITY;
      double most = -INFINITY;
      for (ITR at = nodes.GetHeadPosition(); at;) {
        const tagTVector3<double> p = nodes.GetNextNU(at).position;
        const double x = d == 0 ? p.x : d == 1 ? p.y : p.z;
        least = std::min(least, x);
        most = std::max(most, x);
      }
      EXPECT_NEAR(least, low.At(d).Real(), 1e-6 * (1 + std::abs(least)));
      EXPECT_NEAR(most, expected.Find("bbox_max").At(d).Real(), 1e-6 * (1 + std::abs(most)));
    }
  }
  // Out and in again, nothing differs.
  const ScratchFolder folder;
  LossReport out;
  ASSERT_EQ(ExportFile(session, folder.Path("once.bdf"), {}, out).Line(), "");
  CQXDBSession again(host::SetUpModel);
  ASSERT_EQ(ImportFile(again, folder.Path("once.bdf"), options, in).Line(), "");
  ASSERT_EQ(ExportFile(again, folder.Path("twice.bdf"), {}, out).Line(), "");
  EXPECT_TRUE(*ReadWholeFile(folder.Path("once.bdf")) == *ReadWholeFile(folder.Path("twice.bdf")));
  if (in.IsLossless() && path.find("satellite") == std::string::npos) {
    EXPECT_TRUE(*ReadWholeFile(folder.Path("once.bdf")) == *ReadWholeFile(path)) << path;
  }
}

/// Gives every seventh record another key, and every third node another place.
template <class T>
void Shift(CQXDBSession& session, Key by) {
  DPoolBase& records = *host::PoolFor<T>(&session);
  std::vector<ITR> all;
  for (ITR at = records.GetHeadPosition(); at; records.Next(at)) all.push_back(at);
  CTransaction step(&session);
  step.Begin(u"shift");
  for (const ITR at : all) {
    T record = *static_cast<const T*>(KeyedSetBase::RecordAt(at));
    if constexpr (T::kType == code::kNode) record.position.z += record.key % 3 == 0;
    if (record.key % 7 == 0) record.key += by;
    ASSERT_TRUE(records.SetAtNU(at, &record));
  }
  ASSERT_TRUE(step.Commit());
}

TEST_P(NastranCorpus, ComesBackWithOtherNumbers) {
  QX_REQUIRE_CORPUS(path, std::string("nastran/") + GetParam());
  ImportOptions options;
  options.set_model_units = true;
  options.read.include_dirs = {CorpusFile("nastran/satellite")};
  CQXDBSession session(host::SetUpModel);
  CQXDBSession again(host::SetUpModel);
  LossReport report;
  ASSERT_EQ(ImportFile(session, path, options, report).Line(), "");
  Shift<tagTNode>(session, 50000000);
  Shift<tagTElem>(session, 60000000);
  Shift<tagTProp>(session, 70000000);
  Shift<tagTMatl>(session, 80000000);
  const ScratchFolder folder;
  ASSERT_EQ(ExportFile(session, folder.Path("once.bdf"), {}, report).Line(), "");
  ASSERT_EQ(ImportFile(again, folder.Path("once.bdf"), options, report).Line(), "");
  ASSERT_EQ(ExportFile(again, folder.Path("twice.bdf"), {}, report).Line(), "");
  EXPECT_TRUE(*ReadWholeFile(folder.Path("once.bdf")) == *ReadWholeFile(folder.Path("twice.bdf")));
  const Deck before = DeckOf(session);
  const Deck after = DeckOf(again);
  std::map<Key, Vector3> places;
  for (std::size_t i = 0; i < after.node_keys.size(); ++i) {
    places[after.node_keys[i]] = Vector3(&after.coordinates[3 * i]);
  }
  ASSERT_EQ(before.node_keys.size(), places.size());
  for (std::size_t i = 0; i < before.node_keys.size(); ++i) {
    const Vector3 at(&before.coordinates[3 * i]);
    ASSERT_TRUE(places.contains(before.node_keys[i])) << before.node_keys[i];
    ASSERT_LE(Distance(at, places[before.node_keys[i]]), 1e-11 * (1 + Length(at)));
  }
  const auto facts = [](const Deck& deck) {
    std::map<Key, std::vector<Key>> found;
    for (std::size_t e = 0; e < deck.elements.size(); ++e) {
      const Mesh::Element& element = deck.elements[e];
      std::vector<Key>& of = found[element.key];
      of = {element.type, element.property};
      for (std::size_t i = 0; i < deck.NodesOf(e); ++i) {
        of.push_back(deck.connectivity[element.first + i]);
      }
    }
    return found;
  };
  EXPECT_TRUE(facts(before) == facts(after));
  EXPECT_EQ(before.Of<tagTProp>().size(), after.Of<tagTProp>().size());
  EXPECT_EQ(before.Of<tagTMatl>().size(), after.Of<tagTMatl>().size());
  EXPECT_EQ(before.Of<tagTEcrd>().size(), after.Of<tagTEcrd>().size());
}

TEST(NastranSystems, PlaceNodesWhereTheAnswerSays) {
  QX_REQUIRE_CORPUS(local, "nastran/simple_case.dat");
  QX_REQUIRE_CORPUS(basic, "nastran/simple_case_basic.dat");
  std::vector<Failure> faults;
  const Result<Deck> a = ReadNastran(local, {}, faults);
  const Result<Deck> b = ReadNastran(basic, {}, faults);
  ASSERT_TRUE(a) << a.AsOutcome().Line();
  ASSERT_TRUE(b) << b.AsOutcome().Line();
  ASSERT_EQ(a->coordinates.size(), b->coordinates.size());
  for (std::size_t i = 0; i < a->coordinates.size(); ++i) {
    EXPECT_NEAR(a->coordinates[i], b->coordinates[i], 4e-6);
  }
}

}  // namespace
}  // namespace qx::exchange
