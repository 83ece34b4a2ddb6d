#include "qx_db/record/set_records.h"

#include "qx_db/record/record_impl.h"

namespace qx {
namespace {

constexpr GatewayField kFields[] = {
    {"NAME", GatewayField::Type::kString, u"_NAME"},
    {"DESC", GatewayField::Type::kString, u"_DESC"},
};

template <class T>
Schema MakeSchema(const char* name) {
  return Schema(
      name, T::kType, sizeof(T),
      RowList().Add(u"_KEY", &T::key).Add(u"_NAME", &T::name).Add(u"_DESC", &T::description).Take(),
      kFields);
}

}  // namespace

#define QX_NAMED_SET(T)                             \
  const Schema& T::GetSchema() {                    \
    static const Schema schema = MakeSchema<T>(#T); \
    return schema;                                  \
  }                                                 \
  QX_RECORD(T)

QX_NAMED_SET(tagTBset);
QX_NAMED_SET(tagTLset);
QX_NAMED_SET(tagTDset);
QX_NAMED_SET(tagTTset);
QX_NAMED_SET(tagTFRset);
QX_NAMED_SET(tagTTTset);
QX_NAMED_SET(tagTCFDset);
QX_NAMED_SET(tagTCFDPset);
QX_NAMED_SET(tagTEset);
QX_NAMED_SET(tagTTEset);

#undef QX_NAMED_SET

}  // namespace qx
