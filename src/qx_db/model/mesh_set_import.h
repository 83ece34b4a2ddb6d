#pragma once
// Mesh sets of another model file, and how they come into a model.
// Threads: the one that drives the session.

#include <memory>
#include <span>
#include <string>

#include "qx_db/bulk/model_import.h"
#include "qx_db/core/session.h"
#include "qx_db/platform/outcome.h"

namespace qx {

class CStringArray;

/// Another model file, from which mesh sets are brought by the importer of all records, as parts
/// (ImportOptions::as_part): with their mesh, what belongs to its elements, and what these refer
/// to. A set takes its name, or a copy name where that is in use, and as parent the set that was
/// its parent if that one comes along.
class QXDB_API ExternalMeshSets {
 public:
  /// Reads a model file with pools as `setup` adds them.
  static Result<std::unique_ptr<ExternalMeshSets>> Open(const std::string& path,
                                                        CQXDBSession::PoolSetup setup);

  /// Keys and names of the sets, in pool order, added to the lists.
  void List(TArray<Key>& keys, CStringArray& names) const;

  /// Imports sets as DPoolMset::Private_Import says; 0, possibly with part of it done, when a key
  /// names no set, a kept key is taken, or a pool refuses.
  int Import(CQXDBSession& into, std::span<const Key> keys, bool keep_keys, bool with_children,
             Key parent);

  /// What the last import did; null when there was none.
  const ImportReport* Report() const { return report_.get(); }

 private:
  explicit ExternalMeshSets(std::unique_ptr<ExternalModel> file) : file_(std::move(file)) {}

  std::unique_ptr<ExternalModel> file_;
  std::unique_ptr<ImportReport> report_;
};

}  // namespace qx
