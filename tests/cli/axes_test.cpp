// Orientation, axes and deletion at the command line, on the model of the pictures.

#include <gtest/gtest.h>

#include "qx_db/platform/file.h"

#include "tests/cli/cli_fixture.h"

namespace qx {
namespace {

class Axes : public Cli {
 protected:
  void SetUp() override {
    Cli::SetUp();
    const Ran made = Qxdb("import " QX_SOURCE_DIR "/docs/pictures/local-axes.json m.qxm");
    ASSERT_EQ(made.code, 0) << made.err;
  }
  std::string State() {
    const std::string info = Qxdb("info m.qxm --json").out;
    return info.substr(info.find("\"state\""));
  }
};

TEST_F(Axes, PicturesAreAsPublished) {
  const struct {
    const char* picture;
    const char* selection;
  } pictures[] = {{"line", "1-5"},
                  {"plane", "11-13"},
                  {"special", "21-26"},
                  {"boundary", "31-36"},
                  {"material", "41-44 --material"}};
  for (const auto& [picture, selection] : pictures) {
    const std::string svg = std::string("axes-") + picture + ".svg";
    ASSERT_EQ(Qxdb(std::string("axes m.qxm ") + selection + " --svg " + svg).code, 0);
    EXPECT_EQ(*ReadWholeFile(Path(svg)), *ReadWholeFile(QX_SOURCE_DIR "/docs/pictures/" + svg))
        << svg << ": draw them again with docs/pictures/draw.sh";
  }
  const Ran numbers = Qxdb("axes m.qxm 2 --json");
  EXPECT_NE(numbers.out.find(R"("determined":true,"x":[0, 0, 1],"y":[0, -1, 0],"z":[1, 0, 0])"),
            std::string::npos)
      << numbers.out;
  EXPECT_NE(Qxdb("axes m.qxm 5").out.find("not determined"), std::string::npos) << "a point";
}

TEST_F(Axes, OrientationIsShownSetAndRefused) {
  const Ran repaired = Qxdb("orient m.qxm --repair");
  EXPECT_EQ(repaired.code, 0);
  EXPECT_NE(repaired.out.find("nothing changed"), std::string::npos) << repaired.out;
  ASSERT_EQ(Qxdb("delete m.qxm ecrd 1").code, 0);
  EXPECT_NE(Qxdb("orient m.qxm --repair").out.find("ecrd         1        0         0\nsaved"),
            std::string::npos);
  EXPECT_NE(Qxdb("orient m.qxm all").out.find("beta 30 deg"), std::string::npos);
  EXPECT_EQ(Qxdb("orient m.qxm 1-3 --beta 90").code, 0);
  EXPECT_EQ(Qxdb("orient m.qxm 3").out.find("beta 30 deg"), std::string::npos);
  Write("bad.json", R"({"NODE": {"90": {"POS": [0, 0, 0]}}, "CORD": {"9": {"PT_AXIS": [0, 0, 0]}},
                        "ELEM": {"9": {"TYPE": 2, "NODE_KEY_ARRAY": [90, 90]}}})");
  ASSERT_EQ(Qxdb("gateway read m.qxm bad.json").code, 0);
  const std::string before = State();
  const struct {
    const char* arguments;
    int code;
    const char* says;
  } bad[] = {
      {"4 --beta nan", 2, "is no angle"},         {"4 --vector 0 inf 0", 2, "is no direction"},
      {"4 --vector 0 0 0", 2, "is no direction"}, {"all --repair", 2, ""},
      {"9 --beta 5", 1, "has no length"},         {"4 --cord 9", 1, "has no axes"},
      {"1 --vector 1 0 0", 1, "runs along it"},   {"4 --node 7", 1, "lies on its line"},
      {"4 --node 999", 1, "does not exist"},      {"4 --cord 2", 1, "is not rectangular"},
      {"11 --beta 0", 1, "has no line element"},  {"4 --beta 0 --node 9", 2, ""},
  };
  for (const auto& c : bad) {
    const Ran ran = Qxdb(std::string("orient m.qxm ") + c.arguments);
    EXPECT_EQ(ran.code, c.code) << c.arguments;
    EXPECT_NE(ran.err.find(c.says), std::string::npos) << ran.err;
  }
  EXPECT_EQ(State(), before);
}

TEST_F(Axes, DeletionIsForetoldGuardedAndDone) {
  const std::string before = State();
  const Ran foretold = Qxdb("delete m.qxm node 9 --dry-run");
  EXPECT_EQ(foretold.code, 0);
  EXPECT_NE(foretold.out.find("blocked: Node 9 orients"), std::string::npos) << foretold.out;
  const Ran refused = Qxdb("delete m.qxm node 9");
  EXPECT_EQ(refused.code, 1);
  EXPECT_NE(refused.err.find("node 9 orients an element that stays"), std::string::npos);
  EXPECT_EQ(State(), before);
  const Ran uses = Qxdb("where-used m.qxm node 9");
  EXPECT_NE(uses.out.find("_ITRRNODE"), std::string::npos) << uses.out;
  EXPECT_NE(uses.out.find("_NODE_IDS"), std::string::npos) << uses.out;
  EXPECT_EQ(Qxdb("delete m.qxm elem 4").code, 0);
  EXPECT_EQ(Qxdb("delete m.qxm node 9").code, 0);
  const Ran listed = Qxdb("delete m.qxm node 61 --dry-run --list");
  EXPECT_NE(listed.out.find("elem 41 by _ARGKEY"), std::string::npos) << "with its last element";
  EXPECT_EQ(Qxdb("delete m.qxm node 9999").code, 1);
  EXPECT_EQ(Qxdb("delete m.qxm fly 1").code, 2);
}

/// By whatever command what turns it goes: its system, its orientation, a spring's property, or the
/// node that a spring is turned by.
TEST_F(Axes, NothingIsTurnedUnasked) {
  Write("more.json", R"({
      "CORD": {"30": {"PT_AXIS": [1, 1, 0], "PT_PLAIN": [0, 1, 0]}},
      "NODE": {"501": {"POS": [0, 0, 0]}, "502": {"POS": [1, 1, 0]}, "503": {"POS": [0, 5, 3]}},
      "ELEM": {"501": {"TYPE": 31, "NODE_KEY_ARRAY": [501, 502]}},
      "SPROP": {"501": {"CORD_TYPE": 2, "REF_NODE": 503}}})");
  ASSERT_EQ(Qxdb("gateway read m.qxm more.json").code, 0);
  ASSERT_EQ(Qxdb("orient m.qxm 1 --cord 30").code, 0);
  ASSERT_EQ(Qxdb("sets add m.qxm loose --nodes 503").code, 0);
  Write("cord.json", R"({"__CMD_DEL_CORD": [30]})");
  Write("ecrd.json", R"({"__CMD_DEL_ECRD": [1]})");
  const std::string before = State();
  const struct {
    const char* command;
    const char* element;
  } cases[] = {{"delete m.qxm cord 30", "1"},
               {"edit delete m.qxm cord 30", "1"},
               {"delete m.qxm ecrd 1", "1"},
               {"delete m.qxm sprop 501", "501"},
               {"delete m.qxm node 503", "501"},
               {"sets delete m.qxm loose", "501"},
               {"gateway read m.qxm cord.json --delete", "1"},
               {"gateway read m.qxm ecrd.json --delete", "1"}};
  for (const auto& c : cases) {
    const std::string command = c.command;
    const Ran foretold = Qxdb(command + " --dry-run");
    EXPECT_EQ(foretold.code, 0) << command << foretold.err;
    EXPECT_NE(foretold.out.find("turned element"), std::string::npos) << command << foretold.out;
    EXPECT_NE(foretold.out.find("0.707107, 0.707107, 0"), std::string::npos) << foretold.out;
    const Ran asks = Qxdb(command);
    EXPECT_EQ(asks.code, 1) << command;
    EXPECT_NE(asks.err.find(std::string("would turn 1 element: ") + c.element + ";"),
              std::string::npos)
        << command << asks.err;
    EXPECT_EQ(State(), before);
    const Ran done = Qxdb(command + " --yes --json");
    EXPECT_EQ(done.code, 0) << command << done.err;
    EXPECT_NE(done.out.find(std::string("\"turns\":[{\"element\":") + c.element), std::string::npos)
        << command << done.out;
    EXPECT_NE(State(), before) << command;
    EXPECT_EQ(Qxdb("undo m.qxm").code, 0);
  }
}

}  // namespace
}  // namespace qx
