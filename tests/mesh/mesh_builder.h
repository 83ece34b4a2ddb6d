#pragma once
// A model built in a test: nodes by position, elements by node numbers.

#include <cstddef>
#include <cstdint>
#include <vector>

#include "qx_db/app/mesh_util.h"
#include "qx_db/mesh/point3.h"
#include "qx_db/mesh/topology_table.h"
#include "qx_db/model/standard_pools.h"

namespace qx::testing {

/// Corners of a regular or unit element of a shape, in this library's order.
inline std::vector<Point3> IdealCorners(CornerShape shape) {
  const double h = std::sqrt(3.0) / 2;
  switch (shape) {
    case CornerShape::kLine:
      return {{0, 0, 0}, {1, 0, 0}};
    case CornerShape::kTriangle:
      return {{0, 0, 0}, {1, 0, 0}, {0.5, h, 0}};
    case CornerShape::kQuadrilateral:
      return {{0, 0, 0}, {1, 0, 0}, {1, 1, 0}, {0, 1, 0}};
    case CornerShape::kTetrahedron:
      return {{0, 0, 0}, {1, 0, 0}, {0.5, h, 0}, {0.5, h / 3, std::sqrt(2.0 / 3)}};
    case CornerShape::kPyramid:
      return {{0, 0, 0}, {1, 0, 0}, {1, 1, 0}, {0, 1, 0}, {0.5, 0.5, std::sqrt(0.5)}};
    case CornerShape::kWedge:
      return {{0, 0, 0}, {1, 0, 0}, {0.5, h, 0}, {0, 0, 1}, {1, 0, 1}, {0.5, h, 1}};
    case CornerShape::kHexahedron:
      return {{0, 0, 0}, {1, 0, 0}, {1, 1, 0}, {0, 1, 0},
              {0, 0, 1}, {1, 0, 1}, {1, 1, 1}, {0, 1, 1}};
    default:
      return {{0, 0, 0}};
  }
}

class Model {
 public:
  CQXDBSession session{AddStandardPools};
  CQXMeshUtil util{&session};
  std::vector<ITR> nodes;
  std::vector<ITR> elements;

  int Node(const Point3& p) {
    tagTNode node;
    node.key = static_cast<Key>(nodes.size()) + 1;
    node.position = {p.x, p.y, p.z};
    nodes.push_back(Pool<tagTNode>(session).InsertNU(node));
    return static_cast<int>(nodes.size()) - 1;
  }
  /// `places` are results of Node.
  ITR Element(std::int32_t type, const std::vector<int>& places) {
    tagTElem element;
    element.key = static_cast<Key>(elements.size()) + 1;
    element.type = type;
    for (const int place : places) element.nodes.Add(nodes[static_cast<std::size_t>(place)]);
    elements.push_back(Pool<tagTElem>(session).InsertNU(element));
    return elements.back();
  }
  /// An element of a type on nodes of its own: corners as given, mid-side nodes on the edges.
  ITR Element(std::int32_t type, const std::vector<Point3>& corners) {
    std::vector<int> places;
    for (const Point3& p : corners) places.push_back(Node(p));
    const ElementTopology topology(type);
    const bool quadratic = topology.Nodes() > topology.Corners();
    for (std::int32_t e = 0; quadratic && e < topology.Edges(); ++e) {
      const auto ends = topology.Edge(e, false);
      places.push_back(Node(0.5 * (corners[static_cast<std::size_t>(ends[0])] +
                                   corners[static_cast<std::size_t>(ends[1])])));
    }
    return Element(type, places);
  }
  const tagTElem& At(ITR element) { return Pool<tagTElem>(session).GetAtNU(element); }
  /// A block of unit hexahedra, its nodes counted along x, then y, then z.
  void Block(int nx, int ny, int nz) {
    const int first = static_cast<int>(nodes.size());
    for (int k = 0; k <= nz; ++k) {
      for (int j = 0; j <= ny; ++j) {
        for (int i = 0; i <= nx; ++i) Node({1.0 * i, 1.0 * j, 1.0 * k});
      }
    }
    const auto at = [&](int i, int j, int k) { return first + i + (nx + 1) * (j + (ny + 1) * k); };
    for (int k = 0; k < nz; ++k) {
      for (int j = 0; j < ny; ++j) {
        for (int i = 0; i < nx; ++i) {
          Element(14, std::vector<int>{at(i, j, k), at(i + 1, j, k), at(i + 1, j + 1, k),
                                       at(i, j + 1, k), at(i, j, k + 1), at(i + 1, j, k + 1),
                                       at(i + 1, j + 1, k + 1), at(i, j + 1, k + 1)});
        }
      }
    }
  }
  /// A sheet of unit quadrilaterals in the plane z = 0.
  void Sheet(int nx, int ny) {
    const int first = static_cast<int>(nodes.size());
    for (int j = 0; j <= ny; ++j) {
      for (int i = 0; i <= nx; ++i) Node({1.0 * i, 1.0 * j, 0});
    }
    for (int j = 0; j < ny; ++j) {
      for (int i = 0; i < nx; ++i) {
        const int at = first + i + (nx + 1) * j;
        Element(6, std::vector<int>{at, at + 1, at + nx + 2, at + nx + 1});
      }
    }
  }
};

}  // namespace qx::testing
