// Records to and from gateway fields, over the rows and field tables of their schemas.

#include <algorithm>
#include <cmath>
#include <vector>

#include "qx_db/core/session.h"
#include "qx_db/gateway/document.h"
#include "qx_db/gateway/json.h"
#include "qx_db/platform/text.h"
#include "qx_db/record/verbs.h"

namespace qx {

using dbgateway::Allocator;
using dbgateway::Field;
using dbgateway::Json;
using Number = Row::Number;

namespace {

/// Numbers of one kind at consecutive addresses: what a field, or one of an array's elements, is
/// made of.
struct Numbers {
  Number number;
  char* at;
  std::int32_t count;
  bool boolean;
  std::int32_t Width() const { return number == Number::kInt32 ? 4 : 8; }
};

/// The numbers of a member, or of the run of members that starts with it. Members of a run lie side
/// by side, since rows leave no gaps.
Numbers NumbersOf(const GatewayField& field, const Row& row, char* bytes) {
  const bool boolean = field.booleans || field.type == GatewayField::Type::kBool;
  Numbers numbers{row.number, bytes + row.offset, 0, boolean};
  numbers.count = row.size * field.run / numbers.Width();
  return numbers;
}

bool IsSplit(const GatewayField& field) {
  return field.form == GatewayField::Form::kLow24 || field.form == GatewayField::Form::kHigh8;
}

std::string Mismatch(const Field& field, const char* wanted) {
  return std::string("is ") + field.TypeName() + " where " + wanted + " is expected";
}

// ---- out ----------------------------------------------------------------------------------------

Json MakeNumber(const Numbers& numbers, std::int32_t i) {
  const char* at = numbers.at + i * numbers.Width();
  if (numbers.number == Number::kDouble) return Json(LoadAt<double>(at));
  if (numbers.number == Number::kInt64) return Json(LoadAt<std::int64_t>(at));
  const auto value = LoadAt<std::int32_t>(at);
  return numbers.boolean ? Json(value != 0) : Json(value);
}

Json MakeArray(const Numbers& numbers, Allocator& allocator) {
  Json array(rapidjson::kArrayType);
  array.Reserve(static_cast<rapidjson::SizeType>(numbers.count), allocator);
  for (std::int32_t i = 0; i < numbers.count; ++i)
    array.PushBack(MakeNumber(numbers, i), allocator);
  return array;
}

/// An element of an array member: a number, an array of numbers, or an object of named fields.
Json MakeElement(const GatewayField& field, const Row& row, char* at, Allocator& allocator) {
  if (field.elements.empty()) {
    Numbers numbers{row.number, at, 0, field.booleans};
    numbers.count = row.element_size / numbers.Width();
    return numbers.count == 1 ? MakeNumber(numbers, 0) : MakeArray(numbers, allocator);
  }
  Json object(rapidjson::kObjectType);
  for (const GatewayElementField& part : field.elements) {
    const Numbers numbers{part.number, at + part.offset, part.count, part.boolean};
    object.AddMember(Json(rapidjson::StringRef(part.name)),
                     part.count == 1 ? MakeNumber(numbers, 0) : MakeArray(numbers, allocator),
                     allocator);
  }
  return object;
}

Json MakeText(const Row& row, const char* bytes, Allocator& allocator) {
  const auto* text = reinterpret_cast<const char16_t*>(bytes + row.offset);
  const std::u16string_view all(text, static_cast<std::size_t>(row.size) / 2);
  return Json(Utf8(all.substr(0, all.find(u'\0'))), allocator);
}

Json MakeValue(const GatewayField& field, const Row& row, char* bytes, Allocator& allocator) {
  char* member = bytes + row.offset;
  if (row.kind == MemberKind::kReference) return Json(KeyOf(LoadAt<ITR>(member)));
  if (row.IsArray()) {
    const ArrayStorage& array = detail::ArrayAt(bytes, row);
    char* at = static_cast<char*>(array.data);
    Json values(rapidjson::kArrayType);
    values.Reserve(static_cast<rapidjson::SizeType>(array.count), allocator);
    for (std::int32_t i = 0; i < array.count; ++i, at += row.element_size) {
      const bool reference = row.kind == MemberKind::kReferenceArray;
      values.PushBack(
          reference ? Json(KeyOf(LoadAt<ITR>(at))) : MakeElement(field, row, at, allocator),
          allocator);
    }
    return values;
  }
  if (row.number == Number::kText) return MakeText(row, bytes, allocator);
  if (IsSplit(field)) {
    const auto value = LoadAt<std::uint32_t>(member);
    return Json(field.form == GatewayField::Form::kLow24 ? value & 0xFFFFFF : value >> 24);
  }
  const Numbers numbers = NumbersOf(field, row, bytes);
  return field.type == GatewayField::Type::kArray ? MakeArray(numbers, allocator)
                                                  : MakeNumber(numbers, 0);
}

// ---- in -----------------------------------------------------------------------------------------

/// A flag takes a Boolean, 0 or 1; another integer is kept, and told.
void ReadNumber(const Field& value, const char* name, Number number, bool boolean, char* at,
                dbgateway::Record& from) {
  if (number == Number::kDouble) {
    if (!value.IsNumber()) from.Tell(name, Mismatch(value, "Real"));
    return StoreAt(at, value.Real());
  }
  const bool is_flag = value.IsBool() || (value.IsInteger() && (value.Integer64() | 1) == 1);
  const bool fits = boolean ? is_flag : value.IsInteger();
  if (!fits) from.Tell(name, Mismatch(value, boolean ? "Bool" : "Integer"));
  if (number == Number::kInt64) return StoreAt<std::int64_t>(at, value.Integer64());
  const std::int32_t integer = boolean && value.IsBool() ? value.Real() != 0 : value.Integer();
  if (value.IsInteger() && std::trunc(value.Real()) != integer) {
    from.Tell(name, "does not fit into 32 bits");
  }
  StoreAt(at, integer);
}

void ReadArray(const Field& value, const char* name, const Numbers& numbers,
               dbgateway::Record& from) {
  if (!value.IsArray()) return from.Tell(name, Mismatch(value, "Array"));
  const auto count = static_cast<std::size_t>(numbers.count);
  if (value.Size() != count) {
    from.Tell(name, "has " + std::to_string(value.Size()) + " elements where " +
                        std::to_string(count) + " are expected");
  }
  for (std::size_t i = 0; i < std::min(value.Size(), count); ++i) {
    char* at = numbers.at + i * static_cast<std::size_t>(numbers.Width());
    ReadNumber(value.At(i), name, numbers.number, numbers.boolean, at, from);
  }
}

void ReadElement(const Field& value, const GatewayField& field, const Row& row, char* at,
                 dbgateway::Record& from) {
  if (field.elements.empty()) {
    Numbers numbers{row.number, at, 0, field.booleans};
    numbers.count = row.element_size / numbers.Width();
    if (numbers.count == 1) {
      return ReadNumber(value, field.name, row.number, field.booleans, at, from);
    }
    return ReadArray(value, field.name, numbers, from);
  }
  if (!value.IsObject()) return from.Tell(field.name, Mismatch(value, "Object"));
  for (const GatewayElementField& part : field.elements) {
    const Field member = value.Member(part.name);
    if (!member) continue;
    const Numbers numbers{part.number, at + part.offset, part.count, part.boolean};
    if (part.count == 1) {
      ReadNumber(member, part.name, part.number, part.boolean, numbers.at, from);
    } else {
      ReadArray(member, part.name, numbers, from);
    }
  }
}

void ReadElements(const Field& value, const GatewayField& field, const Row& row, char* bytes,
                  dbgateway::Record& from) {
  if (!value.IsArray()) return from.Tell(field.name, Mismatch(value, "Array"));
  ArrayStorage& array = detail::ArrayAt(bytes, row);
  array.Resize(static_cast<std::int64_t>(value.Size()), static_cast<std::size_t>(row.element_size));
  char* at = static_cast<char*>(array.data);
  for (std::size_t i = 0; i < value.Size(); ++i, at += row.element_size) {
    ReadElement(value.At(i), field, row, at, from);
  }
}

/// A part of an integer, the rest of which another field carries.
void ReadSplit(const Field& value, const GatewayField& field, char* at, dbgateway::Record& from) {
  const bool low = field.form == GatewayField::Form::kLow24;
  std::uint32_t part = 0;
  ReadNumber(value, field.name, Number::kInt32, false, reinterpret_cast<char*>(&part), from);
  const std::uint32_t most = low ? 0xFFFFFF : 0xFF;
  if (part > most) from.Tell(field.name, "is not between 0 and " + std::to_string(most));
  const auto whole = LoadAt<std::uint32_t>(at);
  StoreAt(at, low ? (whole & ~most) | (part & most) : (whole & 0xFFFFFF) | (part & most) << 24);
}

/// The key that a reference field carries, told about when it is none.
Key ReadKey(const Field& value, const char* name, dbgateway::Record& from) {
  if (!value.IsInteger()) from.Tell(name, Mismatch(value, "Integer"));
  return value.Integer();
}

std::string Unresolved(Key key) { return "key " + std::to_string(key) + " names no record"; }

void ReadReference(const Field& value, const GatewayField& field, const Row& row, char* bytes,
                   CQXDBSession& session, dbgateway::Record& from) {
  const bool look_up = field.form == GatewayField::Form::kLookUp;
  if (!value && !look_up) return;
  const Key key = value ? ReadKey(value, field.name, from) : 0;
  const ITR found = FindRecord(session, row.target, key);
  if (found || (key == 0 && !look_up)) {
    StoreAt(bytes + row.offset, key == 0 && !look_up ? ITR{0} : found);
  } else if (key != 0) {
    from.Tell(field.name, Unresolved(key));
  }
}

void ReadReferences(const Field& value, const GatewayField& field, const Row& row, char* bytes,
                    CQXDBSession& session, dbgateway::Record& from) {
  if (!value.IsArray()) return from.Tell(field.name, Mismatch(value, "Array"));
  ArrayStorage& array = detail::ArrayAt(bytes, row);
  array.Resize(static_cast<std::int64_t>(value.Size()), sizeof(ITR));
  auto* items = static_cast<ITR*>(array.data);
  for (std::size_t i = 0; i < value.Size(); ++i) {
    const Key key = ReadKey(value.At(i), field.name, from);
    // An entry whose key is unknown keeps its previous content.
    if (const ITR found = FindRecord(session, row.target, key)) {
      items[i] = found;
    } else if (key != 0) {
      from.Tell(field.name, Unresolved(key));
    }
  }
}

void ReadText(const Field& value, const GatewayField& field, const Row& row, char* bytes,
              dbgateway::Record& from) {
  if (!value.IsText()) from.Tell(field.name, Mismatch(value, "String"));
  std::u16string text = Utf16(value.Text());
  if (const std::size_t end = text.find(u'\0'); end != std::u16string::npos) {
    from.Tell(field.name, "is cut at a NUL character");
    text.resize(end);
  }
  const auto room = static_cast<std::size_t>(row.size) / 2 - 1;
  if (text.size() > room) {
    from.Tell(field.name, "is cut at " + std::to_string(room) + " characters");
    const bool splits_pair = (text[room - 1] & 0xFC00) == 0xD800;
    text.resize(splits_pair ? room - 1 : room);
  }
  std::memset(bytes + row.offset, 0, static_cast<std::size_t>(row.size));
  std::memcpy(bytes + row.offset, text.data(), text.size() * 2);
}

/// Tells of fields that the record type does not have, and of fields that stand there twice.
void TellOfOthers(const Schema& schema, dbgateway::Record& from) {
  std::vector<std::string_view> names = from.FieldNames();
  std::sort(names.begin(), names.end());
  for (std::size_t i = 0; i < names.size(); ++i) {
    const std::string name(names[i]);
    if (i > 0 && names[i] == names[i - 1]) {
      from.Tell(name.c_str(), "stands there more than once; the last counts");
      continue;
    }
    const bool known = std::any_of(
        schema.Gateway().begin(), schema.Gateway().end(), [&](const GatewayField& field) {
          return field.form != GatewayField::Form::kDescribed && name == field.name;
        });
    if (!known) from.Tell(name.c_str(), "is not a field of this table");
  }
}

const char* TypeText(GatewayField::Type type) {
  constexpr const char* kNames[] = {"Integer", "Real", "Bool", "String", "Array", "Object"};
  return kNames[static_cast<int>(type)];
}

}  // namespace

bool GatewayWrite(const Schema& schema, const TStructBase& record, dbgateway::Record& to) {
  if (to.IsDetached()) return true;
  // Read only; the cast spares a second set of helpers.
  char* bytes = const_cast<char*>(detail::Bytes(record));
  for (std::size_t i = 0; i < schema.Gateway().size(); ++i) {
    const GatewayField& field = schema.Gateway()[i];
    if (field.form == GatewayField::Form::kDescribed) continue;
    const Field slot = to.Set(field.name);
    dbgateway::Cast(*slot.Value()) =
        MakeValue(field, *schema.GatewayRows()[i], bytes, dbgateway::Cast(*slot.Memory()));
  }
  return true;
}

bool GatewayRead(const Schema& schema, CQXDBSession* session, dbgateway::Record& from,
                 TStructBase& record) {
  if (from.IsDetached()) return true;
  char* bytes = detail::Bytes(record);
  std::size_t found = 0;
  for (std::size_t i = 0; i < schema.Gateway().size(); ++i) {
    const GatewayField& field = schema.Gateway()[i];
    if (field.form == GatewayField::Form::kDescribed) continue;
    const Row& row = *schema.GatewayRows()[i];
    const Field value = from.Find(field.name);
    found += value ? 1 : 0;
    if (row.kind == MemberKind::kReference) {
      ReadReference(value, field, row, bytes, *session, from);
    } else if (!value) {
      continue;  // a field that is not there leaves its member alone
    } else if (row.kind == MemberKind::kReferenceArray) {
      ReadReferences(value, field, row, bytes, *session, from);
    } else if (row.IsArray()) {
      ReadElements(value, field, row, bytes, from);
    } else if (row.number == Number::kText) {
      ReadText(value, field, row, bytes, from);
    } else if (IsSplit(field)) {
      ReadSplit(value, field, bytes + row.offset, from);
    } else if (field.type == GatewayField::Type::kArray) {
      ReadArray(value, field.name, NumbersOf(field, row, bytes), from);
    } else {
      ReadNumber(value, field.name, row.number, field.type == GatewayField::Type::kBool,
                 bytes + row.offset, from);
    }
  }
  if (from.FieldCount() != found) TellOfOthers(schema, from);
  return true;
}

bool GatewayDescribe(const Schema& schema, Field& to) {
  for (const GatewayField& field : schema.Gateway()) {
    std::string label = field.label ? field.label : field.name;
    if (!field.label) std::replace(label.begin(), label.end(), '_', ' ');
    to.Describe(field.name, label, TypeText(field.type));
  }
  return true;
}

}  // namespace qx
