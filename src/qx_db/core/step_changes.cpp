#include "qx_db/core/step_changes.h"

#include <algorithm>
#include <unordered_map>

#include "qx_db/core/model_file.h"
#include "qx_db/record/verbs.h"

namespace qx {
namespace {

/// Follows records from the known state to the present one.
class Coalescer {
 public:
  explicit Coalescer(const CQXDBSession& session) : session_(session) {}

  /// The next step on the way, done or taken back.
  void Pass(const Step& step, bool done) {
    if (step.units && !units_) units_ = done ? &step.units->before : &step.units->after;
    if (done) {
      for (const Change& change : step.changes) Pass(step, change, true);
    } else {
      for (std::size_t i = step.changes.size(); i-- > 0;) Pass(step, step.changes[i], false);
    }
  }

  void Pass(const Step& step, const Change& change, bool done) {
    const bool modified = change.operation == tagTRNotify::kModified;
    const bool appears = !modified && (change.operation == tagTRNotify::kInserted) == done;
    const auto [place, is_new] = places_.try_emplace(ITR{change.item}, fates_.size());
    if (is_new) fates_.push_back({change.item, change.type, !appears});
    Fate& fate = fates_[place->second];
    if (!modified || !fate.was || fate.image) return;
    const Step::Images& images = step.images[change.list_epoch];
    fate.image = step.bytes.data() + (done ? images.before : images.after);
  }

  std::vector<RecordChange> Result() const {
    std::vector<RecordChange> changes;
    for (const Fate& fate : fates_) {
      const bool is = !KeyedSetBase::IsRemoved(fate.item);
      RecordChange change{fate.type, tagTRNotify::kModified, fate.item, {}, KeyOf(fate.item)};
      if (fate.was && is) {
        change.members = Modified(fate);
        if (change.members.empty()) continue;
      } else if (fate.was != is) {
        change.operation = is ? tagTRNotify::kInserted : tagTRNotify::kRemoved;
      } else {
        continue;
      }
      changes.push_back(std::move(change));
    }
    return changes;
  }
  ModelChanges All() const {
    const CQXUnitCtrl& now = session_.Units();
    return {Result(),
            units_ && !(units_->Model() == now.Model() && units_->Current() == now.Current())};
  }

 private:
  struct Fate {
    ITR item;
    std::uint16_t type;
    bool was;                     // there, in the known state
    const char* image = nullptr;  // then; null where it was not modified since
  };

  std::vector<const Row*> Modified(const Fate& fate) const {
    if (!fate.image) return {};
    const DPoolBase& pool = *session_.GetDataPool(fate.type);
    const auto before = pool.NewRecord();
    ReadImage(pool.GetSchema(), fate.image, *before);
    return Differences(pool.GetSchema(), *before, *KeyedSetBase::RecordAt(fate.item));
  }

  const CQXDBSession& session_;
  const CQXUnitCtrl* units_ = nullptr;  // in the known state; null where no step changed them
  std::vector<Fate> fates_;
  std::unordered_map<ITR, std::size_t> places_;
};

/// By the steps that memory has.
std::optional<ModelChanges> FromHistory(const CQXDBSession& session, std::int64_t state) {
  const Journal& history = session.History();
  const auto is_known = [&](const Step& step) { return step.State() == state; };
  const auto& done = history.Done();
  const auto& undone = history.Undone();
  Coalescer since(session);
  auto next = done.begin();  // of the steps done since
  if (state != history.FirstState()) {
    const auto known = std::find_if(done.begin(), done.end(), is_known);
    if (known == done.end()) {
      const auto taken_back = std::find_if(undone.begin(), undone.end(), is_known);
      if (taken_back == undone.end()) return {};
      for (auto step = taken_back; step != undone.end(); ++step) since.Pass(*step, false);
      return since.All();
    }
    next = known + 1;
  }
  for (; next != done.end(); ++next) since.Pass(*next, true);
  return since.All();
}

/// By the steps that only the session's file still has. Records of the two are told by their keys,
/// which no two of a pool share.
std::optional<ModelChanges> FromFile(const CQXDBSession& session, std::int64_t state) {
  const StepSink* const sink = session.GetStepSink();
  const std::string path = sink && state > 0 ? sink->PathOfStepsFrom(state) : std::string();
  if (path.empty()) return {};
  const auto file = ReadModel(path, session.Setup());
  if (!file || (*file)->History().State() != session.History().State()) return {};
  auto changes = FromHistory(**file, state);
  if (!changes) return {};
  for (RecordChange& change : changes->records) {
    const bool is_gone = change.operation == tagTRNotify::kRemoved;
    change.item = is_gone ? 0 : session.GetDataPool(change.type)->Find(change.key);
  }
  return changes;
}

}  // namespace

std::optional<ModelChanges> ChangesSince(const CQXDBSession& session, std::int64_t state) {
  if (session.History().IsOpen()) return {};
  auto changes = FromHistory(session, state);
  return changes ? changes : FromFile(session, state);
}

std::vector<RecordChange> ChangesOfOpenStep(const CQXDBSession& session, std::size_t from) {
  const Journal& journal = session.History();
  const Step& step = journal.Current();
  const std::size_t begin = journal.Mark() - step.changes.size();
  Coalescer since(session);
  for (std::size_t i = std::max(from, begin) - begin; i < step.changes.size(); ++i) {
    since.Pass(step, step.changes[i], true);
  }
  return since.Result();
}

}  // namespace qx
