#pragma once
// Units of records where they stand, in a pool or on their way into one: what is given in the
// coordinates of a system has angles where that counts in them, and a record alone does not know
// the system that it names. Whoever
// converts records of any type does so here.
// Threads: as the records and the units they are given.

#include "qx_db/export.h"
#include "qx_db/record/geometry_records.h"

namespace qx {

class CQXUnitCtrl;

/// Converts the members with a unit of a record whose references are iterators: from current to
/// model units, and back. The points of a coordinate system count as the system does that it is
/// given in: their angles are degrees in every unit system, and stay.
QXDB_API void ConvertUnitsIn(TStructBase& record, const CQXUnitCtrl& units);
QXDB_API void ConvertUnitsOut(TStructBase& record, const CQXUnitCtrl& units);

/// The same of a coordinate system whose reference is a key, by the type of the system it names.
QXDB_API void ConvertUnitsIn(tagTCord& system, std::int32_t reference_type,
                             const CQXUnitCtrl& units);
QXDB_API void ConvertUnitsOut(tagTCord& system, std::int32_t reference_type,
                              const CQXUnitCtrl& units);

}  // namespace qx
