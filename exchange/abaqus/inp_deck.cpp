#include "exchange/abaqus/inp_deck.h"

#include <algorithm>
#include <cmath>
#include <fmt/format.h>

#include "qx_db/model/coordinate_pool.h"
#include "qx_db/record/element_types.h"

namespace qx::exchange {
namespace {

tagTVector3<double> Turned(const InpFrame& frame, const tagTVector3<double>& v) {
  return (frame.To(Vector3(v)) - frame.To(Vector3())).As<tagTVector3<double>>();
}

class DeckMaker {
 public:
  explicit DeckMaker(const InpModel& model) : model_(model) {}

  Deck Make(std::vector<InpGroup>* groups) {
    deck_.format = "abaqus";
    deck_.report = model_.report;
    ListMaterials();
    ListSystems();
    ListProperties();
    for (std::size_t p = 0; p < model_.placements.size(); ++p) {
      ListNodes(model_.placements[p]);
      ListElements(model_.placements[p]);
      ListGroups(p);
    }
    for (std::size_t s = 0; s < model_.sets.size(); ++s) {
      if (model_.sets[s].scope == kAssembly) AddGroup(s, AssemblyPlacement());
    }
    NestGroups();
    AssignTransforms();
    MakeBlocks();
    Key key = 0;
    for (const std::string& name : model_.conditions) {
      tagTBset set;
      set.key = ++key;
      set.name.Set(Utf16(name));
      deck_.Of<tagTBset>().push_back(set);
    }
    tagTOrigin origin;
    origin.title.Set(Utf16(model_.title));
    deck_.Of<tagTOrigin>().push_back(origin);
    if (groups) *groups = std::move(groups_);
    return std::move(deck_);
  }

 private:
  const InpScope& ScopeOf(std::size_t placement) const {
    return model_.scopes[model_.placements[placement].scope];
  }
  std::size_t AssemblyPlacement() const {
    for (std::size_t p = 0; p < model_.placements.size(); ++p) {
      if (model_.placements[p].scope == kAssembly) return p;
    }
    return kNoPlace;
  }
  /// The placement that a member belongs to, of a set that stands in `own`.
  const InpPlacement* PlacementOf(std::int32_t instance, std::size_t own) const {
    const std::size_t place = instance < 0 ? own : static_cast<std::size_t>(instance);
    return place == kNoPlace ? nullptr : &model_.placements[place];
  }

  void ListMaterials() {
    for (const InpMaterial& material : model_.materials) {
      tagTMatl record = material.record;
      record.key = static_cast<Key>(deck_.Of<tagTMatl>().size()) + 1;
      materials_.emplace(material.label, record.key);
      deck_.Of<tagTMatl>().push_back(record);
    }
  }

  /// Systems of a part stand where its first instance does.
  void ListSystems() {
    for (const InpSystem& system : model_.systems) {
      tagTCord record = system.record;
      record.key = static_cast<Key>(deck_.Of<tagTCord>().size()) + 2;
      if (!system.label.empty()) systems_.emplace(system.label, record.key);
      deck_.Of<tagTCord>().push_back(record);
    }
  }

  void ListProperties() {
    const std::vector<std::string> names = SectionNames(model_);
    for (std::size_t s = 0; s < model_.sections.size(); ++s) {
      const InpSection& section = model_.sections[s];
      if (section.is_mass) continue;
      tagTProp property = section.property;
      property.key = static_cast<Key>(s) + 1;
      property.name.Set(Utf16(names[s]));
      const auto material = materials_.find(section.material);
      if (material != materials_.end()) property.material = static_cast<ITR>(material->second);
      const auto system = systems_.find(section.system);
      if (system != systems_.end()) property.coordinate_system = static_cast<ITR>(system->second);
      deck_.Of<tagTProp>().push_back(property);
    }
  }

  void ListNodes(const InpPlacement& placement) {
    const InpScope& scope = model_.scopes[placement.scope];
    const std::size_t first = deck_.node_keys.size();
    deck_.node_keys.insert(deck_.node_keys.end(), scope.numbers.begin(), scope.numbers.end());
    deck_.coordinates.insert(deck_.coordinates.end(), scope.points.begin(), scope.points.end());
    for (std::size_t i = first; placement.node_shift > 0 && i < deck_.node_keys.size(); ++i) {
      deck_.node_keys[i] += placement.node_shift;
    }
    for (std::size_t i = first; !placement.frame.is_identity && i < deck_.node_keys.size(); ++i) {
      placement.frame.To(Vector3(&deck_.coordinates[3 * i])).CopyTo(&deck_.coordinates[3 * i]);
    }
  }

  void ListElements(const InpPlacement& placement) {
    const InpScope& scope = model_.scopes[placement.scope];
    for (const InpElement& from : scope.elements) {
      Mesh::Element element{from.number + placement.element_shift, from.type,
                            deck_.connectivity.size()};
      for (std::size_t i = 0; i < InpModel::NodesOf(from); ++i) {
        const InpPlacement* of =
            scope.instances.empty()
                ? &placement
                : PlacementOf(scope.instances[from.first + i],
                              static_cast<std::size_t>(&placement - model_.placements.data()));
        deck_.connectivity.push_back(scope.connectivity[from.first + i] + of->node_shift);
      }
      if (from.section >= 0) {
        const InpSection& section = model_.sections[static_cast<std::size_t>(from.section)];
        if (section.is_mass) {
          AddMass(section, element.key);
        } else {
          element.property = from.section + 1;
          AddAttributes(section, static_cast<std::size_t>(from.section), element, placement.frame);
        }
      }
      blocks_[static_cast<std::size_t>(from.type_name)].push_back(element.key);
      deck_.elements.push_back(element);
    }
  }

  void AddMass(const InpSection& section, Key element) {
    tagTSprop mass;
    mass.key = element;
    mass.mass = section.mass;
    for (std::size_t i = 0; i < 6; ++i) mass.inertia[i] = section.inertia[i];
    deck_.Of<tagTSprop>().push_back(mass);
  }

  void AddAttributes(const InpSection& section, std::size_t index, const Mesh::Element& element,
                     const InpFrame& frame) {
    if (section.direction && FindElementType(element.type)->dimension == 1) {
      tagTEcrd orientation;
      orientation.key = element.key;
      orientation.element_type = element.type;
      orientation.method = tagTEcrd::kByVector;
      orientation.reference_vector = Turned(frame, section.direction->As<tagTVector3<double>>());
      deck_.Of<tagTEcrd>().push_back(orientation);
    }
    if (section.offset != 0) {
      auto& offsets = deck_.Of<tagTE2DOffset>();
      const auto [found, is_new] = offsets_.emplace(index, offsets.size());
      if (is_new) {
        tagTE2DOffset offset;
        offset.key = static_cast<Key>(offsets.size()) + 1;
        // The format says where the nodes lie from the middle, the model the other way round.
        offset.offset = -section.offset * section.property.thickness;
        offsets.push_back(offset);
      }
      offsets[found->second].elements.Add(static_cast<ITR>(element.key));
    }
  }

  // ---- groups -----------------------------------------------------------------------------------

  void ListGroups(std::size_t p) {
    const InpPlacement& placement = model_.placements[p];
    if (placement.scope == kAssembly) return;
    std::int32_t parent = Mesh::Group::kNone;
    if (!placement.name.empty()) {
      Mesh::Group group;
      group.name = placement.name;
      const InpScope& scope = ScopeOf(p);
      for (const InpElement& element : scope.elements) {
        group.elements.push_back(element.number + placement.element_shift);
      }
      for (const Key number : scope.numbers) group.nodes.push_back(number + placement.node_shift);
      parent = static_cast<std::int32_t>(deck_.groups.size());
      Finish(std::move(group), {0, kInpInstanceTag, 0, false, {}}, {kNoPlace, p});
    }
    for (std::size_t s = 0; s < model_.sets.size(); ++s) {
      if (model_.sets[s].scope != placement.scope) continue;
      AddGroup(s, p);
      deck_.groups.back().parent = parent;
    }
  }

  void AddGroup(std::size_t s, std::size_t p) {
    const InpSet& set = model_.sets[s];
    using Kind = InpSet::Kind;
    Mesh::Group group;
    const std::string before = p == kNoPlace ? std::string() : model_.placements[p].name;
    group.name = before.empty() ? set.name : before + "." + set.name;
    Mesh::SetTag tag;
    tag.kind = set.kind == Kind::kElements ? tagTSetTag::kElements
               : set.kind == Kind::kSides  ? tagTSetTag::kSides
                                           : tagTSetTag::kNodes;
    const bool is_surface = set.kind == Kind::kSides || set.kind == Kind::kSurfaceNodes;
    tag.dimension = is_surface ? kInpSurfaceTag : kInpSetTag;
    for (const InpMember& member : set.members) {
      const InpPlacement* of = PlacementOf(member.instance, p);
      if (!of) continue;
      if (tag.kind == tagTSetTag::kNodes) {
        group.nodes.push_back(member.number + of->node_shift);
        continue;
      }
      const Key key = member.number + of->element_shift;
      if (group.elements.empty() || group.elements.back() != key) group.elements.push_back(key);
      if (set.kind == Kind::kSides) tag.sides.emplace_back(key, member.side);
    }
    place_[{s, p}] = deck_.groups.size();
    Finish(std::move(group), std::move(tag), {s, p});
  }

  void Finish(Mesh::Group group, Mesh::SetTag tag, InpGroup what) {
    tag.tag = static_cast<std::int32_t>(deck_.groups.size()) + 1;
    group.tags.push_back(std::move(tag));
    deck_.groups.push_back(std::move(group));
    groups_.push_back(what);
  }

  /// A set that is made of others is above them, unless it already is below.
  void NestGroups() {
    for (const auto& [what, place] : place_) {
      for (const std::size_t part : model_.sets[what.first].parts) {
        const auto found = place_.find({part, what.second});
        if (found == place_.end()) continue;
        Mesh::Group& child = deck_.groups[found->second];
        const bool is_free = child.parent == Mesh::Group::kNone ||
                             groups_[static_cast<std::size_t>(child.parent)].set == kNoPlace;
        bool is_above = false;
        std::size_t steps = 0;
        for (auto at = static_cast<std::int32_t>(place); at != Mesh::Group::kNone && steps < 1000;
             at = deck_.groups[static_cast<std::size_t>(at)].parent, ++steps) {
          is_above = is_above || static_cast<std::size_t>(at) == found->second;
        }
        if (is_free && !is_above && steps < 1000) child.parent = static_cast<std::int32_t>(place);
      }
    }
  }

  void AssignTransforms() {
    for (std::size_t i = 0; i < model_.systems.size(); ++i) {
      const InpSystem& system = model_.systems[i];
      if (system.set == kNoPlace) continue;
      for (auto found = place_.lower_bound({system.set, 0});
           found != place_.end() && found->first.first == system.set; ++found) {
        tagTMeshCsys assigned;
        assigned.key = static_cast<Key>(deck_.Of<tagTMeshCsys>().size()) + 1;
        assigned.mesh_set = found->second + 1;
        assigned.coordinate_system = static_cast<ITR>(i + 2);
        deck_.Of<tagTMeshCsys>().push_back(assigned);
      }
    }
  }

  void MakeBlocks() {
    for (const auto& [type_name, elements] : blocks_) {
      tagTBlock block;
      block.key = static_cast<Key>(deck_.Of<tagTBlock>().size()) + 1;
      block.format.Set(kInpFormat);
      block.name.Set(Utf16(model_.type_names[type_name]));
      block.elements.SetSize(static_cast<std::int64_t>(elements.size()));
      std::copy(elements.begin(), elements.end(), block.elements.data());
      deck_.Of<tagTBlock>().push_back(std::move(block));
    }
  }

  const InpModel& model_;
  Deck deck_;
  std::vector<InpGroup> groups_;
  std::map<std::string, Key> materials_;
  std::map<std::string, Key> systems_;
  std::map<std::size_t, std::size_t> offsets_;                        // of a section
  std::map<std::size_t, std::vector<Key>> blocks_;                    // by type name
  std::map<std::pair<std::size_t, std::size_t>, std::size_t> place_;  // of a set in a placement
};

// ---- text ---------------------------------------------------------------------------------------

/// Lists the numbers of nodes and elements in keywords that are carried.
class TextCarrier {
 public:
  TextCarrier(const InpText& text, const InpModel& model) : text_(text), model_(model) {}

  tagTCarried Carry() {
    carried_.key = 1;
    carried_.format.Set(kInpFormat);
    carried_.keyword.Set(kInpDeck);
    carried_.checked = model_.unchecked.empty() ? tagTCarried::kChecked : tagTCarried::kUnchecked;
    carried_.text.Assign(text_.Text().data(), text_.Text().size());
    for (const InpBlock& block : text_.Blocks()) CarryBlock(block);
    return std::move(carried_);
  }

 private:
  void CarryBlock(const InpBlock& block) {
    if (block.keyword == "ELEMENT") return CarryElements(block);
    InpKeys keys = InpKeysOf(block.keyword);
    if (keys == InpKeys::kByType) {
      const auto type = text_.Parameter(block, "TYPE");
      keys = InpKeysOfType(block.keyword, type ? InpLabel(*type) : std::string());
    }
    if (keys == InpKeys::kNone || keys == InpKeys::kUnknown) return;
    for (const InpParameter& parameter : text_.Parameters(block)) {
      if (parameter.name == "REFNODE" || parameter.name == "ROTNODE" || parameter.name == "NODE") {
        Add(parameter.value, true);
      }
    }
    if (keys == InpKeys::kParameters) return;
    InpLines lines(text_.Text(), block.data, block.end);
    bool is_count = true;  // of the terms of an equation
    std::int64_t terms = 0;
    while (lines.Next()) {
      const auto fields = lines.Fields();
      if (keys == InpKeys::kNodesBehind) {
        for (std::size_t i = 1; i < fields.size(); ++i) Add(fields[i], true);
      } else if (keys != InpKeys::kEquation) {
        Add(fields[0], keys == InpKeys::kNodeFirst);
      } else if (is_count) {
        terms = DeckInteger(fields[0]).value_or(0);
        is_count = terms < 1;
      } else {
        for (std::size_t i = 0; i < fields.size(); i += 3, --terms) Add(fields[i], true);
        is_count = terms < 1;
      }
    }
  }

  /// The nodes of elements that the model has no types for.
  void CarryElements(const InpBlock& block) {
    const auto type = text_.Parameter(block, "TYPE");
    if (!type || FindInpElement(InpLabel(*type))) return;
    InpLines lines(text_.Text(), block.data, block.end);
    for (bool goes_on = false; lines.Next(); goes_on = lines.GoesOn()) {
      const auto fields = lines.Fields();
      for (std::size_t i = goes_on ? 0 : 1; i < fields.size(); ++i) Add(fields[i], true);
    }
  }

  /// A number that is one of a node or an element, alone or behind the name of an instance.
  void Add(std::string_view field, bool is_node) {
    const InpPlacement* of = model_.placements.size() == 1 ? &model_.placements[0] : nullptr;
    std::string_view number = field;
    const std::size_t point = field.rfind('.');
    if (point != std::string_view::npos) {
      const std::string label = InpLabel(field.substr(0, point));
      for (const InpPlacement& placement : model_.placements) {
        if (InpLabel(placement.name) == label) of = &placement;
      }
      number = field.substr(point + 1);
    }
    const auto value = DeckInteger(number);
    if (!of || !IsInpNumber(number) || !value || *value < 1 || *value > kMaxKey) return;
    const InpScope& scope = model_.scopes[of->scope];
    const auto key = static_cast<Key>(*value);
    const InpIndex& index = is_node ? scope.nodes : scope.element_index;
    if (index.Find(key) == kNoPlace) return;
    const std::int32_t place = carried_.places.GetSize();
    const auto at = static_cast<std::int32_t>(number.data() - text_.Text().data());
    carried_.places.Add({at, static_cast<std::int32_t>(number.size())});
    if (is_node) {
      carried_.node_keys.Add({place, static_cast<ITR>(key + of->node_shift)});
    } else {
      carried_.element_keys.Add({place, static_cast<ITR>(key + of->element_shift)});
    }
  }

  const InpText& text_;
  const InpModel& model_;
  tagTCarried carried_;
};

std::string Names(const std::map<std::string, std::uint64_t>& counts) {
  std::string names;
  for (const auto& [name, count] : counts) {
    names += fmt::format("{}{} {}", names.empty() ? "" : ", ", name, count);
  }
  return names;
}

}  // namespace

std::vector<std::string> SectionNames(const InpModel& model) {
  std::vector<std::string> names;
  std::set<std::string> taken;
  for (const InpSection& section : model.sections) {
    const InpSet& set = model.sets[section.set];
    const std::string& scope = model.scopes[set.scope].name;
    std::string name = scope.empty() ? set.name : scope + "." + set.name;
    // As much as a property's name holds, with room for a number.
    constexpr std::size_t kLongest = 56;
    if (name.size() > kLongest) name.resize(kLongest);
    std::string own = name;
    for (int n = 2; !section.is_mass && !taken.insert(own).second; ++n) {
      own = fmt::format("{}~{}", name, n);
    }
    names.push_back(Utf8(Utf16(own)));  // as a property's name holds it
  }
  return names;
}

Deck DeckOf(const InpModel& model, std::vector<InpGroup>* groups) {
  return DeckMaker(model).Make(groups);
}

void CarryText(const InpText& text, const InpModel& model, Deck& deck) {
  deck.Of<tagTCarried>().push_back(TextCarrier(text, model).Carry());
  for (std::size_t p = 0; !model.IsFlat() && p < model.placements.size(); ++p) {
    const InpPlacement& placement = model.placements[p];
    const InpScope& scope = model.scopes[placement.scope];
    tagTCarried carried;
    carried.key = static_cast<Key>(p) + 2;
    carried.format.Set(kInpFormat);
    carried.keyword.Set(kInpInstance);
    carried.part = static_cast<std::int32_t>(p);
    carried.checked = tagTCarried::kChecked;
    std::int32_t place = 0;
    for (const Key number : scope.numbers) {
      carried.node_keys.Add({place++, static_cast<ITR>(number + placement.node_shift)});
    }
    place = 0;
    for (const InpElement& element : scope.elements) {
      carried.element_keys.Add(
          {place++, static_cast<ITR>(element.number + placement.element_shift)});
    }
    deck.Of<tagTCarried>().push_back(std::move(carried));
  }
  if (!model.carried.empty()) {
    deck.report.Assumed("keywords carried as text: " + Names(model.carried));
  }
  if (!model.unchecked.empty()) {
    deck.report.Assumed("keywords not checked against renumbering: " + Names(model.unchecked),
                        "it is not known which of their numbers are nodes or elements");
  }
}

}  // namespace qx::exchange
