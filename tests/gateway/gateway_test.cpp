#include <cmath>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <rapidcheck/gtest.h>

#include "qx_db/platform/file.h"
#include "qx_db/qx_db.h"

#include "tests/corpus.h"

namespace qx {
namespace {

using dbgateway::DataBase;

struct MeshSession {
  CQXDBSession session{AddStandardPools};
  DPoolNode& nodes = *session.GetPool<DPoolNode>(code::kNode);
  DPoolElem& elements = *session.GetPool<DPoolElem>(code::kElem);

  /// Reads a text into a pool; the lines of the report.
  std::vector<std::string> Read(DPoolBase& pool, const char* text, int remove = 0) {
    DataBase document;
    EXPECT_EQ(document.Parse(text).Line(), "");
    EXPECT_TRUE(pool.ReadAPI(&document, remove));
    std::vector<std::string> lines;
    for (const auto& entry : document.Report()) lines.push_back(entry.Line());
    return lines;
  }
  tagTVector3<double> At(Key key) { return nodes.GetAtNU(nodes.Find(key)).position; }
};

TEST(Gateway, KeysOfEntriesAreDecimalNumbersOnly) {
  MeshSession m;
  const auto report = m.Read(m.nodes, R"({"NODE": {"12": {"POS": [1, 1, 1]},
      "0012": {"POS": [2, 2, 2]}, "x1": {"POS": [3, 3, 3]}, "": {}, "0": {}, "-4": {},
      "2147483648": {}, "2147483647": {"POS": [4, 4, 4]}}})");
  EXPECT_EQ(m.nodes.GetSize(), 2);
  EXPECT_EQ(m.At(12), (tagTVector3<double>{2, 2, 2}));
  EXPECT_NE(m.nodes.Find(2147483647), 0u);
  EXPECT_EQ(report.size(), 6u);
  m.Read(m.nodes, R"({"NODE": [{"POS": [9, 9, 9]}, {"POS": [1, 2, 3]}]})");
  EXPECT_EQ(m.At(1), (tagTVector3<double>{1, 2, 3}));
  EXPECT_EQ(m.nodes.GetSize(), 3) << "index 0 is no key";
}

TEST(Gateway, AReadReplacesWhatIsThereAndKeepsWhatIsNot) {
  MeshSession m;
  UnitSystem inch;
  inch[UnitBase::kLength] = FindUnit(UnitBase::kLength, "in");
  m.session.Units().SetCurrent(inch);
  tagTNode node;
  node.key = 5;
  node.position = {0.1, 0.2, 0.3};
  node.flags = 9;
  m.nodes.InsertNU(node);
  m.Read(m.nodes, R"({"NODE": {"5": {}}})");
  EXPECT_EQ(m.At(5), node.position) << "not a digit lost to units";
  m.Read(m.nodes, R"({"NODE": {"5": {"POS": [10, 0, -1]}}})");
  EXPECT_DOUBLE_EQ(m.At(5).x, 0.254);
  EXPECT_EQ(m.nodes.GetAtNU(m.nodes.Find(5)).flags, 9u);
  EXPECT_EQ(m.session.UndoName(), u"IDS_QX_TRANS_ADD_NODE");
  m.session.Undo();
  EXPECT_EQ(m.At(5), node.position);
  DataBase document;
  TArray<Key> keys{5, 6};
  m.nodes.WriteAPI(&document, keys, 0);
  EXPECT_EQ(document.FindCollection("NODE")->Size(), 1u) << "key 6 has no record";
  TArray<Key> all;
  m.nodes.WriteAPI(&document, all, 1);
  EXPECT_EQ(all, (TArray<Key>{5}));
  EXPECT_EQ(document.CollectionNames().size(), 1u) << "a table is written anew";
}

TEST(Gateway, AnglesOfNestedSystemsAreDegreesInEveryUnit) {
  MeshSession m;
  UnitSystem millimetres;
  millimetres[UnitBase::kLength] = FindUnit(UnitBase::kLength, "mm");
  m.session.Units().SetCurrent(millimetres);
  auto& systems = *m.session.GetPool<DPoolCord>(code::kCord);
  EXPECT_TRUE(m.Read(systems, R"({"CORD": {"2": {"TYPE": 1}, "3": {"TYPE": 2},
      "4": {"REF_CORD": 2, "ORIGIN": [1000, 30, 60]},
      "5": {"REF_CORD": 3, "ORIGIN": [1000, 30, 60]}}})")
                  .empty());
  const auto origin = [&](Key key) { return systems.GetAtNU(systems.Find(key)).origin; };
  EXPECT_EQ(origin(4), (tagTVector3<double>{1, 30, 0.06}));
  EXPECT_EQ(origin(5), (tagTVector3<double>{1, 30, 60}));
  DataBase document;
  TArray<Key> keys{4, 5};
  ASSERT_TRUE(systems.WriteAPI(&document, keys, 0));
  DataBase again;
  ASSERT_EQ(again.Parse(document.ToText()).Line(), "");
  ASSERT_TRUE(systems.ReadAPI(&again, 0));
  EXPECT_EQ(origin(4), (tagTVector3<double>{1, 30, 0.06}));
  EXPECT_EQ(origin(5), (tagTVector3<double>{1, 30, 60}));
  // Moved into the other system, and told where in its coordinates.
  m.Read(systems, R"({"CORD": {"4": {"REF_CORD": 3, "ORIGIN": [2000, 40, 50]}}})");
  EXPECT_EQ(origin(4), (tagTVector3<double>{2, 40, 50}));
}

TEST(Gateway, FunctionsConvertByTheirKindsAndTellWhichTheyCannot) {
  MeshSession m;
  DPoolBase& functions = *m.session.GetDataPool(code::kFunc);
  const char* text = R"({"FUNC": {"1": {"TYPE": 2, "INDEPVAR": 1, "FVAL": [{"VAR": 3, "VALUE": 5}]},
                                  "2": {"TYPE": 2, "INDEPVAR": 77, "FVAL": [{"VAR": 3, "VALUE": 5}]},
                                  "3": {"TYPE": 88}}})";
  EXPECT_TRUE(m.Read(functions, text).empty()) << "nothing to convert where units are the model's";
  UnitSystem millimetres;
  millimetres[UnitBase::kLength] = FindUnit(UnitBase::kLength, "mm");
  m.session.Units().SetCurrent(millimetres);
  EXPECT_EQ(m.Read(functions, text),
            (std::vector<std::string>{
                "FUNC 2 _VALUE: is of a kind that is not known; its numbers were not "
                "converted"}));
  const auto value = [&](Key key) {
    return m.session.GetPool<DPool<tagTFunc>>(code::kFunc)->GetAtNU(functions.Find(key)).values[0];
  };
  EXPECT_DOUBLE_EQ(value(1).variable, FunctionCategory(1) == unit::kLength ? 0.003 : 3);
  EXPECT_DOUBLE_EQ(value(2).variable, 3);
}

TEST(Gateway, WhatAPoolRefusesRefusesTheRead) {
  MeshSession m;
  DPoolBase& systems = *m.session.GetDataPool(code::kCord);
  m.Read(systems, R"({"CORD": {"2": {}, "3": {"REF_CORD": 2}}})");
  const std::uint64_t before = m.session.StateHash();
  DataBase document;
  ASSERT_TRUE(document.Parse(R"({"CORD": {"4": {}, "2": {"NAME": "x", "REF_CORD": 3}}})"));
  const Outcome read = ReadDocument(m.session, document);
  EXPECT_NE(read.Line().find("CORD 2: was refused"), std::string::npos) << read.Line();
  EXPECT_EQ(m.session.StateHash(), before);
}

TEST(Gateway, NothingIsPassedOverInSilence) {
  struct Case {
    const char* text;
    const char* told;
  };
  const Case cases[] = {
      {R"({"NODES": {}})", "NODES"},
      {R"({"NODE": {}, "NODE": {}})", "more than once"},
      {R"({"NODE": {"9": 5}})", "NODE 9: is not an object"},
      {R"({"ELEM": {"9": {"TYPE": true}}})", "ELEM 9 TYPE"},
      {R"({"DEFSIZE": {"1": {"USE": 7}}})", "DEFSIZE 1 USE"},
      {R"({"ECRD": {"4": {}}})", "ECRD 4: names no record of ELEM"},
  };
  for (const Case& c : cases) {
    MeshSession m;
    DataBase document;
    ASSERT_TRUE(document.Parse(c.text));
    EXPECT_TRUE(ReadDocument(m.session, document)) << c.text;
    std::string lines;
    for (const auto& entry : document.Report()) lines += entry.Line() + "\n";
    EXPECT_NE(lines.find(c.told), std::string::npos) << c.text << ": " << lines;
    MeshSession strict;
    const std::uint64_t before = strict.session.StateHash();
    ASSERT_TRUE(document.Parse(c.text));
    document.SetStrict(true);
    EXPECT_FALSE(ReadDocument(strict.session, document)) << c.text;
    EXPECT_EQ(strict.session.StateHash(), before) << c.text;
  }
}

TEST(Gateway, ANewRecordHasNothingOfTheOneBefore) {
  MeshSession m;
  DPoolBase& datums = *m.session.GetDataPool(code::kDatum);
  m.Read(datums, R"({"DATUM": {"1": {"vPOSITION": [1, 2, 3]}, "2": {}}})");
  const auto& pool = Pool<tagTDatum>(m.session);
  EXPECT_EQ(pool.GetAtNU(pool.Find(2)).position, (tagTVector3<double>{}));
}

TEST(Gateway, DeletionTablesTakeEachKeyOnce) {
  MeshSession m;
  m.Read(m.nodes, R"({"NODE": {"1": {}, "2": {}, "3": {}}})");
  const auto report = m.Read(m.nodes, R"({"__CMD_DEL_NODE": [2, 2, 7, "x", 0, 3.9]})", 1);
  EXPECT_EQ(m.nodes.GetSize(), 1);
  EXPECT_EQ(report.size(), 6u) << "and two entries were no integers";
  EXPECT_TRUE(m.Read(m.nodes, "{}", 1).empty());
}

TEST(Gateway, ElementsFindTheirNodesAndReportWhatTheyMiss) {
  MeshSession m;
  m.Read(m.nodes, R"({"NODE": {"1": {}, "2": {}}})");
  const auto report = m.Read(
      m.elements, R"({"ELEM": {"7": {"TYPE": 2.9, "NODE_KEY_ARRAY": [1, 2, 99], "PROPERTY": 4}}})");
  EXPECT_EQ(report, (std::vector<std::string>{"ELEM 7 TYPE: is Real where Integer is expected",
                                              "ELEM 7 NODE_KEY_ARRAY: key 99 names no record",
                                              "ELEM 7 PROPERTY: key 4 names no record"}));
  const tagTElem& element = m.elements.GetAtNU(m.elements.Find(7));
  EXPECT_EQ(element.type, 2);
  EXPECT_EQ(element.nodes, (TArray<ITR>{m.nodes.Find(1), m.nodes.Find(2), 0}));
}

TEST(Gateway, AStrictDocumentRollsBackInsteadOfReporting) {
  MeshSession m;
  DataBase document;
  ASSERT_TRUE(document.Parse(R"({"NODE": {"1": {"POS": [1, 2, 3]}, "2": {"POS": "far"}}})"));
  document.SetStrict(true);
  EXPECT_FALSE(m.nodes.ReadAPI(&document, 0));
  EXPECT_EQ(m.nodes.GetSize(), 0);
  EXPECT_EQ(document.Report()[0].Line(), "NODE 2 POS: is String where Array is expected");
}

TEST(Gateway, EveryWrongTypeInEveryFieldIsToldAndHarmless) {
  for (const char* value :
       {"null", "true", "\"7\"", "{}", "[]", "[[1]]", "1e300", "-5", "[null]"}) {
    MeshSession m;
    DataBase document;
    const std::string text = std::string(R"({"NODE": {"1": {"POS": )") + value +
                             R"(}}, "ELEM": {"1": {"TYPE": )" + value + R"(, "NODE_KEY_ARRAY": )" +
                             value + R"(, "PROPERTY": )" + value +
                             R"(}}, "ACTIVEELEMSET": {"1": {"NAME": )" + value +
                             R"(, "ELEM_KEY_ARRAY": )" + value + "}}}";
    ASSERT_EQ(document.Parse(text).Line(), "");
    for (DPoolBase* pool : m.session.Pools()) EXPECT_TRUE(pool->ReadAPI(&document, 0));
    EXPECT_FALSE(document.Report().empty()) << value;
    EXPECT_EQ(m.session.Validate(), "");
  }
}

TEST(Gateway, DescriptionsNameFieldsLabelsAndTypes) {
  MeshSession m;
  DataBase document;
  auto elements = document.NewDescription("ELEM");
  EXPECT_TRUE(m.elements.DescAPI(&elements));
  EXPECT_EQ(elements.Size(), 3u);
  EXPECT_EQ(elements.Member("NODE_KEY_ARRAY").Member("__DESC__").Text(), "NODE KEY ARRAY");
  EXPECT_EQ(elements.Member("TYPE").Member("__TYPE__").Text(), "Integer");
  auto nodes = document.NewDescription("NODE");
  m.nodes.DescAPI(&nodes);
  EXPECT_EQ(nodes.Member("POS").Member("__DESC__").Text(), "X, Y, Z");
}

TEST(Gateway, DetachedRecordsSucceedAndDoNothing) {
  MeshSession m;
  dbgateway::Record detached;
  tagTNode node;
  node.position = {1, 2, 3};
  EXPECT_TRUE(node.api_convert_db_to_record(&m.session, &detached, 0));
  EXPECT_TRUE(node.api_convert_record_to_db(&m.session, &detached));
  EXPECT_EQ(double{node.position.x}, 1);
}

TEST(Gateway, NamesErrorsAndTypesAreTheGatewaysOwn) {
  using dbgateway::FieldName;
  EXPECT_EQ(FieldName::Parse("SEED[3]").member, "SEED");
  EXPECT_EQ(FieldName::Parse("SEED[3]").index, 3u);
  EXPECT_EQ(FieldName::Parse("A<12>").angle, 12u);
  EXPECT_FALSE(FieldName::Parse("A[x]").index.has_value());
  EXPECT_STREQ(dbgateway::GatewayErrorText(10000), "At least 1 decimal");
  EXPECT_STREQ(dbgateway::GatewayErrorText(5), "Can not find error");
  DataBase document;
  ASSERT_TRUE(document.Parse(R"({"T": {"1": {"A": [null, "s", 1, 1.5, {}, [], true, 1]}}})"));
  document.FindCollection("T")->ForEach([](Key, std::string_view, dbgateway::Record record) {
    const char* const names[] = {"Null", "String", "Integer", "Real", "Object", "Array", "Bool"};
    for (std::size_t i = 0; i < std::size(names); ++i) {
      EXPECT_STREQ(record.Find("A").At(i).TypeName(), names[i]);
    }
    EXPECT_EQ(record.Find("A[3]").Real(), 1.5);
    EXPECT_FALSE(record.Find("A[9]"));
    EXPECT_STREQ(record.Find("B").TypeName(), "Unknown");
  });
}

// ---- JSON text
// -------------------------------------------------------------------------------------

RC_GTEST_PROP(JsonText, EveryNumberReadsBackBitForBit, (const std::vector<std::uint64_t>& bits)) {
  DataBase document;
  auto record = document.AddCollection("T").Add(1);
  std::vector<double> numbers{0.0, -0.0, 1.0, 5e-324, 1.7976931348623157e308, 0.1, 1e23};
  for (const std::uint64_t b : bits) {
    double number = 0;
    std::memcpy(&number, &b, sizeof(b));
    if (std::isfinite(number)) numbers.push_back(number);
  }
  record.SetReals("A", numbers);
  DataBase read;
  RC_ASSERT(read.Parse(document.ToText()).Line() == "");
  read.FindCollection("T")->ForEach([&](Key, std::string_view, dbgateway::Record r) {
    for (std::size_t i = 0; i < numbers.size(); ++i) {
      const double back = r.Find("A").At(i).Real();
      RC_ASSERT(std::memcmp(&back, &numbers[i], sizeof(back)) == 0);
    }
  });
}

TEST(JsonText, RefusalsNameLineAndColumn) {
  struct Case {
    std::string text;
    const char* place;
    const char* what;
  };
  const Case cases[] = {
      {"", "line 1, column 1", "is not JSON"},
      {"{\n  \"A\": 1,\n  x\n}", "line 3, column 3", "is not JSON"},
      {"[1]", "line 1", "is not an object of tables"},
      {"{\"A\": 1e999}", "line 1", "a number is too large"},
      {std::string(100000, '['), "line 1, column 51", "deeper than 512"},
      {"{\"A\": \"\xC0\x80\"}", "line 1", "is not JSON"},
      {"{\"A\": \"\xED\xA0\x80\"}", "line 1", "is not JSON"},
      {"{\"\\uDFAA\": 0}", "line 1", "surrogate"},
      {"{\"A\": {\"1\": {\"B\": \"x\\uDC00\"}}}", "line 1", "surrogate"},
      {"{\"A\": \"\\uD834x\"}", "line 1", "is not JSON"},
      {"{\"A\": 1} x", "line 1, column 10", "is not JSON"},
      // Characters that the end cuts off: what they announce lies past the memory of the text.
      {"{\"beyond short strings\": \"\xE9", "line 1, column 27", "is not JSON"},
      {"{\"beyond short strings\": \"\xF0\x9F", "line 1, column 27", "is not JSON"},
      {"{\"beyond short strings\": \"\xF0}", "line 1, column 27", "is not JSON"},
  };
  for (const Case& c : cases) {
    DataBase document;
    document.AddCollection("KEPT");
    const Outcome outcome = document.Parse(c.text, "in.json");
    ASSERT_FALSE(outcome) << c.text.substr(0, 40);
    EXPECT_TRUE(outcome.Line().starts_with(std::string("in.json: ") + c.place)) << outcome.Line();
    EXPECT_NE(outcome.Line().find(c.what), std::string::npos) << outcome.Line();
    EXPECT_TRUE(document.FindCollection("KEPT"));
  }
}

TEST(JsonText, ATextCutAnywhereIsRefused) {
  MeshSession m;
  m.Read(m.nodes, R"({"NODE": {"1": {"POS": [1.5, -2e-3, 3]}, "20": {}}})");
  DataBase document;
  TArray<Key> all;
  m.nodes.WriteAPI(&document, all, 0);
  const std::string text = document.ToText();
  for (std::size_t size = 0; size < text.size(); ++size) {
    EXPECT_FALSE(DataBase().Parse(text.substr(0, size))) << size;
  }
}

TEST(JsonText, ConformanceSuite) {
  QX_REQUIRE_CORPUS(folder, "json/JSONTestSuite/test_parsing");
  int must = 0;
  int must_not = 0;
  for (const auto& entry : std::filesystem::directory_iterator(folder)) {
    const std::string name = entry.path().filename().string();
    const std::string text = *ReadWholeFile(entry.path().string());
    // The gateway wants an object at the root; inside one, every JSON text has its place.
    const std::string wrapped = "{\"T\":" + text + "}";
    const bool bare_ok = static_cast<bool>(DataBase().Parse(text));
    const bool wrapped_ok = static_cast<bool>(DataBase().Parse(wrapped));
    if (name.starts_with("y_")) {
      EXPECT_TRUE(wrapped_ok) << name;
      ++must;
    } else if (name.starts_with("n_")) {
      EXPECT_FALSE(bare_ok) << name;
      ++must_not;
    }
  }
  EXPECT_GT(must, 0);
  EXPECT_GT(must_not, 0);
}

TEST(JsonText, TextsEscapeAndIndent) {
  DataBase document;
  document.AddCollection("T").Add(1).SetText("A", "\"\\\n\t\x01 é漢\x7F");
  const std::string text = document.ToText(true);
  DataBase read;
  ASSERT_EQ(read.Parse(text).Line(), "");
  EXPECT_EQ(read.ToText(), document.ToText());
  EXPECT_NE(text.find("\\u0001"), std::string::npos);
}

}  // namespace
}  // namespace qx
