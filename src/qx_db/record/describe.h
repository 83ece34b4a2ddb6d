#pragma once
// Records in words: what a member is, what it holds.

#include <string>

#include "qx_db/record/verbs.h"

namespace qx {

/// A member's kind as a reader of the catalogue wants it: "i32", "f64[3]", "text[64]",
/// "array of f64[2]", "reference", "array of references".
QXDB_API std::string MemberKindText(const Row& row);

/// A member's value: numbers comma-separated in their shortest form, a text in quotes, references
/// as keys, arrays in brackets.
QXDB_API std::string MemberValueText(const Row& row, const TStructBase& record);

}  // namespace qx
