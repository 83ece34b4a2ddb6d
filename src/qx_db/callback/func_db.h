#pragma once
// Function data types that the application adds to those of the library.

#include "qx_db/callback/interface_slot.h"

namespace qx {

QX_CALLBACKS_BEGIN

/// Function types of the application.
class QXDB_API IFuncDB : public CallbackSlot<IFuncDB, Registration::kLastWins> {
 public:
  virtual ~IFuncDB();
  IFuncDB& operator=(const IFuncDB&) = default;

  /// Appends the application's data types to a list of function types. Returns 1 when it added any.
  virtual int AddDataTypeInCombo(CQXDBSession* session, CComboBox* combo) { return 0; }

 protected:
  IFuncDB();
  IFuncDB(const IFuncDB&) = default;
};

QX_CALLBACKS_END

}  // namespace qx
