#include "qx_db/material/fluid_library.h"

namespace qx {

const std::array<FluidProperty, kFluidPropertyCount>& FluidProperties() {
  static const UnitSystem si = SystemOf("m", "N");
  static const UnitSystem mm = SystemOf("mm", "N");
  // 1 Pa s is 1e-3 mN s/mm2, or 1e-3 kg/(mm s).
  static const UnitSystem milli = SystemOf("mm", "mN");
  static const std::array<FluidProperty, kFluidPropertyCount> properties = {{
      {u"*E", u"*END", 48, 1e-6, "elastic modulus", unit::kStress, mm},
      {u"*G", u"", 48, 1e-6, "shear modulus", unit::kStress, mm},
      {u"*NU", u"", 48, 1, "Poisson's ratio", unit::kNone, si},
      {u"*SPECIFIC_WEIGHT", u"", 48, 1, "weight density", unit::kWeightDensity, si},
      {u"*MAXIMUM_STRESS", u"", 48, 1, "maximum stress", unit::kStress, si},
      {u"*DENSITY", u"DENSITY_HEATRANS", 48, 1e-9, "mass density", unit::kMassDensity, mm},
      {u"*VISCOSITY", u"", 49, 0.001, "dynamic viscosity", unit::kDynamicViscosity, milli},
      {u"*COMPRESSIBILITY", u"", 48, 1e-6, "bulk modulus", unit::kStress, mm},
      {u"*MOLARMASS", u"", 48, 1, "molar mass", unit::kNone, si},
      {u"*DARCY_MATRIX", u"", 48, 1, "Darcy coefficient", unit::kNone, si},
      {u"*ACCELERATION_FIELD_X", u"", 48, 1000, "acceleration field x", unit::kAcceleration, mm},
      {u"*ACCELERATION_FIELD_Y", u"", 48, 1000, "acceleration field y", unit::kAcceleration, mm},
      {u"*ACCELERATION_FIELD_Z", u"", 48, 1000, "acceleration field z", unit::kAcceleration, mm},
      {u"*DENSITY_HEATRANS", u"", 48, 1, "heat transfer density", unit::kMassDensity, si},
      {u"*SPECIFIC_HEAT", u"", 48, 1, "specific heat", unit::kSpecificHeat, si},
      {u"*THERMAL_CONDUCTIVITY", u"", 48, 0.001, "conductivity", unit::kConductivity, mm},
      {u"*FLOATABILITY", u"", 48, 1, "floatability", unit::kNone, si},
      {u"*HEAT_SOURCE", u"", 48, 1e-9, "heat source", unit::kHeatGeneration, mm},
      {u"*HEAT_REACTION", u"", 48, 1e-9, "heat of reaction", unit::kHeatGeneration, mm},
      {u"*OLS_SURFTENSION", u"", 48, 1, "surface tension", unit::kSurfaceTension, si},
      {u"*MECHANICAL_STRAIN", u"", 48, 1, "mechanical strain", unit::kNone, si},
      {u"*DIFFUSIVITY", u"", 48, 1e6, "diffusivity", unit::kDiffusivity, mm},
      {u"*CONDUCTIVITY", u"", 48, 0.001, "particle conductivity", unit::kConductivity, mm},
      {u"*RESTITUTION_COEFFICIENT", u"", 48, 1, "restitution coefficient", unit::kNone, si},
      {u"*HAMAKER_CONSTANT", u"", 48, 1, "Hamaker constant", unit::kEnergy, si},
  }};
  return properties;
}

}  // namespace qx
