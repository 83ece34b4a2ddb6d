#include "qx_db/record/function_kinds.h"

#include "qx_db/lib/units.h"
#include "qx_db/record/analysis_records.h"

namespace qx {
namespace {

constexpr FunctionKind kKinds[] = {
    {0, "number", unit::kNone},
    {1, "length", unit::kLength},
    {2, "time", unit::kTime},
    {3, "temperature", unit::kTemperature},
    {4, "frequency", unit::kFrequency},
    {5, "angle", unit::kAngle},
    {6, "force", unit::kForce},
    {7, "moment", unit::kMoment},
    {8, "stress", unit::kStress},
    {9, "velocity", unit::kVelocity},
    {10, "acceleration", unit::kAcceleration},
    {11, "force per length", unit::kForcePerLength},
    {12, "stiffness", unit::kStiffness},
    {13, "damping", unit::kDamping},
    {14, "mass density", unit::kMassDensity},
    {15, "weight density", unit::kWeightDensity},
    {16, "thermal expansion", unit::kThermalExpansion},
    {17, "conductivity", unit::kConductivity},
    {18, "specific heat", unit::kSpecificHeat},
    {19, "heat flux", unit::kHeatFlux},
    {20, "heat transfer coefficient", unit::kHeatTransfer},
    {21, "heat generation", unit::kHeatGeneration},
    {22, "dynamic viscosity", unit::kDynamicViscosity},
};

bool IsKnown(std::int32_t code) {
  return code >= 0 && code < static_cast<std::int32_t>(std::size(kKinds));
}

}  // namespace

std::span<const FunctionKind> FunctionKinds() { return kKinds; }

int FunctionCategory(std::int32_t code) {
  return IsKnown(code) ? kKinds[code].category : unit::kUnknown;
}

}  // namespace qx
