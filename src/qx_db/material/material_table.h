#pragma once
// Materials of any file as one table of properties: what a host makes its own records of.
// Threads: functions from any; objects are values, one at a time for each.

#include <optional>
#include <string>
#include <vector>

#include "qx_db/lib/units.h"
#include "qx_db/platform/outcome.h"
#include "qx_db/platform/text.h"

namespace qx {

/// What a column of values means: the property by name ("elastic modulus"), its category of unit,
/// and the system that the values are in.
struct MaterialColumn {
  std::string property;
  int kind = unit::kNone;
  UnitSystem units;
};

/// One material: a value a column.
struct Material {
  CString category;  ///< empty where the file has none
  CString name;
  std::vector<double> values;
};

/// Invariant: every material has as many values as there are columns.
struct QXDB_API MaterialTable {
  CString title;                                 ///< of the library; empty where it has none
  std::optional<std::int32_t> numbering_offset;  ///< of a fluid library
  std::vector<MaterialColumn> columns;
  std::vector<Material> materials;

  /// Place of a property among the columns.
  std::optional<std::size_t> Find(std::string_view property) const;
};

/// A value of a category of unit in another system, by CQXUnitCtrl; the same value when the
/// systems are the same.
QXDB_API double ConvertValue(int kind, double value, const UnitSystem& from, const UnitSystem& to);

/// The table with all values in one system, such as a model's: session.Units().Model().
QXDB_API MaterialTable InUnits(const MaterialTable& table, const UnitSystem& system);

/// The table with other columns, matched by property and converted; 0 (of C for a
/// temperature) where it has none. `lost`
/// hears, by property, of how many materials a value other than 0 finds no place.
QXDB_API MaterialTable WithColumns(const MaterialTable& table, std::vector<MaterialColumn> columns,
                                   std::vector<std::string>* lost = nullptr);

/// A system from names such as "mm,N,kg,sec,C", in any order; a base that is not named keeps the
/// unit it has in `start`. Fails, naming the name, for an unknown or a second one of a base.
QXDB_API Result<UnitSystem> SystemNamed(std::string_view names, UnitSystem start);

/// The unit of a category in a system, such as "N/mm^2"; "" for a plain number.
QXDB_API std::string UnitText(int kind, const UnitSystem& system);

}  // namespace qx
