#include "qx_db/gateway/document.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <limits>
#include <ostream>

#include "qx_db/gateway/json.h"
#include "qx_db/platform/file.h"

namespace qx::dbgateway {
namespace {

/// The key that an entry's name stands for: decimal digits only, at most the largest key; else 0.
Key KeyOfName(std::string_view name) {
  const bool digits = !name.empty() && std::all_of(name.begin(), name.end(),
                                                   [](char c) { return c >= '0' && c <= '9'; });
  Key key = 0;
  if (!digits || std::from_chars(name.data(), name.data() + name.size(), key).ec != std::errc()) {
    return 0;
  }
  return key;
}

std::optional<std::uint32_t> NumberBetween(std::string_view text, char open, char close) {
  const auto begin = text.find(open);
  const auto end = text.find(close, begin == std::string_view::npos ? 0 : begin);
  if (begin == std::string_view::npos || end == std::string_view::npos) return {};
  std::uint32_t number = 0;
  const char* first = text.data() + begin + 1;
  const char* last = text.data() + end;
  const auto result = std::from_chars(first, last, number);
  if (first == last || result.ec != std::errc() || result.ptr != last) return {};
  return number;
}

}  // namespace

const char* GatewayErrorText(int code) {
  for (const GatewayError& error : kGatewayErrors) {
    if (error.code == code) return error.text;
  }
  return kGatewayErrors[1].text;
}

FieldName FieldName::Parse(std::string_view text) {
  return {std::string(text.substr(0, text.find_first_of("[<"))), NumberBetween(text, '[', ']'),
          NumberBetween(text, '<', '>')};
}

std::string ReportEntry::Line() const {
  std::string line = table;
  if (key != 0) line += " " + std::to_string(key);
  if (!field.empty()) line += " " + field;
  return line + ": " + what;
}

// ---- Field --------------------------------------------------------------------------------------

const char* Field::TypeName() const {
  if (!value_) return "Unknown";
  const Json& value = Cast(*value_);
  switch (value.GetType()) {
    case rapidjson::kNullType:
      return "Null";
    case rapidjson::kFalseType:
    case rapidjson::kTrueType:
      return "Bool";
    case rapidjson::kObjectType:
      return "Object";
    case rapidjson::kArrayType:
      return "Array";
    case rapidjson::kStringType:
      return "String";
    case rapidjson::kNumberType:
      return value.IsDouble() ? "Real" : "Integer";
  }
  return "Unknown";
}

bool Field::IsNumber() const { return value_ && Cast(*value_).IsNumber(); }
bool Field::IsInteger() const { return IsNumber() && !Cast(*value_).IsDouble(); }
bool Field::IsBool() const { return value_ && Cast(*value_).IsBool(); }
bool Field::IsText() const { return value_ && Cast(*value_).IsString(); }
bool Field::IsArray() const { return value_ && Cast(*value_).IsArray(); }
bool Field::IsObject() const { return value_ && Cast(*value_).IsObject(); }

std::int32_t Field::Integer() const {
  if (!IsNumber()) return 0;
  const Json& value = Cast(*value_);
  if (value.IsInt64()) return static_cast<std::int32_t>(value.GetInt64());
  if (value.IsUint64()) return static_cast<std::int32_t>(value.GetUint64());
  // A real beyond the range of an integer has no truncated value; the nearest bound stands in.
  constexpr double kLow = std::numeric_limits<std::int32_t>::min();
  constexpr double kHigh = std::numeric_limits<std::int32_t>::max();
  return static_cast<std::int32_t>(std::clamp(std::trunc(value.GetDouble()), kLow, kHigh));
}

std::int64_t Field::Integer64() const {
  if (!IsNumber()) return IsBool() && Cast(*value_).GetBool() ? 1 : 0;
  const Json& value = Cast(*value_);
  if (value.IsInt64()) return value.GetInt64();
  constexpr double kEdge = 9223372036854775808.0;
  const double number = value.GetDouble();
  if (number >= kEdge) return INT64_MAX;
  return number < -kEdge ? INT64_MIN : static_cast<std::int64_t>(number);
}

double Field::Real() const {
  if (IsNumber()) return Cast(*value_).GetDouble();
  return IsBool() && Cast(*value_).GetBool() ? 1.0 : 0.0;
}

std::string_view Field::Text() const {
  return IsText() ? TextOf(Cast(*value_)) : std::string_view();
}

std::size_t Field::Size() const {
  if (IsArray()) return Cast(*value_).Size();
  return IsObject() ? Cast(*value_).MemberCount() : 0;
}

Field Field::At(std::size_t index) const {
  if (!IsArray() || index >= Size()) return {};
  return {name_, Wrap(Cast(*value_)[static_cast<rapidjson::SizeType>(index)]), allocator_};
}

Field Field::Member(std::string_view name) const {
  Json* found = IsObject() ? FindMember(Cast(*value_), name) : nullptr;
  return found ? Field(std::string(name), Wrap(*found), allocator_) : Field();
}

void Field::Describe(const char* name, const std::string& label, const char* type) {
  if (!value_ || !allocator_) return;
  Allocator& allocator = Cast(*allocator_);
  Json description(rapidjson::kObjectType);
  description.AddMember("__DESC__", Json(label, allocator), allocator);
  description.AddMember("__TYPE__", Json(type, allocator), allocator);
  Cast(*value_).AddMember(Json(name, allocator), description, allocator);
}

// ---- Record -------------------------------------------------------------------------------------

Field Record::Find(std::string_view name) const {
  if (IsDetached() || !Cast(*value_).IsObject()) return {};
  Json* plain = FindMember(Cast(*value_), name);
  if (plain) return {std::string(name), Wrap(*plain), allocator_};
  if (name.find('[') == std::string_view::npos) return {};
  const FieldName parsed = FieldName::Parse(name);
  Json* member = FindMember(Cast(*value_), parsed.member);
  if (!member || !parsed.index) return {};
  return Field(parsed.member, Wrap(*member), allocator_).At(*parsed.index);
}

bool Record::IsObject() const { return value_ && Cast(*value_).IsObject(); }

std::vector<std::string_view> Record::FieldNames() const {
  std::vector<std::string_view> names;
  if (IsDetached() || !Cast(*value_).IsObject()) return names;
  for (const auto& member : MembersOf(Cast(*value_))) names.push_back(TextOf(member.name));
  return names;
}

std::size_t Record::FieldCount() const {
  return IsDetached() || !Cast(*value_).IsObject() ? 0 : Cast(*value_).MemberCount();
}

Field Record::Set(const char* name) {
  if (IsDetached()) return {};
  Json& object = Cast(*value_);
  Json* value = FindMember(object, name);
  if (!value) {
    Allocator& allocator = Cast(*allocator_);
    object.AddMember(Json(name, allocator), Json(), allocator);
    value = &(object.MemberEnd() - 1)->value;
  }
  return {name, Wrap(*value), allocator_};
}

void Record::SetInteger(const char* name, std::int64_t value) {
  if (const Field field = Set(name)) Cast(*field.Value()).SetInt64(value);
}
void Record::SetReal(const char* name, double value) {
  if (const Field field = Set(name)) Cast(*field.Value()).SetDouble(value);
}
void Record::SetBool(const char* name, bool value) {
  if (const Field field = Set(name)) Cast(*field.Value()).SetBool(value);
}
void Record::SetText(const char* name, std::string_view value) {
  const Field field = Set(name);
  if (!field) return;
  Cast(*field.Value())
      .SetString(value.data(), static_cast<rapidjson::SizeType>(value.size()), Cast(*allocator_));
}

void Record::SetReals(const char* name, const std::vector<double>& values) {
  const Field field = Set(name);
  if (!field) return;
  Allocator& allocator = Cast(*allocator_);
  Json& json = Cast(*field.Value()).SetArray();
  json.Reserve(static_cast<rapidjson::SizeType>(values.size()), allocator);
  for (const double value : values) json.PushBack(value, allocator);
}

void Record::Tell(const char* field, std::string what) const {
  if (document_) document_->Tell({std::string(table_), key_, field, std::move(what)});
}

// ---- Collection ---------------------------------------------------------------------------------

std::size_t Collection::Size() const {
  const Json& value = Cast(*value_);
  if (value.IsObject()) return value.MemberCount();
  return value.IsArray() ? value.Size() : 0;
}

bool Collection::IsTable() const { return Cast(*value_).IsObject() || Cast(*value_).IsArray(); }

void Collection::ForEach(const std::function<void(Key, std::string_view, Record)>& visit) const {
  Json& value = Cast(*value_);
  if (value.IsObject()) {
    for (auto& member : MembersOf(value)) {
      const std::string_view name = TextOf(member.name);
      const Key key = KeyOfName(name);
      visit(key, name, Record(Wrap(member.value), allocator_, document_, name_, key));
    }
  } else if (value.IsArray()) {
    for (rapidjson::SizeType i = 0; i < value.Size(); ++i) {
      const auto key = static_cast<Key>(i);
      visit(key, std::to_string(i), Record(Wrap(value[i]), allocator_, document_, name_, key));
    }
  }
}

void Collection::ForEachValue(const std::function<void(Field)>& visit) const {
  Json& value = Cast(*value_);
  if (value.IsObject()) {
    for (auto& member : MembersOf(value)) {
      visit(Field(std::string(TextOf(member.name)), Wrap(member.value), allocator_));
    }
  } else if (value.IsArray()) {
    for (Json& element : value.GetArray()) visit(Field(name_, Wrap(element), allocator_));
  }
}

Record Collection::Add(Key key) {
  char text[12];
  const auto end = std::to_chars(text, text + sizeof(text), static_cast<std::uint32_t>(key)).ptr;
  Allocator& allocator = Cast(*allocator_);
  Json name(text, static_cast<rapidjson::SizeType>(end - text), allocator);
  Cast(*value_).AddMember(name, Json(rapidjson::kObjectType), allocator);
  Json& added = (Cast(*value_).MemberEnd() - 1)->value;
  return Record(Wrap(added), allocator_, document_, name_, key);
}

// ---- DataBase -----------------------------------------------------------------------------------

struct DataBase::Impl {
  ParsedJson parsed;
  JsonDocument& Root() { return parsed.document; }
  // Descriptions under construction must not move while a Field points at them.
  std::vector<std::unique_ptr<Json>> descriptions;
};

DataBase::DataBase() : impl_(std::make_unique<Impl>()) {}
DataBase::~DataBase() = default;
DataBase::DataBase(DataBase&&) noexcept = default;
DataBase& DataBase::operator=(DataBase&&) noexcept = default;

Outcome DataBase::Parse(std::string text, const std::string& source) {
  ParsedJson parsed;
  if (Outcome outcome = ParseJson(std::move(text), source, parsed); !outcome) return outcome;
  if (!parsed.document.IsObject()) {
    return Failure{source, "line 1", "is not an object of tables", "put the tables into {...}"};
  }
  impl_->parsed = std::move(parsed);
  impl_->descriptions.clear();
  report_.clear();
  return {};
}

Outcome DataBase::ReadFile(const std::string& path) {
  Result<std::string> text = ReadWholeFile(path);
  return text ? Parse(std::move(*text), path) : text.AsOutcome();
}

std::string DataBase::ToText(bool indented) const {
  std::string text;
  const TextSink sink{[&](std::string_view piece) { text += piece; },
                      [&](std::size_t size) {
                        text.reserve(size);
                        PreferHugePages(text.data(), text.capacity());
                      }};
  WriteJson(impl_->Root(), indented, sink);
  if (indented) text += '\n';
  return text;
}

void DataBase::WriteTo(const std::function<void(std::string_view)>& take, bool indented) const {
  WriteJson(impl_->Root(), indented, {take, nullptr});
}

Outcome DataBase::WriteFile(const std::string& path, bool indented) const {
  return WriteFileBy(path, [&](std::ostream& out) {
    WriteTo(
        [&](std::string_view piece) {
          out.write(piece.data(), static_cast<std::streamsize>(piece.size()));
        },
        indented);
    out << '\n';
  });
}

Collection DataBase::AddCollection(const std::string& name) {
  auto& root = impl_->Root();
  while (root.RemoveMember(name.c_str())) {
  }
  Allocator& allocator = root.GetAllocator();
  root.AddMember(Json(name, allocator), Json(rapidjson::kObjectType), allocator);
  return {name, *Wrap((root.MemberEnd() - 1)->value), *Wrap(allocator), *this};
}

std::optional<Collection> DataBase::FindCollection(std::string_view name) {
  Json* table = FindMember(impl_->Root(), name);
  if (!table) return {};
  return Collection(std::string(name), *Wrap(*table), *Wrap(impl_->Root().GetAllocator()), *this);
}

std::vector<std::string> DataBase::CollectionNames() const {
  std::vector<std::string> names;
  for (const auto& member : MembersOf(impl_->Root())) names.emplace_back(TextOf(member.name));
  return names;
}

Field DataBase::NewDescription(const std::string& name) {
  Json& value = *impl_->descriptions.emplace_back(std::make_unique<Json>(rapidjson::kObjectType));
  return {name, Wrap(value), Wrap(impl_->Root().GetAllocator())};
}

void DataBase::AddDescription(const Field& description) {
  Allocator& allocator = impl_->Root().GetAllocator();
  impl_->Root().AddMember(Json(description.Name(), allocator),
                          Json(Cast(*description.Value()), allocator), allocator);
}

}  // namespace qx::dbgateway
