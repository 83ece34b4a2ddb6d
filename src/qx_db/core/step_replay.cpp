#include "qx_db/core/step_replay.h"

#include <algorithm>
#include <cstdint>
#include <vector>

#include "qx_db/core/session.h"
#include "qx_db/record/verbs.h"

namespace qx {
namespace {

constexpr std::uint64_t kLeastBytesOfAChange = 16;

std::string At(const StoredChange& change, const char* what) {
  return "change of key " + std::to_string(change.key) + " " + what;
}

}  // namespace

/// New records of a step that no change has put to use yet; freed when the step fails before.
class StepReplay::Waiting {
 public:
  ~Waiting() {
    for (std::size_t i = begin_; i < items_.size(); ++i) {
      items_[i].first->FreeDetached(items_[i].second);
    }
  }
  void Reserve() { items_.reserve(items_.size() + 1); }
  void Add(KeyedSetBase& set, ITR item) { items_.emplace_back(&set, item); }
  void UseFirst() { ++begin_; }
  void UseLast() { items_.pop_back(); }

 private:
  std::vector<std::pair<KeyedSetBase*, ITR>> items_;
  std::size_t begin_ = 0;
};

StepReplay::StepReplay(CQXDBSession& session, Readers readers, std::uint64_t step_bytes)
    : session_(session), readers_(std::move(readers)), spare_(step_bytes / kLeastBytesOfAChange) {
  numbers_.Reset(session);
}

DPoolBase* StepReplay::PoolOf(const StoredChange& change) {
  if (last_pool_ && last_pool_->GetTypeCode() == change.type) return last_pool_;
  DPoolBase* pool = session_.GetDataPool(change.type);
  if (!pool || !pool->NeedSaveNLoad() || !readers_(change.type)) return nullptr;
  return last_pool_ = pool;
}

/// The record that the images of a pool are read into.
TStructBase& StepReplay::Read(const DPoolBase& pool) {
  auto& record = read_[pool.GetTypeCode()];
  if (!record) record = pool.NewRecord();
  return *record;
}

std::string StepReplay::ReadRecord(const StoredChange& change, DPoolBase& pool, bool resolve) {
  const ImageReader& reader = *readers_(change.type);
  if (const std::string fault = reader.Check(change.image.data(), change.image.size());
      !fault.empty()) {
    return fault;
  }
  TStructBase& record = Read(pool);
  reader.Read(change.image.data(), record);
  for (const Row* row : pool.GetSchema().References()) {  // of records that no file holds
    const bool is_unsaved = row->IsArray() && row->reference_rule == ReferenceRule::kNotSaved;
    if (is_unsaved) detail::ArrayAt(detail::Bytes(record), *row).count = 0;
  }
  if (resolve) ResolveReferences(pool, record);
  return record.GetKey() < 0 ? At(change, "has a negative key") : std::string();
}

void StepReplay::ResolveReferences(DPoolBase& pool, TStructBase& record) const {
  ForEachReference(pool.GetSchema(), record, [&](const Row& row, char* slot) {
    const auto stored = LoadAt<std::uint64_t>(slot);
    const auto low = static_cast<std::uint32_t>(stored);
    ITR item = 0;
    if (stored - low == StoredReference::kNumber) item = numbers_.At(row.target, low);
    if (stored - low == StoredReference::kKey) {
      item = FindRecord(session_, row.target, static_cast<Key>(low));
    }
    StoreAt(slot, item);
  });
}

/// Makes the record of an insertion or removal, its references still as in the file.
std::string StepReplay::Create(const StoredChange& change, DPoolBase& pool, Waiting& waiting) {
  if (std::string fault = ReadRecord(change, pool, false); !fault.empty()) return fault;
  waiting.Reserve();
  KeyedSetBase& set = PoolInside::SetOf(pool);
  const ITR item = set.CreateDetached(Read(pool));
  waiting.Add(set, item);
  return numbers_.Assign(pool, change.number, item, spare_)
             ? std::string()
             : At(change, "names a new record by a number that is taken");
}

/// Takes what a change says of its step as a whole.
std::string StepReplay::ApplyToStep(const StoredChange& change, Step& step, StepForm form) {
  if (change.operation == StoredChange::kUnits) return ApplyUnits(change, step, form);
  std::int64_t state = 0;
  if (change.image.size() == sizeof(state)) state = LoadAt<std::int64_t>(change.image.data());
  if (step.state != 0 || state <= 0) return "names its state by what is no name";
  step.state = state;
  return {};
}

/// Changes the session's units to those of a step, or back to them, and has the step know both.
std::string StepReplay::ApplyUnits(const StoredChange& change, Step& step, StepForm form) {
  CQXUnitCtrl other;
  if (step.units || !UnitsFromText({change.image.data(), change.image.size()}, other)) {
    return "changes units to such as are not known";
  }
  const CQXUnitCtrl now = session_.OwnUnits();
  step.units = std::make_unique<Step::Units>(form == StepForm::kForward ? Step::Units{now, other}
                                                                        : Step::Units{other, now});
  session_.SetUnits(other);
  return {};
}

// ---- forward ------------------------------------------------------------------------------------

std::string StepReplay::ApplyForward(const StoredChange& change, DPoolBase& pool) {
  KeyedSetBase& set = PoolInside::SetOf(pool);
  Journal& journal = session_.journal_;
  ITR item = numbers_.At(change.type, change.number);
  // Room first: what is linked or detached below has its owner at once.
  journal.Current().changes.reserve(journal.Current().changes.size() + 1);
  if (change.operation == tagTRNotify::kInserted) {
    // Inserted records may refer to each other, so that all of them are there already, detached.
    if (!item || !KeyedSetBase::IsRemoved(item)) return At(change, "inserts a record twice");
    ResolveReferences(pool, *KeyedSetBase::RecordAt(item));
    set.AppendDetached(item);
    journal.Record({change.type, change.operation, item, 0});
    return {};
  }
  if (!item || KeyedSetBase::IsRemoved(item)) return At(change, "is of a record that is not there");
  if (change.operation == tagTRNotify::kRemoved) {
    set.RemoveWithoutDelete(item);
    journal.Record({change.type, change.operation, item, 0});
    return {};
  }
  if (std::string fault = ReadRecord(change, pool, true); !fault.empty()) return fault;
  journal.Record({change.type, change.operation, item, 0});
  set.SetAt(item, Read(pool));
  journal.Record({change.type, change.operation, item, 1});
  return {};
}

void StepReplay::ForgetUndone() {
  for (const Step& step : session_.journal_.Undone()) {
    for (const Change& change : step.changes) {
      if (change.operation == tagTRNotify::kInserted) {
        numbers_.Forget(*session_.GetDataPool(change.type), change.item);
      }
    }
  }
}

/// What is wrong with the keys of the records that a step has left in their pools; "" for nothing.
std::string StepReplay::SharedKey(const Step& step) const {
  for (const Change& change : step.changes) {
    const DPoolBase& pool = *session_.GetDataPool(change.type);
    if (KeyedSetBase::IsRemoved(change.item) || !pool.Set().SharesKey(change.item)) continue;
    return "gives two records of " + pool.GetAPIName().ToUtf8() + " the key " +
           std::to_string(KeyOf(change.item));
  }
  return {};
}

std::string StepReplay::Commit(std::span<const char> bytes, std::int64_t time_ms) {
  StepHead head;
  StepDecoder decoder(bytes, StepForm::kForward);
  if (!decoder.ReadHead(head)) return decoder.Fault();
  ForgetUndone();
  Journal& journal = session_.journal_;
  journal.Open(head.name);
  journal.Current().number = head.number;
  journal.Current().time_ms = time_ms;
  Waiting waiting;
  StoredChange change;
  // First the new records, so that references find them.
  for (StepDecoder first = decoder; first.Next(change);) {
    if (change.operation != tagTRNotify::kInserted) continue;
    DPoolBase* pool = PoolOf(change);
    if (!pool) return At(change, "is of a pool that the file does not hold");
    if (std::string fault = Create(change, *pool, waiting); !fault.empty()) return fault;
  }
  while (decoder.Next(change)) {
    if (change.IsOfStep()) {
      std::string fault = ApplyToStep(change, journal.Current(), StepForm::kForward);
      if (!fault.empty()) return fault;
      continue;
    }
    DPoolBase* pool = PoolOf(change);
    if (!pool) return At(change, "is of a pool that the file does not hold");
    if (std::string fault = ApplyForward(change, *pool); !fault.empty()) return fault;
    if (change.operation == tagTRNotify::kInserted) waiting.UseFirst();
  }
  if (!decoder.Fault().empty()) return decoder.Fault();
  if (std::string fault = SharedKey(journal.Current()); !fault.empty()) return fault;
  journal.CloseEvenEmpty();
  return {};
}

std::string StepReplay::Undo() {
  if (session_.journal_.Done().empty()) return "undoes a step that is not there";
  session_.journal_.Undo();
  return {};
}

std::string StepReplay::Redo() {
  if (session_.journal_.Undone().empty()) return "does a step again that is not there";
  session_.journal_.Redo();
  return {};
}

// ---- backward -----------------------------------------------------------------------------------

std::string StepReplay::ApplyBackward(const StoredChange& change, DPoolBase& pool, Step& step) {
  KeyedSetBase& set = PoolInside::SetOf(pool);
  const ITR item = numbers_.At(change.type, change.number);
  if (!item) return At(change, "is of a record that is not there");
  const bool gone = KeyedSetBase::IsRemoved(item);
  Change taken_back{item, change.type, change.operation, 0, 0};
  if (change.operation == tagTRNotify::kRemoved) {
    const auto neighbour = [&](std::uint32_t number) {
      return number == StepNumbers::kNone ? ITR{0} : numbers_.At(change.type, number);
    };
    const ITR previous = neighbour(change.previous);
    const ITR next = neighbour(change.next);
    // The two must stand side by side, so that the list stays one.
    const bool beside =
        (previous ? !KeyedSetBase::IsRemoved(previous) && set.NextOf(previous) == next
                  : set.GetHeadPosition() == next) &&
        (next ? !KeyedSetBase::IsRemoved(next) : set.GetTailPosition() == previous);
    if (!gone || !beside) return At(change, "removes a record from where it cannot have been");
    set.SetFormerNeighbours(item, previous, next);
    set.Relink(item, set.ListEpoch(), set.HashEpoch() + 1);
  } else if (gone) {
    return At(change, "is of a record that is not there");
  } else if (change.operation == tagTRNotify::kInserted) {
    set.RemoveWithoutDelete(item);
    taken_back.list_epoch = set.ListEpoch();
    taken_back.hash_epoch = set.HashEpoch();
    step.held += session_.journal_.HeldBytes(change.type, {&taken_back, 1});
  } else {
    if (std::string fault = ReadRecord(change, pool, true); !fault.empty()) return fault;
    Step::Images images{};
    images.after = step.bytes.size();
    images.after_size = AppendImage(pool.GetSchema(), *KeyedSetBase::RecordAt(item), step.bytes);
    images.before = step.bytes.size();
    images.before_size = AppendImage(pool.GetSchema(), Read(pool), step.bytes);
    set.SetAt(item, Read(pool));
    taken_back.list_epoch = static_cast<std::uint32_t>(step.images.size());
    step.images.push_back(images);
  }
  step.changes.push_back(taken_back);
  return {};
}

std::string StepReplay::TakeBackPast(std::span<const char> bytes, std::int64_t time_ms) {
  StepHead head;
  StepDecoder decoder(bytes, StepForm::kBackward);
  if (!decoder.ReadHead(head)) return decoder.Fault();
  // Changes are read from the first on and taken back from the last on. A step can have millions:
  // it is gone back through by blocks, each of which is decoded again.
  constexpr std::size_t kBlock = 4096;
  std::vector<StepDecoder> blocks;
  std::size_t count = 0;
  bool removes = false;
  Waiting waiting;
  StoredChange change;
  // First the records that the step removed, so that references and neighbours find them.
  std::vector<StoredChange> of_step;
  for (;; ++count) {
    if (count % kBlock == 0) blocks.push_back(decoder);
    if (!decoder.Next(change)) break;
    if (change.IsOfStep()) {
      of_step.push_back(change);
      continue;
    }
    DPoolBase* pool = PoolOf(change);
    if (!pool) return At(change, "is of a pool that the file does not hold");
    if (change.operation != tagTRNotify::kRemoved) continue;
    removes = true;
    if (std::string fault = Create(change, *pool, waiting); !fault.empty()) return fault;
  }
  if (!decoder.Fault().empty()) return decoder.Fault();
  for (StepDecoder again = blocks.front(); removes && again.Next(change);) {
    if (change.operation != tagTRNotify::kRemoved) continue;
    ResolveReferences(*PoolOf(change),
                      *KeyedSetBase::RecordAt(numbers_.At(change.type, change.number)));
  }
  // The journal owns what is detached from now on, also where this ends half-way.
  Step& step = session_.journal_.AddUndone();
  step.number = head.number;
  step.name = head.name;
  step.time_ms = time_ms;
  step.changes.reserve(count - of_step.size());
  std::string fault;
  for (const StoredChange& c : of_step) {
    if (fault.empty()) fault = ApplyToStep(c, step, StepForm::kBackward);
  }
  std::vector<StoredChange> changes;
  for (; !blocks.empty() && fault.empty(); blocks.pop_back()) {
    changes.clear();
    for (std::size_t i = 0; i < kBlock && blocks.back().Next(change); ++i) {
      if (!change.IsOfStep()) changes.push_back(change);
    }
    for (auto c = changes.rbegin(); c != changes.rend() && fault.empty(); ++c) {
      fault = ApplyBackward(*c, *PoolOf(*c), step);
      if (fault.empty() && c->operation == tagTRNotify::kRemoved) waiting.UseLast();
    }
  }
  std::reverse(step.changes.begin(), step.changes.end());
  ++past_;
  is_cut_ = fault.empty() && !SharedKey(step).empty();
  return fault;
}

void StepReplay::DropBeforeCut() {
  Journal& journal = session_.journal_;
  if (!is_cut_ || journal.Done().empty()) return;
  const HistoryLimits limits = journal.Limits();
  journal.SetLimits({journal.Done().size() + journal.Undone().size() - 1, SIZE_MAX});
  journal.EnforceLimits();
  journal.SetLimits(limits);
}

std::string StepReplay::EndPast() {
  for (; past_ > 0; --past_) session_.journal_.Redo();
  return {};
}

}  // namespace qx
