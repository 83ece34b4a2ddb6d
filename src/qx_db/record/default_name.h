#pragma once
// Default names of records: user texts of resource keys.
// Threads: any.

#include "qx_db/lib/message.h"
#include "qx_db/record/values.h"

namespace qx {

/// The text of a resource key as a record's name, cut at 63 characters.
inline TString<64> DefaultName(std::string_view key) { return TString<64>(qxLoadText(key).View()); }

}  // namespace qx
