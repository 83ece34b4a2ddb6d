#include <gtest/gtest.h>
#include <random>
#include <set>

#include "qx_db/model/mesh_set_pool.h"
#include "qx_db/platform/stdio_file.h"
#include "qx_db/qx_db.h"
#include "qx_db/record/element_types.h"

#include "tests/scratch_folder.h"

namespace qx {
namespace {

/// Keeps the keys of the messages that come.
class Messages final : public IMessageSink {
 public:
  Messages() { SetMessageSink(this); }
  ~Messages() { SetMessageSink(nullptr); }
  void Show(const Message& message) override { last = message; }
  Message last;
};

class MeshSets : public testing::Test {
 protected:
  ITR Node(Key key) {
    tagTNode node;
    node.key = key;
    node.position = {1.0 * key, 0.5 * (key % 7), 0.25 * (key % 3)};
    return nodes_.InsertNU(node);
  }
  ITR Element(Key key, std::int32_t type, std::initializer_list<Key> nodes) {
    tagTElem element;
    element.key = key;
    element.type = type;
    for (const Key node : nodes) element.nodes.Add(nodes_.Find(node));
    return elements_.InsertNU(element);
  }
  /// A set with these elements and their nodes.
  ITR Set(Key key, std::u16string_view name, std::initializer_list<Key> elements, Key parent = 0) {
    tagTMset set;
    set.key = key;
    set.name.Set(name);
    set.parent_key = parent;
    const ITR pos = sets_.InsertNU(set);
    TArray<ITR> listed;
    TArray<ITR> nodes;
    for (const Key element : elements) {
      listed.Add(elements_.Find(element));
      nodes.Append(elements_.GetAtNU(listed[listed.GetSize() - 1]).nodes);
    }
    EXPECT_TRUE(sets_.Private_Add_NodeElem(pos, nodes, listed));
    return pos;
  }
  /// Three quadrilaterals in a row, 1 2 3 on nodes 1 to 8, each in a set of its own: 2, 3 and 4.
  void Row() {
    for (Key key = 1; key <= 8; ++key) Node(key);
    for (Key key = 1; key <= 3; ++key) {
      Element(key, element::kQuad4, {key, key + 1, key + 5, key + 4});
    }
    for (Key key = 1; key <= 3; ++key) Set(key + 1, u"part-" + Utf16(std::to_string(key)), {key});
  }
  ITR At(Key key) const { return sets_.Find(key); }
  Key Parent(Key key) const { return sets_.GetAtNU(At(key)).parent_key; }
  static std::vector<Key> Keys(const TArray<ITR>& items) {
    std::vector<Key> keys;
    for (const ITR item : items) keys.push_back(KeyOf(item));
    return keys;
  }
  static std::vector<Key> Keys(DPoolBase& pool) {
    TArray<Key> keys;
    pool.GetKeyList(keys, 0);
    return {keys.begin(), keys.end()};
  }
  /// After a step: undo gives `before` back, redo what is now.
  void ExpectUndoable(std::uint64_t before) {
    EXPECT_EQ(session_.Validate(), "");
    const std::uint64_t after = session_.StateHash();
    ASSERT_EQ(session_.Undo(), 1);
    EXPECT_EQ(session_.StateHash(), before);
    ASSERT_EQ(session_.Redo(), 1);
    EXPECT_EQ(session_.StateHash(), after);
    EXPECT_EQ(session_.Validate(), "");
  }

  Messages messages_;
  CQXDBSession session_{AddStandardPools};
  DPoolNode& nodes_ = *session_.GetPool<DPoolNode>(code::kNode);
  DPoolElem& elements_ = *session_.GetPool<DPoolElem>(code::kElem);
  DPoolMset& sets_ = *session_.GetPool<DPoolMset>(code::kMset);
};

// ---- names and colours --------------------------------------------------------------------------

TEST_F(MeshSets, SplitNamesAtTheLastHyphenBeforeADigit) {
  struct Case {
    const char16_t* name;
    const char16_t* base;
    int number;
  };
  const Case cases[] = {{u"Mesh-12", u"Mesh", 12},
                        {u"-5", u"-5", 0},
                        {u"Mesh-", u"Mesh-", 0},
                        {u"A-1-2", u"A-1", 2},
                        {u"A-1-x", u"A", 1},
                        {u"A-7b", u"A", 7},
                        {u"--5", u"-", 5},
                        {u"", u"", 0},
                        {u"-", u"-", 0},
                        {u"A-x", u"A-x", 0},
                        {u"A-4294967298", u"A", 2},
                        {u"A-99999999999999999999", u"A", -1}};
  for (const Case& c : cases) {
    TString<64> name(c.name);
    int number = -77;
    DPoolMset::GetStrAndNumber(name, number);
    EXPECT_EQ(Utf8(name.View()), Utf8(c.base));
    EXPECT_EQ(number, c.number) << Utf8(c.name);
  }
}

TEST_F(MeshSets, CopyNamesCountOnFromTheHighestNumberInUse) {
  const auto copy_of = [&](const char16_t* name) { return sets_.GetNewCopyName(name).ToUtf8(); };
  EXPECT_EQ(copy_of(u"Mesh-4"), "Mesh");
  Set(2, u"Mesh", {});
  EXPECT_EQ(copy_of(u"Mesh"), "Mesh-1");
  Set(3, u"Mesh-12", {});
  Set(4, u"Mesh-3", {});
  EXPECT_EQ(copy_of(u"Mesh-3"), "Mesh-13");
  EXPECT_EQ(copy_of(u"mesh"), "mesh") << "case counts";
  {
    CTransaction lost(&session_);
    lost.Begin(u"lost");
    Set(5, u"Mesh-40", {});
    EXPECT_EQ(copy_of(u"Mesh"), "Mesh-41");
  }
  EXPECT_EQ(copy_of(u"Mesh"), "Mesh-13") << "a rolled back set does not count";
  ITR renamed = 0;
  EXPECT_TRUE(sets_.TR_Add(u"Mesh-50", 0, renamed));
  session_.Undo();
  EXPECT_EQ(copy_of(u"Mesh"), "Mesh-13") << "nor one that was undone";
  const std::u16string longest(63, u'x');
  Set(6, longest, {});
  EXPECT_EQ(sets_.GetNewCopyName(longest.c_str()).GetLength(), 65);
  EXPECT_EQ(sets_.FreeName(longest), std::u16string(61, u'x') + u"-1");
  EXPECT_EQ(sets_.FreeName(u"Mesh"), u"Mesh-13");
  for (Key key = 7; key < 30; ++key) Set(key, sets_.FreeName(longest), {});
  EXPECT_EQ(sets_.FreeName(longest), std::u16string(60, u'x') + u"-24");
}

TEST_F(MeshSets, ColoursRepeatAfterThirtySix) {
  std::vector<std::int32_t> colors(73);
  for (std::int32_t& color : colors) color = DPoolMset::GetNewColor();
  EXPECT_EQ(std::set<std::int32_t>(colors.begin(), colors.end()).size(), 36u);
  for (std::size_t i = 0; i + 36 < colors.size(); ++i) EXPECT_EQ(colors[i], colors[i + 36]);
  // The table's own order, wherever the counter stood.
  const auto first = std::find(colors.begin(), colors.end(), 0xF2A6CA);
  EXPECT_EQ(first[1], 0xE8A200);
  EXPECT_EQ(first[35], 0xFFA0D4);
  // A new set does not look like one that is there, wherever the counter stands.
  ITR sets[2] = {};
  ASSERT_TRUE(sets_.TR_Add(u"one", 0, sets[0]));
  for (int i = 0; i < 35; ++i) DPoolMset::GetNewColor();
  ASSERT_TRUE(sets_.TR_Add(u"two", 0, sets[1]));
  EXPECT_NE(+sets_.GetAtNU(sets[0]).color, +sets_.GetAtNU(sets[1]).color);
}

TEST_F(MeshSets, NamesAreRefusedWithAReason) {
  Row();
  struct Case {
    std::u16string name;
    const char* key;  // of the message; null when the name is taken
  };
  const Case cases[] = {{u"", "IDS_QX_DB_MSET_NAME_EMPTY"},
                        {std::u16string(63, u'n'), nullptr},
                        {std::u16string(64, u'n'), "IDS_QX_DB_MSET_NAME_LONG"},
                        {std::u16string(1000, u'n'), "IDS_QX_DB_MSET_NAME_LONG"},
                        {u"part-1", "IDS_QX_DB_MSET_NAME_TAKEN"},
                        {u"Part-1", nullptr}};
  for (const Case& c : cases) {
    for (const bool rename : {false, true}) {
      const std::uint64_t before = session_.StateHash();
      messages_.last = {};
      ITR added = 0;
      const int done =
          rename ? sets_.TR_Rename(At(3), c.name.c_str()) : sets_.TR_Add(c.name.c_str(), 0, added);
      EXPECT_EQ(done, c.key == nullptr) << Utf8(c.name);
      EXPECT_EQ(messages_.last.key, c.key ? c.key : "");
      if (done) session_.Undo();
      EXPECT_EQ(session_.StateHash(), before);
    }
  }
  ITR added = 0;
  EXPECT_EQ(sets_.TR_Add(u"orphan", 99, added), 0);
  EXPECT_EQ(messages_.last.arguments, std::vector<std::string>{"99"});
  EXPECT_EQ(sets_.TR_Rename(At(2), u"part-1"), 1) << "its own name is free to itself";
}

// ---- deleting -----------------------------------------------------------------------------------

TEST_F(MeshSets, DeletionKeepsWhatOthersHold) {
  Row();
  const std::uint64_t before = session_.StateHash();
  EXPECT_EQ(sets_.TR_Del(TArray<ITR>{}), 1);
  EXPECT_FALSE(session_.CanUndo()) << "nothing to delete is no step";
  ASSERT_EQ(sets_.TR_Del(std::list<ITR>{At(2), At(3)}), 1);
  EXPECT_EQ(Keys(elements_), (std::vector<Key>{3}));
  EXPECT_EQ(Keys(nodes_), (std::vector<Key>{3, 4, 7, 8}));
  EXPECT_EQ(Keys(sets_), (std::vector<Key>{4}));
  ExpectUndoable(before);
}

/// Deletion against sets of keys.
TEST_F(MeshSets, RandomDeletionsAgreeWithSetsOfKeys) {
  for (unsigned seed = 1; seed <= 40; ++seed) {
    SCOPED_TRACE(seed);
    std::mt19937 random(seed);
    const auto below = [&](int n) { return static_cast<int>(random() % static_cast<unsigned>(n)); };
    session_.ForgetHistory();
    sets_.RemoveAll(), elements_.RemoveAll(), nodes_.RemoveAll();
    const int node_count = 3 + below(40);
    for (Key key = 1; key <= node_count; ++key) Node(key);
    for (Key key = 1; key <= 30; ++key) {
      Element(key, element::kTri3,
              {1 + below(node_count), 1 + below(node_count), 1 + below(node_count)});
    }
    const int set_count = 2 + below(6);
    for (Key key = 2; key < 2 + set_count; ++key) {
      tagTMset set;
      set.key = key;
      set.parent_key = below(key);
      for (int i = below(25); i > 0; --i) set.nodes.Add(nodes_.Find(1 + below(node_count)));
      for (int i = below(25); i > 0; --i) set.elements.Add(elements_.Find(1 + below(30)));
      sets_.InsertNU(set);
    }
    TArray<ITR> chosen;
    std::set<Key> lost_nodes, lost_elements, kept_nodes, kept_elements;
    for (ITR pos = sets_.GetHeadPosition(); pos; sets_.Next(pos)) {
      const tagTMset& set = sets_.GetAtNU(pos);
      const bool goes = below(2) == 0;
      if (goes) chosen.Add(pos);
      for (const Key key : Keys(set.nodes)) (goes ? lost_nodes : kept_nodes).insert(key);
      for (const Key key : Keys(set.elements)) (goes ? lost_elements : kept_elements).insert(key);
    }
    std::erase_if(lost_nodes, [&](Key key) { return kept_nodes.contains(key); });
    std::erase_if(lost_elements, [&](Key key) { return kept_elements.contains(key); });
    for (ITR pos = elements_.GetHeadPosition(); pos; elements_.Next(pos)) {
      for (const Key node : Keys(elements_.GetAtNU(pos).nodes)) {
        if (lost_nodes.contains(node)) lost_elements.insert(KeyOf(pos));
      }
    }
    std::set<Key> nodes, elements;
    for (const Key key : Keys(nodes_)) nodes.insert(key);
    for (const Key key : Keys(elements_)) elements.insert(key);
    for (const Key key : lost_nodes) nodes.erase(key);
    for (const Key key : lost_elements) elements.erase(key);

    const std::uint64_t before = session_.StateHash();
    ASSERT_EQ(sets_.TR_Del(chosen), 1);
    const std::vector<Key> left_nodes = Keys(nodes_), left_elements = Keys(elements_);
    EXPECT_EQ(std::set<Key>(left_nodes.begin(), left_nodes.end()), nodes);
    EXPECT_EQ(std::set<Key>(left_elements.begin(), left_elements.end()), elements);
    for (ITR pos = sets_.GetHeadPosition(); pos; sets_.Next(pos)) {
      for (const Key key : Keys(sets_.GetAtNU(pos).elements)) EXPECT_TRUE(elements.contains(key));
      EXPECT_TRUE(sets_.GetAtNU(pos).parent_key < 2 || At(sets_.GetAtNU(pos).parent_key));
    }
    if (!chosen.IsEmpty()) ExpectUndoable(before);
  }
}

TEST_F(MeshSets, AReferenceNodeOfWhatStaysIsKept) {
  Row();
  Node(20), Node(21), Node(22);
  Element(10, element::kLine2, {21, 22});
  tagTEcrd orientation;
  orientation.key = 10;
  orientation.element_type = element::kLine2;
  orientation.method = tagTEcrd::kByNode;
  orientation.reference_node = nodes_.Find(1);  // only set 2 holds it
  DPoolBase& orientations = *session_.GetDataPool(code::kEcrd);
  orientations.RemoveAll();
  ASSERT_TRUE(orientations.InsertNU(&orientation));
  const std::uint64_t before = session_.StateHash();
  EXPECT_EQ(sets_.TR_Del(TArray<ITR>{At(2)}), 0);
  EXPECT_EQ(messages_.last.key, "IDS_QXMESH_REFERENCE_NODE_ERROR");
  EXPECT_EQ(session_.StateHash(), before);
  EXPECT_FALSE(session_.CanUndo());
  Set(9, u"beams", {10});
  EXPECT_EQ(sets_.TR_Del(TArray<ITR>{At(2), At(9)}), 1) << "the line element goes as well";
  EXPECT_EQ(elements_.Find(10), 0u);
}

TEST_F(MeshSets, DeletingAllEmptiesTheDefaultSet) {
  EXPECT_EQ(sets_.TR_Del_All(), 1);
  ASSERT_EQ(sets_.AddDefault(), 1);
  EXPECT_EQ(sets_.AddDefault(), 0);
  Row();
  Node(30);
  ASSERT_TRUE(sets_.Private_Add_NodeElem(At(1), {nodes_.Find(1)}, {elements_.Find(1)}));
  const std::uint64_t before = session_.StateHash();
  ASSERT_EQ(sets_.TR_Del_All(), 1);
  EXPECT_EQ(Keys(sets_), (std::vector<Key>{1}));
  EXPECT_EQ(Keys(nodes_), (std::vector<Key>{30})) << "it was in no set";
  EXPECT_EQ(elements_.GetSize(), 0);
  EXPECT_TRUE(sets_.GetAtNU(At(1)).nodes.IsEmpty());
  ExpectUndoable(before);
}

TEST_F(MeshSets, EmptySetsGoFromTheBottomUp) {
  EXPECT_EQ(sets_.TR_Del_EmptyMset(), 1);
  sets_.AddDefault();
  Row();
  Set(10, u"empty", {});
  Set(11, u"empty below", {}, 2);
  Set(12, u"full below empty", {1}, 10);
  Set(13, u"empty below empty", {}, 10);
  const std::uint64_t before = session_.StateHash();
  ASSERT_EQ(sets_.TR_Del_EmptyMset(), 1);
  EXPECT_EQ(Keys(sets_), (std::vector<Key>{1, 2, 3, 4, 12}));
  EXPECT_EQ(Parent(12), 0) << "the children of a set that goes move up";
  ExpectUndoable(before);
}

TEST_F(MeshSets, DeepAndRingedHierarchiesAreWalkedWithoutRecursion) {
  constexpr Key kDeep = 200000;
  for (Key key = 2; key <= kDeep; ++key) {
    tagTMset set;
    set.key = key;
    set.parent_key = key == 2 ? kDeep : key - 1;  // a ring, as a damaged file may bring it
    sets_.InsertNU(set);
  }
  EXPECT_EQ(sets_.TR_Del_EmptyMset(), 1);
  EXPECT_EQ(sets_.GetSize(), 0);
}

// ---- relations ----------------------------------------------------------------------------------

TEST_F(MeshSets, TheDeadLeave) {
  Row();
  tagTGeom geometry;
  geometry.key = 5;
  auto& geometries = *session_.GetDataPool(code::kGeom);
  tagTMset set = sets_.GetAtNU(At(2));
  set.geometry = geometries.InsertNU(&geometry);
  set.connected = 1;
  sets_.SetAtNU(At(2), set);
  ITR found = 0;
  EXPECT_TRUE(sets_.GetItrByGeomItr(set.geometry, found));
  EXPECT_EQ(found, At(2));

  const std::uint64_t before = session_.StateHash();
  CTransaction step(&session_);
  step.Begin(u"remove");
  nodes_.Remove(nodes_.Find(2));  // elements 1 and 2 go with it
  geometries.Remove(geometries.Find(5));
  ASSERT_TRUE(step.Commit());
  EXPECT_EQ(Keys(elements_), (std::vector<Key>{3}));
  EXPECT_EQ(Keys(sets_.GetAtNU(At(2)).nodes), (std::vector<Key>{1, 6, 5}));
  EXPECT_TRUE(sets_.GetAtNU(At(3)).elements.IsEmpty());
  EXPECT_EQ(Keys(sets_.GetAtNU(At(4)).elements), (std::vector<Key>{3}));
  EXPECT_EQ(+sets_.GetAtNU(At(2)).geometry, 0u);
  ExpectUndoable(before);
  ASSERT_TRUE(sets_.TR_Modify_NoGeom());
  EXPECT_EQ(sets_.GetAtNU(At(2)).connected, 0);
}

TEST_F(MeshSets, ChildrenFollowWhatBecomesOfTheirParents) {
  // 2 > 3 > 4 > 5, and 6 under 3.
  Set(2, u"a", {}), Set(3, u"b", {}, 2), Set(4, u"c", {}, 3), Set(5, u"d", {}, 4);
  Set(6, u"e", {}, 3);
  struct Case {
    const char* what;
    void (*edit)(DPoolMset&);
    std::map<Key, Key> parents;
  };
  const auto rekey = [](DPoolMset& sets, Key from, Key to) {
    tagTMset set = sets.GetAtNU(sets.Find(from));
    set.key = to;
    sets.SetAtNU(sets.Find(from), set);
  };
  static const auto kRekey = rekey;
  const Case cases[] = {
      {"one dies", [](DPoolMset& s) { s.Remove(s.Find(3)); }, {{2, 0}, {4, 2}, {5, 4}, {6, 2}}},
      {"two die, top first",
       [](DPoolMset& s) { s.Remove(s.Find(3)), s.Remove(s.Find(4)); },
       {{2, 0}, {5, 2}, {6, 2}}},
      {"two die, bottom first",
       [](DPoolMset& s) { s.Remove(s.Find(4)), s.Remove(s.Find(3)); },
       {{2, 0}, {5, 2}, {6, 2}}},
      {"the top dies", [](DPoolMset& s) { s.Remove(s.Find(2)); }, {{3, 0}, {4, 3}, {5, 4}, {6, 3}}},
      {"renumbered",
       [](DPoolMset& s) { kRekey(s, 3, 30); },
       {{2, 0}, {30, 2}, {4, 30}, {5, 4}, {6, 30}}},
      {"renumbered over each other",
       [](DPoolMset& s) { kRekey(s, 4, 40), kRekey(s, 3, 4), kRekey(s, 2, 3); },
       {{3, 0}, {4, 3}, {40, 4}, {5, 40}, {6, 4}}},
      {"renumbered, then dead",
       [](DPoolMset& s) { kRekey(s, 3, 30), s.Remove(s.Find(30)); },
       {{2, 0}, {4, 2}, {5, 4}, {6, 2}}},
      {"another takes the key of the dead",
       [](DPoolMset& s) {
         s.Remove(s.Find(3));
         tagTMset other;
         other.key = 3;
         s.InsertNU(other);
       },
       {{2, 0}, {3, 0}, {4, 2}, {5, 4}, {6, 2}}},
      {"given another parent in the same step",
       [](DPoolMset& s) {
         tagTMset child = s.GetAtNU(s.Find(6));
         child.parent_key = 2;
         s.SetAtNU(s.Find(6), child);
         s.Remove(s.Find(3));
       },
       {{2, 0}, {4, 2}, {5, 4}, {6, 2}}},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.what);
    const std::uint64_t before = session_.StateHash();
    CTransaction step(&session_);
    step.Begin(u"edit");
    c.edit(sets_);
    ASSERT_TRUE(step.Commit());
    std::map<Key, Key> parents;
    for (ITR pos = sets_.GetHeadPosition(); pos; sets_.Next(pos)) {
      parents[KeyOf(pos)] = sets_.GetAtNU(pos).parent_key;
    }
    EXPECT_EQ(parents, c.parents);
    ExpectUndoable(before);
    session_.Undo();
  }
}

TEST_F(MeshSets, RingsOfParentsAreRefused) {
  Set(2, u"a", {}), Set(3, u"b", {}, 2), Set(4, u"c", {}, 3);
  Set(7, u"loop", {}, 8), Set(8, u"loop", {}, 7);  // from a damaged file
  for (const auto& [set, parent] : std::map<Key, Key>{{2, 4}, {3, 3}, {3, 4}}) {
    const std::uint64_t before = session_.StateHash();
    EXPECT_EQ(sets_.TR_SetParent(At(set), parent), 0);
    EXPECT_EQ(messages_.last.key, "IDS_QX_DB_MSET_PARENT_RING");
    EXPECT_EQ(session_.StateHash(), before);
    EXPECT_EQ(session_.Validate(), "");
  }
  EXPECT_EQ(sets_.TR_SetParent(At(4), 7), 1) << "a ring that was there is not this step's doing";
  EXPECT_EQ(sets_.TR_SetParent(At(7), 0), 1) << "and can be opened";
  TArray<ITR> found;
  EXPECT_EQ(sets_.GetItrListByParentMsetK(7, found), 2);
  EXPECT_EQ(Keys(found), (std::vector<Key>{4, 8}));
  EXPECT_EQ(sets_.GetItrListByNoParentMsetK(0, found), 2);
  EXPECT_EQ(Keys(found), (std::vector<Key>{2, 7}));
}

// ---- what sets list -----------------------------------------------------------------------------

TEST_F(MeshSets, MergingUnitesAndKeepsTheHierarchyATree) {
  Row();
  struct Case {
    std::map<Key, Key> before;
    Key into;
    std::list<Key> others;
    std::map<Key, Key> after;
  };
  const Case cases[] = {
      {{{2, 0}, {3, 0}, {4, 3}}, 2, {3}, {{2, 0}, {4, 2}}},  // children come along
      {{{2, 0}, {3, 2}, {4, 3}}, 3, {2}, {{3, 0}, {4, 3}}},  // past the parent it takes in
      {{{2, 0}, {3, 2}, {4, 3}}, 4, {2}, {{3, 0}, {4, 3}}},  // what lies between stays above
      {{{2, 0}, {3, 2}, {4, 3}}, 4, {2, 3}, {{4, 0}}},
      {{{2, 0}, {3, 2}, {4, 3}}, 2, {4}, {{2, 0}, {3, 2}}},
  };
  for (const Case& c : cases) {
    for (const auto& [set, parent] : c.before) ASSERT_TRUE(sets_.TR_SetParent(At(set), parent));
    std::list<ITR> others;
    for (const Key key : c.others) others.push_back(At(key));
    const std::uint64_t before = session_.StateHash();
    ASSERT_EQ(sets_.Merge(At(c.into), others), 1);
    std::map<Key, Key> parents;
    for (ITR pos = sets_.GetHeadPosition(); pos; sets_.Next(pos)) {
      parents[KeyOf(pos)] = sets_.GetAtNU(pos).parent_key;
    }
    EXPECT_EQ(parents, c.after);
    ExpectUndoable(before);
    session_.Undo();
  }
  ASSERT_EQ(sets_.Merge(At(2), TArray<ITR>{At(3)}), 1);
  EXPECT_EQ(Keys(sets_.GetAtNU(At(2)).nodes), (std::vector<Key>{1, 2, 6, 5, 3, 7}))
      << "shared nodes once";
  EXPECT_EQ(Keys(sets_.GetAtNU(At(2)).elements), (std::vector<Key>{1, 2}));
}

TEST_F(MeshSets, RebuildingBringsListsInLine) {
  Row();
  Node(9);
  tagTMset set = sets_.GetAtNU(At(2));
  set.nodes = {nodes_.Find(1), 0, nodes_.Find(1)};
  set.elements.Add(set.elements[0]);
  sets_.SetAtNU(At(2), set);
  ASSERT_EQ(
      sets_.Private_Del_NodeElem(At(4), sets_.GetAtNU(At(4)).nodes, sets_.GetAtNU(At(4)).elements),
      1);
  const std::uint64_t before = session_.StateHash();
  ASSERT_EQ(sets_.RebuildMeshset(0), 1);
  EXPECT_EQ(Keys(sets_.GetAtNU(At(2)).nodes), (std::vector<Key>{1, 2, 6, 5}));
  EXPECT_EQ(Keys(sets_.GetAtNU(At(2)).elements), (std::vector<Key>{1}));
  EXPECT_EQ(sets_.DefaultItr(), 0u);
  ExpectUndoable(before);
  ASSERT_EQ(sets_.RebuildMeshset(1), 1);
  EXPECT_EQ(Keys(sets_.GetAtNU(At(1)).nodes), (std::vector<Key>{3, 4, 8, 7, 9}));
  EXPECT_EQ(Keys(sets_.GetAtNU(At(1)).elements), (std::vector<Key>{3}));
  const std::uint64_t rebuilt = session_.StateHash();
  ASSERT_EQ(sets_.RebuildMeshset(1), 1);
  EXPECT_EQ(session_.StateHash(), rebuilt) << "what is in line stays";
}

// ---- bad input ----------------------------------------------------------------------------------

TEST_F(MeshSets, IteratorsThatAreNoSetsChangeNothing) {
  Row();
  const ITR dead = Set(20, u"dead", {});
  sets_.TR_Del(TArray<ITR>{dead});
  const ITR good = At(2);
  const ITR node = nodes_.Find(1), element = elements_.Find(1);
  const std::uint64_t before = session_.StateHash();
  for (const ITR bad : {ITR{0}, dead, ITR{0x1234}, node}) {
    SCOPED_TRACE(bad);
    EXPECT_EQ(sets_.TR_Del(TArray<ITR>{good, bad}), 0);
    EXPECT_EQ(sets_.TR_Del(std::list<ITR>{bad}), 0);
    EXPECT_EQ(sets_.Private_Del(TArray<ITR>{good, bad}), 0);
    EXPECT_EQ(sets_.Merge(good, TArray<ITR>{bad}), 0);
    EXPECT_EQ(sets_.Merge(bad, TArray<ITR>{good}), 0);
    EXPECT_EQ(sets_.TR_Rename(bad, u"x"), 0);
    EXPECT_EQ(sets_.TR_SetParent(bad, 2), 0);
    EXPECT_EQ(sets_.Private_Add_NodeElem(bad, {node}, {element}), 0);
    EXPECT_EQ(sets_.Private_Del_NodeElem(bad, {node}, {element}), 0);
    EXPECT_EQ(sets_.Private_Del_EmptyMset(bad), 0);
  }
  EXPECT_EQ(sets_.TR_Del(TArray<ITR>{good, good}), 0) << "given twice";
  EXPECT_EQ(sets_.Merge(good, TArray<ITR>{good}), 0) << "into itself";
  EXPECT_EQ(sets_.Private_Add_NodeElem(good, {node, 0}, {}), 0);
  EXPECT_EQ(sets_.Remove(dead), 0);
  EXPECT_EQ(sets_.Remove(0), 0);
  EXPECT_EQ(session_.StateHash(), before);
  EXPECT_EQ(session_.Validate(), "");
}

// ---- another model ------------------------------------------------------------------------------

class ExternalSets : public MeshSets {
 protected:
  ExternalSets() {
    CQXDBSession other{AddStandardPools};
    UnitSystem millimetres;
    millimetres[UnitBase::kLength] = FindUnit(UnitBase::kLength, "mm");
    other.Units().SetModel(millimetres);
    auto& nodes = *other.GetPool<DPoolNode>(code::kNode);
    auto& elements = *other.GetPool<DPoolElem>(code::kElem);
    auto& sets = *other.GetPool<DPoolMset>(code::kMset);
    for (Key key = 1; key <= 4; ++key) {
      tagTNode node;
      node.key = key;
      node.position = {1000.0 * key, 0, 0};
      nodes.InsertNU(node);
    }
    for (Key key = 1; key <= 2; ++key) {
      tagTElem line;
      line.key = key;
      line.type = element::kLine2;
      line.nodes = {nodes.Find(key), nodes.Find(key + 1)};
      elements.InsertNU(line);
      tagTMset set;
      set.key = key + 4;
      set.name.Set(key == 1 ? u"frame" : u"part-1");
      set.color = 0x123456 + key;
      set.parent_key = key == 1 ? 0 : 5;
      set.nodes = line.nodes;
      set.elements = {elements.Find(key)};
      sets.InsertNU(set);
    }
    auto& orientations = *other.GetPool<DPoolEcrd>(code::kEcrd);
    tagTEcrd turned;
    if (const ITR there = orientations.Find(2)) orientations.Remove(there);
    turned.key = 2;
    turned.element_type = element::kLine2;
    turned.method = tagTEcrd::kByNode;
    turned.reference_node = nodes.Find(4);  // of no set
    orientations.InsertNU(turned);
    EXPECT_TRUE(SaveModel(other, file_));
  }

  const ScratchFolder folder_;
  const std::string file_ = folder_.Path("other.qxm");
  TArray<Key> keys_;
  CStringArray names_;
};

TEST_F(ExternalSets, ComeWithTheirMeshInModelUnits) {
  Row();
  ASSERT_EQ(sets_.LoadExtDB(Utf16(file_).c_str(), keys_, names_), 1);
  EXPECT_EQ(std::vector<Key>(keys_.begin(), keys_.end()), (std::vector<Key>{5, 6}));
  EXPECT_EQ(names_[1].ToUtf8(), "part-1");
  EXPECT_EQ(sets_.GetExtDBIdName(keys_, names_), 2);
  const std::uint64_t before = session_.StateHash();
  ASSERT_EQ(sets_.TR_Import({5}, 0, 1, 3), 1);
  EXPECT_EQ(Keys(sets_), (std::vector<Key>{2, 3, 4, 5, 6}));
  const tagTMset& frame = sets_.GetAtNU(At(5));
  const tagTMset& part = sets_.GetAtNU(At(6));
  EXPECT_EQ(frame.parent_key, 3);
  EXPECT_EQ(part.parent_key, 5) << "the hierarchy comes along";
  EXPECT_EQ(Utf8(part.name.View()), "part-4") << "part-3 was the highest in use";
  EXPECT_EQ(part.color, 0x123458);
  EXPECT_EQ(Keys(frame.elements), (std::vector<Key>{4}));
  EXPECT_EQ(Keys(part.elements), (std::vector<Key>{5}));
  EXPECT_EQ(frame.nodes[1], part.nodes[0]) << "what two sets share comes once";
  EXPECT_EQ(+nodes_.GetAtNU(frame.nodes[1]).position.x, 2.0) << "metres from millimetres";
  const auto& orientations = *session_.GetPool<DPoolEcrd>(code::kEcrd);
  ASSERT_NE(orientations.Find(5), 0u);
  EXPECT_EQ(orientations.GetAtNU(orientations.Find(5)).method, tagTEcrd::kByNode);
  const ITR reference = orientations.GetAtNU(orientations.Find(5)).reference_node;
  ASSERT_NE(reference, 0u);
  EXPECT_EQ(+nodes_.GetAtNU(reference).position.x, 4.0);
  ExpectUndoable(before);
}

TEST_F(ExternalSets, AreRefusedWhole) {
  Row();
  const std::uint64_t before = session_.StateHash();
  EXPECT_EQ(sets_.TR_Import({5}, 0, 0, 0), 0) << "no file is open";
  ASSERT_EQ(sets_.LoadExtDB(Utf16(file_).c_str(), keys_, names_), 1);
  EXPECT_EQ(sets_.TR_Import({5, 77}, 0, 0, 0), 0) << "no such set";
  EXPECT_EQ(sets_.TR_Import({5}, 0, 0, 77), 0) << "no such parent";
  EXPECT_EQ(sets_.TR_Import({5}, 1, 0, 0), 0) << "the keys are taken";
  EXPECT_EQ(messages_.last.key, "IDS_QX_DB_MSET_KEY_TAKEN");
  EXPECT_EQ(sets_.LoadExtDB(u"/no/such/file.qxm", keys_, names_), 0);
  EXPECT_NE(messages_.last.arguments.at(0).find("/no/such/file.qxm"), std::string::npos);
  EXPECT_EQ(session_.StateHash(), before);
  EXPECT_EQ(sets_.IsExtDB(), 1) << "the file that was open still is";
  sets_.RemoveAllExtDB();
  EXPECT_EQ(sets_.GetExtDBIdName(keys_, names_), 0);
}

// ---- mesh-generation settings -------------------------------------------------------------------

TEST_F(MeshSets, MeshingSettingsLiveWithTheirBodies) {
  auto& settings = *session_.GetPool<DPoolMGInfo>(code::kMGInfo);
  auto& bodies = *session_.GetDataPool(code::kGKey);
  tagTGKey body;
  for (body.key = 1; body.key <= 2; ++body.key) bodies.InsertNU(&body);
  tagMGInfo info;
  const std::vector<TArray<ITR>> lists{{}, {bodies.Find(1)}, {bodies.Find(1), bodies.Find(2)}};
  for (const TArray<ITR>& list : lists) {
    ++info.key;
    info.bodies = list;
    settings.InsertNU(info);
  }
  const std::uint64_t before = session_.StateHash();
  CTransaction step(&session_);
  step.Begin(u"remove");
  bodies.Remove(bodies.Find(1));
  const ITR only_there = settings.Find(2);
  ASSERT_TRUE(step.Commit());
  EXPECT_EQ(Keys(settings), (std::vector<Key>{1, 3}));
  ASSERT_EQ(settings.GetAt(settings.Find(3), info), 1);
  EXPECT_EQ(Keys(info.bodies), (std::vector<Key>{2}));
  EXPECT_EQ(settings.Exist(only_there), 0);
  EXPECT_EQ(settings.GetAt(only_there, info), 0);
  EXPECT_EQ(settings.SetAtNU(only_there, info), 0);
  ExpectUndoable(before);
}

}  // namespace
}  // namespace qx
