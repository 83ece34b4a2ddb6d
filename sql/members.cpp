#include "sql/members.h"

#include <cmath>
#include <cstring>
#include <limits>

#include "sql/record_source.h"

namespace qx::sql {
namespace {

using Form = MemberColumn::Form;

int CategoryOfNumber(const MemberColumn& column, const TStructBase& record) {
  if (!column.has_unit) return unit::kNone;
  return column.category != unit::kNone ? column.category
                                        : CategoryOf(*column.row, record, column.number);
}

std::string TypeOf(sqlite3_value* value) {
  switch (sqlite3_value_type(value)) {
    case SQLITE_NULL:
      return "NULL";
    case SQLITE_BLOB:
      return "a blob";
    default:
      return '\'' + std::string(reinterpret_cast<const char*>(sqlite3_value_text(value))) + '\'';
  }
}

Outcome TakeText(const MemberColumn& column, sqlite3_value* value, char* at,
                 const std::string& place) {
  const int type = sqlite3_value_type(value);
  if (type == SQLITE_BLOB || type == SQLITE_NULL) {
    return Failure{"", place, column.name + " is a text, and " + TypeOf(value) + " is none",
                   "give a text"};
  }
  const auto* bytes = reinterpret_cast<const char*>(sqlite3_value_text(value));
  bool valid = true;
  const std::u16string text =
      Utf16({bytes, static_cast<std::size_t>(sqlite3_value_bytes(value))}, &valid);
  const auto room = static_cast<std::size_t>(column.text_units) - 1;
  if (!valid || text.find(u'\0') != std::u16string::npos) {
    return Failure{"", place, column.name + " is given what is no UTF-8 text", "give a text"};
  }
  if (text.size() > room) {
    return Failure{"", place,
                   column.name + " holds " + std::to_string(room) + " characters, not " +
                       std::to_string(text.size()),
                   "give a shorter one"};
  }
  std::memset(at, 0, static_cast<std::size_t>(column.text_units) * 2);
  std::memcpy(at, text.data(), text.size() * 2);
  return {};
}

Outcome TakeReal(const MemberColumn& column, sqlite3_value* value, char* at,
                 const TStructBase& record, const Units& units, const std::string& place) {
  if (!IsNumber(value)) {
    return Failure{"", place, column.name + " is a number, and " + TypeOf(value) + " is none",
                   "give a number"};
  }
  const double number =
      units.ToModel(CategoryOfNumber(column, record), sqlite3_value_double(value));
  if (!std::isfinite(number)) {
    return Failure{"", place, column.name + " would be no finite number", "give a smaller one"};
  }
  StoreAt(at, number);
  return {};
}

Outcome TakeInteger(const MemberColumn& column, sqlite3_value* value, std::int64_t least,
                    std::int64_t most, std::int64_t& out, const std::string& place) {
  bool fits = IsNumber(value);
  if (fits && sqlite3_value_type(value) == SQLITE_FLOAT) {
    const double number = sqlite3_value_double(value);
    fits = number == std::floor(number) && std::abs(number) < 9e15;
  }
  out = fits ? sqlite3_value_int64(value) : 0;
  if (fits && out >= least && out <= most) return {};
  return Failure{"", place,
                 column.name + " is a whole number from " + std::to_string(least) + " to " +
                     std::to_string(most) + ", and " + TypeOf(value) + " is none",
                 "give such a number"};
}

Outcome TakeReference(const MemberColumn& column, sqlite3_value* value, char* at,
                      CQXDBSession& session, const std::string& place) {
  if (sqlite3_value_type(value) == SQLITE_NULL) {
    StoreAt(at, ITR{0});
    return {};
  }
  const DPoolBase* pool = session.GetDataPool(column.target);
  const Key key = KeyIn(value);
  const ITR target = pool && key >= 0 ? pool->Find(key) : 0;
  if (!target) {
    return Failure{"", place,
                   column.name + " refers to " + (pool ? TableName(*pool) : "a pool") + ' ' +
                       TypeOf(value) + ", which is not there",
                   "name one that is, or NULL for none"};
  }
  StoreAt(at, target);
  return {};
}

}  // namespace

void GiveMember(sqlite3_context* to, const MemberColumn& column, const char* bytes,
                const TStructBase& record, const Units& units) {
  const char* at = bytes + column.offset;
  switch (column.form) {
    case Form::kInt32:
      return sqlite3_result_int(to, LoadAt<std::int32_t>(at));
    case Form::kInt64:
      return sqlite3_result_int64(to, LoadAt<std::int64_t>(at));
    case Form::kReal: {
      double number = LoadAt<double>(at);
      if (!units.AreModels()) number = units.FromModel(CategoryOfNumber(column, record), number);
      return sqlite3_result_double(to, number);
    }
    case Form::kText: {
      const auto* text = reinterpret_cast<const char16_t*>(at);
      const std::u16string_view all(text, static_cast<std::size_t>(column.text_units));
      const std::string utf8 = Utf8(all.substr(0, all.find(u'\0')));
      return sqlite3_result_text(to, utf8.data(), static_cast<int>(utf8.size()), SQLITE_TRANSIENT);
    }
    case Form::kReference: {
      const ITR target = LoadAt<ITR>(at);
      return target ? sqlite3_result_int(to, KeyOf(target)) : sqlite3_result_null(to);
    }
    case Form::kLow24:
      return sqlite3_result_int(to, static_cast<int>(LoadAt<std::uint32_t>(at) & 0xFFFFFF));
    case Form::kHigh8:
      return sqlite3_result_int(to, static_cast<int>(LoadAt<std::uint32_t>(at) >> 24));
  }
}

Outcome TakeMember(const MemberColumn& column, sqlite3_value* value, char* bytes,
                   const TStructBase& record, const Units& units, CQXDBSession& session,
                   const std::string& place) {
  char* at = bytes + column.offset;
  std::int64_t number = 0;
  Outcome taken;
  switch (column.form) {
    case Form::kReal:
      return TakeReal(column, value, at, record, units, place);
    case Form::kText:
      return TakeText(column, value, at, place);
    case Form::kReference:
      return TakeReference(column, value, at, session, place);
    case Form::kInt64:
      taken = TakeInteger(column, value, std::numeric_limits<std::int64_t>::min(),
                          std::numeric_limits<std::int64_t>::max(), number, place);
      if (taken) StoreAt(at, number);
      return taken;
    case Form::kInt32: {
      const bool is_key = column.row->offset == 8 && column.offset == 8;
      taken = TakeInteger(column, value, is_key ? 0 : std::numeric_limits<std::int32_t>::min(),
                          std::numeric_limits<std::int32_t>::max(), number, place);
      if (taken) StoreAt(at, static_cast<std::int32_t>(number));
      return taken;
    }
    case Form::kLow24:
      taken = TakeInteger(column, value, 0, 0xFFFFFF, number, place);
      if (taken) {
        StoreAt(at, (LoadAt<std::uint32_t>(at) & 0xFF000000u) | static_cast<std::uint32_t>(number));
      }
      return taken;
    case Form::kHigh8:
      taken = TakeInteger(column, value, 0, 0xFF, number, place);
      if (taken) {
        StoreAt(at, (LoadAt<std::uint32_t>(at) & 0xFFFFFFu) | static_cast<std::uint32_t>(number)
                                                                  << 24);
      }
      return taken;
  }
  return {};
}

std::vector<Column> WithUnit(const std::vector<MemberColumn>& members) {
  std::vector<Column> columns(members.begin(), members.end());
  const bool has_unit = std::any_of(columns.begin(), columns.end(),
                                    [](const Column& column) { return column.has_unit; });
  if (has_unit) columns.push_back(UnitColumn());
  return columns;
}

}  // namespace qx::sql
