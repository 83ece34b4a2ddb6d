#include "qx_db/record/set_records.h"

#include "qx_db/record/record_impl.h"

namespace qx {

#define QX_NAMED_SET(T)                                          \
  QX_RECORD(T) {                                                 \
    rows.Add(u"_NAME", &T::name).Add(u"_DESC", &T::description); \
    fields.Add("NAME", &T::name).Add("DESC", &T::description);   \
  }

QX_NAMED_SET(tagTBset)
QX_NAMED_SET(tagTLset)
QX_NAMED_SET(tagTDset)
QX_NAMED_SET(tagTTset)
QX_NAMED_SET(tagTFRset)
QX_NAMED_SET(tagTTTset)
QX_NAMED_SET(tagTCFDset)
QX_NAMED_SET(tagTCFDPset)
QX_NAMED_SET(tagTEset)
QX_NAMED_SET(tagTTEset)

#undef QX_NAMED_SET

}  // namespace qx
