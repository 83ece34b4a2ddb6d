// The history of a model file from the command line, over runs.

#include "tests/cli/cli_fixture.h"

namespace qx {
namespace {

class CliHistory : public Cli {
 protected:
  /// The state that the model is in, as `edit` and its like print it.
  std::string State() const {
    const Ran run = Qxdb("edit move m.qxm 1 --by 1 0 0 --dry-run --json");
    const std::size_t at = run.out.find("\"before\":\"");
    return at == std::string::npos ? run.err : run.out.substr(at + 10, 16);
  }
};

TEST_F(CliHistory, GoesBackAndForthOverRuns) {
  ASSERT_EQ(Qxdb("import good.msh m.qxm").code, 0);
  std::vector<std::string> states = {State()};
  for (const char* edit :
       {"edit move m.qxm 1-3 --by 0 0 2", "edit delete m.qxm elem 2", "edit delete m.qxm node 5"}) {
    ASSERT_EQ(Qxdb(edit).code, 0) << edit;
    states.push_back(State());
  }
  const Ran log = Qxdb("log m.qxm");
  EXPECT_NE(log.out.find("*     3"), std::string::npos) << log.out;
  EXPECT_EQ(Qxdb("undo m.qxm").code, 0);
  EXPECT_EQ(State(), states[2]);
  EXPECT_EQ(Qxdb("undo m.qxm --count 2").code, 0);
  EXPECT_EQ(State(), states[0]);
  EXPECT_EQ(Qxdb("undo m.qxm").code, 1);
  EXPECT_EQ(Qxdb("redo m.qxm").code, 0);
  EXPECT_EQ(State(), states[1]);
  EXPECT_EQ(Qxdb("checkout m.qxm --step 3").code, 0);
  EXPECT_EQ(State(), states[3]);
  EXPECT_EQ(Qxdb("checkout m.qxm --step 0").code, 0);
  EXPECT_EQ(State(), states[0]);
  EXPECT_EQ(Qxdb("checkout m.qxm --step 4").code, 1);
  EXPECT_EQ(Qxdb("checkout m.qxm --step 1").code, 0);
  EXPECT_EQ(Qxdb("redo m.qxm").code, 0);
  EXPECT_NE(Qxdb("blame m.qxm elem 2").out.find("(removed)"), std::string::npos);
  EXPECT_EQ(Qxdb("undo m.qxm").code, 0);
  const Ran blame = Qxdb("blame m.qxm node all --json");
  EXPECT_NE(blame.out.find(R"({"key":1,"step":1)"), std::string::npos) << blame.out;
  EXPECT_NE(blame.out.find(R"({"key":4})"), std::string::npos) << blame.out;
  EXPECT_EQ(Qxdb("compact m.qxm --keep-history").code, 0);
  EXPECT_EQ(Qxdb("redo m.qxm").code, 0);
  EXPECT_EQ(State(), states[2]);
  EXPECT_EQ(Qxdb("compact m.qxm").code, 0);
  EXPECT_EQ(State(), states[2]);
  EXPECT_EQ(Qxdb("undo m.qxm").code, 1);
}

TEST_F(CliHistory, RefusesWhatAnotherProcessEdits) {
  ASSERT_EQ(Qxdb("import good.msh m.qxm").code, 0);
  Write("m.qxm.lock", "elsewhere\n42\n");
  for (const char* command : {"undo m.qxm", "compact m.qxm", "edit move m.qxm 1 --by 1 0 0",
                              "import good.msh m.qxm --replace"}) {
    const Ran run = Qxdb(command);
    EXPECT_EQ(run.code, 1) << command;
    EXPECT_NE(run.err.find("elsewhere, process 42"), std::string::npos) << run.err;
  }
  EXPECT_EQ(Qxdb("log m.qxm").code, 0) << "reading is free";
}

}  // namespace
}  // namespace qx
