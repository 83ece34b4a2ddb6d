// Every real MSH file through a model and out again: nothing is lost unsaid, and after one round
// nothing changes any more.

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <gtest/gtest.h>
#include <map>
#include <set>

#include "qx_db/platform/file.h"
#include "qx_db/qx_db.h"

#include "brief.h"
#include "exchange/msh/msh_reader.h"
#include "exchange/transfer.h"
#include "host/session.h"
#include "sample_mesh.h"
#include "tests/corpus.h"
#include "tests/scratch_folder.h"

namespace qx::exchange {
namespace {

using Tags = std::map<std::pair<int, std::int32_t>, std::pair<std::string, std::set<Key>>>;

/// The members of each group by dimension and tag; the name of an unnamed group is "".
Tags TagsOf(const Deck& deck) {
  Tags tags;
  std::map<Key, int> dimension;
  for (const Mesh::Element& element : deck.elements) {
    dimension[element.key] = FindElementType(element.type)->dimension;
  }
  for (const Mesh::Group& group : deck.groups) {
    for (const Mesh::SetTag& tag : group.tags) {
      auto& [name, members] = tags[{tag.dimension, tag.tag}];
      name = tag.named ? group.name : "";
      for (const Key key : group.elements) {
        if (dimension.at(key) == tag.dimension) members.insert(key);
      }
    }
  }
  return tags;
}

class MshCorpusRound : public testing::TestWithParam<const char*> {
 protected:
  /// The file, unpacked where it is packed; "" where it is not there.
  std::string Find() {
    const std::string path = CorpusFile(std::string("gmsh/") + GetParam());
    if (!path.ends_with(".xz")) return path;
    const std::string to = folder_.Path("unpacked.msh");
    const std::string command = "xz -dc '" + path + "' > '" + to + "' 2>/dev/null";
    return std::system(command.c_str()) == 0 ? to : "";
  }
  std::string Through(const std::string& from, const std::string& to, const OptionValues& options,
                      LossReport& out) {
    CQXDBSession session(host::SetUpModel);
    ImportOptions import;
    import.set_model_units = true;
    LossReport in;
    EXPECT_EQ(ImportFile(session, from, import, in).Line(), "");
    EXPECT_EQ(session.Validate(), "");
    ExportOptions export_options;
    export_options.write.values = options;
    const std::string path = folder_.Path(to);
    EXPECT_EQ(ExportFile(session, path, export_options, out).Line(), "");
    return path;
  }

  const ScratchFolder folder_;
};

INSTANTIATE_TEST_SUITE_P(All, MshCorpusRound,
                         testing::Values("adapter.msh", "bimetal.msh", "box.msh", "compass.msh",
                                         "couette-flow.msh", "cylinder_prism.msh", "demo.msh",
                                         "dielectric_grating.msh", "floquet_lumped.msh",
                                         "grid_in_msh_01.3da.v4.msh", "grid_in_msh_02_v4.msh",
                                         "lshaped_2.msh", "quadhex_serendipity1.msh", "shelf.msh",
                                         "triangular-aerofoil.msh.xz", "unit_cell.msh"),
                         [](const auto& test) { return sample::TestName(test.param); });

TEST_P(MshCorpusRound, IsAFixedPointAfterOneRound) {
  const std::string path = Find();
  if (path.empty()) GTEST_SKIP() << "no corpus file " << GetParam();
  for (const OptionValues& options :
       {OptionValues{{"encoding", "ascii"}}, OptionValues{{"encoding", "binary"}},
        OptionValues{{"encoding", "ascii"}, {"version", "2.2"}},
        OptionValues{{"encoding", "binary"}, {"version", "2.2"}}}) {
    LossReport losses;
    LossReport again;
    const std::string once = Through(path, "once.msh", options, losses);
    const std::string twice = Through(once, "twice.msh", options, again);
    const bool is_equal = *ReadWholeFile(once) == *ReadWholeFile(twice);
    EXPECT_TRUE(is_equal) << once << " and " << twice
                          << " differ: " << testing::PrintToString(options);
    if (!options.contains("version")) {
      EXPECT_EQ(losses.Lines(), again.Lines());
      for (const Loss& loss : losses.entries)
        EXPECT_EQ(loss.kind, Loss::Kind::kAssumed) << loss.what;
    }
  }
}

TEST_P(MshCorpusRound, KeepsTagsAndNames) {
  const std::string path = Find();
  if (path.empty()) GTEST_SKIP() << "no corpus file " << GetParam();
  const Result<Deck> before = ReadMsh(path);
  ASSERT_TRUE(before) << before.AsOutcome().Line();
  for (const char* version : {"4.1", "2.2"}) {
    LossReport losses;
    const std::string out = Through(path, "out.msh", {{"version", version}}, losses);
    const Result<Deck> after = ReadMsh(out);
    ASSERT_TRUE(after) << after.AsOutcome().Line();
    EXPECT_EQ(TagsOf(*after), TagsOf(*before));
    EXPECT_EQ(after->node_keys, before->node_keys);
    EXPECT_EQ(after->coordinates, before->coordinates);
    if (version == std::string("2.2")) continue;
    EXPECT_EQ(after->Of<tagTField>().size(), before->Of<tagTField>().size());
    EXPECT_EQ(after->Of<tagTCarried>().size(), before->Of<tagTCarried>().size());
  }
}

// ---- what follows edits -------------------------------------------------------------------------

constexpr const char* kSmall =
    "$MeshFormat\n2.2 0 8\n$EndMeshFormat\n"
    "$PhysicalNames\n1\n1 7 \"edge\"\n$EndPhysicalNames\n"
    "$Nodes\n4\n1 0 0 0\n2 1 0 0\n3 1 1 0\n4 0 1 0\n$EndNodes\n"
    "$Elements\n3\n1 1 2 7 3 1 2\n2 2 2 9 5 1 2 3\n3 2 2 9 5 1 3 4\n$EndElements\n"
    "$Periodic\n1\n1 3 4\nAffine 1 0 0 0.5 0 1 0 0 0 0 1 0 0 0 0 1\n2\n1 4\n2 3\n$EndPeriodic\n"
    "$NodeData\n1\n\"heat\"\n1\n2.5\n3\n4\n1\n3\n1 10\n2 20\n4 40\n$EndNodeData\n"
    "$ElementNodeData\n1\n\"stress\"\n1\n0\n3\n0\n1\n1\n2 3 1 2 3\n$EndElementNodeData\n"
    "$Special\n1 2 3\n$EndSpecial\n";

class MshEdits : public testing::Test {
 protected:
  void SetUp() override {
    ASSERT_EQ(WriteWholeFile(path_, kSmall).Line(), "");
    ASSERT_EQ(ImportFile(session_, path_, {}, report_).Line(), "");
  }
  std::string Exported() {
    LossReport report;
    ExportOptions options;
    options.write.values = {{"encoding", "ascii"}, {"version", "2.2"}};
    const std::string out = folder_.Path("out.msh");
    EXPECT_EQ(ExportFile(session_, out, options, report).Line(), "");
    lines_ = Briefly(report);
    return *ReadWholeFile(out);
  }

  const ScratchFolder folder_;
  const std::string path_ = folder_.Path("small.msh");
  CQXDBSession session_{host::SetUpModel};
  LossReport report_;
  std::vector<std::string> lines_;
};

TEST_F(MshEdits, TellWhatWasTakenForGranted) {
  EXPECT_EQ(
      report_.Lines(),
      (std::vector<std::string>{
          "lengths were taken as m; name the units if they are not (the file names no unit)"}));
}

TEST_F(MshEdits, FollowRenumberingAndDeletionAndComeBackByUndo) {
  const std::string before = Exported();
  EXPECT_NE(before.find("$NodeData\n1\n\"heat\"\n1\n2.5\n3\n4\n1\n3\n1 10 \n2 20 \n4 40 \n"),
            std::string::npos)
      << before;
  EXPECT_NE(before.find("2\n1 4\n2 3\n$EndPeriodic"), std::string::npos);
  EXPECT_NE(before.find("2 3 1 2 3 \n$EndElementNodeData"), std::string::npos);
  EXPECT_NE(before.find("$Special\n1 2 3\n$EndSpecial"), std::string::npos);
  auto& nodes = *session_.GetPool<DPoolNode>(code::kNode);
  auto& elements = *session_.GetPool<DPoolElem>(code::kElem);
  {
    CTransaction step(&session_);
    step.Begin(u"renumber and delete");
    tagTNode node = nodes.GetAtNU(nodes.Find(1));
    node.key = 100;
    ASSERT_TRUE(nodes.SetAtNU(nodes.Find(1), node));
    ASSERT_TRUE(elements.Remove(elements.Find(3)));
    ASSERT_TRUE(nodes.Remove(nodes.Find(4)));
    ASSERT_TRUE(step.Commit());
  }
  const std::string after = Exported();
  EXPECT_NE(after.find("3\n4\n1\n2\n100 10 \n2 20 \n$EndNodeData"), std::string::npos) << after;
  EXPECT_NE(after.find("\n1\n2 3\n$EndPeriodic"), std::string::npos) << after;
  EXPECT_NE(
      std::find(lines_.begin(), lines_.end(), "periodic pairs of nodes of which one is gone: 1"),
      lines_.end());
  ASSERT_TRUE(session_.Undo());
  EXPECT_EQ(Exported(), before);
  ASSERT_TRUE(session_.Undo());
  EXPECT_EQ(nodes.GetSize(), 0);
  for (const std::uint16_t code : {code::kField, code::kSetTag, code::kBlock, code::kCarried}) {
    EXPECT_EQ(session_.GetDataPool(code)->GetSize(), 0) << code;
  }
}

TEST_F(MshEdits, RemovedSetTakesItsTagAlong) {
  auto& sets = *session_.GetPool<DPoolMset>(code::kMset);
  const std::int32_t before = session_.GetDataPool(code::kSetTag)->GetSize();
  CTransaction step(&session_);
  step.Begin(u"remove");
  ASSERT_TRUE(sets.Remove(sets.GetItr(u"edge")));
  ASSERT_TRUE(step.Commit());
  EXPECT_EQ(session_.GetDataPool(code::kSetTag)->GetSize(), before - 1);
}

TEST(MshUnits, AModelLeavesAndComesBackInItsUnits) {
  const ScratchFolder folder;
  const std::string path = folder.Path("small.msh");
  const std::string out = folder.Path("out.msh");
  ASSERT_TRUE(WriteWholeFile(path, kSmall));
  CQXDBSession first(host::SetUpModel);
  ImportOptions in_mm;
  in_mm.units = "mm";
  in_mm.set_model_units = true;
  LossReport report;
  ASSERT_EQ(ImportFile(first, path, in_mm, report).Line(), "");
  EXPECT_TRUE(report.entries.empty());
  ASSERT_EQ(ExportFile(first, out, {}, report).Line(), "");

  CQXDBSession in_metres(host::SetUpModel);  // the file says that its numbers are millimetres
  report = {};
  ASSERT_EQ(ImportFile(in_metres, out, {}, report).Line(), "");
  EXPECT_TRUE(report.entries.empty());
  auto& nodes = *in_metres.GetPool<DPoolNode>(code::kNode);
  EXPECT_DOUBLE_EQ(nodes.GetAtNU(nodes.Find(2)).position.x, 0.001);

  ImportOptions nonsense;
  nonsense.units = "parsec";
  EXPECT_NE(ImportFile(in_metres, path, nonsense, report).Line().find("'parsec' is no unit"),
            std::string::npos);
}

TEST(MshVersions, TwoPointZeroReadsAndOneIsNamed) {
  std::string text = kSmall;
  text.replace(text.find("2.2"), 3, "2.0");
  EXPECT_TRUE(ParseMsh(text, "old"));
  const auto one = ParseMsh("$NOD\n1\n1 0 0 0\n$ENDNOD\n$ELM\n0\n$ENDELM\n", "older");
  EXPECT_NE(one.AsOutcome().Line().find("MSH file of version 1"), std::string::npos);
}

TEST(FormatRegistry, NamesWhatAFileLooksLike) {
  const ScratchFolder folder;
  struct Case {
    const char* name;
    const char* content;
    const char* expected;
  };
  for (const Case& c :
       {Case{"a.msh", "$MeshFormat\n", ""}, Case{"b.txt", "\n$MeshFormat\n", ""},
        Case{"c.xyz", "ISO-10303-21;", "STEP geometry"}, Case{"d.xyz", "", "it is empty"},
        Case{"e.xyz", "{\"a\":1}", "JSON"}, Case{"f.xyz", "\x01\x02", "binary data"}}) {
    const std::string path = folder.Path(c.name);
    ASSERT_TRUE(WriteWholeFile(path, c.content));
    const auto found = FormatToRead(path);
    if (*c.expected == 0) {
      ASSERT_TRUE(found) << c.name;
      EXPECT_EQ((*found)->name, "msh");
    } else {
      EXPECT_NE(found.AsOutcome().Line().find(c.expected), std::string::npos)
          << found.AsOutcome().Line();
      EXPECT_NE(found.AsOutcome().Line().find(".msh"), std::string::npos);
    }
  }
}

TEST(LossReports, StrictRefusesAndJsonTells) {
  const ScratchFolder folder;
  const std::string path = folder.Path("odd.msh");
  ASSERT_TRUE(WriteWholeFile(path,
                             "$MeshFormat\n2.2 0 8\n$EndMeshFormat\n$Nodes\n2\n1 0 0 0\n2 1 0 0\n"
                             "$EndNodes\n$Elements\n1\n1 34 2 1 1 2 1 2\n$EndElements\n"));
  CQXDBSession session(host::SetUpModel);
  ImportOptions options;
  options.strict = true;
  LossReport report;
  EXPECT_NE(ImportFile(session, path, options, report).Line().find("elements of type 34"),
            std::string::npos);
  EXPECT_EQ(session.GetDataPool(code::kNode)->GetSize(), 0);
  const std::string json = report.ToJson(path, "msh", "import");
  dbgateway::DataBase document;
  EXPECT_NE(json.find("{\"kind\": \"lost\", \"what\": \"elements of type 34 (polygons) were left "
                      "out\", \"count\": 1, \"where\": \"element 1\", \"why\": \"the model has no "
                      "such element\"}"),
            std::string::npos)
      << json;
}

}  // namespace
}  // namespace qx::exchange
