#pragma once
// What most commands begin and end with: a model is opened, records of it are picked, one step
// edits them, and the model is saved.

#include <memory>
#include <string>
#include <vector>

#include "qx_db/core/document.h"
#include "qx_db/core/state_hash.h"
#include "qx_db/core/transaction.h"
#include "qx_db/gateway/document.h"

#include "apps/qxdb/model/change_counter.h"
#include "apps/qxdb/model/open_model.h"
#include "host/session.h"

namespace qx::app {

/// A model that a command opened; where it is the one that is open in a shell, that one. This is
/// the one place where commands open and save models.
struct Model {
  /// All of the history stays in memory: what has to go of it is decided when it is saved.
  explicit Model(std::string of);
  ~Model();
  Model(const Model&) = delete;
  Model& operator=(const Model&) = delete;

  const std::string path;  ///< as it was named
  ModelFileReport report;  ///< of the file as it was read
  CQXDocBase& document;
  CQXDBSession& session = *document.GetDBSession();

  Outcome Open();
  Outcome OpenForEditing();
  /// Reads the file, also where a shell has it open; for who looks at the file itself.
  Outcome Reread();
  bool yes = false;                    ///< steps may be pushed out of the history
  std::vector<std::int64_t> undoable;  ///< states of the steps done when it was opened
  std::size_t pushed_out = 0;          ///< steps that saving it pushes out of the history

  /// To `path`, whatever was opened before. Saving fails where that would push steps out of the
  /// history and nobody said yes (history_bounds.h).
  Outcome SaveAs();
  /// Saves, but not in a dry run. A map of keys goes to a file beside it (SaveWith), in a dry run
  /// too.
  Outcome Save(bool dry_run = false, const std::string& map_file = {}, const std::string& map = {});

 private:
  Outcome NoteHistory(const Outcome& opened);
  Outcome ForgetPushedOut(Outcome saved);
  explicit Model(std::string of, std::unique_ptr<CQXDocBase> own);
  std::unique_ptr<CQXDocBase> own_;  // null where the shell's is worked on
};

/// Fails for a gateway text of which nothing was read, though there was something in it: it is no
/// such text, or of something else.
Outcome CheckRead(const std::string& file, bool changed, const dbgateway::DataBase& document);

/// What a command that brings a file into a model does where that model exists.
struct TargetOptions {
  bool add = false;
  bool replace = false;
};

/// Makes `model` the one to bring something into: a new one, or, to be added to, the one there is.
/// Fails where the file exists and neither was asked for, or is to be replaced and no model.
Outcome OpenTarget(Model& model, const TargetOptions& options);

/// Records of one pool, in list order.
struct Picked {
  DPoolBase* pool = nullptr;
  TArray<ITR> items;
};

/// The records of a pool with such keys ("1-5,9,100-" or "all"); fails when there are none.
Result<TArray<ITR>> PickItems(const Model& model, const DPoolBase& pool, const std::string& keys);
/// The same of a pool by its table name.
Result<Picked> PickRecords(const Model& model, const std::string& pool, const std::string& keys);
/// The same by a selection instead of keys, where there is one.
Result<Picked> PickRecords(const Model& model, const std::string& pool, const std::string& keys,
                           const std::string& where);

/// One step of editing: counts what it changes, and knows the states before and after.
class Edit {
 public:
  /// Expects the model as it was opened.
  explicit Edit(Model& model);
  ~Edit();
  Edit(const Edit&) = delete;
  Edit& operator=(const Edit&) = delete;

  /// Does `work`, which returns an Outcome, in a transaction of that name. Where it fails, or the
  /// model refuses the whole, the model is as it was, and the failure says why.
  template <class Work>
  Outcome Do(const std::u16string& name, Work&& work) {
    CTransaction transaction(&model_.session);
    transaction.Begin(name.c_str());
    if (Outcome done = work(); !done) return done;
    return transaction.Commit() ? Outcome() : RefusalOf(model_.path);
  }

  const ChangeCounter& Changes() const { return changes_; }

  /// Saves the model, but not in a dry run and not when nothing changed. A map of keys goes to a
  /// file beside it (SaveWith), in a dry run too.
  Outcome Save(bool dry_run = false, const std::string& map_file = {}, const std::string& map = {});
  bool IsSaved() const { return is_saved_; }

  /// "state 1234 -> 5678", and where it was not saved that.
  std::string StateLine() const;
  /// The members "before", "after" and "saved".
  void WriteStates(JsonText& json) const;

 private:
  std::string State() const { return HashText(KnownStateHash(model_.session)); }

  Model& model_;
  const std::string before_;
  ChangeCounter changes_;
  bool is_saved_ = false;
};

}  // namespace qx::app
