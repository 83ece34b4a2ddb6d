#pragma once
// Analysis cases, which are the application's own.

#include "qx_db/callback/interface_slot.h"
#include "qx_db/platform/text.h"

namespace qx {

QX_CALLBACKS_BEGIN

/// Questions about analysis cases. The order of the operations is part of the binary interface.
/// Unlike the other interfaces it may be constructed by anyone who derives from it, publicly.
class QXDB_API ICustomMcas : public CallbackSlot<ICustomMcas, Registration::kLastWins> {
 public:
  ICustomMcas();
  ICustomMcas(const ICustomMcas&) = default;
  ICustomMcas& operator=(const ICustomMcas&) = default;
  virtual ~ICustomMcas();

  // ---- must be supplied -------------------------------------------------------------------------

  /// All analysis cases; returns their number.
  virtual int GetMcasList(CQXDBSession* session, TArray<ITR>& out) = 0;
  /// The case of a key, 0 for none.
  virtual ITR McasFindItr(CQXDBSession* session, Key key) = 0;
  virtual int GetMcasName(CQXDBSession* session, ITR mcas, TString<64>& out) = 0;
  /// The application's number of a case's kind (static, modal, ...); 0 for an unknown case.
  virtual int GetMcasType(CQXDBSession* session, ITR mcas) = 0;
  /// The steps of a case, in order; returns their number.
  virtual int GetScasList(CQXDBSession* session, ITR mcas, TArray<ITR>& out) = 0;
  /// Whether a case depends on its history, and whether it runs over time.
  virtual int IsNonlinear(CQXDBSession* session, ITR mcas) = 0;
  virtual int IsTransient(CQXDBSession* session, ITR mcas) = 0;

  // ---- with a default ---------------------------------------------------------------------------

  /// The kinds of fatigue analysis of a case; returns their number.
  virtual int GetFatType(CQXDBSession* session, ITR mcas, TArray<std::int32_t>& out) { return 0; }
  /// Must be supplied: whether a case is a fatigue analysis.
  virtual int IsFatigue(CQXDBSession* session, ITR mcas) = 0;
  /// Whether a case is a design-of-experiments study, and whether it is an optimisation.
  virtual int IsDOEOpt(CQXDBSession* session, ITR mcas) { return 0; }
  virtual int IsOpt(CQXDBSession* session, ITR mcas) { return 0; }
};

QX_CALLBACKS_END

}  // namespace qx
