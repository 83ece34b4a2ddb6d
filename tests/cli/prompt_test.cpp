// qxdb shell at a terminal. What its commands do line by line is in cases/shell.txt.

#include <filesystem>

#include "tests/cli/cli_fixture.h"
#include "tests/cli/terminal.h"

#ifdef QX_HAS_LIBEDIT

namespace qx {
namespace {

class Prompt : public Cli {
 protected:
  Prompt() {
    EXPECT_EQ(Qxdb("import good.msh m.qxm --units mm").code, 0);
    EXPECT_EQ(Qxdb("sets add m.qxm \"left side\" --elements 1").code, 0);
    std::filesystem::create_directory(Path("meshes"));
    Write("meshes/part.msh", "");
  }
};

TEST_F(Prompt, EditsCompletesAndGoesOn) {
  Terminal terminal(folder_.Path().string(), {"shell", "m.qxm"});
  const Said said[] = {
      {"", "m.qxm; help lists the commands, quit leaves\r\nqxdb> "},
      {"inf\t", "o "},  // a command
      {"\r", "m.qxm: "},
      {"", "qxdb> "},
      {"show no\t", "de "},  // a pool
      {"5\r", "\"5\""},
      {"", "qxdb> "},
      {"edit mo\tall --dr\t", "-run "},  // an option
      {"--by 0 0 1\r", "(not saved)\r\nqxdb> "},
      {"sets rename le\t", "'left side' "},  // a set, quoted
      {"upper\r", "saved\r\nqxdb> "},
      {"select 'set up\t", "per'"},  // and within a selection
      {" --count\r", "1\r\nqxdb> "},
      {"import mesh\t", "es/"},  // a folder, then a file
      {"pa\t", "rt.msh "},
      {"\x03", "^C\r\nqxdb> "},
      {"sets delete nothing\r", "qxdb: m.qxm: mesh set \"nothing\": is not there"},
      {"", "qxdb> "},  // a failure does not end it
      {"undo\r", "at step "},
      {"", "qxdb> "},
      {"sets rename 'left side' \\\r", "  ...> "},
      {"lower\r", "saved\r\nqxdb> "},
      {"sql\r", ".quit leaves\r\nqxdb> "},  // a prompt within
      {"SEL\t", "ECT "},
      {"name FROM mesh_set WHERE name = 'lower';\r", "name\r\nlower\r\nqxdb> "},
      {"\x1b[A\x15", "\x1b[K"},  // the statement before; none of the outer lines
      {".quit\r", "qxdb> "},
      {"\x1b[A\r", ".quit leaves\r\nqxdb> "},  // the outer line before, which was sql
      {".quit\r", "qxdb> "},
      {"exit\r", "\r\n"},
  };
  ASSERT_EQ(terminal.Talk(said), "");
  EXPECT_EQ(terminal.Code(), 0);
}

TEST_F(Prompt, SeesWhatOthersWriteMeanwhile) {
  Terminal terminal(folder_.Path().string(), {"shell", "m.qxm"});
  const Said before[] = {{"", "qxdb> "}, {"select 'volume > 0' --count\r", "2\r\nqxdb> "}};
  ASSERT_EQ(terminal.Talk(before), "");
  EXPECT_EQ(Qxdb("delete m.qxm elem 2").code, 0);
  const Said after[] = {{"select 'volume > 0' --count\r", "1\r\nqxdb> "},
                        {"undo\r", "at step "},
                        {"", "qxdb> "},
                        {"select 'volume > 0' --count\r", "2\r\nqxdb> "}};
  ASSERT_EQ(terminal.Talk(after), "");
}

}  // namespace
}  // namespace qx

#endif
