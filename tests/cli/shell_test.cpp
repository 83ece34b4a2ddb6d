// What shells and man(1) are told of the commands.

#include <cstdlib>
#include <filesystem>
#include <sstream>

#include "tests/cli/cli_fixture.h"

#ifdef QX_HAS_CGNS
#define QX_CGNS_FILES ".cgns "
#else
#define QX_CGNS_FILES ""
#endif
#ifdef QX_HAS_EXODUS
#define QX_EXODUS_FILES ".exo .e .g .ex2 .exii .gen "
#else
#define QX_EXODUS_FILES ""
#endif
#ifdef QX_HAS_MED
#define QX_MED_FILES ".med .rmed "
#else
#define QX_MED_FILES ""
#endif

namespace qx {
namespace {

class Shell : public Cli {
 protected:
  bool Has(const std::string& tool) const {
    return std::system(("command -v " + tool + " > /dev/null 2>&1").c_str()) == 0;
  }
  /// Runs a line of sh in the test's folder, and returns what it printed.
  std::string Run(const std::string& line) const {
    const std::string command =
        "cd '" + folder_.Path().string() + "' && { " + line + "\n} > ran.txt 2>&1";
    EXPECT_EQ(std::system(command.c_str()), 0) << line;
    return *ReadWholeFile(Path("ran.txt"));
  }
};

const std::string kCompletions = QX_SOURCE_DIR "/packaging/completions/";

TEST_F(Shell, SuggestsWhatMayStandNext) {
  struct Case {
    const char* words;     // typed after the name
    const char* expected;  // in order, apart by bars
  };
  const Case cases[] = {
      {"exp", "export"},
      {"edit ''", "move|renumber|delete"},
      {"edit m", "move"},
      {"export m.qxm ''", ":files .inp " QX_CGNS_FILES QX_EXODUS_FILES QX_MED_FILES
                          ".msh .bdf .dat .nas .blk .obj .ply .stl .unv .uff .vtu .json"},
      {"export m.qxm a.vtu --encoding ''", "binary|ascii|base64|raw|inline"},
      {"export m.qxm a.vtu --encoding = ba", "base64"},
      {"export m.qxm a.vtu --encoding=ba", "--encoding=base64"},
      {"export m.qxm a.vtu ''", ""},
      {"show m.qxm no", "node"},
      {"show m.qxm NO", "node"},
      {"show m.qxm node ''", "all"},
      {"records tagTNod", "tagTNode"},
      {"help sets me", "merge"},
      {"manual seed so", "solve"},
      // The values of an option come before arguments; then its place is free again.
      {"edit move m.qxm --by 1 2 ''", ""},
      {"edit move m.qxm --by 1 2 3 ''", "all"},
      {"check --measure size ''", ":files .qxm"},
      {"check --measure size --mea", "--measure"},
      // What was given, or excludes something given, is not offered.
      {"import a.msh m.qxm --add --",
       "--json|--threads|--units|--format|--include-dir|--option|--strict|--report|--force|--yes|--"
       "help"},
      {"orient m.qxm --node 1 --", "--json|--threads|--yes|--help"},
      {"material import a.gdbp m.qxm S235 --a", ""},
      {"edit renumber m.qxm node 1 --map k.json --f", "--force"},
  };
  for (const Case& c : cases) {
    std::istringstream lines(Qxdb(std::string("complete -- ") + c.words).out);
    std::string found;
    for (std::string line; std::getline(lines, line);) {
      found += (found.empty() ? "" : "|") + line.substr(0, line.find('\t'));
    }
    EXPECT_EQ(found, c.expected) << c.words;
  }
}

TEST_F(Shell, CompletesAWordInBash) {
  if (!Has("bash") || !Has("script")) GTEST_SKIP() << "bash or script is not installed";
  std::filesystem::create_directory(Path("meshes"));
  Write("GOOD.VTU", "");
  // As typed at a terminal; a tab completes, and what stood there is printed by echo.
  Write("keys", "PATH=\"$(dirname '" QX_QXDB "'):$PATH\" PS1=; . " + kCompletions +
                    "qxdb.bash\n"
                    "qxdb expo\t\001echo \n"
                    "qxdb export m.qxm a.vtu --enc\tba\t\001echo \n"
                    "qxdb import goo\t\001echo \n"
                    "qxdb import me\t\001echo \n"
                    "qxdb edit move m.qxm --dr\t\001echo \n"
                    "exit\n");
  const std::string shown =
      Run("TERM=dumb INPUTRC=/dev/null script -qec 'bash --norc --noprofile -i' /dev/null < keys");
  for (const char* completed : {"\nqxdb export\r", "\nqxdb export m.qxm a.vtu --encoding base64\r",
                                "\nqxdb import good.msh\r", "\nqxdb import meshes/\r",
                                "\nqxdb edit move m.qxm --dry-run\r"}) {
    EXPECT_NE(shown.find(completed), std::string::npos) << completed << " is not in\n" << shown;
  }
}

TEST_F(Shell, LoadsInEveryShell) {
  Run("bash -n " + kCompletions + "qxdb.bash");
  std::string skipped;
  for (const auto& [shell, file] : {std::pair{"zsh", "_qxdb"}, {"fish", "qxdb.fish"}}) {
    if (Has(shell)) {
      Run(std::string(shell) + " -n " + kCompletions + file);
    } else {
      skipped += std::string(" ") + shell;
    }
  }
  // A fish completes without a terminal too.
  if (Has("fish")) {
    const std::string shown =
        Run("HOME=. PATH=\"$(dirname '" QX_QXDB "'):$PATH\" fish --no-config -c 'source " +
            kCompletions + "qxdb.fish; complete -C \"qxdb export m.qxm a.vtu --encoding \"'");
    EXPECT_NE(shown.find("base64"), std::string::npos) << shown;
  }
  if (!skipped.empty()) GTEST_SKIP() << "not installed:" << skipped;
}

TEST_F(Shell, PrintsAManualPageOfEveryCommandWithoutAWarning) {
  ASSERT_EQ(Qxdb("manual --into man").code, 0);
  std::size_t pages = 0;
  for (const auto& entry : std::filesystem::directory_iterator(Path("man"))) {
    const std::string text = *ReadWholeFile(entry.path().string());
    EXPECT_NE(text.find(".SH SYNOPSIS"), std::string::npos);
    ++pages;
  }
  EXPECT_GT(pages, 50u);
  const std::string orient = Qxdb("manual orient").out;
  EXPECT_EQ(orient, *ReadWholeFile(Path("man/qxdb-orient.1")));
  EXPECT_NE(orient.find(R"( \fImodel\fR {\fIkeys\fR | \fB\-\-repair\fR})"), std::string::npos);
  EXPECT_EQ(Qxdb("manual fly").code, 2);
  if (!Has("groff")) GTEST_SKIP() << "not linted: groff is not installed";
  EXPECT_EQ(Run("for page in man/*; do groff -man -ww -z -Tutf8 $page; done"), "");
  if (!Has("mandoc")) GTEST_SKIP() << "not linted twice: mandoc is not installed";
  EXPECT_EQ(Run("mandoc -Tlint -Wwarning man/* | grep -v 'missing date' || true"), "");
}

}  // namespace
}  // namespace qx
