#pragma once
// A file on its way to take the place of another.

#include <memory>
#include <string>

#include "qx_db/platform/outcome.h"
#include "qx_db/platform/raw_file.h"

namespace qx {

/// A file made anew beside the one that it is to replace, under a name that nobody can foresee and
/// that is no link. It goes away unless it takes the place.
class QXDB_API NewFile {
 public:
  /// `path` may be a link; the file that it leads to is the one to be replaced.
  static Result<std::unique_ptr<NewFile>> Create(const std::string& path);
  ~NewFile();
  NewFile(const NewFile&) = delete;
  NewFile& operator=(const NewFile&) = delete;

  /// The open file, claimed.
  RawFile& File() { return *file_; }
  /// The same to be kept open beyond this.
  std::shared_ptr<RawFile> Share() { return file_; }
  /// The name that it has on its way.
  const std::string& Name() const { return name_; }

  /// Makes what was written durable and gives it the place, so that after a crash the path holds
  /// the old file or the new one, whole. The old one's permissions go over; one that may not be
  /// written is not replaced.
  Outcome TakePlace();
  /// Whether it has the place, which may be so although making that durable failed.
  bool HasPlace() const { return has_place_; }

  /// Removes what killed processes left of new files for `path`. To be called by who alone may
  /// write there; what is open elsewhere stays.
  static void RemoveLeftovers(const std::string& path);

 private:
  NewFile(std::string target, std::string name, std::unique_ptr<RawFile> file);
  std::string target_;
  std::string name_;
  std::shared_ptr<RawFile> file_;
  bool has_place_ = false;
};

}  // namespace qx
