#include "apps/qxdb/model/names.h"

#include <filesystem>

#include "qx_db/platform/file.h"
#include "qx_db/qx_db.h"

#include "apps/qxdb/model/model.h"
#include "apps/qxdb/model/selection.h"

namespace qx::app {
namespace {

std::vector<std::string> SetNames(const std::string& path) {
  constexpr std::uintmax_t kMostBytes = 20'000'000;  // are read in a tenth of a second
  const OpenModel* open = OpenModel::Current();
  std::error_code error;
  const bool is_open = open && open->Path() == path;
  const auto bytes = std::filesystem::file_size(PathFromUtf8(path), error);
  if (!is_open && (error || bytes > kMostBytes)) return {};
  Model model(path);
  if (!model.Open()) return {};
  std::vector<std::string> names;
  const auto& sets = *model.session.GetPool<DPoolMset>(code::kMset);
  for (ITR pos = sets.GetHeadPosition(); pos; sets.Next(pos)) {
    names.push_back(Utf8(sets.GetAtNU(pos).name.View()));
  }
  return names;
}

}  // namespace

std::vector<std::string> NamesOf(ValueKind kind, const std::string& model) {
  if (kind == ValueKind::kSelection) return ConditionWords();
  if (kind == ValueKind::kSet) return SetNames(model);
  const CQXDocBase document(host::SetUpModel);
  std::vector<std::string> names;
  for (const DPoolBase* pool : document.GetDBSession()->Pools()) {
    names.push_back(PoolLabel(*pool));
    if (kind == ValueKind::kRecord) names.push_back(pool->GetSchema().Name());
  }
  return names;
}

}  // namespace qx::app
