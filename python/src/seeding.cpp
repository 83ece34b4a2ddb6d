// Curves and their seeds.

#include <cmath>
#include <pybind11/numpy.h>
#include <pybind11/stl.h>

#include "qx_db/model/analytic_cad.h"
#include "qx_db/model/edge_seeding.h"
#include "qx_db/platform/long_work.h"

#include "handle.h"

namespace qx::python {
namespace {

using Reals = py::array_t<double, py::array::c_style | py::array::forcecast>;
using SharedCad = std::shared_ptr<AnalyticCad>;

CadPoint ToPoint(const Reals& values) {
  if (values.ndim() != 1 || values.size() != 3) {
    Refuse(FaultKind::kValue, "point", "has other than three coordinates", "give x, y and z");
  }
  return CadPoint(values.data());
}

std::vector<CadPoint> ToPoints(const Reals& values) {
  if (values.ndim() != 2 || values.shape(1) != 3) {
    Refuse(FaultKind::kValue, "points", "have another shape than n x 3",
           "give three coordinates a point");
  }
  std::vector<CadPoint> points;
  for (py::ssize_t i = 0; i < values.shape(0); ++i) points.emplace_back(values.data() + 3 * i);
  return points;
}

int Taken(const Result<int>& edge) {
  if (!edge) throw Fault(FaultKind::kValue, edge.Error());
  return *edge;
}

/// How far along its edge each seed is, of the length.
std::vector<double> FractionsOf(const AnalyticCad& cad, int edge, const EdgeSeeds& seeds) {
  std::vector<double> fractions;
  fractions.reserve(seeds.parameters.size());
  const double length = cad.GetEdgeLength(edge);
  LongWork work(seeds.parameters.size());
  for (const double parameter : seeds.parameters) {
    work.Step();
    double along = 0;
    cad.GetLengthAt(edge, parameter, along);
    fractions.push_back(length > 0 ? along / length : 0);
  }
  return fractions;
}

/// (fractions, parameters, points n x 3) of an edge by a size control.
py::tuple Seed(AnalyticCad& cad, int edge, int method, const std::vector<int>& int_params,
               const std::vector<double>& dbl_params, const std::vector<double>& ratios,
               bool reversed) {
  tagTSzct control;
  control.method = method;
  for (std::size_t i = 0; i < int_params.size() && i < 10; ++i) {
    control.int_params[i] = int_params[i];
  }
  for (std::size_t i = 0; i < dbl_params.size() && i < 10; ++i) {
    control.dbl_params[i] = dbl_params[i];
  }
  control.custom_ratios.Assign(ratios.data(), ratios.size());
  if (!cad.HasEdge(edge)) {
    Refuse(FaultKind::kMissing, "edge " + std::to_string(edge), "is not there",
           "edges count from 1 to " + std::to_string(cad.GetEdgeCount()));
  }
  EdgeSeeds seeds;
  std::vector<double> along;
  Outcome seeded;
  {
    const WorkWatch interrupts([](double done) { TellProgress({}, done); });
    const py::gil_scoped_release others_may_run;
    seeded = SeedEdge(cad, edge, control, reversed, seeds);
    if (seeded) along = FractionsOf(cad, edge, seeds);
  }
  Require(seeded, FaultKind::kValue);
  Reals parameters(static_cast<py::ssize_t>(seeds.parameters.size()), seeds.parameters.data());
  Reals points({static_cast<py::ssize_t>(seeds.points.size()), py::ssize_t{3}});
  for (std::size_t i = 0; i < seeds.points.size(); ++i) {
    seeds.points[i].CopyTo(points.mutable_data() + 3 * i);
  }
  const Reals fractions(static_cast<py::ssize_t>(along.size()), along.data());
  return py::make_tuple(fractions, parameters, points);
}

void RequireEdge(const AnalyticCad& cad, int edge) {
  if (cad.HasEdge(edge)) return;
  Refuse(FaultKind::kMissing, "edge " + std::to_string(edge), "is not there",
         "edges count from 1 to " + std::to_string(cad.GetEdgeCount()));
}

}  // namespace

void BindSeeding(py::module_& module) {
  py::class_<AnalyticCad, SharedCad>(module, "Curves")
      .def(py::init<>())
      .def(
          "line",
          [](AnalyticCad& cad, const Reals& from, const Reals& to) {
            return Taken(cad.AddLine(ToPoint(from), ToPoint(to)));
          },
          py::arg("start"), py::arg("end"))
      .def(
          "arc",
          [](AnalyticCad& cad, const Reals& center, const Reals& axis, const Reals& start,
             double angle_deg) {
            constexpr double kRadians = 0.017453292519943295;
            return Taken(
                cad.AddArc(ToPoint(center), ToPoint(axis), ToPoint(start), angle_deg * kRadians));
          },
          py::arg("center"), py::arg("axis"), py::arg("start"), py::arg("angle_deg"))
      .def(
          "circle",
          [](AnalyticCad& cad, const Reals& center, const Reals& axis, const Reals& start) {
            return Taken(cad.AddCircle(ToPoint(center), ToPoint(axis), ToPoint(start)));
          },
          py::arg("center"), py::arg("axis"), py::arg("start"))
      .def(
          "polyline",
          [](AnalyticCad& cad, const Reals& points) {
            return Taken(cad.AddPolyline(ToPoints(points)));
          },
          py::arg("points"))
      .def(
          "spline",
          [](AnalyticCad& cad, const Reals& points) {
            return Taken(cad.AddSpline(ToPoints(points)));
          },
          py::arg("points"))
      .def("__len__", &AnalyticCad::GetEdgeCount)
      .def(
          "length",
          [](const AnalyticCad& cad, int edge) {
            RequireEdge(cad, edge);
            return cad.GetEdgeLength(edge);
          },
          py::arg("edge"))
      .def(
          "kind",
          [](const AnalyticCad& cad, int edge) {
            RequireEdge(cad, edge);
            return EdgeKindName(cad.GetEdgeKind(edge));
          },
          py::arg("edge"))
      .def("seed", Seed, py::arg("edge"), py::arg("method"), py::arg("int_params"),
           py::arg("dbl_params"), py::arg("ratios"), py::arg("reversed"));
}

}  // namespace qx::python
