// The layers stay in order, the include graph stays free of cycles, and headers say their threads.

#include <filesystem>
#include <fstream>
#include <functional>
#include <gtest/gtest.h>
#include <map>
#include <regex>
#include <set>
#include <string>
#include <vector>

namespace {

namespace fs = std::filesystem;
using Graph =
    std::map<std::string, std::set<std::string>>;  // file to the project files it includes

/// Folders from the lowest to the highest; a folder includes itself and what stands before it.
const std::vector<std::string> kLayers = {
    "src/qx_db/platform",
    "src/qx_db/lib",
    "src/qx_db/record",
    "src/qx_db/pool",
    "src/qx_db/core",
    "src/qx_db/bulk",
    "src/qx_db/gateway",
    "src/qx_db/mesh",
    "src/qx_db/callback",
    "src/qx_db/model",
    "src/qx_db/select",
    "src/qx_db/app",
    "src/qx_db/shape",
    "src/qx_db/material",
    "src/qx_db/ui",
    "src/qx_db/net",
    "src/qx_db",
    "adapters",
    "host",
    "exchange",
    "sql",
    "viewer",
    "apps",
};

Graph ReadGraph() {
  const fs::path root = QX_SOURCE_DIR;
  const std::regex include("^#include \"([^\"]+)\"");
  Graph graph;
  for (const char* top : {"src", "adapters", "exchange", "host", "sql", "viewer", "apps"}) {
    if (!fs::exists(root / top)) continue;
    for (const auto& entry : fs::recursive_directory_iterator(root / top)) {
      const auto extension = entry.path().extension();
      if (extension != ".h" && extension != ".cpp") continue;
      auto& included = graph[fs::relative(entry.path(), root).generic_string()];
      std::ifstream in(entry.path());
      for (std::string line; std::getline(in, line);) {
        std::smatch match;
        if (!std::regex_search(line, match, include)) continue;
        for (const char* base : {"src/", ""}) {
          const std::string target = base + match[1].str();
          if (fs::exists(root / target)) included.insert(target);
        }
      }
    }
  }
  return graph;
}

std::size_t LayerOf(const std::string& file) {
  std::size_t best = kLayers.size();
  std::size_t length = 0;
  for (std::size_t i = 0; i < kLayers.size(); ++i) {
    if (file.starts_with(kLayers[i] + "/") && kLayers[i].size() > length) {
      best = i;
      length = kLayers[i].size();
    }
  }
  return best;
}

TEST(IncludeGraph, FoldersIncludeOnlyWhatStandsBelowThem) {
  const Graph graph = ReadGraph();
  ASSERT_GT(graph.size(), 40u);
  // Where records meet the session: one source file looks keys up in its pools.
  const std::set<std::string> allowed = {"src/qx_db/record/references.cpp"};
  for (const auto& [file, included] : graph) {
    ASSERT_LT(LayerOf(file), kLayers.size()) << file << " is in no layer";
    for (const std::string& target : included) {
      if (allowed.contains(file)) continue;
      EXPECT_LE(LayerOf(target), LayerOf(file)) << file << " includes " << target;
    }
  }
}

TEST(Headers, SayWhatMayBeCalledFromWhichThread) {
  const fs::path root = QX_SOURCE_DIR;
  int headers = 0;
  for (const char* top : {"src/qx_db", "exchange", "host", "sql", "adapters/occt", "adapters/qt"}) {
    for (fs::recursive_directory_iterator entry(root / top), end; entry != end; ++entry) {
      // Of the formats each has headers of its own, which exchange/format.h speaks for.
      if (entry->is_directory() &&
          (top == std::string("exchange") || entry->path().filename() == "include")) {
        entry.disable_recursion_pending();
      }
      if (entry->path().extension() != ".h" || entry->path().filename() == "qx_db.h") continue;
      std::ifstream in(entry->path());
      const std::string text(std::istreambuf_iterator<char>(in), {});
      EXPECT_NE(text.find("Threads:"), std::string::npos) << entry->path();
      ++headers;
    }
  }
  EXPECT_GT(headers, 100);
}

TEST(IncludeGraph, HasNoCycle) {
  const Graph graph = ReadGraph();
  std::set<std::string> finished;
  std::vector<std::string> path;
  const std::function<void(const std::string&)> visit = [&](const std::string& file) {
    const auto again = std::find(path.begin(), path.end(), file);
    if (again != path.end()) {
      std::string cycle;
      for (auto at = again; at != path.end(); ++at) cycle += *at + " -> ";
      FAIL() << cycle << file;
    }
    if (finished.contains(file)) return;
    path.push_back(file);
    if (const auto found = graph.find(file); found != graph.end()) {
      for (const std::string& target : found->second) visit(target);
    }
    path.pop_back();
    finished.insert(file);
  };
  for (const auto& [file, included] : graph) visit(file);
}

}  // namespace
