#pragma once
// Named, undoable units of work.

#include <cstddef>
#include <functional>
#include <string>
#include <variant>
#include <vector>

#include "qx_db/lib/units.h"
#include "qx_db/platform/text.h"
#include "qx_db/record/types.h"

namespace qx {

class CQXDBSession;

/// Groups edits into one undoable step. A transaction inside another joins it: its commit leaves
/// the step open, its rollback takes back only its own part. Destruction rolls back what was not
/// committed. Threads: the one that drives the session, which should outlive it.
class QXDB_API CTransaction {
 public:
  explicit CTransaction(CQXDBSession* session) : session_(session) {}
  ~CTransaction();
  CTransaction(const CTransaction&) = delete;
  CTransaction& operator=(const CTransaction&) = delete;

  /// Opens the transaction under a name that the user sees; of one longer than kMaxStepName (65535
  /// units of UTF-16) the step has the beginning, at once and in a file. 0 when there is no
  /// session, this object is open already, or the session is telling its listeners of a step.
  int Begin(const char16_t* name);
  /// Processes relations and ends the step. 0, with everything rolled back, when a pool refuses; 0,
  /// with everything as it was and still open, while a transaction inside this one is. `notify` is
  /// accepted for callers that pass it and has no effect.
  int Commit(int notify = 1);
  /// Takes back every change since Begin, and ends the transactions inside. 0 when the transaction
  /// is not open.
  int Rollback();
  bool IsOpen() const { return open_; }

 private:
  friend class CQXDBSession;

  CQXDBSession* session_;
  CTransaction* outer_ = nullptr;  // that this one is in, while it is open
  bool open_ = false;
  std::size_t mark_ = 0;
  CQXUnitCtrl units_;  // at Begin
};

/// A parameter of a command.
using CommandParam = std::variant<std::int32_t, double, ITR, CString>;

/// A named command that runs as one undoable step.
class QXDB_API CQXCommandObj {
 public:
  /// The work of a command: edits the session, returns 1, or 0 to have it all rolled back.
  using Handler = std::function<int(CQXDBSession&, const std::vector<CommandParam>&)>;

  /// Makes a command known to the process by name; a later handler replaces an earlier one.
  static void Register(const CString& name, Handler handler);

  CQXCommandObj(CQXDBSession* session, const CString& name) : session_(session), name_(name) {}
  void AddParam(CommandParam value) { params_.push_back(std::move(value)); }
  /// Runs the registered handler in a transaction named like the command. 1 when it committed;
  /// 0 for an unknown command, a handler that failed, or a refused commit.
  int Execute();

 private:
  CQXDBSession* session_;
  CString name_;
  std::vector<CommandParam> params_;
};

}  // namespace qx
