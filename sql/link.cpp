#include "sql/link.h"

#include <algorithm>
#include <cmath>
#include <limits>

#include "qx_db/lib/message.h"
#include "qx_db/mesh/quality_values.h"
#include "qx_db/model/deletion.h"

#include "sql/record_source.h"

namespace qx::sql {

// ---- derived from the records -------------------------------------------------------------------

std::shared_ptr<const std::vector<ITR>> Link::InKeyOrder(const DPoolBase& pool) {
  Kept<std::vector<ITR>>& kept = in_key_order_[&pool];
  if (kept.value && kept.revision == pool.Set().Revision()) return kept.value;
  TArray<ITR> items;
  pool.Set().GetItrList(items);
  std::vector<ITR> sorted(items.begin(), items.end());
  const auto by_key = [](ITR a, ITR b) { return KeyOf(a) < KeyOf(b); };
  if (!std::is_sorted(sorted.begin(), sorted.end(), by_key)) {
    std::stable_sort(sorted.begin(), sorted.end(), by_key);
  }
  kept.revision = pool.Set().Revision();
  kept.value = std::make_shared<std::vector<ITR>>(std::move(sorted));
  return kept.value;
}

std::shared_ptr<const BoxGrid> Link::Boxes(const DPoolBase& nodes) {
  if (!boxes_.value || boxes_.revision != nodes.Set().Revision()) {
    const Row* position = nodes.GetSchema().Find(u"_POSITION");
    boxes_.value = std::make_shared<BoxGrid>(nodes, position->offset);
    boxes_.revision = nodes.Set().Revision();
  }
  return boxes_.value;
}

Link::MeshState Link::StateOfMesh() const {
  return {session_.GetDataPool(code::kNode)->Set().Revision(),
          session_.GetDataPool(code::kElem)->Set().Revision()};
}

std::shared_ptr<const DenseMesh> Link::Mesh() {
  const MeshState now = StateOfMesh();
  if (!mesh_ || now != mesh_state_) mesh_ = std::make_shared<DenseMesh>(session_);
  mesh_state_ = now;
  return mesh_;
}

double Link::QualityOf(const MeasureInfo& measure, ITR element) {
  const MeshState now = StateOfMesh();
  if (now != quality_state_) {
    quality_.clear();
    element_numbers_ = PoolNumbers(session_.GetDataPool(code::kElem)->Set());
    quality_state_ = now;
  }
  const auto [values, is_new] = quality_.try_emplace(measure.measure);
  if (is_new) values->second = ValuesOf(session_, measure, 1.0);
  const std::uint32_t number = element_numbers_.Find(element);
  return number == PoolNumbers::kNone ? std::numeric_limits<double>::quiet_NaN()
                                      : values->second[number];
}

std::uint64_t Link::State() const {
  std::uint64_t state = session_.History().Done().size() * 31 + session_.History().Undone().size();
  for (const DPoolBase* pool : session_.Pools()) {
    state = state * 0x9E3779B97F4A7C15u + pool->Set().Revision();
  }
  return state;
}

// ---- writing ------------------------------------------------------------------------------------

namespace {

/// Does an edit that gives 0 where the model refuses it, and tells what the model said then.
template <class Work>
Outcome Ask(const std::string& place, Work&& work) {
  std::vector<Message> messages;
  bool done = false;
  {
    const MessageCapture capture;
    done = work() != 0;
    messages = capture.Messages();
  }
  std::string why = "the model refuses it";
  for (const Message& message : messages) {
    const std::string text =
        message.key.empty() ? message.arguments.at(0) : qxText(message.key, message.arguments);
    if (message.severity == Severity::kInfo) {
      qxMsgOutText(Severity::kInfo, text);
    } else {
      why = text;
    }
  }
  if (done) return {};
  return Failure{"", place, why, ""};
}

/// The statement that the connection runs, short enough to name a step.
std::u16string StepName(sqlite3* db) {
  std::string text = "SQL";
  for (sqlite3_stmt* s = sqlite3_next_stmt(db, nullptr); s; s = sqlite3_next_stmt(db, s)) {
    if (sqlite3_stmt_busy(s) && !sqlite3_stmt_readonly(s) && sqlite3_sql(s)) text = sqlite3_sql(s);
  }
  constexpr std::size_t kLongest = 60;
  text.erase(0, std::min(text.find_first_not_of(" \t\r\n"), text.size()));
  std::u16string name = Utf16(text);
  std::replace_if(
      name.begin(), name.end(), [](char16_t c) { return c < u' '; }, u' ');
  while (name.ends_with(u';') || name.ends_with(u' ')) name.pop_back();
  if (name.size() > kLongest) name = name.substr(0, kLongest) + u"...";
  return name;
}

}  // namespace

Outcome Link::Begin(sqlite3* db) {
  if (writing_ != Writing::kNone) return {};
  step_ = std::make_unique<CTransaction>(&session_);
  step_name_ = StepName(db);
  if (!step_->Begin(step_name_.c_str())) {
    step_.reset();
    return Failure{"", "model", "cannot be changed now", "wait for the end of the present step"};
  }
  writing_ = Writing::kOpen;
  has_step_ = false;
  fault_ = {};
  return {};
}

Outcome Link::Sync() {
  if (writing_ != Writing::kOpen) return {};
  if (Outcome flushed = Flush(); !flushed) return flushed;
  BeforeChange();
  Release(0);
  const std::size_t before = session_.History().Done().size();
  const std::int64_t last = before ? session_.History().Done().back().number : 0;
  Outcome ended = Ask("", [&] { return step_->Commit(); });
  writing_ = Writing::kSynced;
  const auto& done = session_.History().Done();
  has_step_ = ended && !session_.IsBusy() && !done.empty() &&
              (done.size() != before || done.back().number != last);
  return ended;
}

void Link::Commit() {
  writing_ = Writing::kNone;
  step_.reset();
  has_step_ = false;
}

void Link::Rollback() {
  DropPending();
  fault_ = {};
  if (writing_ == Writing::kNone) return;
  BeforeChange();
  while (!levels_.empty()) levels_.pop_back();
  if (step_ && step_->IsOpen()) step_->Rollback();
  if (has_step_) session_.Undo();
  Commit();
}

void Link::OpenLevels(std::size_t count) {
  while (levels_.size() < count) {
    levels_.push_back(std::make_unique<CTransaction>(&session_));
    levels_.back()->Begin(u"savepoint");
  }
}

void Link::Savepoint(int level) {
  if (writing_ != Writing::kOpen || level < static_cast<int>(levels_.size())) return;
  if (Outcome flushed = Flush(); !flushed) fault_ = flushed;
  OpenLevels(static_cast<std::size_t>(level) + 1);
}

void Link::Release(int level) {
  if (writing_ != Writing::kOpen || level >= static_cast<int>(levels_.size())) return;
  if (Outcome flushed = Flush(); !flushed) fault_ = flushed;
  while (!levels_.empty() && static_cast<int>(levels_.size()) > level) {
    levels_.back()->Commit();
    levels_.pop_back();
  }
}

void Link::RollbackTo(int level) {
  if (writing_ != Writing::kOpen || level >= static_cast<int>(levels_.size())) return;
  DropPending();
  fault_ = {};
  BeforeChange();
  while (!levels_.empty() && static_cast<int>(levels_.size()) > level) {
    levels_.back()->Rollback();
    levels_.pop_back();
  }
  if (level < 0) {
    step_->Rollback();
    step_->Begin(step_name_.c_str());
  }
  OpenLevels(static_cast<std::size_t>(level + 1));
}

void Link::BeforeChange() {
  for (RecordSource* source : open_) source->Freeze();
}

Outcome Link::Set(DPoolBase& pool, ITR item, const TStructBase& record) {
  return Ask(TableName(pool) + ' ' + std::to_string(KeyOf(item)),
             [&] { return pool.SetAtNU(item, &record); });
}

Result<TStructBase*> Link::Draft(DPoolBase& pool, ITR item) {
  if (pending_ && (pending_ != &pool || !removed_.empty())) {
    if (Outcome flushed = Flush(); !flushed) return flushed.Error();
  }
  pending_ = &pool;
  const auto [draft, is_new] = drafts_.try_emplace(item);
  if (is_new) {
    draft->second = pool.CopyRecord(item);
    drafted_.push_back(item);
  }
  return draft->second.get();
}

Outcome Link::Remove(DPoolBase& pool, ITR item) {
  if (pending_ && (pending_ != &pool || !drafts_.empty())) {
    if (Outcome flushed = Flush(); !flushed) return flushed;
  }
  pending_ = &pool;
  removed_.push_back(item);
  return {};
}

Outcome Link::Flush() {
  if (!fault_) return fault_;
  if (!pending_) return {};
  Outcome stored = StorePending();
  DropPending();
  if (!stored) fault_ = stored;  // what waited is gone: the step must not end as if it were stored
  return stored;
}

Outcome Link::StorePending() {
  BeforeChange();
  for (const ITR item : drafted_) {
    if (Outcome set = Set(*pending_, item, *drafts_.at(item)); !set) return set;
  }
  if (removed_.empty()) return {};
  return Ask(TableName(*pending_),
             [&] { return DeleteRecords(session_, pending_->GetTypeCode(), removed_); });
}

void Link::DropPending() {
  pending_ = nullptr;
  ++draft_epoch_;
  drafts_.clear();
  drafted_.clear();
  removed_.clear();
}

}  // namespace qx::sql
