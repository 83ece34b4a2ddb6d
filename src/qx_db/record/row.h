#pragma once
// One stored member of a record, and the list by which a record declares its members. A row says
// what no type can: the name of a member, the unit of a number, what becomes of the record when a
// target goes. Place, size and kind come from the member, and so does the pool that a reference
// points into.
// Threads: made once with their schema, and only read from then on.

#include <initializer_list>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "qx_db/lib/units.h"
#include "qx_db/record/reference.h"
#include "qx_db/record/struct_base.h"

namespace qx {

class ElementSchema;

/// The physical dimension of a member's numbers.
struct UnitRule {
  int category = unit::kNone;
  /// Members of one group share an entry of the record's unit descriptor.
  int group = 0;
  /// Category of the number of that index (in the vector or array that the member is or is a part
  /// of, or in an element of an array member) when it depends on the record's other members or
  /// differs from number to number; null when fixed.
  int (*category_at)(const TStructBase&, int number) = nullptr;
  /// Named in the descriptor but never converted (angles fixed in degrees).
  bool listed_only = false;
  /// Offsets of the 32-bit members that `category_at` asks; 0 for none.
  std::int32_t by[2] = {0, 0};
};

/// How a reference deviates from the common rule of key conversion.
enum class ReferenceRule : std::uint8_t {
  /// A single reference converts when it is not 0; a null entry of an array stops IteratorToKey.
  kCommon,
  /// The key is looked up even when it is 0.
  kAlwaysLookUp,
  /// Null entries of an array stay 0 and stop nothing.
  kTolerant,
  /// The record's own conversions leave it alone; only a model file converts it.
  kLeftAlone,
  /// Tolerant; and nothing in a model file, since its target pool is not saved.
  kNotSaved,
};

/// What becomes of a record when a record that it refers to, or is keyed by, is removed.
enum class OnRemoval : std::uint8_t {
  kClear,        ///< it lives on; the reference is cleared, or leaves its array
  kDie,          ///< it is nothing without its target, and is removed too
  kDieWithLast,  ///< it is removed with the last target of its arrays of this rule, unless locked
  kRefuse,       ///< the removal is refused
  kReset,        ///< it is reset where the reference counts (ResetRule); else as kClear
  kPassUp,       ///< of a key: it is given the one that the removed record has in this member
};

/// How a record is reset when a target goes on which what it says depends.
struct ResetRule {
  /// Whether what the record says depends on this reference.
  bool (*counts)(const TStructBase&) = nullptr;
  /// Makes it say what counts without a target. Leaves its key alone.
  void (*reset)(TStructBase&) = nullptr;
};

/// One row: a stored member.
struct Row {
  const char16_t* name = nullptr;
  MemberKind kind = MemberKind::kValue;
  std::int32_t offset = 0;
  std::int32_t size = 0;
  std::int32_t element_size = 0;
  /// What one number of the member is.
  enum class Number : std::uint8_t {
    kInt32,
    kInt64,
    kDouble,
    kText,
    kBytes
  } number = Number::kBytes;
  std::uint16_t target = 0;  ///< type code of the pool that references point into; 0 for none
  ReferenceRule reference_rule = ReferenceRule::kCommon;
  /// Type code of the pool in which this number is a key: of a record that this one belongs to,
  /// where it is the record's own key. 0 for none. It follows that record to a new key.
  std::uint16_t key_of = 0;
  OnRemoval on_removal = OnRemoval::kClear;
  ResetRule reset;                ///< of kReset
  const char* refusal = nullptr;  ///< of kRefuse: resource key; keys of the target and the record
  /// Of kDie and the record's own key: whether a removed record takes this one along; null: always.
  bool (*taken_along)(const TStructBase& owner) = nullptr;
  /// Of kDieWithLast: offset of an array of 32-bit flags; one that is not 0 keeps the record. 0 for
  /// none.
  std::int32_t lock = 0;
  std::int32_t beside = 0;  ///< offset of an array with an entry for each of this one; 0 for none
  std::int32_t inner_reference = -1;  ///< offset of the reference in each array element, if any
  UnitRule unit;
  std::int32_t part = 0;  ///< numbers before this one in the vector or array it is a part of
  /// Members of the structures that an array is made of; null for plain elements.
  const ElementSchema* elements = nullptr;
  bool describes_elements = false;  ///< the descriptor carries the schema of the elements

  bool IsArray() const {
    return kind == MemberKind::kValueArray || kind == MemberKind::kReferenceArray;
  }
  bool IsReference() const {
    return kind == MemberKind::kReference || kind == MemberKind::kReferenceArray;
  }
};

namespace detail {

/// What the type of a member says about it. A type without these is none of a stored member.
template <class M>
struct MemberTraits;

struct ValueTraits {
  static constexpr MemberKind kKind = MemberKind::kValue;
  static constexpr std::uint16_t kTarget = 0;
};
template <>
struct MemberTraits<std::int32_t> : ValueTraits {
  static constexpr Row::Number kNumber = Row::Number::kInt32;
};
template <>
struct MemberTraits<std::uint32_t> : MemberTraits<std::int32_t> {};
template <>
struct MemberTraits<std::int64_t> : ValueTraits {
  static constexpr Row::Number kNumber = Row::Number::kInt64;
};
template <>
struct MemberTraits<std::uint64_t> : MemberTraits<std::int64_t> {};
template <>
struct MemberTraits<double> : ValueTraits {
  static constexpr Row::Number kNumber = Row::Number::kDouble;
};
template <>
struct MemberTraits<PackedDouble> : MemberTraits<double> {};
template <>
struct MemberTraits<tagTVector3<double>> : MemberTraits<double> {};
template <std::size_t N>
struct MemberTraits<TString<N>> : ValueTraits {
  static constexpr Row::Number kNumber = Row::Number::kText;
};
template <std::uint16_t Target>
struct MemberTraits<TRef<Target>> {
  static constexpr MemberKind kKind = MemberKind::kReference;
  static constexpr Row::Number kNumber = Row::Number::kInt64;
  static constexpr std::uint16_t kTarget = Target;
};
template <std::uint16_t Target>
struct MemberTraits<TRefArray<Target>> {
  static constexpr MemberKind kKind = MemberKind::kReferenceArray;
  static constexpr Row::Number kNumber = Row::Number::kInt64;
  static constexpr std::uint16_t kTarget = Target;
};

/// Whether the elements of an array are structures that declare their members.
template <class E>
concept StructuredElement = requires {
  E::GetSchema();
};

/// What a vector or an array is made of: itself, when it is neither.
template <class M>
struct PartOf {
  using type = M;
};
template <class T>
struct PartOf<tagTVector3<T>> {
  using type = T;
};
template <class T, std::size_t N>
struct PartOf<T[N]> {
  using type = T;
};

/// Fills in what array elements that are structures say.
QXDB_API void TakeElements(Row& row, const ElementSchema& elements);

template <class M>
struct RowOf {
  static Row Make() {
    Row row;
    row.kind = MemberTraits<M>::kKind;
    row.number = MemberTraits<M>::kNumber;
    row.target = MemberTraits<M>::kTarget;
    row.size = sizeof(M);
    if (row.kind == MemberKind::kReferenceArray) row.element_size = sizeof(ITR);
    return row;
  }
};
template <class E>
struct RowOf<TArray<E>> {
  static Row Make() {
    Row row;
    row.kind = MemberKind::kValueArray;
    row.size = sizeof(TArray<E>);
    row.element_size = sizeof(E);
    if constexpr (StructuredElement<E>) {
      TakeElements(row, E::GetSchema());
    } else {
      static_assert(MemberTraits<E>::kTarget == 0, "an array of references is a TRefArray");
      row.number = MemberTraits<E>::kNumber;
    }
    return row;
  }
};
template <class T, std::size_t N>
struct RowOf<T[N]> {
  static Row Make() {
    Row row = RowOf<T>::Make();
    row.size = sizeof(T[N]);
    return row;
  }
};

/// An instance to take offsets against: the default record, or an element of an array.
template <class R>
const R& InstanceOf() {
  if constexpr (requires { R::GTCD(); }) {
    return R::GTCD();
  } else {
    static const R instance{};
    return instance;
  }
}

}  // namespace detail

/// A member, by its pointer: all of its row but the name.
class QXDB_API Member {
 public:
  template <class R, class M>
  Member(M R::*member) : row_(detail::RowOf<M>::Make()) {
    const R& instance = detail::InstanceOf<R>();
    row_.offset = static_cast<std::int32_t>(reinterpret_cast<const char*>(&(instance.*member)) -
                                            reinterpret_cast<const char*>(&instance));
    part_size_ = sizeof(typename detail::PartOf<M>::type);
  }
  /// A component of a vector, or an item of an array.
  template <class R, class M>
  Member(M R::*member, std::int32_t part) : Member(Member(member).Part(part)) {}

  const Row& AsRow() const { return row_; }
  Member Part(std::int32_t part) const;

 private:
  Row row_;
  std::int32_t part_size_;
};

/// The rows of a record in member order, its key first. The calls that say more about a member
/// apply to all rows of the last Add; before the first Add, to the key.
class QXDB_API RowList {
 public:
  /// The list of an array's elements, which have no key.
  RowList() = default;
  explicit RowList(const Member& key) { Add(u"_KEY", key); }

  /// A member.
  RowList& Add(const char16_t* name, const Member& member);
  /// The components of a vector, or the items of an array, each a stored member of its own.
  RowList& AddParts(std::initializer_list<const char16_t*> names, const Member& member);
  /// The items of an array, named by the stem and their index: "_INT_PARAM0" and so on.
  RowList& AddNumbered(std::u16string_view stem, const Member& member);

  /// A reference that does not convert as others do.
  RowList& Converts(ReferenceRule rule);
  /// The pool in which the number is the key of a record.
  RowList& KeyOf(std::uint16_t target);
  /// What the removal of a target means for the record.
  RowList& When(OnRemoval rule);
  /// The same as When(kRefuse), with the text that is shown.
  RowList& Refuses(const char* text_key);
  /// The same as When(kReset).
  RowList& Resets(const ResetRule& rule);
  /// The same as When(kDie), for a key: it goes with the record that it is of, where that takes it
  /// along.
  RowList& GoesWithOwner(bool (*taken_along)(const TStructBase& owner) = nullptr);
  /// The same as When(kDieWithLast), unless a flag of that member is set.
  RowList& DiesWithLastUnless(const Member& lock);
  /// The array of another member has one entry for each of this one, and loses them together.
  RowList& Beside(const Member& other);
  RowList& In(int category, int group = 0);
  /// A category that follows from the members `by`, at most two, and the number's index.
  RowList& InBy(int (*category_at)(const TStructBase&, int), int category, int group = 0,
                std::initializer_list<Member> by = {});
  RowList& Listed(int category, int group = 0);
  /// The member's descriptor carries the schema of the array's elements.
  RowList& DescribesElements();

  std::vector<Row> Take() { return std::move(rows_); }

 private:
  void Begin() { group_ = rows_.size(); }
  void Append(const char16_t* name, Row row);
  std::span<Row> Group() { return std::span(rows_).subspan(group_); }

  std::vector<Row> rows_;
  std::size_t group_ = 0;  // first row of the last Add
};

}  // namespace qx
