// The module qxdb._core: what the package is built on. Its users are the package's own files.

#include "qx_db/platform/parallel.h"

#include "handle.h"
#include "host/application.h"
#include "host/texts.h"

namespace qx::python {
namespace {

constexpr const char* kExceptions[] = {"FileError",  "RefusedError", "ClosedError", "MissingError",
                                       "ValueFault", "TypeFault",    "ThreadError"};

/// Raises the package's exception for a fault.
void Raise(const Fault& fault) {
  const py::object type =
      py::module_::import("qxdb._errors").attr(kExceptions[static_cast<int>(fault.kind)]);
  const Failure& failure = fault.failure;
  const py::object error =
      type(failure.what, py::arg("file") = failure.file, py::arg("place") = failure.place,
           py::arg("remedy") = failure.remedy);
  PyErr_SetObject(type.ptr(), error.ptr());
}

}  // namespace
}  // namespace qx::python

PYBIND11_MODULE(_core, module) {
  using namespace qx::python;
  // Lives to the end of the process: models may be freed after the interpreter has ended.
  static auto* const application = new qx::host::Application;
  static_cast<void>(application);
  static_cast<void>(qx::host::RegisterTexts());
  ListenForMessages();
  py::register_exception_translator([](std::exception_ptr thrown) {
    try {
      if (thrown) std::rethrow_exception(thrown);
    } catch (const Fault& fault) {
      Raise(fault);
    }
  });
  module.attr("version") = QX_VERSION;
  module.def("set_threads", qx::SetWorkThreads);
  py::class_<Handle, std::shared_ptr<Handle>> model(module, "Model");
  BindModel(module, model);
  BindColumns(model);
  BindRecords(model);
  BindSets(model);
  BindMesh(module, model);
  BindPicture(model);
  BindExchange(module, model);
  BindImporting(model);
  BindGateway(model);
  BindSeeding(module);
  BindOutside(module);
}
