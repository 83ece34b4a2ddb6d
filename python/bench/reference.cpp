// The same work in C++ alone, for bench.py to measure beside: what Python costs on top.

#include <chrono>
#include <pybind11/numpy.h>
#include <pybind11/pybind11.h>
#include <pybind11/stl.h>

#include "qx_db/core/transaction.h"
#include "qx_db/model/standard_pools.h"
#include "qx_db/pool/bulk_edit.h"

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

/// Seconds of setting the positions of nodes, of all where there are no keys, as one recorded step.
double SetPositions(Reference& reference, const Reals& xyz, const std::optional<Keys>& keys) {
  auto& pool = qx::Pool<qx::tagTNode>(reference.session);
  const double begin = Now();
  qx::CTransaction step(&reference.session);
  step.Begin(u"Set");
  std::vector<qx::ITR> positions(static_cast<std::size_t>(xyz.shape(0)));
  if (keys) {
    pool.Set().FindMany({keys->data(), positions.size()}, positions);
  } else {
    qx::ITR next = pool.GetHeadPosition();
    for (qx::ITR& at : positions) {
      at = next;
      pool.Next(next);
    }
  }
  const double* from = xyz.data();
  const auto set = qx::SetMany(pool, positions, [&](qx::tagTNode& node, std::size_t i) {
    node.position = {from[3 * i], from[3 * i + 1], from[3 * i + 2]};
  });
  if (set != positions.size() || !step.Commit()) throw std::runtime_error("refused");
  return Now() - begin;
}

}  // namespace

PYBIND11_MODULE(reference, module) {
  static auto* const application = new qx::host::Application;
  static_cast<void>(application);
  py::class_<Reference>(module, "Reference")
      .def(py::init<>())
      .def("build", Build)
      .def("set_positions", SetPositions, py::arg("xyz"), py::arg("keys") = py::none())
      .def("undo", [](Reference& reference) { return reference.session.Undo(); });
}
