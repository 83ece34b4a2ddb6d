#pragma once
// A record is a struct plus one row per stored member. The rows say what no type can: the name
// of a member, the pool that a reference points into, the unit of a number. Everything that is
// done to records in general is a verb over these rows (verbs.h).

#include <initializer_list>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "qx_db/lib/units.h"
#include "qx_db/record/struct_base.h"
#include "qx_db/record/values.h"

namespace qx {

class Schema;

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
};

/// What becomes of a record when a record that it refers to is removed.
enum class OnRemoval : std::uint8_t {
  kClear,        ///< it lives on; the reference is cleared, or leaves its array
  kDie,          ///< it is nothing without its target, and is removed too
  kDieWithLast,  ///< it is removed with the last target of its arrays of this rule
  kRefuse,       ///< the removal is refused
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
  /// where it is the record's own key. 0 for none.
  std::uint16_t key_of = 0;
  OnRemoval on_removal = OnRemoval::kClear;
  std::int32_t beside = 0;  ///< offset of an array with an entry for each of this one; 0 for none
  std::int32_t inner_reference = -1;  ///< offset of a reference inside an array element
  UnitRule unit;
  std::int32_t part = 0;  ///< numbers before this one in the vector or array it is a part of
  const IO_VAR* element_schema = nullptr;

  bool IsArray() const {
    return kind == MemberKind::kValueArray || kind == MemberKind::kReferenceArray;
  }
};

namespace detail {

template <class M>
struct MemberTraits {
  static constexpr MemberKind kKind = MemberKind::kValue;
  static constexpr Row::Number kNumber = Row::Number::kBytes;
  static constexpr std::int32_t kElement = 0;
};
template <>
struct MemberTraits<std::int32_t> {
  static constexpr MemberKind kKind = MemberKind::kValue;
  static constexpr Row::Number kNumber = Row::Number::kInt32;
  static constexpr std::int32_t kElement = 0;
};
template <>
struct MemberTraits<std::uint32_t> : MemberTraits<std::int32_t> {};
template <>
struct MemberTraits<std::int64_t> {
  static constexpr MemberKind kKind = MemberKind::kValue;
  static constexpr Row::Number kNumber = Row::Number::kInt64;
  static constexpr std::int32_t kElement = 0;
};
template <>
struct MemberTraits<double> {
  static constexpr MemberKind kKind = MemberKind::kValue;
  static constexpr Row::Number kNumber = Row::Number::kDouble;
  static constexpr std::int32_t kElement = 0;
};
template <>
struct MemberTraits<tagTVector3<double>> : MemberTraits<double> {};
template <std::size_t N>
struct MemberTraits<TString<N>> {
  static constexpr MemberKind kKind = MemberKind::kValue;
  static constexpr Row::Number kNumber = Row::Number::kText;
  static constexpr std::int32_t kElement = 0;
};
/// An iterator is told from a 64-bit value by its unsigned type.
template <>
struct MemberTraits<ITR> {
  static constexpr MemberKind kKind = MemberKind::kReference;
  static constexpr Row::Number kNumber = Row::Number::kInt64;
  static constexpr std::int32_t kElement = 0;
};
template <class T>
struct MemberTraits<TArray<T>> {
  static constexpr MemberKind kKind =
      std::is_same_v<T, ITR> ? MemberKind::kReferenceArray : MemberKind::kValueArray;
  static constexpr Row::Number kNumber = MemberTraits<T>::kNumber;
  static constexpr std::int32_t kElement = sizeof(T);
};
template <class T, std::size_t N>
struct MemberTraits<T[N]> : MemberTraits<T> {};

/// What a vector or an array is made of.
template <class M>
struct PartOf;
template <class T>
struct PartOf<tagTVector3<T>> {
  using type = T;
};
template <class T, std::size_t N>
struct PartOf<T[N]> {
  using type = T;
};

}  // namespace detail

/// Builds the rows of a record in member order. The calls that say more about a member apply to the
/// rows of the last Add.
class QXDB_API RowList {
 public:
  /// A member. Its offset is taken against the record's default instance.
  template <class R, class M>
  RowList& Add(const char16_t* name, M R::*member) {
    Begin();
    return Append(name, Describe<M>(), OffsetOf(member));
  }
  /// The components of a vector, or the items of an array, each a stored member of its own.
  template <class R, class M>
  RowList& AddParts(std::initializer_list<const char16_t*> names, M R::*member) {
    using Part = typename detail::PartOf<M>::type;
    Begin();
    std::int32_t offset = OffsetOf(member);
    for (const char16_t* name : names) {
      Append(name, Describe<Part>(), offset);
      offset += static_cast<std::int32_t>(sizeof(Part));
    }
    return *this;
  }
  /// The items of an array, named by the stem and their index: "_INT_PARAM0" and so on.
  template <class R, class Item, std::size_t N>
  RowList& AddNumbered(std::u16string_view stem, Item (R::*member)[N]) {
    Begin();
    for (std::size_t i = 0; i < N; ++i) {
      Append(Numbered(stem, i), Describe<Item>(),
             OffsetOf(member) + static_cast<std::int32_t>(i * sizeof(Item)));
    }
    return *this;
  }

  /// The pool that references point into.
  RowList& To(std::uint16_t target, ReferenceRule rule = ReferenceRule::kCommon);
  /// The pool in which the number is the key of a record.
  RowList& KeyOf(std::uint16_t target);
  /// What the removal of a target means for the record.
  RowList& When(OnRemoval rule);
  /// The array of another member has one entry for each of this one, and loses them together.
  template <class R>
  RowList& Beside(TArray<std::int32_t> R::*member) {
    rows_.back().beside = OffsetOf(member);
    return *this;
  }
  /// A reference inside each array element, at this offset.
  RowList& InnerReference(std::int32_t at, std::uint16_t target);
  RowList& In(int category, int group = 0);
  RowList& InBy(int (*category_at)(const TStructBase&, int), int category, int group = 0);
  RowList& Listed(int category, int group = 0);
  RowList& Elements(const IO_VAR* element_schema);

  std::vector<Row> Take() { return std::move(rows_); }

 private:
  template <class M>
  static Row Describe() {
    using Traits = detail::MemberTraits<M>;
    Row row;
    row.kind = Traits::kKind;
    row.number = Traits::kNumber;
    row.element_size = Traits::kElement;
    row.size = sizeof(M);
    return row;
  }
  template <class R, class M>
  static std::int32_t OffsetOf(M R::*member) {
    const R& instance = R::GTCD();
    return static_cast<std::int32_t>(reinterpret_cast<const char*>(&(instance.*member)) -
                                     reinterpret_cast<const char*>(&instance));
  }
  /// A name that lives as long as the process.
  static const char16_t* Numbered(std::u16string_view stem, std::size_t index);
  void Begin() { group_ = rows_.size(); }
  RowList& Append(const char16_t* name, Row row, std::int32_t offset);

  std::vector<Row> rows_;
  std::size_t group_ = 0;  // first row of the last Add
};

/// A field of the objects that the elements of an array member become in the gateway.
struct GatewayElementField {
  const char* name;
  std::int32_t offset;  ///< in the element
  Row::Number number;
  std::int32_t count = 1;  ///< more than one becomes an array
  bool boolean = false;
};

/// One gateway field of a record: a member, or a run of members that becomes an array.
struct GatewayField {
  enum class Type : std::uint8_t { kInteger, kReal, kBool, kString, kArray, kObject };
  /// What the field carries when it is not simply the member's value.
  enum class Form : std::uint8_t {
    kMember,     ///< the member's value
    kRun,        ///< consecutive members as one array
    kLookUp,     ///< a reference that a read replaces only by a record it finds; absent reads as 0
    kLow24,      ///< the low 24 bits of an integer
    kHigh8,      ///< its high 8 bits
    kDescribed,  ///< stands in the description only: a field of an array's elements
  };

  const char* name;
  Type type;
  const char16_t* member;       ///< schema name of the (first) member
  const char* label = nullptr;  ///< null: the name with blanks for underscores
  Form form = Form::kMember;
  std::int32_t run = 1;                                ///< number of members of a kRun
  std::span<const GatewayElementField> elements = {};  ///< array elements as objects
  bool booleans = false;  ///< an array of Booleans rather than integers
};

/// The rows of one record type with what the verbs derive from them. Built once per type and kept
/// for the life of the process.
///
/// Invariants: (1) the first row is the key at byte 8; (2) the rows stand in member order and
/// tile the record from byte 8 to its end without gap or overlap; (3) a reference row has a
/// target pool.
class QXDB_API Schema {
 public:
  /// A stretch of the record that images copy as it is, or one array member.
  struct Segment {
    std::int32_t offset;
    std::int32_t size;  ///< bytes in the record
    const Row* array;   ///< null for plain bytes
  };

  Schema(const char* record_name, std::uint16_t type, std::int32_t record_size,
         std::vector<Row> rows, std::span<const GatewayField> gateway = {});
  Schema(const Schema&) = delete;
  Schema& operator=(const Schema&) = delete;

  const char* Name() const { return name_; }  ///< "tagTNode"
  std::uint16_t Type() const { return type_; }
  std::int32_t RecordSize() const { return record_size_; }
  /// Bytes of an image whose arrays are empty; of every image when there are no arrays.
  std::int32_t FixedImageSize() const { return record_size_ - 8; }
  bool HasArrays() const { return has_arrays_; }
  bool HasTexts() const { return has_texts_; }
  std::span<const Row> Rows() const { return rows_; }
  std::span<const Row* const> References() const { return references_; }
  std::span<const Row* const> UnitRows() const { return unit_rows_; }
  std::span<const Segment> Segments() const { return segments_; }
  std::span<const GatewayField> Gateway() const { return gateway_; }
  /// The (first) member of each gateway field, in the order of Gateway().
  std::span<const Row* const> GatewayRows() const { return gateway_rows_; }
  const IO_VAR* IoVars() const { return io_vars_.data(); }
  /// The row of that name, or null.
  const Row* Find(std::u16string_view name) const;
  /// First broken invariant as a text, "" when all hold.
  std::string Validate() const;

 private:
  const char* name_;
  std::uint16_t type_;
  std::int32_t record_size_;
  bool has_arrays_ = false;
  bool has_texts_ = false;
  std::vector<Row> rows_;
  std::vector<const Row*> references_;
  std::vector<const Row*> unit_rows_;
  std::vector<Segment> segments_;
  std::vector<IO_VAR> io_vars_;
  std::span<const GatewayField> gateway_;
  std::vector<const Row*> gateway_rows_;
};

}  // namespace qx
