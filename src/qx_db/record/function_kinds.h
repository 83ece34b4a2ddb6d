#pragma once
// What the variables and the values of function tables are, and so how they convert.
// Threads: any; the tables never change.

#include <cstdint>
#include <span>
#include <string_view>

#include "qx_db/export.h"

namespace qx {

/// A kind of variable or value: the code stored in a function, its name, its unit category.
struct FunctionKind {
  std::int32_t code;
  std::string_view name;
  int category;
};

/// All kinds known here; the codes are the places in the list.
QXDB_API std::span<const FunctionKind> FunctionKinds();

/// Unit category of a kind; unit::kUnknown for a code that is not known.
QXDB_API int FunctionCategory(std::int32_t code);

}  // namespace qx
