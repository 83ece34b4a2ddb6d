#pragma once
// The settings that meshes were generated with.
// Threads: see DPoolBase.

#include "qx_db/model/plain_pools.h"

namespace qx {

/// Mesh-generation settings, beside the mesh sets. A record names the bodies it is for, and is
/// removed with the last of them; one that never named a body is a setting for all and stays.
class QXDB_API DPoolMGInfo : public DPoolPlain<tagMGInfo> {
 public:
  explicit DPoolMGInfo(CQXDBSession* session) : DPoolPlain(session) {}

  using DPoolPlain<tagMGInfo>::SetAtNU;
  /// 0, with nothing changed, when `pos` is not a record of this pool.
  int SetAtNU(ITR pos, const tagMGInfo& record) override;
  /// Copies the record; 0 when `pos` is not one of this pool.
  int GetAt(ITR pos, tagMGInfo& out) const;
  /// 1 when `pos` is a record of this pool. Any number may be asked for.
  int Exist(ITR pos) const;
};

template <>
struct PoolOf<tagMGInfo> {
  using type = DPoolMGInfo;
};

}  // namespace qx
