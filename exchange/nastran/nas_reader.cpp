#include "exchange/nastran/nas_reader.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <fmt/format.h>
#include <map>
#include <set>
#include <unordered_map>

#include "qx_db/model/coordinate_pool.h"
#include "qx_db/model/standard_pools.h"
#include "qx_db/record/element_types.h"

#include "exchange/nastran/nas_carried.h"
#include "exchange/nastran/nas_properties.h"

namespace qx::exchange {
namespace {

constexpr std::int8_t kWedge15[] = {0, 1, 2, 3, 4, 5, 6, 7, 8, 12, 13, 14, 9, 10, 11};
constexpr std::int8_t kHex20[] = {0,  1,  2,  3,  4,  5,  6,  7,  8,  9,
                                  10, 11, 16, 17, 18, 19, 12, 13, 14, 15};

/// Element cards: how many nodes, from which field on, and what they become when the mid-side nodes
/// are given and when they are not.
struct ElementCard {
  std::string_view name;
  std::size_t first_node;
  std::size_t corners;
  std::int32_t linear;
  std::size_t nodes;
  std::int32_t quadratic;
  bool has_property = true;
};
constexpr ElementCard kElementCards[] = {
    {"CROD", 2, 2, element::kLine2, 2, 0},
    {"CTUBE", 2, 2, element::kLine2, 2, 0},
    {"CONROD", 1, 2, element::kLine2, 2, 0, false},
    {"CBAR", 2, 2, element::kLine2, 2, 0},
    {"CBEAM", 2, 2, element::kLine2, 2, 0},
    {"CBUSH", 2, 2, element::kLine2, 2, 0},
    {"PLOTEL", 1, 2, element::kLine2, 2, 0, false},
    {"CTRIA3", 2, 3, element::kTri3, 3, 0},
    {"CTRIAR", 2, 3, element::kTri3, 3, 0},
    {"CTRIA6", 2, 3, element::kTri3, 6, element::kTri6},
    {"CQUAD4", 2, 4, element::kQuad4, 4, 0},
    {"CQUADR", 2, 4, element::kQuad4, 4, 0},
    {"CSHEAR", 2, 4, element::kQuad4, 4, 0},
    {"CQUAD8", 2, 4, element::kQuad4, 8, element::kQuad8},
    {"CTETRA", 2, 4, element::kTet4, 10, element::kTet10},
    {"CPYRAM", 2, 5, element::kPyramid5, 13, element::kPyramid13},
    {"CPENTA", 2, 6, element::kWedge6, 15, element::kWedge15},
    {"CHEXA", 2, 8, element::kHex8, 20, element::kHex20},
    {"CONM2", 1, 1, element::kPoint, 1, 0, false},
};

/// Loads and constraints: cards whose first field is the number of a set.
constexpr std::string_view kLoadCards[] = {
    "FORCE",  "FORCE1", "FORCE2", "MOMENT", "MOMENT1", "MOMENT2", "PLOAD", "PLOAD1", "PLOAD2",
    "PLOAD4", "GRAV",   "RFORCE", "TEMP",   "TEMPD",   "LOAD",    "SLOAD", "ACCEL",  "ACCEL1"};
constexpr std::string_view kConstraintCards[] = {"SPC", "SPC1", "SPCADD", "SPCD"};
constexpr std::string_view kMultiCards[] = {"MPC", "MPCADD"};

template <class List>
bool IsIn(const List& list, std::string_view name) {
  return std::find(std::begin(list), std::end(list), name) != std::end(list);
}

class NasReader : private NasFieldReader {
 public:
  NasReader(const NasText& text, const std::string& file, std::vector<Failure>& faults,
            std::vector<NasSource>* sources)
      : NasFieldReader(text, file, faults), sources_(sources) {}

  Result<Deck> Read() {
    deck_.format = "nastran";
    // Defaults first, then what others refer to.
    for (const NasCard& card : text_.Cards()) {
      if (card.name == "GRDSET") grid_defaults_ = &card;
      if (card.name == "BAROR") bar_defaults_ = &card;
      if (card.name == "BEAMOR") beam_defaults_ = &card;
    }
    for (std::size_t i = 0; i < text_.Cards().size() && !IsFull(); ++i) ReadCard(i);
    PlaceNodes();
    CheckReferences();
    if (!faults_.empty()) return faults_.front();
    MakePlaceholders();
    MakeBlocks();
    deck_.Of<tagTCarried>().push_back(CarryNasText(
        text_,
        [this](bool is_node, Key key) {
          return is_node ? grid_index_.contains(key) : element_index_.contains(key);
        },
        unchecked_));
    Tell();
    if (Outcome checked = CheckMesh(deck_, file_); !checked) {
      faults_.push_back(checked.Error());
      return checked.Error();
    }
    return Result<Deck>(std::move(deck_));
  }

 private:
  using Kind = NasSource::Kind;
  struct Grid {
    Key key;
    Key system;
    Key output;
    std::array<double, 3> at;
    std::size_t card;
  };

  void Source(Kind kind, Key key, std::size_t card, std::size_t part = 0) {
    if (sources_) sources_->push_back({kind, key, card, part});
  }

  // ---- cards ------------------------------------------------------------------------------------

  void ReadCard(std::size_t index) {
    const NasCard& card = text_.Cards()[index];
    if (card.name == "GRID") return ReadGrid(card, index);
    if (card.name.starts_with("CORD") && card.name.size() == 6) return ReadSystem(card, index);
    if (card.name.starts_with("MAT") && ReadMaterial(card, index)) return;
    if (card.name.starts_with("P") && ReadProperty(card, index)) return;
    for (const ElementCard& kind : kElementCards) {
      if (card.name == kind.name) return ReadElement(card, kind, index);
    }
    Source(Kind::kCarried, 0, index);
    ++carried_[card.name];
    const char* set = IsIn(kLoadCards, card.name)         ? "LOAD"
                      : IsIn(kConstraintCards, card.name) ? "SPC"
                      : IsIn(kMultiCards, card.name)      ? "MPC"
                                                          : nullptr;
    if (set) sets_.insert({set, Number(card, 0)});
  }

  void ReadGrid(const NasCard& card, std::size_t index) {
    const Key key = Number(card, 0);
    if (key < 1) return Fault(card, "the node has no number", "give it one");
    Grid grid{key, Number(card, 1, grid_defaults_), Number(card, 5, grid_defaults_),
              Vector(card, 2), index};
    if (!Text(card, 6).empty()) ++with_constraints_;
    if (!grid_index_.emplace(key, grids_.size()).second) {
      return Fault(card, fmt::format("node {} is there twice", key), "remove one");
    }
    grids_.push_back(grid);
    Source(Kind::kNode, key, index);
  }

  void ReadSystem(const NasCard& card, std::size_t index) {
    const char letter = card.name[5];
    const std::int32_t type = letter == 'R'   ? tagTCord::kRectangular
                              : letter == 'C' ? tagTCord::kCylindrical
                                              : tagTCord::kSpherical;
    if (card.name[4] == '1') {
      for (std::size_t part = 0; part < 2; ++part) {
        const std::size_t at = part * 4;
        if (part == 1 && Text(card, at).empty()) break;
        const Key key = Number(card, at);
        if (!NewSystem(card, key, type)) return;
        by_nodes_.push_back({systems_.size() - 1,
                             {Number(card, at + 1), Number(card, at + 2), Number(card, at + 3)},
                             index});
        Source(Kind::kSystem, key, index, part);
      }
      return;
    }
    if (card.name[4] != '2') {
      ++carried_[card.name];
      return Source(Kind::kCarried, 0, index);
    }
    const Key key = Number(card, 0);
    if (!NewSystem(card, key, type)) return;
    tagTCord& system = systems_.back();
    system.reference = static_cast<ITR>(Number(card, 1));
    const auto point = [&](std::size_t at) {
      const auto p = Vector(card, at);
      return tagTVector3<double>{p[0], p[1], p[2]};
    };
    system.origin = point(2);
    system.axis_point = point(5);
    system.plane_point = point(8);
    Source(Kind::kSystem, key, index);
  }

  bool NewSystem(const NasCard& card, Key key, std::int32_t type) {
    if (key < 1) Fault(card, "the coordinate system has no number", "give it one");
    if (!system_index_.emplace(key, systems_.size()).second) {
      Fault(card, fmt::format("coordinate system {} is there twice", key), "remove one");
      return false;
    }
    tagTCord system;
    system.key = key;
    system.name.Set(Utf16(fmt::format("{} {}", card.name, key)));
    system.type = type;
    system.plane = 2;  // a point on z, and one in the plane of z and x
    systems_.push_back(system);
    return key > 0;
  }

  void ReadElement(const NasCard& card, const ElementCard& kind, std::size_t index) {
    const Key key = Number(card, 0);
    if (key < 1) return Fault(card, "the element has no number", "give it one");
    const std::size_t first = kind.first_node;
    std::array<Key, 20> nodes{};
    std::size_t given = 0;
    for (std::size_t i = 0; i < kind.nodes; ++i) {
      // The numbers of a bar's nodes follow each other; behind them stands its orientation.
      nodes[i] = Number(card, first + i);
      given += nodes[i] > 0;
    }
    const bool is_quadratic = kind.quadratic != 0 && given == kind.nodes;
    const bool is_whole =
        std::all_of(nodes.begin(), nodes.begin() + static_cast<std::ptrdiff_t>(kind.corners),
                    [](Key node) { return node > 0; });
    std::int32_t type = is_quadratic ? kind.quadratic : kind.linear;
    std::size_t count = is_quadratic ? kind.nodes : kind.corners;
    if (card.name == "CBUSH" && nodes[0] > 0 && nodes[1] == 0) {
      type = element::kPoint;  // to the ground
      count = 1;
    } else if (!is_whole) {
      return Fault(card, fmt::format("it has fewer than {} nodes", kind.corners), "complete it");
    }
    if (!is_quadratic && given > kind.corners) ++reduced_[card.name];
    if (card.name == "PLOTEL" && element_index_.contains(key)) {
      ++carried_[card.name];  // its numbers may be those of elements
      return Source(Kind::kCarried, 0, index);
    }
    if (!element_index_.emplace(key, deck_.elements.size()).second) {
      return Fault(card, fmt::format("element {} is there twice", key), "remove one");
    }
    Key property = 0;
    if (kind.has_property) property = Number(card, 1, DefaultsOf(card), key);
    deck_.elements.push_back({key, type, deck_.connectivity.size(), property});
    const std::size_t at = deck_.connectivity.size();
    deck_.connectivity.resize(at + count);
    const std::int8_t* order = NasOrder(type);
    for (std::size_t i = 0; i < count; ++i) {
      deck_.connectivity[at + (order ? static_cast<std::size_t>(order[i]) : i)] = nodes[i];
    }
    element_cards_.push_back(index);
    blocks_[card.name].push_back(key);
    Source(Kind::kElement, key, index);
    if (card.name == "CBAR" || card.name == "CBEAM" || card.name == "CBUSH")
      ReadLine(card, key, type);
    if (card.name == "CONM2") ReadMass(card, key);
  }

  const NasCard* DefaultsOf(const NasCard& card) const {
    return card.name == "CBAR" ? bar_defaults_ : card.name == "CBEAM" ? beam_defaults_ : nullptr;
  }

  /// Orientation, offsets and releases of bars and beams.
  void ReadLine(const NasCard& card, Key key, std::int32_t type) {
    if (type == element::kPoint) return;
    const NasCard* defaults = DefaultsOf(card);
    const bool own = !Text(card, 4).empty() || !Text(card, 5).empty() || !Text(card, 6).empty();
    const NasCard& from = own || !defaults ? card : *defaults;
    const std::string_view first = Text(from, 4);
    if (!first.empty() || !Text(from, 5).empty() || !Text(from, 6).empty()) {
      tagTEcrd orientation;
      orientation.key = key;
      orientation.element_type = type;
      const bool is_node = DeckInteger(first) && Text(from, 5).empty() && Text(from, 6).empty() &&
                           !first.empty() && first.find('.') == std::string_view::npos;
      if (is_node) {
        orientation.method = tagTEcrd::kByNode;
        orientation.reference_node = static_cast<ITR>(Number(from, 4));
      } else {
        const auto v = Vector(from, 4);
        orientation.method = tagTEcrd::kByVector;
        orientation.reference_vector = {v[0], v[1], v[2]};
      }
      deck_.Of<tagTEcrd>().push_back(orientation);
    }
    if (card.name == "CBUSH") return;
    ReadOffsets(card, key);
    ReadReleases(card, key);
  }

  void ReadOffsets(const NasCard& card, Key key) {
    const auto a = Vector(card, 10);
    const auto b = Vector(card, 13);
    const auto is_zero = [](const std::array<double, 3>& v) {
      return v[0] == 0 && v[1] == 0 && v[2] == 0;
    };
    if (is_zero(a) && is_zero(b)) return;
    tagTE1DOffset offset;
    offset.key = static_cast<Key>(deck_.Of<tagTE1DOffset>().size()) + 1;
    offset.elements.Add(static_cast<ITR>(key));
    offset.end_a = !is_zero(a);
    offset.end_b = !is_zero(b);
    for (std::size_t i = 0; i < 3; ++i) {
      offset.offset_a[i] = a[i];
      offset.offset_b[i] = b[i];
    }
    offset.csys_type = 0;
    offset.from_section = 0;
    deck_.Of<tagTE1DOffset>().push_back(offset);
  }

  void ReadReleases(const NasCard& card, Key key) {
    const std::string_view ends[] = {Text(card, 8), Text(card, 9)};
    if (ends[0].empty() && ends[1].empty()) return;
    tagTE1DRelease release;
    release.key = static_cast<Key>(deck_.Of<tagTE1DRelease>().size()) + 1;
    release.elements.Add(static_cast<ITR>(key));
    bool any = false;
    for (std::size_t end = 0; end < 2; ++end) {
      for (const char c : ends[end]) {
        if (c < '1' || c > '6') continue;
        release.released[end * 6 + static_cast<std::size_t>(c - '1')] = 1;
        any = true;
      }
    }
    if (any) deck_.Of<tagTE1DRelease>().push_back(release);
  }

  void ReadMass(const NasCard& card, Key key) {
    tagTSprop mass;
    mass.key = key;
    mass.mass = Real(card, 3);
    const auto offset = Vector(card, 4);
    mass.offset = {offset[0], offset[1], offset[2]};
    mass.has_offset = offset[0] != 0 || offset[1] != 0 || offset[2] != 0;
    for (std::size_t i = 0; i < 6; ++i) mass.inertia[i] = Real(card, 8 + i);
    if (const Key system = Number(card, 2)) mass.coordinate_system = static_cast<ITR>(system);
    deck_.Of<tagTSprop>().push_back(mass);
  }

  bool ReadMaterial(const NasCard& card, std::size_t index) {
    tagTMatl material;
    bool in_part = false;
    if (!ReadNasMaterial(*this, card, material, in_part)) return false;
    if (material.key < 1 || !material_keys_.insert(material.key).second) {
      Fault(card, "the material has no number of its own", "give it one");
      return true;
    }
    simplified_[card.name] += in_part;
    deck_.Of<tagTMatl>().push_back(material);
    Source(Kind::kMaterial, material.key, index);
    return true;
  }

  bool ReadProperty(const NasCard& card, std::size_t index) {
    tagTProp property;
    bool in_part = false;
    if (!ReadNasProperty(*this, card, property, in_part)) return false;
    if (property.key < 1 || !property_keys_.insert(property.key).second) {
      Fault(card, "the property has no number of its own", "give it one");
      return true;
    }
    simplified_[card.name] += in_part;
    deck_.Of<tagTProp>().push_back(property);
    Source(Kind::kProperty, property.key, index);
    return true;
  }

  // ---- together ---------------------------------------------------------------------------------

  /// Brings nodes from their systems into the basic one. Systems may rest on nodes, and nodes on
  /// systems, so both are worked through until nothing more is known.
  void PlaceNodes() {
    CQXDBSession scratch(AddStandardPools);
    auto& pool = *scratch.GetPool<DPoolCord>(code::kCord);
    pool.RemoveAll();
    std::unordered_map<Key, std::array<double, 3>> placed;
    std::unordered_map<Key, ITR> known;
    std::vector<char> node_done(grids_.size(), 0);
    std::vector<char> system_done(systems_.size(), 0);
    std::map<std::size_t, std::size_t> nodes_of;  // of a system, its place in by_nodes_
    for (std::size_t i = 0; i < by_nodes_.size(); ++i) nodes_of[by_nodes_[i].system] = i;
    bool goes_on = true;
    while (goes_on) {
      goes_on = false;
      for (std::size_t s = 0; s < systems_.size(); ++s) {
        if (system_done[s]) continue;
        tagTCord system = systems_[s];
        const auto reference = static_cast<Key>(system.reference);
        const auto by_nodes = nodes_of.find(s);
        if (by_nodes != nodes_of.end()) {
          const auto& nodes = by_nodes_[by_nodes->second].nodes;
          if (!placed.contains(nodes[0]) || !placed.contains(nodes[1]) ||
              !placed.contains(nodes[2]))
            continue;
          const auto point = [&](Key node) {
            const auto& p = placed.at(node);
            return tagTVector3<double>{p[0], p[1], p[2]};
          };
          systems_[s].origin = system.origin = point(nodes[0]);
          systems_[s].axis_point = system.axis_point = point(nodes[1]);
          systems_[s].plane_point = system.plane_point = point(nodes[2]);
        } else if (reference != 0 && !known.contains(reference)) {
          continue;
        }
        system.reference = reference != 0 ? known.at(reference) : 0;
        known[system.key] = pool.InsertNU(system);
        system_done[s] = 1;
        goes_on = true;
      }
      for (std::size_t n = 0; n < grids_.size(); ++n) {
        if (node_done[n]) continue;
        Grid& grid = grids_[n];
        if (grid.system != 0) {
          const auto system = known.find(grid.system);
          if (system == known.end()) continue;
          Frame frame;
          if (!pool.GetFrame(system->second, frame)) continue;
          const Vector3 local = ToRectangular(pool.GetAtNU(system->second).type,
                                              Vector3(grid.at[0], grid.at[1], grid.at[2]));
          const Vector3 global = frame.origin + frame.axes.ToGlobal(local);
          grid.at = {global.x, global.y, global.z};
          ++moved_;
        }
        node_done[n] = 1;
        placed[grid.key] = grid.at;
        goes_on = true;
      }
    }
    for (std::size_t s = 0; s < systems_.size(); ++s) {
      if (!system_done[s] && faults_.size() < LossReport::kMostFaults) {
        faults_.push_back({file_, fmt::format("coordinate system {}", systems_[s].key),
                           "what it is given in is not there, or leads back to it",
                           "complete or correct it"});
      }
    }
    for (std::size_t n = 0; n < grids_.size(); ++n) {
      if (node_done[n]) continue;
      Fault(text_.Cards()[grids_[n].card],
            fmt::format("coordinate system {} of the node is not there", grids_[n].system),
            "add it or correct the number");
    }
    for (const Grid& grid : grids_) {
      deck_.node_keys.push_back(grid.key);
      deck_.coordinates.insert(deck_.coordinates.end(), grid.at.begin(), grid.at.end());
      if (grid.output > 0) outputs_[grid.output].push_back(grid.key);
    }
    deck_.Of<tagTCord>() = systems_;
    for (const auto& [system, nodes] : outputs_) {
      if (!system_index_.contains(system)) {
        faults_.push_back({file_, fmt::format("coordinate system {}", system),
                           "nodes have their displacements in it and it is not there", "add it"});
        continue;
      }
      tagTMeshCsys assigned;
      assigned.key = static_cast<Key>(deck_.Of<tagTMeshCsys>().size()) + 1;
      assigned.mesh_set = deck_.groups.size() + 1;
      assigned.coordinate_system = static_cast<ITR>(system);
      deck_.Of<tagTMeshCsys>().push_back(assigned);
      deck_.groups.push_back({fmt::format("displacements in system {}", system), 0, {}, nodes});
    }
  }

  void CheckReferences() {
    for (std::size_t e = 0; e < deck_.elements.size() && !IsFull(); ++e) {
      for (std::size_t i = 0; i < deck_.NodesOf(e); ++i) {
        const Key node = deck_.connectivity[deck_.elements[e].first + i];
        if (grid_index_.contains(node)) continue;
        Fault(text_.Cards()[element_cards_[e]], fmt::format("its node {} is not there", node),
              "add the node or remove the element");
      }
    }
    // An orientation node that is not there leaves the element to its card.
    for (tagTEcrd& orientation : deck_.Of<tagTEcrd>()) {
      const auto node = static_cast<Key>(orientation.reference_node);
      if (orientation.method != tagTEcrd::kByNode || grid_index_.contains(node)) continue;
      faults_.push_back({file_, fmt::format("element {}", orientation.key),
                         fmt::format("its orientation node {} is not there", node),
                         "add the node"});
      if (IsFull()) break;
    }
  }

  /// Numbers of properties and materials without a card keep their place.
  void MakePlaceholders() {
    std::uint64_t properties = 0;
    for (const Mesh::Element& element : deck_.elements) {
      if (element.property == 0 || !property_keys_.insert(element.property).second) continue;
      tagTProp property;
      property.key = element.property;
      property.name.Set(Utf16(fmt::format("property {}", element.property)));
      deck_.Of<tagTProp>().push_back(property);
      ++properties;
    }
    if (properties > 0) {
      deck_.report.Assumed(fmt::format(
          "{} properties have no card that is read: they hold their number", properties));
    }
    for (tagTProp& property : deck_.Of<tagTProp>()) {
      const auto material = static_cast<Key>(property.material);
      if (material == 0 || material_keys_.contains(material)) continue;
      property.material = 0;
      deck_.report.Lost("materials of properties that are not there", 1,
                        fmt::format("property {}", property.key));
    }
    Key key = 0;
    for (const auto& [kind, number] : sets_) {
      tagTBset set;
      set.key = ++key;
      set.name.Set(Utf16(fmt::format("{} {}", kind, number)));
      deck_.Of<tagTBset>().push_back(set);
    }
  }

  /// The card that each element was read from.
  void MakeBlocks() {
    Key key = 0;
    for (const auto& [name, keys] : blocks_) {
      tagTBlock block;
      block.key = ++key;
      block.format.Set(u"nastran");
      block.name.Set(Utf16(name));
      for (const Key element : keys) block.elements.Add(static_cast<ITR>(element));
      deck_.Of<tagTBlock>().push_back(std::move(block));
    }
  }

  void Tell() {
    LossReport& report = deck_.report;
    for (const auto& [name, count] : reduced_) {
      report.Changed(name + " without all mid-side nodes were read by their corners", count);
    }
    for (const auto& [name, count] : simplified_) {
      if (count == 0) continue;
      report.Assumed(
          fmt::format("{} {} are held in part; their cards are carried whole", count, name));
    }
    if (moved_ > 0) {
      report.Assumed(fmt::format("{} nodes given in local systems are in the basic one", moved_));
    }
    const auto list = [](const std::map<std::string, std::uint64_t>& counts) {
      std::string names;
      for (const auto& [name, count] : counts) {
        names += fmt::format("{}{} {}", names.empty() ? "" : ", ", name, count);
      }
      return names;
    };
    if (!carried_.empty()) report.Assumed("cards carried as text: " + list(carried_));
    if (!unchecked_.cards.empty()) {
      report.Assumed("cards not checked against renumbering: " + list(unchecked_.cards),
                     "it is not known which of their numbers are nodes or elements");
    }
    if (!unchecked_.ranges.empty()) {
      report.Assumed("ranges (THRU) not checked against renumbering: " + list(unchecked_.ranges),
                     "what lies between their ends is not named");
    }
    if (with_constraints_ > 0) {
      report.Assumed(fmt::format("{} nodes have permanent constraints, which their cards carry",
                                 with_constraints_));
    }
  }

  struct ByNodes {
    std::size_t system;
    std::array<Key, 3> nodes;
    std::size_t card;
  };

  std::vector<NasSource>* sources_;
  Deck deck_;
  const NasCard* grid_defaults_ = nullptr;
  const NasCard* bar_defaults_ = nullptr;
  const NasCard* beam_defaults_ = nullptr;
  std::vector<Grid> grids_;
  std::unordered_map<Key, std::size_t> grid_index_;
  std::unordered_map<Key, std::size_t> element_index_;
  std::vector<std::size_t> element_cards_;
  std::vector<tagTCord> systems_;
  std::map<Key, std::size_t> system_index_;
  std::vector<ByNodes> by_nodes_;
  std::set<Key> material_keys_;
  std::set<Key> property_keys_;
  std::map<std::string, std::vector<Key>> blocks_;
  std::map<Key, std::vector<Key>> outputs_;
  std::set<std::pair<std::string, Key>> sets_;
  std::map<std::string, std::uint64_t> carried_;
  std::map<std::string, std::uint64_t> reduced_;
  std::map<std::string, std::uint64_t> simplified_;
  NasUnchecked unchecked_;
  std::uint64_t moved_ = 0;
  std::uint64_t with_constraints_ = 0;
};

}  // namespace

const std::int8_t* NasOrder(std::int32_t type) {
  if (type == element::kWedge15) return kWedge15;
  return type == element::kHex20 ? kHex20 : nullptr;
}

Key NasSystemNumber(const tagTCord& system) {
  const std::string name = Utf8(system.name.View());
  const std::size_t blank = name.rfind(' ');
  Key number = 0;
  if (name.starts_with("CORD") && blank != std::string::npos) {
    std::from_chars(name.data() + blank + 1, name.data() + name.size(), number);
  }
  return number > 0 ? number : system.key;
}

Result<Deck> ParseNastran(const NasText& text, const std::string& file,
                          std::vector<Failure>& faults, std::vector<NasSource>* sources) {
  return NasReader(text, file, faults, sources).Read();
}

Result<Deck> ReadNastran(const std::string& path, const ReadOptions& options,
                         std::vector<Failure>& faults) {
  LossReport report;
  const auto text = NasText::Read(path, options, faults, report);
  if (!text) return faults.front();
  if (options.progress) options.progress(0.3);
  Result<Deck> deck = ParseNastran(*text, path, faults);
  if (deck) deck->report.Append(report);
  if (options.progress) options.progress(1.0);
  return deck;
}

}  // namespace qx::exchange
