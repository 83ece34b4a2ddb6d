#pragma once
// A file into a session and a session into a file, by the registry: all that import and export do
// besides opening and saving the model.
// Threads: one at a time for a session: its owner, who alone may import, or whoever reads a
// snapshot of it.

#include "exchange/format.h"

namespace qx::exchange {

struct ImportOptions {
  ReadOptions read;
  const Format* format = nullptr;  ///< null: found from the file
  /// Units of the file's numbers, as names: "mm" or "mm,N,ton". Empty: those that the file names,
  /// or else the session's current ones, which is told as taken for granted.
  std::string units;
  bool set_model_units = false;  ///< the model keeps the file's units: for a new one
  bool strict = false;           ///< any loss fails
};

struct ExportOptions {
  WriteOptions write;
  const Format* format = nullptr;  ///< null: found from the extension
  std::string units;               ///< to write in; empty: the session's current ones
  bool strict = false;
};

/// "mm,N,ton" on top of a system. Fails, naming no file, for a name that is no unit.
Result<UnitSystem> ParseUnits(const std::string& names, const UnitSystem& rest);

/// Tells that the units of what was read were taken for granted, since the file names none.
void AssumeUnits(const UnitSystem& units, LossReport& report);

/// Brings a file into a session as one undoable step. `report` tells what was lost, changed and
/// assumed, and every fault of a file that cannot be read, in the order of the file. A failure, and
/// a wish to stop, leave the session as it was; current units are left as they were, except with
/// set_model_units, where model and current units become the file's, as part of the step.
Outcome ImportFile(CQXDBSession& session, const std::string& path, const ImportOptions& options,
                   LossReport& report);

/// Writes a session, of which no two records of a pool may share a key. With `strict` a loss is
/// found before `path` is touched. A failure, and a wish to stop, leave the file that was there.
Outcome ExportFile(CQXDBSession& session, const std::string& path, const ExportOptions& options,
                   LossReport& report);

}  // namespace qx::exchange
