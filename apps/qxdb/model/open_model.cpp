#include "apps/qxdb/model/open_model.h"

#include "qx_db/core/model_file.h"
#include "qx_db/platform/file.h"

#include "host/session.h"

namespace qx::app {
namespace {

OpenModel* t_current = nullptr;

}  // namespace

OpenModel::OpenModel(std::string path, std::string file)
    : path_(std::move(path)),
      file_(file.empty() ? path_ : std::move(file)),
      document_(host::SetUpModel) {
  t_current = this;
}

OpenModel::~OpenModel() { t_current = nullptr; }

OpenModel* OpenModel::Current() { return t_current; }

OpenModel::Mark OpenModel::MarkOf() const {
  const CQXDBSession& session = *document_.GetDBSession();
  Mark mark;
  for (const DPoolBase* pool : session.Pools()) mark.revisions += pool->Set().Revision();
  mark.done = session.History().Done().size();
  mark.undone = session.History().Undone().size();
  if (mark.done > 0) mark.last = session.History().Done().back().number;
  mark.stored = session.Units().Model();
  mark.shown = session.Units().Current();
  return mark;
}

Outcome OpenModel::Open(ModelFileReport& report) {
  if (!is_read_ || !(MarkOf() == mark_) || !(StampOf(file_) == report_.stamp)) {
    is_read_ = false;
    if (Outcome opened = document_.Open(file_, &report_); !opened) return opened;
    is_read_ = true;
    mark_ = MarkOf();
  }
  report = report_;
  return {};
}

bool OpenModel::Lend(const std::string& path) {
  if (is_lent_ || path.empty() || !(path == path_ || IsSamePlace(path, path_))) return false;
  return is_lent_ = true;
}

void OpenModel::TakeBack() {
  is_lent_ = false;
  document_.Release();  // the file is others' to write between commands
  if (!is_read_) return;
  const ModelStamp stamp = StampOf(file_);
  if (stamp == report_.stamp || document_.IsModified()) return;
  if (!(document_.Stamp() == stamp)) {  // another program wrote it
    is_read_ = false;
    return;
  }
  // The command saved the model.
  const auto reader = ModelFileReader::Open(file_);
  is_read_ = static_cast<bool>(reader);
  if (!is_read_) return;
  report_ = (*reader)->Report();
  report_.stamp = stamp;
  mark_ = MarkOf();
}

std::string FileOf(const std::string& path) {
  const OpenModel* open = OpenModel::Current();
  if (!open || path.empty() || !(path == open->Path() || IsSamePlace(path, open->Path()))) {
    return path;
  }
  return open->File();
}

}  // namespace qx::app
