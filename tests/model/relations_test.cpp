// What elements and orientations do when what they rely on changes, or comes from outside.

#include <gtest/gtest.h>
#include <map>
#include <set>

#include "qx_db/model/deletion.h"

#include "tests/model/mesh_model.h"
#include "tests/silent_app_db.h"

namespace qx {
namespace {

// ---- relations ----------------------------------------------------------------------------------

struct ModeApp final : SilentAppDB {
  int mode = 0;
  int asked = 0;
  int QueryMode(CQXDBSession*, int which) override {
    asked = which;
    return mode;
  }
};

struct SplitHost final : IQXDbInterface {
  int split = 0;
  int asked = 0;
  int NeedSplitMergedTendonNode(CQXDBSession*) override {
    ++asked;
    return split;
  }
  CQXDBSession* GetActiveSession() override { return nullptr; }
  CString GetMaterialFolder() override { return {}; }
  int IsReadOnly(CQXDBSession*) override { return 0; }
  void ShowProgress(CQXDBSession*, double) override {}
  int IsCancelled(CQXDBSession*) override { return 0; }
};

/// The interface is registered for the life of the process once it is made.
SplitHost& Host() {
  static auto* host = new SplitHost;
  return *host;
}

TEST(ElementRelations, DeadPropertiesTakeElementsWhenTheModeSaysSo) {
  for (const bool node_goes : {false, true}) {
    for (const int mode : {0, 1}) {
      for (const bool edited : {false, true}) {
        Host().split = 0;
        ModeApp app;
        app.mode = mode;
        MeshModel m;
        const ITR property = m.Property(1);
        m.Node(1, 0, 0, 0);
        m.Node(2, 1, 0, 0);
        const ITR spare = m.Node(3, 2, 0, 0);
        m.Element(1, 1, {1}, property);
        const ITR other = m.Element(2, 1, {2});
        const std::uint64_t before = m.session.StateHash();
        ASSERT_EQ(m.Step([&] {
          m.properties.Remove(property);
          if (node_goes) m.nodes.Remove(spare);
          if (edited) m.elements.SetAtNU(other, m.elements.GetAtNU(other));
        }),
                  1);
        EXPECT_EQ(app.asked, 99);
        const bool dies = node_goes || (mode && edited);
        const ITR element = m.elements.Find(1);
        EXPECT_EQ(element == 0, dies) << node_goes << mode << edited;
        if (element) {
          EXPECT_EQ(+m.elements.GetAtNU(element).property, 0u) << "no dead reference";
        }
        m.session.Undo();
        EXPECT_EQ(m.session.StateHash(), before);
        EXPECT_EQ(+m.elements.GetAtNU(m.elements.Find(1)).property, property);
      }
    }
  }
}

/// Two tendons of different properties through node 2, one of them through node 3 as well, with an
/// orientation by node 2, in sets.
struct Tendons : MeshModel {
  ITR a = Property(1);
  ITR b = Property(2);
  Tendons() {
    for (Key key = 1; key <= 5; ++key) Node(key, key, key % 2, 0);
    Element(5, 2, {2, 4});  // of no property
    Element(1, 2, {1, 2}, a);
    Element(2, 2, {2, 3}, b);
    Element(3, 2, {3, 4}, b);
    Element(4, 3, {2, 5, 1}, b);
    tagTEcrd record;
    record.key = 3;
    record.method = tagTEcrd::kByNode;
    record.reference_node = nodes.Find(2);
    orientations.InsertNU(record);
    tagTMset set;
    set.key = 7;
    set.elements = {elements.Find(2)};
    set.nodes = {nodes.Find(2), nodes.Find(3)};
    Pool<tagTMset>(session).InsertNU(set);
  }
};

TEST(MergedNodes, AreSplitByPropertyInOneUndoableStep) {
  Tendons m;
  const std::uint64_t before = m.session.StateHash();
  ASSERT_EQ(m.elements.SplitMergedTendonNode(), 1);
  const auto nodes_of = [&](Key key) {
    std::vector<Key> keys;
    for (const ITR node : m.elements.GetAtNU(m.elements.Find(key)).nodes) {
      keys.push_back(m.nodes.GetAtNU(node).key);
    }
    return keys;
  };
  EXPECT_EQ(nodes_of(5), (std::vector<Key>{2, 4})) << "is of neither and stays";
  EXPECT_EQ(nodes_of(1), (std::vector<Key>{1, 2}));
  EXPECT_EQ(nodes_of(2), (std::vector<Key>{6, 3}));
  EXPECT_EQ(nodes_of(3), (std::vector<Key>{3, 4}));
  EXPECT_EQ(nodes_of(4), (std::vector<Key>{6, 5, 7})) << "one copy for a property";
  EXPECT_EQ(m.nodes.Position(m.nodes.Find(6)), m.nodes.Position(m.nodes.Find(2)));
  EXPECT_EQ(+m.orientations.GetAtNU(m.orientations.Find(3)).reference_node, m.nodes.Find(2));
  const tagTMset& set = Pool<tagTMset>(m.session).GetAtNU(m.Find<tagTMset>(7));
  EXPECT_EQ(set.nodes, (TArray<ITR>{m.nodes.Find(2), m.nodes.Find(3), m.nodes.Find(6)}));
  const std::uint64_t split = m.session.StateHash();
  EXPECT_EQ(m.elements.SplitMergedTendonNode(), 1);
  EXPECT_EQ(m.session.StateHash(), split) << "nothing is left to split";
  ASSERT_EQ(m.session.Undo(), 1);
  EXPECT_EQ(m.session.StateHash(), before);
}

TEST(MergedNodes, AreSplitAtTheEndOfAStepWhenTheHostSaysSo) {
  for (const int mode : {0, 1}) {
    for (const Edition edition : {Edition::kGeneral, Edition::kC}) {
      for (const int split : {0, 1}) {
        const InEdition in(edition);
        ModeApp app;
        app.mode = mode;
        Host().split = split;
        Tendons m;
        const ITR first = m.elements.Find(1);
        ASSERT_EQ(m.Step([&] { m.elements.SetAtNU(first, m.elements.GetAtNU(first)); }), 1);
        const bool happens = split && (mode || edition == Edition::kC);
        EXPECT_EQ(m.nodes.GetSize(), happens ? 7 : 5) << mode << split;
      }
    }
  }
}

TEST(MergedNodes, AreAskedForOnceAndByTheEditAlone) {
  for (const Edition edition : {Edition::kGeneral, Edition::kC}) {
    const InEdition in(edition);
    ModeApp app;
    app.mode = edition != Edition::kC;
    Host().split = Host().asked = 0;
    MeshModel m;
    m.Node(1, 0, 0, 0);
    const ITR spare = m.Node(2, 1, 0, 0);
    const ITR property = m.Property(1);
    const ITR element = m.Element(1, 1, {1}, property);
    tagTMset set;
    set.key = 7;
    set.elements = {element};
    set.nodes = {spare};
    Pool<tagTMset>(m.session).InsertNU(set);
    ASSERT_EQ(m.Step([&] { m.properties.Remove(property); }), 1);
    EXPECT_EQ(+m.elements.GetAtNU(element).property, 0u) << "it lost its property";
    EXPECT_EQ(Host().asked, 0) << "a repair, and no edit of elements";
    ASSERT_EQ(m.Step([&] { m.elements.SetAtNU(element, m.elements.GetAtNU(element)); }), 1);
    EXPECT_EQ(Host().asked, 1);
    ASSERT_EQ(m.Step([&] { m.nodes.Remove(spare); }), 1);
    EXPECT_EQ(Host().asked, 2);
    m.session.Undo();
    EXPECT_EQ(Host().asked, 2) << "nothing is repaired by an undo";
    const std::vector<ITR> asked = {spare};
    EXPECT_EQ(PreviewDeletion(m.session, code::kNode, asked).consequences.size(), 2u);
    EXPECT_EQ(Host().asked, 3) << "its answer decides";
  }
}

// ---- orientation records ------------------------------------------------------------------------

TEST(Orientation, IsResetWhenItsNodeGoes) {
  for (const Edition edition : {Edition::kGeneral, Edition::kA, Edition::kB, Edition::kC}) {
    const InEdition in(edition);
    Host().split = 0;
    MeshModel m;
    for (Key key = 1; key <= 3; ++key) m.Node(key, key, key * key, 0);
    const ITR node = m.nodes.Find(3);
    for (Key key = 1; key <= 2; ++key) {
      m.Element(key, 2, {1, 2});
      tagTEcrd record;
      record.key = key;
      record.element_type = 2;
      record.method = key == 1 ? tagTEcrd::kByNode : tagTEcrd::kByVector;
      record.reference_vector = {5, 6, 7};
      record.reference_node = node;
      m.orientations.InsertNU(record);
    }
    const std::uint64_t before = m.session.StateHash();
    ASSERT_EQ(m.Step([&] { m.nodes.Remove(node); }), 1);
    EXPECT_EQ(m.elements.GetSize(), 2) << "the elements live on";
    const tagTEcrd& reset = m.orientations.GetAtNU(m.orientations.Find(1));
    const bool by_angle = edition == Edition::kA || edition == Edition::kC;
    EXPECT_EQ(reset.method, by_angle ? tagTEcrd::kByBetaAngle : tagTEcrd::kByVector);
    EXPECT_EQ(+reset.beta_angle_deg, by_angle ? 90.0 : 0.0);
    EXPECT_EQ(Vector3(reset.reference_vector), Vector3(0, 0, 1));
    EXPECT_EQ(+reset.reference_node, 0u);
    EXPECT_EQ(reset.element_type, 2);
    const tagTEcrd& kept = m.orientations.GetAtNU(m.orientations.Find(2));
    EXPECT_EQ(kept.method, tagTEcrd::kByVector);
    EXPECT_EQ(Vector3(kept.reference_vector), Vector3(5, 6, 7));
    EXPECT_EQ(+kept.reference_node, 0u) << "no dead reference is kept";
    m.session.Undo();
    EXPECT_EQ(m.session.StateHash(), before);
  }
}

TEST(Orientation, GuardsItsReferenceNode) {
  MeshModel m;
  for (Key key = 1; key <= 4; ++key) m.Node(key, key, key * key, 0);
  const ITR element = m.Element(1, 2, {1, 2});
  tagTEcrd record;
  record.key = 1;
  record.method = tagTEcrd::kByNode;
  record.reference_node = m.nodes.Find(3);
  m.orientations.InsertNU(record);
  record.key = 9;  // without an element
  record.reference_node = m.nodes.Find(4);
  m.orientations.InsertNU(record);
  std::set<ITR> none;
  std::set<ITR> reference = {m.nodes.Find(3)};
  std::set<ITR> others = {m.nodes.Find(1), m.nodes.Find(2), m.nodes.Find(4)};
  std::set<ITR> with_element = {element};
  const Listening sink;
  EXPECT_EQ(m.orientations.CheckRelation(reference), 0);
  EXPECT_EQ(m.orientations.CheckRelation(none, reference), 0);
  EXPECT_EQ(sink.heard, (std::vector<std::string>{"IDS_QXMESH_REFERENCE_NODE_ERROR 3",
                                                  "IDS_QXMESH_REFERENCE_NODE_ERROR 3"}));
  EXPECT_EQ(m.orientations.CheckRelation(others), 1);
  EXPECT_EQ(m.orientations.CheckRelation(with_element, reference), 1) << "the element goes too";
  EXPECT_EQ(m.orientations.CheckRelation(none), 1);
  EXPECT_EQ(sink.heard.size(), 2u);
}

TEST(Orientation, ForgetsASystemThatGoes) {
  MeshModel m;
  m.Node(1, 0, 0, 0);
  m.Node(2, 1, 0, 0);
  const ITR element = m.Element(1, 2, {1, 2});
  tagTEcrd record;
  record.key = 1;
  record.method = tagTEcrd::kByCoordinateSystem;
  record.coordinate_system = m.Keyed<tagTCord>(8);
  m.orientations.InsertNU(record);
  ASSERT_EQ(m.Step([&] { m.systems.Remove(m.systems.Find(8)); }), 1);
  m.session.ForgetHistory();  // frees the system
  double axes[3][3];
  EXPECT_EQ(m.elements.GetElemLocalVector(element, axes), 1) << "by the default orientation";
  EXPECT_EQ(m.orientations.GetAtNU(m.orientations.Find(1)).method, tagTEcrd::kByVector);
}

TEST(Orientation, IsBroughtIntoLineWhenAModelBecomesActive) {
  MeshModel m;
  m.Node(1, 0, 0, 0);
  m.Node(2, 1, 1, 0);
  for (std::int32_t type = 1; type <= 90; ++type) m.Element(type, type, {1, 2});
  m.Keyed<tagTEcrd>(1000);  // of no element
  m.Keyed<tagTEcrd>(46);    // of another element type
  std::map<Key, std::vector<double>> before;
  const auto axes_of_all = [&] {
    std::map<Key, std::vector<double>> all;
    for (ITR pos = m.elements.GetHeadPosition(); pos; m.elements.Next(pos)) {
      double axes[3][3];
      m.elements.GetElemLocalVector(pos, axes);
      all[m.elements.GetAtNU(pos).key].assign(&axes[0][0], &axes[0][0] + 9);
    }
    return all;
  };
  before = axes_of_all();
  m.Step([&] { m.elements.OnAfterActive(0, nullptr); });
  TArray<Key> keys;
  m.orientations.GetKeyList(keys, 1);
  EXPECT_EQ(keys, (TArray<Key>{2, 3, 46, 54, 79, 80, 81}));
  for (ITR pos = m.orientations.GetHeadPosition(); pos; m.orientations.Next(pos)) {
    EXPECT_EQ(m.orientations.GetAtNU(pos).element_type, m.orientations.GetAtNU(pos).key);
  }
  EXPECT_EQ(axes_of_all(), before) << "no element turned";
  const std::uint64_t in_line = m.session.StateHash();
  m.elements.OnAfterActive(0, nullptr);
  EXPECT_EQ(m.session.StateHash(), in_line);
}

TEST(Orientation, IsBroughtIntoLineInAStepOfTheDocument) {
  CQXDocBase document(AddStandardPools);
  document.New();
  EXPECT_EQ(document.Activate(), 1);
  EXPECT_FALSE(document.IsModified() || document.GetDBSession()->CanUndo()) << "nothing to do";
  tagTElem line;
  line.key = 4;
  line.type = 2;
  Pool<tagTElem>(*document.GetDBSession()).InsertNU(line);
  const std::uint64_t before = document.GetDBSession()->StateHash();
  EXPECT_EQ(document.Activate(), 1);
  EXPECT_EQ(document.Activate(), 1);
  EXPECT_NE(Pool<tagTEcrd>(*document.GetDBSession()).Find(4), 0u);
  EXPECT_EQ(document.GetDBSession()->Undo(), 1);
  EXPECT_EQ(document.GetDBSession()->StateHash(), before) << "one step did it";
}

TEST(Orientation, IsGuardedAtTheGateway) {
  MeshModel m;
  for (Key key = 1; key <= 4; ++key) m.Node(key, key, 0, key == 4);
  m.Element(1, 2, {1, 2});
  m.Element(2, 2, {1, 4});
  tagTEcrd record;
  record.method = tagTEcrd::kByNode;
  record.reference_node = m.nodes.Find(4);
  record.key = 1;
  m.orientations.InsertNU(record);
  record.reference_node = m.nodes.Find(1);  // on the line of its element, however it came in
  record.key = 2;
  m.orientations.InsertNU(record);
  const struct {
    const char* text;
    bool remove;
    const char* refused;  // the message; null where the document is accepted
  } cases[] = {
      {R"({"ECRD": {"1": {"TYPE": 1, "REF": [1, 0, 0]}}})", false,
       "IDS_QX_MESH_1D_PARALLEL_ERROR 1"},
      {R"({"ECRD": {"1": {"REF_NODE": 3}}})", false, "IDS_QX_MESH_1D_ON_LINE 1"},
      {R"({"NODE": {"9": {"POS": [9, 0, 0]}}, "ECRD": {"1": {"REF_NODE": 9}}})", false,
       "IDS_QX_MESH_1D_ON_LINE 1"},
      {R"({"ECRD": {"1": {"TYPE": 1, "REF": [0, 1, 0]}}})", false, nullptr},
      {R"({"ECRD": {"2": {"REF_NODE": 1}}})", false, nullptr},                // nothing new
      {R"({"ECRD": {"7": {"TYPE": 1, "REF": [1, 0, 0]}}})", false, nullptr},  // of no element
      {R"({"__CMD_DEL_NODE": [4]})", true, "IDS_QXMESH_REFERENCE_NODE_ERROR 4"},
      {R"({"__CMD_DEL_NODE": [3, 77]})", true, nullptr},
      {R"({"__CMD_DEL_ELEM": [1], "__CMD_DEL_NODE": [4]})", true, nullptr},
      {R"({"__CMD_DEL_NODE": [4, 2]})", true, nullptr},  // element 1 dies with node 2
  };
  const std::uint64_t before = m.session.StateHash();
  for (const auto& c : cases) {
    const Listening sink;
    dbgateway::DataBase document;
    ASSERT_TRUE(document.Parse(c.text));
    const bool done =
        bool{c.remove ? ApplyDeletions(m.session, document) : ReadDocument(m.session, document)};
    EXPECT_EQ(done, c.refused == nullptr) << c.text;
    if (c.refused) {
      EXPECT_EQ(sink.heard, std::vector<std::string>{c.refused}) << c.text;
      EXPECT_FALSE(document.Report().empty()) << c.text;
    }
    if (done) m.session.Undo();
    EXPECT_EQ(m.session.StateHash(), before) << c.text;
  }
}

}  // namespace
}  // namespace qx
