#include "qx_db/lib/units.h"

#include <cmath>
#include <gtest/gtest.h>

namespace qx {
namespace {

UnitSystem System(const char* length, const char* force, const char* mass, const char* time,
                  const char* temperature, const char* heat, const char* angle) {
  const char* const names[kUnitBaseCount] = {length, force, mass, time, temperature, heat, angle};
  UnitSystem system;
  for (int b = 0; b < kUnitBaseCount; ++b) {
    system.index[static_cast<std::size_t>(b)] = FindUnit(static_cast<UnitBase>(b), names[b]);
  }
  EXPECT_TRUE(IsValid(system));
  return system;
}

TEST(Units, FactorsAreExact) {
  struct Case {
    int category;
    double value;     // in inch, lbf, lb, min, F, Btu, deg
    double expected;  // in mm, N, kg, sec, C, J, deg
  };
  const Case cases[] = {
      {unit::kLength, 1, 25.4},
      {unit::kForce, 1, 4.4482216152605},
      {unit::kMass, 1, 0.45359237},
      {unit::kTime, 2, 120},
      {unit::kArea, 1, 645.16},
      {unit::kVolume, 1, 16387.064},
      {unit::kStress, 1, 6894.757293168361e-6},  // psi in MPa
      {unit::kMoment, 1, 4.4482216152605 * 25.4},
      {unit::kHeat, 1, 1055.05585262},
      {unit::kFrequency, 60, 1},
      {unit::kTemperature, 32, 0},
      {unit::kTemperature, 212, 100},
      {unit::kTemperatureDifference, 9, 5},
      {unit::kThermalExpansion, 5, 9},
      {unit::kAngle, 90, 90},
      {unit::kNone, 3, 3},
  };
  CQXUnitCtrl units;
  units.SetModel(System("mm", "N", "kg", "sec", "C", "J", "deg"));
  units.SetCurrent(System("in", "lbf", "lb", "min", "F", "Btu", "deg"));
  for (const Case& c : cases) {
    const double scale = std::max(1.0, std::abs(c.expected));
    EXPECT_NEAR(units.In(c.category, c.value), c.expected, 1e-13 * scale) << c.category;
    EXPECT_NEAR(units.Out(c.category, c.expected), c.value, 1e-12 * std::max(1.0, c.value))
        << c.category;
  }
  EXPECT_EQ(units.Out(unit::kTemperature, 20), 68) << "to the last digit";
  EXPECT_EQ(units.In(unit::kTemperature, 68), 20);
  EXPECT_EQ(units.GetConvertFactorCurrent(unit::kLength), 25.4);
  EXPECT_EQ(units.GetConvertFactorCurrent(999), 1.0);
}

TEST(Units, PreviousValuesReachTheCurrentSystem) {
  CQXUnitCtrl units;
  units.SetCurrent(System("ft", "N", "kg", "sec", "F", "J", "deg"));
  units.SetCurrent(System("in", "N", "kg", "sec", "K", "J", "deg"));
  const double feet = 2;
  EXPECT_DOUBLE_EQ(units.Out(unit::kLength, units.InPrevious(unit::kLength, feet)), 24.0);
  EXPECT_NEAR(units.Out(unit::kTemperature, units.InPrevious(unit::kTemperature, 32)), 273.15,
              1e-10);
}

TEST(Units, NamesAreFoundWhateverTheirCase) {
  EXPECT_EQ(FindUnit(UnitBase::kForce, "KIPS"), FindUnit(UnitBase::kForce, "kips"));
  EXPECT_EQ(FindUnit(UnitBase::kHeat, "btu"), FindUnit(UnitBase::kHeat, "Btu"));
  EXPECT_EQ(FindUnit(UnitBase::kLength, "parsec"), -1);
  for (int b = 0; b < kUnitBaseCount; ++b) {
    const auto base = static_cast<UnitBase>(b);
    for (std::size_t i = 0; i < UnitsOf(base).size(); ++i) {
      EXPECT_EQ(FindUnit(base, UnitsOf(base)[i].name), static_cast<int>(i));
    }
  }
  CQXUnitCtrl units;
  units.SetCurrent(System("km", "tonf", "kg", "day", "R", "kcal", "rad"));
  EXPECT_EQ(units.GetUnitName(unit::kForce), "tonf");
  EXPECT_EQ(units.GetUnitName(unit::kLength), "km");
  EXPECT_EQ(units.GetUnitName(unit::kHeat), "kcal");
  EXPECT_EQ(units.GetUnitName(unit::kTemperature), "R");
  EXPECT_EQ(units.GetUnitName(unit::kStress), "");
}

}  // namespace
}  // namespace qx
