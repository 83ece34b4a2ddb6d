// What a record's declaration may get wrong, and what is said of it.

#include <gtest/gtest.h>

#include "qx_db/platform/file.h"
#include "qx_db/qx_db.h"
#include "qx_db/record/record_impl.h"

#include "tests/scratch_folder.h"

namespace qx {

#pragma pack(push, 4)

/// An element structure with a text, a reference and a number.
struct tagTSample {
  TString<4> label;
  TRef<code::kNode> node;
  double weight = 0;

  static const ElementSchema& GetSchema() {
    static const ElementSchema schema("tagTSample", sizeof(tagTSample),
                                      RowList()
                                          .Add(u"_LABEL", &tagTSample::label)
                                          .Add(u"_NODE", &tagTSample::node)
                                          .Add(u"_WEIGHT", &tagTSample::weight));
    return schema;
  }
};

/// A record of a host with a member of every kind.
struct tagTProbe final : TRecord<tagTProbe, 110> {
  Key key = 0;
  std::uint64_t serial = 0;  ///< a value, however like an iterator it looks
  TRef<code::kNode> node;
  TRefArray<code::kElem> elements;
  TArray<std::uint64_t> serials;
  TArray<std::int32_t> marks;
  TArray<tagTSample> samples;
  PackedDouble factors[2]{};
};

#pragma pack(pop)

QX_DECLARE_RECORD(tagTProbe);

/// What the rows of the probe are in a case.
static void (*g_declare)(RowList& rows, FieldList& fields);

QX_RECORD(tagTProbe) { g_declare(rows, fields); }

namespace {

using P = tagTProbe;

void DeclareWell(RowList& rows, FieldList& fields) {
  rows.Add(u"_SERIAL", &P::serial)
      .Add(u"_NODE", &P::node)
      .Add(u"_ELEMS", &P::elements)
      .Beside(&P::marks)
      .Add(u"_SERIALS", &P::serials)
      .Add(u"_MARKS", &P::marks)
      .Add(u"_SAMPLES", &P::samples)
      .In(unit::kLength)
      .AddNumbered(u"_FACTOR", &P::factors);
  fields.Add("SERIAL", &P::serial).Add("FACTORS", &P::factors);
}

std::string FaultOf(void (*declare)(RowList& rows, FieldList& fields)) {
  return Schema("tagTProbe", P::kType, sizeof(P), &P::key, declare).Validate();
}

TEST(Schema, SaysWhatADeclarationGotWrong) {
  struct Case {
    const char* fault;
    void (*declare)(RowList&, FieldList&);
  };
  const Case cases[] = {
      {"", DeclareWell},
      {"tagTProbe: the rows end at byte 20 of 108",
       [](RowList& rows, FieldList&) { rows.Add(u"_SERIAL", &P::serial); }},
      {"tagTProbe _NODE: stands after a member that has no row, or one out of order",
       [](RowList& rows, FieldList&) { rows.Add(u"_NODE", &P::node); }},
      {"tagTProbe _SERIAL: the name stands twice",
       [](RowList& rows, FieldList&) {
         rows.Add(u"_SERIAL", &P::serial)
             .Add(u"_SERIAL", &P::node)
             .Add(u"_ELEMS", &P::elements)
             .Add(u"_SERIALS", &P::serials)
             .Add(u"_MARKS", &P::marks)
             .Add(u"_SAMPLES", &P::samples)
             .AddNumbered(u"_FACTOR", &P::factors);
       }},
      {"tagTProbe _SERIAL: has rules for references but is none",
       [](RowList& rows, FieldList& fields) {
         rows.Add(u"_SERIAL", &P::serial).When(OnRemoval::kDie);
         rows.Add(u"_NODE", &P::node)
             .Add(u"_ELEMS", &P::elements)
             .Add(u"_SERIALS", &P::serials)
             .Add(u"_MARKS", &P::marks)
             .Add(u"_SAMPLES", &P::samples)
             .AddNumbered(u"_FACTOR", &P::factors);
         fields.Add("SERIAL", &P::serial);
       }},
      {"tagTProbe _NODE: has a unit but no number with a fraction",
       [](RowList& rows, FieldList&) {
         rows.Add(u"_SERIAL", &P::serial).Add(u"_NODE", &P::node).In(unit::kLength);
         rows.Add(u"_ELEMS", &P::elements)
             .Add(u"_SERIALS", &P::serials)
             .Add(u"_MARKS", &P::marks)
             .Add(u"_SAMPLES", &P::samples)
             .AddNumbered(u"_FACTOR", &P::factors);
       }},
      {"tagTProbe _ELEMS: names no array of 32-bit values beside it",
       [](RowList& rows, FieldList&) {
         rows.Add(u"_SERIAL", &P::serial).Add(u"_NODE", &P::node);
         rows.Add(u"_ELEMS", &P::elements).Beside(&P::serials);
         rows.Add(u"_SERIALS", &P::serials)
             .Add(u"_MARKS", &P::marks)
             .Add(u"_SAMPLES", &P::samples)
             .AddNumbered(u"_FACTOR", &P::factors);
       }},
      {"tagTProbe _A_NAME_OF_20_LETTER: the name is longer than 19 characters",
       [](RowList& rows, FieldList&) {
         rows.Add(u"_A_NAME_OF_20_LETTER", &P::serial)
             .Add(u"_NODE", &P::node)
             .Add(u"_ELEMS", &P::elements)
             .Add(u"_SERIALS", &P::serials)
             .Add(u"_MARKS", &P::marks)
             .Add(u"_SAMPLES", &P::samples)
             .AddNumbered(u"_FACTOR", &P::factors);
       }},
      {"tagTProbe: the field SAMPLES carries structures without fields of their own",
       [](RowList& rows, FieldList& fields) {
         DeclareWell(rows, fields);
         fields.Add("SAMPLES", &P::samples);
       }},
      {"tagTProbe: the field FACTORS does not carry whole members of one kind",
       [](RowList& rows, FieldList& fields) {
         rows.Add(u"_SERIAL", &P::serial)
             .Add(u"_NODE", &P::node)
             .Add(u"_ELEMS", &P::elements)
             .Add(u"_SERIALS", &P::serials)
             .Add(u"_MARKS", &P::marks)
             .Add(u"_SAMPLES", &P::samples)
             .Add(u"_FACTORS", &P::factors);
         fields.Add("FACTORS", {&P::factors, 0});
       }},
      {"tagTProbe: the field ON carries a part or a Boolean of what is no 32-bit integer",
       [](RowList& rows, FieldList& fields) {
         DeclareWell(rows, fields);
         fields.Flag("ON", {&P::factors, 1});
       }},
      {"tagTProbe: the field SERIAL stands twice",
       [](RowList& rows, FieldList& fields) {
         DeclareWell(rows, fields);
         fields.Add("SERIAL", &P::serial);
       }},
  };
  for (const Case& c : cases) EXPECT_EQ(FaultOf(c.declare), c.fault);
  // A record whose first member is not the key.
  EXPECT_EQ(Schema("tagTProbe", P::kType, sizeof(P), &P::marks, DeclareWell).Validate(),
            "tagTProbe: the first row is not the key");
}

TEST(Schema, WhatIsSaidOfAMemberHoldsForAllOfItsRows) {
  RowList rows;
  rows.AddNumbered(u"_ELEM_IDS_", &tagTGElem::elements)
      .When(OnRemoval::kDie)
      .Converts(ReferenceRule::kTolerant)
      .KeyOf(code::kElem);
  const std::vector<Row> all = rows.Take();
  ASSERT_EQ(all.size(), 12u);
  for (const Row& row : all) {
    EXPECT_EQ(row.on_removal, OnRemoval::kDie);
    EXPECT_EQ(row.reference_rule, ReferenceRule::kTolerant);
    EXPECT_EQ(row.key_of, code::kElem);
    EXPECT_EQ(row.target, code::kElem);
  }
}

TEST(Schema, OfARecordWithAFaultKeepsItOutOfSessionsAndFiles) {
  static bool well;
  g_declare = [](RowList& rows, FieldList&) { rows.Add(u"_SERIAL", &P::serial); };
  well = false;
  CQXDBSession session([](CQXDBSession& s) {
    AddStandardPools(s);
    well = s.AddPool(std::make_unique<DPoolPlain<tagTProbe>>(&s)) == 1;
  });
  EXPECT_FALSE(well);
  EXPECT_EQ(session.GetDataPool(P::kType), nullptr);
  const std::string fault = "tagTProbe: the rows end at byte 20 of 108";
  EXPECT_EQ(session.SetupFault(), fault);
  EXPECT_EQ(session.Validate(), fault);
  const ScratchFolder folder;
  const std::string path = folder.Path("model.qxm");
  EXPECT_EQ(SaveModel(session, path).Line(),
            path + ": " + fault + "; correct the declaration of the record");
  CQXDBSession whole(AddStandardPools);
  ASSERT_EQ(SaveModel(whole, path).Line(), "");
  EXPECT_EQ(LoadModel(session, path).Line(),
            path + ": " + fault + "; correct the declaration of the record");
  // Nor does a code that is taken.
  EXPECT_EQ(whole.AddPool(std::make_unique<DPoolPlain<tagTBset>>(&whole)), 0);
  EXPECT_EQ(whole.SetupFault(), "tagTBset: there is a pool of type code 22 already");
  // The verbs do nothing with such a schema.
  tagTProbe probe;
  probe.node = 7;
  EXPECT_EQ(probe.IteratorToKey(&session), 1);
  EXPECT_EQ(probe.node, ITR{7});
}

TEST(Schema, TellsReferencesFromValuesByTheirTypes) {
  const Schema schema("tagTProbe", P::kType, sizeof(P), &P::key, DeclareWell);
  EXPECT_EQ(schema.Find(u"_SERIAL")->kind, MemberKind::kValue);
  EXPECT_EQ(schema.Find(u"_SERIALS")->kind, MemberKind::kValueArray);
  EXPECT_EQ(schema.Find(u"_ELEMS")->kind, MemberKind::kReferenceArray);
  EXPECT_EQ(schema.Find(u"_SAMPLES")->inner_reference, 8);
  ASSERT_EQ(schema.References().size(), 3u);  // _NODE, _ELEMS and the one inside _SAMPLES
  EXPECT_EQ(schema.References()[2]->target, code::kNode);

  // Units reach the numbers of an element, and nothing else in it.
  CQXUnitCtrl units;
  UnitSystem mm;
  mm[UnitBase::kLength] = FindUnit(UnitBase::kLength, "mm");
  units.SetCurrent(mm);
  tagTProbe probe;
  probe.samples.SetSize(2);
  probe.samples[1].node = 77;
  probe.samples[1].weight = 3;
  ConvertUnits(schema, probe, units, UnitDirection::kOut);
  EXPECT_EQ(double{probe.samples[1].weight}, 3000);
  EXPECT_EQ(probe.samples[1].node, ITR{77});
}

TEST(CheckImage, FindsATextWithoutAnEndInsideAnArrayElement) {
  tagTRtcb combination;
  combination.selected.SetSize(3);
  std::string image(combination.GetSizePlusVfptr() - 8, '\0');
  ASSERT_EQ(combination.Data2Stream(image.data(), static_cast<int>(image.size())), 1);
  EXPECT_EQ(CheckImage(tagTRtcb::GetSchema(), image.data(), image.size()), "");
  const std::size_t second = image.size() - 2 * sizeof(tagTSelectedResult);
  std::fill_n(image.begin() + static_cast<std::ptrdiff_t>(second) + 128, 128, 'x');
  EXPECT_EQ(CheckImage(tagTRtcb::GetSchema(), image.data(), image.size()),
            "tagTRtcb _SELRST[1] _STEPNAME: text without a terminator");
}

TEST(Images, LargerThanTheFormatAreCountedInFullAndRefused) {
  CQXDBSession session(AddStandardPools);
  auto& pool = *session.GetPool<PoolOf<tagTRtcb>::type>(code::kRtcb);
  tagTRtcb combination;
  combination.key = 5;
  tagTRtcb& stored = pool.GetAtNU(pool.InsertNU(combination));
  // Claims elements that are not there: only the claim is looked at.
  auto& claim = *reinterpret_cast<ArrayStorage*>(&stored.selected);
  claim.count = 17'000'000;
  EXPECT_EQ(ImageSize(tagTRtcb::GetSchema(), stored), 148 + 16 + 17'000'000ull * 264 - 8);
  char byte = 1;
  EXPECT_EQ(stored.Data2Stream(&byte, 1), 0);
  EXPECT_EQ(byte, 1);
  const ScratchFolder folder;
  EXPECT_NE(SaveModel(session, folder.Path("model.qxm")).Line(), "");
  CQXBulkHandler file(folder.Path("pool.qxp"));
  Outcome outcome;
  EXPECT_EQ(qxSaveDPool(file, pool, &outcome), 0);
  EXPECT_EQ(outcome.Line(), folder.Path("pool.qxp") +
                                ": records: tagTRtcb 5 takes 4488000156 bytes where an image has "
                                "at most 2147483639; split the record");
  EXPECT_TRUE(std::filesystem::is_empty(folder.Path("")));
  // Neither can such a record come into a pool, nor a step change it: undo could not bring it back.
  tagTRtcb large;
  large.key = 6;
  auto& large_claim = *reinterpret_cast<ArrayStorage*>(&large.selected);
  large_claim.count = claim.count;
  const ITR pos = pool.Find(5);
  CTransaction step(&session);
  ASSERT_EQ(step.Begin(u"Change"), 1);
  EXPECT_EQ(pool.InsertNU(large), 0);
  EXPECT_EQ(pool.SetAtNU(pos, combination), 0);
  claim.count = 0;
  large.key = 5;
  EXPECT_EQ(pool.SetAtNU(pos, large), 0);
  EXPECT_EQ(step.Commit(), 1);
  EXPECT_EQ(session.History().Done().size(), 0u) << "nothing was changed";
  large_claim.count = 0;
}

TEST(Images, AStepWithOneTooLargeForTheFileIsRefusedAndNothingIsWritten) {
  const ScratchFolder folder;
  const std::string path = folder.Path("model.qxm");
  CQXDocBase document(AddStandardPools);
  ASSERT_EQ(document.SaveAs(path).Line(), "");
  ASSERT_EQ(document.KeepSteps().Line(), "");
  CQXDBSession& session = *document.GetDBSession();
  auto& pool = *session.GetPool<PoolOf<tagTRtcb>::type>(code::kRtcb);
  const auto bytes = ReadWholeFile(path);
  tagTRtcb combination;
  combination.key = 5;
  // The last that a file takes, had it the bytes, and the first that it does not.
  const std::int32_t most = static_cast<std::int32_t>((900'000'000 - 148 - 16 + 8) / 264);
  CTransaction step(&session);
  ASSERT_EQ(step.Begin(u"Insert"), 1);
  tagTRtcb& stored = pool.GetAtNU(pool.InsertNU(combination));
  reinterpret_cast<ArrayStorage*>(&stored.selected)->count = most + 1;
  EXPECT_EQ(step.Commit(), 0);
  EXPECT_EQ(document.Keeper()->Fault().Line(),
            path +
                ": the step: changes a tagTRtcb that takes 900000180 bytes where a file has room "
                "for 900000000; split the record");
  EXPECT_EQ(*ReadWholeFile(path), *bytes);
  EXPECT_EQ(pool.GetSize(), 0);
}

}  // namespace
}  // namespace qx
