#pragma once
// The columns of a pool's tables, derived from the schema of its records.
// Threads: values; what is made from a schema never changes.

#include <string>
#include <vector>

#include "qx_db/core/session.h"

namespace qx::sql {

/// What SQLite takes the values of a column for.
enum class ColumnType { kInteger, kReal, kText };
std::string_view ColumnTypeName(ColumnType type);

/// A column of any table.
struct Column {
  std::string name;
  ColumnType type = ColumnType::kInteger;
  std::string meaning = {};  ///< for people
  std::string unit = {};     ///< quantity of its numbers, "" for none: "length"
  int category = unit::kNone;
  bool is_hidden = false;  ///< not part of `SELECT *`
  bool has_unit = false;   ///< its numbers depend on the units asked for
};

/// A column that shows a member of a record, or a part of one.
struct MemberColumn : Column {
  enum class Form : std::uint8_t { kInt32, kInt64, kReal, kText, kReference, kLow24, kHigh8 };
  Form form = Form::kInt32;
  std::int32_t offset = 0;   ///< in the record, or in an element of the array
  const Row* row = nullptr;  ///< the member
  int number = 0;            ///< as UnitRule counts the numbers of the row
  std::int32_t text_units = 0;
  std::uint16_t target = 0;  ///< type code of the pool that a reference points into
};

/// An array member: a table of its own with a row for each element.
struct ArrayColumns {
  std::string name;  ///< of the table: "element_node"
  const Row* row = nullptr;
  std::vector<MemberColumn> columns;  ///< of an element
};

/// What the tables of one pool consist of. The first column is the key.
struct PoolColumns {
  std::string name;
  DPoolBase* pool = nullptr;
  std::vector<MemberColumn> columns;
  std::vector<ArrayColumns> arrays;
  int position = -1;  ///< column of the first coordinate of a node; -1 in other pools
};

/// The name of a pool's table: that of its gateway table, in words where that is a mere
/// abbreviation.
std::string TableName(const DPoolBase& pool);

/// The tables of a pool. A column is named as the gateway field that carries its member; without
/// one, as the member. Names are in small letters; no two of a table are the same.
PoolColumns ColumnsOf(DPoolBase& pool);

/// Quantity of a category and the unit of it in the model: "length [m]"; "" for none.
std::string UnitText(int category, const CQXUnitCtrl& units);

}  // namespace qx::sql
