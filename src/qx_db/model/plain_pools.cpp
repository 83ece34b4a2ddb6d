#include "qx_db/model/plain_pools.h"

namespace qx {

#define QX_DEFINE_POOL(T)       \
  template class DPool<T>;      \
  template class DPoolExtDB<T>; \
  template class DPoolPlain<T>;
QX_FOR_EACH_RECORD(QX_DEFINE_POOL)
#undef QX_DEFINE_POOL

template class DPoolTmp<tagTNode>;
template class DPoolTmp<tagTElem>;

}  // namespace qx
