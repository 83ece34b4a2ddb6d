// Random Nastran decks of every kind of element, with systems, orientations, offsets, properties
// and sets: whatever becomes of the model, the deck that is written reads as the model.

#include <algorithm>
#include <cmath>
#include <fmt/format.h>
#include <gtest/gtest.h>
#include <map>
#include <random>
#include <set>

#include "qx_db/platform/file.h"
#include "qx_db/qx_db.h"

#include "exchange/nastran/nas_reader.h"
#include "exchange/nastran/nas_rules.h"
#include "exchange/nastran/nas_values.h"
#include "exchange/system_frames.h"
#include "exchange/transfer.h"
#include "host/records.h"
#include "host/session.h"
#include "nastran_model.h"

namespace qx::exchange {
namespace {

// ---- random decks -------------------------------------------------------------------------------

class RandomDeck {
 public:
  /// Systems have numbers from `first_system` on.
  RandomDeck(unsigned seed, int first_system) : random_(seed), before_(first_system - 1) {}

  std::string Make() {
    std::string cards = Systems() + Nodes();
    std::shuffle(elements_.begin(), elements_.end(), random_);
    for (int i = 0; i < 2; ++i) cards += Elements();
    cards += Properties();
    cards +=
        "SPC1,1,123,1,THRU,40\nSPC1,2,123,3,7,14\nFORCE,3,7,7,1.,1.,0.,0.\n"
        "RBE2,9001,1,123,8,14,21\nRBE3,9002,,2,123,1.,123,3,4\n,7,14\n"
        "MPC,4,7,1,1.,14,1,-1.\nPLOAD4,5,1007,2.\nCELAS2,9003,5.,7,1,8,1\n";
    return "SOL 101\nCEND\n$ Set 1: elements of \"odd \\\"ones\\\"\", part of set 3\nSET 1 = 1001 "
           "THRU 1009\n"
           "$ Set 2: nodes of set 1\nSET 2 = 59, 60\n"
           "$ Set 3: nothing of \"all\"\nSET 5 = 1 THRU 20 EXCEPT 7\nDISP = 5\nBEGIN BULK\n" +
           cards + "ENDDATA\n";
  }

 private:
  double Real(double from, double to) {
    return std::uniform_real_distribution<>(from, to)(random_);
  }
  int Whole(int from, int to) { return std::uniform_int_distribution<>(from, to)(random_); }
  std::string Number(double from, double to) {
    return NasReal(Real(from, to), Whole(0, 1) ? 8 : 16);
  }
  std::string Card(std::string name, std::vector<std::string> fields) {
    // Free or fixed fields, by chance.
    if (Whole(0, 1)) return NasCardLines(name, std::move(fields));
    std::string text = name + "*";
    for (std::size_t i = 0; i < fields.size(); ++i) {
      if (i > 0 && i % 4 == 0) text += "\n*";
      text += "," + fields[i];
    }
    return text + "\n";
  }
  std::string Vector(double size) {
    return Number(-size, size) + "," + Number(-size, size) + "," + Number(-size, size);
  }
  std::vector<std::string> With(std::vector<std::string> fields, const std::string& list) {
    std::size_t at = 0;
    while (at <= list.size()) {
      const std::size_t end = std::min(list.find(',', at), list.size());
      fields.push_back(list.substr(at, end - at));
      at = end + 1;
    }
    return fields;
  }

  std::string SystemNumber(int i) { return i == 0 ? "" : std::to_string(before_ + i); }

  /// Nine systems, some in others, some of three nodes.
  std::string Systems() {
    std::string text;
    for (int i = 1; i < 8; ++i) {
      const int reference = i > 2 && Whole(0, 1) ? Whole(1, i - 1) : 0;
      const char* letter = i < 3 ? "R" : Whole(0, 1) ? "C" : i == 7 ? "S" : "R";
      is_rectangular_[i] = *letter == 'R';
      // In a system that turns, the second number is an angle, and the third may be.
      const std::string points =
          is_rectangular_[reference]
              ? Vector(3) + "," + Number(5, 6) + "," + Number(-1, 1) + "," + Number(7, 9) + "," +
                    Number(-6, -5) + "," + Number(5, 9) + "," + Number(-1, 1)
              : Number(2, 3) + "," + Number(20, 40) + "," + Number(-1, 1) + "," + Number(5, 6) +
                    "," + Number(60, 80) + "," + Number(7, 9) + "," + Number(7, 8) + "," +
                    Number(100, 140) + "," + Number(50, 60);
      text += Card(std::string("CORD2") + letter,
                   With({SystemNumber(i), SystemNumber(reference)}, points));
    }
    return text + "CORD1R," + SystemNumber(8) + ",1,2,3," + SystemNumber(9) + ",4,5,6\n";
  }

  std::string Nodes() {
    std::string text;
    for (int i = 1; i <= kNodes; ++i) {
      const int system = i > 6 && Whole(0, 1) ? Whole(0, 8) : 0;
      const int output = Whole(0, 2) ? 0 : Whole(1, 7);
      std::vector<std::string> fields{std::to_string(i), SystemNumber(system)};
      fields = With(fields, Number(1, 9) + "," + Number(-90, 90) + "," + Number(-9, 9));
      fields.push_back(SystemNumber(output));
      if (Whole(0, 5) == 0) fields.push_back("123");
      text += Card("GRID", fields);
    }
    return text;
  }

  struct Kind {
    const char* name;
    int nodes;
    int property;
  };
  static constexpr Kind kKinds[] = {
      {"CROD", 2, 1},    {"CTUBE", 2, 2},  {"CBAR", 2, 3},    {"CBEAM", 2, 4},   {"CBUSH", 2, 5},
      {"CTRIA3", 3, 6},  {"CTRIAR", 3, 6}, {"CTRIA6", 6, 6},  {"CQUAD4", 4, 6},  {"CQUADR", 4, 7},
      {"CQUAD8", 8, 7},  {"CSHEAR", 4, 8}, {"CTETRA", 4, 9},  {"CTETRA", 10, 9}, {"CPYRAM", 5, 9},
      {"CPYRAM", 13, 9}, {"CPENTA", 6, 9}, {"CPENTA", 15, 9}, {"CHEXA", 8, 9},   {"CHEXA", 20, 9},
      {"CONROD", 2, 0},  {"PLOTEL", 2, 0}, {"CONM2", 1, 0}};

  std::string Elements() {
    std::string text;
    for (const Kind& kind : kKinds) {
      const std::string name = kind.name;
      std::vector<std::string> fields{std::to_string(++element_)};
      if (kind.property) fields.push_back(std::to_string(kind.property));
      const int first = Whole(1, kNodes - 21);
      for (int i = 0; i < kind.nodes; ++i) fields.push_back(std::to_string(first + i));
      if (name == "CONROD") fields = With(fields, "1,2.5");
      if (name == "CONM2") {
        const bool is_absolute = Whole(0, 1);
        fields.push_back(is_absolute ? "-1" : Whole(0, 1) ? "3" : "");
        fields = With(fields, Number(1, 9) + "," + Vector(2) + ",," + Number(1, 9));
      }
      if (name == "CBAR" || name == "CBEAM") {
        constexpr const char* kForms[] = {"", "GGG", "BGG", "GGO", "GOO", "BOG"};
        const bool by_node = Whole(0, 2) == 0;
        fields = With(fields, by_node ? std::to_string(first + 5) + ",," : Vector(3));
        fields = With(fields, std::string(kForms[Whole(0, 5)]) + (Whole(0, 1) ? ",,456" : ",,"));
        if (Whole(0, 1)) fields = With(fields, Vector(1) + "," + Vector(1));
      }
      if (name == "CBUSH" && Whole(0, 1)) fields = With(fields, Vector(2));
      if (name == "CBUSH" && fields.size() == 4 && Whole(0, 1)) fields = With(fields, ",,,2");
      if (name == "CQUAD4" && Whole(0, 1)) fields = With(fields, "30.,.25");
      if (name == "CQUADR" && Whole(0, 1))
        fields = With(fields, SystemNumber(3) + ",,,,.1,.2,.3,.4");
      if (name == "CTRIA3" && Whole(0, 1)) fields = With(fields, ",-.5,,,,.2,.2,.2");
      if (name == "CTRIA6" && Whole(0, 1)) fields = With(fields, "0,.5,.1,.2,.3");
      if (name == "CQUAD8" && Whole(0, 1)) fields = With(fields, "1.,1.,1.,2.,45.,.125");
      text += Card(name, fields);
    }
    return text;
  }

  std::string Properties() {
    return "PROD,1,1," + Number(0, 1) + "\nPTUBE,2,1,2.,.1\nPBAR,3,1," + Vector(1) +
           "\nPBEAM,4,2," + Vector(1) + "\nPBUSH,5,K,1.,2.,3.\nPSHELL,6,1," + Number(0, 1) +
           ",1,,1\nPCOMP,7,,,,,,,,1,.1,0.,,1,.2,90.\nPSHEAR,8,1,.3\nPSOLID,9,2,3\n"
           "MAT1,1,2.+11,,.3,7850.\nMAT1,2," +
           Number(1e9, 1e12) +
           ",,.25\n"
           "$ Property 6: \"the skin\"\n";
  }

  static constexpr int kNodes = 60;
  std::mt19937 random_;
  std::vector<int> elements_;
  std::map<int, bool> is_rectangular_{{0, true}};
  int element_ = 1000;
  int before_;
};

// ---- what a model says --------------------------------------------------------------------------

using Facts = std::map<std::string, std::vector<double>>;

/// What two models must agree in, as numbers by what they are of.
Facts FactsOf(CQXDBSession& session) {
  const Deck deck = DeckOf(session);
  Facts facts;
  const auto add = [&](std::string of, std::vector<double> numbers) {
    facts[std::move(of)] = std::move(numbers);
  };
  const auto vector = [](const auto& v) { return std::vector<double>{v.x, v.y, v.z}; };
  for (std::size_t i = 0; i < deck.node_keys.size(); ++i) {
    add(fmt::format("node {}", deck.node_keys[i]),
        {deck.coordinates[3 * i], deck.coordinates[3 * i + 1], deck.coordinates[3 * i + 2]});
  }
  for (std::size_t e = 0; e < deck.elements.size(); ++e) {
    const Mesh::Element& element = deck.elements[e];
    std::vector<double> numbers{double(element.type), double(element.property)};
    for (std::size_t i = 0; i < deck.NodesOf(e); ++i) {
      numbers.push_back(deck.connectivity[element.first + i]);
    }
    add(fmt::format("element {}", element.key), numbers);
  }
  // The system with the number of the global one has another key in each model.
  std::map<ITR, double> number_of{{0, 0}, {1, 0}};
  for (const tagTCord& cord : deck.Of<tagTCord>()) {
    const bool is_first = Utf8(cord.name.View()).ends_with(" 1");
    number_of[static_cast<ITR>(cord.key)] = is_first ? 1 : cord.key;
  }
  for (const auto& [key, frame] : SystemsOf(session)) {
    if (key == 1) continue;
    std::vector<double> numbers{double(frame.type)};
    for (const Vector3& v : {frame.origin, frame.x, frame.y}) {
      numbers.insert(numbers.end(), {v.x, v.y, v.z});
    }
    add(fmt::format("system {}", number_of.at(static_cast<ITR>(key))), numbers);
  }
  std::set<Key> elements;
  for (const Mesh::Element& element : deck.elements) elements.insert(element.key);
  for (const tagTEcrd& line : deck.Of<tagTEcrd>()) {
    if (!elements.contains(line.key)) continue;
    std::vector<double> numbers{double(line.method), double(line.reference_node),
                                number_of.at(line.coordinate_system)};
    const bool is_gone = line.method == tagTEcrd::kByNode && line.reference_node == 0;
    if (line.method == tagTEcrd::kByVector || is_gone) numbers = vector(line.reference_vector);
    add(fmt::format("orientation {}", line.key), numbers);
  }
  for (const tagTE1DOffset& offset : deck.Of<tagTE1DOffset>()) {
    for (const ITR element : offset.elements) {
      for (std::size_t end = 0; end < 2; ++end) {
        if (!(end ? offset.end_b : offset.end_a)) continue;
        const auto& of = end ? offset.offset_b : offset.offset_a;
        add(fmt::format("offset {} {}", element, end),
            {double(offset.csys_type), of[0], of[1], of[2]});
      }
    }
  }
  for (const tagTE2DMatlCsys& shell : deck.Of<tagTE2DMatlCsys>()) {
    for (const ITR element : shell.elements) {
      add(fmt::format("direction {}", element),
          {double(shell.type), shell.angle_deg, number_of.at(shell.coordinate_system)});
    }
  }
  for (const tagTE2DOffset& shell : deck.Of<tagTE2DOffset>()) {
    for (const ITR element : shell.elements) {
      add(fmt::format("offset {}", element), {shell.offset});
    }
  }
  for (const tagTE2DThick& shell : deck.Of<tagTE2DThick>()) {
    for (const ITR element : shell.elements) {
      std::vector<double> corners(std::begin(shell.thickness), std::end(shell.thickness));
      add(fmt::format("thickness {}", element), corners);
    }
  }
  for (const tagTE1DRelease& release : deck.Of<tagTE1DRelease>()) {
    for (const ITR element : release.elements) {
      add(fmt::format("release {}", element),
          std::vector<double>(std::begin(release.released), std::end(release.released)));
    }
  }
  for (const tagTSprop& mass : deck.Of<tagTSprop>()) {
    if (!elements.contains(mass.key)) continue;
    std::vector<double> numbers = vector(mass.offset);
    numbers.insert(numbers.end(),
                   {mass.mass, mass.inertia[0], number_of.at(mass.coordinate_system)});
    add(fmt::format("mass {}", mass.key), numbers);
  }
  for (const tagTProp& p : deck.Of<tagTProp>()) {
    add(fmt::format("property {} {}", p.key,
                    p.key == 6 || p.key == 66 ? Utf8(p.name.View()) : std::string()),
        {double(p.type), double(p.material), p.thickness, p.area, p.torsion, p.stiffness[0],
         p.inertia_y, p.inertia_z});
  }
  for (const tagTMatl& m : deck.Of<tagTMatl>()) {
    add(fmt::format("material {}", m.key), {m.elastic_modulus, m.poisson_ratio, m.density});
  }
  for (const Mesh::Group& group : deck.groups) {
    if (group.name.starts_with(kNasOutputSet)) continue;
    std::vector<double> numbers(group.elements.begin(), group.elements.end());
    std::sort(numbers.begin(), numbers.end());
    std::vector<double> nodes(group.nodes.begin(), group.nodes.end());
    std::sort(nodes.begin(), nodes.end());
    numbers.insert(numbers.end(), nodes.begin(), nodes.end());
    add(fmt::format("set {}, part of {}", group.name,
                    group.parent < 0 ? "none" : deck.groups[std::size_t(group.parent)].name),
        numbers);
  }
  for (const tagTMeshCsys& assigned : deck.Of<tagTMeshCsys>()) {
    for (const Key node : deck.groups[std::size_t(assigned.mesh_set) - 1].nodes) {
      add(fmt::format("output of {}", node), {number_of.at(assigned.coordinate_system)});
    }
  }
  return facts;
}

void ExpectSame(const Facts& a, const Facts& b, const std::string& text) {
  for (const auto& [of, numbers] : a) {
    const auto other = b.find(of);
    ASSERT_NE(other, b.end()) << of << " is not there\n" << text;
    ASSERT_EQ(numbers.size(), other->second.size()) << of << "\n" << text;
    double size = 0;
    for (const double x : numbers) size = std::max(size, std::abs(x));
    for (std::size_t i = 0; i < numbers.size(); ++i) {
      ASSERT_NEAR(numbers[i], other->second[i], 1e-9 * size) << of << " number " << i << "\n"
                                                             << text;
    }
  }
  for (const auto& [of, numbers] : b) ASSERT_TRUE(a.contains(of)) << of << " is new\n" << text;
}

/// Renumbers every seventh record of a pool, by `by`.
template <class T>
void RenumberSome(NastranModel& model, Key by) {
  std::vector<Key> keys;
  host::ForEach<T>(&model.Session(), [&](ITR, const T& record) {
    keys.push_back(record.key);
    return true;
  });
  for (const Key key : keys) {
    if (key % 7 == 0 || (key == 6 && T::kType == code::kProp)) model.Renumber<T>(key, key + by);
  }
}

/// What the cards that stay text name: of each its fields that are no blanks, as the deck has them;
/// of constraints that list nodes all of one set and its components together, node by node, however
/// many cards and ranges say them.
std::multiset<std::string> CarriedOf(const std::string& deck) {
  const NasText text(deck, "deck");
  std::multiset<std::string> carried;
  std::set<Key> nodes;
  for (const NasCard& card : text.Cards()) {
    if (card.name == "GRID") nodes.insert(static_cast<Key>(*DeckInteger(text.FieldText(card, 0))));
  }
  std::map<std::string, std::set<Key>> constrained;
  for (const NasCard& card : text.Cards()) {
    const bool is_carried = !NasBoundarySet(card.name).empty() || card.name.starts_with("RBE") ||
                            card.name.starts_with("CELAS");
    if (!is_carried) continue;
    if (card.name == "SPC1") {
      std::set<Key>& listed =
          constrained[fmt::format("SPC1 {} {}", text.FieldText(card, 0), text.FieldText(card, 1))];
      for (const NasItems::Item& item :
           NasItemsOf(text, card, NasKeysOf(text, card).lists.at(0)).items) {
        listed.insert(nodes.lower_bound(item.from), nodes.upper_bound(item.to));
      }
      continue;
    }
    std::string words(card.name);
    for (std::size_t f = 0; f < card.fields.size(); ++f) {
      if (!text.FieldText(card, f).empty()) words += fmt::format(" {}", text.FieldText(card, f));
    }
    carried.insert(std::move(words));
  }
  for (const auto& [head, listed] : constrained) {
    carried.insert(fmt::format("{}: {}", head, fmt::join(listed, " ")));
  }
  return carried;
}

class NastranLaw : public testing::TestWithParam<unsigned> {};
INSTANTIATE_TEST_SUITE_P(Seeds, NastranLaw, testing::Range(0u, 40u));

TEST_P(NastranLaw, WhatIsWrittenReadsAsTheModel) {
  std::mt19937 random(GetParam());
  const int first_system = GetParam() % 2 ? 1 : 2;  // 1 is that of the model's global system
  const std::string deck = RandomDeck(GetParam(), first_system).Make();
  NastranModel model;
  model.Import(deck);
  ASSERT_EQ(model.Export(), deck);
  const auto chance = [&](int of) { return std::uniform_int_distribution<>(1, of)(random) == 1; };
  model.Edit([&] {
    if (chance(2)) RenumberSome<tagTNode>(model, 5000);
    if (chance(2)) RenumberSome<tagTElem>(model, 6000);
    if (chance(2)) RenumberSome<tagTProp>(model, 60);
    if (chance(2)) RenumberSome<tagTCord>(model, 70);
    if (chance(2)) RenumberSome<tagTMatl>(model, 80);
  });
  model.Edit([&] {
    std::vector<Key> nodes;
    host::ForEach<tagTNode>(&model.Session(), [&](ITR, const tagTNode& node) {
      nodes.push_back(node.key);
      return true;
    });
    for (const Key key : nodes) {
      if (chance(4)) model.Change<tagTNode>(key, [&](tagTNode& n) { n.position.y += 1.0 / 3; });
    }
  });
  if (chance(2)) {
    const Deck now = DeckOf(model.Session());
    model.Edit([&] {
      for (const Mesh::Element& element : now.elements) {
        if (chance(5)) model.Remove<tagTElem>(element.key);
      }
    });
    model.Edit([&] {
      for (const Key key : now.node_keys) {
        if (chance(15)) model.Remove<tagTNode>(key);
      }
    });
  }
  const std::string text = model.Export();
  NastranModel again;
  again.Import(text);
  ExpectSame(FactsOf(model.Session()), FactsOf(again.Session()), deck + "---\n" + text);
  EXPECT_EQ(again.Export(), text);
  // The same from nothing but the model.
  model.Edit([&] { model.Remove<tagTCarried>(1); });
  const std::string anew = model.Export();
  NastranModel third;
  third.Import(anew);
  EXPECT_EQ(third.Export(), anew);
  if (first_system == 1) return;
  ExpectSame(FactsOf(model.Session()), FactsOf(third.Session()), anew);
}

// In millimetres, tons and so on, a model that counts in metres says the same.
TEST_P(NastranLaw, UnitsOfADeckAreNotThoseOfTheModel) {
  constexpr const char* kUnits = "mm,N,ton";
  const std::string deck = RandomDeck(GetParam(), 2).Make();
  NastranModel in_its_own;
  in_its_own.Import(deck);
  NastranModel in_metres;
  in_metres.Import(deck, "in.bdf", kUnits);
  ASSERT_EQ(in_metres.Export(kUnits), deck);
  // From nothing but the model, in the deck's units.
  for (NastranModel* model : {&in_its_own, &in_metres}) {
    model->Edit([&] { model->Remove<tagTCarried>(1); });
  }
  const std::string anew = in_metres.Export(kUnits);
  NastranModel again;
  again.Import(anew);
  ExpectSame(FactsOf(in_its_own.Session()), FactsOf(again.Session()), anew);
}

// What the text names goes on naming the same: renumbered there and back, it reads as it did.
TEST_P(NastranLaw, CarriedNumbersComeBack) {
  const std::string deck = RandomDeck(GetParam(), 2).Make();
  NastranModel model;
  model.Import(deck);
  const auto shift = [](NastranModel& of, Key by) {
    of.Edit([&] {
      for (Key key = 1; key <= 60; ++key) {
        const Key now = by > 0 ? key : key - by;
        if (key % 7 == 0) of.Renumber<tagTNode>(now, now + by);
      }
    });
  };
  shift(model, 5000);
  const std::string out = model.Export();
  EXPECT_NE(CarriedOf(out), CarriedOf(deck));
  NastranModel back;
  back.Import(out);
  shift(back, -5000);
  EXPECT_EQ(CarriedOf(deck), CarriedOf(back.Export()));
}

}  // namespace
}  // namespace qx::exchange
