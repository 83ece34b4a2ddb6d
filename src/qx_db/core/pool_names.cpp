#include "qx_db/core/pool_names.h"

#include <algorithm>
#include <cctype>
#include <utility>

#include "qx_db/platform/text.h"

namespace qx {
namespace {

/// Pools whose gateway table is an abbreviation.
constexpr std::pair<std::string_view, std::string_view> kWords[] = {
    {"cord", "coordinate_system"}, {"elem", "element"},  {"mset", "mesh_set"}, {"func", "function"},
    {"geom", "geometry"},          {"matl", "material"}, {"prop", "property"},
};

/// Further words for pools.
constexpr std::pair<std::string_view, std::string_view> kAlso[] = {{"system", "cord"},
                                                                   {"set", "mset"}};

std::string Small(std::string text) {
  std::transform(text.begin(), text.end(), text.begin(), [](unsigned char c) {
    return static_cast<char>(std::isalnum(c) ? std::tolower(c) : '_');
  });
  return text;
}

/// "property" of "properties", "node" of "nodes".
std::string OneOf(const std::string& many) {
  if (many.ends_with("ies")) return many.substr(0, many.size() - 3) + 'y';
  return many.ends_with('s') ? many.substr(0, many.size() - 1) : many;
}

}  // namespace

std::string PoolName(const DPoolBase& pool) { return Small(pool.GetAPIName().ToUtf8()); }

std::string PoolWord(const DPoolBase& pool) {
  std::string name = PoolName(pool);
  for (const auto& [table, word] : kWords) {
    if (name == table) return std::string(word);
  }
  return name;
}

DPoolBase* FindPoolByName(CQXDBSession& session, std::string_view name) {
  const std::string asked = Small(std::string(name));
  // A pool that has the name itself goes before one of which it is a plural.
  for (std::string spelled : {asked, OneOf(asked)}) {
    for (const auto& [also, table] : kAlso) {
      if (spelled == also) spelled = table;
    }
    for (DPoolBase* pool : session.Pools()) {
      if (spelled == PoolName(*pool) || spelled == PoolWord(*pool) ||
          spelled == Small(pool->GetSchema().Name()) || spelled == Small(Utf8(pool->GetIOName()))) {
        return pool;
      }
    }
  }
  return nullptr;
}

}  // namespace qx
