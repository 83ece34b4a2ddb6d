#include "exchange/msh/msh_reader.h"

#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>

#include "brief.h"
#include "sample_mesh.h"

namespace qx::exchange {
namespace {

const Mesh::Group* FindGroup(const Mesh& mesh, const std::string& name) {
  for (const Mesh::Group& group : mesh.groups) {
    if (group.name == name) return &group;
  }
  return nullptr;
}

void ExpectSame(const Mesh& a, const Mesh& b) {
  EXPECT_EQ(a.node_keys, b.node_keys);
  EXPECT_EQ(a.coordinates, b.coordinates);
  EXPECT_EQ(a.connectivity, b.connectivity);
  EXPECT_TRUE(a.elements == b.elements);
  EXPECT_TRUE(a.groups == b.groups);
}

sample::Point PointOf(const Mesh& mesh, Key node) {
  const auto at = std::find(mesh.node_keys.begin(), mesh.node_keys.end(), node);
  const auto i = static_cast<std::size_t>(at - mesh.node_keys.begin());
  return {mesh.coordinates.at(3 * i), mesh.coordinates.at(3 * i + 1),
          mesh.coordinates.at(3 * i + 2)};
}

// ---- every version and encoding -----------------------------------------------------------------

class MshForms : public testing::TestWithParam<sample::Form> {};
INSTANTIATE_TEST_SUITE_P(All, MshForms, testing::ValuesIn(sample::kForms), [](const auto& test) {
  return sample::TestName(sample::Name(test.param));
});

TEST_P(MshForms, EveryKindHasItsNodesInOurOrder) {
  const sample::Sample sample = sample::Make();
  const Result<Deck> read = ParseMsh(sample::Write(sample, GetParam()), "sample.msh");
  ASSERT_TRUE(read) << read.AsOutcome().Line();
  ASSERT_EQ(read->elements.size(), sample.elements.size());
  ASSERT_EQ(read->node_keys, sample.node_keys);
  for (std::size_t i = 0; i < read->elements.size(); ++i) {
    const Mesh::Element& element = read->elements[i];
    SCOPED_TRACE(testing::Message() << "kind " << sample.elements[i].kind.number);
    ASSERT_EQ(element.key, sample.elements[i].key);
    ASSERT_EQ(element.type, sample.elements[i].kind.code);
    const Key* nodes = read->connectivity.data() + element.first;
    const sample::Shape& shape = sample::ShapeOf(element.type);
    for (std::size_t c = 0; c < shape.corners.size(); ++c) {
      sample::Point corner = shape.corners[c];
      corner[0] += 2.0 * static_cast<double>(i);
      ASSERT_EQ(PointOf(*read, nodes[c]), corner);
    }
    if (FindElementType(element.type)->nodes == FindElementType(element.type)->corners) continue;
    const Key* middle = nodes + shape.corners.size();
    for (const auto& [a, b] : shape.edges) {
      ASSERT_EQ(PointOf(*read, *middle++),
                sample::Middle(PointOf(*read, nodes[a]), PointOf(*read, nodes[b])));
    }
  }
}

TEST_P(MshForms, GroupsAndNotesTellTheWholeStory) {
  const Result<Deck> read = ParseMsh(sample::Write(sample::Make(), GetParam()), "sample.msh");
  ASSERT_TRUE(read) << read.AsOutcome().Line();
  ASSERT_EQ(read->groups.size(), 5u);
  std::size_t members = 0;
  for (int d = 0; d < 4; ++d) {
    const Mesh::Group* group = FindGroup(*read, "dimension " + std::to_string(d));
    ASSERT_TRUE(group);
    EXPECT_EQ(group->dimension, d);
    members += group->elements.size();
  }
  EXPECT_EQ(members, read->elements.size());
  const Mesh::Group* tetrahedra = FindGroup(*read, "3-5");
  ASSERT_TRUE(tetrahedra);
  EXPECT_EQ(tetrahedra->elements, (std::vector<Key>{16, 17, 30, 31}));  // kinds 4 and 11

  std::vector<std::string> notes{
      "9-node quadrilaterals were read as 8-node quadrilaterals: 2",
      "27-node hexahedra were read as 20-node hexahedra: 2",
      "18-node wedges were read as 15-node wedges: 2",
      "14-node pyramids were read as 13-node pyramids: 2",
      "nodes that belong to no element that was read: 24",
  };
  if (GetParam().version[0] == '4') {
    notes.push_back("parameters of nodes on their entities: 176");
  } else {
    notes.push_back("elements that the file repeats for a further group were read once: 4");
  }
  EXPECT_EQ(Briefly(read->report), notes);
}

TEST_P(MshForms, ACutFileIsRefusedWithItsPlace) {
  const std::string whole = sample::Write(sample::Make({4, 11}), GetParam());
  const Result<Deck> expected = ParseMsh(whole, "whole");
  ASSERT_TRUE(expected) << expected.AsOutcome().Line();
  for (std::size_t length = 0; length < whole.size(); ++length) {
    // A copy of its own, so that a read past its end is seen by the address sanitizer.
    const std::vector<char> cut(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(length));
    const Result<Deck> read = ParseMsh({cut.data(), cut.size()}, "cut.msh");
    if (read) {
      EXPECT_EQ(length, whole.size() - 1) << "only the last line end may be missing";
      ExpectSame(*expected, *read);
    } else {
      EXPECT_EQ(read.Error().file, "cut.msh");
      EXPECT_TRUE(length == 0 || !read.Error().place.empty()) << read.AsOutcome().Line();
      EXPECT_FALSE(read.Error().remedy.empty()) << read.AsOutcome().Line();
    }
  }
}

TEST_P(MshForms, AFlippedBitIsRefusedOrGivesASoundMesh) {
  std::string bytes = sample::Write(sample::Make({4, 11}), GetParam());
  for (std::size_t i = 0; i < bytes.size() * 8; ++i) {
    bytes[i / 8] = static_cast<char>(bytes[i / 8] ^ (1 << (i % 8)));
    if (const Result<Deck> read = ParseMsh(bytes, "flipped.msh")) {
      ASSERT_EQ(CheckMesh(*read, "flipped.msh").Line(), "") << "bit " << i;
    }
    bytes[i / 8] = static_cast<char>(bytes[i / 8] ^ (1 << (i % 8)));
  }
}

TEST_P(MshForms, SectionsMayComeInAnyOrderAmongUnknownOnes) {
  const std::string whole = sample::Write(sample::Make({4, 11}), GetParam());
  const Result<Deck> expected = ParseMsh(whole, "whole");
  ASSERT_TRUE(expected) << expected.AsOutcome().Line();
  const std::size_t names = whole.find("$PhysicalNames");
  std::size_t entities = whole.find("$Entities");
  const std::size_t nodes = whole.find("$Nodes\n", names);
  const std::size_t elements = whole.find("$Elements");
  entities = std::min(entities, nodes);
  // Bytes as a binary section may hold them, among them what looks like a longer name.
  using std::string_literals::operator""s;
  const std::string unknown = "$Special\n1\n\0\xff$EndSpecialist\n$Nodes\n$EndSpecial\n"s;
  const std::string shuffled = whole.substr(0, names) + whole.substr(elements) + unknown +
                               whole.substr(nodes, elements - nodes) +
                               whole.substr(entities, nodes - entities) + unknown +
                               whole.substr(names, entities - names);
  const Result<Deck> read = ParseMsh(shuffled, "shuffled");
  ASSERT_TRUE(read) << read.AsOutcome().Line();
  ExpectSame(*expected, *read);
}

// ---- refusals -----------------------------------------------------------------------------------

struct Edit {
  const char* what;
  const char* find;  // in the sample of two triangles, as text
  const char* replace;
  const char* expected;  // in the failure's line
};

void ExpectRefusals(const sample::Form& form, const std::vector<Edit>& edits) {
  const std::string sound = sample::Write(sample::Make({2}), form);
  ASSERT_TRUE(ParseMsh(sound, "sound")) << ParseMsh(sound, "sound").AsOutcome().Line() << sound;
  for (const Edit& edit : edits) {
    std::string text = sound;
    const std::size_t at = text.find(edit.find);
    ASSERT_NE(at, std::string::npos) << edit.what << '\n' << text;
    text.replace(at, std::string(edit.find).size(), edit.replace);
    const Result<Deck> read = ParseMsh(text, "bad.msh");
    ASSERT_FALSE(read) << edit.what;
    EXPECT_NE(read.AsOutcome().Line().find(edit.expected), std::string::npos)
        << edit.what << ": " << read.AsOutcome().Line();
  }
}

TEST(MshReader, RefusesFaultsOfVersion2) {
  ExpectRefusals(
      {"2.2"},
      {
          {"a node number twice", "\n10 1 0 0", "\n7 1 0 0", "node 7: the number is used twice"},
          {"an element number twice", "\n11 2 2 1", "\n10 2 2 1", "element 10: the number is used"},
          {"a node that is not there", "1 1 7 10 13", "1 1 7 10 14",
           "element 10: its node 14 is not in the mesh"},
          {"a coordinate that is no number", "\n10 1 0 0", "\n10 nan 0 0", "node 10: a coordinate"},
          {"an infinite coordinate", "\n10 1 0 0", "\n10 1 -inf 0", "node 10: a coordinate"},
          {"a coordinate out of range", "\n10 1 0 0", "\n10 1e999 0 0",
           "$Nodes, line 17: '1e999' is too large"},
          {"text for a number", "\n10 1 0 0", "\n10 one 0 0", "line 17: 'one' is not a number"},
          {"a real for a key", "\n10 1 0 0", "\n10.5 1 0 0", "'10.5' is not a whole number"},
          {"more nodes than counted", "$Nodes\n6", "$Nodes\n5", "stands where $EndNodes should"},
          {"fewer nodes than counted", "$Nodes\n6", "$Nodes\n7",
           "'$EndNodes' stands where a whole number should"},
          {"a count that is no count", "$Nodes\n6", "$Nodes\n-6", "'-6' is negative"},
          {"a count beyond the file", "$Nodes\n6", "$Nodes\n1000000000000", "more than the file"},
          {"a count beyond 64 bits", "$Nodes\n6", "$Nodes\n99999999999999999999", "is too large"},
          {"a node 0", "\n7 0 0 0", "\n0 0 0 0", "node number 0 is not between 1 and 2147483647"},
          {"a negative node", "\n7 0 0 0", "\n-7 0 0 0", "node number -7 is not between"},
          {"a node number too large", "\n7 0 0 0", "\n2147483648 0 0 0", "node number 2147483648"},
          {"an element 0", "\n10 2 2 1", "\n0 2 2 1", "element number 0 is not between"},
          {"an element number too large", "\n10 2 2 1", "\n2147483648 2 2 1", "number 2147483648"},
          {"fewer elements than counted", "$Elements\n2", "$Elements\n3", "'$EndElements' stands"},
          {"a negative number of tags", "\n10 2 2 1", "\n10 2 -2 1", "-2 tags are no number"},
          {"version 1", "2.2 0 8", "1 0 8", "version 1 of the format is not read"},
          {"version 3", "2.2 0 8", "3 0 8", "version 3 of the format is not read"},
          {"an unknown file type", "2.2 0 8", "2.2 7 8", "file type 7 is neither 0 nor 1"},
          {"short numbers", "2.2 0 8", "2.2 0 4", "numbers of 4 bytes"},
          {"no format", "$MeshFormat", "$MashFormat", "the section has no $EndMashFormat"},
          {"a name without quotes", "\"dimension 1\"", "dimension 1", "name in quotes is missing"},
          {"a name that is no UTF-8", "dimension 1", "dimension \xc3(", "not UTF-8 text"},
          {"a group named twice", "2 1 \"dimension 2\"", "1 1 \"dimension 2\"", "has a name"},
          {"a group of dimension 4", "2 1 \"dimension 2\"", "4 1 \"dimension 2\"", "4 1 names no"},
          {"two sections of nodes", "$Elements", "$Nodes\n0\n$EndNodes\n$Elements",
           "is there twice"},
          {"a section without its end", "$EndNodes", "", "stands where $EndNodes should"},
          {"an end without its section", "$Elements", "$EndThings\n$Elements", "has not begun"},
          {"text between sections", "$Elements", "things\n$Elements", "'things' is no beginning"},
          {"no elements", "$Elements", "$Elephants", "has no $EndElephants"},
      });
}

TEST(MshReader, RefusesFaultsOfVersion4) {
  ExpectRefusals(
      {"4.1"},
      {
          {"a node number twice", "\n10 \n", "\n7 \n", "node 7: the number is used twice"},
          {"a node that is not there", "\n10 7 10 13", "\n10 7 10 14", "element 10: its node 14"},
          {"a coordinate that is no number", "\n1 0 0 0.25", "\n1 NAN 0 0.25", "node 10: a coord"},
          {"a node number too large", "\n7 \n", "\n2147483648 \n", "node number 2147483648"},
          {"more nodes than in blocks", "\n2 6 1 99999", "\n2 7 1 99999",
           "the section announces 7 nodes, its blocks hold 6"},
          {"fewer nodes than in blocks", "\n2 6 1 99999", "\n2 5 1 99999",
           "the section announces 5 nodes, its blocks hold 6"},
          {"a block beyond the file", "2 1 1 3 ", "2 1 1 3000000 ", "count of 3000000 nodes"},
          {"a block too long", "2 1 1 3 ", "2 1 1 4 ", "$Nodes, line "},
          {"an entity of dimension 4", "2 1 1 3 ", "4 1 1 3 ", "4 is no dimension of an entity"},
          {"more elements than in blocks", "$Elements\n1 2", "$Elements\n1 3", "announces 3 elem"},
          {"a block that is missing", "$Elements\n1 2", "$Elements\n2 2", "'$EndElements' stands"},
          {"a negative count", "2 1 1 3 ", "2 1 1 -3 ", "'-3' is negative"},
      });
}

// Forty wrong lines are forty lines to mend, not one after the other.
TEST(MshReader, TellsOfEveryWrongLine) {
  for (const char* version : {"2.2", "4.1"}) {
    std::string text = sample::Write(sample::Make(), {version});
    const std::size_t nodes = text.find("$Nodes\n");
    const std::size_t end = text.find("$EndNodes", nodes);
    std::size_t wrong = 0;
    for (std::size_t at = text.find('.', nodes); at < end && wrong < 40;
         at = text.find('\n', at), at = text.find('.', at)) {
      text[at] = ',';
      ++wrong;
    }
    ASSERT_EQ(wrong, 40u);
    std::vector<Failure> faults;
    const Result<Deck> read = ParseMsh(text, "wrong.msh", {}, &faults);
    ASSERT_FALSE(read);
    EXPECT_EQ(faults.size(), wrong) << version;
    std::set<std::string> places;
    for (const Failure& fault : faults) {
      EXPECT_NE(fault.what.find("' is not a number"), std::string::npos) << fault.Line();
      places.insert(fault.place);
    }
    EXPECT_EQ(places.size(), wrong);
    EXPECT_EQ(read.Error().Line(), faults.front().Line());
  }
  // References to nothing, too.
  std::vector<Failure> faults;
  EXPECT_FALSE(
      ParseMsh("$MeshFormat\n2.2 0 8\n$EndMeshFormat\n$Nodes\n1\n1 0 0 0\n$EndNodes\n"
               "$Elements\n3\n1 1 2 0 1 1 2\n2 1 2 0 1 1 3\n3 15 2 0 1 1\n$EndElements\n",
               "f", {}, &faults));
  EXPECT_EQ(faults.size(), 2u);
}

TEST(MshReader, NamesWhatIsNoFile) {
  const std::string folder = testing::TempDir();
  const std::string empty = folder + "/qx_empty.msh";
  std::ofstream(empty).close();
  EXPECT_NE(ReadMsh(folder + "/no such file.msh").AsOutcome().Line().find("no such file"),
            std::string::npos);
  EXPECT_NE(ReadMsh(folder).AsOutcome().Line().find("is a directory"), std::string::npos);
  EXPECT_EQ(ReadMsh(empty).AsOutcome().Line(), empty + ": is empty; write the file again");
  std::filesystem::remove(empty);
}

// ---- particulars --------------------------------------------------------------------------------

TEST(MshReader, KindsWithoutACounterpartAreLeftOutAndCounted) {
  const std::string head = "$MeshFormat\n2.2 0 8\n$EndMeshFormat\n$Nodes\n2\n1 0 0 0\n2 1 0 0\n";
  const Result<Deck> read = ParseMsh(head +
                                         "$EndNodes\n$Elements\n4\n"
                                         "1 1 2 1 1 1 2\n"         // a line
                                         "2 26 2 1 1 1 1 2 2\n"    // a cubic line
                                         "3 34 3 1 1 0 3 1 2 1\n"  // a polygon
                                         "4 999 0 1 2 1 2 1\n$EndElements\n",
                                     "odd.msh");
  ASSERT_TRUE(read) << read.AsOutcome().Line();
  EXPECT_EQ(read->elements.size(), 2u);
  EXPECT_EQ(Briefly(read->report),
            (std::vector<std::string>{"4-node lines were read as 2-node lines: 1",
                                      "elements of type 34 (polygons) were left out: 1",
                                      "elements of type 999 (an unknown kind) were left out: 1"}));
}

TEST(MshReader, ReadsParametricNodesOfVersion2) {
  const Result<Deck> read = ParseMsh(
      "$MeshFormat\n2.2 0 8\n$EndMeshFormat\n$ParametricNodes\n4\n1 0 0 0 0 1\n2 +1e-400 0 0 1 1 "
      "0.5\n3 1 2 3 2 1 0.5 0.5\n4 9 9 9 3 1\n$EndParametricNodes\n$Elements\n0\n$EndElements\n",
      "parametric.msh");
  ASSERT_TRUE(read) << read.AsOutcome().Line();
  EXPECT_EQ(read->coordinates, (std::vector<double>{0, 0, 0, 0, 0, 0, 1, 2, 3, 9, 9, 9}));
}

TEST(MshReader, GroupsOfPartitionsAreKept) {
  const Result<Deck> read = ParseMsh(
      "$MeshFormat\r\n4.1 0 8\r\n$EndMeshFormat\r\n$PartitionedEntities\r\n2\r\n1\r\n9 2\r\n"
      "1 1 0 0\r\n4 0 1 2 1 2 0 0 0 1 30\r\n6 1 1 1 2 0 0 0 1 0 0 4 31 30 -31 0 2 4 -4\r\n"
      "$EndPartitionedEntities\r\n$Nodes\r\n1 2 1 2\r\n1 6 0 2\r\n1\r\n2\r\n0 0 0\r\n1 0 0\r\n"
      "$EndNodes\r\n$Elements\r\n1 1 5 5\r\n1 6 1 1\r\n5 1 2\r\n$EndElements\r\n",
      "parts.msh");
  ASSERT_TRUE(read) << read.AsOutcome().Line();
  ASSERT_EQ(read->groups.size(), 2u);
  EXPECT_EQ(read->groups[0].name, "1-30");
  EXPECT_EQ(read->groups[1].name, "1-31");
  EXPECT_EQ(read->groups[1].elements, std::vector<Key>{5});
}

TEST(MshReader, ElementsAreMergedOnlyForAFurtherGroup) {
  struct Case {
    const char* second;
    std::size_t elements;
  };
  const Case cases[] = {
      {"2 1 2 8 1 1 2", 1},  // another group of the same entity
      {"2 1 2 7 1 1 2", 2},  // the same group: two elements, one on the other
      {"2 1 2 8 2 1 2", 2},  // of another entity
      {"2 1 2 8 1 2 1", 2},  // turned round
      {"2 1 2 0 1 1 2", 2},  // of no group
  };
  for (const Case& c : cases) {
    const Result<Deck> read =
        ParseMsh(std::string("$MeshFormat\n2.2 0 8\n$EndMeshFormat\n$Nodes\n2\n1 0 0 0\n2 1 0 0\n"
                             "$EndNodes\n$Elements\n2\n1 1 2 7 1 1 2\n") +
                     c.second + "\n$EndElements\n",
                 "twice.msh");
    ASSERT_TRUE(read) << read.AsOutcome().Line();
    EXPECT_EQ(read->elements.size(), c.elements) << c.second;
  }
}

TEST(MshReader, OverlappingGroupsDoNotOutgrowTheFile) {
  // 3000 elements of a point entity that is in 3000 groups would be nine million members.
  std::string text = "$MeshFormat\n4.1 0 8\n$EndMeshFormat\n$Entities\n1 0 0 0\n1 0 0 0 3000";
  for (int i = 1; i <= 3000; ++i) text += " " + std::to_string(i);
  text +=
      "\n$EndEntities\n$Nodes\n1 1 1 1\n0 1 0 1\n1\n0 0 0\n$EndNodes\n$Elements\n1 3000 1 1\n"
      "0 1 15 3000\n";
  for (int i = 1; i <= 3000; ++i) text += std::to_string(i) + " 1\n";
  const Result<Deck> read = ParseMsh(text + "$EndElements\n", "dense.msh");
  ASSERT_FALSE(read);
  EXPECT_NE(read.AsOutcome().Line().find("overlap too much"), std::string::npos);
}

TEST(MshReader, TellsItsProgress) {
  std::vector<double> told;
  const std::string bytes = sample::Write(sample::Make(), {"2.2"});
  ASSERT_TRUE(ParseMsh(bytes, "sample", [&](double done) { told.push_back(done); }));
  EXPECT_TRUE(std::is_sorted(told.begin(), told.end()));
  EXPECT_GT(told.size(), 50u);
  EXPECT_LE(told.size(), 100u);
  EXPECT_EQ(told.back(), 1.0);
}

}  // namespace
}  // namespace qx::exchange
