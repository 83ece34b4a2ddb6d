#include "qx_db/model/mesh_generation_pool.h"

namespace qx {

int DPoolMGInfo::Exist(ITR wanted) const {
  for (ITR pos = GetHeadPosition(); pos; Next(pos)) {
    if (pos == wanted) return 1;
  }
  return 0;
}

int DPoolMGInfo::GetAt(ITR pos, tagMGInfo& out) const {
  if (!Exist(pos)) return 0;
  out = GetAtNU(pos);
  return 1;
}

int DPoolMGInfo::SetAtNU(ITR pos, const tagMGInfo& record) {
  return Exist(pos) ? DPoolPlain::SetAtNU(pos, record) : 0;
}

}  // namespace qx
