#pragma once
// The document: a session, the file it belongs to, and whether it was changed since.

#include <cstdint>
#include <memory>
#include <string>

#include "qx_db/core/model_file.h"
#include "qx_db/core/session.h"
#include "qx_db/core/step_keeper.h"

namespace qx {

/// One open model with its file. The session lives as long as the document; opening another file
/// replaces its contents, not the session.
///
/// A document may keep its steps: from then on each committed, undone and redone step is in the
/// file, durable as its options say, and the file is no one else's to write.
///
/// Threads: the document is used on the thread that drives its session.
class QXDB_API CQXDocBase {
 public:
  explicit CQXDocBase(CQXDBSession::PoolSetup setup);
  virtual ~CQXDocBase() = default;
  CQXDocBase(const CQXDocBase&) = delete;
  CQXDocBase& operator=(const CQXDocBase&) = delete;

  CQXDBSession* GetDBSession() { return &session_; }
  const CQXDBSession* GetDBSession() const { return &session_; }
  /// UTF-8 path of the model file; empty for a model that was never saved.
  const std::string& Path() const { return path_; }
  /// Whether the model differs from what was last opened or saved.
  bool IsModified() const { return session_.StateHash() != saved_state_; }

  /// Empties the model and adds each pool's default record. Steps are no longer kept. 0, changing
  /// nothing, while a transaction is open or a step is being told of.
  int New();
  /// Replaces the model by a file's, to be read only or saved as a whole: its last state, with its
  /// history. On failure the document is as it was. Steps are no longer kept.
  Outcome Open(const std::string& path, ModelFileReport* report = nullptr);
  /// The same, with the right to write: refused while another document has it. Keeps the steps.
  Outcome OpenForEditing(const std::string& path, const DurabilityOptions& options = {},
                         ModelFileReport* report = nullptr);
  /// For a model that becomes the one worked on: lets its pools bring in line what a file may have
  /// left open (DPoolBase::OnAfterActive), as one step that can be undone. A model in line is left
  /// as it is, without a step. 0, changing nothing, when a pool refuses.
  int Activate();
  /// Saves to the document's path; fails when it has none, or when the file there was changed since
  /// it was opened, or while a transaction is open. The history goes with the model, within its
  /// limits; steps that were kept in the file are folded in.
  Outcome Save();
  /// The same to another path, which becomes the document's. Steps kept are kept there.
  Outcome SaveAs(const std::string& path);
  /// Saves, and keeps the steps from then on.
  Outcome KeepSteps(const DurabilityOptions& options = {});
  /// What keeps the steps; null when nothing does.
  StepKeeper* Keeper() { return keeper_.get(); }
  /// Makes every step durable, lets go of the file, and keeps no more steps.
  void Release();
  /// Of the file as the document last read or wrote it.
  const ModelStamp& Stamp() const { return stamp_; }

 private:
  Outcome Load(const std::string& path, ModelFileReport* report, ModelContinuation* continuation);
  Outcome CheckUnchanged(const std::string& path) const;
  Outcome SaveElsewhere(const std::string& path, std::unique_ptr<StepKeeper>& other);

  CQXDBSession session_;
  std::string path_;
  std::uint64_t saved_state_ = 0;
  ModelStamp stamp_;                    // of the file, as of then
  std::unique_ptr<StepKeeper> keeper_;  // goes before the session
};

}  // namespace qx
