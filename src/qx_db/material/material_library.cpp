#include "qx_db/material/material_library.h"

#include <algorithm>
#include <cmath>
#include <filesystem>

#include "qx_db/platform/file.h"

namespace qx {
namespace {

constexpr StructuralColumn kColumns[] = {
    {"Elastic Modulus(N,mm)", "elastic modulus", unit::kStress},
    {"Poisson's Ratio", "Poisson's ratio", unit::kNone},
    {"Shear Modulus", "shear modulus", unit::kStress},
    {"Expansion Coeff.", "expansion coefficient", unit::kThermalExpansion},
    {"Weight Density(N,mm)", "weight density", unit::kWeightDensity},
    {"Mass Density(kg,mm)", "mass density", unit::kMassDensity},
    {"Structural Damping", "structural damping", unit::kNone},
    {"Ref. Temperature", "reference temperature", unit::kTemperature},
    {"Conductivity(W/mmK)", "conductivity", unit::kConductivity},
    {"Specific Heat(J/kgK)", "specific heat", unit::kSpecificHeat},
    {"Heat Gen. Factor", "heat generation factor", unit::kNone},
    {"Tension(N,mm)", "tensile strength", unit::kStress},
    {"Compression(N,mm)", "compressive strength", unit::kStress},
    {"Shear(N,mm)", "shear strength", unit::kStress},
    {"Elasto-Plastic (Bi-Linear)_ Tangent Modulus, Et(MPa)", "tangent modulus", unit::kStress},
    {"Elasto-Plastic (Bi-Linear)_ Initial Yield Stress(MPa) (Von Mises/Tresca)", "yield stress",
     unit::kStress},
    {"Endurance(N,mm)", "endurance limit", unit::kStress},
    {"Cycles at Endurance", "cycles at endurance", unit::kNone},
    {"Mass Proportional Damping", "mass proportional damping", unit::kFrequency},
    {"Stiffness Proportional Damping", "stiffness proportional damping", unit::kTime},
};

}  // namespace

std::span<const StructuralColumn> StructuralColumns() { return kColumns; }

UnitSystem SystemOf(std::string_view length, std::string_view force, std::string_view heat,
                    std::string_view temperature) {
  UnitSystem system;  // kg, sec and deg already
  system[UnitBase::kLength] = FindUnit(UnitBase::kLength, length);
  system[UnitBase::kForce] = FindUnit(UnitBase::kForce, force);
  system[UnitBase::kHeat] = FindUnit(UnitBase::kHeat, heat);
  system[UnitBase::kTemperature] = FindUnit(UnitBase::kTemperature, temperature);
  return system;
}

const UnitSystem& LibraryUnits() {
  static const UnitSystem units = SystemOf("mm", "N");
  return units;
}

Outcome CheckMayWrite(const std::string& path) {
  namespace fs = std::filesystem;
  std::error_code error;
  const fs::file_status status = fs::status(PathFromUtf8(path), error);
  if (error || !fs::exists(status)) return {};
  if (fs::is_directory(status)) return Failure{path, "", "is a directory", "name a file in it"};
  // A file is written beside its target and renamed over it, which would end a device's life.
  if (!fs::is_regular_file(status)) {
    return Failure{path, "", "is no regular file", "choose another name"};
  }
  if ((status.permissions() & fs::perms::owner_write) != fs::perms::none) return {};
  return Failure{path, "", "is read-only", "allow writing to it or choose another name"};
}

Outcome CheckName(const CString& name, const std::string& file) {
  const std::string utf8 = name.ToUtf8();
  if (Utf16(utf8) == name.View()) return {};
  return Failure{file, "material \"" + utf8 + "\"", "has half a character in its name",
                 "give it another name"};
}

Outcome CheckValues(const CString& name, std::span<const double> values, const std::string& file) {
  const auto is_finite = [](double value) { return std::isfinite(value); };
  if (std::all_of(values.begin(), values.end(), is_finite)) return {};
  return Failure{file, "material \"" + name.ToUtf8() + "\"", "has a value that is not a number",
                 "correct it"};
}

}  // namespace qx
