#pragma once
// A file on its way to take the place of another.

#include <memory>
#include <string>

#include "qx_db/platform/outcome.h"
#include "qx_db/platform/raw_file.h"

namespace qx {

/// A file made anew beside the one that it is to replace, under a name that nobody can foresee and
/// that is no link. It goes away unless it takes the place. What a process that was killed left of
/// one goes when the next is made for the same path.
///
/// Threads: each object one at a time; any number of them, for one path too.
class QXDB_API NewFile {
 public:
  /// `path` may be a link to a file, which is the one to be replaced then; one that leads to none
  /// is refused. Cleans up leftovers.
  static Result<std::unique_ptr<NewFile>> Create(const std::string& path);
  ~NewFile();
  NewFile(const NewFile&) = delete;
  NewFile& operator=(const NewFile&) = delete;

  /// The open file, claimed, so that nobody takes it for a leftover.
  RawFile& File() { return *file_; }
  /// The same to be kept open beyond this.
  std::shared_ptr<RawFile> Share() { return file_; }
  /// The name that it has on its way. Another file may be put there instead, to take the place.
  const std::string& Name() const { return name_; }

  /// Makes what was written durable and gives it the place, so that after a crash the path holds
  /// the old file or the new one, whole. The old one's permissions go over; one that may not be
  /// written is not replaced.
  Outcome TakePlace();
  /// Whether it has the place, which may be so although making that durable failed.
  bool HasPlace() const { return has_place_; }

  /// "<target>.0123456789abcdef.new" with digits of chance; of a long name its beginning. As that
  /// of any file on its way, what is left of one goes by RemoveLeftovers.
  static std::string RandomName(const std::string& target);

  /// Removes what killed processes left of new files for `path`: plain files of such names that
  /// nobody has claimed; where the file system knows no claims, those a day old.
  static void RemoveLeftovers(const std::string& path);

 private:
  NewFile(std::string target, std::string name, std::unique_ptr<RawFile> file);
  int Follow();
  std::string target_;
  std::string name_;
  std::shared_ptr<RawFile> file_;
  bool has_place_ = false;
};

}  // namespace qx
