#include "qx_db/gateway/key_map_file.h"

#include <charconv>
#include <fmt/format.h>
#include <ostream>

#include "qx_db/gateway/document.h"
#include "qx_db/platform/file.h"

namespace qx {

Result<KeyMap> ReadKeyMap(const std::string& path, const DPoolBase& pool) {
  dbgateway::DataBase document;
  if (Outcome read = document.ReadFile(path); !read) return read.Error();
  const std::string name = pool.GetAPIName().ToUtf8();
  const auto table = document.FindCollection(name);
  if (!table || !table->IsTable()) {
    return Failure{path, "", "has no table " + name, "write {\"" + name + "\": {\"1\": 101}}"};
  }
  KeyMap map;
  std::string fault;
  table->ForEachValue([&](const dbgateway::Field& value) {
    const std::string& text = value.Name();
    Key old_key = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), old_key);
    const bool is_key = error == std::errc() && end == text.data() + text.size();
    const std::int64_t new_key = value.Integer64();
    const bool fits = value.IsInteger() && new_key >= 1 && new_key <= kMaxKey;
    if (fault.empty() && (!is_key || !fits)) fault = text;
    map.emplace_back(old_key, static_cast<Key>(new_key));
  });
  if (fault.empty()) return map;
  return Failure{path, "table " + name + ", entry \"" + fault + "\"", "is not a key for a key",
                 "write \"old key\": new key"};
}

std::string KeyMapText(const DPoolBase& pool, const KeyMap& map) {
  std::string text = fmt::format("{{\"{}\": {{", pool.GetAPIName().ToUtf8());
  for (const auto& [old_key, new_key] : map) {
    text += fmt::format("{}\"{}\": {}", text.back() == '{' ? "" : ", ", old_key, new_key);
  }
  return text + "}}\n";
}

Outcome SaveWith(CQXDocBase& document, const std::string& path, const std::string& map,
                 bool dry_run) {
  const auto save = [&] { return dry_run ? Outcome() : document.Save(); };
  if (path.empty()) return save();
  // The map takes its place only once the model is saved, and the model is saved only when the map
  // is written.
  Outcome saved;
  Outcome written = WriteFileBy(path, [&](std::ostream& out) {
    out << map << std::flush;
    if (out) saved = save();
    if (!saved) out.setstate(std::ios::failbit);
  });
  return saved ? written : saved;
}

}  // namespace qx
