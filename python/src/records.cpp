// Deleting with consequences, where-used, renumbering, the gateway document.

#include <pybind11/numpy.h>
#include <pybind11/stl.h>
#include <span>

#include "qx_db/core/renumber.h"
#include "qx_db/gateway/document_exchange.h"
#include "qx_db/lib/message.h"
#include "qx_db/model/deletion.h"

#include "handle.h"

namespace qx::python {
namespace {

std::vector<ITR> Find(const DPoolBase& pool, const std::vector<Key>& keys) {
  std::vector<ITR> items;
  for (const Key key : keys) {
    items.push_back(pool.Find(key));
    if (items.back()) continue;
    Refuse(FaultKind::kMissing, Place(pool, key), "is not in the model", "see the pool's keys");
  }
  return items;
}

py::object NameOf(const Row* row) { return row ? py::cast(Utf8(row->name)) : py::none(); }

/// Axes as three rows; None where there are none.
py::object AxesOf(bool has, const double (&axes)[3][3]) {
  return has ? py::object(py::array_t<double>({3, 3}, &axes[0][0])) : py::none();
}

/// (consequences, reasons of refusal, elements that it turns); a consequence is (pool code, key,
/// effect, member or None), a turn (key, axes before, axes after).
py::tuple PreviewDelete(Handle& handle, int code, const std::vector<Key>& keys) {
  const Guard guard(handle);
  DPoolBase& pool = PoolOfCode(handle.Session(), code);
  const std::vector<ITR> items = Find(pool, keys);
  DeletionPreview preview;
  {
    const py::gil_scoped_release others_may_run;
    preview = PreviewDeletion(handle.Session(), pool.GetTypeCode(), items);
  }
  constexpr const char* kEffects[] = {"removed", "reset", "changed"};
  py::list consequences, blockers, turns;
  for (const Consequence& consequence : preview.consequences) {
    consequences.append(py::make_tuple(consequence.type, KeyOf(consequence.item),
                                       kEffects[static_cast<int>(consequence.effect)],
                                       NameOf(consequence.row)));
  }
  for (const Blocker& blocker : preview.blockers) {
    blockers.append(qxText(blocker.text, blocker.arguments));
  }
  for (const Turn& turn : preview.turns) {
    turns.append(py::make_tuple(KeyOf(turn.element), AxesOf(turn.has_axes, turn.before),
                                AxesOf(turn.will_have_axes, turn.after)));
  }
  return py::make_tuple(consequences, blockers, turns);
}

void Delete(Handle& handle, int code, const std::vector<Key>& keys, const std::string& step) {
  Edit(handle, step, [&](CQXDBSession& session) {
    DPoolBase& pool = PoolOfCode(session, code);
    const std::vector<ITR> items = Find(pool, keys);
    const py::gil_scoped_release others_may_run;
    if (DeleteRecords(session, pool.GetTypeCode(), items)) return;
    throw Fault(FaultKind::kRefused, LastRefusal(handle.Path()));
  });
}

/// (pool code, key, member or None, key of the record used) of each use.
py::list Uses(Handle& handle, int code, const std::vector<Key>& keys) {
  const Guard guard(handle);
  DPoolBase& pool = PoolOfCode(handle.Session(), code);
  std::vector<std::pair<Use, Key>> uses;
  const std::vector<ITR> items = Find(pool, keys);
  {
    const py::gil_scoped_release others_may_run;
    LongWork work(items.size());
    for (const ITR item : items) {
      for (const Use& use : WhereUsed(handle.Session(), pool.GetTypeCode(), item)) {
        uses.emplace_back(use, KeyOf(item));
      }
      work.Step();
    }
  }
  py::list out;
  for (const auto& [use, key] : uses) {
    out.append(py::make_tuple(use.type, KeyOf(use.item), NameOf(use.row), key));
  }
  return out;
}

void RenumberRecords(Handle& handle, int code, const std::vector<std::pair<Key, Key>>& map,
                     const std::string& step) {
  Edit(handle, step, [&](CQXDBSession& session) {
    const py::gil_scoped_release others_may_run;
    Require(Renumber(session, PoolOfCode(session, code), map), FaultKind::kRefused);
  });
}

// ---- gateway ------------------------------------------------------------------------------------

std::vector<DPoolBase*> PoolsOf(CQXDBSession& session, const std::vector<int>& codes) {
  std::vector<DPoolBase*> pools;
  for (const int code : codes) pools.push_back(&PoolOfCode(session, code));
  return pools;
}

std::string GatewayText(Handle& handle, const std::vector<int>& codes) {
  const Guard guard(handle);
  const py::gil_scoped_release others_may_run;
  dbgateway::DataBase document;
  Require(WriteDocument(handle.Session(), document, PoolsOf(handle.Session(), codes)));
  return document.ToText();
}

/// Reads a gateway text, or applies its deletions; what was told, a line each.
std::vector<std::string> ReadGateway(Handle& handle, const std::string& text, bool deletions,
                                     bool strict, const std::string& step) {
  std::vector<std::string> told;
  Edit(handle, step, [&](CQXDBSession& session) {
    const py::gil_scoped_release others_may_run;
    dbgateway::DataBase document;
    document.SetStrict(strict);
    Require(document.Parse(text, "gateway document"), FaultKind::kValue);
    Require(deletions ? ApplyDeletions(session, document) : ReadDocument(session, document),
            FaultKind::kRefused);
    for (const auto& entry : document.Report()) told.push_back(entry.Line());
  });
  return told;
}

}  // namespace

void BindRecords(py::class_<Handle, std::shared_ptr<Handle>>& model) {
  model.def("preview_delete", PreviewDelete, py::arg("pool"), py::arg("keys"))
      .def("delete", Delete, py::arg("pool"), py::arg("keys"), py::arg("step"))
      .def("where_used", Uses, py::arg("pool"), py::arg("keys"))
      .def("renumber", RenumberRecords, py::arg("pool"), py::arg("map"), py::arg("step"));
}

void BindGateway(py::class_<Handle, std::shared_ptr<Handle>>& model) {
  model.def("gateway_text", GatewayText, py::arg("pools"))
      .def("read_gateway", ReadGateway, py::arg("text"), py::arg("deletions"), py::arg("strict"),
           py::arg("step"))
      .def("gateway_schema", [](Handle& handle) {
        const Guard guard(handle);
        return GatewayJsonSchema(handle.Session());
      });
}

}  // namespace qx::python
