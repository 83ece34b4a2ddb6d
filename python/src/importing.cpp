// Records of another model file.

#include <pybind11/numpy.h>
#include <pybind11/stl.h>

#include "qx_db/bulk/model_import.h"
#include "qx_db/model/set_rules.h"

#include "handle.h"
#include "host/session.h"

namespace qx::python {
namespace {

/// (pool code, keys); all of the pool where there are no keys
using Choice = std::pair<int, std::vector<Key>>;

std::vector<std::string> Notes(const CQXDBSession& session, const ImportReport& report) {
  std::vector<std::string> lines;
  const auto tell = [&](const auto& entries) {
    for (const auto& entry : entries) lines.push_back(entry.Line(session));
  };
  tell(report.clashes);
  tell(report.loose);
  tell(report.renamed);
  const auto name = [&](const std::pair<std::uint16_t, Key>& record, const char* what) {
    lines.push_back(Place(PoolOfCode(session, record.first), record.second) + ": " + what);
  };
  for (const auto& record : report.left) {
    name(record, "stayed behind: it is nothing without what does not come");
  }
  for (const auto& record : report.unconverted) {
    name(record, "has numbers of a kind that is not known, which kept their units");
  }
  return lines;
}

/// ((pool code, keys in the file, keys in the model) of each pool that anything came into, what is
/// worth knowing, a line each)
py::tuple ImportModel(Handle& handle, const std::string& path, const std::vector<Choice>& choices,
                      bool keep_keys, bool with_references, bool link_existing, bool as_part,
                      bool dry_run) {
  ImportReport report;
  std::vector<std::string> notes;
  Edit(handle, "Import " + path, [&](CQXDBSession& session) {
    const py::gil_scoped_release others_may_run;
    ImportOptions options{{}, keep_keys, with_references, link_existing, as_part, dry_run};
    for (const auto& [code, keys] : choices) {
      options.choices.push_back({PoolOfCode(session, code).GetTypeCode(), keys});
    }
    LongWork work(2);
    const auto from = ExternalModel::Open(path, host::SetUpModel, MakeAllPlain);
    Require(from.AsOutcome());
    work.Step();
    auto imported = ImportRecords(session, **from, options);
    Require(imported.AsOutcome(), FaultKind::kRefused);
    report = std::move(*imported);
    notes = Notes(session, report);
  });
  py::list pools;
  for (const ImportReport::Pool& pool : report.pools) {
    const auto count = static_cast<py::ssize_t>(pool.keys.size());
    py::array_t<Key> there(count), here(count);
    for (py::ssize_t i = 0; i < count; ++i) {
      const auto& [outside, inside] = pool.keys[static_cast<std::size_t>(i)];
      there.mutable_data()[i] = outside;
      here.mutable_data()[i] = inside;
    }
    pools.append(py::make_tuple(pool.type, there, here));
  }
  return py::make_tuple(pools, notes);
}

}  // namespace

void BindImporting(py::class_<Handle, std::shared_ptr<Handle>>& model) {
  model.def("import_model", ImportModel, py::arg("path"), py::arg("choices"), py::arg("keep_keys"),
            py::arg("with_references"), py::arg("link_existing"), py::arg("as_part"),
            py::arg("dry_run"));
}

}  // namespace qx::python
