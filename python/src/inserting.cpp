// New records from arrays.

#include <algorithm>
#include <cstring>

#include "qx_db/record/element_types.h"
#include "qx_db/record/verbs.h"

#include "columns.h"

namespace qx::python {
namespace {

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

/// Gives new records of a pool to work on, one after another, with their defaults.
class FreshRecords {
 public:
  explicit FreshRecords(const DPoolBase& pool)
      : pool_(pool), fresh_(pool.NewRecord()), record_(pool.NewRecord()) {}
  TStructBase& Next() {
    const Schema& schema = pool_.GetSchema();
    if (schema.HasArrays()) {
      record_ = pool_.NewRecord();
    } else {  // a record without arrays is its bytes, and cheaper to copy than to make
      std::memcpy(reinterpret_cast<char*>(record_.get()) + kVptr,
                  reinterpret_cast<const char*>(fresh_.get()) + kVptr,
                  static_cast<std::size_t>(schema.RecordSize()) - kVptr);
    }
    return *record_;
  }

 private:
  static constexpr std::size_t kVptr = 8;
  const DPoolBase& pool_;
  std::unique_ptr<TStructBase> fresh_;
  std::unique_ptr<TStructBase> record_;
};

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
    FreshRecords fresh(pool);
    LongWork work(count);
    for (std::size_t i = 0; i < count; ++i) {
      work.Step();
      TStructBase& record = fresh.Next();
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
    LongWork work(count);
    for (std::size_t i = 0; i < count; ++i, at += 3) {
      work.Step();
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
      element.property = FindRecords(PoolOfCode(session, code::kProp), {&property, 1})[0];
    }
    std::vector<ITR> by_row;
    if (as_rows) by_row = Positions(node_pool, {});
    MakeRoom(session, pool, count);
    constexpr std::size_t kBatch = 512;
    std::vector<Key> batch(kBatch * width);
    std::vector<ITR> found(kBatch * width);
    const std::int64_t* from = numbers.data();
    const py::gil_scoped_release others_may_run;
    LongWork work(count);
    for (std::size_t begin = 0; begin < count; begin += kBatch) {
      work.Step(begin == 0 ? 0 : kBatch);
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

void BindInserting(ModelClass& model) {
  model
      .def("insert", Insert, py::arg("pool"), py::arg("count"), py::arg("keys"), py::arg("columns"),
           py::arg("step"))
      .def("insert_nodes", InsertNodes, py::arg("xyz"), py::arg("keys"), py::arg("step"))
      .def("insert_elements", InsertElements, py::arg("type"), py::arg("nodes"), py::arg("as_rows"),
           py::arg("keys"), py::arg("property"), py::arg("step"));
}

}  // namespace qx::python
