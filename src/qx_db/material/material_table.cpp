#include "qx_db/material/material_table.h"

#include <algorithm>
#include <array>
#include <cstdlib>

#include "qx_db/material/material_library.h"

namespace qx {
namespace {

/// "mm^2" of a base to a power; the sign is for the caller.
std::string PowerText(UnitBase base, const UnitSystem& system, int exponent) {
  std::string text(UnitsOf(base)[static_cast<std::size_t>(system[base])].name);
  if (std::abs(exponent) != 1) text += "^" + std::to_string(std::abs(exponent));
  return text;
}

void Join(std::string& list, const std::string& more) { list += (list.empty() ? "" : ".") + more; }

}  // namespace

std::optional<std::size_t> MaterialTable::Find(std::string_view property) const {
  const auto found = std::find_if(columns.begin(), columns.end(),
                                  [&](const auto& column) { return column.property == property; });
  if (found == columns.end()) return std::nullopt;
  return static_cast<std::size_t>(found - columns.begin());
}

double ConvertValue(int kind, double value, const UnitSystem& from, const UnitSystem& to) {
  CQXUnitCtrl units;
  units.SetModel(to);
  units.SetCurrent(from);
  return units.In(kind, value);
}

MaterialTable InUnits(const MaterialTable& table, const UnitSystem& system) {
  std::vector<MaterialColumn> columns = table.columns;
  for (MaterialColumn& column : columns) column.units = system;
  return WithColumns(table, std::move(columns));
}

MaterialTable WithColumns(const MaterialTable& table, std::vector<MaterialColumn> columns,
                          std::vector<std::string>* lost) {
  MaterialTable fitted;
  fitted.title = table.title;
  fitted.numbering_offset = table.numbering_offset;
  fitted.columns = std::move(columns);
  fitted.materials.reserve(table.materials.size());
  // A property that the table lacks is 0 of the library's units, which 0 F, say, is not.
  std::vector<double> none;
  for (const MaterialColumn& column : fitted.columns) {
    none.push_back(ConvertValue(column.kind, 0.0, LibraryUnits(), column.units));
  }
  for (const Material& material : table.materials) {
    fitted.materials.push_back({material.category, material.name, none});
  }
  for (std::size_t from = 0; from < table.columns.size(); ++from) {
    const MaterialColumn& source = table.columns[from];
    const auto to = fitted.Find(source.property);
    std::size_t homeless = 0;
    for (std::size_t i = 0; i < table.materials.size(); ++i) {
      const double value = table.materials[i].values[from];
      if (to) {
        fitted.materials[i].values[*to] =
            ConvertValue(source.kind, value, source.units, fitted.columns[*to].units);
      } else if (value != 0.0) {
        ++homeless;
      }
    }
    if (homeless > 0 && lost) {
      lost->push_back(source.property + " of " + std::to_string(homeless) +
                      (homeless == 1 ? " material" : " materials"));
    }
  }
  return fitted;
}

Result<UnitSystem> SystemNamed(std::string_view names, UnitSystem start) {
  std::vector<std::string_view> parts;
  SplitTokens(names, ',', parts);
  std::array<bool, kUnitBaseCount> named{};
  for (const std::string_view part : parts) {
    const std::string_view name = Trimmed(part);
    std::size_t b = 0;
    while (b < named.size() && FindUnit(static_cast<UnitBase>(b), name) < 0) ++b;
    if (b == named.size() || named[b]) {
      return Failure{"", "unit \"" + std::string(name) + "\"",
                     b == named.size() ? "is not known" : "is the second of its kind",
                     "give one unit each of length, force, mass, time, temperature, heat, angle; "
                     "see qxdb units"};
    }
    named[b] = true;
    start.index[b] = FindUnit(static_cast<UnitBase>(b), name);
  }
  return start;
}

std::string UnitText(int kind, const UnitSystem& system) {
  const UnitCategory* category = FindUnitCategory(kind);
  if (!category) return {};
  std::string above;
  std::string below;
  for (int b = 0; b < kUnitBaseCount; ++b) {
    const int exponent = category->exponents[static_cast<std::size_t>(b)];
    if (exponent == 0) continue;
    Join(exponent > 0 ? above : below, PowerText(static_cast<UnitBase>(b), system, exponent));
  }
  if (below.empty()) return above;
  const bool several = below.find('.') != std::string::npos;
  return (above.empty() ? "1" : above) + "/" + (several ? "(" + below + ")" : below);
}

}  // namespace qx
