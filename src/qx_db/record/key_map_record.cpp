#include "qx_db/record/key_map_record.h"

#include "qx_db/record/record_impl.h"

namespace qx {

QX_RECORD(tagTKeyMap) { rows.Add(u"_VALUE", &tagTKeyMap::value); }

}  // namespace qx
