#pragma once
// The tables of layouts and gateway fields: golden, written by hand, and no part of the code.

#include <fstream>
#include <string>
#include <vector>

namespace qx {

/// The lines of a table beside this file, without remarks and empty ones. Empty when it cannot be
/// read, which no test that uses it passes.
inline std::vector<std::string> GoldenLines(const char* name) {
  std::ifstream file(std::string(QX_SOURCE_DIR "/tests/record/") + name);
  std::vector<std::string> lines;
  for (std::string line; std::getline(file, line);) {
    if (!line.empty() && line[0] != '#') lines.push_back(line);
  }
  return lines;
}

}  // namespace qx
