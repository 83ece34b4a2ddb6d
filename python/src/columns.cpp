#include "columns.h"

#include "qx_db/record/verbs.h"

namespace qx::python {

// ---- which records ------------------------------------------------------------------------------

std::vector<ITR> FindRecords(const DPoolBase& pool, std::span<const Key> keys) {
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

int TypeOf(const DPoolBase& pool, const Selection& selection) {
  const int* type = std::get_if<int>(&selection);
  if (type && pool.GetTypeCode() != code::kElem) {
    Refuse(FaultKind::kType, PoolLabel(pool), "is selected by element type",
           "only elements have types");
  }
  return type ? *type : 0;
}

std::vector<ITR> Positions(const DPoolBase& pool, const Selection& selection) {
  if (const Keys* keys = std::get_if<Keys>(&selection)) return FindRecords(pool, SpanOf(*keys));
  std::vector<ITR> positions;
  const int type = TypeOf(pool, selection);
  positions.reserve(static_cast<std::size_t>(type ? 0 : pool.GetSize()));
  Walk(pool, type, [&](ITR at) { positions.push_back(at); });
  return positions;
}

// ---- what a column is ---------------------------------------------------------------------------

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

SlotRows::SlotRows(const KeyedSetBase& set)
    : set_(set), revision_(set.Revision()), epoch_(set.ListEpoch()), count_(set.SlotLimit()) {
  std::uint32_t row = 0;
  ITR at = set.GetHeadPosition();
  while (at && set.SlotOf(at) == row) {
    ++row;
    set.Next(at);
  }
  if (!at && row == count_) return;
  rows_.assign(count_, -1);
  row = 0;
  for (at = set.GetHeadPosition(); at; set.Next(at)) {
    rows_[set.SlotOf(at)] = static_cast<std::int32_t>(row++);
  }
}

std::shared_ptr<const SlotRows> RowsOf(Handle& handle, const DPoolBase& pool) {
  auto& kept = handle.rows[pool.GetTypeCode()];
  if (!kept || !kept->IsCurrent()) kept = std::make_shared<SlotRows>(pool.Set());
  return kept;
}

// ---- keys ---------------------------------------------------------------------------------------

namespace {

Keys ReadKeys(Handle& handle, int code, const Selection& selection) {
  const Guard guard(handle);
  const DPoolBase& pool = PoolOfCode(handle.Session(), code);
  if (const Keys* keys = std::get_if<Keys>(&selection)) {
    FindRecords(pool, SpanOf(*keys));
    return *keys;
  }
  const int type = TypeOf(pool, selection);
  if (type == 0) {
    Keys keys(pool.GetSize());
    Key* to = keys.mutable_data();
    Walk(pool, 0, [&](ITR at) { *to++ = KeyOf(at); });
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
  const auto wanted = SpanOf(keys);
  py::array_t<std::int64_t> rows(keys.size());
  std::int64_t* to = rows.mutable_data();
  const py::gil_scoped_release others_may_run;
  const auto numbers = RowsOf(handle, pool);
  std::vector<ITR> found(wanted.size());
  pool.Set().FindMany(wanted, found);
  for (const ITR at : found) *to++ = numbers->Find(at);
  return rows;
}

}  // namespace

void BindColumns(ModelClass& model) {
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
      .def("rows_of_keys", RowsOfKeys, py::arg("pool"), py::arg("keys"));
  BindColumnReading(model);
  BindColumnWriting(model);
  BindInserting(model);
}

}  // namespace qx::python
