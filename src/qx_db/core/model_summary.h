#pragma once
// What a model file says of its model as a whole, so that a question about that alone need not read
// the records.
// Threads: any, for a file each; a writer is one thread's.

#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <utility>
#include <vector>

#include "qx_db/core/model_file.h"
#include "qx_db/record/values.h"

namespace qx {

/// Of the state in the pages of a file. Its rows in table `meta` are described in
/// docs/model-file.md.
struct QXDB_API ModelSummary {
  struct Box {
    tagTVector3<double> low, high;
  };
  std::uint64_t state = 0;                        ///< CQXDBSession::StateHash
  std::map<std::int32_t, std::int64_t> elements;  ///< how many, by their type codes
  std::optional<Box> box;                         ///< of the nodes, in model units; none without

  using TextRows = std::vector<std::pair<std::string, std::string>>;
  /// As rows of `meta`, name and value.
  TextRows Rows() const;
  /// None where a row is missing or says what no writer writes.
  static std::optional<ModelSummary> FromRows(const TextRows& rows);
};

/// A model file of which only a part has been read.
struct QXDB_API ModelGlance {
  ModelFileReport report;
  ModelSummary summary;
};

/// Looks at a model file: checks every page, and gives what the file says of itself. `session`,
/// which must be empty, gets the model's units and the records of `pools`, keys standing for their
/// references. None where the file does not say enough, or something about it is not as it should
/// be: it was written by an older program, has steps since it was saved, is damaged, or is being
/// written. Then reading it whole (ReadModel) tells more; the session may hold anything.
///
/// A summary is what the writer of the file said. Who has read the file whole can compare it with
/// the records: FindSummaryFault.
QXDB_API std::optional<ModelGlance> GlanceAtModel(const std::string& path, CQXDBSession& session,
                                                  std::span<const std::uint16_t> pools);

/// "" or what the summary of the file at `path` says differently than `session`, which has been
/// read from it. "" where the file has no summary that describes such a state.
QXDB_API std::string FindSummaryFault(const std::string& path, const CQXDBSession& session);

/// Makes the summary of a model while it is written: units first, then the pools with the images of
/// their records, by ascending type code. Pools in another order make none.
class SummaryWriter {
 public:
  explicit SummaryWriter(const CQXUnitCtrl& units);
  ~SummaryWriter();
  void BeginPool(const DPoolBase& pool);
  void Add(const TStructBase& record, std::span<const char> image);
  /// None where pools came in another order or a node has a coordinate that is no finite number.
  std::optional<ModelSummary> Summary() const;

 private:
  struct Impl;
  std::unique_ptr<Impl> impl_;
};

}  // namespace qx
