// The CAD session on real geometry: the same promises as the analytic one, real parts, bad files.

#include "adapters/occt/occt_cad.h"

#include <BRepBuilderAPI_MakeEdge.hxx>
#include <BRepBuilderAPI_MakePolygon.hxx>
#include <BRepPrimAPI_MakeCone.hxx>
#include <BRep_Builder.hxx>
#include <Geom_BSplineCurve.hxx>
#include <TColStd_Array1OfInteger.hxx>
#include <TColStd_Array1OfReal.hxx>
#include <TColgp_Array1OfPnt.hxx>
#include <TopoDS.hxx>
#include <TopoDS_Compound.hxx>
#include <TopoDS_Edge.hxx>
#include <gp_Circ.hxx>
#include <map>

#include "qx_db/model/seed_match.h"
#include "qx_db/platform/file.h"

#include "tests/corpus.h"
#include "tests/model/size_samples.h"
#include "tests/scratch_folder.h"

namespace qx {
namespace {

using namespace test;

gp_Pnt ToPnt(const CadPoint& p) { return {p.x, p.y, p.z}; }

/// A spline over knots 0, 1, ... of that degree, its pieces given by their control points.
TopoDS_Edge SplineEdge(const std::vector<CadPoint>& poles, int degree) {
  const int pieces = static_cast<int>(poles.size() - 1) / degree;
  TColgp_Array1OfPnt points(1, static_cast<int>(poles.size()));
  for (int i = 1; i <= points.Length(); ++i)
    points(i) = ToPnt(poles[static_cast<std::size_t>(i - 1)]);
  TColStd_Array1OfReal knots(1, pieces + 1);
  TColStd_Array1OfInteger multiplicities(1, pieces + 1);
  for (int i = 1; i <= pieces + 1; ++i) {
    knots(i) = i - 1;
    multiplicities(i) = i == 1 || i == pieces + 1 ? degree + 1 : degree;
  }
  const Handle(Geom_BSplineCurve) curve =
      new Geom_BSplineCurve(points, knots, multiplicities, degree);
  return BRepBuilderAPI_MakeEdge(curve).Edge();
}

/// The control points of the pieces of the analytic session's spline, from its tangents.
std::vector<CadPoint> SplinePoles() {
  AnalyticCad cad;
  AddKnownEdges(cad);
  const auto derivative = [&](double at) {
    constexpr double kStep = 1e-5;
    const double low = std::max(at - kStep, 0.0);
    const double high = std::min(at + kStep, 3.0);
    std::array<double, 4> t{low, (low * 2 + high) / 3, (low + high * 2) / 3, high};
    std::array<CadPoint, 4> p;
    EXPECT_TRUE(cad.GetPoints(5, t, p.data()));
    return (1 / (high - low)) * (p[3] - p[0]);
  };
  const auto& points = SamplePoints();
  std::vector<CadPoint> poles{points[0]};
  for (std::size_t i = 0; i + 1 < points.size(); ++i) {
    const double at = static_cast<double>(i);
    poles.push_back(points[i] + (1.0 / 3) * derivative(at));
    poles.push_back(points[i + 1] - (1.0 / 3) * derivative(at + 1));
    poles.push_back(points[i + 1]);
  }
  return poles;
}

/// The curves of KnownEdges as edges of the kernel.
TopoDS_Shape KnownShape() {
  TopoDS_Compound all;
  BRep_Builder builder;
  builder.MakeCompound(all);
  builder.Add(all, BRepBuilderAPI_MakeEdge(gp_Pnt(1, 1, 1), gp_Pnt(4, 5, 1)).Edge());
  const gp_Circ arc(gp_Ax2(gp_Pnt(0, 0, 1), gp_Dir(0, 0, 1), gp_Dir(1, 0, 0)), 2);
  builder.Add(all, BRepBuilderAPI_MakeEdge(arc, 0, std::numbers::pi / 2).Edge());
  const gp_Circ circle(gp_Ax2(gp_Pnt(0, 0, 0), gp_Dir(1, 0, 0), gp_Dir(0, 1, 0)), 3);
  builder.Add(all, BRepBuilderAPI_MakeEdge(circle).Edge());
  builder.Add(all, SplineEdge(SamplePoints(), 1));
  builder.Add(all, SplineEdge(SplinePoles(), 3));
  return all;
}

TEST(OcctCad, KeepsThePromisesOfASession) {
  const auto cad = occt::MakeCadSession(KnownShape());
  ASSERT_TRUE(cad);
  CheckKnownEdges(*cad);
}

TEST(OcctCad, AgreesWithTheAnalyticSession) {
  const auto cad = occt::MakeCadSession(KnownShape());
  AnalyticCad analytic;
  AddKnownEdges(analytic);
  for (int edge = 1; edge <= 5; ++edge) {
    const double length = analytic.GetEdgeLength(edge);
    EXPECT_NEAR(cad->GetEdgeLength(edge), length, 1e-6 * length);
    for (const tagTSzct& control : ControlsFor(length)) {
      EdgeSeeds theirs;
      EdgeSeeds ours;
      ASSERT_TRUE(SeedEdge(*cad, edge, control, false, theirs)) << control.method;
      ASSERT_TRUE(SeedEdge(analytic, edge, control, false, ours));
      ASSERT_EQ(theirs.points.size(), ours.points.size());
      for (std::size_t i = 0; i < ours.points.size(); ++i) {
        ExpectNear(theirs.points[i], ours.points[i], 1e-5 * length, "the same seeds");
      }
    }
  }
}

TEST(OcctCad, ScalesLengthsAndLeavesDegenerateEdgesAlone) {
  const auto cad = occt::MakeCadSession(BRepPrimAPI_MakeCone(3, 0, 4).Shape(), 0.001);
  ASSERT_TRUE(cad);
  ASSERT_EQ(cad->GetTopology().bodies, (std::vector<std::string>{"solid"}));
  int degenerate = 0;
  double longest = 0;
  for (int edge = 1; edge <= cad->GetEdgeCount(); ++edge) {
    longest = std::max(longest, cad->GetEdgeLength(edge));
    if (cad->GetEdgeKind(edge) != EdgeKind::kDegenerate) {
      CheckCurveLaws(*cad, edge);
      continue;
    }
    ++degenerate;
    EdgeSeeds seeds;
    EXPECT_FALSE(SeedEdge(*cad, edge, ByDivisions(3), false, seeds));
  }
  EXPECT_EQ(degenerate, 1);
  EXPECT_NEAR(longest, 0.006 * std::numbers::pi, 1e-12);
}

// ---- files --------------------------------------------------------------------------------------

struct Part {
  const char* file;
  int bodies;
  int faces;
  int edges;
};
// Edges of solids as the sources count them; the surface file holds one trimmed face.
constexpr Part kParts[] = {
    {"cad/cube.step", 1, 6, 12},
    {"cad/cube.iges", 0, 6, 0},
    {"cad/cube.brep", 1, 6, 12},
    {"cad/NIST_MBE_PMI_11.stp", 1, 10, 26},
    {"cad/NIST_MBE_PMI_1.stp", 1, 113, 310},
    {"cad/DTMB-5415_bulbous_bow.iges", 0, 1, 0},
};

class CorpusPart : public testing::TestWithParam<Part> {};

TEST_P(CorpusPart, SeedsEveryEdgeByEveryMethod) {
  QX_REQUIRE_CORPUS(path, GetParam().file);
  const auto cad = occt::ReadCadFile(path);
  ASSERT_TRUE(cad) << cad.Error().Line();
  ICADSession& part = **cad;
  const CadTopology& topology = part.GetTopology();
  EXPECT_EQ(static_cast<int>(topology.faces.size()), GetParam().faces);
  if (GetParam().bodies > 0) {
    EXPECT_EQ(static_cast<int>(topology.bodies.size()), GetParam().bodies);
    int curves = 0;
    for (int edge = 1; edge <= part.GetEdgeCount(); ++edge) curves += part.GetEdgeLength(edge) > 0;
    EXPECT_EQ(curves, GetParam().edges);
  }
  ASSERT_GE(part.GetEdgeCount(), 4);
  std::map<std::size_t, SeedsByEdge> by_control;
  EdgeSeeds seeds;
  for (int edge = 1; edge <= part.GetEdgeCount(); ++edge) {
    const double length = part.GetEdgeLength(edge);
    if (part.GetEdgeKind(edge) == EdgeKind::kDegenerate) continue;
    CheckCurveLaws(part, edge);
    const auto controls = ControlsFor(length);
    for (std::size_t i = 0; i < controls.size(); ++i) {
      SCOPED_TRACE(testing::Message() << "edge " << edge << " control " << i);
      const bool reversed = (static_cast<std::size_t>(edge) + i) % 2 == 1;
      const Outcome seeded = SeedEdge(part, edge, controls[i], reversed, seeds);
      ASSERT_TRUE(seeded) << seeded.Line();
      CheckSeedLaws(part, edge, seeds);
      if (i < 2) by_control[i][edge] = seeds;
    }
  }
  for (const auto& [control, all] : by_control) {
    const auto mismatches = CheckSeedsMatch(part, {}, all);
    EXPECT_TRUE(mismatches.empty()) << mismatches.size() << " gaps, first: edge "
                                    << mismatches[0].edge << " " << mismatches[0].what;
  }
}

INSTANTIATE_TEST_SUITE_P(Parts, CorpusPart, testing::ValuesIn(kParts));

TEST(OcctFile, TheSameCubeInThreeFormats) {
  for (const char* file : {"cad/cube.step", "cad/cube.iges", "cad/cube.brep"}) {
    QX_REQUIRE_CORPUS(path, file);
    const auto cad = occt::ReadCadFile(path);
    ASSERT_TRUE(cad);
    const double side = (*cad)->GetEdgeLength(1);
    for (int edge = 1; edge <= (*cad)->GetEdgeCount(); ++edge) {
      EXPECT_NEAR((*cad)->GetEdgeLength(edge), side, 1e-6 * side) << file;
    }
    const auto in_metres = occt::ReadCadFile(path, 1);
    ASSERT_TRUE(in_metres);
    EXPECT_NEAR((*in_metres)->GetEdgeLength(1), side / 1000, 1e-9 * side);
  }
}

TEST(OcctFile, RefusesEveryFileThatWasCutShort) {
  const ScratchFolder folder;
  for (const char* file : {"cad/cube.step", "cad/cube.iges", "cad/cube.brep"}) {
    QX_REQUIRE_CORPUS(path, file);
    const std::string whole = *ReadWholeFile(path);
    const std::string cut = folder.Path("cut" + std::filesystem::path(path).extension().string());
    const auto end = whole.find_last_not_of(" \r\n") + 1;
    for (std::size_t size = 0; size < end; size += 1 + end / 97) {
      ASSERT_TRUE(WriteWholeFile(cut, whole.substr(0, size)));
      const auto cad = occt::ReadCadFile(cut);
      ASSERT_FALSE(cad) << file << " cut at " << size;
      EXPECT_EQ(cad.Error().file, cut);
      EXPECT_FALSE(cad.Error().remedy.empty());
    }
    ASSERT_TRUE(WriteWholeFile(cut, whole.substr(0, end - 1)));
    EXPECT_FALSE(occt::ReadCadFile(cut)) << "the last character";
  }
}

TEST(OcctFile, SurvivesWrongCharacters) {
  const ScratchFolder folder;
  std::mt19937 random(5);
  int refused = 0;
  for (const char* file : {"cad/cube.step", "cad/cube.iges"}) {
    QX_REQUIRE_CORPUS(path, file);
    const std::string whole = *ReadWholeFile(path);
    const std::string wrong =
        folder.Path("wrong" + std::filesystem::path(path).extension().string());
    for (int i = 0; i < 40; ++i) {
      std::string bytes = whole;
      bytes[random() % bytes.size()] = "0123456789-.() *+#,;A"[random() % 21];
      ASSERT_TRUE(WriteWholeFile(wrong, bytes));
      const auto cad = occt::ReadCadFile(wrong);
      if (cad) continue;
      ++refused;
      EXPECT_EQ(cad.Error().file, wrong);
    }
  }
  EXPECT_GT(refused, 3) << "references that lead nowhere";
}

TEST(OcctFile, RefusesWhatIsNoCadFile) {
  const ScratchFolder folder;
  const auto refused = [&](const std::string& name, const std::string& text) {
    const std::string path = folder.Path(name);
    EXPECT_TRUE(WriteWholeFile(path, text));
    const auto cad = occt::ReadCadFile(path);
    EXPECT_FALSE(cad) << name;
    return cad ? std::string() : cad.Error().Line();
  };
  EXPECT_NE(refused("a.step", "").find("STEP"), std::string::npos);
  EXPECT_NE(refused("b.igs", std::string(80, 'S') + "\n").find("IGES"), std::string::npos);
  EXPECT_NE(refused("c.brep", "CASCADE Topology V1\n*\n+1 0\n").find("BREP"), std::string::npos);
  EXPECT_NE(refused("d.dwg", "x").find("format"), std::string::npos);
  refused("e.step",
          "ISO-10303-21;\nHEADER;\nENDSEC;\nDATA;\n#1=VERTEX_LOOP('',#1);\nENDSEC;\n"
          "END-ISO-10303-21;\n");
  EXPECT_FALSE(occt::ReadCadFile(folder.Path("missing.step")));
}

}  // namespace
}  // namespace qx
