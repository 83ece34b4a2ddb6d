// Polyhedra of CGNS files: every element of the model is found again in its faces, and a file of
// them, in either layout, is a mesh.

#if defined(QX_HAS_CGNS) && defined(QX_HAS_MED)

#include "exchange/cgns/cgns_faces.h"

#include <algorithm>
#include <gtest/gtest.h>
#include <random>
#include <set>

#include "qx_db/mesh/topology_table.h"
#include "qx_db/platform/file.h"
#include "qx_db/record/element_types.h"

#include "brief.h"
#include "exchange/cgns/cgns_reader.h"
#include "fuzz/h5_text.h"

namespace qx::exchange {
namespace {

using Face = std::vector<std::int64_t>;

/// The faces of an element, outward, each from its least node on.
std::vector<Face> FacesOf(std::int32_t code, const std::vector<std::int64_t>& nodes) {
  const std::int32_t* const row = topology::RowOf(code);
  std::vector<Face> faces;
  for (int f = 0; f < row[topology::kSides]; ++f) {
    Face face;
    for (int c = 0; c < row[topology::kFaceCorners + f]; ++c) {
      face.push_back(nodes[static_cast<std::size_t>(row[topology::kFaceList + 8 * f + c])]);
    }
    std::rotate(face.begin(), std::min_element(face.begin(), face.end()), face.end());
    faces.push_back(std::move(face));
  }
  std::sort(faces.begin(), faces.end());
  return faces;
}

TEST(CgnsFaces, AreTheElementThatTheyBound) {
  std::mt19937 random(5);
  for (const std::int32_t code :
       {element::kTet4, element::kPyramid5, element::kWedge6, element::kHex8}) {
    SCOPED_TRACE(code);
    for (int round = 0; round < 50; ++round) {
      std::vector<std::int64_t> nodes{3, 5, 8, 11, 20, 21, 40, 41};
      nodes.resize(static_cast<std::size_t>(FindElementType(code)->nodes));
      std::shuffle(nodes.begin(), nodes.end(), random);
      const std::vector<Face> expected = FacesOf(code, nodes);
      std::vector<Face> given = expected;
      std::shuffle(given.begin(), given.end(), random);
      for (Face& face : given) {
        std::rotate(face.begin(), face.begin() + static_cast<int>(random() % face.size()),
                    face.end());
      }
      const auto cell = CellOfFaces(given);
      ASSERT_TRUE(cell);
      EXPECT_EQ(cell->code, code);
      EXPECT_EQ(FacesOf(code, cell->nodes), expected) << "turned over, or another element";
      std::vector<Face> open(given.begin() + 1, given.end()), turned = given, doubled = given;
      std::reverse(turned[0].begin(), turned[0].end());
      doubled[1] = doubled[0];
      for (const auto& wrong : {open, turned, doubled}) EXPECT_FALSE(CellOfFaces(wrong));
    }
  }
}

// Two cubes of eleven faces in the layout of version 3.4, and in that of before.
TEST(CgnsFaces, OfAFileBecomeElements) {
  const std::string path = std::string(QX_SOURCE_DIR) + "/fuzz/corpus/cgns/hand-faces";
  const std::string text = *ReadWholeFile(path);
  for (const bool is_old : {false, true}) {
    SCOPED_TRACE(is_old);
    std::string own = text;
    if (is_old) {
      // Without offsets, and each list with its length before it.
      const auto replace = [&](const std::string& from, const std::string& to) {
        const std::size_t at = own.find(from);
        ASSERT_NE(at, own.npos) << from;
        own.replace(at, from.size(), to);
      };
      for (int i = 0; i < 2; ++i) replace("g\tElementStartOffset", "g\tNothing");
      replace("I\t data\t44\t", "I\t data\t55\t");
      replace(
          "1 4 5 2 7 8 11 10 1 2 8 7 2 5 11 8 5 4 10 11 4 1 7 10 2 5 6 3 8 9 12 11 2 3 9 8 3 6 "
          "12 9 6 5 11 12",
          "4 1 4 5 2 4 7 8 11 10 4 1 2 8 7 4 2 5 11 8 4 5 4 10 11 4 4 1 7 10 4 2 5 6 3 4 8 9 "
          "12 11 4 2 3 9 8 4 3 6 12 9 4 6 5 11 12");
      replace("I\t data\t12\t1 2 3", "I\t data\t14\t6 1 2 3");
      replace("-4 7 8", "6 -4 7 8");
    }
    const std::string bytes = fuzz::H5FileOf(own);
    const Result<Deck> deck = ParseCgns(bytes, "faces");
    ASSERT_TRUE(deck) << deck.AsOutcome().Line();
    std::vector<std::int32_t> codes;
    for (const Mesh::Element& element : deck->elements) codes.push_back(element.type);
    EXPECT_EQ(std::count(codes.begin(), codes.end(), element::kHex8), 2);
    EXPECT_EQ(std::count(codes.begin(), codes.end(), element::kQuad4), 10);
    const std::vector<std::string> told = Briefly(deck->report);
    EXPECT_NE(std::find(told.begin(), told.end(), "faces between two cells became no elements: 1"),
              told.end());
    EXPECT_EQ(deck->groups.back().elements, (std::vector<Key>{12, 13}));
  }
}

}  // namespace
}  // namespace qx::exchange

#endif
