#pragma once
// An application that has nothing of its own.

#include "qx_db/callback/callbacks.h"

namespace qx {

/// Supplies what must be supplied, as an application without materials would.
struct SilentAppDB : IAppDB {
  int QueryMode(CQXDBSession*, int) override { return 0; }
  Key GetMatlKey(CQXDBSession*, ITR) override { return 0; }
  Key GetMatlNewKey(CQXDBSession*) override { return 0; }
  ITR MatlFindItr(CQXDBSession*, Key) override { return 0; }
  ITR GetMatlByName(CQXDBSession*, const CString&) override { return 0; }
  int SetMatlName(CQXDBSession*, ITR, const CString&) override { return 0; }
  int GetMatlType(CQXDBSession*, ITR) override { return 0; }
  int IsMatlUsed(CQXDBSession*, ITR) override { return 0; }
  int RemoveMatlW(CQXDBSession*, ITR) override { return 0; }
};

}  // namespace qx
