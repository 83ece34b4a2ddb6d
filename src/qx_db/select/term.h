#pragma once
// A selection's text as a tree: conditions with their arguments, joined by and, or, not.
// Threads: values: any number may read one while none changes it.

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "qx_db/select/selection.h"

namespace qx::select {

struct Condition;

/// Kinds that a term can be of, as bits.
using Kinds = std::uint8_t;
constexpr Kinds BitOf(SelectKind kind) {
  return static_cast<Kinds>(1u << static_cast<unsigned>(kind));
}
inline constexpr Kinds kNodeKind = BitOf(SelectKind::kNodes);
inline constexpr Kinds kElementKind = BitOf(SelectKind::kElements);
inline constexpr Kinds kFaceKind = BitOf(SelectKind::kFaces);
inline constexpr Kinds kAnyKind = kNodeKind | kElementKind | kFaceKind;

/// Every `step`-th key from `first` to `last`.
struct KeyRange {
  Key first, last, step;
};

/// A number, in the unit that was written behind it or in the session's current one.
struct Quantity {
  double value = 0;
  std::string unit;  ///< without its power
  int power = 1;     ///< of the unit: 2 of "mm2"
  std::size_t at = 0;
};

/// A record by its name or its key; or, by the word alone, any or none.
struct NameOrKey {
  enum class Kind { kName, kKey, kAny, kNone } kind;
  std::string name;
  Key key = 0;
  std::size_t at = 0;
};

enum class Comparison { kLess, kAtMost, kMore, kAtLeast, kEqual, kOther };

/// What stands behind the head of a condition, by the names of its syntax.
struct Arguments {
  std::string word;  ///< the head itself, in lower case, where the syntax has one of several
  std::vector<KeyRange> keys;
  std::vector<std::pair<Key, std::int32_t>> faces;  ///< element and face
  std::vector<NameOrKey> names;
  std::vector<Quantity> numbers;  ///< of points, directions, lengths and angles, in order
  std::int64_t count = 0;
  Comparison comparison = Comparison::kLess;
  Key system = 0;  ///< 0 for the global one
  std::size_t system_at = 0;
  bool with_children = false;
};

/// One node of the tree. Of a condition, `parts` has the selection that it is given, if any.
struct Term {
  enum class Op { kCondition, kAnd, kOr, kNot };

  Op op = Op::kCondition;
  const Condition* condition = nullptr;
  Arguments arguments;
  std::vector<Term> parts;
  Kinds kinds = kAnyKind;                   ///< what it could be of
  SelectKind kind = SelectKind::kElements;  ///< what it is of
  std::size_t at = 0;                       ///< where it begins in the text
};

/// Reads a text; see SelectionRule::Parse.
Result<Term> ReadTerm(std::string_view text, std::optional<SelectKind> wanted);

}  // namespace qx::select
