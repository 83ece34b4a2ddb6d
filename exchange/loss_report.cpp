#include "exchange/loss_report.h"

#include <algorithm>
#include <fmt/format.h>

namespace qx::exchange {
namespace {

/// Most entries that are told apart; of a hostile file each item may have its own text.
constexpr std::size_t kMostEntries = 250;

constexpr const char* kKinds[] = {"lost", "changed", "assumed"};

std::string Quoted(const std::string& text) {
  std::string out = "\"";
  for (const char c : text) {
    if (c == '"' || c == '\\') {
      out += '\\';
      out += c;
    } else if (static_cast<unsigned char>(c) < 0x20) {
      out += fmt::format("\\u{:04x}", static_cast<unsigned>(c));
    } else {
      out += c;
    }
  }
  return out + '"';
}

bool IsSame(const Loss& a, const Loss& b) {
  return a.kind == b.kind && a.what == b.what && a.why == b.why;
}

}  // namespace

std::string Loss::Line() const {
  std::string line = kind == Kind::kAssumed ? what : fmt::format("{}: {}", what, count);
  std::string more = why;
  if (!where.empty()) more += (more.empty() ? "" : "; ") + ("first: " + where);
  return more.empty() ? line : line + " (" + more + ")";
}

void LossReport::Add(Loss loss) {
  if (loss.count == 0) return;
  const auto find = [&] {
    return std::find_if(entries.begin(), entries.end(),
                        [&](const Loss& entry) { return IsSame(entry, loss); });
  };
  auto same = find();
  if (same == entries.end() && entries.size() >= kMostEntries) {
    if (loss.where.empty()) loss.where = loss.what;
    loss.what =
        fmt::format("and more of other kinds that were {}", kKinds[static_cast<int>(loss.kind)]);
    loss.why = fmt::format("a report tells {} kinds apart", kMostEntries);
    same = find();
  }
  if (same == entries.end()) {
    entries.push_back(std::move(loss));
  } else {
    same->count += loss.count;
  }
}

void LossReport::Append(const LossReport& other) {
  for (const Loss& loss : other.entries) Add(loss);
  faults.insert(faults.end(), other.faults.begin(), other.faults.end());
}

bool LossReport::IsLossless() const {
  return std::all_of(entries.begin(), entries.end(),
                     [](const Loss& loss) { return loss.kind == Loss::Kind::kAssumed; });
}

Outcome LossReport::CheckLossless(const std::string& file) const {
  if (IsLossless()) return {};
  const auto counts = [](const Loss& loss) { return loss.kind != Loss::Kind::kAssumed; };
  const auto first = std::find_if(entries.begin(), entries.end(), counts);
  const auto others = std::count_if(entries.begin(), entries.end(), counts) - 1;
  std::string what = "not everything gets through: " + first->Line();
  if (others > 0) what += fmt::format(", and {} more", others);
  return Failure{file, "", std::move(what), "do without --strict, or see --report FILE"};
}

std::vector<std::string> LossReport::Lines() const {
  std::vector<std::string> lines;
  for (const Loss& loss : entries) lines.push_back(loss.Line());
  return lines;
}

std::string LossReport::ToJson(const std::string& file, const std::string& format,
                               const std::string& direction) const {
  std::string json = fmt::format(
      "{{\n  \"file\": {},\n  \"format\": {},\n  \"direction\": {},\n  \"lossless\": {},\n"
      "  \"losses\": [",
      Quoted(file), Quoted(format), Quoted(direction), IsLossless() && faults.empty());
  const char* before = "\n";
  for (const Loss& loss : entries) {
    json += fmt::format(
        "{}    {{\"kind\": \"{}\", \"what\": {}, \"count\": {}, \"where\": {}, \"why\": {}}}",
        before, kKinds[static_cast<int>(loss.kind)], Quoted(loss.what), loss.count,
        Quoted(loss.where), Quoted(loss.why));
    before = ",\n";
  }
  json += entries.empty() ? "],\n" : "\n  ],\n";
  json += "  \"faults\": [";
  before = "\n";
  for (const Failure& fault : faults) {
    json += fmt::format("{}    {{\"place\": {}, \"what\": {}, \"remedy\": {}}}", before,
                        Quoted(fault.place), Quoted(fault.what), Quoted(fault.remedy));
    before = ",\n";
  }
  return json + (faults.empty() ? "]\n}\n" : "\n  ]\n}\n");
}

}  // namespace qx::exchange
