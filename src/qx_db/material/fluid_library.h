#pragma once
// Fluid and particle materials: the keyword file of fixed records, and the binary library.
// Threads: functions from any; objects are values, one at a time for each.

#include <array>
#include <cstdint>

#include "qx_db/material/block_file.h"
#include "qx_db/material/material_library.h"

namespace qx {

inline constexpr std::u16string_view kFluidMagic = u"PelorMatl";
inline constexpr std::u16string_view kParticleMagic = u"KavexVRNCFDParticleMatl";

/// A value of a fluid material. The keyword file is in SI units; a value is kept as what it says
/// times `factor`, which brings it into `units`.
struct FluidProperty {
  std::u16string_view keyword;
  std::u16string_view unless;  ///< a record with this is not meant, whatever the keyword
  int width;                   ///< characters of the value, from character 30 on
  double factor;
  std::string_view property;
  int kind;
  UnitSystem units;
};

inline constexpr std::size_t kFluidPropertyCount = 25;
/// In the order in which keywords are tested, which is that of a material's values.
QXDB_API const std::array<FluidProperty, kFluidPropertyCount>& FluidProperties();

struct FluidMaterial {
  CString name;
  std::array<double, kFluidPropertyCount> values{};
  friend bool operator==(const FluidMaterial&, const FluidMaterial&) = default;
};

/// A library of fluid materials.
struct FluidLibrary {
  static constexpr std::int32_t kFirstNumber = 13;
  CString title;  ///< the text of a keyword file's first record, without blanks around it
  /// What the host adds to the place of a material to number it.
  std::int32_t numbering_offset = kFirstNumber;
  std::vector<FluidMaterial> materials;
  friend bool operator==(const FluidLibrary&, const FluidLibrary&) = default;
};

/// Reads a keyword file (docs/material-files.md). Fails, naming file and record, for what is none.
/// A file cut inside a record, and one with more or fewer materials than it counts, is doubtful: of
/// those that it counts it has as many as there are records for.
QXDB_API Result<FluidLibrary> ReadFluidFile(const std::string& path, const MaterialLint& lint = {});
QXDB_API Result<FluidLibrary> ParseFluidFile(std::string_view bytes, const std::string& file,
                                             const MaterialLint& lint = {});
/// Writes one. Names come back in upper case, for the reader has it so.
QXDB_API Outcome WriteFluidFile(const FluidLibrary& library, const std::string& path);

/// Reads and writes the binary library. What is written reads back unchanged.
QXDB_API Result<FluidLibrary> ReadParticleLibrary(const std::string& path,
                                                  const MaterialLint& lint = {});
QXDB_API Result<FluidLibrary> ReadParticleLibrary(BlockReader& reader,
                                                  const MaterialLint& lint = {});
QXDB_API Outcome WriteParticleLibrary(const FluidLibrary& library, const std::string& path);

}  // namespace qx
