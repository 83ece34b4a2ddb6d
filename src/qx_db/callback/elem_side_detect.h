#pragma once
// Base of what detects the sides of elements in a document.

#include "qx_db/export.h"

namespace qx {

class CQXDBSession;
class CQXDocBase;
class CQXUnitCtrl;

/// Derived from by the application; there may be any number. It has no operation of its own.
/// Requires that the document outlives it.
class QXDB_API IElemSideDetect {
 public:
  /// Everything is null for a null document.
  explicit IElemSideDetect(CQXDocBase* document);
  virtual ~IElemSideDetect();
  IElemSideDetect(const IElemSideDetect&) = default;
  IElemSideDetect& operator=(const IElemSideDetect&) = default;

 protected:
  CQXDocBase* m_pDoc;
  CQXDBSession* m_pSession;
  /// The session's units: detection tolerances are lengths that a user gave.
  CQXUnitCtrl* m_pUnits;
};

}  // namespace qx
