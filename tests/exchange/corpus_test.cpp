// Real MSH files against totals that were computed independently.

#include "../corpus.h"

#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <gtest/gtest.h>
#include <unordered_map>

#include "qx_db/gateway/document.h"

#include "exchange/msh/msh_reader.h"
#include "mesh_measure.h"

namespace qx::exchange {
namespace {

/// The names of the totals for the element kinds of the files, as the totals name them.
struct KindName {
  const char* name;
  std::int32_t code;
};
constexpr KindName kKindNames[] = {
    {"vertex", 1}, {"line", 2},    {"gmsh8", 3},       {"triangle", 4},      {"triangle6", 5},
    {"quad", 6},   {"quad8", 7},   {"quad9", 7},       {"tetra", 8},         {"tetra10", 9},
    {"wedge", 12}, {"gmsh13", 13}, {"hexahedron", 14}, {"hexahedron20", 15},
};

struct Totals {
  std::int64_t count = 0;
  double size = 0;
  std::int64_t negative = 0;
  double least = INFINITY;
  double most = -INFINITY;
};

std::map<std::int32_t, Totals> Measure(const Mesh& mesh) {
  std::unordered_map<Key, std::size_t> index;
  for (std::size_t i = 0; i < mesh.node_keys.size(); ++i) index[mesh.node_keys[i]] = i;
  std::map<std::int32_t, Totals> totals;
  for (const Mesh::Element& element : mesh.elements) {
    std::vector<sample::Point> nodes;
    for (int i = 0; i < FindElementType(element.type)->nodes; ++i) {
      const Key key = mesh.connectivity[element.first + static_cast<std::size_t>(i)];
      const double* at = &mesh.coordinates[3 * index.at(key)];
      nodes.push_back({at[0], at[1], at[2]});
    }
    const double size = measure::Size(element.type, nodes);
    Totals& total = totals[element.type];
    ++total.count;
    total.size += size;
    total.negative += size < 0;
    total.least = std::min(total.least, size);
    total.most = std::max(total.most, size);
  }
  return totals;
}

void ExpectTotals(const Totals& found, const dbgateway::Field& expected, std::int32_t code) {
  EXPECT_EQ(found.count, expected.Member("count").Integer());
  const char* names[] = {"", "total_length", "total_area", "total_volume"};
  const int dimension = FindElementType(code)->dimension;
  const bool curved = dimension == 2 && code != element::kTri3;
  const double tolerance = curved ? 1e-6 : 1e-9;
  if (const dbgateway::Field total = expected.Member(names[dimension])) {
    EXPECT_NEAR(found.size / total.Real(), 1, tolerance);
  }
  // Single sizes are differences of coordinates, whose own rounding weighs more in them.
  if (const dbgateway::Field least = expected.Member("min")) {
    EXPECT_NEAR(found.least / least.Real(), 1, 1e-6);
    EXPECT_NEAR(found.most / expected.Member("max").Real(), 1, 1e-6);
  }
  if (const dbgateway::Field negative = expected.Member("negative")) {
    EXPECT_EQ(found.negative, negative.Integer());
  }
}

/// A file with the content of an .xz file, or "" when it cannot be unpacked here.
std::string Unpacked(const std::string& path) {
  const std::string to = testing::TempDir() + "/qx_corpus.msh";
  const std::string command = "xz -dc '" + path + "' > '" + to + "' 2>/dev/null";
  return std::system(command.c_str()) == 0 ? to : "";
}

class MshCorpus : public testing::TestWithParam<const char*> {};
INSTANTIATE_TEST_SUITE_P(All, MshCorpus,
                         testing::Values("adapter.msh", "bimetal.msh", "box.msh", "compass.msh",
                                         "couette-flow.msh", "cylinder_prism.msh", "demo.msh",
                                         "floquet_lumped.msh", "grid_in_msh_01.3da.v4.msh",
                                         "quadhex_serendipity1.msh", "triangular-aerofoil.msh.xz"),
                         [](const auto& test) { return sample::TestName(test.param); });

TEST_P(MshCorpus, HasTheExpectedTotals) {
  const std::string name = std::string("gmsh/") + GetParam();
  QX_REQUIRE_CORPUS(totals_path, "expected/mesh_totals.json");
  QX_REQUIRE_CORPUS(packed_path, name);
  const bool is_packed = name.ends_with(".xz");
  const std::string path = is_packed ? Unpacked(packed_path) : packed_path;
  if (path.empty()) GTEST_SKIP() << "no xz program to unpack " << packed_path;

  dbgateway::DataBase document;
  ASSERT_TRUE(document.ReadFile(totals_path));
  dbgateway::Record expected;
  document.FindCollection("files")->ForEach(
      [&](Key, std::string_view file, dbgateway::Record record) {
        if (file == name) expected = record;
      });
  ASSERT_FALSE(expected.IsDetached());

  const Result<Deck> mesh = ReadMsh(path);
  ASSERT_TRUE(mesh) << mesh.AsOutcome().Line();
  EXPECT_EQ(mesh->node_keys.size(),
            static_cast<std::size_t>(expected.Find("num_points").Integer()));
  for (std::size_t d = 0; d < 3; ++d) {
    double least = INFINITY, most = -INFINITY;
    for (std::size_t i = d; i < mesh->coordinates.size(); i += 3) {
      least = std::min(least, mesh->coordinates[i]);
      most = std::max(most, mesh->coordinates[i]);
    }
    EXPECT_EQ(least, expected.Find("bbox_min").At(d).Real());
    EXPECT_EQ(most, expected.Find("bbox_max").At(d).Real());
  }

  const std::map<std::int32_t, Totals> found = Measure(*mesh);
  const dbgateway::Field elements = expected.Find("elements");
  std::size_t kinds = 0;
  for (const KindName& kind : kKindNames) {
    const dbgateway::Field totals = elements.Member(kind.name);
    if (!totals) continue;
    ++kinds;
    SCOPED_TRACE(kind.name);
    ASSERT_TRUE(found.contains(kind.code));
    ExpectTotals(found.at(kind.code), totals, kind.code);
  }
  EXPECT_EQ(kinds, elements.Size()) << "every kind of the totals is compared";
  EXPECT_EQ(kinds, found.size()) << "no other kind was read";
  if (is_packed) std::filesystem::remove(path);
}

TEST(MshReduction, ReducedWedgesFillTheCylinder) {
  QX_REQUIRE_CORPUS(path, "gmsh/cylinder_prism.msh");
  const Result<Deck> mesh = ReadMsh(path);
  ASSERT_TRUE(mesh) << mesh.AsOutcome().Line();
  const std::map<std::int32_t, Totals> found = Measure(*mesh);
  const double height = 5.48;
  const double end = found.at(element::kTri6).size / 2;  // triangles lie on both ends
  EXPECT_NEAR(found.at(element::kWedge15).size / (end * height), 1, 1e-9);
  EXPECT_EQ(found.at(element::kWedge15).negative, 0);
  const std::vector<std::string> lines = mesh->report.Lines();
  ASSERT_EQ(lines.size(), 3u);
  EXPECT_EQ(lines[1], "18-node wedges were read as 15-node wedges: 96");
}

}  // namespace
}  // namespace qx::exchange
