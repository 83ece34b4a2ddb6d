// The command line as its users meet it: exit codes, messages, files.

#include <array>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include "qx_db/platform/file.h"
#include "qx_db/qx_db.h"

#include "tests/cli/cli_fixture.h"

namespace qx {
namespace {

namespace fs = std::filesystem;

TEST_F(Cli, TakesAMeshThroughItsLife) {
  EXPECT_EQ(Qxdb("import good.msh m.qxm --units mm").code, 0);
  const Ran info = Qxdb("info m.qxm");
  EXPECT_NE(info.out.find("2  4-node tetrahedra"), std::string::npos) << info.out;
  EXPECT_NE(info.out.find("\"body\""), std::string::npos);
  EXPECT_NE(info.out.find(" mm "), std::string::npos);
  const Ran edit = Qxdb("edit delete m.qxm node 5");
  EXPECT_EQ(edit.code, 0) << edit.err;
  EXPECT_NE(edit.out.find("elem"), std::string::npos) << "the element goes with its node";
  EXPECT_EQ(Qxdb("edit move m.qxm 1-2 --by 0 0 2.5").code, 0);
  EXPECT_EQ(Qxdb("edit renumber m.qxm node all --from 3").code, 0);
  const Ran show = Qxdb("show m.qxm node 3 --json");
  EXPECT_EQ(show.out, "{\"NODE\":{\"3\":{\"POS\":[0.0,0.0,2.5]}}}\n");
  EXPECT_EQ(Qxdb("verify m.qxm").code, 0);
  EXPECT_EQ(Qxdb("export m.qxm m.vtu").code, 0);
  EXPECT_EQ(Qxdb("gateway write m.qxm m.json").code, 0);
  EXPECT_EQ(Qxdb("import m.json copy.qxm --units mm").code, 0);
  EXPECT_EQ(Qxdb("export copy.qxm metres.json --units m").code, 0);
  EXPECT_EQ(Qxdb("import metres.json metres.qxm --units m").code, 0);
  EXPECT_EQ(Qxdb("show metres.qxm node 3 --json").out,
            "{\"NODE\":{\"3\":{\"POS\":[0.0,0.0,0.0025]}}}\n");
  const std::string state = Qxdb("info m.qxm --json").out;
  const std::string copied = Qxdb("info copy.qxm --json").out;
  const auto at = state.find("\"state\"");
  EXPECT_EQ(state.substr(at), copied.substr(copied.find("\"state\"")));
}

TEST_F(Cli, InfoSaysTheSameWhetherItHasToReadTheRecordsOrNot) {
  ASSERT_EQ(Qxdb("import good.msh m.qxm --units mm").code, 0);
  const auto told = [&] {
    const std::string info = Qxdb("info m.qxm --json").out;
    return info.substr(info.find("\"nodes\""));  // file and revision stand before
  };
  const std::string saved = told();
  EXPECT_NE(saved.find("\"box\""), std::string::npos) << saved;
  ASSERT_EQ(Qxdb("edit move m.qxm 1 --by -7 0 0.1").code, 0);
  EXPECT_NE(told(), saved);
  // Where a step is undone, the pages and what they say of themselves are not all there is.
  ASSERT_EQ(Qxdb("undo m.qxm").code, 0);
  std::string undone = told();
  undone.replace(undone.find("\"redoable\":1"), 12, "\"redoable\":0");
  EXPECT_EQ(undone, saved);
  EXPECT_EQ(Qxdb("verify m.qxm").code, 0);
}

TEST_F(Cli, TellsByItsExitCodeWhatHappened) {
  ASSERT_EQ(Qxdb("import good.msh m.qxm").code, 0);
  ASSERT_EQ(Qxdb("import good.msh mm.qxm --units mm").code, 0);
  struct Case {
    int code;
    bool is_stopped;
    std::vector<const char*> commands;
  };
  const Case cases[] = {
      {0,
       false,
       {"--help", "export --help", "--version", "help", "help sets add", "diff m.qxm m.qxm"}},
      {1,
       true,
       {"info x.qxm", "check x.qxm", "show m.qxm node 70", "diff m.qxm x.qxm", "undo m.qxm",
        "import good.msh m.qxm"}},
      {2,
       true,
       {"", "fly", "info", "import x", "edit fly m", "edit move m.qxm 1 --by 1 2",
        "edit move m.qxm 1 --by 1 2 nan", "show m.qxm beam", "show m.qxm node 9-3", "records none",
        "orient m.qxm", "help fly", "material list x --form y", "seed solve --first 1"}},
      {1, false, {"diff m.qxm mm.qxm", "check m.qxm --limit min-angle=89"}},
  };
  for (const Case& c : cases) {
    for (const char* command : c.commands) {
      const Ran run = Qxdb(command);
      EXPECT_EQ(run.code, c.code) << command << "\n" << run.err;
      EXPECT_EQ(run.out.empty(), c.is_stopped) << command;
      EXPECT_EQ(std::count(run.err.begin(), run.err.end(), '\n'), c.is_stopped)
          << command << run.err;
      EXPECT_EQ(run.err.find("; ") != std::string::npos, c.is_stopped) << "no remedy: " << run.err;
    }
  }
}

TEST_F(Cli, ExplainsEveryCommandWithAnExample) {
  // Each command lists those below it, so none is forgotten here.
  std::vector<std::string> names = {""};
  for (std::size_t at = 0; at < names.size(); ++at) {
    const std::string help = Qxdb(names[at] + " --help").out;
    EXPECT_NE(help.find("Example:\n  qxdb " + names[at]), std::string::npos) << names[at] << help;
    EXPECT_EQ(help, Qxdb("help " + names[at]).out);
    const std::size_t list = help.find("\nSubcommands:\n");
    if (list == std::string::npos) continue;
    std::istringstream lines(help.substr(list + 14));
    for (std::string line; std::getline(lines, line) && line.starts_with("  ");) {
      if (line[2] == ' ') continue;  // a description goes on
      names.push_back(names[at] + (at ? " " : "") + line.substr(2, line.find(' ', 2) - 2));
    }
  }
  EXPECT_GT(names.size(), 40u);
}
TEST_F(Cli, RefusesBadInputInOneLineAndChangesNothing) {
  ASSERT_EQ(Qxdb("import good.msh m.qxm").code, 0);
  const std::string model = *ReadWholeFile(Path("m.qxm"));
  std::string damaged = model;
  damaged[model.size() / 2] = static_cast<char>(damaged[model.size() / 2] ^ 4);
  Write("damaged.qxm", damaged);
  Write("empty.msh", "");
  Write("foreign.json", R"({"wing": {"1": 2}})");
  Write("notes.txt", "what must not be lost");
  ASSERT_EQ(Qxdb("import good.msh other.qxm").code, 0);
  ASSERT_EQ(Qxdb("import good.msh far.qxm").code, 0);
  ASSERT_EQ(Qxdb("edit move far.qxm 1 --by 1e308 0 0").code, 0);
  fs::create_directory(Path("other"));
  ASSERT_EQ(mkfifo(Path("pipe.msh").c_str(), 0600), 0);
  const std::string mesh = *ReadWholeFile(Path("good.msh"));
  Write("cut.msh", mesh.substr(0, mesh.find("$EndNodes")));
  const auto with = [&](const char* from, const char* to) {
    std::string changed = mesh;
    return changed.replace(changed.find(from), std::string(from).size(), to);
  };
  Write("twice.msh", with("\n5 1 1 1", "\n4 1 1 1"));
  Write("dangling.msh", with("2 3 4 5\n", "2 3 4 9\n"));
  Write("nan.msh", with("\n5 1 1 1", "\n5 nan 1 1"));
  Write("large.msh", with("\n5 1 1 1", "\n2147483648 1 1 1"));
  Write("count.msh", with("2 4 2 1 1 2 3 4 5", "2 4 2 1 1 2 3 4"));
  Write("cut.json", "{\"NODE\": {\"1\": {\"POS\": [1, 2");
  Write("deep.json", std::string(100000, '['));
  Write("bytes.json", "{\"NODE\": {\"1\": {\"A\": \"\xC0\x80\"}}}");
  Write("loose.json", "{\"NODE\": {\"7\": {\"POS\": true}}}");
  struct Case {
    const char* arguments;
    const char* named;  // must stand in the message
  };
  const Case cases[] = {
      {"import missing.msh x.qxm", "missing.msh"},
      {"import . x.qxm", ".: is a directory"},
      {"import foreign.json x.qxm", "foreign.json: brings nothing into the model: wing: "},
      {"import foreign.json m.qxm --replace", "foreign.json: brings nothing"},
      {"gateway read m.qxm foreign.json", "foreign.json: brings nothing"},
      {"gateway write m.qxm .", ".: is a directory"},
      {"import empty.msh x.qxm", "empty.msh"},
      {"import cut.msh x.qxm", "cut.msh: $Nodes"},
      {"import twice.msh x.qxm", "twice.msh"},
      {"import dangling.msh x.qxm", "dangling.msh"},
      {"import nan.msh x.qxm", "nan.msh"},
      {"import large.msh x.qxm", "large.msh"},
      {"import count.msh x.qxm", "count.msh"},
      {"import good.msh m.qxm", "--add"},
      {"import good.msh notes.txt --replace", "notes.txt: is no model"},
      {"import good.msh good.msh --replace", "good.msh: is no model"},
      {"import good.msh other --replace", "other: is a directory"},
      {"import pipe.msh x.qxm", "pipe.msh: is a pipe or a device"},
      {"info /dev/zero", "/dev/zero: is a pipe or a device"},
      {"gateway write m.qxm other.qxm", "other.qxm: exists and is not of the kind"},
      {"axes m.qxm all --svg other.qxm", "other.qxm: exists and is not of the kind"},
      {"import good.msh m.qxm --add", "good.msh"},
      {"import cut.json x.qxm", "cut.json: line 1"},
      {"import deep.json x.qxm", "deep.json: line 1"},
      {"import bytes.json x.qxm", "bytes.json: line 1"},
      {"info damaged.qxm", "damaged.qxm: "},
      {"info missing.qxm", "missing.qxm"},
      {"verify good.msh", "good.msh"},
      {"show m.qxm beam", "node, elem"},
      {"show m.qxm node 9-3", "9-3"},
      {"show m.qxm node 70", "70"},
      {"edit delete m.qxm node 70-", "70-"},
      {"edit renumber m.qxm node 1 --from 2", "NODE 2"},
      {"edit renumber m.qxm node all --from 2147483644", "5 records have no keys from 2147483644"},
      {"edit move far.qxm 1 --by 1e308 0 0", "node 1: would have a coordinate"},
      {"export m.qxm no/such/folder/x.vtu", "no/such/folder/x.vtu"},
      {"export m.qxm x.xyz", "x.xyz"},
      {"gateway read m.qxm loose.json --strict", "NODE 7 POS"},
  };
  for (const Case& c : cases) {
    const Ran run = Qxdb(c.arguments);
    EXPECT_TRUE(IsStopped(run)) << c.arguments;
    EXPECT_EQ(std::count(run.err.begin(), run.err.end(), '\n'), 1) << c.arguments << "\n"
                                                                   << run.err;
    EXPECT_NE(run.err.find(c.named), std::string::npos) << c.arguments << "\n" << run.err;
    EXPECT_NE(run.err.find("; "), std::string::npos) << "no remedy: " << run.err;
    EXPECT_EQ(run.out, "") << c.arguments;
    EXPECT_FALSE(fs::exists(Path("x.qxm"))) << c.arguments;
    EXPECT_EQ(*ReadWholeFile(Path("m.qxm")), model) << c.arguments;
  }
  EXPECT_EQ(*ReadWholeFile(Path("notes.txt")), "what must not be lost");
  EXPECT_EQ(*ReadWholeFile(Path("good.msh")), mesh);
  EXPECT_EQ(Qxdb("verify other.qxm").code, 0);
  EXPECT_NE(Qxdb("info missing.qxm --json").err.find("{\"error\":"), std::string::npos);
}

TEST_F(Cli, ShowsRecordsWithoutAGatewayTableByTheirMembers) {
  CQXDocBase document(AddStandardPools);
  document.New();
  CQXDBSession& session = *document.GetDBSession();
  tagTCurve curve;
  curve.key = 7;
  ASSERT_TRUE(Pool<tagTCurve>(session).InsertNU(curve));
  ASSERT_TRUE(document.SaveAs(Path("m.qxm")));
  const Ran text = Qxdb("show m.qxm curve");
  EXPECT_NE(text.out.find("curve has no gateway table"), std::string::npos) << text.out;
  const Ran json = Qxdb("show m.qxm curve 7 --json");
  EXPECT_TRUE(json.out.starts_with("{\"curve\":{\"7\":{\"")) << json.out;
  for (const Row& row : session.GetDataPool(code::kCurve)->GetSchema().Rows()) {
    EXPECT_NE(json.out.find('"' + Utf8(row.name) + "\":\""), std::string::npos) << Utf8(row.name);
  }
  EXPECT_EQ(Qxdb("show m.qxm wrkpl").out, "wrkpl holds no records\n");
  EXPECT_EQ(Qxdb("show m.qxm wrkpl 1").code, 1);
}

}  // namespace
}  // namespace qx
