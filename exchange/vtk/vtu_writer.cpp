#include "exchange/vtk/vtu_writer.h"

#include <algorithm>
#include <fmt/format.h>
#include <map>
#include <set>

#include "qx_db/model/mesh_set_pool.h"
#include "qx_db/record/element_types.h"
#include "qx_db/record/verbs.h"

#include "exchange/mesh.h"
#include "exchange/vtk/vtu_file.h"

namespace qx::exchange {
namespace {

/// How VTK knows an element type: its cell type, and the place in our node list of each node of
/// VTK's; null for the same order.
struct VtkKind {
  std::uint8_t cell_type;
  const std::int8_t* order = nullptr;
};

// VTK's wedges have their first triangle facing outward, ours inward.
constexpr std::int8_t kWedge6Order[] = {0, 2, 1, 3, 5, 4};
constexpr std::int8_t kWedge15Order[] = {0, 2, 1, 3, 5, 4, 8, 7, 6, 11, 10, 9, 12, 14, 13};

// By element type code, from 1.
constexpr VtkKind kVtkKinds[] = {
    {1},  // point
    {3},
    {21},  // lines
    {5},
    {22},  // triangles
    {9},
    {23},  // quadrilaterals
    {10},
    {24},  // tetrahedra
    {14},
    {27},  // pyramids
    {13, kWedge6Order},
    {26, kWedge15Order},
    {12},
    {25},  // hexahedra
};

const VtkKind& KindOf(std::int32_t code) { return kVtkKinds[code - 1]; }

/// The nodes and elements of a model as points and cells.
class Grid {
 public:
  explicit Grid(const CQXDBSession& session)
      : nodes_(*session.GetPool<DPoolNode>(code::kNode)),
        elements_(*session.GetPool<DPoolElem>(code::kElem)),
        length_unit_(session.Units().GetConvertFactorCurrent(unit::kLength)) {
    std::uint32_t index = 0;
    for (ITR at = nodes_.GetHeadPosition(); at; nodes_.Next(at)) nodes_.SetParamIdx(at, index++);
    cells_.reserve(static_cast<std::size_t>(elements_.GetSize()));
    std::uint32_t position = 0;
    for (ITR at = elements_.GetHeadPosition(); at; elements_.Next(at), ++position) {
      AddCell(at, position);
    }
  }

  std::uint64_t Points() const { return static_cast<std::uint64_t>(nodes_.GetSize()); }
  std::uint64_t Cells() const { return cells_.size(); }

  DataArray Coordinates() const {
    return MakeArray<double>("Points", 3, Points() * 3, [this](ArraySink& sink) {
      for (ITR at = nodes_.GetHeadPosition(); at;) {
        const tagTVector3<double>& position = nodes_.GetNextNU(at).position;
        sink.Put(position.x / length_unit_);
        sink.Put(position.y / length_unit_);
        sink.Put(position.z / length_unit_);
      }
    });
  }
  DataArray NodeKeys() const {
    return MakeArray<std::int32_t>("node_key", 1, Points(), [this](ArraySink& sink) {
      for (ITR at = nodes_.GetHeadPosition(); at;) sink.Put(nodes_.GetNextNU(at).key);
    });
  }
  DataArray Connectivity() const {
    return MakeArray<std::int64_t>("connectivity", 1, connectivity_, [this](ArraySink& sink) {
      for (const Cell& cell : cells_) {
        const tagTElem& element = *cell.element;
        const std::int8_t* order = KindOf(element.type).order;
        for (std::int32_t i = 0; i < element.nodes.GetSize(); ++i) {
          const ITR node = element.nodes[order ? order[i] : i];
          sink.Put(std::int64_t{nodes_.GetParamIdx(node)});
        }
      }
    });
  }
  DataArray Offsets() const {
    return MakeArray<std::int64_t>("offsets", 1, Cells(), [this](ArraySink& sink) {
      std::int64_t end = 0;
      for (const Cell& cell : cells_) sink.Put(end += cell.element->nodes.GetSize());
    });
  }
  /// An array of one T a cell, which `value` gives for the element.
  template <class T, class F>
  DataArray OfElements(const char* name, F value) const {
    return MakeArray<T>(name, 1, Cells(), [this, value](ArraySink& sink) {
      for (const Cell& cell : cells_) sink.Put(static_cast<T>(value(*cell.element)));
    });
  }
  DataArray Members(std::string name, const TArray<ITR>& elements) const {
    return MakeArray<std::uint8_t>(std::move(name), 1, Cells(), [this, &elements](ArraySink& sink) {
      std::vector<std::uint8_t> is_member(cells_.size() + 1);  // the last for what is no cell
      for (const ITR element : elements) {
        if (element == 0 || KeyedSetBase::IsRemoved(element)) continue;
        is_member[std::min<std::size_t>(elements_.GetParamIdx(element), cells_.size())] = 1;
      }
      for (std::size_t i = 0; i < cells_.size(); ++i) sink.Put(is_member[i]);
    });
  }
  DataArray Values(std::string name, const std::vector<double>& values) const {
    return MakeArray<double>(std::move(name), 1, Cells(), [this, &values](ArraySink& sink) {
      for (const Cell& cell : cells_) sink.Put(values[cell.position]);
    });
  }

  void FillReport(LossReport& report) const {
    for (const auto& [type, count] : other_types_) {
      report.Lost(fmt::format("elements of type {} were left out", type),
                  static_cast<std::uint64_t>(count));
    }
    report.Lost("elements without all their nodes were left out",
                static_cast<std::uint64_t>(incomplete_));
  }

 private:
  struct Cell {
    const tagTElem* element;
    std::uint32_t position;  // in the pool's list
  };

  void AddCell(ITR at, std::uint32_t position) {
    elements_.SetParamIdx(at, KeyedSetBase::kParamMask);
    const tagTElem& element = elements_.GetAtNU(at);
    const ElementType* type = FindElementType(element.type);
    if (!type) {
      ++other_types_[element.type];
      return;
    }
    const auto missing = [](ITR node) { return node == 0 || KeyedSetBase::IsRemoved(node); };
    if (element.nodes.GetSize() != type->nodes ||
        std::any_of(element.nodes.begin(), element.nodes.end(), missing)) {
      ++incomplete_;
      return;
    }
    elements_.SetParamIdx(at, static_cast<std::uint32_t>(cells_.size()));
    cells_.push_back({&element, position});
    connectivity_ += static_cast<std::uint64_t>(type->nodes);
  }

  DPoolNode& nodes_;
  DPoolElem& elements_;
  double length_unit_;
  std::vector<Cell> cells_;
  std::uint64_t connectivity_ = 0;
  std::map<std::int32_t, std::uint64_t> other_types_;
  std::uint64_t incomplete_ = 0;
};

/// Names of arrays, which VTK tells apart by name only.
class ArrayNames {
 public:
  /// `name`, or where that is empty or taken the name with `tail` and, if need be, a number
  /// behind it.
  std::string Unique(const std::string& name, const std::string& tail) {
    const std::string longer = name.empty() ? tail : name + " " + tail;
    std::string unique = name;
    for (int number = 1; unique.empty() || !taken_.insert(unique).second; ++number) {
      unique = number == 1 ? longer : fmt::format("{} {}", longer, number);
    }
    return unique;
  }

 private:
  std::set<std::string> taken_{"element_key", "element_type", "property_key"};
};

std::vector<DataArray> CellArrays(const Grid& grid, const CQXDBSession& session,
                                  const std::vector<CellData>& extra) {
  std::vector<DataArray> arrays;
  arrays.push_back(
      grid.OfElements<std::int32_t>("element_key", [](const tagTElem& e) { return e.key; }));
  arrays.push_back(
      grid.OfElements<std::int32_t>("element_type", [](const tagTElem& e) { return e.type; }));
  arrays.push_back(grid.OfElements<std::int32_t>(
      "property_key", [](const tagTElem& e) { return KeyOf(e.property); }));
  ArrayNames names;
  const auto add_sets = [&](const auto* sets, ITR left_out) {
    for (ITR at = sets ? sets->GetHeadPosition() : 0; at; sets->Next(at)) {
      const auto& set = sets->GetAtNU(at);
      if (at == left_out && set.elements.IsEmpty()) continue;
      const std::string tail = fmt::format("(set {})", set.key);
      arrays.push_back(grid.Members(names.Unique(Utf8(set.name.View()), tail), set.elements));
    }
  };
  const auto* mesh_sets = session.GetPool<DPoolMset>(code::kMset);
  add_sets(mesh_sets, mesh_sets ? mesh_sets->DefaultItr() : 0);
  add_sets(session.GetPool<DPoolActiveElemSet>(code::kActiveElemSet), 0);
  for (const CellData& data : extra) {
    arrays.push_back(grid.Values(names.Unique(data.name, "(value)"), data.values));
  }
  return arrays;
}

Outcome CheckExtra(const std::vector<CellData>& extra, std::size_t elements,
                   const std::string& path) {
  for (const CellData& data : extra) {
    if (data.values.size() == elements) continue;
    return Failure{path, fmt::format("cell data \"{}\"", data.name),
                   fmt::format("there are {} values for {} elements", data.values.size(), elements),
                   "give one value an element"};
  }
  return {};
}

}  // namespace

Outcome WriteVtu(const CQXDBSession& session, const std::string& path, VtuEncoding encoding,
                 const std::vector<CellData>& extra, LossReport* report, const Progress& progress) {
  if (Outcome fits = CheckCanBeWritten(session, path); !fits) return fits;
  const auto element_count = static_cast<std::size_t>(session.GetDataPool(code::kElem)->GetSize());
  if (Outcome fits = CheckExtra(extra, element_count, path); !fits) return fits;

  const Grid grid(session);
  VtuContent content{grid.Points(), grid.Cells(), {}};
  content.sections.push_back({"PointData", {grid.NodeKeys()}});
  content.sections.push_back({"CellData", CellArrays(grid, session, extra)});
  content.sections.push_back({"Points", {grid.Coordinates()}});
  content.sections.push_back({"Cells",
                              {grid.Connectivity(), grid.Offsets(),
                               grid.OfElements<std::uint8_t>("types", [](const tagTElem& e) {
                                 return KindOf(e.type).cell_type;
                               })}});
  if (Outcome written = WriteVtuFile(content, path, encoding, progress); !written) return written;
  if (report) grid.FillReport(*report);
  return {};
}

}  // namespace qx::exchange
