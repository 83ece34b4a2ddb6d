#include "viewer/source.h"

#include "qx_db/platform/file.h"

#include "host/session.h"
#include "viewer/records.h"

namespace qx::viewer {
namespace {

namespace fs = std::filesystem;

const Failure kReadOnly{"", "", "this page may only look",
                        "start it with --edit to change the model"};

}  // namespace

Source::Source(std::string path, bool editing, RefusalText refusal)
    : path_(std::move(path)),
      editing_(editing),
      refusal_(std::move(refusal)),
      document_(host::SetUpModel) {}

Result<std::unique_ptr<Source>> Source::Open(const std::string& path, bool editing,
                                             RefusalText refusal) {
  std::unique_ptr<Source> source(new Source(path, editing, std::move(refusal)));
  ModelFileReport report;
  const Outcome opened = editing ? source->document_.OpenForEditing(path, {}, &report)
                                 : source->document_.Open(path, &report);
  if (!opened) return opened.Error();
  source->stamp_ = report.stamp;
  return source;
}

void Source::Changed() {
  data_.reset();
  base_.clear();
  past_data_.reset();
  past_.reset();
  ++revision_;
}

const PageData& Source::Present() {
  if (!data_) data_.emplace(Session());
  return *data_;
}

Result<Source::State> Source::StateAt(std::int64_t step) {
  if (step == kNow || step == static_cast<std::int64_t>(StepsDone())) {
    return State{&Session(), &Present()};
  }
  if (step < 0 || step > static_cast<std::int64_t>(StepCount())) {
    return Failure{path_, "step " + std::to_string(step), "is not in the history",
                   "choose one that is listed"};
  }
  if (!past_) {
    past_ = std::make_unique<CQXDocBase>(host::SetUpModel);
    if (Outcome opened = past_->Open(path_); !opened) {
      past_.reset();
      return opened.Error();
    }
  }
  CQXDBSession& session = *past_->GetDBSession();
  const auto done = [&] { return static_cast<std::int64_t>(session.History().Done().size()); };
  while (done() != step) {
    past_data_.reset();
    if (!(done() > step ? session.Undo() : session.Redo())) {
      return Failure{path_, "step " + std::to_string(step), "is no longer in the history",
                     "look at the list again"};
    }
  }
  if (!past_data_) past_data_.emplace(session);
  return State{&session, &*past_data_};
}

Result<std::string> Source::Get(std::string_view name, std::int64_t step) {
  const auto state = StateAt(step);
  if (!state) return state.Error();
  const PageData& data = *state->data;
  if (name == "base") {
    const bool is_present = state->session == &Session();
    if (is_present && !base_.empty()) return base_;
    PageInfo info;
    info.name = Utf8FromPath(PathFromUtf8(path_).filename());
    info.editable = editing_;
    info.served = served_;
    info.seeds = HasSeeds();
    info.step = state->session->History().Done().size();
    std::string base = data.Base(info);
    if (is_present) base_ = base;
    return base;
  }
  if (name == "volume") return data.Volume();
  if (name == "findings") return data.Findings();
  if (name == "glyphs") return data.Glyphs();
  if (name == "steps") {
    Pack pack;
    pack.Text().Integer("step", static_cast<std::int64_t>(StepsDone())).Name("steps");
    WriteSteps(pack.Text(), Session());
    return pack.Finish();
  }
  if (name == "seeds" && HasSeeds()) return seeds_;
  if (name == "changes") return LastChanges(*state->session);
  if (name.starts_with(kValuesPrefix)) {
    std::string pack = data.Values(name.substr(kValuesPrefix.size()));
    if (!pack.empty()) return pack;
  }
  return Failure{"", std::string(name), "is nothing that a page is given", ""};
}

Result<std::string> Source::Record(std::string_view table, Key key, std::int64_t step) {
  const auto state = StateAt(step);
  if (!state) return state.Error();
  return RecordText(*state->session, table, key);
}

Outcome Source::Edit(std::string_view request) {
  if (!editing_) return kReadOnly;
  if (Outcome done = ApplyEdit(*document_.GetDBSession(), request, refusal_); !done) return done;
  Changed();
  return {};
}

Result<std::string> Source::Preview(std::string_view request) {
  if (!editing_) return kReadOnly;
  return PreviewEdit(Session(), request, refusal_);
}

bool Source::Follow() {
  std::error_code error;
  const fs::path path = PathFromUtf8(path_);
  const auto written = fs::last_write_time(path, error);
  const auto size = error ? 0 : fs::file_size(path, error);
  if (error || (written == written_ && size == size_)) return false;
  written_ = written;
  size_ = size;
  const ModelStamp stamp = StampOf(path_);
  if (stamp == stamp_ || stamp == ModelStamp{}) return false;
  stamp_ = stamp;
  if (editing_) return false;  // no one else may write
  data_.reset();               // it refers to the contents that go
  ModelFileReport report;
  if (!document_.Open(path_, &report)) return false;
  stamp_ = report.stamp;
  Changed();
  return true;
}

}  // namespace qx::viewer
