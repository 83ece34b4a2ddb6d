// Real Abaqus and CalculiX decks through a model.

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <gtest/gtest.h>
#include <map>
#include <set>

#include "qx_db/core/renumber.h"
#include "qx_db/gateway/document.h"
#include "qx_db/platform/file.h"
#include "qx_db/qx_db.h"

#include "abaqus_model.h"
#include "exchange/abaqus/abaqus_format.h"
#include "exchange/transfer.h"
#include "host/session.h"
#include "mesh_measure.h"
#include "tests/corpus.h"
#include "tests/scratch_folder.h"

namespace qx::exchange {
namespace {

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
