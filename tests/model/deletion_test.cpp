#include "qx_db/model/deletion.h"

#include <gtest/gtest.h>
#include <map>
#include <rapidcheck/gtest.h>
#include <set>

#include "qx_db/record/verbs.h"

#include "tests/model/mesh_model.h"

namespace qx {
namespace {

using Fates = std::map<std::pair<std::uint16_t, Key>, Effect>;

/// What a step did to each record, as the journal has it.
class Witness final : public ISessionListener {
 public:
  void OnSessionEvent(CQXDBSession&, SessionEvent, std::u16string_view,
                      std::span<const Change> changes) override {
    for (const Change& change : changes) {
      const bool removed = change.operation == tagTRNotify::kRemoved;
      const Key key = KeyedSetBase::RecordAt(change.item)->GetKey();
      auto& fate = fates.try_emplace({change.type, key}, Effect::kChanged).first->second;
      if (removed) fate = Effect::kRemoved;
    }
  }
  Fates fates;
};

Fates FatesOf(const DeletionPreview& preview) {
  Fates fates;
  for (const Consequence& one : preview.consequences) {
    const Effect effect = one.effect == Effect::kReset ? Effect::kChanged : one.effect;
    const Key key = KeyedSetBase::RecordAt(one.item)->GetKey();
    auto& fate = fates.try_emplace({one.type, key}, effect).first->second;
    if (effect == Effect::kRemoved) fate = effect;
  }
  return fates;
}

/// A model in which records of many types depend on one another at random.
struct Tangle : MeshModel {
  static constexpr Key kNodes = 8;
  static constexpr Key kElements = 8;

  Tangle() {
    for (Key key = 1; key <= kNodes; ++key) Node(key, key, key * key, 0);
    for (Key key = 1; key <= 3; ++key) Property(key);
    for (Key key = 1; key <= 4; ++key) {
      tagTCord system;
      system.key = key;
      if (Maybe()) system.reference = Some<tagTCord>(key - 1);
      systems.InsertNU(system);
    }
    for (Key key = 1; key <= kElements; ++key) {
      const Key a = *rc::gen::inRange<Key>(1, kNodes + 1);
      const Key b = *rc::gen::inRange<Key>(1, kNodes + 1);
      const auto type = *rc::gen::element<std::int32_t>(1, 2, 6, 31, 46, 77);
      Element(key, type, {a, b}, Maybe() ? properties.Find(*rc::gen::inRange<Key>(1, 4)) : 0);
      if (Maybe()) Orient(key);
      if (Maybe()) Keyed<tagTSprop>(key);
      if (Maybe()) Keyed<tagTE3DMatlCsys>(key);
    }
    for (Key key = 1; key <= 3; ++key) {
      tagTMset set;
      set.key = key;
      set.parent_key = *rc::gen::inRange<Key>(0, key);
      set.nodes = Several<tagTNode>(kNodes);
      set.elements = Several<tagTElem>(kElements);
      Pool<tagTMset>(session).InsertNU(set);
      Add<tagTMeshCsys>(key, [&](auto& r) {
        r.mesh_set = Some<tagTMset>(3);
        r.coordinate_system = Some<tagTCord>(4);
      });
      Add<tagTE2DThick>(key, [&](auto& r) { r.elements = Several<tagTElem>(kElements); });
      Add<tagTE2DRelease>(key, [&](auto& r) {
        r.elements = Several<tagTElem>(kElements);
        r.nodes = Several<tagTNode>(kNodes);
        r.coordinate_system = Some<tagTCord>(4);
      });
      Add<tagTPink>(key, [&](auto& r) { r.pile = Some<tagTElem>(kElements); });
      Add<tagTNvok>(key, [&](auto& r) { r.node = Some<tagTNode>(kNodes); });
      Add<tagTESid>(key, [&](auto& r) { r.nodes = Several<tagTNode>(kNodes); });
      Add<tagTPropCtrl>(
          key, [&](auto& r) { r.property = properties.Find(*rc::gen::inRange<Key>(1, 4)); });
    }
    for (Key key = 1; key <= 4; ++key) {
      Add<tagTGeom>(key, [](auto&) {});
      Add<tagTGKey>(key, [&](auto& r) { r.geometry = Some<tagTGeom>(4); });
    }
    for (Key key = 1; key <= 3; ++key) {
      Add<tagMGInfo>(key, [&](auto& r) { r.bodies = Several<tagTGKey>(4); });
      Add<tagTSzct>(key, [&](auto& r) {
        r.edges = Several<tagTGKey>(4);
        r.reversed_edges = Several<tagTGKey>(4);
        r.bodies = Several<tagTGKey>(4);
        for (std::int32_t i = 0; i < r.edges.GetSize(); ++i) r.locked.Add(Maybe() && Maybe());
      });
      Add<tagTRegion>(key, [&](auto& r) {
        r.sides = Several<tagTESid>(3);
        r.directions.SetSize(r.sides.GetSize());
        for (std::int32_t i = 0; i < r.sides.GetSize(); ++i) r.directions[i] = KeyOf(r.sides[i]);
        r.nodes = Several<tagTNode>(kNodes);
      });
      Add<tagTActiveElemSet>(key, [&](auto& r) { r.elements = Several<tagTElem>(kElements); });
    }
  }

  static bool Maybe() { return *rc::gen::arbitrary<bool>(); }
  static Key KeyOf(ITR item) { return KeyedSetBase::RecordAt(item)->GetKey(); }
  template <class T>
  ITR Some(Key last) {
    return Pool<T>(session).Find(*rc::gen::inRange<Key>(0, last + 1));
  }
  template <class T>
  TArray<ITR> Several(Key last) {
    TArray<ITR> items;
    for (Key key = 1; key <= last; ++key) {
      if (*rc::gen::inRange(0, 3) == 0) items.Add(Pool<T>(session).Find(key));
    }
    return items;
  }
  template <class T, class Fill>
  void Add(Key key, Fill&& fill) {
    T record;
    record.key = key;
    fill(record);
    Pool<T>(session).InsertNU(record);
  }
  void Orient(Key key) {
    tagTEcrd record;
    record.key = key;
    record.method = *rc::gen::inRange(0, 4);
    record.reference_node = Some<tagTNode>(kNodes);
    record.coordinate_system = Some<tagTCord>(4);
    orientations.InsertNU(record);
  }
};

RC_GTEST_PROP(Deletion, DoesWhatThePreviewSays, ()) {
  Tangle m;
  const std::uint16_t type =
      *rc::gen::element(code::kNode, code::kElem, code::kCord, code::kProp, code::kMset,
                        code::kESid, code::kE2DThick, code::kGKey, code::kGeom);
  TArray<ITR> all;
  m.session.GetDataPool(type)->GetItrList(all, 0);
  std::vector<ITR> items;
  for (const ITR item : all) {
    if (*rc::gen::inRange(0, 3) == 0) items.push_back(item);
  }
  const std::uint64_t before = m.session.StateHash();
  const DeletionPreview preview = PreviewDeletion(m.session, type, items);
  RC_ASSERT(m.session.StateHash() == before);
  const Fates expected = FatesOf(preview);
  const std::set<ITR> asked(items.begin(), items.end());
  for (const Consequence& one : preview.consequences) {
    RC_ASSERT(one.cause != 0 || asked.contains(one.item));
  }

  const Listening sink;
  Witness witness;
  m.session.AddListener(&witness);
  const int done = DeleteRecords(m.session, type, items);
  RC_ASSERT(m.session.Validate() == "");
  if (!preview.blockers.empty()) {
    RC_ASSERT(done == 0);
    RC_ASSERT(m.session.StateHash() == before);
    std::set<std::string> announced;
    for (const Blocker& blocker : preview.blockers) {
      std::string line = blocker.text;
      for (const std::string& argument : blocker.arguments) line += " " + argument;
      announced.insert(line);
    }
    RC_ASSERT(!sink.heard.empty());
    RC_ASSERT(announced.contains(sink.heard.front()));
    return;
  }
  RC_ASSERT(done == 1);
  if (witness.fates != expected) {
    for (const auto& [who, effect] : witness.fates) {
      const auto found = expected.find(who);
      if (found == expected.end() || found->second != effect) {
        RC_LOG() << "happened: " << who.first << " " << who.second << " "
                 << static_cast<int>(effect) << std::endl;
      }
    }
    for (const auto& [who, effect] : expected) {
      const auto found = witness.fates.find(who);
      if (found == witness.fates.end() || found->second != effect) {
        RC_LOG() << "foretold: " << who.first << " " << who.second << " "
                 << static_cast<int>(effect) << std::endl;
      }
    }
  }
  RC_ASSERT(witness.fates == expected);
  // Directions stay beside their sides.
  auto& regions = Pool<tagTRegion>(m.session);
  for (ITR pos = regions.GetHeadPosition(); pos; regions.Next(pos)) {
    const tagTRegion& region = regions.GetAtNU(pos);
    RC_ASSERT(region.directions.GetSize() == region.sides.GetSize());
    for (std::int32_t i = 0; i < region.sides.GetSize(); ++i) {
      RC_ASSERT(region.directions[i] == Tangle::KeyOf(region.sides[i]));
    }
  }
  if (expected.empty()) return;
  RC_ASSERT(m.session.Undo() == 1);
  RC_ASSERT(m.session.StateHash() == before);
  RC_ASSERT(m.session.Redo() == 1);
  RC_ASSERT(m.session.Undo() == 1);
  RC_ASSERT(m.session.StateHash() == before);
}

/// The image of every record, with keys for references.
std::map<std::pair<std::uint16_t, Key>, std::string> ContentOf(const CQXDBSession& session) {
  std::map<std::pair<std::uint16_t, Key>, std::string> content;
  for (const DPoolBase* pool : session.Pools()) {
    const Schema& schema = pool->GetSchema();
    for (ITR pos = pool->GetHeadPosition(); pos; pool->Next(pos)) {
      const TStructBase& record = *KeyedSetBase::RecordAt(pos);
      std::string image(ImageSize(schema, record), '\0');
      WriteImage(schema, record, image.data());
      ImageIteratorsToKeys(schema, image.data());
      content.emplace(std::pair(pool->GetTypeCode(), KeyOf(pos)), std::move(image));
    }
  }
  return content;
}

/// In an open step that has removed something, a preview tells by what the step would end otherwise
/// for the deletion.
RC_GTEST_PROP(Deletion, InAStepIsToldByWhatTheStepWouldEndWithOtherwise, ()) {
  Tangle m;
  const auto choose = [&] {
    const std::uint16_t type =
        *rc::gen::element(code::kNode, code::kElem, code::kProp, code::kESid, code::kGKey);
    std::vector<ITR> items;
    DPoolBase& pool = *m.session.GetDataPool(type);
    for (ITR pos = pool.GetHeadPosition(); pos; pool.Next(pos)) {
      if (*rc::gen::inRange(0, 3) == 0) items.push_back(pos);
    }
    return std::pair(type, items);
  };
  const auto [first_type, first] = choose();
  const auto [then_type, then] = choose();
  const auto remove_first = [&m, &list = first, type = first_type] {
    for (const ITR item : list) m.session.GetDataPool(type)->Remove(item);
  };
  const Listening sink;
  const bool changes = m.Step(remove_first) && !first.empty();
  const auto otherwise = ContentOf(m.session);
  if (changes) {
    RC_ASSERT(m.session.Undo() == 1);
  }

  CTransaction step(&m.session);
  step.Begin(u"both");
  remove_first();
  std::vector<ITR> asked;
  for (const ITR item : then) {
    if (!KeyedSetBase::IsRemoved(item)) asked.push_back(item);
  }
  const std::size_t mark = m.session.History().Mark();
  const DeletionPreview preview = PreviewDeletion(m.session, then_type, asked);
  RC_ASSERT(m.session.History().Mark() == mark);
  std::set<std::pair<std::uint16_t, Key>> expected;
  for (const Consequence& one : preview.consequences) {
    expected.insert({one.type, Tangle::KeyOf(one.item)});
    RC_ASSERT(one.cause != 0 || std::find(asked.begin(), asked.end(), one.item) != asked.end());
  }
  const bool done = DeleteRecords(m.session, then_type, asked) != 0;
  RC_ASSERT(done == preview.blockers.empty());
  if (!done || !step.Commit()) return;
  const auto content = ContentOf(m.session);
  std::set<std::pair<std::uint16_t, Key>> happened;
  for (const auto& [who, image] : otherwise) {
    const auto found = content.find(who);
    if (found == content.end() || found->second != image) happened.insert(who);
  }
  RC_ASSERT(expected == happened);
}

RC_GTEST_PROP(WhereUsed, FindsEveryReferenceAndNoOther, ()) {
  Tangle m;
  const std::uint16_t type =
      *rc::gen::element(code::kNode, code::kElem, code::kCord, code::kProp, code::kMset);
  TArray<ITR> all;
  m.session.GetDataPool(type)->GetItrList(all, 0);
  RC_PRE(!all.IsEmpty());
  for (int round = 0; round < 3; ++round) {
    const ITR item = all[*rc::gen::inRange(0, all.GetSize())];
    if (KeyedSetBase::IsRemoved(item)) break;
    std::set<std::pair<ITR, const Row*>> wanted;
    for (DPoolBase* pool : m.session.Pools()) {
      for (ITR pos = pool->GetHeadPosition(); pos; pool->Next(pos)) {
        ForEachReference(pool->GetSchema(), *KeyedSetBase::RecordAt(pos),
                         [&](const Row& row, const char* slot) {
                           if (LoadAt<ITR>(slot) == item) wanted.insert({pos, &row});
                         });
      }
    }
    std::set<std::pair<ITR, const Row*>> found;
    for (const Use& use : WhereUsed(m.session, type, item)) {
      if (use.row && use.row->target) RC_ASSERT(found.insert({use.item, use.row}).second);
    }
    RC_ASSERT(found == wanted);
    // The next round must not answer from before this change.
    m.Step([&] { m.elements.Remove(m.elements.GetHeadPosition()); });
  }
}

TEST(WhereUsed, NamesWhatIsKeyedByARecord) {
  MeshModel m;
  const ITR element = m.Element(4, 2, {});
  const ITR orientation = m.Keyed<tagTEcrd>(4);
  m.Keyed<tagTEcrd>(5);
  const std::vector<Use> uses = WhereUsed(m.session, code::kElem, element);
  ASSERT_EQ(uses.size(), 1u);
  EXPECT_EQ(uses[0].item, orientation);
  EXPECT_EQ(uses[0].row, nullptr);
  EXPECT_TRUE(WhereUsed(m.session, code::kElem, 0).empty());
}

TEST(Deletion, OfNothingIsNothing) {
  MeshModel m;
  const ITR node = m.Node(1, 0, 0, 0);
  m.Step([&] { m.nodes.Remove(node); });
  const std::vector<ITR> items = {0, node};
  EXPECT_TRUE(PreviewDeletion(m.session, code::kNode, items).consequences.empty());
  EXPECT_EQ(DeleteRecords(m.session, code::kNode, items), 1);
  EXPECT_EQ(m.session.UndoName(), u"edit") << "no step was made";
}

}  // namespace
}  // namespace qx
