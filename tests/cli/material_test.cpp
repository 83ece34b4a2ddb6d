// Material libraries at the shell.

#include <algorithm>
#include <filesystem>
#include <gtest/gtest.h>

#include "tests/cli/cli_fixture.h"

namespace qx {
namespace {

class MaterialCli : public Cli {
 protected:
  MaterialCli() {
    Write("steel.txt", "*Steel\nS235" + Values(210000) + "cut | 1 | 2\nS355" + Values(210000));
  }
  /// A modulus and 15 more values.
  static std::string Values(int modulus) {
    return "|" + std::to_string(modulus) + "|0.3|81000|1.2e-5|7.7e-5|7.85e-6|0|20|0.05|440|0|360" +
           "|0|0|0|235\n";
  }
};

TEST_F(MaterialCli, ListsInTheUnitsAskedForAndNamesWhatItSkips) {
  const Ran list = Qxdb("material list steel.txt --units m,kN --lint");
  EXPECT_EQ(list.code, 0) << list.err;
  EXPECT_NE(list.out.find("elastic modulus [kN/m^2]"), std::string::npos) << list.out;
  EXPECT_NE(list.out.find("2.1e+08"), std::string::npos) << list.out;
  EXPECT_NE(list.out.find("steel.txt: line 3: left out: 3 fields"), std::string::npos) << list.out;
  const Ran show = Qxdb("material show steel.txt s355 --units F --json");
  EXPECT_NE(show.out.find("\"reference temperature\":{\"value\":68,"), std::string::npos)
      << show.out;
}

TEST_F(MaterialCli, ConvertsThroughEveryForm) {
  const char* const chain[] = {"steel.txt", "a.bin", "a.gdbp", "a.cfdbin", "b.bin", "b.txt"};
  for (std::size_t i = 1; i < std::size(chain); ++i) {
    const Ran ran = Qxdb(std::string("material convert ") + chain[i - 1] + " " + chain[i]);
    ASSERT_EQ(ran.code, 0) << chain[i] << ": " << ran.err;
  }
  const Ran lost = Qxdb("material convert a.gdbp a.cfd");
  EXPECT_NE(lost.out.find("not kept"), std::string::npos) << lost.out;
  EXPECT_NE(Qxdb("material list b.txt").out.find("210000"), std::string::npos);
}

TEST_F(MaterialCli, ImportsIntoAModelInItsUnits) {
  ASSERT_EQ(Qxdb("import good.msh m.qxm --units m").code, 0);
  const Ran import = Qxdb("material import steel.txt m.qxm S355 S235");
  ASSERT_EQ(import.code, 0) << import.err;
  EXPECT_NE(import.out.find("weight density"), std::string::npos) << "what finds no place is told";
  const Ran show = Qxdb("show m.qxm MATL all --json");
  EXPECT_NE(show.out.find("\"1\":{\"NAME\":\"S355\""), std::string::npos) << show.out;
  EXPECT_NE(show.out.find("\"ELASTIC_MODULUS\":210000000000.0"), std::string::npos) << show.out;
  const std::string before = *ReadWholeFile(Path("m.qxm"));
  EXPECT_EQ(Qxdb("material import steel.txt m.qxm S235").code, 1);
  EXPECT_EQ(Qxdb("material import steel.txt m.qxm none").code, 1);
  EXPECT_EQ(Qxdb("material import steel.txt m.qxm").code, 2);
  EXPECT_EQ(*ReadWholeFile(Path("m.qxm")), before);
  EXPECT_EQ(Qxdb("material import steel.txt m.qxm --all --replace").code, 0);
}

TEST_F(MaterialCli, SaysWhichEncodingItAssumed) {
  struct Case {
    const char* name;  // of a material, in the bytes of the file
    const char* options;
    const char* said;  // null: nothing
  };
  const Case cases[] = {{"plain", "", nullptr},
                        {"bl\xC3\xA5", "", "is read as UTF-8"},
                        {"bl\xE5", "", "is read as windows-1252"},
                        {"bl\xE5", " --encoding 1252", nullptr},
                        {"\xC3\xA5", " --encoding 1252", nullptr}};
  for (const Case& c : cases) {
    Write("named.txt", std::string("*a\n") + c.name + Values(1));
    const Ran ran = Qxdb(std::string("material list named.txt") + c.options);
    ASSERT_EQ(ran.code, 0) << ran.err;
    EXPECT_EQ(ran.out.find("is read") != std::string::npos, c.said != nullptr) << ran.out;
    EXPECT_NE(ran.out.find(c.said ? c.said : ""), std::string::npos) << ran.out;
  }
  Write("named.txt", "*a\nbl\xE5" + Values(1));
  EXPECT_NE(Qxdb("material list named.txt").out.find("bl\xC3\xA5"), std::string::npos);
}

TEST_F(MaterialCli, RefusesInOneLineAndWritesNothing) {
  Write("cut.bin", std::string("P\0e\0l\0o\0r\0M\0a\0t\0l\0\1\0\0\0\x13\0\0\0", 26));
  Write("empty.gdbp", "");
  ASSERT_EQ(Qxdb("material convert steel.txt more.bin").code, 0);
  Write("none.gdbp", "; remarks only\n");
  Write("more.bin", *ReadWholeFile(Path("more.bin")) + "x");
  EXPECT_NE(Qxdb("material list more.bin").out.find("more.bin: end: 1 byte follows"),
            std::string::npos)
      << "read, and told of";
  ASSERT_EQ(Qxdb("import good.msh m.qxm").code, 0);
  Write("wide.txt", "\xEF\xBB\xBF*\xE6\xBC\xA2\nS" + Values(1));
  for (const char* arguments :
       {"list none.txt", "list .", "list cut.bin", "show steel.txt S999",
        "list steel.txt --units parsec", "list steel.txt --encoding 437", "list steel.txt --form x",
        "convert steel.txt out.doc", "convert steel.txt out.gdb",
        "convert wide.txt western.txt --to-encoding 1252", "lint empty.gdbp", "lint more.bin",
        "convert steel.txt out.bin --units m,kN", "convert steel.txt out.gdbp --units mm,g",
        "convert steel.txt m.qxm --to binary", "convert none.gdbp steel.txt",
        "list /dev/zero --form text"}) {
    const Ran ran = Qxdb(std::string("material ") + arguments);
    EXPECT_TRUE(IsStopped(ran)) << arguments;
    EXPECT_EQ(std::count(ran.err.begin(), ran.err.end(), '\n'), 1) << ran.err;
    EXPECT_EQ(ran.out, "") << arguments;
  }
  EXPECT_NE(Qxdb("material lint empty.gdbp").err.find("empty.gdbp: is empty; add **Version"),
            std::string::npos);
  EXPECT_EQ(Qxdb("verify m.qxm").code, 0) << "a library is not written over a model";
  for (const char* name : {"out.doc", "out.gdb", "out.bin", "out.gdbp", "western.txt"}) {
    EXPECT_FALSE(std::filesystem::exists(Path(name))) << name;
  }
}

}  // namespace
}  // namespace qx
