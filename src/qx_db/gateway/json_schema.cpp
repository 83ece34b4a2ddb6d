// The JSON Schema of the gateway document, from the same tables that read and write it.

#include "qx_db/gateway/document_exchange.h"
#include "qx_db/gateway/json.h"

namespace qx {
namespace {

using dbgateway::Allocator;
using dbgateway::Json;

/// Builds schema values: objects of constant names.
class Builder {
 public:
  explicit Builder(Allocator& allocator) : allocator_(allocator) {}

  Json Type(const char* name) {
    Json value(rapidjson::kObjectType);
    Add(value, "type", Json(rapidjson::StringRef(name)));
    return value;
  }
  Json Array(Json items, std::int64_t exactly = -1) {
    Json value = Type("array");
    Add(value, "items", std::move(items));
    if (exactly >= 0) {
      Add(value, "minItems", Json(exactly));
      Add(value, "maxItems", Json(exactly));
    }
    return value;
  }
  Json Key() {
    Json value = Type("integer");
    Add(value, "minimum", Json(0));
    Add(value, "maximum", Json(kMaxKey));
    return value;
  }
  void Add(Json& object, const char* name, Json value) {
    object.AddMember(Json(rapidjson::StringRef(name)), value, allocator_);
  }
  void Add(Json& object, const std::string& name, Json value) {
    object.AddMember(Json(name, allocator_), value, allocator_);
  }
  Json Text(const std::string& text) { return Json(text, allocator_); }

  Json Field(const GatewayField& field, const Row& row);
  Json Record(const Schema& schema);

 private:
  static const char* NumberType(Row::Number number, bool boolean) {
    if (boolean) return "boolean";
    return number == Row::Number::kDouble ? "number" : "integer";
  }
  Json Element(const GatewayField& field, const Row& row);

  Allocator& allocator_;
};

Json Builder::Element(const GatewayField& field, const Row& row) {
  if (row.kind == MemberKind::kReferenceArray) return Key();
  if (field.elements.empty()) {
    const std::int32_t count = row.element_size / (row.number == Row::Number::kInt32 ? 4 : 8);
    Json number = Type(NumberType(row.number, field.booleans));
    return count == 1 ? std::move(number) : Array(std::move(number), count);
  }
  Json object = Type("object");
  Json properties(rapidjson::kObjectType);
  for (const GatewayElementField& part : field.elements) {
    Json number = Type(NumberType(part.number, part.boolean));
    Add(properties, part.name,
        part.count == 1 ? std::move(number) : Array(std::move(number), part.count));
  }
  Add(object, "properties", std::move(properties));
  Add(object, "additionalProperties", Json(false));
  return object;
}

Json Builder::Field(const GatewayField& field, const Row& row) {
  if (row.kind == MemberKind::kReference) return Key();
  if (row.IsArray()) return Array(Element(field, row));
  if (row.number == Row::Number::kText) {
    Json text = Type("string");
    Add(text, "maxLength", Json(row.size / 2 - 1));
    return text;
  }
  const bool boolean = field.booleans || field.type == GatewayField::Type::kBool;
  Json number = Type(NumberType(row.number, boolean));
  if (field.type != GatewayField::Type::kArray) return number;
  const std::int32_t width = row.number == Row::Number::kInt32 ? 4 : 8;
  return Array(std::move(number), row.size * field.run / width);
}

Json Builder::Record(const Schema& schema) {
  Json record = Type("object");
  Json properties(rapidjson::kObjectType);
  for (std::size_t i = 0; i < schema.Gateway().size(); ++i) {
    const GatewayField& field = schema.Gateway()[i];
    if (field.form == GatewayField::Form::kDescribed) continue;
    Add(properties, field.name, Field(field, *schema.GatewayRows()[i]));
  }
  Add(record, "properties", std::move(properties));
  Add(record, "additionalProperties", Json(false));
  return record;
}

}  // namespace

std::string GatewayJsonSchema(const CQXDBSession& session) {
  dbgateway::ParsedJson parsed;
  Builder build(*parsed.allocator);
  Json root(rapidjson::kObjectType);
  build.Add(root, "$schema", build.Text("http://json-schema.org/draft-04/schema#"));
  build.Add(root, "title", build.Text("QX_db gateway document"));
  build.Add(root, "type", build.Text("object"));
  Json definitions(rapidjson::kObjectType);
  Json tables(rapidjson::kObjectType);
  for (const DPoolBase* pool : session.Pools()) {
    const Schema& schema = pool->GetSchema();
    if (schema.Gateway().empty()) continue;
    const std::string name = pool->GetAPIName().ToUtf8();
    build.Add(definitions, name, build.Record(schema));
    const auto reference = [&] {
      Json value(rapidjson::kObjectType);
      build.Add(value, "$ref", build.Text("#/definitions/" + name));
      return value;
    };
    Json table(rapidjson::kObjectType);
    Json types(rapidjson::kArrayType);
    types.PushBack("object", *parsed.allocator).PushBack("array", *parsed.allocator);
    build.Add(table, "type", std::move(types));
    Json by_key(rapidjson::kObjectType);
    build.Add(by_key, "^[0-9]+$", reference());
    build.Add(table, "patternProperties", std::move(by_key));
    build.Add(table, "additionalProperties", Json(false));
    build.Add(table, "items", reference());
    build.Add(tables, name, std::move(table));
    build.Add(tables, "__CMD_DEL_" + name, build.Array(build.Key()));
  }
  build.Add(root, "properties", std::move(tables));
  build.Add(root, "additionalProperties", Json(false));
  build.Add(root, "definitions", std::move(definitions));
  std::string text;
  dbgateway::WriteJson(root, true, {[&](std::string_view piece) { text += piece; }, nullptr});
  return text + '\n';
}

}  // namespace qx
