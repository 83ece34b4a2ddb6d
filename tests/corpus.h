#pragma once
// Real files that tests read when they are there.

#include <filesystem>
#include <gtest/gtest.h>
#include <string>

/// Path of a file of the corpus, or "" when the corpus is not on this machine.
inline std::string CorpusFile(const std::string& name) {
  const std::string path = std::string(QX_CORPUS) + "/" + name;
  return std::filesystem::exists(path) ? path : std::string();
}

/// Ends the test as skipped, saying which file is missing.
#define QX_REQUIRE_CORPUS(variable, name)        \
  const std::string variable = CorpusFile(name); \
  if (variable.empty()) GTEST_SKIP() << "no corpus file " << (name)
