// Deleting a mesh set with its mesh, against removing the same records without any rule.

#include <random>

#include "bench/harness.h"
#include "bench/workload.h"

namespace qx::bench {
namespace {

/// A block of 100 x 100 x 100 hexahedra in two halves, each a mesh set (2 and 3), which share the
/// nodes of the plane between them.
void FillHalves(CQXDBSession& session) {
  constexpr int kCells = 100;
  constexpr int kNodes = kCells + 1;
  auto& nodes = Pool<tagTNode>(session);
  auto& elements = Pool<tagTElem>(session);
  auto& sets = Pool<tagTMset>(session);
  std::vector<ITR> at;
  for (Key key = 1; key <= kNodes * kNodes * kNodes; ++key)
    at.push_back(nodes.InsertNU(MakeNode(key)));
  tagTMset halves[2];
  tagTElem element;
  element.type = 14;
  element.nodes.SetSize(8);
  constexpr int kCorner[8] = {0,
                              1,
                              kNodes + 1,
                              kNodes,
                              kNodes * kNodes,
                              kNodes * kNodes + 1,
                              kNodes * kNodes + kNodes + 1,
                              kNodes * kNodes + kNodes};
  for (int z = 0; z < kCells; ++z) {
    for (int y = 0; y < kCells; ++y) {
      for (int x = 0; x < kCells; ++x) {
        ++element.key;
        for (int c = 0; c < 8; ++c) {
          const int node = x + kNodes * (y + kNodes * z) + kCorner[c];
          element.nodes[c] = at[static_cast<std::size_t>(node)];
        }
        halves[z < kCells / 2 ? 0 : 1].elements.Add(elements.InsertNU(element));
      }
    }
  }
  constexpr int kLayer = kNodes * kNodes;
  for (int i = 0; i < kLayer * kNodes; ++i) {
    if (i / kLayer <= kCells / 2) halves[0].nodes.Add(at[static_cast<std::size_t>(i)]);
    if (i / kLayer >= kCells / 2) halves[1].nodes.Add(at[static_cast<std::size_t>(i)]);
  }
  for (int i = 0; i < 2; ++i) {
    halves[i].key = 2 + i;
    halves[i].name.Set(i == 0 ? u"lower" : u"upper");
    sets.InsertNU(halves[i]);
  }
}

/// Seconds to remove the records that deleting set 2 removes, by the plain pools, recorded.
double RemovePlainly(CQXDBSession& session, const std::vector<ITR>& nodes,
                     const std::vector<ITR>& elements) {
  CTransaction step(&session);
  step.Begin(u"remove");
  auto& node_pool = Pool<tagTNode>(session);
  auto& element_pool = Pool<tagTElem>(session);
  const double seconds = Time([&] {
    Pool<tagTMset>(session).DPool<tagTMset>::Remove(Pool<tagTMset>(session).Find(2));
    for (const ITR element : elements) element_pool.DPool<tagTElem>::Remove(element);
    for (const ITR node : nodes) node_pool.DPool<tagTNode>::Remove(node);
  });
  step.Rollback();
  return seconds;
}

}  // namespace

void MeshSets() {
  CQXDBSession session(AddStandardPools);
  FillHalves(session);
  auto& sets = Pool<tagTMset>(session);
  const ITR lower = sets.Find(2);
  const TArray<ITR> chosen{lower};
  // What goes is what the journal says.
  std::vector<ITR> nodes;
  std::vector<ITR> elements;
  sets.TR_Del(chosen);
  for (const Change& change : session.History().Done().back().changes) {
    if (change.type == code::kNode) nodes.push_back(change.item);
    if (change.type == code::kElem) elements.push_back(change.item);
  }
  session.Undo();

  const auto plainly = [&] { return RemovePlainly(session, nodes, elements); };
  Compare(
      "delete one of two sets of 500 000 hexahedra", "removal without rules", 3.0,
      [&] {
        const double seconds = Time([&] { sets.TR_Del(chosen); });
        session.Undo();
        return seconds;
      },
      plainly);
  Compare(
      "its undo", "removal without rules", 1.0,
      [&] {
        sets.TR_Del(chosen);
        return Time([&] { session.Undo(); });
      },
      plainly);

  // What sets add to a step that kills little: both list all they hold.
  constexpr int kDead = 1000;
  std::mt19937 random(1);
  std::shuffle(nodes.begin(), nodes.end(), random);
  const auto kill = [&] {
    CTransaction step(&session);
    step.Begin(u"kill");
    for (int i = 0; i < kDead; ++i) {
      Pool<tagTNode>(session).Remove(nodes[static_cast<std::size_t>(i)]);
    }
    Pool<tagTElem>(session).ProcessRelation();
    const double seconds = Time([&] { sets.ProcessRelation(); });
    step.Rollback();
    return seconds;
  };
  std::vector<double> seconds;
  for (int i = 0; i < 5; ++i) seconds.push_back(kill());
  std::sort(seconds.begin(), seconds.end());
  Figure("1 000 of a million nodes leave the sets", 1e3 * seconds[2], "ms", 40);
}

}  // namespace qx::bench
