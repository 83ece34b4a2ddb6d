#pragma once
// Pictures of results that the application draws.

#include "qx_db/callback/interface_slot.h"
#include "qx_db/platform/text.h"

namespace qx {

QX_CALLBACKS_BEGIN

/// Post-processing of the application.
class QXDB_API ICustomPostDB : public CallbackSlot<ICustomPostDB, Registration::kLastWins> {
 public:
  virtual ~ICustomPostDB();
  ICustomPostDB& operator=(const ICustomPostDB&) = default;

  /// Draws one picture for each result into `folder`, names the files in `files`, and returns 1.
  virtual int MakeResultImageFile(TArray<CVResult*>& results, TArray<TString<64>>& files,
                                  T_RPT_POST_IMAGE_PARAM* look, CString folder, CString extension) {
    return 0;
  }
  /// Saves the picture of a document's current view.
  virtual int MakeSaveResultImageFile(CQXDocBase* document, T_SAVE_PIC_D* picture) { return 0; }

 protected:
  ICustomPostDB();
  ICustomPostDB(const ICustomPostDB&) = default;
};

QX_CALLBACKS_END

}  // namespace qx
