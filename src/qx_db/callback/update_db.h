#pragma once
// How the application hears that the model changed, and the refresh of the selection lists.

#include <span>

#include "qx_db/callback/interface_slot.h"

namespace qx {

QX_CALLBACKS_BEGIN

/// Told after a change. The order of the operations is part of the binary interface.
class QXDB_API IUpdateDB : public CallbackSlot<IUpdateDB, Registration::kLastWins> {
 public:
  virtual ~IUpdateDB();
  IUpdateDB& operator=(const IUpdateDB&) = default;

  /// Must be supplied: brings the application's own views of the model up to date. Not called by
  /// the library; an override of UpdateDB may use it.
  virtual void UpdateView(CQXDBSession* session) = 0;
  /// Refreshes the selection lists of the session whose records changed since the flags of its
  /// pools were cleared, family by family in the order of ComboRefreshOrder. `item` is not used
  /// here. Nothing happens for a null session.
  virtual void UpdateDB(CQXDBSession* session, ITR item);

 protected:
  IUpdateDB();
  IUpdateDB(const IUpdateDB&) = default;
};

QX_CALLBACKS_END

// ---- families of selection lists ----------------------------------------------------------------

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
