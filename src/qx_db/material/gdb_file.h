#pragma once
// The .gdbp material library, and its older form .gdb: a text file with its own units and a line of
// fields per material.
// Threads: functions from any; objects are values, one at a time for each.

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "qx_db/material/material_library.h"

namespace qx {

/// The units that a file names, by their places in UnitsOf(). Mass is always in kg.
struct T_UNIT_INDEX {
  std::int32_t force = 0;
  std::int32_t length = 0;
  std::int32_t heat = 0;
  std::int32_t temperature = 0;
  std::int32_t flag = 0;  ///< 1 once a unit line was read
  std::int32_t time = 0;  ///< sec, unless the unit line has a fifth name
  friend bool operator==(const T_UNIT_INDEX&, const T_UNIT_INDEX&) = default;
};

/// The system that values of a file are in; requires valid indices.
QXDB_API UnitSystem SystemOfFile(const T_UNIT_INDEX& units);

/// The units of "**Unit, force, length, heat, temperature[, time]" by name, whatever the case, save
/// that "m" and "M" stay apart before N and J. In the older form heat and temperature may be left
/// out: J and C. On failure returns what is wrong, and `units` is unchanged.
QXDB_API std::optional<std::string> ParseUnitLine(std::string_view line, bool gdbp,
                                                  T_UNIT_INDEX& units);

/// A material has the first 17 of StructuralColumns(); the older form gives the first 12.
inline constexpr std::size_t kGdbpValues = 17;
inline constexpr std::size_t kGdbValues = 12;

struct GdbMaterial {
  CString name;
  std::array<double, kGdbpValues> values{};
  T_UNIT_INDEX units;  ///< of the file that it was read from
};

/// Converts values of all materials.
void ConvertMaterials(std::vector<GdbMaterial>& materials, const UnitSystem& from,
                      const UnitSystem& to);

/// A file as it was read: values in SystemOfFile(units).
struct GdbFile {
  T_UNIT_INDEX units;
  CodePage page;           ///< UTF-8 when the file said so by its mark
  std::size_t values = 0;  ///< that a line had; the others are 0
  std::vector<GdbMaterial> materials;
};

/// Whether a name ends in ".gdbp", and so has the newer form. Any other name has the older one.
QXDB_API bool IsGdbp(std::string_view path);

/// Reads a file (docs/material-files.md). Lines with another number of fields than the form has
/// are left out; `lint`, if any, hears of them. Fails, naming file and line, for what is no text,
/// data before version and units, an unknown version or unit, a line of over 4096 characters or a
/// number too large; a strict one also for a file that names no version or units at all.
QXDB_API Result<GdbFile> ReadGdbFile(const std::string& path, const CodePage& page,
                                     const MaterialLint& lint = {});
QXDB_API Result<GdbFile> ParseGdbFile(std::string bytes, const std::string& file, bool gdbp,
                                      const CodePage& page, const MaterialLint& lint = {});

/// How a file is written.
struct GdbStyle {
  std::string_view version;
  std::string (*number)(double);
};
/// As CMaterialGDB::Save has it: six digits, and a version that it refuses to read.
extern const GdbStyle kSavedStyle;
/// Numbers of full precision and a version that is read.
QXDB_API extern const GdbStyle kReadableStyle;

/// The titles of a header line, "Name" first.
QXDB_API std::vector<CString> GdbTitles();

/// Writes a file in the newer form; values are in SystemOfFile(units) with sec. Fails, and leaves
/// the file as it was, for a name or a value that a line cannot hold so that it reads back.
QXDB_API Outcome WriteGdbFile(const std::string& path, const std::vector<GdbMaterial>& materials,
                              const std::vector<CString>& titles, const T_UNIT_INDEX& units,
                              const CodePage& page, const GdbStyle& style);

}  // namespace qx
