#pragma once
// The pools of the finite-element mesh.

#include "qx_db/pool/data_pool.h"
#include "qx_db/record/mesh_records.h"

namespace qx {

extern template class DPool<tagTNode>;
extern template class DPool<tagTElem>;
extern template class DPool<tagTEcrd>;
extern template class DPool<tagTActiveElemSet>;
extern template class DPool<tagTESid>;

/// The nodes.
class QXDB_API DPoolNode : public DPoolPlain<tagTNode> {
 public:
  explicit DPoolNode(CQXDBSession* session) : DPoolPlain(session, u"_NODE") {}
};

/// The elements. An element dies with any of its nodes, and with its property.
class QXDB_API DPoolElem : public DPoolPlain<tagTElem> {
 public:
  explicit DPoolElem(CQXDBSession* session) : DPoolPlain(session, u"_ELEM") {}

  int ProcessRelation() override;
  /// The smallest key >= start that no element uses; a negative number when there is none.
  Key GetNewKeyUp(Key start) const { return Set().GetNewKeyUp(start); }
};

/// The orientation of line elements, keyed by element.
class QXDB_API DPoolEcrd : public DPoolPlain<tagTEcrd> {
 public:
  explicit DPoolEcrd(CQXDBSession* session) : DPoolPlain(session, u"_ECRD") {}
};

class QXDB_API DPoolActiveElemSet : public DPoolPlain<tagTActiveElemSet> {
 public:
  explicit DPoolActiveElemSet(CQXDBSession* session) : DPoolPlain(session, u"_ACTIVEELEMSET") {}
};

/// Element sides. They have no gateway form.
class QXDB_API DPoolESid : public DPoolPlain<tagTESid> {
 public:
  explicit DPoolESid(CQXDBSession* session) : DPoolPlain(session, u"_ESID") {}
  bool ReadAPI(dbgateway::DataBase*, int) override { return true; }
  bool WriteAPI(dbgateway::DataBase*, TArray<Key>&, int) override { return true; }
  bool DescAPI(dbgateway::Field*) override { return true; }
};

}  // namespace qx
