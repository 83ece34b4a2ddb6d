#include "qx_db/model/mesh_set_import.h"

#include <algorithm>
#include <unordered_map>
#include <unordered_set>
#include <vector>

#include "qx_db/lib/message.h"
#include "qx_db/model/mesh_set_pool.h"
#include "qx_db/model/set_rules.h"
#include "qx_db/platform/stdio_file.h"

namespace qx {
namespace {

/// The keys of these sets, each once, parents' children behind them when asked for. Empty where one
/// names no set.
std::vector<Key> Chosen(const DPoolMset& sets, std::span<const Key> keys, bool with_children) {
  std::unordered_map<Key, std::vector<Key>> children;
  for (ITR pos = sets.GetHeadPosition(); with_children && pos; sets.Next(pos)) {
    children[sets.GetAtNU(pos).parent_key].push_back(KeyOf(pos));
  }
  std::vector<Key> chosen;
  std::unordered_set<Key> met;
  const auto add = [&](Key key) {
    if (met.insert(key).second) chosen.push_back(key);
  };
  for (const Key key : keys) {
    if (!sets.Find(key)) return {};
    add(key);
  }
  for (std::size_t i = 0; i < chosen.size(); ++i) {
    const auto below = children.find(chosen[i]);
    if (below == children.end()) continue;
    for (const Key child : below->second) add(child);
  }
  return chosen;
}

constexpr const char* kSeeAbove = "see the message above";

const DPoolMset& SetsOf(const ExternalModel& model) {
  return *model.Records().GetPool<DPoolMset>(code::kMset);
}

}  // namespace

Result<std::unique_ptr<ExternalMeshSets>> ExternalMeshSets::Open(const std::string& path,
                                                                 CQXDBSession::PoolSetup setup) {
  // A rule would ask the model that it comes to: what comes is what the set has where it is from.
  auto file = ExternalModel::Open(path, setup, MakeAllPlain);
  if (!file) return file.Error();
  return std::unique_ptr<ExternalMeshSets>(new ExternalMeshSets(std::move(*file)));
}

void ExternalMeshSets::List(TArray<Key>& keys, CStringArray& names) const {
  const DPoolMset& sets = SetsOf(*file_);
  for (ITR pos = sets.GetHeadPosition(); pos; sets.Next(pos)) {
    keys.Add(sets.GetAtNU(pos).key);
    names.Add(sets.GetAtNU(pos).name.Text());
  }
}

int ExternalMeshSets::Import(CQXDBSession& into, std::span<const Key> keys, bool keep_keys,
                             bool with_children, Key parent) {
  ImportOptions options;
  options.choices = {{code::kMset, Chosen(SetsOf(*file_), keys, with_children)}};
  options.keep_keys = keep_keys;
  options.as_part = true;
  if (options.choices[0].keys.empty()) return 0;
  Result<ImportReport> report = ImportRecords(into, *file_, options);
  if (!report) {
    if (report.Error().remedy == kSeeAbove) return 0;  // a pool has told it
    qxMsgOut(Severity::kRefusal, "IDS_QX_DB_MSET_EXTERNAL_FILE", {report.Error().Line()});
    return 0;
  }
  auto& sets = *into.GetPool<DPoolMset>(code::kMset);
  for (const ImportReport::Pool& pool : report->pools) {
    for (const auto& [outside, here] : pool.keys) {
      const ITR set = pool.type == code::kMset && parent != 0 ? sets.Find(here) : 0;
      if (!set || set == sets.DefaultItr() || sets.GetAtNU(set).parent_key != 0) continue;
      tagTMset placed = sets.GetAtNU(set);
      placed.parent_key = parent;
      if (!sets.SetAtNU(set, placed)) return 0;
    }
  }
  report_ = std::make_unique<ImportReport>(std::move(*report));
  return 1;
}

}  // namespace qx
