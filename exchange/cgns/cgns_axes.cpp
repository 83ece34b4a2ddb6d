#include "exchange/cgns/cgns_axes.h"

#include <fmt/format.h>

#include "qx_db/platform/text.h"

#include "exchange/cgns/cgns_kinds.h"

namespace qx::exchange {

CgnsAxes FindAxes(const std::vector<CgnsTree::Child>& nodes, std::int64_t dimensions,
                  const std::string& place, LossReport& report) {
  CgnsAxes axes;
  std::string other;  // the first axis of another kind
  for (const CgnsTree::Child& node : nodes) {
    if (node.label != "DataArray_t") continue;
    const bool is_axis = node.name.starts_with("Coordinate");
    const std::size_t d =
        is_axis && node.name.size() == 11 ? std::string_view("XYZ").find(node.name[10]) : 3;
    if (d < 3) {
      axes.nodes[d] = node.path;
      continue;
    }
    const std::string name = IsUtf8(node.name) ? node.name : "?";
    if (is_axis && other.empty()) other = name;
    report.Lost("arrays beside the coordinates were left out", 1, place + "/" + name,
                "the model has no place for them");
  }
  for (std::size_t d = 0; d < static_cast<std::size_t>(dimensions); ++d) {
    if (!axes.nodes[d].empty()) continue;
    axes.wrong =
        other.empty()
            ? fmt::format("it has no Coordinate{}, in a space of {} dimensions", "XYZ"[d],
                          dimensions)
            : fmt::format("its coordinates are not Cartesian ({}), which is not read", other);
    break;
  }
  return axes;
}

std::optional<UnitSystem> CgnsUnitsAt(CgnsTree& tree, const std::string& node) {
  const std::string units = tree.Find(node, "DimensionalUnits");
  if (units.empty() || !tree.HasData(units)) return std::nullopt;
  return UnitsOfCgns(tree.File().Bytes(CgnsTree::Data(units)));
}

double LengthFactor(const UnitSystem& from, const UnitSystem& to) {
  const auto metres = [](const UnitSystem& system) {
    const auto index = static_cast<std::size_t>(system[UnitBase::kLength]);
    const UnitDefinition& unit = UnitsOf(UnitBase::kLength)[index];
    return unit.numerator / unit.denominator;
  };
  return metres(from) / metres(to);
}

}  // namespace qx::exchange
