#include "exchange/nastran/nas_reader.h"

#include <algorithm>
#include <array>
#include <fmt/format.h>
#include <map>
#include <set>
#include <unordered_map>

#include "qx_db/platform/text.h"
#include "qx_db/record/element_types.h"

#include "exchange/nastran/nas_card_text.h"
#include "exchange/nastran/nas_control.h"
#include "exchange/nastran/nas_lines.h"
#include "exchange/nastran/nas_names.h"
#include "exchange/nastran/nas_placing.h"
#include "exchange/nastran/nas_properties.h"
#include "exchange/nastran/nas_rules.h"
#include "exchange/nastran/nas_shells.h"
#include "exchange/nastran/nas_systems.h"
#include "exchange/nastran/nas_tally.h"

namespace qx::exchange {
namespace {

constexpr std::int8_t kWedge15[] = {0, 1, 2, 3, 4, 5, 6, 7, 8, 12, 13, 14, 9, 10, 11};
constexpr std::int8_t kHex20[] = {0,  1,  2,  3,  4,  5,  6,  7,  8,  9,
                                  10, 11, 16, 17, 18, 19, 12, 13, 14, 15};

class NasReader : private NasFieldReader {
 public:
  NasReader(const NasText& text, const std::string& file, std::vector<Failure>& faults,
            const NasReading& reading)
      : NasFieldReader(text, file, faults), reading_(reading) {}

  Result<Deck> Read() {
    deck_.format = "nastran";
    // Defaults first, then what others refer to. Plotted lines come last: they may have the numbers
    // of other elements.
    for (const NasCard& card : text_.Cards()) {
      if (card.name == "GRDSET") grid_defaults_ = &card;
      if (card.name == "BAROR") bar_defaults_ = &card;
      if (card.name == "BEAMOR") beam_defaults_ = &card;
    }
    StepCounter steps(reading_.progress, 3 * text_.Cards().size());
    for (const bool is_plotted : {false, true}) {
      for (std::size_t i = 0; i < text_.Cards().size() && !IsFull(); ++i) {
        steps.Step();
        const NasCard& card = text_.Cards()[i];
        if (!card.is_gone && (card.name == "PLOTEL") == is_plotted) ReadCard(i);
      }
    }
    PlaceNodes();
    if (!IsOfModel()) CheckReferences();
    ReadLines();
    TellFaults();
    if (!faults_.empty()) return faults_.front();
    GiveProperties();
    MakePlaceholders();
    MakeBlocks();
    ReadNasNames(text_, deck_);
    if (IsOfModel()) return Result<Deck>(std::move(deck_));
    ReadNasSets(text_, deck_);
    FindUntold(steps);
    if (reading_.leaves_text) {
      deck_.report = {};
      TellText();
      return Result<Deck>(std::move(deck_));
    }
    if (reading_.carries) Carry();
    Tell();
    if (Outcome checked = CheckMesh(deck_, file_); !checked) {
      faults_.push_back(checked.Error());
      return checked.Error();
    }
    return Result<Deck>(std::move(deck_));
  }

 private:
  using Kind = NasSource::Kind;
  bool IsOfModel() const { return static_cast<bool>(reading_.is_described); }

  void Source(Kind kind, Key key, std::size_t card, std::size_t part = 0, std::size_t own = 0) {
    if (reading_.sources) reading_.sources->push_back({kind, key, card, part});
    if (kind == Kind::kCarried || !reading_.carries) return;
    const NasField& field = text_.Cards()[card].fields[own];
    definitions_.push_back({field, kind, key});
  }

  // ---- cards ------------------------------------------------------------------------------------

  void ReadCard(std::size_t index) {
    const NasCard& card = text_.Cards()[index];
    if (IsOfModel() && !reading_.is_described(index)) return CarryCard(card, index);
    if (card.name == "GRID") return ReadGrid(card, index);
    if (card.name.starts_with('=')) {
      return Fault(card, "replicated cards are not read", "write them out");
    }
    if (card.name.starts_with("CORD") && card.name.size() == 6) return ReadSystem(card, index);
    if (IsNasMaterial(card.name)) return ReadMaterial(card, index);
    if (IsNasProperty(card.name)) return ReadProperty(card, index);
    if (const NasElementCard* kind = FindNasElementCard(card.name)) {
      return ReadElement(card, *kind, index);
    }
    CarryCard(card, index);
  }

  void CarryCard(const NasCard& card, std::size_t index) {
    Source(Kind::kCarried, 0, index);
    carried_.Add(text_, card);
    const std::string_view set = NasBoundarySet(card.name);
    const auto number = DeckInteger(Text(card, 0));
    if (!set.empty() && number && *number > 0 && *number <= kMaxKey) {
      sets_.emplace(set, static_cast<Key>(*number));
    }
  }

  void ReadGrid(const NasCard& card, std::size_t index) {
    const Key key = Number(card, 0);
    if (key < 1) return Fault(card, "field 2: the node has no number", "give it one");
    const NasCard* of_output = Text(card, 5).empty() && grid_defaults_ ? grid_defaults_ : &card;
    const bool is_fluid = DeckInteger(Text(*of_output, 5)) == -1;
    NasGrid grid{key, Number(card, 1, grid_defaults_), is_fluid ? 0 : Number(*of_output, 5),
                 Vector(card, 2), index};
    with_constraints_ += DeckInteger(Text(card, 6)).value_or(0) != 0;
    in_fluid_ += is_fluid;
    in_superelements_ += !Text(card, 7).empty();
    if (!grid_index_.emplace(key, grids_.size()).second) {
      return Fault(card, fmt::format("field 2: node {} is there twice", key), "remove one");
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
        if (Text(card, at).empty() && (part == 1 || IsOfModel())) continue;
        const Key key = Number(card, at);
        if (!NewSystem(card, key, type)) return;
        on_nodes_.push_back({systems_.size() - 1,
                             {Number(card, at + 1), Number(card, at + 2), Number(card, at + 3)}});
        Source(Kind::kSystem, key, index, part, at);
      }
      return;
    }
    if (card.name[4] != '2') return CarryCard(card, index);
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
    system_cards_.push_back(&card);
    return key > 0;
  }

  void ReadElement(const NasCard& card, const NasElementCard& kind, std::size_t index) {
    const Key key = Number(card, 0);
    if (key < 1) return Fault(card, "field 2: the element has no number", "give it one");
    const auto nodes_of = [](std::int32_t type) {
      return static_cast<std::size_t>(type ? FindElementType(type)->nodes : 0);
    };
    const std::size_t corners = nodes_of(kind.linear);
    const std::size_t most = std::max(corners, nodes_of(kind.quadratic));
    std::array<Key, 20> nodes{};
    std::size_t given = 0;
    for (std::size_t i = 0; i < most; ++i) {
      // The numbers of a bar's nodes follow each other; behind them stands its orientation.
      nodes[i] = Number(card, kind.first_node + i);
      given += nodes[i] > 0;
    }
    const bool is_quadratic = kind.quadratic != 0 && given == most;
    const auto missing = static_cast<std::size_t>(
        std::find(nodes.begin(), nodes.begin() + static_cast<std::ptrdiff_t>(corners), 0) -
        nodes.begin());
    std::int32_t type = is_quadratic ? kind.quadratic : kind.linear;
    std::size_t count = is_quadratic ? most : corners;
    if (kind.single && missing == 1 && count > 1) {  // to the ground
      type = kind.single;
      count = 1;
    } else if (missing < corners && !IsOfModel()) {
      return Fault(card,
                   fmt::format("field {} is blank: it has fewer than {} nodes",
                               kind.first_node + missing + 2, corners),
                   "complete it");
    }
    if (!is_quadratic && given > corners) reduced_.Add(text_, card);
    if (card.name == "PLOTEL" && element_index_.contains(key)) {
      ++plotted_twice_;
      return Source(Kind::kCarried, 0, index);
    }
    if (!element_index_.emplace(key, deck_.elements.size()).second) {
      return Fault(card, fmt::format("field 2: element {} is there twice", key), "remove one");
    }
    Key property = 0;
    if (kind.has_property) property = Number(card, 1, DefaultsOf(card));
    by_own_number_.push_back(kind.has_property && property == 0);
    deck_.elements.push_back({key, type, deck_.connectivity.size(), property});
    const std::size_t at = deck_.connectivity.size();
    deck_.connectivity.resize(at + count);
    const std::int8_t* order = NasOrder(type);
    for (std::size_t i = 0; i < count; ++i) {
      deck_.connectivity[at + (order ? static_cast<std::size_t>(order[i]) : i)] = nodes[i];
    }
    element_cards_.push_back(index);
    Source(Kind::kElement, key, index);
  }

  const NasCard* DefaultsOf(const NasCard& card) const {
    return card.name == "CBAR" ? bar_defaults_ : card.name == "CBEAM" ? beam_defaults_ : nullptr;
  }

  /// Orientation, offsets and releases of lines, masses, and what single shells have, once nodes
  /// and systems are known.
  void ReadLines() {
    const NasSystems systems(systems_);
    std::unordered_map<Key, Key> output;
    for (const NasGrid& grid : grids_) {
      if (grid.output > 0) output[grid.key] = grid.output;
    }
    const NasNodeFrames frames = [&](Key node) {
      const auto grid = grid_index_.find(node);
      if (grid == grid_index_.end()) return NasNodeFrame();
      const Vector3 at(grids_[grid->second].at.data());
      const auto of = output.find(node);
      if (of == output.end()) return NasNodeFrame{at, Triad()};
      return NasNodeFrame{at, systems.AxesAt(of->second, at).value_or(Triad())};
    };
    NasShellReader shells(*this, deck_);
    for (std::size_t e = 0; e < deck_.elements.size(); ++e) {
      const NasCard& card = text_.Cards()[element_cards_[e]];
      const Key* nodes = &deck_.connectivity[deck_.elements[e].first];
      if (card.name == "CONM2") ReadNasMass(*this, card, nodes[0], frames, deck_);
      if (IsNasShell(card.name)) shells.Read(card, deck_.elements[e].key, systems);
      if (!IsNasLine(card.name) || deck_.elements[e].type == element::kPoint) continue;
      ReadNasLine(*this, card, DefaultsOf(card), {nodes[0], nodes[1]}, frames, systems, deck_);
    }
    // An orientation node that is not there leaves the element to its card.
    for (const tagTEcrd& orientation : deck_.Of<tagTEcrd>()) {
      const auto node = static_cast<Key>(orientation.reference_node);
      if (orientation.method != tagTEcrd::kByNode || grid_index_.contains(node) || IsOfModel())
        continue;
      Fault(text_.Cards()[element_cards_[element_index_.at(orientation.key)]],
            fmt::format("field 6: its orientation node {} is not there", node), "add the node");
    }
  }

  void ReadMaterial(const NasCard& card, std::size_t index) {
    tagTMatl material;
    ReadNasMaterial(*this, card, material);
    if (material.key < 1 || !material_keys_.insert(material.key).second) {
      return Fault(card, "field 2: the material has no number of its own", "give it one");
    }
    deck_.Of<tagTMatl>().push_back(material);
    material_sources_.push_back(&card);
    Source(Kind::kMaterial, material.key, index);
  }

  void ReadProperty(const NasCard& card, std::size_t index) {
    tagTProp property;
    ReadNasProperty(*this, card, property);
    if (property.key < 1 || !property_keys_.insert(property.key).second) {
      return Fault(card, "field 2: the property has no number of its own", "give it one");
    }
    deck_.Of<tagTProp>().push_back(property);
    property_sources_.push_back(&card);
    Source(Kind::kProperty, property.key, index);
  }

  // ---- together ---------------------------------------------------------------------------------

  void PlaceNodes() {
    const NasPlaced placed = PlaceNasNodes(grids_, systems_, on_nodes_, grid_index_);
    moved_ = placed.moved;
    for (const std::size_t s : placed.without_axes) without_axes_.Add(text_, *system_cards_[s]);
    for (std::size_t s = 0; s < systems_.size() && !IsOfModel(); ++s) {
      if (placed.systems[s]) continue;
      Fault(*system_cards_[s],
            fmt::format(
                "field 3 and on: what coordinate system {} is given in is not there, or leads "
                "back to it",
                systems_[s].key),
            "complete or correct it");
    }
    for (std::size_t n = 0; n < grids_.size() && !IsOfModel(); ++n) {
      if (placed.nodes[n]) continue;
      Fault(text_.Cards()[grids_[n].card],
            fmt::format("field 3: coordinate system {} of the node is not there, or has no axes",
                        grids_[n].system),
            "add it or correct the number");
    }
    for (const NasGrid& grid : grids_) {
      deck_.node_keys.push_back(grid.key);
      deck_.coordinates.insert(deck_.coordinates.end(), grid.at.begin(), grid.at.end());
    }
    deck_.Of<tagTCord>() = systems_;
    AssignOutputs();
  }

  /// Nodes whose displacements are in a system are a mesh set that the system is assigned to.
  void AssignOutputs() {
    std::map<Key, std::vector<Key>> outputs;
    for (const NasGrid& grid : grids_) {
      if (grid.output < 1) continue;
      if (!system_index_.contains(grid.output)) {
        if (IsOfModel()) continue;
        Fault(text_.Cards()[grid.card],
              fmt::format("field 7: system {} of its displacements is not there", grid.output),
              "add it or correct the number");
        continue;
      }
      outputs[grid.output].push_back(grid.key);
    }
    for (const auto& [system, nodes] : outputs) {
      tagTMeshCsys assigned;
      assigned.key = static_cast<Key>(deck_.Of<tagTMeshCsys>().size()) + 1;
      assigned.mesh_set = deck_.groups.size() + 1;
      assigned.coordinate_system = static_cast<ITR>(system);
      deck_.Of<tagTMeshCsys>().push_back(assigned);
      deck_.groups.push_back({fmt::format("{}{}", kNasOutputSet, system), 0, {}, nodes});
    }
  }

  void CheckReferences() {
    for (std::size_t e = 0; e < deck_.elements.size() && !IsFull(); ++e) {
      for (std::size_t i = 0; i < deck_.NodesOf(e); ++i) {
        const Key node = deck_.connectivity[deck_.elements[e].first + i];
        if (grid_index_.contains(node)) continue;
        const NasCard& card = text_.Cards()[element_cards_[e]];
        std::size_t field = FindNasElementCard(card.name)->first_node;
        while (Number(card, field) != node) ++field;
        Fault(card, fmt::format("field {}: its node {} is not there", field + 2, node),
              "add the node or remove the element");
      }
    }
  }

  /// An element that names no property has the one of its own number, where there is one.
  void GiveProperties() {
    for (std::size_t e = 0; e < deck_.elements.size(); ++e) {
      if (!by_own_number_[e]) continue;
      Mesh::Element& element = deck_.elements[e];
      if (property_keys_.contains(element.key)) {
        element.property = element.key;
      } else {
        without_property_.Add(text_, text_.Cards()[element_cards_[e]]);
      }
    }
  }

  /// Numbers of properties and materials without a card keep their place.
  void MakePlaceholders() {
    std::uint64_t properties = 0;
    for (const Mesh::Element& element : deck_.elements) {
      if (element.property == 0 || !property_keys_.insert(element.property).second) continue;
      tagTProp property;
      property.key = element.property;
      property.name.Set(Utf16(fmt::format("{}{}", kNasPlaceholder, element.property)));
      deck_.Of<tagTProp>().push_back(property);
      ++properties;
    }
    if (properties > 0) {
      deck_.report.Assumed(fmt::format(
          "{} properties have no card that is read: they hold their number", properties));
    }
    for (tagTProp& property : deck_.Of<tagTProp>()) {
      LeaveIfUnknown(property.coordinate_system);
      const auto material = static_cast<Key>(property.material);
      if (material == 0 || material_keys_.contains(material)) continue;
      property.material = 0;
      deck_.report.Lost("materials of properties were left out", 1,
                        fmt::format("property {}", property.key),
                        "no card that is read describes them");
    }
    for (tagTSprop& mass : deck_.Of<tagTSprop>()) LeaveIfUnknown(mass.coordinate_system);
    Key key = 0;
    for (const auto& [kind, number] : sets_) {
      tagTBset set;
      set.key = ++key;
      set.name.Set(Utf16(fmt::format("{} {}", kind, number)));
      deck_.Of<tagTBset>().push_back(set);
    }
  }

  /// A system that the deck lacks stays in the card, which is held in part then.
  void LeaveIfUnknown(TRef<code::kCord>& system) const {
    const auto number = static_cast<Key>(system);
    if (number != 0 && !system_index_.contains(number)) system = 0;
  }

  /// The card that each element was read from.
  void MakeBlocks() {
    std::map<std::string, std::vector<Key>> blocks;
    for (std::size_t e = 0; e < deck_.elements.size(); ++e) {
      blocks[std::string(text_.Cards()[element_cards_[e]].name)].push_back(deck_.elements[e].key);
    }
    Key key = 0;
    for (const auto& [name, keys] : blocks) {
      tagTBlock block;
      block.key = ++key;
      block.format.Set(u"nastran");
      block.name.Set(Utf16(name));
      for (const Key element : keys) block.elements.Add(static_cast<ITR>(element));
      deck_.Of<tagTBlock>().push_back(std::move(block));
    }
  }

  // ---- the text ---------------------------------------------------------------------------------

  /// Where the numbers of nodes, elements and systems are given.
  void Carry() {
    tagTCarried carried;
    carried.key = 1;
    carried.format.Set(u"nastran");
    carried.keyword.Set(kNasDeck);
    carried.checked = tagTCarried::kChecked;
    for (const NasCard& card : text_.Cards()) {
      if (NasKnowsKeysOf(card)) continue;
      carried.checked = tagTCarried::kUnchecked;
      unchecked_.Add(text_, card);
    }
    carried.text.Assign(text_.Text().data(), text_.Text().size());
    std::sort(definitions_.begin(), definitions_.end(),
              [](const Definition& a, const Definition& b) { return a.field.at < b.field.at; });
    for (const Definition& definition : definitions_) {
      const std::int32_t place = carried.places.GetSize();
      const auto target = static_cast<ITR>(definition.key);
      if (definition.kind == Kind::kNode) {
        carried.node_keys.Add({place, target});
      } else if (definition.kind == Kind::kElement) {
        carried.element_keys.Add({place, target});
      } else if (definition.kind == Kind::kSystem) {
        carried.system_keys.Add({place, target});
      } else {
        continue;
      }
      carried.places.Add({static_cast<std::int32_t>(definition.field.at),
                          static_cast<std::int32_t>(definition.field.length)});
    }
    deck_.Of<tagTCarried>().push_back(std::move(carried));
  }

  /// Cards of which the model has a place for some fields only.
  void FindUntold(StepCounter& steps) {
    std::vector<std::size_t> of_records;  // elements whose cards say more than their nodes
    for (std::size_t e = 0; e < deck_.elements.size(); ++e) {
      steps.Step();
      const NasCard& card = text_.Cards()[element_cards_[e]];
      if (IsNasLine(card.name) || card.name == "CONM2") {
        of_records.push_back(e);
        continue;
      }
      const NasElementCard& kind = *FindNasElementCard(card.name);
      const std::int32_t longest = kind.quadratic ? kind.quadratic : kind.linear;
      const std::size_t behind =
          kind.first_node + static_cast<std::size_t>(FindElementType(longest)->nodes);
      // A material system of 0 is the basic one, an angle of 0. none.
      const std::size_t system = card.name == "CQUAD8" ? behind + 4 : behind;
      const bool is_shell = FindElementType(longest)->dimension == 2 && card.name != "CSHEAR";
      for (std::size_t f = behind; f < card.fields.size(); ++f) {
        const bool is_system = is_shell && f == system && DeckInteger(Text(card, f));
        if (card.fields[f].length == 0 || (DeckReal(Text(card, f)) == 0 && !is_system)) continue;
        if (IsNasShell(card.name)) {
          of_records.push_back(e);
        } else {
          in_part_.Add(text_, card);
        }
        break;
      }
    }
    for (std::size_t i = 0; i < deck_.Of<tagTProp>().size(); ++i) {
      if (i >= property_sources_.size()) break;  // placeholders follow
      const NasCard& card = *property_sources_[i];
      CountUntold(card, NasPropertyCard(card.name, deck_.Of<tagTProp>()[i]), true);
    }
    for (std::size_t i = 0; i < deck_.Of<tagTMatl>().size(); ++i) {
      const NasCard& card = *material_sources_[i];
      CountUntold(card, NasMaterialCard(card.name, deck_.Of<tagTMatl>()[i]));
    }
    if (of_records.empty()) return;
    const NasCardText cards(deck_);
    for (const std::size_t e : of_records) {
      const NasCard& card = text_.Cards()[element_cards_[e]];
      const NasLineForm form = NasLineForm::Of(text_, card, DefaultsOf(card));
      CountUntold(card, cards.Element(deck_.elements[e].key, form));
    }
  }

  /// `counts_blanks`: a number or a word that the record has, and the card leaves blank, is one
  /// that the record takes for another: a shell may do without a material for bending or shear.
  void CountUntold(const NasCard& card, const NasFields& held, bool counts_blanks = false) {
    for (std::size_t f = 0; f < std::max(card.fields.size(), held.Count()); ++f) {
      const std::string_view text = Text(card, f);
      const NasValue::Kind kind = held.At(f).kind;
      const bool is_more = counts_blanks && text.empty() &&
                           (kind == NasValue::Kind::kNumber || kind == NasValue::Kind::kWord);
      if (is_more || !held.At(f).IsRead(text)) return in_part_.Add(text_, card);
    }
  }

  // ---- the report -------------------------------------------------------------------------------

  void Tell() {
    LossReport& report = deck_.report;
    const auto assume = [&](std::string what, std::string where, std::string why) {
      report.Add({Loss::Kind::kAssumed, std::move(what), 1, std::move(where), std::move(why)});
    };
    if (!text_.IsEnded()) {
      assume("the deck was read to its end", "", "no ENDDATA ends it");
    }
    for (const auto& [name, told] : reduced_) {
      report.Changed(name + " without all mid-side nodes were read by their corners", told.count,
                     told.where, "the model has no element with some of them");
    }
    for (const auto& [name, told] : without_property_) {
      assume(fmt::format("{} {} have no property", told.count, name), told.where,
             "they name none, and none has their own number");
    }
    for (const auto& [name, told] : without_axes_) {
      assume(fmt::format("{} {} give no axes", told.count, name), told.where,
             "their points coincide or lie on one line");
    }
    if (moved_ > 0) {
      assume(fmt::format("{} nodes given in local systems are in the basic one", moved_), "", "");
    }
    TellText();
    if (!unchecked_.IsEmpty()) {
      assume("cards not checked against renumbering: " + unchecked_.List(),
             unchecked_.begin()->second.where,
             "it is not known which of their numbers are nodes or elements");
    }
  }

  /// What only the text says: it is carried, or left behind.
  void TellText() {
    LossReport& report = deck_.report;
    const bool is_left = reading_.leaves_text;
    for (const auto& [name, told] : in_part_) {
      constexpr const char* kWhy = "the model has no place for some of their fields";
      if (is_left) {
        report.Lost("what " + name + " cards say besides was left out", told.count, told.where,
                    kWhy);
      } else {
        report.Add(
            {Loss::Kind::kAssumed,
             fmt::format("{} {} are held in part; their cards are carried whole", told.count, name),
             1, told.where, kWhy});
      }
    }
    const auto count = [&](std::uint64_t number, const char* what, const char* left) {
      if (number == 0) return;
      if (is_left) {
        report.Lost(fmt::format("{} were left out", left), number, "", "only their cards say them");
      } else {
        report.Assumed(fmt::format("{} {}", number, what), "their cards carry that");
      }
    };
    count(with_constraints_, "nodes have permanent constraints", "permanent constraints of nodes");
    count(in_superelements_, "nodes are in superelements", "superelements of nodes");
    count(in_fluid_, "nodes are in a fluid", "marks of nodes in a fluid");
    count(text_.Parts(), "superelements are carried as text", "superelements");
    count(plotted_twice_, "PLOTEL have numbers of other elements and are no elements",
          "PLOTEL with numbers of other elements");
    if (carried_.IsEmpty()) return;
    if (is_left) {
      report.Lost("cards carried as text were left out", carried_.Total(),
                  carried_.begin()->second.where, carried_.List());
    } else {
      report.Assumed("cards carried as text: " + carried_.List());
    }
  }

  struct Definition {
    NasField field;
    Kind kind;
    Key key;
  };

  const NasReading& reading_;
  Deck deck_;
  const NasCard* grid_defaults_ = nullptr;
  const NasCard* bar_defaults_ = nullptr;
  const NasCard* beam_defaults_ = nullptr;
  std::vector<NasGrid> grids_;
  std::unordered_map<Key, std::size_t> grid_index_;
  std::unordered_map<Key, std::size_t> element_index_;
  std::vector<std::size_t> element_cards_;
  std::vector<char> by_own_number_;
  std::vector<tagTCord> systems_;
  std::vector<const NasCard*> system_cards_;
  std::map<Key, std::size_t> system_index_;
  std::vector<NasOnNodes> on_nodes_;
  std::vector<const NasCard*> property_sources_;
  std::vector<const NasCard*> material_sources_;
  std::vector<Definition> definitions_;
  std::set<Key> material_keys_;
  std::set<Key> property_keys_;
  std::set<std::pair<std::string, Key>> sets_;
  NasTally carried_;
  NasTally reduced_;
  NasTally in_part_;
  NasTally unchecked_;
  NasTally without_property_;
  NasTally without_axes_;
  std::uint64_t moved_ = 0;
  std::uint64_t with_constraints_ = 0;
  std::uint64_t in_superelements_ = 0;
  std::uint64_t in_fluid_ = 0;
  std::uint64_t plotted_twice_ = 0;
};

}  // namespace

const std::int8_t* NasOrder(std::int32_t type) {
  if (type == element::kWedge15) return kWedge15;
  return type == element::kHex20 ? kHex20 : nullptr;
}

Result<Deck> ParseNastran(const NasText& text, const std::string& file,
                          std::vector<Failure>& faults, const NasReading& reading) {
  return NasReader(text, file, faults, reading).Read();
}

Result<Deck> ReadNastran(const std::string& path, const ReadOptions& options,
                         std::vector<Failure>& faults) {
  LossReport report;
  const auto text = NasText::Read(path, options, faults, report);
  if (!text) return faults.front();
  if (options.progress) options.progress(0.3);
  NasReading reading;
  reading.progress = ShareOf(options.progress, 0.3, 0.9);
  Result<Deck> deck = ParseNastran(*text, path, faults, reading);
  if (deck) deck->report.Append(report);
  if (options.progress) options.progress(1.0);
  return deck;
}

}  // namespace qx::exchange
