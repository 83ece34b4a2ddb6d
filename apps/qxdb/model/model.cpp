#include "apps/qxdb/model/model.h"

#include <filesystem>
#include <fmt/format.h>
#include <fstream>
#include <limits>

#include "qx_db/gateway/key_map_file.h"
#include "qx_db/platform/file.h"

#include "apps/qxdb/model/history_bounds.h"
#include "apps/qxdb/model/selection.h"
#include "apps/qxdb/model/where.h"

namespace qx::app {
namespace {

namespace fs = std::filesystem;

/// Whether a file is a model by its mark, sound or not.
bool IsModelFile(const std::string& path) {
  constexpr std::size_t kMarkAt = 68;  // where a database keeps whose it is
  constexpr std::string_view kMark = "QXM1";
  char head[kMarkAt + kMark.size()];
  std::error_code error;
  if (!fs::is_regular_file(PathFromUtf8(path), error)) return false;
  std::ifstream in(PathFromUtf8(path), std::ios::binary);
  return in.read(head, sizeof(head)) && std::string_view(head, sizeof(head)).ends_with(kMark);
}

}  // namespace

namespace {

Outcome Opened(Model& model, const Outcome& opened) {
  model.undoable.clear();
  for (const Step& step : model.session.History().Done()) model.undoable.push_back(step.State());
  return opened;
}

}  // namespace

Model::Model(std::string of) : path(std::move(of)) {
  constexpr auto kAll = std::numeric_limits<std::size_t>::max();
  session.SetHistoryLimits({kAll, kAll});
}

Outcome Model::Open() { return Opened(*this, document.Open(path, &report)); }

Outcome Model::OpenForEditing() {
  return Opened(*this, document.OpenForEditing(path, {}, &report));
}

Outcome CheckRead(const std::string& file, bool changed, const dbgateway::DataBase& document) {
  if (changed || document.Report().empty()) return {};
  return Failure{file, "", "brings nothing into the model: " + document.Report().front().Line(),
                 "see the tables there are with: qxdb gateway describe"};
}

Outcome OpenTarget(Model& model, const TargetOptions& options) {
  model.document.New();
  std::error_code error;
  if (model.path.empty() || !fs::exists(PathFromUtf8(model.path), error)) return {};
  if (options.add) return model.Open();
  if (!options.replace) {
    return Failure{model.path, "", "exists already",
                   "add to it with --add or replace it with --replace"};
  }
  if (Outcome is_file = CheckIsFile(model.path); !is_file) return is_file;
  const auto size = fs::file_size(PathFromUtf8(model.path), error);
  if (IsModelFile(model.path) || (!error && size == 0)) return {};
  return Failure{model.path, "", "is no model, and would be lost by replacing it",
                 "name another file, or remove this one first"};
}

Result<TArray<ITR>> PickItems(const Model& model, const DPoolBase& pool, const std::string& keys) {
  const auto ranges = KeyRanges::Parse(keys);
  if (!ranges) return ranges.Error();
  TArray<ITR> items = ranges->Select(pool);
  if (items.IsEmpty()) return NothingSelected(model.path, pool, keys);
  return items;
}

Result<Picked> PickRecords(const Model& model, const std::string& pool, const std::string& keys) {
  const auto found = FindPool(model.session, pool);
  if (!found) return found.Error();
  auto items = PickItems(model, **found, keys);
  if (!items) return items.Error();
  return Picked{*found, std::move(*items)};
}

Result<Picked> PickRecords(const Model& model, const std::string& pool, const std::string& keys,
                           const std::string& where) {
  if (where.empty()) return PickRecords(model, pool, keys);
  const auto found = FindPool(model.session, pool);
  if (!found) return found.Error();
  auto items = PickWhere(model, **found, where);
  if (!items) return items.Error();
  return Picked{*found, std::move(*items)};
}

Edit::Edit(Model& model) : model_(model), before_(State()) {
  model_.session.AddListener(&changes_);
}

Edit::~Edit() { model_.session.RemoveListener(&changes_); }

Outcome Edit::Save(bool dry_run, const std::string& map_file, const std::string& map) {
  is_saved_ = !dry_run && !changes_.IsEmpty();
  if (!changes_.IsEmpty()) {
    if (Outcome may = CheckHistory(model_, dry_run); !may) return may;
  }
  return SaveWith(model_.document, map_file, map, !is_saved_);
}

std::string Edit::StateLine() const {
  return fmt::format("state {} -> {}{}\n", before_, State(), is_saved_ ? "" : " (not saved)");
}

void Edit::WriteStates(JsonText& json) const {
  json.Text("before", before_).Text("after", State()).Bool("saved", is_saved_);
  if (model_.pushed_out > 0) {
    json.Integer("pushed_out", static_cast<std::int64_t>(model_.pushed_out));
  }
}

}  // namespace qx::app
