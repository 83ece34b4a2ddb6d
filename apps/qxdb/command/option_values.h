#pragma once
// What the values of options must be, said in one line when they are not.

#include <cmath>
#include <cstdlib>
#include <fmt/format.h>
#include <optional>
#include <string>

#include "apps/qxdb/command/command.h"

namespace qx::app {

/// The number that a text is, as a whole. None for "nan", "inf" and "1e400", which are numbers to a
/// parser and to nobody else.
inline std::optional<double> ReadReal(const std::string& text) {
  char* end = nullptr;
  const double value = std::strtod(text.c_str(), &end);
  if (text.empty() || *end != 0 || !std::isfinite(value)) return std::nullopt;
  return value;
}

/// Lets numbers from 0 up pass.
inline ValueCheck NonNegativeReal() {
  const auto fault = [](const std::string& text) {
    const std::optional<double> value = ReadReal(text);
    return value && *value >= 0 ? "" : fmt::format("\"{}\" is not a number from 0 up", text);
  };
  return {fault, "NONNEGATIVE"};
}

/// Lets numbers in a closed range pass.
inline ValueCheck RealBetween(double least, double most) {
  const auto fault = [least, most](const std::string& text) {
    const std::optional<double> value = ReadReal(text);
    if (value && *value >= least && *value <= most) return std::string();
    return fmt::format("{} is no number in [{} - {}]", text, least, most);
  };
  return {fault, fmt::format("in [{} - {}]", least, most)};
}

}  // namespace qx::app
