// Elements: relations after deletions, local axes, new keys, where a record is used.

#include "qx_db/model/deletion.h"

#include "bench/harness.h"
#include "bench/workload.h"

namespace qx::bench {
namespace {

constexpr int kRemovedNodes = 1000;

/// The median of several runs of `work`, each giving its seconds, after one uncounted.
template <class Work>
double Median(int runs, Work&& work) {
  work();
  std::vector<double> seconds;
  for (int i = 0; i < runs; ++i) seconds.push_back(work());
  std::sort(seconds.begin(), seconds.end());
  return seconds[seconds.size() / 2];
}

/// What relation processing costs beyond one walk over the elements, in milliseconds.
void Relations() {
  CQXDBSession session(AddStandardPools);
  FillBlock(session, kMillion);
  auto& nodes = Pool<tagTNode>(session);
  const auto& elements = Pool<tagTElem>(session);
  const double walk = Median(5, [&] {
    return Time([&] {
      std::uint64_t sum = 0;
      for (ITR pos = elements.GetHeadPosition(); pos; elements.Next(pos)) {
        for (const ITR node : elements.GetAtNU(pos).nodes) sum += node;
      }
      Keep(sum);
    });
  });
  std::mt19937 random(7);
  const double step = Median(5, [&] {
    CTransaction transaction(&session);
    transaction.Begin(u"delete nodes");
    for (int i = 0; i < kRemovedNodes; ++i) {
      const ITR node = nodes.Find(static_cast<Key>(random() % kMillion + 1));
      if (node) nodes.Remove(node);
    }
    const double seconds = Time([&] { transaction.Commit(); });
    session.Undo();
    return seconds;
  });
  Figure("relations of 1000 removed nodes, beyond a walk", 1e3 * (step - walk), "ms", 40);
}

/// What a preview costs beside the deletion that it tells of; and the whole end of a step.
void Previews() {
  CQXDBSession session(AddStandardPools);
  FillBlock(session, kMillion);
  auto& nodes = Pool<tagTNode>(session);
  std::mt19937 random(7);
  std::vector<ITR> asked;
  for (int i = 0; i < kRemovedNodes; ++i) {
    asked.push_back(nodes.Find(static_cast<Key>(random() % kMillion + 1)));
  }
  Compare(
      "preview of the deletion of 1000 nodes", "the deletion", 3.0,
      [&] { return Time([&] { Keep(PreviewDeletion(session, code::kNode, asked)); }); },
      [&] {
        const double seconds = Time([&] { DeleteRecords(session, code::kNode, asked); });
        session.Undo();
        return seconds;
      });
  const double step = Median(5, [&] {
    const double seconds = Time([&] { DeleteRecords(session, code::kNode, asked); });
    session.Undo();
    return seconds;
  });
  Figure("deletion of 1000 nodes of a million elements", 1e3 * step, "ms", 150);
}

/// New keys for a million elements with orientations, each the former key of the next.
void NewKeysOfOwners() {
  CQXDBSession session(AddStandardPools);
  FillBlock(session, kMillion);
  auto& elements = Pool<tagTElem>(session);
  tagTEcrd orientation;
  for (Key key = 1; key <= kMillion; ++key) {
    orientation.key = key;
    Pool<tagTEcrd>(session).InsertNU(orientation);
  }
  const double seconds = Time([&] {
    CTransaction step(&session);
    step.Begin(u"shift");
    for (ITR pos = elements.GetHeadPosition(); pos; elements.Next(pos)) {
      tagTElem element = elements.GetAtNU(pos);
      ++element.key;
      elements.SetAtNU(pos, element);
    }
    step.Commit();
  });
  Figure("a million elements with orientations take the next key", seconds, "s", 6);
}

/// A million elements of one type on a grid of nodes.
void FillPlane(CQXDBSession& session, std::int32_t type, int side) {
  auto& nodes = Pool<tagTNode>(session);
  auto& elements = Pool<tagTElem>(session);
  const auto at = [&](int i, int j) { return static_cast<std::size_t>(j * (side + 1) + i); };
  std::vector<ITR> items(at(0, side + 1));
  for (int j = 0; j <= side; ++j) {
    for (int i = 0; i <= side; ++i) {
      tagTNode node;
      node.key = static_cast<Key>(at(i, j)) + 1;
      node.position = {0.1 * i, 0.1 * j, 0.01 * ((i * j) % 7)};
      items[at(i, j)] = nodes.InsertNU(node);
    }
  }
  tagTElem element;
  element.type = type;
  for (int j = 0; j < side; ++j) {
    for (int i = 0; i < side; ++i) {
      ++element.key;
      element.nodes = {items[at(i, j)], items[at(i + 1, j)]};
      if (type == 6) element.nodes.Append({items[at(i + 1, j + 1)], items[at(i, j + 1)]});
      elements.InsertNU(element);
    }
  }
}

/// Nanoseconds for the local axes of one element.
double AxesOf(const CQXDBSession& session) {
  const auto& elements = Pool<tagTElem>(session);
  return 1e9 / elements.GetSize() * Median(5, [&] {
           return Time([&] {
             double sum = 0;
             double axes[3][3];
             for (ITR pos = elements.GetHeadPosition(); pos; elements.Next(pos)) {
               elements.GetElemLocalVector(pos, axes);
               sum += axes[1][2];
             }
             Keep(sum);
           });
         });
}

void LocalAxes() {
  constexpr int kSide = 1000;
  {
    CQXDBSession session(AddStandardPools);
    FillPlane(session, 2, kSide);
    Figure("local axes of a line element, by default", AxesOf(session), "ns", 150);
    Pool<tagTElem>(session).OnAfterActive(0, nullptr);
    Figure("local axes of a line element, by its record", AxesOf(session), "ns", 150);
  }
  CQXDBSession session(AddStandardPools);
  FillPlane(session, 6, kSide);
  Figure("local axes of a quadrilateral", AxesOf(session), "ns", 100);
}

void NewKeys() {
  CQXDBSession session(AddStandardPools);
  auto& elements = Pool<tagTElem>(session);
  tagTElem element;
  for (int i = 1; i <= kMillion; ++i) {
    if (i == 7 || i == kMillion / 2) continue;  // two holes
    element.key = i;
    elements.InsertNU(element);
  }
  constexpr int kCalls = 1000;
  const double seconds = Time([&] {
    for (int i = 0; i < kCalls; ++i) {
      element.key = elements.GetNewKeyUp(1);
      elements.InsertNU(element);
    }
  });
  Figure("new key upwards from 1 and its insertion, mean of 1000", 1e9 / kCalls * seconds, "ns",
         10000);
}

void Uses() {
  CQXDBSession session(AddStandardPools);
  FillBlock(session, kMillion);
  auto& nodes = Pool<tagTNode>(session);
  const double first =
      Time([&] { Keep(WhereUsed(session, code::kNode, nodes.Find(500000)).size()); });
  constexpr int kCalls = 10000;
  const double more = Time([&] {
    for (int i = 1; i <= kCalls; ++i)
      Keep(WhereUsed(session, code::kNode, nodes.Find(50 * i)).size());
  });
  Figure("where a node is used, first question", 1e3 * first, "ms", 1000);
  Figure("where a node is used, 8 uses, each further one", 1e9 / kCalls * more, "ns", 5000);
}

}  // namespace

void Mesh() {
  Relations();
  Previews();
  NewKeysOfOwners();
  LocalAxes();
  NewKeys();
  Uses();
}

}  // namespace qx::bench
