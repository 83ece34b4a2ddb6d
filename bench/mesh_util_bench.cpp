// The mesh utilities on a million hexahedra and on their boundary.

#include <cmath>
#include <list>

#include "qx_db/app/mesh_util.h"
#include "qx_db/mesh/mesh_adjacency.h"
#include "qx_db/model/standard_pools.h"

#include "bench/harness.h"

namespace qx::bench {
namespace {

/// Blocks beside each other, each of `side` cubed slightly curved hexahedra, and the sides of their
/// surfaces.
struct Blocks {
  CQXDBSession session{AddStandardPools};
  TArray<ITR> nodes;
  TArray<ITR> elements;
  TArray<tagTElemSide> surface;

  Blocks(int count, int side) {
    session.EnableRecording(false);
    for (int block = 0; block < count; ++block) Add(side, 2.0 * side * block);
    const DenseMesh mesh(session);
    surface = ToElemSides(mesh, LooseFaces(mesh).free);
  }

 private:
  void Add(int side, double x) {
    const std::int32_t first = nodes.GetSize();
    tagTNode node;
    for (int k = 0; k <= side; ++k) {
      for (int j = 0; j <= side; ++j) {
        for (int i = 0; i <= side; ++i) {
          node.key = nodes.GetSize() + 1;
          node.position = {x + i + 0.1 * std::sin(0.1 * j), j + 0.1 * std::sin(0.1 * k), 1.0 * k};
          nodes.Add(Pool<tagTNode>(session).InsertNU(node));
        }
      }
    }
    tagTElem hex;
    hex.type = 14;
    hex.nodes.SetSize(8);
    constexpr int kCorner[8][3] = {{0, 0, 0}, {1, 0, 0}, {1, 1, 0}, {0, 1, 0},
                                   {0, 0, 1}, {1, 0, 1}, {1, 1, 1}, {0, 1, 1}};
    for (int k = 0; k < side; ++k) {
      for (int j = 0; j < side; ++j) {
        for (int i = 0; i < side; ++i) {
          for (int c = 0; c < 8; ++c) {
            const int row = j + kCorner[c][1] + (side + 1) * (k + kCorner[c][2]);
            hex.nodes[c] = nodes[first + i + kCorner[c][0] + (side + 1) * row];
          }
          hex.key = elements.GetSize() + 1;
          elements.Add(Pool<tagTElem>(session).InsertNU(hex));
        }
      }
    }
  }
};

/// Seconds of `work` as nanoseconds for each of `count` things.
template <class Work>
double Nanoseconds(std::int64_t count, Work&& work) {
  work();
  double least = 1e9;
  for (int run = 0; run < 3; ++run) least = std::min(least, Time(work));
  return least * 1e9 / static_cast<double>(count);
}

/// A triangle fan: every side has the hub.
TArray<tagTElemSide> Fan(CQXDBSession& session, int sides) {
  TArray<tagTElemSide> fan;
  tagTNode node;
  const auto add = [&](double x, double y) {
    node.key = Pool<tagTNode>(session).GetNewKey();
    node.position = {x, y, 0};
    return Pool<tagTNode>(session).InsertNU(node);
  };
  const ITR hub = add(0, 0);
  tagTElem tri;
  tri.type = 4;
  for (int i = 0; i < sides; ++i) {
    tri.key = i + 1;
    tri.nodes = {hub, add(std::cos(i), std::sin(i)), add(std::cos(i + 0.5), std::sin(i + 0.5))};
    fan.Add({Pool<tagTElem>(session).InsertNU(tri), 0});
  }
  return fan;
}

void Ours(Blocks& block) {
  const CQXMeshUtil util(&block.session);
  const std::int64_t count = block.elements.GetSize();
  Figure("minimum length of a hex",
         Nanoseconds(count,
                     [&] {
                       double sum = 0;
                       for (const ITR e : block.elements) sum += util.GetElemMinLength({e, 0});
                       Keep(sum);
                     }),
         "ns", 25);
  Figure("normal and area of a boundary quadrilateral",
         Nanoseconds(block.surface.GetSize(),
                     [&] {
                       double sum = 0;
                       for (const tagTElemSide& side : block.surface) {
                         double normal[3];
                         util.GetElemSideNormal(side, normal);
                         sum += normal[0] + util.GetFaceArea(side);
                       }
                       Keep(sum);
                     }),
         "ns", 90);
  Figure("distinct nodes of a million hexes, an element",
         Nanoseconds(count,
                     [&] {
                       TArray<ITR> nodes;
                       util.GetNodeListByElemItrArray(block.elements, nodes, 1);
                       Keep(nodes.GetSize());
                     }),
         "ns", 60);
  Figure("volume of a hex",
         Nanoseconds(count,
                     [&] {
                       double sum = 0;
                       for (const ITR e : block.elements) sum += util.GetElemQuantity(e);
                       Keep(sum);
                     }),
         "ns", 45);
  Figure("free faces, a hex",
         Nanoseconds(count,
                     [&] {
                       const DenseMesh mesh(block.session);
                       Keep(LooseFaces(mesh).free.size());
                     }),
         "ns", 165);
  Figure("grouping of the surface, a side",
         Nanoseconds(block.surface.GetSize(),
                     [&] {
                       std::list<std::list<int>> groups;
                       Keep(util.GroupElemSide(3, block.surface, groups));
                     }),
         "ns", 84);
  for (const int sides : {10000, 100000}) {
    CQXDBSession session(AddStandardPools);
    session.EnableRecording(false);
    const TArray<tagTElemSide> fan = Fan(session, sides);
    Figure("grouping of " + std::to_string(sides) + " sides around one node, a side",
           Nanoseconds(sides,
                       [&] {
                         std::list<std::list<int>> groups;
                         Keep(util.GroupElemSide(3, fan, groups));
                       }),
           "ns", 84);
  }
}

}  // namespace

void MeshUtil() {
  Blocks block(1, 100);
  Ours(block);
}

}  // namespace qx::bench
