#include "qx_db/model/mesh_pools.h"

#include <algorithm>

#include "qx_db/core/session.h"

namespace qx {

int DPoolElem::ProcessRelation() {
  const DPoolBase* nodes = GetSession()->GetDataPool(code::kNode);
  if (!nodes || !nodes->HasChanged(kRemovedFlag)) return 1;
  const auto is_dead = [](ITR itr) { return itr != 0 && KeyedSetBase::IsRemoved(itr); };
  for (ITR pos = GetHeadPosition(); pos;) {
    const tagTElem& element = GetAtNU(pos);
    const bool dies = std::any_of(element.nodes.begin(), element.nodes.end(), is_dead) ||
                      is_dead(element.property);
    if (!dies) {
      Next(pos);
    } else if (!RemoveNext(pos)) {
      return 0;
    }
  }
  return 1;
}

}  // namespace qx
