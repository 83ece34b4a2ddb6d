#pragma once
// Records in words: what a member is, what it holds.
// Threads: any.

#include <string>

#include "qx_db/record/verbs.h"

namespace qx {

/// A member's kind as a reader of the catalogue wants it: "i32", "f64[3]", "text[64]",
/// "array of f64[2]", "reference", "array of references".
QXDB_API std::string MemberKindText(const Row& row);

/// How the unit of a member follows from other members of its record, in words: for each number
/// the values that give it a unit, as "_METHOD 1: length"; "" for a member of a fixed unit.
/// `fresh` is a record of the type, and left as it was.
QXDB_API std::string UnitCasesText(const Schema& schema, const Row& row, TStructBase& fresh);

/// A member's value: numbers comma-separated in their shortest form, a text in quotes, references
/// as keys, arrays in brackets.
QXDB_API std::string MemberValueText(const Row& row, const TStructBase& record);

}  // namespace qx
