#pragma once
// The properties of a structural model: what an element is besides its shape.
// Threads: records are values (TStructBase).

#include <span>
#include <string_view>

#include "qx_db/pool/ext_db_pool.h"
#include "qx_db/record/record.h"
#include "qx_db/record/unit_descriptor.h"

namespace qx {

#pragma pack(push, 4)

/// A property. Which members count depends on its type. Numbers are in model units.
struct tagTProp final : TRecord<tagTProp, code::kProp> {
  /// Values of `type`.
  static constexpr std::int32_t kUndefined = 0;  ///< holds a place, for elements of any dimension
  static constexpr std::int32_t kPointMass = 1;
  static constexpr std::int32_t kPointSpring = 2;
  static constexpr std::int32_t kTruss = 10;
  static constexpr std::int32_t kBeam = 11;
  static constexpr std::int32_t kSpring = 12;
  static constexpr std::int32_t kElasticLink = 13;
  static constexpr std::int32_t kRigidLink = 14;
  static constexpr std::int32_t kPlate = 20;
  static constexpr std::int32_t kMembrane = 21;
  static constexpr std::int32_t kPlaneStress = 22;
  static constexpr std::int32_t kPlaneStrain = 23;
  static constexpr std::int32_t kInterface = 24;
  static constexpr std::int32_t kSolid = 30;

  Key key = 0;
  TString<64> name;
  std::int32_t type = kUndefined;
  std::int32_t dimension = -1;          ///< of a kUndefined property: 0 to 3, -1 for any
  std::int32_t color = 0xC08040;        ///< 0x00BBGGRR
  TRef<code::kMatl> material;           ///< a tagTMatl
  TRef<code::kCord> coordinate_system;  ///< a tagTCord; 0 for the global one

  double thickness = 0;            ///< of surfaces
  double non_structural_mass = 0;  ///< per length of lines, per area of surfaces
  double area = 0;                 ///< of the section of lines
  double inertia_y = 0;            ///< second moments of the section's area
  double inertia_z = 0;
  double inertia_yz = 0;
  double torsion = 0;       ///< torsional constant
  double shear_area_y = 0;  ///< effective in shear
  double shear_area_z = 0;
  double perimeter = 0;             ///< of the section
  PackedDouble stress_points[8]{};  ///< y, z of four points of the section to find stresses at

  double mass = 0;              ///< of point masses
  PackedDouble stiffness[6]{};  ///< of springs: T1 to T3, R1 to R3
  PackedDouble damping[6]{};    ///< the same
};

#pragma pack(pop)

/// Unit categories, group by group.
using CQXPropUnit = TUnitDescriptor<tagTProp, 7>;
extern template class TUnitDescriptor<tagTProp, 7>;

using DPoolProp = DPoolPlain<tagTProp>;

namespace host {

/// A kind of property: the number in its record, its name, and the elements it fits.
struct PropertyKind {
  std::int32_t type;
  std::string_view name;
  int dimension;  ///< 0 point to 3 solid; -1 any
};
std::span<const PropertyKind> PropertyKinds();
/// Null for an unknown number.
const PropertyKind* FindPropertyKind(std::int32_t type);
/// Dimension of the elements that a property fits; -1 for any.
int DimensionOf(const tagTProp& property);

}  // namespace host

}  // namespace qx
