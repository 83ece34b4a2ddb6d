#pragma once
// Schemas as they stand in a model file, and records read through the schema of another version.
// Threads: functions from any; objects are values, one at a time for each.

#include <deque>
#include <memory>
#include <string>

#include "qx_db/platform/outcome.h"
#include "qx_db/record/verbs.h"

namespace qx {

/// A schema as text, a member a line: "_NODE_IDS 5 16 8" for name, kind, size, element size.
QXDB_API std::string SchemaToText(const Schema& schema);

/// Reads images written under a stored schema into records of the present one. Members are
/// matched by name; a member that the file lacks gets its default. A member that this version
/// does not know, or that changed its form, is refused.
class QXDB_API ImageReader {
 public:
  /// `stored` is the text of SchemaToText, from outside.
  static Result<std::unique_ptr<ImageReader>> Make(const Schema& present,
                                                   const std::string& stored);

  /// "" or what is wrong with the image.
  std::string Check(const char* image, std::uint64_t size) const {
    return CheckImage(stored_ ? *stored_ : present_, image, size);
  }
  /// Fills the record from an image that passed Check.
  void Read(const char* image, TStructBase& record) const;

 private:
  explicit ImageReader(const Schema& present) : present_(present) {}

  const Schema& present_;
  std::unique_ptr<Schema> stored_;  // null when the same as the present one
  std::deque<std::u16string> names_;
};

}  // namespace qx
