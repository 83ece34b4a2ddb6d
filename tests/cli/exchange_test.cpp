// What import and export say of decks, and what they replace.

#include <algorithm>
#include <filesystem>
#include <sstream>
#include <vector>

#include "cli_fixture.h"

namespace qx {
namespace {

std::vector<std::string> LinesOf(const std::string& text) {
  std::istringstream in(text);
  std::vector<std::string> lines;
  for (std::string line; std::getline(in, line);) lines.push_back(line);
  return lines;
}

TEST_F(Cli, TellsAllFaultsInTheOrderOfTheFile) {
  Write("bad.inp",
        "*Heading\n*Node\n1, 0, 0, 0\n2, one, 0, 0\n3, 0, 1, 0\n*Element, type=C3D4\n"
        "1, 1, 2, 3, 9\n*Solid Section, elset=none\n,\n*Node\n4, 0, two, 1\n");
  const Ran ran = Qxdb("import bad.inp m.qxm");
  EXPECT_EQ(ran.code, 1);
  EXPECT_FALSE(std::filesystem::exists(Path("m.qxm")));
  const std::vector<std::string> lines = LinesOf(ran.err);
  const char* expected[] = {"line 4, *NODE: 'one'", "line 7, *ELEMENT", "line 8, *SOLID SECTION",
                            "line 11, *NODE: 'two'"};
  ASSERT_EQ(lines.size(), std::size(expected)) << ran.err;
  for (std::size_t i = 0; i < lines.size(); ++i) {
    EXPECT_NE(lines[i].find(expected[i]), std::string::npos) << lines[i];
    EXPECT_TRUE(lines[i].starts_with("qxdb: bad.inp: ")) << lines[i];
  }
}

TEST_F(Cli, ReplacesNoDeckThatSomebodyWrote) {
  ASSERT_EQ(Qxdb("import good.msh m.qxm").code, 0);
  for (const std::string name : {"mine.inp", "mine.bdf", "mine.msh", "mine.vtu"}) {
    SCOPED_TRACE(name);
    const std::string by_hand = name == "mine.inp"   ? "*Heading\n mine\n*Node\n1, 0, 0, 0\n"
                                : name == "mine.bdf" ? "BEGIN BULK\nGRID,1,,0.,0.,0.\nENDDATA\n"
                                : name == "mine.msh" ? *ReadWholeFile(Path("good.msh"))
                                                     : "<VTKFile type=\"UnstructuredGrid\"/>\n";
    Write(name, by_hand);
    const Ran refused = Qxdb("export m.qxm " + name);
    EXPECT_EQ(refused.code, 1);
    EXPECT_NE(refused.err.find("--force"), std::string::npos) << refused.err;
    EXPECT_EQ(*ReadWholeFile(Path(name)), by_hand);
    EXPECT_EQ(Qxdb("export m.qxm " + name + " --force").code, 0);
    EXPECT_EQ(Qxdb("export m.qxm " + name).code, 0) << "it is ours now";
    if (name == "mine.vtu" || name == "mine.msh") continue;
    const std::string ours = *ReadWholeFile(Path(name));
    Write(name, ours + (name == "mine.inp" ? "*Step\n*Static\n*End Step\n" : "$ my loads\n"));
    EXPECT_EQ(Qxdb("export m.qxm " + name).code, 1) << "somebody changed it";
  }
}

// Libraries that are loaded with the first file: nothing else here brings them in.
TEST_F(Cli, WritesAndReadsFormatsWhoseLibrariesAreLoaded) {
  ASSERT_EQ(Qxdb("import good.msh m.qxm").code, 0);
  const std::vector<std::string> files = {
#ifdef QX_HAS_CGNS
      "a.cgns",
#endif
#ifdef QX_HAS_EXODUS
      "a.exo",
#endif
#ifdef QX_HAS_MED
      "a.med",
#endif
  };
  for (const std::string& file : files) {
    SCOPED_TRACE(file);
    const Ran out = Qxdb("export m.qxm " + file);
    ASSERT_EQ(out.code, 0) << out.err;
    const Ran in = Qxdb("import " + file + " " + file + ".qxm");
    ASSERT_EQ(in.code, 0) << in.err;
    const Ran again = Qxdb("export " + file + ".qxm back-" + file);
    ASSERT_EQ(again.code, 0) << again.err;
    EXPECT_EQ(*ReadWholeFile(Path(file)), *ReadWholeFile(Path("back-" + file)));
  }
}

}  // namespace
}  // namespace qx
