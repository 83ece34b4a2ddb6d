// Members of records as numpy arrays.

#include <cstring>

#include "qx_db/platform/parallel.h"
#include "qx_db/record/verbs.h"

#include "columns.h"

namespace qx::python {
namespace {

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

/// Turns references into keys (0 for none) or into row numbers of their pool (-1 for none).
class ReferenceReader {
 public:
  ReferenceReader(Handle& handle, std::uint16_t target, bool as_rows) : as_rows_(as_rows) {
    const DPoolBase* pool = handle.Session().GetDataPool(target);
    if (as_rows && pool) rows_ = RowsOf(handle, *pool);
  }
  void Read(const char* from, std::size_t count, char* to) const {
    if (!as_rows_) {
      for (std::size_t i = 0; i < count; ++i) StoreAt(to + 4 * i, KeyOf(LoadAt<ITR>(from + 8 * i)));
    } else if (!rows_) {
      for (std::size_t i = 0; i < count; ++i) StoreAt(to + 8 * i, std::int64_t{-1});
    } else {
      const SlotRows& rows = *rows_;
      for (std::size_t i = 0; i < count; ++i) {
        StoreAt(to + 8 * i, rows.Find(LoadAt<ITR>(from + 8 * i)));
      }
    }
  }
  std::size_t Bytes() const { return as_rows_ ? 8 : 4; }
  py::dtype Dtype() const {
    return as_rows_ ? py::dtype::of<std::int64_t>() : py::dtype::of<std::int32_t>();
  }

 private:
  bool as_rows_;
  std::shared_ptr<const SlotRows> rows_;
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
    const ReferenceReader reader(handle, column.row->target, as_rows);
    py::array out(reader.Dtype(), ShapeOf(count, column.width));
    auto* to = static_cast<char*>(out.mutable_data());
    const auto width = static_cast<std::size_t>(column.width);
    const py::gil_scoped_release others_may_run;
    ParallelFor(count, kWorthACore, [&](std::size_t begin, std::size_t end) {
      for (std::size_t i = begin; i < end; ++i) {
        reader.Read(RecordBytes(positions[i]) + column.row->offset, width,
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
  ElementReader(Handle& handle, const Column& column, bool as_rows)
      : column_(column), references_(handle, column.row->target, as_rows) {}

  std::size_t Bytes() const { return column_.is_reference ? references_.Bytes() : column_.Bytes(); }
  py::dtype Dtype() const { return column_.is_reference ? references_.Dtype() : DtypeOf(column_); }
  py::ssize_t Width() const { return column_.is_reference ? 1 : column_.width; }
  void Read(const ArrayStorage& array, char* to) const {
    const auto count = static_cast<std::size_t>(array.count);
    const char* from = static_cast<const char*>(array.data);
    if (count == 0) return;
    if (column_.is_reference) return references_.Read(from, count, to);
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
  const ElementReader reader(handle, column, as_rows);
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
  const int type = TypeOf(pool, selection);
  const ElementReader reader(handle, column, as_rows);
  const std::size_t bytes = reader.Bytes() * static_cast<std::size_t>(width);
  // How many are of a type a walk tells. It is saved where room for all is no matter: what is not
  // filled takes no memory, and is given back.
  constexpr std::size_t kNoMatter = std::size_t{1} << 30;
  const auto* keys = std::get_if<Keys>(&selection);
  std::vector<ITR> chosen;
  if (keys) chosen = FindRecords(pool, SpanOf(*keys));
  std::size_t most = keys ? chosen.size() : static_cast<std::size_t>(pool.GetSize());
  if (type && most * bytes > kNoMatter) {
    most = 0;
    Walk(pool, type, [&](ITR) { ++most; });
  }
  py::array out(reader.Dtype(), {static_cast<py::ssize_t>(most), static_cast<py::ssize_t>(width)});
  ITR other = 0;  // one of another length
  std::size_t count = 0;
  {
    auto* to = static_cast<char*>(out.mutable_data());
    const auto read = [&](ITR at) {
      const ArrayStorage& array = ArrayOf(at, *column.row);
      if (array.count != width) {
        if (!other) other = at;
        return;
      }
      reader.Read(array, to + count++ * bytes);
    };
    const py::gil_scoped_release others_may_run;
    if (keys) {
      for (const ITR at : chosen) read(at);
    } else {
      Walk(pool, type, read);
    }
  }
  if (other) {
    Refuse(FaultKind::kValue, Place(pool, KeyOf(other)),
           "has " + std::to_string(ArrayOf(other, *column.row).count) + " entries, not " +
               std::to_string(width),
           "read the column as (offsets, values)");
  }
  if (count < most) {
    out.resize({static_cast<py::ssize_t>(count), static_cast<py::ssize_t>(width)}, false);
  }
  return out;
}

}  // namespace

void BindColumnReading(ModelClass& model) {
  model
      .def("column", ReadColumn, py::arg("pool"), py::arg("row"), py::arg("run"),
           py::arg("selection"), py::arg("as_rows"))
      .def("ragged", ReadRagged, py::arg("pool"), py::arg("row"), py::arg("selection"),
           py::arg("as_rows"))
      .def("uniform", ReadUniform, py::arg("pool"), py::arg("row"), py::arg("selection"),
           py::arg("width"), py::arg("as_rows"));
}

}  // namespace qx::python
