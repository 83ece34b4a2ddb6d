#pragma once
// A session with a handful of pools, for tests of what a step does and tells.

#include "qx_db/qx_db.h"

namespace qx {

inline tagTNode Node(Key key, double x = 0) {
  tagTNode node;
  node.key = key;
  node.position.x = x;
  return node;
}

struct MeshSession {
  CQXDBSession session{AddStandardPools};
  DPoolNode& nodes = *session.GetPool<DPoolNode>(code::kNode);
  DPoolElem& elements = *session.GetPool<DPoolElem>(code::kElem);
  DPoolActiveElemSet& sets = *session.GetPool<DPoolActiveElemSet>(code::kActiveElemSet);

  /// Runs `edit` as one step; the result of its commit.
  template <class Edit>
  int Step(const char16_t* name, Edit&& edit) {
    CTransaction transaction(&session);
    transaction.Begin(name);
    edit();
    return transaction.Commit();
  }

  int Add(Key key) {
    return Step(u"add", [&] { nodes.InsertNU(Node(key)); });
  }

  /// A chain of line elements, all in one set.
  void AddChain(Key first, Key last) {
    tagTActiveElemSet set;
    set.key = 1;
    set.name.Set(u"chain");
    for (Key key = first; key <= last; ++key) {
      nodes.InsertNU(Node(key, key));
      if (key == first) continue;
      tagTElem element;
      element.key = key;
      element.type = 2;
      element.nodes = {nodes.Find(key - 1), nodes.Find(key)};
      set.elements.Add(elements.InsertNU(element));
    }
    sets.InsertNU(set);
  }
};

}  // namespace qx
