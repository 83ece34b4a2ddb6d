#pragma once
// The fields by which a record travels through the gateway. They group and rename members, so that
// they are a list of their own; each names its member by member pointer.
// Threads: made once with their schema, and only read from then on.

#include <vector>

#include "qx_db/record/row.h"

namespace qx {

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
  enum class Type : std::uint8_t { kInteger, kReal, kBool, kString, kArray };
  /// What the field carries when it is not simply the member's value.
  enum class Form : std::uint8_t {
    kMember,     ///< the member's value, or those of consecutive members as one array
    kLookUp,     ///< a reference that a read replaces only by a record it finds; absent reads as 0
    kLow24,      ///< the low 24 bits of an integer
    kHigh8,      ///< its high 8 bits
    kDescribed,  ///< stands in the description only: a field of an array's elements
  };

  const char* name;
  Type type;
  std::int32_t offset;          ///< of the (first) member
  std::int32_t size;            ///< of all its members
  const char* label = nullptr;  ///< null: the name with blanks for underscores
  Form form = Form::kMember;
  std::int32_t run = 1;   ///< number of members
  bool booleans = false;  ///< an array of Booleans rather than integers
  std::span<const GatewayElementField> elements = {};  ///< array elements as objects
};

/// The gateway fields of a record in the order of its description. The type follows from the
/// member where it is not said.
class QXDB_API FieldList {
 public:
  FieldList& Add(const char* name, const Member& member, const char* label = nullptr) {
    return Append(name, member, label, GatewayField::Form::kMember);
  }
  /// An integer as a Boolean, or an array of them.
  FieldList& Flag(const char* name, const Member& member, const char* label = nullptr);
  FieldList& LookUp(const char* name, const Member& member) {
    return Append(name, member, nullptr, GatewayField::Form::kLookUp);
  }
  FieldList& Low24(const char* name, const Member& member) {
    return Append(name, member, nullptr, GatewayField::Form::kLow24);
  }
  FieldList& High8(const char* name, const Member& member) {
    return Append(name, member, nullptr, GatewayField::Form::kHigh8);
  }
  /// Stands in the description only; `member` is the array whose elements have it.
  FieldList& Described(const char* name, GatewayField::Type type, const Member& member);

  std::vector<GatewayField> Take() { return std::move(fields_); }

 private:
  FieldList& Append(const char* name, const Member& member, const char* label,
                    GatewayField::Form form);

  std::vector<GatewayField> fields_;
};

}  // namespace qx
