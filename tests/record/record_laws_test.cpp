// Laws that hold for every record type, driven with random contents.

#include <cmath>
#include <gtest/gtest.h>
#include <rapidcheck/gtest.h>
#include <rapidjson/document.h>
#include <valijson/adapters/rapidjson_adapter.hpp>
#include <valijson/schema.hpp>
#include <valijson/schema_parser.hpp>
#include <valijson/validator.hpp>

#include "qx_db/model/deck_pools.h"
#include "qx_db/model/set_rules.h"

#include "tests/record/random_record.h"
#include "tests/scratch_folder.h"

namespace qx {
namespace {

/// Every record type in a pool without rules: the laws are those of records.
void AddPlainPools(CQXDBSession& session) {
#define QX_ADD_POOL(T) session.AddPool(std::make_unique<DPoolPlain<T>>(&session));
  QX_FOR_EACH_RECORD(QX_ADD_POOL)
  QX_FOR_EACH_DECK_RECORD(QX_ADD_POOL)
  QX_ADD_POOL(tagTSetRule)
#undef QX_ADD_POOL
}

/// A session in which every pool holds a few records with random contents and references among
/// them.
class PopulatedSession {
 public:
  PopulatedSession() : session_(AddPlainPools) {
    for (DPoolBase* pool : session_.Pools()) {
      TStructBase* record = pool->GetDataPtrForUndoRedo();
      for (Key key : {1, 2, 7}) {
        record->Init();
        StoreAt(reinterpret_cast<char*>(record) + 8, key);
        items_[pool->GetTypeCode()].push_back(pool->InsertNU(record));
      }
    }
    Fill([&](std::uint16_t type) -> const std::vector<ITR>& { return items_[type]; });
  }

  /// No references to what files do not keep, which come back as none.
  void RefersToWhatIsSaved() {
    Fill([&](std::uint16_t type) -> const std::vector<ITR>& {
      static const std::vector<ITR> none;
      return type == code::kGElem ? none : items_[type];
    });
    for (const ITR item : items_[code::kGElemHead]) {  // nor do entries that name none
      static_cast<tagTGElemHead*>(KeyedSetBase::RecordAt(item))->data.RemoveAll();
    }
  }
  CQXDBSession& operator*() { return session_; }
  CQXDBSession* operator->() { return &session_; }

 private:
  template <class Targets>
  void Fill(Targets&& targets) {
    for (DPoolBase* pool : session_.Pools()) {
      for (const ITR item : items_[pool->GetTypeCode()]) {
        FillRandomly(pool->GetSchema(), *KeyedSetBase::RecordAt(item), targets);
      }
    }
  }

  CQXDBSession session_;
  std::map<std::uint16_t, std::vector<ITR>> items_;
};

std::string ImageOf(const TStructBase& record) {
  std::string image(record.GetSizePlusVfptr() - 8, '\0');
  EXPECT_EQ(record.Data2Stream(image.data(), static_cast<int>(image.size())), 1);
  return image;
}

/// Calls `law(pool, record)` for every record of a populated session.
template <class Law>
void ForEveryRecord(CQXDBSession& session, Law&& law) {
  for (DPoolBase* pool : session.Pools()) {
    for (ITR pos = pool->GetHeadPosition(); pos; pool->Next(pos)) {
      law(*pool, *KeyedSetBase::RecordAt(pos));
    }
  }
}

RC_GTEST_PROP(RecordLaws, ImagesRestoreEveryBit, ()) {
  PopulatedSession session;
  ForEveryRecord(*session, [](DPoolBase& pool, TStructBase& record) {
    const std::string image = ImageOf(record);
    RC_ASSERT(CheckImage(pool.GetSchema(), image.data(), image.size()).empty());
    TStructBase* copy = pool.GetDataPtrForUndoRedo();
    copy->Init();
    RC_ASSERT(copy->Stream2Data(image.data(), static_cast<int>(image.size())) == 1);
    RC_ASSERT(ImageOf(*copy) == image);
    RC_ASSERT(Differences(pool.GetSchema(), record, *copy).empty());
    // One byte less or more is noticed where the format can tell, and always by the check.
    const std::string longer = image + '\0';
    RC_ASSERT(!CheckImage(pool.GetSchema(), image.data(), image.size() - 1).empty());
    RC_ASSERT(!CheckImage(pool.GetSchema(), longer.data(), longer.size()).empty());
  });
}

RC_GTEST_PROP(RecordLaws, KeysAndBackRestoreEveryReference, ()) {
  PopulatedSession session;
  ForEveryRecord(*session, [&](DPoolBase&, TStructBase& record) {
    const std::string before = ImageOf(record);
    const bool whole = record.IteratorToKey(&*session) == 1;
    if (!whole) {  // a null entry stopped it half-way: put the record back by its image
      record.Stream2Data(before.data(), static_cast<int>(before.size()));
      return;
    }
    RC_ASSERT(record.KeyToIterator(&*session) == 1);
    RC_ASSERT(ImageOf(record) == before);
  });
}

RC_GTEST_PROP(RecordLaws, UnitsInAndOutRestoreEveryNumber, ()) {
  PopulatedSession session;
  UnitSystem other;
  other[UnitBase::kLength] = FindUnit(UnitBase::kLength, "in");
  other[UnitBase::kForce] = FindUnit(UnitBase::kForce, "lbf");
  other[UnitBase::kTemperature] = FindUnit(UnitBase::kTemperature, "F");
  session->Units().SetCurrent(other);
  ForEveryRecord(*session, [&](DPoolBase& pool, TStructBase& record) {
    ITR at = pool.Find(record.GetKey());
    const TStructBase& before = *pool.CopyToDummyPtr(at);
    record.ConvertUnitOut(&session->Units());
    record.ConvertUnitIn(&session->Units());
    for (const Row* row : Differences(pool.GetSchema(), before, record)) {
      RC_ASSERT(row->unit.category != unit::kNone);
      if (row->IsArray()) continue;
      for (std::int32_t i = 0; i < row->size; i += 8) {
        const auto x = LoadAt<double>(reinterpret_cast<const char*>(&before) + row->offset + i);
        const auto y = LoadAt<double>(reinterpret_cast<const char*>(&record) + row->offset + i);
        RC_ASSERT(std::abs(x - y) <= 1e-12 * (std::abs(x) + 500));
      }
    }
  });
}

/// Lets the kinds that units follow from be such as there are, and no array with a unit be empty.
void GiveUnits(const Schema& schema, TStructBase& record) {
  char* bytes = detail::Bytes(record);
  for (const Row* row : schema.UnitRows()) {
    for (const std::int32_t by : row->unit.by) {
      if (by) StoreAt(bytes + by, *rc::gen::inRange<std::int32_t>(0, 25));
    }
    if (!row->IsArray() || detail::ArrayAt(bytes, *row).count > 0) continue;
    ArrayStorage& array = detail::ArrayAt(bytes, *row);
    array.Resize(1, static_cast<std::size_t>(row->element_size));
    ForEachUnitNumber(*row, [&](int, std::int32_t offset) {
      StoreAt(static_cast<char*>(array.data) + offset, 7.5);
    });
  }
}

/// Each number with a unit, also in arrays, becomes what its category makes of it, and nothing else
/// changes; so that a conversion that does nothing is found, too.
RC_GTEST_PROP(RecordLaws, UnitsConvertTheNumbersThatHaveOneAndNoOthers, ()) {
  PopulatedSession session;
  UnitSystem other;
  other[UnitBase::kLength] = FindUnit(UnitBase::kLength, "in");
  other[UnitBase::kForce] = FindUnit(UnitBase::kForce, "lbf");
  other[UnitBase::kTemperature] = FindUnit(UnitBase::kTemperature, "F");
  session->Units().SetCurrent(other);
  const CQXUnitCtrl& units = session->Units();
  int lengths = 0;
  int in_arrays = 0;
  ForEveryRecord(*session, [&](DPoolBase& pool, TStructBase& record) {
    GiveUnits(pool.GetSchema(), record);
    ITR at = pool.Find(record.GetKey());
    const TStructBase& before = *pool.CopyToDummyPtr(at);
    record.ConvertUnitOut(&session->Units());
    const char* then = detail::Bytes(before);
    const char* now = detail::Bytes(record);
    for (const Row& row : pool.GetSchema().Rows()) {
      const bool array = row.IsArray();
      const std::int32_t elements = array ? detail::ArrayAt(then, row).count : 1;
      for (std::int32_t e = 0; e < elements; ++e) {
        const auto element = [&](const char* bytes) {
          return array ? static_cast<const char*>(detail::ArrayAt(bytes, row).data) +
                             e * row.element_size
                       : bytes + row.offset;
        };
        ForEachUnitNumber(row, [&](int number, std::int32_t offset) {
          const auto x = LoadAt<double>(element(then) + offset);
          const auto y = LoadAt<double>(element(now) + offset);
          const int category = row.unit.listed_only ? unit::kNone : CategoryOf(row, before, number);
          const bool length = category == unit::kLength;
          const bool degree = category == unit::kTemperature;
          const double expected = length                   ? x / 0.0254
                                  : degree                 ? x * 1.8 + 32
                                  : category > unit::kNone ? units.Out(category, x)
                                                           : x;
          lengths += length;
          in_arrays += array && y != x;
          if (category <= unit::kNone) RC_ASSERT(y == x);
          RC_ASSERT(std::abs(y - expected) <= 1e-9 * (std::abs(y) + (degree ? 500 : 0)));
        });
      }
    }
  });
  RC_ASSERT(in_arrays > 10);
  RC_ASSERT(lengths > 100);
}

/// A record as its gateway form: units and fields apart, everything a host would exchange.
std::string GatewayText(CQXDBSession& session) {
  dbgateway::DataBase document;
  for (DPoolBase* pool : session.Pools()) {
    TArray<Key> all;
    pool->WriteAPI(&document, all, 0);
  }
  return document.ToText();
}

RC_GTEST_PROP(RecordLaws, GatewayTextReadsBackTheSame, ()) {
  PopulatedSession session;
  const std::string text = GatewayText(*session);
  dbgateway::DataBase document;
  RC_ASSERT(static_cast<bool>(document.Parse(text)));
  CQXDBSession fresh(AddPlainPools);
  // Twice: the second time every reference finds its record.
  for (int pass = 0; pass < 2; ++pass) {
    for (DPoolBase* pool : fresh.Pools()) RC_ASSERT(pool->ReadAPI(&document, 0));
  }
  RC_ASSERT(GatewayText(fresh) == text);
}

/// Whether a gateway text obeys the schema of its document.
bool IsValid(const std::string& text) {
  static const auto schema = [] {
    rapidjson::Document document;
    document.Parse(GatewayJsonSchema(CQXDBSession(AddPlainPools)).c_str());
    auto parsed = std::make_unique<valijson::Schema>();
    valijson::SchemaParser(valijson::SchemaParser::kDraft4)
        .populateSchema(valijson::adapters::RapidJsonAdapter(document), *parsed);
    return parsed;
  }();
  rapidjson::Document document;
  document.Parse(text.c_str());
  return !document.HasParseError() &&
         valijson::Validator().validate(*schema, valijson::adapters::RapidJsonAdapter(document),
                                        nullptr);
}

RC_GTEST_PROP(RecordLaws, GatewayTextObeysItsSchema, ()) {
  RC_ASSERT(IsValid(GatewayText(*PopulatedSession())));
}

TEST(RecordGateway, SchemaRefusesWhatIsNotAGatewayDocument) {
  for (const char* text : {R"({"NODE": {"1": {"POS": "here"}}})", R"({"NODE": {"x": {}}})",
                           R"({"NODE": {"1": {"PLACE": 1}}})", R"({"NODE": 1})", "[]",
                           R"({"__CMD_DEL_NODE": ["1"]})"}) {
    EXPECT_FALSE(IsValid(text)) << text;
  }
  EXPECT_TRUE(IsValid(R"({"NODE": {"1": {"POS": [1, 2, 3]}}, "__CMD_DEL_ELEM": [4]})"));
}

TEST(RecordGateway, EveryFieldTakesEveryKindOfValueAndSaysWhatItMadeOfIt) {
  const char* const values[] = {"null",
                                "true",
                                "\"text\"",
                                "-7",
                                "1e300",
                                "-2.75",
                                "{}",
                                "{\"a\":1}",
                                "[]",
                                "[[1],2]",
                                "[null, \"x\", {}, -1e300]",
                                "123456789012345678901234567890"};
  CQXDBSession session(AddPlainPools);
  const std::uint64_t empty = session.StateHash();
  for (DPoolBase* pool : session.Pools()) {
    for (const GatewayField& field : pool->GetSchema().Gateway()) {
      bool told = false;
      for (const char* value : values) {
        const std::string text = "{\"" + pool->GetAPIName().ToUtf8() + "\": {\"3\": {\"" +
                                 field.name + "\": " + value + "}}}";
        dbgateway::DataBase document, strict;
        ASSERT_TRUE(document.Parse(text) && strict.Parse(text)) << text;
        EXPECT_TRUE(pool->ReadAPI(&document, 0)) << text;
        EXPECT_EQ(pool->GetSize(), 1) << text;
        told |= !document.Report().empty();
        session.Undo();
        strict.SetStrict(true);
        EXPECT_EQ(pool->ReadAPI(&strict, 0), document.Report().empty()) << text;
        if (document.Report().empty()) session.Undo();
        ASSERT_EQ(session.StateHash(), empty) << text;
      }
      EXPECT_TRUE(told) << pool->GetSchema().Name() << " " << field.name
                        << " took every value without a word";
    }
  }
  EXPECT_EQ(session.Validate(), "");
}

RC_GTEST_PROP(RecordLaws, ModelFilesRestoreTheState, ()) {
  PopulatedSession session;
  session.RefersToWhatIsSaved();
  const ScratchFolder folder;
  const std::string path = folder.Path("model.qxm");
  RC_ASSERT(SaveModel(*session, path).Line() == "");
  CQXDBSession opened(AddPlainPools);
  RC_ASSERT(LoadModel(opened, path).Line() == "");
  RC_ASSERT(opened.StateHash() == session->StateHash());
  RC_ASSERT(GatewayText(opened) == GatewayText(*session));
  RC_ASSERT(opened.Validate() == "");
}

RC_GTEST_PROP(RecordLaws, UndoRestoresEveryTypeOfRecord, ()) {
  PopulatedSession session;
  const std::uint64_t before = session->StateHash();
  CTransaction transaction(&*session);
  transaction.Begin(u"replace all");
  for (DPoolBase* pool : session->Pools()) {
    for (ITR pos = pool->GetHeadPosition(); pos; pool->Next(pos)) {
      TStructBase* record = pool->CopyToDummyPtr(pos);
      FillRandomly(pool->GetSchema(), *record, [](std::uint16_t) -> const std::vector<ITR>& {
        static const std::vector<ITR> none;
        return none;
      });
      RC_ASSERT(pool->SetAtNU(pos, record) == 1);
    }
  }
  RC_ASSERT(transaction.Commit() == 1);
  const std::uint64_t after = session->StateHash();
  session->Undo();
  RC_ASSERT(session->StateHash() == before);
  session->Redo();
  RC_ASSERT(session->StateHash() == after);
}

// ---- images from outside
// --------------------------------------------------------------------------

/// Puts a number into an element's image: its node list has the header at byte 8.
std::string DamagedElement(std::size_t at, std::int64_t value, std::size_t width) {
  tagTElem element;
  element.nodes = {11, 22, 33};
  std::string image = ImageOf(element);
  std::memcpy(image.data() + at, &value, width);
  return image;
}

TEST(CheckImage, RefusesEveryLengthThatLies) {
  struct Case {
    const char* what;
    std::size_t at;
    std::int64_t value;
    std::size_t width;
  };
  const Case cases[] = {
      {"element size 0", 8, 0, 4},
      {"element size 4", 8, 4, 4},
      {"negative count", 16, -1, 8},
      {"one too many", 16, 4, 8},
      {"one too few", 16, 2, 8},
      {"product wraps in 32 bits", 16, 0x20000003, 8},
      {"product wraps in 64 bits", 16, 0x2000000000000003, 8},
      {"largest count", 16, INT64_MAX, 8},
  };
  for (const Case& c : cases) {
    const std::string image = DamagedElement(c.at, c.value, c.width);
    EXPECT_NE(CheckImage(tagTElem::GetSchema(), image.data(), image.size()), "") << c.what;
  }
}

TEST(CheckImage, NamesTheMember) {
  tagTActiveElemSet set;
  std::string image = ImageOf(set);
  for (std::size_t i = 4; i < 132; i += 2) image[i] = 'x';
  EXPECT_EQ(CheckImage(tagTActiveElemSet::GetSchema(), image.data(), image.size()),
            "tagTActiveElemSet _NAME: text without a terminator");
}

// ---- what single types do differently
// -------------------------------------------------------------

struct MeshSession {
  CQXDBSession session{AddStandardPools};
  DPoolNode& nodes = *session.GetPool<DPoolNode>(code::kNode);
  DPoolElem& elements = *session.GetPool<DPoolElem>(code::kElem);

  MeshSession() {
    for (Key key : {1, 2, 3}) {
      tagTNode node;
      node.key = key;
      nodes.InsertNU(node);
    }
  }
};

TEST(KeyConversion, ANullNodeStopsAnElementButNotASide) {
  MeshSession m;
  tagTElem element;
  element.nodes = {m.nodes.Find(1), 0, m.nodes.Find(3)};
  EXPECT_EQ(element.IteratorToKey(&m.session), 0);
  EXPECT_EQ(element.nodes[0], 1u);
  EXPECT_EQ(element.nodes[2], m.nodes.Find(3));
  tagTESid side;
  side.nodes = {m.nodes.Find(1), 0, m.nodes.Find(3)};
  EXPECT_EQ(side.IteratorToKey(&m.session), 1);
  EXPECT_EQ(side.nodes, (TArray<ITR>{1, 0, 3}));
}

TEST(KeyConversion, UnknownKeysBecomeNone) {
  MeshSession m;
  tagTElem element;
  element.nodes = {1, 99, 3};
  element.property = 5;
  EXPECT_EQ(element.KeyToIterator(&m.session), 1);
  EXPECT_EQ(element.nodes, (TArray<ITR>{m.nodes.Find(1), 0, m.nodes.Find(3)}));
  EXPECT_EQ(element.property, 0u);
}

TEST(KeyConversion, AnOrientationKeepsItsCoordinateSystemButTheModelFileConvertsIt) {
  MeshSession m;
  tagTEcrd orientation;
  orientation.reference_node = m.nodes.Find(2);
  orientation.coordinate_system = m.nodes.Find(3);  // any record's address will do
  EXPECT_EQ(orientation.IteratorToKey(&m.session), 1);
  EXPECT_EQ(ITR{orientation.reference_node}, 2u);
  EXPECT_EQ(ITR{orientation.coordinate_system}, m.nodes.Find(3));
  orientation.reference_node = m.nodes.Find(2);
  std::string image = ImageOf(orientation);
  ImageIteratorsToKeys(tagTEcrd::GetSchema(), image.data());
  EXPECT_EQ(LoadAt<Key>(image.data() + 60 - 8), 3);
}

TEST(Defaults, OrientationFollowsTheEdition) {
  struct Case {
    Edition edition;
    std::int32_t method;
    double beta;
  };
  for (const Case& c : {Case{Edition::kGeneral, 1, 0.0}, Case{Edition::kA, 2, 90.0},
                        Case{Edition::kB, 1, 0.0}, Case{Edition::kC, 2, 90.0}}) {
    SetEdition(c.edition);
    tagTEcrd orientation;
    EXPECT_EQ(orientation.method, c.method);
    EXPECT_EQ(double{orientation.beta_angle_deg}, c.beta);
    EXPECT_EQ(orientation.reference_vector, (tagTVector3<double>{0, 0, 1}));
  }
  SetEdition(Edition::kGeneral);
}

TEST(PlainValues, AnElementTravelsByParts) {
  MeshSession m;
  tagTElem element;
  element.type = 4;
  element.nodes = {m.nodes.Find(1), 0, m.nodes.Find(3)};
  DBG_ELEM value;
  element.api_convert_data(&m.session, &value, true);
  EXPECT_EQ(value.node_keys, (std::vector<Key>{1, 0, 3}));
  EXPECT_FALSE(value.property_key.has_value());
  value.type.reset();
  value.node_keys = {2, 99};
  element.api_convert_data(&m.session, &value, false);
  EXPECT_EQ(element.type, 4);
  EXPECT_EQ(element.nodes, (TArray<ITR>{m.nodes.Find(2), 0}));
  DBG_NODE absent;
  tagTNode node;
  node.position = {1, 2, 3};
  node.api_convert_data(&m.session, &absent, false);
  EXPECT_EQ(node.position, (tagTVector3<double>{1, 2, 3}));
  absent.SetY(5);
  node.api_convert_data(&m.session, &absent, false);
  EXPECT_EQ(node.position, (tagTVector3<double>{0, 5, 0}));
}

}  // namespace
}  // namespace qx
