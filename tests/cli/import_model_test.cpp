// Records of other models, single pools in files, and new keys, from the command line.

#include <filesystem>

#include "tests/cli/cli_fixture.h"

namespace qx {
namespace {

class CliImport : public Cli {
 protected:
  CliImport() {
    for (const char* model : {"m.qxm", "other.qxm"}) {
      EXPECT_EQ(Qxdb(std::string("import good.msh ") + model).code, 0);
    }
    Write("view.json", R"({"VIEWPOINT":{"4":{"NAME":"from above"}}})");
    EXPECT_EQ(Qxdb("gateway read other.qxm view.json").code, 0);
    EXPECT_EQ(Qxdb("pool export other.qxm viewpoint views.qxr").code, 0);
  }
  std::string Content(const char* name) const { return *ReadWholeFile(Path(name)); }
};

TEST_F(CliImport, BringsWhatWasChosenAndTakesItBack) {
  const auto state = [&] {
    const std::string info = Qxdb("info m.qxm --json").out;
    return info.substr(info.find("\"state\""));
  };
  const std::string before = state();
  const std::string file = Content("m.qxm");
  const Ran dry = Qxdb("import-model other.qxm m.qxm --pool elem:2 --dry-run --key-map k.json");
  EXPECT_NE(dry.out.find("(not saved)"), std::string::npos) << dry.err;
  EXPECT_EQ(Content("m.qxm"), file);
  const std::string keys = Content("k.json");
  EXPECT_NE(keys.find(R"("ELEM": {"2": 3})"), std::string::npos) << keys;
  EXPECT_EQ(Qxdb("import-model other.qxm m.qxm --pool elem:2 --key-map k.json").code, 0);
  EXPECT_EQ(Content("k.json"), keys) << "a dry run tells what is done";
  EXPECT_NE(Qxdb("show m.qxm elem 3 --json").out.find("[6,7,8,9]"), std::string::npos);
  const Ran whole = Qxdb("import-model other.qxm m.qxm --json");
  EXPECT_NE(whole.out.find(R"(the name \"body\" is in use; named \"body-1\")"), std::string::npos)
      << whole.out;
  EXPECT_EQ(Qxdb("pool import m.qxm views.qxr").code, 0);
  EXPECT_NE(Qxdb("show m.qxm viewpoint").out.find("from above"), std::string::npos);
  EXPECT_EQ(Qxdb("undo m.qxm --count 3").code, 0);
  EXPECT_EQ(state(), before);
}

TEST_F(CliImport, NewKeysComeWithTheirMap) {
  EXPECT_EQ(Qxdb("edit renumber m.qxm node 1-2 --from 11 --write-map k.json").code, 0);
  EXPECT_EQ(Content("k.json"), "{\"NODE\": {\"1\": 11, \"2\": 12}}\n");
  Write("back.json", R"({"NODE":{"11":1,"12":2}})");
  EXPECT_EQ(Qxdb("edit renumber m.qxm node all --map back.json --write-map k.json").code, 0);
  EXPECT_EQ(Content("k.json"), "{\"NODE\": {\"11\": 1, \"12\": 2}}\n");
}

TEST_F(CliImport, RefusesAndLeavesEverything) {
  Write("cut.qxr", Content("views.qxr").substr(0, 90));
  Write("damaged.qxm", Content("other.qxm").substr(0, 9000));
  const std::string model = Content("m.qxm");
  struct Case {
    const char* arguments;
    const char* named;
  };
  const Case cases[] = {
      {"import-model missing.qxm m.qxm", "missing.qxm"},
      {"import-model damaged.qxm m.qxm", "damaged.qxm: "},
      {"import-model good.msh m.qxm", "good.msh: "},
      {"import-model other.qxm m.qxm --pool elem:99",
       "other.qxm: pool elem: has no record with keys 99"},
      {"import-model other.qxm m.qxm --pool beams", "beams"},
      {"import-model other.qxm m.qxm --key-map m.qxm", "m.qxm: is read by this command"},
      {"import-model other.qxm m.qxm --key-map no/k.json", "no/k.json"},
      {"pool import m.qxm cut.qxr", "cut.qxr: "},
      {"pool import m.qxm good.msh", "good.msh: "},
      {"pool import m.qxm views.qxr --key-map m.qxm", "m.qxm: is read by this command"},
      {"pool export m.qxm viewpoint m.qxm", "m.qxm: is read by this command"},
      {"edit renumber m.qxm node all --from 7 --write-map m.qxm", "m.qxm: is read by this command"},
      {"edit renumber m.qxm node all --from 7 --write-map no/k.json", "no/k.json"},
      {"edit renumber m.qxm node 1 --from 2 --write-map k.json", "NODE 2"},
  };
  for (const Case& c : cases) {
    const Ran run = Qxdb(c.arguments);
    EXPECT_TRUE(IsStopped(run)) << c.arguments << "\n" << run.out;
    EXPECT_NE(run.err.find(c.named), std::string::npos) << c.arguments << "\n" << run.err;
    EXPECT_NE(run.err.find("; "), std::string::npos) << "no remedy: " << run.err;
    EXPECT_EQ(Content("m.qxm"), model) << c.arguments;
    EXPECT_FALSE(std::filesystem::exists(Path("k.json"))) << c.arguments;
  }
}

}  // namespace
}  // namespace qx
