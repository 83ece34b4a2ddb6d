// One thread edits a model; others read, export, check, save and open snapshots of it; and several
// threads each edit a model of their own. Run under the thread sanitizer, which ends it at the
// first race.

#include <algorithm>
#include <atomic>
#include <filesystem>
#include <gtest/gtest.h>
#include <list>
#include <memory>
#include <thread>
#include <vector>

#include "qx_db/app/mesh_findings.h"
#include "qx_db/app/mesh_util.h"
#include "qx_db/bulk/record_file.h"
#include "qx_db/core/document.h"
#include "qx_db/core/model_diff.h"
#include "qx_db/core/read_snapshot.h"
#include "qx_db/core/renumber.h"
#include "qx_db/core/step_changes.h"
#include "qx_db/core/transaction.h"
#include "qx_db/gateway/document_exchange.h"
#include "qx_db/material/material_file.h"
#include "qx_db/material/material_library.h"
#include "qx_db/mesh/dense_mesh.h"
#include "qx_db/mesh/quality_values.h"
#include "qx_db/model/mesh_pools.h"
#include "qx_db/model/mesh_set_pool.h"
#include "qx_db/ui/selection_lists.h"

#include "exchange/loss_report.h"
#include "exchange/transfer.h"
#include "host/application.h"
#include "host/session.h"
#include "tests/scratch_folder.h"
#include "tests/ui/fake_window.h"

/// A race is told only while the sanitizer remembers the earlier access: as long as it can, since
/// readers work for seconds.
extern "C" const char* __tsan_default_options() { return "history_size=7 halt_on_error=1"; }

namespace qx {
namespace {

/// The owner's model: a strip of quadrilaterals, all in one mesh set, with a region of their nodes.
class Strip {
 public:
  CQXDocBase document{host::SetUpModel};
  CQXDBSession& session = *document.GetDBSession();
  DPoolNode& nodes = *session.GetPool<DPoolNode>(code::kNode);
  DPoolElem& elements = *session.GetPool<DPoolElem>(code::kElem);
  DPool<tagTRegion>& regions = *session.GetPool<DPool<tagTRegion>>(code::kRegion);
  static constexpr int kCells = 300;

  template <class Edit>
  int Step(const char16_t* name, Edit&& edit) {
    CTransaction step(&session);
    return step.Begin(name) && (edit(), step.Commit());
  }

  Strip() {
    Step(u"strip", [&] {
      tagTMset set;
      set.key = 7;
      set.name.Set(u"strip");
      tagTRegion region;
      region.key = 1;
      for (int i = 0; i <= kCells; ++i) {
        for (const int j : {0, 1}) {
          tagTNode node;
          node.key = 2 * i + j + 1;
          node.position = {double(i), double(j), 0};
          region.nodes.Add(nodes.InsertNU(node));
        }
        if (i == 0) continue;
        tagTElem element;
        element.key = i;
        element.type = 6;
        for (const int corner : {-1, 1, 2, 0}) element.nodes.Add(nodes.Find(2 * i + corner));
        set.elements.Add(elements.InsertNU(element));
      }
      regions.InsertNU(region);
      set.nodes = region.nodes;
      session.GetPool<DPoolMset>(code::kMset)->InsertNU(set);
    });
  }

  /// One of the edits that go through every path of the journal, relations and renumbering.
  void Edit(int round) {
    const Key key = 1 + round * 37 % (2 * kCells);
    switch (round % 6) {
      case 0:
        Step(u"remove", [&] { nodes.Remove(nodes.Find(key)); });
        break;
      case 1:
        session.Undo();
        break;
      case 2:
        Step(u"move", [&] {
          const ITR pos = nodes.Find(key);
          tagTNode node = nodes.GetAtNU(pos);
          node.position.z = round;
          nodes.SetAtNU(pos, node);
        });
        break;
      case 3: {
        const ITR pos = nodes.Find(key);
        const std::vector<ITR> items{pos};
        ASSERT_TRUE(Renumber(session, nodes, ConsecutiveKeys(items, 100000 + round)));
        session.Undo();
        break;
      }
      case 4: {
        CTransaction given_up(&session);
        given_up.Begin(u"given up");
        elements.Remove(elements.GetHeadPosition());
        break;
      }
      default:
        Step(u"replace", [&] {
          const ITR pos = regions.Find(1);
          tagTRegion region = regions.GetAtNU(pos);
          std::reverse(region.nodes.begin(), region.nodes.end());
          regions.SetAtNU(pos, region);
        });
    }
  }
};

/// Every kind of question to the mesh utilities: by element, by side, about many at once.
void Ask(CQXDBSession& snapshot, const TArray<ITR>& elements) {
  const CQXMeshUtil util(&snapshot);
  TArray<ITR> found;
  EXPECT_GT(util.GetNodeListByElemItrArray(elements, found, 1), 0);
  EXPECT_GT(util.GetNodeListByMsetItrArray({snapshot.GetDataPool(code::kMset)->Find(7)}, found), 0);
  util.GetCommonNodeListByElemItrArray(elements, found, 1);
  TArray<tagTElemSide> edges;
  double numbers[6], sum = 0;
  for (const ITR element : elements) {
    sum += util.GetElemQuantity(element) + util.GetElemVolume(element) + util.GetFaceArea(element) +
           util.GetElemMatlDensity(element) + util.IsQuadratic(element);
    EXPECT_EQ(util.GetElemCenter(element, numbers), 1);
    for (std::int32_t side = 0; side < util.GetNodeCountByElem(element); ++side) {
      edges.Add({element, side});
      sum += util.GetEdgeLength(edges[edges.GetSize() - 1]);
      util.GetElemEdgeSideNormal({element, side}, numbers);
      EXPECT_EQ(util.GetElemEdgeSideOutward({element, side}, numbers), 1);
      EXPECT_EQ(util.GetEdgeNodeList({element, side}, found, 1), 2);
    }
    util.GetElemSideNormal({element, 0}, numbers);
  }
  EXPECT_GT(sum, 0);
  util.GetEdgeSequenceNodeListByElemSideArray(edges, found, 1);
  std::list<std::list<int>> groups;
  EXPECT_GT(util.GroupElemSide(CQXMeshUtil::kEdgeSide, edges, groups), 0);
  TArray<tagTElemSide> with, against;
  util.ConvertStartEndElem(CQXMeshUtil::kEdgeSide, edges, with, against, nullptr);
  util.GetMassCenter(elements, numbers);
  util.GetMSetMass(elements);
  for (const MeasureInfo& info : Measures()) {
    EXPECT_EQ(ValuesOf(snapshot, info, 1).size(), elements.size());
  }
}

/// What readers do to a snapshot; everything must agree with what the owner saw when he took it.
void Read(CQXDBSession& snapshot, std::uint64_t hash, const std::string& path) {
  EXPECT_EQ(snapshot.StateHash(), hash);
  EXPECT_EQ(snapshot.Validate(), "");
  // Exports: every format of meshes and decks, the gateway's text, and a record file.
  for (const exchange::Format& format : exchange::Formats()) {
    if (!format.write) continue;
    exchange::LossReport losses;
    const std::string file = path + std::string(format.extensions[0]);
    const Outcome written = exchange::ExportFile(snapshot, file, {}, losses);
    EXPECT_TRUE(written) << (written ? "" : written.Line());
  }
  dbgateway::DataBase out;
  EXPECT_TRUE(WriteDocument(snapshot, out));
  CQXBulkHandler record_file(path + ".records");
  EXPECT_TRUE(record_file.Write(*snapshot.GetDataPool(code::kElem), snapshot.Units().Model()));
  // Checks and selections.
  const DenseMesh mesh(snapshot);
  FindFaults(mesh, 1e-9);
  TArray<ITR> elements;
  snapshot.GetDataPool(code::kElem)->GetItrList(elements, 0);
  Ask(snapshot, elements);
  // Saving, opening, comparing.
  EXPECT_TRUE(SaveModel(snapshot, path));
  CQXDBSession again(host::SetUpModel);
  const Outcome loaded = LoadModel(again, path);
  EXPECT_TRUE(loaded) << (loaded ? "" : loaded.Line());
  EXPECT_EQ(again.StateHash(), hash);
  EXPECT_TRUE(DiffModels(snapshot, again).empty());
  dbgateway::DataBase in;
  EXPECT_TRUE(WriteDocument(again, in));
  EXPECT_TRUE(ReadDocument(again, in));
}

// Readers share no lock, and live as long as the owner edits: nothing but what they share of the
// library could put their accesses in an order.
TEST(Threads, ReadersOfSnapshotsBesideAnEditingOwner) {
  const ScratchFolder folder;
  Strip strip;
  ASSERT_TRUE(strip.document.SaveAs(folder.Path("owner.qxm")));
  DurabilityOptions options;
  options.durability = Durability::kInterval;
  options.interval = std::chrono::milliseconds(5);
  ASSERT_TRUE(strip.document.KeepSteps(options));
  int round = 0;
  for (int phase = 0; phase < 4; ++phase) {
    std::atomic<int> reading = 0;
    std::vector<std::thread> readers;
    for (int i = 0; i < 3; ++i) {
      strip.Edit(round++);
      const std::shared_ptr<CQXDBSession> snapshot = TakeSnapshot(strip.session);
      readers.emplace_back([&, i, snapshot, hash = strip.session.StateHash()] {
        reading.fetch_add(1, std::memory_order_relaxed);
        while (reading.load(std::memory_order_relaxed) < 3) std::this_thread::yield();
        Read(*snapshot, hash, folder.Path("reader" + std::to_string(i) + ".qxm"));
        reading.fetch_add(1, std::memory_order_relaxed);
      });
    }
    do {
      const std::int64_t before = strip.session.State();
      strip.Edit(round++);
      EXPECT_TRUE(ChangesSince(strip.session, before));
      EXPECT_EQ(strip.session.Validate(), "");
    } while (reading.load(std::memory_order_relaxed) < 6);
    for (std::thread& thread : readers) thread.join();
  }
}

TEST(Threads, OneSnapshotIsReadBySeveral) {
  Strip strip;
  const auto snapshot = TakeSnapshot(strip.session);
  const std::uint64_t hash = snapshot->StateHash();
  const ScratchFolder folder;
  std::thread readers[3];
  for (int i = 0; i < 3; ++i) {
    readers[i] = std::thread([&, i] {
      EXPECT_EQ(snapshot->StateHash(), hash);
      EXPECT_EQ(snapshot->Validate(), "");
      EXPECT_TRUE(SaveModel(*snapshot, folder.Path("copy" + std::to_string(i) + ".qxm")));
      dbgateway::DataBase out;
      EXPECT_TRUE(WriteDocument(*snapshot, out));
      const DenseMesh mesh(*snapshot);
      EXPECT_EQ(mesh.ElementCount(), std::uint32_t{Strip::kCells});
      EXPECT_EQ(TakeSnapshot(*snapshot)->StateHash(), hash);
    });
  }
  for (int round = 0; round < 20; ++round) strip.Edit(round);
  for (std::thread& thread : readers) thread.join();
}

/// A session's life in one thread: everything that a process could keep for all of them, at once.
void Own(const std::string& folder) {
  std::filesystem::create_directories(folder);
  Strip strip;
  ASSERT_TRUE(strip.document.SaveAs(folder + "/owner.qxm"));
  ASSERT_TRUE(strip.document.KeepSteps());
  auto& sets = *strip.session.GetPool<DPoolMset>(code::kMset);
  for (int round = 0; round < 24; ++round) {
    strip.Edit(round);
    strip.Step(u"set", [&] {
      tagTMset set;
      set.key = sets.GetNewKey();
      set.name.Set(u"more");
      set.color = sets.GetNewColor();
      set.elements.Add(strip.elements.GetHeadPosition());
      sets.InsertNU(set);
    });
    if (round % 8 == 7)
      strip.Step(u"fewer sets", [&] { sets.Remove(sets.Set().GetTailPosition()); });
    UnitSystem units = strip.session.Units().Current();
    units[UnitBase::kLength] = round % 2;
    strip.session.ChangeUnits(units);
    dbgateway::DataBase document;
    EXPECT_TRUE(WriteDocument(strip.session, document));
    const std::string text = document.ToText();
    EXPECT_TRUE(document.Parse(text));
    EXPECT_EQ(strip.session.Validate(), "");
  }
  const std::shared_ptr<CQXDBSession> snapshot = TakeSnapshot(strip.session);
  Read(*snapshot, strip.session.StateHash(), folder + "/read.qxm");
  // Every format back in, each into a session of its own.
  for (const exchange::Format& format : exchange::Formats()) {
    if (!format.read || !format.write) continue;
    CQXDBSession other(host::SetUpModel);
    exchange::LossReport losses;
    const Outcome read = exchange::ImportFile(
        other, folder + "/read.qxm" + std::string(format.extensions[0]), {}, losses);
    EXPECT_TRUE(read) << (read ? "" : read.Line());
    EXPECT_EQ(other.Validate(), "");
  }
  MaterialTable table;
  table.columns = {{"elastic modulus", unit::kStress, LibraryUnits()}};
  table.materials = {{u"Steel", u"S235", {210000}}};
  for (const MaterialFormInfo& form : MaterialForms()) {
    if (form.name == "gdb") continue;  // read only
    const std::string path = folder + "/materials" + std::string(form.extension);
    const MaterialForm kind = *FormNamed(form.name);
    const Outcome written = WriteMaterials(table, path, kind, CodePage(), LibraryUnits());
    EXPECT_TRUE(written) << (written ? "" : written.Line());
    EXPECT_TRUE(ReadMaterials(path, kind, CodePage()));
  }
}

// Sessions share nothing, whoever drives them.
TEST(Threads, OwnersOfDifferentSessionsBesideEachOther) {
  const ScratchFolder folder;
  std::thread owners[3];
  for (int i = 0; i < 3; ++i) {
    owners[i] = std::thread([&, i] { Own(folder.Path("owner" + std::to_string(i))); });
  }
  for (std::thread& owner : owners) owner.join();
}

// An application whose lists come and go with its dialogs, while sessions of other threads make
// steps, load and end: what the lists are told of is theirs alone.
TEST(Threads, OwnersBesideListsOfTheUserInterface) {
  const host::Application application;
  const ScratchFolder folder;
  std::atomic<int> working = 3;
  std::thread owners[3];
  for (int i = 0; i < 3; ++i) {
    owners[i] = std::thread([&, i] {
      for (int round = 0; round < 8; ++round) {
        CQXDocBase document(host::SetUpModel);
        CQXDBSession& session = *document.GetDBSession();
        DPoolBase& sets = *session.GetDataPool(code::kBset);
        for (Key key = 1; key <= 10; ++key) {
          CTransaction step(&session);
          step.Begin(u"set");
          tagTBset set;
          set.key = key;
          EXPECT_NE(sets.InsertNU(&set), 0u);
          EXPECT_TRUE(key % 3 == 0 || step.Commit());  // else it is rolled back
        }
        EXPECT_EQ(session.Undo() + session.Redo(), 2);
        const std::string path = folder.Path("owner" + std::to_string(i) + ".qxm");
        EXPECT_TRUE(document.SaveAs(path));
        EXPECT_TRUE(document.Open(path));
      }
      working.fetch_sub(1, std::memory_order_relaxed);
    });
  }
  CQXDBSession shown(host::SetUpModel);
  DPoolBase& sets = *shown.GetDataPool(code::kBset);
  for (Key key = 1; working.load(std::memory_order_relaxed) > 0; ++key) {
    std::vector<std::unique_ptr<CCobxBset>> lists;
    for (int i = 0; i < 1 + key % 10; ++i) lists.push_back(std::make_unique<CCobxBset>());
    FakeWindow window(*lists[0]);
    lists[0]->SetDB(&shown);
    CTransaction step(&shown);
    step.Begin(u"set");
    tagTBset set;
    set.key = key;
    sets.InsertNU(&set);
    EXPECT_EQ(step.Commit(), 1);
    ASSERT_EQ(window.Texts().size(), static_cast<std::size_t>(sets.GetSize()));
    if (sets.GetSize() > 20) sets.RemoveAll();
  }
  for (std::thread& owner : owners) owner.join();
}

}  // namespace
}  // namespace qx
