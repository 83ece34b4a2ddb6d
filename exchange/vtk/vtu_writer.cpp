#include "exchange/vtk/vtu_writer.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <fmt/format.h>
#include <limits>
#include <map>
#include <set>
#include <span>

#include "qx_db/model/mesh_set_pool.h"
#include "qx_db/model/set_rules.h"
#include "qx_db/pool/record_units.h"
#include "qx_db/record/element_types.h"
#include "qx_db/record/verbs.h"

#include "exchange/deck.h"
#include "exchange/room.h"
#include "exchange/vtk/vtk_kinds.h"
#include "exchange/vtk/vtu_file.h"
#include "host/records.h"

namespace qx::exchange {
namespace {

/// Codes of elements that can be written are below.
constexpr std::size_t kOurTypes = 16;

bool IsMissing(ITR itr) { return itr == 0 || KeyedSetBase::IsRemoved(itr); }

/// The nodes and elements of a model as points and cells. What the arrays are made of is gathered
/// in one walk over the model, whose records lie far apart.
class Grid {
 public:
  explicit Grid(const CQXDBSession& session)
      : nodes_(*session.GetPool<DPoolNode>(code::kNode)),
        elements_(*session.GetPool<DPoolElem>(code::kElem)),
        length_unit_(session.Units().GetConvertFactorCurrent(unit::kLength)) {
    MakeRoom(node_keys_, static_cast<std::size_t>(nodes_.GetSize()));
    for (ITR next = nodes_.GetHeadPosition(); next;) {
      const ITR at = next;
      nodes_.SetParamIdx(at, static_cast<std::uint32_t>(node_keys_.size()));
      node_keys_.push_back(nodes_.GetNextNU(next).key);
    }
    const auto elements = static_cast<std::size_t>(elements_.GetSize());
    MakeRoom(element_keys_, elements);
    MakeRoom(types_, elements);
    MakeRoom(properties_, elements);
    MakeRoom(connectivity_, 8 * elements);  // as many as hexahedra have
    std::uint32_t position = 0;
    for (ITR next = elements_.GetHeadPosition(); next; ++position) {
      const ITR at = next;
      AddCell(at, elements_.GetNextNU(next), position);
    }
  }

  std::uint64_t Points() const { return node_keys_.size(); }
  std::uint64_t Cells() const { return types_.size(); }

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
  DataArray NodeKeys() const { return All("node_key", node_keys_); }
  DataArray ElementKeys() const { return All("element_key", element_keys_); }
  DataArray ElementTypes() const {
    return OfTypes<std::int32_t>("element_type", [](std::uint8_t type) { return type; });
  }
  DataArray PropertyKeys() const { return All("property_key", properties_); }
  /// In 32 bits where they have room: half the bytes, and every reader knows both.
  DataArray Connectivity() const {
    if (connectivity_.size() <= kMost32) return All("connectivity", connectivity_);
    return MakeArray<std::int64_t>("connectivity", 1, connectivity_.size(),
                                   [this](ArraySink& sink) {
                                     for (const std::int32_t node : connectivity_)
                                       sink.Put(std::int64_t{node});
                                   });
  }
  DataArray Offsets() const {
    if (connectivity_.size() <= kMost32) return OffsetsAs<std::int32_t>();
    return OffsetsAs<std::int64_t>();
  }
  DataArray CellTypes() const {
    return OfTypes<std::uint8_t>("types", [](std::uint8_t type) { return VtkCellOf(type).number; });
  }
  /// `kept` has the elements, where they are no member of a record.
  DataArray Members(std::string name, const TArray<ITR>& elements,
                    const SetMembers& kept = {}) const {
    const auto put = [this, &elements, kept](ArraySink& sink) {
      std::vector<std::uint8_t> is_member(Cells() + 1);  // the last for what is no cell
      for (const ITR element : elements) {
        if (IsMissing(element)) continue;
        is_member[std::min<std::size_t>(elements_.GetParamIdx(element), Cells())] = 1;
      }
      sink.PutAll<std::uint8_t>(std::span(is_member).first(Cells()));
    };
    return MakeArray<std::uint8_t>(std::move(name), 1, Cells(), put);
  }
  /// Nodes of a set besides those of its elements; `count` is told their number.
  DataArray OwnNodes(std::string name, const SetMembers& set, std::size_t& count) const {
    ItemMarks told(nodes_);
    for (const ITR element : set.Elements()) {
      if (IsMissing(element)) continue;
      const TArray<ITR>& nodes = elements_.GetAtNU(element).nodes;
      told.Add({nodes.data(), nodes.size()});
    }
    std::vector<std::uint32_t> own;
    for (const ITR node : set.Nodes()) {
      if (!IsMissing(node) && told.Insert(node)) own.push_back(nodes_.GetParamIdx(node));
    }
    count = own.size();
    return MakeArray<std::uint8_t>(std::move(name), 1, Points(), [this, own](ArraySink& sink) {
      std::vector<std::uint8_t> is_member(Points());
      for (const std::uint32_t node : own) is_member[node] = 1;
      sink.PutAll(std::span<const std::uint8_t>(is_member));
    });
  }
  /// The place of a field's target among the points or cells; kNowhere for one that is not there.
  static constexpr std::size_t kNowhere = ~std::size_t{0};
  std::size_t PlaceOf(ITR target, bool of_points) const {
    if (IsMissing(target)) return kNowhere;
    if (of_points) return nodes_.GetParamIdx(target);
    const std::size_t cell = elements_.GetParamIdx(target);
    return cell < Cells() ? cell : kNowhere;
  }
  std::size_t Targets(bool of_points) const { return of_points ? Points() : Cells(); }
  /// A value for each cell, of those of all elements of the pool in the order of its list.
  DataArray Values(std::string name, const std::vector<double>& values) const {
    return MakeArray<double>(std::move(name), 1, Cells(), [this, &values](ArraySink& sink) {
      std::size_t left_out = 0;
      for (std::size_t i = 0; i < values.size(); ++i) {
        if (left_out < left_out_.size() && left_out_[left_out] == i) {
          ++left_out;
        } else {
          sink.Put(values[i]);
        }
      }
    });
  }

  void FillReport(LossReport& report) const {
    others_.Report(report);
    ReportIncomplete(incomplete_, first_incomplete_, report);
  }

 private:
  static constexpr std::size_t kMost32 = std::numeric_limits<std::int32_t>::max();

  template <class T>
  static DataArray All(const char* name, const std::vector<T>& values) {
    return MakeArray<T>(name, 1, values.size(),
                        [&values](ArraySink& sink) { sink.PutAll(std::span<const T>(values)); });
  }
  /// An array of one T a cell, which `value` gives for the element's type.
  template <class T, class F>
  DataArray OfTypes(const char* name, F value) const {
    return MakeArray<T>(name, 1, Cells(), [this, value](ArraySink& sink) {
      std::array<T, 256> of_type{};
      for (std::size_t type = 0; type < kOurTypes; ++type) {
        if (FindElementType(static_cast<std::int32_t>(type))) {
          of_type[type] = static_cast<T>(value(static_cast<std::uint8_t>(type)));
        }
      }
      for (const std::uint8_t type : types_) sink.Put(of_type[type]);
    });
  }
  template <class T>
  DataArray OffsetsAs() const {
    return MakeArray<T>("offsets", 1, Cells(), [this](ArraySink& sink) {
      std::array<T, kOurTypes> nodes_of{};
      for (std::size_t type = 0; type < kOurTypes; ++type) {
        const ElementType* const known = FindElementType(static_cast<std::int32_t>(type));
        if (known) nodes_of[type] = known->nodes;
      }
      T end = 0;
      for (const std::uint8_t type : types_) sink.Put(end += nodes_of[type]);
    });
  }

  void AddCell(ITR at, const tagTElem& element, std::uint32_t position) {
    elements_.SetParamIdx(at, KeyedSetBase::kParamMask);
    if (element.type != last_type_) {
      last_type_ = element.type;
      const ElementType* const type = FindElementType(element.type);
      node_count_ = type ? type->nodes : 0;
      order_ = type ? VtkCellOf(element.type).order : nullptr;
    }
    if (node_count_ == 0) {
      others_.Add(element.type, element.key);
      left_out_.push_back(position);
      return;
    }
    const std::size_t base = connectivity_.size();
    bool is_whole = element.nodes.GetSize() == node_count_;
    for (std::int32_t i = 0; is_whole && i < node_count_; ++i) {
      const ITR node = element.nodes[order_ ? order_[i] : i];
      is_whole = !IsMissing(node);
      if (is_whole) connectivity_.push_back(static_cast<std::int32_t>(nodes_.GetParamIdx(node)));
    }
    if (!is_whole) {
      connectivity_.resize(base);
      if (incomplete_++ == 0) first_incomplete_ = element.key;
      left_out_.push_back(position);
      return;
    }
    elements_.SetParamIdx(at, static_cast<std::uint32_t>(types_.size()));
    element_keys_.push_back(element.key);
    types_.push_back(static_cast<std::uint8_t>(element.type));
    properties_.push_back(KeyOf(element.property));
  }

  DPoolNode& nodes_;
  DPoolElem& elements_;
  double length_unit_;
  std::vector<Key> node_keys_;
  std::vector<Key> element_keys_;
  std::vector<std::uint8_t> types_;
  std::vector<Key> properties_;
  std::vector<std::int32_t> connectivity_;  // places of nodes, in the order of the file
  std::vector<std::uint32_t> left_out_;     // places of elements in the pool's list
  std::int32_t last_type_ = -1;
  std::int32_t node_count_ = 0;  // of elements of that type; 0 for one without a known number
  const std::int8_t* order_ = nullptr;
  UnwrittenElements others_;
  std::uint64_t incomplete_ = 0;
  Key first_incomplete_ = 0;
};

/// Names of arrays, which VTK tells apart by name only.
class ArrayNames {
 public:
  /// `name`, or where that is empty or taken the name with `tail` and, if need be, a number
  /// behind it.
  std::string Unique(std::string name, const std::string& tail) {
    // XML has no word for control characters; the notes keep the name as it is.
    std::replace_if(
        name.begin(), name.end(), [](char c) { return static_cast<unsigned char>(c) < 0x20; }, '?');
    const std::string longer = name.empty() ? tail : name + " " + tail;
    std::string unique = name;
    for (int number = 1; unique.empty() || !taken_.insert(unique).second; ++number) {
      unique = number == 1 ? longer : fmt::format("{} {}", longer, number);
    }
    return unique;
  }

 private:
  std::set<std::string> taken_{"node_key", "element_key", "element_type", "property_key"};
};

/// Puts together what is in the file.
class Contents {
 public:
  Contents(const Grid& grid, const CQXDBSession& session, LossReport& report)
      : grid_(grid), session_(session), report_(report) {}

  VtuContent Make(const std::vector<CellData>& extra) {
    content_.points = grid_.Points();
    content_.cells = grid_.Cells();
    points_.push_back(grid_.NodeKeys());
    cells_.push_back(grid_.ElementKeys());
    cells_.push_back(grid_.ElementTypes());
    cells_.push_back(grid_.PropertyKeys());
    AddSets();
    AddFields();
    for (const CellData& data : extra) {
      cells_.push_back(grid_.Values(names_.Unique(data.name, "(value)"), data.values));
    }
    content_.notes.units = session_.Units().Current();
    content_.sections.push_back({"PointData", std::move(points_)});
    content_.sections.push_back({"CellData", std::move(cells_)});
    content_.sections.push_back({"Points", {grid_.Coordinates()}});
    content_.sections.push_back(
        {"Cells", {grid_.Connectivity(), grid_.Offsets(), grid_.CellTypes()}});
    return std::move(content_);
  }

 private:
  template <class T, class Visit>
  void ForEachOf(Visit&& visit) {
    host::ForEach<T>(const_cast<CQXDBSession*>(&session_), [&](ITR at, const T& record) {
      visit(at, record);
      return true;
    });
  }

  void AddSets() {
    const auto* pool = session_.GetPool<DPoolMset>(code::kMset);
    const ITR by_default = pool ? pool->DefaultItr() : 0;
    ForEachOf<tagTMset>([&](ITR at, const tagTMset& set) {
      const SetMembers members = MembersOf(session_, at);
      if (at == by_default && members.Elements().IsEmpty() && members.Nodes().IsEmpty()) return;
      const std::string name = Utf8(set.name.View());
      const std::string array = names_.Unique(name, fmt::format("(set {})", set.key));
      cells_.push_back(grid_.Members(array, members.Elements(), members));
      std::size_t own = 0;
      DataArray nodes = grid_.OwnNodes(array, members, own);
      if (own > 0) points_.push_back(std::move(nodes));
      content_.notes.sets.push_back({array, name, set.key, set.parent_key, set.color});
    });
    ForEachOf<tagTActiveElemSet>([&](ITR, const tagTActiveElemSet& set) {
      const std::string tail = fmt::format("(set {})", set.key);
      cells_.push_back(grid_.Members(names_.Unique(Utf8(set.name.View()), tail), set.elements));
    });
    ForEachOf<tagTSetTag>([&](ITR, const tagTSetTag& from) {
      if (IsMissing(from.set)) return;
      VtkNotes::Tag tag{KeyOf(from.set),
                        Utf8(from.format.View()),
                        {from.kind, from.dimension, from.tag, from.named != 0, {}}};
      for (const tagTElemSide& side : from.sides) {
        if (!IsMissing(side.element)) tag.tag.sides.emplace_back(KeyOf(side.element), side.side);
      }
      content_.notes.tags.push_back(std::move(tag));
    });
  }

  void AddFields() {
    std::set<double> times;
    ForEachOf<tagTField>([&](ITR, const tagTField& field) {
      const std::string name = Utf8(field.name.View());
      if (field.place == tagTField::kElementNodes || field.components < 1) {
        report_.Lost(field.components < 1 ? "fields whose values have no fixed number"
                                          : "fields by node of each element",
                     1, name, "the format has values of points and cells only");
        return;
      }
      const bool of_points = field.place == tagTField::kNodes;
      const std::size_t found = of_points ? CountTargets(field, field.node_values, true)
                                          : CountTargets(field, field.element_values, false);
      const bool is_partial = found < grid_.Targets(of_points);
      const std::string array = names_.Unique(name, fmt::format("(field {})", field.key));
      (of_points ? points_ : cells_).push_back(ArrayOf(field, array, of_points, is_partial));
      content_.notes.fields.push_back({array, of_points, name, field.category, field.integers,
                                       field.step, field.time, is_partial});
      times.insert(double{field.time});
    });
    if (times.size() == 1 && *times.begin() != 0) content_.time = *times.begin();
  }

  /// How many points or cells have all their values; tells of values of others.
  template <class List>
  std::size_t CountTargets(const tagTField& field, const List& values, bool of_points) {
    std::uint64_t lost = 0;
    std::size_t found = 0;
    for (const auto& value : values) {
      const bool is_there = grid_.PlaceOf(value.target, of_points) != Grid::kNowhere;
      found += is_there;
      lost += !is_there;
    }
    report_.Lost("values of elements that are not in the file", lost, Utf8(field.name.View()),
                 "they were deleted, or have no place there");
    return found / static_cast<std::size_t>(field.components);
  }

  DataArray ArrayOf(const tagTField& field, const std::string& name, bool of_points,
                    bool is_partial) {
    const auto width = static_cast<std::size_t>(field.components);
    const std::size_t count = grid_.Targets(of_points) * width;
    // Gathered when they are written, so that one field at a time is in memory.
    const auto gather = [this, &field, of_points, count, width] {
      std::vector<double> values(count, std::numeric_limits<double>::quiet_NaN());
      tagTField in_current = field;
      ConvertUnitsOut(in_current, session_.Units());
      const auto scatter = [&](const auto& list) {
        std::size_t component = 0;
        ITR last = 0;
        for (const auto& value : list) {
          component = value.target == last ? component + 1 : 0;
          last = value.target;
          const std::size_t place = grid_.PlaceOf(value.target, of_points);
          if (place != Grid::kNowhere && component < width) {
            values[place * width + component] = value.value;
          }
        }
      };
      if (of_points) {
        scatter(in_current.node_values);
      } else {
        scatter(in_current.element_values);
      }
      return values;
    };
    const auto all_whole = [](const auto& list) {
      return std::all_of(list.begin(), list.end(), [](const auto& entry) {
        return std::abs(entry.value) < 9e18 && std::nearbyint(entry.value) == entry.value;
      });
    };
    if (field.integers && !is_partial && all_whole(field.node_values) &&
        all_whole(field.element_values)) {
      return MakeArray<std::int64_t>(name, field.components, count, [gather](ArraySink& sink) {
        for (const double value : gather()) sink.Put(static_cast<std::int64_t>(value));
      });
    }
    return MakeArray<double>(name, field.components, count, [gather](ArraySink& sink) {
      for (const double value : gather()) sink.Put(value);
    });
  }

  const Grid& grid_;
  const CQXDBSession& session_;
  LossReport& report_;
  ArrayNames names_;
  std::vector<DataArray> points_;
  std::vector<DataArray> cells_;
  VtuContent content_;
};

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
                 const std::vector<CellData>& extra, LossReport* report, const Progress& progress,
                 VtuCompression compression) {
  if (Outcome fits = CheckCanBeWritten(session, path); !fits) return fits;
  const auto element_count = static_cast<std::size_t>(session.GetDataPool(code::kElem)->GetSize());
  if (Outcome fits = CheckExtra(extra, element_count, path); !fits) return fits;

  const Grid grid(session);
  LossReport found;
  grid.FillReport(found);
  Contents contents(grid, session, found);
  const VtuContent content = contents.Make(extra);
  if (Outcome written = WriteVtuFile(content, path, {encoding, compression}, progress); !written) {
    return written;
  }
  constexpr std::uint16_t kWritten[] = {code::kNode,          code::kElem,   code::kMset,
                                        code::kActiveElemSet, code::kSetTag, code::kField};
  ReportUnwritten(session, "vtu", kWritten, found);
  if (report) report->Append(found);
  return {};
}

}  // namespace qx::exchange
