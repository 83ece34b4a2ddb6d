#pragma once
// The mesh while it is being made.
// Threads: shares nothing; one at a time for each object.

#include "qx_db/model/plain_pools.h"

namespace qx {

/// Nodes of a mesh that is not of the model yet: no undo, no saving, no rules.
class DPoolTmpNode : public DPoolTmp<tagTNode> {
 public:
  using DPoolTmp::DPoolTmp;
  const char16_t* GetIOName() const override { return u"_NODE"; }
  void Clear() { RemoveAll(); }
};

/// Its elements, whose node iterators point into a DPoolTmpNode.
class DPoolTmpElem : public DPoolTmp<tagTElem> {
 public:
  using DPoolTmp::DPoolTmp;
  const char16_t* GetIOName() const override { return u"_ELEM"; }
  void Clear() { RemoveAll(); }
};

}  // namespace qx
