#pragma once
// Records in words: what a member is, what it holds.
// Threads: any.

#include <string>
#include <vector>

#include "qx_db/record/verbs.h"

namespace qx {

/// A member's kind as a reader of the catalogue wants it: "i32", "f64[3]", "text[64]",
/// "array of f64[2]", "reference", "array of references".
QXDB_API std::string MemberKindText(const Row& row);

/// Long lists of cases, which many members share; each is told once, under a letter.
struct UnitLists {
  std::vector<std::string> lists;  ///< of A, B and so on: "1: length, 2: time"
  static std::string Letter(std::size_t list) {
    return std::string(1, static_cast<char>('A' + list));
  }
};

/// How the unit of a member follows from other members of its record.
struct UnitCases {
  /// For each number the values that give it a unit, as "_METHOD 1: length", or "none"; "" for a
  /// member of a fixed unit.
  std::string text;
  std::vector<int> categories;  ///< that its numbers may have, in rising order
};

/// `fresh` is a record of the type, and left as it was. With `lists`, long ones are put there and
/// named by their letter: "_TYPE: see A".
QXDB_API UnitCases UnitCasesOf(const Schema& schema, const Row& row, TStructBase& fresh,
                               UnitLists* lists = nullptr);

/// A member's value: numbers comma-separated in their shortest form, a text in quotes, references
/// as keys, arrays in brackets.
QXDB_API std::string MemberValueText(const Row& row, const TStructBase& record);

}  // namespace qx
