// The host's materials and properties through everything that records go through.

#include <cmath>
#include <gtest/gtest.h>
#include <rapidcheck/gtest.h>

#include "qx_db/qx_db.h"

#include "host/session.h"
#include "tests/record/random_record.h"
#include "tests/scratch_folder.h"

namespace qx::host {
namespace {

/// A model in which materials, properties and a coordinate system refer to each other.
class RandomModel {
 public:
  RandomModel() : session_(SetUpModel) {
    for (const std::uint16_t type : {code::kCord, code::kMatl, code::kProp}) {
      DPoolBase& pool = *session_.GetDataPool(type);
      for (const Key key : {1, 2, 9}) {
        TStructBase* record = pool.GetDataPtrForUndoRedo();
        record->Init();
        StoreAt(reinterpret_cast<char*>(record) + 8, key);
        items_[type].push_back(pool.InsertNU(record));
        if (type == code::kCord) continue;
        FillRandomly(
            pool.GetSchema(),
            *KeyedSetBase::RecordAt(items_[type].back()), [&](std::uint16_t target) -> const auto& {
              return items_[target];
            });
      }
    }
  }
  CQXDBSession& Session() { return session_; }

 private:
  CQXDBSession session_;
  std::map<std::uint16_t, std::vector<ITR>> items_;
};

template <class Law>
void ForEachHostRecord(CQXDBSession& session, Law&& law) {
  for (const std::uint16_t type : {code::kMatl, code::kProp}) {
    DPoolBase& pool = *session.GetDataPool(type);
    for (ITR pos = pool.GetHeadPosition(); pos; pool.Next(pos)) {
      law(pool, *KeyedSetBase::RecordAt(pos));
    }
  }
}

TEST(HostRecords, SchemasTileTheirRecords) {
  EXPECT_EQ(tagTMatl::GetSchema().Validate(), "");
  EXPECT_EQ(tagTProp::GetSchema().Validate(), "");
}

RC_GTEST_PROP(HostRecords, ModelFilesAndUndoRestoreThem, ()) {
  RandomModel model;
  CQXDBSession& session = model.Session();
  const ScratchFolder folder;
  const std::string path = folder.Path("model.qxm");
  RC_ASSERT(SaveModel(session, path).Line() == "");
  CQXDBSession opened(SetUpModel);
  RC_ASSERT(LoadModel(opened, path).Line() == "");
  RC_ASSERT(opened.StateHash() == session.StateHash());
  RC_ASSERT(DiffModels(session, opened).empty());

  const std::uint64_t before = opened.StateHash();
  DPoolBase& materials = *opened.GetDataPool(code::kMatl);
  CTransaction transaction(&opened);
  transaction.Begin(u"remove a material in use");
  RC_ASSERT(materials.Remove(materials.Find(2)) == 1);
  RC_ASSERT(transaction.Commit() == 1);
  ForEachHostRecord(opened, [&](DPoolBase& pool, TStructBase& record) {
    if (pool.GetTypeCode() != code::kProp) return;
    const ITR material = static_cast<tagTProp&>(record).material;
    if (material != 0) RC_ASSERT(!KeyedSetBase::IsRemoved(material));
  });
  RC_ASSERT(opened.Undo() == 1);
  RC_ASSERT(opened.StateHash() == before);
}

RC_GTEST_PROP(HostRecords, GatewayTextReadsBackTheSame, ()) {
  RandomModel model;
  const auto text = [](CQXDBSession& session) {
    dbgateway::DataBase document;
    EXPECT_TRUE(WriteDocument(session, document));
    return document.ToText();
  };
  const std::string written = text(model.Session());
  dbgateway::DataBase document;
  RC_ASSERT(static_cast<bool>(document.Parse(written)));
  CQXDBSession fresh(SetUpModel);
  RC_ASSERT(ReadDocument(fresh, document).Line() == "");
  RC_ASSERT(text(fresh) == written);
}

TEST(HostRecords, UnitsAreThoseOfTheQuantity) {
  CQXDBSession session(SetUpModel);
  UnitSystem inches;
  inches[UnitBase::kLength] = FindUnit(UnitBase::kLength, "mm");
  inches[UnitBase::kTemperature] = FindUnit(UnitBase::kTemperature, "F");
  session.Units().SetCurrent(inches);
  tagTMatl material;
  material.elastic_modulus = 2.1e5;      // N/mm2
  material.density = 7.85e-6;            // kg/mm3
  material.reference_temperature = 212;  // F
  material.poisson_ratio = 0.3;
  material.ConvertUnitIn(&session.Units());
  EXPECT_NEAR(material.elastic_modulus + 0, 2.1e11, 1);
  EXPECT_NEAR(material.density + 0, 7850, 1e-9);
  EXPECT_NEAR(material.reference_temperature + 0, 100, 1e-9);
  EXPECT_EQ(material.poisson_ratio + 0, 0.3);
  EXPECT_EQ(CQXMatlUnit::Instance().Code(0), unit::kStress);
  EXPECT_EQ(CQXPropUnit::Instance().Code(6), unit::kDamping);
  EXPECT_NEAR(material.ShearModulus(), 2.1e11 / 2.6, 1);

  // Mass beside the material is spread over what the kind of property has: a length or an area.
  struct Case {
    std::int32_t type;
    double factor;
  };
  for (const Case& c : {Case{tagTProp::kBeam, 1e3}, Case{tagTProp::kPlate, 1e6},
                        Case{tagTProp::kSolid, 1}, Case{-5, 1}}) {
    tagTProp property;
    property.type = c.type;
    property.non_structural_mass = 2;
    property.thickness = 5;
    property.stiffness[2] = 3;  // N/mm
    property.stiffness[5] = 3;  // N mm / rad
    property.ConvertUnitIn(&session.Units());
    EXPECT_NEAR(property.non_structural_mass + 0, 2 * c.factor, 1e-6) << c.type;
    EXPECT_NEAR(property.thickness + 0, 0.005, 1e-12);
    EXPECT_NEAR(property.stiffness[2] + 0, 3000, 1e-9);
    EXPECT_NEAR(property.stiffness[5] + 0, 0.003, 1e-12);
  }
}

}  // namespace
}  // namespace qx::host
