#include "host/material_records.h"

#include <algorithm>

#include "qx_db/record/record_impl.h"

namespace qx {

QX_RECORD(tagTMatl) {
  rows.Add(u"_NAME", &tagTMatl::name)
      .Add(u"_TYPE", &tagTMatl::type)
      .Add(u"_COLOR", &tagTMatl::color)
      .Add(u"_ELASTIC", &tagTMatl::elastic_modulus)
      .In(unit::kStress, 0)
      .Add(u"_SHEAR", &tagTMatl::shear_modulus)
      .In(unit::kStress, 0)
      .Add(u"_POISSON", &tagTMatl::poisson_ratio)
      .Add(u"_DENSITY", &tagTMatl::density)
      .In(unit::kMassDensity, 1)
      .Add(u"_EXPANSION", &tagTMatl::thermal_expansion)
      .In(unit::kThermalExpansion, 2)
      .Add(u"_REF_TEMP", &tagTMatl::reference_temperature)
      .In(unit::kTemperature, 3)
      .Add(u"_CONDUCTIVITY", &tagTMatl::conductivity)
      .In(unit::kConductivity, 4)
      .Add(u"_SPECIFIC_HEAT", &tagTMatl::specific_heat)
      .In(unit::kSpecificHeat, 5)
      .Add(u"_HEAT_GEN", &tagTMatl::heat_generation_factor)
      .Add(u"_DAMPING", &tagTMatl::structural_damping)
      .Add(u"_MASS_DAMPING", &tagTMatl::mass_damping)
      .In(unit::kFrequency, 6)
      .Add(u"_STIFF_DAMPING", &tagTMatl::stiffness_damping)
      .In(unit::kTime, 7)
      .Add(u"_TENSILE", &tagTMatl::tensile_strength)
      .In(unit::kStress, 0)
      .Add(u"_COMPRESSIVE", &tagTMatl::compressive_strength)
      .In(unit::kStress, 0)
      .Add(u"_SHEAR_STRENGTH", &tagTMatl::shear_strength)
      .In(unit::kStress, 0)
      .Add(u"_YIELD", &tagTMatl::yield_stress)
      .In(unit::kStress, 0)
      .Add(u"_TANGENT", &tagTMatl::tangent_modulus)
      .In(unit::kStress, 0)
      .Add(u"_ENDURANCE", &tagTMatl::endurance_limit)
      .In(unit::kStress, 0)
      .Add(u"_CYCLES", &tagTMatl::endurance_cycles)
      .Add(u"_VISCOSITY", &tagTMatl::dynamic_viscosity)
      .In(unit::kDynamicViscosity, 8)
      .Add(u"_LIBRARY", &tagTMatl::library)
      .Add(u"_LIB_CATEGORY", &tagTMatl::library_category);
  fields.Add("NAME", &tagTMatl::name)
      .Add("TYPE", &tagTMatl::type)
      .Add("COLOR", &tagTMatl::color)
      .Add("ELASTIC_MODULUS", &tagTMatl::elastic_modulus)
      .Add("SHEAR_MODULUS", &tagTMatl::shear_modulus)
      .Add("POISSON_RATIO", &tagTMatl::poisson_ratio)
      .Add("DENSITY", &tagTMatl::density)
      .Add("THERMAL_EXPANSION", &tagTMatl::thermal_expansion)
      .Add("REFERENCE_TEMPERATURE", &tagTMatl::reference_temperature)
      .Add("CONDUCTIVITY", &tagTMatl::conductivity)
      .Add("SPECIFIC_HEAT", &tagTMatl::specific_heat)
      .Add("HEAT_GENERATION_FACTOR", &tagTMatl::heat_generation_factor)
      .Add("STRUCTURAL_DAMPING", &tagTMatl::structural_damping)
      .Add("MASS_DAMPING", &tagTMatl::mass_damping)
      .Add("STIFFNESS_DAMPING", &tagTMatl::stiffness_damping)
      .Add("TENSILE_STRENGTH", &tagTMatl::tensile_strength)
      .Add("COMPRESSIVE_STRENGTH", &tagTMatl::compressive_strength)
      .Add("SHEAR_STRENGTH", &tagTMatl::shear_strength)
      .Add("YIELD_STRESS", &tagTMatl::yield_stress)
      .Add("TANGENT_MODULUS", &tagTMatl::tangent_modulus)
      .Add("ENDURANCE_LIMIT", &tagTMatl::endurance_limit)
      .Add("ENDURANCE_CYCLES", &tagTMatl::endurance_cycles)
      .Add("DYNAMIC_VISCOSITY", &tagTMatl::dynamic_viscosity)
      .Add("LIBRARY", &tagTMatl::library)
      .Add("LIBRARY_CATEGORY", &tagTMatl::library_category);
}

double tagTMatl::ShearModulus() const {
  return shear_modulus != 0 ? shear_modulus : elastic_modulus / (2 * (1 + poisson_ratio));
}

template class TUnitDescriptor<tagTMatl, 9>;

namespace host {
namespace {

constexpr MaterialKind kKinds[] = {
    {tagTMatl::kIsotropic, "isotropic", true},
    {tagTMatl::kFluid, "fluid", false},
    {tagTMatl::kParticle, "particle", false},
};

}  // namespace

std::span<const MaterialKind> MaterialKinds() { return kKinds; }

const MaterialKind* FindMaterialKind(std::int32_t type) {
  const auto found = std::find_if(std::begin(kKinds), std::end(kKinds),
                                  [&](const MaterialKind& kind) { return kind.type == type; });
  return found == std::end(kKinds) ? nullptr : found;
}

}  // namespace host

}  // namespace qx
