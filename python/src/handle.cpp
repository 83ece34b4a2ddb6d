#include "handle.h"

#include <algorithm>
#include <chrono>
#include <pybind11/numpy.h>

#include "qx_db/core/read_snapshot.h"
#include "qx_db/lib/message.h"
#include "qx_db/platform/text.h"
#include "qx_db/record/verbs.h"

#include "host/session.h"

namespace qx::python {
namespace {

/// Keeps the text of the last message of each thread.
class LastMessage final : public IMessageSink {
 public:
  void Show(const Message& message) override { text = message.text; }
  static thread_local std::string text;
};
thread_local std::string LastMessage::text;

/// One at a time through the library; see Guard.
std::recursive_mutex& Turns() {
  static std::recursive_mutex turns;
  return turns;
}

/// Waits without the interpreter lock, which whoever has the turn may need to end it.
std::unique_lock<std::recursive_mutex> TakeTurn() {
  std::unique_lock turn(Turns(), std::try_to_lock);
  if (!turn.owns_lock()) {
    const py::gil_scoped_release others_may_run;
    turn.lock();
  }
  return turn;
}

const char* EventName(SessionEvent event) {
  switch (event) {
    case SessionEvent::kCommitted:
      return "committed";
    case SessionEvent::kUndone:
      return "undone";
    case SessionEvent::kRedone:
      return "redone";
    case SessionEvent::kRolledBack:
      return "rolled back";
    default:
      return "loaded";
  }
}

}  // namespace

void Require(const Outcome& outcome, FaultKind kind) {
  if (!outcome) throw Fault(kind, outcome.Error());
}

void Refuse(FaultKind kind, std::string place, std::string what, std::string remedy) {
  throw Fault(kind, {"", std::move(place), std::move(what), std::move(remedy)});
}

void ListenForMessages() {
  static LastMessage sink;
  SetMessageSink(&sink);
}

void ClearMessages() { LastMessage::text.clear(); }

Failure LastRefusal(const std::string& file) {
  std::string text = LastMessage::text;
  if (text.starts_with(file + ": ")) text.erase(0, file.size() + 2);
  if (text.empty()) return {file, "", "the edit was refused", "look for what hangs on it"};
  for (const char* divider : {"; ", ": "}) {
    const std::size_t at = text.rfind(divider);
    if (at != std::string::npos) return {file, "", text.substr(0, at), text.substr(at + 2)};
  }
  return {file, "", text, "change what it names first"};
}

Handle::Handle()
    : document(std::make_unique<CQXDocBase>(host::SetUpModel)),
      session(document->GetDBSession()),
      owner(std::this_thread::get_id()) {
  document->New();
  session->AddListener(this);
}

Handle::Handle(std::unique_ptr<CQXDBSession> of)
    : snapshot(std::move(of)), session(snapshot.get()) {
  session->AddListener(this);
}

Handle::~Handle() {
  busy = 0;
  try {
    Close();
  } catch (...) {  // there is nobody left to tell
  }
}

void Handle::Close() {
  if (IsClosed()) return;
  if (busy > 0) {
    Refuse(FaultKind::kRefused, "", "the model is at work", "close it when the call has returned");
  }
  const auto turn = TakeTurn();
  while (!steps.empty()) steps.pop_back();
  session->RemoveListener(this);
  session = nullptr;
  rows.clear();
  if (document) document->Release();
  document.reset();
  snapshot.reset();
  listener = progress = py::object();
}

void Handle::OnSessionEvent(CQXDBSession& of, SessionEvent event, std::u16string_view step_name,
                            std::span<const Change> changes) {
  const py::gil_scoped_acquire python;
  if (!listener || listener.is_none()) return;
  try {
    const auto count = static_cast<py::ssize_t>(changes.size());
    py::array_t<std::int32_t> pools(count), operations(count), keys(count);
    for (py::ssize_t i = 0; i < count; ++i) {
      const Change& change = changes[static_cast<std::size_t>(i)];
      pools.mutable_at(i) = change.type;
      operations.mutable_at(i) = change.operation;
      keys.mutable_at(i) = KeyOf(change.item);
    }
    static_cast<void>(of);
    listener(EventName(event), Utf8(step_name), pools, operations, keys);
  } catch (...) {
    // Through the library it would keep the listeners behind it from hearing of the step.
    if (!from_listener) from_listener = std::current_exception();
  }
}

void Handle::RaiseFromListener() {
  if (!from_listener) return;
  std::rethrow_exception(std::exchange(from_listener, nullptr));
}

void Handle::NumberSteps() {
  if (!session->History().Done().empty() && session->History().Done().back().time_ms == 0) {
    using namespace std::chrono;
    const auto now = duration_cast<milliseconds>(system_clock::now().time_since_epoch()).count();
    session->NumberSteps(1, now);
  }
}

Guard::Guard(Handle& handle, Access access)
    : handle_(handle),
      watch_([&handle](double done) { TellProgress(handle.progress, done); }, handle.pause) {
  if (access == kEdit) turn_ = TakeTurn();
  if (handle.IsClosed()) {
    Refuse(FaultKind::kClosed, "", "the model is closed", "open it again");
  }
  if (!handle.owner) handle.owner = std::this_thread::get_id();
  if (*handle.owner != std::this_thread::get_id()) {
    Refuse(FaultKind::kThread, "", "the model belongs to the thread that opened it",
           "give the other thread a model.snapshot() of its own");
  }
  if (access == kEdit && handle.read_only) {
    throw Fault(FaultKind::kRefused, {handle.Path(), "", "was opened to be read",
                                      "open it for editing, or edit a model.snapshot()"});
  }
  if (access == kEdit && handle.busy > 0) {
    Refuse(FaultKind::kRefused, "", "the model is at work", "edit it when the call has returned");
  }
  ++handle.busy;
}

Guard::~Guard() { --handle_.busy; }

LibraryTurn::LibraryTurn() : turn_(TakeTurn()) {}

void TellProgress(const py::object& function, double done) {
  const py::gil_scoped_acquire python;
  if (PyErr_CheckSignals() != 0) throw py::error_already_set();
  if (function && !function.is_none()) function(done);
}

DPoolBase& PoolOfCode(const CQXDBSession& session, int code) {
  DPoolBase* pool =
      code >= 0 && code <= 0xFFFF ? session.GetDataPool(static_cast<std::uint16_t>(code)) : nullptr;
  if (!pool) {
    Refuse(FaultKind::kMissing, "pool " + std::to_string(code), "the model has no such pool",
           "see list(model.pools)");
  }
  return *pool;
}

std::string PoolLabel(const DPoolBase& pool) {
  std::string name = pool.GetAPIName().ToUtf8();
  std::transform(name.begin(), name.end(), name.begin(),
                 [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c + 32) : c; });
  return name;
}

std::string Place(const DPoolBase& pool, Key key) {
  return PoolLabel(pool) + " " + std::to_string(key);
}

}  // namespace qx::python
