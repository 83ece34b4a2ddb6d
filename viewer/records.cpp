#include "viewer/records.h"

#include <algorithm>

#include "qx_db/model/deletion.h"
#include "qx_db/platform/text.h"
#include "qx_db/record/describe.h"

#include "viewer/pack.h"

namespace qx::viewer {
namespace {

constexpr std::size_t kMostUses = 200;
/// Longest value that is shown whole: the list of a large set is no reading matter.
constexpr std::size_t kLongest = 4000;

void WriteMembers(Json& json, const DPoolBase& pool, const TStructBase& record,
                  const CQXDBSession& session) {
  json.Name("members").StartArray();
  for (const Row& row : pool.GetSchema().Rows()) {
    json.StartObject();
    std::string value = MemberValueText(row, record);
    if (value.size() > kLongest) {
      const std::size_t end = value.rfind(',', kLongest);
      value = value.substr(0, end == std::string::npos ? kLongest : end) + ", ...";
    }
    json.Text("name", Utf8(row.name)).Text("kind", MemberKindText(row)).Text("value", value);
    if (const DPoolBase* target = row.target ? session.GetDataPool(row.target) : nullptr) {
      json.Text("target", TableName(*target));
    }
    json.EndObject();
  }
  json.EndArray();
}

}  // namespace

std::string TableName(const DPoolBase& pool) {
  std::string name = pool.GetAPIName().ToUtf8();
  std::transform(name.begin(), name.end(), name.begin(),
                 [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c + 32) : c; });
  return name;
}

DPoolBase* FindTable(const CQXDBSession& session, std::string_view name) {
  const auto pools = session.Pools();
  const auto found = std::find_if(pools.begin(), pools.end(), [&](const DPoolBase* pool) {
    return EqualNoCase(TableName(*pool), name);
  });
  return found == pools.end() ? nullptr : *found;
}

Result<std::string> RecordText(const CQXDBSession& session, std::string_view table, Key key) {
  const DPoolBase* pool = FindTable(session, table);
  const ITR item = pool ? pool->Find(key) : 0;
  if (!item) {
    return Failure{"", std::string(table) + " " + std::to_string(key), "there is no such record",
                   "look for another key"};
  }
  Json json;
  json.StartObject();
  json.Text("table", TableName(*pool)).Integer("key", key);
  WriteMembers(json, *pool, *KeyedSetBase::RecordAt(item), session);
  const auto uses = WhereUsed(session, pool->GetTypeCode(), item);
  json.Integer("use_count", static_cast<std::int64_t>(uses.size()));
  json.Name("uses").StartArray();
  for (std::size_t i = 0; i < std::min(uses.size(), kMostUses); ++i) {
    json.StartObject();
    json.Text("table", TableName(*session.GetDataPool(uses[i].type)));
    json.Integer("key", KeyOf(uses[i].item));
    json.Text("as", uses[i].row ? Utf8(uses[i].row->name) : "its key").EndObject();
  }
  json.EndArray();
  json.EndObject();
  return json.Result();
}

}  // namespace qx::viewer
