// Command lines that people write down: the files of cases/, each a session at a shell.
//
//   $ LINE       is run by sh, in a folder of the file's own that holds a copy of examples/
//   text         what it prints, line by line; on stderr behind "! "
//   [1]          the code it ends with, unless that is 0
// Lines that begin with # are comments. A line "..." stands for any lines, and "*" in a line for
// any text.

#include <algorithm>
#include <filesystem>
#include <span>
#include <sstream>

#include "tests/cli/cli_fixture.h"

namespace qx {
namespace {

struct WrittenCase {
  int line = 0;
  std::string command;
  std::vector<std::string> expected;
};

std::vector<WrittenCase> CasesOf(const std::string& path) {
  std::vector<WrittenCase> cases;
  std::ifstream in(path);
  int number = 0;
  for (std::string line; std::getline(in, line);) {
    ++number;
    if (line.empty() || line.starts_with('#')) continue;
    if (line.starts_with("$ ")) {
      cases.push_back({number, line.substr(2), {}});
    } else if (!cases.empty()) {
      cases.back().expected.push_back(line);
    }
  }
  return cases;
}

/// Whether a text is a pattern in which "*" stands for any text.
bool Matches(std::string_view pattern, std::string_view text) {
  if (pattern.empty()) return text.empty();
  if (pattern[0] == '*') {
    return Matches(pattern.substr(1), text) || (!text.empty() && Matches(pattern, text.substr(1)));
  }
  return !text.empty() && pattern[0] == text[0] && Matches(pattern.substr(1), text.substr(1));
}

using Lines = std::span<const std::string>;

bool AreAs(Lines expected, Lines printed) {
  if (expected.empty()) return printed.empty();
  if (expected[0] == "...") {
    for (std::size_t i = 0; i <= printed.size(); ++i) {
      if (AreAs(expected.subspan(1), printed.subspan(i))) return true;
    }
    return false;
  }
  return !printed.empty() && Matches(expected[0], printed[0]) &&
         AreAs(expected.subspan(1), printed.subspan(1));
}

void AddLines(const std::string& text, const std::string& before, std::vector<std::string>& to) {
  std::istringstream lines(text);
  for (std::string line; std::getline(lines, line);) {
    if (!line.empty()) to.push_back(before + line);
  }
}

class CliCases : public Cli, public testing::WithParamInterface<std::string> {};

TEST_P(CliCases, PrintWhatTheyAreExpectedTo) {
  std::filesystem::copy(QX_SOURCE_DIR "/examples", Path("examples"),
                        std::filesystem::copy_options::recursive);
  const std::vector<WrittenCase> cases = CasesOf(QX_SOURCE_DIR "/tests/cli/cases/" + GetParam());
  ASSERT_FALSE(cases.empty());
  for (const WrittenCase& each : cases) {
    const std::string command = "cd '" + folder_.Path().string() +
                                "' && PATH=\"$(dirname '" QX_QXDB "'):$PATH\" && { " +
                                each.command + "\n} 2> err.txt > out.txt";
    const int code = WEXITSTATUS(std::system(command.c_str()));
    std::vector<std::string> printed;
    AddLines(*ReadWholeFile(Path("out.txt")), "", printed);
    AddLines(*ReadWholeFile(Path("err.txt")), "! ", printed);
    if (code != 0) printed.push_back('[' + std::to_string(code) + ']');
    std::string shown;
    for (const std::string& line : printed) shown += line + '\n';
    EXPECT_TRUE(AreAs(each.expected, printed))
        << GetParam() << ':' << each.line << ": " << each.command << " gives\n"
        << shown;
  }
}

std::vector<std::string> Files() {
  std::vector<std::string> files;
  for (const auto& entry : std::filesystem::directory_iterator(QX_SOURCE_DIR "/tests/cli/cases")) {
    files.push_back(entry.path().filename().string());
  }
  std::sort(files.begin(), files.end());
  return files;
}

INSTANTIATE_TEST_SUITE_P(Files, CliCases, testing::ValuesIn(Files()), [](const auto& file) {
  return file.param.substr(0, file.param.find('.'));
});

}  // namespace
}  // namespace qx
