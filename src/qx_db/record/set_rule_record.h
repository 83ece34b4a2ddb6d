#pragma once
// What makes a mesh set's members follow the model: a selection kept with the set. Its code lies
// beyond those of the catalogue, as those of deck_records.h do.
// Threads: records are values (TStructBase).

#include "qx_db/record/record.h"

namespace qx {

namespace code {
inline constexpr std::uint16_t kSetRule = 1006;
}  // namespace code

#pragma pack(push, 4)

/// The rule of a mesh set: a text of the selection language (docs/selecting.md). Keyed by the set,
/// whose key it follows and with which it goes; model/set_rules.h tells what it selects.
struct QXDB_API tagTSetRule final : TRecord<tagTSetRule, code::kSetRule> {
  /// The longest text, in UTF-16 units.
  static constexpr std::size_t kLongest = 1023;

  Key key = 0;  ///< of the mesh set
  TString<1024> text;
};

#pragma pack(pop)

QX_DECLARE_RECORD(tagTSetRule);

}  // namespace qx
