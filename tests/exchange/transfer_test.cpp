// What import and export do to a session besides reading and writing: nothing past its steps.

#include "exchange/transfer.h"

#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>

#include "qx_db/qx_db.h"
#include "qx_db/record/element_types.h"

#include "host/session.h"
#include "tests/scratch_folder.h"

namespace qx::exchange {
namespace {

constexpr const char* kTruss =
    "*NODE\n1, 1., 2., 3.\n2, 4., 5., 6.\n*ELEMENT, TYPE=T3D2\n1, 1, 2\n";

UnitSystem In(const char* length) {
  UnitSystem units;
  units[UnitBase::kLength] = FindUnit(UnitBase::kLength, length);
  return units;
}

ITR AddNode(CQXDBSession& session, Key key) {
  tagTNode node;
  node.key = key;
  return session.GetPool<DPoolNode>(code::kNode)->InsertNU(node);
}

// Units of a file and what it brings are one step: whoever keeps steps has both, also where the
// next save comes long after.
TEST(Transfer, AnImportIsOneStepWithItsUnits) {
  const ScratchFolder folder;
  const std::string deck = folder.Path("deck.inp");
  std::ofstream(deck) << kTruss;
  for (const bool of_model : {false, true}) {
    for (const bool changed_before : {false, true}) {
      SCOPED_TRACE(testing::Message() << of_model << changed_before);
      const std::string path = folder.Path("model.qxm");
      std::filesystem::remove(path);
      CQXDocBase document(host::SetUpModel);
      CQXDBSession& session = *document.GetDBSession();
      ASSERT_TRUE(document.SaveAs(path) && document.KeepSteps());
      if (changed_before) AddNode(session, 100);  // as no step: the next one writes all anew
      const std::uint64_t before = session.StateHash();
      ImportOptions options;
      options.units = "mm";
      options.set_model_units = of_model;
      LossReport losses;
      ASSERT_EQ(ImportFile(session, deck, options, losses).Line(), "");
      EXPECT_EQ(session.History().Done().size(), 1u);
      EXPECT_EQ(session.Units().Model(), of_model ? In("mm") : In("m"));
      EXPECT_EQ(session.Units().Current(), of_model ? In("mm") : In("m"));
      EXPECT_EQ(session.Units().Previous(), In("m"));
      const std::uint64_t after = session.StateHash();
      for (const bool undone : {false, true}) {
        ASSERT_TRUE(!undone || session.Undo());
        EXPECT_EQ(session.StateHash(), undone ? before : after);
        CQXDBSession read(host::SetUpModel);
        ASSERT_TRUE(LoadModel(read, path));
        EXPECT_EQ(read.StateHash(), session.StateHash()) << undone;
        EXPECT_EQ(read.Units().Model(), session.Units().Model()) << undone;
      }
      // One that fails leaves neither.
      std::ofstream(folder.Path("bad.inp"))
          << "*NODE\n1, 1., 2., 3.\n*ELEMENT, TYPE=T3D2\n1, 1, 7\n";
      EXPECT_FALSE(ImportFile(session, folder.Path("bad.inp"), options, losses));
      EXPECT_EQ(session.StateHash(), before);
    }
  }
}

TEST(Transfer, AnExportIsNoStepWhateverItsUnits) {
  const ScratchFolder folder;
  CQXDocBase document(host::SetUpModel);
  CQXDBSession& session = *document.GetDBSession();
  Deck deck;  // a face, without which surfaces are not written
  deck.node_keys = deck.connectivity = {1, 2, 3};
  deck.coordinates = {0, 0, 0, 1, 0, 0, 0, 1, 0};
  deck.elements.push_back({1, element::kTri3, 0});
  LossReport made;
  ASSERT_EQ(AddDeck(session, deck, "made", made).Line(), "");
  ASSERT_TRUE(document.SaveAs(folder.Path("model.qxm")) && document.KeepSteps());
  const std::int64_t state = session.State();
  const ModelStamp stamp = document.Keeper()->Stamp();
  for (const Format& format : Formats()) {
    if (!format.write) continue;
    SCOPED_TRACE(format.name);
    ExportOptions options;
    options.format = &format;
    options.units = "mm";
    options.write.progress = [&](double) { EXPECT_EQ(AddNode(session, 7), 0u); };
    LossReport losses;
    EXPECT_EQ(ExportFile(session, folder.Path("out"), options, losses).Line(), "");
    EXPECT_EQ(session.State(), state);
    EXPECT_EQ(session.Units(), CQXUnitCtrl());
    EXPECT_FALSE(document.IsModified());
    EXPECT_EQ(document.Keeper()->Stamp(), stamp);
  }
}

TEST(Transfer, TwoRecordsWithOneKeyAreWrittenInNoFormat) {
  const ScratchFolder folder;
  CQXDBSession session(host::SetUpModel);
  auto& nodes = *session.GetPool<DPoolNode>(code::kNode);
  AddNode(session, 1);
  const ITR second = AddNode(session, 2);
  tagTNode shared = nodes.GetAtNU(second);
  shared.key = 1;
  ASSERT_EQ(nodes.SetAtNU(second, shared), 1);
  for (const Format& format : Formats()) {
    if (!format.write) continue;
    ExportOptions options;
    options.format = &format;
    LossReport losses;
    const std::string path = folder.Path("out");
    const std::string said = ExportFile(session, path, options, losses).Line();
    EXPECT_NE(said.find("two records share the key 1"), std::string::npos) << format.name << said;
    EXPECT_FALSE(std::filesystem::exists(path)) << format.name;
  }
}

}  // namespace
}  // namespace qx::exchange
