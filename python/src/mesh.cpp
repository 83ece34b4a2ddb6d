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
#include "qx_db/mesh/mesh_quality.h"
#include "qx_db/model/standard_pools.h"
#include "qx_db/platform/long_work.h"
#include "qx_db/platform/parallel.h"
#include "qx_db/record/element_types.h"

#include "handle.h"

namespace qx::python {
namespace {

using Reals = py::array_t<double, py::array::c_style | py::array::forcecast>;

constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();

// ---- quality ------------------------------------------------------------------------------------

/// What a relative measure weighs an element against: the mean size of each shape.
std::vector<double> MeanSizes(const DenseMesh& mesh) {
  constexpr std::size_t kShapes = static_cast<std::size_t>(CornerShape::kHexahedron) + 1;
  std::vector<double> sizes(kShapes, 0.0), counts(kShapes, 0.0);
  for (std::uint32_t e = 0; e < mesh.ElementCount(); ++e) {
    if (!mesh.IsUsable(e) || mesh.Shape(e) == CornerShape::kNone) continue;
    Point3 corners[8];
    mesh.CornerPositions(e, corners);
    const auto shape = static_cast<std::size_t>(mesh.Shape(e));
    sizes[shape] += std::abs(ShapeSize(mesh.Shape(e), corners));
    ++counts[shape];
  }
  for (std::size_t i = 0; i < kShapes; ++i) sizes[i] /= std::max(counts[i], 1.0);
  return sizes;
}

/// One value an element; NaN where it has none.
Reals QualityOf(Handle& handle, const std::string& name) {
  const Guard guard(handle);
  const MeasureInfo* info = FindMeasure(name);
  if (!info) {
    Refuse(FaultKind::kValue, "measure \"" + name + "\"", "is not known", "see qxdb.measures()");
  }
  Reals values(static_cast<py::ssize_t>(Pool<tagTElem>(handle.Session()).GetSize()));
  double* out = values.mutable_data();
  const py::gil_scoped_release others_may_run;
  LongWork work(10);
  const DenseMesh mesh(handle.Session());
  work.Step(3);
  const std::vector<double> means = info->is_relative ? MeanSizes(mesh) : std::vector<double>();
  constexpr std::size_t kPiece = 1 << 16;  // between two looks for an interrupt
  LongWork measuring(mesh.ElementCount(), 7);
  for (std::size_t piece = 0; piece < mesh.ElementCount(); piece += kPiece) {
    measuring.Step(piece == 0 ? 0 : kPiece);
    const std::size_t count = std::min<std::size_t>(kPiece, mesh.ElementCount() - piece);
    ParallelFor(count, 1 << 12, [&](std::size_t begin, std::size_t end) {
      for (std::size_t i = piece + begin; i < piece + end; ++i) {
        const auto e = static_cast<std::uint32_t>(i);
        out[i] = kNaN;
        if (!mesh.IsUsable(e) || mesh.Shape(e) == CornerShape::kNone) continue;
        Point3 corners[8];
        mesh.CornerPositions(e, corners);
        const CornerShape shape = mesh.Shape(e);
        out[i] = Quality(info->measure, shape, corners,
                         info->is_relative ? means[static_cast<std::size_t>(shape)] : kNaN);
      }
    });
  }
  return values;
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

py::dict Repair(Handle& handle, std::optional<double> merge_tolerance, bool duplicate_elements,
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
  return out;
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
