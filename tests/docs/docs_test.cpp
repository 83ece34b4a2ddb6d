// Every command line and program in the documentation is run.
//
// A ```sh block is run line by line in a folder of the page's own, which holds a copy of examples/
// (docs/ is $DOCS); a line with "# refused" must fail, every other must not. A ```cpp block is a
// program: compiled, linked and run there. Comments of the page steer this:
//   <!-- before: COMMAND -->    a line to run first that readers need not see
//   <!-- not run: REASON -->    the next block stands for something that cannot be run here

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <sstream>
#include <string>
#include <sys/wait.h>
#include <utility>
#include <vector>

#include "qx_db/platform/file.h"

#include "tests/scratch_folder.h"

namespace qx {
namespace {

struct Block {
  enum class Kind { kBefore, kShell, kProgram, kText } kind;
  int line;  // in the page
  std::string text;
  std::string reason;  // why it is not run
};

/// What follows `head` up to " -->", if the line begins with it.
std::string CommentOf(const std::string& line, const std::string& head) {
  if (!line.starts_with(head)) return "";
  return line.substr(head.size(), line.rfind(" -->") - head.size());
}

std::vector<Block> BlocksOf(const std::string& page) {
  std::vector<Block> blocks;
  std::istringstream lines(page);
  std::string reason;
  bool is_open = false;
  int number = 0;
  for (std::string line; std::getline(lines, line);) {
    ++number;
    if (is_open) {
      if (line == "```") {
        is_open = false;
      } else {
        blocks.back().text += line + "\n";
      }
      continue;
    }
    if (const std::string command = CommentOf(line, "<!-- before: "); !command.empty()) {
      blocks.push_back({Block::Kind::kBefore, number, command + "\n", ""});
    } else if (const std::string why = CommentOf(line, "<!-- not run: "); !why.empty()) {
      reason = why;
    } else if (line.starts_with("```")) {
      const Block::Kind kind = line == "```sh"    ? Block::Kind::kShell
                               : line == "```cpp" ? Block::Kind::kProgram
                                                  : Block::Kind::kText;
      blocks.push_back({kind, number, "", std::exchange(reason, "")});
      is_open = true;
    } else if (line.starts_with("    ")) {
      blocks.push_back({Block::Kind::kText, number, line.substr(4) + "\n", ""});
    }
  }
  return blocks;
}

/// The lines of a block as the shell takes them, those that a backslash ends joined.
std::vector<std::string> CommandsOf(const std::string& text) {
  std::vector<std::string> commands;
  std::istringstream lines(text);
  std::string command;
  for (std::string line; std::getline(lines, line);) {
    command += line;
    if (command.ends_with('\\')) {
      command.pop_back();
      continue;
    }
    if (!command.empty() && command[0] != '#') commands.push_back(command);
    command.clear();
  }
  return commands;
}

class Page : public testing::TestWithParam<std::string> {
 protected:
  Page() {
    std::filesystem::copy(QX_SOURCE_DIR "/examples", folder_.Path("examples"),
                          std::filesystem::copy_options::recursive);
  }

  /// Runs a line of the shell in the folder and returns its exit code; what it printed is in
  /// `out_`.
  int Run(const std::string& line) {
    const std::string command = "cd '" + folder_.Path().string() +
                                "' && DOCS='" QX_SOURCE_DIR "/docs' PATH=\"$(dirname '" QX_QXDB
                                "'):$PATH\" && { " +
                                line + "\n} > .out 2>&1";
    const int code = WEXITSTATUS(std::system(command.c_str()));
    out_ = *ReadWholeFile(folder_.Path(".out"));
    return code;
  }

  const ScratchFolder folder_;
  std::string out_;
};

TEST_P(Page, DoesWhatItSays) {
  const std::string path = std::string(QX_SOURCE_DIR "/") + GetParam();
  const Result<std::string> page = ReadWholeFile(path);
  ASSERT_TRUE(page) << page.AsOutcome().Line();
  for (const Block& block : BlocksOf(*page)) {
    const std::string place = GetParam() + ":" + std::to_string(block.line) + ": ";
    if (!block.reason.empty()) {
      std::printf("%snot run: %s\n", place.c_str(), block.reason.c_str());
      continue;
    }
    if (block.kind == Block::Kind::kProgram) {
      std::ofstream(folder_.Path("program.cpp")) << block.text;
      const int compiled = Run(QX_COMPILE " program.cpp -o program " QX_LINK);
      EXPECT_EQ(compiled, 0) << place << out_;
      if (compiled != 0) continue;
      EXPECT_EQ(Run("./program"), 0) << place << out_;
      continue;
    }
    for (const std::string& command : CommandsOf(block.text)) {
      if (block.kind == Block::Kind::kText) {
        EXPECT_FALSE(command.starts_with("qxdb ") || command.starts_with("$ ") ||
                     command.starts_with("./"))
            << place << "a command stands outside a ```sh block: " << command;
        continue;
      }
      const bool is_refused = command.find("# refused") != std::string::npos;
      const int code = Run(command);
      if (code != 0 && out_.find("is not part of this build") != std::string::npos) {
        GTEST_SKIP() << place << "what follows needs a component that is off: " << out_;
      }
      EXPECT_TRUE(is_refused ? code == 1 || code == 2 : code == 0)
          << place << command << "\nends with " << code << ": " << out_;
    }
  }
}

/// `qxdb word` in the running text names a command that there is.
TEST_P(Page, NamesCommandsThatThereAre) {
  const std::string page = *ReadWholeFile(std::string(QX_SOURCE_DIR "/") + GetParam());
  ASSERT_EQ(0, Run("qxdb complete -- ''"));
  const std::string known = "\n" + out_;
  const std::string head = "`qxdb ";
  for (std::size_t at = 0; (at = page.find(head, at)) != std::string::npos; ++at) {
    const std::size_t from = at + head.size();
    const std::string word = page.substr(from, page.find_first_of(" `\n", from) - from);
    if (word.starts_with('-') || word == "COMMAND") continue;
    EXPECT_NE(known.find("\n" + word + "\t"), std::string::npos) << GetParam() << ": " << word;
  }
}

std::vector<std::string> Pages() {
  std::vector<std::string> pages = {"README.md"};
  for (const auto& entry : std::filesystem::directory_iterator(QX_SOURCE_DIR "/docs")) {
    if (entry.path().extension() == ".md") {
      pages.push_back("docs/" + entry.path().filename().string());
    }
  }
  std::sort(pages.begin(), pages.end());
  return pages;
}

std::string NameOf(const testing::TestParamInfo<std::string>& page) {
  std::string name = page.param.substr(0, page.param.size() - 3);
  std::replace_if(
      name.begin(), name.end(), [](unsigned char c) { return !std::isalnum(c); }, '_');
  return name;
}

INSTANTIATE_TEST_SUITE_P(Docs, Page, testing::ValuesIn(Pages()), NameOf);

}  // namespace
}  // namespace qx
