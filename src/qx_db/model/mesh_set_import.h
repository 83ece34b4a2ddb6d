#pragma once
// Mesh sets of another model file, and how they come into a model.
// Threads: the one that drives the session.

#include <memory>
#include <span>
#include <string>

#include "qx_db/core/session.h"
#include "qx_db/platform/outcome.h"

namespace qx {

class CStringArray;

/// Another model file, read into a session of its own.
///
/// What an import of sets brings: their nodes; their elements with all nodes of these; the records
/// that are kept by element key (orientation, special property, material axes, scale factors),
/// with the reference nodes that these need; and the sets. Lengths and other quantities go from
/// the file's units to the model's. References to anything else, properties and coordinate systems
/// say, lead to the model's own record of the same key, or nowhere. Within one import, what two
/// sets share comes in once and stays shared. A set takes its name, or a copy name where that is in
/// use, its colour, and as parent the set that was its parent if that one comes along.
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

 private:
  explicit ExternalMeshSets(CQXDBSession::PoolSetup setup) : file_(setup) {}

  CQXDBSession file_;
};

}  // namespace qx
