#pragma once
// What the library asks of the process that it runs in.

#include "qx_db/callback/interface_slot.h"
#include "qx_db/platform/text.h"

namespace qx {

/// The second interface of the application: six operations, all of them to be supplied. The first
/// object of the process stays registered for good, so keep it to the end. The order of the
/// operations is part of the binary interface.
class QXDB_API IQXDbInterface : public CallbackSlot<IQXDbInterface, Registration::kFirstWins> {
 public:
  virtual ~IQXDbInterface();
  IQXDbInterface& operator=(const IQXDbInterface&) = default;

  /// Whether tendon nodes that a merge joined must be split again in this session. Asked after
  /// elements were processed for removed nodes, in the modes that IAppDB::QueryMode(99) tells.
  virtual int NeedSplitMergedTendonNode(CQXDBSession* session) = 0;
  /// The session that commands act on, null when no model is open.
  virtual CQXDBSession* GetActiveSession() = 0;
  /// Folder of the material libraries, empty when there is none.
  virtual CString GetMaterialFolder() = 0;
  /// Whether the model may not be changed.
  virtual int IsReadOnly(CQXDBSession* session) = 0;
  /// Shows how far a long operation has come, from 0 to 1.
  virtual void ShowProgress(CQXDBSession* session, double fraction) = 0;
  /// Whether the user wants a long operation to stop.
  virtual int IsCancelled(CQXDBSession* session) = 0;

 protected:
  IQXDbInterface();
  IQXDbInterface(const IQXDbInterface&) = default;
};

}  // namespace qx
