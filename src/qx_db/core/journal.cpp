#include "qx_db/core/journal.h"

#include <algorithm>
#include <new>

#include "qx_db/core/session.h"
#include "qx_db/record/verbs.h"

namespace qx {
namespace {

/// Appends a record's image to `bytes`, all or nothing; returns its size.
std::uint32_t AppendImage(const TStructBase& record, AppendLog<char>& bytes) {
  const std::uint32_t size = record.GetSizePlusVfptr() - 8;
  const std::size_t begin = bytes.size();
  bytes.resize(begin + size);
  record.Data2Stream(bytes.data() + begin, static_cast<int>(size));
  return size;
}

void ClearModified(ITR item) {
  KeyedSetBase::SetState(item, KeyedSetBase::StateOf(item) & ~KeyedSetBase::kModifiedBit);
}

}  // namespace

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
  current_.name = name;
  final_ = 0;
  open_ = true;
}

void Journal::Record(const tagTRNotify& notice) {
  if (notice.operation != tagTRNotify::kModified) {
    Change change{notice.item, notice.type, notice.operation, 0, 0};
    if (notice.operation == tagTRNotify::kRemoved) {
      const KeyedSetBase& set = Pool(notice.type).Set();
      change.list_epoch = set.ListEpoch();
      change.hash_epoch = set.HashEpoch();
    }
    current_.changes.push_back(change);
    if (notice.operation == tagTRNotify::kRemoved) {
      current_.held += HeldBytes(notice.type, {&change, 1});
    }
    return;
  }
  const TStructBase& record = *KeyedSetBase::RecordAt(notice.item);
  if (notice.phase == 0) {
    // Room first, so that nothing fails once the image is in.
    current_.changes.reserve(current_.changes.size() + 1);
    current_.images.reserve(current_.images.size() + 1);
    const std::size_t at = current_.bytes.size();
    const std::uint32_t size = AppendImage(record, current_.bytes);
    const auto index = static_cast<std::uint32_t>(current_.images.size());
    // After as before, until the change has been made.
    current_.images.push_back({at, at, size, size});
    current_.changes.push_back({notice.item, notice.type, notice.operation, index, 0});
    return;
  }
  Step::Images& images = current_.images.back();
  const std::size_t after = current_.bytes.size();
  try {
    images.after_size = AppendImage(record, current_.bytes);
  } catch (...) {
    RestoreImage(current_, current_.changes.back(), true);
    throw;
  }
  images.after = after;
}

void Journal::RollbackTo(std::size_t mark) {
  const std::size_t first = std::max(mark, final_) - final_;
  TakeBack(current_, first);
  while (current_.changes.size() > first) {
    const Change change = current_.changes.back();
    current_.changes.pop_back();
    if (change.operation == tagTRNotify::kInserted) {
      current_.held -= HeldBytes(change.type, {&change, 1});
      Pool(change.type).Set().FreeDetached(change.item);  // nobody's now
    } else if (change.operation == tagTRNotify::kModified) {
      ClearModified(change.item);
      current_.bytes.resize(current_.images.back().before);
      current_.images.pop_back();
    }
  }
}

void Journal::Finalize() {
  if (!open_) return;
  for (const Change& change : current_.changes) {
    if (change.operation == tagTRNotify::kModified) ClearModified(change.item);
  }
  FreeDetached(current_, tagTRNotify::kRemoved);
  final_ += current_.changes.size();
  Step rest;
  rest.name.swap(current_.name);
  current_ = std::move(rest);
}

void Journal::Discard() {
  if (reserved_) done_.pop_back();
  reserved_ = false;
  if (open_) RollbackTo(0);
  open_ = false;
}

void Journal::ReserveClose() {
  if (!reserved_) done_.emplace_back();
  reserved_ = true;
}

bool Journal::Close() {
  open_ = false;
  if (current_.changes.empty()) return false;
  CloseEvenEmpty();
  return true;
}

void Journal::CloseEvenEmpty() {
  open_ = false;
  for (const Change& change : current_.changes) {
    if (change.operation == tagTRNotify::kModified) ClearModified(change.item);
  }
  ReserveClose();
  reserved_ = false;
  ForgetUndone();
  done_.back() = std::move(current_);
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
  const auto size = static_cast<int>(before ? images.before_size : images.after_size);
  TStructBase& record = *KeyedSetBase::RecordAt(change.item);
  if (LoadAt<Key>(image) == record.GetKey()) {
    record.Stream2Data(image, size);
    Pool(change.type).Set().Touch();
    return;
  }
  DPoolBase& pool = Pool(change.type);
  TStructBase* scratch = pool.GetDataPtrForUndoRedo();
  scratch->Stream2Data(image, size);
  pool.Set().SetAt(change.item, *scratch);
}

/// Detaches the records of changes [begin, end), which one pool inserted in this order.
void Journal::Detach(Step& step, std::size_t begin, std::size_t end) {
  KeyedSetBase& set = Pool(step.changes[begin].type).Set();
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
  if (mark == 0) step.held = 0;  // none of what was removed stays so
  for (std::size_t i = step.changes.size(); i > mark;) {
    Change& change = step.changes[i - 1];
    if (change.operation == tagTRNotify::kModified) {
      RestoreImage(step, change, true);
      --i;
    } else if (change.operation == tagTRNotify::kRemoved) {
      KeyedSetBase& set = Pool(change.type).Set();
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
  for (const Change& change : displaced) Pool(change.type).Set().MoveToTail(change.item);
}

void Journal::DoAgain(Step& step) {
  step.held = 0;  // of what was inserted
  for (Change& change : step.changes) {
    KeyedSetBase& set = Pool(change.type).Set();
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
  return undone_.back();
}

const Step& Journal::Redo() {
  done_.push_back(std::move(undone_.back()));
  undone_.pop_back();
  DoAgain(done_.back());
  return done_.back();
}

void Journal::FreeDetached(Step& step, std::uint16_t operation) {
  for (const Change& change : step.changes) {
    if (change.operation == operation) Pool(change.type).Set().FreeDetached(change.item);
  }
}

void Journal::ForgetUndone() {
  // From the last undone step to the first: a record inserted by one and removed by a later one
  // belongs to the insertion, and is freed once.
  for (Step& step : undone_) FreeDetached(step, tagTRNotify::kInserted);
  undone_.clear();
}

void Journal::ForgetOldest() {
  FreeDetached(done_.front(), tagTRNotify::kRemoved);
  done_.pop_front();
}

void Journal::ForgetLatest() {
  FreeDetached(undone_.front(), tagTRNotify::kInserted);
  undone_.erase(undone_.begin());
}

void Journal::Forget() {
  ForgetUndone();
  while (!done_.empty()) ForgetOldest();
}

std::int64_t Journal::NumberSteps(std::int64_t next, std::int64_t time_ms) {
  const auto learn = [&](const Step& step) { next = std::max(next, step.number + 1); };
  std::for_each(done_.begin(), done_.end(), learn);
  std::for_each(undone_.begin(), undone_.end(), learn);
  const auto stamp = [&](Step& step) {
    if (step.number != 0) return;
    step.number = next++;
    step.time_ms = time_ms;
  };
  std::for_each(done_.begin(), done_.end(), stamp);
  std::for_each(undone_.rbegin(), undone_.rend(), stamp);
  return next;
}

void Journal::SetLimits(const HistoryLimits& limits) {
  limits_ = limits;
  EnforceLimits();
}

void Journal::EnforceLimits() {
  std::size_t bytes = Footprint();
  const auto beyond = [&] {
    return done_.size() + undone_.size() > limits_.steps || bytes > limits_.bytes;
  };
  while (beyond() && !done_.empty()) {
    bytes -= done_.front().Footprint();
    ForgetOldest();
  }
  while (beyond() && !undone_.empty()) {
    bytes -= undone_.front().Footprint();
    ForgetLatest();
  }
}

std::size_t Journal::Footprint() const {
  std::size_t bytes = 0;
  for (const Step& step : done_) bytes += step.Footprint();
  for (const Step& step : undone_) bytes += step.Footprint();
  return bytes;
}

}  // namespace qx
