// qxdb sql, qxdb dump, the extension for other programs, and the worked questions of docs/sql.md.

#include <cstdlib>
#include <filesystem>
#include <sstream>

#include "tests/cli/cli_fixture.h"
#include "tests/cli/terminal.h"

#ifdef QX_HAS_SQL

namespace qx {
namespace {

class SqlCommand : public Cli {
 protected:
  SqlCommand() { EXPECT_EQ(Qxdb("import good.msh m.qxm --units mm").code, 0); }
  Ran Sql(const std::string& statements, const std::string& options = "") const {
    return Qxdb("sql m.qxm \"" + statements + "\" " + options);
  }
};

TEST_F(SqlCommand, PrintsRowsInEveryForm) {
  const std::string query =
      "SELECT key, x, x / 3 AS third, NULL AS none, 'a,b' AS t FROM node "
      "WHERE key IN (1, 2) ORDER BY key";
  EXPECT_EQ(Sql(query).out,
            "key  x     third  none  t\n"
            "  1  0         0        a,b\n"
            "  2  1  0.333333        a,b\n");
  EXPECT_EQ(Sql(query, "--format csv").out,
            "key,x,third,none,t\n1,0,0,,\"a,b\"\n2,1,0.3333333333333333,,\"a,b\"\n");
  const std::string json =
      "[\n{\"key\":1,\"x\":0,\"third\":0,\"none\":null,\"t\":\"a,b\"},\n"
      "{\"key\":2,\"x\":1,\"third\":0.3333333333333333,\"none\":null,\"t\":\"a,b\"}\n]\n";
  std::string got = Sql(query, "--format json").out;
  std::erase(got, ' ');
  EXPECT_EQ(got, json);
  EXPECT_EQ(Sql(query, "--json").out, Sql(query, "--format json").out);
  EXPECT_EQ(Sql("SELECT key FROM node WHERE key > 9").out, "no rows\n");
}

TEST_F(SqlCommand, SaysWhatIsWrongInOneLine) {
  struct Case {
    const char* arguments;
    int code;
    const char* says;
  };
  const Case cases[] = {
      {"sql m.qxm \"SELECT * FROM nodes\"", 2, "qxdb: SQL: no such table: nodes; see .tables"},
      {"sql m.qxm \".schema nodes\"", 2, "there is no table \"nodes\"; see .tables"},
      {"sql m.qxm \"SELEC\"", 2, "syntax error; correct the statement"},
      {"sql m.qxm \"SELECT * FROM where_used\"", 2,
       "where_used is not told of which record; as in where_used('node', 5)"},
      {"sql m.qxm \"DROP TABLE node\"", 2, "not authorized; the model's tables stay as they are"},
      {"sql m.qxm \"ALTER TABLE node RENAME TO n\"", 2, "not authorized"},
      {"dump m.qxm node --unit parsec", 2, "is no unit"},
      {"sql m.qxm .dance", 2, "is no command of the prompt"},
      {"sql m.qxm \"DELETE FROM node\"", 1, "the model is open to be read only; use --write"},
      {"sql m.qxm --write \"UPDATE node SET x = 'far'\"", 1,
       "m.qxm: SQL: node 1: x is a number, and 'far' is none; give a number"},
      {"sql m.qxm --write \"BEGIN; UPDATE node SET x = 0\"", 1,
       "m.qxm: SQL: the transaction is not ended, nothing of it was stored; add COMMIT"},
      {"sql m.qxm --write < open.sql", 1, "the transaction is not ended"},
      {"sql m.qxm \"ATTACH 'new.db' AS n\"", 2, "too many attached databases"},
      {"sql m.qxm \"VACUUM INTO 'new.db'\"", 2, "too many attached databases"},
      {"sql m.qxm --write \"CREATE TABLE kept AS SELECT 1\"", 2, "say CREATE TEMP if that will do"},
      {"sql m.qxm \"CREATE VIEW kept AS SELECT 1\"", 2, "would be gone when the command ends"},
      {"sql m.qxm --write VACUUM", 2, "does nothing to a model; make its file"},
      {"sql m.qxm \".tables nothing\"", 2, "there is no table like \"nothing\"; see .tables"},
      {"dump m.qxm --query \"SELECT x FROM node\" --unit m", 2, "--unit"},
      {"sql none.qxm \"SELECT 1\"", 1, "none.qxm"},
      {"dump m.qxm", 2, "needs tables or a query, not both"},
      {"dump m.qxm nodes", 1, "table nodes: is none of the model's"},
      {"dump m.qxm node --output good.msh", 1, "good.msh"},
  };
  Write("open.sql", "BEGIN;\nUPDATE node SET x = 0;\n");
  for (const Case& wrong : cases) {
    const Ran run = Qxdb(wrong.arguments);
    EXPECT_EQ(run.code, wrong.code) << wrong.arguments << run.err;
    EXPECT_NE(run.err.find(wrong.says), std::string::npos) << wrong.arguments << ": " << run.err;
    EXPECT_EQ(std::count(run.err.begin(), run.err.end(), '\n'), 1) << run.err;
    if (wrong.arguments[0] == 'd') {  // no heading of rows that do not come
      EXPECT_EQ(run.out, "");
    }
  }
  EXPECT_TRUE(Qxdb("log m.qxm").out.starts_with("no history;"));
}

TEST_F(SqlCommand, WritesStepsThatUndoTakesBack) {
  const std::string before = Qxdb("info m.qxm").out;
  EXPECT_EQ(Sql("UPDATE node SET x = x + 1; DELETE FROM element WHERE key = 2", "--write").out,
            "5 rows changed\n1 row changed\n");
  EXPECT_EQ(Sql("SELECT sum(x), (SELECT count(*) FROM element) FROM node", "--format csv").out,
            "sum(x),(SELECT count(*) FROM element)\n7,1\n");
  const std::string log = Qxdb("log m.qxm").out;
  EXPECT_NE(log.find("UPDATE node SET x = x + 1\n"), std::string::npos) << log;
  EXPECT_EQ(Qxdb("undo m.qxm --count 2").code, 0);
  const auto state = [](const std::string& info) { return info.substr(info.find("state")); };
  EXPECT_EQ(state(Qxdb("info m.qxm").out), state(before));
}

TEST_F(SqlCommand, ReadsStatementsFromAPipe) {
  Write(
      "ask.sql",
      "-- a comment\nSELECT count(*)\n FROM node;\n.format csv\nSELECT max(key) AS k FROM node\n");
  const Ran run = Qxdb("sql m.qxm < ask.sql");
  EXPECT_EQ(run.out, "count(*)\n       5\nk\n5\n");
  Write("wrong.sql", "SELECT 1 AS one;\nSELECT nothing;\nSELECT 2;\n");
  const Ran wrong = Qxdb("sql m.qxm < wrong.sql");
  EXPECT_EQ(wrong.out, "one\n  1\n");
  EXPECT_EQ(wrong.code, 2);
}

TEST_F(SqlCommand, DumpsTablesAndQueries) {
  std::filesystem::create_directory(Path("out"));
  EXPECT_EQ(Qxdb("dump m.qxm node element_node --into out --unit m").out,
            "out/node.csv\nout/element_node.csv\n");
  EXPECT_EQ(*ReadWholeFile(Path("out/node.csv")),
            "key,x,y,z,flags\n1,0,0,0,0\n2,0.001,0,0,0\n3,0,0.001,0,0\n4,0,0,0.001,0\n"
            "5,0.001,0.001,0.001,0\n");
  EXPECT_TRUE(IsStopped(Qxdb("dump m.qxm node --into out")));  // is not ours to replace
  EXPECT_EQ(Qxdb("dump m.qxm node --into out --force").code, 0);
  EXPECT_EQ(Qxdb("dump m.qxm --query \"SELECT count(*) AS n FROM element\" --output -").out,
            "n\n2\n");
  EXPECT_FALSE(std::filesystem::exists(Path("-")));
}

TEST_F(SqlCommand, TakesCommandsOfThePromptAsAnArgument) {
  EXPECT_EQ(Qxdb("sql m.qxm \".tables element_n%\"").out, "element_node\n");
  EXPECT_NE(Qxdb("sql m.qxm .help").out.find(".schema NAME"), std::string::npos);
  EXPECT_EQ(Qxdb("sql m.qxm .quit").code, 0);
}

TEST_F(SqlCommand, MakesTablesThatLastForTheCallOrInAFile) {
  EXPECT_EQ(Sql("CREATE TEMP TABLE n AS SELECT key FROM node; SELECT count(*) AS n FROM n",
                "--format csv")
                .out,
            "n\n5\n");
  EXPECT_EQ(
      Sql("ATTACH 'own.db' AS own; CREATE TABLE own.n AS SELECT key FROM node", "--write").code, 0);
  EXPECT_EQ(
      Sql("ATTACH 'own.db' AS own; SELECT count(*) AS n FROM own.n", "--write --format csv").out,
      "n\n5\n");
}

// ---- the prompt ---------------------------------------------------------------------------------

#ifdef QX_HAS_LIBEDIT

TEST_F(SqlCommand, ThePromptEditsCompletesRemembersAndGoesOn) {
  Terminal terminal(folder_.Path().string(), {"sql", "m.qxm"});
  const Said said[] = {
      {"", "m.qxm; .help tells more, .quit leaves\r\nqxdb> "},
      {"SEL\t", "ECT "},                      // a word
      {"sum(key) FROM unused_n\t", "ode "},   // a table
      {"\x15", "\x1b[K"},                     // the line is emptied
      {"SELECT scaled_j\x01\x0b", "\x1b[K"},  // nothing to complete without a table
      {"SELECT 1 FROM element_quality WHERE scaled_j\t", "acobian "},  // a column
      {"> 2;\r", "no rows\r\nqxdb> "},
      {"SELECT sum(key) AS s\r", "  ...> "},  // goes on
      {"FROM node;\r", " s\r\n15\r\nqxdb> "},
      {"SELECT nought;\r", "no such column: nought; see .tables"},
      {"", "qxdb> "},
      {".format csv\r", "qxdb> "},
      {"SELECT 'a' AS letter, 2 AS number;\r", "letter,number\r\na,2\r\nqxdb> "},
      {"\x1b[A\r", "letter,number\r\na,2\r\nqxdb> "},  // the line before, again
      {".sch\t unus\t\r", "/* nodes that no element has"},
      {"", "qxdb> "},
      {"SELE\t", "CT "},  // so the line is read, and Ctrl-C a key
      {"'dropped'\x03", "^C\r\nqxdb> "},
      {"SELECT 'dropped'\r", "  ...> "},
      {"FRO\t", "M "},
      {"node\x03", "^C\r\nqxdb> "},
      {"SELECT 'at' AS work; WITH RECURSIVE n(i) AS (SELECT 1 UNION ALL SELECT i + 1 FROM n) "
       "SELECT max(i) FROM n;\r",
       "work\r\nat\r\n"},
      {"\x03", "was stopped; run it again\r\nqxdb> "},
      {"SELECT 'still' || ' here';\r", "still here\r\nqxdb> "},
      {".quit\r", "\r\n"},
  };
  ASSERT_EQ(terminal.Talk(said), "");
  EXPECT_EQ(terminal.Code(), 0);
}

#endif

/// Comments of the schema name meaning and unit of each column.
TEST_F(SqlCommand, TellsWhatColumnsMean) {
  const std::string schema = Qxdb("sql m.qxm \".schema element\"").out;
  for (const char* line : {"key       INTEGER  key of the record\n",
                           "property  INTEGER  property: key in property, NULL for none\n"}) {
    EXPECT_NE(schema.find(line), std::string::npos) << schema;
  }
  EXPECT_NE(Qxdb("sql m.qxm \".schema node\"").out.find("length [mm]"), std::string::npos);
}

// ---- the extension ------------------------------------------------------------------------------

#ifdef QX_EXTENSION_FILE
TEST_F(SqlCommand, TheExtensionGivesTheSameToOtherPrograms) {
  Write("ask.sql",
        "SELECT qx_open('m.qxm', 'write');\n"
        "SELECT count(*), sum(x) FROM node;\n"
        "UPDATE node SET x = 5 WHERE key = 1;\n"
        "SELECT x FROM node WHERE key = 1;\n"
        "SELECT qx_undo();\n"
        "SELECT x FROM node WHERE key = 1;\n"
        "SELECT qx_open('m.qxm');\n"
        "SELECT qx_close();\n"
        "SELECT qx_open('m.qxm', 'read', 'b_');\n"
        "SELECT count(*) FROM b_element;\n"
        "SELECT qx_open('none.qxm', 'read', 'c_');\n");
  const std::string load = "cd '" + folder_.Path().string() + "' && ";
  ASSERT_EQ(WEXITSTATUS(std::system(
                (load + "sqlite3 -cmd '.load " QX_EXTENSION_FILE "' < ask.sql > out.txt 2> err.txt")
                    .c_str())),
            1);
  EXPECT_EQ(*ReadWholeFile(Path("out.txt")), "\n5|2.0\n5.0\n\n0.0\n\n\n2\n");
  const std::string faults = *ReadWholeFile(Path("err.txt"));
  EXPECT_NE(faults.find("another model has the tables of that name"), std::string::npos) << faults;
  EXPECT_NE(faults.find("none.qxm"), std::string::npos) << faults;

  Write("ask.py",
        "import sqlite3\n"
        "db = sqlite3.connect(':memory:')\n"
        "db.enable_load_extension(True)\n"
        "db.load_extension('" QX_EXTENSION_FILE
        "')\n"
        "db.execute(\"SELECT qx_open('m.qxm', 'write')\").fetchall()\n"
        "with db:\n"
        "    db.execute('UPDATE node SET x = 8 WHERE key = ?', (2,))\n"
        "    db.execute('DELETE FROM element WHERE key = 1')\n"
        "print(db.execute('SELECT max(x) FROM node').fetchone())\n"
        "try:\n"
        "    db.execute('INSERT INTO node(key) VALUES (1)')\n"
        "except sqlite3.IntegrityError as fault:\n"
        "    print(fault)\n"
        "db.rollback()\n"
        "db.execute('BEGIN')\n"
        "try:\n"
        "    db.execute('SELECT qx_close()').fetchall()\n"
        "except sqlite3.OperationalError as fault:\n"
        "    print(fault)\n"
        "db.rollback()\n"
        "db.execute('SELECT qx_close()').fetchall()\n"
        "other = sqlite3.connect(':memory:')\n"
        "other.enable_load_extension(True)\n"
        "other.load_extension('" QX_EXTENSION_FILE
        "')\n"
        "other.execute(\"SELECT qx_open('m.qxm', 'write')\").fetchall()\n"
        "print(other.execute('SELECT max(x) FROM node').fetchone())\n");
  ASSERT_EQ(std::system((load + "/usr/bin/python3 ask.py > out.txt").c_str()), 0);
  EXPECT_EQ(*ReadWholeFile(Path("out.txt")),
            "(8.0,)\nnode 1: is there already; give another key, or none\n"
            "tables: a transaction is open; COMMIT or ROLLBACK first\n"
            "(8.0,)\n");  // which the first has let go of
  // The node, and the set and the block that lose the element.
  EXPECT_EQ(Qxdb("sql m.qxm \"SELECT modified, removed FROM step\" --format csv").out,
            "modified,removed\n3,1\n");
}

#endif

// ---- the questions of the page ------------------------------------------------------------------

/// Each question's command gives the rows that the page shows below it.
TEST_F(SqlCommand, ThePageShowsWhatItsQuestionsGive) {
  std::filesystem::copy(QX_SOURCE_DIR "/examples", Path("examples"),
                        std::filesystem::copy_options::recursive);
  const std::string page = *ReadWholeFile(QX_SOURCE_DIR "/docs/sql.md");
  std::istringstream lines(page.substr(page.find("## Ten questions")));
  ASSERT_EQ(Qxdb("import examples/bracket.msh bracket.qxm --units mm").code, 0);
  std::string command, shown, last;
  enum { kProse, kCommand, kShown } where = kProse;
  int compared = 0;
  for (std::string line; std::getline(lines, line);) {
    if (line == "```sh") {
      where = kCommand;
    } else if (line == "```text") {
      where = kShown;
    } else if (line == "```") {
      if (where == kCommand) {
        command.pop_back();  // its line end
        const Ran run = Qxdb(command.substr(command.find(' ') + 1));
        EXPECT_EQ(run.code, 0) << command << run.err;
        last = run.out;
        command.clear();
      } else {
        EXPECT_EQ(shown, last);
        shown.clear();
        ++compared;
      }
      where = kProse;
    } else if (where == kCommand) {
      command += line + '\n';
    } else if (where == kShown) {
      shown += line + '\n';
    }
  }
  EXPECT_EQ(compared, 10);
}

}  // namespace
}  // namespace qx

#else

namespace qx {
namespace {

TEST_F(Cli, SqlThatIsNotBuiltIsToldInOneLine) {
  EXPECT_EQ(Qxdb("sql m.qxm").err,
            "qxdb: sql: is not part of this build; configure with -DQX_SQL=ON\n");
  EXPECT_EQ(Qxdb("dump m.qxm node").err,
            "qxdb: dump: is not part of this build; configure with -DQX_SQL=ON\n");
}

}  // namespace
}  // namespace qx

#endif
