// Skins, extrusions and merged nodes: volume, area, orientation, counts, sets, undo.

#include "qx_db/shape/faces.h"

#include "qx_db/app/mesh_repair.h"
#include "qx_db/select/selection.h"

#include "tests/shape/shape_model.h"

namespace qx {
namespace {

using namespace testing;

std::vector<tagTElemSide> Faces(const CQXDBSession& session, const char* where) {
  const auto selected = Select(session, where, SelectKind::kFaces);
  EXPECT_TRUE(selected) << selected.AsOutcome().Line();
  return {selected->faces.begin(), selected->faces.end()};
}

const tagTMset* SetOf(const CQXDBSession& session, const std::string& name) {
  for (const ITR at : All<tagTMset>(session)) {
    const auto& set = Pool<tagTMset>(session).GetAtNU(at);
    if (set.name.Text().ToUtf8() == name) return &set;
  }
  return nullptr;
}

/// What the shells enclose, positive when they look outwards (the divergence theorem).
double Enclosed(const TArray<ITR>& shells) {
  double volume = 0;
  for (const ITR at : shells) {
    Point3 p[8];
    CornerShape shape;
    EXPECT_TRUE(CornersOf(*ElementAt(at), shape, p));
    volume += Triple(p[0], p[1], p[2]) / 6;
    if (shape == CornerShape::kQuadrilateral) volume += Triple(p[0], p[2], p[3]) / 6;
  }
  return volume;
}

TEST(Skin, EnclosesTheSolidsFromOutside) {
  for (const bool quadratic : {false, true}) {
    std::mt19937 random(4);
    Model model;
    MixedBlock(model, random, quadratic);
    CQXDBSession& session = model.session;
    const std::uint64_t before = session.StateHash();
    const double volume = SizesOf(session).total[3];
    const auto elements = All<tagTElem>(session);
    std::size_t outer = 0;
    {
      const DenseMesh mesh(session);
      outer = OuterFaces(mesh).size();
    }
    const auto faces = FacesAround(elements);
    EXPECT_EQ(faces.size(), outer);
    for (const ITR plate : elements) {  // one face is covered already
      if (topology::DimensionOf(ElementAt(plate)->type) != 2) continue;
      ASSERT_TRUE(AsStep(session, [&] {
        Pool<tagTElem>(session).Remove(plate);
        return Outcome();
      }));
    }
    const std::uint64_t bare = session.StateHash();
    ShapeReport report;
    ASSERT_TRUE(AsStep(session, [&] { return MakeSkin(session, faces, {"skin", 0}, report); }));
    EXPECT_TRUE(report.notes.empty());
    const tagTMset* set = SetOf(session, "skin");
    ASSERT_TRUE(set);
    EXPECT_EQ(static_cast<std::size_t>(set->elements.GetSize()), outer);
    EXPECT_NEAR(Enclosed(set->elements), volume, 1e-12);
    std::set<ITR> corners;
    std::set<std::pair<ITR, ITR>> edges;
    for (const ITR at : set->elements) {
      const tagTElem& shell = *ElementAt(at);
      const ElementTopology type(shell.type);
      EXPECT_EQ(type.Nodes() > type.Corners(), quadratic);
      EXPECT_EQ(shell.nodes.GetSize(), type.Nodes());
      for (std::int32_t e = 0; e < type.Edges(); ++e) {
        const auto ends = type.Edge(e, false);
        corners.insert(shell.nodes[ends[0]]);
        edges.insert(std::minmax(+shell.nodes[ends[0]], +shell.nodes[ends[1]]));
      }
    }
    EXPECT_EQ(corners.size() + outer - edges.size(), 2u);
    const DenseMesh mesh(session);
    EXPECT_TRUE(LooseEdges(mesh).free.empty()) << "a closed surface";
    ShapeReport again;
    const Outcome twice = AsStep(session, [&] {
      return MakeSkin(session, faces, {"skin", 0}, again);
    });
    EXPECT_FALSE(twice) << "there is a shell on every face";
    ASSERT_TRUE(session.Undo());
    EXPECT_EQ(session.StateHash(), bare);
    ASSERT_TRUE(session.Undo());
    EXPECT_EQ(session.StateHash(), before);
  }
}

struct ExtrusionCase {
  const char* name;
  bool triangles, quadratic, by_height;
  Vector3 by;  ///< its z is the height
  int layers;
};

TEST(Extrusion, HasTheVolumeOfItsBaseTimesItsHeight) {
  const ExtrusionCase kCases[] = {
      {"quads upwards", false, false, false, {0.5, 0.2, 2}, 3},
      {"quads downwards", false, false, false, {0, 0, -2}, 1},
      {"triangles along normals", true, false, true, {0, 0, 1.5}, 2},
      {"quads of 8 nodes against normals", false, true, true, {0, 0, -1}, 2},
      {"triangles of 6 nodes", true, true, false, {0.3, 0, 1}, 2},
  };
  for (const ExtrusionCase& c : kCases) {
    SCOPED_TRACE(c.name);
    Model model;
    model.Sheet(3, 2);
    CQXDBSession& session = model.session;
    if (c.triangles) Do(session, SplitElements, All<tagTElem>(session));
    if (c.quadratic) Do(session, ToQuadratic, All<tagTElem>(session));
    const std::uint64_t before = session.StateHash();
    const auto faces = Faces(session, "all");
    const auto base_nodes = All<tagTNode>(session).size();
    ExtrusionPlan plan;
    if (!c.by_height) plan.by = c.by;
    plan.height = c.by.z;
    plan.layers = c.layers;
    plan.set = "part";
    ShapeReport report;
    const Outcome done = AsStep(session, [&] { return Extrude(session, faces, plan, report); });
    ASSERT_TRUE(done) << done.Line();
    const Sizes now = SizesOf(session);
    EXPECT_NEAR(now.total[3], 6 * std::abs(c.by.z), 1e-12);
    EXPECT_GT(now.least_volume, 0);
    EXPECT_EQ(now.count[3], static_cast<std::int64_t>(faces.size()) * c.layers);
    EXPECT_EQ(report.made.size(), faces.size() * static_cast<std::size_t>(c.layers));
    const DenseMesh mesh(session);
    EXPECT_EQ(EulerOfSurface(mesh), 2);
    for (std::uint32_t e = 0; e < mesh.ElementCount(); ++e) {
      ASSERT_EQ(mesh.Faults(e), 0);
      const ElementTopology type(mesh.Element(e).type);
      EXPECT_EQ(type.Nodes() > type.Corners(), c.quadratic);
      for (std::int32_t edge = 0; c.quadratic && edge < type.Edges(); ++edge) {
        const auto places = type.Edge(edge, true);
        const auto p = [&](std::size_t i) {
          return mesh.Position(mesh.Nodes(e)[static_cast<std::size_t>(places[i])]);
        };
        EXPECT_LT(Distance(p(2), 0.5 * (p(0) + p(1))), 1e-14);
      }
    }
    const auto heights = [&](const char* name, double low, double high) {
      const tagTMset* set = SetOf(session, name);
      ASSERT_TRUE(set) << name;
      for (const ITR node : set->nodes) {
        const double z = NodeAt(node)->position.z;
        EXPECT_GE(z, std::min(low, high) - 1e-12);
        EXPECT_LE(z, std::max(low, high) + 1e-12);
      }
    };
    heights("part bottom", 0, 0);
    heights("part top", c.by.z, c.by.z);
    heights("part sides", 0, c.by.z);
    EXPECT_EQ(static_cast<std::size_t>(SetOf(session, "part bottom")->nodes.GetSize()), base_nodes);
    EXPECT_EQ(static_cast<std::size_t>(SetOf(session, "part top")->nodes.GetSize()), base_nodes);
    // Ten edges around; of quadratic ones with a node each, and columns with one at half height.
    const int levels = c.layers + 1;
    EXPECT_EQ(SetOf(session, "part sides")->nodes.GetSize(),
              10 * levels + (c.quadratic ? 10 * levels + 10 * c.layers : 0));
    EXPECT_EQ(SetOf(session, "part")->elements.GetSize(), now.count[3]);
    ASSERT_TRUE(session.Undo());
    EXPECT_EQ(session.StateHash(), before);
  }
}

TEST(Extrusion, HangsTogetherWithTheSolidAndRefusesWhatHasNoHeight) {
  Model model;
  model.Block(2, 2, 1);
  CQXDBSession& session = model.session;
  const auto top = Faces(session, "surface and facing 0,0,1 1deg");
  ASSERT_EQ(top.size(), 4u);
  ExtrusionPlan plan;
  plan.height = 0.5;
  plan.layers = 2;
  plan.set = "cap";
  ShapeReport report;
  ASSERT_TRUE(AsStep(session, [&] { return Extrude(session, top, plan, report); }));
  EXPECT_NEAR(SizesOf(session).total[3], 6, 1e-14);
  const DenseMesh mesh(session);
  EXPECT_EQ(ConnectedParts(mesh).count, 1u);
  EXPECT_EQ(OuterFaces(mesh).size(), 8u + 8 * 3);

  const std::uint64_t before = session.StateHash();
  plan.by = Vector3(1, 0, 0);
  const auto side = Faces(session, "surface and facing 0,0,1 1deg");
  const Outcome flat = AsStep(session, [&] { return Extrude(session, side, plan, report); });
  ASSERT_FALSE(flat);
  EXPECT_NE(flat.Line().find("lies along the way"), std::string::npos) << flat.Line();
  EXPECT_EQ(session.StateHash(), before);
}

TEST(Merging, TakesOnlyTheNodesThatWereChosen) {
  // Three sheets in a row, each with nodes of its own: two seams of three pairs.
  Model model;
  for (int sheet = 0; sheet < 3; ++sheet) {
    const std::size_t first = model.nodes.size();
    model.Sheet(1, 2);
    for (std::size_t i = first; i < model.nodes.size(); ++i) {
      tagTNode node = *NodeAt(model.nodes[i]);
      node.position.x += sheet;
      Pool<tagTNode>(model.session).SetAtNU(model.nodes[i], node);
    }
  }
  CQXDBSession& session = model.session;
  const std::uint64_t before = session.StateHash();
  const auto seam = Select(session, "nodes x = 1");
  ASSERT_TRUE(seam);
  const std::vector<ITR> among(seam->items.begin(), seam->items.end());
  ASSERT_EQ(among.size(), 6u);
  RepairPlan plan;
  plan.merge_tolerance = 1e-9;
  plan.merge_among = among;
  RepairReport report;
  ASSERT_TRUE(AsStep(session, [&]() -> Outcome {
    return RepairMesh(session, plan, report) ? Outcome() : Failure{"", "", "refused", ""};
  }));
  EXPECT_EQ(report.nodes_merged, 3);
  const DenseMesh mesh(session);
  EXPECT_EQ(ConnectedParts(mesh).count, 2u);
  ASSERT_TRUE(session.Undo());
  EXPECT_EQ(session.StateHash(), before);
}

}  // namespace
}  // namespace qx
