// Cases that people write: the files of cases/, each a model and what it is asked.
//
//   statement ok            the lines below run, up to an empty one
//   statement error TEXT    they fail, and the message contains TEXT
//   query                   they give the rows below "----", columns apart by |
//   plan TEXT               EXPLAIN QUERY PLAN of them contains TEXT
// Lines that begin with # are comments. Every file begins anew with a block of 3 by 3 by 3
// hexahedra (FillBlock in model.h), open for writing.

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>

#include "tests/sql/database.h"
#include "tests/sql/model.h"

namespace qx::sql {
namespace {

struct Case {
  int line = 0;
  std::string kind;
  std::string argument;
  std::string text;
  std::vector<std::string> expected;
};

std::vector<Case> CasesOf(const std::string& path) {
  std::vector<Case> cases;
  std::ifstream in(path);
  enum { kBetween, kText, kRows } where = kBetween;
  int number = 0;
  for (std::string line; std::getline(in, line);) {
    ++number;
    if (line.starts_with('#')) continue;
    if (line.empty()) {
      where = kBetween;
    } else if (where == kBetween) {
      Case& made = cases.emplace_back();
      made.line = number;
      const bool is_statement = line.starts_with("statement ");
      const std::size_t end = line.find(' ', is_statement ? 10 : 0);
      made.kind = line.substr(0, end);
      if (end != std::string::npos) made.argument = line.substr(end + 1);
      where = kText;
    } else if (line == "----") {
      where = kRows;
    } else if (where == kText) {
      cases.back().text += line + '\n';
    } else {
      cases.back().expected.push_back(line);
    }
  }
  return cases;
}

std::vector<std::string> Lines(const Rows& rows) {
  std::vector<std::string> lines;
  for (const Row& row : rows) {
    std::string& line = lines.emplace_back();
    for (std::size_t i = 0; i < row.size(); ++i) line += (i ? "|" : "") + row[i];
  }
  return lines;
}

class SqlCases : public testing::TestWithParam<std::string> {};

TEST_P(SqlCases, AreAnswered) {
  CQXDBSession session(host::SetUpModel);
  FillBlock(session, 3);
  Database db(session, true);
  ASSERT_EQ(db.Fault(), "");
  const std::vector<Case> cases = CasesOf(QX_SOURCE_DIR "/tests/sql/cases/" + GetParam());
  ASSERT_FALSE(cases.empty());
  for (const Case& asked : cases) {
    SCOPED_TRACE(GetParam() + ':' + std::to_string(asked.line) + ": " + asked.text);
    if (asked.kind == "statement ok") {
      db.Run(asked.text);
      EXPECT_EQ(db.Fault(), "");
    } else if (asked.kind == "statement error") {
      db.Run(asked.text);
      EXPECT_NE(db.Fault().find(asked.argument), std::string::npos) << db.Fault();
      EXPECT_FALSE(db.Fault().empty());
    } else if (asked.kind == "query") {
      EXPECT_EQ(Lines(db.Run(asked.text)), asked.expected) << db.Fault();
    } else if (asked.kind == "plan") {
      std::string plan;
      for (const Row& row : db.Run("EXPLAIN QUERY PLAN " + asked.text)) plan += row.back() + '\n';
      EXPECT_NE(plan.find(asked.argument), std::string::npos) << plan << db.Fault();
    } else {
      FAIL() << "unknown kind of case: " << asked.kind;
    }
    EXPECT_EQ(session.Validate(), "");
  }
}

std::vector<std::string> Files() {
  std::vector<std::string> files;
  for (const auto& entry : std::filesystem::directory_iterator(QX_SOURCE_DIR "/tests/sql/cases")) {
    files.push_back(entry.path().filename().string());
  }
  std::sort(files.begin(), files.end());
  return files;
}

std::string NameOf(const testing::TestParamInfo<std::string>& file) {
  return file.param.substr(0, file.param.find('.'));
}

INSTANTIATE_TEST_SUITE_P(Files, SqlCases, testing::ValuesIn(Files()), NameOf);

}  // namespace
}  // namespace qx::sql
