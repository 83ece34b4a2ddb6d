// VTK files in: every form of the same grid, every cell type, real files through a model and out
// again, and files that are broken.

#include <bit>
#include <cmath>
#include <cstring>
#include <filesystem>
#include <fmt/format.h>
#include <gtest/gtest.h>
#include <lz4.h>
#include <set>
#include <zlib.h>

#include "qx_db/platform/file.h"
#include "qx_db/qx_db.h"

#include "brief.h"
#include "exchange/msh/msh_reader.h"
#include "exchange/transfer.h"
#include "exchange/vtk/base64.h"
#include "exchange/vtk/vtk_reader.h"
#include "exchange/vtk/vtu_reader.h"
#include "host/session.h"
#include "sample_mesh.h"
#include "tests/corpus.h"
#include "tests/scratch_folder.h"

namespace qx::exchange {
namespace {

// ---- a writer of such files, for the tests ------------------------------------------------------

struct VtuFormOfTest {
  std::string format;  // "ascii", "binary", "raw", "base64"
  std::string compressor = "";
  bool swapped = false;
  int header = 4;
};

std::string Name(const VtuFormOfTest& form) {
  return fmt::format("{} {} {} {}", form.format, form.compressor,
                     form.swapped ? "swapped" : "native", form.header);
}

template <class T>
std::string Bytes(const VtuFormOfTest& form, const std::vector<T>& values) {
  std::string bytes;
  for (T value : values) {
    auto raw = std::bit_cast<std::array<char, sizeof(T)>>(value);
    if (form.swapped) std::reverse(raw.begin(), raw.end());
    bytes.append(raw.data(), raw.size());
  }
  return bytes;
}

std::string Header(const VtuFormOfTest& form, const std::vector<std::uint64_t>& numbers) {
  if (form.header == 8) return Bytes(form, numbers);
  return Bytes(form, std::vector<std::uint32_t>(numbers.begin(), numbers.end()));
}

std::string Encoded(const VtuFormOfTest& form, const std::string& bytes) {
  if (form.format == "raw") return bytes;
  std::string text;
  Base64Encoder encoder;
  encoder.Add(bytes, text);
  encoder.Finish(text);
  return text;
}

std::string Packed(const VtuFormOfTest& form, const std::string& bytes) {
  if (form.compressor.empty()) return Encoded(form, Header(form, {bytes.size()}) + bytes);
  constexpr std::size_t kBlock = 100;
  std::vector<std::uint64_t> header{(bytes.size() + kBlock - 1) / kBlock, kBlock,
                                    bytes.size() % kBlock};
  std::string blocks;
  for (std::size_t at = 0; at < bytes.size(); at += kBlock) {
    const std::string block = bytes.substr(at, kBlock);
    std::string out(1000, '\0');
    uLongf size = out.size();
    if (form.compressor == "vtkZLibDataCompressor") {
      compress(reinterpret_cast<Bytef*>(out.data()), &size,
               reinterpret_cast<const Bytef*>(block.data()), block.size());
    } else {
      size = static_cast<uLongf>(
          LZ4_compress_default(block.data(), out.data(), static_cast<int>(block.size()), 1000));
    }
    header.push_back(size);
    blocks += out.substr(0, size);
  }
  return Encoded(form, Header(form, header)) + Encoded(form, blocks);
}

class VtuText {
 public:
  explicit VtuText(const VtuFormOfTest& form) : form_(form) {}

  template <class T>
  std::string Array(const char* type, const std::string& name, int components,
                    const std::vector<T>& values) {
    std::string tag = fmt::format("<DataArray type=\"{}\" Name=\"{}\" NumberOfComponents=\"{}\" ",
                                  type, name, components);
    if (form_.format == "ascii") {
      tag += "format=\"ascii\">\n";
      for (const T value : values) tag += fmt::format(" {}\n", value);
      return tag + "</DataArray>\n";
    }
    const std::string packed = Packed(form_, Bytes(form_, values));
    if (form_.format == "binary") {
      return tag + "format=\"binary\">\n  " + packed + "\n </DataArray>\n";
    }
    tag += fmt::format("format=\"appended\" offset=\"{}\"/>\n", appended_.size());
    appended_ += packed;
    return tag;
  }
  std::string File(const std::string& grid) const {
    constexpr bool kLittle = std::endian::native == std::endian::little;
    std::string text = fmt::format(
        "<?xml version=\"1.0\"?>\n<!-- a comment -->\n<VTKFile type=\"UnstructuredGrid\" "
        "version=\"1.0\" byte_order=\"{}\" header_type=\"UInt{}\"{}>\n<UnstructuredGrid>\n{}"
        "</UnstructuredGrid>\n",
        kLittle != form_.swapped ? "LittleEndian" : "BigEndian", 8 * form_.header,
        form_.compressor.empty() ? "" : fmt::format(" compressor=\"{}\"", form_.compressor), grid);
    if (form_.format == "raw" || form_.format == "base64") {
      text += fmt::format("<AppendedData encoding=\"{}\">\n _{}\n</AppendedData>\n", form_.format,
                          appended_);
    }
    return text + "</VTKFile>\n";
  }

 private:
  VtuFormOfTest form_;
  std::string appended_;
};

/// A hexahedron and a wedge, with a scalar by cell and a vector by point.
std::string SampleGrid(const VtuFormOfTest& form) {
  VtuText text(form);
  std::vector<float> points;
  std::vector<double> vectors;
  for (int i = 0; i < 14; ++i) {
    for (int d = 0; d < 3; ++d) points.push_back(static_cast<float>(i * 3 + d) / 8);
    vectors.insert(vectors.end(), {i / 3.0, -1e-300, 1e300});
  }
  std::vector<std::int64_t> nodes;
  for (int i = 0; i < 14; ++i) nodes.push_back(i);
  return text.File(
      "<Piece NumberOfPoints=\"14\" NumberOfCells=\"2\">\n<PointData>\n" +
      text.Array<double>("Float64", "v", 3, vectors) + "</PointData>\n<CellData>\n" +
      text.Array<std::int16_t>("Int16", "mark", 1, {-7, 300}) + "</CellData>\n<Points>\n" +
      text.Array<float>("Float32", "Points", 3, points) + "</Points>\n<Cells>\n" +
      text.Array<std::int64_t>("Int64", "connectivity", 1, nodes) +
      text.Array<std::int32_t>("Int32", "offsets", 1, {8, 14}) +
      text.Array<std::uint8_t>("UInt8", "types", 1, {12, 13}) + "</Cells>\n</Piece>\n");
}

std::vector<VtuFormOfTest> AllForms() {
  std::vector<VtuFormOfTest> forms{{"ascii"}};
  for (const char* format : {"binary", "raw", "base64"}) {
    for (const char* compressor : {"", "vtkZLibDataCompressor", "vtkLZ4DataCompressor"}) {
      for (const bool swapped : {false, true}) {
        for (const int header : {4, 8}) forms.push_back({format, compressor, swapped, header});
      }
    }
  }
  return forms;
}

void ExpectSample(const Deck& deck) {
  ASSERT_EQ(deck.elements.size(), 2u);
  EXPECT_EQ(deck.elements[0].type, element::kHex8);
  EXPECT_EQ(deck.elements[1].type, element::kWedge6);
  EXPECT_EQ(deck.connectivity, (std::vector<Key>{1, 2, 3, 4, 5, 6, 7, 8, 9, 11, 10, 12, 14, 13}));
  ASSERT_EQ(deck.coordinates.size(), 42u);
  for (std::size_t i = 0; i < 42; ++i) EXPECT_EQ(deck.coordinates[i], static_cast<double>(i) / 8);
  const std::vector<tagTField>& fields = deck.Of<tagTField>();
  ASSERT_EQ(fields.size(), 2u);
  EXPECT_EQ(fields[0].name.View(), u"v");
  EXPECT_EQ(fields[0].components, 3);
  ASSERT_EQ(fields[0].node_values.GetSize(), 42);
  EXPECT_EQ(+fields[0].node_values[15].value, 5 / 3.0);
  EXPECT_EQ(+fields[0].node_values[17].value, 1e300);
  EXPECT_EQ(ITR{fields[0].node_values[17].target}, ITR{6});
  EXPECT_EQ(fields[1].integers, 1);
  ASSERT_EQ(fields[1].element_values.GetSize(), 2);
  EXPECT_EQ(+fields[1].element_values[0].value, -7);
  EXPECT_EQ(+fields[1].element_values[1].value, 300);
}

TEST(VtuForms, AllSayTheSame) {
  for (const VtuFormOfTest& form : AllForms()) {
    SCOPED_TRACE(Name(form));
    const Result<Deck> deck = ParseVtu(SampleGrid(form), "sample.vtu");
    ASSERT_TRUE(deck) << deck.AsOutcome().Line();
    ExpectSample(*deck);
  }
}

TEST(VtuForms, EveryTruncationAndEveryWrongByteIsReadOrRefused) {
  const auto check = [](std::string bytes) {
    const Result<Deck> deck = ParseVtu(std::move(bytes), "broken.vtu");
    if (deck) {
      EXPECT_EQ(CheckMesh(*deck, "broken.vtu").Line(), "");
    } else {
      EXPECT_FALSE(deck.Error().what.empty());
    }
  };
  for (const VtuFormOfTest& form : AllForms()) {
    if (form.header == 4 && form.swapped) continue;
    const std::string whole = SampleGrid(form);
    for (std::size_t i = 0; i < whole.size(); i += 1 + whole.size() / 1000) {
      check(whole.substr(0, i));
      std::string wrong = whole;
      wrong[i] = static_cast<char>(wrong[i] ^ 0x15);
      check(wrong);
    }
  }
}

// ---- cell types ---------------------------------------------------------------------------------

/// A text file of version 5.1 or 3.0 of one cell of that type.
std::string OneCell(int type, int nodes, const char* version) {
  std::string text = fmt::format(
      "# vtk DataFile Version {}\nx\nASCII\nDATASET UNSTRUCTURED_GRID\nPOINTS {} float\n", version,
      nodes);
  std::string list;
  for (int i = 0; i < nodes; ++i) {
    text += fmt::format("{} {} {}\n", i, i * i % 7, i % 3);
    list += fmt::format(" {}", i);
  }
  text +=
      version[0] == '5'
          ? fmt::format("CELLS 2 {}\nOFFSETS vtktypeint64\n0 {}\nCONNECTIVITY vtktypeint64\n{}\n",
                        nodes, nodes, list)
          : fmt::format("CELLS 1 {}\n{}{}\n", nodes + 1, nodes, list);
  return text + fmt::format("CELL_TYPES 1\n{}\n", type);
}

TEST(VtkCells, BecomeElementsOrAreNamed) {
  struct Case {
    int type;
    int nodes;
    std::vector<std::int32_t> codes;
    std::vector<Key> first =
        {};  // nodes of the first element, from 0, where they are not 0, 1, 2...
    const char* note = "";
  };
  using namespace element;
  const Case cases[] = {
      {1, 1, {kPoint}},
      {2, 3, {kPoint, kPoint, kPoint}, {}, "1 poly-vertices were read as points"},
      {3, 2, {kLine2}},
      {4, 3, {kLine2, kLine2}, {}, "1 poly-lines were read as"},
      {5, 3, {kTri3}},
      {6, 4, {kTri3, kTri3}, {}, "1 triangle strips"},
      {7, 4, {kQuad4}, {}, "1 polygons were read as"},
      {7, 5, {}, {}, "polygons of more than four corners were left out: 1"},
      {8, 4, {kQuad4}, {0, 1, 3, 2}, "1 pixels were read as 4-node quadrilaterals"},
      {11, 8, {kHex8}, {0, 1, 3, 2, 4, 5, 7, 6}, "1 voxels"},
      {13, 6, {kWedge6}, {0, 2, 1, 3, 5, 4}},
      {15, 10, {}, {}, "pentagonal prisms were left out: 1"},
      {21, 3, {kLine3}},
      {22, 6, {kTri6}},
      {23, 8, {kQuad8}},
      {24, 10, {kTet10}},
      {25, 20, {kHex20}},
      {26, 15, {kWedge15}, {0, 2, 1, 3, 5, 4, 8, 7, 6, 11, 10, 9, 12, 14, 13}},
      {27, 13, {kPyramid13}},
      {28, 9, {kQuad8}, {}, "9-node quadrilaterals were read as 8-node quadrilaterals: 1"},
      {29, 27, {kHex20}, {}, "27-node hexahedra were read as 20-node hexahedra: 1"},
      {30, 6, {kQuad4}, {}, "6-node quadrilaterals were read as"},
      {32, 18, {kWedge15}, {0, 2, 1, 3, 5, 4, 8, 7, 6, 11, 10, 9, 12, 14, 13}, "18-node wedges"},
      {34, 7, {kTri6}, {}, "7-node triangles were read as 6-node triangles: 1"},
      {35, 4, {kLine2}, {}, "cubic lines were read as 2-node lines: 1"},
      {41, 6, {}, {}, "convex point sets were left out: 1"},
      {42, 9, {}, {}, "polyhedra were left out: 1"},
      {69, 6, {kTri6}, {}, "1 Lagrange triangles were read as 6-node triangles"},
      {69, 10, {kTri3}, {}, "Lagrange triangles were read as 3-node triangles: 1"},
      {72, 27, {kHex20}, {}, "Lagrange hexahedra were read as 20-node hexahedra: 1"},
      {73, 18, {kWedge15}, {}, "Lagrange wedges were read as 15-node wedges: 1"},
      {76, 6, {kTri3}, {}, "Bezier triangles were read as 3-node triangles: 1"},
      {99, 4, {}, {}, "cells of unknown type were left out: 1"},
  };
  for (const Case& c : cases) {
    for (const char* version : {"3.0", "5.1"}) {
      SCOPED_TRACE(fmt::format("type {} with {} nodes, version {}", c.type, c.nodes, version));
      const Result<Deck> deck = ParseVtk(OneCell(c.type, c.nodes, version), "cell.vtk");
      ASSERT_TRUE(deck) << deck.AsOutcome().Line();
      std::vector<std::int32_t> codes;
      for (const Mesh::Element& element : deck->elements) codes.push_back(element.type);
      EXPECT_EQ(codes, c.codes);
      if (!c.codes.empty()) {
        for (std::size_t i = 0; i < deck->NodesOf(0); ++i) {
          Key expected = c.first.empty() ? static_cast<Key>(i) : c.first[i];
          const bool is_old = c.type == 72 && version[0] == '3';
          if (is_old && i >= 18) expected = static_cast<Key>(37 - i);
          EXPECT_EQ(deck->connectivity[i] - 1, expected) << i;
        }
      }
      std::string notes;
      for (const std::string& line : Briefly(deck->report)) notes += line + "\n";
      EXPECT_NE(notes.find(c.note), std::string::npos) << notes;
      EXPECT_EQ(notes.empty(), *c.note == 0) << notes;
    }
  }
}

TEST(VtkLegacy, OtherDataSetsBecomeElements) {
  const std::string head = "# vtk DataFile Version 3.0\nx\nASCII\nDATASET ";
  struct Case {
    const char* text;
    std::size_t nodes;
    std::vector<std::int32_t> codes;
  };
  const Case cases[] = {
      {"POLYDATA\nPOINTS 5 float\n0 0 0 1 0 0 1 1 0 0 1 0 2 2 0\nLINES 1 3\n2 0 4\n"
       "POLYGONS 2 9\n4 0 1 2 3 3 1 4 2\nCELL_DATA 3\nSCALARS a%20b int\nLOOKUP_TABLE default\n"
       "1 2 3\n",
       5,
       {2, 6, 4}},
      {"STRUCTURED_POINTS\nDIMENSIONS 3 2 2\nORIGIN 1 2 3\nSPACING .5 1 1\nPOINT_DATA 12\n"
       "VECTORS v double\n1 2 3 1 2 3 1 2 3 1 2 3 1 2 3 1 2 3 1 2 3 1 2 3 1 2 3 1 2 3 1 2 3 1 2 "
       "3\n",
       12,
       {14, 14}},
      {"STRUCTURED_GRID\nDIMENSIONS 2 2 1\nPOINTS 4 double\n0 0 0 1 0 0 0 1 0 1 1 0\n", 4, {6}},
      {"RECTILINEAR_GRID\nDIMENSIONS 3 1 1\nX_COORDINATES 3 float\n0 1 3\nY_COORDINATES 1 "
       "float\n0\n"
       "Z_COORDINATES 1 float\n0\n",
       3,
       {2, 2}},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.text);
    const Result<Deck> deck = ParseVtk(head + c.text, "other.vtk");
    ASSERT_TRUE(deck) << deck.AsOutcome().Line();
    EXPECT_EQ(deck->node_keys.size(), c.nodes);
    std::vector<std::int32_t> codes;
    for (const Mesh::Element& element : deck->elements) codes.push_back(element.type);
    EXPECT_EQ(codes, c.codes);
  }
  const Result<Deck> image = ParseVtk(head + cases[1].text, "other.vtk");
  EXPECT_EQ((std::vector<Key>(image->connectivity.begin(), image->connectivity.begin() + 8)),
            (std::vector<Key>{1, 2, 5, 4, 7, 8, 11, 10}));
  EXPECT_EQ(image->coordinates[3], 1.5);
}

// ---- faults -------------------------------------------------------------------------------------

TEST(VtkFaults, AreNamed) {
  const std::string good = SampleGrid({"ascii"});
  const auto with = [&](const std::string& from, const std::string& to) {
    std::string text = good;
    const std::size_t at = text.find(from);
    EXPECT_NE(at, std::string::npos) << from;
    return text.replace(at, from.size(), to);
  };
  struct Case {
    std::string text;
    const char* what;
  };
  // Entities that would grow to gigabytes if they were expanded.
  std::string bomb = "<!DOCTYPE x [<!ENTITY a \"aaaaaaaaaa\">";
  for (char c = 'b'; c < 'n'; ++c) {
    bomb += fmt::format("<!ENTITY {} \"&{};&{};&{};&{};&{};&{};&{};&{};\">", c, c - 1, c - 1, c - 1,
                        c - 1, c - 1, c - 1, c - 1, c - 1);
  }
  const Case cases[] = {
      {"", "is empty"},
      {"<a/>", "there is no VTKFile element"},
      {"<VTKFile", "line 1: this is no XML"},
      {with("type=\"UnstructuredGrid\"", "type=\"PolyData\""), "of type 'PolyData' is not read"},
      {with("LittleEndian", "Middle"), "byte order 'Middle'"},
      {with("UInt32\">", "UInt32\" compressor=\"vtkLZMADataCompressor\">"),
       "vtkLZMADataCompressor"},
      {with("NumberOfPoints=\"14\"", "NumberOfPoints=\"-1\""), "line 5, Piece: NumberOfPoints"},
      {with("NumberOfPoints=\"14\"", "NumberOfPoints=\"15\""),
       "\"Points\": it has 42 values of 45"},
      {with("NumberOfCells=\"2\"", "NumberOfCells=\"3\""), "\"types\": it has 2 values of 3"},
      {with("Int16", "Int128"), "numbers of type 'Int128' are not known"},
      {with(" -7\n", " -7x\n"), "\"mark\": '-7x' is no integer"},
      {with(" 8\n 14\n", " 8\n 15\n"), "\"connectivity\": it has 14 values of 15"},
      {with("12\n 13\n</DataArray>\n</Cells>", "12\n 12\n</DataArray>\n</Cells>"),
       "cell 1: a cell of type 12 cannot have 6 nodes"},
      {with(" 0.125\n", " nan\n"), "point 0: a coordinate is not a finite number"},
      {with(" 13\n</DataArray>\n<DataArray type=\"Int32\"",
            " 99\n</DataArray>\n<DataArray type=\"Int32\""),
       "cell 1: it names a point that is none of the 14"},
      {with("<?xml version=\"1.0\"?>", bomb + "]>"), ""},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.what);
    const Result<Deck> deck = ParseVtu(c.text, "wrong.vtu");
    const std::string line = deck.AsOutcome().Line();
    EXPECT_NE(line.find(c.what), std::string::npos) << line;
    EXPECT_EQ(static_cast<bool>(deck), *c.what == 0) << line;
  }
  const std::string legacy = "# vtk DataFile Version 3.0\nx\nASCII\nDATASET ";
  const Case legacy_cases[] = {
      {"# vtk DataFile Version 9.0\nx\nASCII\n", "version '9.0' is not read"},
      {"# vtk DataFile Version 3.0\nx\nBINAIRE\n", "neither ASCII nor BINARY"},
      {legacy + "TABLE\n", "line 4: a data set of type 'TABLE' is not read"},
      {legacy + "UNSTRUCTURED_GRID\nPOINTS 99999999 float\n0 0 0\n", "the file ends before"},
      {legacy + "UNSTRUCTURED_GRID\nPOINTS 1 float\n0 0 x\n", "line 6: 'x' is no number"},
      {legacy + "UNSTRUCTURED_GRID\nPOINTS 1 float\n0 0 0\nCELLS 1 2\n2 0\n", "cell 0 has more"},
      {legacy + "STRUCTURED_POINTS\nDIMENSIONS 9999999 9999999 9\n", "too short for so many"},
      {legacy + "UNSTRUCTURED_GRID\nPOINTS 1 float\n0 0 0\nPOINT_DATA 2\n", "2 points of 1"},
      {legacy + "UNSTRUCTURED_GRID\nNONSENSE\n", "'NONSENSE' is not known here"},
      {"# vtk DataFile Version 3.0\nx\nBINARY\nDATASET POLYDATA\nPOINTS 1 float\n" +
           std::string(11, '\0'),
       "the file ends before 3 values"},  // one byte short
  };
  for (const Case& c : legacy_cases) {
    const std::string line = ParseVtk(c.text, "wrong.vtk").AsOutcome().Line();
    EXPECT_NE(line.find(c.what), std::string::npos) << line;
  }
}

/// A row of quadrilaterals, in which the cells that `wrong` tells name a point that is not there
/// and the words that it tells stand for numbers.
std::string LegacyRow(int cells, const std::set<int>& bad_cells, const std::set<int>& bad_points) {
  std::string text = "# vtk DataFile Version 3.0\nx\nASCII\nDATASET UNSTRUCTURED_GRID\n";
  text += fmt::format("POINTS {} double\n", 2 * cells + 2);
  for (int i = 0; i < 2 * cells + 2; ++i) {
    text += fmt::format("{} {} {}\n", i / 2, i % 2, bad_points.contains(i) ? "O" : "0");
  }
  text += fmt::format("CELLS {} {}\n", cells, 5 * cells);
  for (int i = 0; i < cells; ++i) {
    text += fmt::format("4 {} {} {} {}\n", 2 * i, 2 * i + 2, bad_cells.contains(i) ? -1 : 2 * i + 3,
                        2 * i + 1);
  }
  text += fmt::format("CELL_TYPES {}\n", cells);
  for (int i = 0; i < cells; ++i) text += "9\n";
  return text;
}

std::string Places(const std::vector<Failure>& faults) {
  std::string places;
  for (const Failure& fault : faults) places += fault.place + '\n';
  return places;
}

TEST(VtkFaults, AllAreTold) {
  std::set<int> forty;
  std::string cells, lines;
  for (int i = 3; i < 43; ++i) {
    forty.insert(i);
    cells += fmt::format("cell {}\n", i);
    lines += fmt::format("line {}\n", 6 + i);
  }
  std::vector<Failure> faults;
  EXPECT_FALSE(ParseVtk(LegacyRow(60, forty, {}), "a.vtk", {}, &faults));
  EXPECT_EQ(Places(faults), cells);
  faults.clear();
  EXPECT_FALSE(ParseVtk(LegacyRow(60, {}, forty), "a.vtk", {}, &faults));
  EXPECT_EQ(Places(faults), lines);
  faults.clear();
  std::set<int> many;
  for (int i = 0; i < 200; ++i) many.insert(i);
  EXPECT_FALSE(ParseVtk(LegacyRow(200, many, {}), "a.vtk", {}, &faults));
  EXPECT_EQ(faults.size(), LossReport::kMostFaults);

  // Of several arrays of an XML file, each word with its own line.
  std::string grid = SampleGrid({"ascii"});
  const auto replace = [&](std::string_view from, std::string_view to) {
    const std::size_t at = grid.find(from);
    ASSERT_NE(at, std::string::npos) << from;
    grid.replace(at, from.size(), to);
  };
  replace(" 0.125\n", " O.125\n");
  replace(" -7\n", " seven\n");
  faults.clear();
  EXPECT_FALSE(ParseVtu(grid, "a.vtu", &faults));
  std::string told;
  for (const Failure& fault : faults) told += fault.Line() + '\n';
  for (const char* what : {"\"Points\": 'O.125' is no number", "'seven' is no integer"}) {
    EXPECT_NE(told.find(what), std::string::npos) << told;
  }
  EXPECT_EQ(faults.size(), 2u) << told;
  const auto line_of = [&](std::string_view word) {
    return fmt::format(
        "line {}", std::count(grid.begin(),
                              grid.begin() + static_cast<std::ptrdiff_t>(grid.find(word)), '\n') +
                       1);
  };
  EXPECT_NE(told.find(line_of("O.125")), std::string::npos) << told;
}

TEST(VtkFaults, ABombIsRefusedBeforeItUnfolds) {
  // A million blocks, each of a megabyte of zeros, all of them the same few bytes.
  const VtuFormOfTest form{"raw", "vtkZLibDataCompressor"};
  std::string zeros(1 << 20, '\0');
  std::string packed(1 << 16, '\0');
  uLongf size = packed.size();
  compress(reinterpret_cast<Bytef*>(packed.data()), &size,
           reinterpret_cast<const Bytef*>(zeros.data()), zeros.size());
  packed.resize(size);
  std::vector<std::uint64_t> header{2000, zeros.size(), 0};
  header.insert(header.end(), 2000, size);
  std::string appended = Header(form, header);
  for (int i = 0; i < 2000; ++i) appended += packed;
  const std::string text =
      "<VTKFile type=\"UnstructuredGrid\" byte_order=\"LittleEndian\" "
      "compressor=\"vtkZLibDataCompressor\"><UnstructuredGrid><Piece NumberOfPoints=\"0\" "
      "NumberOfCells=\"2097152000\"><Cells><DataArray type=\"UInt8\" Name=\"types\" "
      "format=\"appended\" offset=\"0\"/></Cells></Piece></UnstructuredGrid>"
      "<AppendedData encoding=\"raw\">_" +
      appended;
  const std::string line = ParseVtu(text, "bomb.vtu").AsOutcome().Line();
  EXPECT_NE(line.find("unpacks to more than 256 times its size"), std::string::npos) << line;
}

// ---- through a model ----------------------------------------------------------------------------

/// The keys, names, members and tags of a deck's sets, and its fields, as text.
std::string SetsAndFields(const Deck& deck) {
  std::string text;
  for (const Mesh::Group& group : deck.groups) {
    text += fmt::format("set {} {} {} {} {:x}:", group.key, group.name, group.parent,
                        group.elements.size(), group.color);
    std::vector<Key> members = group.elements;
    std::sort(members.begin(), members.end());
    for (const Key key : members) text += fmt::format(" {}", key);
    std::vector<Key> nodes = group.nodes;
    std::sort(nodes.begin(), nodes.end());
    for (const Key key : nodes) text += fmt::format(" n{}", key);
    for (const Mesh::SetTag& tag : group.tags) {
      text += fmt::format(" tag {} {} {} {} {}", tag.kind, tag.dimension, tag.tag, tag.named,
                          tag.sides.size());
      for (const auto& [element, side] : tag.sides) text += fmt::format(" {}/{}", element, side);
    }
    text += '\n';
  }
  for (const tagTField& field : deck.Of<tagTField>()) {
    text += fmt::format("field {} {} {} {} {} {}:", Utf8(field.name.View()), field.place,
                        +field.components, +field.step, +field.time, +field.category);
    std::map<ITR, std::string> values;  // whatever the order of their targets in the file
    for (const auto& v : field.node_values) values[v.target] += fmt::format(" {}", +v.value);
    for (const auto& v : field.element_values) values[v.target] += fmt::format(" {}", +v.value);
    for (const auto& [target, of_target] : values) text += fmt::format(" @{}", target) + of_target;
    text += '\n';
  }
  return text;
}

class VtkCorpusRound : public testing::TestWithParam<const char*> {
 protected:
  void Import(CQXDBSession& session, const std::string& path) {
    ImportOptions options;
    options.set_model_units = true;
    LossReport report;
    ASSERT_EQ(ImportFile(session, path, options, report).Line(), "");
    EXPECT_EQ(session.Validate(), "");
  }
  const ScratchFolder folder_;
};
INSTANTIATE_TEST_SUITE_P(
    All, VtkCorpusRound,
    testing::Values("vtk/AngularSector.vtk", "vtk/QuadraticPyramid.vtu", "vtk/QuadraticTetra.vtu",
                    "vtk/QuadraticWedge.vtu", "vtk/beam_w14.vtk", "vtk/box_hybrid_mesh.vtu",
                    "vtk/celldata_appended_binary_compressed.vtu", "vtk/post.vtk",
                    "vtk/qualityEx.vtk", "vtk/made/AngularSector.pvtu",
                    "vtk/made/AngularSector_lz4.vtu", "gmsh/adapter.msh", "gmsh/compass.msh",
                    "gmsh/box.msh", "gmsh/shelf.msh", "gmsh/lshaped_2.msh", "gmsh/unit_cell.msh",
                    "exodus/four-sidesets.e", "exodus/2block1.g", "exodus/brick.e"),
    [](const auto& test) { return sample::TestName(test.param); });

TEST_P(VtkCorpusRound, IsAFixedPointInEveryForm) {
  QX_REQUIRE_CORPUS(path, GetParam());
  if (!FormatToRead(path)) GTEST_SKIP() << "this build does not read " << path;
  CQXDBSession session(host::SetUpModel);
  Import(session, path);
  const Deck before = DeckOf(session);
  constexpr const char* kForms[][2] = {
      {"raw", "none"}, {"raw", "zlib"}, {"base64", "lz4"}, {"inline", "zlib"}, {"ascii", "none"}};
  for (const auto& [encoding, compression] : kForms) {
    SCOPED_TRACE(std::string(encoding) + " " + compression);
    ExportOptions options;
    options.write.values = {{"encoding", encoding}, {"compression", compression}};
    LossReport out;
    ASSERT_EQ(ExportFile(session, folder_.Path("once.vtu"), options, out).Line(), "");
    CQXDBSession again(host::SetUpModel);
    Import(again, folder_.Path("once.vtu"));
    const Deck after = DeckOf(again);
    EXPECT_EQ(after.node_keys, before.node_keys);
    EXPECT_EQ(after.coordinates, before.coordinates);
    EXPECT_EQ(after.elements, before.elements);
    EXPECT_EQ(after.connectivity, before.connectivity);
    EXPECT_TRUE(SetsAndFields(after) == SetsAndFields(before));
    LossReport none;
    ASSERT_EQ(ExportFile(again, folder_.Path("twice.vtu"), options, none).Line(), "");
    EXPECT_TRUE(*ReadWholeFile(folder_.Path("once.vtu")) ==
                *ReadWholeFile(folder_.Path("twice.vtu")));
  }
}

TEST(VtkCorpus, CompressedAndPlainFilesLoadAlike) {
  QX_REQUIRE_CORPUS(packed, "vtk/celldata_appended_binary_compressed.vtu");
  QX_REQUIRE_CORPUS(plain, "vtk/celldata_appended_binary_uncompressed.vtu");
  std::vector<Failure> faults;
  const Result<Deck> a = ReadVtu(packed, {}, faults);
  const Result<Deck> b = ReadVtu(plain, {}, faults);
  ASSERT_TRUE(a && b);
  EXPECT_EQ(a->coordinates, b->coordinates);
  EXPECT_EQ(a->connectivity, b->connectivity);
  EXPECT_TRUE(SetsAndFields(*a) == SetsAndFields(*b));
}

// ---- pieces -------------------------------------------------------------------------------------

TEST(VtkPieces, SharedPointsStayApartOrAreMergedAsChosen) {
  VtuText text({"ascii"});
  const auto piece = [&](double x, const std::vector<std::uint8_t>& ghosts) {
    const std::vector<double> points{x, 0, 0, x + 1, 0, 0, x + 1, 0, 0, x + 2, 0, 0};
    return "<Piece NumberOfPoints=\"4\" NumberOfCells=\"2\"><CellData>" +
           text.Array<std::uint8_t>("UInt8", "vtkGhostType", 1, ghosts) + "</CellData><Points>" +
           text.Array<double>("Float64", "Points", 3, points) + "</Points><Cells>" +
           text.Array<int>("Int32", "connectivity", 1, {0, 1, 2, 3}) +
           text.Array<int>("Int32", "offsets", 1, {2, 4}) +
           text.Array<std::uint8_t>("UInt8", "types", 1, {3, 3}) + "</Cells></Piece>\n";
  };
  // Both have a crack in the middle; they meet at x = 2. The ghost is the other's.
  const std::string file = text.File(piece(0, {0, 0}) + piece(2, {1, 0}));
  const ScratchFolder folder;
  const std::string path = folder.Path("two.vtu");
  ASSERT_TRUE(WriteWholeFile(path, file));
  for (const char* choice : {"separate", "merged"}) {
    ReadOptions options;
    options.values["points"] = choice;
    std::vector<Failure> faults;
    const Result<Deck> deck = ReadVtu(path, options, faults);
    ASSERT_TRUE(deck) << deck.AsOutcome().Line();
    const bool merged = choice[0] == 'm';
    EXPECT_EQ(deck->node_keys.size(), merged ? 7u : 8u);
    EXPECT_EQ(deck->elements.size(), 3u);
    const std::vector<std::string> lines = Briefly(deck->report);
    ASSERT_EQ(lines.size(), 3u);
    EXPECT_NE(lines[0].find("ghost cells"), std::string::npos);
    EXPECT_NE(lines[1].find(merged ? "are one node" : "stayed apart"), std::string::npos);
    EXPECT_NE(lines[2].find("nodes that belong to no element that was read"), std::string::npos);
  }
}

TEST(VtkPieces, StayBelowTheFileUnlessTrusted) {
  const ScratchFolder folder;
  const std::string sub = folder.Path("sub");
  std::filesystem::create_directory(sub);
  ASSERT_TRUE(WriteWholeFile(folder.Path("far.vtu"), SampleGrid({"ascii"})));
  ASSERT_TRUE(WriteWholeFile(sub + "/near.vtu", SampleGrid({"raw"})));
  const auto line = [&](const std::string& source, std::vector<std::string> folders = {}) {
    EXPECT_TRUE(WriteWholeFile(sub + "/all.pvtu",
                               "<VTKFile type=\"PUnstructuredGrid\"><PUnstructuredGrid>"
                               "<Piece Source=\"" +
                                   source + "\"/></PUnstructuredGrid></VTKFile>"));
    ReadOptions options;
    options.include_dirs = std::move(folders);
    std::vector<Failure> faults;
    const Result<Deck> deck = ReadVtu(sub + "/all.pvtu", options, faults);
    return deck ? std::to_string(deck->elements.size()) : deck.Error().Line();
  };
  EXPECT_EQ(line("near.vtu"), "2");
  EXPECT_EQ(line(".\\near.vtu"), "2");
  EXPECT_NE(line("../far.vtu").find("is not below the file's folder"), std::string::npos);
  EXPECT_EQ(line("../far.vtu", {folder.Path()}), "2");
  EXPECT_NE(line("gone.vtu").find("piece 'gone.vtu' is not there"), std::string::npos);
  EXPECT_NE(line("all.pvtu").find("a piece is no unstructured grid"), std::string::npos);
}

}  // namespace
}  // namespace qx::exchange
