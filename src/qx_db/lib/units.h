#pragma once
// Units of measurement: the unit tables, the categories of quantity, and the controller that
// converts between the units a model is stored in and the units a user or a gateway speaks.

#include <array>
#include <cstdint>
#include <span>
#include <string_view>

#include "qx_db/export.h"

namespace qx {

/// The independent choices that make a unit system.
enum class UnitBase { kLength, kForce, kMass, kTime, kTemperature, kHeat, kAngle };
inline constexpr int kUnitBaseCount = 7;

/// Categories of quantity by their stable code. 1, 2, 4, 21 and 37 are known outside this library
/// (material files name them); the others are numbered here. docs/units.md lists them all.
namespace unit {
/// A quantity that is known to nobody here: it is never converted.
inline constexpr int kUnknown = -1;
inline constexpr int kNone = 0;
inline constexpr int kLength = 1;
inline constexpr int kForce = 2;
inline constexpr int kTime = 3;
inline constexpr int kAngle = 4;
inline constexpr int kArea = 5;
inline constexpr int kVolume = 6;
inline constexpr int kSecondMomentOfArea = 7;
inline constexpr int kMass = 8;
inline constexpr int kMassDensity = 9;
inline constexpr int kWeightDensity = 10;
inline constexpr int kStress = 11;
inline constexpr int kMoment = 12;
inline constexpr int kVelocity = 13;
inline constexpr int kAcceleration = 14;
inline constexpr int kFrequency = 15;
inline constexpr int kAngularVelocity = 16;
inline constexpr int kForcePerLength = 17;
inline constexpr int kMassPerLength = 18;
inline constexpr int kMassPerArea = 19;
inline constexpr int kMassMomentOfInertia = 20;
inline constexpr int kTemperature = 21;
inline constexpr int kTemperatureDifference = 22;
inline constexpr int kThermalExpansion = 23;
inline constexpr int kStiffness = 24;
inline constexpr int kRotationalStiffness = 25;
inline constexpr int kDamping = 26;
inline constexpr int kRotationalDamping = 27;
inline constexpr int kDynamicViscosity = 28;
inline constexpr int kDiffusivity = 29;
inline constexpr int kConductivity = 30;
inline constexpr int kSpecificHeat = 31;
inline constexpr int kHeatFlux = 32;
inline constexpr int kHeatTransfer = 33;
inline constexpr int kHeatGeneration = 34;
inline constexpr int kHeatRate = 35;
inline constexpr int kCompressibility = 36;
inline constexpr int kHeat = 37;
inline constexpr int kEnergy = 38;
inline constexpr int kSurfaceTension = 39;
inline constexpr int kWarpingConstant = 40;
inline constexpr int kForcePerVolume = 41;
inline constexpr int kCount = 42;
}  // namespace unit

/// One named unit: SI value = (value + offset) * numerator / denominator. Both integers are exact
/// as doubles; `source` names the definition. Of a temperature `ice` is the value at 0 C, over
/// which two scales are converted so that 20 C are 68 F to the last digit.
struct UnitDefinition {
  std::string_view name;
  double numerator;
  double denominator;
  double offset;
  std::string_view source;
  double ice = 0;
};

/// One category: its code, name, and the exponent of each base.
struct UnitCategory {
  int code;
  std::string_view name;
  std::array<std::int8_t, kUnitBaseCount> exponents;
};

/// The units of one base; a unit's place in the list is its index, which files may carry.
QXDB_API std::span<const UnitDefinition> UnitsOf(UnitBase base);
QXDB_API std::string_view UnitBaseName(UnitBase base);

/// The category of a code; null for an unknown one.
QXDB_API const UnitCategory* FindUnitCategory(int code);

/// Index of a unit by name, whatever the case of its letters; -1 when there is none.
QXDB_API int FindUnit(UnitBase base, std::string_view name);

/// A choice of one unit per base, by index. The default is m, N, kg, s, C, J, deg.
struct UnitSystem {
  std::array<std::int32_t, kUnitBaseCount> index{};

  std::int32_t& operator[](UnitBase base) { return index[static_cast<std::size_t>(base)]; }
  std::int32_t operator[](UnitBase base) const { return index[static_cast<std::size_t>(base)]; }
  friend bool operator==(const UnitSystem&, const UnitSystem&) = default;
};

/// Whether every index names a unit.
QXDB_API bool IsValid(const UnitSystem& system);

/// Converts values of a category between three unit systems: the model's, in which records are
/// stored; the current one, which the user and the gateway see; and the previous one, which was
/// current before the last change. What changes it is virtual, so that nobody changes the units of
/// a session behind its back, as which they are known besides. Threads: a value; any number may
/// read it while none changes it.
class QXDB_API CQXUnitCtrl {
 public:
  CQXUnitCtrl() = default;
  CQXUnitCtrl(const CQXUnitCtrl&) = default;
  virtual ~CQXUnitCtrl() = default;
  virtual CQXUnitCtrl& operator=(const CQXUnitCtrl&) noexcept(false) = default;

  const UnitSystem& Model() const { return model_; }
  const UnitSystem& Current() const { return current_; }
  const UnitSystem& Previous() const { return previous_; }

  /// The system that stored values are in. Changing it converts nothing.
  virtual void SetModel(const UnitSystem& system) { model_ = system; }
  /// Makes `system` current and the former current one previous.
  virtual void SetCurrent(const UnitSystem& system);

  /// Model units in one unit of the current or previous system; 1 for an unknown category. For
  /// temperatures this is the size of a degree only: use the conversions below for values.
  double GetConvertFactorCurrent(int category) const { return Factor(current_, category); }
  double GetConvertFactorPrevious(int category) const { return Factor(previous_, category); }

  /// A value of the current system in model units, and back; temperatures with their offset.
  double In(int category, double value) const { return ToModel(current_, category, value); }
  double Out(int category, double value) const;
  /// A value of the previous system in model units.
  double InPrevious(int category, double value) const {
    return ToModel(previous_, category, value);
  }

  friend bool operator==(const CQXUnitCtrl& a, const CQXUnitCtrl& b) {
    return a.model_ == b.model_ && a.current_ == b.current_ && a.previous_ == b.previous_;
  }

  /// Name of the current unit of a base category (1, 2, 3, 4, 8, 21 or 37); "" for the others.
  std::string_view GetUnitName(int category) const;

 private:
  double Factor(const UnitSystem& system, int category) const;
  double ToModel(const UnitSystem& system, int category, double value) const;
  static double Temperature(double value, const UnitSystem& from, const UnitSystem& to);

  UnitSystem model_;
  UnitSystem current_;
  UnitSystem previous_;
};

}  // namespace qx
