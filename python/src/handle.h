#pragma once
// One open model as Python holds it, and the rules under which Python may use it.
//
// Python keeps objects longer than it should, calls from any thread, and calls back in the middle
// of things. So nothing of the library is ever held by a Python object but the Handle itself:
// records are named by key and looked up at every use, arrays are copies.

#include <exception>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <pybind11/pybind11.h>
#include <string>
#include <thread>
#include <vector>

#include "qx_db/core/document.h"
#include "qx_db/core/transaction.h"
#include "qx_db/platform/long_work.h"

namespace qx::python {

namespace py = pybind11;

/// What kind of exception a fault becomes.
enum class FaultKind { kFile, kRefused, kClosed, kMissing, kValue, kType, kThread };

/// A failure on its way to Python.
struct Fault : std::exception {
  Fault(FaultKind of, Failure what_failed)
      : kind(of), failure(std::move(what_failed)), line(failure.Line()) {}
  const char* what() const noexcept override { return line.c_str(); }

  FaultKind kind;
  Failure failure;
  std::string line;
};

/// Throws what failed; does nothing on success.
void Require(const Outcome& outcome, FaultKind kind = FaultKind::kFile);
[[noreturn]] void Refuse(FaultKind kind, std::string place, std::string what, std::string remedy);

/// Messages of the library to the user, kept per thread: the last one tells why an edit was
/// refused.
void ListenForMessages();
void ClearMessages();
/// The failure that the last message tells, of a model.
Failure LastRefusal(const std::string& file);

class SlotRows;

/// A model, or a snapshot of one. Invariants: (1) `session` is null once it is closed; (2) only the
/// owner thread comes past a Guard; (3) `steps` are open transactions, the outermost first.
class Handle : public ISessionListener {
 public:
  /// An empty model with the default records.
  Handle();
  explicit Handle(std::unique_ptr<CQXDBSession> snapshot);
  ~Handle() override;
  Handle(const Handle&) = delete;
  Handle& operator=(const Handle&) = delete;

  /// Rolls back open steps and lets go of the file. Refused amid a call. Idempotent.
  void Close();
  bool IsClosed() const { return session == nullptr; }
  CQXDBSession& Session() const { return *session; }
  std::string Path() const { return document ? document->Path() : std::string(); }

  void OnSessionEvent(CQXDBSession& of, SessionEvent event, std::u16string_view step_name,
                      std::span<const Change> changes) override;
  /// Throws what a Python listener threw since the last call.
  void RaiseFromListener();
  /// Gives steps of a model without a file their time, as a file would.
  void NumberSteps();

  std::unique_ptr<CQXDocBase> document;
  std::unique_ptr<CQXDBSession> snapshot;
  CQXDBSession* session = nullptr;
  bool read_only = false;
  std::optional<std::thread::id> owner;  ///< none: the first thread to use it
  int busy = 0;                          ///< calls that are at work, one within another
  std::vector<std::unique_ptr<CTransaction>> steps;
  /// Called with the part done of a long call, 0 to 1, or none; and how long between two calls.
  py::object progress;
  WorkWatch::Pause pause{50};
  py::object listener;  ///< called with (event, step name, table, operation, key arrays), or none
  std::exception_ptr from_listener;
  ModelFileReport report;  ///< of the file it was opened from
  /// By pool, as far as they were asked for; see RowsOf.
  std::map<std::uint16_t, std::shared_ptr<const SlotRows>> rows;
};

/// To be held while a call uses a model. Refuses a closed model, another thread than the owner's,
/// and editing what was opened to be read. Models of different threads are read at the same time;
/// edits take turns process-wide, as they may ask what is of the process: texts, colours of sets.
/// As long as it lives, Ctrl-C ends the library's work, and the model's `progress` is told of it.
/// Made and destroyed with the interpreter lock.
class Guard {
 public:
  enum Access { kRead, kEdit };
  explicit Guard(Handle& handle, Access access = kRead);
  ~Guard();
  Guard(const Guard&) = delete;
  Guard& operator=(const Guard&) = delete;

 private:
  Handle& handle_;
  std::unique_lock<std::recursive_mutex> turn_;
  WorkWatch watch_;
};

/// Holds the library without a model, for questions that no model answers.
class LibraryTurn {
 public:
  LibraryTurn();

 private:
  std::unique_lock<std::recursive_mutex> turn_;
};

/// One change of the model: does `work` in a transaction of that name, which joins an open step.
/// What `work` throws, or a pool refuses, leaves the model as it was.
template <class Work>
void Edit(Handle& handle, const std::string& name, Work&& work) {
  const Guard guard(handle, Guard::kEdit);
  ClearMessages();
  handle.from_listener = nullptr;
  CTransaction transaction(handle.session);
  if (!transaction.Begin(Utf16(name).c_str())) {
    Refuse(FaultKind::kRefused, "", "the model is telling its listeners of a step",
           "edit it after the listener has returned");
  }
  work(handle.Session());
  const auto commit = [&] {
    const py::gil_scoped_release others_may_run;
    return transaction.Commit() != 0;
  };
  if (!commit()) throw Fault(FaultKind::kRefused, LastRefusal(handle.Path()));
  handle.NumberSteps();
  handle.RaiseFromListener();
}

/// Looks for an interrupt and calls a Python function, if there is one, with the part done, 0 to 1;
/// what either throws ends the call. Takes the interpreter lock.
void TellProgress(const py::object& function, double done);

/// Binds each subject to the module.
void BindModel(py::module_& module, py::class_<Handle, std::shared_ptr<Handle>>& model);
void BindColumns(py::class_<Handle, std::shared_ptr<Handle>>& model);
void BindRecords(py::class_<Handle, std::shared_ptr<Handle>>& model);
void BindMesh(py::module_& module, py::class_<Handle, std::shared_ptr<Handle>>& model);
void BindPicture(py::class_<Handle, std::shared_ptr<Handle>>& model);
void BindSets(py::class_<Handle, std::shared_ptr<Handle>>& model);
void BindExchange(py::module_& module, py::class_<Handle, std::shared_ptr<Handle>>& model);
void BindImporting(py::class_<Handle, std::shared_ptr<Handle>>& model);
void BindGateway(py::class_<Handle, std::shared_ptr<Handle>>& model);
void BindSeeding(py::module_& module);
void BindOutside(py::module_& module);

/// The pool of a type code; throws when there is none.
DPoolBase& PoolOfCode(const CQXDBSession& session, int code);
/// A pool's name as people write it, and a record of it: "node", "node 12".
std::string PoolLabel(const DPoolBase& pool);
std::string Place(const DPoolBase& pool, Key key);

}  // namespace qx::python
