#pragma once
// The settings that meshes were generated with.
// Threads: see DPoolBase.

#include "qx_db/model/plain_pools.h"

namespace qx {

/// Mesh-generation settings, beside the mesh sets. A record names the bodies it is for.
class QXDB_API DPoolMGInfo : public DPoolPlain<tagMGInfo> {
 public:
  explicit DPoolMGInfo(CQXDBSession* session) : DPoolPlain(session) {}

  /// Bodies that died leave the records; a record that loses its last body is removed. Records
  /// that never named a body are settings for all and stay.
  int ProcessRelation() override;
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
