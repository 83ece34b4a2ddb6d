// Free faces, grouping and quality of whole meshes beside VTK, where it is there at configuration
// time; each also of elements and nodes in random order.

#ifdef QX_BENCH_VTK

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <list>
#include <numeric>
#include <random>
#include <vtkCellArray.h>
#include <vtkConnectivityFilter.h>
#include <vtkDataSetSurfaceFilter.h>
#include <vtkMeshQuality.h>
#include <vtkNew.h>
#include <vtkPoints.h>
#include <vtkPolyData.h>
#include <vtkUnstructuredGrid.h>

#include "qx_db/app/mesh_util.h"
#include "qx_db/mesh/mesh_adjacency.h"
#include "qx_db/mesh/quality_values.h"
#include "qx_db/model/standard_pools.h"
#include "qx_db/platform/parallel.h"

#include "bench/harness.h"

namespace qx::bench {
namespace {

enum class Order { kAsMade, kRandom };

/// Element types by this library's code and the peer's, and how a cell of a block, or of a sheet,
/// is made of elements.
struct Kind {
  const char* name;
  std::int32_t code;
  int cell_type;
  bool is_solid;
  std::vector<std::vector<int>> parts;  ///< corners of a cell, 0 to 7 or 0 to 3, for each element
};

const Kind kHexahedra{"hexahedra", 14, VTK_HEXAHEDRON, true, {{0, 1, 2, 3, 4, 5, 6, 7}}};
const Kind kTetrahedra{
    "tetrahedra",
    8,
    VTK_TETRA,
    true,
    {{0, 1, 2, 6}, {0, 2, 3, 6}, {0, 3, 7, 6}, {0, 7, 4, 6}, {0, 4, 5, 6}, {0, 5, 1, 6}}};
const Kind kQuadrilaterals{"quadrilaterals", 6, VTK_QUAD, false, {{0, 1, 2, 3}}};
const Kind kTriangles{"triangles", 4, VTK_TRIANGLE, false, {{0, 1, 2}, {0, 2, 3}}};

/// Blocks beside each other, each of `side` slightly curved cells each way, as a model and as a
/// grid of the peer.
struct PeerModel {
  CQXDBSession session{AddStandardPools};
  TArray<ITR> elements;
  vtkNew<vtkUnstructuredGrid> grid;

  PeerModel(const Kind& kind, int side, Order order, int blocks = 1) {
    session.EnableRecording(false);
    const int layers = kind.is_solid ? side + 1 : 1;
    std::vector<Point3> points;
    std::vector<std::vector<int>> cells;
    for (int block = 0; block < blocks; ++block) {
      const auto first = static_cast<int>(points.size());
      for (int k = 0; k < layers; ++k) {
        for (int j = 0; j <= side; ++j) {
          for (int i = 0; i <= side; ++i) {
            points.push_back({2.0 * side * block + i + 0.1 * std::sin(0.1 * j),
                              j + 0.1 * std::sin(0.1 * k), k + 0.2 * std::sin(0.3 * i)});
          }
        }
      }
      constexpr int kCorner[8][3] = {{0, 0, 0}, {1, 0, 0}, {1, 1, 0}, {0, 1, 0},
                                     {0, 0, 1}, {1, 0, 1}, {1, 1, 1}, {0, 1, 1}};
      for (int cell = 0; cell < side * side * std::max(layers - 1, 1); ++cell) {
        const int at[3] = {cell % side, cell / side % side, cell / side / side};
        for (const std::vector<int>& part : kind.parts) {
          cells.emplace_back();
          for (const int c : part) {
            const int row = at[1] + kCorner[c][1] + (side + 1) * (at[2] + kCorner[c][2]);
            cells.back().push_back(first + at[0] + kCorner[c][0] + (side + 1) * row);
          }
        }
      }
    }
    if (order == Order::kRandom) {
      std::mt19937 random(7);
      std::vector<int> now(points.size());
      std::iota(now.begin(), now.end(), 0);
      std::shuffle(now.begin(), now.end(), random);
      std::vector<Point3> moved(points.size());
      for (std::size_t i = 0; i < points.size(); ++i) {
        moved[static_cast<std::size_t>(now[i])] = points[i];
      }
      points.swap(moved);
      for (std::vector<int>& cell : cells) {
        for (int& node : cell) node = now[static_cast<std::size_t>(node)];
      }
      std::shuffle(cells.begin(), cells.end(), random);
    }
    Fill(kind, points, cells);
  }

 private:
  void Fill(const Kind& kind, const std::vector<Point3>& points,
            const std::vector<std::vector<int>>& cells) {
    vtkNew<vtkPoints> positions;
    positions->SetDataType(VTK_DOUBLE);
    std::vector<ITR> nodes;
    tagTNode node;
    for (const Point3& p : points) {
      ++node.key;
      node.position = p.As<tagTVector3<double>>();
      nodes.push_back(Pool<tagTNode>(session).InsertNU(node));
      positions->InsertNextPoint(p.x, p.y, p.z);
    }
    grid->SetPoints(positions);
    grid->Allocate(static_cast<vtkIdType>(cells.size()));
    tagTElem element;
    element.type = kind.code;
    for (const std::vector<int>& cell : cells) {
      ++element.key;
      element.nodes.RemoveAll();
      for (const int n : cell) element.nodes.Add(nodes[static_cast<std::size_t>(n)]);
      elements.Add(Pool<tagTElem>(session).InsertNU(element));
      const std::vector<vtkIdType> ids(cell.begin(), cell.end());
      grid->InsertNextCell(kind.cell_type, static_cast<vtkIdType>(ids.size()), ids.data());
    }
  }
};

void CompareFreeFaces(const std::string& what, PeerModel& mesh) {
  Compare(
      "free faces of " + what, "vtkDataSetSurfaceFilter", 0.7,
      [&] {
        return Time([&] {
          const DenseMesh dense(mesh.session);
          Keep(LooseFaces(dense).free.size());
        });
      },
      [&] {
        vtkNew<vtkDataSetSurfaceFilter> filter;
        filter->SetInputData(mesh.grid);
        return Time([&] { filter->Update(); });
      });
}

void CompareGrouping(const std::string& what, PeerModel& mesh) {
  const CQXMeshUtil util(&mesh.session);
  const DenseMesh dense(mesh.session);
  const TArray<tagTElemSide> surface = ToElemSides(dense, LooseFaces(dense).free);
  vtkNew<vtkDataSetSurfaceFilter> skin;
  skin->SetInputData(mesh.grid);
  skin->Update();
  Compare(
      "grouping of " + what, "vtkConnectivityFilter", 0.4,
      [&] {
        return Time([&] {
          std::list<std::list<int>> groups;
          Keep(util.GroupElemSide(3, surface, groups));
        });
      },
      [&] {
        vtkNew<vtkConnectivityFilter> filter;
        filter->SetInputData(skin->GetOutput());
        filter->SetExtractionModeToAllRegions();
        filter->ColorRegionsOn();  // the group of every side, as ours tells
        return Time([&] { filter->Update(); });
      });
}

/// One measure of all elements, from the model to an array of values.
void CompareQuality(const std::string& what, PeerModel& mesh, const char* measure, double target,
                    void (vtkMeshQuality::*choose)(int), int theirs) {
  const MeasureInfo& info = *FindMeasure(measure);
  Compare(
      std::string(measure) + " of " + what, "vtkMeshQuality", target,
      [&] { return Time([&] { Keep(ValuesOf(mesh.session, info, 1).size()); }); },
      [&] {
        vtkNew<vtkMeshQuality> filter;
        filter->SetInputData(mesh.grid);
        ((*filter).*choose)(theirs);
        return Time([&] { filter->Update(); });
      });
}

void Volumes(const Kind& kind, int side, Order order, const std::string& suffix) {
  constexpr double kTarget = 0.35;
  PeerModel mesh(kind, side, order);
  const std::string what = kind.name + suffix;
  CompareFreeFaces(what, mesh);
  const auto choose = kind.code == 8 ? &vtkMeshQuality::SetTetQualityMeasure
                                     : &vtkMeshQuality::SetHexQualityMeasure;
  const bool is_tet = kind.code == 8;
  CompareQuality(what, mesh, "size", kTarget, choose, VTK_QUALITY_VOLUME);
  CompareQuality(what, mesh, "edge-ratio", kTarget, choose, VTK_QUALITY_EDGE_RATIO);
  CompareQuality(what, mesh, "scaled-jacobian", kTarget, choose, VTK_QUALITY_SCALED_JACOBIAN);
  CompareQuality(what, mesh, "shape", kTarget, choose, VTK_QUALITY_SHAPE);
  CompareQuality(what, mesh, "condition", kTarget, choose, VTK_QUALITY_CONDITION);
  CompareQuality(what, mesh, is_tet ? "min-angle" : "skew", kTarget, choose,
                 is_tet ? VTK_QUALITY_MIN_ANGLE : VTK_QUALITY_SKEW);
}

void Faces(const Kind& kind, int side, Order order, const std::string& suffix) {
  constexpr double kTarget = 0.5;
  PeerModel mesh(kind, side, order);
  const std::string what = kind.name + suffix;
  const auto choose = kind.code == 4 ? &vtkMeshQuality::SetTriangleQualityMeasure
                                     : &vtkMeshQuality::SetQuadQualityMeasure;
  CompareQuality(what, mesh, "size", kTarget, choose, VTK_QUALITY_AREA);
  CompareQuality(what, mesh, "edge-ratio", kTarget, choose, VTK_QUALITY_EDGE_RATIO);
  CompareQuality(what, mesh, "aspect-ratio", kTarget, choose, VTK_QUALITY_ASPECT_RATIO);
  CompareQuality(what, mesh, "min-angle", kTarget, choose, VTK_QUALITY_MIN_ANGLE);
  CompareQuality(what, mesh, "scaled-jacobian", kTarget, choose, VTK_QUALITY_SCALED_JACOBIAN);
  CompareQuality(what, mesh, "shape", kTarget, choose, VTK_QUALITY_SHAPE);
}

}  // namespace

void MeshBesidePeer() {
  // Read by the peer when it first works; its own header for this is not of our standard.
  setenv("VTK_SMP_MAX_THREADS", std::to_string(WorkThreads()).c_str(), 1);
  for (const Order order : {Order::kAsMade, Order::kRandom}) {
    const std::string suffix = order == Order::kRandom ? ", random order" : "";
    Volumes(kHexahedra, 100, order, suffix);
    Volumes(kTetrahedra, 55, order, suffix);
    Faces(kQuadrilaterals, 1000, order, suffix);
    Faces(kTriangles, 700, order, suffix);
    PeerModel block(kHexahedra, 100, order), hundred(kHexahedra, 10, order, 100);
    CompareGrouping("60 000 sides in one group" + suffix, block);
    CompareGrouping("60 000 sides in a hundred groups" + suffix, hundred);
  }
}

}  // namespace qx::bench

#else

#include <cstdio>

#include "bench/harness.h"

void qx::bench::MeshBesidePeer() {
  std::puts("(configured without VTK: no peer beside the mesh utilities)");
}

#endif
