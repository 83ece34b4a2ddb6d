// Geometry and seeding at the shell.

#include <algorithm>
#include <filesystem>

#include "cli_fixture.h"

namespace qx {
namespace {

class SeedCli : public Cli {
 protected:
  SeedCli() {
    std::filesystem::copy_file(QX_SOURCE_DIR "/examples/joint.step", Path("joint.step"));
  }
};

#ifdef QX_HAS_OCCT

TEST_F(SeedCli, ListsGeometryAndBringsItIn) {
  const Ran listed = Qxdb("geom joint.step");
  EXPECT_EQ(listed.code, 0) << listed.err;
  EXPECT_NE(listed.out.find("not stored"), std::string::npos);
  const Ran stored = Qxdb("geom joint.step m.qxm --json");
  EXPECT_EQ(stored.code, 0);
  const auto count = [&](const std::string& part) {
    std::size_t found = 0;
    for (std::size_t at = 0; (at = stored.out.find(part, at)) != std::string::npos; ++at) ++found;
    return found;
  };
  EXPECT_EQ(count("\"kind\":\"solid\""), 2u);
  EXPECT_EQ(count("\"kind\":\"plane\""), 11u);
  EXPECT_EQ(count("\"kind\":\"line\""), 22u);
  EXPECT_EQ(count("\"kind\":\"spline\""), 2u);
  EXPECT_EQ(Qxdb("verify m.qxm").code, 0);
  EXPECT_EQ(Qxdb("geom joint.step m.qxm --add").code, 0);
  EXPECT_NE(Qxdb("show m.qxm geom").out.find("joint.step:2"), std::string::npos);
  EXPECT_EQ(Qxdb("geom joint.step m.qxm --replace").code, 0);
}

/// The commands of the page on seeding, in their order, with what it says of them.
TEST_F(SeedCli, ThePageOnSeedingIsTrue) {
  const std::string page = *ReadWholeFile(QX_SOURCE_DIR "/docs/edge-seeding.md");
  int ran = 0;
  for (std::size_t at = 0; (at = page.find("\nqxdb ", at)) != std::string::npos;) {
    const std::size_t begin = at + 6;
    at = page.find('\n', begin);
    const std::string line = page.substr(begin, at - begin);
    const auto comment = line.find("  # refused");
    const Ran run = Qxdb(line.substr(0, comment));
    EXPECT_EQ(run.code == 0, comment == std::string::npos) << line << "\n" << run.err;
    ++ran;
  }
  EXPECT_GE(ran, 8);
  for (const char* picture : {"edge-seeding-joint.svg", "edge-seeding-spline.svg"}) {
    EXPECT_EQ(*ReadWholeFile(Path(picture)),
              *ReadWholeFile(std::string(QX_SOURCE_DIR "/docs/") + picture))
        << "the page shows another picture";
  }
}

TEST_F(SeedCli, StoresControlsAndWritesWhatWasSeeded) {
  ASSERT_EQ(Qxdb("geom joint.step m.qxm").code, 0);
  const Ran add = Qxdb(
      "seed add m.qxm joint.step 22,24 --method geometric --ratio 5 --divisions 14 --name wall "
      "--svg s.svg --vtu s.vtu --points s.json --json");
  ASSERT_EQ(add.code, 0) << add.err;
  EXPECT_NE(add.out.find("\"divisions\":14"), std::string::npos);
  EXPECT_NE(Qxdb("show m.qxm szct").out.find("\"wall\""), std::string::npos);
  const std::string svg = *ReadWholeFile(Path("s.svg"));
  std::size_t dots = 0;
  for (std::size_t at = 0; (at = svg.find("<circle", at)) != std::string::npos; ++at) ++dots;
  EXPECT_EQ(dots, 30u);
  EXPECT_NE(ReadWholeFile(Path("s.vtu"))->find("NumberOfPoints=\"30\" NumberOfCells=\"28\""),
            std::string::npos);
  EXPECT_NE(ReadWholeFile(Path("s.json"))->find("\"key\":22"), std::string::npos);

  EXPECT_EQ(Qxdb("seed add m.qxm joint.step 22 --divisions 3 --replace").code, 0);
  const Ran show = Qxdb("seed show m.qxm joint.step --json");
  EXPECT_EQ(show.code, 0) << show.err;
  EXPECT_NE(show.out.find("\"key\":22,\"kind\":\"spline\""), std::string::npos);
  EXPECT_NE(show.out.find("\"control\":2,\"method\":\"divisions\""), std::string::npos);
  // Forced seeds that do not match are stored, and told of from then on.
  EXPECT_EQ(Qxdb("seed add m.qxm joint.step 17 --divisions 3").code, 0);
  EXPECT_EQ(Qxdb("seed add m.qxm joint.step 27 --divisions 4 --force").code, 0);
  const Ran mismatch = Qxdb("seed show m.qxm joint.step");
  EXPECT_EQ(mismatch.code, 1);
  EXPECT_NE(mismatch.out.find("mismatch: edge 17 and 27: 3 and 4 divisions"), std::string::npos)
      << mismatch.out;
  // A control that seeds nothing hinders no other.
  Write("odd.json", R"({"SZCT":{"9":{"GKEY":[28],"METHOD":6}}})");
  ASSERT_EQ(Qxdb("gateway read m.qxm odd.json").code, 0);
  EXPECT_EQ(Qxdb("seed add m.qxm joint.step 30 --divisions 4").code, 0);
  const Ran faulty = Qxdb("seed show m.qxm joint.step");
  EXPECT_EQ(faulty.code, 1);
  EXPECT_NE(faulty.out.find("not seeded: edge 28 of size control 9: method 6"), std::string::npos)
      << faulty.out;
  EXPECT_NE(faulty.out.find("5 of 24 edges seeded"), std::string::npos) << faulty.out;
}

TEST_F(SeedCli, RefusesAndStoresNothing) {
  ASSERT_EQ(Qxdb("geom joint.step m.qxm").code, 0);
  ASSERT_EQ(Qxdb("seed add m.qxm joint.step 19 --method geometric --ratio 3 --divisions 5").code,
            0);
  const std::string model = *ReadWholeFile(Path("m.qxm"));
  const std::string step = *ReadWholeFile(Path("joint.step"));
  Write("half.step", step.substr(0, step.size() / 2));
  std::filesystem::copy_file(Path("joint.step"), Path("other.step"));
  struct Case {
    const char* arguments;
    const char* named;
  };
  const Case cases[] = {
      {"geom missing.step x.qxm", "missing.step"},
      {"geom half.step x.qxm", "half.step: is no STEP file, or was cut short"},
      {"geom good.msh x.qxm", "good.msh"},
      {"geom joint.step m.qxm", "--add"},
      {"seed show m.qxm other.step", "qxdb geom other.step m.qxm --add"},
      {"seed show missing.qxm joint.step", "missing.qxm"},
      {"seed add m.qxm joint.step 99 --divisions 3", "edge 99"},
      {"seed add m.qxm joint.step 3 --divisions 3", "edge 3"},
      {"seed add m.qxm joint.step 16,99 --divisions 3", "edge 99"},
      {"seed add m.qxm joint.step 16- --divisions 3", "edge 19: has size control 1"},
      {"seed add m.qxm joint.step 16 --reverse 18 --divisions 3", "edge 18"},
      {"seed add m.qxm joint.step 16", "needs --divisions"},
      {"seed add m.qxm joint.step 16 --divisions 0", "0 divisions"},
      {"seed add m.qxm joint.step 16 --divisions 10000000", "10000000"},
      {"seed add m.qxm joint.step 16 --method size --size=-1", "-1"},
      {"seed add m.qxm joint.step 16 --method size --size nan", "nan"},
      {"seed add m.qxm joint.step 16 --method size --size 1 --ratio 2", "--ratio"},
      {"seed add m.qxm joint.step 16 --method hyperbolic --first 9 --divisions 5", "not below"},
      {"seed add m.qxm joint.step 16 --method geometric --first 9 --ratio 2 --divisions 5", "make"},
      {"seed add m.qxm joint.step 16 --method linear --first 1 --last 2 --divisions 5", "make"},
      {"seed add m.qxm joint.step 16 --method geometric --ratio 2 --divisions 7 --symmetric",
       "7 divisions cannot be symmetric"},
      {"seed add m.qxm joint.step 16 --method geometric --ratio 2 --divisions 8 --symmetric "
       "--uniform 0.2",
       "nothing symmetric"},
      {"seed add m.qxm joint.step 16 --divisions 2 "
       "--name 0123456789012345678901234567890123456789012345678901234567890123",
       "64 characters"},
      {"seed add m.qxm joint.step 15,16 --method geometric --first 1 --ratio 2", "another length"},
      {"seed add m.qxm joint.step 16 --method positions --at 0.5 0.2", "0.2"},
      {"seed add m.qxm joint.step 37 --method geometric --ratio 3 --divisions 5", "--reverse"},
      {"seed add m.qxm joint.step 37 --method geometric --ratio 3 --divisions 6", "5 and 6"},
      {"seed solve --first 1 --ratio 2", "too little"},
      {"seed solve --first 1 --last 2 --ratio 3 --length 9", "ratio of 2, not 3"},
  };
  for (const Case& c : cases) {
    const Ran run = Qxdb(c.arguments);
    EXPECT_TRUE(IsStopped(run)) << c.arguments << "\n" << run.out;
    EXPECT_EQ(std::count(run.err.begin(), run.err.end(), '\n'), 1) << c.arguments << run.err;
    EXPECT_NE(run.err.find(c.named), std::string::npos) << c.arguments << "\n" << run.err;
    EXPECT_NE(run.err.find("; "), std::string::npos) << "no remedy: " << run.err;
    EXPECT_EQ(run.out, "") << c.arguments;
    EXPECT_FALSE(std::filesystem::exists(Path("x.qxm"))) << c.arguments;
    EXPECT_EQ(*ReadWholeFile(Path("m.qxm")), model) << c.arguments;
  }
  EXPECT_EQ(Qxdb("seed add m.qxm joint.step 16 --divisions 3 --dry-run").code, 0);
  EXPECT_EQ(*ReadWholeFile(Path("m.qxm")), model);
}

#else

TEST_F(SeedCli, SaysThatItHasNoCadKernel) {
  const Ran run = Qxdb("geom joint.step x.qxm");
  EXPECT_EQ(run.code, 1);
  EXPECT_NE(run.err.find("without a CAD kernel"), std::string::npos) << run.err;
}

#endif

}  // namespace
}  // namespace qx
