#include "qx_db/record/key_map_record.h"

#include "qx_db/record/record_impl.h"

namespace qx {

const Schema& tagTKeyMap::GetSchema() {
  static const Schema schema(
      "tagTKeyMap", kType, sizeof(tagTKeyMap),
      RowList().Add(u"_KEY", &tagTKeyMap::key).Add(u"_VALUE", &tagTKeyMap::value).Take());
  return schema;
}

QX_RECORD(tagTKeyMap);

}  // namespace qx
