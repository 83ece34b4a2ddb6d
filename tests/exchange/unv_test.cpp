// Universal files: node orders as the format documents them, datasets old and new, what is carried,
// units, systems, and files that are broken.

#include <algorithm>
#include <cmath>
#include <fmt/format.h>
#include <gtest/gtest.h>

#include "qx_db/platform/file.h"
#include "qx_db/qx_db.h"

#include "brief.h"
#include "exchange/transfer.h"
#include "exchange/unv/unv_kinds.h"
#include "exchange/unv/unv_reader.h"
#include "host/records.h"
#include "host/session.h"
#include "sample_mesh.h"
#include "tests/corpus.h"
#include "tests/scratch_folder.h"

namespace qx::exchange {
namespace {

using sample::Point;

// Nodes stand in rings around faces, those between two corners between them; edges across stand
// between the rings.
TEST(UnvKinds, ListNodesAroundFaces) {
  struct Rings {
    std::int32_t code;
    std::size_t around;  ///< places of a ring
    std::size_t across;  ///< places between the rings
  };
  using namespace element;
  for (const Rings& rings : {Rings{kTri6, 6, 0}, Rings{kQuad8, 8, 0}, Rings{kTet10, 6, 3},
                             Rings{kWedge15, 6, 3}, Rings{kHex20, 8, 4}}) {
    const sample::Shape& shape = sample::ShapeOf(rings.code);
    std::vector<Point> ours = shape.corners;
    for (const auto& [a, b] : shape.edges) {
      ours.push_back(sample::Middle(shape.corners[static_cast<std::size_t>(a)],
                                    shape.corners[static_cast<std::size_t>(b)]));
    }
    const std::int8_t* order = UnvOrderOf(rings.code);
    ASSERT_NE(order, nullptr);
    std::vector<Point> file;
    for (std::size_t k = 0; k < ours.size(); ++k) {
      file.push_back(ours[static_cast<std::size_t>(order[k])]);
    }
    const std::size_t second = rings.around + rings.across;
    for (std::size_t first = 0; first < file.size(); first += second) {
      if (file.size() - first < rings.around) break;  // the tip of a tetrahedron
      for (std::size_t i = 1; i < rings.around; i += 2) {
        EXPECT_EQ(file[first + i],
                  sample::Middle(file[first + i - 1], file[first + (i + 1) % rings.around]));
      }
    }
    for (std::size_t i = 0; i < rings.across; ++i) {
      const bool has_tip = rings.code == kTet10;
      EXPECT_EQ(file[rings.around + i],
                sample::Middle(file[2 * i], has_tip ? file.back() : file[second + 2 * i]));
    }
  }
  EXPECT_EQ(UnvOrderOf(kLine3)[1], 2);
  for (std::int32_t code = 1; code <= 15; ++code) {
    const std::int32_t descriptor = UnvDescriptorOf(code);
    if (code == kPyramid5 || code == kPyramid13) {
      EXPECT_EQ(descriptor, 0);
      continue;
    }
    const auto kind = FindUnvKind(descriptor, FindElementType(code)->nodes);
    ASSERT_TRUE(kind) << code;
    EXPECT_EQ(kind->code, code);
    EXPECT_FALSE(kind->is_reduced);
  }
}

TEST(UnvKinds, AreKnownByDescriptorAndNumberOfNodes) {
  struct Case {
    int descriptor, nodes;
    std::int32_t code;
  };
  using namespace element;
  for (const Case& c :
       {Case{11, 2, kLine2}, Case{24, 3, kLine3}, Case{32, 3, kLine3}, Case{41, 3, kTri3},
        Case{45, 8, kQuad8}, Case{300, 9, kQuad8}, Case{85, 8, kQuad8}, Case{43, 9, 0},
        Case{46, 12, 0}, Case{105, 20, kHex20}, Case{102, 15, kWedge15}, Case{117, 32, 0},
        Case{122, 4, 0}, Case{136, 2, 0}, Case{161, 1, kPoint}, Case{172, 3, kLine3}}) {
    const auto kind = FindUnvKind(c.descriptor, c.nodes);
    EXPECT_EQ(kind ? kind->code : 0, c.code) << c.descriptor;
  }
}

Result<Deck> Parse(const std::string& text, std::vector<Failure>& faults) {
  return ParseUnv(text, "f", {}, faults);
}
std::string Dataset(const char* name, const std::string& lines) {
  return fmt::format("    -1\n{:>6}\n{}    -1\n", name, lines);
}

// A tetrahedron of nodes 1 to 4 and a beam in the datasets of every age.
TEST(UnvReader, ReadsEveryAge) {
  const std::string nodes_of_old =
      Dataset("15",
              "         1         0         0         7  0.00000E+00  0.00000E+00  0.00000E+00\n"
              "         2         0         0         7  1.00000E+00-0.00000E+00  0.00000E+00\n"
              "         3         0         0         7  0.00000E+00  1.00000E+00  0.00000E+00\n"
              "         4         0         0         7  0.00000E+00  0.00000E+00  1.00000E+00\n");
  std::string nodes;
  for (int i = 0; i < 4; ++i) {
    nodes += fmt::format(
        "{:10}{:10}{:10}{:10}\n  {}.0000000000000000D+00  {}.0000000000000000D+00"
        "  {}.0000000000000000D+00\n",
        i + 1, 1, 1, 11, int{i == 1}, int{i == 2}, int{i == 3});
  }
  const std::string elements_of_old =
      Dataset("780",
              "         1       111         1         2         1         3         7         4\n"
              "         1         2         3         4\n"
              "         2        21         1         2         1         3         7         2\n"
              "         0         5         6\n         1         2\n");
  const std::string elements =
      Dataset("2412",
              "         1       111         2         3         7         4\n"
              "         1         2         3         4\n"
              "         2        21         2         3         7         2\n"
              "         0         5         6\n         1         2\n");
  for (const std::string& text :
       {nodes_of_old + elements_of_old, Dataset("781", nodes) + elements_of_old,
        Dataset("2411", nodes) + elements}) {
    std::vector<Failure> faults;
    const auto deck = Parse(text, faults);
    ASSERT_TRUE(deck) << deck.Error().Line();
    EXPECT_EQ(deck->node_keys, (std::vector<Key>{1, 2, 3, 4}));
    EXPECT_EQ(deck->coordinates, (std::vector<double>{0, 0, 0, 1, 0, 0, 0, 1, 0, 0, 0, 1}));
    ASSERT_EQ(deck->elements.size(), 2u);
    EXPECT_EQ(deck->connectivity, (std::vector<Key>{1, 2, 3, 4, 1, 2}));
    ASSERT_EQ(deck->Of<tagTBlock>().size(), 2u);
    EXPECT_EQ(Utf8(deck->Of<tagTBlock>()[1].name.View()),
              "kind 21 physical 2 material 3 color 7 ends 5 6");
    EXPECT_EQ(Briefly(deck->report), std::vector<std::string>());
  }
  // Groups list two numbers a member, or four.
  for (const auto& [name, members] :
       {std::pair{"2430", "         8         1         7         4\n"},
        std::pair{"2467",
                  "         8         1         0         0         7         4         0"
                  "         0\n"}}) {
    std::vector<Failure> faults;
    const auto deck = Parse(Dataset("2411", nodes) + elements +
                                Dataset(name, std::string("        12         0         0         0"
                                                          "         0         0         0         "
                                                          "2\nmy group\n") +
                                                  members),
                            faults);
    ASSERT_TRUE(deck) << deck.Error().Line();
    ASSERT_EQ(deck->groups.size(), 1u);
    EXPECT_EQ(deck->groups[0].name, "my group");
    EXPECT_EQ(deck->groups[0].key, 12);
    EXPECT_EQ(deck->groups[0].elements, std::vector<Key>{1});
    EXPECT_EQ(deck->groups[0].nodes, std::vector<Key>{4});
  }
}

/// A node at 1, 2, 3 whose system is 5.
std::string NodeInSystem() {
  return Dataset("2411",
                 "         7         5         1        11\n   1.0000000000000000D+00   "
                 "2.0000000000000000D+00   3.0000000000000000D+00\n");
}

// Older datasets name the system that coordinates count in; the newest one that they are to be
// given out in.
TEST(UnvReader, PutsNodesWhereTheirSystemsAre) {
  const auto systems = [](int number) {
    return Dataset("2420", fmt::format("         1\npart\n{:10}         0         8\nturned\n"
                                       "  0.0D+00  1.0D+00  0.0D+00\n -1.0D+00  0.0D+00  0.0D+00\n"
                                       "  0.0D+00  0.0D+00  1.0D+00\n  1.0D+01  2.0D+01  3.0D+01\n",
                                       number));
  };
  const std::vector<double> moved{10 - 2, 20 + 1, 30 + 3}, same{1, 2, 3};
  struct Case {
    const char* dataset;
    const char* numbers;
    std::vector<double> at;
    std::vector<std::string> report;
  };
  const std::vector<std::string> told{"systems in which nodes are to be given out: 1"};
  const std::vector<std::string> taken{"coordinates count in the systems that nodes name"};
  for (const int number : {1, 5}) {
    for (const Case& c : {Case{"15", "", moved, taken}, Case{"781", "\n", moved, taken},
                          Case{"2411", "\n", same, told}}) {
      std::vector<Failure> faults;
      const auto deck = Parse(
          systems(number) +
              Dataset(c.dataset, fmt::format("         7{:10}         0        11{}  1.00000E+00  "
                                             "2.00000E+00  3.00000E+00\n",
                                             number, c.numbers)),
          faults);
      ASSERT_TRUE(deck) << deck.Error().Line();
      EXPECT_EQ(deck->coordinates, c.at) << c.dataset;
      EXPECT_EQ(Briefly(deck->report), c.report) << c.dataset;
      ASSERT_EQ(deck->Of<tagTCord>().size(), 1u);
      EXPECT_EQ(deck->Of<tagTCord>()[0].key, number);
    }
  }
}

// Groups of one number, and a system whose third axis points the other way: both are read, and
// told.
TEST(UnvReader, TellsOfNumbersGivenTwiceAndOfLeftHandedSystems) {
  const auto system = [](const char* third) {
    return Dataset("2420", fmt::format("         1\npart\n         5         0         8\nturned\n"
                                       "  1.0D+00  0.0D+00  0.0D+00\n  0.0D+00  1.0D+00  0.0D+00\n"
                                       "  0.0D+00  0.0D+00 {}\n  0.0D+00  0.0D+00  0.0D+00\n",
                                       third));
  };
  const std::string node = Dataset("2411",
                                   "         1         1         1        11\n  0.0D+00  0.0D+00  "
                                   "0.0D+00\n");
  const std::string group =
      "         3         0         0         0         0         0         0         1\n{}\n"
      "         7         1         0         0\n";
  const std::string groups = Dataset("2477", fmt::format(fmt::runtime(group + group), "a", "b"));
  std::vector<Failure> faults;
  const auto good = Parse(system(" 2.0D+00") + node, faults);
  ASSERT_TRUE(good);
  for (const std::string& line : Briefly(good->report)) {
    EXPECT_EQ(line.find("third axes"), line.npos) << line;
  }
  const auto deck = Parse(system("-1.0D+00") + node + groups, faults);
  ASSERT_TRUE(deck);
  const std::vector<std::string> told = Briefly(deck->report);
  for (const char* line : {"third axes that do not stand on the first two, to their right: 1",
                           "groups of a number that another has got a new one: 1"}) {
    EXPECT_EQ(std::count(told.begin(), told.end(), line), 1) << line;
  }
  CQXDBSession session(host::SetUpModel);
  LossReport report;
  ASSERT_EQ(AddDeck(session, *deck, "f", report).Line(), "");
  std::vector<std::string> names;
  for (const Mesh::Group& each : DeckOf(session).groups) names.push_back(each.name);
  for (const char* name : {"a", "b"}) EXPECT_EQ(std::count(names.begin(), names.end(), name), 1);
}

TEST(UnvReader, TakesUnitsFromTheirFactors) {
  const auto units = [](const char* factors) {
    return Dataset("164", fmt::format("         5mm_milli_newton             2\n{}\n"
                                      "   2.7314999999999998D+02\n",
                                      factors));
  };
  std::vector<Failure> faults;
  const auto mm = Parse(units("  1.0D+03  1.0D+00  1.0D+00") + NodeInSystem(), faults);
  ASSERT_TRUE(mm) << mm.Error().Line();
  ASSERT_TRUE(mm->units);
  const auto name = [](const Deck& deck) {
    return UnitsOf(UnitBase::kLength)[static_cast<std::size_t>((*deck.units)[UnitBase::kLength])]
        .name;
  };
  EXPECT_EQ(name(*mm), "mm");
  const auto feet =
      Parse(units("  3.2808398950131D+00  2.2480894309971D-01  1.8D+00") + NodeInSystem(), faults);
  ASSERT_TRUE(feet) << feet.Error().Line();
  EXPECT_EQ(name(*feet), "ft");
  // A length that the model has no unit for becomes metres.
  const auto odd = Parse(units("  4.0D+00  1.0D+00  1.0D+00") + NodeInSystem(), faults);
  ASSERT_TRUE(odd) << odd.Error().Line();
  EXPECT_EQ(name(*odd), "m");
  EXPECT_EQ(odd->coordinates, (std::vector<double>{0.25, 0.5, 0.75}));
  EXPECT_FALSE(odd->report.IsLossless());
  EXPECT_FALSE(Parse(units("  0.0D+00  1.0D+00  1.0D+00") + NodeInSystem(), faults));
  // So do forces and temperatures, which says so.
  const std::vector<std::string> told{"temperatures were taken as C"};
  EXPECT_EQ(Briefly(mm->report), std::vector<std::string>());
  EXPECT_EQ(Briefly(feet->report), told);  // 1.8 goes with 459.67
  // The same units may be said twice, but no others.
  const std::string si = units("  1.0D+00  1.0D+00  1.0D+00");
  EXPECT_TRUE(Parse(si + NodeInSystem() + si, faults));
  faults.clear();
  EXPECT_FALSE(Parse(si + NodeInSystem() + units("  1.0D+03  1.0D+00  1.0D+00"), faults));
  ASSERT_EQ(faults.size(), 1u);
  EXPECT_EQ(faults[0].place, "line 16");
}

// A dataset that is not known, colours and tables go in and out as they are.
TEST(UnvRoundTrip, CarriesWhatTheModelHasNoPlaceFor) {
  const std::string carried = "         1         2\nany text, -1 among it\n      -1\n";
  const std::string text =
      NodeInSystem() +
      Dataset("2412",
              "         3       161         2         3        14         1\n         7\n") +
      Dataset("2448", carried) +
      Dataset("2414",
              "         9\nheat\n         1\nNONE\nNONE\nNONE\nNONE\nNONE\n"
              "         1         2         1         5         5         1\n"
              "         0         0         0         0         0         6         0         0\n"
              "         0         0\n  0.00000E+00  1.25000E+01  0.00000E+00  0.00000E+00  "
              "0.00000E+00  0.00000E+00\n  0.00000E+00  0.00000E+00  0.00000E+00  0.00000E+00  "
              "0.00000E+00  0.00000E+00\n         7\n -1.50000E+00-2.00000E+00\n");
  const ScratchFolder folder;
  const std::string path = folder.Path("a.unv");
  ASSERT_TRUE(WriteWholeFile(path, text));
  CQXDBSession session(host::SetUpModel);
  LossReport in, out;
  ASSERT_EQ(ImportFile(session, path, {}, in).Line(), "");
  ASSERT_EQ(ExportFile(session, path, {}, out).Line(), "");
  EXPECT_TRUE(out.IsLossless()) << out.CheckLossless("a").Line();
  const std::string written = *ReadWholeFile(path);
  EXPECT_NE(written.find("  2448\n" + carried + "    -1\n"), std::string::npos) << written;
  EXPECT_NE(written.find("         3       161         2         3        14         1\n"),
            std::string::npos);
  std::vector<Failure> faults;
  const auto deck = ParseUnv(written, "a", {}, faults);
  ASSERT_TRUE(deck);
  ASSERT_EQ(deck->Of<tagTField>().size(), 1u);
  const tagTField& field = deck->Of<tagTField>()[0];
  EXPECT_EQ(field.components, 2);  // of a complex number
  EXPECT_EQ(field.step, 6);
  EXPECT_EQ(field.time, 12.5);
  EXPECT_EQ(field.node_values[1].value, -2);
}

/// A triangle 1 of nodes 1 to 3 and a result that has two values of each of its places.
std::string WithResult(int location, int type, const std::string& records) {
  std::string nodes;
  for (int i = 1; i <= 3; ++i) {
    nodes += fmt::format("{:10}{:10}{:10}{:10}\n {} {} 0.0\n", i, 1, 1, 11, i, i * i);
  }
  return Dataset("2411", nodes) +
         Dataset("2412",
                 "         1        91         1         1         7         3\n"
                 "         1         2         3\n") +
         Dataset("2414", fmt::format("         1\nr\n{:10}\nNONE\nNONE\nNONE\nNONE\nNONE\n"
                                     "         1         0         0         0{:10}         2\n"
                                     "         0         0         0         0         0         0"
                                     "         0         0\n         0         0\n"
                                     " 0.0 0.0 0.0 0.0 0.0 0.0\n 0.0 0.0 0.0 0.0 0.0 0.0\n{}",
                                     location, type, records));
}

// Records say how many values they have; a broken result does not take the mesh along.
TEST(UnvReader, ReadsResultsRecordByRecord) {
  struct Case {
    int location, type;
    std::string records;
    std::vector<double> values;
    std::vector<std::string> report;
  };
  const std::string wider = "results got as many components as their records have values: 1";
  const std::string broken = "results that are broken were left out: 1";
  const Case cases[] = {
      {1, 2, "         2\n  1.00000E+00-2.00000-101\n", {1, -2e-101}, {}},
      {1, 2, "         2\n -1.00000-101-2.00000+101\n", {-1e-101, -2e101}, {}},
      {1,
       2,
       "         2\n 1.0 2.0 3.0\n",
       {1, 2},
       {"values beyond those that a result says to have: 1"}},
      {1, 2, "         1\n 1.0 2.0\n         2\n          NaN  2.0\n", {}, {broken}},
      {1, 2, "         1\n*************  2.0\n", {}, {broken}},
      {1, 2, "         1\n 1.0\n", {}, {broken}},
      {2, 2, "         1         2\n 1.0 2.0\n", {1, 2}, {}},
      {2, 2, "         1         4\n 1.0 2.0 3.0\n 4.0\n", {1, 2, 3, 4}, {wider}},
      {2,
       2,
       "         1         2\n 1.0 2.0\n         1         4\n 3.0 4.0\n 5.0 6.0\n"
       "         1         2\n 7.0 8.0\n",
       {1, 2, 7, 8},
       {"results of elements with another number of values were left out: 1"}},
      {2,
       5,
       "         1         1\n 1.0 2.0\n",
       {1, 2},
       {"complex results became their real and imaginary parts: 1", wider}},
      {2, 2, "         1         0\n", {}, {broken}},
      {3,
       2,
       "         1         1         3         2\n 1.0 2.0 3.0 4.0 5.0 6.0\n",
       {1, 2, 3, 4, 5, 6},
       {}},
      {3,
       2,
       "         1         2         3         4\n 1.0 2.0 3.0 4.0\n",
       {1, 2, 3, 4, 1, 2, 3, 4, 1, 2, 3, 4},
       {wider}},
      {3,
       2,
       "         1         1         1         2\n 1.0 2.0\n",
       {},
       {"results of elements at fewer nodes than they have were left out: 1"}},
  };
  for (const Case& c : cases) {
    std::vector<Failure> faults;
    const auto deck = Parse(WithResult(c.location, c.type, c.records), faults);
    ASSERT_TRUE(deck) << deck.Error().Line();
    EXPECT_EQ(deck->elements.size(), 1u);
    std::vector<double> values;
    for (const tagTField& field : deck->Of<tagTField>()) {
      for (const auto& value : field.node_values) values.push_back(value.value);
      for (const auto& value : field.element_values) values.push_back(value.value);
    }
    EXPECT_EQ(values, c.values) << c.records;
    EXPECT_EQ(Briefly(deck->report), c.report) << c.records;
  }
}

// What cannot be converted or not be said with all its digits is told.
TEST(UnvRoundTrip, TellsOfUnitsThatStayAndDigitsThatGo) {
  const std::string units = Dataset(
      "164",
      "         1SI: Meter (newton)           2\n  1.0D+00  1.0D+00  1.0D+00\n  2.7315D+02\n");
  const std::string kept = "results of an unknown kind of unit keep the units that they have: 1";
  struct Case {
    const char* unit;
    std::string text;
    std::vector<std::string> report;
  };
  const std::string values = "         1         2\n 1.0 ";
  const Case cases[] = {
      {"m", WithResult(2, 2, values + "2.0\n") + Dataset("2448", " 1.5\n"), {}},
      {"mm", WithResult(2, 2, values + "2.0\n"), {kept}},
      {"mm",
       NodeInSystem() + Dataset("2448", " 1.5 .5\n"),
       {"datasets 2448 keep the units that the file was read in: 1"}},
      {"mm", NodeInSystem() + Dataset("2448", " 15 5\nv. 1\n"), {}},
      {"m",
       WithResult(2, 4, values + "0.1234567890123456\n"),
       {"values of results were rounded to 13 digits: 1"}},
      {"m", WithResult(2, 4, values + "0.1234567890123\n"), {}},
  };
  for (const Case& c : cases) {
    const ScratchFolder folder;
    const std::string path = folder.Path("a.unv");
    ASSERT_TRUE(WriteWholeFile(path, units + c.text));
    CQXDBSession session(host::SetUpModel);
    LossReport in, out;
    ImportOptions options;
    options.set_model_units = true;
    ASSERT_EQ(ImportFile(session, path, options, in).Line(), "");
    UnitSystem system = session.Units().Current();
    system[UnitBase::kLength] = FindUnit(UnitBase::kLength, c.unit);
    session.Units().SetCurrent(system);
    ASSERT_EQ(ExportFile(session, path, {}, out).Line(), "");
    EXPECT_EQ(Briefly(out), c.report) << c.text;
  }
}

// Numbers that fill their columns touch each other.
TEST(UnvRoundTrip, KeepsTheLargestNumbers) {
  Deck deck;
  const Key most = kMaxKey;
  for (Key node = most - 2; node < most; ++node) deck.node_keys.push_back(node);
  deck.node_keys.push_back(most);
  deck.coordinates = {0, 0, 0, 1, 0, 0, 0, 1, 0};
  deck.connectivity = deck.node_keys;
  deck.elements.push_back({most, element::kTri3, 0});
  CQXDBSession session(host::SetUpModel);
  LossReport report;
  ASSERT_EQ(AddDeck(session, deck, "made", report).Line(), "");
  const ScratchFolder folder;
  const std::string path = folder.Path("a.unv");
  ASSERT_EQ(ExportFile(session, path, {}, report).Line(), "");
  std::vector<Failure> faults;
  const auto back = ParseUnv(*ReadWholeFile(path), "a", {}, faults);
  ASSERT_TRUE(back) << back.Error().Line();
  EXPECT_EQ(back->node_keys, deck.node_keys);
  EXPECT_EQ(back->connectivity, deck.connectivity);
}

// Values at the nodes of an element stand in the order of its nodes in the file.
TEST(UnvRoundTrip, KeepsValuesOfNodesOfElements) {
  Deck deck;
  const std::int32_t code = element::kTet10;
  deck.elements.push_back({4, code, 0});
  tagTField field;
  field.key = 1;
  field.name.Set(u"stress");
  field.place = tagTField::kElementNodes;
  field.components = 2;
  for (Key node = 1; node <= 10; ++node) {
    deck.node_keys.push_back(node);
    deck.connectivity.push_back(node);
    deck.coordinates.insert(deck.coordinates.end(), {double(node), double(node * node), 0});
    for (const double value : {1.0 * node, -1.0 * node}) field.element_values.Add({value, 4});
  }
  deck.Of<tagTField>().push_back(field);
  CQXDBSession session(host::SetUpModel);
  LossReport report;
  ASSERT_EQ(AddDeck(session, deck, "made", report).Line(), "");
  const ScratchFolder folder;
  const std::string path = folder.Path("a.unv");
  ASSERT_EQ(ExportFile(session, path, {}, report).Line(), "");
  // The file lists the node between the first two second, and its values there, too.
  EXPECT_NE(
      ReadWholeFile(path)->find("1.000000000000E+00 -1.000000000000E+00  5.000000000000E+00\n"),
      std::string::npos);
  std::vector<Failure> faults;
  const auto back = ParseUnv(*ReadWholeFile(path), "a", {}, faults);
  ASSERT_TRUE(back);
  ASSERT_EQ(back->Of<tagTField>().size(), 1u);
  const auto& values = back->Of<tagTField>()[0].element_values;
  ASSERT_EQ(values.GetSize(), 20);
  for (std::ptrdiff_t i = 0; i < 20; ++i) EXPECT_EQ(values[i].value, field.element_values[i].value);
}

// What is wrong with one dataset does not hide what is wrong with the next.
TEST(UnvReader, TellsOfEveryFault) {
  struct Case {
    std::string text;
    std::vector<std::string> lines;
  };
  const std::string node = NodeInSystem();
  const Case cases[] = {
      {"", {"f: there is no dataset"}},
      {"no dataset\n", {"f: line 1: dataset : a dataset begins with a line of -1"}},
      {Dataset("2411", "         7         5         1        11\n   1.0   2.0\n") +
           Dataset("2412", "         1        94         1         1         7         0\n") +
           Dataset("2467",
                   "         1         0         0         0         0         0         0"
                   "         1\nname\n         8\n"),
       {"f: line 5: dataset 2411: the dataset ends early",
        "f: line 8: dataset 2412: an element "
        "cannot have 0 nodes",
        "f: line 14: dataset 2467: a line of members is not whole"}},
      {node + Dataset("2412",
                      "         1        91         1         1         7         3\n      "
                      "   7         8         9\n"),
       {"f: element 1: its node 8 is not in the mesh"}},
      {node + node, {"f: node 7: the number is used twice"}},
      {node.substr(0, node.size() - 7), {"f: line 4: dataset 2411: the file ends before"}},
      {Dataset("2411", "99999999999         0         0         0\n  0.0  0.0  0.0\n"),
       {"f: line 4: dataset 2411: number 99999999999"}},
      {Dataset("2420", "         1\nx\n         3         7         0\n"),
       {"f: line 5: dataset 2420: the system has no type"}},
  };
  for (const Case& c : cases) {
    std::vector<Failure> faults;
    EXPECT_FALSE(Parse(c.text, faults));
    ASSERT_EQ(faults.size(), c.lines.size()) << c.text;
    for (std::size_t i = 0; i < faults.size(); ++i) {
      EXPECT_EQ(faults[i].Line().substr(0, c.lines[i].size()), c.lines[i]);
    }
  }
}

class UnvCorpus : public testing::TestWithParam<const char*> {};
INSTANTIATE_TEST_SUITE_P(All, UnvCorpus,
                         testing::Values("unv/3D.unv", "unv/test46.unv", "unv/lshape.unv"),
                         [](const auto& test) { return sample::TestName(test.param); });

// A real file says the same after it went out and came back, and stands every truncation.
TEST_P(UnvCorpus, IsAFixedPoint) {
  QX_REQUIRE_CORPUS(path, GetParam());
  const ScratchFolder folder;
  ImportOptions options;
  options.set_model_units = true;
  std::string written[2];
  std::string from = path;
  for (int round = 0; round < 2; ++round) {
    CQXDBSession session(host::SetUpModel);
    LossReport in, out;
    ASSERT_EQ(ImportFile(session, from, options, in).Line(), "");
    EXPECT_EQ(session.Validate(), "");
    from = folder.Path(fmt::format("{}.unv", round));
    ASSERT_EQ(ExportFile(session, from, {}, out).Line(), "");
    EXPECT_TRUE(out.IsLossless()) << out.CheckLossless("out").Line();
    written[round] = *ReadWholeFile(from);
  }
  EXPECT_EQ(written[0], written[1]);
  std::vector<Failure> faults;
  const auto before = ParseUnv(*ReadWholeFile(path), "before", {}, faults);
  const auto after = ParseUnv(written[0], "after", {}, faults);
  ASSERT_TRUE(before && after);
  EXPECT_EQ(after->node_keys, before->node_keys);
  EXPECT_EQ(after->coordinates, before->coordinates);
  EXPECT_EQ(after->elements, before->elements);
  EXPECT_EQ(after->connectivity, before->connectivity);
  EXPECT_EQ(after->groups, before->groups);
  const auto blocks = [](const Deck& deck) {
    std::string text;
    for (const tagTBlock& block : deck.Of<tagTBlock>()) {
      text += fmt::format("{}: {}\n", Utf8(block.name.View()), block.elements.size());
    }
    return text;
  };
  // One that was read from nine nodes is one of eight, and says so.
  if (std::string(GetParam()) != "unv/lshape.unv") {
    EXPECT_EQ(blocks(*after), blocks(*before));
  }
  const std::string& whole = written[0];
  for (std::size_t length = 0; length < whole.size(); length += 1 + whole.size() / 300) {
    faults.clear();
    const auto deck = ParseUnv(std::string_view(whole).substr(0, length), "cut", {}, faults);
    if (!deck) {
      EXPECT_FALSE(deck.Error().what.empty()) << length;
    }
  }
}

}  // namespace
}  // namespace qx::exchange
