// Exodus files: real ones against what is known of them, through models and out again, sides, and
// files that are broken.

#ifdef QX_HAS_EXODUS

#include <algorithm>
#include <filesystem>
#include <fmt/format.h>
#include <fmt/ranges.h>
#include <gtest/gtest.h>
#include <limits>
#include <netcdf.h>

#include "qx_db/gateway/document.h"
#include "qx_db/mesh/topology_table.h"
#include "qx_db/platform/file.h"
#include "qx_db/qx_db.h"

#include "brief.h"
#include "exchange/exodus/exodus_kinds.h"
#include "exchange/exodus/exodus_reader.h"
#include "exchange/exodus/exodus_writer.h"
#include "exchange/exodus/nc_file.h"
#include "exchange/msh/msh_reader.h"
#include "exchange/transfer.h"
#include "host/session.h"
#include "sample_mesh.h"
#include "tests/corpus.h"
#include "tests/scratch_folder.h"

namespace qx::exchange {
namespace {

// Sides as the format documents them: corners from 1, outwards.
TEST(ExodusSides, AreTheFacesThatTheFormatDocuments) {
  struct Solid {
    std::int32_t code;
    std::vector<std::vector<std::int32_t>> sides;
  };
  const Solid solids[] = {
      {element::kTet4, {{1, 2, 4}, {2, 3, 4}, {1, 4, 3}, {1, 3, 2}}},
      {element::kPyramid5, {{1, 2, 5}, {2, 3, 5}, {3, 4, 5}, {1, 5, 4}, {1, 4, 3, 2}}},
      {element::kWedge6, {{1, 2, 5, 4}, {2, 3, 6, 5}, {1, 4, 6, 3}, {1, 3, 2}, {4, 5, 6}}},
      {element::kHex8,
       {{1, 2, 6, 5}, {2, 3, 7, 6}, {3, 4, 8, 7}, {1, 5, 8, 4}, {1, 4, 3, 2}, {5, 6, 7, 8}}},
  };
  for (const Solid& solid : solids) {
    const ElementTopology topology(solid.code);
    for (std::size_t s = 0; s < solid.sides.size(); ++s) {
      const auto number = static_cast<std::int64_t>(s + 1);
      const std::int32_t ours = SideOfExodus(solid.code, number, true);
      ASSERT_GE(ours, 0);
      EXPECT_EQ(ExodusSideOf(solid.code, ours), number);
      std::vector<std::int32_t> expected = solid.sides[s];
      for (std::int32_t& corner : expected) --corner;
      std::vector<std::int32_t> found(topology.Face(ours, false).begin(),
                                      topology.Face(ours, false).end());
      std::sort(expected.begin(), expected.end());
      std::sort(found.begin(), found.end());
      EXPECT_EQ(found, expected) << "type " << solid.code << ", side " << number;
    }
    EXPECT_EQ(SideOfExodus(solid.code, 0, true), -1);
    EXPECT_EQ(SideOfExodus(solid.code, static_cast<std::int64_t>(solid.sides.size() + 1), true),
              -1);
  }
  // Surfaces in space have a front and a back before their edges.
  EXPECT_EQ(SideOfExodus(element::kQuad4, 3, true), 0);
  EXPECT_EQ(SideOfExodus(element::kQuad4, 1, true), 4);
  EXPECT_EQ(SideOfExodus(element::kTri6, 2, true), 4);
  EXPECT_EQ(SideOfExodus(element::kTri3, 3, false), 2);
  for (const std::int32_t code : {element::kTri3, element::kQuad8}) {
    for (std::int32_t side = 0; side < FindElementType(code)->corners + 2; ++side) {
      EXPECT_EQ(SideOfExodus(code, ExodusSideOf(code, side), true), side);
    }
  }
}

TEST(ExodusKinds, AreKnownByShapeAndNumberOfNodes) {
  struct Case {
    const char* type;
    std::int64_t nodes;
    std::int32_t code;
    bool is_reduced;
  };
  using namespace element;
  const Case cases[] = {
      {"HEX", 8, kHex8, false},
      {"hex27", 27, kHex20, true},
      {"HEX", 12, kHex8, true},
      {"TETRA", 4, kTet4, false},
      {"tet", 8, kTet4, true},
      {"TETRA14", 14, kTet10, true},
      {"shell4", 4, kQuad4, false},
      {"SHELL", 3, kTri3, false},
      {"SHELL9", 9, kQuad8, true},
      {"TRISHELL6", 6, kTri6, false},
      {"TRIANGLE", 7, kTri6, true},
      {"WEDGE", 12, kWedge6, true},
      {"pyramid14", 14, kPyramid13, true},
      {"TRUSS", 2, kLine2, false},
      {"BEAM", 3, kLine3, false},
      {"SPHERE", 1, kPoint, false},
      {"NSIDED", 5, 0, false},
      {"HEX", 7, 0, false},
  };
  for (const Case& c : cases) {
    const auto kind = FindExodusKind(c.type, c.nodes);
    EXPECT_EQ(kind ? kind->code : 0, c.code) << c.type << " " << c.nodes;
    if (kind) {
      EXPECT_EQ(kind->is_reduced, c.is_reduced) << c.type << " " << c.nodes;
    }
  }
}

class ExodusCorpus : public testing::TestWithParam<const char*> {
 protected:
  void Import(CQXDBSession& session, const std::string& path) {
    ImportOptions options;
    options.set_model_units = true;
    LossReport report;
    ASSERT_EQ(ImportFile(session, path, options, report).Line(), "");
    EXPECT_EQ(session.Validate(), "");
  }
  const ScratchFolder folder_;
};
INSTANTIATE_TEST_SUITE_P(All, ExodusCorpus,
                         testing::Values("exodus/2block1.g", "exodus/brick.e", "exodus/four-p.e",
                                         "exodus/four-sidesets.e", "exodus/four.e",
                                         "exodus/turbine.e"),
                         [](const auto& test) { return sample::TestName(test.param); });

/// The groups of one kind: number, name and members of each.
std::string GroupsOf(const Deck& deck, std::int32_t kind, bool is_block) {
  std::string text;
  for (const Mesh::Group& group : deck.groups) {
    const Mesh::SetTag& tag = group.tags.at(0);
    if (tag.kind != kind || (tag.dimension >= 0) != is_block) continue;
    const std::size_t count = kind == tagTSetTag::kSides   ? tag.sides.size()
                              : kind == tagTSetTag::kNodes ? group.nodes.size()
                                                           : group.elements.size();
    text += fmt::format("{} '{}' {}\n", tag.tag, tag.named ? group.name : "", count);
  }
  return text;
}

TEST_P(ExodusCorpus, HasTheExpectedBlocksAndSets) {
  QX_REQUIRE_CORPUS(totals_path, "expected/mesh_totals.json");
  QX_REQUIRE_CORPUS(path, GetParam());
  dbgateway::DataBase document;
  ASSERT_TRUE(document.ReadFile(totals_path));
  dbgateway::Record expected;
  document.FindCollection("files")->ForEach(
      [&](Key, std::string_view file, dbgateway::Record record) {
        if (file == GetParam()) expected = record;
      });
  ASSERT_FALSE(expected.IsDetached());
  std::vector<Failure> faults;
  const Result<Deck> deck = ReadExodus(path, {}, faults);
  ASSERT_TRUE(deck) << deck.AsOutcome().Line();
  const auto compare = [&](const char* name, std::int32_t kind, bool is_block) {
    const dbgateway::Field list = expected.Find(name);
    if (!list) return;
    std::string text;
    for (std::size_t i = 0; i < list.Size(); ++i) {
      text += fmt::format("{} '{}' {}\n", list.At(i).Member("id").Integer(),
                          list.At(i).Member("name").Text(), list.At(i).Member("count").Integer());
    }
    EXPECT_EQ(GroupsOf(*deck, kind, is_block), text) << name;
  };
  compare("blocks", tagTSetTag::kElements, true);
  compare("node_sets", tagTSetTag::kNodes, false);
  compare("side_sets", tagTSetTag::kSides, false);
  for (const char* name : {"node_num_map", "elem_num_map"}) {
    const dbgateway::Field map = expected.Find(name);
    if (!map) continue;
    std::vector<Key> keys = deck->node_keys;
    if (name[0] == 'e') {
      keys.clear();
      for (const Mesh::Element& element : deck->elements) keys.push_back(element.key);
    }
    std::int64_t sum = 0;
    for (const Key key : keys) sum += key;
    EXPECT_EQ(sum, map.Member("sum").Integer());
    for (std::size_t i = 0; i < map.Member("first").Size(); ++i) {
      EXPECT_EQ(keys[i], map.Member("first").At(i).Integer());
    }
  }
}

TEST_P(ExodusCorpus, IsAFixedPoint) {
  QX_REQUIRE_CORPUS(path, GetParam());
  CQXDBSession session(host::SetUpModel);
  Import(session, path);
  LossReport out;
  ASSERT_EQ(ExportFile(session, folder_.Path("once.e"), {}, out).Line(), "");
  EXPECT_EQ(Briefly(out), (std::vector<std::string>{"the numbers are in m,N,kg,sec,C,J,deg"}));
  CQXDBSession again(host::SetUpModel);
  Import(again, folder_.Path("once.e"));
  const Deck before = DeckOf(session);
  const Deck after = DeckOf(again);
  EXPECT_EQ(after.node_keys, before.node_keys);
  EXPECT_EQ(after.coordinates, before.coordinates);
  EXPECT_EQ(after.elements, before.elements);
  EXPECT_EQ(after.connectivity, before.connectivity);
  ASSERT_EQ(after.groups.size(), before.groups.size());
  for (std::size_t i = 0; i < after.groups.size(); ++i) {
    EXPECT_EQ(after.groups[i].name, before.groups[i].name);
    EXPECT_EQ(after.groups[i].elements, before.groups[i].elements);
    EXPECT_EQ(after.groups[i].nodes, before.groups[i].nodes);
    EXPECT_EQ(after.groups[i].tags, before.groups[i].tags);
  }
  ASSERT_EQ(after.Of<tagTField>().size(), before.Of<tagTField>().size());
  ASSERT_EQ(ExportFile(again, folder_.Path("twice.e"), {}, out).Line(), "");
  EXPECT_TRUE(*ReadWholeFile(folder_.Path("once.e")) == *ReadWholeFile(folder_.Path("twice.e")));
}

// ---- made here ----------------------------------------------------------------------------------

/// Elements of every kind with overlapping sets, fields of two steps and an attribute.
class ExodusModelTest : public testing::Test {
 protected:
  ExodusModelTest() {
    Result<Deck> mesh = ParseMsh(sample::Write(sample::Make(), {"4.1"}), "sample");
    EXPECT_TRUE(mesh);
    tagTField attribute;
    attribute.name.Set(u"exodus:attribute thickness");
    attribute.place = tagTField::kElements;
    for (const Mesh::Element& element : mesh->elements) {
      if (element.type != element::kQuad4) continue;
      attribute.element_values.Add({0.5 + element.key, static_cast<ITR>(element.key)});
    }
    mesh->Of<tagTField>().push_back(attribute);
    for (int step = 1; step <= 2; ++step) {
      tagTField field;
      field.name.Set(u"u");
      field.components = 3;
      field.step = step;
      field.time = 0.25 * step;
      for (int c = 0; c < 3; ++c) {
        field.node_values.Add({step + 0.1 * c, static_cast<ITR>(mesh->node_keys[5])});
      }
      mesh->Of<tagTField>().push_back(field);
    }
    LossReport report;
    EXPECT_TRUE(AddDeck(session_, *mesh, "sample", report));
  }
  CQXDBSession session_{host::SetUpModel};
  const ScratchFolder folder_;
};

TEST_F(ExodusModelTest, BlocksSetsFieldsAndAttributesComeBack) {
  LossReport report;
  ASSERT_EQ(WriteExodus(session_, folder_.Path("all.e"), {}, report).Line(), "");
  std::vector<Failure> faults;
  const Result<Deck> deck = ReadExodus(folder_.Path("all.e"), {}, faults);
  ASSERT_TRUE(deck) << deck.AsOutcome().Line();
  const Deck before = DeckOf(session_);
  std::map<Key, std::pair<std::int32_t, std::vector<Key>>> nodes[2];
  for (const Deck* of : {&before, &*deck}) {
    for (std::size_t i = 0; i < of->elements.size(); ++i) {
      const auto first =
          of->connectivity.begin() + static_cast<std::ptrdiff_t>(of->elements[i].first);
      nodes[of != &before][of->elements[i].key] = {
          of->elements[i].type,
          std::vector<Key>(first, first + static_cast<std::ptrdiff_t>(of->NodesOf(i)))};
    }
  }
  EXPECT_EQ(nodes[0], nodes[1]);
  // Every element is in one block; sets that are none are there as element sets.
  std::map<std::string, std::size_t> sets;
  std::size_t in_blocks = 0;
  for (const Mesh::Group& group : deck->groups) {
    if (group.tags[0].dimension >= 0) in_blocks += group.elements.size();
    if (group.tags[0].named) sets[group.name] = group.elements.size();
  }
  EXPECT_EQ(in_blocks, before.elements.size());
  for (const Mesh::Group& group : before.groups) {
    EXPECT_EQ(sets[group.name], group.elements.size()) << group.name;
  }
  std::map<std::string, std::string> fields;
  for (const tagTField& field : deck->Of<tagTField>()) {
    std::string& text = fields[Utf8(field.name.View())];
    for (const auto& v : field.node_values) text += fmt::format("{}:{} ", +field.time, +v.value);
    for (const auto& v : field.element_values) text += fmt::format("{} ", v.value - ITR{v.target});
  }
  EXPECT_EQ(fields["u_x"], "0.25:1 0.5:2 ");
  EXPECT_EQ(fields["u_z"], "0.25:1.2 0.5:2.2 ");
  EXPECT_EQ(fields["exodus:attribute thickness"], "0.5 0.5 ");
  EXPECT_EQ(fields.size(), 4u);
}

TEST_F(ExodusModelTest, EveryTruncationAndWrongBytesAreReadOrRefused) {
  LossReport report;
  ASSERT_TRUE(WriteExodus(session_, folder_.Path("all.e"), {}, report));
  const std::string whole = *ReadWholeFile(folder_.Path("all.e"));
  const auto check = [](const std::string& bytes) {
    const Result<Deck> deck = ParseExodus(bytes, "broken.e");
    if (deck) {
      EXPECT_EQ(CheckMesh(*deck, "broken.e").Line(), "");
    } else {
      EXPECT_FALSE(deck.Error().what.empty());
    }
  };
  for (std::size_t i = 0; i < whole.size(); i += 1 + whole.size() / 1500) {
    check(whole.substr(0, i));
    std::string wrong = whole;
    wrong[i] = static_cast<char>(wrong[i] ^ 0x47);
    check(wrong);
  }
  EXPECT_NE(ParseExodus("CDF", "short.e").Error().Line().find("is no netCDF file"),
            std::string::npos);
}

// ---- faults and losses --------------------------------------------------------------------------

/// A file of elements on the same nodes, at first sixty hexahedra, with a set of all nodes, written
/// array by array.
struct Sixty {
  const char* type = "HEX";
  std::size_t nodes_each = 8;
  bool is_flat = false;
  std::vector<std::int32_t> connect;
  std::vector<std::int32_t> members{1, 2, 3, 4, 5, 6, 7, 8};
  std::vector<double> factors = std::vector<double>(8, 1.0);
  std::vector<double> x = std::vector<double>(8, 0.5);
  std::vector<std::int32_t> numbers = {1, 2, 3, 4, 5, 6, 7, 8};  ///< of the nodes
  std::size_t variables = 0;  ///< of nodes, of elements, and attributes
  std::size_t steps = 0;

  Sixty() {
    for (int e = 0; e < 60; ++e) {
      for (int i = 1; i <= 8; ++i) connect.push_back(i);
    }
  }
  void Write(const std::string& path) const {
    using Type = NcWriter::Type;
    NcWriter out(path, false);
    const int nodes = out.Dimension("num_nodes", 8);
    const int elements = out.Dimension("num_el_in_blk1", connect.size() / nodes_each);
    const int members_length = out.Dimension("num_nod_ns1", 8);
    out.Dimension("num_dim", 3);
    out.Dimension("num_elem", connect.size() / nodes_each);
    out.Dimension("num_el_blk", 1);
    out.Dimension("num_node_sets", 1);
    for (const char* axis : {"coordx", "coordy", "coordz"}) out.Define(axis, Type::kReal, {nodes});
    const int each = out.Dimension("num_nod_per_el1", nodes_each);
    if (is_flat) {
      out.Define("connect1", Type::kInteger, {out.Dimension("flat", connect.size())});
    } else {
      out.Define("connect1", Type::kInteger, {elements, each});
    }
    out.Text("connect1", "elem_type", type);
    out.Define("node_ns1", Type::kInteger, {members_length});
    out.Define("dist_fact_ns1", Type::kReal, {members_length});
    out.Define("node_num_map", Type::kInteger, {nodes});
    if (steps > 0) out.Dimension("time_step", steps);
    if (variables > 0) {
      out.Dimension("num_nod_var", variables);
      out.Dimension("num_elem_var", variables);
      const int attributes = out.Dimension("num_att_in_blk1", variables);
      out.Define("attrib1", Type::kReal, {elements, attributes});
    }
    out.EndDefinitions();
    out.Put("node_num_map", numbers);
    if (variables > 0) {
      out.Put("attrib1", std::vector<double>(variables * connect.size() / nodes_each, 1.0));
    }
    for (const char* axis : {"coordx", "coordy", "coordz"}) out.Put(axis, x);
    out.Put("connect1", connect);
    out.Put("node_ns1", members);
    out.Put("dist_fact_ns1", factors);
    ASSERT_EQ(out.Finish(), "");
  }
};

TEST(ExodusFaults, AllAreTold) {
  const ScratchFolder folder;
  Sixty file;
  std::string expected;
  for (std::size_t e = 3; e < 43; ++e) {
    file.connect[8 * e + e % 8] = 9;
    expected += fmt::format("connect1: element {} names node 9 of 8\n", e + 1);
  }
  file.members[6] = 77;
  expected += "node_ns1: node 77 is not there\n";
  file.x[4] = std::numeric_limits<double>::quiet_NaN();
  expected = "node 5: a coordinate is not a finite number\n" + expected;
  file.Write(folder.Path("a.e"));
  std::vector<Failure> faults;
  EXPECT_FALSE(ReadExodus(folder.Path("a.e"), {}, faults));
  std::string told;
  for (const Failure& fault : faults) told += fault.place + ": " + fault.what + '\n';
  EXPECT_EQ(told, expected);
  for (std::int32_t& node : file.connect) node = -1;
  file.Write(folder.Path("b.e"));
  faults.clear();
  EXPECT_FALSE(ReadExodus(folder.Path("b.e"), {}, faults));
  EXPECT_EQ(faults.size(), LossReport::kMostFaults);
}

TEST(ExodusModel, ArraysOfMorePiecesThanOneKeepEveryElement) {
  const ScratchFolder folder;
  for (const bool is_flat : {false, true}) {
    Sixty file;
    file.type = "WEDGE";
    file.nodes_each = 6;
    file.is_flat = is_flat;
    file.connect.clear();
    constexpr std::size_t kElements = 20000;
    for (std::size_t i = 0; i < 6 * kElements; ++i) {
      file.connect.push_back(static_cast<std::int32_t>((i % 6 + i / 6) % 8) + 1);
    }
    file.Write(folder.Path("a.e"));
    std::vector<Failure> faults;
    const Result<Deck> deck = ReadExodus(folder.Path("a.e"), {}, faults);
    ASSERT_TRUE(deck) << deck.AsOutcome().Line();
    ASSERT_EQ(deck->elements.size(), kElements);
    std::vector<Key> sums;  // the order of a wedge's nodes is its own matter
    for (std::size_t e = 0; e < kElements; ++e) {
      Key sum = 0, expected = 0;
      for (std::size_t i = 0; i < 6; ++i) {
        sum += deck->connectivity[deck->elements[e].first + i];
        expected += file.connect[6 * e + i];
      }
      ASSERT_EQ(sum, expected) << "element " << e << (is_flat ? " of a flat array" : "");
    }
  }
}

TEST(ExodusLosses, WhatIsTooMuchAndWhatIsLeftOverIsTold) {
  const ScratchFolder folder;
  Sixty file;
  file.variables = 10001;
  file.steps = 1;
  file.numbers[3] = 1;  // a loss of its own, before those of the elements
  file.type = "NSIDED";
  file.Write(folder.Path("a.e"));
  std::vector<Failure> faults;
  Result<Deck> deck = ReadExodus(folder.Path("a.e"), {}, faults);
  ASSERT_TRUE(deck) << deck.AsOutcome().Line();
  std::string told = fmt::format("{}", fmt::join(Briefly(deck->report), "\n"));
  for (const char* part :
       {"numbers of nodes were given anew: 8", "variables of nodes were left out: 10001",
        "variables of elements were left out: 10001",
        "nodes that belong to no element that was read: 8"}) {
    EXPECT_NE(told.find(part), std::string::npos) << part << "\n" << told;
  }
  file.type = "HEX";
  file.Write(folder.Path("b.e"));
  deck = ReadExodus(folder.Path("b.e"), {}, faults);
  ASSERT_TRUE(deck) << deck.AsOutcome().Line();
  told = fmt::format("{}", fmt::join(Briefly(deck->report), "\n"));
  EXPECT_NE(told.find("attributes of elements were left out: 10001"), std::string::npos) << told;
}

/// A container that holds next to nothing may say that it has any number of values.
TEST(ExodusHostile, CountsOfAnySizeAreRefused) {
  struct Case {
    const char* variable;
    nc_type type;
    std::vector<std::size_t> lengths;
  };
  constexpr std::size_t kLarge = std::size_t{1} << 33;
  const Case cases[] = {
      {"reals", NC_DOUBLE, {kLarge, kLarge}},  // 2^66 values
      {"reals", NC_DOUBLE, {kLarge, 3, kLarge / 4}},
      {"reals", NC_INT, {std::size_t{1} << 40}},
      {"texts", NC_CHAR, {std::size_t{1} << 40, 1}},
      {"texts", NC_CHAR, {kLarge, kLarge}},
      {"texts", NC_CHAR, {1u << 20, 1u << 20, 1u << 20, 16}},
  };
  const ScratchFolder folder;
  for (const Case& c : cases) {
    const std::string path = folder.Path("a.e");
    int id = 0;
    int variable = 0;
    std::vector<int> dimensions;
    ASSERT_EQ(nc_create(path.c_str(), NC_NETCDF4 | NC_CLOBBER, &id), NC_NOERR);
    for (const std::size_t length : c.lengths) {
      const std::string name = fmt::format("d{}", dimensions.size());
      ASSERT_EQ(nc_def_dim(id, name.c_str(), length, &dimensions.emplace_back()), NC_NOERR);
    }
    ASSERT_EQ(nc_def_var(id, c.variable, c.type, static_cast<int>(dimensions.size()),
                         dimensions.data(), &variable),
              NC_NOERR);
    ASSERT_EQ(nc_close(id), NC_NOERR);
    const auto file = NcReader::Open(path);
    ASSERT_TRUE(file) << file.AsOutcome().Line();
    if (c.type == NC_CHAR) {
      EXPECT_TRUE((*file)->Texts(c.variable).empty());
    } else {
      (*file)->Reals(c.variable, NcReader::kAny,
                     [](std::span<const double>) { FAIL() << "there are none"; });
    }
    ASSERT_FALSE((*file)->Ok()) << c.variable;
    EXPECT_EQ((*file)->Error().place, c.variable);
  }
}

TEST(ExodusLosses, DistributionFactorsAreTold) {
  const ScratchFolder folder;
  Sixty file;
  for (const bool has_others : {false, true}) {
    if (has_others) file.factors[2] = file.factors[3] = 0.25;
    file.Write(folder.Path("a.e"));
    std::vector<Failure> faults;
    const Result<Deck> deck = ReadExodus(folder.Path("a.e"), {}, faults);
    ASSERT_TRUE(deck) << deck.AsOutcome().Line();
    const Loss lost{Loss::Kind::kLost, "distribution factors of sets", 2, "dist_fact_ns1",
                    "the model has no place for them"};
    EXPECT_EQ(std::count(deck->report.entries.begin(), deck->report.entries.end(), lost),
              has_others ? 1 : 0);
  }
}

}  // namespace
}  // namespace qx::exchange

#endif
