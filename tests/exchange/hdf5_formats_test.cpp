// CGNS and MED files: node orders against what the formats document, files array by array as other
// programs write them, files that are broken, and real ones where they are there.

#if defined(QX_HAS_CGNS) && defined(QX_HAS_MED)

#include <algorithm>
#include <array>
#include <atomic>
#include <csignal>
#include <filesystem>
#include <fmt/format.h>
#include <fmt/ranges.h>
#include <gtest/gtest.h>
#include <new>
#include <unistd.h>

#include "qx_db/platform/file.h"
#include "qx_db/platform/shared_library.h"
#include "qx_db/qx_db.h"

#include "brief.h"
#include "exchange/cgns/cgns_kinds.h"
#include "exchange/cgns/cgns_reader.h"
#include "exchange/hdf5/h5_apart.h"
#include "exchange/hdf5/h5_library.h"
#include "exchange/hdf5/h5_reader.h"
#include "exchange/hdf5/h5_writer.h"
#include "exchange/med/med_kinds.h"
#include "exchange/med/med_reader.h"
#include "exchange/node_orders.h"
#include "exchange/transfer.h"
#include "host/session.h"
#include "random_deck.h"
#include "tests/corpus.h"
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
    for (const char* axis : {"CoordinateX", "CoordinateY", "CoordinateZ"}) {
      Add(path + "/GridCoordinates/" + axis, "DataArray_t");
      out_.Put(path + "/GridCoordinates/" + axis + "/ data", x);
      x.assign(nodes, 0.0);
    }
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
    out.Section("/Base/Left/Faces", 22, 4, 5, {5, 1, 2, 3, 4, 5, 3, 2, 3, 4});
    out.Section("/Base/Left/Skin", 5, 6, 7, {1, 2, 3, 2, 3, 4});
    out.Add("/Base/Left/ZoneBC", "ZoneBC_t");
    out.Condition("/Base/Left/ZoneBC/Wall", "BCWall", "PointRange", {6, 7}, "FaceCenter", "Outer");
    out.Condition("/Base/Left/ZoneBC/Ends", "FamilySpecified", "PointList", {1, 12}, nullptr,
                  "Outer");
    out.Condition("/Base/Left/ZoneBC/Old", "BCInflow", "ElementList", {7, 4}, nullptr);
    out.Add("/Base/Left/Flow", "DiscreteData_t");
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
                                      "Left.Faces: 5 /  #0", "Left.Skin: 6 7 /  #0",
                                      "Left: 1 2 3 5 6 7 /  #2", "Left.Wall: 6 7 /  in Outer #120",
                                      "Left.Ends:  / 1 12 in Outer #125", "Left.Old: 7 /  #109",
                                      "Right: 8 9 /  #2", "Right.Low:  / 13 14 15 16 #120"}));
  EXPECT_EQ(
      Briefly(deck->report),
      (std::vector<std::string>{
          "elements of type BAR_4 were read as 2-node lines: 1",
          "polygons (NGON_n) were left out: 1", "members of sets that were not read: 1",
          "nodes of label DiscreteData_t were left out: 1", "zones were joined into one mesh: 2",
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
    EXPECT_EQ(
        Briefly(deck->report),
        (std::vector<std::string>{"elements of type QU9 were read as 8-node quadrilaterals: 1",
                                  "elements of type POG were left out: 1",
                                  "fields that are broken were left out, from there on: 1"}));
    EXPECT_EQ((*deck->units)[UnitBase::kLength], FindUnit(UnitBase::kLength, "mm"));
  }
}

// ---- what lies elsewhere, and what cannot be read
// ------------------------------------------------

/// A tetrahedron in a file of one zone, to which `more` adds.
template <class More>
Result<Deck> ReadWith(const ScratchFolder& folder, More&& more) {
  const std::string path = folder.Path("with.cgns");
  {
    CgnsMaker out(path);
    out.Zone("/Base/Z", {4, 1, 0}, 4, "Unstructured");
    out.Section("/Base/Z/Body", 10, 1, 1, {1, 2, 3, 4});
    more(out);
    out.Finish();
  }
  std::vector<Failure> faults;
  return ReadCgns(path, {}, faults);
}

void NameUnit(CgnsMaker& out, const std::string& below, const char* length) {
  out.Add(
      below + "/DimensionalUnits", "DimensionalUnits_t",
      fmt::format("{:32}{:32}{:32}{:32}{:32}", "Kilogram", length, "Second", "Kelvin", "Radian"));
}

TEST(CgnsReader, TakesTheNearestUnitAndConvertsTheOthers) {
  const ScratchFolder folder;
  const Result<Deck> deck = ReadWith(folder, [](CgnsMaker& out) {
    NameUnit(out, "/Base", "Meter");
    NameUnit(out, "/Base/Z/GridCoordinates", "Millimeter");
    out.Zone("/Base/Z2", {4, 1, 0}, 4, "Unstructured");
    out.Section("/Base/Z2/Body", 10, 1, 1, {1, 2, 3, 4});
  });
  ASSERT_TRUE(deck) << deck.AsOutcome().Line();
  EXPECT_EQ((*deck->units)[UnitBase::kLength], FindUnit(UnitBase::kLength, "mm"));
  EXPECT_EQ(deck->coordinates[3], 1);
  EXPECT_EQ(deck->coordinates[15], 1000) << "of the second zone, which is in metres";
  EXPECT_NE(fmt::format("{}", fmt::join(Briefly(deck->report), "; "))
                .find("coordinates were converted to the unit of the first: 3"),
            std::string::npos);
}

TEST(CgnsReader, RefusesCoordinatesThatAreNotCartesianAndTellsOfOtherArrays) {
  const ScratchFolder folder;
  const auto zone = [](CgnsMaker& out, const char* first) {
    out.AddNumbers("/Base/Y", "Zone_t", {1, 0, 0});
    out.Add("/Base/Y/ZoneType", "ZoneType_t", "Unstructured");
    out.Add("/Base/Y/GridCoordinates", "GridCoordinates_t");
    out.AddNumbers(std::string("/Base/Y/GridCoordinates/") + first, "DataArray_t", {1});
  };
  const char* const cases[][2] = {
      {"CoordinateR", "Base/Y/GridCoordinates: its coordinates are not Cartesian (CoordinateR)"},
      {"CoordinateX", "Base/Y/GridCoordinates: it has no CoordinateY, in a space of 3 dimensions"}};
  for (const auto& c : cases) {
    const Result<Deck> deck = ReadWith(folder, [&](CgnsMaker& out) { zone(out, c[0]); });
    ASSERT_FALSE(deck);
    EXPECT_NE(deck.Error().Line().find(c[1]), std::string::npos) << deck.Error().Line();
  }
  const Result<Deck> deck = ReadWith(folder, [](CgnsMaker& out) {
    out.AddNumbers("/Base/Z/GridCoordinates/CoordinateR", "DataArray_t", {1, 2, 3, 4});
  });
  ASSERT_TRUE(deck);
  EXPECT_EQ(Briefly(deck->report),
            std::vector<std::string>{"arrays beside the coordinates were left out: 1"});
}

#ifdef QX_HDF5_FILE
TEST(Hdf5Formats, FollowNothingIntoOtherFiles) {
  const ScratchFolder folder;
  std::string wrong;
  const H5Library* const h5 = H5Library::Get(wrong);
  ASSERT_TRUE(h5) << wrong;
  const auto library = SharedLibrary::Load(QX_HDF5_FILE);
  ASSERT_TRUE(library);
  const auto find = [&]<class F>(F*& function, const char* name) {
    function = reinterpret_cast<F*>(library->Find(name));
    return function != nullptr;
  };
  decltype(H5Lcreate_external)* external = nullptr;
  decltype(H5Lcreate_soft)* soft = nullptr;
  decltype(H5Pset_virtual)* set_virtual = nullptr;
  decltype(H5Ldelete)* remove = nullptr;
  decltype(H5PLget_loading_state)* loading = nullptr;
  ASSERT_TRUE(find(external, "H5Lcreate_external") && find(soft, "H5Lcreate_soft") &&
              find(set_virtual, "H5Pset_virtual") && find(remove, "H5Ldelete") &&
              find(loading, "H5PLget_loading_state"));
  unsigned plugins = 1;
  EXPECT_GE(loading(&plugins), 0);
  EXPECT_EQ(plugins, 0u) << "filters are looked for in files of code";

  const std::string path = folder.Path("with.cgns");
  const auto change = [&](auto&& how) {
    (void)ReadWith(folder, [](CgnsMaker&) {});  // makes the file
    constexpr unsigned kToWrite = 1;
    const hid_t file = h5->H5Fopen(path.c_str(), kToWrite, H5P_DEFAULT);
    ASSERT_GE(file, 0);
    how(file);
    ASSERT_GE(h5->H5Fclose(file), 0);
  };
  std::vector<Failure> faults;
  change([&](hid_t file) {
    ASSERT_GE(external("other.cgns", "/Base/V", file, "/Base/V", H5P_DEFAULT, H5P_DEFAULT), 0);
    ASSERT_GE(soft("/Base/Z", file, "/Base/W", H5P_DEFAULT, H5P_DEFAULT), 0);
  });
  const Result<Deck> linked = ReadCgns(path, {}, faults);
  ASSERT_TRUE(linked) << linked.AsOutcome().Line();
  ASSERT_EQ(linked->report.entries.size(), 2u);
  EXPECT_EQ(linked->report.entries[0].where, "Base/V");
  EXPECT_EQ(linked->report.entries[0].what, "links into other files were left out");
  EXPECT_EQ(linked->report.entries[1].where, "Base/W");

  change([&](hid_t file) {
    ASSERT_GE(remove(file, "/Base/Z/GridCoordinates", H5P_DEFAULT), 0);
    ASSERT_GE(
        external("other.cgns", "/G", file, "/Base/Z/GridCoordinates", H5P_DEFAULT, H5P_DEFAULT), 0);
  });
  const Result<Deck> without = ReadCgns(path, {}, faults);
  ASSERT_FALSE(without);
  EXPECT_NE(without.Error().Line().find("Base/Z/GridCoordinates: lies in another file"),
            std::string::npos)
      << without.Error().Line();

  const std::string array = "/Base/Z/GridCoordinates/CoordinateX/ data";
  const std::string secret = folder.Path("secret.cgns");
  change([&](hid_t) { std::filesystem::copy_file(path, secret); });
  change([&](hid_t file) {
    ASSERT_GE(remove(file, array.c_str(), H5P_DEFAULT), 0);
    const hsize_t four = 4;
    const hid_t space = h5->H5Screate_simple(1, &four, nullptr);
    const hid_t list = h5->H5Pcreate(h5->H5P_CLS_DATASET_CREATE_ID_g);
    ASSERT_GE(set_virtual(list, space, secret.c_str(), array.c_str(), space), 0);
    const hid_t made = h5->H5Dcreate2(file, array.c_str(), h5->H5T_IEEE_F64LE_g, space, H5P_DEFAULT,
                                      list, H5P_DEFAULT);
    ASSERT_GE(made, 0);
    h5->H5Dclose(made);
    h5->H5Pclose(list);
    h5->H5Sclose(space);
  });
  const Result<Deck> virtually = ReadCgns(path, {}, faults);
  ASSERT_FALSE(virtually);
  EXPECT_NE(virtually.Error().Line().find("its values are in other files"), std::string::npos)
      << virtually.Error().Line();
}
#endif

// Names that nodes of the format have themselves.
TEST(CgnsWriter, WritesSetsOfAnyName) {
  const ScratchFolder folder;
  Deck deck;
  deck.node_keys = {1, 2};
  deck.coordinates = {0, 0, 0, 1, 0, 0};
  deck.connectivity = {1, 2, 2, 1};
  deck.elements = {{1, element::kLine2, 0}, {2, element::kLine2, 2}};
  std::vector<std::string> names{
      "ZoneBC", "GridCoordinates", "ZoneType",   "QX_db", "DataClass", "DimensionalUnits",
      "Zone",   "Zone1",           "FamilyName", "Base"};
  const std::size_t count = names.size();
  for (std::size_t i = 0; i < 3 * count; ++i) {
    Mesh::Group group;
    group.name = names[i % count];
    if (i < count) group.elements = {1};  // the first is a section, the others are regions
    if (i >= count && i < 2 * count) group.nodes = {2};
    deck.groups.push_back(group);  // the last have nothing: families
  }
  CQXDBSession session(host::SetUpModel);
  LossReport report;
  ASSERT_EQ(AddDeck(session, deck, "names", report).Line(), "");
  ASSERT_EQ(ExportFile(session, folder.Path("a.cgns"), {}, report).Line(), "");
  std::vector<Failure> faults;
  const Result<Deck> back = ReadCgns(folder.Path("a.cgns"), {}, faults);
  ASSERT_TRUE(back) << back.AsOutcome().Line();
  std::vector<std::string> read;
  for (const Mesh::Group& group : back->groups) read.push_back(group.name);
  for (const std::string& name : names) {
    EXPECT_GE(std::count_if(read.begin(), read.end(),
                            [&](const std::string& own) { return own.starts_with(name); }),
              3)
        << name;
  }
}

TEST(MedReader, KeepsFamiliesOfNodesAndElementsApartAndRefusesWhatItCannotRead) {
  const ScratchFolder folder;
  const auto read = [&](int major, const char* units) {
    const std::string path = folder.Path("a.med");
    H5Writer out(path);
    for (const char* group :
         {"/INFOS_GENERALES", "/ENS_MAA", "/ENS_MAA/m", "/ENS_MAA/m/s", "/ENS_MAA/m/s/NOE",
          "/ENS_MAA/m/s/MAI", "/ENS_MAA/m/s/MAI/SE2", "/FAS", "/FAS/m", "/FAS/m/NOEUD",
          "/FAS/m/NOEUD/F", "/FAS/m/NOEUD/F/GRO", "/FAS/m/ELEME", "/FAS/m/ELEME/F",
          "/FAS/m/ELEME/F/GRO"}) {
      out.Group(group);
    }
    using Ints = std::vector<std::int32_t>;
    out.Integer("/INFOS_GENERALES", "MAJ", major);
    out.Integer("/INFOS_GENERALES", "MIN", 3);
    out.Integer("/ENS_MAA/m", "ESP", 3);
    out.Text("/ENS_MAA/m", "UNI", units, 49);
    out.Put("/ENS_MAA/m/s/NOE/COO", std::vector<double>{0, 1, 2, 0, 0, 0, 0, 0, 0});
    out.Put("/ENS_MAA/m/s/NOE/FAM", Ints{0, 0, 7});
    out.Put("/ENS_MAA/m/s/MAI/SE2/NOD", Ints{1, 2});
    out.Put("/ENS_MAA/m/s/MAI/SE2/FAM", Ints{7});
    for (const char* part : {"/FAS/m/NOEUD/F", "/FAS/m/ELEME/F"}) {
      out.Integer(part, "NUM", 7);
      out.PutTexts(std::string(part) + "/GRO/NOM", {part + 7}, 80);
    }
    EXPECT_EQ(out.Finish(), "");
    std::vector<Failure> faults;
    return ReadMed(path, {}, faults);
  };
  const Result<Deck> deck = read(3, "mm              mm              mm");
  ASSERT_TRUE(deck) << deck.AsOutcome().Line();
  EXPECT_EQ(GroupsOf(*deck), (std::vector<std::string>{"NOEUD/F:  / 3", "ELEME/F: 1 / "}));
  EXPECT_NE(read(3, "mm              m               m").AsOutcome().Line().find("different units"),
            std::string::npos);
  EXPECT_NE(read(2, "").AsOutcome().Line().find("is a MED file of version 2.3"), std::string::npos);
}

// ---- reading apart ------------------------------------------------------------------------------

TEST(Hdf5Apart, TellsACrashALimitAndAnEndApart) {
  ApartLimits limits;
  limits.processor_seconds = 1;
  limits.clock_seconds = 20;
  const auto run = [&](const std::function<bool()>& ask) { return RunApart(ask, limits, [] {}); };
  for (const bool is_ignored : {false, true}) {
    // Programs may leave their children to the system.
    const auto before = std::signal(SIGCHLD, is_ignored ? SIG_IGN : SIG_DFL);
    EXPECT_EQ(run([] { return true; }), ApartEnd::kTrue);
    EXPECT_EQ(run([] { return false; }), ApartEnd::kFalse);
    EXPECT_EQ(run([]() -> bool { _exit(0); }), ApartEnd::kCrash);
    EXPECT_EQ(run([]() -> bool { throw std::bad_alloc(); }), ApartEnd::kMemory);
    std::signal(SIGCHLD, before);
  }
  const auto for_ever = [] {
    std::atomic<unsigned> turns = 0;
    while (turns.fetch_add(1) != 0 || turns != 0) {
    }
    return true;
  };
  EXPECT_EQ(run(for_ever), ApartEnd::kTime);
  limits.clock_seconds = 1;
  EXPECT_EQ(run([] { return sleep(100) == 0; }), ApartEnd::kTime);
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

// ---- real files ---------------------------------------------------------------------------------

class Hdf5Corpus : public testing::TestWithParam<const char*> {};

// What is read of another program's file goes out and comes back as the same mesh.
TEST_P(Hdf5Corpus, IsReadAndComesBack) {
  QX_REQUIRE_CORPUS(path, GetParam());
  const ScratchFolder folder;
  CQXDBSession session(host::SetUpModel), back(host::SetUpModel);
  LossReport report;
  ASSERT_EQ(ImportFile(session, path, {}, report).Line(), "");
  const std::string copy = folder.Path(path.ends_with("med") ? "a.med" : "a.cgns");
  ASSERT_EQ(ExportFile(session, copy, {}, report).Line(), "");
  ASSERT_EQ(ImportFile(back, copy, {}, report).Line(), "");
  const Deck first = DeckOf(session), second = DeckOf(back);
  EXPECT_GT(first.elements.size(), 0u);
  EXPECT_EQ(first.node_keys, second.node_keys);
  EXPECT_EQ(first.coordinates, second.coordinates);
  EXPECT_EQ(first.elements.size(), second.elements.size());
  EXPECT_EQ(first.connectivity.size(), second.connectivity.size());
}

INSTANTIATE_TEST_SUITE_P(Files, Hdf5Corpus,
                         testing::Values("cgns/generated.cgns", "cgns/BC_without_parents.cgns",
                                         "med/Test2DMultiGeoType.med", "med/pointe.med"));

TEST(Hdf5CorpusOfOldFiles, IsRefusedByItsVersion) {
  QX_REQUIRE_CORPUS(path, "med/BoxHexa1.med");
  std::vector<Failure> faults;
  EXPECT_NE(ReadMed(path, {}, faults).AsOutcome().Line().find("of version 2.3: those from 3.0"),
            std::string::npos);
}

}  // namespace
}  // namespace qx::exchange

/// The library loses memory of its own over damaged files. (The name is the leak detector's.)
extern "C" const char* __lsan_default_suppressions();
extern "C" const char* __lsan_default_suppressions() { return "leak:libhdf5_serial\n"; }

#endif
