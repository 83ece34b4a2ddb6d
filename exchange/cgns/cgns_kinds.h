#pragma once
// The element types, units and boundary conditions of CGNS files.

#include <cstdint>
#include <optional>
#include <span>
#include <string_view>

#include "qx_db/lib/units.h"

namespace qx::exchange {

namespace cgns {
inline constexpr std::int64_t kMixed = 20;
inline constexpr std::int64_t kPolygon = 22;     ///< NGON_n
inline constexpr std::int64_t kPolyhedron = 23;  ///< NFACE_n

/// What a mesh set is in a file: the `tag` of a set's tag. Boundary conditions and families add the
/// number of their type.
inline constexpr std::int32_t kSection = 0;
inline constexpr std::int32_t kRegion = 1;
inline constexpr std::int32_t kZone = 2;
inline constexpr std::int32_t kCondition = 100;
inline constexpr std::int32_t kFamily = 200;
}  // namespace cgns

/// An element type of the format.
struct CgnsKind {
  std::string_view name;    ///< "HEXA_20"
  std::int64_t nodes = 0;   ///< of an element
  std::int32_t code = 0;    ///< element type code that it is read as; corners come first
  bool is_reduced = false;  ///< nodes are left out
};

/// By its number in the enumeration ElementType_t; none for mixed elements, polygons, polyhedra and
/// numbers that there are not.
std::optional<CgnsKind> FindCgnsKind(std::int64_t number);
/// The number of an element type code from 1 to 15.
std::int32_t CgnsNumberOf(std::int32_t code);

/// Names of the enumeration BCType_t, from 0.
std::span<const std::string_view> CgnsConditions();
/// The number of a name; that of BCTypeUserDefined, 1, for one that there is not.
std::int32_t CgnsConditionOf(std::string_view name);

/// "Millimeter" of a unit; "UserDefined" for one that the format has no name for.
std::string_view CgnsUnitOf(UnitBase base, std::string_view unit);
/// The units of a node DimensionalUnits, whose text has 32 characters for each of mass, length,
/// time, temperature and angle; none without a length that is known.
std::optional<UnitSystem> UnitsOfCgns(std::string_view text);

}  // namespace qx::exchange
