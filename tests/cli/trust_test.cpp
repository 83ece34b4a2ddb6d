// What a stranger's file, or a slip of the user's, cannot do at the command line.

#include <filesystem>

#include "qx_db/platform/text.h"
#include "qx_db/qx_db.h"

#include "tests/cli/cli_fixture.h"

namespace qx {
namespace {

TEST_F(Cli, NamesFromFilesCannotDriveTheTerminal) {
  // A colour, a line that looks like the program's own, a C1 control, a change of direction.
  Write("names.json",
        R"({"MSET": {"7": {"NAME": "a\u001b[31m\nqxdb: all is well\u009b2J\u202e"}}})");
  ASSERT_EQ(Qxdb("import good.msh m.qxm").code, 0);
  const Ran read = Qxdb("gateway read m.qxm names.json");
  ASSERT_EQ(read.code, 0) << read.err;
  for (const char* command : {"info m.qxm", "sets m.qxm", "show m.qxm mset all", "log m.qxm"}) {
    const Ran run = Qxdb(command);
    ASSERT_EQ(run.code, 0) << command << run.err;
    for (const char* raw : {"\x1b", "\xC2\x9B", "\xE2\x80\xAE", "\nqxdb: all"}) {
      EXPECT_EQ((run.out + run.err).find(raw), std::string::npos) << command;
    }
    const Ran json = Qxdb(std::string(command) + " --json");
    EXPECT_EQ(json.out.find('\x1b'), std::string::npos) << command;
  }
  const Ran refused = Qxdb("info \"$(printf 'x\\033[31m.qxm')\"");
  EXPECT_EQ(refused.code, 1);
  EXPECT_EQ(refused.err.find('\x1b'), std::string::npos);
}

TEST_F(Cli, JsonIsJsonWhateverTheNameOfAFile) {
  ASSERT_EQ(Qxdb("import good.msh m.qxm").code, 0);
  ASSERT_EQ(std::system(("cp " + Path("m.qxm") + " \"" + folder_.Path().string() +
                         "/$(printf 'n\\377\\033.qxm')\"")
                            .c_str()),
            0);
  const Ran run = Qxdb("info \"$(printf 'n\\377\\033.qxm')\" --json");
  EXPECT_EQ(run.code, 0) << run.err;
  EXPECT_TRUE(IsUtf8(run.out)) << run.out;
  const Ran refused = Qxdb("info \"$(printf 'no\\377.qxm')\" --json");
  EXPECT_EQ(refused.code, 1);
  EXPECT_TRUE(IsUtf8(refused.err)) << refused.err;
}

TEST_F(Cli, NamesOfFilesAreNamesOfFiles) {
  for (const std::string name : {"file:m.qxm", "'file:n.qxm?mode=memory'", "./:memory:"}) {
    const Ran made = Qxdb("import good.msh " + name);
    EXPECT_EQ(made.code, 0) << made.err;
    EXPECT_EQ(Qxdb("edit move " + name + " 1 --by 0 0 1").code, 0);
    EXPECT_EQ(Qxdb("verify " + name).code, 0);
  }
  const Ran long_name = Qxdb("info $(printf 'd%.0s' $(seq 5000)).qxm");
  EXPECT_EQ(long_name.code, 1);
  EXPECT_EQ(long_name.err.find("damaged"), std::string::npos) << long_name.err;
  EXPECT_EQ(long_name.err.find("backup"), std::string::npos) << long_name.err;
}

TEST_F(Cli, AFileOfAnotherKindIsReplacedOnlyByForce) {
  ASSERT_EQ(Qxdb("import good.msh m.qxm").code, 0);
  ASSERT_EQ(Qxdb("import good.msh other.qxm").code, 0);
  const std::string model = *ReadWholeFile(Path("other.qxm"));
  struct Case {
    const char* command;  // before the name of the file
    const char* name;
    const char* after;
  };
  const Case cases[] = {
      {"gateway write m.qxm", "o.json", ""},
      {"pool export m.qxm node", "o.qxr", ""},
      {"export m.qxm", "o.vtu", ""},
      {"export m.qxm", "o.msh", ""},
      {"export m.qxm", "o.json", ""},
      {"check m.qxm --vtu", "o.vtu", ""},
      {"axes m.qxm all --svg", "o.svg", ""},
      {"edit renumber m.qxm node all --dry-run --write-map", "o.json", ""},
      {"import-model other.qxm m.qxm --dry-run --key-map", "o.json", ""},
  };
  for (const Case& c : cases) {
    const std::string command = std::string(c.command) + " " + c.name + c.after;
    for (const std::string& mine :
         {std::string("my notes\n"), std::string("{\"name\": 1}"), model}) {
      Write(c.name, mine);
      const Ran refused = Qxdb(command);
      EXPECT_EQ(refused.code, 1) << command << refused.out;
      EXPECT_NE(refused.err.find("--force"), std::string::npos) << refused.err;
      EXPECT_TRUE(*ReadWholeFile(Path(c.name)) == mine) << command;
    }
    const Ran forced = Qxdb(command + " --force");
    EXPECT_EQ(forced.code, 0) << command << forced.err;
    EXPECT_EQ(Qxdb(command).code, 0) << command << ", over what it wrote itself";
    std::filesystem::remove(Path(c.name));
    EXPECT_EQ(Qxdb(command).code, 0) << command;
  }
}

TEST_F(Cli, VerifyNamesCircles) {
  ASSERT_EQ(Qxdb("import good.msh m.qxm").code, 0);
  EXPECT_EQ(Qxdb("verify m.qxm").code, 0);
  // The model itself refuses one, so it is made past its rules.
  CQXDBSession session(AddStandardPools);
  auto& systems = *session.GetPool<DPool<tagTCord>>(code::kCord);
  tagTCord system;
  system.key = 11;
  const ITR first = systems.DPool<tagTCord>::InsertNU(system);
  system.key = 12;
  system.reference = first;
  const ITR second = systems.DPool<tagTCord>::InsertNU(system);
  system.key = 11;
  system.reference = second;
  ASSERT_EQ(systems.DPool<tagTCord>::SetAtNU(first, system), 1);
  ASSERT_EQ(SaveModel(session, Path("m.qxm")).Line(), "");
  const Ran run = Qxdb("verify m.qxm");
  EXPECT_EQ(run.code, 1) << run.out;
  EXPECT_NE(run.out.find("leads back to itself"), std::string::npos) << run.out;
}

}  // namespace
}  // namespace qx
