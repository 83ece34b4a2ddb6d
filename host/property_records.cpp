#include "host/property_records.h"

#include <algorithm>

#include "qx_db/record/record_impl.h"

namespace qx {

namespace {

int NonStructuralMass(const TStructBase& record, int) {
  const int dimension = host::DimensionOf(static_cast<const tagTProp&>(record));
  if (dimension == 1) return unit::kMassPerLength;
  return dimension == 2 ? unit::kMassPerArea : unit::kNone;
}

int Stiffness(const TStructBase&, int number) {
  return number < 3 ? unit::kStiffness : unit::kRotationalStiffness;
}

int Damping(const TStructBase&, int number) {
  return number < 3 ? unit::kDamping : unit::kRotationalDamping;
}

}  // namespace

QX_RECORD(tagTProp) {
  rows.Add(u"_NAME", &tagTProp::name)
      .Add(u"_TYPE", &tagTProp::type)
      .Add(u"_DIMENSION", &tagTProp::dimension)
      .Add(u"_COLOR", &tagTProp::color)
      .Add(u"_MATERIAL", &tagTProp::material)
      .Add(u"_CORD", &tagTProp::coordinate_system)
      .Add(u"_THICKNESS", &tagTProp::thickness)
      .In(unit::kLength, 0)
      .Add(u"_NS_MASS", &tagTProp::non_structural_mass)
      .InBy(NonStructuralMass, unit::kMassPerArea, 1, {&tagTProp::type, &tagTProp::dimension})
      .Add(u"_AREA", &tagTProp::area)
      .In(unit::kArea, 2)
      .Add(u"_INERTIA_Y", &tagTProp::inertia_y)
      .In(unit::kSecondMomentOfArea, 3)
      .Add(u"_INERTIA_Z", &tagTProp::inertia_z)
      .In(unit::kSecondMomentOfArea, 3)
      .Add(u"_INERTIA_YZ", &tagTProp::inertia_yz)
      .In(unit::kSecondMomentOfArea, 3)
      .Add(u"_TORSION", &tagTProp::torsion)
      .In(unit::kSecondMomentOfArea, 3)
      .Add(u"_SHEAR_AREA_Y", &tagTProp::shear_area_y)
      .In(unit::kArea, 2)
      .Add(u"_SHEAR_AREA_Z", &tagTProp::shear_area_z)
      .In(unit::kArea, 2)
      .Add(u"_PERIMETER", &tagTProp::perimeter)
      .In(unit::kLength, 0)
      .AddNumbered(u"_STRESS_POINT", &tagTProp::stress_points)
      .In(unit::kLength, 0)
      .Add(u"_MASS", &tagTProp::mass)
      .In(unit::kMass, 4)
      .AddNumbered(u"_STIFFNESS", &tagTProp::stiffness)
      .InBy(Stiffness, unit::kStiffness, 5)
      .AddNumbered(u"_DAMPING", &tagTProp::damping)
      .InBy(Damping, unit::kDamping, 6);
  fields.Add("NAME", &tagTProp::name)
      .Add("TYPE", &tagTProp::type)
      .Add("DIMENSION", &tagTProp::dimension)
      .Add("COLOR", &tagTProp::color)
      .Add("MATERIAL_KEY", &tagTProp::material)
      .Add("CORD_KEY", &tagTProp::coordinate_system)
      .Add("THICKNESS", &tagTProp::thickness)
      .Add("NON_STRUCTURAL_MASS", &tagTProp::non_structural_mass)
      .Add("AREA", &tagTProp::area)
      .Add("INERTIA_Y", &tagTProp::inertia_y)
      .Add("INERTIA_Z", &tagTProp::inertia_z)
      .Add("INERTIA_YZ", &tagTProp::inertia_yz)
      .Add("TORSION", &tagTProp::torsion)
      .Add("SHEAR_AREA_Y", &tagTProp::shear_area_y)
      .Add("SHEAR_AREA_Z", &tagTProp::shear_area_z)
      .Add("PERIMETER", &tagTProp::perimeter)
      .Add("STRESS_POINTS", &tagTProp::stress_points)
      .Add("MASS", &tagTProp::mass)
      .Add("STIFFNESS", &tagTProp::stiffness)
      .Add("DAMPING", &tagTProp::damping);
}

template class TUnitDescriptor<tagTProp, 7>;

namespace host {
namespace {

constexpr PropertyKind kPropertyKinds[] = {
    {tagTProp::kUndefined, "undefined", -1},
    {tagTProp::kPointMass, "point mass", 0},
    {tagTProp::kPointSpring, "point spring", 0},
    {tagTProp::kTruss, "truss", 1},
    {tagTProp::kBeam, "beam", 1},
    {tagTProp::kSpring, "spring", 1},
    {tagTProp::kElasticLink, "elastic link", 1},
    {tagTProp::kRigidLink, "rigid link", 1},
    {tagTProp::kPlate, "plate", 2},
    {tagTProp::kMembrane, "membrane", 2},
    {tagTProp::kPlaneStress, "plane stress", 2},
    {tagTProp::kPlaneStrain, "plane strain", 2},
    {tagTProp::kInterface, "interface", 2},
    {tagTProp::kSolid, "solid", 3},
};

}  // namespace

std::span<const PropertyKind> PropertyKinds() { return kPropertyKinds; }

const PropertyKind* FindPropertyKind(std::int32_t type) {
  const auto found = std::find_if(std::begin(kPropertyKinds), std::end(kPropertyKinds),
                                  [&](const PropertyKind& kind) { return kind.type == type; });
  return found == std::end(kPropertyKinds) ? nullptr : found;
}

int DimensionOf(const tagTProp& property) {
  if (property.type == tagTProp::kUndefined) return property.dimension;
  const PropertyKind* kind = FindPropertyKind(property.type);
  return kind ? kind->dimension : -1;
}

}  // namespace host

}  // namespace qx
