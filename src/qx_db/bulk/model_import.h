#pragma once
// Records of another model, or of a record file, into an open model.

#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "qx_db/core/session.h"
#include "qx_db/platform/outcome.h"

namespace qx {

/// Which records come. A pool that is chosen without keys comes whole; with nothing chosen, all
/// pools do.
struct ImportChoice {
  std::uint16_t type = 0;
  std::vector<Key> keys;
};

struct ImportOptions {
  std::vector<ImportChoice> choices;
  /// Records keep their keys and overwrite the model's of the same key; otherwise each receives a
  /// new one.
  bool keep_keys = false;
  /// What a chosen record refers to comes along, and what belongs to it by its key.
  bool with_references = true;
  /// References to records that do not come lead to the model's own of the same key; otherwise
  /// they are cleared, or leave their array, and a record that is nothing without them (an element
  /// without one of its nodes) does not come either.
  bool link_existing = false;
  /// The chosen mesh sets come as a part of a mesh, to be added to another. Sets, nodes and
  /// elements receive new keys; with `keep_keys` nodes and elements keep theirs, and one that is
  /// taken refuses the import. Every other record keeps its key where that is free; where it is
  /// taken, the model's own record stands for an equal one, and one that differs receives a new
  /// key. What is nothing without the mesh that comes (attributes that list its elements,
  /// assignments to its sets) comes too, with its lists cut to that; the sets above the chosen ones
  /// do not.
  bool as_part = false;
  /// Everything is done and reported, and taken back.
  bool dry_run = false;
};

/// What an import did, or would do.
struct QXDB_API ImportReport {
  struct Pool {
    std::uint16_t type = 0;
    std::int64_t overwritten = 0;
    std::int64_t joined = 0;  ///< those for which the model's own record stands
    /// Key outside and key in the model of every record that came or joined, in their order.
    std::vector<std::pair<Key, Key>> keys;
  };
  /// A reference that did not find what it names.
  struct Loose {
    std::uint16_t type = 0;
    Key key = 0;  ///< outside
    const char16_t* member = nullptr;
    std::uint16_t target = 0;
    Key target_key = 0;
    bool linked = false;  ///< leads to the model's own record of that key
    std::string Line(const CQXDBSession& session) const;
  };
  /// A record whose name is in use, and that came under another.
  struct Renamed {
    std::uint16_t type = 0;
    Key key = 0;  ///< outside
    std::string from;
    std::string to;
    std::string Line(const CQXDBSession& session) const;
  };
  /// A record of a part whose key is in use in the model.
  struct Clash {
    std::uint16_t type = 0;
    Key key = 0;   ///< outside
    Key here = 0;  ///< that of the model's equal record, or the one it received
    bool joined = false;
    std::string Line(const CQXDBSession& session) const;
  };
  std::vector<Pool> pools;  ///< those that anything came into
  std::vector<Clash> clashes;
  std::vector<Loose> loose;
  std::vector<Renamed> renamed;
  /// Chosen records that stayed behind, being nothing without what does not come.
  std::vector<std::pair<std::uint16_t, Key>> left;
  /// Records with numbers of a kind that is not known, which kept the units they had.
  std::vector<std::pair<std::uint16_t, Key>> unconverted;

  /// Records that came.
  std::int64_t Records() const;
  /// {"NODE": {"1": 101, ...}, ...}: the key map by gateway table.
  std::string KeyMapJson(const CQXDBSession& session) const;
};

/// Pools read from a file into a session of their own, keys standing where iterators will.
/// Threads: shares nothing; may be opened on any thread, and is used by one at a time.
class QXDB_API ExternalModel {
 public:
  /// Reads a model file, with the steps in it (ReadModel). Every reference in it must lead to a
  /// record of the file, and no chain of references within a pool may lead back to where it began;
  /// the failure lists those that do not, by pool and key.
  /// `prepare` changes the records first, while references are iterators; it may refuse.
  static Result<std::unique_ptr<ExternalModel>> Open(
      const std::string& path, CQXDBSession::PoolSetup setup,
      const std::function<Outcome(CQXDBSession&)>& prepare = {});
  /// An empty one, for pools that come from elsewhere; `path` is what failures name.
  explicit ExternalModel(CQXDBSession::PoolSetup setup, std::string path = {})
      : ExternalModel(std::make_unique<CQXDBSession>(setup), std::move(path)) {}

  CQXDBSession& Records() { return *records_; }
  const CQXDBSession& Records() const { return *records_; }
  const std::string& Path() const { return path_; }
  /// Fails where a chain of references within a pool leads back to where it began.
  Outcome CheckCircles() const;

 private:
  ExternalModel(std::unique_ptr<CQXDBSession> records, std::string path)
      : records_(std::move(records)), path_(std::move(path)) {}
  std::unique_ptr<CQXDBSession> records_;
  std::string path_;
};

/// Brings records in by the rules of the external stores of the model's pools, in the model's
/// units, as one undoable step; members that hold keys follow like references. Records that belong
/// to another by their key (an element's orientation) take its new key. Refused, with nothing
/// changed, when a chosen key is not there or a pool refuses a record.
///
/// The records with which every model begins (the default mesh set, the global coordinate system)
/// do not come twice: the model's own stands for one of the file that differs from it in nothing
/// but what it lists, and takes that in. One that differs comes under a new key. Where a pool
/// tells records apart by name, a name in use becomes a copy name.
QXDB_API Result<ImportReport> ImportRecords(CQXDBSession& session, const ExternalModel& from,
                                            const ImportOptions& options);

}  // namespace qx
