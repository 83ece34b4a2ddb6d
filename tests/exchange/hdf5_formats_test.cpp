// CGNS and MED files: node orders against what the formats document, files array by array as other
// programs write them, and files that are broken. There are no real files of these formats here:
// what is read was made by the writers, or in the test.

#if defined(QX_HAS_CGNS) && defined(QX_HAS_MED)

#include <algorithm>
#include <array>
#include <fmt/format.h>
#include <fmt/ranges.h>
#include <gtest/gtest.h>

#include "qx_db/platform/file.h"
#include "qx_db/qx_db.h"

#include "brief.h"
#include "exchange/cgns/cgns_kinds.h"
#include "exchange/cgns/cgns_reader.h"
#include "exchange/hdf5/h5_reader.h"
#include "exchange/hdf5/h5_writer.h"
#include "exchange/med/med_kinds.h"
#include "exchange/med/med_reader.h"
#include "exchange/node_orders.h"
#include "exchange/transfer.h"
#include "host/session.h"
#include "random_deck.h"
#include "tests/scratch_folder.h"

namespace qx::exchange {
namespace {

using Pairs = std::vector<std::pair<int, int>>;

/// Corners from 1 that each further node of an element lies between, as the documentations have
/// them: "Element numbering conventions" of CGNS's interface data structures, and "Connectivités"
/// of MED's library. Where they differ it is in the uprights.
Pairs EdgesOf(std::int32_t corners, std::int32_t dimension, bool uprights_last) {
  const Pairs tri{{1, 2}, {2, 3}, {3, 1}}, quad{{1, 2}, {2, 3}, {3, 4}, {4, 1}};
  const auto join = [](Pairs a, const Pairs& b) {
    a.insert(a.end(), b.begin(), b.end());
    return a;
  };
  const auto prism = [&](const Pairs& low, int above) {
    Pairs high = low, upright;
    for (auto& edge : high) edge = {edge.first + above, edge.second + above};
    for (int i = 1; i <= above; ++i) upright.push_back({i, i + above});
    return uprights_last ? join(join(low, high), upright) : join(join(low, upright), high);
  };
  if (dimension == 1) return {{1, 2}};
  if (dimension == 2) return corners == 3 ? tri : quad;
  if (corners == 4) return join(tri, {{1, 4}, {2, 4}, {3, 4}});
  if (corners == 5) return join(quad, {{1, 5}, {2, 5}, {3, 5}, {4, 5}});
  return corners == 6 ? prism(tri, 3) : prism(quad, 4);
}

// Middles lie at the middles of the documented edges; the first face looks inward in CGNS, outward
// in MED.
TEST(Hdf5NodeOrders, AreThoseThatTheFormatsDocument) {
  for (const bool is_med : {false, true}) {
    for (const ElementType& type : ElementTypes()) {
      SCOPED_TRACE(fmt::format("{} {}", is_med ? "MED" : "CGNS", type.name));
      const sample::Shape& shape = sample::ShapeOf(type.code);
      std::vector<sample::Point> ours = shape.corners;
      for (const auto& [a, b] : shape.edges) {
        if (static_cast<std::int32_t>(ours.size()) == type.nodes) break;
        ours.push_back(sample::Middle(shape.corners[static_cast<std::size_t>(a)],
                                      shape.corners[static_cast<std::size_t>(b)]));
      }
      const std::int8_t* const order =
          is_med ? MedKindOf(type.code).order : UprightOrderOf(type.code);
      std::vector<sample::Point> file;
      for (std::size_t k = 0; k < ours.size(); ++k) {
        const std::size_t from = order ? static_cast<std::size_t>(order[k]) : k;
        file.push_back(ours[from]);
        if (order) {
          EXPECT_EQ(order[from], static_cast<std::int8_t>(k)) << "its own inverse";
        }
      }
      const auto corners = static_cast<std::size_t>(type.corners);
      if (type.nodes > type.corners) {
        const Pairs edges = EdgesOf(type.corners, type.dimension, is_med);
        ASSERT_EQ(corners + edges.size(), file.size());
        for (std::size_t e = 0; e < edges.size(); ++e) {
          EXPECT_EQ(file[corners + e],
                    sample::Middle(file[static_cast<std::size_t>(edges[e].first - 1)],
                                   file[static_cast<std::size_t>(edges[e].second - 1)]))
              << "node " << corners + e + 1;
        }
      }
      if (type.dimension < 3) continue;
      const auto minus = [&](std::size_t a, std::size_t b) {
        return sample::Point{file[a][0] - file[b][0], file[a][1] - file[b][1],
                             file[a][2] - file[b][2]};
      };
      const sample::Point u = minus(1, 0), v = minus(2, 0), w = minus(corners - 1, 0);
      const double inward = w[0] * (u[1] * v[2] - u[2] * v[1]) +
                            w[1] * (u[2] * v[0] - u[0] * v[2]) + w[2] * (u[0] * v[1] - u[1] * v[0]);
      EXPECT_EQ(inward < 0, is_med);
    }
  }
}

TEST(CgnsKinds, HaveTheNumbersOfTheEnumeration) {
  using namespace element;
  struct Case {
    std::int64_t number;
    const char* name;
    std::int32_t code;
    bool is_reduced;
  };
  const Case cases[] = {
      {2, "NODE", kPoint, false},        {9, "QUAD_9", kQuad8, true},
      {13, "PYRA_14", kPyramid13, true}, {15, "PENTA_15", kWedge15, false},
      {18, "HEXA_20", kHex20, false},    {21, "PYRA_13", kPyramid13, false},
      {24, "BAR_4", kLine2, true},       {39, "HEXA_64", kHex8, true},
      {56, "HEXA_125", kHex8, true},
  };
  for (const Case& c : cases) {
    const auto kind = FindCgnsKind(c.number);
    ASSERT_TRUE(kind) << c.number;
    EXPECT_EQ(kind->name, c.name);
    EXPECT_EQ(kind->code, c.code);
    EXPECT_EQ(kind->is_reduced, c.is_reduced);
  }
  for (const std::int64_t none : {-1, 0, 1, 20, 22, 23, 57}) EXPECT_FALSE(FindCgnsKind(none));
  EXPECT_EQ(CgnsConditionOf("BCWall"), 20);
  EXPECT_EQ(CgnsConditions()[16], "BCSymmetryPlane");
}

// ---- files array by array -----------------------------------------------------------------------

/// A CGNS file, node by node.
class CgnsMaker {
 public:
  explicit CgnsMaker(const std::string& path) : out_(path) {
    AddNumbers("/Base", "CGNSBase_t", {3, 3});
  }
  void Add(const std::string& path, const char* label, const std::string& text = "") {
    out_.Group(path);
    out_.Text(path, "label", label, 33);
    if (!text.empty()) out_.Put(path + "/ data", text);
  }
  void AddNumbers(const std::string& path, const char* label,
                  const std::vector<std::int32_t>& values) {
    Add(path, label);
    out_.Put(path + "/ data", values);
  }
  /// A zone of nodes along a line.
  void Zone(const std::string& path, const std::vector<std::int32_t>& sizes, std::size_t nodes,
            const char* type) {
    AddNumbers(path, "Zone_t", sizes);
    Add(path + "/ZoneType", "ZoneType_t", type);
    Add(path + "/GridCoordinates", "GridCoordinates_t");
    std::vector<double> x(nodes);
    for (std::size_t i = 0; i < nodes; ++i) x[i] = static_cast<double>(i);
    Add(path + "/GridCoordinates/CoordinateX", "DataArray_t");
    out_.Put(path + "/GridCoordinates/CoordinateX/ data", x);
  }
  void Section(const std::string& path, std::int32_t type, std::int32_t first, std::int32_t last,
               const std::vector<std::int32_t>& nodes) {
    AddNumbers(path, "Elements_t", {type, 0});
    AddNumbers(path + "/ElementRange", "IndexRange_t", {first, last});
    AddNumbers(path + "/ElementConnectivity", "DataArray_t", nodes);
  }
  void Condition(const std::string& path, const char* type, const char* list,
                 const std::vector<std::int32_t>& values, const char* location,
                 const char* family = nullptr) {
    Add(path, "BC_t", type);
    AddNumbers(path + "/" + list, "IndexArray_t", values);
    if (location) Add(path + "/GridLocation", "GridLocation_t", location);
    if (family) Add(path + "/FamilyName", "FamilyName_t", family);
  }
  void Finish() { ASSERT_EQ(out_.Finish(), ""); }

 private:
  H5Writer out_;
};

/// "name: elements / nodes, below parent, tag" of each group.
std::vector<std::string> GroupsOf(const Deck& deck) {
  std::vector<std::string> lines;
  for (const Mesh::Group& group : deck.groups) {
    const bool has_parent = group.parent != Mesh::Group::kNone;
    lines.push_back(fmt::format(
        "{}: {} / {}{}{}", group.name, fmt::join(group.elements, " "), fmt::join(group.nodes, " "),
        has_parent ? " in " + deck.groups[static_cast<std::size_t>(group.parent)].name : "",
        group.tags.empty() ? "" : fmt::format(" #{}", group.tags[0].tag)));
  }
  return lines;
}

TEST(CgnsReader, ReadsZonesSectionsConditionsAndFamilies) {
  const ScratchFolder folder;
  const std::string path = folder.Path("a.cgns");
  {
    CgnsMaker out(path);
    out.Add("/Base/DimensionalUnits", "DimensionalUnits_t",
            fmt::format("{:32}{:32}{:32}{:32}{:32}", "Gram", "Millimeter", "Second", "Kelvin",
                        "Degree"));
    out.Add("/Base/Outer", "Family_t");
    out.Add("/Base/Outer/FamilyBC", "FamilyBC_t", "BCWall");
    out.Zone("/Base/Left", {12, 3, 0}, 12, "Unstructured");
    // Mixed: a tetrahedron, a cubic line and a pyramid; then polygons; then triangles.
    out.Section("/Base/Left/Body", 20, 1, 3, {10, 1, 2, 3, 4, 24, 5, 6, 7, 8, 12, 1, 2, 3, 4, 5});
    out.Section("/Base/Left/Faces", 22, 4, 5, {3, 1, 2, 3, 3, 2, 3, 4});
    out.Section("/Base/Left/Skin", 5, 6, 7, {1, 2, 3, 2, 3, 4});
    out.Add("/Base/Left/ZoneBC", "ZoneBC_t");
    out.Condition("/Base/Left/ZoneBC/Wall", "BCWall", "PointRange", {6, 7}, "FaceCenter", "Outer");
    out.Condition("/Base/Left/ZoneBC/Ends", "FamilySpecified", "PointList", {1, 12}, nullptr,
                  "Outer");
    out.Condition("/Base/Left/ZoneBC/Old", "BCInflow", "ElementList", {7, 4}, nullptr);
    out.Add("/Base/Left/Flow", "FlowSolution_t");
    out.Zone("/Base/Right", {2, 2, 3, 1, 1, 2, 0, 0, 0}, 12, "Structured");
    out.Add("/Base/Right/ZoneBC", "ZoneBC_t");
    out.Condition("/Base/Right/ZoneBC/Low", "BCWall", "PointRange", {1, 1, 1, 2, 2, 1}, nullptr);
    out.Finish();
  }
  std::vector<Failure> faults;
  const Result<Deck> deck = ReadCgns(path, {}, faults);
  ASSERT_TRUE(deck) << deck.AsOutcome().Line();
  EXPECT_EQ(GroupsOf(*deck),
            (std::vector<std::string>{"Outer: 6 7 / 1 12 #220", "Left.Body: 1 2 3 /  #0",
                                      "Left.Faces:  /  #0", "Left.Skin: 6 7 /  #0",
                                      "Left: 1 2 3 6 7 /  #2", "Left.Wall: 6 7 /  in Outer #120",
                                      "Left.Ends:  / 1 12 in Outer #125", "Left.Old: 7 /  #109",
                                      "Right: 8 9 /  #2", "Right.Low:  / 13 14 15 16 #120"}));
  EXPECT_EQ(
      Briefly(deck->report),
      (std::vector<std::string>{
          "elements of type BAR_4 were read as 2-node lines: 1",
          "polygons (NGON_n) were left out: 2", "members of sets that were not read: 1",
          "nodes of label FlowSolution_t were left out: 1", "zones were joined into one mesh: 2",
          "nodes that belong to no element that was read: 6"}));
  ASSERT_TRUE(deck->units);
  EXPECT_EQ((*deck->units)[UnitBase::kLength], FindUnit(UnitBase::kLength, "mm"));
  EXPECT_EQ((*deck->units)[UnitBase::kMass], FindUnit(UnitBase::kMass, "g"));
  EXPECT_EQ(deck->node_keys.size(), 24u);
  const std::vector<Key> hex(deck->connectivity.end() - 8, deck->connectivity.end());
  EXPECT_EQ(hex, (std::vector<Key>{17, 18, 20, 19, 21, 22, 24, 23}));
}

TEST(CgnsReader, TellsEveryFault) {
  const ScratchFolder folder;
  const std::string path = folder.Path("a.cgns");
  {
    CgnsMaker out(path);
    out.Zone("/Base/Zone", {4, 1, 0}, 4, "Unstructured");
    out.Section("/Base/Zone/A", 10, 1, 2, {1, 2, 3, 9, 1, 2, 3, 0});
    out.Section("/Base/Zone/B", 10, 3, 4, {1, 2, 3, 4});
    out.Section("/Base/Zone/C", 20, 5, 6, {10, 1, 2, 3, 4, 99});
    out.Finish();
  }
  std::vector<Failure> faults;
  EXPECT_FALSE(ReadCgns(path, {}, faults));
  std::vector<std::string> told;
  for (const Failure& fault : faults) told.push_back(fault.place + ": " + fault.what);
  EXPECT_EQ(told, (std::vector<std::string>{
                      "Base/Zone/A: element 1 names node 9 of 4",
                      "Base/Zone/A: element 2 names node 0 of 4",
                      "Base/Zone/B/ElementConnectivity: it has 4 values of 8",
                      "Base/Zone/C: element 6 has type 99, which cannot be among others"}));
}

TEST(MedReader, ReadsGroupsAndTellsWhatIsLeftOut) {
  const ScratchFolder folder;
  for (const bool is_wrong : {false, true}) {
    const std::string path = folder.Path("a.med");
    H5Writer out(path);
    for (const char* group :
         {"/ENS_MAA", "/ENS_MAA/m", "/ENS_MAA/m/s", "/ENS_MAA/m/s/NOE", "/ENS_MAA/m/s/MAI",
          "/ENS_MAA/m/s/MAI/TR3", "/ENS_MAA/m/s/MAI/QU9", "/ENS_MAA/m/s/MAI/POG", "/FAS", "/FAS/m",
          "/FAS/m/NOEUD", "/FAS/m/NOEUD/F1", "/FAS/m/NOEUD/F1/GRO", "/FAS/m/ELEME",
          "/FAS/m/ELEME/F2", "/FAS/m/ELEME/F2/GRO", "/CHA", "/CHA/temperature"}) {
      out.Group(group);
    }
    out.Integer("/ENS_MAA/m", "ESP", 2);
    out.Text("/ENS_MAA/m", "UNI", "mm              mm", 33);
    std::vector<double> coordinates(18);
    for (std::size_t i = 0; i < 9; ++i) {
      coordinates[i] = static_cast<double>(i % 3);
      coordinates[9 + i] = static_cast<double>(i / 3);
    }
    const std::string step = "/ENS_MAA/m/s/";
    using Ints = std::vector<std::int32_t>;
    out.Put(step + "NOE/COO", coordinates);
    out.Put(step + "NOE/FAM", Ints{5, 0, 0, 0, 0, 0, 0, 0, 5});
    out.Put(step + "NOE/NUM", Ints{11, 12, 13, 14, 15, 16, 17, 18, 19});
    // The first nodes of all, then the second, then the third.
    out.Put(step + "MAI/TR3/NOD", Ints{1, is_wrong ? 10 : 2, 2, 3, 4, is_wrong ? 0 : 5});
    out.Put(step + "MAI/TR3/FAM", Ints{-1, 0});
    out.Put(step + "MAI/QU9/NOD", Ints{1, 3, 9, 7, 2, 6, 8, 4, 5});
    out.Put(step + "MAI/QU9/FAM", Ints{-1});
    out.Put(step + "MAI/POG/NOD", Ints{1, 2, 3});
    out.Integer("/FAS/m/NOEUD/F1", "NUM", 5);
    out.PutTexts("/FAS/m/NOEUD/F1/GRO/NOM", {"corners", "all"}, 80);
    out.Integer("/FAS/m/ELEME/F2", "NUM", -1);
    out.PutTexts("/FAS/m/ELEME/F2/GRO/NOM", {"all"}, 80);
    ASSERT_EQ(out.Finish(), "");
    std::vector<Failure> faults;
    const Result<Deck> deck = ReadMed(path, {}, faults);
    ASSERT_EQ(static_cast<bool>(deck), !is_wrong);
    if (is_wrong) {
      std::vector<std::string> told;
      for (const Failure& fault : faults) told.push_back(fault.place + ": " + fault.what);
      EXPECT_EQ(told,
                (std::vector<std::string>{"ENS_MAA/m/s/MAI/TR3/NOD: element 2 names node 10 of 9",
                                          "ENS_MAA/m/s/MAI/TR3/NOD: element 2 names node 0 of 9"}));
      continue;
    }
    EXPECT_EQ(GroupsOf(*deck), (std::vector<std::string>{"corners:  / 11 19", "all: 1 3 / "}));
    EXPECT_EQ(deck->connectivity,
              (std::vector<Key>{11, 12, 14, 12, 13, 15, 11, 13, 19, 17, 12, 16, 18, 14}));
    EXPECT_EQ(Briefly(deck->report),
              (std::vector<std::string>{
                  "elements of type QU9 were read as 8-node quadrilaterals: 1",
                  "elements of type POG were left out: 1", "fields were left out: 1"}));
    EXPECT_EQ((*deck->units)[UnitBase::kLength], FindUnit(UnitBase::kLength, "mm"));
  }
}

// ---- broken files -------------------------------------------------------------------------------

TEST(Hdf5Formats, EveryTruncationAndWrongBytesAreReadOrRefused) {
  const ScratchFolder folder;
  CQXDBSession session(host::SetUpModel);
  LossReport report;
  ASSERT_TRUE(AddDeck(session, sample::RandomDeck(3), "random", report));
  for (const char* name : {"a.cgns", "a.med"}) {
    const bool is_med = name[2] == 'm';
    ASSERT_EQ(ExportFile(session, folder.Path(name), {}, report).Line(), "");
    const std::string whole = *ReadWholeFile(folder.Path(name));
    const auto check = [&](const std::string& bytes) {
      const Result<Deck> deck = is_med ? ParseMed(bytes, name) : ParseCgns(bytes, name);
      if (deck) {
        EXPECT_EQ(CheckMesh(*deck, name).Line(), "");
      } else {
        EXPECT_FALSE(deck.Error().what.empty());
      }
    };
    for (std::size_t i = 0; i < whole.size(); i += 1 + whole.size() / 120) {
      check(whole.substr(0, i));
      std::string wrong = whole;
      wrong[i] = static_cast<char>(wrong[i] ^ 0x47);
      check(wrong);
    }
  }
  EXPECT_NE(ParseCgns("\x89HDF", "short").Error().Line().find("is no HDF5 file"),
            std::string::npos);
  ASSERT_TRUE(WriteWholeFile(folder.Path("old.cgns"), "@(#)ADF Database Version A02012>"));
  LossReport in;
  EXPECT_NE(ImportFile(session, folder.Path("old.cgns"), {}, in).Line().find("adf2hdf"),
            std::string::npos);
}

/// A container that holds next to nothing may say that it has any number of values.
TEST(Hdf5Formats, CountsOfAnySizeAreRefused) {
  const ScratchFolder folder;
  const std::string path = folder.Path("a.cgns");
  const std::vector<std::int32_t> large{2000000000, 1, 0};
  const std::vector<std::int32_t> box{1500, 1500, 1500, 1499, 1499, 1499, 0, 0, 0};
  for (const bool is_structured : {false, true}) {
    {
      CgnsMaker out(path);
      out.Zone("/Base/Zone", is_structured ? box : large, 4,
               is_structured ? "Structured" : "Unstructured");
      out.Finish();
    }
    std::vector<Failure> faults;
    EXPECT_FALSE(ReadCgns(path, {}, faults));
    ASSERT_EQ(faults.size(), 1u);
    EXPECT_NE(faults[0].what.find("more nodes than the file can hold"), std::string::npos);
  }
}

}  // namespace
}  // namespace qx::exchange

#endif
