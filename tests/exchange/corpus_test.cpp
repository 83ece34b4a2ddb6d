// Real files against totals that were computed independently.

#include "../corpus.h"

#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <gtest/gtest.h>
#include <unordered_map>

#include "qx_db/gateway/document.h"

#include "brief.h"
#include "exchange/format.h"
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
    {"vertex", 1},      {"line", 2},          {"gmsh8", 3},
    {"triangle", 4},    {"triangle6", 5},     {"quad", 6},
    {"quad8", 7},       {"quad9", 7},         {"tetra", 8},
    {"tetra10", 9},     {"wedge", 12},        {"gmsh13", 13},
    {"hexahedron", 14}, {"hexahedron20", 15}, {"pixel", 6},
    {"pyramid", 10},    {"pyramid13", 11},    {"other:pyramid13(13)", 11},
    {"wedge15", 13},
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

/// `turned`: the totals are those of elements whose nodes the file lists the other way round.
void ExpectTotals(const Totals& found, const dbgateway::Field& expected, std::int32_t code,
                  bool turned) {
  EXPECT_EQ(found.count, expected.Member("count").Integer());
  const double sign = turned ? -1 : 1;
  if (code == element::kPyramid5 || code == element::kPyramid13) return;  // not measured
  const char* names[] = {"", "total_length", "total_area", "total_volume"};
  const int dimension = FindElementType(code)->dimension;
  const bool curved = dimension == 2 && code != element::kTri3;
  const double tolerance = curved ? 1e-6 : 1e-9;
  if (const dbgateway::Field total = expected.Member(names[dimension])) {
    EXPECT_NEAR(sign * found.size / total.Real(), 1, tolerance);
  }
  // Single sizes are differences of coordinates, whose own rounding weighs more in them.
  if (const dbgateway::Field least = expected.Member("min")) {
    const double own = sign * (turned ? found.most : found.least);
    EXPECT_NEAR(own, least.Real(), 1e-6 * std::abs(least.Real()) + 1e-12);
    EXPECT_NEAR(sign * (turned ? found.least : found.most) / expected.Member("max").Real(), 1,
                1e-6);
  }
  if (const dbgateway::Field negative = expected.Member("negative")) {
    EXPECT_EQ(turned ? found.count - found.negative : found.negative, negative.Integer());
  }
}

/// Fields are as many as the totals tell of, with the ranges that they tell.
void ExpectFields(const Deck& deck, const dbgateway::Record& expected) {
  for (const char* kind : {"point_arrays", "cell_arrays"}) {
    const dbgateway::Field arrays = expected.Find(kind);
    if (!arrays) continue;
    std::size_t count = 0;
    for (const tagTField& field : deck.Of<tagTField>()) {
      if ((field.place == tagTField::kNodes) != (kind[0] == 'p')) continue;
      ++count;
      const dbgateway::Field array = arrays.Member(Utf8(field.name.View()));
      ASSERT_TRUE(array);
      EXPECT_EQ(field.components, array.Member("components").Integer());
      double least = INFINITY, most = -INFINITY;
      const auto widen = [&](const auto& values) {
        for (const auto& entry : values) {
          least = std::min(least, double{entry.value});
          most = std::max(most, double{entry.value});
        }
      };
      widen(field.node_values);
      widen(field.element_values);
      EXPECT_EQ(least, array.Member("range").At(0).Real());
      EXPECT_EQ(most, array.Member("range").At(1).Real());
    }
    EXPECT_EQ(count, arrays.Size());
  }
}

/// A file with the content of an .xz file, or "" when it cannot be unpacked here.
std::string Unpacked(const std::string& path) {
  const std::string to = testing::TempDir() + "/qx_corpus.msh";
  const std::string command = "xz -dc '" + path + "' > '" + to + "' 2>/dev/null";
  return std::system(command.c_str()) == 0 ? to : "";
}

class Corpus : public testing::TestWithParam<const char*> {};
INSTANTIATE_TEST_SUITE_P(
    All, Corpus,
    testing::Values("gmsh/adapter.msh", "gmsh/bimetal.msh", "gmsh/box.msh", "gmsh/compass.msh",
                    "gmsh/couette-flow.msh", "gmsh/cylinder_prism.msh", "gmsh/demo.msh",
                    "gmsh/floquet_lumped.msh", "gmsh/grid_in_msh_01.3da.v4.msh",
                    "gmsh/quadhex_serendipity1.msh", "gmsh/triangular-aerofoil.msh.xz",
                    "vtk/qualityEx.vtk", "vtk/QuadraticPyramid.vtu", "vtk/QuadraticWedge.vtu",
                    "vtk/AngularSector.vtk", "vtk/beam_w14.vtk",
                    "vtk/celldata_appended_binary_compressed.vtu",
                    "vtk/celldata_appended_binary_uncompressed.vtu", "vtk/QuadraticTetra.vtu",
                    "vtk/box_hybrid_mesh.vtu", "vtk/post.vtk", "vtk/made/AngularSector_lz4.vtu",
                    "vtk/made/AngularSector.pvtu", "exodus/four.e", "exodus/four-p.e",
                    "exodus/turbine.e", "exodus/brick.e", "exodus/2block1.g",
                    "exodus/four-sidesets.e", "unv/3D.unv", "unv/test46.unv", "unv/lshape.unv",
                    "surface/Cluster_34.stl", "surface/shape.stl", "surface/cyl_w_rect_hole.stl",
                    "surface/cube.obj", "surface/cube.ply"),
    [](const auto& test) { return sample::TestName(test.param); });

TEST_P(Corpus, HasTheExpectedTotals) {
  const std::string name = GetParam();
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

  const auto format = FormatToRead(path);
  if (!format) GTEST_SKIP() << format.Error().Line();
  std::vector<Failure> faults;
  ReadOptions options;  // the totals are of points that lie apart
  if (name.starts_with("surface/")) options.values = {{"points", "merged"}};
  const Result<Deck> mesh = (*format)->read(path, options, faults);
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
    const bool is_wedge = kind.code == element::kWedge6 || kind.code == element::kWedge15;
    ExpectTotals(found.at(kind.code), totals, kind.code, is_wedge && name.starts_with("vtk/"));
  }
  EXPECT_EQ(kinds, elements.Size()) << "every kind of the totals is compared";
  EXPECT_EQ(kinds, found.size()) << "no other kind was read";
  ExpectFields(*mesh, expected);
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
  const std::vector<std::string> lines = Briefly(mesh->report);
  ASSERT_EQ(lines.size(), 3u);
  EXPECT_EQ(lines[1], "18-node wedges were read as 15-node wedges: 96");
}

}  // namespace
}  // namespace qx::exchange
