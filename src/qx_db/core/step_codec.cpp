#include "qx_db/core/step_codec.h"

#include <algorithm>
#include <cstring>

#include "qx_db/core/image_stream.h"
#include "qx_db/core/session.h"
#include "qx_db/record/verbs.h"

namespace qx {
namespace {

template <class T>
void Put(std::vector<char>& out, T value) {
  const std::size_t at = out.size();
  out.resize(at + sizeof(T));
  StoreAt(out.data() + at, value);
}

/// The changes of one step on their way out.
class StepEncoder {
 public:
  StepEncoder(const CQXDBSession& session, const Step& step, StepForm form, StepNumbers& numbers,
              std::vector<char>& out)
      : session_(session), step_(step), form_(form), numbers_(numbers), out_(out) {}

  std::string Encode() {
    const std::size_t head = out_.size();
    Put(out_, step_.number);
    for (int i = 0; i < 4; ++i) Put(out_, std::uint32_t{0});
    const std::size_t letters = std::min<std::size_t>(step_.name.size(), 0xFFFF);
    Put(out_, static_cast<std::uint32_t>(letters));
    out_.resize(out_.size() + letters * 2);
    std::memcpy(out_.data() + out_.size() - letters * 2, step_.name.data(), letters * 2);
    out_.reserve(out_.size() + step_.bytes.size() / 2 + step_.changes.size() * 2 * kChangeBytes);
    if (step_.units) PutUnits(*step_.units);
    std::uint32_t counts[3] = {};
    for (const Change& change : step_.changes) {
      if (!pool_ || pool_->GetTypeCode() != change.type) {
        pool_ = session_.GetDataPool(change.type);
        saved_ = pool_->NeedSaveNLoad() != 0;
      }
      if (!saved_) continue;
      ++counts[change.operation - tagTRNotify::kInserted];
      Append(*pool_, change);
      if (!fault_.empty()) return fault_;
    }
    for (std::size_t i = 0; i < 3; ++i) StoreAt(out_.data() + head + 8 + 4 * i, counts[i]);
    StoreAt(out_.data() + head + 20, counts[0] + counts[1] + counts[2] + (step_.units ? 1 : 0));
    return {};
  }

 private:
  static constexpr std::size_t kChangeBytes = 16;

  void PutUnits(const Step::Units& units) {
    const std::string text = UnitsText(form_ == StepForm::kBackward ? units.before : units.after);
    Put(out_, std::uint16_t{0});
    Put(out_, StoredChange::kUnits);
    Put(out_, std::uint64_t{0});  // no number, no key
    Put(out_, static_cast<std::uint32_t>(text.size()));
    out_.insert(out_.end(), text.begin(), text.end());
  }

  void Append(const DPoolBase& pool, const Change& change) {
    const bool backward = form_ == StepForm::kBackward;
    const bool modified = change.operation == tagTRNotify::kModified;
    const Step::Images* images = modified ? &step_.images[change.list_epoch] : nullptr;
    const char* image =
        images ? step_.bytes.data() + (backward ? images->before : images->after) : nullptr;
    // One write: steps of many small changes are common.
    struct {
      std::uint16_t type, operation;
      std::uint32_t number;
      Key key;
    } const head{change.type, change.operation, numbers_.Of(pool, change.item),
                 image ? LoadAt<Key>(image) : KeyOf(change.item)};
    Put(out_, head);
    if (change.operation == tagTRNotify::kRemoved && backward) {
      Put(out_, NumberOf(pool, pool.Set().PreviousOf(change.item)));
      Put(out_, NumberOf(pool, pool.Set().NextOf(change.item)));
    }
    if (image) {
      AppendImage(pool.GetSchema(), backward ? images->before_size : images->after_size,
                  [&](char* to, std::size_t size) { std::memcpy(to, image, size); });
      return;
    }
    if ((change.operation == tagTRNotify::kRemoved) != backward) {
      Put(out_, std::uint32_t{0});  // the record is there when the step is applied
      return;
    }
    const TStructBase& record = *KeyedSetBase::RecordAt(change.item);
    AppendImage(pool.GetSchema(), ImageSize(pool.GetSchema(), record),
                [&](char* to, std::size_t) { WriteImage(pool.GetSchema(), record, to); });
  }

  std::uint32_t NumberOf(const DPoolBase& pool, ITR item) const {
    return item ? numbers_.Of(pool, item) : StepNumbers::kNone;
  }

  template <class Fill>
  void AppendImage(const Schema& schema, std::uint64_t image_size, Fill&& fill) {
    if (image_size > kMaxStoredImage) {
      fault_ = "changes a " + std::string(schema.Name()) + " that takes " +
               std::to_string(image_size) + " bytes where a file has room for " +
               std::to_string(kMaxStoredImage);
      return;
    }
    const auto size = static_cast<std::uint32_t>(image_size);
    const std::size_t at = out_.size() + sizeof(size);
    out_.resize(at + size);
    StoreAt(out_.data() + at - sizeof(size), size);
    fill(out_.data() + at, size);
    if (schema.References().empty()) return;
    ForEachReferenceInImage(schema, out_.data() + at, [&](const Row& row, char* slot) {
      const auto item = LoadAt<ITR>(slot);
      if (item == 0) return;
      if (row.reference_rule == ReferenceRule::kNotSaved) return StoreAt(slot, ITR{0});
      const DPoolBase* target = session_.GetDataPool(row.target);
      const std::uint32_t number = target ? numbers_.Of(*target, item) : StepNumbers::kNone;
      const auto key = static_cast<std::uint32_t>(KeyOf(item));
      StoreAt(slot, number != StepNumbers::kNone ? StoredReference::kNumber | number
                                                 : StoredReference::kKey | key);
    });
  }

  const CQXDBSession& session_;
  const Step& step_;
  StepForm form_;
  StepNumbers& numbers_;
  std::vector<char>& out_;
  const DPoolBase* pool_ = nullptr;  // of the last change
  bool saved_ = false;
  std::string fault_;
};

}  // namespace

void NumberRecords(const CQXDBSession& session, const Step& step, std::uint16_t operation,
                   StepNumbers& numbers) {
  for (const Change& change : step.changes) {
    const DPoolBase& pool = *session.GetDataPool(change.type);
    if (change.operation == operation && pool.NeedSaveNLoad()) numbers.Give(pool, change.item);
  }
}

std::string EncodeStep(const CQXDBSession& session, const Step& step, StepForm form,
                       StepNumbers& numbers, std::vector<char>& out) {
  return StepEncoder(session, step, form, numbers, out).Encode();
}

// ---- units --------------------------------------------------------------------------------------

std::string UnitsText(const CQXUnitCtrl& units) {
  std::string text;
  for (const UnitSystem& system : {units.Model(), units.Current(), units.Previous()}) {
    for (int b = 0; b < kUnitBaseCount; ++b) {
      const auto base = static_cast<UnitBase>(b);
      text += UnitsOf(base)[static_cast<std::size_t>(system[base])].name;
      text += '\n';
    }
  }
  return text;
}

bool UnitsFromText(std::string_view text, CQXUnitCtrl& units) {
  UnitSystem systems[3];
  for (UnitSystem& system : systems) {
    for (int b = 0; b < kUnitBaseCount; ++b) {
      const auto base = static_cast<UnitBase>(b);
      const std::size_t end = text.find('\n');
      if (end == text.npos || (system[base] = FindUnit(base, text.substr(0, end))) < 0)
        return false;
      text.remove_prefix(end + 1);
    }
  }
  units.SetModel(systems[0]);
  units.SetCurrent(systems[2]);
  units.SetCurrent(systems[1]);
  return text.empty();
}

// ---- reading ------------------------------------------------------------------------------------

template <class T>
bool StepDecoder::Take(T& value) {
  if (left_.size() < sizeof(T)) return Fail("is cut short");
  value = LoadAt<T>(left_.data());
  left_ = left_.subspan(sizeof(T));
  return true;
}

bool StepDecoder::ReadHead(StepHead& head) {
  std::uint32_t letters = 0;
  if (!Take(head.number) || !Take(head.inserted) || !Take(head.removed) || !Take(head.modified) ||
      !Take(changes_) || !Take(letters)) {
    return false;
  }
  if (letters > left_.size() / 2) return Fail("has a name longer than itself");
  head.name.resize(letters);
  if (letters) std::memcpy(head.name.data(), left_.data(), std::size_t{letters} * 2);
  left_ = left_.subspan(std::size_t{letters} * 2);
  return true;
}

bool StepDecoder::Next(StoredChange& change) {
  if (changes_ == 0) return left_.empty() ? false : Fail("has bytes after its last change");
  --changes_;
  std::uint32_t size = 0;
  if (!Take(change.type) || !Take(change.operation) || !Take(change.number) || !Take(change.key)) {
    return false;
  }
  if (change.operation < tagTRNotify::kInserted || change.operation > StoredChange::kUnits) {
    return Fail("has an unknown kind of change");
  }
  change.previous = change.next = StepNumbers::kNone;
  if (backward_ && change.operation == tagTRNotify::kRemoved) {
    if (!Take(change.previous) || !Take(change.next)) return false;
  }
  if (!Take(size)) return false;
  if (size > left_.size()) return Fail("has an image longer than itself");
  change.image = left_.first(size);
  left_ = left_.subspan(size);
  return true;
}

}  // namespace qx
