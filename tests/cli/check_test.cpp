// qxdb check and qxdb fix as users and scripts meet them.

#include <gtest/gtest.h>
#include <string>

#include "tests/cli/cli_fixture.h"

namespace qx {
namespace {

class CheckCli : public Cli {
 protected:
  CheckCli() {
    // Two tetrahedra on one face, the second inside out and listed twice, a node twice and one that
    // nothing uses.
    Write("bad.msh",
          "$MeshFormat\n2.2 0 8\n$EndMeshFormat\n$Nodes\n7\n1 0 0 0\n2 1 0 0\n3 0 1 0\n4 0 0 1\n"
          "5 1 1 1\n6 1 1 1\n7 9 9 9\n$EndNodes\n$Elements\n4\n1 4 2 1 1 1 2 3 4\n"
          "2 4 2 1 1 2 4 3 5\n3 4 2 1 1 2 3 4 5\n4 4 2 1 1 2 3 6 4\n$EndElements\n");
    EXPECT_EQ(Qxdb("import bad.msh bad.qxm").code, 0);
    EXPECT_EQ(Qxdb("import good.msh good.qxm").code, 0);
  }
  static bool Has(const std::string& text, const std::string& part) {
    return text.find(part) != std::string::npos;
  }
};

TEST_F(CheckCli, NamesFindingsAndWorstElements) {
  const Ran run = Qxdb("check bad.qxm");
  EXPECT_EQ(run.code, 0) << "findings alone are no failure: " << run.err;
  for (const char* part :
       {"inverted solids", "duplicate elements", "duplicate nodes", "nodes that no element uses",
        "aspect ratio", "scaled Jacobian", "qxdb fix --solids", "worst: tet4 "}) {
    EXPECT_TRUE(Has(run.out, part)) << part << '\n' << run.out;
  }
  const Ran sound = Qxdb("check good.qxm --no-histograms");
  EXPECT_TRUE(Has(sound.out, "no faults")) << sound.out;
  EXPECT_FALSE(Has(sound.out, "worst:"));
}

TEST_F(CheckCli, TellsALimitExceededFromMisuse) {
  struct Case {
    const char* arguments;
    int code;
  };
  const Case cases[] = {
      {"check good.qxm --limit inverted-solids=0", 0},
      {"check bad.qxm --limit inverted-solids=0", 1},
      {"check bad.qxm --limit inverted-solids=9 --limit duplicate-nodes=0", 1},
      {"check good.qxm --limit aspect-ratio=100 --limit min-angle=1", 0},
      {"check good.qxm --limit min-angle=89", 1},
      {"check good.qxm --limit taper=0", 0},       // no element has a taper
      {"check good.qxm --limit max-angle=90", 0},  // it is 90 to rounding
      {"check good.qxm --limit flatness=1", 2},
      {"check good.qxm --limit aspect-ratio", 2},
      {"check good.qxm --limit aspect-ratio=x", 2},
      {"check good.qxm --limit aspect-ratio=nan", 2},
      {"check good.qxm --limit duplicate-nodes=-1", 2},
      {"check good.qxm --measure beauty", 2},
      {"check --measure shape,skew good.qxm", 0},
      {"check good.qxm --tolerance nan", 2},
      {"check good.qxm --density inf", 2},
      {"check good.qxm --thickness -1", 2},
      {"check good.qxm --section-area 1e999", 2},
      {"check nothing.qxm", 1},
      {"check good.qxm --bins 0", 2},
      {"check", 2},
      {"fix good.qxm --merge-nodes -1", 2},
      {"fix good.qxm --merge-nodes nan", 2},
  };
  for (const Case& c : cases) {
    const Ran run = Qxdb(c.arguments);
    EXPECT_EQ(run.code, c.code) << c.arguments << run.out << run.err;
    EXPECT_EQ(Has(run.out, "EXCEEDED"), c.code == 1 && run.err.empty()) << c.arguments;
  }
}

TEST_F(CheckCli, WritesMeasuresAsCellData) {
  const Ran run = Qxdb("check good.qxm --measure aspect-ratio --measure shape --vtu out.vtu");
  EXPECT_EQ(run.code, 0) << run.err;
  const std::string vtu = *ReadWholeFile(Path("out.vtu"));
  EXPECT_TRUE(Has(vtu, "Name=\"aspect_ratio\""));
  EXPECT_TRUE(Has(vtu, "Name=\"shape\""));
  EXPECT_FALSE(Has(vtu, "Name=\"min_angle\""));
  // Two tetrahedra of one sixth and one third: their mean is a quarter.
  const Ran all = Qxdb("check good.qxm --measure all --json");
  EXPECT_TRUE(Has(all.out, "\"relative-size\":{\"elements\":2")) << all.out;
  EXPECT_TRUE(Has(all.out, "\"value\":0.4444444444444")) << all.out;
  EXPECT_FALSE(Has(Qxdb("check good.qxm --json").out, "relative-size"));
  EXPECT_EQ(Qxdb("check good.qxm --vtu no/such/folder/out.vtu").code, 1);
}

TEST_F(CheckCli, BarsHaveShortNumbersAtTheirEnds) {
  // Six times the volume, from -2 to 2.
  struct Case {
    const char* bins;
    std::vector<const char*> bars;
  };
  const Case cases[] = {{"1", {"-2 .. 2 "}},
                        {"3", {"-2 .. 0 ", " 0 .. 2 "}},
                        {"6", {"-2 .. -1 ", " 1 .. 2 "}},
                        {"10", {"-2 .. -1.5 ", "-0.5 .. 0 ", "1.5 .. 2 "}}};
  for (const Case& c : cases) {
    const std::string out =
        Qxdb(std::string("check bad.qxm --measure jacobian --bins ") + c.bins).out;
    for (const char* bar : c.bars) EXPECT_TRUE(Has(out, bar)) << c.bins << ": " << bar << out;
  }
}

TEST_F(CheckCli, CountsEveryElementAndSaysWhatItDidNotMeasure) {
  Write("more.json",
        "{\"ELEM\":{\"11\":{\"TYPE\":2,\"NODE_KEY_ARRAY\":[1,2]},"
        "\"12\":{\"TYPE\":50,\"NODE_KEY_ARRAY\":[1,2,3,4]},"
        "\"13\":{\"TYPE\":30,\"NODE_KEY_ARRAY\":[5]},"
        "\"14\":{\"TYPE\":6,\"NODE_KEY_ARRAY\":[1,2,3]}}}");
  ASSERT_EQ(Qxdb("gateway read good.qxm more.json").code, 0);
  const Ran run = Qxdb("check good.qxm --measure shape --vtu out.vtu");
  for (const char* part :
       {"6 elements", "special elements of type 30", "special elements of type 50",
        "elements not measured: 1 broken, see above; 2 special, whose shape is the application's; "
        "1 of a shape that has none of these measures"}) {
    EXPECT_TRUE(Has(run.out, part)) << part << '\n' << run.out;
  }
  // What the table rates is what the file has values of: the line has none, the others no cell.
  EXPECT_TRUE(Has(*ReadWholeFile(Path("out.vtu")), "NumberOfCells=\"3\""));
  EXPECT_TRUE(Has(Qxdb("check good.qxm --limit shape=0.1").out,
                  "limit shape = 0.1: EXCEEDED, 1 too broken to be measured"));
}

TEST_F(CheckCli, WeighsWithGivenValues) {
  // One sixth and one third, in cubic metres of a unit density.
  const Ran run = Qxdb("check good.qxm --density 1 --json");
  EXPECT_EQ(run.code, 0) << run.err;
  EXPECT_TRUE(Has(run.out, "\"total\":{\"mass\":0.5")) << run.out;
  EXPECT_TRUE(Has(Qxdb("check good.qxm --mass").out, "without a known density"));
}

TEST_F(CheckCli, FixMendsWhatCheckFinds) {
  const Ran dry = Qxdb("fix bad.qxm --dry-run");
  EXPECT_TRUE(Has(dry.out, "(not saved)")) << dry.out;
  EXPECT_EQ(Qxdb("check bad.qxm --limit inverted-solids=0").code, 1);
  const Ran run = Qxdb(
      "fix bad.qxm --solids --shells --duplicate-elements --unreferenced-nodes --merge-nodes 1e-9");
  EXPECT_EQ(run.code, 0) << run.err;
  EXPECT_TRUE(Has(run.out, "nodes merged")) << run.out;
  const Ran after = Qxdb(
      "check bad.qxm --limit inverted-solids=0 --limit duplicate-elements=0 --limit "
      "duplicate-nodes=0 --limit unreferenced-nodes=0");
  EXPECT_EQ(after.code, 0) << after.out;
  EXPECT_TRUE(Has(Qxdb("fix bad.qxm").out, "nothing to repair"));
  EXPECT_EQ(Qxdb("verify bad.qxm").code, 0);
}

}  // namespace
}  // namespace qx
