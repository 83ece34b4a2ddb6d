// Abaqus and CalculiX decks: what keywords mean, what follows edits, and real decks through a
// model.

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <functional>
#include <gtest/gtest.h>
#include <map>
#include <set>

#include "qx_db/core/renumber.h"
#include "qx_db/gateway/document.h"
#include "qx_db/platform/file.h"
#include "qx_db/qx_db.h"

#include "brief.h"
#include "exchange/abaqus/abaqus_format.h"
#include "exchange/abaqus/inp_kinds.h"
#include "exchange/abaqus/inp_text.h"
#include "exchange/transfer.h"
#include "host/session.h"
#include "mesh_measure.h"
#include "sample_mesh.h"
#include "tests/corpus.h"
#include "tests/scratch_folder.h"

namespace qx::exchange {
namespace {

Result<Deck> Parse(const std::string& text, std::vector<Failure>* all = nullptr) {
  std::vector<Failure> faults;
  Result<Deck> deck = ParseAbaqus(InpText(text, "deck.inp"), "deck.inp", {}, faults);
  if (all) *all = faults;
  return deck;
}

std::map<Key, sample::Point> PointsOf(const Deck& deck) {
  std::map<Key, sample::Point> points;
  for (std::size_t i = 0; i < deck.node_keys.size(); ++i) {
    const double* at = &deck.coordinates[3 * i];
    points[deck.node_keys[i]] = {at[0], at[1], at[2]};
  }
  return points;
}

const Mesh::Group* Find(const Deck& deck, const std::string& name, int kind) {
  for (const Mesh::Group& group : deck.groups) {
    if (group.name == name && group.tags[0].kind == kind) return &group;
  }
  return nullptr;
}

void ExpectPoint(const sample::Point& found, const sample::Point& expected, const std::string& of) {
  for (std::size_t i = 0; i < 3; ++i) EXPECT_NEAR(found[i], expected[i], 1e-12) << of;
}

// ---- keywords -----------------------------------------------------------------------------------

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

constexpr const char* kBlock =
    "*Node\n1\n2, 1.\n3, 1., 1.\n4, 0., 1.\n"
    "101, 0., 0., 1.\n102, 1., 0., 1.\n103, 1., 1., 1.\n104, 0., 1., 1.\n"
    "*Element, type=C3D8R, elset=solid\n1, 1, 2, 3, 4, 101, 102, 103, 104\n";

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

// ---- through a model ----------------------------------------------------------------------------

class AbaqusModel : public testing::Test {
 protected:
  void Import(const std::string& deck) {
    ASSERT_TRUE(WriteWholeFile(path_, deck));
    LossReport report;
    ASSERT_EQ(ImportFile(session_, path_, {}, report).Line(), "");
    EXPECT_EQ(session_.Validate(), "");
  }
  std::string Export(const std::string& name = "out.inp") {
    report_ = {};
    const std::string out = folder_.Path(name);
    EXPECT_EQ(ExportFile(session_, out, {}, report_).Line(), "");
    return *ReadWholeFile(out);
  }
  void Edit(const std::function<void()>& edit) {
    CTransaction step(&session_);
    step.Begin(u"edit");
    edit();
    ASSERT_TRUE(step.Commit());
  }
  void Move(Key key, double x, double y, double z) {
    tagTNode node = nodes_.GetAtNU(nodes_.Find(key));
    node.position = {x, y, z};
    ASSERT_TRUE(nodes_.SetAtNU(nodes_.Find(key), node));
  }
  template <class T>
  void Change(Key key, const std::function<void(T&)>& change) {
    auto& pool = *session_.GetPool<DPool<T>>(T::kType);
    T record = pool.GetAtNU(pool.Find(key));
    change(record);
    ASSERT_TRUE(pool.SetAtNU(pool.Find(key), record));
  }
  /// The deck comes out with these replacements, comes in again, and stays as it is from then on.
  void ExpectEdited(std::string deck, const std::vector<std::pair<std::string, std::string>>& by) {
    for (const auto& [was, is] : by) {
      const std::size_t at = deck.find(was);
      ASSERT_NE(at, std::string::npos) << was;
      deck.replace(at, was.size(), is);
    }
    const std::string once = Export();
    EXPECT_EQ(once, deck);
    CQXDBSession again(host::SetUpModel);
    LossReport report;
    ASSERT_EQ(ImportFile(again, folder_.Path("out.inp"), {}, report).Line(), "");
    ASSERT_EQ(ExportFile(again, folder_.Path("twice.inp"), {}, report).Line(), "");
    EXPECT_EQ(*ReadWholeFile(folder_.Path("twice.inp")), once);
  }

  const ScratchFolder folder_;
  const std::string path_ = folder_.Path("in.inp");
  CQXDBSession session_{host::SetUpModel};
  DPoolNode& nodes_ = *session_.GetPool<DPoolNode>(code::kNode);
  DPoolElem& elements_ = *session_.GetPool<DPoolElem>(code::kElem);
  DPoolMset& sets_ = *session_.GetPool<DPoolMset>(code::kMset);
  LossReport report_;
};

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

// ---- real decks ---------------------------------------------------------------------------------

class AbaqusCorpus : public testing::TestWithParam<const char*> {};
INSTANTIATE_TEST_SUITE_P(All, AbaqusCorpus,
                         testing::Values("2D_UnitArea_Linear", "3D_UnitVolume_LinearHexahedron",
                                         "3D_UnitVolume_QuadraticTetrahedron", "compact_tension",
                                         "3d_test_cube_two_materials", "81fbi", "b31h", "in",
                                         "pload4_chexa20", "single_block", "tet10"),
                         [](const auto& test) { return sample::TestName(test.param); });

/// Whatever names the renumbered ones, they stand in front of it.
TEST_P(AbaqusCorpus, ReadsAgainAfterRenumbering) {
  const std::string name = std::string("abaqus/") + GetParam() + ".inp";
  QX_REQUIRE_CORPUS(path, name);
  const ScratchFolder folder;
  CQXDBSession session(host::SetUpModel);
  LossReport report;
  ASSERT_EQ(ImportFile(session, path, {}, report).Line(), "");
  for (const std::uint16_t code : {code::kNode, code::kElem}) {
    DPoolBase& pool = *session.GetDataPool(code);
    TArray<ITR> items;
    pool.GetItrList(items, 0);
    std::vector<ITR> some;
    for (std::int32_t i = 0; i < items.GetSize(); i += 7) some.push_back(items[i]);
    ASSERT_TRUE(Renumber(session, pool, ConsecutiveKeys(some, 5'000'000)));
  }
  const std::string out = folder.Path("out.inp");
  ASSERT_EQ(ExportFile(session, out, {}, report).Line(), "");
  CQXDBSession again(host::SetUpModel);
  ASSERT_EQ(ImportFile(again, out, {}, report).Line(), "");
  for (const std::uint16_t code : {code::kNode, code::kElem, code::kMset, code::kBset}) {
    EXPECT_EQ(again.GetDataPool(code)->GetSize(), session.GetDataPool(code)->GetSize()) << code;
  }
}

TEST_P(AbaqusCorpus, HasTheExpectedTotalsAndComesBack) {
  const std::string name = std::string("abaqus/") + GetParam() + ".inp";
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
  std::vector<Failure> faults;
  const Result<Deck> deck = ReadAbaqus(path, {}, faults);
  ASSERT_TRUE(deck) << deck.AsOutcome().Line();
  EXPECT_EQ(static_cast<std::int64_t>(deck->node_keys.size()),
            expected.Find("num_points").Integer());
  const auto points = PointsOf(*deck);
  struct Total {
    std::int64_t count = 0;
    double size = 0;
    double least = INFINITY;
  };
  std::map<std::int32_t, Total> totals;
  for (std::size_t e = 0; e < deck->elements.size(); ++e) {
    std::vector<sample::Point> nodes;
    for (std::size_t i = 0; i < deck->NodesOf(e); ++i) {
      nodes.push_back(points.at(deck->connectivity[deck->elements[e].first + i]));
    }
    Total& total = totals[deck->elements[e].type];
    const double size = measure::Size(deck->elements[e].type, nodes);
    ++total.count;
    total.size += size;
    total.least = std::min(total.least, size);
  }
  const std::pair<const char*, std::int32_t> kinds[] = {
      {"line", 2},  {"triangle", 4}, {"quad", 6},        {"quad8", 7},
      {"tetra", 8}, {"tetra10", 9},  {"hexahedron", 14}, {"hexahedron20", 15}};
  for (const auto& [kind, type] : kinds) {
    const dbgateway::Field wanted = expected.Find("elements").Member(kind);
    EXPECT_EQ(totals[type].count, wanted ? wanted.Member("count").Integer() : 0) << kind;
    if (!wanted) continue;
    EXPECT_GT(totals[type].least, 0) << kind;
    for (const char* size : {"total_length", "total_area", "total_volume"}) {
      const dbgateway::Field total = wanted.Member(size);
      if (!total) continue;
      EXPECT_NEAR(totals[type].size, total.Real(), 1e-9 * total.Real()) << kind;
    }
  }
  const bool is_placed = static_cast<bool>(expected.Find("placed_bbox_min"));
  for (std::size_t d = 0; d < 3; ++d) {
    double least = INFINITY;
    double most = -INFINITY;
    for (const auto& [key, point] : points) {
      least = std::min(least, point[d]);
      most = std::max(most, point[d]);
    }
    const char* low = is_placed ? "placed_bbox_min" : "bbox_min";
    const char* high = is_placed ? "placed_bbox_max" : "bbox_max";
    EXPECT_NEAR(least, expected.Find(low).At(d).Real(), 1e-9 * (1 + std::abs(least)));
    EXPECT_NEAR(most, expected.Find(high).At(d).Real(), 1e-9 * (1 + std::abs(most)));
  }
  if (const dbgateway::Field sets = expected.Find("sets_as_written")) {
    for (std::size_t i = 0; i < static_cast<std::size_t>(sets.Size()); ++i) {
      const dbgateway::Field set = sets.At(i);
      const bool is_nodes = set.Member("kind").Text() == "nset";
      const dbgateway::Field count = set.Member("count");
      bool is_there = false;
      for (const Mesh::Group& group : deck->groups) {
        const bool has_name =
            ("." + group.name).ends_with("." + std::string(set.Member("name").Text()));
        const std::size_t members = is_nodes ? group.nodes.size() : group.elements.size();
        is_there = is_there ||
                   (has_name && members > 0 &&
                    (!count.IsNumber() || static_cast<std::int64_t>(members) == count.Integer()));
      }
      EXPECT_TRUE(is_there) << set.Member("name").Text();
    }
  }
  // Out to the letter, in millimetres as in metres.
  for (const char* units : {"m", "mm"}) {
    CQXDBSession session(host::SetUpModel);
    LossReport report;
    ImportOptions options;
    options.units = units;
    ASSERT_EQ(ImportFile(session, path, options, report).Line(), "");
    EXPECT_EQ(session.Validate(), "");
    const ScratchFolder folder;
    ExportOptions out;
    out.units = units;
    out.strict = true;
    ASSERT_EQ(ExportFile(session, folder.Path("out.inp"), out, report).Line(), "");
    EXPECT_TRUE(*ReadWholeFile(folder.Path("out.inp")) == *ReadWholeFile(path)) << units;
  }
}

}  // namespace
}  // namespace qx::exchange
