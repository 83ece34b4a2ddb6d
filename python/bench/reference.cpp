// The same work in C++ alone, for bench.py to measure beside: what Python costs on top.

#include <chrono>
#include <pybind11/numpy.h>
#include <pybind11/pybind11.h>

#include "qx_db/core/transaction.h"
#include "qx_db/model/standard_pools.h"

#include "exchange/mesh.h"
#include "host/application.h"
#include "host/session.h"

namespace {

namespace py = pybind11;
using Reals = py::array_t<double, py::array::c_style>;
using Keys = py::array_t<qx::Key, py::array::c_style>;

double Now() {
  using namespace std::chrono;
  return duration<double>(steady_clock::now().time_since_epoch()).count();
}

/// A document with a mesh of hexahedra; nodes and elements are numbered from 1.
struct Reference {
  qx::CQXDocBase document{qx::host::SetUpModel};
  qx::CQXDBSession& session = *document.GetDBSession();
};

/// Seconds of adding a mesh from arrays, as one recorded step.
double Build(Reference& reference, const Reals& xyz, const Keys& hexes) {
  qx::exchange::Mesh mesh;
  const auto nodes = static_cast<std::size_t>(xyz.shape(0));
  const auto elements = static_cast<std::size_t>(hexes.shape(0));
  const double begin = Now();
  mesh.coordinates.assign(xyz.data(), xyz.data() + 3 * nodes);
  for (std::size_t i = 0; i < nodes; ++i) mesh.node_keys.push_back(static_cast<qx::Key>(i + 1));
  mesh.connectivity.assign(hexes.data(), hexes.data() + 8 * elements);
  for (std::size_t i = 0; i < elements; ++i) {
    mesh.elements.push_back({static_cast<qx::Key>(i + 1), 14, 8 * i});
  }
  if (!qx::exchange::AddMesh(reference.session, mesh, "arrays"))
    throw std::runtime_error("refused");
  return Now() - begin;
}

/// Seconds of setting all positions, as one recorded step.
double SetAll(Reference& reference, const Reals& xyz) {
  auto& pool = qx::Pool<qx::tagTNode>(reference.session);
  const double begin = Now();
  qx::CTransaction step(&reference.session);
  step.Begin(u"Set");
  const double* at = xyz.data();
  for (qx::ITR pos = pool.GetHeadPosition(); pos; pool.Next(pos), at += 3) {
    qx::tagTNode node = pool.GetAtNU(pos);
    node.position = {at[0], at[1], at[2]};
    pool.SetAtNU(pos, node);
  }
  if (!step.Commit()) throw std::runtime_error("refused");
  return Now() - begin;
}

}  // namespace

PYBIND11_MODULE(reference, module) {
  static auto* const application = new qx::host::Application;
  static_cast<void>(application);
  py::class_<Reference>(module, "Reference")
      .def(py::init<>())
      .def("build", Build)
      .def("set_all", SetAll)
      .def("undo", [](Reference& reference) { return reference.session.Undo(); });
}
