// Meshes and their sets through a MSH file and back.

#include "exchange/msh/msh_writer.h"

#include <filesystem>
#include <gtest/gtest.h>
#include <random>
#include <set>

#include "qx_db/platform/file.h"
#include "qx_db/qx_db.h"
#include "qx_db/record/element_types.h"

#include "brief.h"
#include "exchange/group_classes.h"
#include "exchange/msh/msh_reader.h"
#include "sample_mesh.h"
#include "tests/corpus.h"
#include "tests/scratch_folder.h"

namespace qx::exchange {
namespace {

constexpr MshEncoding kEncodings[] = {MshEncoding::kAscii, MshEncoding::kBinary};

class MshWriter : public testing::Test {
 protected:
  /// Puts the model through a file into `back`.
  void ThroughFile(MshEncoding encoding, CQXDBSession& back) {
    ASSERT_EQ(WriteMsh(session_, path_, encoding, &report_).Line(), "");
    const Result<Deck> mesh = ReadMsh(path_);
    ASSERT_EQ(mesh.AsOutcome().Line(), "");
    back.Units().SetModel(session_.Units().Model());
    ASSERT_EQ(AddMesh(back, *mesh, path_).Line(), "");
    EXPECT_EQ(back.Validate(), "");
  }
  ITR Set(Key key, std::u16string_view name, const std::vector<Key>& elements,
          const std::vector<Key>& nodes, Key parent = 0, std::int32_t color = 0x0000FF) {
    tagTMset set;
    set.key = key;
    set.name.Set(name);
    set.parent_key = parent;
    set.color = color;
    for (const Key element : elements) {
      set.elements.Add(elements_.Find(element));
      for (const ITR node : elements_.GetAtNU(elements_.Find(element)).nodes) set.nodes.Add(node);
    }
    for (const Key node : nodes) set.nodes.Add(nodes_.Find(node));
    return sets_.InsertNU(set);
  }

  CQXDBSession session_{AddStandardPools};
  DPoolNode& nodes_ = *session_.GetPool<DPoolNode>(code::kNode);
  DPoolElem& elements_ = *session_.GetPool<DPoolElem>(code::kElem);
  DPoolMset& sets_ = *session_.GetPool<DPoolMset>(code::kMset);
  const ScratchFolder folder_;
  const std::string path_ = folder_.Path("mesh.msh");
  LossReport report_;
};

TEST_F(MshWriter, AModelComesBackBitForBit) {
  Result<Deck> mesh = ParseMsh(sample::Write(sample::Make(), {"4.1"}), "sample");
  ASSERT_TRUE(mesh);
  ASSERT_TRUE(AddMesh(session_, *mesh, "sample"));
  // Elements are numbered from 10: lines, triangles, quadrilaterals, tetrahedra in pairs.
  Set(40, u"lines and triangles", {10, 11, 12}, {}, 41, 0xFFFFFF);
  Set(41, u"holds \"quotes\", \u00e4 and \xD83D\xDE00", {10, 13, 14}, {}, 0, 0x12345678);
  Set(42, u"nodes only", {}, {7, 22, 10}, 40);
  Set(43, u"nothing at all", {}, {});
  Set(44, u"", {15}, {10});
  Set(45, u"same name", {16}, {});
  Set(46, u"same name", {17}, {});
  nodes_.GetAtNU(nodes_.GetHeadPosition()).position = {0.1, -1e-300, 1.7976931348623157e308};
  for (const MshEncoding encoding : kEncodings) {
    CQXDBSession back{AddStandardPools};
    ThroughFile(encoding, back);
    EXPECT_EQ(back.StateHash(), session_.StateHash());
  }
  EXPECT_TRUE(report_.entries.empty());
}

TEST_F(MshWriter, OtherProgramsSeePhysicalGroups) {
  Result<Deck> mesh = ParseMsh(sample::Write(sample::Make({1, 2, 3}), {"4.1"}), "sample");
  ASSERT_TRUE(AddMesh(session_, *mesh, "sample"));
  sets_.RemoveAll();
  Set(5, u"both", {10, 11, 12, 13}, {});
  Set(6, u"part", {12}, {});
  ASSERT_TRUE(WriteMsh(session_, path_));
  std::string text = *ReadWholeFile(path_);
  EXPECT_NE(text.find("$PhysicalNames\n3\n1 5 \"both\"\n2 5 \"both\"\n2 6 \"part\"\n"),
            std::string::npos)
      << text.substr(0, 300);
  // Without our own section only the groups are left, as the format knows them.
  const std::size_t begin = text.find("$QXMeshSets");
  const std::string end = "$EndQXMeshSets\n";
  text.erase(begin, text.find(end) + end.size() - begin);
  mesh = ParseMsh(text, "foreign");
  ASSERT_TRUE(mesh) << mesh.AsOutcome().Line();
  ASSERT_EQ(mesh->groups.size(), 3u);
  EXPECT_EQ(mesh->groups[0].elements, (std::vector<Key>{10, 11}));
  EXPECT_EQ(mesh->groups[1].elements, (std::vector<Key>{12, 13}));
  EXPECT_EQ(mesh->groups[2].name, "part");
  EXPECT_EQ(mesh->groups[2].elements, (std::vector<Key>{12}));
  EXPECT_EQ(mesh->groups[2].parent, 1) << "nested by their elements";
}

TEST_F(MshWriter, SaysWhatItLeavesOut) {
  for (Key key = 1; key <= 3; ++key) {
    tagTNode node;
    node.key = key;
    nodes_.InsertNU(node);
  }
  tagTElem element;
  for (const std::int32_t type : {46, 4, 2}) {
    ++element.key;
    element.type = type;
    element.nodes = {nodes_.Find(1), type == 4 ? 0 : nodes_.Find(2)};
    elements_.InsertNU(element);
  }
  tagTActiveElemSet active;
  session_.GetDataPool(code::kActiveElemSet)->InsertNU(&active);
  sets_.AddDefault();
  Set(2, u"two\nlines", {1, 2, 3}, {});
  CQXDBSession back{AddStandardPools};
  ThroughFile(MshEncoding::kAscii, back);
  EXPECT_EQ(Briefly(report_),
            (std::vector<std::string>{
                "special elements of type 46 were left out: 1",
                "elements without all their nodes were left out: 1",
                "line ends and the like in names of mesh sets became question marks: 1",
                "active element sets were left out: 1"}));
  const auto& sets = *back.GetPool<DPoolMset>(code::kMset);
  ASSERT_EQ(sets.GetSize(), 1) << "an empty default set is not written";
  EXPECT_EQ(sets.GetAtNU(sets.Find(2)).name.View(), u"two?lines");
  EXPECT_EQ(sets.GetAtNU(sets.Find(2)).elements.GetSize(), 1);

  tagTNode zero;
  nodes_.InsertNU(zero);
  EXPECT_EQ(WriteMsh(session_, path_).Line(),
            path_ + ": node 0: numbers in a MSH file begin at 1; renumber the model");
  EXPECT_NE(WriteMsh(back, folder_.Path("no/such/folder.msh")).Line().find("cannot be created"),
            std::string::npos);
}

TEST_F(MshWriter, ModelsWithoutElementsOrNodes) {
  for (const bool has_node : {false, true}) {
    if (has_node) {
      tagTNode node;
      node.key = 9;
      nodes_.InsertNU(node);
      Set(4, u"a node", {}, {9});
    }
    for (const MshEncoding encoding : kEncodings) {
      CQXDBSession back{AddStandardPools};
      ThroughFile(encoding, back);
      EXPECT_EQ(back.StateHash(), session_.StateHash());
    }
  }
}

TEST(MshMeshSets, FaultsOfTheSectionAreNamed) {
  const std::string mesh = sample::Write(sample::Make({1}), {"4.1"});
  const auto read = [&](const std::string& lines) {
    return ParseMsh(mesh + "$QXMeshSets\n" + lines + "\n$EndQXMeshSets\n", "f").AsOutcome().Line();
  };
  EXPECT_EQ(read("1\n4 0000FF 0 1 1 1 0 \"a\""), "");
  struct Case {
    const char* lines;
    const char* expected;
  };
  const Case cases[] = {
      {"-1", "is negative"},
      {"99999999", "more than the file has room for"},
      {"1\n4 0000FF 0 1 1 9 0 \"a\"", "mesh set \"a\" has no physical group 1 9"},
      {"1\n4 0000FF 0 2 1 1 1 1 0 \"a\"", "has no physical group 1 1"},
      {"1\n4 0000FF 0 1 4 1 0 \"a\"", "dimension 4 is not between 0 and 3"},
      {"1\n4 0000FF 2 0 0 \"a\"", "parent 2 is not between 0 and 1"},
      {"1\n4 0000FF 1 0 0 \"a\"", "group \"a\": it is a part of itself"},
      {"1\n4 0000FF 0 0 1 8 \"a\"", "its node 8 is not in the mesh"},
      {"1\n4 00XXFF 0 0 0 \"a\"", "'00XXFF' is no colour"},
      {"1\n4 FF 0 0 0 \"a\"", "'FF' is no colour"},
      {"1\n-4 0000FF 0 0 0 \"a\"", "key -4 is not between"},
      {"1\n4 0000FF 0 0 0 a", "a name in quotes is missing"},
      {"2\n4 0000FF 0 0 0 \"a name that leaves room for another set\"", "$EndQXMeshSets"},
  };
  for (const Case& c : cases) {
    EXPECT_NE(read(c.lines).find(c.expected), std::string::npos) << read(c.lines);
  }
}

TEST_F(MshWriter, DamagedFilesAreReadOrRefused) {
  Result<Deck> mesh = ParseMsh(sample::Write(sample::Make({1, 2, 4}), {"4.1"}), "sample");
  ASSERT_TRUE(AddMesh(session_, *mesh, "sample"));
  Set(40, u"mixed", {10, 12}, {16}, 2);
  for (const MshEncoding encoding : kEncodings) {
    ASSERT_TRUE(WriteMsh(session_, path_, encoding));
    const std::string bytes = *ReadWholeFile(path_);
    const auto attack = [](const std::string& damaged) {
      const Result<Deck> read = ParseMsh(damaged, "damaged");
      const std::string line = read ? CheckMesh(*read, "damaged").Line() : read.Error().Line();
      EXPECT_EQ(line.rfind("damaged: ", 0), read ? std::string::npos : 0u) << line;
    };
    // Whatever is cut off, something is missing: all but the last line end counts.
    for (std::size_t length = 0; length + 1 < bytes.size(); ++length) {
      EXPECT_FALSE(ParseMsh(bytes.substr(0, length), "cut")) << length;
    }
    for (std::size_t bit = 0; bit < bytes.size() * 8; ++bit) {
      std::string damaged = bytes;
      damaged[bit / 8] = static_cast<char>(damaged[bit / 8] ^ (1 << (bit % 8)));
      attack(damaged);
    }
  }
}

// ---- the hierarchy of groups --------------------------------------------------------------------

/// Nesting against its definition, on random groups.
TEST(NestGroups, FindsTheSmallestWhole) {
  for (unsigned seed = 1; seed <= 300; ++seed) {
    std::mt19937 random(seed);
    Mesh mesh;
    const unsigned count = 1 + random() % 8;
    for (unsigned i = 0; i < count; ++i) {
      mesh.elements.push_back({static_cast<Key>(100 - 3 * i), element::kPoint, 0});
    }
    std::vector<std::set<Key>> members(1 + random() % 7);
    for (std::set<Key>& group : members) {
      for (const Mesh::Element& e : mesh.elements) {
        if (random() % 3) group.insert(e.key);
      }
      mesh.groups.push_back({"g", 0, {group.begin(), group.end()}});
      std::shuffle(mesh.groups.back().elements.begin(), mesh.groups.back().elements.end(), random);
    }
    std::vector<std::int32_t> expected(members.size(), Mesh::Group::kNone);
    for (std::size_t part = 0; part < members.size(); ++part) {
      for (std::size_t whole = 0; whole < members.size(); ++whole) {
        if (members[part].empty() || members[whole].size() <= members[part].size()) continue;
        if (!std::includes(members[whole].begin(), members[whole].end(), members[part].begin(),
                           members[part].end())) {
          continue;
        }
        const std::int32_t best = expected[part];
        if (best == Mesh::Group::kNone ||
            members[whole].size() < members[static_cast<std::size_t>(best)].size()) {
          expected[part] = static_cast<std::int32_t>(whole);
        }
      }
    }
    NestGroups(mesh);
    for (std::size_t i = 0; i < members.size(); ++i) {
      EXPECT_EQ(mesh.groups[i].parent, expected[i]) << "seed " << seed << " group " << i;
    }
  }
}

TEST(NestGroups, GivesUpOnATangle) {
  Mesh mesh;
  mesh.elements.push_back({1, element::kPoint, 0});
  for (int i = 0; i < 20000; ++i) mesh.groups.push_back({"g", 0, {1}});
  NestGroups(mesh);
  EXPECT_EQ(mesh.groups[0].parent, Mesh::Group::kNone);
  ASSERT_EQ(mesh.report.entries.size(), 1u);
}

// ---- real files ---------------------------------------------------------------------------------

class MshRoundTrip : public testing::TestWithParam<const char*> {};
INSTANTIATE_TEST_SUITE_P(Corpus, MshRoundTrip,
                         testing::Values("adapter.msh", "bimetal.msh", "box.msh", "compass.msh",
                                         "couette-flow.msh", "cylinder_prism.msh", "demo.msh",
                                         "floquet_lumped.msh", "grid_in_msh_01.3da.v4.msh",
                                         "quadhex_serendipity1.msh"),
                         [](const auto& test) { return sample::TestName(test.param); });

/// Import, export and import give the same model: every node, element and named set.
TEST_P(MshRoundTrip, IsIdentity) {
  const std::string name = std::string("gmsh/") + GetParam();
  QX_REQUIRE_CORPUS(file, name);
  const Result<Deck> mesh = ReadMsh(file);
  ASSERT_TRUE(mesh) << mesh.AsOutcome().Line();
  CQXDBSession model{AddStandardPools};
  ASSERT_TRUE(AddMesh(model, *mesh, file));
  const ScratchFolder folder;
  const std::string path = folder.Path("back.msh");
  for (const MshEncoding encoding : kEncodings) {
    LossReport report;
    ASSERT_EQ(WriteMsh(model, path, encoding, &report).Line(), "");
    EXPECT_TRUE(report.entries.empty());
    const Result<Deck> again = ReadMsh(path);
    ASSERT_TRUE(again) << again.AsOutcome().Line();
    ASSERT_EQ(again->groups.size(), mesh->groups.size());
    for (std::size_t i = 0; i < mesh->groups.size(); ++i) {
      EXPECT_EQ(again->groups[i].name, mesh->groups[i].name);
      EXPECT_EQ(again->groups[i].elements, mesh->groups[i].elements);
      EXPECT_EQ(again->groups[i].parent, mesh->groups[i].parent);
    }
    CQXDBSession back{AddStandardPools};
    ASSERT_TRUE(AddMesh(back, *again, path));
    EXPECT_EQ(back.StateHash(), model.StateHash());
  }
}

}  // namespace
}  // namespace qx::exchange
