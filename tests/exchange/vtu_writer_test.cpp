#include "exchange/vtk/vtu_writer.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <filesystem>
#include <fmt/format.h>
#include <gtest/gtest.h>
#include <limits>
#include <map>
#include <sstream>

#include "qx_db/platform/file.h"
#include "qx_db/qx_db.h"

#include "brief.h"
#include "exchange/msh/msh_reader.h"
#include "exchange/msh/msh_writer.h"
#include "exchange/vtk/base64.h"
#include "sample_mesh.h"
#include "tests/scratch_folder.h"

namespace qx::exchange {
namespace {

// ---- a reader of such files, for the tests ------------------------------------------------------

std::string Attribute(const std::string& tag, const std::string& name) {
  const std::size_t begin = tag.find(" " + name + "=\"");
  if (begin == std::string::npos) return "";
  const std::size_t first = begin + name.size() + 3;
  return tag.substr(first, tag.find('"', first) - first);
}

std::string Decoded(std::string_view text) {
  const std::string alphabet = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
  std::string bytes;
  std::uint32_t bits = 0;
  int have = 0;
  for (const char c : text.substr(0, text.find('='))) {
    const std::size_t digit = alphabet.find(c);
    if (digit == std::string::npos) break;
    bits = bits << 6 | static_cast<std::uint32_t>(digit);
    have += 6;
    if (have < 8) continue;
    have -= 8;
    bytes += static_cast<char>(bits >> have & 0xFF);
  }
  return bytes;
}

std::vector<double> Values(const std::string& bytes, const std::string& type) {
  const auto get = [&]<class T>(T) {
    std::vector<double> values;
    for (std::size_t at = 8; at + sizeof(T) <= bytes.size(); at += sizeof(T)) {
      T value;
      std::memcpy(&value, &bytes[at], sizeof(T));
      values.push_back(static_cast<double>(value));
    }
    return values;
  };
  if (type == "Float64") return get(double{});
  if (type == "Int64") return get(std::int64_t{});
  if (type == "Int32") return get(std::int32_t{});
  EXPECT_EQ(type, "UInt8");
  return get(std::uint8_t{});
}

/// Where a tag ends: a ">" in a name does not end it.
std::size_t EndOf(const std::string& text, std::size_t tag) {
  bool is_quoted = false;
  for (; tag < text.size() && (is_quoted || text[tag] != '>'); ++tag) is_quoted ^= text[tag] == '"';
  return tag;
}

struct VtuFile {
  std::string head;
  std::map<std::string, std::vector<double>> arrays;
  std::map<std::string, std::string> section_of;
};

VtuFile Read(const std::string& path) {
  VtuFile file;
  const Result<std::string> bytes = ReadWholeFile(path);
  EXPECT_TRUE(bytes) << bytes.AsOutcome().Line();
  const std::string& text = *bytes;
  file.head = text.substr(0, text.find("<PointData>"));
  const std::size_t appended = text.find("<AppendedData");
  const std::size_t data = text.find("\n_", appended) + 2;
  std::string section;
  for (std::size_t at = 0; (at = text.find('<', at)) < std::min(appended, text.size()); ++at) {
    const std::string tag = text.substr(at, EndOf(text, at) + 1 - at);
    if (tag[1] != '/' && tag.rfind("<DataArray", 0) != 0) section = tag;
    if (tag.rfind("<DataArray", 0) != 0) continue;
    const std::string format = Attribute(tag, "format");
    const std::string type = Attribute(tag, "type");
    std::string content;
    if (format == "appended") {
      content = text.substr(data + std::stoul(Attribute(tag, "offset")));
      const bool raw = text.find("encoding=\"raw\"", appended) != std::string::npos;
      if (!raw) content = Decoded(content.substr(0, 12)) + Decoded(content);
      if (!raw) content = content.substr(9);  // 12 characters are 9 bytes, read for the length
    } else {
      content =
          text.substr(at + tag.size() + 1, text.find("\n</DataArray", at) - at - tag.size() - 1);
      if (format == "binary") content = Decoded(content);
    }
    std::vector<double>& values = file.arrays[Attribute(tag, "Name")];
    EXPECT_TRUE(values.empty()) << "two arrays named " << Attribute(tag, "Name");
    file.section_of[Attribute(tag, "Name")] = section;
    if (format == "ascii") {
      std::istringstream words(content);
      for (double value; words >> value;) values.push_back(value);
    } else {
      std::uint64_t length = 0;
      std::memcpy(&length, content.data(), sizeof(length));
      values = Values(content.substr(0, 8 + length), type);
    }
  }
  return file;
}

// ---- base64 -------------------------------------------------------------------------------------

TEST(Base64, AnyPiecesGiveTheSameText) {
  struct Case {
    const char* bytes;
    const char* text;
  };
  // The test vectors of RFC 4648.
  const Case cases[] = {{"", ""},
                        {"f", "Zg=="},
                        {"fo", "Zm8="},
                        {"foo", "Zm9v"},
                        {"foob", "Zm9vYg=="},
                        {"fooba", "Zm9vYmE="},
                        {"foobar", "Zm9vYmFy"}};
  for (const Case& c : cases) {
    const std::string_view bytes = c.bytes;
    for (std::size_t cut = 0; cut <= bytes.size(); ++cut) {
      Base64Encoder encoder;
      std::string text;
      encoder.Add(bytes.substr(0, cut), text);
      encoder.Add(bytes.substr(cut), text);
      encoder.Finish(text);
      EXPECT_EQ(text, c.text);
      EXPECT_EQ(text.size(), Base64Size(bytes.size()));
    }
  }
}

// ---- files --------------------------------------------------------------------------------------

class VtuWriter : public testing::Test {
 protected:
  VtuWriter() {
    Result<Deck> mesh = ParseMsh(sample::Write(sample::Make(), {"4.1"}), "sample");
    EXPECT_TRUE(AddMesh(session_, *mesh, "sample"));
  }

  CQXDBSession session_{AddStandardPools};
  DPoolNode& nodes_ = *session_.GetPool<DPoolNode>(code::kNode);
  DPoolElem& elements_ = *session_.GetPool<DPoolElem>(code::kElem);
  DPoolActiveElemSet& sets_ = *session_.GetPool<DPoolActiveElemSet>(code::kActiveElemSet);
  const ScratchFolder folder_;
  const std::string path_ = folder_.Path("mesh.vtu");
};

constexpr VtuEncoding kVtuEncodings[] = {VtuEncoding::kAppendedRaw, VtuEncoding::kAppendedBase64,
                                         VtuEncoding::kInlineBase64, VtuEncoding::kAscii};

// The order of VTK's cells as its file format documents it: by the numbers of its cell types.
const std::map<int, int> kVtkTypes{{1, 1},   {2, 3},   {3, 21},  {4, 5},   {5, 22},
                                   {6, 9},   {7, 23},  {8, 10},  {9, 24},  {10, 14},
                                   {11, 27}, {12, 13}, {13, 26}, {14, 12}, {15, 25}};

// A wedge as VTK has it: the first triangle seen from outside turns to the left, middle nodes come
// in the order of the edges.
void ExpectWedgeOfVtk(const std::vector<double>& cell, const std::vector<double>& coordinates) {
  std::vector<sample::Point> p;
  for (const double node : cell) {
    const double* at = &coordinates[3 * static_cast<std::size_t>(node)];
    p.push_back({at[0], at[1], at[2]});
  }
  // Both triangles of the sample lie in planes across z.
  const double turn =
      (p[1][0] - p[0][0]) * (p[2][1] - p[0][1]) - (p[1][1] - p[0][1]) * (p[2][0] - p[0][0]);
  EXPECT_LT(turn * (p[3][2] - p[0][2]), 0);
  for (std::size_t corner = 0; corner < 3; ++corner) {
    EXPECT_EQ(p[corner + 3][0], p[corner][0]) << "one triangle stands over the other";
    EXPECT_EQ(p[corner + 3][1], p[corner][1]);
  }
  const sample::Edges& edges = sample::ShapeOf(element::kWedge6).edges;
  for (std::size_t i = 6; i < p.size(); ++i) {
    const auto& [a, b] = edges[i - 6];
    EXPECT_EQ(p[i], sample::Middle(p[static_cast<std::size_t>(a)], p[static_cast<std::size_t>(b)]));
  }
}

TEST_F(VtuWriter, EveryEncodingHoldsTheModel) {
  tagTNode& node = nodes_.GetAtNU(nodes_.GetHeadPosition());
  node.position = {0.1, -1e-300, std::numeric_limits<double>::max()};
  std::vector<double> extra(static_cast<std::size_t>(elements_.GetSize()));
  for (std::size_t i = 0; i < extra.size(); ++i) extra[i] = 1.0 / (static_cast<double>(i) + 3);
  for (const VtuEncoding encoding : kVtuEncodings) {
    SCOPED_TRACE(testing::Message() << "encoding " << static_cast<int>(encoding));
    LossReport report;
    ASSERT_EQ(WriteVtu(session_, path_, encoding, {{"a<b>&\"c\"", extra}}, &report).Line(), "");
    EXPECT_TRUE(report.entries.empty());
    VtuFile file = Read(path_);
    EXPECT_NE(file.head.find("byte_order=\"LittleEndian\" header_type=\"UInt64\""),
              std::string::npos);
    EXPECT_EQ(Attribute(file.head, "NumberOfPoints"), std::to_string(nodes_.GetSize()));
    EXPECT_EQ(Attribute(file.head, "NumberOfCells"), std::to_string(elements_.GetSize()));

    std::vector<double> points, node_keys;
    std::map<ITR, double> index;
    for (ITR at = nodes_.GetHeadPosition(); at;) {
      index[at] = static_cast<double>(node_keys.size());
      const tagTNode& n = nodes_.GetNextNU(at);
      points.insert(points.end(), {n.position.x, n.position.y, n.position.z});
      node_keys.push_back(n.key);
    }
    EXPECT_EQ(file.arrays["Points"], points);
    EXPECT_EQ(file.arrays["node_key"], node_keys);
    EXPECT_EQ(file.section_of["node_key"], "<PointData>");

    std::vector<double> keys, types, offsets, vtk_types;
    std::size_t next = 0;
    for (ITR at = elements_.GetHeadPosition(); at;) {
      const tagTElem& e = elements_.GetNextNU(at);
      keys.push_back(e.key), types.push_back(e.type), vtk_types.push_back(kVtkTypes.at(e.type));
      std::vector<double> ours;
      for (const ITR n : e.nodes) ours.push_back(index.at(n));
      const std::vector<double>& all = file.arrays["connectivity"];
      ASSERT_LE(next + ours.size(), all.size());
      const auto first = all.begin() + static_cast<std::ptrdiff_t>(next);
      const std::vector<double> cell(first, first + static_cast<std::ptrdiff_t>(ours.size()));
      next += ours.size();
      if (e.type == element::kWedge6 || e.type == element::kWedge15) {
        EXPECT_TRUE(std::is_permutation(cell.begin(), cell.end(), ours.begin()));
        ExpectWedgeOfVtk(cell, points);
      } else {
        EXPECT_EQ(cell, ours);
      }
      offsets.push_back(static_cast<double>(next));
    }
    EXPECT_EQ(file.arrays["connectivity"].size(), next);
    EXPECT_EQ(file.arrays["offsets"], offsets);
    EXPECT_EQ(file.arrays["types"], vtk_types);
    EXPECT_EQ(file.arrays["element_key"], keys);
    EXPECT_EQ(file.arrays["element_type"], types);
    EXPECT_EQ(file.arrays["property_key"], std::vector<double>(keys.size()));
    EXPECT_EQ(file.arrays["a&lt;b>&amp;&quot;c&quot;"], extra);
    for (std::size_t i = 0; i < keys.size(); ++i) {
      const int dimension = FindElementType(static_cast<int>(types[i]))->dimension;
      for (int d = 0; d < 4; ++d) {
        EXPECT_EQ(file.arrays["dimension " + std::to_string(d)][i], d == dimension);
      }
    }
  }
}

TEST_F(VtuWriter, WhatCannotBeACellIsLeftOutWithANote) {
  const std::int32_t cells = elements_.GetSize();
  tagTElem special;
  tagTActiveElemSet set;
  set.key = 77;
  std::vector<double> values(static_cast<std::size_t>(cells));
  for (const std::int32_t type : {81, 81, 46, 4}) {
    special.key = elements_.GetNewKey();
    special.type = type;
    special.nodes = {nodes_.GetHeadPosition(), 0, nodes_.GetHeadPosition()};
    set.elements.Add(elements_.InsertNU(special));
    values.push_back(-1);
  }
  ITR second = elements_.GetHeadPosition();
  elements_.Next(second);
  set.elements.Add(second);
  set.elements.Add(0);
  sets_.InsertNU(set);
  LossReport report;
  ASSERT_EQ(WriteVtu(session_, path_, VtuEncoding::kAscii, {{"value", values}}, &report).Line(),
            "");
  EXPECT_EQ(Briefly(report),
            (std::vector<std::string>{"special elements of type 46 were left out: 1",
                                      "special elements of type 81 were left out: 2",
                                      "elements without all their nodes were left out: 1"}));
  VtuFile file = Read(path_);
  EXPECT_EQ(file.arrays["types"].size(), static_cast<std::size_t>(cells));
  EXPECT_EQ(file.arrays["value"], std::vector<double>(static_cast<std::size_t>(cells)));
  std::vector<double> members(static_cast<std::size_t>(cells));
  members[1] = 1;
  EXPECT_EQ(file.arrays["(set 77)"], members) << "a set without a name";

  values.pop_back();
  EXPECT_NE(WriteVtu(session_, path_, VtuEncoding::kAscii, {{"value", values}})
                .Line()
                .find("cell data \"value\": there are"),
            std::string::npos);
}

TEST_F(VtuWriter, NoTwoArraysShareAName) {
  for (const char16_t* name : {u"dimension 1", u"dimension 1", u"element_key", u"tab\there"}) {
    tagTActiveElemSet set;
    set.key = sets_.GetNewKey();
    set.name.Set(name);
    ASSERT_TRUE(sets_.InsertNU(set));
  }
  const std::vector<double> none(static_cast<std::size_t>(elements_.GetSize()));
  ASSERT_TRUE(WriteVtu(session_, path_, VtuEncoding::kAscii, {{"x", none}, {"x", none}}));
  const VtuFile file = Read(path_);
  for (const char* name : {"dimension 1", "dimension 1 (set 1)", "dimension 1 (set 2)",
                           "element_key", "element_key (set 3)", "tab?here", "x", "x (value)"}) {
    EXPECT_TRUE(file.arrays.contains(name)) << name;
  }
}

TEST_F(VtuWriter, CoordinatesAreInCurrentUnits) {
  UnitSystem millimetres;
  millimetres[UnitBase::kLength] = FindUnit(UnitBase::kLength, "mm");
  session_.Units().SetCurrent(millimetres);
  tagTNode& node = nodes_.GetAtNU(nodes_.GetHeadPosition());
  node.position = {1.5, 0, -2};
  ASSERT_TRUE(WriteVtu(session_, path_));
  const std::vector<double> points = Read(path_).arrays["Points"];
  node.ConvertUnitOut(&session_.Units());
  EXPECT_EQ(points[0], node.position.x);
  EXPECT_EQ(points[0], 1500);
  EXPECT_EQ(points[2], -2000);
}

TEST_F(VtuWriter, AFileThatCannotBeWrittenIsNotThere) {
  const std::string folder = folder_.Path("folder.vtu");
  std::filesystem::create_directories(folder);
  EXPECT_NE(WriteVtu(session_, folder).Line().find("is a directory"), std::string::npos);
  EXPECT_NE(WriteVtu(session_, folder + "/no/file").Line().find("cannot be created"),
            std::string::npos);
  const auto files = std::filesystem::directory_iterator(folder_.Path());
  EXPECT_EQ(std::distance(files, {}), 1) << "no neighbour is left behind";
}

/// No text form has a number for it that all readers know, so that no form takes it.
TEST_F(VtuWriter, ACoordinateThatIsNoNumberIsRefusedInEveryForm) {
  tagTNode& node = nodes_.GetAtNU(nodes_.GetHeadPosition());
  const std::string named =
      fmt::format(": node {}: a coordinate is not a finite number; ", +node.key);
  for (const double bad : {std::nan(""), HUGE_VAL, -HUGE_VAL}) {
    node.position.z = bad;
    for (const VtuEncoding encoding : kVtuEncodings) {
      EXPECT_NE(WriteVtu(session_, path_, encoding).Line().find(named), std::string::npos);
    }
    for (const MshEncoding encoding : {MshEncoding::kAscii, MshEncoding::kBinary}) {
      EXPECT_NE(WriteMsh(session_, path_, encoding).Line().find(named), std::string::npos);
    }
  }
  EXPECT_FALSE(std::filesystem::exists(path_));
  // What is finite in the model need not be in the units of the file.
  node.position.z = 1e308;
  EXPECT_TRUE(WriteVtu(session_, path_));
  UnitSystem millimetres;
  millimetres[UnitBase::kLength] = FindUnit(UnitBase::kLength, "mm");
  session_.Units().SetCurrent(millimetres);
  EXPECT_FALSE(WriteVtu(session_, path_));
}

TEST(WriteVtu, AnEmptyModelIsAnEmptyGrid) {
  CQXDBSession session{AddStandardPools};
  const std::string path = testing::TempDir() + "/qx_empty.vtu";
  std::vector<double> told;
  for (const VtuEncoding encoding : kVtuEncodings) {
    ASSERT_TRUE(
        WriteVtu(session, path, encoding, {}, nullptr, [&](double done) { told.push_back(done); }));
    const VtuFile file = Read(path);
    EXPECT_EQ(file.arrays.size(), 8u);
    for (const auto& [name, values] : file.arrays) EXPECT_TRUE(values.empty()) << name;
    EXPECT_EQ(told.back(), 1.0);
  }
  std::filesystem::remove(path);
}

}  // namespace
}  // namespace qx::exchange
