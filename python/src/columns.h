#pragma once
// Pools as tables: which records are meant, and what a column is. Reading and writing columns, and
// adding records, are built on it.
//
// A column is a stored member, or a run of members of one kind that stand beside each other in the
// record (the three coordinates of an origin). Reading copies: a view of the records would be
// unaligned, writable past the journal, and name nothing any more after a removal.

#include <optional>
#include <pybind11/numpy.h>
#include <pybind11/stl.h>
#include <span>
#include <tuple>
#include <variant>

#include "qx_db/model/standard_pools.h"

#include "handle.h"

namespace qx::python {

using Keys = py::array_t<Key, py::array::c_style>;

// ---- which records ------------------------------------------------------------------------------

/// All records of a pool (none), the elements of a type (int), or those of keys (array), in the
/// order of the pool or of the keys.
using Selection = std::variant<std::monostate, int, Keys>;

/// The positions of records of keys; throws for one that is not there.
std::vector<ITR> FindRecords(const DPoolBase& pool, std::span<const Key> keys);
/// Keys in one row; throws for another shape.
std::span<const Key> SpanOf(const Keys& keys);
/// The type of elements that is selected, 0 for all; throws where only elements have types.
int TypeOf(const DPoolBase& pool, const Selection& selection);
std::vector<ITR> Positions(const DPoolBase& pool, const Selection& selection);

/// Calls visit(position) for each record of the pool, of a type of elements where `type` is not 0.
template <class Visit>
void Walk(const DPoolBase& pool, int type, Visit&& visit) {
  const KeyedSetBase& set = pool.Set();
  for (ITR at = set.GetHeadPosition(); at; set.Next(at)) {
    if (type && static_cast<const tagTElem*>(KeyedSetBase::RecordAt(at))->type != type) continue;
    visit(at);
  }
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

/// The column of `run` members from a row of the schema on; throws where there is none.
Column ColumnOf(const DPoolBase& pool, int row, int run);

/// The row numbers of the records of a pool by their slots. References of records name items of
/// their pool, or nothing; what is removed has no row.
class SlotRows {
 public:
  explicit SlotRows(const KeyedSetBase& set);
  /// Whether the pool is as it was, its order too.
  bool IsCurrent() const { return revision_ == set_.Revision() && epoch_ == set_.ListEpoch(); }
  /// The row of a record, -1 for none.
  std::int64_t Find(ITR at) const {
    const std::uint32_t slot = set_.SlotOf(at);
    if (at == 0 || slot >= count_) return -1;
    return rows_.empty() ? std::int64_t{slot} : rows_[slot];
  }

 private:
  const KeyedSetBase& set_;
  std::uint64_t revision_;
  std::uint32_t epoch_;
  std::size_t count_;               // slots that rows_ would have
  std::vector<std::int32_t> rows_;  // empty where the slot is the row, as plain inserts leave it
};

/// Those of a pool of the model, kept until the pool changes.
std::shared_ptr<const SlotRows> RowsOf(Handle& handle, const DPoolBase& pool);

/// One column of many: (row, run, values, offsets or None).
using ColumnValues = std::vector<std::tuple<int, int, py::object, py::object>>;

/// The values of a column for a number of records, checked as a whole before the first change.
class ColumnWriter {
 public:
  /// `values`: numbers of the column's kind a record; list of str for texts; keys for references;
  /// for an array member its elements, with `offsets` of one more entry than there are records.
  ColumnWriter(const CQXDBSession& session, const DPoolBase& pool, int row, int run,
               const py::object& values, const py::object& offsets, std::size_t records);

  /// Puts the values of record i into a record of the pool.
  void Apply(TStructBase& record, std::size_t i) const;

 private:
  [[noreturn]] void RefuseShape(std::size_t wanted) const;
  std::size_t TakeOffsets(const py::object& offsets, std::size_t records);
  void TakeTexts(const py::object& values, std::size_t records);
  std::vector<ITR> Resolve(const CQXDBSession& session, std::span<const Key> keys) const;
  void TakeReferences(const CQXDBSession& session, const py::object& values, std::size_t count);
  void TakeNumbers(const CQXDBSession& session, const py::object& values, std::size_t elements);

  Column column_;
  std::string place_;
  const char* data_ = nullptr;
  py::array keep_;
  std::vector<char> own_;
  std::vector<ITR> references_;
  std::vector<std::int64_t> offsets_;
};

using ModelClass = py::class_<Handle, std::shared_ptr<Handle>>;
void BindColumnReading(ModelClass& model);
void BindColumnWriting(ModelClass& model);
void BindInserting(ModelClass& model);

}  // namespace qx::python
