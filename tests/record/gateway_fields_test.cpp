#include <algorithm>
#include <gtest/gtest.h>
#include <map>
#include <set>
#include <sstream>

#include "qx_db/qx_db.h"

#include "tests/record/golden_table.h"

namespace qx {
namespace {

constexpr const char* kAnyType = "any";

std::string Trimmed(const std::string& text) {
  const std::size_t first = text.find_first_not_of(' ');
  return first == std::string::npos ? ""
                                    : text.substr(first, text.find_last_not_of(' ') + 1 - first);
}

/// "name|type|label" in full.
std::string FullField(const std::string& text) {
  std::istringstream parts(text);
  std::string name, type, label;
  std::getline(parts, name, '|');
  std::getline(parts, type, '|');
  std::getline(parts, label);
  if (type.empty()) type = kAnyType;
  if (label.empty()) {
    label = name;
    std::replace(label.begin(), label.end(), '_', ' ');
  }
  return name + '|' + type + '|' + label;
}

std::map<std::string, std::vector<std::string>> ExpectedFields() {
  std::map<std::string, std::vector<std::string>> records;
  std::string record;
  for (const std::string& line : GoldenLines("gateway_fields.txt")) {
    if (!line.starts_with(' ')) {
      record = line;
      continue;
    }
    std::istringstream fields(line);
    for (std::string field; std::getline(fields, field, ';');) {
      records[record].push_back(FullField(Trimmed(field)));
    }
  }
  return records;
}

/// The members of what a pool describes, as "name|type|label". The type of a field whose type is
/// not fixed is only checked to be one.
std::vector<std::string> DescribedFields(DPoolBase& pool,
                                         const std::vector<std::string>& expected) {
  static const std::set<std::string_view> kTypes = {"Null",   "String", "Integer", "Real",
                                                    "Object", "Array",  "Bool"};
  dbgateway::DataBase document;
  dbgateway::Field description = document.NewDescription("fields");
  EXPECT_TRUE(pool.DescAPI(&description));
  document.AddDescription(description);
  std::vector<std::string> fields;
  document.FindCollection("fields").value().ForEach(
      [&](Key, std::string_view name, const dbgateway::Record& field) {
        const std::string label(field.Find("__DESC__").Text());
        std::string type(field.Find("__TYPE__").Text());
        EXPECT_TRUE(kTypes.contains(type)) << name << " is of type \"" << type << '"';
        const std::string any = std::string(name) + '|' + kAnyType + '|' + label;
        const std::size_t at = fields.size();
        if (at < expected.size() && expected[at] == any) type = kAnyType;
        fields.push_back(std::string(name) + '|' + type + '|' + label);
      });
  return fields;
}

TEST(GatewayFields, EveryRecordDescribesItselfAsWrittenDown) {
  auto expected = ExpectedFields();
  CQXDBSession session(AddStandardPools);
  for (DPoolBase* pool : session.Pools()) {
    SCOPED_TRACE(pool->GetSchema().Name());
    // A record that is not written down has no gateway form and describes nothing.
    const std::vector<std::string> fields = expected[pool->GetSchema().Name()];
    EXPECT_EQ(DescribedFields(*pool, fields), fields);
    expected.erase(pool->GetSchema().Name());
  }
  for (const auto& [record, fields] : expected) ADD_FAILURE() << "no pool holds " << record;
}

}  // namespace
}  // namespace qx
