// Material files and the connectivity probe.

#include <pybind11/stl.h>

#include "qx_db/material/material_file.h"
#include "qx_db/net/web_util.h"

#include "handle.h"

namespace qx::python {
namespace {

/// (columns, materials): a column is (property, category of unit, unit); a material is (category,
/// name, values).
py::tuple Materials(const std::string& path, const std::optional<std::string>& form,
                    const std::optional<std::string>& encoding,
                    const std::optional<std::vector<std::int32_t>>& units) {
  const LibraryTurn turn;
  const auto read = [&] {
    const py::gil_scoped_release others_may_run;
    const auto of_form = form ? FormNamed(*form) : FormOfFile(path);
    if (!of_form) throw Fault(form ? FaultKind::kValue : FaultKind::kFile, of_form.Error());
    const auto page = encoding ? CodePage::Named(*encoding) : GuessPage(path, *of_form);
    if (!page) throw Fault(encoding ? FaultKind::kValue : FaultKind::kFile, page.Error());
    return ReadMaterials(path, *of_form, *page);
  };
  auto table = read();
  Require(table.AsOutcome());
  if (units) {
    UnitSystem system;
    for (std::size_t i = 0; i < system.index.size() && i < units->size(); ++i) {
      system.index[i] = (*units)[i];
    }
    if (units->size() != system.index.size() || !IsValid(system)) {
      Refuse(FaultKind::kValue, "units", "are no unit system", "see qxdb.unit_names()");
    }
    *table = InUnits(*table, system);
  }
  py::list columns, materials;
  for (const MaterialColumn& column : table->columns) {
    columns.append(
        py::make_tuple(column.property, column.kind, UnitText(column.kind, column.units)));
  }
  for (const Material& material : table->materials) {
    materials.append(
        py::make_tuple(material.category.ToUtf8(), material.name.ToUtf8(), material.values));
  }
  return py::make_tuple(columns, materials);
}

/// The status of the answer of a web address.
int Probe(const std::string& address) {
  Result<int> status = Failure{};
  {
    const py::gil_scoped_release others_may_run;
    status = CQXWebUtil::Probe(CString::FromUtf8(address));
  }
  Require(status.AsOutcome());
  return *status;
}

}  // namespace

void BindOutside(py::module_& module) {
  module.def("materials", Materials, py::arg("path"), py::arg("form"), py::arg("encoding"),
             py::arg("units"));
  module.def("probe", Probe, py::arg("address"));
}

}  // namespace qx::python
