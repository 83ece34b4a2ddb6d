#pragma once
// The walk over a set's list, for the parts of its implementation. Threads: as KeyedSetBase.

#include "qx_db/pool/keyed_set_base.h"

namespace qx {

/// In the order of the list; `visit` may take the item away.
template <class F>
void KeyedSetBase::ForEachItem(F&& visit) const {
  for (char* item = head_; item;) {
    char* next = LinksOf(item).list_next;
    visit(item);
    item = next;
  }
}

}  // namespace qx
