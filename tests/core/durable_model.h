#pragma once
// A small model with every kind of edit, and what must be true of it, told naively.

#include <cstdlib>
#include <random>
#include <string>
#include <vector>

#include "qx_db/core/document.h"
#include "qx_db/core/transaction.h"
#include "qx_db/model/standard_pools.h"

namespace qx {

inline void SetUpSmallModel(CQXDBSession& session) {
  session.AddPool(std::make_unique<PoolOf<tagTElem>::type>(&session));
  session.AddPool(std::make_unique<PoolOf<tagTNode>::type>(&session));
  session.AddPool(std::make_unique<PoolOf<tagTActiveElemSet>::type>(&session));
}

/// How long a test runs: `fallback` in CI, or what the environment variable says.
inline int Rounds(const char* variable, int fallback) {
  const char* value = std::getenv(variable);
  return value ? std::atoi(value) : fallback;
}

/// The states of a history by hash, and where in it the model stands.
struct NaiveHistory {
  std::vector<std::uint64_t> states;
  std::size_t at = 0;

  explicit NaiveHistory(std::uint64_t first) : states{first} {}
  void Commit(std::uint64_t state) {
    states.resize(at + 1);
    states.push_back(state);
    ++at;
  }
  std::uint64_t State() const { return states[at]; }
};

/// Random edits of a small model.
class RandomEdits {
 public:
  explicit RandomEdits(std::uint32_t seed) : random_(seed) {}

  /// One transaction of a few edits. True when it committed and changed something.
  bool Step(CQXDBSession& session) {
    const std::size_t before = session.History().Done().size();
    CTransaction transaction(&session);
    transaction.Begin(u"Edit");
    for (std::uint32_t i = 0, count = 1 + Pick(4); i < count; ++i) Edit(session);
    const bool emptied = session.History().Current().changes.empty();
    return transaction.Commit() && !emptied && (before == 0 || session.CanUndo());
  }
  std::uint32_t Pick(std::uint32_t below) { return random_() % below; }
  std::mt19937& Random() { return random_; }

 private:
  template <class P>
  ITR Any(P& pool) {
    ITR pos = pool.GetHeadPosition();
    if (pos == 0) return 0;
    for (std::uint32_t i = Pick(static_cast<std::uint32_t>(pool.GetSize())); i > 0; --i) {
      pool.Next(pos);
    }
    return pos;
  }

  void Edit(CQXDBSession& session) {
    auto& nodes = *session.GetPool<DPoolNode>(code::kNode);
    auto& elements = *session.GetPool<DPoolElem>(code::kElem);
    auto& sets = *session.GetPool<DPoolActiveElemSet>(code::kActiveElemSet);
    switch (Pick(10)) {
      case 0:
      case 1: {
        tagTNode node;
        node.key = static_cast<Key>(1 + Pick(60));
        node.position.x = Pick(1000);
        nodes.InsertNU(node);
        break;
      }
      case 2: {
        tagTElem element;
        element.key = static_cast<Key>(1 + Pick(60));
        element.type = 2;
        const ITR a = Any(nodes);
        const ITR b = Any(nodes);
        if (a && b) element.nodes = {a, b};
        if (a && b) elements.InsertNU(element);
        break;
      }
      case 3: {
        tagTActiveElemSet set;
        set.key = static_cast<Key>(1 + Pick(5));
        set.name.Set(u"set");
        for (int i = 0; i < 3; ++i) {
          if (const ITR element = Any(elements)) set.elements.Add(element);
        }
        if (const ITR old = sets.Find(set.key)) {
          sets.SetAtNU(old, set);
        } else {
          sets.InsertNU(set);
        }
        break;
      }
      case 4:
      case 5:
        if (const ITR pos = Any(nodes)) {
          tagTNode node = nodes.GetAtNU(pos);
          node.position.y += 1 + Pick(9);
          nodes.SetAtNU(pos, node);
        }
        break;
      case 6:
        if (const ITR pos = Any(nodes)) nodes.Remove(pos);  // and what hangs on it
        break;
      case 7:
        if (const ITR pos = Any(elements)) elements.Remove(pos);
        break;
      case 8: {  // two nodes exchange their keys
        const ITR a = Any(nodes);
        const ITR b = Any(nodes);
        if (!a || a == b) break;
        tagTNode first = nodes.GetAtNU(a);
        tagTNode second = nodes.GetAtNU(b);
        std::swap(first.key, second.key);
        nodes.SetAtNU(a, first);
        nodes.SetAtNU(b, second);
        break;
      }
      default:
        if (Pick(12) == 0) elements.RemoveAll();
        if (Pick(30) == 0) nodes.RemoveAll();
    }
  }

  std::mt19937 random_;
};

}  // namespace qx
