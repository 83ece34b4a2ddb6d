#pragma once
// Record files: the records of one pool in a file of their own, so that a part of a model (its
// saved views, its functions) travels without the rest. docs/record-file.md shows the form.

#include <cstdint>
#include <iosfwd>
#include <string>

#include "qx_db/bulk/model_import.h"
#include "qx_db/lib/units.h"
#include "qx_db/platform/outcome.h"
#include "qx_db/pool/pool_base.h"

namespace qx {

/// What stands before the records.
struct QXDB_API BulkHeader {
  std::string record;      ///< "tagTViewPoint"
  std::string pool;        ///< I/O name of the pool
  std::uint16_t type = 0;  ///< type code
  std::int64_t records = 0;
  std::uint64_t bytes = 0;     ///< of the records, to the end of the file
  std::uint64_t checksum = 0;  ///< XXH3 of these bytes
  UnitSystem units;            ///< of the numbers in them
  std::string schema;          ///< as SchemaToText gives it
};

/// Writes the file's mark and the header.
QXDB_API void qxWriteBulkHeader(std::ostream& out, const BulkHeader& header);

/// A record file by its path.
/// Threads: shares nothing; one thread at a time.
class QXDB_API CQXBulkHandler {
 public:
  explicit CQXBulkHandler(std::string path) : path_(std::move(path)) {}

  const std::string& Path() const { return path_; }
  /// Reads and checks the whole file. Fails, naming the place, for one that is not a record file,
  /// is damaged or cut.
  Outcome Open();
  /// The same for the bytes of one in memory; the path then only names them.
  Outcome OpenBytes(std::string bytes);
  /// Of an open file.
  const BulkHeader& Header() const { return header_; }

  /// Writes a pool, in the units given, over whatever has this name; the file is the old one or
  /// the new one, whole.
  Outcome Write(const DPoolBase& pool, const UnitSystem& units);
  /// Fills an empty pool from an open file, keys standing for references. Refuses a file of
  /// another record, and a schema that this program does not understand.
  Outcome Read(DPoolBase& pool) const;
  /// What the last Open or Write refused; success where it did not, or there was none.
  const Outcome& Fault() const { return fault_; }

 private:
  Outcome OpenWhole(std::string bytes);
  Outcome WriteWhole(const DPoolBase& pool, const UnitSystem& units);
  std::string path_;
  std::string content_;
  std::size_t body_ = 0;  // where the records start
  BulkHeader header_;
  Outcome fault_;
};

/// One pool to or from a record file: 1 or 0, the reason in `outcome` when given. A pool that is
/// not saved is passed over, but not by a handler that refused what was asked of it last.
QXDB_API int qxSaveDPool(CQXBulkHandler& file, const DPoolBase& pool, Outcome* outcome = nullptr);
QXDB_API int qxLoadDPool(CQXBulkHandler& file, DPoolBase& pool, Outcome* outcome = nullptr);

/// Brings the records of a record file into the model as one undoable step, as ImportRecords
/// does; references lead to the model's own records of the same keys.
QXDB_API Result<ImportReport> ImportRecordFile(CQXDBSession& session, const std::string& path,
                                               const ImportOptions& options);

}  // namespace qx
