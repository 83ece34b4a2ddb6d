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

constexpr auto kAllSteps = std::numeric_limits<std::size_t>::max();

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

std::unique_ptr<CQXDocBase> NewUnlessOpen(const std::string& path) {
  OpenModel* open = OpenModel::Current();
  return open && open->Lend(path) ? nullptr : std::make_unique<CQXDocBase>(host::SetUpModel);
}

}  // namespace

Model::Model(std::string of) : Model(of, NewUnlessOpen(of)) {}

Model::Model(std::string of, std::unique_ptr<CQXDocBase> own)
    : path(std::move(of)),
      document(own ? *own : OpenModel::Current()->Document()),
      own_(std::move(own)) {
  session.SetHistoryLimits({kAllSteps, kAllSteps});
}

Model::~Model() {
  if (!own_) OpenModel::Current()->TakeBack();
}

Outcome Model::Open() {
  const LongTask task("Reading " + path);
  return NoteHistory(own_ ? document.Open(FileOf(path), &report)
                          : OpenModel::Current()->Open(report));
}

Outcome Model::OpenForEditing() {
  const LongTask task("Reading " + path);
  if (!own_) OpenModel::Current()->ReadNextTime();
  return NoteHistory(document.OpenForEditing(FileOf(path), {}, &report));
}

Outcome Model::SaveAs() {
  if (Outcome may = CheckHistory(*this, false); !may) return may;
  const LongTask task("Writing " + path);
  return ForgetPushedOut(document.SaveAs(FileOf(path)));
}

Outcome Model::Save(bool dry_run, const std::string& map_file, const std::string& map) {
  if (Outcome may = CheckHistory(*this, dry_run); !may) return may;
  const LongTask task("Writing " + path);
  Outcome saved = SaveWith(document, map_file, map, dry_run);
  return dry_run ? saved : ForgetPushedOut(std::move(saved));
}

/// A shell goes on with the session: what the file let go of, it does, too.
Outcome Model::ForgetPushedOut(Outcome saved) {
  if (!saved || own_ || pushed_out == 0) return saved;
  const HistoryFit fit = FitHistory(session, session.KeptHistory());
  session.SetHistoryLimits({fit.done + fit.undone, kAllSteps});
  session.SetHistoryLimits({kAllSteps, kAllSteps});
  return saved;
}

Outcome Model::Reread() {
  if (own_) return {};
  OpenModel::Current()->ReadNextTime();
  return Open();
}

Outcome Model::NoteHistory(const Outcome& opened) {
  undoable.clear();
  for (const Step& step : session.History().Done()) undoable.push_back(step.State());
  return opened;
}

Outcome CheckRead(const std::string& file, bool changed, const dbgateway::DataBase& document) {
  if (changed || document.Report().empty()) return {};
  return Failure{file, "", "brings nothing into the model: " + document.Report().front().Line(),
                 "see the tables there are with: qxdb gateway describe"};
}

Outcome OpenTarget(Model& model, const TargetOptions& options) {
  const std::string file = FileOf(model.path);
  std::error_code error;
  const bool is_there = !file.empty() && fs::exists(PathFromUtf8(file), error);
  if (is_there && options.add) return model.Open();
  if (!is_there || options.replace) model.document.New();
  if (!is_there) return {};
  if (!options.replace) {
    return Failure{model.path, "", "exists already",
                   "add to it with --add or replace it with --replace"};
  }
  if (Outcome is_file = CheckIsFile(file); !is_file) return is_file;
  const auto size = fs::file_size(PathFromUtf8(file), error);
  if (IsModelFile(file) || (!error && size == 0)) return {};
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
  return model_.Save(!is_saved_, map_file, map);
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
