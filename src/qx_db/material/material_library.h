#pragma once
// A library of structural materials in memory, and the columns of its values.
// Threads: functions from any; objects are values, one at a time for each.

#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "qx_db/lib/units.h"
#include "qx_db/material/text_lines.h"
#include "qx_db/platform/stdio_file.h"

namespace qx {

/// One material: its name and its values, in the order of StructuralColumns().
struct MaterialRow {
  CString name;
  std::vector<double> values;
  friend bool operator==(const MaterialRow&, const MaterialRow&) = default;
};

/// A named group of materials: a standard, a family.
struct MaterialCategory {
  CString name;
  std::vector<MaterialRow> rows;
  friend bool operator==(const MaterialCategory&, const MaterialCategory&) = default;
};
using MaterialCategories = std::vector<MaterialCategory>;

/// A column of values: the title that the binary library carries, the property it means whatever
/// the file, and its category of unit.
struct StructuralColumn {
  std::string_view title;
  std::string_view property;
  int kind;
};

/// The 20 columns of values. A text table holds the first 16 of them, a binary library the first
/// 18, a .gdbp file the first 17 and a .gdb file the first 12. Values of tables and binary
/// libraries are in LibraryUnits().
QXDB_API std::span<const StructuralColumn> StructuralColumns();
inline constexpr std::size_t kTextValues = 16;
inline constexpr std::size_t kBinaryValues = 18;

/// mm, N, kg, sec, C, J, deg.
QXDB_API const UnitSystem& LibraryUnits();

/// A system of named units; the bases that are not named have the units of LibraryUnits(). All
/// names must be known.
UnitSystem SystemOf(std::string_view length, std::string_view force, std::string_view heat = "J",
                    std::string_view temperature = "C");

/// Fails unless a file of this name may be written: a file marked as read-only, a directory and a
/// device are left alone.
Outcome CheckMayWrite(const std::string& path);

/// Fails when a name is not well-formed UTF-16, and so could not be written to a text without loss.
QXDB_API Outcome CheckName(const CString& name, const std::string& file);

/// Fails when a value of a material is not finite: no form of file can hold it for every reader.
Outcome CheckValues(const CString& name, std::span<const double> values, const std::string& file);

}  // namespace qx
