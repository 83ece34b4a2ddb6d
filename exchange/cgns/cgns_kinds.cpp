#include "exchange/cgns/cgns_kinds.h"

#include <algorithm>
#include <iterator>
#include <string>

#include "qx_db/record/element_types.h"

namespace qx::exchange {
namespace {

using namespace element;

// By number, from 0, as the enumeration ElementType_t of CGNS's mid-level library has them.
// "Element numbering conventions" of its Standard Interface Data Structures puts corners first,
// then the middles of edges, those of faces and inner nodes. Elements of higher order become those
// of their corners.
constexpr CgnsKind kKinds[] = {
    {"ElementTypeNull"},
    {"ElementTypeUserDefined"},
    {"NODE", 1, kPoint},
    {"BAR_2", 2, kLine2},
    {"BAR_3", 3, kLine3},
    {"TRI_3", 3, kTri3},
    {"TRI_6", 6, kTri6},
    {"QUAD_4", 4, kQuad4},
    {"QUAD_8", 8, kQuad8},
    {"QUAD_9", 9, kQuad8, true},
    {"TETRA_4", 4, kTet4},
    {"TETRA_10", 10, kTet10},
    {"PYRA_5", 5, kPyramid5},
    {"PYRA_14", 14, kPyramid13, true},
    {"PENTA_6", 6, kWedge6},
    {"PENTA_15", 15, kWedge15},
    {"PENTA_18", 18, kWedge15, true},
    {"HEXA_8", 8, kHex8},
    {"HEXA_20", 20, kHex20},
    {"HEXA_27", 27, kHex20, true},
    {"MIXED"},
    {"PYRA_13", 13, kPyramid13},
    {"NGON_n"},
    {"NFACE_n"},
    {"BAR_4", 4, kLine2, true},
    {"TRI_9", 9, kTri3, true},
    {"TRI_10", 10, kTri3, true},
    {"QUAD_12", 12, kQuad4, true},
    {"QUAD_16", 16, kQuad4, true},
    {"TETRA_16", 16, kTet4, true},
    {"TETRA_20", 20, kTet4, true},
    {"PYRA_21", 21, kPyramid5, true},
    {"PYRA_29", 29, kPyramid5, true},
    {"PYRA_30", 30, kPyramid5, true},
    {"PENTA_24", 24, kWedge6, true},
    {"PENTA_38", 38, kWedge6, true},
    {"PENTA_40", 40, kWedge6, true},
    {"HEXA_32", 32, kHex8, true},
    {"HEXA_56", 56, kHex8, true},
    {"HEXA_64", 64, kHex8, true},
    {"BAR_5", 5, kLine2, true},
    {"TRI_12", 12, kTri3, true},
    {"TRI_15", 15, kTri3, true},
    {"QUAD_P4_16", 16, kQuad4, true},
    {"QUAD_25", 25, kQuad4, true},
    {"TETRA_22", 22, kTet4, true},
    {"TETRA_34", 34, kTet4, true},
    {"TETRA_35", 35, kTet4, true},
    {"PYRA_P4_29", 29, kPyramid5, true},
    {"PYRA_50", 50, kPyramid5, true},
    {"PYRA_55", 55, kPyramid5, true},
    {"PENTA_33", 33, kWedge6, true},
    {"PENTA_66", 66, kWedge6, true},
    {"PENTA_75", 75, kWedge6, true},
    {"HEXA_44", 44, kHex8, true},
    {"HEXA_98", 98, kHex8, true},
    {"HEXA_125", 125, kHex8, true},
};

constexpr std::string_view kConditions[] = {
    "Null",
    "UserDefined",
    "BCAxisymmetricWedge",
    "BCDegenerateLine",
    "BCDegeneratePoint",
    "BCDirichlet",
    "BCExtrapolate",
    "BCFarfield",
    "BCGeneral",
    "BCInflow",
    "BCInflowSubsonic",
    "BCInflowSupersonic",
    "BCNeumann",
    "BCOutflow",
    "BCOutflowSubsonic",
    "BCOutflowSupersonic",
    "BCSymmetryPlane",
    "BCSymmetryPolar",
    "BCTunnelInflow",
    "BCTunnelOutflow",
    "BCWall",
    "BCWallInviscid",
    "BCWallViscous",
    "BCWallViscousHeatFlux",
    "BCWallViscousIsothermal",
    "FamilySpecified",
};

struct UnitName {
  UnitBase base;
  std::string_view unit;
  std::string_view name;
};
constexpr UnitName kUnits[] = {
    {UnitBase::kMass, "kg", "Kilogram"},      {UnitBase::kMass, "g", "Gram"},
    {UnitBase::kMass, "slug", "Slug"},        {UnitBase::kMass, "lb", "PoundMass"},
    {UnitBase::kLength, "m", "Meter"},        {UnitBase::kLength, "cm", "Centimeter"},
    {UnitBase::kLength, "mm", "Millimeter"},  {UnitBase::kLength, "ft", "Foot"},
    {UnitBase::kLength, "in", "Inch"},        {UnitBase::kTime, "sec", "Second"},
    {UnitBase::kTemperature, "K", "Kelvin"},  {UnitBase::kTemperature, "C", "Celsius"},
    {UnitBase::kTemperature, "R", "Rankine"}, {UnitBase::kTemperature, "F", "Fahrenheit"},
    {UnitBase::kAngle, "deg", "Degree"},      {UnitBase::kAngle, "rad", "Radian"},
};

}  // namespace

std::optional<CgnsKind> FindCgnsKind(std::int64_t number) {
  if (number < 0 || number >= static_cast<std::int64_t>(std::size(kKinds))) return std::nullopt;
  const CgnsKind& kind = kKinds[number];
  return kind.code != 0 ? std::optional(kind) : std::nullopt;
}

std::int32_t CgnsNumberOf(std::int32_t code) {
  const auto* const found = std::find_if(std::begin(kKinds), std::end(kKinds), [&](const auto& k) {
    return k.code == code && !k.is_reduced;
  });
  return static_cast<std::int32_t>(found - kKinds);
}

std::span<const std::string_view> CgnsConditions() { return kConditions; }

std::int32_t CgnsConditionOf(std::string_view name) {
  const auto* const found = std::find(std::begin(kConditions), std::end(kConditions), name);
  return found == std::end(kConditions) ? 1 : static_cast<std::int32_t>(found - kConditions);
}

std::string_view CgnsUnitOf(UnitBase base, std::string_view unit) {
  for (const UnitName& known : kUnits) {
    if (known.base == base && known.unit == unit) return known.name;
  }
  return "UserDefined";
}

std::optional<UnitSystem> UnitsOfCgns(std::string_view text) {
  constexpr UnitBase kBases[] = {UnitBase::kMass, UnitBase::kLength, UnitBase::kTime,
                                 UnitBase::kTemperature, UnitBase::kAngle};
  UnitSystem units;
  bool has_length = false;
  for (std::size_t i = 0; i < std::size(kBases) && 32 * (i + 1) <= text.size(); ++i) {
    std::string_view name = text.substr(32 * i, 32);
    name = name.substr(0, name.find('\0'));
    name = name.substr(0, name.find_last_not_of(' ') + 1);
    for (const UnitName& known : kUnits) {
      if (known.base != kBases[i] || known.name != name) continue;
      units[known.base] = FindUnit(known.base, known.unit);
      has_length = has_length || known.base == UnitBase::kLength;
    }
  }
  return has_length ? std::optional(units) : std::nullopt;
}

}  // namespace qx::exchange
