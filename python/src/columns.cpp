// Pools as tables: members as numpy arrays, out and in.
//
// A column is a stored member, or a run of members of one kind that stand beside each other in the
// record (the three coordinates of an origin). Reading copies: a view of the records would be
// unaligned, writable past the journal, and name nothing any more after a removal.

#include <cmath>
#include <cstring>
#include <pybind11/numpy.h>
#include <pybind11/stl.h>
#include <span>

#include "qx_db/app/record_numbers.h"
#include "qx_db/model/standard_pools.h"
#include "qx_db/platform/parallel.h"
#include "qx_db/platform/text.h"
#include "qx_db/record/element_types.h"
#include "qx_db/record/verbs.h"

#include "handle.h"

namespace qx::python {
namespace {

using Keys = py::array_t<Key, py::array::c_style>;

// ---- which records ------------------------------------------------------------------------------

/// All records of a pool (none), the elements of a type (int), or those of keys (array), in the
/// order of the pool or of the keys.
using Selection = std::variant<std::monostate, int, Keys>;

std::vector<ITR> Find(const DPoolBase& pool, std::span<const Key> keys) {
  std::vector<ITR> found(keys.size());
  pool.Set().FindMany(keys, found);
  for (std::size_t i = 0; i < keys.size(); ++i) {
    if (found[i]) continue;
    Refuse(FaultKind::kMissing, Place(pool, keys[i]), "is not in the model", "see the pool's keys");
  }
  return found;
}

std::span<const Key> SpanOf(const Keys& keys) {
  if (keys.ndim() != 1) {
    Refuse(FaultKind::kValue, "keys", "are not in one row", "give an array of one dimension");
  }
  return {keys.data(), static_cast<std::size_t>(keys.size())};
}

/// Calls visit(position) for each record of the pool, of a type of elements where `type` is not 0.
template <class Visit>
void Walk(const DPoolBase& pool, int type, Visit&& visit) {
  const KeyedSetBase& set = pool.Set();
  for (ITR at = set.GetHeadPosition(); at; set.Next(at)) {
    if (type && static_cast<const tagTElem*>(KeyedSetBase::RecordAt(at))->type != type) continue;
    visit(at);
  }
}

int TypeOf(const DPoolBase& pool, const Selection& selection) {
  const int* type = std::get_if<int>(&selection);
  if (type && pool.GetTypeCode() != code::kElem) {
    Refuse(FaultKind::kType, PoolLabel(pool), "is selected by element type",
           "only elements have types");
  }
  return type ? *type : 0;
}

std::vector<ITR> Positions(const DPoolBase& pool, const Selection& selection) {
  if (const Keys* keys = std::get_if<Keys>(&selection)) return Find(pool, SpanOf(*keys));
  std::vector<ITR> positions;
  const int type = TypeOf(pool, selection);
  positions.reserve(static_cast<std::size_t>(type ? 0 : pool.GetSize()));
  Walk(pool, type, [&](ITR at) { positions.push_back(at); });
  return positions;
}

// ---- what a column is ---------------------------------------------------------------------------

struct Column {
  const Row* row;
  int run;              ///< members beside each other
  std::int32_t number;  ///< bytes of one number
  py::ssize_t width;    ///< numbers a record, or an element of an array member
  bool is_reference;

  /// Bytes a record, or an element of an array member.
  std::size_t Bytes() const {
    return static_cast<std::size_t>(row->IsArray() ? row->element_size : row->size * run);
  }
};

Column ColumnOf(const DPoolBase& pool, int row, int run) {
  const auto rows = pool.GetSchema().Rows();
  if (row < 0 || run < 1 ||
      static_cast<std::size_t>(row) + static_cast<std::size_t>(run) > rows.size()) {
    Refuse(FaultKind::kMissing, PoolLabel(pool), "has no such member", "see its columns");
  }
  const Row& first = rows[static_cast<std::size_t>(row)];
  Column column{&first, run, 1, 1, false};
  switch (first.number) {
    case Row::Number::kInt32:
      column.number = 4;
      break;
    case Row::Number::kInt64:
    case Row::Number::kDouble:
      column.number = 8;
      break;
    case Row::Number::kText:
      column.number = 2;
      break;
    case Row::Number::kBytes:
      break;
  }
  column.is_reference =
      first.kind == MemberKind::kReference || first.kind == MemberKind::kReferenceArray;
  column.width = static_cast<py::ssize_t>(column.Bytes()) / column.number;
  return column;
}

py::dtype DtypeOf(const Column& column) {
  switch (column.row->number) {
    case Row::Number::kInt32:
      return py::dtype::of<std::int32_t>();
    case Row::Number::kInt64:
      return py::dtype::of<std::int64_t>();
    case Row::Number::kDouble:
      return py::dtype::of<double>();
    default:
      return py::dtype::of<std::uint8_t>();
  }
}

std::vector<py::ssize_t> ShapeOf(std::size_t records, py::ssize_t width) {
  std::vector<py::ssize_t> shape{static_cast<py::ssize_t>(records)};
  if (width != 1) shape.push_back(width);
  return shape;
}

const char* RecordBytes(ITR at) {
  return reinterpret_cast<const char*>(KeyedSetBase::RecordAt(at));
}

// ---- reading ------------------------------------------------------------------------------------

/// Texts as fixed-width unicode, one code point for each, in native order.
py::array ReadTexts(const Column& column, const std::vector<ITR>& positions) {
  const auto units = static_cast<std::size_t>(column.row->size) / 2;
  py::array out(py::dtype("U" + std::to_string(units - 1)), ShapeOf(positions.size(), 1));
  auto* to = static_cast<char32_t*>(out.mutable_data());
  std::fill_n(to, positions.size() * (units - 1), U'\0');
  for (const ITR at : positions) {
    const auto* from = reinterpret_cast<const char16_t*>(RecordBytes(at) + column.row->offset);
    char32_t* put = to;
    for (std::size_t i = 0; i < units && from[i]; ++i) {
      const char32_t unit = from[i];
      const bool pair = unit >= 0xD800 && unit < 0xDC00 && i + 1 < units && from[i + 1] >= 0xDC00 &&
                        from[i + 1] < 0xE000;
      // An unpaired surrogate is no character.
      *put++ = pair ? 0x10000 + ((unit - 0xD800) << 10) + (from[i + 1] - 0xDC00U)
               : unit >= 0xD800 && unit < 0xE000 ? 0xFFFD
                                                 : unit;
      i += pair;
    }
    to += units - 1;
  }
  return out;
}

/// Plain bytes of each record, copied with a width that the compiler knows where it is usual.
template <std::size_t Bytes>
void CopyFixed(const DPoolBase& pool, int type, std::int32_t offset, char* to) {
  Walk(pool, type, [&](ITR at) {
    std::memcpy(to, RecordBytes(at) + offset, Bytes);
    to += Bytes;
  });
}

void CopyMembers(const DPoolBase& pool, const Selection& selection, const Column& column,
                 const std::vector<ITR>* positions, char* to) {
  const std::size_t bytes = column.Bytes();
  const std::int32_t offset = column.row->offset;
  if (positions) {
    for (const ITR at : *positions) {
      std::memcpy(to, RecordBytes(at) + offset, bytes);
      to += bytes;
    }
    return;
  }
  const int type = TypeOf(pool, selection);
  switch (bytes) {
    case 4:
      return CopyFixed<4>(pool, type, offset, to);
    case 8:
      return CopyFixed<8>(pool, type, offset, to);
    case 24:
      return CopyFixed<24>(pool, type, offset, to);
    default:
      Walk(pool, type, [&](ITR at) {
        std::memcpy(to, RecordBytes(at) + offset, bytes);
        to += bytes;
      });
  }
}

/// The row numbers of the records of a pool by their slots. Lighter than PoolNumbers, which asks
/// the record back: references of records name items of the pool, or nothing.
class SlotRows {
 public:
  explicit SlotRows(const KeyedSetBase& set) : set_(set), rows_(set.SlotLimit(), -1) {
    std::int32_t row = 0;
    for (ITR at = set.GetHeadPosition(); at; set.Next(at), ++row) {
      const std::uint32_t slot = set.SlotOf(at);
      rows_[slot] = row;
      in_slot_order_ &= slot == static_cast<std::uint32_t>(row);
    }
    in_slot_order_ &= static_cast<std::size_t>(row) == rows_.size();
  }
  std::int64_t Find(ITR at) const {
    const std::uint32_t slot = set_.SlotOf(at);
    if (at == 0 || slot >= rows_.size()) return -1;
    return in_slot_order_ ? std::int64_t{slot} : rows_[slot];
  }

 private:
  const KeyedSetBase& set_;
  std::vector<std::int32_t> rows_;
  bool in_slot_order_ = true;  // as plain inserts leave it: the slot is the row
};

/// Turns references into keys (0 for none) or into row numbers of their pool (-1 for none).
class ReferenceReader {
 public:
  ReferenceReader(const CQXDBSession& session, std::uint16_t target, bool as_rows)
      : as_rows_(as_rows) {
    const DPoolBase* pool = session.GetDataPool(target);
    if (as_rows && pool) numbers_.emplace(pool->Set());
  }
  void Read(const char* from, std::size_t count, std::size_t stride, char* to) const {
    for (std::size_t i = 0; i < count; ++i, from += stride) {
      const ITR target = LoadAt<ITR>(from);
      if (as_rows_) {
        StoreAt(to + 8 * i, numbers_ ? numbers_->Find(target) : std::int64_t{-1});
      } else {
        StoreAt(to + 4 * i, KeyOf(target));
      }
    }
  }
  std::size_t Bytes() const { return as_rows_ ? 8 : 4; }
  py::dtype Dtype() const {
    return as_rows_ ? py::dtype::of<std::int64_t>() : py::dtype::of<std::int32_t>();
  }

 private:
  bool as_rows_;
  std::optional<SlotRows> numbers_;
};

constexpr std::size_t kWorthACore = 1 << 14;

py::array ReadColumn(Handle& handle, int code, int row, int run, const Selection& selection,
                     bool as_rows) {
  const Guard guard(handle);
  const DPoolBase& pool = PoolOfCode(handle.Session(), code);
  const Column column = ColumnOf(pool, row, run);
  if (column.row->IsArray()) {
    Refuse(FaultKind::kType, PoolLabel(pool), "has an array there", "read it as a ragged column");
  }
  const bool whole = std::holds_alternative<std::monostate>(selection);
  const bool direct = whole && !column.is_reference && column.row->number != Row::Number::kText;
  std::vector<ITR> positions;
  if (!direct) positions = Positions(pool, selection);
  if (column.row->number == Row::Number::kText) return ReadTexts(column, positions);
  const std::size_t count = direct ? static_cast<std::size_t>(pool.GetSize()) : positions.size();
  if (column.is_reference) {
    const ReferenceReader reader(handle.Session(), column.row->target, as_rows);
    py::array out(reader.Dtype(), ShapeOf(count, column.width));
    auto* to = static_cast<char*>(out.mutable_data());
    const auto width = static_cast<std::size_t>(column.width);
    const py::gil_scoped_release others_may_run;
    ParallelFor(count, kWorthACore, [&](std::size_t begin, std::size_t end) {
      for (std::size_t i = begin; i < end; ++i) {
        reader.Read(RecordBytes(positions[i]) + column.row->offset, width, 8,
                    to + i * width * reader.Bytes());
      }
    });
    return out;
  }
  py::array out(DtypeOf(column), ShapeOf(count, column.width));
  auto* to = static_cast<char*>(out.mutable_data());
  const py::gil_scoped_release others_may_run;
  CopyMembers(pool, selection, column, direct ? nullptr : &positions, to);
  return out;
}

const ArrayStorage& ArrayOf(ITR at, const Row& row) {
  return detail::ArrayAt(RecordBytes(at), row);
}

/// The elements of one array member, as they stand in a numpy array.
class ElementReader {
 public:
  ElementReader(const CQXDBSession& session, const Column& column, bool as_rows)
      : column_(column), references_(session, column.row->target, as_rows) {}

  std::size_t Bytes() const { return column_.is_reference ? references_.Bytes() : column_.Bytes(); }
  py::dtype Dtype() const { return column_.is_reference ? references_.Dtype() : DtypeOf(column_); }
  py::ssize_t Width() const { return column_.is_reference ? 1 : column_.width; }
  void Read(const ArrayStorage& array, char* to) const {
    const auto count = static_cast<std::size_t>(array.count);
    const char* from = static_cast<const char*>(array.data);
    if (count == 0) return;
    if (column_.is_reference) return references_.Read(from, count, 8, to);
    std::memcpy(to, from, count * column_.Bytes());
    if (column_.row->inner_reference < 0) return;
    for (std::size_t i = 0; i < count; ++i) {  // keys of 64 bits take the place of references
      char* inner = to + i * column_.Bytes() + column_.row->inner_reference;
      StoreAt(inner, std::int64_t{KeyOf(LoadAt<ITR>(inner))});
    }
  }

 private:
  Column column_;
  ReferenceReader references_;
};

/// (offsets, values) of an array member: record i has values[offsets[i]:offsets[i + 1]].
py::tuple ReadRagged(Handle& handle, int code, int row, const Selection& selection, bool as_rows) {
  const Guard guard(handle);
  const DPoolBase& pool = PoolOfCode(handle.Session(), code);
  const Column column = ColumnOf(pool, row, 1);
  if (!column.row->IsArray()) {
    Refuse(FaultKind::kType, PoolLabel(pool), "has no array there", "read it as a plain column");
  }
  const std::vector<ITR> positions = Positions(pool, selection);
  const ElementReader reader(handle.Session(), column, as_rows);
  py::array_t<std::int64_t> offsets(static_cast<py::ssize_t>(positions.size()) + 1);
  std::int64_t* ends = offsets.mutable_data();
  ends[0] = 0;
  for (std::size_t i = 0; i < positions.size(); ++i) {
    ends[i + 1] = ends[i] + ArrayOf(positions[i], *column.row).count;
  }
  py::array values(reader.Dtype(),
                   ShapeOf(static_cast<std::size_t>(ends[positions.size()]), reader.Width()));
  auto* to = static_cast<char*>(values.mutable_data());
  {
    const py::gil_scoped_release others_may_run;
    ParallelFor(positions.size(), kWorthACore, [&](std::size_t begin, std::size_t end) {
      for (std::size_t i = begin; i < end; ++i) {
        reader.Read(ArrayOf(positions[i], *column.row),
                    to + static_cast<std::size_t>(ends[i]) * reader.Bytes());
      }
    });
  }
  return py::make_tuple(offsets, values);
}

/// The same where every record has `width` elements, as an array of two dimensions.
py::array ReadUniform(Handle& handle, int code, int row, const Selection& selection, int width,
                      bool as_rows) {
  const Guard guard(handle);
  const DPoolBase& pool = PoolOfCode(handle.Session(), code);
  const Column column = ColumnOf(pool, row, 1);
  if (!column.row->IsArray() || width < 0) {
    Refuse(FaultKind::kType, PoolLabel(pool), "has no array there", "read it as a plain column");
  }
  const std::vector<ITR> positions = Positions(pool, selection);
  const ElementReader reader(handle.Session(), column, as_rows);
  for (const ITR at : positions) {
    if (ArrayOf(at, *column.row).count == width) continue;
    Refuse(FaultKind::kValue, Place(pool, KeyOf(at)),
           "has " + std::to_string(ArrayOf(at, *column.row).count) + " entries, not " +
               std::to_string(width),
           "read the column as (offsets, values)");
  }
  py::array out(reader.Dtype(),
                {static_cast<py::ssize_t>(positions.size()), static_cast<py::ssize_t>(width)});
  auto* to = static_cast<char*>(out.mutable_data());
  const std::size_t bytes = reader.Bytes() * static_cast<std::size_t>(width);
  const py::gil_scoped_release others_may_run;
  ParallelFor(positions.size(), kWorthACore, [&](std::size_t begin, std::size_t end) {
    for (std::size_t i = begin; i < end; ++i) {
      reader.Read(ArrayOf(positions[i], *column.row), to + i * bytes);
    }
  });
  return out;
}

Keys ReadKeys(Handle& handle, int code, const Selection& selection) {
  const Guard guard(handle);
  const DPoolBase& pool = PoolOfCode(handle.Session(), code);
  if (const Keys* keys = std::get_if<Keys>(&selection)) {
    Find(pool, SpanOf(*keys));
    return *keys;
  }
  const int type = TypeOf(pool, selection);
  if (type == 0) {
    Keys keys(pool.GetSize());
    CopyFixed<4>(pool, 0, 8, reinterpret_cast<char*>(keys.mutable_data()));
    return keys;
  }
  std::vector<Key> keys;
  Walk(pool, type, [&](ITR at) { keys.push_back(KeyOf(at)); });
  return Keys(static_cast<py::ssize_t>(keys.size()), keys.data());
}

/// Row numbers of keys, -1 for one that is not there.
py::array_t<std::int64_t> RowsOfKeys(Handle& handle, int code, const Keys& keys) {
  const Guard guard(handle);
  const DPoolBase& pool = PoolOfCode(handle.Session(), code);
  const PoolNumbers numbers(pool.Set());
  const auto wanted = SpanOf(keys);
  py::array_t<std::int64_t> rows(keys.size());
  for (std::size_t i = 0; i < wanted.size(); ++i) {
    const std::uint32_t number = numbers.Find(pool.Find(wanted[i]));
    rows.mutable_data()[i] = number == PoolNumbers::kNone ? -1 : std::int64_t{number};
  }
  return rows;
}

// ---- writing ------------------------------------------------------------------------------------

/// The values of a column for a number of records, checked as a whole before the first change.
class ColumnWriter {
 public:
  /// `values`: numbers of the column's kind a record; list of str for texts; keys for references;
  /// for an array member its elements, with `offsets` of one more entry than there are records.
  ColumnWriter(const CQXDBSession& session, const DPoolBase& pool, int row, int run,
               const py::object& values, const py::object& offsets, std::size_t records)
      : column_(ColumnOf(pool, row, run)), place_(PoolLabel(pool) + "." + Utf8(column_.row->name)) {
    std::size_t elements = records;
    if (column_.row->IsArray()) elements = TakeOffsets(offsets, records);
    if (column_.row->number == Row::Number::kText && !column_.row->IsArray()) {
      TakeTexts(values, records);
    } else if (column_.is_reference) {
      TakeReferences(session, values, elements * static_cast<std::size_t>(run));
    } else {
      TakeNumbers(session, values, elements);
    }
  }

  /// Puts the values of record i into a record of the pool.
  void Apply(TStructBase& record, std::size_t i) const {
    char* at = reinterpret_cast<char*>(&record) + column_.row->offset;
    const std::size_t bytes = column_.Bytes();
    if (!column_.row->IsArray()) {
      std::memcpy(at, data_ + i * bytes, bytes);
      return;
    }
    auto& array = *reinterpret_cast<ArrayStorage*>(at);
    const auto begin = static_cast<std::size_t>(offsets_[i]);
    const auto count = static_cast<std::size_t>(offsets_[i + 1]) - begin;
    array.Resize(static_cast<std::int64_t>(count), bytes);
    if (count) std::memcpy(array.data, data_ + begin * bytes, count * bytes);
  }

 private:
  [[noreturn]] void RefuseShape(std::size_t wanted) const {
    std::string shape = std::to_string(wanted);
    if (!column_.is_reference && column_.width != 1) shape += " x " + std::to_string(column_.width);
    Refuse(FaultKind::kValue, place_, "was given values of another shape",
           "give " + shape + " values");
  }

  std::size_t TakeOffsets(const py::object& offsets, std::size_t records) {
    const auto array = py::array_t<std::int64_t, py::array::c_style>::ensure(offsets);
    if (!array || array.ndim() != 1 || static_cast<std::size_t>(array.size()) != records + 1) {
      PyErr_Clear();
      Refuse(FaultKind::kValue, place_, "was given other offsets than one more than records",
             "give " + std::to_string(records + 1) + " offsets");
    }
    offsets_.assign(array.data(), array.data() + array.size());
    for (std::size_t i = 0; i < records; ++i) {
      if (offsets_[0] == 0 && offsets_[i + 1] >= offsets_[i]) continue;
      Refuse(FaultKind::kValue, place_, "was given offsets that do not grow from 0",
             "give the running sum of the counts");
    }
    return static_cast<std::size_t>(offsets_.back());
  }

  void TakeTexts(const py::object& values, std::size_t records) {
    const auto units = static_cast<std::size_t>(column_.row->size) / 2;
    own_.assign(records * units * 2, 0);
    const auto texts = py::reinterpret_borrow<py::sequence>(values);
    if (static_cast<std::size_t>(py::len(texts)) != records) RefuseShape(records);
    for (std::size_t i = 0; i < records; ++i) {
      const auto text = Utf16(py::cast<std::string>(texts[i]));
      if (text.size() >= units || text.find(u'\0') != std::u16string::npos) {
        Refuse(FaultKind::kValue, place_,
               text.size() >= units ? "has room for " + std::to_string(units - 1) +
                                          " characters, not " + std::to_string(text.size())
                                    : "was given a text with a zero in it",
               "give a shorter text");
      }
      std::memcpy(own_.data() + i * units * 2, text.data(), text.size() * 2);
    }
    data_ = own_.data();
  }

  std::vector<ITR> Resolve(const CQXDBSession& session, std::span<const Key> keys) const {
    std::vector<ITR> found(keys.size());
    // A host need not have every pool that a member can refer to.
    const bool all_none = std::all_of(keys.begin(), keys.end(), [](Key key) { return key == 0; });
    if (all_none) return found;
    const DPoolBase& target = PoolOfCode(session, column_.row->target);
    target.Set().FindMany(keys, found);
    for (std::size_t i = 0; i < keys.size(); ++i) {
      if (found[i] || keys[i] == 0) continue;
      Refuse(FaultKind::kMissing, place_,
             "was given " + Place(target, keys[i]) + ", which is not in the model",
             "insert it first, or give 0 for none");
    }
    return found;
  }

  void TakeReferences(const CQXDBSession& session, const py::object& values, std::size_t count) {
    const auto keys = Keys::ensure(values);
    if (!keys || static_cast<std::size_t>(keys.size()) != count) {
      PyErr_Clear();
      RefuseShape(count);
    }
    references_ = Resolve(session, {keys.data(), count});
    data_ = reinterpret_cast<const char*>(references_.data());
  }

  void TakeNumbers(const CQXDBSession& session, const py::object& values, std::size_t elements) {
    keep_ = py::array::ensure(values, py::array::c_style);
    if (!keep_ || static_cast<std::size_t>(keep_.nbytes()) != elements * column_.Bytes()) {
      PyErr_Clear();
      RefuseShape(elements);
    }
    data_ = static_cast<const char*>(keep_.data());
    if (column_.row->inner_reference < 0) return;
    own_.assign(data_, data_ + elements * column_.Bytes());
    data_ = own_.data();
    std::vector<Key> keys(elements);
    const auto inner = [&](std::size_t i) {
      return own_.data() + i * column_.Bytes() + column_.row->inner_reference;
    };
    for (std::size_t i = 0; i < elements; ++i) {
      const auto key = LoadAt<std::int64_t>(inner(i));
      keys[i] = key >= 0 && key <= kMaxKey ? static_cast<Key>(key) : -1;
    }
    const std::vector<ITR> found = Resolve(session, keys);
    for (std::size_t i = 0; i < elements; ++i) StoreAt(inner(i), found[i]);
  }

  Column column_;
  std::string place_;
  const char* data_ = nullptr;
  py::array keep_;
  std::vector<char> own_;
  std::vector<ITR> references_;
  std::vector<std::int64_t> offsets_;
};

/// Gives one record after another of a pool to work on: defaults, or copies of stored ones.
class Working {
 public:
  explicit Working(const DPoolBase& pool)
      : pool_(pool),
        bytes_(static_cast<std::size_t>(pool.GetSchema().RecordSize()) - kVptr),
        is_plain_(!pool.GetSchema().HasArrays()),
        fresh_(pool.NewRecord()),
        record_(pool.NewRecord()) {}
  TStructBase& Fresh() {
    if (is_plain_) return TakeBytes(*fresh_);
    record_ = pool_.NewRecord();
    return *record_;
  }
  TStructBase& CopyOf(ITR at) {
    if (is_plain_) return TakeBytes(*KeyedSetBase::RecordAt(at));
    record_ = pool_.CopyRecord(at);
    return *record_;
  }

 private:
  static constexpr std::size_t kVptr = 8;
  /// A record without arrays is its bytes, and cheaper to copy than to make.
  TStructBase& TakeBytes(const TStructBase& from) {
    std::memcpy(reinterpret_cast<char*>(record_.get()) + kVptr,
                reinterpret_cast<const char*>(&from) + kVptr, bytes_);
    return *record_;
  }
  const DPoolBase& pool_;
  std::size_t bytes_;
  bool is_plain_;
  std::unique_ptr<TStructBase> fresh_;
  std::unique_ptr<TStructBase> record_;
};

/// One column of many: (row, run, values, offsets or None).
using ColumnValues = std::vector<std::tuple<int, int, py::object, py::object>>;

void WriteColumns(Handle& handle, int code, const Selection& selection, const ColumnValues& columns,
                  const std::string& step) {
  Edit(handle, step, [&](CQXDBSession& session) {
    DPoolBase& pool = PoolOfCode(session, code);
    const std::vector<ITR> positions = Positions(pool, selection);
    std::vector<ColumnWriter> writers;
    for (const auto& [row, run, values, offsets] : columns) {
      if (row == 0) {
        Refuse(FaultKind::kRefused, PoolLabel(pool), "keeps its keys in an assignment",
               "give records new keys with renumber");
      }
      writers.emplace_back(session, pool, row, run, values, offsets, positions.size());
    }
    const py::gil_scoped_release others_may_run;
    Working working(pool);
    for (std::size_t i = 0; i < positions.size(); ++i) {
      const ITR at = positions[i];
      TStructBase& record = working.CopyOf(at);
      for (const ColumnWriter& writer : writers) writer.Apply(record, i);
      if (pool.SetAtNU(at, &record)) continue;
      Failure refusal = LastRefusal(handle.Path());
      refusal.place = Place(pool, KeyOf(at));
      throw Fault(FaultKind::kRefused, refusal);
    }
  });
}

/// The keys of new records: those given, or the next ones.
std::vector<Key> NewKeys(const DPoolBase& pool, const std::optional<Keys>& keys,
                         std::size_t count) {
  std::vector<Key> out(count);
  if (keys) {
    const auto given = SpanOf(*keys);
    if (given.size() != count) {
      Refuse(FaultKind::kValue, PoolLabel(pool) + " keys",
             "are " + std::to_string(given.size()) + " for " + std::to_string(count) + " records",
             "give one key a record");
    }
    std::copy(given.begin(), given.end(), out.begin());
    for (const Key key : out) {
      if (key >= 1) continue;
      Refuse(FaultKind::kValue, Place(pool, key), "keys lie between 1 and 2147483647",
             "choose another key");
    }
    return out;
  }
  // Past the largest key it is negative.
  const std::int64_t next = pool.Set().GetNewKey();
  const std::int64_t first = next < 0 ? std::int64_t{kMaxKey} + 1 : std::max<std::int64_t>(next, 1);
  if (first + static_cast<std::int64_t>(count) - 1 > kMaxKey) {
    Refuse(FaultKind::kRefused, PoolLabel(pool), "has no more keys", "give keys that are free");
  }
  for (std::size_t i = 0; i < count; ++i)
    out[i] = static_cast<Key>(first + static_cast<std::int64_t>(i));
  return out;
}

void MakeRoom(CQXDBSession& session, DPoolBase& pool, std::size_t more) {
  session.ReserveNotices(more);
  pool.ReserveHash(pool.GetSize() + static_cast<std::int64_t>(more));
}

[[noreturn]] void RefuseInsert(const Handle& handle, const DPoolBase& pool, Key key) {
  if (pool.Find(key)) {
    Refuse(FaultKind::kRefused, Place(pool, key), "the model has one of that key already",
           "choose another key, or leave the keys out");
  }
  Failure refusal = LastRefusal(handle.Path());
  refusal.place = Place(pool, key);
  throw Fault(FaultKind::kRefused, refusal);
}

Keys ToArray(const std::vector<Key>& keys) {
  return Keys(static_cast<py::ssize_t>(keys.size()), keys.data());
}

/// Records of any pool.
Keys Insert(Handle& handle, int code, std::size_t count, const std::optional<Keys>& keys,
            const ColumnValues& columns, const std::string& step) {
  std::vector<Key> taken;
  Edit(handle, step, [&](CQXDBSession& session) {
    DPoolBase& pool = PoolOfCode(session, code);
    taken = NewKeys(pool, keys, count);
    std::vector<ColumnWriter> writers;
    for (const auto& [row, run, values, offsets] : columns) {
      writers.emplace_back(session, pool, row, run, values, offsets, count);
    }
    MakeRoom(session, pool, count);
    const py::gil_scoped_release others_may_run;
    Working working(pool);
    for (std::size_t i = 0; i < count; ++i) {
      TStructBase& record = working.Fresh();
      for (const ColumnWriter& writer : writers) writer.Apply(record, i);
      StoreAt(reinterpret_cast<char*>(&record) + 8, taken[i]);
      if (!pool.InsertNU(&record)) RefuseInsert(handle, pool, taken[i]);
    }
  });
  return ToArray(taken);
}

/// Nodes at positions (n x 3, model units).
Keys InsertNodes(Handle& handle, const py::array_t<double, py::array::c_style>& xyz,
                 const std::optional<Keys>& keys, const std::string& step) {
  if (xyz.ndim() != 2 || xyz.shape(1) != 3) {
    Refuse(FaultKind::kValue, "node positions", "have another shape than n x 3",
           "give three coordinates a node");
  }
  const auto count = static_cast<std::size_t>(xyz.shape(0));
  std::vector<Key> taken;
  Edit(handle, step, [&](CQXDBSession& session) {
    auto& pool = Pool<tagTNode>(session);
    taken = NewKeys(pool, keys, count);
    MakeRoom(session, pool, count);
    const double* at = xyz.data();
    const py::gil_scoped_release others_may_run;
    tagTNode node;
    for (std::size_t i = 0; i < count; ++i, at += 3) {
      node.key = taken[i];
      node.position = {at[0], at[1], at[2]};
      if (!pool.InsertNU(node)) RefuseInsert(handle, pool, node.key);
    }
  });
  return ToArray(taken);
}

/// Elements of one type by the keys, or row numbers, of their nodes (n x nodes).
Keys InsertElements(Handle& handle, int type, const py::array& nodes, bool as_rows,
                    const std::optional<Keys>& keys, Key property, const std::string& step) {
  const ElementType* known = FindElementType(type);
  const bool fits = nodes.ndim() == 2 && (!known || nodes.shape(1) == known->nodes);
  if (!fits) {
    Refuse(FaultKind::kValue, "element nodes",
           "have another shape than n x " + (known ? std::to_string(known->nodes) : "nodes"),
           "give the nodes of an element in one row");
  }
  const auto count = static_cast<std::size_t>(nodes.shape(0));
  const auto width = static_cast<std::size_t>(nodes.shape(1));
  const auto numbers = py::array_t<std::int64_t, py::array::c_style>::ensure(nodes);
  if (!numbers) throw py::error_already_set();
  std::vector<Key> taken;
  Edit(handle, step, [&](CQXDBSession& session) {
    auto& pool = Pool<tagTElem>(session);
    const auto& node_pool = Pool<tagTNode>(session);
    taken = NewKeys(pool, keys, count);
    tagTElem element;
    element.type = type;
    if (property) {
      element.property = Find(PoolOfCode(session, code::kProp), {&property, 1})[0];
    }
    std::vector<ITR> by_row;
    if (as_rows) by_row = Positions(node_pool, {});
    MakeRoom(session, pool, count);
    constexpr std::size_t kBatch = 512;
    std::vector<Key> batch(kBatch * width);
    std::vector<ITR> found(kBatch * width);
    const std::int64_t* from = numbers.data();
    const py::gil_scoped_release others_may_run;
    for (std::size_t begin = 0; begin < count; begin += kBatch) {
      const std::size_t many = std::min(kBatch, count - begin);
      const std::span<const std::int64_t> wanted(from + begin * width, many * width);
      const std::span<ITR> into = std::span(found).first(wanted.size());
      for (std::size_t i = 0; i < wanted.size(); ++i) {
        if (as_rows) {
          const auto at = static_cast<std::uint64_t>(wanted[i]);
          into[i] = at < by_row.size() ? by_row[at] : 0;
        } else {
          batch[i] = wanted[i] >= 0 && wanted[i] <= kMaxKey ? static_cast<Key>(wanted[i]) : -1;
        }
      }
      if (!as_rows) node_pool.Set().FindMany(std::span(batch).first(wanted.size()), into);
      for (std::size_t i = 0; i < many; ++i) {
        const ITR* first = into.data() + i * width;
        if (const ITR* none = std::find(first, first + width, ITR{0}); none != first + width) {
          Refuse(FaultKind::kMissing, Place(pool, taken[begin + i]),
                 std::string("names node ") + (as_rows ? "row " : "") +
                     std::to_string(wanted[static_cast<std::size_t>(none - into.data())]) +
                     ", which is not in the model",
                 "insert the nodes first");
        }
        element.key = taken[begin + i];
        element.nodes.Assign(first, width);
        if (!pool.InsertNU(element)) RefuseInsert(handle, pool, element.key);
      }
    }
  });
  return ToArray(taken);
}

}  // namespace

void BindColumns(py::class_<Handle, std::shared_ptr<Handle>>& model) {
  model
      .def(
          "size",
          [](Handle& handle, int code) {
            const Guard guard(handle);
            return PoolOfCode(handle.Session(), code).GetSize();
          },
          py::arg("pool"))
      .def(
          "has",
          [](Handle& handle, int code, std::int64_t key) {
            const Guard guard(handle);
            const DPoolBase& pool = PoolOfCode(handle.Session(), code);
            return key >= 0 && key <= kMaxKey && pool.Find(static_cast<Key>(key)) != 0;
          },
          py::arg("pool"), py::arg("key"))
      .def(
          "revision",
          [](Handle& handle, int code) {
            const Guard guard(handle);
            return PoolOfCode(handle.Session(), code).Set().Revision();
          },
          py::arg("pool"))
      .def("keys", ReadKeys, py::arg("pool"), py::arg("selection"))
      .def("rows_of_keys", RowsOfKeys, py::arg("pool"), py::arg("keys"))
      .def("column", ReadColumn, py::arg("pool"), py::arg("row"), py::arg("run"),
           py::arg("selection"), py::arg("as_rows"))
      .def("ragged", ReadRagged, py::arg("pool"), py::arg("row"), py::arg("selection"),
           py::arg("as_rows"))
      .def("uniform", ReadUniform, py::arg("pool"), py::arg("row"), py::arg("selection"),
           py::arg("width"), py::arg("as_rows"))
      .def("write", WriteColumns, py::arg("pool"), py::arg("selection"), py::arg("columns"),
           py::arg("step"))
      .def("insert", Insert, py::arg("pool"), py::arg("count"), py::arg("keys"), py::arg("columns"),
           py::arg("step"))
      .def("insert_nodes", InsertNodes, py::arg("xyz"), py::arg("keys"), py::arg("step"))
      .def("insert_elements", InsertElements, py::arg("type"), py::arg("nodes"), py::arg("as_rows"),
           py::arg("keys"), py::arg("property"), py::arg("step"));
}

}  // namespace qx::python
