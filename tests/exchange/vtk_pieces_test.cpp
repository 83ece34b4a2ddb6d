// Pieces of VTK files that are put together.

#include <algorithm>
#include <fmt/format.h>
#include <fmt/ranges.h>
#include <gtest/gtest.h>
#include <map>

#include "qx_db/platform/file.h"
#include "qx_db/qx_db.h"

#include "brief.h"
#include "exchange/vtk/vtu_reader.h"
#include "tests/scratch_folder.h"

namespace qx::exchange {
namespace {

std::string Array(const char* type, const std::string& attributes, const std::string& values) {
  return fmt::format("<DataArray type=\"{}\" {} format=\"ascii\">{}</DataArray>", type, attributes,
                     values);
}

/// A line from x to x + 1 with values at its points.
std::string Piece(int x, const std::map<std::string, std::string>& fields) {
  std::string data;
  for (const auto& [name, values] : fields) {
    data += Array("Float64", fmt::format("Name=\"{}\"", name), values);
  }
  return "<Piece NumberOfPoints=\"2\" NumberOfCells=\"1\"><PointData>" + data +
         "</PointData><Points>" +
         Array("Float64", "NumberOfComponents=\"3\"", fmt::format("{} 0 0 {} 0 0", x, x + 1)) +
         "</Points><Cells>" + Array("Int32", "Name=\"connectivity\"", "0 1") +
         Array("Int32", "Name=\"offsets\"", "2") + Array("UInt8", "Name=\"types\"", "3") +
         "</Cells></Piece>\n";
}

// A node has one value: that of the first piece that has one; it is told where others differ.
TEST(VtkPieces, ValuesOfSharedPointsAreThoseOfTheFirst) {
  const ScratchFolder folder;
  const std::string path = folder.Path("three.vtu");
  ASSERT_TRUE(WriteWholeFile(
      path, "<VTKFile type=\"UnstructuredGrid\" version=\"0.1\"><UnstructuredGrid>" +
                Piece(0, {{"t", "1 2"}}) + Piece(1, {{"t", "2 3"}, {"late", "20 30"}}) +
                Piece(2, {{"t", "4 5"}, {"late", "30 40"}}) + "</UnstructuredGrid></VTKFile>"));
  ReadOptions options;
  options.values["points"] = "merged";
  std::vector<Failure> faults;
  const Result<Deck> deck = ReadVtu(path, options, faults);
  ASSERT_TRUE(deck) << deck.AsOutcome().Line();
  ASSERT_EQ(deck->node_keys.size(), 4u);
  std::map<std::string, std::string> values;
  for (const tagTField& field : deck->Of<tagTField>()) {
    for (const auto& value : field.node_values) {
      values[Utf8(field.name.View())] += fmt::format("{}:{} ", ITR{value.target}, +value.value);
    }
  }
  EXPECT_EQ(values["t"], "1:1 2:2 3:3 4:5 ");
  EXPECT_EQ(values["late"], "2:20 3:30 4:40 ");
  const std::vector<std::string> lines = Briefly(deck->report);
  EXPECT_EQ(std::count(lines.begin(), lines.end(),
                       "values of one point that differ from piece to piece: 1"),
            1)
      << fmt::format("{}", fmt::join(lines, "\n"));
}

}  // namespace
}  // namespace qx::exchange
