#pragma once
// The nodes of a CGNS file, as its HDF5 container keeps them: a node is a group with its label and
// the type of its data as attributes; the data, if it has any, is the array " data" in it. Lengths
// of arrays stand there in reversed order. ("CGNS HDF5 file mapping".)

#include <algorithm>
#include <iterator>
#include <string>
#include <string_view>
#include <vector>

#include "exchange/hdf5/h5_reader.h"

namespace qx::exchange {

/// Name of the user-defined data of files of our own, with arrays of numbers.
inline constexpr const char* kCgnsOwn = "QX_db";

/// Whether nodes of a label are read, or say nothing of the mesh.
inline bool IsReadOfCgns(std::string_view label) {
  static constexpr std::string_view kKnown[] = {
      "Zone_t",
      "Family_t",
      "DataClass_t",
      "DimensionalUnits_t",
      "Elements_t",
      "ZoneType_t",
      "GridCoordinates_t",
      "ZoneBC_t",
      "FamilyName_t",
      "ZoneSubRegion_t",
      "FlowSolution_t",
      "BaseIterativeData_t",
      "ZoneIterativeData_t",
      "Descriptor_t",
      "Ordinal_t",
      "\"int[IndexDimension]\"",
      "",
  };
  return std::find(std::begin(kKnown), std::end(kKnown), label) != std::end(kKnown);
}

class CgnsTree {
 public:
  explicit CgnsTree(H5Reader& file) : file_(file) {}

  H5Reader& File() { return file_; }

  std::string LabelOf(const std::string& node) const {
    return file_.TextAttribute(node, "label").value_or("");
  }
  /// Names of the nodes below one, in order, with their labels.
  struct Child {
    std::string name;
    std::string label;
    std::string path;
  };
  std::vector<Child> Children(const std::string& node) {
    std::vector<Child> children;
    for (std::string& name : file_.Children(node)) {
      if (name.starts_with(' ')) continue;
      std::string path = (node == "/" ? "" : node) + "/" + name;
      std::string label = LabelOf(path);
      children.push_back({std::move(name), std::move(label), std::move(path)});
    }
    return children;
  }
  /// The path of a node below one; "" where there is none.
  std::string Find(const std::string& node, const std::string& name) const {
    std::string path = node + "/" + name;
    return file_.IsGroup(path) ? path : std::string();
  }

  bool HasData(const std::string& node) const { return file_.Has(Data(node)); }
  static std::string Data(const std::string& node) { return node + "/ data"; }
  /// The whole text of a node without what pads it; "" where it has none.
  std::string TextOf(const std::string& node) {
    if (node.empty() || file_.KindOf(Data(node)) != H5Reader::Kind::kText) return {};
    std::string text = file_.Bytes(Data(node));
    text.resize(std::min(text.find('\0'), text.size()));
    text.resize(text.find_last_not_of(' ') + 1);
    return text;
  }
  std::vector<std::int64_t> IntegersOf(const std::string& node,
                                       std::uint64_t count = H5Reader::kAny) {
    return file_.Integers(Data(node), count);
  }
  /// How many rows of rind (ghost) points or elements lie around those that count.
  std::uint64_t RindOf(const std::string& node) {
    const std::string rind = Find(node, "Rind");
    std::uint64_t rows = 0;
    if (rind.empty()) return rows;
    for (const std::int64_t n : IntegersOf(rind)) rows += n > 0 ? static_cast<std::uint64_t>(n) : 0;
    return rows;
  }

 private:
  H5Reader& file_;
};

}  // namespace qx::exchange
