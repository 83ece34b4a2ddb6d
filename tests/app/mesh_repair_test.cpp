// How elements meet, what is wrong with a mesh, and mending it as one undoable step.

#include "qx_db/app/mesh_repair.h"

#include <algorithm>
#include <cmath>
#include <gtest/gtest.h>
#include <map>
#include <numeric>
#include <random>
#include <set>

#include "qx_db/app/mesh_findings.h"
#include "qx_db/app/mesh_mass.h"
#include "qx_db/core/transaction.h"
#include "qx_db/mesh/element_access.h"
#include "qx_db/mesh/mesh_adjacency.h"
#include "qx_db/record/control_records.h"

#include "tests/mesh/mesh_builder.h"
#include "tests/silent_app_db.h"

namespace qx {
namespace {

using testing::IdealCorners;
using testing::Model;

std::map<std::string, std::size_t> CountFindings(const Model& model, double tolerance = 1e-9) {
  std::map<std::string, std::size_t> counts;
  const DenseMesh mesh(model.session);
  for (const Finding& finding : FindFaults(mesh, tolerance)) {
    if (!finding.keys.empty()) counts[std::string(finding.name)] = finding.keys.size();
  }
  return counts;
}

RepairReport Repair(Model& model, const RepairPlan& plan) {
  RepairReport report;
  CTransaction transaction(&model.session);
  transaction.Begin(u"Repair");
  EXPECT_TRUE(RepairMesh(model.session, plan, report));
  EXPECT_TRUE(transaction.Commit());
  EXPECT_EQ(model.session.Validate(), "");
  return report;
}

// ---- adjacency ----------------------------------------------------------------------------------

TEST(Adjacency, FreeFacesOfABlockAreItsBoundary) {
  Model model;
  model.Block(4, 3, 2);
  const DenseMesh mesh(model.session);
  const LooseSides loose = LooseFaces(mesh);
  EXPECT_EQ(loose.free.size(), 2u * (4 * 3 + 3 * 2 + 4 * 2));
  EXPECT_TRUE(loose.shared.empty());
  Point3 sum;
  double area = 0;
  for (const tagTElemSide& side : ToElemSides(mesh, loose.free)) {
    double n[3];
    ASSERT_EQ(model.util.GetElemSideNormal(side, n), 1);
    sum += Point3(n[0], n[1], n[2]);
    area += model.util.GetFaceArea(side);
  }
  EXPECT_LT(Length(sum), 1e-14);
  EXPECT_DOUBLE_EQ(area, 52);
  EXPECT_EQ(ConnectedParts(mesh).count, 1u);
}

TEST(Adjacency, AgreesWithCountingInAMap) {
  // Random solids of all shapes on few nodes, so that faces meet often, also three at once.
  std::mt19937 random(7);
  for (int trial = 0; trial < 30; ++trial) {
    Model model;
    for (int i = 0; i < 12; ++i) model.Node({std::cos(i), std::sin(i), 0.1 * i});
    std::vector<int> places(12);
    for (int i = 0; i < 12; ++i) places[static_cast<std::size_t>(i)] = i;
    std::map<std::set<std::uint32_t>, int> uses;
    constexpr std::int32_t kTypes[] = {8, 10, 12, 14};
    for (int e = 0; e < 12; ++e) {
      std::shuffle(places.begin(), places.end(), random);
      const std::int32_t type = kTypes[random() % 4];
      const ElementTopology topology(type);
      model.Element(type, std::vector<int>(places.begin(), places.begin() + topology.Corners()));
      for (std::int32_t f = 0; f < topology.Faces(); ++f) {
        std::set<std::uint32_t> corners;
        for (const std::int32_t c : topology.Face(f, false)) {
          corners.insert(static_cast<std::uint32_t>(places[static_cast<std::size_t>(c)]));
        }
        ++uses[corners];
      }
    }
    std::size_t free = 0, shared = 0;
    for (const auto& [corners, count] : uses) {
      free += count == 1;
      if (count > 2) shared += static_cast<std::size_t>(count);
    }
    const LooseSides loose = LooseFaces(DenseMesh(model.session));
    EXPECT_EQ(loose.free.size(), free);
    EXPECT_EQ(loose.shared.size(), shared);
  }
}

TEST(Adjacency, LooseFacesDoNotDependOnTheOrderOfElements) {
  // In random order most faces are open at the same time; two elements are there twice.
  Model ordered, shuffled;
  ordered.Block(32, 32, 32);
  const auto places_of = [&](std::size_t e) {
    std::vector<int> places;
    for (const ITR node : ordered.At(ordered.elements[e]).nodes) {
      places.push_back(static_cast<int>(NodeAt(node)->key) - 1);
    }
    return places;
  };
  for (const std::size_t twice : {0, 20010}) ordered.Element(14, places_of(twice));
  for (const ITR node : ordered.nodes) shuffled.Node(NodeAt(node)->position);
  std::vector<std::uint32_t> order(ordered.elements.size());
  std::iota(order.begin(), order.end(), 0u);
  std::shuffle(order.begin(), order.end(), std::mt19937(17));
  for (const std::uint32_t e : order) shuffled.Element(14, places_of(e));
  const auto sorted = [](const std::vector<DenseSide>& sides, auto&& number) {
    std::vector<std::pair<std::uint32_t, std::uint32_t>> out;
    for (const DenseSide& side : sides) out.push_back({number(side.element), side.side});
    std::sort(out.begin(), out.end());
    return out;
  };
  const LooseSides expected = LooseFaces(DenseMesh(ordered.session));
  const LooseSides found = LooseFaces(DenseMesh(shuffled.session));
  EXPECT_EQ(expected.free.size(), 6u * 32 * 32 - 3);
  EXPECT_EQ(expected.shared.size(), 3u * 3 + 6 * 3);
  for (const auto which : {&LooseSides::free, &LooseSides::shared}) {
    EXPECT_EQ(sorted(expected.*which, [](std::uint32_t e) { return e; }),
              sorted(found.*which, [&](std::uint32_t e) { return order[e]; }));
  }
}

TEST(Adjacency, DuplicateNodesAgreeWithComparingAll) {
  std::mt19937 random(13);
  std::uniform_real_distribution<double> place(0, 1);
  for (const double tolerance : {0.0, 1e-3, 0.05, 0.3, 10.0}) {
    Model model;
    std::vector<Point3> p;
    for (int i = 0; i < 400; ++i) {
      p.push_back(i % 5 == 4 ? p[random() % p.size()] + Point3(tolerance / 2, 0, 0)
                             : Point3(place(random), place(random), place(random)));
      model.Node(p.back());
    }
    std::vector<Duplicate> wanted;
    std::vector<std::uint32_t> kept;
    for (std::uint32_t n = 0; n < p.size(); ++n) {
      const auto near = std::find_if(kept.begin(), kept.end(), [&](std::uint32_t k) {
        return Length(p[k] - p[n]) <= tolerance;
      });
      if (near == kept.end()) {
        kept.push_back(n);
      } else {
        wanted.push_back({n, *near});
      }
    }
    EXPECT_EQ(DuplicateNodes(DenseMesh(model.session), tolerance), wanted) << tolerance;
  }
}

TEST(Adjacency, ExtremeTolerancesStayLinear) {
  Model model;
  for (int i = 0; i < 20000; ++i) model.Node({1e6 + i, 0, 0});
  const DenseMesh mesh(model.session);
  EXPECT_EQ(DuplicateNodes(mesh, 1e300).size(), 19999u);
  EXPECT_EQ(DuplicateNodes(mesh, 1e-300).size(), 0u);
}

// ---- shells -------------------------------------------------------------------------------------

TEST(OrientShells, TurnsTheMinorityOfEachPatch) {
  std::mt19937 random(17);
  for (int trial = 0; trial < 10; ++trial) {
    Model model;
    model.Sheet(6, 5);
    std::set<std::size_t> turned;
    while (turned.size() < 9) turned.insert(random() % model.elements.size());
    for (const std::size_t e : turned) ASSERT_EQ(model.util.FlipElement(model.elements[e]), 1);
    EXPECT_EQ(CountFindings(model)["misoriented-shells"], 9u);
    RepairPlan plan;
    plan.misoriented_shells = true;
    EXPECT_EQ(Repair(model, plan).shells_turned, 9);
    for (const ITR element : model.elements) {
      double n[3];
      ASSERT_EQ(model.util.GetElemSideNormal({element, 0}, n), 1);
      EXPECT_EQ(n[2], 1);
    }
  }
}

TEST(OrientShells, LeavesAOneSidedStripAlone) {
  Model model;
  constexpr int kLength = 12;
  for (int i = 0; i < kLength; ++i) {
    const double a = 2 * 3.14159265358979 * i / kLength;
    for (const double side : {-0.3, 0.3}) {
      const double r = 1 + side * std::cos(a / 2);
      model.Node({r * std::cos(a), r * std::sin(a), side * std::sin(a / 2)});
    }
  }
  for (int i = 0; i < kLength; ++i) {
    const bool last = i == kLength - 1;
    const int a = 2 * i, b = 2 * i + 1;
    const int c = last ? 0 : a + 2, d = last ? 1 : b + 2;
    // The half turn: the ends meet crosswise.
    model.Element(6, last ? std::vector<int>{a, b, c, d} : std::vector<int>{a, b, d, c});
  }
  const ShellOrientation orientation = OrientShells(DenseMesh(model.session));
  EXPECT_EQ(orientation.patches, 1u);
  EXPECT_EQ(orientation.one_sided, 1u);
  EXPECT_TRUE(orientation.to_flip.empty());
}

// ---- findings and repair ------------------------------------------------------------------------

TEST(Findings, NameEveryFault) {
  Model model;
  model.Block(2, 1, 1);
  const auto sound = CountFindings(model);
  EXPECT_EQ(sound, (std::map<std::string, std::size_t>{{"free-faces", 2}}));
  const auto find = [&](const char* name) { return CountFindings(model)[name]; };
  auto& elements = Pool<tagTElem>(model.session);
  auto& nodes = Pool<tagTNode>(model.session);

  model.Element(14, std::vector<int>{0, 1, 2});
  EXPECT_EQ(find("wrong-node-counts"), 1u);
  model.Element(20, std::vector<int>{0, 1, 2});
  EXPECT_EQ(find("unknown-types"), 1u);
  tagTElem holed = elements.GetAtNU(model.Element(8, IdealCorners(CornerShape::kTetrahedron)));
  holed.nodes[1] = 0;
  elements.SetAtNU(model.elements.back(), holed);
  EXPECT_EQ(find("missing-nodes"), 1u);
  model.Element(4, std::vector<int>{0, 1, 1});
  EXPECT_EQ(find("repeated-nodes"), 1u);
  EXPECT_EQ(find("flat-elements"), 1u) << "the same triangle";
  std::vector<Point3> inverted = IdealCorners(CornerShape::kTetrahedron);
  for (Point3& p : inverted) p = Point3(p.x, p.y, -p.z) + Point3(20, 0, 0);
  model.Element(8, inverted);
  EXPECT_EQ(find("inverted-solids"), 1u);
  tagTElem again = elements.GetAtNU(model.elements[0]);
  std::swap(again.nodes[0], again.nodes[6]);
  again.key = 500;
  elements.InsertNU(again);
  EXPECT_EQ(find("duplicate-elements"), 1u) << "whatever the order of the nodes";
  model.Node({0, 0, 0});
  EXPECT_GE(find("duplicate-nodes"), 1u);
  EXPECT_GE(find("unreferenced-nodes"), 1u);
  tagTNode node = nodes.GetAtNU(model.nodes[0]);
  node.position.x = std::nan("");
  nodes.SetAtNU(model.nodes[0], node);
  EXPECT_EQ(find("undefined-nodes"), 1u);
  const int line = model.Node({50, 0, 0});
  model.Node({60, 0, 0}), model.Node({70, 0, 0});
  model.Element(2, std::vector<int>{line, line + 1});
  EXPECT_EQ(find("without-axes"), 0u);
  tagTEcrd along;
  along.key = static_cast<Key>(model.elements.size());
  along.method = tagTEcrd::kByNode;
  along.reference_node = model.nodes[static_cast<std::size_t>(line + 2)];
  Pool<tagTEcrd>(model.session).InsertNU(along);
  EXPECT_EQ(find("without-axes"), 1u) << "its reference node is on its line";
  EXPECT_EQ(FindingNames().size(), 16u);
}

TEST(Findings, LeaveSpecialElementsToTheApplication) {
  Model model;
  model.Block(1, 1, 1);
  // Two springs without length side by side, a mass that shares its node, a skin on a face, and a
  // type of unknown shape whose node nothing else has.
  const int other = model.Node({1, 1, 1});
  for (int i = 0; i < 2; ++i) model.Element(37, std::vector<int>{7, other});
  for (int i = 0; i < 2; ++i) model.Element(1, std::vector<int>{7});
  model.Element(50, std::vector<int>{0, 1, 3, 2});
  model.Element(30, std::vector<int>{model.Node({5, 5, 5})});
  model.Element(30, std::vector<int>{});
  // Joints have the nodes of both their sides, more than a line or a plane has.
  model.Element(46, std::vector<int>{0, 1, 2, 3});
  model.Element(50, std::vector<int>{0, 1, 3, 2, 4, 5, 7, 6});
  const std::map<std::string, std::size_t> wanted{{"duplicate-nodes", 1}, {"free-faces", 1}};
  EXPECT_EQ(CountFindings(model), wanted);
  const DenseMesh mesh(model.session);
  EXPECT_EQ(mesh.ElementCount(), model.elements.size());
  EXPECT_EQ(ConnectedParts(mesh).count, 2u);
  RepairPlan plan{1e-9, true, true, true, true};
  const RepairReport report = Repair(model, plan);
  EXPECT_EQ(report.merges_refused, 1) << "a spring keeps its two nodes";
  EXPECT_FALSE(report.ChangedAnything());
}

TEST(Repair, MergesTwoBlocksIntoOneAndUndoesAsOneStep) {
  Model model;
  model.Block(2, 2, 2);
  const int first = static_cast<int>(model.nodes.size());
  model.Block(2, 2, 2);
  auto& nodes = Pool<tagTNode>(model.session);
  for (std::size_t i = static_cast<std::size_t>(first); i < model.nodes.size(); ++i) {
    tagTNode node = nodes.GetAtNU(model.nodes[i]);
    node.position.x += 2 + 1e-7;
    nodes.SetAtNU(model.nodes[i], node);
  }
  // References of other records follow: a set that lists both nodes of a pair lists one after.
  tagTMset set;
  set.key = 1;
  set.nodes = {model.nodes[2], model.nodes[static_cast<std::size_t>(first)]};
  const ITR mset = Pool<tagTMset>(model.session).InsertNU(set);
  model.session.ForgetHistory();
  const std::uint64_t before = model.session.StateHash();
  RepairPlan plan;
  plan.merge_tolerance = 1e-6;
  const RepairReport report = Repair(model, plan);
  EXPECT_EQ(report.nodes_merged, 9);
  EXPECT_EQ(report.merges_refused, 0);
  EXPECT_EQ(nodes.GetSize(), 45);
  EXPECT_EQ(Pool<tagTElem>(model.session).GetSize(), 16) << "no element died with a node";
  EXPECT_EQ(ConnectedParts(DenseMesh(model.session)).count, 1u);
  EXPECT_EQ(LooseFaces(DenseMesh(model.session)).free.size(), 40u);
  EXPECT_EQ(Pool<tagTMset>(model.session).GetAtNU(mset).nodes.GetSize(), 1);
  ASSERT_EQ(model.session.Undo(), 1);
  EXPECT_EQ(model.session.StateHash(), before);
  EXPECT_FALSE(model.session.CanUndo());
}

TEST(Repair, NeverCollapsesAnElement) {
  Model model;
  model.Block(3, 3, 1);
  RepairPlan plan;
  plan.merge_tolerance = 1.1;  // every node is near its neighbours in its own elements
  Repair(model, plan);
  EXPECT_EQ(CountFindings(model).count("repeated-nodes"), 0u);
  EXPECT_EQ(Pool<tagTElem>(model.session).GetSize(), 9);
}

TEST(Repair, MendsAllAtOnce) {
  Model model;
  model.Block(3, 2, 1);
  for (const std::size_t e : {0u, 3u}) model.util.FlipElement(model.elements[e]);
  auto& elements = Pool<tagTElem>(model.session);
  tagTElem again = elements.GetAtNU(model.elements[2]);
  again.key = 77;
  tagTMset only_copy, both;
  only_copy.key = 1;
  only_copy.elements = {elements.InsertNU(again)};
  both.key = 2;
  both.elements = {model.elements[1], only_copy.elements[0], model.elements[2]};
  auto& sets = Pool<tagTMset>(model.session);
  const ITR first_set = sets.InsertNU(only_copy), second_set = sets.InsertNU(both);
  model.Node({9, 9, 9});
  const ITR pointed_at = model.nodes[static_cast<std::size_t>(model.Node({8, 8, 8}))];
  model.Element(2, std::vector<int>{0, 1});
  tagTEcrd orientation;
  orientation.key = static_cast<Key>(model.elements.size());
  orientation.method = tagTEcrd::kByNode;
  orientation.reference_node = pointed_at;
  ASSERT_NE(Pool<tagTEcrd>(model.session).InsertNU(orientation), 0u);
  RepairPlan plan;
  plan.duplicate_elements = plan.inverted_solids = plan.misoriented_shells = true;
  plan.unreferenced_nodes = true;
  const RepairReport report = Repair(model, plan);
  EXPECT_EQ(report.solids_turned, 2);
  EXPECT_EQ(report.elements_removed, 1);
  EXPECT_EQ(sets.GetAtNU(first_set).elements, TArray<ITR>{model.elements[2]})
      << "a set lists what stays";
  EXPECT_EQ(sets.GetAtNU(second_set).elements, (TArray<ITR>{model.elements[1], model.elements[2]}));
  EXPECT_EQ(report.nodes_removed, 1);
  EXPECT_EQ(report.nodes_kept, 1) << "a beam is turned by it";
  EXPECT_FALSE(KeyedSetBase::IsRemoved(pointed_at));
  EXPECT_EQ(CountFindings(model), (std::map<std::string, std::size_t>{{"free-faces", 6}}))
      << "what is kept is not found again";
  EXPECT_FALSE(Repair(model, plan).ChangedAnything()) << "nothing is left to mend";
}

// ---- mass ---------------------------------------------------------------------------------------

/// An application that knows densities by property and one thickness.
struct MassApplication : SilentAppDB {
  double GetElemMatlDensity(CQXDBSession*, ITR elem) override {
    return ElementAt(elem)->type >= 8 ? 2.7 : 0;
  }
  double GetFaceThickAvg(CQXDBSession*, ITR) override { return 0.25; }
  double GetBeamVolume(CQXDBSession*, ITR) override { return 0.125; }
};

MassAssumptions WithDensity(double density) {
  MassAssumptions assumptions;
  assumptions.density = density;
  return assumptions;
}

TEST(Mass, AsksTheApplicationAndThenTakesWhatIsGiven) {
  Model model;
  model.Block(2, 1, 1);  // two unit cubes
  model.Sheet(1, 1);
  model.Element(2, std::vector<int>{0, 1});
  const DenseMesh mesh(model.session);
  const MassReport nobody = ComputeMass(model.session, mesh, {});
  EXPECT_FALSE(nobody.has_application);
  EXPECT_EQ(nobody.total.mass.size, 0);
  EXPECT_EQ(nobody.without_density, 4);
  EXPECT_EQ(nobody.without_section, 2);
  EXPECT_NEAR(nobody.total.volume, 2, 1e-14);
  EXPECT_NEAR(nobody.total.area, 1, 1e-14);
  EXPECT_NEAR(nobody.total.length, 1, 1e-14);
  EXPECT_EQ(model.util.GetElemVolume(model.elements[2]), 0.0) << "a shell, and nobody to ask";

  const MassApplication application;
  const MassReport asked = ComputeMass(model.session, mesh, WithDensity(10));
  EXPECT_TRUE(asked.has_application);
  EXPECT_EQ(asked.without_density, 0);
  EXPECT_EQ(asked.without_section, 0);
  EXPECT_NEAR(asked.total.mass.size, 2 * 2.7 + 10 * 0.25 + 10 * 0.125, 1e-12);
  EXPECT_EQ(model.util.GetElemVolume(model.elements[0]), 1);
}

TEST(Mass, AssumptionsAddToWhatTheApplicationKnowsInPart) {
  // Three of non-structural mass on every element, which is all that it weighs where no density is
  // known; solids have theirs.
  struct Laden : MassApplication {
    using IAppDB::GetMSetMass;
    double GetMSetMass(CQXDBSession*, const TArray<ITR>& elems) override {
      return 3 + (ElementAt(elems[0])->type >= 8 ? 2.7 : 0);
    }
  };
  Model model;
  model.Block(1, 1, 1);
  model.Sheet(1, 1);
  const DenseMesh mesh(model.session);
  const Laden application;
  EXPECT_NEAR(ComputeMass(model.session, mesh, {}).total.mass.size, 5.7 + 3, 1e-12);
  EXPECT_NEAR(ComputeMass(model.session, mesh, WithDensity(10)).total.mass.size, 5.7 + 3 + 2.5,
              1e-12);
}

TEST(Mass, OfTwoHexahedraIsThePublishedOne) {
  // Two unit hexahedra of aluminium side by side, one listed inside out.
  Model model;
  model.Block(2, 1, 1);
  model.util.FlipElement(model.elements[1]);
  const MassReport report = ComputeMass(model.session, DenseMesh(model.session), WithDensity(2.7));
  const RigidBody body = ToRigidBody(report.total.mass);
  EXPECT_NEAR(report.total.volume, 2.0, 1e-12);
  EXPECT_NEAR(body.mass, 5.4, 1e-12);
  EXPECT_LT(Length(body.center - Point3(1, 0.5, 0.5)), 1e-14);
  EXPECT_NEAR(body.xx, 5.4 / 12 * 2, 1e-12);
  EXPECT_NEAR(body.zz, 5.4 / 12 * 5, 1e-12);
}

}  // namespace
}  // namespace qx
