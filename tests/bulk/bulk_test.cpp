// Records that travel between models, in model files and in record files; new keys.

#include <algorithm>
#include <fstream>
#include <gtest/gtest.h>

#include "qx_db/core/renumber.h"
#include "qx_db/platform/file.h"
#include "qx_db/qx_db.h"

#include "tests/scratch_folder.h"

namespace qx {
namespace {

template <class T>
ITR Put(CQXDBSession& session, Key key, const std::function<void(T&)>& fill = {}) {
  T record;
  record.key = key;
  if (fill) fill(record);
  return Pool<T>(session).InsertNU(record);
}

/// Two triangles that share an edge, in a set below another set, with scale factors on the second
/// and a coordinate system that another refers to.
void FillModel(CQXDBSession& session) {
  std::vector<ITR> nodes;
  for (Key key = 1; key <= 4; ++key) {
    nodes.push_back(Put<tagTNode>(session, key, [&](auto& n) { n.position = {1.0 * key, 0, 2}; }));
  }
  std::vector<ITR> elements;
  for (Key key = 1; key <= 2; ++key) {
    elements.push_back(Put<tagTElem>(session, key, [&](auto& e) {
      e.type = 21;
      e.nodes = {nodes[key - 1], nodes[key], nodes[key + 1]};
    }));
  }
  Put<tagTE3DScaleFac>(session, 2, [](auto& f) { f.density = 3; });
  const ITR base = Put<tagTCord>(session, 1);
  Put<tagTCord>(session, 2, [&](auto& c) { c.reference = base; });
  Put<tagTMset>(session, 5);
  Put<tagTMset>(session, 6, [&](auto& s) {
    s.parent_key = 5;
    s.nodes = {nodes[0], nodes[3]};
    s.elements = {elements[1]};
  });
}

class Bulk : public testing::Test {
 protected:
  Bulk() {
    FillModel(source_);
    EXPECT_EQ(SaveModel(source_, Path("source.qxm")).Line(), "");
  }
  std::string Path(const char* name) const { return folder_.Path(name); }

  /// Imports from the saved source; the report, or the failure's line in `refused`.
  ImportReport Import(CQXDBSession& into, const ImportOptions& options, std::string* refused = {}) {
    const auto from = ExternalModel::Open(Path("source.qxm"), AddStandardPools);
    EXPECT_TRUE(from) << from.AsOutcome().Line();
    const auto report = ImportRecords(into, **from, options);
    if (refused)
      *refused = report.AsOutcome().Line();
    else
      EXPECT_TRUE(report) << report.AsOutcome().Line();
    EXPECT_EQ(into.Validate(), "");
    return report ? *report : ImportReport();
  }

  const ScratchFolder folder_;
  CQXDBSession source_{AddStandardPools};
};

TEST_F(Bulk, AWholeModelComesIntoAnEmptyOneUnchanged) {
  CQXDBSession into(AddStandardPools);
  const std::uint64_t empty = into.StateHash();
  ImportOptions options;
  options.keep_keys = true;
  const ImportReport report = Import(into, options);
  EXPECT_TRUE(report.loose.empty());
  EXPECT_TRUE(DiffModels(source_, into).empty());
  into.Undo();
  EXPECT_EQ(into.StateHash(), empty) << "one undoable step";
}

TEST_F(Bulk, FreshKeysFollowThroughEveryReference) {
  CQXDBSession into(AddStandardPools);
  FillModel(into);
  Put<tagTNode>(into, 100);
  const ImportReport report = Import(into, {});
  EXPECT_TRUE(report.loose.empty());
  auto& sets = Pool<tagTMset>(into);
  std::map<std::uint16_t, std::map<Key, Key>> keys;
  for (const auto& pool : report.pools) keys[pool.type].insert(pool.keys.begin(), pool.keys.end());
  const tagTMset& set = sets.GetAtNU(sets.Find(keys[code::kMset].at(6)));
  EXPECT_EQ(set.parent_key, keys[code::kMset].at(5)) << "a member that holds a key follows";
  EXPECT_EQ(KeyOf(set.nodes[1]), keys[code::kNode].at(4));
  EXPECT_GT(KeyOf(set.nodes[1]), 100);
  const Key element = keys[code::kElem].at(2);
  EXPECT_EQ(KeyOf(set.elements[0]), element);
  EXPECT_EQ(KeyOf(Pool<tagTElem>(into).GetAtNU(set.elements[0]).nodes[2]), keys[code::kNode].at(4));
  EXPECT_NE(Pool<tagTE3DScaleFac>(into).Find(element), 0u)
      << "what belongs to an element goes along";
  EXPECT_NE(report.KeyMapJson(into).find("\"NODE\": {\"1\": 101"), std::string::npos);
}

TEST_F(Bulk, ASmallModelTakesInALargerOne) {
  CQXDBSession into(AddStandardPools);
  Put<tagTNode>(into, 1);
  Put<tagTNode>(into, 2);
  EXPECT_EQ(Import(into, {}).Records(), 11);
  std::vector<Key> keys;
  for (ITR pos = Pool<tagTNode>(into).GetHeadPosition(); pos; Pool<tagTNode>(into).Next(pos)) {
    keys.push_back(KeyOf(pos));
  }
  EXPECT_EQ(keys, (std::vector<Key>{1, 2, 3, 4, 5, 6}));
}

/// Points in a system that counts in angles: these are degrees in every model.
TEST_F(Bulk, AnglesOfNestedSystemsStayInOtherUnits) {
  CQXDBSession file(AddStandardPools);
  UnitSystem millimetres;
  millimetres[UnitBase::kLength] = FindUnit(UnitBase::kLength, "mm");
  file.Units().SetModel(millimetres);
  // Those that others are given in stand behind them.
  const ITR cylindrical = Put<tagTCord>(file, 9, [](auto& c) { c.type = tagTCord::kCylindrical; });
  const ITR spherical = Put<tagTCord>(file, 8, [](auto& c) { c.type = tagTCord::kSpherical; });
  for (const auto& [key, reference] : {std::pair(3, cylindrical), {4, spherical}}) {
    Put<tagTCord>(file, key, [&, place = reference](auto& c) {
      c.reference = place;
      c.origin = {1000, 30, 60};
      c.axis_point = {2000, 31, 62};
      c.plane_point = {3000, 35, 70};
    });
  }
  ASSERT_EQ(SaveModel(file, Path("source.qxm")).Line(), "");
  CQXDBSession into(AddStandardPools);
  ImportOptions options;
  options.keep_keys = true;
  Import(into, options);
  const auto& systems = Pool<tagTCord>(into);
  const tagTCord& in_cylindrical = systems.GetAtNU(systems.Find(3));
  EXPECT_EQ(in_cylindrical.origin, (tagTVector3<double>{1, 30, 0.06}));
  EXPECT_EQ(in_cylindrical.axis_point, (tagTVector3<double>{2, 31, 0.062}));
  EXPECT_EQ(in_cylindrical.plane_point, (tagTVector3<double>{3, 35, 0.07}));
  EXPECT_EQ(systems.GetAtNU(systems.Find(4)).origin, (tagTVector3<double>{1, 30, 60}));
}

/// The records with which a model begins stand for each other as long as they say the same; what a
/// name is in use for comes under another.
TEST_F(Bulk, DefaultsJoinAndNamesAreToldApart) {
  CQXDocBase into(AddStandardPools);
  CQXDocBase from(AddStandardPools);
  from.New();
  CQXDBSession& file = *from.GetDBSession();
  UnitSystem millimetres;
  millimetres[UnitBase::kLength] = FindUnit(UnitBase::kLength, "mm");
  file.Units().SetModel(millimetres);
  const ITR node = Put<tagTNode>(file, 1);
  auto& sets = Pool<tagTMset>(file);
  tagTMset first = sets.GetAtNU(sets.DefaultItr());
  first.nodes = {node};
  sets.SetAtNU(sets.DefaultItr(), first);
  const ITR global = Pool<tagTCord>(file).GetDefaultItr();
  Put<tagTCord>(file, 4, [&](auto& c) { c.reference = global; });
  for (const Key key : {7, 8})
    Put<tagTMset>(file, key, [&](auto& s) {
      s.name.Set(key == 7 ? u"wing" : u"flap");
      s.parent_key = key == 7 ? 8 : 1;
    });
  ASSERT_EQ(SaveModel(file, Path("source.qxm")).Line(), "");

  into.New();
  CQXDBSession& model = *into.GetDBSession();
  auto& there = Pool<tagTMset>(model);
  Put<tagTMset>(model, 2, [](auto& s) { s.name.Set(u"wing"); });
  const ImportReport report = Import(model, {});
  EXPECT_EQ(report.Records(), 4);
  EXPECT_EQ(there.GetSize(), 4);
  EXPECT_EQ(there.GetAtNU(there.DefaultItr()).nodes.GetSize(), 1) << "takes in what it lists";
  const ITR flap = there.GetItr(u"flap");
  EXPECT_EQ(there.GetAtNU(flap).parent_key, +DPoolMset::kDefaultKey);
  ASSERT_EQ(report.renamed.size(), 1u);
  EXPECT_EQ(report.renamed[0].Line(model), "MSET 7: the name \"wing\" is in use; named \"wing-1\"");
  EXPECT_EQ(there.GetAtNU(there.GetItr(u"wing-1")).parent_key, KeyOf(flap));
  auto& systems = Pool<tagTCord>(model);
  ASSERT_EQ(systems.GetSize(), 2) << "the global system is the same in any unit";
  EXPECT_EQ(systems.GetAtNU(systems.Find(2)).reference, systems.GetDefaultItr());

  // One that was changed is another one.
  tagTCord moved = systems.GetAtNU(systems.GetDefaultItr());
  moved.origin = {1, 0, 0};
  systems.SetAtNU(systems.GetDefaultItr(), moved);
  EXPECT_EQ(Import(model, {}).Records(), 5);
  EXPECT_EQ(systems.GetSize(), 4);
  EXPECT_NE(systems.GetAtNU(systems.Find(4)).reference, systems.GetDefaultItr());
}

TEST_F(Bulk, AChoiceBringsWhatItNeedsAndSaysWhatIsLeft) {
  ImportOptions options;
  options.choices = {{code::kElem, {2}}};
  CQXDBSession needed(AddStandardPools);
  EXPECT_TRUE(Import(needed, options).loose.empty());
  EXPECT_EQ(needed.GetDataPool(code::kNode)->GetSize(), 3);
  EXPECT_EQ(needed.GetDataPool(code::kE3DScaleFac)->GetSize(), 1);
  EXPECT_EQ(needed.GetDataPool(code::kMset)->GetSize(), 0);

  options.choices = {{code::kMset, {6}}};
  options.with_references = false;
  CQXDBSession only(AddStandardPools);
  std::vector<std::string> lines;
  for (const auto& loose : Import(only, options).loose) lines.push_back(loose.Line(only));
  EXPECT_EQ(lines,
            (std::vector<std::string>{"MSET 6 _NODE_IDS: NODE 1 does not come along; cleared",
                                      "MSET 6 _NODE_IDS: NODE 4 does not come along; cleared",
                                      "MSET 6 _ELEM_IDS: ELEM 2 does not come along; cleared",
                                      "MSET 6 _PARENTMSETK: MSET 5 does not come along; cleared"}));
  const auto& set = Pool<tagTMset>(only).GetAtNU(Pool<tagTMset>(only).GetHeadPosition());
  EXPECT_EQ(set.nodes.GetSize() + set.elements.GetSize() + set.parent_key, 0);

  options.choices.push_back({code::kElem, {2}});
  CQXDBSession left(AddStandardPools);
  EXPECT_EQ(Import(left, options).left, (decltype(ImportReport::left){{code::kElem, 2}}))
      << "an element is nothing without its nodes";
  EXPECT_EQ(Pool<tagTMset>(left).GetAtNU(Pool<tagTMset>(left).GetHeadPosition()).elements.GetSize(),
            0);
  options.choices.pop_back();

  options.link_existing = true;
  CQXDBSession linked(AddStandardPools);
  const ITR node = Put<tagTNode>(linked, 4);
  EXPECT_EQ(Import(linked, options).loose.size(), 4u);
  const auto& other = Pool<tagTMset>(linked).GetAtNU(Pool<tagTMset>(linked).GetHeadPosition());
  EXPECT_EQ(other.nodes, TArray<ITR>{node});
}

TEST_F(Bulk, UnitsConvertAndADryRunChangesNothing) {
  CQXDBSession into(AddStandardPools);
  UnitSystem millimetres;
  millimetres[UnitBase::kLength] = FindUnit(UnitBase::kLength, "mm");
  into.Units().SetModel(millimetres);
  const std::uint64_t before = into.StateHash();
  ImportOptions options;
  options.dry_run = true;
  EXPECT_EQ(Import(into, options).Records(), 11);
  EXPECT_EQ(into.StateHash(), before);
  options.dry_run = false;
  Import(into, options);
  EXPECT_DOUBLE_EQ(Pool<tagTNode>(into).GetAtNU(Pool<tagTNode>(into).Find(3)).position.x, 3000);
  std::string refused;
  options.choices = {{code::kNode, {1, 44}}};
  const std::uint64_t after = into.StateHash();
  Import(into, options, &refused);
  EXPECT_NE(refused.find("source.qxm: NODE 44: is not there"), std::string::npos) << refused;
  EXPECT_EQ(into.StateHash(), after);
}

TEST_F(Bulk, ReferencesThatLeadNowhereOrInACircleAreNamed) {
  auto& systems = Pool<tagTCord>(source_);
  const ITR first = systems.Find(1);
  tagTCord record = systems.GetAtNU(first);
  record.reference = systems.Find(2);
  systems.DPool<tagTCord>::SetAtNU(first, record);
  ASSERT_TRUE(SaveModel(source_, Path("circle.qxm")));
  const auto circle = ExternalModel::Open(Path("circle.qxm"), AddStandardPools);
  ASSERT_FALSE(circle);
  EXPECT_NE(circle.Error().Line().find("leads back to itself"), std::string::npos);
  CQXBulkHandler file(Path("circle.qxr"));
  ASSERT_TRUE(qxSaveDPool(file, systems));
  CQXDBSession empty(AddStandardPools);
  const auto refused = ImportRecordFile(empty, Path("circle.qxr"), {});
  ASSERT_FALSE(refused);
  EXPECT_NE(refused.Error().Line().find("circle.qxr: references"), std::string::npos)
      << refused.Error().Line();

  // A session whose element names a node that is in no pool, as keys do in files.
  ExternalModel broken(AddStandardPools);
  tagTElem element;
  element.key = 1;
  element.nodes = {77};
  PoolInside::SetOf(*broken.Records().GetDataPool(code::kElem)).Insert(element);
  CQXDBSession into(AddStandardPools);
  const auto report = ImportRecords(into, broken, {});
  ASSERT_TRUE(report);
  ASSERT_EQ(report->loose.size(), 1u);
  EXPECT_EQ(report->loose[0].target_key, 77);
}

TEST_F(Bulk, WhatStepsHaveMadeOfAFileIsWhatComes) {
  const std::string path = Path("steps.qxm");
  CQXDocBase document(AddStandardPools);
  CQXDBSession& session = *document.GetDBSession();
  FillModel(session);
  ASSERT_EQ(document.SaveAs(path).Line(), "");
  ASSERT_EQ(document.KeepSteps().Line(), "");
  auto& nodes = Pool<tagTNode>(session);
  const auto insert = [&](Key key) {
    CTransaction step(&session);
    step.Begin(u"Insert");
    tagTNode node;
    node.key = key;
    nodes.InsertNU(node);
    ASSERT_EQ(step.Commit(), 1);
  };
  insert(900);
  insert(901);
  ASSERT_EQ(session.Undo(), 1);
  const std::uint64_t state = session.StateHash();
  document.Release();
  const auto from = ExternalModel::Open(path, AddStandardPools);
  ASSERT_TRUE(from) << from.Error().Line();
  CQXDBSession into(AddStandardPools);
  ImportOptions options;
  options.keep_keys = true;
  ASSERT_TRUE(ImportRecords(into, **from, options));
  EXPECT_TRUE(Pool<tagTNode>(into).Find(900)) << "done since the last save";
  EXPECT_FALSE(Pool<tagTNode>(into).Find(901)) << "undone";
  EXPECT_EQ(into.StateHash(), state);
}

TEST_F(Bulk, RecordFilesRestoreEveryPool) {
  for (DPoolBase* pool : source_.Pools()) {
    if (pool->GetSize() == 0) continue;
    CQXBulkHandler file(Path("pool.qxr"));
    Outcome outcome;
    ASSERT_TRUE(qxSaveDPool(file, *pool, &outcome)) << outcome.Line();
    CQXDBSession stage(AddStandardPools);
    CQXBulkHandler again(Path("pool.qxr"));
    ASSERT_TRUE(qxLoadDPool(again, *stage.GetDataPool(pool->GetTypeCode()), &outcome))
        << outcome.Line();
    EXPECT_EQ(again.Header().records, pool->GetSize());
    // Into the model that it came from, over itself: nothing changes, references included.
    const std::uint64_t before = source_.StateHash();
    ImportOptions options;
    options.keep_keys = true;
    const auto report = ImportRecordFile(source_, Path("pool.qxr"), options);
    ASSERT_TRUE(report) << report.AsOutcome().Line();
    EXPECT_EQ(source_.StateHash(), before) << pool->GetSchema().Name();
  }
}

TEST_F(Bulk, ARecordFileWithAnyFaultIsRefused) {
  CQXBulkHandler file(Path("cord.qxr"));
  ASSERT_TRUE(qxSaveDPool(file, *source_.GetDataPool(code::kCord)));
  const std::string good = *ReadWholeFile(Path("cord.qxr"));
  CQXDBSession into(AddStandardPools);
  const std::uint64_t before = into.StateHash();
  const auto refuses = [&](const std::string& bytes, const std::string& what) {
    std::ofstream(Path("bad.qxr"), std::ios::binary) << bytes;
    const auto report = ImportRecordFile(into, Path("bad.qxr"), {});
    ASSERT_FALSE(report) << what;
    EXPECT_NE(report.Error().Line().find("bad.qxr: "), std::string::npos);
    ASSERT_EQ(into.StateHash(), before) << what;
  };
  for (std::size_t size = 0; size < good.size(); ++size) {
    refuses(good.substr(0, size), "cut at " + std::to_string(size));
    std::string flipped = good;
    flipped[size] = static_cast<char>(flipped[size] ^ (1 << (size % 8)));
    refuses(flipped, "bit flipped at " + std::to_string(size));
  }
  refuses(good + "x", "a byte more");
  EXPECT_FALSE(file.Read(*into.GetDataPool(code::kNode))) << "a pool of another record";
}

TEST_F(Bulk, RenumberingTakesEverythingAlong) {
  auto& elements = *source_.GetDataPool(code::kElem);
  auto& sets = Pool<tagTMset>(source_);
  const std::uint64_t before = source_.StateHash();
  EXPECT_EQ(Renumber(source_, elements, {{1, 2}, {2, 1}}).Line(), "") << "keys are exchanged";
  EXPECT_NE(source_.GetDataPool(code::kE3DScaleFac)->Find(1), 0u);
  EXPECT_EQ(KeyOf(sets.GetAtNU(sets.Find(6)).elements[0]), 1);
  EXPECT_EQ(Renumber(source_, sets, {{5, 50}}).Line(), "");
  EXPECT_EQ(sets.GetAtNU(sets.Find(6)).parent_key, 50);
  EXPECT_EQ(source_.Validate(), "");
  source_.Undo();
  source_.Undo();
  EXPECT_EQ(source_.StateHash(), before);
  const KeyMap refused[] = {{{1, 2}}, {{1, 9}, {2, 9}}, {{7, 9}}, {{1, 0}}, {{1, 8}, {1, 9}}};
  for (const KeyMap& map : refused) {
    EXPECT_FALSE(Renumber(source_, elements, map));
    EXPECT_EQ(source_.StateHash(), before);
  }
}

}  // namespace
}  // namespace qx
