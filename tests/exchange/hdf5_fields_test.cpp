// Fields of CGNS and MED files: those that are hard to keep, and those of real files.

#if defined(QX_HAS_CGNS) && defined(QX_HAS_MED)

#include <algorithm>
#include <filesystem>
#include <fmt/format.h>
#include <fmt/ranges.h>
#include <gtest/gtest.h>

#include "qx_db/platform/text.h"
#include "qx_db/qx_db.h"
#include "qx_db/record/element_types.h"

#include "brief.h"
#include "exchange/cgns/cgns_reader.h"
#include "exchange/hdf5/h5_writer.h"
#include "exchange/med/med_reader.h"
#include "exchange/transfer.h"
#include "host/session.h"
#include "tests/corpus.h"
#include "tests/scratch_folder.h"

namespace qx::exchange {
namespace {

/// "name of nodes, step 1 at 0.5: 1=0.5 2=..." of each field, sorted; names without what tells
/// those of one name apart.
std::vector<std::string> FieldLines(const Deck& deck) {
  std::vector<std::string> lines;
  for (const tagTField& field : deck.Of<tagTField>()) {
    std::string name = Utf8(field.name.View());
    name.resize(std::min(name.find(" ("), name.size()));
    std::string line =
        fmt::format("{} of {}, {} each{}, step {} at {}:", name,
                    field.place == tagTField::kNodes ? "nodes" : "elements", +field.components,
                    field.integers ? ", whole" : "", +field.step, +field.time);
    const auto add = [&](const auto& list) {
      for (const auto& v : list) line += fmt::format(" {}={}", +v.target, +v.value);
    };
    add(field.node_values);
    add(field.element_values);
    lines.push_back(std::move(line));
  }
  std::sort(lines.begin(), lines.end());
  return lines;
}

/// Two hexahedra and a quadrilateral below them, with fields that are hard to keep: of one name and
/// step twice, of a part of the nodes, of cells and of what is none, whole numbers, steps out of
/// order, a vector, and five components.
Deck HardFields() {
  Deck deck;
  for (int i = 0; i < 12; ++i) {
    deck.node_keys.push_back(10 * (i + 1));
    for (const int x : {i % 3, i / 3 % 2, i / 6}) deck.coordinates.push_back(x);
  }
  const auto add = [&](Key key, std::int32_t type, std::initializer_list<int> nodes) {
    deck.elements.push_back({key, type, deck.connectivity.size()});
    for (const int node : nodes) deck.connectivity.push_back(10 * (node + 1));
  };
  add(7, element::kHex8, {0, 1, 4, 3, 6, 7, 10, 9});
  add(3, element::kQuad4, {0, 1, 4, 3});
  add(5, element::kHex8, {1, 2, 5, 4, 7, 8, 11, 10});
  struct Case {
    const char16_t* name;
    std::int32_t place, components, step;
    double time;
    std::vector<Key> targets;
    bool is_whole = false;
  };
  const std::vector<Key> all = deck.node_keys;
  const Case cases[] = {
      {u"temperature", tagTField::kNodes, 1, 0, 0, all},
      {u"temperature", tagTField::kElements, 1, 0, 0, {7, 5}},
      {u"twice", tagTField::kNodes, 1, 2, 0.5, all},
      {u"twice", tagTField::kNodes, 1, 2, 0.5, {30, 50}},
      {u"twice", tagTField::kNodes, 1, 1, 0.25, all},
      {u"shift", tagTField::kNodes, 3, 2, 0.5, all},
      {u"mark", tagTField::kElements, 1, 0, 0, {7, 3, 5}, true},
      {u"of a side/other", tagTField::kElements, 1, 7, 3, {3}},
      {u"a name that has more than the thirty-two bytes of a node's",
       tagTField::kElements,
       3,
       0,
       0,
       {5}},
  };
  double value = 0.5;
  for (const Case& c : cases) {
    tagTField field;
    field.key = static_cast<Key>(deck.Of<tagTField>().size() + 1);
    field.name.Set(c.name);
    field.place = c.place;
    field.components = c.components;
    field.step = c.step;
    field.time = c.time;
    field.integers = c.is_whole;
    for (const Key target : c.targets) {
      for (int i = 0; i < c.components; ++i) {
        const double v = c.is_whole ? static_cast<double>(target) : value += 0.25;
        if (c.place == tagTField::kNodes) {
          field.node_values.Add({v, static_cast<ITR>(target)});
        } else {
          field.element_values.Add({v, static_cast<ITR>(target)});
        }
      }
    }
    deck.Of<tagTField>().push_back(std::move(field));
  }
  return deck;
}

TEST(Hdf5Fields, ComeBackAsTheyWere) {
  const ScratchFolder folder;
  CQXDBSession session(host::SetUpModel);
  LossReport report;
  ASSERT_EQ(AddDeck(session, HardFields(), "hard", report).Line(), "");
  std::vector<std::string> before = FieldLines(DeckOf(session));
  for (const char* file : {"a.cgns", "a.med"}) {
    SCOPED_TRACE(file);
    LossReport losses;
    ASSERT_EQ(ExportFile(session, folder.Path(file), {}, losses).Line(), "");
    CQXDBSession back(host::SetUpModel);
    ASSERT_EQ(ImportFile(back, folder.Path(file), {}, losses).Line(), "");
    std::vector<std::string> after = FieldLines(DeckOf(back));
    if (std::string(file) == "a.med") {
      // A group's name has no slash, which is told.
      for (std::string& line : before) {
        if (const std::size_t slash = line.find("a side/"); slash != line.npos)
          line[slash + 6] = '_';
      }
      EXPECT_NE(fmt::format("{}", fmt::join(Briefly(losses), "; ")).find("names of fields became"),
                std::string::npos);
      std::sort(before.begin(), before.end());
    }
    const auto same_targets = [](std::vector<std::string>& lines) {
      for (std::string& line : lines) {  // elements come in the order of the file
        const std::size_t colon = line.find(": ");
        std::vector<std::string> values;
        for (std::size_t at = colon + 1; at < line.size();) {
          const std::size_t end = std::min(line.find(' ', at + 1), line.size());
          values.push_back(line.substr(at, end - at));
          at = end;
        }
        const auto target = [](const std::string& v) { return v.substr(0, v.find('=')); };
        std::stable_sort(
            values.begin(), values.end(),
            [&](const std::string& a, const std::string& b) { return target(a) < target(b); });
        line = line.substr(0, colon + 1) + fmt::format("{}", fmt::join(values, ""));
      }
    };
    same_targets(before);
    same_targets(after);
    EXPECT_EQ(after, before);
  }
}

// What MED's own library has written: values of several types of elements, vectors, whole numbers,
// steps with and without a time.
TEST(MedFields, AreThoseOfARealFile) {
  QX_REQUIRE_CORPUS(file, "med/pointe.med");
  std::vector<Failure> faults;
  const Result<Deck> deck = ReadMed(file, {}, faults);
  ASSERT_TRUE(deck) << deck.AsOutcome().Line();
  std::vector<std::string> heads;
  for (std::string line : FieldLines(*deck)) {
    const auto values = std::count(line.begin(), line.end(), '=');
    heads.push_back(fmt::format("{} {}", line.substr(0, line.find(':')), values));
  }
  EXPECT_EQ(heads,
            (std::vector<std::string>{"fieldcelldoublescalar of elements, 1 each, step 0 at 0 16",
                                      "fieldcelldoublevector of elements, 3 each, step 0 at 0 48",
                                      "fieldnodedouble of nodes, 1 each, step 0 at 0 19",
                                      "fieldnodedouble of nodes, 1 each, step 1 at 1.1 19",
                                      "fieldnodedouble of nodes, 1 each, step 2 at 1.2 19",
                                      "fieldnodeint of nodes, 1 each, whole, step 0 at 0 19"}));
}

// Solutions of vertices that the lists of steps do not name have the number of one that they do.
TEST(CgnsFields, AreThoseOfARealFile) {
  QX_REQUIRE_CORPUS(file, "cgns/generated.cgns");
  std::vector<Failure> faults;
  const Result<Deck> deck = ReadCgns(file, {}, faults);
  ASSERT_TRUE(deck) << deck.AsOutcome().Line();
  std::vector<std::string> heads;
  for (const tagTField& field : deck->Of<tagTField>()) {
    heads.push_back(fmt::format("{} {} {}", Utf8(field.name.View()), +field.place, +field.step));
  }
  std::sort(heads.begin(), heads.end());
  EXPECT_EQ(heads,
            (std::vector<std::string>{"ElementBlock_1 1 1", "ElementBlock_1 1 2",
                                      "ElementBlock_2 1 1", "ElementBlock_2 1 2",
                                      "ElementBlock_3 1 1", "ElementBlock_3 1 2", "NodeBlock_1 0 1",
                                      "NodeBlock_1 0 2", "NodeBlock_2 0 1", "NodeBlock_2 0 2"}));
}

// Sets keep their order, whatever their names, and whether they have anything.
TEST(MedSets, StandInTheOrderOfTheModel) {
  const ScratchFolder folder;
  Deck deck = HardFields();
  const char* const names[] = {"z", "empty", "b", "nodes", "a"};
  const std::vector<Key> elements[] = {{5}, {}, {7, 5}, {}, {3, 7}};
  for (std::size_t i = 0; i < std::size(names); ++i) {
    Mesh::Group group;
    group.name = names[i];
    group.elements = elements[i];
    if (i == 3) group.nodes = {30, 120};
    deck.groups.push_back(std::move(group));
  }
  CQXDBSession session(host::SetUpModel);
  LossReport report;
  ASSERT_EQ(AddDeck(session, deck, "sets", report).Line(), "");
  ASSERT_EQ(ExportFile(session, folder.Path("a.med"), {}, report).Line(), "");
  std::vector<Failure> faults;
  const Result<Deck> back = ReadMed(folder.Path("a.med"), {}, faults);
  ASSERT_TRUE(back) << back.AsOutcome().Line();
  std::vector<std::string> read;
  for (const Mesh::Group& group : back->groups) {
    if (std::find(std::begin(names), std::end(names), group.name) != std::end(names)) {
      read.push_back(group.name);
    }
  }
  EXPECT_EQ(read, std::vector<std::string>(std::begin(names), std::end(names)));
}

}  // namespace
}  // namespace qx::exchange

#endif
