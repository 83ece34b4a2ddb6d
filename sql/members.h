#pragma once
// Members of records as values of SQLite, and back.
// Threads: any, for records that nobody changes meanwhile.

#include "sql/link.h"
#include "sql/table.h"

namespace qx::sql {

/// Gives the number, text or key that a column shows. `bytes` is the record, or the element of an
/// array that the column is of; `record` the record of both.
void GiveMember(sqlite3_context* to, const MemberColumn& column, const char* bytes,
                const TStructBase& record, const Units& units);

/// Puts a value where the column shows one, in model units. Fails, leaving the record as it was,
/// for a value that the member cannot hold; `place` names the record. The category of a number
/// that follows from other members is theirs at this moment.
Outcome TakeMember(const MemberColumn& column, sqlite3_value* value, char* bytes,
                   const TStructBase& record, const Units& units, CQXDBSession& session,
                   const std::string& place);

/// The columns of a table with the unit column behind them, where any has a unit.
std::vector<Column> WithUnit(const std::vector<MemberColumn>& members);

}  // namespace qx::sql
