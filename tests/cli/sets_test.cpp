// Mesh sets at the shell.

#include <algorithm>

#include "cli_fixture.h"

namespace qx {
namespace {

class SetsCli : public Cli {
 protected:
  SetsCli() {
    EXPECT_EQ(Qxdb("import good.msh m.qxm").code, 0);
    EXPECT_EQ(Qxdb("import good.msh other.qxm --units mm").code, 0);
  }
  /// Name, depth and counts of every set, a line each.
  std::string Tree() const {
    const std::string json = Qxdb("sets m.qxm --json").out;
    std::string lines;
    const auto value = [&](std::size_t from, const std::string& name) {
      const std::size_t at = json.find("\"" + name + "\":", from) + name.size() + 3;
      return json.substr(at, json.find_first_of(",}", at) - at);
    };
    for (std::size_t at = 0; (at = json.find("{\"key\"", at)) != std::string::npos; ++at) {
      lines += value(at, "depth") + " " + value(at, "name") + " " + value(at, "nodes") + " " +
               value(at, "elements") + "\n";
    }
    return lines;
  }
};

TEST_F(SetsCli, ALifeOfSets) {
  EXPECT_EQ(Tree(), "0 \"Default Mesh Set\" 0 0\n0 \"body\" 5 2\n");
  const Ran tree = Qxdb("sets m.qxm");
  EXPECT_NE(tree.out.find("key  nodes  elements  colour   name"), std::string::npos) << tree.out;
  EXPECT_NE(tree.out.find("in no set: 0 nodes, 0 elements"), std::string::npos);

  const Ran added = Qxdb("sets add m.qxm top --under body --elements 2");
  EXPECT_EQ(added.code, 0);
  EXPECT_NE(added.out.find("mset         1        0         0\nsaved"), std::string::npos)
      << "one new record, however it came about: " << added.out;
  EXPECT_EQ(Qxdb("sets add m.qxm corner --under top --nodes 1,5").code, 0);
  EXPECT_EQ(Qxdb("sets add m.qxm empty").code, 0);
  const std::string full =
      "0 \"Default Mesh Set\" 0 0\n0 \"body\" 5 2\n1 \"top\" 4 1\n2 \"corner\" 2 0\n"
      "0 \"empty\" 0 0\n";
  EXPECT_EQ(Tree(), full);
  EXPECT_EQ(Qxdb("sets delete m.qxm body --dry-run").code, 0);
  EXPECT_EQ(Tree(), full);
  EXPECT_EQ(Qxdb("sets clean m.qxm").code, 0);
  EXPECT_EQ(Qxdb("sets rename m.qxm top roof").code, 0);
  EXPECT_EQ(Qxdb("sets delete m.qxm body").code, 0);
  EXPECT_EQ(Tree(), "0 \"Default Mesh Set\" 0 0\n0 \"roof\" 4 1\n1 \"corner\" 2 0\n")
      << "what others hold stays";
  EXPECT_EQ(Qxdb("sets import m.qxm other.qxm body --under roof").code, 0);
  EXPECT_EQ(Tree(),
            "0 \"Default Mesh Set\" 0 0\n0 \"roof\" 4 1\n1 \"corner\" 2 0\n1 \"body\" 5 2\n");
  EXPECT_EQ(Qxdb("sets move m.qxm corner --under body").code, 0);
  EXPECT_EQ(Qxdb("sets merge m.qxm roof body").code, 0);
  EXPECT_EQ(Tree(), "0 \"Default Mesh Set\" 0 0\n0 \"roof\" 9 3\n1 \"corner\" 2 0\n");
  EXPECT_EQ(Qxdb("sets rebuild m.qxm").code, 0);
  EXPECT_EQ(Qxdb("verify m.qxm").code, 0);

  // Through a MSH file and back, no set is lost.
  for (const char* encoding : {"ascii", "binary"}) {
    const std::string before = Tree();
    EXPECT_EQ(Qxdb(std::string("export m.qxm out.msh --encoding ") + encoding).code, 0);
    EXPECT_EQ(Qxdb("import out.msh m.qxm --replace").code, 0);
    EXPECT_EQ(Tree(), before);
  }
}

TEST_F(SetsCli, AllCountWhatASetNamesOnce) {
  Write("twice.json",
        R"({"MSET": {"2": {"ELEM_KEY_ARRAY": [1, 1, 2], "NODE_KEY_ARRAY": [3, 3]}}})");
  ASSERT_EQ(Qxdb("gateway read m.qxm twice.json").code, 0);
  EXPECT_NE(Tree().find("\"body\" 1 2\n"), std::string::npos) << Tree();
  const std::string info = Qxdb("info m.qxm --json").out;
  EXPECT_NE(info.find(R"("name":"body","elements":2})"), std::string::npos) << info;
}

TEST_F(SetsCli, AnImportTellsWhatItDecided) {
  ASSERT_EQ(Qxdb("sets add other.qxm wing --elements 1").code, 0);
  for (const char* model : {"m", "other"}) {
    Write("more.json", std::string(R"({"PROP": {"1": {"NAME": ")") + model +
                           R"("}}, "ELEM": {"1": {"PROPERTY": 1}}})");
    ASSERT_EQ(Qxdb(std::string("gateway read ") + model + ".qxm more.json").code, 0);
  }
  const Ran dry = Qxdb("sets import m.qxm other.qxm wing --dry-run");
  EXPECT_EQ(dry.code, 0) << dry.err;
  for (const char* told : {"overwritten  renumbered  joined",
                           "PROP 1: the model has another of this key; came as 2"}) {
    EXPECT_NE(dry.out.find(told), std::string::npos) << told << "\n" << dry.out;
  }
  ASSERT_EQ(Qxdb("sets add m.qxm third").code, 0);
  const std::string told = Qxdb("sets import m.qxm other.qxm wing --json").out;
  EXPECT_NE(told.find(R"("renumbered_sets":["mset 3: came as 4"])"), std::string::npos) << told;
}

TEST_F(SetsCli, TellsOfAGroupNameThatWasCut) {
  std::string text = *ReadWholeFile(Path("good.msh"));
  text.replace(text.find("body"), 4, std::string(100, 'n'));
  Write("long.msh", text);
  const Ran import = Qxdb("import long.msh long.qxm");
  EXPECT_EQ(import.code, 0) << import.err;
  EXPECT_NE(import.out.find("note: names of groups were cut to 63 characters: 1"),
            std::string::npos)
      << import.out;
  EXPECT_NE(Qxdb("sets long.qxm").out.find(" " + std::string(63, 'n') + "\n"), std::string::npos);
}

TEST_F(SetsCli, RefusesInOneLineAndChangesNothing) {
  ASSERT_EQ(Qxdb("sets add m.qxm top --under body --elements 2").code, 0);
  ASSERT_EQ(Qxdb("edit renumber m.qxm mset 3 --from 30").code, 0);
  const std::string model = *ReadWholeFile(Path("m.qxm"));
  struct Case {
    std::string arguments;
    const char* named;
  };
  const Case cases[] = {
      {"sets missing.qxm", "missing.qxm"},
      {"sets delete m.qxm nobody", "mesh set \"nobody\": is not there"},
      {"sets delete m.qxm body 2", "mesh set \"2\": is named twice"},
      {"sets add m.qxm body", "already"},
      {"sets add m.qxm \"\"", "needs a name"},
      {"sets add m.qxm " + std::string(64, 'n'), "63 characters"},
      {"sets add m.qxm new --elements 99", "99"},
      {"sets add m.qxm new --under nobody", "nobody"},
      {"sets rename m.qxm top body", "already"},
      {"sets move m.qxm body --under top", "above itself"},
      {"sets merge m.qxm body body", "named twice"},
      {"sets import m.qxm other.qxm nobody", "other.qxm: mesh set \"nobody\""},
      {"sets import m.qxm good.msh", "good.msh"},
      {"sets import m.qxm other.qxm --keep-keys", "in use"},
  };
  for (const Case& c : cases) {
    const Ran run = Qxdb(c.arguments);
    EXPECT_EQ(run.code, 1) << c.arguments;
    EXPECT_EQ(std::count(run.err.begin(), run.err.end(), '\n'), 1) << c.arguments << run.err;
    EXPECT_NE(run.err.find(c.named), std::string::npos) << c.arguments << "\n" << run.err;
    EXPECT_NE(run.err.find("; "), std::string::npos) << "no remedy: " << run.err;
    EXPECT_EQ(run.out, "") << c.arguments;
    EXPECT_EQ(*ReadWholeFile(Path("m.qxm")), model) << c.arguments;
  }
  EXPECT_EQ(Tree(), "0 \"Default Mesh Set\" 0 0\n0 \"body\" 5 2\n1 \"top\" 4 1\n");
  for (const char* misuse : {"sets", "sets add m.qxm", "sets merge m.qxm body", "sets fly m.qxm"}) {
    EXPECT_EQ(Qxdb(misuse).code, 2) << misuse;
  }
  for (const char* command :
       {"", " add", " rename", " move", " merge", " delete", " clean", " rebuild", " import"}) {
    const Ran help = Qxdb(std::string("sets") + command + " --help");
    EXPECT_NE(help.out.find("Example:\n  qxdb sets"), std::string::npos) << command;
  }
}

}  // namespace
}  // namespace qx
