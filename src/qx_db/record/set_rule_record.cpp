#include "qx_db/record/set_rule_record.h"

#include "qx_db/record/record_impl.h"

namespace qx {

QX_RECORD(tagTSetRule) {
  rows.KeyOf(code::kMset).GoesWithOwner().Add(u"_TEXT", &tagTSetRule::text);
  fields.Add("TEXT", &tagTSetRule::text);
}

}  // namespace qx
