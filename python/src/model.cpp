// Opening, saving, steps and history.

#include <algorithm>
#include <map>
#include <pybind11/numpy.h>
#include <pybind11/stl.h>

#include "qx_db/core/model_diff.h"
#include "qx_db/core/read_snapshot.h"
#include "qx_db/platform/text.h"
#include "qx_db/record/verbs.h"

#include "handle.h"

namespace qx::python {
namespace {

using Shared = std::shared_ptr<Handle>;

// ---- opening and saving -------------------------------------------------------------------------

Shared OpenModel(const std::string& path, bool to_edit) {
  auto handle = std::make_shared<Handle>();
  const Guard guard(*handle);
  Outcome opened;
  {
    const py::gil_scoped_release others_may_run;
    opened = to_edit ? handle->document->OpenForEditing(path, {}, &handle->report)
                     : handle->document->Open(path, &handle->report);
  }
  Require(opened);
  handle->read_only = !to_edit;
  return handle;
}

CQXDocBase& DocumentOf(Handle& handle) {
  if (!handle.document) {
    Refuse(FaultKind::kRefused, "", "a snapshot belongs to no file", "save it with model.save_as");
  }
  return *handle.document;
}

/// To its own file, or to another, which becomes its own; every step is kept there from then on.
void Save(Handle& handle, const std::optional<std::string>& path) {
  const Guard guard(handle);
  if (!handle.document) {
    if (!path) DocumentOf(handle);
    const py::gil_scoped_release others_may_run;
    Require(SaveModel(handle.Session(), *path));
    return;
  }
  if (!path && handle.read_only) {
    throw Fault(FaultKind::kRefused,
                {handle.Path(), "", "was opened to be read", "save it under another name"});
  }
  const py::gil_scoped_release others_may_run;
  CQXDocBase& document = *handle.document;
  Require(path ? document.SaveAs(*path) : document.Save());
  if (!document.Keeper()) Require(document.KeepSteps());
  handle.read_only = false;
}

Shared Snapshot(Handle& handle) {
  const Guard guard(handle);
  std::unique_ptr<CQXDBSession> taken;
  {
    const py::gil_scoped_release others_may_run;
    taken = TakeSnapshot(handle.Session());
  }
  return std::make_shared<Handle>(std::move(taken));
}

py::dict ReportOf(const Handle& handle) {
  const ModelFileReport& report = handle.report;
  py::dict out;
  out["file_bytes"] = report.file_bytes;
  out["saves"] = report.revision;
  out["steps_since_save"] = report.steps;
  out["closed"] = report.closed;
  out["unfinished_step"] = report.unfinished_step;
  out["history_cut"] = report.history_cut;
  out["writer"] = report.writer;
  out["unresolved_references"] = report.UnresolvedReferences();
  return out;
}

// ---- steps --------------------------------------------------------------------------------------

void BeginStep(Handle& handle, const std::string& name) {
  const Guard guard(handle, Guard::kEdit);
  auto step = std::make_unique<CTransaction>(handle.session);
  if (!step->Begin(Utf16(name).c_str())) {
    Refuse(FaultKind::kRefused, "step \"" + name + "\"",
           "the model is telling its listeners of a step",
           "edit it after the listener has returned");
  }
  handle.steps.push_back(std::move(step));
}

std::unique_ptr<CTransaction> LastStep(Handle& handle) {
  if (handle.steps.empty()) {
    Refuse(FaultKind::kRefused, "", "no step is open", "begin one: with model.step(name)");
  }
  auto step = std::move(handle.steps.back());
  handle.steps.pop_back();
  return step;
}

void CommitStep(Handle& handle) {
  const Guard guard(handle, Guard::kEdit);
  const auto step = LastStep(handle);
  ClearMessages();
  const auto commit = [&] {
    const py::gil_scoped_release others_may_run;
    return step->Commit() != 0;
  };
  if (!commit()) throw Fault(FaultKind::kRefused, LastRefusal(handle.Path()));
  if (handle.steps.empty()) handle.NumberSteps();
  handle.RaiseFromListener();
}

void RollBackStep(Handle& handle) {
  const Guard guard(handle, Guard::kEdit);
  LastStep(handle)->Rollback();
  handle.RaiseFromListener();
}

// ---- history ------------------------------------------------------------------------------------

/// All steps, oldest first: the done ones, then those that can be redone.
std::vector<const Step*> AllSteps(const CQXDBSession& session) {
  std::vector<const Step*> steps;
  for (const Step& step : session.History().Done()) steps.push_back(&step);
  const auto& undone = session.History().Undone();
  for (auto step = undone.rbegin(); step != undone.rend(); ++step) steps.push_back(&*step);
  return steps;
}

/// number, time in ms since 1970, name, inserted, removed, modified, done
py::tuple StepTuple(const Step& step, bool done) {
  std::int64_t inserted = 0, removed = 0, modified = 0;
  for (const Change& change : step.changes) {
    inserted += change.operation == tagTRNotify::kInserted;
    removed += change.operation == tagTRNotify::kRemoved;
    modified += change.operation == tagTRNotify::kModified;
  }
  return py::make_tuple(step.number, step.time_ms, Utf8(step.name), inserted, removed, modified,
                        done);
}

py::list History(Handle& handle) {
  const Guard guard(handle);
  py::list out;
  const std::size_t done = handle.Session().History().Done().size();
  for (const Step* step : AllSteps(handle.Session()))
    out.append(StepTuple(*step, out.size() < done));
  return out;
}

/// Undoes or redoes until `wanted` steps are done.
void MoveTo(Handle& handle, std::size_t wanted) {
  CQXDBSession& session = handle.Session();
  ClearMessages();
  while (session.History().Done().size() != wanted) {
    const bool back = session.History().Done().size() > wanted;
    if (!(back ? session.Undo() : session.Redo())) {
      if (handle.steps.empty()) throw Fault(FaultKind::kRefused, LastRefusal(handle.Path()));
      Refuse(FaultKind::kRefused, "", "a step is open", "go back and forth when it has ended");
    }
    handle.RaiseFromListener();
  }
}

void UndoOrRedo(Handle& handle, int count, bool undo) {
  const Guard guard(handle, Guard::kEdit);
  const Journal& journal = handle.Session().History();
  const std::size_t done = journal.Done().size();
  const std::size_t there = undo ? done : journal.Undone().size();
  if (count < 1 || there < static_cast<std::size_t>(count)) {
    const std::string verb = undo ? "undone" : "redone";
    Refuse(FaultKind::kRefused, "",
           count < 1 ? "cannot take a count below 1"
                     : "only " + std::to_string(there) + " steps can be " + verb,
           "see model.history");
  }
  const auto steps = static_cast<std::size_t>(count);
  MoveTo(handle, undo ? done - steps : done + steps);
}

void Checkout(Handle& handle, std::int64_t number) {
  const Guard guard(handle, Guard::kEdit);
  const auto steps = AllSteps(handle.Session());
  std::size_t wanted = 0;
  if (number != 0) {
    const auto at = std::find_if(steps.begin(), steps.end(),
                                 [&](const Step* step) { return step->number == number; });
    if (at == steps.end()) {
      Refuse(FaultKind::kMissing, "step " + std::to_string(number), "is not in the history",
             "see model.history");
    }
    wanted = static_cast<std::size_t>(at - steps.begin()) + 1;
  }
  MoveTo(handle, wanted);
}

/// (key, step tuple or None, gone) of the records of a pool that the keys name.
py::list Blame(Handle& handle, int code, const std::vector<Key>& keys) {
  const Guard guard(handle);
  const CQXDBSession& session = handle.Session();
  const DPoolBase& pool = PoolOfCode(session, code);
  std::vector<const Step*> last(pool.Set().SlotLimit());
  std::map<Key, const Step*> removed;
  for (const Step& step : session.History().Done()) {
    for (const Change& change : step.changes) {
      if (change.type != pool.GetTypeCode()) continue;
      last[pool.Set().SlotOf(change.item)] = &step;
      if (change.operation == tagTRNotify::kRemoved) removed[KeyOf(change.item)] = &step;
    }
  }
  py::list out;
  for (const Key key : keys) {
    const ITR item = pool.Find(key);
    const auto gone = removed.find(key);
    if (!item && gone == removed.end()) {
      Refuse(FaultKind::kMissing, Place(pool, key), "is not in the model, nor in its history",
             "see the keys of the pool");
    }
    const Step* step = item ? last[pool.Set().SlotOf(item)] : gone->second;
    out.append(py::make_tuple(key, step ? py::object(StepTuple(*step, true)) : py::none(), !item));
  }
  return out;
}

/// (kind, pool code, key, names of members) of each difference.
py::list Diff(Handle& first, Handle& second) {
  const Guard one(first), other(second);
  std::vector<RecordDifference> differences;
  {
    const py::gil_scoped_release others_may_run;
    differences = DiffModels(first.Session(), second.Session());
  }
  constexpr const char* kKinds[] = {"only in first", "only in second", "changed", "order"};
  py::list out;
  for (const RecordDifference& difference : differences) {
    py::list members;
    for (const Row* row : difference.members) members.append(Utf8(row->name));
    out.append(py::make_tuple(kKinds[static_cast<int>(difference.kind)], difference.type,
                              difference.key, members));
  }
  return out;
}

// ---- the schema of a pool -----------------------------------------------------------------------

py::dict RowDict(const Row& row) {
  constexpr const char* kNumbers[] = {"i4", "i8", "f8", "text", "bytes"};
  py::dict out;
  out["name"] = Utf8(row.name);
  out["number"] = kNumbers[static_cast<int>(row.number)];
  out["array"] = row.IsArray();
  out["reference"] = row.kind == MemberKind::kReference || row.kind == MemberKind::kReferenceArray;
  out["size"] = row.size;
  out["element_size"] = row.element_size;
  out["target"] = row.target;
  out["inner_reference"] = row.inner_reference;
  // Which unit a number has may depend on the rest of its record; then the category is unknown.
  const bool fixed = !row.unit.category_at && !row.unit.listed_only;
  out["category"] = fixed ? row.unit.category : unit::kUnknown;
  return out;
}

py::dict PoolDict(const DPoolBase& pool) {
  const Schema& schema = pool.GetSchema();
  py::list rows, fields;
  for (const Row& row : schema.Rows()) rows.append(RowDict(row));
  for (std::size_t i = 0; i < schema.Gateway().size(); ++i) {
    const GatewayField& field = schema.Gateway()[i];
    const Row* row = schema.GatewayRows()[i];
    if (!row || field.form == GatewayField::Form::kDescribed) continue;
    fields.append(py::make_tuple(field.name, row - schema.Rows().data(), field.run, field.run > 1));
  }
  py::dict out;
  out["code"] = pool.GetTypeCode();
  out["table"] = pool.GetAPIName().ToUtf8();
  out["record"] = schema.Name();
  out["rows"] = rows;
  out["fields"] = fields;
  return out;
}

py::list Pools(Handle& handle) {
  const Guard guard(handle);
  py::list out;
  for (const DPoolBase* pool : handle.Session().Pools()) out.append(PoolDict(*pool));
  return out;
}

// ---- units --------------------------------------------------------------------------------------

UnitSystem ToSystem(const std::vector<std::int32_t>& indices) {
  UnitSystem system;
  for (std::size_t i = 0; i < indices.size() && i < system.index.size(); ++i) {
    system.index[i] = indices[i];
  }
  if (indices.size() != system.index.size() || !IsValid(system)) {
    Refuse(FaultKind::kValue, "units", "are no unit system", "see qxdb.unit_names()");
  }
  return system;
}

std::vector<std::int32_t> FromSystem(const UnitSystem& system) {
  return {system.index.begin(), system.index.end()};
}

/// Temperatures on one scale as those of another, by the indices of the scales.
py::object Temperatures(const py::array_t<double>& values, std::int32_t from, std::int32_t to) {
  UnitSystem system;
  CQXUnitCtrl units;
  system[UnitBase::kTemperature] = to;
  units.SetModel(system);
  system[UnitBase::kTemperature] = from;
  units.SetCurrent(system);
  return py::vectorize([&](double value) { return units.In(unit::kTemperature, value); })(values);
}

/// Base by base: its name, and (name, numerator, denominator) of each unit.
py::list UnitTables() {
  py::list out;
  for (int base = 0; base < kUnitBaseCount; ++base) {
    py::list units;
    for (const UnitDefinition& unit : UnitsOf(static_cast<UnitBase>(base))) {
      units.append(py::make_tuple(std::string(unit.name), unit.numerator, unit.denominator));
    }
    out.append(py::make_tuple(std::string(UnitBaseName(static_cast<UnitBase>(base))), units));
  }
  return out;
}

/// (code, name, exponents of the bases) of each category.
py::list UnitCategories() {
  py::list out;
  for (int code = 0; code < unit::kCount; ++code) {
    const UnitCategory* category = FindUnitCategory(code);
    if (!category) continue;
    py::list exponents;
    for (const std::int8_t exponent : category->exponents) exponents.append(int{exponent});
    out.append(py::make_tuple(code, std::string(category->name), exponents));
  }
  return out;
}

}  // namespace

void BindModel(py::module_& module, py::class_<Handle, Shared>& model) {
  module.def("open", OpenModel, py::arg("path"), py::arg("to_edit"));
  module.def("new", [] { return std::make_shared<Handle>(); });
  module.def("unit_tables", UnitTables);
  module.def("temperatures", Temperatures);
  module.def("unit_categories", UnitCategories);

  model.def("save", Save, py::arg("path") = py::none())
      .def("close", &Handle::Close)
      .def("snapshot", Snapshot)
      .def("report",
           [](Handle& handle) {
             const Guard guard(handle);
             return ReportOf(handle);
           })
      .def_property_readonly("closed", &Handle::IsClosed)
      .def_property_readonly("read_only", [](const Handle& handle) { return handle.read_only; })
      .def_property_readonly("path",
                             [](Handle& handle) {
                               const Guard guard(handle);
                               return handle.Path();
                             })
      .def("is_modified",
           [](Handle& handle) {
             const Guard guard(handle);
             return DocumentOf(handle).IsModified();
           })
      .def("state_hash",
           [](Handle& handle) {
             const Guard guard(handle);
             const py::gil_scoped_release others_may_run;
             return handle.Session().StateHash();
           })
      .def("validate",
           [](Handle& handle) {
             const Guard guard(handle);
             const py::gil_scoped_release others_may_run;
             return handle.Session().Validate();
           })
      .def("pools", Pools)
      .def(
          "set_listener",
          [](Handle& handle, py::object function) {
            const Guard guard(handle);
            handle.listener = std::move(function);
          },
          py::arg("function"))
      .def("begin_step", BeginStep, py::arg("name"))
      .def("commit_step", CommitStep)
      .def("roll_back_step", RollBackStep)
      .def("open_steps", [](const Handle& handle) { return handle.steps.size(); })
      .def("history", History)
      .def(
          "undo", [](Handle& handle, int count) { UndoOrRedo(handle, count, true); },
          py::arg("count"))
      .def(
          "redo", [](Handle& handle, int count) { UndoOrRedo(handle, count, false); },
          py::arg("count"))
      .def("checkout", Checkout, py::arg("number"))
      .def("forget_history",
           [](Handle& handle) {
             const Guard guard(handle, Guard::kEdit);
             handle.Session().ForgetHistory();
           })
      .def("blame", Blame, py::arg("pool"), py::arg("keys"))
      .def("diff", Diff, py::arg("other"))
      .def("units",
           [](Handle& handle) {
             const Guard guard(handle);
             const CQXUnitCtrl& units = handle.Session().Units();
             return py::make_tuple(FromSystem(units.Model()), FromSystem(units.Current()));
           })
      .def(
          "set_current_units",
          [](Handle& handle, const std::vector<std::int32_t>& indices) {
            // Of no step: for the time of reading one file.
            const Guard guard(handle);
            CQXUnitCtrl& units = handle.Session().Units();
            units.SetCurrent(ToSystem(indices));
          },
          py::arg("indices"))
      .def(
          "change_units",
          [](Handle& handle, const std::vector<std::int32_t>& indices) {
            const UnitSystem system = ToSystem(indices);
            Edit(handle, "Change units", [&](CQXDBSession& session) {
              if (session.ChangeUnits(system)) return;
              throw Fault(FaultKind::kRefused, LastRefusal(handle.Path()));
            });
          },
          py::arg("indices"))
      .def(
          "set_model_units",
          [](Handle& handle, const std::vector<std::int32_t>& indices) {
            const Guard guard(handle, Guard::kEdit);
            const UnitSystem system = ToSystem(indices);
            handle.Session().Units().SetModel(system);
            handle.Session().Units().SetCurrent(system);
          },
          py::arg("indices"));
}

}  // namespace qx::python
