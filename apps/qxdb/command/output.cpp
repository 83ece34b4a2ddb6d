#include "apps/qxdb/command/output.h"

#include <filesystem>
#include <fmt/format.h>
#include <fstream>
#include <set>
#include <string_view>

#include "qx_db/platform/file.h"
#include "qx_db/qx_db.h"

#include "host/session.h"

namespace qx::app {
namespace {

namespace fs = std::filesystem;

constexpr const char* kSvgMark = "<!-- drawn by qxdb -->";

std::string HeadOf(const std::string& path) {
  std::string head(std::size_t{64} << 10, '\0');
  std::ifstream in(PathFromUtf8(path), std::ios::binary);
  in.read(head.data(), static_cast<std::streamsize>(head.size()));
  head.resize(static_cast<std::size_t>(in.gcount()));
  return head;
}

/// The first name in a JSON object; "{}" for an empty object, "" for anything else.
std::string FirstName(std::string_view json) {
  const auto skip = [&] {
    json.remove_prefix(std::min(json.find_first_not_of(" \t\r\n"), json.size()));
  };
  skip();
  if (!json.starts_with('{')) return {};
  json.remove_prefix(1);
  skip();
  if (json.starts_with('}')) return "{}";
  if (!json.starts_with('"')) return {};
  json.remove_prefix(1);
  return std::string(json.substr(0, json.find('"')));
}

/// Whether a model of ours has a pool of that name in the gateway's documents.
bool IsTableName(const std::string& name) {
  static const std::set<std::string> names = [] {
    CQXDocBase document(host::SetUpModel);
    std::set<std::string> all;
    for (const DPoolBase* pool : document.GetDBSession()->Pools()) {
      all.insert(pool->GetAPIName().ToUtf8());
    }
    return all;
  }();
  return names.contains(name);
}

/// Whether a text begins as a key map that we wrote: tables of numbers under numbers.
bool IsKeyMap(std::string_view head) {
  const std::string name = FirstName(head);
  const auto take = [&](std::string_view text) {
    head.remove_prefix(std::min(head.find_first_not_of(" \n"), head.size()));
    const bool is_there = head.starts_with(text);
    if (is_there) head.remove_prefix(text.size());
    return is_there;
  };
  const auto take_number = [&] {
    const std::size_t digits = std::min(head.find_first_not_of("0123456789"), head.size());
    head.remove_prefix(digits);
    return digits > 0;
  };
  if (!take("{")) return false;
  if (take("}")) return true;
  if (!IsTableName(name) || !take(fmt::format("\"{}\"", name)) || !take(": {")) return false;
  return take("}") || (take("\"") && take_number() && take("\": ") && take_number());
}

bool Begins(OutputKind kind, const std::string& path) {
  const std::string head = HeadOf(path);
  switch (kind) {
    case OutputKind::kGateway:
      return head == "{}\n" || (head.starts_with("{\n  \"") && IsTableName(FirstName(head)));
    case OutputKind::kKeyMap:
      return IsKeyMap(head);
    case OutputKind::kSvg:
      return head.starts_with("<svg ") && head.find(kSvgMark) != std::string::npos;
    case OutputKind::kHtml:
      return head.find("<meta name=\"generator\" content=\"qxdb view\">") != std::string::npos;
    case OutputKind::kPng:
      return head.starts_with("\x89PNG") &&
             head.find(std::string_view("tEXtSoftware\0qxdb", 17)) != std::string::npos;
    case OutputKind::kPool:
      return head.starts_with("QXDBREC1");
    case OutputKind::kPoints:
      return FirstName(head) == "edges";
    case OutputKind::kReport:
      return FirstName(head) == "file" && head.find("\"direction\": ") != std::string::npos &&
             head.find("\"lossless\": ") != std::string::npos;
    case OutputKind::kManual:
      return head.starts_with(kManualMark);
  }
  return false;
}

}  // namespace

std::string MarkedSvg(std::string svg) {
  return svg.insert(svg.find('>') + 1, fmt::format("\n{}", kSvgMark));
}

Outcome CheckOutput(const std::string& output, OutputKind kind, bool force,
                    const std::vector<std::string>& others) {
  return CheckOutput(
      output, [kind](const std::string& path) { return Begins(kind, path); }, force, others);
}

Outcome CheckOutput(const std::string& output, const exchange::Format& format, bool force,
                    const std::vector<std::string>& others) {
  return CheckOutput(
      output, [&](const std::string& path) { return format.is_own && format.is_own(path); }, force,
      others);
}

Outcome CheckOutput(const std::string& output,
                    const std::function<bool(const std::string&)>& is_kind, bool force,
                    const std::vector<std::string>& others) {
  if (output.empty()) return {};
  const fs::path path = PathFromUtf8(output);
  std::error_code error;
  for (const std::string& other : others) {
    if (other.empty()) continue;
    if (!IsSamePlace(output, other) && !fs::equivalent(path, PathFromUtf8(other), error)) continue;
    return Failure{output, "",
                   "is read by this command, or written by it before, and would be overwritten",
                   "name another file"};
  }
  if (fs::is_directory(path, error)) {
    return Failure{output, "", "is a directory", "name a file in it"};
  }
  if (Outcome leads = CheckLink(output); !leads) return leads;
  if (force || !fs::is_regular_file(path, error)) return {};
  if (fs::file_size(path, error) == 0 || is_kind(output)) return {};
  return Failure{output, "", "exists and is not of the kind that is written here",
                 "name another file, or replace it with --force"};
}

void AddForce(Command& command, bool& force, const char* also) {
  command.Add("--force", &force, std::string("Replace a file that exists, whatever it is") + also);
}

}  // namespace qx::app
