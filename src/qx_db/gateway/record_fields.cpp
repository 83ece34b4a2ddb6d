// Records to and from gateway fields, over the rows and field tables of their schemas.

#include <algorithm>
#include <cmath>
#include <vector>

#include "qx_db/core/session.h"
#include "qx_db/gateway/document.h"
#include "qx_db/platform/text.h"
#include "qx_db/record/verbs.h"

namespace qx {

using dbgateway::Field;
using Number = Row::Number;

namespace {

/// The numbers that one gateway field carries: a member, or a run of members.
struct Run {
  Number number;
  std::vector<char*> at;  // address of each number
};

Run NumbersOf(const GatewayField& field, const Row* first, char* bytes) {
  Run run{first->number, {}};
  const std::int32_t width = first->number == Number::kInt32 ? 4 : 8;
  for (const Row* row = first; row < first + field.run; ++row) {
    for (std::int32_t i = 0; i < row->size; i += width) run.at.push_back(bytes + row->offset + i);
  }
  return run;
}

std::string Mismatch(const Field& field, const char* wanted) {
  return std::string("is ") + field.TypeName() + " where " + wanted + " is expected";
}

// ---- out ----------------------------------------------------------------------------------------

void WriteNumbers(const GatewayField& field, const Run& run, dbgateway::Record& to) {
  if (run.number == Number::kDouble) {
    std::vector<double> values;
    for (const char* at : run.at) values.push_back(LoadAt<double>(at));
    if (field.type == GatewayField::Type::kArray) return to.SetReals(field.name, values);
    return to.SetReal(field.name, values[0]);
  }
  std::vector<std::int64_t> values;
  for (const char* at : run.at) {
    values.push_back(run.number == Number::kInt32 ? LoadAt<std::int32_t>(at)
                                                  : LoadAt<std::int64_t>(at));
  }
  if (field.type == GatewayField::Type::kArray) return to.SetIntegers(field.name, values);
  if (field.type == GatewayField::Type::kBool) return to.SetBool(field.name, values[0] != 0);
  to.SetInteger(field.name, values[0]);
}

void WriteMember(const GatewayField& field, const Row& row, const TStructBase& record,
                 dbgateway::Record& to) {
  // Read only; the cast spares a second set of helpers.
  char* bytes = const_cast<char*>(detail::Bytes(record));
  if (row.kind == MemberKind::kReference) {
    return to.SetInteger(field.name, KeyOf(LoadAt<ITR>(bytes + row.offset)));
  }
  if (row.kind == MemberKind::kReferenceArray) {
    const ArrayStorage& array = detail::ArrayAt(bytes, row);
    const auto* items = static_cast<const ITR*>(array.data);
    std::vector<std::int64_t> keys;
    for (std::int32_t i = 0; i < array.count; ++i) keys.push_back(KeyOf(items[i]));
    return to.SetIntegers(field.name, keys);
  }
  if (row.number == Number::kText) {
    const auto* text = reinterpret_cast<const char16_t*>(bytes + row.offset);
    const auto size = static_cast<std::size_t>(row.size) / 2;
    const std::u16string_view all(text, size);
    return to.SetText(field.name, Utf8(all.substr(0, all.find(u'\0'))));
  }
  WriteNumbers(field, NumbersOf(field, &row, bytes), to);
}

// ---- in -----------------------------------------------------------------------------------------

void ReadNumber(const Field& value, const char* name, Number number, char* at,
                dbgateway::Record& from) {
  if (number == Number::kDouble) {
    if (!value.IsNumber()) from.Tell(name, Mismatch(value, "Real"));
    return StoreAt(at, value.Real());
  }
  const bool whole = value.IsInteger() || value.IsBool();
  if (!whole) from.Tell(name, Mismatch(value, "Integer"));
  const std::int32_t integer = value.IsBool() ? value.Real() != 0 : value.Integer();
  if (value.IsInteger() && std::trunc(value.Real()) != integer) {
    from.Tell(name, "does not fit into 32 bits");
  }
  if (number == Number::kInt32) return StoreAt(at, integer);
  StoreAt<std::int64_t>(at, integer);
}

void ReadNumbers(const Field& value, const GatewayField& field, const Run& run,
                 dbgateway::Record& from) {
  if (field.type != GatewayField::Type::kArray) {
    return ReadNumber(value, field.name, run.number, run.at[0], from);
  }
  if (!value.IsArray()) return from.Tell(field.name, Mismatch(value, "Array"));
  if (value.Size() != run.at.size()) {
    from.Tell(field.name, "has " + std::to_string(value.Size()) + " elements where " +
                              std::to_string(run.at.size()) + " are expected");
  }
  for (std::size_t i = 0; i < std::min(value.Size(), run.at.size()); ++i) {
    ReadNumber(value.At(i), field.name, run.number, run.at[i], from);
  }
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
  text.resize(std::min(text.find(u'\0'), text.size()));
  const auto room = static_cast<std::size_t>(row.size) / 2 - 1;
  if (text.size() > room) {
    from.Tell(field.name, "is cut at " + std::to_string(room) + " characters");
    text.resize(room);
  }
  std::memset(bytes + row.offset, 0, static_cast<std::size_t>(row.size));
  std::memcpy(bytes + row.offset, text.data(), text.size() * 2);
}

const char* TypeText(GatewayField::Type type) {
  constexpr const char* kNames[] = {"Integer", "Real", "Bool", "String", "Array", "Object"};
  return kNames[static_cast<int>(type)];
}

}  // namespace

bool GatewayWrite(const Schema& schema, const TStructBase& record, dbgateway::Record& to) {
  if (to.IsDetached()) return true;
  for (std::size_t i = 0; i < schema.Gateway().size(); ++i) {
    WriteMember(schema.Gateway()[i], *schema.GatewayRows()[i], record, to);
  }
  return true;
}

bool GatewayRead(const Schema& schema, CQXDBSession* session, dbgateway::Record& from,
                 TStructBase& record) {
  if (from.IsDetached()) return true;
  char* bytes = detail::Bytes(record);
  for (std::size_t i = 0; i < schema.Gateway().size(); ++i) {
    const GatewayField& field = schema.Gateway()[i];
    const Row& row = *schema.GatewayRows()[i];
    const Field value = from.Find(field.name);
    if (row.kind == MemberKind::kReference) {
      ReadReference(value, field, row, bytes, *session, from);
    } else if (!value) {
      continue;  // a field that is not there leaves its member alone
    } else if (row.kind == MemberKind::kReferenceArray) {
      ReadReferences(value, field, row, bytes, *session, from);
    } else if (row.number == Number::kText) {
      ReadText(value, field, row, bytes, from);
    } else {
      ReadNumbers(value, field, NumbersOf(field, &row, bytes), from);
    }
  }
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
