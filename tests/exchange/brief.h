#pragma once
// What a loss report says, without where and why.

#include <string>
#include <vector>

#include "exchange/loss_report.h"

/// "what: count" of losses, the text of assumptions.
inline std::vector<std::string> Briefly(const qx::exchange::LossReport& report) {
  std::vector<std::string> lines;
  for (qx::exchange::Loss loss : report.entries) {
    loss.where.clear();
    loss.why.clear();
    lines.push_back(loss.Line());
  }
  return lines;
}
