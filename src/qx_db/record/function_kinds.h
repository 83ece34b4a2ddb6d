#pragma once
// What the variables and the values of function tables are, and so how they convert.

#include <cstdint>
#include <span>
#include <string_view>

#include "qx_db/export.h"

namespace qx {

struct tagTFunc;

/// A kind of variable or value: the code stored in a function, its name, its unit category.
struct FunctionKind {
  std::int32_t code;
  std::string_view name;
  int category;
};

/// All kinds known here; the codes are the places in the list.
QXDB_API std::span<const FunctionKind> FunctionKinds();

/// Unit category of a kind; none for a code that is not known.
QXDB_API int FunctionCategory(std::int32_t code);

/// Whether all kinds of the function are known. The tables of others are left as they are by unit
/// conversion, which is for the caller to tell.
QXDB_API bool HasKnownKinds(const tagTFunc& function);

}  // namespace qx
