#pragma once
// The model that is open in a shell or while a script runs.

#include <string>

#include "qx_db/core/document.h"

namespace qx::app {

/// While this lives, commands that name its path work on its document instead of one of their own
/// (model.h), and read the file again only where the document is not as the file is: another
/// program wrote it, or a command changed the model and did not save it, as in a dry run. So each
/// command sees what it would see alone, and leaves what it would leave. One at a time.
class OpenModel {
 public:
  /// `file`: where the model really is, if not at `path`.
  explicit OpenModel(std::string path, std::string file = {});
  ~OpenModel();
  OpenModel(const OpenModel&) = delete;
  OpenModel& operator=(const OpenModel&) = delete;

  /// Null when none is open.
  static OpenModel* Current();

  const std::string& Path() const { return path_; }
  const std::string& File() const { return file_; }
  CQXDocBase& Document() { return document_; }

  /// Reads the file where that is needed.
  Outcome Open(ModelFileReport& report);
  /// Whether `path` names this model and no command has it already; then it has.
  bool Lend(const std::string& path);
  /// The command is at its end.
  void TakeBack();
  /// The document is about to be no more what Open left.
  void ReadNextTime() { is_read_ = false; }

 private:
  /// What is never the same once anything in the document was changed.
  struct Mark {
    std::uint64_t revisions = 0;
    std::size_t done = 0, undone = 0;
    std::int64_t last = 0;
    UnitSystem stored, shown;
    bool operator==(const Mark&) const = default;
  };
  Mark MarkOf() const;

  const std::string path_;
  const std::string file_;
  CQXDocBase document_;
  ModelFileReport report_;
  Mark mark_;
  bool is_read_ = false;
  bool is_lent_ = false;
};

/// Where the model of that name really is.
std::string FileOf(const std::string& path);

}  // namespace qx::app
