#include "host/material_records.h"

#include <algorithm>

#include "qx_db/record/record_impl.h"

namespace qx {

using GF = GatewayField;

const Schema& tagTMatl::GetSchema() {
  static constexpr GatewayField kFields[] = {
      {"NAME", GF::Type::kString, u"_NAME"},
      {"TYPE", GF::Type::kInteger, u"_TYPE"},
      {"COLOR", GF::Type::kInteger, u"_COLOR"},
      {"ELASTIC_MODULUS", GF::Type::kReal, u"_ELASTIC"},
      {"SHEAR_MODULUS", GF::Type::kReal, u"_SHEAR"},
      {"POISSON_RATIO", GF::Type::kReal, u"_POISSON"},
      {"DENSITY", GF::Type::kReal, u"_DENSITY"},
      {"THERMAL_EXPANSION", GF::Type::kReal, u"_EXPANSION"},
      {"REFERENCE_TEMPERATURE", GF::Type::kReal, u"_REF_TEMP"},
      {"CONDUCTIVITY", GF::Type::kReal, u"_CONDUCTIVITY"},
      {"SPECIFIC_HEAT", GF::Type::kReal, u"_SPECIFIC_HEAT"},
      {"HEAT_GENERATION_FACTOR", GF::Type::kReal, u"_HEAT_GEN"},
      {"STRUCTURAL_DAMPING", GF::Type::kReal, u"_DAMPING"},
      {"MASS_DAMPING", GF::Type::kReal, u"_MASS_DAMPING"},
      {"STIFFNESS_DAMPING", GF::Type::kReal, u"_STIFF_DAMPING"},
      {"TENSILE_STRENGTH", GF::Type::kReal, u"_TENSILE"},
      {"COMPRESSIVE_STRENGTH", GF::Type::kReal, u"_COMPRESSIVE"},
      {"SHEAR_STRENGTH", GF::Type::kReal, u"_SHEAR_STRENGTH"},
      {"YIELD_STRESS", GF::Type::kReal, u"_YIELD"},
      {"TANGENT_MODULUS", GF::Type::kReal, u"_TANGENT"},
      {"ENDURANCE_LIMIT", GF::Type::kReal, u"_ENDURANCE"},
      {"ENDURANCE_CYCLES", GF::Type::kReal, u"_CYCLES"},
      {"DYNAMIC_VISCOSITY", GF::Type::kReal, u"_VISCOSITY"},
      {"LIBRARY", GF::Type::kString, u"_LIBRARY"},
      {"LIBRARY_CATEGORY", GF::Type::kString, u"_LIB_CATEGORY"},
  };
  static const Schema schema("tagTMatl", kType, sizeof(tagTMatl),
                             RowList()
                                 .Add(u"_KEY", &tagTMatl::key)
                                 .Add(u"_NAME", &tagTMatl::name)
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
                                 .Add(u"_LIB_CATEGORY", &tagTMatl::library_category)
                                 .Take(),
                             kFields);
  return schema;
}

double tagTMatl::ShearModulus() const {
  return shear_modulus != 0 ? shear_modulus : elastic_modulus / (2 * (1 + poisson_ratio));
}

QX_RECORD(tagTMatl);

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
