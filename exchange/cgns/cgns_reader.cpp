#include "exchange/cgns/cgns_reader.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <filesystem>
#include <fmt/format.h>
#include <map>
#include <set>

#include "qx_db/platform/file.h"
#include "qx_db/platform/text.h"
#include "qx_db/record/element_types.h"

#include "exchange/cgns/cgns_axes.h"
#include "exchange/cgns/cgns_faces.h"
#include "exchange/cgns/cgns_grid.h"
#include "exchange/cgns/cgns_kinds.h"
#include "exchange/cgns/cgns_solutions.h"
#include "exchange/cgns/cgns_tree.h"
#include "exchange/group_classes.h"
#include "exchange/hdf5/h5_apart.h"
#include "exchange/hdf5/h5_deck_reader.h"
#include "exchange/key_set.h"
#include "exchange/node_orders.h"
#include "exchange/room.h"
#include "exchange/transfer.h"

namespace qx::exchange {
namespace {

using Integers = std::vector<std::int64_t>;
using Child = CgnsTree::Child;

class CgnsReader : H5DeckReader {
 public:
  CgnsReader(H5Reader& in, const std::string& name, const ReadOptions& options,
             std::vector<Failure>& faults)
      : H5DeckReader(in, name, options, faults), tree_(in) {}

  /// The deck, unless something was added to the faults.
  std::optional<Deck> Read() {
    deck_.format = "cgns";
    Tell(0.02);
    const std::vector<Child> roots = tree_.Children("/");
    std::size_t bases = 0;
    for (const Child& base : roots) {
      if (base.label == "CGNSBase_t" && ++bases == 1) ReadBase(base.path);
    }
    KeepError();
    if (bases == 0) Fault("", "there is no node of label CGNSBase_t");
    deck_.report.Lost("further bases were left out", bases > 0 ? bases - 1 : 0, "behind the first",
                      "a model has one mesh");
    KeepError();
    if (HasFaults()) return std::nullopt;
    FillParents(deck_);
    return Checked(leaves_nodes_);
  }

 private:
  /// A part of a file that lists elements.
  struct Section {
    Child node;
    std::int64_t type = 0;
    std::int64_t first = 0;  // number of its first element
    std::int64_t last = 0;
  };

  std::string Clean(const std::string& name) const { return IsUtf8(name) ? name : "?"; }

  /// The name that a set has in our files where a node cannot have it.
  std::string NameOf(const Child& node) {
    const std::string full = tree_.Find(node.path, "FullName");
    const std::string name = full.empty() ? node.name : tree_.TextOf(full);
    return Clean(name.empty() ? node.name : name);
  }

  // ---- base and zones -------------------------------------------------------------------------

  void ReadBase(const std::string& path) {
    const Integers dimensions = tree_.IntegersOf(path, 2);
    KeepError();
    if (dimensions.size() != 2) return;
    cell_dimension_ = dimensions[0];
    space_dimension_ = dimensions[1];
    if (cell_dimension_ < 1 || cell_dimension_ > 3 || space_dimension_ < cell_dimension_ ||
        space_dimension_ > 3) {
      return Fault(PlaceOf(path), fmt::format("cells of {} dimensions in a space of {} cannot be",
                                              cell_dimension_, space_dimension_));
    }
    const std::vector<Child> children = tree_.Children(path);
    std::vector<Child> zones;
    for (const Child& child : children) {
      if (child.label == "Zone_t") zones.push_back(child);
      if (child.label == "Family_t") ReadFamily(child);
    }
    for (const Child& child : children) TellOfOther(child);
    const std::string own = tree_.Find(path, kCgnsOwn);
    const std::string units = own.empty() ? "" : tree_.TextOf(tree_.Find(own, "Units"));
    if (!units.empty()) {
      if (Result<UnitSystem> named = ParseUnits(units, {}); named) base_units_ = *named;
    }
    if (!base_units_) base_units_ = CgnsUnitsAt(tree_, path);
    KeepError();
    solutions_.ReadSteps(children);
    KeepError();
    // A zone is a set where the file has several, or lists none of its elements itself.
    has_zones_ = zones.size() > 1;
    for (std::size_t z = 0; z < zones.size() && Ok(); ++z) {
      ReadZone(zones[z]);
      KeepError();
      Tell(0.1 + 0.8 * static_cast<double>(z + 1) / static_cast<double>(zones.size()));
    }
    if (!deck_.units) deck_.units = base_units_;
    if (zones.size() > 1) {
      deck_.report.Changed("zones were joined into one mesh", zones.size(), zones[1].name,
                           "numbers of each begin behind those of the one before");
    }
    KeepError();
  }

  void TellOfOther(const Child& child) {
    if (child.label == "UserDefinedData_t" && child.name == kCgnsOwn) return;
    if (IsReadOfCgns(child.label)) return;
    deck_.report.Lost(fmt::format("nodes of label {} were left out", Clean(child.label)), 1,
                      Clean(PlaceOf(child.path)), "the model has no place for them");
  }

  void ReadZone(const Child& zone) {
    const std::string type = tree_.TextOf(tree_.Find(zone.path, "ZoneType"));
    const bool is_structured = type == "Structured";
    if (!is_structured && type != "Unstructured") {
      return Fault(PlaceOf(zone.path), fmt::format("zones of type '{}' are not read", Clean(type)));
    }
    const Integers sizes = tree_.IntegersOf(zone.path);
    if (!in_.Ok()) return;
    const std::size_t index = is_structured ? static_cast<std::size_t>(cell_dimension_) : 1;
    if (sizes.size() != 3 * index) {
      return Fault(PlaceOf(zone.path), fmt::format("it has {} sizes", sizes.size()));
    }
    nodes_ = 1;
    shape_.assign(sizes.begin(), sizes.begin() + static_cast<std::ptrdiff_t>(index));
    for (const std::int64_t size : shape_) {
      if (size < 0 || size > kMaxKey || (nodes_ *= static_cast<std::uint64_t>(size)) > kMaxKey ||
          nodes_ > in_.MostValues()) {
        return Fault(PlaceOf(zone.path), "it says that it has more nodes than the file can hold");
      }
    }
    const std::vector<Child> children = tree_.Children(zone.path);
    first_node_ = deck_.node_keys.size();
    first_element_ = deck_.elements.size();
    prefix_ = has_zones_ ? Clean(zone.name) + "." : "";
    if (first_node_ + nodes_ > static_cast<std::uint64_t>(kMaxKey)) {
      return Fault(PlaceOf(zone.path), "the file has more nodes than a model can have");
    }
    ReadNodes(zone.path, children);
    KeepError();
    if (HasFaults()) return;
    key_of_.clear();
    if (is_structured) {
      if (nodes_ > static_cast<std::uint64_t>(kMaxKey - LastKey())) {
        return Fault(PlaceOf(zone.path), "the file has more elements than a model can have");
      }
      AddCells(deck_, first_node_, shape_, LastKey() + 1);
    } else {
      ReadSections(zone.path, children);
    }
    KeepError();
    if (HasFaults()) return;
    std::string family;
    if (const std::string name = tree_.Find(zone.path, "FamilyName"); !name.empty()) {
      family = tree_.TextOf(name);
    }
    if (has_zones_ || is_structured || !family.empty()) {
      Mesh::Group group = NewGroup(Clean(zone.name), cgns::kZone, -1);
      for (std::size_t e = first_element_; e < deck_.elements.size(); ++e) {
        group.elements.push_back(deck_.elements[e].key);
      }
      Add(std::move(group), family);
    }
    is_structured_ = is_structured;
    solutions_.ReadZone(
        {first_node_, nodes_,
         CgnsCellKeys(deck_, first_element_, key_of_, is_lost_cell_, cell_dimension_), key_of_},
        children);
    for (const Child& child : children) {
      TellOfOther(child);
      if (child.label == "ZoneBC_t") {
        for (const Child& condition : tree_.Children(child.path)) {
          if (condition.label == "BC_t" && Ok()) ReadSet(condition, true);
        }
      }
      if (child.label == "ZoneSubRegion_t" && Ok()) ReadSet(child, false);
      KeepError();
    }
  }

  /// The numbers that files of our own give; none in others.
  std::vector<Key> OwnNumbers(const std::string& zone, const char* array, std::uint64_t count) {
    const std::string own = tree_.Find(zone, kCgnsOwn);
    const std::string node = own.empty() ? own : tree_.Find(own, array);
    if (node.empty() || count == 0) return {};
    std::vector<Key> keys;
    bool are_good = true;
    in_.Integers(CgnsTree::Data(node), count, [&](std::span<const std::int64_t> values) {
      for (const std::int64_t value : values) {
        are_good = are_good && value > 0 && value <= kMaxKey;
        keys.push_back(static_cast<Key>(value));
      }
    });
    KeepError();
    if (keys.size() == count && are_good && KeySet(keys).Repeated() == 0) return keys;
    deck_.report.Changed("numbers were given anew", count, PlaceOf(node),
                         "those of the file are not whole, positive and different");
    return {};
  }

  /// What an axis is multiplied by to be in the deck's unit, which is that of the first. The unit
  /// that is named nearest to it counts.
  double FactorOf(const std::string& axis, const std::string& grid, const std::string& zone) {
    std::optional<UnitSystem> units;
    for (const std::string& node : {axis, grid, zone}) {
      if (!units) units = CgnsUnitsAt(tree_, node);
    }
    if (!units) units = base_units_;
    KeepError();
    if (!std::exchange(has_axes_, true)) deck_.units = units;
    if (units.has_value() != deck_.units.has_value()) {
      Fault(PlaceOf(axis), "only some of the file's coordinates name a unit");
    }
    const double factor = units && deck_.units ? LengthFactor(*units, *deck_.units) : 1;
    deck_.report.Changed("coordinates were converted to the unit of the first", factor != 1,
                         PlaceOf(axis), "a model has one unit of length");
    return factor;
  }

  void ReadNodes(const std::string& zone, const std::vector<Child>& children) {
    std::string grid;
    std::uint64_t others = 0;
    for (const Child& child : children) {
      if (child.label != "GridCoordinates_t") continue;
      // The grid of that name is the first of those that move.
      if (grid.empty() || child.name == "GridCoordinates") grid = child.path;
      ++others;
    }
    deck_.report.Lost("further positions of nodes were left out", others > 0 ? others - 1 : 0,
                      PlaceOf(zone), "a node of the model has one");
    if (grid.empty() && nodes_ > 0) return Fault(PlaceOf(zone), "it has no coordinates");
    AppendBy(deck_.coordinates, 3 * nodes_,
             [](double* to, std::size_t, std::size_t count) { std::fill_n(to, count, 0.0); });
    std::set<std::size_t> not_finite;  // a bound of them
    CgnsAxes axes;
    if (nodes_ > 0) {
      const std::vector<Child> below = tree_.Children(grid);
      for (const Child& child : below) {
        if (child.label != "DataArray_t" && child.label != "Rind_t") TellOfOther(child);
      }
      if (tree_.RindOf(grid) > 0) {
        return Fault(PlaceOf(grid), "it has rind (ghost) nodes, which are not read");
      }
      axes = FindAxes(below, space_dimension_, PlaceOf(grid), deck_.report);
      if (!axes.wrong.empty()) return Fault(PlaceOf(grid), axes.wrong);
    }
    for (std::size_t d = 0; d < 3; ++d) {
      const std::string& axis = axes.nodes[d];
      if (axis.empty()) continue;
      const double factor = FactorOf(axis, grid, zone);
      std::size_t i = first_node_;
      in_.Reals(CgnsTree::Data(axis), nodes_, [&](std::span<const double> values) {
        for (const double value : values) {
          deck_.coordinates[3 * i++ + d] = factor == 1 ? value : factor * value;
          if (!std::isfinite(value) && not_finite.size() < LossReport::kMostFaults) {
            not_finite.insert(i - first_node_);
          }
        }
      });
      KeepError();
    }
    for (const std::size_t i : not_finite) {
      Fault(PlaceOf(grid), fmt::format("a coordinate of node {} is not a finite number", i));
    }
    std::vector<Key> keys;
    if (first_node_ == 0) keys = OwnNumbers(zone, "NodeNumbers", nodes_);
    MakeRoom(deck_.node_keys, first_node_ + nodes_);
    for (std::size_t i = 0; i < nodes_; ++i) {
      deck_.node_keys.push_back(keys.empty() ? static_cast<Key>(first_node_ + i + 1) : keys[i]);
    }
  }

  /// Number of the last element of the zones before.
  Key LastKey() const {
    Key last = 0;
    for (const Mesh::Element& element : deck_.elements) last = std::max(last, element.key);
    return last;
  }

  // ---- sections -------------------------------------------------------------------------------

  void ReadSections(const std::string& zone, const std::vector<Child>& children) {
    std::vector<Section> sections;
    for (const Child& child : children) {
      if (child.label != "Elements_t") continue;
      const Integers type = tree_.IntegersOf(child.path, 2);
      const std::string range_node = tree_.Find(child.path, "ElementRange");
      if (in_.Ok() && range_node.empty()) in_.Fail(child.path, "it has no ElementRange");
      const Integers range = in_.Ok() ? tree_.IntegersOf(range_node, 2) : Integers();
      KeepError();
      if (type.size() != 2 || range.size() != 2) continue;
      if (range[0] < 1 || range[1] < range[0] - 1 || range[1] > kMaxKey ||
          static_cast<std::uint64_t>(range[1]) > in_.MostValues()) {
        Fault(PlaceOf(child.path), fmt::format("elements {} to {} cannot be", range[0], range[1]));
        continue;
      }
      sections.push_back({child, type[0], range[0], range[1]});
    }
    std::sort(sections.begin(), sections.end(),
              [](const Section& a, const Section& b) { return a.first < b.first; });
    std::int64_t last = 0;
    for (const Section& section : sections) {
      if (section.first <= last) {
        Fault(PlaceOf(section.node.path),
              fmt::format("element {} is in another section, too", section.first));
      }
      last = std::max(last, section.last);
    }
    if (HasFaults()) return;
    key_of_.assign(static_cast<std::size_t>(last) + 1, 0);
    is_lost_cell_.assign(key_of_.size(), false);
    std::vector<Key> numbers;
    if (first_element_ == 0) {
      numbers = OwnNumbers(zone, "ElementNumbers", static_cast<std::uint64_t>(last));
    }
    const Key first = LastKey();
    if (static_cast<std::int64_t>(first) + last > kMaxKey) {
      return Fault(PlaceOf(zone), "the file has more elements than a model can have");
    }
    const std::string own = tree_.Find(zone, kCgnsOwn);
    const std::string set_node = own.empty() ? own : tree_.Find(own, "SetSections");
    const Integers are_sets = set_node.empty() ? Integers() : tree_.IntegersOf(set_node);
    KeepError();
    polygonal_ = CgnsFaces();
    for (const Section& section : sections) {
      const bool is_cells = section.type == cgns::kPolyhedron;
      if (!is_cells && section.type != cgns::kPolygon) continue;
      polygonal_.Read(tree_, section.node.path, is_cells, section.first, section.last);
    }
    KeepError();
    std::int64_t read = 0;
    for (std::size_t s = 0; s < sections.size() && Ok(); ++s) {
      for (std::int64_t e = sections[s].first; e <= sections[s].last; ++e) {
        const auto at = static_cast<std::size_t>(e);
        key_of_[at] = numbers.empty() ? first + static_cast<Key>(e) : numbers[at - 1];
      }
      ReadSection(sections[s], s >= are_sets.size() || are_sets[s] != 0);
      KeepError();
      read += sections[s].last - sections[s].first + 1;
      if (!has_zones_) Tell(0.2 + 0.6 * static_cast<double>(read) / static_cast<double>(last + 1));
    }
  }

  /// `is_set`: it is no mere rest of our own.
  void ReadSection(const Section& section, bool is_set) {
    const auto kind = FindCgnsKind(section.type);
    const auto count = static_cast<std::uint64_t>(section.last - section.first + 1);
    const std::string place = PlaceOf(section.node.path);
    const std::string array = tree_.Find(section.node.path, "ElementConnectivity");
    deck_.report.Changed("rind (ghost) elements became elements like the others",
                         tree_.RindOf(section.node.path), place, "the model has no mark for them");
    if (section.type == cgns::kPolygon || section.type == cgns::kPolyhedron) {
      ReadPolygonal(section);
    } else if (!kind && section.type != cgns::kMixed) {
      deck_.report.Lost(fmt::format("elements of type {} were left out", section.type), count,
                        place, "the model has no such element");
      for (std::int64_t e = section.first; e <= section.last; ++e) {
        key_of_[static_cast<std::size_t>(e)] = 0;
      }
      leaves_nodes_ = true;
    } else {
      if (array.empty()) return Fault(place, "it has no ElementConnectivity");
      if (kind) {
        ReadRows(section, *kind, CgnsTree::Data(array));
      } else {
        ReadMixed(section, CgnsTree::Data(array));
      }
    }
    if (!is_set) return;
    Mesh::Group group = NewGroup(prefix_ + NameOf(section.node), cgns::kSection,
                                 kind ? FindElementType(kind->code)->dimension : -1);
    for (std::int64_t e = section.first; e <= section.last; ++e) {
      const Key key = key_of_[static_cast<std::size_t>(e)];
      if (key != 0) group.elements.push_back(key);
    }
    Add(std::move(group), "");
  }

  /// Polygons and polyhedra that are elements of the model. Where there are polyhedra, a face of
  /// two is no element.
  void ReadPolygonal(const Section& section) {
    const std::string place = PlaceOf(section.node.path);
    const bool is_cells = section.type == cgns::kPolyhedron;
    std::uint64_t unknown = 0, inner = 0;
    for (std::int64_t e = section.first; e <= section.last && Ok(); ++e) {
      Key& key = key_of_[static_cast<std::size_t>(e)];
      const CgnsCell cell = polygonal_.Element(e, is_cells).value_or(CgnsCell());
      const bool is_inner = !is_cells && polygonal_.IsInner(e);
      inner += is_inner;
      unknown += !is_inner && cell.code == 0;
      is_lost_cell_[static_cast<std::size_t>(e)] =
          !is_inner && cell.code == 0 && (is_cells ? 3 : 2) == cell_dimension_;
      if (is_inner || cell.code == 0) {
        key = 0;
      } else {
        AddNodes(*FindCgnsKind(CgnsNumberOf(cell.code)), key, cell.nodes.data(), e, place);
      }
    }
    deck_.report.Changed("faces between two cells became no elements", inner, place,
                         "the elements on either side have them");
    deck_.report.Lost(
        is_cells ? "polyhedra (NFACE_n) were left out" : "polygons (NGON_n) were left out", unknown,
        place, "the model has no such element");
    leaves_nodes_ = leaves_nodes_ || unknown > 0;
  }

  void TellOfReduced(const CgnsKind& kind, std::uint64_t count, const std::string& place) {
    if (!kind.is_reduced) return;
    leaves_nodes_ = true;
    deck_.report.Changed(fmt::format("elements of type {} were read as {}", kind.name,
                                     FindElementType(kind.code)->plural),
                         count, place,
                         "the model has no such element: nodes that it lacks are left over");
  }

  /// Adds an element of nodes of the zone; false for a node that there is not.
  bool AddNodes(const CgnsKind& kind, Key key, const std::int64_t* nodes, std::int64_t number,
                const std::string& place) {
    const auto used = static_cast<std::size_t>(FindElementType(kind.code)->nodes);
    const std::int8_t* const order = UprightOrderOf(kind.code);
    const std::size_t first = deck_.connectivity.size();
    deck_.connectivity.resize(first + used);
    deck_.elements.push_back({key, kind.code, first});
    for (std::size_t k = 0; k < used; ++k) {
      const std::int64_t node = nodes[order ? static_cast<std::size_t>(order[k]) : k];
      if (node < 1 || node > static_cast<std::int64_t>(nodes_)) {
        Fault(place, fmt::format("element {} names node {} of {}", number, node, nodes_));
        return false;
      }
      deck_.connectivity[first + k] =
          deck_.node_keys[first_node_ + static_cast<std::size_t>(node) - 1];
    }
    return true;
  }

  void ReadRows(const Section& section, const CgnsKind& kind, const std::string& array) {
    const auto count = static_cast<std::uint64_t>(section.last - section.first + 1);
    const auto width = static_cast<std::size_t>(kind.nodes);
    const std::string place = PlaceOf(section.node.path);
    TellOfReduced(kind, count, place);
    if (count > in_.MostValues() / width) {
      return Fault(place, "it says that it has more elements than the file can hold");
    }
    MakeRoom(deck_.elements, deck_.elements.size() + count);
    MakeRoom(deck_.connectivity,
             deck_.connectivity.size() +
                 count * static_cast<std::size_t>(FindElementType(kind.code)->nodes));
    std::int64_t number = section.first;
    Integers rest;  // pieces end amid an element
    in_.Integers(array, count * width, [&](std::span<const std::int64_t> piece) {
      while (!piece.empty()) {
        const std::int64_t* row = piece.data();
        std::size_t taken = width;
        if (!rest.empty() || piece.size() < width) {
          taken = std::min(width - rest.size(), piece.size());
          rest.insert(rest.end(), piece.begin(),
                      piece.begin() + static_cast<std::ptrdiff_t>(taken));
          row = rest.data();
        }
        piece = piece.subspan(taken);
        if (row == rest.data() && rest.size() < width) return;
        AddNodes(kind, key_of_[static_cast<std::size_t>(number)], row, number, place);
        ++number;
        rest.clear();
      }
    });
  }

  /// Each element with its type before its nodes.
  void ReadMixed(const Section& section, const std::string& array) {
    const std::string place = PlaceOf(section.node.path);
    std::int64_t number = section.first;
    std::optional<CgnsKind> kind;
    bool is_wrong = false;
    Integers nodes;
    in_.Integers(array, H5Reader::kAny, [&](std::span<const std::int64_t> piece) {
      for (const std::int64_t value : piece) {
        if (is_wrong) return;
        if (!kind) {
          kind = FindCgnsKind(value);
          if (kind && number <= section.last) {
            TellOfReduced(*kind, 1, place);
            continue;
          }
          Fault(place, number > section.last
                           ? fmt::format("it has more elements than {}", section.last)
                           : fmt::format("element {} has type {}, which cannot be among others",
                                         number, value));
          is_wrong = true;
          return;
        }
        nodes.push_back(value);
        if (static_cast<std::int64_t>(nodes.size()) < kind->nodes) continue;
        AddNodes(*kind, key_of_[static_cast<std::size_t>(number)], nodes.data(), number, place);
        ++number;
        nodes.clear();
        kind.reset();
      }
    });
    if (in_.Ok() && !is_wrong && number != section.last + 1) {
      Fault(place, fmt::format("it ends before element {}", section.last));
    }
  }

  // ---- sets -----------------------------------------------------------------------------------

  static Mesh::Group NewGroup(std::string name, std::int32_t what, int dimension) {
    Mesh::Group group;
    group.name = std::move(name);
    group.dimension = dimension;
    Mesh::SetTag tag;
    tag.dimension = dimension;
    tag.tag = what;
    group.tags.push_back(std::move(tag));
    return group;
  }

  void Add(Mesh::Group group, const std::string& family) {
    if (!family.empty()) group.parent = FamilyAt(family);
    deck_.groups.push_back(std::move(group));
  }

  /// The place of a family's group. A file may name one that it does not describe.
  std::int32_t FamilyAt(const std::string& name) {
    const auto [found, is_new] =
        families_.try_emplace(name, static_cast<std::int32_t>(deck_.groups.size()));
    if (is_new) deck_.groups.push_back(NewGroup(Clean(name), cgns::kFamily, -1));
    return found->second;
  }

  void ReadFamily(const Child& family) {
    Mesh::Group& group = deck_.groups[static_cast<std::size_t>(FamilyAt(family.name))];
    group.name = NameOf(family);
    for (const Child& child : tree_.Children(family.path)) {
      if (child.label == "FamilyBC_t") {
        group.tags[0].tag = cgns::kFamily + CgnsConditionOf(tree_.TextOf(child.path));
      } else if (child.label != "Descriptor_t" && child.label != "Ordinal_t") {
        TellOfOther(child);
      }
    }
  }

  /// A boundary condition, or a region.
  void ReadSet(const Child& node, bool is_condition) {
    const std::string location = tree_.TextOf(tree_.Find(node.path, "GridLocation"));
    const std::string place = PlaceOf(node.path);
    std::string list, family;
    bool is_range = false;
    bool is_of_elements = !location.empty() && location != "Vertex";
    for (const Child& child : tree_.Children(node.path)) {
      const bool is_element_list = child.name == "ElementList" || child.name == "ElementRange";
      if (is_element_list || child.name == "PointList" || child.name == "PointRange") {
        list = child.path;
        is_range = child.name.ends_with("Range");
        is_of_elements = is_of_elements || is_element_list;
      } else if (child.label == "FamilyName_t") {
        family = tree_.TextOf(child.path);
      } else if (child.label != "GridLocation_t" && child.name != "FullName") {
        TellOfOther(child);
      }
    }
    const std::int32_t what =
        is_condition ? cgns::kCondition + CgnsConditionOf(tree_.TextOf(node.path)) : cgns::kRegion;
    Mesh::Group group = NewGroup(prefix_ + NameOf(node), what, -1);
    group.tags[0].kind = is_of_elements ? tagTSetTag::kElements : tagTSetTag::kNodes;
    if (list.empty()) {
      deck_.report.Lost("sets without a list or a range were left out", 1, Clean(place),
                        "other nodes say what is in them");
      return;
    }
    if (is_structured_) {
      ReadGridRange(std::move(group), family, list, is_range && !is_of_elements, place);
      return;
    }
    std::uint64_t gone = 0;
    const auto add = [&](std::int64_t number) {
      const std::size_t most = is_of_elements ? key_of_.size() - 1 : nodes_;
      if (number < 1 || static_cast<std::uint64_t>(number) > most) {
        Fault(place, fmt::format("it names {} {} of {}", is_of_elements ? "element" : "node",
                                 number, most));
        return;
      }
      const auto at = static_cast<std::size_t>(number);
      const Key key = is_of_elements ? key_of_[at] : deck_.node_keys[first_node_ + at - 1];
      gone += key == 0;
      if (key != 0) (is_of_elements ? group.elements : group.nodes).push_back(key);
    };
    if (is_of_elements && key_of_.empty()) key_of_.push_back(0);
    if (is_range) {
      const Integers range = tree_.IntegersOf(list, 2);
      if (!in_.Ok()) return;
      const auto [low, high] = std::minmax(range[0], range[1]);
      if (low < 1 || high > kMaxKey) return Fault(place, "its range cannot be");
      for (std::int64_t n = low; n <= high && Ok(); ++n) add(n);
    } else {
      in_.Integers(CgnsTree::Data(list), H5Reader::kAny, [&](std::span<const std::int64_t> piece) {
        for (const std::int64_t number : piece) {
          if (faults_.size() < LossReport::kMostFaults) add(number);
        }
      });
    }
    deck_.report.Lost("members of sets that were not read", gone, group.name,
                      "their elements were left out");
    Add(std::move(group), family);
  }

  /// Nodes of a box of a structured zone.
  void ReadGridRange(Mesh::Group group, const std::string& family, const std::string& list,
                     bool is_box, const std::string& place) {
    if (!is_box) {
      deck_.report.Lost("sets of single points and of faces of structured zones were left out", 1,
                        place, "ranges of nodes are read");
      return;
    }
    const std::size_t index = shape_.size();
    const Integers box = tree_.IntegersOf(list, 2 * index);  // first corner, then last
    if (!in_.Ok()) return;
    std::array<std::int64_t, 3> low{1, 1, 1}, high{1, 1, 1};
    for (std::size_t d = 0; d < index; ++d) {
      low[d] = std::min(box[d], box[index + d]);
      high[d] = std::max(box[d], box[index + d]);
      if (low[d] < 1 || high[d] > shape_[d]) {
        return Fault(place, fmt::format("its range reaches {} of {}", high[d], shape_[d]));
      }
    }
    AddNodesOfBox(deck_, first_node_, shape_, low, high, group.nodes);
    Add(std::move(group), family);
  }

  CgnsTree tree_;
  std::int64_t cell_dimension_ = 3;
  std::int64_t space_dimension_ = 3;
  bool has_zones_ = false;
  bool has_axes_ = false;
  std::optional<UnitSystem> base_units_;
  bool leaves_nodes_ = false;
  CgnsSolutionReader solutions_{tree_, deck_};
  std::map<std::string, std::int32_t> families_;  // place of each among the groups
  // Of the zone that is read:
  std::uint64_t nodes_ = 0;
  std::vector<std::int64_t> shape_;
  std::size_t first_node_ = 0;
  std::size_t first_element_ = 0;
  std::string prefix_;  // of names of its sets
  bool is_structured_ = false;
  CgnsFaces polygonal_;
  std::vector<Key> key_of_;         // key of each element number, 0 for one that is not read
  std::vector<bool> is_lost_cell_;  // by number: one whose value in a solution stands for nothing
};

}  // namespace

Result<Deck> ReadCgns(const std::string& path, const ReadOptions& options,
                      std::vector<Failure>& faults) {
  const Result<std::string> head = HeadOfFile(path);
  if (head && !head->starts_with("\x89HDF")) {
    faults.push_back({path, "", "is a CGNS file in the old container ADF, which is not read",
                      "convert it with adf2hdf"});
    return faults.back();
  }
  std::error_code error;
  const auto size = std::filesystem::file_size(PathFromUtf8(path), error);
  return ReadHdf5<CgnsReader>([&] { return H5Reader::Open(path); }, error ? 0 : size, path, options,
                              faults);
}

Result<Deck> ParseCgns(std::string_view bytes, const std::string& name,
                       std::vector<Failure>* faults, FirstRead first) {
  std::vector<Failure> all;
  Result<Deck> deck = ReadHdf5<CgnsReader>([&] { return H5Reader::OpenMemory(bytes, name); },
                                           bytes.size(), name, {}, all, first);
  if (faults) faults->insert(faults->end(), all.begin(), all.end());
  return deck;
}

}  // namespace qx::exchange
