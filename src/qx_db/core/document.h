#pragma once
// The document: a session, the file it belongs to, and whether it was changed since.

#include <cstdint>
#include <string>

#include "qx_db/core/model_file.h"
#include "qx_db/core/session.h"

namespace qx {

/// One open model with its file. The session lives as long as the document; opening another file
/// replaces its contents, not the session.
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

  /// Empties the model and adds each pool's default record.
  void New();
  /// Replaces the model by a file's. On failure the document is as it was.
  Outcome Open(const std::string& path, ModelFileReport* report = nullptr);
  /// Saves to the document's path; fails when it has none.
  Outcome Save();
  Outcome SaveAs(const std::string& path);

 private:
  CQXDBSession session_;
  std::string path_;
  std::uint64_t saved_state_ = 0;
};

}  // namespace qx
