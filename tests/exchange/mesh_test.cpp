#include "exchange/mesh.h"

#include <cmath>
#include <gtest/gtest.h>

#include "qx_db/qx_db.h"
#include "qx_db/record/element_types.h"

#include "exchange/msh/msh_reader.h"
#include "sample_mesh.h"

namespace qx::exchange {
namespace {

Mesh SampleMesh() {
  Result<Deck> mesh = ParseMsh(sample::Write(sample::Make(), {"4.1"}), "sample");
  EXPECT_TRUE(mesh) << mesh.AsOutcome().Line();
  return *mesh;
}

TEST(CheckMesh, NamesTheFirstFault) {
  struct Case {
    const char* expected;
    void (*spoil)(Mesh&);
  };
  const Case cases[] = {
      {"", [](Mesh&) {}},
      {"node 0: numbers lie between", [](Mesh& m) { m.node_keys[3] = 0; }},
      {"node -4: numbers lie between", [](Mesh& m) { m.node_keys[3] = -4; }},
      {"node 7: the number is used twice", [](Mesh& m) { m.node_keys[3] = 7; }},
      {"element 11: the number is used twice", [](Mesh& m) { m.elements[5].key = 11; }},
      {"element -1: numbers lie", [](Mesh& m) { m.elements[5].key = -1; }},
      {"node 10: a coordinate is not", [](Mesh& m) { m.coordinates[5] = NAN; }},
      {"nodes and coordinates differ", [](Mesh& m) { m.coordinates.pop_back(); }},
      {"element 12: its type 16 is none of", [](Mesh& m) { m.elements[2].type = 16; }},
      {"element 12: its type 0 is none of", [](Mesh& m) { m.elements[2].type = 0; }},
      {"element 47: it has fewer than 13 nodes", [](Mesh& m) { m.connectivity.pop_back(); }},
      {"element 10: it has fewer than 2", [](Mesh& m) { m.elements[0].first = SIZE_MAX; }},
      {"element 10: its node 8 is not in", [](Mesh& m) { m.connectivity[1] = 8; }},
      {"element 10: its node 0 is not in", [](Mesh& m) { m.connectivity[1] = 0; }},
      {"element 10: its node 2147483647", [](Mesh& m) { m.connectivity[1] = kMaxKey; }},
      {"its element 9 is not in the mesh", [](Mesh& m) { m.groups[1].elements[0] = 9; }},
      {"its node 8 is not in the mesh",
       [](Mesh& m) {
         m.groups[1].nodes = {7, 8};
       }},
      {"it is a part of itself", [](Mesh& m) { m.groups[2].parent = 2; }},
      {"it is a part of itself", [](Mesh& m) { m.groups[0].parent = 3, m.groups[3].parent = 0; }},
      {"it is a part of no group", [](Mesh& m) { m.groups[0].parent = 5; }},
      {"it is a part of no group", [](Mesh& m) { m.groups[0].parent = -2; }},
      {"", [](Mesh& m) { m.groups[0].parent = 1, m.groups[2].parent = 1; }},
      {"", [](Mesh& m) { m.elements[5].key = kMaxKey, m.groups[2].elements = {kMaxKey}; }},
      {"element 2147483647: the number is used twice",  // keys too sparse for a bitmap
       [](Mesh& m) { m.elements[5].key = m.elements[8].key = kMaxKey; }},
  };
  for (const Case& c : cases) {
    Mesh mesh = SampleMesh();
    c.spoil(mesh);
    const std::string line = CheckMesh(mesh, "file").Line();
    if (*c.expected == 0) {
      EXPECT_EQ(line, "");
    } else {
      EXPECT_EQ(line.rfind("file: ", 0), 0u);
      EXPECT_NE(line.find(c.expected), std::string::npos) << line << " for " << c.expected;
    }
  }
}

class AddMeshTest : public testing::Test {
 protected:
  CQXDBSession session_{AddStandardPools};
  DPoolNode& nodes_ = *session_.GetPool<DPoolNode>(code::kNode);
  DPoolElem& elements_ = *session_.GetPool<DPoolElem>(code::kElem);
  DPoolMset& sets_ = *session_.GetPool<DPoolMset>(code::kMset);
};

TEST_F(AddMeshTest, AddsEverythingInOneStep) {
  const Mesh mesh = SampleMesh();
  const std::uint64_t empty = session_.StateHash();
  AddReport report;
  ASSERT_EQ(AddMesh(session_, mesh, "sample", &report).Line(), "");
  EXPECT_EQ(session_.Validate(), "");
  EXPECT_EQ(report.nodes, mesh.node_keys.size());
  EXPECT_EQ(report.elements, mesh.elements.size());
  EXPECT_EQ(report.groups, 5u);
  ASSERT_EQ(elements_.GetSize(), static_cast<std::int32_t>(mesh.elements.size()));
  ITR at = elements_.GetHeadPosition();
  for (const Mesh::Element& expected : mesh.elements) {
    const tagTElem& element = elements_.GetNextNU(at);
    ASSERT_EQ(element.key, expected.key);
    ASSERT_EQ(element.type, expected.type);
    ASSERT_EQ(element.nodes.GetSize(), FindElementType(element.type)->nodes);
    for (std::size_t i = 0; i < element.nodes.size(); ++i) {
      const ITR node = element.nodes[static_cast<std::ptrdiff_t>(i)];
      ASSERT_EQ(node, nodes_.Find(mesh.connectivity[expected.first + i]));
    }
  }
  at = sets_.GetHeadPosition();
  for (const Mesh::Group& group : mesh.groups) {
    const tagTMset& set = sets_.GetNextNU(at);
    EXPECT_EQ(Utf8(set.name.View()), group.name);
    std::vector<Key> keys;
    for (const ITR element : set.elements) keys.push_back(elements_.GetAtNU(element).key);
    EXPECT_EQ(keys, group.elements);
  }
  const std::uint64_t full = session_.StateHash();
  ASSERT_EQ(session_.Undo(), 1);
  EXPECT_EQ(session_.StateHash(), empty);
  EXPECT_FALSE(session_.CanUndo()) << "one step";
  ASSERT_EQ(session_.Redo(), 1);
  EXPECT_EQ(session_.StateHash(), full);
}

TEST_F(AddMeshTest, ATakenKeyLeavesTheSessionAsItWas) {
  for (const bool recording : {true, false}) {
    for (const bool clash_of_nodes : {true, false}) {
      CQXDBSession session{AddStandardPools};
      session.EnableRecording(recording);
      Mesh first = SampleMesh();
      Mesh second = first;
      // The last keys, so that all others would have gone in before the fault is met.
      const auto shift = [](Key& key) { key += 1000; };
      for (Key& key : second.node_keys) shift(key);
      for (Key& key : second.connectivity) shift(key);
      for (Mesh::Element& element : second.elements) shift(element.key);
      for (Mesh::Group& group : second.groups) group.elements.clear();
      if (clash_of_nodes) {
        second.connectivity.back() = second.node_keys.back() = first.node_keys.front();
      } else {
        second.elements.back().key = first.elements.front().key;
      }
      ASSERT_TRUE(CheckMesh(second, "second"));
      ASSERT_TRUE(AddMesh(session, first, "first"));
      const std::uint64_t before = session.StateHash();
      const std::string line = AddMesh(session, second, "second").Line();
      EXPECT_EQ(line.rfind(clash_of_nodes ? "second: node 7: " : "second: element 10: ", 0), 0u)
          << line;
      EXPECT_EQ(session.StateHash(), before);
      EXPECT_EQ(session.Validate(), "");
      EXPECT_EQ(session.Undo(), recording ? 1 : 0);
      EXPECT_EQ(session.CanUndo(), false);
    }
  }
}

TEST_F(AddMeshTest, LongNamesAreCutAndStayUnique) {
  const std::string x60(60, 'x');
  Mesh mesh;
  for (const char* tail : {"", "abc", "abcd", "abce", "abc~"}) {
    mesh.groups.push_back({x60 + tail, 3, {}});
  }
  mesh.groups.push_back({x60 + "ab\xF0\x9F\x98\x80", 3, {}});  // a surrogate pair across the end
  mesh.groups.push_back({x60, 2, {}});                         // short names may repeat
  AddReport report;
  ASSERT_EQ(AddMesh(session_, mesh, "names", &report).Line(), "");
  std::vector<std::string> names;
  for (ITR at = sets_.GetHeadPosition(); at;)
    names.push_back(Utf8(sets_.GetNextNU(at).name.View()));
  EXPECT_EQ(names, (std::vector<std::string>{x60, x60 + "abc", x60 + "a~1", x60 + "a~2",
                                             x60 + "a~3", x60 + "ab", x60}));
  EXPECT_EQ(report.losses.Lines(),
            (std::vector<std::string>{"names of groups were cut to 63 characters: 4 (first: \"" +
                                      x60 + "abcd\", now \"" + x60 + "a~1\")"}));
}

TEST_F(AddMeshTest, CoordinatesAreInCurrentUnits) {
  UnitSystem millimetres;
  millimetres[UnitBase::kLength] = FindUnit(UnitBase::kLength, "mm");
  session_.Units().SetCurrent(millimetres);
  Mesh mesh;
  mesh.node_keys = {1};
  mesh.coordinates = {1000, -500, 0};
  ASSERT_TRUE(AddMesh(session_, mesh, "units"));
  const tagTVector3<double> position = nodes_.GetAtNU(nodes_.Find(1)).position;
  EXPECT_EQ(position, (tagTVector3<double>{1, -0.5, 0}));
}

TEST_F(AddMeshTest, GroupsBecomeMeshSetsInTheirHierarchy) {
  ASSERT_TRUE(sets_.AddDefault());
  Mesh mesh;
  mesh.node_keys = {1, 2, 3, 4};
  mesh.coordinates.resize(12);
  mesh.elements = {{1, element::kLine2, 0}, {2, element::kLine2, 2}};
  mesh.connectivity = {1, 2, 2, 3};
  mesh.groups = {{"child", 1, {2, 1}, {}, 1, 0xABCDEF, 7},
                 {"parent", 1, {2}, {4, 3, 4}, -1, -1, 0},
                 {"default", 1, {1}, {}, -1, 5, DPoolMset::kDefaultKey},
                 {"wish is taken", 1, {}, {}, 0, 5, 7}};
  ASSERT_EQ(CheckMesh(mesh, "groups").Line(), "");
  ASSERT_EQ(AddMesh(session_, mesh, "groups").Line(), "");
  const auto keys = [](const TArray<ITR>& items) {
    std::vector<Key> found;
    for (const ITR item : items) found.push_back(KeyOf(item));
    return found;
  };
  ASSERT_NE(sets_.Find(7), 0u);
  const tagTMset& child = sets_.GetAtNU(sets_.Find(7));
  ASSERT_NE(sets_.Find(child.parent_key), 0u);
  const tagTMset& parent = sets_.GetAtNU(sets_.Find(child.parent_key));
  EXPECT_EQ(child.color, 0xABCDEF);
  EXPECT_EQ(keys(child.elements), (std::vector<Key>{2, 1}));
  EXPECT_EQ(keys(child.nodes), (std::vector<Key>{2, 3, 1}));
  EXPECT_EQ(Utf8(parent.name.View()), "parent");
  EXPECT_EQ(keys(parent.nodes), (std::vector<Key>{2, 3, 4}));
  EXPECT_EQ(Utf8(sets_.GetAtNU(sets_.DefaultItr()).name.View()), "default") << "it was empty";
  EXPECT_EQ(sets_.GetSize(), 4);
  const ITR other = sets_.GetItr(u"wish is taken");
  EXPECT_EQ(sets_.GetAtNU(other).parent_key, 7);
}

TEST_F(AddMeshTest, SetsGetFreshKeysUpToTheLast) {
  tagTMset last;
  last.key = kMaxKey;
  ASSERT_TRUE(sets_.InsertNU(last));
  ASSERT_EQ(AddMesh(session_, SampleMesh(), "sample").Line(), "");
  EXPECT_EQ(sets_.GetSize(), 6);
  EXPECT_EQ(sets_.Find(1), 0u) << "that of the default mesh set";
  EXPECT_NE(sets_.Find(2), 0u);
}

}  // namespace
}  // namespace qx::exchange
