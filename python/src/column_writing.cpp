// Numpy arrays as members of records.

#include <algorithm>
#include <cstring>

#include "qx_db/platform/text.h"
#include "qx_db/pool/bulk_edit.h"
#include "qx_db/record/verbs.h"

#include "columns.h"

namespace qx::python {

ColumnWriter::ColumnWriter(const CQXDBSession& session, const DPoolBase& pool, int row, int run,
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

void ColumnWriter::Apply(TStructBase& record, std::size_t i) const {
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

void ColumnWriter::RefuseShape(std::size_t wanted) const {
  std::string shape = std::to_string(wanted);
  if (!column_.is_reference && column_.width != 1) shape += " x " + std::to_string(column_.width);
  Refuse(FaultKind::kValue, place_, "was given values of another shape",
         "give " + shape + " values");
}

std::size_t ColumnWriter::TakeOffsets(const py::object& offsets, std::size_t records) {
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

void ColumnWriter::TakeTexts(const py::object& values, std::size_t records) {
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

std::vector<ITR> ColumnWriter::Resolve(const CQXDBSession& session,
                                       std::span<const Key> keys) const {
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

void ColumnWriter::TakeReferences(const CQXDBSession& session, const py::object& values,
                                  std::size_t count) {
  const auto keys = Keys::ensure(values);
  if (!keys || static_cast<std::size_t>(keys.size()) != count) {
    PyErr_Clear();
    RefuseShape(count);
  }
  references_ = Resolve(session, {keys.data(), count});
  data_ = reinterpret_cast<const char*>(references_.data());
}

void ColumnWriter::TakeNumbers(const CQXDBSession& session, const py::object& values,
                               std::size_t elements) {
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

namespace {

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
    const std::size_t set = SetMany(pool, positions, [&](TStructBase& record, std::size_t i) {
      for (const ColumnWriter& writer : writers) writer.Apply(record, i);
    });
    if (set == positions.size()) return;
    Failure refusal = LastRefusal(handle.Path());
    refusal.place = Place(pool, KeyOf(positions[set]));
    throw Fault(FaultKind::kRefused, refusal);
  });
}

}  // namespace

void BindColumnWriting(ModelClass& model) {
  model.def("write", WriteColumns, py::arg("pool"), py::arg("selection"), py::arg("columns"),
            py::arg("step"));
}

}  // namespace qx::python
