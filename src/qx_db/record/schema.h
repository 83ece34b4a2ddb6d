#pragma once
// A record is a struct plus one row per stored member. The rows say what no type can: the name
// of a member, the pool that a reference points into, the unit of a number. Everything that is
// done to records in general is a verb over these rows (verbs.h).

#include <initializer_list>
#include <span>
#include <string>
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
  /// Category for this record when it depends on the record's other members; null when fixed.
  int (*category_of)(const TStructBase&) = nullptr;
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
  std::int32_t inner_reference = -1;  ///< offset of a reference inside an array element
  UnitRule unit;
  const IO_VAR* element_schema = nullptr;

  bool IsArray() const {
    return kind == MemberKind::kValueArray || kind == MemberKind::kReferenceArray;
  }

  Row To(std::uint16_t target_code, ReferenceRule rule = ReferenceRule::kCommon) const {
    Row row = *this;
    row.target = target_code;
    row.reference_rule = rule;
    return row;
  }
  Row In(int category, int group = 0) const {
    Row row = *this;
    row.unit = {category, group, nullptr, false};
    return row;
  }
  Row InBy(int (*category_of)(const TStructBase&), int category, int group = 0) const {
    Row row = *this;
    row.unit = {category, group, category_of, false};
    return row;
  }
  Row Listed(int category, int group = 0) const {
    Row row = *this;
    row.unit = {category, group, nullptr, true};
    return row;
  }
  Row InnerReference(std::int32_t at, std::uint16_t target_code) const {
    Row row = *this;
    row.inner_reference = at;
    row.target = target_code;
    return row;
  }
  Row Elements(const IO_VAR* schema) const {
    Row row = *this;
    row.element_schema = schema;
    return row;
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

}  // namespace detail

/// The row of one member. `instance` is the default record, against which the offset is taken.
template <class R, class M>
Row Member(const R& instance, const char16_t* name, const M R::*member) {
  using Traits = detail::MemberTraits<M>;
  Row row;
  row.name = name;
  row.kind = Traits::kKind;
  row.number = Traits::kNumber;
  row.element_size = Traits::kElement;
  row.size = sizeof(M);
  row.offset = static_cast<std::int32_t>(reinterpret_cast<const char*>(&(instance.*member)) -
                                         reinterpret_cast<const char*>(&instance));
  return row;
}

/// One gateway field of a record: a member, or a run of members that becomes an array.
struct GatewayField {
  enum class Type : std::uint8_t { kInteger, kReal, kBool, kString, kArray, kObject };
  /// What the field carries when it is not simply the member's value.
  enum class Form : std::uint8_t {
    kMember,  ///< the member's value
    kRun,     ///< consecutive members as one array
    kLookUp,  ///< a reference that a read replaces only by a record it finds; absent reads as 0
  };

  const char* name;
  Type type;
  const char16_t* member;       ///< schema name of the (first) member
  const char* label = nullptr;  ///< null: the name with blanks for underscores
  Form form = Form::kMember;
  std::int32_t run = 1;  ///< number of members of a kRun
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
