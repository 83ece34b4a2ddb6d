// Questions about the mesh as a whole, answered in arrays in the order of the element pool. All
// numbers are in model units.

#include <array>
#include <cmath>
#include <limits>
#include <pybind11/numpy.h>
#include <pybind11/stl.h>

#include "qx_db/app/mesh_findings.h"
#include "qx_db/app/mesh_mass.h"
#include "qx_db/app/mesh_repair.h"
#include "qx_db/app/mesh_util.h"
#include "qx_db/mesh/mesh_adjacency.h"
#include "qx_db/mesh/quality_summary.h"
#include "qx_db/model/standard_pools.h"
#include "qx_db/platform/long_work.h"
#include "qx_db/record/element_types.h"
#include "qx_db/select/selection.h"

#include "handle.h"

namespace qx::python {
namespace {

using Reals = py::array_t<double, py::array::c_style | py::array::forcecast>;

constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();

// ---- quality ------------------------------------------------------------------------------------

const MeasureInfo& MeasureOf(const std::string& name) {
  const MeasureInfo* info = FindMeasure(name);
  if (!info) {
    Refuse(FaultKind::kValue, "measure \"" + name + "\"", "is not known", "see qxdb.measures()");
  }
  return *info;
}

/// One value an element; NaN where it has none.
Reals QualityOf(Handle& handle, const std::string& name) {
  const Guard guard(handle);
  const MeasureInfo& info = MeasureOf(name);
  std::vector<double> values;
  {
    const py::gil_scoped_release others_may_run;
    values = ValuesOf(handle.Session(), info, 1);
  }
  return Reals(static_cast<py::ssize_t>(values.size()), values.data());
}

/// (elements, outside, unbounded, best, mean, bars, worst) over all elements, or those at some
/// rows; a bar is (low, high, count, outside), a worst one (value, key).
py::tuple QualitySummaryOf(Handle& handle, const std::string& name,
                           const std::optional<py::array_t<std::int64_t>>& rows, int bins,
                           int worst) {
  const Guard guard(handle);
  const MeasureInfo& info = MeasureOf(name);
  if (bins < 1 || worst < 0) {
    Refuse(FaultKind::kValue, "bins or worst", "is no number to show", "give 1 or more, 0 or more");
  }
  std::vector<std::int64_t> chosen;
  if (rows) chosen.assign(rows->data(), rows->data() + rows->size());
  MeasureSummary summary;
  {
    const py::gil_scoped_release others_may_run;
    const DenseMesh mesh(handle.Session());
    std::vector<double> values = ValuesOf(mesh, info, 1);
    if (rows) {
      std::vector<double> own(values.size(), kNaN);
      for (const std::int64_t row : chosen) {
        if (row >= 0) own.at(static_cast<std::size_t>(row)) = values[static_cast<std::size_t>(row)];
      }
      values.swap(own);
    }
    summary = Summarise(mesh, info, values, bins, static_cast<std::size_t>(worst));
  }
  py::list bars, last;
  for (const HistogramBin& bin : summary.histogram) {
    bars.append(py::make_tuple(bin.low, bin.high, bin.count, bin.outside));
  }
  for (const RatedElement& element : summary.worst) {
    last.append(py::make_tuple(element.value, element.key));
  }
  return py::make_tuple(summary.elements, summary.outside, summary.unbounded, summary.best,
                        summary.mean, bars, last);
}

/// (name, label, unit, whether high is bad, acceptable or None)
py::list MeasureTable() {
  py::list out;
  for (const MeasureInfo& info : Measures()) {
    out.append(py::make_tuple(std::string(info.name), std::string(info.label),
                              std::string(info.unit), info.high_is_bad, info.acceptable));
  }
  return out;
}

// ---- selections ---------------------------------------------------------------------------------

/// What a text selects, its numbers in the model's units as all numbers are here: (kind, keys);
/// keys of faces are those of their elements, and a third array has their numbers.
py::tuple SelectIn(Handle& handle, const std::string& text, const std::optional<int>& kind) {
  const Guard guard(handle);
  std::optional<SelectKind> wanted;
  if (kind) wanted = static_cast<SelectKind>(*kind);
  const auto rule = SelectionRule::Parse(text, wanted);
  if (!rule) throw Fault(FaultKind::kValue, rule.Error());
  Result<qx::Selection> selection = [&] {
    const py::gil_scoped_release others_may_run;
    const UnitsShown model_units(handle.Session(), handle.Session().Units().Model());
    return rule->Evaluate(handle.Session());
  }();
  if (!selection) throw Fault(FaultKind::kMissing, selection.Error());
  const std::vector<Key> keys = selection->Keys();
  py::array_t<Key> of(static_cast<py::ssize_t>(keys.size()), keys.data());
  py::array_t<std::int32_t> faces(selection->faces.GetSize());
  for (std::int32_t i = 0; i < selection->faces.GetSize(); ++i) {
    faces.mutable_data()[i] = selection->faces[i].side;
  }
  return py::make_tuple(std::string(NameOf(selection->kind)), of, faces);
}

// ---- findings and repair ------------------------------------------------------------------------

/// (name, label, remedy, whether a fault, whether of nodes, keys)
py::list FindingsOf(Handle& handle, double tolerance) {
  const Guard guard(handle);
  if (!(tolerance >= 0)) {
    Refuse(FaultKind::kValue, "tolerance", "is no length", "give 0 or more");
  }
  std::vector<Finding> findings;
  {
    const py::gil_scoped_release others_may_run;
    findings = FindFaults(DenseMesh(handle.Session()), tolerance);
  }
  py::list out;
  for (const Finding& finding : findings) {
    const py::array_t<Key> keys(static_cast<py::ssize_t>(finding.keys.size()), finding.keys.data());
    out.append(py::make_tuple(std::string(finding.name), std::string(finding.label),
                              std::string(finding.remedy), finding.is_fault, finding.of_nodes,
                              keys));
  }
  return out;
}

/// (numbers of what was done by name, what was left behind: duplicate, element that stays, pool)
py::tuple Repair(Handle& handle, std::optional<double> merge_tolerance, bool duplicate_elements,
                 bool inverted_solids, bool misoriented_shells, bool unreferenced_nodes) {
  const RepairPlan plan{merge_tolerance, duplicate_elements, inverted_solids, misoriented_shells,
                        unreferenced_nodes};
  RepairReport report;
  if (merge_tolerance && !(*merge_tolerance >= 0)) {
    Refuse(FaultKind::kValue, "merge tolerance", "is no length", "give 0 or more");
  }
  Edit(handle, "Repair the mesh", [&](CQXDBSession& session) {
    const py::gil_scoped_release others_may_run;
    if (RepairMesh(session, plan, report)) return;
    throw Fault(FaultKind::kRefused, LastRefusal(handle.Path()));
  });
  py::dict out;
  out["nodes_merged"] = report.nodes_merged;
  out["merges_refused"] = report.merges_refused;
  out["elements_removed"] = report.elements_removed;
  out["solids_turned"] = report.solids_turned;
  out["shells_turned"] = report.shells_turned;
  out["one_sided_patches"] = report.one_sided_patches;
  out["nodes_removed"] = report.nodes_removed;
  out["nodes_kept"] = report.nodes_kept;
  py::list left_behind;
  for (const LeftBehind& loss : report.left_behind) {
    left_behind.append(py::make_tuple(loss.duplicate, loss.stays, loss.type));
  }
  return py::make_tuple(out, left_behind);
}

// ---- sides and parts ----------------------------------------------------------------------------

/// (keys of elements, numbers of sides) of those that one element alone has, or that three and more
/// share.
py::tuple LooseSidesOf(Handle& handle, bool faces, bool shared) {
  const Guard guard(handle);
  std::vector<Key> elements;
  std::vector<std::int32_t> numbers;
  {
    const py::gil_scoped_release others_may_run;
    const DenseMesh mesh(handle.Session());
    const LooseSides loose = faces ? LooseFaces(mesh) : LooseEdges(mesh);
    for (const DenseSide& side : shared ? loose.shared : loose.free) {
      elements.push_back(mesh.Element(side.element).key);
      numbers.push_back(static_cast<std::int32_t>(side.side));
    }
  }
  const auto count = static_cast<py::ssize_t>(elements.size());
  return py::make_tuple(py::array_t<Key>(count, elements.data()),
                        py::array_t<std::int32_t>(count, numbers.data()));
}

/// The number of the part that each element belongs to; -1 for none.
py::array_t<std::int32_t> PartsOf(Handle& handle) {
  const Guard guard(handle);
  Parts parts;
  {
    const py::gil_scoped_release others_may_run;
    parts = ConnectedParts(DenseMesh(handle.Session()));
  }
  py::array_t<std::int32_t> out(static_cast<py::ssize_t>(parts.of_element.size()));
  for (std::size_t i = 0; i < parts.of_element.size(); ++i) {
    out.mutable_data()[i] = static_cast<std::int32_t>(parts.of_element[i]);
  }
  return out;
}

// ---- measures, axes, centres --------------------------------------------------------------------

/// Calls put(element position, place in the pool) for each element.
template <class Put>
void ForElements(CQXDBSession& session, Put&& put) {
  const DPoolBase& pool = Pool<tagTElem>(session);
  py::ssize_t i = 0;
  LongWork work(static_cast<std::size_t>(pool.GetSize()));
  for (ITR at = pool.GetHeadPosition(); at; pool.Next(at)) {
    put(at, i++);
    work.Step();
  }
}

Reals ElementNumbers(Handle& handle, const std::string& what) {
  const Guard guard(handle);
  CQXDBSession& session = handle.Session();
  const CQXMeshUtil util(&session);
  double (CQXMeshUtil::*measure)(ITR) const = &CQXMeshUtil::GetElemQuantity;
  if (what == "volume") measure = &CQXMeshUtil::GetElemVolume;
  if (what == "mass") measure = &CQXMeshUtil::GetSpecialElemMass;
  Reals values(static_cast<py::ssize_t>(Pool<tagTElem>(session).GetSize()));
  double* out = values.mutable_data();
  const py::gil_scoped_release others_may_run;
  ForElements(session, [&](ITR at, py::ssize_t i) { out[i] = (util.*measure)(at); });
  return values;
}

/// n x 3; NaN where an element has no nodes.
Reals Centers(Handle& handle) {
  const Guard guard(handle);
  CQXDBSession& session = handle.Session();
  const auto& pool = Pool<tagTElem>(session);
  Reals values({static_cast<py::ssize_t>(pool.GetSize()), py::ssize_t{3}});
  double* out = values.mutable_data();
  const py::gil_scoped_release others_may_run;
  ForElements(session, [&](ITR at, py::ssize_t i) {
    double* row = out + 3 * i;
    if (!pool.GetElemCenter(at, row)) std::fill_n(row, 3, kNaN);
  });
  return values;
}

/// n x 3 x 3: unit vectors of local x, y, z as rows; NaN where they are not determined.
Reals Axes(Handle& handle, bool material) {
  const Guard guard(handle);
  CQXDBSession& session = handle.Session();
  const auto& pool = Pool<tagTElem>(session);
  Reals values({static_cast<py::ssize_t>(pool.GetSize()), py::ssize_t{3}, py::ssize_t{3}});
  double* out = values.mutable_data();
  const py::gil_scoped_release others_may_run;
  ForElements(session, [&](ITR at, py::ssize_t i) {
    double axes[3][3]{};
    const int found =
        material ? pool.GetElemMatlVector(at, axes) : pool.GetElemLocalVector(at, axes);
    for (int k = 0; k < 9; ++k) out[9 * i + k] = found ? axes[k / 3][k % 3] : kNaN;
  });
  return values;
}

// ---- mass ---------------------------------------------------------------------------------------

py::dict MassDict(const MassOfProperty& mass) {
  const RigidBody body = ToRigidBody(mass.mass);
  py::dict out;
  out["property"] = mass.property_key;
  out["elements"] = mass.elements;
  out["length"] = mass.length;
  out["area"] = mass.area;
  out["volume"] = mass.volume;
  out["mass"] = body.mass;
  out["center"] = std::vector<double>{body.center.x, body.center.y, body.center.z};
  out["inertia"] = std::vector<double>{body.xx, body.yy, body.zz, body.xy, body.yz, body.zx};
  return out;
}

py::tuple Mass(Handle& handle, std::optional<double> density, std::optional<double> thickness,
               std::optional<double> section_area) {
  const Guard guard(handle);
  MassReport report;
  {
    const py::gil_scoped_release others_may_run;
    report = ComputeMass(handle.Session(), DenseMesh(handle.Session()),
                         {density, thickness, section_area});
  }
  py::list by_property;
  for (const MassOfProperty& mass : report.by_property) by_property.append(MassDict(mass));
  return py::make_tuple(MassDict(report.total), by_property, report.without_density,
                        report.without_section);
}

// ---- coordinate systems -------------------------------------------------------------------------

ITR FindSystem(const DPoolCord& pool, Key key) {
  if (key == 0) return 0;  // the global one
  const ITR found = pool.Find(key);
  if (!found) {
    Refuse(FaultKind::kMissing, Place(pool, key), "is not in the model", "see model.systems.keys");
  }
  return found;
}

/// Points (n x 3) between the coordinates of a system and global ones.
Reals MapPoints(Handle& handle, Key system, const Reals& points, bool to_global) {
  const Guard guard(handle);
  const auto& pool = Pool<tagTCord>(handle.Session());
  const ITR at = FindSystem(pool, system);
  if (points.ndim() != 2 || points.shape(1) != 3) {
    Refuse(FaultKind::kValue, "points", "have another shape than n x 3",
           "give three coordinates a point");
  }
  Reals out({points.shape(0), py::ssize_t{3}});
  double* const results = out.mutable_data();
  const py::ssize_t count = points.shape(0);
  const double* const given = points.data();
  const py::gil_scoped_release others_may_run;
  LongWork work(static_cast<std::size_t>(count));
  for (py::ssize_t i = 0; i < count; ++i) {
    work.Step();
    const Vector3 from(given + 3 * i);
    Vector3 to;
    if (!(to_global ? pool.ToGlobal(at, from, to) : pool.FromGlobal(at, from, to))) {
      Refuse(FaultKind::kRefused, Place(pool, system), "has no axes: its points lie on one line",
             "correct its points");
    }
    to.CopyTo(results + 3 * i);
  }
  return out;
}

/// (origin, axes as rows) in global coordinates.
py::tuple FrameOf(Handle& handle, Key system) {
  const Guard guard(handle);
  const auto& pool = Pool<tagTCord>(handle.Session());
  Frame frame;
  if (!pool.GetFrame(FindSystem(pool, system), frame)) {
    Refuse(FaultKind::kRefused, Place(pool, system), "has no axes: its points lie on one line",
           "correct its points");
  }
  Reals origin(py::ssize_t{3}), axes({py::ssize_t{3}, py::ssize_t{3}});
  frame.origin.CopyTo(origin.mutable_data());
  frame.axes.x.CopyTo(axes.mutable_data());
  frame.axes.y.CopyTo(axes.mutable_data() + 3);
  frame.axes.z.CopyTo(axes.mutable_data() + 6);
  return py::make_tuple(origin, axes);
}

/// (code, name, plural, nodes, corners, dimension) of each ordinary type.
py::list ElementTypeTable() {
  py::list out;
  for (const ElementType& type : ElementTypes()) {
    out.append(py::make_tuple(type.code, std::string(type.name), std::string(type.plural),
                              type.nodes, type.corners, type.dimension));
  }
  return out;
}

}  // namespace

void BindMesh(py::module_& module, py::class_<Handle, std::shared_ptr<Handle>>& model) {
  module.def("measures", MeasureTable);
  module.def("element_types", ElementTypeTable);
  model.def("quality", QualityOf, py::arg("measure"))
      .def("quality_summary", QualitySummaryOf, py::arg("measure"), py::arg("rows"),
           py::arg("bins"), py::arg("worst"))
      .def("select", SelectIn, py::arg("text"), py::arg("kind"))
      .def("findings", FindingsOf, py::arg("tolerance"))
      .def("repair", Repair, py::arg("merge_tolerance"), py::arg("duplicate_elements"),
           py::arg("inverted_solids"), py::arg("misoriented_shells"), py::arg("unreferenced_nodes"))
      .def("loose_sides", LooseSidesOf, py::arg("faces"), py::arg("shared"))
      .def("parts", PartsOf)
      .def("element_numbers", ElementNumbers, py::arg("what"))
      .def("centers", Centers)
      .def("axes", Axes, py::arg("material"))
      .def("mass", Mass, py::arg("density"), py::arg("thickness"), py::arg("section_area"))
      .def("map_points", MapPoints, py::arg("system"), py::arg("points"), py::arg("to_global"))
      .def("frame", FrameOf, py::arg("system"));
}

}  // namespace qx::python
