#pragma once
// Temporary shapes in the application's views.

#include "qx_db/callback/interface_slot.h"

namespace qx {

QX_CALLBACKS_BEGIN

/// Drawing in the application's views.
class QXDB_API IRenderConnect : public CallbackSlot<IRenderConnect, Registration::kLastWins> {
 public:
  virtual ~IRenderConnect();
  IRenderConnect& operator=(const IRenderConnect&) = default;

  /// Draws a shape under an identifier until it is replaced: `lines` and `triangles` are indices
  /// into `points`, by two and by three; `rgba` is four bytes of colour. Returns 1 when drawn.
  virtual int AddTempShape(CQXViewBase* view, std::int32_t id, TArray<tagTVector3<float>>& points,
                           TArray<std::int32_t>& lines, TArray<std::int32_t>& triangles,
                           unsigned char* rgba, float line_width) {
    return 0;
  }

 protected:
  IRenderConnect();
  IRenderConnect(const IRenderConnect&) = default;
};

QX_CALLBACKS_END

}  // namespace qx
