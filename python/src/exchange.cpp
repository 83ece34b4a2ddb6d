// Files of other programs: the one place where Python meets the readers and writers.

#include <algorithm>
#include <filesystem>
#include <pybind11/stl.h>

#include "qx_db/gateway/document_exchange.h"
#include "qx_db/platform/file.h"

#include "exchange/transfer.h"
#include "handle.h"

namespace qx::python {
namespace {

std::string ExtensionOf(const std::string& path) {
  return AsciiUpper(Utf8FromPath(PathFromUtf8(path).extension()));
}

/// Reads a gateway document whose numbers are in `units`, "" for the current ones.
void ReadJson(CQXDBSession& session, const std::string& path, const std::string& units,
              bool keep_units, std::vector<std::string>& notes) {
  const UnitSystem before = session.Units().Current();
  if (!units.empty()) {
    const auto named = exchange::ParseUnits(units, before);
    Require(named.AsOutcome(), FaultKind::kValue);
    session.Units().SetCurrent(*named);
    if (keep_units) session.Units().SetModel(*named);
  }
  dbgateway::DataBase document;
  Require(document.ReadFile(path));  // a failure takes the step back, and the units with it
  Require(ReadDocument(session, document));
  if (!keep_units) session.Units().SetCurrent(before);
  for (const auto& entry : document.Report()) notes.push_back(entry.Line());
}

/// Brings a file into the model as one step; what was changed or left out, a line each. `units` are
/// those of the file's numbers, as "mm,N", and the model's from then on with `keep_units`.
std::vector<std::string> Read(Handle& handle, const std::string& path, const std::string& units,
                              bool keep_units) {
  std::vector<std::string> notes;
  Edit(handle, "Read " + path, [&](CQXDBSession& session) {
    const py::gil_scoped_release others_may_run;
    Require(CheckIsFile(path));
    const std::string extension = ExtensionOf(path);
    if (extension == ".JSON") {
      ReadJson(session, path, units, keep_units, notes);
      return;
    }
    const auto format = exchange::FormatToRead(path);
    Require(format.AsOutcome());
    // The reader tells how far it is, and the library's own work is only looked after.
    const WorkWatch interrupts([](double done) { TellProgress({}, done); });
    exchange::ImportOptions options;
    options.format = *format;
    options.units = units;
    options.set_model_units = keep_units;
    options.read.progress = [&](double done) { TellProgress(handle.progress, done); };
    exchange::LossReport losses;
    Require(exchange::ImportFile(session, path, options, losses));
    notes = losses.Lines();
  });
  return notes;
}

/// Writes the model for another program; what was left out, a line each.
std::vector<std::string> Write(Handle& handle, const std::string& path) {
  const Guard guard(handle);
  std::vector<std::string> notes;
  CQXDBSession& session = handle.Session();
  const py::gil_scoped_release others_may_run;
  const std::string extension = ExtensionOf(path);
  if (extension == ".JSON") {
    // JSON has no word for what is not finite, and null would come back as 0.
    Require(exchange::CheckCanBeWritten(session, path));
    dbgateway::DataBase document;
    Require(WriteDocument(session, document));
    Require(document.WriteFile(path, true));
  } else {
    const auto format = exchange::FormatToWrite(path);
    Require(format.AsOutcome());
    const WorkWatch interrupts([](double done) { TellProgress({}, done); });
    exchange::ExportOptions options;
    options.format = *format;
    options.write.progress = [&](double done) { TellProgress(handle.progress, done); };
    exchange::LossReport losses;
    Require(exchange::ExportFile(session, path, options, losses));
    notes = losses.Lines();
  }
  return notes;
}

/// (extension, what it is, whether it is read, whether it is written)
std::vector<std::tuple<std::string, std::string, bool, bool>> Formats() {
  std::vector<std::tuple<std::string, std::string, bool, bool>> formats;
  for (const exchange::Format& format : exchange::Formats()) {
    for (const std::string_view extension : format.extensions) {
      formats.emplace_back(extension, format.title, format.read != nullptr,
                           format.write != nullptr);
    }
  }
  formats.emplace_back(".json", "gateway document", true, true);
  return formats;
}

}  // namespace

void BindExchange(py::module_& module, py::class_<Handle, std::shared_ptr<Handle>>& model) {
  module.def("formats", Formats);
  model.def("read", Read, py::arg("path"), py::arg("units"), py::arg("keep_units"))
      .def("write_file", Write, py::arg("path"));
}

}  // namespace qx::python
