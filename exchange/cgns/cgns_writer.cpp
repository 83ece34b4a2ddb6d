#include "exchange/cgns/cgns_writer.h"

#include <array>
#include <fmt/format.h>

#include "qx_db/record/element_types.h"

#include "exchange/cgns/cgns_kinds.h"
#include "exchange/cgns/cgns_model.h"
#include "exchange/cgns/cgns_reader.h"
#include "exchange/hdf5/h5_writer.h"
#include "exchange/node_orders.h"

namespace qx::exchange {
namespace {

using Lengths = H5Writer::Lengths;

class CgnsFile {
 public:
  CgnsFile(const CgnsModel& model, const CQXDBSession& session, H5Writer& out,
           const Progress& progress)
      : model_(model), session_(session), out_(out), progress_(progress) {}

  void Write() {
    WriteRoot();
    WriteBase();
    Tell(0.4);
    WriteZone();
    Tell(0.95);
  }

 private:
  void Tell(double done) const {
    if (progress_) progress_(done);
  }

  // ---- nodes of a file: see cgns_tree.h -------------------------------------------------------

  void Describe(const std::string& path, const std::string& name, const char* label,
                const char* type) {
    out_.Text(path, "name", name, 33);
    out_.Text(path, "label", label, 33);
    out_.Text(path, "type", type, 3);
    out_.IntegerInArray(path, "flags", 1);
  }
  /// A node below another; its path.
  std::string Node(const std::string& above, const std::string& name, const char* label,
                   const char* type = "MT") {
    std::string path = above + "/" + name;
    out_.Group(path);
    Describe(path, name, label, type);
    return path;
  }
  std::string Node(const std::string& above, const std::string& name, const char* label,
                   std::span<const std::int32_t> values, Lengths lengths = {}) {
    std::string path = Node(above, name, label, "I4");
    out_.Put(path + "/ data", values, lengths);
    return path;
  }
  std::string Node(const std::string& above, const std::string& name, const char* label,
                   std::string_view text) {
    std::string path = Node(above, name, label, "C1");
    out_.Put(path + "/ data", text);
    return path;
  }
  void Reals(const std::string& above, const std::string& name, std::span<const double> values) {
    out_.Put(Node(above, name, "DataArray_t", "R8") + "/ data", values);
  }

  // ---------------------------------------------------------------------------------------------

  void WriteRoot() {
    const std::string version = Node("", "CGNSLibraryVersion", "CGNSLibraryVersion_t", "R4");
    constexpr float kVersion[] = {3.4f};  // every later one reads it
    out_.Put(version + "/ data", kVersion);
    Describe("/", "HDF5 MotherNode", "Root Node of HDF5 File", "MT");
    out_.Put("/ format", std::string_view("IEEE_LITTLE_32\0", 15));
    std::string library = "HDF5 Version 1.8";
    library.resize(33);
    out_.Put("/ hdf5version", library);
  }

  void WriteBase() {
    const std::array<std::int32_t, 2> dimensions{model_.CellDimension(), 3};
    base_ = Node("", "Base", "CGNSBase_t", dimensions);
    const UnitSystem& units = session_.Units().Current();
    std::string names;
    for (int i = 0; i < kUnitBaseCount; ++i) {
      const auto base = static_cast<UnitBase>(i);
      names += (i > 0 ? "," : "") + std::string(UnitName(base, units));
    }
    const std::string own = Node(base_, kCgnsOwn, "UserDefinedData_t");
    Node(own, "Units", "Descriptor_t", names);
    Node(base_, "DataClass", "DataClass_t", std::string_view("Dimensional"));
    std::string text;
    for (const UnitBase base : {UnitBase::kMass, UnitBase::kLength, UnitBase::kTime,
                                UnitBase::kTemperature, UnitBase::kAngle}) {
      text += CgnsUnitOf(base, UnitName(base, units));
      text.resize((text.size() + 31) / 32 * 32, ' ');
    }
    constexpr std::uint64_t kLengths[] = {5, 32};
    out_.Put(Node(base_, "DimensionalUnits", "DimensionalUnits_t", "C1") + "/ data", text,
             kLengths);
    for (const CgnsModel::Set& family : model_.Families()) {
      const std::string path = Node(base_, family.name, "Family_t");
      WriteName(path, family);
      if (family.type != 0) {
        Node(path, "FamilyBC", "FamilyBC_t",
             CgnsConditions()[static_cast<std::size_t>(family.type)]);
      }
    }
  }

  static std::string_view UnitName(UnitBase base, const UnitSystem& units) {
    return UnitsOf(base)[static_cast<std::size_t>(units[base])].name;
  }

  void WriteName(const std::string& path, const CgnsModel::Named& named) {
    if (named.name != named.full) Node(path, "FullName", "Descriptor_t", named.full);
    if (!named.family.empty()) Node(path, "FamilyName", "FamilyName_t", named.family);
  }

  void WriteZone() {
    const Deck& mesh = model_.Source();
    const std::size_t nodes = mesh.node_keys.size();
    std::int32_t cells = 0;
    for (const CgnsModel::Section& section : model_.Sections()) {
      if (FindElementType(section.code)->dimension != model_.CellDimension()) continue;
      cells += static_cast<std::int32_t>(section.elements.size());
    }
    const std::array<std::int32_t, 3> sizes{static_cast<std::int32_t>(nodes), cells, 0};
    constexpr std::uint64_t kSizes[] = {3, 1};
    const std::string zone = Node(base_, kCgnsZone, "Zone_t", sizes, kSizes);
    Node(zone, "ZoneType", "ZoneType_t", std::string_view("Unstructured"));
    const std::string grid = Node(zone, "GridCoordinates", "GridCoordinates_t");
    std::vector<double> axis(nodes);
    for (std::size_t d = 0; d < 3 && nodes > 0; ++d) {
      for (std::size_t i = 0; i < nodes; ++i) axis[i] = mesh.coordinates[3 * i + d];
      Reals(grid, fmt::format("Coordinate{}", "XYZ"[d]), axis);
    }
    Tell(0.5);
    std::vector<std::int32_t> keys;
    std::vector<std::int32_t> are_sets;
    for (const CgnsModel::Section& section : model_.Sections()) {
      WriteSection(zone, section, static_cast<std::int32_t>(keys.size()) + 1);
      are_sets.push_back(section.is_set);
      for (const std::size_t i : section.elements) keys.push_back(mesh.elements[i].key);
      Tell(0.5 +
           0.4 * static_cast<double>(keys.size()) / static_cast<double>(mesh.elements.size() + 1));
    }
    const std::string own = Node(zone, kCgnsOwn, "UserDefinedData_t");
    const auto numbers = [&](const char* name, const std::vector<std::int32_t>& values,
                             bool is_needed) {
      if (is_needed && !values.empty()) Node(own, name, "DataArray_t", values);
    };
    const auto counts_up = [](const auto& all) {
      for (std::size_t i = 0; i < all.size(); ++i) {
        if (all[i] != static_cast<std::int32_t>(i + 1)) return false;
      }
      return true;
    };
    numbers("NodeNumbers", mesh.node_keys, !counts_up(mesh.node_keys));
    numbers("ElementNumbers", keys, !counts_up(keys));
    numbers("SetSections", are_sets, true);
    WriteSets(zone);
    WriteSolutions(zone);
  }

  void WriteSolutions(const std::string& zone) {
    const CgnsSolutions& solutions = model_.Solutions();
    for (const CgnsSolution& solution : solutions.all) {
      const std::string path = Node(zone, solution.name, "FlowSolution_t");
      if (!solution.points.empty()) {
        const std::uint64_t lengths[] = {solution.points.size(), 1};
        Node(path, "PointList", "IndexArray_t", solution.points, lengths);
      }
      Node(path, "GridLocation", "GridLocation_t",
           std::string_view(solution.is_of_nodes ? "Vertex" : "CellCenter"));
      for (const CgnsSolution::Array& array : solution.arrays) {
        const FieldTable& table = solutions.tables[array.table];
        const std::span<const double> values(table.Column(array.component), table.targets.size());
        std::string node = path + "/" + array.name;
        if (array.is_whole) {
          const std::vector<std::int32_t> whole(values.begin(), values.end());
          Node(path, array.name, "DataArray_t", whole);
        } else {
          Reals(path, array.name, values);
        }
        if (array.name != array.full) Node(node, "FullName", "Descriptor_t", array.full);
      }
    }
    if (!solutions.steps.empty()) WriteSteps(zone, solutions);
  }

  void WriteSteps(const std::string& zone, const CgnsSolutions& solutions) {
    std::vector<double> times;
    std::vector<std::int32_t> numbers;
    for (const auto& [number, time] : solutions.steps) {
      numbers.push_back(number);
      times.push_back(time);
    }
    const std::array<std::int32_t, 1> count{static_cast<std::int32_t>(times.size())};
    const std::string base = Node(base_, "BaseIterativeData", "BaseIterativeData_t", count);
    Reals(base, "TimeValues", times);
    Node(base, "IterationValues", "DataArray_t", numbers);
    // A list has one solution a step: as many as a step has at most.
    constexpr std::size_t kWidth = 32;
    std::string none = "Null";
    none.resize(kWidth, ' ');
    std::vector<std::string> lists;
    std::vector<std::size_t> used(times.size());  // of each step
    for (const CgnsSolution& solution : solutions.all) {
      if (solution.step == 0) continue;
      const std::size_t at = solution.step - 1;
      if (used[at] == lists.size()) {
        lists.emplace_back();
        for (std::size_t i = 0; i < times.size(); ++i) lists.back() += none;
      }
      std::string name = solution.name;
      name.resize(kWidth, ' ');
      lists[used[at]++].replace(at * kWidth, kWidth, name);
    }
    const std::string of_zone = Node(zone, "ZoneIterativeData", "ZoneIterativeData_t");
    const std::uint64_t lengths[] = {times.size(), kWidth};
    for (std::size_t i = 0; i < lists.size(); ++i) {
      const std::string name =
          i == 0 ? "FlowSolutionPointers" : fmt::format("FlowSolutionPointers{}", i + 1);
      out_.Put(Node(of_zone, name, "DataArray_t", "C1") + "/ data", lists[i], lengths);
    }
  }

  void WriteSection(const std::string& zone, const CgnsModel::Section& section,
                    std::int32_t first) {
    const std::array<std::int32_t, 2> type{CgnsNumberOf(section.code), 0};
    const std::string path = Node(zone, section.name, "Elements_t", type);
    WriteName(path, section);
    const auto count = static_cast<std::int32_t>(section.elements.size());
    const std::array<std::int32_t, 2> range{first, first + count - 1};
    Node(path, "ElementRange", "IndexRange_t", range);
    const Deck& mesh = model_.Source();
    const std::int8_t* const order = UprightOrderOf(section.code);
    const auto width = static_cast<std::size_t>(FindElementType(section.code)->nodes);
    std::vector<std::int32_t> connectivity;
    connectivity.reserve(section.elements.size() * width);
    for (const std::size_t i : section.elements) {
      const Key* const nodes = mesh.connectivity.data() + mesh.elements[i].first;
      for (std::size_t k = 0; k < width; ++k) {
        connectivity.push_back(
            model_.NodeNumber(nodes[order ? static_cast<std::size_t>(order[k]) : k]));
      }
    }
    Node(path, "ElementConnectivity", "DataArray_t", connectivity);
  }

  void WriteList(const std::string& path, const CgnsModel::Set& set) {
    const std::uint64_t lengths[] = {set.members.size(), 1};
    Node(path, "PointList", "IndexArray_t", set.members, lengths);
    Node(path, "GridLocation", "GridLocation_t", set.location);
    WriteName(path, set);
  }

  void WriteSets(const std::string& zone) {
    if (!model_.Conditions().empty()) {
      const std::string all = Node(zone, "ZoneBC", "ZoneBC_t");
      for (const CgnsModel::Set& set : model_.Conditions()) {
        WriteList(Node(all, set.name, "BC_t", CgnsConditions()[static_cast<std::size_t>(set.type)]),
                  set);
      }
    }
    for (const CgnsModel::Set& set : model_.Regions()) {
      const std::array<std::int32_t, 1> dimension{std::max(set.dimension, 1)};
      WriteList(Node(zone, set.name, "ZoneSubRegion_t", dimension), set);
    }
  }

  const CgnsModel& model_;
  const CQXDBSession& session_;
  H5Writer& out_;
  const Progress& progress_;
  std::string base_;
};

}  // namespace

Outcome WriteCgns(CQXDBSession& session, const std::string& path, const WriteOptions& options,
                  LossReport& report) {
  if (Outcome fits = CheckCanBeWritten(session, path); !fits) return fits;
  LossReport found;
  const CgnsModel model(session, found, ShareOf(options.progress, 0, 0.3));
  if (options.progress) options.progress(0.3);
  const auto write = [&](H5Writer& out) {
    CgnsFile(model, session, out, options.progress).Write();
  };
  if (Outcome written = WriteHdf5(path, write); !written) return written;
  report.Append(found);
  if (options.progress) options.progress(1.0);
  return {};
}

}  // namespace qx::exchange
