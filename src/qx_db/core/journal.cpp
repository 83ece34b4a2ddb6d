#include "qx_db/core/journal.h"

#define XXH_INLINE_ALL
#include <algorithm>
#include <atomic>
#include <new>
#include <random>
#include <xxhash.h>

#include "qx_db/core/session.h"
#include "qx_db/platform/file_lock.h"
#include "qx_db/platform/prefetch.h"
#include "qx_db/record/verbs.h"

namespace qx {
namespace {

void ClearModified(ITR item) {
  KeyedSetBase::SetState(item, KeyedSetBase::StateOf(item) & ~KeyedSetBase::kModifiedBit);
}

/// Starts loading the record of a change that comes up soon; steps name them in any order.
void Fetch(const AppendLog<Change>& changes, std::size_t i) {
  if (i >= changes.size()) return;
  const ITR item = changes[i].item;
  Prefetch(item);
  Prefetch(item + 64);
}
constexpr std::size_t kAhead = 12;

void ClearModified(const AppendLog<Change>& changes) {
  for (std::size_t i = 0; i < changes.size(); ++i) {
    if (i + kAhead < changes.size()) Prefetch(ITR{changes[i + kAhead].item});
    if (changes[i].operation == tagTRNotify::kModified) ClearModified(changes[i].item);
  }
}

}  // namespace

/// The name of a state that nobody else gives to another, at the same moment in a copy of the same
/// model even: of a number drawn once by this process, which a forked one has, too, of the process,
/// and of how many names it has given.
static std::int64_t NewStateName() {
  static const std::uint64_t drawn = [] {
    std::random_device random;
    return std::uint64_t{random()} << 32 | random();
  }();
  static std::atomic<std::uint64_t> given{0};
  const std::uint64_t what[] = {drawn, static_cast<std::uint64_t>(ProcessId()), ++given};
  return static_cast<std::int64_t>(XXH3_64bits(what, sizeof what) >> 1 | 1);
}

std::size_t AppendImage(const Schema& schema, const TStructBase& record, AppendLog<char>& bytes) {
  const auto size = static_cast<std::size_t>(ImageSize(schema, record));
  const std::size_t begin = bytes.size();
  bytes.resize(begin + size);
  WriteImage(schema, record, bytes.data() + begin);
  return size;
}

std::int64_t Step::State() const {
  if (state > 0) return state;
  const std::int64_t what[] = {number, time_ms};
  const std::uint64_t seed = XXH3_64bits(what, sizeof what);
  const std::uint64_t hash =
      XXH3_64bits_withSeed(name.data(), name.size() * sizeof(char16_t), seed);
  return static_cast<std::int64_t>(hash >> 1 | 1);
}

Journal::~Journal() {
  Discard();
  Forget();
}

DPoolBase& Journal::Pool(std::uint16_t type) const { return *session_.GetDataPool(type); }

std::size_t Journal::HeldBytes(std::uint16_t type, std::span<const Change> changes) const {
  constexpr std::size_t kLinksAndVptr = 36 + 8;
  const Schema& schema = Pool(type).GetSchema();
  const auto fixed = static_cast<std::size_t>(schema.FixedImageSize());
  if (!schema.HasArrays()) return changes.size() * (fixed + kLinksAndVptr);
  std::size_t bytes = 0;
  for (const Change& change : changes) {
    bytes += ImageSize(schema, *KeyedSetBase::RecordAt(change.item)) + kLinksAndVptr;
  }
  return bytes;
}

// ---- the open step ------------------------------------------------------------------------------

void Journal::Open(std::u16string_view name) {
  current_ = Step{};
  std::size_t length = std::min(name.size(), kMaxStepName);
  // No half of a letter that takes two units.
  if (length < name.size() && (name[length] & 0xFC00) == 0xDC00) --length;
  current_.name = name.substr(0, length);
  final_ = 0;
  taken_back_ = false;
  open_ = true;
}

void Journal::Record(const tagTRNotify& notice) {
  if (notice.operation != tagTRNotify::kModified) {
    Change change{notice.item, notice.type, notice.operation, 0, 0};
    if (notice.operation == tagTRNotify::kRemoved) {
      const KeyedSetBase& set = SetOf(notice.type);
      change.list_epoch = set.ListEpoch();
      change.hash_epoch = set.HashEpoch();
    }
    current_.changes.push_back(change);
    if (notice.operation == tagTRNotify::kRemoved) {
      current_.held += HeldBytes(notice.type, {&change, 1});
    }
    return;
  }
  const Schema& schema = Pool(notice.type).GetSchema();
  const TStructBase& record = *KeyedSetBase::RecordAt(notice.item);
  if (notice.phase == 0) {
    // Room first, so that nothing fails once the image is in.
    current_.changes.reserve(current_.changes.size() + 1);
    current_.images.reserve(current_.images.size() + 1);
    const std::size_t at = current_.bytes.size();
    const std::size_t size = AppendImage(schema, record, current_.bytes);
    const auto index = static_cast<std::uint32_t>(current_.images.size());
    // After as before, until the change has been made.
    current_.images.push_back({at, at, size, size});
    current_.changes.push_back({notice.item, notice.type, notice.operation, index, 0});
    return;
  }
  Step::Images& images = current_.images.back();
  const std::size_t after = current_.bytes.size();
  try {
    images.after_size = AppendImage(schema, record, current_.bytes);
  } catch (...) {
    RestoreImage(current_, current_.changes.back(), true);
    throw;
  }
  images.after = after;
}

void Journal::BeforeUnits() {
  if (current_.units) return;
  const CQXUnitCtrl& now = session_.OwnUnits();
  current_.units = std::make_unique<Step::Units>(Step::Units{now, now});
}

void Journal::AfterUnits() {
  const CQXUnitCtrl& now = session_.OwnUnits();
  current_.units->after = now;
}

void Journal::RollbackTo(std::size_t mark) {
  const std::size_t first = std::max(mark, final_) - final_;
  if (!taken_back_) TakeBack(current_, first);
  while (current_.changes.size() > first) {
    const Change change = current_.changes.back();
    current_.changes.pop_back();
    if (change.operation == tagTRNotify::kInserted) {
      current_.held -= HeldBytes(change.type, {&change, 1});
      SetOf(change.type).FreeDetached(change.item);  // nobody's now
    } else if (change.operation == tagTRNotify::kModified) {
      ClearModified(change.item);
      current_.bytes.resize(current_.images.back().before);
      current_.images.pop_back();
    }
  }
}

void Journal::Finalize() {
  if (!open_) return;
  const auto is_removal = [](const Change& change) {
    return change.operation == tagTRNotify::kRemoved;
  };
  final_removals_.reserve(final_removals_.size() +
                          static_cast<std::size_t>(std::count_if(
                              current_.changes.begin(), current_.changes.end(), is_removal)));
  for (const Change& change : current_.changes) {
    if (change.operation == tagTRNotify::kModified) ClearModified(change.item);
    if (is_removal(change)) final_removals_.emplace_back(change.type, change.item);
  }
  has_final_ = has_final_ || !final_removals_.empty();
  EndFinal();
}

void Journal::TakeRemoved(std::uint16_t type, std::span<const ITR> items) {
  if (items.empty()) return;
  if (final_removals_.capacity() < final_removals_.size() + items.size()) {
    final_removals_.reserve(
        std::max(2 * final_removals_.size(), final_removals_.size() + items.size()));
  }
  for (const ITR item : items) final_removals_.emplace_back(type, item);
  has_final_ = true;
}

void Journal::EndFinal() {
  final_ += current_.changes.size();
  Step rest;
  rest.name.swap(current_.name);
  rest.units.swap(current_.units);
  current_ = std::move(rest);
}

void Journal::FreeFinal() {
  ClearModified(current_.changes);
  FreeDetached(current_, tagTRNotify::kRemoved);
  EndFinal();
  for (const auto& [type, item] : final_removals_) SetOf(type).FreeDetached(item);
  final_removals_.clear();
  has_final_ = false;
}

void Journal::TakeBackOpen() {
  if (reserved_) done_.pop_back();
  reserved_ = false;
  TakeBack(current_, 0);
  taken_back_ = true;
}

void Journal::Discard() {
  if (reserved_) done_.pop_back();
  reserved_ = false;
  if (open_) RollbackTo(0);
  if (HasFinal()) FreeFinal();
  open_ = taken_back_ = false;
}

void Journal::ReserveClose() {
  if (current_.state == 0) current_.state = NewStateName();
  if (!reserved_) done_.emplace_back();
  reserved_ = true;
}

bool Journal::Close() {
  if (current_.IsEmpty()) {
    open_ = false;
    return false;
  }
  CloseEvenEmpty();
  return true;
}

void Journal::CloseEvenEmpty() {
  if (!reserved_) done_.emplace_back();  // where that fails the step is open, and can be taken back
  open_ = false;
  ClearModified(current_.changes);
  reserved_ = false;
  if (!current_.ChangesUnits()) current_.units.reset();
  if (current_.number == 0) current_.number = next_number_;
  next_number_ = std::max(next_number_, current_.number + 1);
  ForgetUndone();
  done_.back() = std::move(current_);
  Count(done_.back());
  current_ = Step{};
}

// ---- taking back and doing again ----------------------------------------------------------------

/// An image that memory ran out for is restored once more: half a step taken back is worse than
/// asking twice.
void Journal::RestoreImage(const Step& step, const Change& change, bool before) {
  try {
    TryRestoreImage(step, change, before);
  } catch (const std::bad_alloc&) {
    TryRestoreImage(step, change, before);
  }
}

void Journal::TryRestoreImage(const Step& step, const Change& change, bool before) {
  const Step::Images& images = step.images[change.list_epoch];
  const char* image = step.bytes.data() + (before ? images.before : images.after);
  const Schema& schema = Pool(change.type).GetSchema();
  TStructBase& record = *KeyedSetBase::RecordAt(change.item);
  if (LoadAt<Key>(image) == record.GetKey()) {
    ReadImage(schema, image, record);
    SetOf(change.type).Touch();
    return;
  }
  const auto whole = Pool(change.type).NewRecord();
  ReadImage(schema, image, *whole);
  SetOf(change.type).SetAt(change.item, *whole);
}

/// Detaches the records of changes [begin, end), which one pool inserted in this order.
void Journal::Detach(Step& step, std::size_t begin, std::size_t end) {
  KeyedSetBase& set = SetOf(step.changes[begin].type);
  constexpr std::size_t kWorthwhile = 64;
  bool at_once = false;
  if (end - begin >= kWorthwhile) {
    try {
      std::vector<ITR> items(end - begin);
      for (std::size_t i = begin; i < end; ++i) items[i - begin] = step.changes[i].item;
      at_once = set.DetachTail(items);
    } catch (const std::bad_alloc&) {  // one by one, then
    }
  }
  for (std::size_t i = end; i-- > begin;) {
    Change& change = step.changes[i];
    if (!at_once) set.RemoveWithoutDelete(change.item);
    change.list_epoch = set.ListEpoch();
    change.hash_epoch = set.HashEpoch();
  }
  const Change* first = step.changes.data() + begin;
  step.held += HeldBytes(first->type, {first, end - begin});
}

void Journal::TakeBack(Step& step, std::size_t mark) {
  std::vector<Change> displaced;
  if (mark == 0) {
    step.held = 0;  // none of what was removed stays so
    if (step.units) session_.SetUnits(step.units->before);
  }
  for (std::size_t i = step.changes.size(); i > mark;) {
    Change& change = step.changes[i - 1];
    Fetch(step.changes, i - 1 - kAhead);
    if (change.operation == tagTRNotify::kModified) {
      RestoreImage(step, change, true);
      --i;
    } else if (change.operation == tagTRNotify::kRemoved) {
      KeyedSetBase& set = SetOf(change.type);
      if (mark > 0) step.held -= HeldBytes(change.type, {&change, 1});
      if (!set.Relink(change.item, change.list_epoch, change.hash_epoch)) {
        // Its place in the list is gone, because that was sorted since. What is detached later
        // must not rely on a place beside it.
        set.AppendDetached(change.item);
        set.MoveToTail(change.item);
        try {
          displaced.push_back(change);
        } catch (const std::bad_alloc&) {  // it stays where it is
        }
      }
      --i;
    } else {
      std::size_t begin = i - 1;
      while (begin > mark && step.changes[begin - 1].operation == tagTRNotify::kInserted &&
             step.changes[begin - 1].type == change.type) {
        --begin;
      }
      Detach(step, begin, i);
      i = begin;
    }
  }
  // Those that the step had not inserted itself, by key.
  std::erase_if(displaced, [](const Change& c) { return KeyedSetBase::IsRemoved(c.item); });
  std::stable_sort(displaced.begin(), displaced.end(), [](const Change& a, const Change& b) {
    return KeyedSetBase::RecordAt(a.item)->GetKey() < KeyedSetBase::RecordAt(b.item)->GetKey();
  });
  for (const Change& change : displaced) SetOf(change.type).MoveToTail(change.item);
}

void Journal::DoAgain(Step& step) {
  step.held = 0;  // of what was inserted
  if (step.units) session_.SetUnits(step.units->after);
  for (std::size_t i = 0; i < step.changes.size(); ++i) {
    Change& change = step.changes[i];
    Fetch(step.changes, i + kAhead);
    KeyedSetBase& set = SetOf(change.type);
    if (change.operation == tagTRNotify::kModified) {
      RestoreImage(step, change, false);
    } else if (change.operation == tagTRNotify::kInserted) {
      if (!set.Relink(change.item, change.list_epoch, change.hash_epoch)) {
        set.AppendDetached(change.item);
      }
    } else {
      set.RemoveWithoutDelete(change.item);
      change.list_epoch = set.ListEpoch();
      change.hash_epoch = set.HashEpoch();
      step.held += HeldBytes(change.type, {&change, 1});
    }
  }
}

// ---- history ------------------------------------------------------------------------------------

const Step& Journal::Undo() {
  undone_.push_back(std::move(done_.back()));
  done_.pop_back();
  TakeBack(undone_.back(), 0);
  Count(undone_.back());
  return undone_.back();
}

const Step& Journal::Redo() {
  done_.push_back(std::move(undone_.back()));
  undone_.pop_back();
  DoAgain(done_.back());
  Count(done_.back());
  return done_.back();
}

void Journal::FreeDetached(Step& step, std::uint16_t operation) {
  for (const Change& change : step.changes) {
    if (change.operation == operation) SetOf(change.type).FreeDetached(change.item);
  }
}

void Journal::ForgetUndone() {
  // From the last undone step to the first: a record inserted by one and removed by a later one
  // belongs to the insertion, and is freed once.
  for (Step& step : undone_) {
    FreeDetached(step, tagTRNotify::kInserted);
    bytes_ -= step.counted;
  }
  undone_.clear();
}

void Journal::ForgetOldest() {
  FreeDetached(done_.front(), tagTRNotify::kRemoved);
  first_state_ = done_.front().State();
  bytes_ -= done_.front().counted;
  done_.pop_front();
}

void Journal::ForgetLatest() {
  FreeDetached(undone_.front(), tagTRNotify::kInserted);
  bytes_ -= undone_.front().counted;
  undone_.erase(undone_.begin());
}

void Journal::Forget() {
  ForgetUndone();
  while (!done_.empty()) ForgetOldest();
}

std::string Journal::Validate() const {
  const auto fault = [&](const Step& step) -> std::string {
    for (const Change& change : step.changes) {
      const DPoolBase* pool = session_.GetDataPool(change.type);
      if (pool && pool->Set().Owns(change.item) && !pool->Set().IsFree(change.item)) continue;
      return "invariant 10 at step " + std::to_string(step.number) +
             ": it names a record that does not exist";
    }
    return {};
  };
  for (const Step& step : done_) {
    if (std::string found = fault(step); !found.empty()) return found;
  }
  for (const Step& step : undone_) {
    if (std::string found = fault(step); !found.empty()) return found;
  }
  return fault(current_);
}

std::int64_t Journal::NumberSteps(std::int64_t next, std::int64_t time_ms) {
  next = std::max(next, next_number_);
  const auto learn = [&](const Step& step) { next = std::max(next, step.number + 1); };
  std::for_each(done_.begin(), done_.end(), learn);
  std::for_each(undone_.begin(), undone_.end(), learn);
  const auto stamp = [&](Step& step) {
    if (step.number == 0) step.number = next++;  // one that was read from a file without numbers
    if (step.time_ms == 0) step.time_ms = time_ms;
  };
  std::for_each(done_.begin(), done_.end(), stamp);
  std::for_each(undone_.rbegin(), undone_.rend(), stamp);
  return next_number_ = next;
}

void Journal::SetLimits(const HistoryLimits& limits) { limits_ = limits; }

void Journal::Count(Step& step) {
  bytes_ -= step.counted;
  step.counted = step.Footprint();
  bytes_ += step.counted;
}

std::size_t Journal::EnforceLimits() {
  if (!is_counted_) {
    for (Step& step : done_) step.counted = step.Footprint();
    for (Step& step : undone_) step.counted = step.Footprint();
    bytes_ = Footprint();
    is_counted_ = true;
  }
  const std::size_t before = done_.size();
  const auto beyond = [&](const auto& side) {
    if (done_.size() + undone_.size() > limits_.steps) return !side.empty();
    return bytes_ > limits_.bytes && side.size() > 1;
  };
  while (beyond(done_)) ForgetOldest();
  while (beyond(undone_)) ForgetLatest();
  return before - done_.size();
}

std::size_t Journal::Footprint() const {
  std::size_t bytes = 0;
  for (const Step& step : done_) bytes += step.Footprint();
  for (const Step& step : undone_) bytes += step.Footprint();
  return bytes;
}

}  // namespace qx
