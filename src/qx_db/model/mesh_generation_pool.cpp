#include "qx_db/model/mesh_generation_pool.h"

#include <algorithm>

#include "qx_db/core/session.h"

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

int DPoolMGInfo::ProcessRelation() {
  const DPoolBase* bodies = GetSession()->GetDataPool(code::kGKey);
  if (!bodies || !bodies->HasChanged(kRemovedFlag)) return 1;
  for (ITR pos = GetHeadPosition(); pos;) {
    tagMGInfo record = GetAtNU(pos);
    const auto live_end = std::remove_if(record.bodies.begin(), record.bodies.end(), [](ITR body) {
      return body != 0 && KeyedSetBase::IsRemoved(body);
    });
    const auto live = live_end - record.bodies.begin();
    if (live == record.bodies.GetSize()) {
      Next(pos);
    } else if (live == 0) {
      if (!RemoveNext(pos)) return 0;
    } else {
      record.bodies.SetSize(live);
      if (!SetAtNU(pos, record)) return 0;
      Next(pos);
    }
  }
  return 1;
}

}  // namespace qx
