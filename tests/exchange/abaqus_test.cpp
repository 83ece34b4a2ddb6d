// Abaqus and CalculiX decks: what keywords mean, and what is wrong with them.

#include <algorithm>
#include <cmath>
#include <gtest/gtest.h>
#include <map>

#include "qx_db/qx_db.h"

#include "abaqus_model.h"
#include "brief.h"
#include "exchange/abaqus/abaqus_format.h"
#include "exchange/abaqus/inp_kinds.h"
#include "exchange/abaqus/inp_text.h"
#include "mesh_measure.h"

namespace qx::exchange {
namespace {

Result<Deck> Parse(const std::string& text, std::vector<Failure>* all = nullptr) {
  std::vector<Failure> faults;
  Result<Deck> deck = ParseAbaqus(InpText(text, "deck.inp"), "deck.inp", {}, faults);
  if (all) *all = faults;
  return deck;
}

const Mesh::Group* Find(const Deck& deck, const std::string& name, int kind) {
  for (const Mesh::Group& group : deck.groups) {
    if (group.name == name && group.tags[0].kind == kind) return &group;
  }
  return nullptr;
}

TEST(AbaqusNodes, StandWhereTheirKeywordsSay) {
  struct Case {
    const char* name;
    const char* text;
    Key node;
    sample::Point at;
  };
  const Case cases[] = {
      {"continued and with blanks", "*Node,\nNset=A\n 1 , 1. ,2.D0, 3\n", 1, {1, 2, 3}},
      {"two coordinates", "*NODE\n7, 1e-1, -2\n", 7, {0.1, -2, 0}},
      {"comments and empty lines", "** x\n*node\n**\n\n1, 1\n** y\n", 1, {1, 0, 0}},
      {"cylindrical", "*Node, system=C\n1, 2, 90, 3\n", 1, {0, 2, 3}},
      {"spherical", "*Node, system=S\n1, 2, 90, 30\n", 1, {0, std::sqrt(3.0), 1}},
      {"shifted system", "*System\n1, 2, 3\n*Node\n1, 1, 0, 0\n", 1, {2, 2, 3}},
      {"turned system", "*System\n0,0,0, 0,1,0\n-1,0,0\n*Node\n1, 1, 0, 0\n", 1, {0, 1, 0}},
      {"system that ends", "*System\n1,2,3\n*System\n*Node\n1, 1\n", 1, {1, 0, 0}},
      {"between", "*Node\n1\n11, 10.\n*Ngen\n1, 11, 2\n", 7, {6, 0, 0}},
      {"arc",
       "*Node\n1, 1.\n3, 0., 1.\n9\n*Ngen, line=C\n1, 3, 1, 9\n",
       2,
       {std::sqrt(0.5), std::sqrt(0.5), 0}},
      {"arc about a point in cylindrical coordinates",
       "*Node\n1, 2., 1.\n3, 1., 2.\n*System\n1, 0\n*Ngen, line=C, system=C\n1, 3, 1, , 1., 90., "
       "0.\n",
       2,
       {1 + std::sqrt(0.5), 1 + std::sqrt(0.5), 0}},
      {"parabola",
       "*Node\n1, -1.\n5, 1.\n9, 0., 1.\n*Ngen, line=P\n1, 5, 1, 9\n",
       2,
       {-0.5, 0.75, 0}},
      {"filled",
       "*Node, nset=a\n1\n2, 0., 1.\n*Node, nset=b\n31, 4.\n32, 4., 1.\n"
       "*Nfill\na, b, 3, 10\n",
       22,
       {8.0 / 3, 1, 0}},
      {"filled with bias",
       "*Node, nset=a\n1\n*Node, nset=b\n4, 7.\n*Nfill, bias=.5\na, b, 3, 1\n",
       2,
       {1, 0, 0}},
      {"moved copy",
       "*Node, nset=a\n1, 1.\n*Ncopy, old set=a, change number=5, shift, multiple=2\n"
       "0., 0., 1.\n0.,0.,0., 0.,0.,1., 90.\n",
       11,
       {-1, 0, 2}},
      {"mirrored copy",
       "*Node, nset=a\n1, 1., 2., 3.\n*Ncopy, old set=a, change number=1, "
       "reflect=mirror\n0,0,0, 0,1,0\n0,0,1\n",
       2,
       {-1, 2, 3}},
  };
  for (const Case& c : cases) {
    const Result<Deck> deck = Parse(c.text);
    ASSERT_TRUE(deck) << c.name << deck.AsOutcome().Line();
    const auto points = PointsOf(*deck);
    ASSERT_TRUE(points.contains(c.node)) << c.name;
    ExpectPoint(points.at(c.node), c.at, c.name);
  }
}

TEST(AbaqusElements, OfEveryNameThatMaps) {
  const std::pair<const char*, std::int32_t> cases[] = {
      {"C3D4", 8},    {"C3D10MH", 9}, {"C3D5", 10},   {"C3D6", 12},   {"C3D15", 13},
      {"C3D15V", 13}, {"C3D8R", 14},  {"C3D8IH", 14}, {"C3D20R", 15}, {"C3D27", 15},
      {"DC3D8", 14},  {"AC3D20", 15}, {"SC8R", 14},   {"COH3D6", 12}, {"CPS3", 4},
      {"CPE4RH", 6},  {"CAX8R", 7},   {"CPEG6", 5},   {"S3R", 4},     {"S4R5", 6},
      {"S8R5", 7},    {"S9R5", 7},    {"STRI65", 5},  {"M3D4R", 6},   {"SFM3D8R", 7},
      {"R3D4", 6},    {"T3D2H", 2},   {"T2D3", 3},    {"B21", 2},     {"B31OSH", 2},
      {"B32R", 3},    {"B33", 2},     {"PIPE31", 2},  {"SAX2", 3},    {"MASS", 1},
      {"ROTARYI", 1}, {"SPRING1", 1}, {"SPRINGA", 2}, {"CONN3D2", 2}, {"DASHPOTA", 2},
      {"U1", 0},      {"C3D", 0},     {"C3D7", 0},    {"B3", 0},      {"S", 0},
      {"MASSIVE", 0}, {"CCL24", 0},
  };
  for (const auto& [name, type] : cases) {
    const auto found = FindInpElement(name);
    EXPECT_EQ(found ? found->type : 0, type) << name;
  }
}

/// Elements of the sample keep their sizes: the orders of nodes agree.
TEST(AbaqusElements, HaveTheirNodesInOrder) {
  for (const char* name : {"C3D4", "C3D10", "C3D6", "C3D15", "C3D8", "C3D20", "S3", "S4", "STRI65",
                           "S8R", "B31", "B32"}) {
    const auto type = FindInpElement(name);
    const sample::Shape& shape = sample::ShapeOf(type->type);
    std::vector<sample::Point> nodes = shape.corners;
    if (type->nodes > nodes.size()) {
      for (const auto& [a, b] : shape.edges) {
        nodes.push_back(sample::Middle(shape.corners[static_cast<std::size_t>(a)],
                                       shape.corners[static_cast<std::size_t>(b)]));
      }
    }
    // The format has the middle node of a line between the ends.
    if (type->nodes == 3 && shape.dimension == 1) std::swap(nodes[1], nodes[2]);
    std::string text = "*Node\n";
    std::string element = "1";
    for (std::size_t i = 0; i < nodes.size(); ++i) {
      const std::string number = std::to_string(i + 1);
      text += number + ", " + std::to_string(nodes[i][0]) + ", " + std::to_string(nodes[i][1]) +
              ", " + std::to_string(nodes[i][2]) + "\n";
      element += (i == 14 ? ",\n" : ", ") + number;
    }
    const Result<Deck> deck = Parse(text + "*Element, type=" + name + "\n" + element + "\n");
    ASSERT_TRUE(deck) << name << deck.AsOutcome().Line();
    const auto points = PointsOf(*deck);
    std::vector<sample::Point> in_order;
    for (const Key key : deck->connectivity) in_order.push_back(points.at(key));
    const double expected = shape.dimension == 1 || shape.corners.size() == 4
                                ? shape.dimension == 3 ? 1.0 / 6 : 1
                            : shape.corners.size() == 8 ? 1
                                                        : 0.5;
    EXPECT_NEAR(measure::Size(type->type, in_order), expected, 1e-5) << name;
  }
}

TEST(AbaqusElements, AreGenerated) {
  const std::string text =
      "*Node\n1\n11, 10.\n*Ngen, nset=row\n1, 11\n*Ncopy, old set=row, change number=20, shift, "
      "multiple=3, new set=other\n0., 1.\n\n*Element, type=S4\n1, 1, 2, 22, 21\n"
      "*Elgen, elset=all\n1, 10, 1, 1, 3, 20, 10\n"
      "*Elcopy, old set=all, element shift=100, shift nodes=0, new set=none\n";
  const Result<Deck> deck = Parse(text);
  ASSERT_TRUE(deck) << deck.AsOutcome().Line();
  EXPECT_EQ(deck->node_keys.size(), 44u);
  EXPECT_EQ(deck->elements.size(), 60u);
  EXPECT_EQ(Find(*deck, "all", tagTSetTag::kElements)->elements.size(), 30u);
  EXPECT_EQ(Find(*deck, "row", tagTSetTag::kNodes)->nodes.size(), 11u);
  for (const Mesh::Element& element : deck->elements) {
    if (element.key != 30 && element.key != 130) continue;
    const auto first = deck->connectivity.begin() + static_cast<std::ptrdiff_t>(element.first);
    EXPECT_EQ((std::vector<Key>(first, first + 4)), (std::vector<Key>{50, 51, 71, 70}));
  }
}

TEST(AbaqusSets, HaveTheirMembers) {
  const Result<Deck> deck = Parse(std::string(kBlock) +
                                  "*Nset, nset=low, generate\n1, 4, 1\n*Nset, nset=\"two of\"\n"
                                  "low, 101\n*NSET, NSET=Low\n102\n*Nset, nset=all, elset=Solid\n"
                                  "*Elset, elset=e\nSOLID\n*Surface, name=top\ne, S2\n"
                                  "*Surface, name=feet, type=node\nlow\n");
  ASSERT_TRUE(deck) << deck.AsOutcome().Line();
  const auto nodes = [&](const char* name) { return Find(*deck, name, tagTSetTag::kNodes)->nodes; };
  EXPECT_EQ(nodes("low"), (std::vector<Key>{1, 2, 3, 4, 102}));
  EXPECT_EQ(nodes("two of"), (std::vector<Key>{1, 2, 3, 4, 101}));
  EXPECT_EQ(nodes("all").size(), 8u);
  EXPECT_EQ(nodes("feet").size(), 5u);
  const Mesh::Group& low = *Find(*deck, "low", tagTSetTag::kNodes);
  EXPECT_EQ(deck->groups[static_cast<std::size_t>(low.parent)].name, "two of");
  const Mesh::Group& top = *Find(*deck, "top", tagTSetTag::kSides);
  EXPECT_EQ(top.tags[0].sides, (std::vector<std::pair<Key, std::int32_t>>{{1, 1}}));
}

TEST(AbaqusSections, BecomeProperties) {
  const Result<Deck> deck = Parse(
      "*Node\n1\n2, 1.\n3, 1., 1.\n4, 0., 1.\n*Element, type=S4, elset=p\n1, 1, 2, 3, 4\n"
      "*Element, type=B31, elset=b\n2, 1, 2\n*Element, type=T3D2, elset=t\n3, 2, 3\n"
      "*Element, type=MASS, elset=m\n4, 4\n*Element, type=SPRING1, elset=s\n5, 4\n"
      "*Orientation, name=o\n0., 1., 0., -1., 0., 0.\n"
      "*Material, name=steel\n*Elastic\n2.1e11, .3\n*Density\n7850.,\n*Expansion, zero=20.\n1e-5\n"
      "*Conductivity\n50.\n*Shell section, elset=p, material=STEEL, orientation=o, offset=spos\n"
      ".02, 5\n*Beam section, elset=b, material=steel, section=rect\n.2, .1\n0., 1., 0.\n"
      "*Solid section, elset=t, material=steel\n.5\n*Mass, elset=m\n12.\n*Spring, elset=s\n3\n1e6\n"
      "*Transform, nset=n, type=C\n0., 0., 0., 0., 0., 1.\n*Nset, nset=n\n1\n");
  // A transformation of a set that comes behind it.
  EXPECT_FALSE(deck);
  EXPECT_NE(deck.AsOutcome().Line().find("*TRANSFORM: its node set 'n' is not there"),
            std::string::npos);
}

TEST(AbaqusSections, HoldWhatTheDeckSays) {
  const Result<Deck> deck = Parse(
      "*Node, nset=n\n1\n2, 1.\n3, 1., 1.\n4, 0., 1.\n*Element, type=S4, elset=p\n1, 1, 2, 3, 4\n"
      "*Element, type=B31, elset=b\n2, 1, 2\n*Element, type=T3D2, elset=t\n3, 2, 3\n"
      "*Element, type=MASS, elset=m\n4, 4\n*Element, type=SPRING1, elset=s\n5, 4\n"
      "*Orientation, name=o\n0., 1., 0., -1., 0., 0.\n"
      "*Material, name=steel\n*Elastic\n2.1e11, .3\n*Density\n7850.,\n*Expansion, zero=20.\n1e-5\n"
      "*Conductivity\n50.\n*Shell section, elset=p, material=STEEL, orientation=o, offset=spos\n"
      ".02, 5\n*Beam section, elset=b, material=steel, section=rect\n.2, .1\n0., 1., 0.\n"
      "*Solid section, elset=t, material=steel\n.5\n*Mass, elset=m\n12.\n*Spring, elset=s\n3\n1e6\n"
      "*Transform, nset=n, type=C\n0., 0., 0., 0., 0., 1.\n");
  ASSERT_TRUE(deck) << deck.AsOutcome().Line();
  const auto& properties = deck->Of<tagTProp>();
  ASSERT_EQ(properties.size(), 4u);
  EXPECT_EQ(properties[0].type, tagTProp::kPlate);
  EXPECT_DOUBLE_EQ(properties[0].thickness, 0.02);
  EXPECT_EQ(properties[0].material, 1u);
  EXPECT_EQ(properties[0].coordinate_system, 2u);
  EXPECT_DOUBLE_EQ(deck->Of<tagTE2DOffset>().at(0).offset, -0.01);
  EXPECT_EQ(properties[1].type, tagTProp::kBeam);
  EXPECT_DOUBLE_EQ(properties[1].area, 0.02);
  EXPECT_DOUBLE_EQ(properties[1].inertia_y, 0.2 * 0.001 / 12);
  EXPECT_DOUBLE_EQ(deck->Of<tagTEcrd>().at(0).reference_vector.y, 1);
  EXPECT_EQ(properties[2].type, tagTProp::kTruss);
  EXPECT_DOUBLE_EQ(properties[2].area, 0.5);
  EXPECT_EQ(properties[3].type, tagTProp::kPointSpring);
  EXPECT_DOUBLE_EQ(properties[3].stiffness[2], 1e6);
  EXPECT_DOUBLE_EQ(deck->Of<tagTSprop>().at(0).mass, 12);
  const tagTMatl& steel = deck->Of<tagTMatl>().at(0);
  EXPECT_DOUBLE_EQ(steel.elastic_modulus, 2.1e11);
  EXPECT_DOUBLE_EQ(steel.density, 7850);
  EXPECT_DOUBLE_EQ(steel.reference_temperature, 20);
  EXPECT_DOUBLE_EQ(steel.conductivity, 50);
  EXPECT_EQ(deck->Of<tagTCord>().at(1).type, tagTCord::kCylindrical);
  EXPECT_EQ(deck->Of<tagTMeshCsys>().at(0).coordinate_system, 3u);
}

TEST(AbaqusFaults, AreAllNamed) {
  struct Case {
    const char* text;
    const char* fault;
  };
  const Case cases[] = {
      {"*Node\n1, x\n", "deck.inp: line 2, *NODE: 'x' is not a number"},
      {"*Node\n1\n1\n", "line 3, *NODE: node 1 is there twice"},
      {"*Node\n99999999999\n", "line 2, *NODE: '99999999999' is no number of a node"},
      {"*Node\n1, 1e999\n", "line 2, *NODE: '1e999' is not a number"},
      {"*Element, type=B31\n1, 1, 2\n", "line 2, *ELEMENT: node 1 of element 1 is not there"},
      {"*Node\n1\n*Element, type=S4\n1, 1, 1, 1\n", "element 1 has 3 nodes and needs 4"},
      {"*Element\n1, 1\n", "line 1, *ELEMENT: there is no TYPE="},
      {"*Nset, nset=a\n5\n", "line 2, *NSET: node 5 is not there"},
      {"*Nset, nset=a\nb\n", "line 2, *NSET: 'b' is no number and no set before this one"},
      {"*Nset, nset=a, instance=i\n5\n", "its instance 'i' is not there"},
      {"*Part, name=a\n*Part, name=A\n*End Part\n", "part 'A' is there twice"},
      {"*Part, name=a\n", "the part or instance does not end"},
      {"*Assembly, name=a\n*Instance, name=i, part=p\n*End Instance\n*End Assembly\n",
       "line 2, *INSTANCE: its part 'p' is not there"},
      {"*Solid section, elset=a\n", "line 1, *SOLID SECTION: its element set 'a' is not there"},
      {"*Node\n1\n2\n*Ngen\n1, 2000000000, 1\n", "node 2000000000 is not there"},
      {"*Node\n1\n2000000000, 1.\n*Ngen\n1, 2000000000, 1\n", "too many for such a deck"},
      {"*Material, name=m\n*Material, name=M\n", "material 'M' is there twice"},
      {"*Node\n1\n2, 1\n3, 1, 1\n*Element, type=S3\n1, 1, 2, 3\n*Surface, name=s\n1, S9\n",
       "line 8, *SURFACE: element 1 has no side 'S9'"},
  };
  for (const Case& c : cases) {
    std::vector<Failure> faults;
    EXPECT_FALSE(Parse(c.text, &faults)) << c.text;
    std::string all;
    for (const Failure& fault : faults) all += fault.Line() + "\n";
    EXPECT_NE(all.find(c.fault), std::string::npos) << c.text << all;
  }
  std::string many = "*Node\n";
  for (int i = 0; i < 40; ++i) many += std::to_string(i + 1) + ", bad\n";
  std::vector<Failure> faults;
  EXPECT_FALSE(Parse(many, &faults));
  EXPECT_EQ(faults.size(), 40u);
}

TEST(AbaqusFaults, EveryTruncationIsReadOrRefused) {
  const std::string whole =
      "*Heading\na deck\n*Part, name=p\n" + std::string(kBlock) +
      "*Nset, nset=low, generate\n1, 4, 1\n*Solid section, elset=solid, material=m\n,\n*End Part\n"
      "*Assembly, name=a\n*Instance, name=i, part=p\n1., 0., 0.\n0., 0., 0., 0., 0., 1., 90.\n"
      "*End Instance\n*Nset, nset=top, instance=i\n101, 102\n*End Assembly\n*Material, name=m\n"
      "*Elastic\n1., .3\n*Step, name=s\n*Boundary\ni.low, 1, 3\n*End Step\n";
  for (std::size_t length = 0; length <= whole.size(); ++length) {
    std::vector<Failure> faults;
    const Result<Deck> deck = Parse(whole.substr(0, length), &faults);
    if (deck) {
      EXPECT_EQ(CheckMesh(*deck, "deck").Line(), "");
    } else {
      EXPECT_FALSE(faults.empty()) << length;
    }
  }
}

}  // namespace
}  // namespace qx::exchange
