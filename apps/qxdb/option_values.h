#pragma once
// What the values of options must be, said in one line when they are not.

#include <CLI/CLI.hpp>
#include <cmath>
#include <cstdlib>
#include <fmt/format.h>
#include <string>

namespace qx::app {

/// Lets numbers from 0 up pass. Texts like "nan", "inf" and "1e400", which are numbers to a parser
/// and to nobody else, do not.
inline CLI::Validator NonNegativeReal() {
  return CLI::Validator(
      [](std::string& text) {
        char* end = nullptr;
        const double value = std::strtod(text.c_str(), &end);
        const bool is_number = !text.empty() && *end == 0 && std::isfinite(value);
        if (is_number && value >= 0) return std::string();
        return fmt::format("\"{}\" is not a number from 0 up", text);
      },
      "NONNEGATIVE");
}

}  // namespace qx::app
