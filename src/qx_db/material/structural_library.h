#pragma once
// The binary library of structural materials.
// Threads: functions from any; objects are values, one at a time for each.

#include "qx_db/material/block_file.h"
#include "qx_db/material/material_library.h"

namespace qx {

inline constexpr std::u16string_view kStructuralMagic = u"PelorMatl";
/// What the file says of its columns. It carries two titles more than that: the two kinds of
/// damping have a title and no values.
inline constexpr std::uint32_t kStructuralColumnCount = 19;
inline constexpr std::uint32_t kTitlesWithoutValues = 2;
inline constexpr std::uint32_t kStructuralTitleCount =
    kStructuralColumnCount + kTitlesWithoutValues;

struct StructuralLibrary {
  CStringArray titles;
  MaterialCategories categories;
};

/// Reads a binary library (docs/material-files.md); every count is checked against what is left of
/// the file before memory is taken. Fails, naming file and place, for anything but a whole library.
/// One of fewer columns has fewer values a row; it, and bytes behind the end, make a file doubtful.
QXDB_API Result<StructuralLibrary> ReadStructuralLibrary(const std::string& path,
                                                         const MaterialLint& lint = {});
QXDB_API Result<StructuralLibrary> ReadStructuralLibrary(BlockReader& reader,
                                                         const MaterialLint& lint = {});

/// Writes one with the titles of StructuralColumns(); values beyond those of a row are 0. Fails,
/// and leaves the file as it was, for a name or a row that the form cannot hold.
QXDB_API Outcome WriteStructuralLibrary(const MaterialCategories& categories,
                                        const std::string& path);

}  // namespace qx
