#include "qx_db/lib/units.h"

#include "qx_db/platform/text.h"

namespace qx {
namespace {

// Definitions: SI = BIPM, The International System of Units, 9th edition; SP811 = NIST Special
// Publication 811 (2008), appendix B, whose starred factors are exact.
constexpr UnitDefinition kLengths[] = {
    {"m", 1, 1, 0, "SI"},
    {"mm", 1, 1e3, 0, "SI"},
    {"cm", 1, 1e2, 0, "SI"},
    {"um", 1, 1e6, 0, "SI"},
    {"km", 1e3, 1, 0, "SI"},
    {"in", 254, 1e4, 0, "SP811: 25.4 mm exactly"},
    {"ft", 3048, 1e4, 0, "SP811: 0.3048 m exactly"},
    {"yd", 9144, 1e4, 0, "SP811: 0.9144 m exactly"},
};
constexpr UnitDefinition kForces[] = {
    {"N", 1, 1, 0, "SI"},
    {"kN", 1e3, 1, 0, "SI"},
    {"MN", 1e6, 1, 0, "SI"},
    {"mN", 1, 1e3, 0, "SI"},  // found by name only in this exact case, see FindUnit
    {"kgf", 980665, 1e5, 0, "SP811: 9.80665 N exactly"},
    {"tonf", 980665, 1e2, 0, "SP811: 1000 kgf"},
    {"gf", 980665, 1e8, 0, "SP811: 0.001 kgf"},
    {"lbf", 44482216152605, 1e13, 0, "SP811: 0.45359237 kg x 9.80665 m/s2"},
    {"kips", 44482216152605, 1e10, 0, "SP811: 1000 lbf"},
    {"dyn", 1, 1e5, 0, "SP811: 1e-5 N exactly"},
};
constexpr UnitDefinition kMasses[] = {
    {"kg", 1, 1, 0, "SI"},
    {"g", 1, 1e3, 0, "SI"},
    {"ton", 1e3, 1, 0, "SI: metric ton"},
    {"lb", 45359237, 1e8, 0, "SP811: 0.45359237 kg exactly"},
    // lbf s2/ft and lbf s2/in: the exact quotient of the definitions of lbf and ft or in.
    {"slug", 44482216152605, 3048e9, 0, "SP811: lbf s2/ft"},
    {"slinch", 44482216152605, 254e9, 0, "lbf s2/in"},
};
constexpr UnitDefinition kTimes[] = {
    {"sec", 1, 1, 0, "SI"},     {"min", 60, 1, 0, "SI"},   {"hour", 3600, 1, 0, "SI"},
    {"day", 86400, 1, 0, "SI"}, {"msec", 1, 1e3, 0, "SI"},
};
constexpr UnitDefinition kTemperatures[] = {
    {"C", 1, 1, 273.15, "SI: t/C = T/K - 273.15"},
    {"F", 5, 9, 459.67, "SP811: T/K = (t/F + 459.67)/1.8", 32},
    {"K", 1, 1, 0, "SI", 273.15},
    {"R", 5, 9, 0, "SP811: T/K = (T/R)/1.8", 491.67},
};
constexpr UnitDefinition kHeats[] = {
    {"J", 1, 1, 0, "SI"},
    {"kJ", 1e3, 1, 0, "SI"},
    {"MJ", 1e6, 1, 0, "SI"},
    {"uJ", 1, 1e6, 0, "SI"},
    {"cal", 41868, 1e4, 0, "SP811: calorie IT, 4.1868 J exactly"},
    {"kcal", 41868, 10, 0, "SP811: kilocalorie IT"},
    {"Btu", 105505585262, 1e8, 0, "SP811: British thermal unit IT, 1055.05585262 J"},
    {"inlbf", 1129848290276167, 1e16, 0, "SP811: 0.0254 m x lbf"},
    {"kWh", 36e5, 1, 0, "SP811: 3.6 MJ exactly"},
};
constexpr UnitDefinition kAngles[] = {
    {"deg", 1, 1, 0, "the degree is the unit of stored angles"},
    {"rad", 180, 3.14159265358979323846, 0, "SI: 180/pi degrees"},
};

struct BaseTable {
  std::string_view name;
  std::span<const UnitDefinition> units;
};
constexpr BaseTable kBases[kUnitBaseCount] = {
    {"length", kLengths},           {"force", kForces}, {"mass", kMasses},  {"time", kTimes},
    {"temperature", kTemperatures}, {"heat", kHeats},   {"angle", kAngles},
};

// Exponents in the order length, force, mass, time, temperature, heat, angle.
constexpr UnitCategory kCategories[unit::kCount] = {
    {unit::kNone, "none", {0, 0, 0, 0, 0, 0, 0}},
    {unit::kLength, "length", {1, 0, 0, 0, 0, 0, 0}},
    {unit::kForce, "force", {0, 1, 0, 0, 0, 0, 0}},
    {unit::kTime, "time", {0, 0, 0, 1, 0, 0, 0}},
    {unit::kAngle, "angle", {0, 0, 0, 0, 0, 0, 1}},
    {unit::kArea, "area", {2, 0, 0, 0, 0, 0, 0}},
    {unit::kVolume, "volume", {3, 0, 0, 0, 0, 0, 0}},
    {unit::kSecondMomentOfArea, "second moment of area", {4, 0, 0, 0, 0, 0, 0}},
    {unit::kMass, "mass", {0, 0, 1, 0, 0, 0, 0}},
    {unit::kMassDensity, "mass density", {-3, 0, 1, 0, 0, 0, 0}},
    {unit::kWeightDensity, "weight density", {-3, 1, 0, 0, 0, 0, 0}},
    {unit::kStress, "stress", {-2, 1, 0, 0, 0, 0, 0}},
    {unit::kMoment, "moment", {1, 1, 0, 0, 0, 0, 0}},
    {unit::kVelocity, "velocity", {1, 0, 0, -1, 0, 0, 0}},
    {unit::kAcceleration, "acceleration", {1, 0, 0, -2, 0, 0, 0}},
    {unit::kFrequency, "frequency", {0, 0, 0, -1, 0, 0, 0}},
    {unit::kAngularVelocity, "angular velocity", {0, 0, 0, -1, 0, 0, 1}},
    {unit::kForcePerLength, "force per length", {-1, 1, 0, 0, 0, 0, 0}},
    {unit::kMassPerLength, "mass per length", {-1, 0, 1, 0, 0, 0, 0}},
    {unit::kMassPerArea, "mass per area", {-2, 0, 1, 0, 0, 0, 0}},
    {unit::kMassMomentOfInertia, "mass moment of inertia", {2, 0, 1, 0, 0, 0, 0}},
    {unit::kTemperature, "temperature", {0, 0, 0, 0, 1, 0, 0}},
    {unit::kTemperatureDifference, "temperature difference", {0, 0, 0, 0, 1, 0, 0}},
    {unit::kThermalExpansion, "thermal expansion", {0, 0, 0, 0, -1, 0, 0}},
    {unit::kStiffness, "stiffness", {-1, 1, 0, 0, 0, 0, 0}},
    {unit::kRotationalStiffness, "rotational stiffness", {1, 1, 0, 0, 0, 0, -1}},
    {unit::kDamping, "damping", {-1, 1, 0, 1, 0, 0, 0}},
    {unit::kRotationalDamping, "rotational damping", {1, 1, 0, 1, 0, 0, -1}},
    {unit::kDynamicViscosity, "dynamic viscosity", {-2, 1, 0, 1, 0, 0, 0}},
    {unit::kDiffusivity, "diffusivity", {2, 0, 0, -1, 0, 0, 0}},
    {unit::kConductivity, "conductivity", {-1, 0, 0, -1, -1, 1, 0}},
    {unit::kSpecificHeat, "specific heat", {0, 0, -1, 0, -1, 1, 0}},
    {unit::kHeatFlux, "heat flux", {-2, 0, 0, -1, 0, 1, 0}},
    {unit::kHeatTransfer, "heat transfer coefficient", {-2, 0, 0, -1, -1, 1, 0}},
    {unit::kHeatGeneration, "heat generation", {-3, 0, 0, -1, 0, 1, 0}},
    {unit::kHeatRate, "heat rate", {0, 0, 0, -1, 0, 1, 0}},
    {unit::kCompressibility, "compressibility", {2, -1, 0, 0, 0, 0, 0}},
    {unit::kHeat, "heat", {0, 0, 0, 0, 0, 1, 0}},
    {unit::kEnergy, "energy", {1, 1, 0, 0, 0, 0, 0}},
    {unit::kSurfaceTension, "surface tension", {-1, 1, 0, 0, 0, 0, 0}},
    {unit::kWarpingConstant, "warping constant", {6, 0, 0, 0, 0, 0, 0}},
    {unit::kForcePerVolume, "force per volume", {-3, 1, 0, 0, 0, 0, 0}},
};

constexpr bool CodesAreIndices() {
  for (int i = 0; i < unit::kCount; ++i) {
    if (kCategories[i].code != i) return false;
  }
  return true;
}
static_assert(CodesAreIndices(), "a category's code is its place in the table");

const UnitDefinition& Unit(const UnitSystem& system, int base) {
  const auto b = static_cast<std::size_t>(base);
  return kBases[b].units[static_cast<std::size_t>(system.index[b])];
}

}  // namespace

std::span<const UnitDefinition> UnitsOf(UnitBase base) {
  return kBases[static_cast<std::size_t>(base)].units;
}

std::string_view UnitBaseName(UnitBase base) { return kBases[static_cast<std::size_t>(base)].name; }

const UnitCategory* FindUnitCategory(int code) {
  return code >= 0 && code < unit::kCount ? &kCategories[code] : nullptr;
}

int FindUnit(UnitBase base, std::string_view name) {
  const auto units = UnitsOf(base);
  // An exact match first: "mN" and "MN" differ by case alone, and the prefix of 1e6 is listed
  // before that of 1e-3, so that "mn" reads as meganewton only when nothing fits better.
  for (const bool exact : {true, false}) {
    for (std::size_t i = 0; i < units.size(); ++i) {
      if (exact ? units[i].name == name : EqualNoCase(units[i].name, name)) {
        return static_cast<int>(i);
      }
    }
  }
  return -1;
}

bool IsValid(const UnitSystem& system) {
  for (int b = 0; b < kUnitBaseCount; ++b) {
    const std::int32_t index = system.index[static_cast<std::size_t>(b)];
    if (index < 0 || static_cast<std::size_t>(index) >= kBases[b].units.size()) return false;
  }
  return true;
}

void CQXUnitCtrl::SetCurrent(const UnitSystem& system) {
  previous_ = current_;
  current_ = system;
}

double CQXUnitCtrl::Factor(const UnitSystem& system, int category) const {
  const UnitCategory* c = FindUnitCategory(category);
  if (!c || system == model_) return 1.0;
  double factor = 1.0;
  for (int b = 0; b < kUnitBaseCount; ++b) {
    const int exponent = c->exponents[static_cast<std::size_t>(b)];
    const UnitDefinition& from = Unit(system, b);
    const UnitDefinition& to = Unit(model_, b);
    if (exponent == 0 || &from == &to) continue;
    // One division per power keeps the integers of both definitions exact as long as possible.
    const double numerator = from.numerator * to.denominator;
    const double denominator = from.denominator * to.numerator;
    for (int i = 0; i < exponent; ++i) factor *= numerator / denominator;
    for (int i = 0; i > exponent; --i) factor *= denominator / numerator;
  }
  return factor;
}

double CQXUnitCtrl::Temperature(double value, const UnitSystem& from, const UnitSystem& to) {
  constexpr int kBase = static_cast<int>(UnitBase::kTemperature);
  const UnitDefinition& a = Unit(from, kBase);
  const UnitDefinition& b = Unit(to, kBase);
  if (&a == &b) return value;
  const double numerator = a.numerator * b.denominator;
  const double denominator = a.denominator * b.numerator;
  if (a.offset == 0 && b.offset == 0) return value * numerator / denominator;
  return (value - a.ice) * numerator / denominator + b.ice;
}

double CQXUnitCtrl::ToModel(const UnitSystem& system, int category, double value) const {
  return category == unit::kTemperature ? Temperature(value, system, model_)
                                        : value * Factor(system, category);
}

double CQXUnitCtrl::Out(int category, double value) const {
  return category == unit::kTemperature ? Temperature(value, model_, current_)
                                        : value / Factor(current_, category);
}

std::string_view CQXUnitCtrl::GetUnitName(int category) const {
  const UnitCategory* c = FindUnitCategory(category);
  // Only a category that is one base to the first power has a unit with a name of its own.
  int found = -1;
  for (int b = 0; c && b < kUnitBaseCount; ++b) {
    const int exponent = c->exponents[static_cast<std::size_t>(b)];
    if (exponent == 0) continue;
    if (exponent != 1 || found >= 0) return {};
    found = b;
  }
  return found < 0 ? std::string_view() : Unit(current_, found).name;
}

}  // namespace qx
