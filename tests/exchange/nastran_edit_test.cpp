// Nastran decks whose model changed: every number follows, what has no place is told, and what is
// written reads as the model that it was written of.

#include <fmt/format.h>
#include <fmt/ranges.h>
#include <functional>
#include <gtest/gtest.h>
#include <set>

#include "qx_db/record/element_types.h"

#include "nastran_model.h"

namespace qx::exchange {
namespace {

// ---- cases --------------------------------------------------------------------------------------

struct Case {
  const char* name;
  std::string deck;
  std::function<void(NastranModel&)> edit;
  std::vector<std::string> has;      ///< lines of the deck that comes out
  std::vector<std::string> has_not;  ///< texts that are not in it
  std::vector<std::string> told;     ///< in the report
};

const auto kNothing = [](NastranModel&) {};
void RenumberNode2(NastranModel& model) { model.Renumber<tagTNode>(2, 2000); }
void RemoveNode9(NastranModel& model) { model.Remove<tagTNode>(9); }
void RemoveRod3(NastranModel& model) { model.Remove<tagTElem>(3); }
void RenumberRod3(NastranModel& model) { model.Renumber<tagTElem>(3, 300); }

std::vector<Case> Cases() {
  const std::string system =
      "CORD2R  5               1.      0.      0.      1.      0.      1.\n"
      "        2.      0.      0.\n";
  return {
      // Single numbers where they are easily passed over.
      {"PointsOfCardsOfAnalysis",
       DeckWith("TIC,1,2,3,1.\nEIGR,1,INV,0.,1.,1,1,,,\n,POINT,2,3\nEIGC,2,INV,POINT,2,3\n"
                "PARAM,GRDPNT,2\nPARAM,POST,2\n"),
       RenumberNode2,
       {"TIC,1,2000,3,1.", ",POINT,2000,3", "EIGC,2,INV,POINT,2000,3", "PARAM,GRDPNT,2000",
        "PARAM,POST,2\n"},
       {},
       {}},
      // Lists and ranges.
      {"SingleInList",
       DeckWith("SPC1    1       123     2       7\n"),
       RenumberNode2,
       {"SPC1    1       123     2000    7"},
       {},
       {}},
      {"RangeStaysWhereItIsRight",
       DeckWith("SPC1    1       123     3       THRU    8\n"),
       RenumberNode2,
       {"SPC1    1       123     3       THRU    8"},
       {},
       {}},
      {"RangeIsDivided",
       DeckWith("SPC1    1       123     1       THRU    9\n"),
       RenumberNode2,
       {"SPC1    1       123     1       2000", "SPC1    1       123     3       THRU    9"},
       {"1       THRU    9\n"},
       {}},
      {"RangeWithoutTheNewcomer",
       DeckWith("SPC1    1       123     1       THRU    8\n"),
       [](NastranModel& model) {
         model.Renumber<tagTNode>(4, 40);
         model.Renumber<tagTNode>(9, 4);
       },
       {"SPC1    1       123     1       THRU    3", "SPC1    1       123     5       THRU    8",
        "SPC1    1       123     40"},
       {},
       {}},
      {"RangeByStep",
       DeckWith("SET1    7       1       THRU    9       BY      2\nSPLINE1,9,1,1,2,7\n"),
       [](NastranModel& model) { model.Renumber<tagTNode>(5, 50); },
       {"SET1    7       1       3       7       9       50"},
       {},
       {}},
      // What only the text has stays in the ranges that name it.
      {"RangeKeepsScalarPoints",
       DeckWith("SPOINT  20      THRU    23\nSPC1    1       1       1       THRU    23\n"),
       RenumberNode2,
       {"SPC1    1       1       1       2000", "SPC1    1       1       3       THRU    9",
        "SPC1    1       1       20      THRU    23"},
       {"THRU    23      \n"},
       {}},
      {"ListKeepsRigidElements",
       DeckWith("RBAR    7       1       2\nSET1    8       1       THRU    7\nPANEL   WING    8\n"
                "NSM1    5       ELEMENT 1.5     2       THRU    7\n"
                "MONPNT3,A,B\n,123,,8\nSET1,9,1,THRU,7\n"),
       [](NastranModel& model) { RenumberRod3(model); },
       {"NSM1    5       ELEMENT 1.5     2       4       5       7       300"},
       {},
       {"SET1 cards were not checked against renumbering: 2"}},
      {"ScalarPointsUpToTheEnd",
       DeckWith("SPOINT  20      THRU    99999999\nSPC1    1       1       21\n"
                "SET1    7       1       THRU    99999999BY      2\nPANEL   A       7\n"),
       [](NastranModel& model) { model.Renumber<tagTNode>(2, 21); },
       {"SPOINT  22      THRU    99999999", "SPC1    1       1       2\n"},
       {},
       {"SET1 cards were not checked against renumbering: 1"}},
      {"SetOfElements",
       DeckWith("SET1    8       2       3       4\nMONPNT3,A,B\n,123,,8\n"),
       RenumberRod3,
       {"SET1    8       2       300     4"},
       {},
       {}},
      {"ScalarPointsMakeRoom",
       DeckWith("SPOINT  20      21      22\nSPC     1       21      0       0.\n"),
       [](NastranModel& model) { model.Renumber<tagTNode>(2, 21); },
       {"SPOINT  20      23      22", "SPC     1       23      0       0.",
        "GRID    21              2."},
       {},
       {"numbers of SPOINT cards, which only their text has, were changed: 1"}},
      {"RangeOfScalarPointsMakesRoom",
       DeckWith("SPOINT  20      THRU    24\nRBE2    99      1       1       21\n"),
       [](NastranModel& model) { model.Renumber<tagTNode>(2, 21); },
       {"SPOINT  20", "SPOINT  22      THRU    25", "RBE2    99      1       1       25"},
       {},
       {}},
      {"LoadRange",
       DeckWith("PLOAD4  1       2       5.                              THRU    5\n"),
       RenumberRod3,
       {"PLOAD4  1       2       5.", "PLOAD4  1       300     5.", "PLOAD4  1       4       5.",
        "PLOAD4  1       5       5."},
       {"THRU"},
       {}},
      {"GoneInList",
       DeckWith("SPC1    1       123     8       9\n"),
       RemoveNode9,
       {"SPC1    1       123     8"},
       {},
       {"numbers of what is gone were taken out of SPC1 cards: 1"}},
      {"GoneCards",
       DeckWith("FORCE   1       9               1.      1.      0.      0.\n"
                "PLOAD4  1       3       5.\nSPC1    1       123     9\n"
                "MPC     1       8       1       1.      9       1       -1.\n"
                "SPC     1       9       123     0.      8       123     0.\n"),
       [](NastranModel& model) {
         RemoveNode9(model);
         RemoveRod3(model);
       },
       {"SPC     1                               8       123     0."},
       {"FORCE", "PLOAD4", "SPC1", "MPC"},
       {"FORCE cards were left out: 1", "PLOAD4 cards were left out: 1", "first: line"}},
      {"Rbe3",
       DeckWith("RBE3    99              1       123     1.      123     2       3\n"
                "        2.      12      4       9       UM      2       3       5\n"
                "        6\n"),
       [](NastranModel& model) {
         RenumberNode2(model);
         RemoveNode9(model);
       },
       {"RBE3    99              1       123     1.      123     2000    3",
        "        2.      12      4               UM      2000    3       5"},
       {},
       {}},
      {"Mpc",
       DeckWith("MPC     1       2       1       1.      3       1       -1.\n"
                "                2       2       1.\n"),
       RenumberNode2,
       {"MPC     1       2000    1       1.      3       1       -1.",
        "                2000    2       1."},
       {},
       {}},
      {"FreeFieldBeyondEightFields",
       DeckWith("RBE2,50,1,123,2,3,4,5,6,7,8,9\n"),
       RenumberNode2,
       {"RBE2,50,1,123,2000,3,4,5,6,7,8,9"},
       {},
       {}},
      {"NinthFieldThatIsNoLabel",
       DeckWith("RBE2,50,1,123,3,4,5,6,7,2\n"),
       RenumberNode2,
       {"RBE2,50,1,123,3,4,5,6,7,2000"},
       {},
       {}},
      {"PlotelWithTheNumberOfAnother",
       DeckWith("PLOTEL  2       2       3\n"),
       RenumberNode2,
       {"PLOTEL  2       2000    3"},
       {},
       {}},
      {"CarriedElementMakesRoom",
       DeckWith("RBAR    7       1       2\n"),
       [](NastranModel& model) { model.Renumber<tagTElem>(3, 7); },
       {"CROD    7       2       3       4", "RBAR    8       1       2"},
       {},
       {"numbers of RBAR cards, which only their text has, were changed: 1"}},
      {"UnknownCardsAreTold",
       DeckWith("WEIRD   1       2\n"),
       RenumberNode2,
       {"WEIRD   1       2"},
       {},
       {"WEIRD cards were not checked against renumbering: 1"}},
      // Systems.
      {"SystemByAngles",
       DeckWith(system),
       [](NastranModel& model) {
         model.Change<tagTCord>(5, [](tagTCord& cord) {
           cord.method = tagTCord::kByAngles;
           cord.origin = {3, 0, 0};
           cord.rotation_deg = {0, 0, 90};
         });
       },
       {"CORD2R  5               3.      0.      0.      3.      0.      1.",
        "        3.      1.      0."},
       {},
       {}},
      {"SystemByXAndPlane",
       DeckWith(system),
       [](NastranModel& model) {
         model.Change<tagTCord>(5, [](tagTCord& cord) {
           cord.plane = 0;
           cord.axis_point = {1, 1, 0};
           cord.plane_point = {0, 0, 0};
         });
       },
       {"CORD2R  5               1.      0.      0.      1.      0.      1.",
        "        1.      1.      0."},
       {},
       {}},
      {"NodesOfASystemRenumbered",
       DeckWith("CORD1R  5       1       2       3\n"),
       RenumberNode2,
       {"CORD1R  5       1       2000    3"},
       {},
       {}},
      {"NodesOfASystemMoved",
       DeckWith("CORD1R  5       1       2       3       6       1       3"
                "       4\n"),
       [](NastranModel& model) {
         model.Change<tagTNode>(2, [](tagTNode& node) { node.position.z = 5; });
       },
       {"CORD2R  5               1.      0.      0.      2.      1.      0.",
        "CORD1R  6       1       3       4"},
       {},
       {"CORD1R cards were written by their points: 1"}},
      {"SystemRenumbered",
       DeckWith(system + "GRID    20      5       1.      1.      1.      5\n"
                         "FORCE   1       1       5       1.      1.\n"),
       [](NastranModel& model) { model.Renumber<tagTCord>(5, 55); },
       {"CORD2R  55", "GRID    20      55      1.      1.      1.      55",
        "FORCE   1       1       55      1.      1."},
       {},
       {}},
      {"SystemGone",
       DeckWith("GRDSET          5\n" + system +
                "GRID    20              1.      1.      1.\n"
                "FORCE   1       1       5       1.      1.\n"),
       [](NastranModel& model) { model.Remove<tagTCord>(5); },
       {"GRDSET\n", "GRID    20              2.      1.      1.\n"},
       {"FORCE", "CORD2R"},
       {"FORCE cards were left out: 1"}},
      // Fields that only the text has, and precision.
      {"MovedFieldByField",
       DeckWith("GRID*   30                              .300\n*       "
                "        4.50\n"),
       [](NastranModel& model) {
         model.Change<tagTNode>(30, [](tagTNode& node) { node.position.x = 1.0 / 3; });
       },
       {"GRID*   30                              .333333333333333", "*               4.50"},
       {},
       {}},
      {"SmallFieldThatIsTooSmall",
       DeckWith("GRID    31              1.50    2.50    3.50"
                "            123\n"),
       [](NastranModel& model) {
         model.Change<tagTNode>(31, [](tagTNode& node) { node.position.y = 0.0123456789; });
       },
       {"GRID*   31                              1.50            0.0123456789",
        "*       3.50                            123"},
       {},
       {}},
      {"ChangedPropertyKeepsTheRest",
       DeckWith("PSHELL  9       1       .10     1       2.0     1       .9      .05     -.5\n"),
       [](NastranModel& model) {
         model.Change<tagTProp>(9, [](tagTProp& property) { property.thickness = .2; });
       },
       {"PSHELL  9       1       0.2     1       2.0     1       .9      .05     -.5"},
       {},
       {}},
      {"PropertyAndMaterialRenumbered",
       DeckWith("MATS1   1               PLASTIC\n"),
       [](NastranModel& model) {
         model.Renumber<tagTProp>(1, 11);
         model.Renumber<tagTMatl>(1, 101);
       },
       {"PSHELL  11      101     .1      101", "MAT1    101     2.+11           .3",
        "PROD    2       101     .2", "CQUAD4  1       11      1", "MATS1   101"},
       {},
       {}},
      {"ChangesThatACardCannotSay",
       DeckWith("MAT8    8       1.+11   2.+10   .3      1.+9                    1500.\n"),
       [](NastranModel& model) {
         model.Change<tagTMatl>(8, [](tagTMatl& material) {
           material.density = 1600;
           material.elastic_modulus = 3e11;
         });
       },
       {"MAT8    8       1.+11   2.+10   .3      1.+9                    1600."},
       {"MAT1    8"},
       {"parts of materials were left out: elastic modulus: 1 (MAT8 cards"}},
      {"ElementWithoutAProperty",
       DeckWith("CROD    40              1       2\n"),
       kNothing,
       {"CROD    40              1       2"},
       {},
       {}},
      {"DeletedPropertyIsNotInvented",
       DeckWith(""),
       [](NastranModel& model) {
         model.Change<tagTElem>(3, [](tagTElem& element) { element.property = 0; });
       },
       {"CROD    3               3       4"},
       {},
       {"elements without a property name none in their cards: 1"}},
      {"Names",
       DeckWith(""),
       [](NastranModel& model) {
         model.Change<tagTProp>(1, [](tagTProp& p) { p.name.Set(u"a \"skin\"\nof two"); });
       },
       {"$ Property 1: \"a \\\"skin\\\"\\nof two\""},
       {},
       {}},
      {"FluidAndAbsolute",
       DeckWith("GRID    50              1.      1.      1.      -1\n"
                "CONM2   60      1       -1      5.      3.      2.      1.\n"),
       [](NastranModel& model) {
         model.Change<tagTNode>(50, [](tagTNode& node) { node.position.x = 4; });
         model.Change<tagTSprop>(60, [](tagTSprop& mass) { mass.offset.y = 7; });
       },
       {"GRID    50              4.      1.      1.      -1",
        "CONM2   60      1       -1      5.      3.      7.      1."},
       {},
       {}},
      {"OffsetsBesideDefaults",
       DeckWith("BAROR                                   1.      0.      0.      GOO\n"
                "CBAR    80      5       1       2\n                        0.      1.      0.\n"
                "PBAR    5       1       1.      1.      1.\n"),
       [](NastranModel& model) {
         model.Change<tagTE1DOffset>(1, [](tagTE1DOffset& offset) { offset.csys_type = 0; });
       },
       {"CBAR    80      5       1       2                               GGO\n"},
       {},
       {}},
      // Sets of the case control.
      {"SetsFollow",
       DeckWith("", "SET 1 = 1 THRU 4, 7\nSET 2 = 2,3\nDISP = 1\nSTRESS = 2\n"),
       [](NastranModel& model) {
         RenumberNode2(model);
         RemoveRod3(model);
       },
       {"SET 1 = 1, 3, 4, 7, 2000", "SET 2 = 2", "DISP = 1"},
       {},
       {}},
      {"UntouchedSetsStay",
       DeckWith("", "SET 1 = 1 THRU 4 EXCEPT 3,\n   7\nDISP = 1\n"),
       kNothing,
       {"SET 1 = 1 THRU 4 EXCEPT 3,", "   7"},
       {"$ Set"},
       {}},
      {"SetsKeepWhatOnlyTheTextHas",
       DeckWith("RBAR    7       1       2\nSPOINT  20      21\n",
                "SET 1 = 1 THRU 10 EXCEPT 4\nSET 2 = 1 THRU 21\nSTRESS = 1\nDISP = 2\n"),
       [](NastranModel& model) {
         RenumberNode2(model);
         RenumberRod3(model);
       },
       {"SET 1 = 1, 2, 5, 7, 300\n", "SET 2 = 1, 3 THRU 9, 20, 21, 2000\n"},
       {},
       {}},
      {"ExceptedRanges",
       DeckWith("", "SET 1 = 1 THRU 9 EXCEPT 3 THRU 5, 7, 20 THRU 30\nDISP = 1\n"),
       RenumberNode2,
       {"SET 1 = 1, 6, 8, 9, 2000\n"},
       {},
       {}},
      {"SetsThatUnknownCommandsNameStay",
       DeckWith("", "SET 1 = 7 THRU 9\nPARTN = 1\nSUBTITLE = 2\nSET 2 = 7, 8\nSET 3 = 7\n"),
       [](NastranModel& model) {
         RenumberNode2(model);
         // Those of sets 2 and 3: the first is text.
         model.Remove<tagTMset>(model.SetKey("SET 3"));
       },
       {"SET 1 = 7 THRU 9\n", "PARTN = 1", "SET 2 = 7, 8\n"},
       {"SET 3 ="},
       {"sets of the case control were not checked against renumbering: 1"}},
      {"PlotSectionsAreTold",
       DeckWith("",
                "SET 1 = 1, 2\nDISP = 1\nOUTPUT(XYPLOT)\nSET 2 = 1\nXYPLOT DISP /2(T3)\n"
                "OUTPUT(POST)\nSET 3 = 2, 3\nVELO = 3\n"),
       RenumberNode2,
       {"SET 1 = 1, 2000\n", "SET 2 = 1\nXYPLOT DISP /2(T3)\n", "SET 3 = 3, 2000\n"},
       {},
       {"lines of plot sections were not checked against renumbering: 3"}},
      {"SetsWithoutAnExecutiveSection",
       "SOL 101\nTITLE = x\nSET 1 = 1, 2\nDISP = 1\nOUTPUT(PLOT)\nSET 9 = ALL\n" +
           DeckWith("").substr(DeckWith("").find("BEGIN BULK")),
       [](NastranModel& model) {
         model.Change<tagTMset>(model.SetKey("SET 1"),
                                [](tagTMset& set) { set.name.Set(u"ends"); });
         tagTMset more;
         more.key = 77;
         more.name.Set(u"more");
         more.nodes.Add(host::PoolFor<tagTNode>(&model.Session())->Find(3));
         ASSERT_TRUE(host::PoolFor<tagTMset>(&model.Session())->InsertNU(&more));
       },
       {"$ Set 2: nodes of \"more\"\nSET 2 = 3\nTITLE = x\n$ Set 1: nodes of \"ends\"\n"},
       {},
       {}},
      // Systems in others that turn, in units of their own; and cards of defaults.
      {"OrientationIsChangedAsAWhole",
       DeckWith("BAROR                                   1.      2.      3.\n"
                "CBAR    80      5       1       2\nCBAR    81      5       1       2       7\n"
                "PBAR    5       1       1.      1.      1.\n"),
       [](NastranModel& model) {
         model.Change<tagTEcrd>(80, [](tagTEcrd& turned) { turned.reference_vector.z = 5; });
         model.Change<tagTEcrd>(81, [](tagTEcrd& turned) {
           turned.method = tagTEcrd::kByVector;
           turned.reference_vector = {0, 0, 4};
         });
       },
       {"CBAR    80      5       1       2       1.      2.      5.\n",
        "CBAR    81      5       1       2       0.      0.      4.\n"},
       {},
       {}},
      {"DefaultsOfNodesAreNotThoseOfNewOnes",
       DeckWith("GRDSET                                                  123     4\n"),
       [](NastranModel& model) {
         tagTNode node;
         node.key = 60;
         node.position = {1, 2, 3};
         ASSERT_TRUE(host::PoolFor<tagTNode>(&model.Session())->InsertNU(&node));
       },
       {"GRID    60      0       1.      2.      3.      0       0       0\n"},
       {},
       {}},
      {"DefaultsOfBarsThatAreGone",
       DeckWith("BAROR           5                       9\nCBAR    80              1       3\n"
                "CBAR    81              2       3       0.      0.      1.\n"
                "PBAR    5       1       1.      1.      1.\n"),
       [](NastranModel& model) {
         RemoveNode9(model);
         model.Change<tagTElem>(81, [](tagTElem& element) { element.property = 0; });
       },
       {"BAROR           5\n", "CBAR    80              1       3       0.      0.      1.\n",
        "CBAR    81              2       3       0.      0.      1.\n"},
       {},
       {"elements without a property have the one of the card of defaults: 1"}},
      {"BarsAlongASystem",
       DeckWith(system + "CBAR    80      5       1       3       0.      0.      1.\n"
                         "CBAR    81      5       1       2       0.      0.      1.\n"
                         "PBAR    5       1       1.      1.      1.\n"),
       [](NastranModel& model) {
         for (const Key key : {80, 81}) {
           model.Change<tagTEcrd>(key, [&](tagTEcrd& turned) {
             turned.method = tagTEcrd::kByCoordinateSystem;
             turned.coordinate_system = host::PoolFor<tagTCord>(&model.Session())->Find(5);
           });
         }
       },
       {"CBAR    80      5       1       3       0.      1.      0.\n"},
       {},
       {"lines with the axes of a system were written along their nodes: 1"}},
      {"SetsOfScalarPointsAloneStay",
       DeckWith("SPOINT  20      THRU    25\n",
                "DISP = 5\nSET 5 = 20 THRU 22\n$ Set 6: nodes of \"probes\"\nSET 6 = 23,24\n"),
       RenumberNode2,
       {"SET 5 = 20 THRU 22\n$ Set 6: nodes of \"probes\"\nSET 6 = 23,24\n"},
       {"nothing of", "$ Set 1"},
       {}},
      {"ExceptOfScalarPointsStays",
       DeckWith("SPOINT  20      THRU    25\n",
                "DISP = 5\nSET 5 = 1 THRU 25 EXCEPT 21 THRU 23\nACCE = 6\n"
                "SET 6 = 20 THRU 25 EXCEPT 22\n"),
       RenumberNode2,
       {"SET 5 = 1, 3 THRU 9, 20, 24, 25, 2000\n", "SET 6 = 20 THRU 25 EXCEPT 22\n"},
       {},
       {}},
      {"SystemsThatTheDeckLacksStayNamed",
       DeckWith("PSOLID  3       1       7\nCONM2   90      1       8       1.5\n"),
       [](NastranModel& model) {
         RenumberNode2(model);
         model.Change<tagTProp>(3, [](tagTProp& property) { property.material = 0; });
       },
       {"PSOLID  3               7\n", "CONM2   90      1       8       1.5\n"},
       {},
       {}},
      {"SetsOfUnknownKindAreTold",
       DeckWith("", "SET 1 = 1 THRU 4\n"),
       RenumberNode2,
       {"SET 1 = 1 THRU 4"},
       {},
       {"sets of the case control were not checked"}},
  };
}

class NastranEdit : public testing::TestWithParam<Case> {};
INSTANTIATE_TEST_SUITE_P(All, NastranEdit, testing::ValuesIn(Cases()),
                         [](const auto& test) { return std::string(test.param.name); });

TEST_P(NastranEdit, ComesOutRight) {
  NastranModel model;
  model.Import(GetParam().deck);
  EXPECT_EQ(model.Export(), GetParam().deck);
  model.Edit([&] { GetParam().edit(model); });
  const std::string text = model.Export();
  for (const std::string& line : GetParam().has) {
    EXPECT_NE(text.find("\n" + line), std::string::npos) << line << "\n" << text;
  }
  for (const std::string& part : GetParam().has_not) {
    EXPECT_EQ(text.find(part), std::string::npos) << part << "\n" << text;
  }
  for (const std::string& part : GetParam().told) {
    EXPECT_NE(model.ToldOut().find(part), std::string::npos) << part << "\n" << model.ToldOut();
  }
  NastranModel again;
  again.Import(text);
  EXPECT_EQ(again.Export(), text);
}

TEST(NastranSets, ComeBackWithTheirNamesMembersAndParents) {
  Mesh mesh;
  for (Key key = 1; key < 90; ++key) {
    mesh.node_keys.push_back(key);
    mesh.coordinates.insert(mesh.coordinates.end(), {key * 1.0, key % 2 * 1.0, 0});
    if (key < 3) continue;
    mesh.elements.push_back({key, element::kTri3, mesh.connectivity.size()});
    mesh.connectivity.insert(mesh.connectivity.end(), {key - 2, key - 1, key});
  }
  mesh.groups = {{"whole\n\"wing\"", -1, {}, {}},
                 {"skin \xC3\xA4", -1, {3, 4, 5, 9}, {50, 51, 52}, 0},
                 {"tips, SET 1 = ALL", -1, {}, {7, 8}, 0},
                 {"$ ENDDATA", -1, {80}, {}, 1},
                 {"long", -1, {}, {}}};
  for (Key key = 3; key < 90; key += 2) mesh.groups.back().elements.push_back(key);
  NastranModel model;
  ASSERT_TRUE(AddMesh(model.Session(), mesh, "mesh"));
  const std::string text = model.Export();
  NastranModel again;
  again.Import(text);
  EXPECT_EQ(again.Export(), text);
  const Deck before = DeckOf(model.Session());
  const Deck after = DeckOf(again.Session());
  const auto facts = [](const Deck& deck) {
    std::set<std::string> found;
    for (const Mesh::Group& group : deck.groups) {
      found.insert(fmt::format(
          "{} in {}: {} {}", group.name,
          group.parent < 0 ? "" : deck.groups[static_cast<std::size_t>(group.parent)].name,
          fmt::join(group.elements, " "), fmt::join(group.nodes, " ")));
    }
    return found;
  };
  EXPECT_EQ(facts(before), facts(after)) << text;
  EXPECT_EQ(after.Of<tagTProp>().size(), 0u) << text;
}

TEST(NastranSets, OfPointsListTheirNodes) {
  Mesh mesh;
  mesh.node_keys = {11, 12};
  mesh.coordinates = {0, 0, 0, 1, 0, 0};
  mesh.elements = {{1, element::kPoint, 0}, {2, element::kLine2, 1}};
  mesh.connectivity = {11, 11, 12};
  mesh.groups = {{"corner", 0, {1}}, {"edge", 1, {1, 2}}};
  NastranModel model;
  ASSERT_TRUE(AddMesh(model.Session(), mesh, "mesh"));
  const std::string text = model.Export();
  EXPECT_NE(text.find("nodes of \"corner\"\nSET 1 = 11\n"), std::string::npos) << text;
  EXPECT_NE(model.ToldOut().find("left out: 1 (they have no mass"), std::string::npos);
  NastranModel again;
  again.Import(text);
  EXPECT_EQ(again.Export(), text);
}

TEST(NastranRefusals, NumbersThatNoDeckCanHold) {
  const std::pair<std::function<void(NastranModel&)>, const char*> cases[] = {
      {[](NastranModel& m) { m.Renumber<tagTNode>(2, 123456789); },
       "node 123456789: numbers of the format end at 99999999"},
      {[](NastranModel& m) { m.Renumber<tagTElem>(3, 100000000); }, "element 100000000: numbers"},
      {[](NastranModel& m) {
         m.Change<tagTMatl>(1, [](tagTMatl& material) { material.density = NAN; });
       },
       "material 1: its density is not a finite number"},
      {[](NastranModel& m) {
         m.Change<tagTProp>(1, [](tagTProp& property) { property.thickness = INFINITY; });
       },
       "property 1: its thickness is not a finite number"},
  };
  for (const auto& c : cases) {
    NastranModel model;
    model.Import(DeckWith(""));
    model.Edit([&] { c.first(model); });
    EXPECT_NE(model.Refusal().find(c.second), std::string::npos) << model.Refusal();
  }
  // A deck that came with such a number goes back with it.
  NastranModel model;
  model.Import(DeckWith("GRID*   123456789                       1.\n*       1.\n"));
  EXPECT_EQ(model.Refusal(), "");
}

}  // namespace
}  // namespace qx::exchange
