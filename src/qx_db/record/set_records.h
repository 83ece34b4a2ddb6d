#pragma once
// The named sets that group boundary, load, fluid and other data: ten types with one layout.
// Threads: records are values (TStructBase).

#include "qx_db/record/record.h"

namespace qx {

#pragma pack(push, 4)

#define QX_NAMED_SET(T, CODE)                        \
  struct QXDB_API T final : TRecord<T, code::CODE> { \
    Key key = 0;                                     \
    TString<64> name;                                \
    TString<128> description;                        \
  };                                                 \
  QX_DECLARE_RECORD(T)

QX_NAMED_SET(tagTBset, kBset);        // boundary sets
QX_NAMED_SET(tagTLset, kLset);        // load sets
QX_NAMED_SET(tagTDset, kDset);        // dynamic sets
QX_NAMED_SET(tagTTset, kTset);        // thermal sets
QX_NAMED_SET(tagTFRset, kFRset);      // frequency-response sets
QX_NAMED_SET(tagTTTset, kTTTset);     // thermal transient sets
QX_NAMED_SET(tagTCFDset, kCFDset);    // fluid sets
QX_NAMED_SET(tagTCFDPset, kCFDPset);  // fluid particle sets
QX_NAMED_SET(tagTEset, kEset);        // electric sets
QX_NAMED_SET(tagTTEset, kTEset);      // thermo-electric sets

#undef QX_NAMED_SET

#pragma pack(pop)

}  // namespace qx
