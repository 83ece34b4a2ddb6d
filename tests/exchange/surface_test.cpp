// Surfaces in STL, OBJ and PLY: what goes out is the skin of what was chosen, what comes in is what
// the file says, and broken files are told of.

#include <algorithm>
#include <cmath>
#include <cstring>
#include <fmt/format.h>
#include <gtest/gtest.h>
#include <map>
#include <numeric>

#include "qx_db/platform/file.h"
#include "qx_db/qx_db.h"

#include "brief.h"
#include "exchange/surface/surface_formats.h"
#include "exchange/transfer.h"
#include "host/session.h"
#include "random_deck.h"
#include "tests/corpus.h"
#include "tests/scratch_folder.h"

namespace qx::exchange {
namespace {

using sample::Point;

Point PointOf(const Deck& deck, Key node) {  // of files, whose nodes are numbered in turn
  const double* at = &deck.coordinates[3 * (static_cast<std::size_t>(node) - 1)];
  return {at[0], at[1], at[2]};
}

/// Area and, about the origin, six times the volume that the faces enclose.
struct Extent {
  double area = 0;
  double volume = 0;
};
Extent ExtentOf(const Deck& deck) {
  Extent extent;
  for (std::size_t e = 0; e < deck.elements.size(); ++e) {
    const Key* nodes = &deck.connectivity[deck.elements[e].first];
    for (std::size_t i = 2; i < deck.NodesOf(e); ++i) {
      const Point a = PointOf(deck, nodes[0]), b = PointOf(deck, nodes[i - 1]),
                  c = PointOf(deck, nodes[i]);
      const auto part = [&](std::size_t d) {
        const std::size_t u = (d + 1) % 3, v = (d + 2) % 3;
        return (b[u] - a[u]) * (c[v] - a[v]) - (b[v] - a[v]) * (c[u] - a[u]);
      };
      const Point normal{part(0), part(1), part(2)};
      extent.area += std::hypot(normal[0], normal[1], normal[2]) / 2;
      extent.volume += normal[0] * a[0] + normal[1] * a[1] + normal[2] * a[2];
    }
  }
  return extent;
}

/// A box of hexahedra, its lower half in one set and its upper half in another, and a plate beside.
Deck Boxes(int side) {
  Deck deck;
  const auto key = [&](int i, int j, int k) {
    return static_cast<Key>(1 + i + (side + 1) * (j + (side + 1) * k));
  };
  for (int k = 0; k <= side; ++k) {
    for (int j = 0; j <= side; ++j) {
      for (int i = 0; i <= side; ++i) {
        deck.node_keys.push_back(key(i, j, k));
        for (const int x : {i, j, k}) deck.coordinates.push_back(double(x) / side);
      }
    }
  }
  for (const char* name : {"lower half", "upper half", "plate"}) {
    deck.groups.emplace_back().name = name;
  }
  deck.groups[0].color = 0x0000F8;
  for (int k = 0; k < side; ++k) {
    for (int j = 0; j < side; ++j) {
      for (int i = 0; i < side; ++i) {
        const auto element = static_cast<Key>(deck.elements.size() + 1);
        deck.elements.push_back({element, element::kHex8, deck.connectivity.size()});
        for (const int up : {0, 1}) {
          for (const auto& [x, y] : {std::pair{0, 0}, {1, 0}, {1, 1}, {0, 1}}) {
            deck.connectivity.push_back(key(i + x, j + y, k + up));
          }
        }
        deck.groups[2 * k >= side].elements.push_back(element);
      }
    }
  }
  const auto plate = static_cast<Key>(deck.elements.size() + 1);
  deck.elements.push_back({plate, element::kQuad4, deck.connectivity.size()});
  for (int i = 0; i < 4; ++i) {
    deck.node_keys.push_back(10000 + i);
    deck.connectivity.push_back(10000 + i);
    for (const double x : {i % 3 == 0 ? 5.0 : 6.0, i < 2 ? 0.0 : 1.0, 0.0}) {
      deck.coordinates.push_back(x);
    }
  }
  deck.groups[2].elements = {plate};
  return deck;
}

struct FileWay {
  const char* file;
  OptionValues values = {};
};
const FileWay kWays[] = {
    {"a.stl"}, {"b.stl", {{"encoding", "ascii"}}}, {"a.ply"}, {"b.ply", {{"encoding", "ascii"}}},
    {"a.obj"},
};

class Surfaces : public testing::TestWithParam<FileWay> {
 protected:
  void SetUp() override {
    LossReport report;
    ASSERT_EQ(AddDeck(session_, Boxes(4), "boxes", report).Line(), "");
    path_ = folder_.Path(GetParam().file);
  }
  Outcome Export(const char* sets, LossReport& report) {
    ExportOptions options;
    options.write.values = GetParam().values;
    options.write.values["sets"] = sets;
    return ExportFile(session_, path_, options, report);
  }
  Deck Read(const char* points = "merged") {
    std::vector<Failure> faults;
    const auto format = FormatToRead(path_);
    EXPECT_TRUE(format) << format.AsOutcome().Line();
    ReadOptions options;
    options.values["points"] = points;
    Result<Deck> deck = (*format)->read(path_, options, faults);
    EXPECT_TRUE(deck) << deck.AsOutcome().Line();
    return deck ? std::move(*deck) : Deck();
  }
  bool IsStl() const { return path_.ends_with(".stl"); }

  const ScratchFolder folder_;
  CQXDBSession session_{host::SetUpModel};
  std::string path_;
};
INSTANTIATE_TEST_SUITE_P(All, Surfaces, testing::ValuesIn(kWays),
                         [](const auto& test) { return sample::TestName(test.param.file); });

// A chosen part is closed where it was cut from the rest: its skin is that of the part alone.
TEST_P(Surfaces, AreTheSkinOfWhatIsChosen) {
  struct Choice {
    const char* sets;
    double area;
    double volume;
    std::size_t points;
  };
  const Choice choices[] = {
      {"all", 6 + 1, 1, 98 + 4},
      {"lower half", 4, 0.5, 75 - 9},
      {"lower half,upper half", 6, 1, 98},
      {"plate", 1, 0, 4},
  };
  for (const Choice& choice : choices) {
    SCOPED_TRACE(choice.sets);
    LossReport report;
    ASSERT_EQ(Export(choice.sets, report).Line(), "");
    const Deck deck = Read();
    EXPECT_NEAR(ExtentOf(deck).area, choice.area, 1e-6);
    EXPECT_NEAR(ExtentOf(deck).volume / 6, choice.volume, 1e-6);
    EXPECT_EQ(deck.node_keys.size(), choice.points);
    const Deck apart = Read("separate");
    EXPECT_EQ(apart.node_keys.size(), IsStl() ? 3 * apart.elements.size() : choice.points);
  }
  LossReport report;
  const std::string before = *ReadWholeFile(path_);
  EXPECT_NE(Export("plate,nothing", report).Line().find("has no set 'nothing'"), std::string::npos);
  EXPECT_EQ(*ReadWholeFile(path_), before);
}

// Faces know their set where the format lets them, by its name or by its colour.
TEST_P(Surfaces, KeepSetsByNameOrColour) {
  LossReport report;
  ASSERT_EQ(Export("all", report).Line(), "");
  const Deck deck = Read();
  ASSERT_EQ(deck.groups.size(), 3u);
  const bool has_names = path_.ends_with(".ply") || path_.ends_with("b.stl");
  const bool is_quads = !IsStl();
  const char* const names[] = {"lower half", "upper half", "plate"};
  const std::size_t quads[] = {16 + 4 * 8, 16 + 4 * 8, 1};
  for (std::size_t g = 0; g < 3; ++g) {
    EXPECT_EQ(deck.groups[g].elements.size(), quads[g] * (is_quads ? 1 : 2));
    if (has_names) {
      EXPECT_EQ(deck.groups[g].name, names[g]);
    }
  }
  if (path_.ends_with("a.stl")) {
    EXPECT_EQ(deck.groups[0].name, "#FF0000");
    EXPECT_EQ(deck.groups[0].color, 0x0000FF);  // of five bits a colour
  }
  if (path_.ends_with(".ply")) {
    EXPECT_EQ(deck.groups[0].color, 0x0000F8);
  }
  if (path_.ends_with(".obj")) {
    EXPECT_EQ(deck.groups[0].name, "lower_half");
  }
}

// Every truncation is refused with a place or a reason, or is a smaller surface.
TEST_P(Surfaces, StandTruncation) {
  LossReport report;
  ASSERT_EQ(Export("lower half", report).Line(), "");
  const std::string whole = *ReadWholeFile(path_);
  auto* const parse = IsStl() ? ParseStl : path_.ends_with("ply") ? ParsePly : ParseObj;
  for (std::size_t length = 0; length < whole.size(); length += 1 + length / 50) {
    std::vector<Failure> faults;
    const auto deck = parse(std::string_view(whole).substr(0, length), "cut", {}, faults);
    if (deck) {
      EXPECT_EQ(CheckMesh(*deck, "cut").Line(), "") << length;
    } else {
      EXPECT_FALSE(deck.Error().what.empty());
    }
  }
}

std::string Swapped(double x) {
  char bytes[8];
  std::memcpy(bytes, &x, 8);
  return std::string(std::reverse_iterator(bytes + 8), std::reverse_iterator(bytes));
}

/// A triangle, of which the head begins as text does, and more or fewer bytes than it says.
std::string BinaryStl(char count, std::size_t bytes) {
  std::string text = "solid facet normal";
  text.resize(80, ' ');
  text += {count, 0, 0, 0};
  const float numbers[12] = {0, 0, 1, 0, 0, 0, 1, 0, 0, 0, 1, 0};
  text.append(reinterpret_cast<const char*>(numbers), sizeof(numbers));
  text.resize(84 + bytes, '\0');
  return text;
}

// What files of other programs have that ours do not.
TEST(SurfaceReaders, ReadWhatOthersWrite) {
  struct Case {
    const char* what;
    decltype(ParseStl)* parse;
    std::string text;
    std::size_t nodes;
    std::size_t elements;
    std::vector<std::string> told;
  };
  std::string big =
      "ply\nformat binary_big_endian 1.0\nelement vertex 3\nproperty double x\n"
      "property double y\nproperty double z\nproperty uchar alpha\nelement face 1\n"
      "property list uchar ushort vertex_index\nend_header\n";
  for (const Point& p : {Point{0, 0, 0}, Point{2, 0, 0}, Point{0, 1, 0}}) {
    for (const double x : p) big += Swapped(x);
    big += '\x07';
  }
  big += std::string("\x03\0\0\0\1\0\2", 7);
  const Case cases[] = {
      {"words of STL in any case, without normals, in two solids",
       ParseStl,
       "SOLID a b\r\nfacet\r\nOUTER LOOP\r\nvertex 0 0 0\r\nvertex 1 0 0\r\nVERTEX +1 1.0e0 -0\r\n"
       "endloop\r\nENDFACET\r\nendsolid a b\r\nsolid\nfacet normal 0 0 1\nouter loop\nvertex 0 0 "
       "0\nvertex 1 0 0\nvertex 0 1 0\nendloop\nendfacet\nendsolid\n",
       6,
       2,
       {}},
      {"OBJ with normals, numbers from the end, polygons and continued lines",
       ParseObj,
       "# made by hand\nv 0 0 0\nv 1 0 0 1.0\nv 2 1 0\nv 1 2 0 0.5 0.5 0.5\nv 0 1 0\nvn 0 0 1\n"
       "o part\ng top sides\nf 1//1 2//1 \\\n 3//1\nf -5 -4 -3 -2 -1\nf 1 2\n",
       5,
       4,
       {"colours and weights of points: 1", "lines 'vn' were left out: 1",
        "faces of more than four corners were divided into triangles: 1",
        "faces of fewer than three corners were left out: 1"}},
      {"PLY of the other byte order with properties that nobody asked for",
       ParsePly,
       big,
       3,
       1,
       {"properties 'alpha' of points were left out: 3"}},
      {"PLY with colours of faces and an element more",
       ParsePly,
       "ply\nformat ascii 1.0\ncomment x\nelement vertex 3\nproperty float x\nproperty float y\n"
       "property float z\nelement face 2\nproperty list uchar int vertex_indices\nproperty uchar "
       "red\nproperty uchar green\nproperty uchar blue\nelement edge 1\nproperty int vertex1\n"
       "end_header\n0 0 0\n1 0 0\n0 1 0\n3 0 1 2 255 0 0\n3 2 1 0 0 0 255\n0\n",
       3,
       2,
       {"elements 'edge' were left out: 1"}},
      {"PLY with elements that take no bytes",
       ParsePly,
       "ply\nformat ascii 1.0\nelement none 300\nelement vertex 3\nproperty float x\nproperty "
       "float y\nproperty float z\nelement face 1\nproperty list uchar int vertex_indices\n"
       "end_header\n0 0 0\n1 0 0\n0 1 0\n3 0 1 2" +
           std::string(200, ' '),
       3,
       1,
       {"elements 'none' were left out: 300"}},
      {"STL of which the head says that it is text", ParseStl, BinaryStl(1, 50), 3, 1, {}},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.what);
    std::vector<Failure> faults;
    const auto deck = c.parse(c.text, "other", {}, faults);
    ASSERT_TRUE(deck) << deck.Error().Line();
    EXPECT_EQ(deck->node_keys.size(), c.nodes);
    EXPECT_EQ(deck->elements.size(), c.elements);
    EXPECT_EQ(Briefly(deck->report), c.told);
  }
}

// All faults of a file are told, each with its line.
TEST(SurfaceReaders, TellOfEveryFault) {
  struct Case {
    decltype(ParseStl)* parse;
    std::string text;
    std::vector<std::string> lines;
  };
  const Case cases[] = {
      {ParseStl,
       "solid\nfacet\nvertex 0 0 zero\nvertex 0 0 0\nendfacet\nvertex 1 1 1\nword\nfacet\n",
       {"f: line 3: 'zero' is no coordinate", "f: line 5: the facet has 1 corners",
        "f: line 6: a corner stands outside", "f: line 7: 'WORD' is no word",
        "f: line 8: the file ends before"}},
      {ParseObj,
       "v 0 0\nv 0 0 nan\nv 1 1 1\nf 1 2 3\nf 0 1 1\nf a b c\n",
       {"f: line 1: '' is no coordinate", "f: line 2: 'nan' is no coordinate",
        "f: line 4: '2' is none of the 1 points", "f: line 5: '0' is none",
        "f: line 6: 'a' is none"}},
      {ParsePly,
       "ply\nformat ascii 1.0\nelement vertex 2\nproperty float x\nproperty float y\nproperty "
       "float "
       "z\nelement face 2\nproperty list uchar int vertex_indices\nend_header\n0 0 inf\n0 0 0\n"
       "3 0 1 2\n3 0 0 0.5\n",
       {"f: line 10: a coordinate is not", "f: line 12: there is no point 2 of 2",
        "f: line 13: there is no point 0.5"}},
      {ParsePly, "ply\nelement vertex 1\nend_header\n", {"f: line 2: the header names no format"}},
      {ParsePly,
       "ply\nformat ascii 1.0\nelement face 99999999999\nend_header\n",
       {"f: line 3: the element has no number, or one beyond"}},
      {ParsePly,
       "ply\nformat binary_little_endian 1.0\nelement vertex 80\nproperty float x\nproperty "
       "float y\nproperty float z\nend_header\n0123456789ab0123",
       {"f: vertex 2: the file ends before it, of 80"}},
      {ParsePly,
       "ply\nformat ascii 1.0\nelement edge 50\nproperty int a\nend_header\n1\n2",
       {"f: edge 3: the file ends before it, of 50"}},
      {ParseStl, BinaryStl(1, 52), {"f: 1 triangles take 134 bytes, the file has 136"}},
      {ParseStl, BinaryStl(2, 50), {"f: 2 triangles take 184 bytes, the file has 134"}},
  };
  for (const Case& c : cases) {
    std::vector<Failure> faults;
    EXPECT_FALSE(c.parse(c.text, "f", {}, faults));
    ASSERT_EQ(faults.size(), c.lines.size()) << c.text;
    for (std::size_t i = 0; i < faults.size(); ++i) {
      EXPECT_EQ(faults[i].Line().substr(0, c.lines[i].size()), c.lines[i]);
    }
  }
}

// Points join within the distance that was asked for and no further; what collapses is told.
// What stands behind the last row is told of, blanks at the end of a text are not.
TEST(PlyReader, TellsOfWhatStandsBehindTheLastRow) {
  const std::string head =
      "ply\nformat {} 1.0\nelement vertex 3\nproperty float x\nproperty float y\n"
      "property float z\nelement face 1\nproperty list uchar int vertex_indices\nend_header\n";
  const std::string text =
      fmt::format(fmt::runtime(head), "ascii") + "0 0 0\n1 0 0\n0 1 0\n3 0 1 2\n";
  std::string binary = fmt::format(fmt::runtime(head), "binary_little_endian");
  for (const float x : {0.f, 0.f, 0.f, 1.f, 0.f, 0.f, 0.f, 1.f, 0.f}) {
    binary.append(reinterpret_cast<const char*>(&x), sizeof x);
  }
  binary += '\3';
  for (const std::int32_t i : {0, 1, 2}) {
    binary.append(reinterpret_cast<const char*>(&i), sizeof i);
  }
  struct Case {
    std::string bytes;
    int behind;
  };
  for (const Case& c : {Case{text, 0}, Case{text + " \n\n", 0}, Case{text + "\n1 2 3", 5},
                        Case{binary, 0}, Case{binary + "abc", 3}}) {
    std::vector<Failure> faults;
    const auto deck = ParsePly(c.bytes, "f", {}, faults);
    ASSERT_TRUE(deck) << deck.AsOutcome().Line();
    EXPECT_EQ(deck->elements.size(), 1u);
    const std::vector<std::string> told = Briefly(deck->report);
    const std::string line = fmt::format("bytes behind the last row were left out: {}", c.behind);
    EXPECT_EQ(std::count(told.begin(), told.end(), line), c.behind > 0) << c.bytes;
  }
}

TEST(SurfaceReaders, JoinPointsWithinATolerance) {
  std::string text;
  const double gaps[] = {0, 0.001, 0.1};
  for (const double gap : gaps) {  // three triangles, each hinged on the edge before
    text += fmt::format("v {} 0 0\nv 0 {} 0\nv 1 1 {}\n", gap, 1 + gap, gap);
  }
  text += "v 0.0004 0 0\nf 1 2 3\nf 4 5 6\nf 7 8 9\nf 1 10 2\n";
  const std::tuple<const char*, std::size_t, std::size_t> cases[] = {
      {"0", 10, 4}, {"0.0005", 9, 3}, {"0.01", 6, 3}, {"0.2", 3, 3}};
  for (const auto& [tolerance, nodes, elements] : cases) {
    ReadOptions options;
    options.values = {{"points", "merged"}, {"tolerance", tolerance}};
    std::vector<Failure> faults;
    const auto deck = ParseObj(text, "hinges", options, faults);
    ASSERT_TRUE(deck);
    EXPECT_EQ(deck->node_keys.size(), nodes) << tolerance;
    EXPECT_EQ(deck->elements.size(), elements) << tolerance;
    EXPECT_EQ(deck->report.IsLossless(), elements == 4) << tolerance;
  }
  const std::span<const FormatOption> known = StlFormat().read_options;
  for (const char* wrong : {"tolerance=-1", "tolerance=wide", "tolerance=inf", "tolerance="}) {
    const std::string given[] = {wrong};
    EXPECT_FALSE(ParseOptionValues(known, given)) << wrong;
  }
}

// Real surfaces that are closed stay closed, with the volume that they have.
TEST(SurfaceCorpus, EnclosesTheSameInEveryFormat) {
  for (const char* name : {"surface/cube.obj", "surface/cube.ply", "surface/shape.stl",
                           "surface/cyl_w_rect_hole.stl"}) {
    QX_REQUIRE_CORPUS(path, name);
    SCOPED_TRACE(name);
    CQXDBSession session(host::SetUpModel);
    LossReport report;
    ImportOptions read;
    read.read.values = {{"points", "merged"}};
    ASSERT_EQ(ImportFile(session, path, read, report).Line(), "");
    const Deck deck = DeckOf(session);
    const Extent whole = ExtentOf(deck);
    EXPECT_GT(std::abs(whole.volume), 1);
    const ScratchFolder folder;
    for (const FileWay& way : kWays) {
      ExportOptions options;
      options.write.values = way.values;
      const std::string out = folder.Path(way.file);
      ASSERT_EQ(ExportFile(session, out, options, report).Line(), "");
      std::vector<Failure> faults;
      const auto back = (*FormatToRead(out))->read(out, read.read, faults);
      ASSERT_TRUE(back);
      EXPECT_EQ(back->elements.size(), deck.elements.size()) << way.file;
      EXPECT_EQ(back->node_keys.size(), deck.node_keys.size()) << way.file;
      EXPECT_NEAR(ExtentOf(*back).volume / whole.volume, 1, 1e-6) << way.file;
      EXPECT_NEAR(ExtentOf(*back).area / whole.area, 1, 1e-6) << way.file;
    }
  }
}

}  // namespace
}  // namespace qx::exchange
