// What a stranger's file, or a slip of the user's, cannot do at the command line.

#include <filesystem>
#include <map>

#include "qx_db/platform/text.h"
#include "qx_db/qx_db.h"

#include "exchange/format.h"
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
    for (const char* raw : {"\x1b", "\xC2\x9B", "\xE2\x80\xAE"}) {
      EXPECT_EQ((json.out + json.err).find(raw), std::string::npos) << command;
    }
    if (std::string(command).starts_with("sets")) {
      EXPECT_NE(json.out.find("\\u009b2J\\u202e"), std::string::npos) << "nothing is lost";
    }
  }
  for (const char* command : {"info", "log", "verify", "export --report r.json"}) {
    const std::string name = "\"$(printf 'x\\nqxdb: all is well.qxm')\"";
    ASSERT_EQ(std::system(
                  ("cp " + Path("m.qxm") + " \"" + folder_.Path().string() + "/\"" + name).c_str()),
              0);
    const Ran run = Qxdb(std::string(command) + " " + name + (command[0] == 'e' ? " o.msh" : ""));
    EXPECT_EQ(run.code, 0) << run.err;
    EXPECT_EQ(("\n" + run.out + run.err).find("\nqxdb: all"), std::string::npos) << command;
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

const std::string kSteel =
    "*Steel\nS235|210000|0.3|81000|1.2e-5|7.7e-5|7.85e-6|0|20|0.05|440|0|360|0|0|0|235\n";

/// A command that writes a file.
struct Writing {
  std::string command;  ///< up to what names the file
  std::string name;     ///< of the file
  std::string argument = name;
  bool draws = false;  ///< with a browser, which is not asked to here
};

TEST_F(Cli, ANameThatIsTooLongIsToldAsThat) {
  ASSERT_EQ(Qxdb("import good.msh m.qxm").code, 0);
  const std::string name = std::string(300, 'd') + ".qxm";
  const std::string path = std::string(5000, '/') + name;
  for (const std::string& each : {name, path}) {
    for (const char* command : {"info ", "verify ", "check ", "log ", "import good.msh ",
                                "export m.qxm --format vtu ", "gateway write m.qxm "}) {
      const Ran ran = Qxdb(command + each);
      EXPECT_EQ(ran.code, 1) << command;
      EXPECT_NE(ran.err.find(" a shorter name"), std::string::npos) << command << ran.err;
    }
  }
}

TEST_F(Cli, AFileOfAnotherKindIsReplacedOnlyByForce) {
  ASSERT_EQ(Qxdb("import good.msh m.qxm").code, 0);
  ASSERT_EQ(Qxdb("import good.msh other.qxm").code, 0);
  Write("steel.txt", kSteel);
  const std::string model = *ReadWholeFile(Path("other.qxm"));
  std::vector<Writing> cases = {
      {"gateway write m.qxm", "o.json"},
      {"pool export m.qxm node", "o.qxr"},
      {"check m.qxm --vtu", "o.vtu"},
      {"axes m.qxm all --svg", "o.svg"},
      {"edit renumber m.qxm node all --dry-run --write-map", "o.json"},
      {"import-model other.qxm m.qxm --dry-run --key-map", "o.json"},
      {"export m.qxm e.vtu --report", "o.json"},
      {"import good.msh m.qxm --replace --report", "o.json"},
      {"material convert steel.txt", "o.gdbp"},
      {"material convert steel.txt", "o.txt"},
      {"material convert steel.txt", "o.bin"},
      {"material convert steel.txt", "o.cfd"},
      {"material convert steel.txt --to text", "o.md"},
      {"manual --into", "pages/qxdb.1", "pages"},
#ifdef QX_HAS_VIEWER
      {"view m.qxm --html", "o.html"},
      {"picture m.qxm", "o.png", "o.png", true},
#endif
  };
  for (const exchange::Format& format : exchange::Formats()) {
    for (const std::string_view extension : format.extensions) {
      if (!format.write) continue;
      cases.push_back({"export m.qxm", "o" + std::string(extension)});
    }
    if (!format.write) continue;
    cases.push_back({"export m.qxm --format " + std::string(format.name), "o.any"});
    cases.push_back({"export m.qxm --strict", "o" + std::string(format.extensions[0])});
  }
  cases.push_back({"export m.qxm", "o.json"});
#ifdef QX_HAS_OCCT
  const std::string joint = QX_SOURCE_DIR "/examples/joint.step";
  ASSERT_EQ(Qxdb("geom " + joint + " seeds.qxm").code, 0);
  const std::string seed = "seed show seeds.qxm " + joint;
  for (const char* option : {" --svg", " --points", " --vtu"}) {
    cases.push_back({seed + option, std::string("o.") + (option + 3)});
  }
#endif
  std::filesystem::create_directory(Path("pages"));
  // That a file looks alike is no reason to replace it, nor is that it could be read.
  const std::multimap<std::string, std::string> alike = {
      {".txt", "cmake_minimum_required(VERSION 3.25)\n\nproject(mine)\n"},
      {".txt", kSteel + "# kept by hand\n"},
      {".md", "# Notes\n\n| a | b |\n"},
      {".json", "{\"name\": 1}"},
      {".json", "{\"A\": 1}"},
      {".json", "{\"NODE\": [1]}"},
      {".svg", "<svg xmlns=\"http://www.w3.org/2000/svg\"></svg>\n"},
      {".1", ".TH MINE 1\n"},
      {".png", "\x89PNG\r\n\x1A\n and so on"}};
  for (const Writing& c : cases) {
    const std::string command = c.command + " " + c.argument;
    std::vector<std::string> others = {"my notes\n", model};
    const auto [first, last] =
        alike.equal_range(std::filesystem::path(c.name).extension().string());
    for (auto it = first; it != last; ++it) others.push_back(it->second);
    for (const std::string& mine : others) {
      Write(c.name, mine);
      const Ran refused = Qxdb(command);
      EXPECT_EQ(refused.code, 1) << command << refused.out;
      EXPECT_NE(refused.err.find("--force"), std::string::npos) << command << refused.err;
      EXPECT_TRUE(*ReadWholeFile(Path(c.name)) == mine) << command;
    }
    // A link to nowhere would have a file made where nobody named one.
    std::filesystem::remove(Path(c.name));
    std::filesystem::create_symlink("nowhere", Path(c.name));
    const Ran linked = Qxdb(command + " --force");
    EXPECT_EQ(linked.code, 1) << command << linked.out;
    EXPECT_NE(linked.err.find("where there is no file"), std::string::npos)
        << command << linked.err;
    EXPECT_FALSE(std::filesystem::exists(std::filesystem::path(Path(c.name)))) << command;
    std::filesystem::remove(Path(c.name));
    Write(c.name, model);
    if (c.draws) continue;
    // What the format cannot hold is refused by --strict, and then nothing is replaced.
    const Ran forced = Qxdb(command + " --force");
    if (forced.code != 0 && command.find("--strict") != std::string::npos) {
      EXPECT_TRUE(*ReadWholeFile(Path(c.name)) == model) << command;
    } else {
      EXPECT_EQ(forced.code, 0) << command << forced.err;
      EXPECT_EQ(Qxdb(command).code, 0) << command << ", over what it wrote itself";
      std::filesystem::remove(Path(c.name));
      EXPECT_EQ(Qxdb(command).code, 0) << command;
    }
    std::filesystem::remove(Path(c.name));
  }
}

TEST_F(Cli, AKeyMapAndADocumentDoNotReplaceEachOther) {
  ASSERT_EQ(Qxdb("import good.msh m.qxm").code, 0);
  const std::string map = "edit renumber m.qxm node all --dry-run --write-map ";
  ASSERT_EQ(Qxdb("gateway write m.qxm document.json").code, 0);
  ASSERT_EQ(Qxdb(map + "map.json").code, 0);
  EXPECT_EQ(Qxdb(map + "document.json").code, 1);
  EXPECT_EQ(Qxdb("gateway write m.qxm map.json").code, 1);
}

TEST_F(Cli, NoOutputIsWrittenOverAnotherOfTheSameCommand) {
  ASSERT_EQ(Qxdb("import good.msh m.qxm").code, 0);
  const std::string model = *ReadWholeFile(Path("m.qxm"));
  for (const char* command :
       {"export m.qxm o.json --report ./o.json --force", "export m.qxm m.qxm --format msh --force",
        "export m.qxm o.msh --report m.qxm --force", "gateway write m.qxm ./m.qxm --force",
        "import good.msh m.qxm --replace --report m.qxm --force",
        "import good.msh m.qxm --replace --report good.msh --force"}) {
    const Ran run = Qxdb(command);
    EXPECT_EQ(run.code, 1) << command;
    EXPECT_NE(run.err.find("would be overwritten"), std::string::npos) << command << run.err;
    EXPECT_TRUE(*ReadWholeFile(Path("m.qxm")) == model) << command;
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
