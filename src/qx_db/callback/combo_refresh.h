#pragma once
// How selection lists hear of changes: IUpdateDB refreshes them by family.
// Threads: that of the user interface. A refresh is set before it starts.

#include <cstdint>
#include <span>

#include "qx_db/export.h"

namespace qx {

class CQXDBSession;

/// The classes of selection lists, one for each kind of record and two for functions.
enum class ComboFamily {
  kMset,
  kMatl,
  kGset,
  kBset,
  kLset,
  kDset,
  kTset,
  kProp,
  kCord,
  kCFDset,
  kCFDPset,
  kFRset,
  kTTset,
  kEset,
  kTEset,
  kViewPoint,
  kFunc,
  kFuncQX,
};
inline constexpr int kComboFamilyCount = 18;

/// One step of a refresh: the family is refreshed when the pool has a change flag.
struct ComboRefreshStep {
  std::uint16_t pool;
  ComboFamily family;
};

/// The steps in their fixed order; each family stands in it once.
QXDB_API std::span<const ComboRefreshStep> ComboRefreshOrder();

/// Rebuilds every live list of a family that is bound to the session, and no other.
using ComboRefresh = void (*)(CQXDBSession* session);

/// Sets what refreshes a family, null for nothing; returns the former one. Lists stand above this
/// interface and hook themselves in here, so that a host without lists carries none.
QXDB_API ComboRefresh SetComboRefresh(ComboFamily family, ComboRefresh refresh);

}  // namespace qx
