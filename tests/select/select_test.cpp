// Selections: the language by its laws, and every condition beside a plain walk over the records.

#include <algorithm>
#include <cmath>
#include <fmt/format.h>
#include <functional>
#include <gtest/gtest.h>
#include <map>
#include <random>
#include <set>

#include "qx_db/mesh/mesh_quality.h"
#include "qx_db/mesh/topology_table.h"
#include "qx_db/platform/file.h"
#include "qx_db/record/element_types.h"
#include "qx_db/select/selection.h"

#include "host/session.h"
#include "tests/mesh/mesh_builder.h"

namespace qx {
namespace {

constexpr int kSide = 4;

/// A block of hexahedra with its nodes shaken, some of them cut away or broken; a patch of shells
/// of both shapes on it, beams, a quadratic tetrahedron, a special element, lone nodes; sets and
/// properties by chance. Keys have gaps.
class Mixed {
 public:
  CQXDBSession session{host::SetUpModel};

  explicit Mixed(unsigned seed) : random_(seed) {
    session.EnableRecording(false);
    MakeNodes();
    MakeElements();
    MakeSets();
  }

  std::vector<ITR> nodes, elements;

 private:
  double Chance() { return std::uniform_real_distribution<double>(0, 1)(random_); }
  ITR AddNode(const Point3& p) {
    tagTNode node;
    node.key = next_node_ += Chance() < 0.2 ? 3 : 1;
    node.position = {p.x, p.y, p.z};
    return nodes.emplace_back(Pool<tagTNode>(session).InsertNU(node));
  }
  ITR AddElement(std::int32_t type, const std::vector<ITR>& of) {
    tagTElem element;
    element.key = next_element_ += Chance() < 0.2 ? 3 : 1;
    element.type = type;
    for (const ITR node : of) element.nodes.Add(node);
    if (Chance() < 0.7) element.property = properties_[Chance() < 0.5];
    return elements.emplace_back(Pool<tagTElem>(session).InsertNU(element));
  }

  void MakeNodes() {
    for (int k = 0; k <= kSide; ++k) {
      for (int j = 0; j <= kSide; ++j) {
        for (int i = 0; i <= kSide; ++i) {
          const double shake = Chance() < 0.3 ? 0.3 : 0;
          AddNode({i + shake * Chance(), j + shake * Chance(), k + shake * Chance()});
        }
      }
    }
    tagTMatl steel;
    steel.key = 7;
    steel.name.Set(u"steel");
    const ITR material = Pool<tagTMatl>(session).InsertNU(steel);
    for (int i = 0; i < 2; ++i) {
      tagTProp property;
      property.key = 3 + i;
      property.name.Set(i ? u"skin" : u"core");
      if (i) property.material = material;
      properties_[i] = Pool<tagTProp>(session).InsertNU(property);
    }
  }

  ITR At(int i, int j, int k) const {
    return nodes[static_cast<std::size_t>(i + (kSide + 1) * (j + (kSide + 1) * k))];
  }

  void MakeElements() {
    for (int k = 0; k < kSide; ++k) {
      for (int j = 0; j < kSide; ++j) {
        for (int i = 0; i < kSide; ++i) {
          if (Chance() < 0.2) continue;
          std::vector<ITR> of = {
              At(i, j, k),     At(i + 1, j, k),     At(i + 1, j + 1, k),     At(i, j + 1, k),
              At(i, j, k + 1), At(i + 1, j, k + 1), At(i + 1, j + 1, k + 1), At(i, j + 1, k + 1)};
          if (Chance() < 0.1) std::swap_ranges(of.begin(), of.begin() + 4, of.begin() + 4);
          AddElement(element::kHex8, of);
        }
      }
    }
    for (int j = 0; j < kSide; ++j) {
      AddElement(element::kQuad4,
                 {At(0, j, kSide), At(1, j, kSide), At(1, j + 1, kSide), At(0, j + 1, kSide)});
      AddElement(element::kTri3, {At(1, j, kSide), At(2, j, kSide), At(2, j + 1, kSide)});
      AddElement(element::kLine2, {At(3, j, kSide), At(3, j + 1, kSide)});
    }
    std::vector<ITR> apart;
    for (int i = 0; i < 10; ++i) apart.push_back(AddNode({20 + Chance(), Chance(), Chance()}));
    AddElement(element::kTet10, apart);
    AddElement(46, {apart[0], At(0, 0, 0)});
    AddElement(element::kHex8, {apart[0], 0, apart[1]});  // broken: what has no nodes is nowhere
    for (int i = 0; i < 3; ++i) AddNode({-5 - Chance(), 0, 0});
  }

  void MakeSets() {
    for (const char16_t* const name : {u"left", u"left side", u"below"}) {
      tagTMset set;
      set.key = next_set_++;
      set.name.Set(name);
      if (set.key == 4) set.parent_key = 2;
      for (const ITR node : nodes) {
        if (Chance() < 0.3) set.nodes.Add(node);
      }
      for (const ITR element : elements) {
        if (Chance() < 0.3) set.elements.Add(element);
      }
      Pool<tagTMset>(session).InsertNU(set);
    }
  }

  std::mt19937 random_;
  Key next_node_ = 0, next_element_ = 100, next_set_ = 2;
  ITR properties_[2] = {};
};

const tagTElem& Elem(ITR at) { return *static_cast<const tagTElem*>(KeyedSetBase::RecordAt(at)); }
const tagTNode& Node(ITR at) { return *static_cast<const tagTNode*>(KeyedSetBase::RecordAt(at)); }

std::vector<ITR> ItemsOf(const CQXDBSession& session, const std::string& text) {
  const auto selection = Select(session, text);
  EXPECT_TRUE(selection) << text << ": " << selection.AsOutcome().Line();
  if (!selection) return {};
  std::vector<ITR> items(selection->items.begin(), selection->items.end());
  for (const tagTElemSide& face : selection->faces) {
    items.push_back(face.element + static_cast<ITR>(face.side) * 8 + 1);
  }
  return items;
}

std::vector<ITR> Where(const std::vector<ITR>& all, const std::function<bool(ITR)>& test) {
  std::vector<ITR> found;
  std::copy_if(all.begin(), all.end(), std::back_inserter(found), test);
  return found;
}

// ---- every condition beside a walk --------------------------------------------------------------

using NodeTest = std::function<bool(const tagTNode&)>;
using ElementTest = std::function<bool(const tagTElem&)>;

bool All(const tagTElem& element, const NodeTest& test) {
  return !element.nodes.IsEmpty() &&
         std::all_of(element.nodes.begin(), element.nodes.end(),
                     [&](ITR node) { return node != 0 && test(Node(node)); });
}

Point3 PlaceOf(const tagTNode& node) { return Point3(node.position); }

TEST(Selection, FindsWhatAWalkOverTheRecordsFinds) {
  struct {
    const char* text;
    NodeTest nodes;  // of places: for elements all nodes must pass
    ElementTest elements;
  } const cases[] = {
      {"nodes 1:40", [](const tagTNode& n) { return n.key >= 1 && n.key <= 40; }, {}},
      {"keys 110-120,130,200-",
       {},
       [](const tagTElem& e) {
         return (e.key >= 110 && e.key <= 120) || e.key == 130 || e.key >= 200;
       }},
      {"100:200:3",
       {},
       [](const tagTElem& e) { return e.key >= 100 && e.key <= 200 && (e.key - 100) % 3 == 0; }},
      {"hex8", {}, [](const tagTElem& e) { return e.type == 14; }},
      {"HEX or tri", {}, [](const tagTElem& e) { return e.type == 14 || e.type == 4; }},
      {"shell", {}, [](const tagTElem& e) { return e.type == 4 || e.type == 6; }},
      {"beam", {}, [](const tagTElem& e) { return e.type == 2; }},
      {"solid and quadratic", {}, [](const tagTElem& e) { return e.type == 9; }},
      {"special", {}, [](const tagTElem& e) { return e.type == 46; }},
      {"type 46,14", {}, [](const tagTElem& e) { return e.type == 46 || e.type == 14; }},
      {"property none", {}, [](const tagTElem& e) { return e.property == 0; }},
      {"property skin",
       {},
       [](const tagTElem& e) { return e.property != 0 && KeyOf(e.property) == 4; }},
      {"property 3,4", {}, [](const tagTElem& e) { return e.property != 0; }},
      {"material steel",
       {},
       [](const tagTElem& e) { return e.property != 0 && KeyOf(e.property) == 4; }},
      {"material none",
       {},
       [](const tagTElem& e) { return e.property == 0 || KeyOf(e.property) == 3; }},
      {"box 0,0,0 2000mm,2,3m",
       [](const tagTNode& n) {
         const Point3 p = PlaceOf(n);
         return p.x >= 0 && p.x <= 2 && p.y >= 0 && p.y <= 2 && p.z >= 0 && p.z <= 3;
       },
       {}},
      {"sphere 2,2,2 1.5",
       [](const tagTNode& n) {
         return Distance(PlaceOf(n), {2, 2, 2}) <= 1.5;
       },
       {}},
      {"cylinder 0,0,0 0,0,2 2.1",
       [](const tagTNode& n) {
         const Point3 p = PlaceOf(n);
         return p.z >= 0 && p.z <= 2 && std::hypot(p.x, p.y) <= 2.1;
       },
       {}},
      {"above 0,0,1.5 0,0,3", [](const tagTNode& n) { return n.position.z >= 1.5; }, {}},
      {"below 1.5,0,0 1,0,0", [](const tagTNode& n) { return n.position.x <= 1.5; }, {}},
      {"y < 2.05", [](const tagTNode& n) { return n.position.y < 2.05; }, {}},
      {"volume < 0.9 and volume>0",
       {},
       [](const tagTElem& e) {
         const double size = Quality(Measure::kSize, e);
         return e.type >= 8 && e.type < 16 && size < 0.9 && size > 0;
       }},
      {"length <= 1.1",
       {},
       [](const tagTElem& e) { return e.type == 2 && Quality(Measure::kSize, e) <= 1.1; }},
      {"edge-ratio > 1.1",
       {},
       [](const tagTElem& e) { return Quality(Measure::kEdgeRatio, e) > 1.1; }},
      {"quality.max-angle >= 1.6rad",
       {},
       [](const tagTElem& e) { return Quality(Measure::kMaxAngle, e) >= 1.6 * 180 / M_PI; }},
  };
  for (unsigned seed = 1; seed <= 5; ++seed) {
    const Mixed model(seed);
    for (const auto& each : cases) {
      SCOPED_TRACE(each.text + std::string(" with seed ") + std::to_string(seed));
      if (each.nodes) {
        const std::string text = std::string(each.text).starts_with("nodes")
                                     ? each.text
                                     : "nodes " + std::string(each.text);
        EXPECT_EQ(ItemsOf(model.session, text),
                  Where(model.nodes, [&](ITR n) { return each.nodes(Node(n)); }));
      }
      if (std::string(each.text).starts_with("nodes")) continue;
      const ElementTest test =
          each.elements ? each.elements : [&](const tagTElem& e) { return All(e, each.nodes); };
      const auto found = ItemsOf(model.session, each.text);
      EXPECT_EQ(found, Where(model.elements, [&](ITR e) { return test(Elem(e)); }));
    }
  }
}

TEST(Selection, FollowsTheMeshFromOneKindToAnother) {
  for (unsigned seed = 1; seed <= 5; ++seed) {
    const Mixed model(seed);
    const CQXDBSession& session = model.session;
    const auto inner = ItemsOf(session, "nodes sphere 2,2,2 1.5");
    const std::set<ITR> seeds(inner.begin(), inner.end());
    const auto has = [&](ITR node) { return seeds.contains(node); };
    const std::string part = "(nodes sphere 2,2,2 1.5)";
    const auto touching = ItemsOf(session, "elements touching " + part);
    EXPECT_EQ(touching, Where(model.elements, [&](ITR e) {
                return std::any_of(Elem(e).nodes.begin(), Elem(e).nodes.end(), has);
              }));
    std::set<ITR> nodes;
    for (const ITR e : touching) nodes.insert(Elem(e).nodes.begin(), Elem(e).nodes.end());
    nodes.erase(0);
    const auto is_met = [&](ITR n) { return nodes.contains(n); };
    EXPECT_EQ(ItemsOf(session, "nodes of (elements touching " + part + ")"),
              Where(model.nodes, is_met));
    nodes.insert(seeds.begin(), seeds.end());
    EXPECT_EQ(ItemsOf(session, "within 1 rings of " + part), Where(model.nodes, is_met));
    std::set<ITR> used;
    for (const ITR e : model.elements) used.insert(Elem(e).nodes.begin(), Elem(e).nodes.end());
    EXPECT_EQ(ItemsOf(session, "unused"),
              Where(model.nodes, [&](ITR n) { return !used.contains(n); }));
    // Faces of solids whose corners no other solid has.
    std::map<std::set<ITR>, int> times;
    const auto corners = [](ITR e, int f) {
      std::set<ITR> of;
      for (const std::int32_t place : ElementTopology(Elem(e).type).Face(f, false)) {
        of.insert(Elem(e).nodes[place]);
      }
      return of;
    };
    const auto is_solid = [](ITR e) {
      const ElementType* const type = FindElementType(Elem(e).type);
      return type && type->dimension == 3 && Elem(e).nodes.GetSize() == type->nodes;
    };
    const auto solids = Where(model.elements, is_solid);
    for (const ITR e : solids) {
      for (int f = 0; f < ElementTopology(Elem(e).type).Faces(); ++f) ++times[corners(e, f)];
    }
    std::set<ITR> outer;
    for (const ITR e : solids) {
      for (int f = 0; f < ElementTopology(Elem(e).type).Faces(); ++f) {
        if (times[corners(e, f)] == 1) outer.insert(e);
      }
    }
    EXPECT_EQ(ItemsOf(session, "solid and surface"),
              Where(model.elements, [&](ITR e) { return outer.contains(e); }));
  }
}

TEST(Selection, ListsWhatSetsListAndWhatNoneDoes) {
  const Mixed model(3);
  const auto& sets = Pool<tagTMset>(model.session);
  const auto lists = [&](std::initializer_list<Key> keys) {
    return Where(model.elements, [&](ITR e) {
      return std::any_of(keys.begin(), keys.end(), [&](Key key) {
        const auto& list = sets.GetAtNU(sets.Find(key)).elements;
        return std::find(list.begin(), list.end(), e) != list.end();
      });
    });
  };
  EXPECT_EQ(ItemsOf(model.session, "set left"), lists({2}));
  EXPECT_EQ(ItemsOf(model.session, "set left with children"), lists({2, 4}));
  EXPECT_EQ(ItemsOf(model.session, "set 'left side', 4"), lists({3, 4}));
  EXPECT_EQ(ItemsOf(model.session, "not orphan"), lists({2, 3, 4}));
}

TEST(Selection, SpreadsOverTheSidesOfABlockOneByOne) {
  testing::Model model;
  model.Block(2, 2, 2);
  const auto count = [&](const std::string& text) { return ItemsOf(model.session, text).size(); };
  EXPECT_EQ(count("faces surface"), 24u);
  EXPECT_EQ(count("faces all"), 48u);
  EXPECT_EQ(count("1.0"), 1u) << "face 0 of element 1 is on its lower side";
  EXPECT_EQ(count("spread 30deg from (1.0)"), 4u);
  EXPECT_EQ(count("spread 95 from (1.0)"), 24u);
  EXPECT_EQ(count("spread 1.7rad from (1.0)"), 24u);
  EXPECT_EQ(count("faces surface and facing 0,0,-2 5deg"), 4u);
  EXPECT_EQ(count("nodes of (spread 30deg from (1.0))"), 9u);
  EXPECT_EQ(count("elements of (spread 30deg from (1.0))"), 4u);
  EXPECT_EQ(count("nodes of (faces of (keys 1))"), 8u);
  EXPECT_EQ(count("faces box 0,0,0 2,2,0"), 4u);
  EXPECT_EQ(count("within 1 rings of (keys 1)"), 8u);
  EXPECT_EQ(count("nodes within 1 rings of (keys 1)"), 8u);
  EXPECT_EQ(count("connected to (keys 1)"), 8u);
}

TEST(Selection, TakesPlacesInCoordinateSystems) {
  Mixed model(2);
  auto& systems = Pool<tagTCord>(model.session);
  tagTCord turned;  // about z, with its origin aside
  turned.key = 12;
  turned.type = tagTCord::kCylindrical;
  turned.origin = {2, 2, 0};
  turned.axis_point = {2, 3, 0};
  turned.plane_point = {1, 2, 0};
  turned.plane = 0;
  ASSERT_NE(systems.InsertNU(turned), 0);
  const auto near = [](const tagTNode& n) {
    const double x = n.position.y - 2, y = 2 - n.position.x;
    const double angle = std::atan2(y, x) * 180 / M_PI;
    return std::hypot(x, y) <= 2.5 && std::abs(angle) >= 135 && n.position.z >= 0;
  };
  EXPECT_EQ(ItemsOf(model.session, "nodes box 0,135deg,0 2.5,225,9 in 12"),
            Where(model.nodes, [&](ITR n) { return near(Node(n)); }));
  EXPECT_EQ(ItemsOf(model.session, "nodes sphere 1,0,0 0.9 in 12"),
            ItemsOf(model.session, "nodes sphere 2,3,0 0.9"));
  // Angles that are whole turns apart are the same; from the first up to the second is meant.
  const auto same = ItemsOf(model.session, "nodes box 0,-10,-9 9,40,9 in 12");
  EXPECT_FALSE(same.empty());
  for (const char* const text : {"350,-9 9,400", "350,-9 9,40", "710,-9 9,760", "-370,-9 9,-320"}) {
    EXPECT_EQ(ItemsOf(model.session, fmt::format("nodes box 0,{},9 in 12", text)), same) << text;
  }
  const auto is_on_ray = ItemsOf(model.session, "nodes y = 90 in 12");
  EXPECT_FALSE(is_on_ray.empty());
  EXPECT_EQ(ItemsOf(model.session, "nodes y = -270 in 12"), is_on_ray);
  EXPECT_EQ(ItemsOf(model.session, "nodes not y != 450 in 12"), is_on_ray);
}

TEST(Selection, ToleratesNoMoreForOneNodeFarAway) {
  testing::Model model;
  model.Block(2, 2, 2);
  const auto on_floor = ItemsOf(model.session, "nodes z = 0").size();
  for (const double far : {1e10, 1e300}) {
    model.Node({far, 0, 1});
    EXPECT_EQ(ItemsOf(model.session, "nodes z = 0").size(), on_floor) << far;
  }
}

TEST(Selection, GoesFromNeighbourToNeighbour) {
  testing::Model model;
  model.Block(5, 1, 1);
  for (const auto& [rings, count] : {std::pair(0, 1), {1, 2}, {2, 3}, {9, 5}}) {
    const std::string text = fmt::format("within {} rings of (keys 1)", rings);
    EXPECT_EQ(ItemsOf(model.session, text).size(), static_cast<std::size_t>(count)) << text;
  }
  EXPECT_EQ(ItemsOf(model.session, "connected to (keys 2)").size(), 5u);
  Pool<tagTElem>(model.session).Remove(model.elements[2]);
  EXPECT_EQ(ItemsOf(model.session, "connected to (keys 2)").size(), 2u);
}

// ---- laws ---------------------------------------------------------------------------------------

TEST(Selection, KeepsTheLawsOfSets) {
  std::mt19937 random(11);
  const char* const parts[] = {
      "hex8",  "shell",      "surface",          "keys 100:160:2",  "set left",
      "z > 1", "property 3", "edge-ratio > 1.2", "box 0,0,0 2,2,2", "facing 0,0,1 60",
      "all"};
  for (int i = 0; i < 60; ++i) {
    const Mixed model(static_cast<unsigned>(i));
    const auto pick = [&] { return std::string(parts[random() % std::size(parts)]); };
    const std::string a = "(" + pick() + ")", b = "(" + pick() + ")", c = "(" + pick() + ")";
    for (const char* const kind : {"", "faces "}) {
      if (kind[0] == 0 && (a + b + c).find("facing") != std::string::npos) continue;
      SCOPED_TRACE(kind + a + b + c);
      const auto of = [&](const std::string& text) { return ItemsOf(model.session, kind + text); };
      const auto all = of("all"), of_a = of(a), of_b = of(b);
      std::vector<ITR> expected;
      EXPECT_EQ(of("not (not " + a + ")"), of_a);
      EXPECT_EQ(of("not not " + a), of_a);
      std::set_intersection(of_a.begin(), of_a.end(), of_b.begin(), of_b.end(),
                            std::back_inserter(expected));
      EXPECT_EQ(of(a + " and " + b), expected);
      expected.clear();
      std::set_union(of_a.begin(), of_a.end(), of_b.begin(), of_b.end(),
                     std::back_inserter(expected));
      EXPECT_EQ(of(a + " or " + b), expected);
      expected.clear();
      std::set_difference(all.begin(), all.end(), of_a.begin(), of_a.end(),
                          std::back_inserter(expected));
      EXPECT_EQ(of("not " + a), expected);
      EXPECT_EQ(of("not (" + a + " or " + b + ")"), of("not " + a + " and not " + b));
      EXPECT_EQ(of(a + " and " + b + " or " + c), of("(" + a + " and " + b + ") or " + c));
      EXPECT_EQ(of(a + " or " + b + " and " + c), of(a + " or (" + b + " and " + c + ")"));
    }
  }
}

TEST(Selection, ReadsEveryExampleOfItsTable) {
  Mixed model(1);
  tagTGeom geometry;
  geometry.key = 1;
  Pool<tagTGeom>(model.session).InsertNU(geometry);
  ASSERT_GT(Conditions().size(), 25u);
  for (const ConditionInfo& each : Conditions()) {
    const auto rule = SelectionRule::Parse(each.example);
    ASSERT_TRUE(rule) << each.example << ": " << rule.AsOutcome().Line();
    const auto selection = rule->Evaluate(model.session);
    if (selection) continue;
    EXPECT_NE(selection.Error().what.find("there is no"), std::string::npos)
        << selection.Error().Line();
  }
}

TEST(Selection, SettlesOfWhatItIs) {
  struct {
    const char* text;
    SelectKind kind;
  } const cases[] = {
      {"all", SelectKind::kElements},
      {"nodes all", SelectKind::kNodes},
      {"unused", SelectKind::kNodes},
      {"1.2", SelectKind::kFaces},
      {"z > 0", SelectKind::kElements},
      {"z > 0 and used", SelectKind::kNodes},
      {"hex and facing 0,0,1 5", SelectKind::kFaces},
      {"nodes of (all)", SelectKind::kNodes},
  };
  for (const auto& [text, kind] : cases) {
    const auto rule = SelectionRule::Parse(text);
    ASSERT_TRUE(rule) << text << rule.AsOutcome().Line();
    EXPECT_EQ(rule->Kind(), kind) << text;
  }
  EXPECT_EQ(SelectionRule::Parse("z > 0", SelectKind::kNodes)->Kind(), SelectKind::kNodes);
}

TEST(Selection, SaysWhatIsWrongWhereAndWhatToDo) {
  struct {
    const char* text;
    const char* line;
  } const cases[] = {
      {"", "where: column 1: the selection is empty; write one such as: hex8 and box 0,0,0 1,1,1"},
      {"hex8 and bx 0,0,0 1,1,1", "where: column 10: \"bx\" is no condition; did you mean box?"},
      {"aspect > 5", "where: column 1: \"aspect\" is no condition; did you mean aspect-ratio?"},
      {"hex8 tet4",
       "where: column 6: \"tet4\" follows a selection that is complete; join conditions by and, "
       "or"},
      {"(hex8", "where: column 1: the parenthesis is not closed; close it with )"},
      {"hex8)", "where: column 5: no parenthesis is open here; leave it out"},
      {"hex8 and",
       "where: column 9: the text ends where a condition is expected; see qxdb help "
       "select for all conditions"},
      {"box 0,0 1,1,1",
       "where: column 9: there is \"1\" where a point x,y,z is expected; write box POINT POINT [in "
       "SYSTEM], as box 0,0,0 10mm,10mm,2mm"},
      {"z > 5kg",
       "where: column 5: \"kg\" is no unit of a length or an angle; write one of m, mm, "
       "cm, um, km, in, ft, yd, deg, rad"},
      {"z > 5deg",
       "where: column 5: the number is in deg, but is a length; write it in mm or "
       "another unit of length"},
      {"volume < 5mm2",
       "where: column 10: the number is in mm2, but is a volume; write it in mm3, "
       "or without a unit"},
      {"unused and hex8",
       "where: column 12: selects elements or faces, but what stands before it nodes; put it into "
       "nodes of (...)"},
      {"type 17.3",
       "where: column 6: there is \"17.3\" where a key is expected; write type KEYS, as "
       "type 46,47"},
      {"keys 20:10",
       "where: column 6: the range is empty; write it as FIRST:LAST or FIRST:LAST:STEP"},
      {"set \"left", "where: column 5: the quote is not closed; end the name with \""},
      {"set \"Süd\" & hex",
       "where: column 11: \"&\" means nothing here; put names with signs in "
       "them in double quotes"},
      {"set lft", "where: column 5: there is no mesh set \"lft\"; did you mean \"left\"?"},
      {"property 99",
       "where: column 10: there is no property 99; see qxdb show MODEL prop for those there are"},
      {"box 0,0,0 1,1,1 in 77",
       "where: column 20: there is no coordinate system 77; name one of "
       "qxdb show MODEL cord"},
      {"facing 0,0,1mm 5",
       "where: column 12: a direction is not in mm; write its numbers without units"},
      {"set 3D-part",
       "where: column 5: there is \"3D\" where a key or a name (in double quotes unless it is one "
       "word) is expected; write set NAMES [with children], as set \"left side\" with children"},
      {"sphere 0,0,0 -1", "where: column 14: the length is negative; write a length from 0 up"},
      {"facing 0,0,1 -5deg", "where: column 14: the angle is negative; write an angle from 0 up"},
      {"within -1 rings of (keys 1)",
       "where: column 8: there is \"-1\" where a whole number from 0 up is expected; write within "
       "COUNT rings of (SELECTION), as within 2 rings of (keys 17)"},
      {"quality.box 0,0,0 1,1,1",
       "where: column 1: \"quality.box\" is no condition; did you mean box?"},
      {"z == 5", "where: column 3: \"==\" is no comparison; did you mean =?"},
      {"z => 5", "where: column 3: \"=>\" is no comparison; did you mean >=?"},
      {"facing 0,0,0 5", "where: column 8: the direction has no length; write one such as 0,0,1"},
      {"x > 1e999",
       "where: column 5: the number is too large or too small; write one within 1e308"},
  };
  const Mixed model(1);
  for (const auto& [text, line] : cases) {
    EXPECT_EQ(Select(model.session, text).AsOutcome().Line(), line);
  }
  const std::string deep = std::string(1000, '(') + "all";
  EXPECT_NE(SelectionRule::Parse(deep).AsOutcome().Line().find("nested more than 64 deep"),
            std::string::npos);
  EXPECT_FALSE(SelectionRule::Parse("hex8", SelectKind::kNodes));
}

TEST(Selection, HasATableOnItsPage) {
  const auto page = ReadWholeFile(QX_SOURCE_DIR "/docs/selecting.md");
  ASSERT_TRUE(page);
  EXPECT_NE(page->find(ConditionTable()), std::string::npos)
      << "the page has not the table of the library; put this there:\n"
      << ConditionTable();
}

TEST(Selection, AnswersAModelWithoutMesh) {
  CQXDBSession session(host::SetUpModel);
  for (const ConditionInfo& each : Conditions()) {
    const auto selection = Select(session, each.example);
    EXPECT_EQ(selection ? selection->Count() : 0, 0) << each.example;
  }
}

}  // namespace
}  // namespace qx
