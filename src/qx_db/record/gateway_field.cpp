#include "qx_db/record/gateway_field.h"

namespace qx {
namespace {

using Type = GatewayField::Type;

/// The type that a member has in the gateway unless it is said to be another.
Type TypeOf(const Row& row) {
  if (row.IsArray()) return Type::kArray;
  switch (row.number) {
    case Row::Number::kText:
      return Type::kString;
    case Row::Number::kInt32:
      return row.size == 4 ? Type::kInteger : Type::kArray;
    case Row::Number::kInt64:
      return row.size == 8 ? Type::kInteger : Type::kArray;
    case Row::Number::kDouble:
      return row.size == 8 ? Type::kReal : Type::kArray;
    case Row::Number::kBytes:
      break;
  }
  return Type::kArray;
}

}  // namespace

FieldList& FieldList::Append(const char* name, const Member& member, const char* label,
                             GatewayField::Form form) {
  const Row& row = member.AsRow();
  fields_.push_back({name, TypeOf(row), row.offset, row.size, label, form});
  return *this;
}

FieldList& FieldList::Flag(const char* name, const Member& member, const char* label) {
  Append(name, member, label, GatewayField::Form::kMember);
  GatewayField& field = fields_.back();
  if (field.type == Type::kInteger) {
    field.type = Type::kBool;
  } else {
    field.booleans = true;
  }
  return *this;
}

FieldList& FieldList::Described(const char* name, GatewayField::Type type, const Member& member) {
  Append(name, member, nullptr, GatewayField::Form::kDescribed);
  fields_.back().type = type;
  return *this;
}

}  // namespace qx
