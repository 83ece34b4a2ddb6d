// Properties and materials from the shell: gateway in, mass out, texts of the user's language.

#include "tests/cli/cli_fixture.h"

namespace qx {
namespace {

constexpr const char* kModel = R"({
  "MATL": {"7": {"NAME": "Steel", "DENSITY": 7850}},
  "NODE": {"1": {"POS": [0, 0, 0]}, "2": {"POS": [2, 0, 0]}, "3": {"POS": [2, 2, 0]},
           "4": {"POS": [0, 2, 0]}},
  "ELEM": {"1": {"TYPE": 6, "NODE_KEY_ARRAY": [1, 2, 3, 4]}}})";

TEST_F(Cli, PropertiesGiveElementsTheirMass) {
  Write("m.json", kModel);
  ASSERT_EQ(Qxdb("import m.json m.qxm").code, 0);
  EXPECT_EQ(Qxdb("property add m.qxm plate Web 0.01 2.5 --material 7").code, 0);
  EXPECT_EQ(Qxdb("property assign m.qxm 1 all").code, 0);
  const std::string list = Qxdb("property list m.qxm --json").out;
  EXPECT_NE(list.find(R"("key":1,"name":"Web","kind":"plate","material":"Steel","elements":1,)"
                      R"("mass":324)"),
            std::string::npos)
      << list;
}

TEST_F(Cli, PropertiesFindAKeyBelowTheLargest) {
  Write("m.json", R"({"PROP": {"2147483647": {"NAME": "last"}, "1": {"NAME": "first"}}})");
  ASSERT_EQ(Qxdb("import m.json m.qxm").code, 0);
  const Ran added = Qxdb("property add m.qxm plate Web 0.01");
  EXPECT_EQ(added.out, "added property 2\n") << added.err;
}

TEST_F(Cli, PropertiesRefuseWhatIsNotThere) {
  Write("m.json", kModel);
  ASSERT_EQ(Qxdb("import m.json m.qxm").code, 0);
  const std::string before = Qxdb("info m.qxm --json").out;
  struct Case {
    const char* arguments;
    const char* told;
  };
  for (const Case& c : {Case{"property add m.qxm wood X", "is not known"},
                        Case{"property add m.qxm plate X 1 2 3", "fewer values"},
                        Case{"property add m.qxm plate X 1 --material 8", "no such material"},
                        Case{"property assign m.qxm 3 all", "no such property"},
                        Case{"property assign m.qxm 0 99", "elem"}}) {
    const Ran run = Qxdb(c.arguments);
    EXPECT_TRUE(IsStopped(run)) << c.arguments;
    EXPECT_NE(run.err.find(c.told), std::string::npos) << run.err;
  }
  EXPECT_EQ(Qxdb("info m.qxm --json").out, before);
}

}  // namespace
}  // namespace qx
