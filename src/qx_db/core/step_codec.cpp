#include "qx_db/core/step_codec.h"

#include <algorithm>
#include <cstring>
#include <tuple>

#include "qx_db/core/image_stream.h"
#include "qx_db/core/session.h"
#include "qx_db/record/verbs.h"

namespace qx {
namespace {

/// The changes of one step on their way out.
class StepEncoder {
 public:
  StepEncoder(const CQXDBSession& session, const Step& step, StepForm form)
      : session_(session), step_(step), backward_(form == StepForm::kBackward) {}

  StepSize Size() {
    StepSize size;
    size.bytes = sizeof(Head) + 2 * Letters();
    const auto add_of_step = [&](std::size_t bytes) {
      size.bytes += sizeof(ChangeHead) + sizeof(std::uint32_t) + bytes;
    };
    if (step_.state > 0) add_of_step(sizeof(step_.state));
    if (step_.ChangesUnits()) add_of_step(Units().size());
    std::uint32_t counts[3] = {};
    ForEachChange([&](const DPoolBase& pool, const Change& change) {
      ++counts[change.operation - tagTRNotify::kInserted];
      const Image image = ImageOf(pool, change);
      if (image.size > kMaxStoredImage && size.fault.empty()) {
        size.fault = "changes a " + std::string(pool.GetSchema().Name()) + " that takes " +
                     std::to_string(image.size) + " bytes where a file has room for " +
                     std::to_string(kMaxStoredImage);
      }
      size.bytes += sizeof(ChangeHead) + (NamesPlace(change) ? sizeof(Place) : 0) +
                    sizeof(std::uint32_t) + image.size;
    });
    std::tie(size.inserted, size.removed, size.modified) =
        std::tie(counts[0], counts[1], counts[2]);
    return size;
  }

  void Encode(const StepNumbers& numbers, const StepSize& size, FrameSink& out) {
    Put(out, Head{step_.number, size.inserted, size.removed, size.modified,
                  size.inserted + size.removed + size.modified + (step_.state > 0 ? 1 : 0) +
                      (step_.ChangesUnits() ? 1 : 0),
                  static_cast<std::uint32_t>(Letters())});
    if (Letters() > 0) std::memcpy(out.Room(2 * Letters()), step_.name.data(), 2 * Letters());
    const auto put_of_step = [&](std::uint16_t operation, const char* bytes, std::size_t count) {
      Put(out, ChangeHead{0, operation, 0, 0});
      Put(out, static_cast<std::uint32_t>(count));
      std::memcpy(out.Room(count), bytes, count);
    };
    if (step_.state > 0) {
      put_of_step(StoredChange::kState, reinterpret_cast<const char*>(&step_.state),
                  sizeof(step_.state));
    }
    if (step_.ChangesUnits()) {
      const std::string text = Units();
      put_of_step(StoredChange::kUnits, text.data(), text.size());
    }
    ForEachChange([&](const DPoolBase& pool, const Change& change) {
      PutChange(pool, change, numbers, out);
    });
  }

 private:
#pragma pack(push, 4)
  struct Head {
    std::int64_t number;
    std::uint32_t inserted, removed, modified, changes, letters;
  };
#pragma pack(pop)
  struct ChangeHead {
    std::uint16_t type, operation;
    std::uint32_t number;
    Key key;
  };
  struct Place {
    std::uint32_t previous, next;
  };
  /// The image that a change has in the file: of the journal, of the record itself, or none.
  struct Image {
    std::uint64_t size = 0;
    const char* bytes = nullptr;
    const TStructBase* record = nullptr;
  };

  template <class T>
  static void Put(FrameSink& out, const T& value) {
    std::memcpy(out.Room(sizeof(T)), &value, sizeof(T));
  }

  std::size_t Letters() const { return step_.name.size(); }
  std::string Units() const {
    return UnitsText(backward_ ? step_.units->before : step_.units->after);
  }
  bool NamesPlace(const Change& change) const {
    return backward_ && change.operation == tagTRNotify::kRemoved;
  }

  template <class Visit>
  void ForEachChange(Visit&& visit) const {
    const DPoolBase* pool = nullptr;  // of the last change
    bool is_saved = false;
    for (const Change& change : step_.changes) {
      if (!pool || pool->GetTypeCode() != change.type) {
        pool = session_.GetDataPool(change.type);
        is_saved = pool->NeedSaveNLoad() != 0;
      }
      if (is_saved) visit(*pool, change);
    }
  }

  Image ImageOf(const DPoolBase& pool, const Change& change) const {
    if (change.operation == tagTRNotify::kModified) {
      const Step::Images& images = step_.images[change.list_epoch];
      return {backward_ ? images.before_size : images.after_size,
              step_.bytes.data() + (backward_ ? images.before : images.after), nullptr};
    }
    // Of the others the record is there when the step is applied, or has to come with it.
    if ((change.operation == tagTRNotify::kRemoved) != backward_) return {};
    const TStructBase& record = *KeyedSetBase::RecordAt(change.item);
    return {ImageSize(pool.GetSchema(), record), nullptr, &record};
  }

  /// In one piece, so that a step of many small changes asks for room once for each.
  void PutChange(const DPoolBase& pool, const Change& change, const StepNumbers& numbers,
                 FrameSink& out) const {
    const Image image = ImageOf(pool, change);
    const bool names_place = NamesPlace(change);
    char* to = out.Room(sizeof(ChangeHead) + (names_place ? sizeof(Place) : 0) +
                        sizeof(std::uint32_t) + image.size);
    const auto put = [&to](const auto& value) {
      StoreAt(to, value);
      to += sizeof(value);
    };
    put(ChangeHead{change.type, change.operation, numbers.Of(pool, change.item),
                   image.bytes ? LoadAt<Key>(image.bytes) : KeyOf(change.item)});
    if (names_place) {
      const auto number_of = [&](ITR item) {
        return item ? numbers.Of(pool, item) : StepNumbers::kNone;
      };
      put(Place{number_of(pool.Set().PreviousOf(change.item)),
                number_of(pool.Set().NextOf(change.item))});
    }
    put(static_cast<std::uint32_t>(image.size));
    if (image.size == 0) return;
    if (image.bytes) {
      std::memcpy(to, image.bytes, image.size);
    } else {
      WriteImage(pool.GetSchema(), *image.record, to);
    }
    if (!pool.GetSchema().References().empty()) NumberReferences(pool.GetSchema(), numbers, to);
  }

  void NumberReferences(const Schema& schema, const StepNumbers& numbers, char* image) const {
    ForEachReferenceInImage(schema, image, [&](const Row& row, char* slot) {
      const auto item = LoadAt<ITR>(slot);
      if (item == 0) return;
      if (row.reference_rule == ReferenceRule::kNotSaved) return StoreAt(slot, ITR{0});
      const DPoolBase* target = session_.GetDataPool(row.target);
      const std::uint32_t number = target ? numbers.Of(*target, item) : StepNumbers::kNone;
      const auto key = static_cast<std::uint32_t>(KeyOf(item));
      StoreAt(slot, number != StepNumbers::kNone ? StoredReference::kNumber | number
                                                 : StoredReference::kKey | key);
    });
  }

  const CQXDBSession& session_;
  const Step& step_;
  bool backward_;
};

}  // namespace

void NumberRecords(const CQXDBSession& session, const Step& step, std::uint16_t operation,
                   StepNumbers& numbers) {
  for (const Change& change : step.changes) {
    const DPoolBase& pool = *session.GetDataPool(change.type);
    if (change.operation == operation && pool.NeedSaveNLoad()) numbers.Give(pool, change.item);
  }
}

StepSize SizeOfStep(const CQXDBSession& session, const Step& step, StepForm form) {
  return StepEncoder(session, step, form).Size();
}

void EncodeStep(const CQXDBSession& session, const Step& step, StepForm form,
                const StepNumbers& numbers, const StepSize& size, FrameSink& out) {
  StepEncoder(session, step, form).Encode(numbers, size, out);
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
  if (change.operation < tagTRNotify::kInserted || change.operation > StoredChange::kState) {
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
