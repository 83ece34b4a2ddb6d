#include "exchange/abaqus/inp_new.h"

#include <algorithm>
#include <fmt/format.h>
#include <utility>

#include "qx_db/model/coordinate_pool.h"
#include "qx_db/record/element_types.h"

namespace qx::exchange {
namespace {

constexpr std::size_t kLongestName = 80;

/// The tag that this format gave a group; null for none.
const Mesh::SetTag* TagOf(const Mesh::Group& group, const std::string& format) {
  if (format != "abaqus" || group.tags.empty()) return nullptr;
  return &group.tags.front();
}

}  // namespace

std::string InpNames::New(const std::string& wish) {
  std::string name;
  for (const char c : wish) {
    name += c == '"' || static_cast<unsigned char>(c) < 0x20 || c == 0x7F ? '_' : c;
  }
  const std::size_t first = name.find_first_not_of(' ');
  name = first == std::string::npos ? "unnamed"
                                    : name.substr(first, name.find_last_not_of(' ') + 1 - first);
  constexpr std::size_t kRoom = kLongestName - 4;  // for a number
  if (name.size() > kRoom) {
    std::size_t end = kRoom;
    while (end > 0 && (static_cast<unsigned char>(name[end]) & 0xC0) == 0x80) --end;
    name.resize(end);
  }
  std::string own = name;
  for (int n = 2; !taken_.insert(InpLabel(own)).second; ++n) own = fmt::format("{}~{}", name, n);
  return own;
}

std::string InpNames::Fit(const std::string& name, const std::string& wish, const char* of,
                          LossReport& report) {
  const std::string own = New(name.empty() ? wish : name);
  if (!name.empty() && own != name) {
    report.Changed(fmt::format("names of {} were written as others", of), 1,
                   fmt::format("\"{}\", now \"{}\"", name, own),
                   "the format knows neither quotes nor line ends in names, nor case");
  }
  return own;
}

InpNewText::InpNewText(const Deck& now, const SystemFrames& systems, LossReport& report,
                       const Progress& progress)
    : now_(now),
      systems_(systems),
      report_(report),
      progress_(progress),
      steps_(progress_, now.node_keys.size() + now.elements.size()) {
  for (const tagTBlock& block : now.Of<tagTBlock>()) {
    if (block.format.View() != kInpFormat) continue;
    const std::string name = Utf8(block.name.View());
    for (const ITR element : block.elements) type_names_[static_cast<Key>(element)] = name;
  }
  for (const tagTProp& property : now.Of<tagTProp>()) properties_[property.key] = &property;
  for (const tagTMatl& material : now.Of<tagTMatl>()) materials_[material.key] = &material;
  for (const tagTEcrd& record : now.Of<tagTEcrd>()) orientations_[record.key] = &record;
  for (std::size_t i = 0; i < now.Of<tagTSprop>().size(); ++i) {
    masses_[now.Of<tagTSprop>()[i].key] = i;
  }
  InpNames of_materials, of_systems;
  for (const tagTMatl& material : now.Of<tagTMatl>()) {
    material_names_[material.key] = of_materials.Fit(
        Utf8(material.name.View()), fmt::format("Material-{}", material.key), "materials", report);
  }
  for (const tagTCord& system : now.Of<tagTCord>()) {
    if (system.key == DPoolCord::kDefaultKey) continue;
    system_names_[system.key] =
        of_systems.Fit(Utf8(system.name.View()), fmt::format("System-{}", system.key),
                       "coordinate systems", report);
  }
  for (std::size_t i = 0; i < now.elements.size(); ++i) {
    const Key key = now.elements[i].key;
    if (!type_names_.contains(key) && TypeOf(i).empty()) left_out_.insert(key);
  }
}

const tagTProp* InpNewText::PropertyOf(Key key) const {
  const auto found = properties_.find(key);
  return found == properties_.end() ? nullptr : found->second;
}

const tagTMatl* InpNewText::MaterialOf(const tagTProp& property) const {
  const auto found = materials_.find(static_cast<Key>(property.material));
  return found == materials_.end() ? nullptr : found->second;
}

std::string InpNewText::SystemOf(const tagTProp& property) const {
  const auto key = static_cast<Key>(property.coordinate_system);
  return key == 0 || !systems_.contains(key) ? std::string() : SystemName(key);
}

// ---- elements -----------------------------------------------------------------------------------

InpFamily InpNewText::FamilyOf(const Mesh::Element& element) const {
  const tagTProp* property = PropertyOf(element.property);
  const std::int32_t type = property ? property->type : tagTProp::kUndefined;
  switch (FindElementType(element.type)->dimension) {
    case 0:
      return type == tagTProp::kPointSpring ? InpFamily::kSpring : InpFamily::kMass;
    case 1:
      return type == tagTProp::kTruss    ? InpFamily::kTruss
             : type == tagTProp::kSpring ? InpFamily::kSpring
             : type == tagTProp::kElasticLink || type == tagTProp::kRigidLink
                 ? InpFamily::kConnector
                 : InpFamily::kBeam;
    case 2:
      return type == tagTProp::kMembrane      ? InpFamily::kMembrane
             : type == tagTProp::kPlaneStress ? InpFamily::kPlaneStress
             : type == tagTProp::kPlaneStrain ? InpFamily::kPlaneStrain
                                              : InpFamily::kShell;
    default:
      return InpFamily::kSolid;
  }
}

std::string InpNewText::TypeOf(std::size_t index) const {
  const Mesh::Element& element = now_.elements[index];
  const auto came_with = type_names_.find(element.key);
  if (came_with != type_names_.end()) {
    const auto type = FindInpElement(InpLabel(came_with->second));
    if (type && type->type == element.type) return came_with->second;
  }
  if (!FindElementType(element.type)) return {};
  if (element.type == element::kPoint && FamilyOf(element) == InpFamily::kMass &&
      !masses_.contains(element.key)) {
    return {};
  }
  return std::string(InpElementName(element.type, FamilyOf(element)));
}

std::string InpNewText::Elements(std::span<const std::size_t> elements,
                                 const std::function<Key(Key)>& number,
                                 const std::function<std::string(Key)>& node) {
  std::string text;
  AppendElements(elements, number, node, text, [] {});
  return text;
}

void InpNewText::AppendElements(std::span<const std::size_t> elements,
                                const std::function<Key(Key)>& number,
                                const std::function<std::string(Key)>& node, std::string& text,
                                const std::function<void()>& pass) {
  std::map<std::string, std::vector<std::size_t>> by_type;
  for (const std::size_t index : elements) {
    std::string type = TypeOf(index);
    if (!type.empty()) {
      by_type[std::move(type)].push_back(index);
      continue;
    }
    const Mesh::Element& element = now_.elements[index];
    const ElementType* known = FindElementType(element.type);
    report_.Lost(known ? fmt::format("{} were left out", known->plural)
                       : fmt::format("elements of code {} were left out", element.type),
                 1, fmt::format("element {}", element.key), "the format has none");
  }
  std::vector<std::string> nodes;
  for (const auto& [type, of_type] : by_type) {
    bool has_head = false;
    for (const std::size_t index : of_type) {
      steps_.Step();
      const Mesh::Element& element = now_.elements[index];
      nodes.clear();
      for (std::size_t i = 0; i < now_.NodesOf(index); ++i) {
        nodes.push_back(node(now_.connectivity[element.first + InpNode(element.type, i)]));
      }
      if (std::find(nodes.begin(), nodes.end(), std::string()) != nodes.end()) {
        report_.Lost("elements between instances were left out", 1,
                     fmt::format("element {}", element.key), "each instance has its own nodes");
        continue;
      }
      if (!std::exchange(has_head, true)) text += fmt::format("*Element, type={}\n", type);
      AppendElement(text, number(element.key), nodes);
      pass();
    }
  }
}

// ---- records ------------------------------------------------------------------------------------

std::string InpNewText::Material(const tagTMatl& material) {
  if (const std::string parts = UnwrittenPartsOf(material); !parts.empty()) {
    report_.Lost("parts of materials were left out: " + parts, 1, Utf8(material.name.View()),
                 "no option of a material says them");
  }
  return MaterialText(material, MaterialName(material.key));
}

std::string InpNewText::System(const tagTCord& system) {
  const auto points = systems_.find(system.key);
  const std::string name = SystemName(system.key);
  if (points == systems_.end()) {
    report_.Lost("coordinate systems without axes were left out", 1, name,
                 "their points are one or lie on a line");
    return {};
  }
  return OrientationText(points->second, name);
}

std::string InpNewText::Section(const tagTProp& property, const std::string& set,
                                std::span<const Key> elements) {
  std::optional<Vector3> direction;
  std::uint64_t others = 0;
  for (const Key element : elements) {
    const auto found = orientations_.find(element);
    if (found == orientations_.end()) continue;
    const Vector3 vector(found->second->reference_vector);
    if (found->second->method != tagTEcrd::kByVector || (direction && !(*direction == vector))) {
      ++others;
    } else {
      direction = vector;
    }
  }
  report_.Lost("orientations of elements were left out", others, Utf8(property.name.View()),
               "a section has one direction for all its elements");
  const tagTMatl* material = MaterialOf(property);
  const std::string text =
      SectionText(property, set, material ? MaterialName(material->key) : std::string(),
                  material ? material->elastic_modulus : 0, material ? material->ShearModulus() : 0,
                  SystemOf(property), direction);
  if (text.empty()) {
    report_.Lost("properties were left out", 1, Utf8(property.name.View()),
                 "the format has no section for them");
  } else if (property.type == tagTProp::kBeam && material) {
    report_.Changed("materials of beams became the stiffness of their sections", 1,
                    Utf8(property.name.View()), "a section of any shape has no material");
  }
  if (const std::string parts = UnwrittenPartsOf(property); !text.empty() && !parts.empty()) {
    report_.Lost("parts of properties were left out: " + parts, 1, Utf8(property.name.View()),
                 "the section has no place for them");
  }
  return text;
}

// ---- a whole deck -------------------------------------------------------------------------------

void InpNewText::AppendGroup(std::string& text, const Mesh::Group& group, std::size_t place) {
  const std::string& name = group_names_[place];
  const Mesh::SetTag* tag = TagOf(group, now_.format);
  for (const Mesh::SetTag& sides : group.tags) {
    if (sides.kind != tagTSetTag::kSides || sides.sides.empty()) continue;
    std::unordered_map<Key, std::int32_t> types;
    for (const Mesh::Element& element : now_.elements) types[element.key] = element.type;
    text += fmt::format("*Surface, name={}, type=ELEMENT\n", InpName(name));
    for (const auto& [element, side] : sides.sides) {
      const auto type = types.find(element);
      if (type == types.end() || !Writes(element)) continue;
      text += fmt::format("{}, {}\n", element,
                          SideName(side, FindElementType(type->second)->dimension == 2));
    }
    return;
  }
  std::vector<Key> elements = group.elements;
  std::erase_if(elements, [&](Key element) { return !Writes(element); });
  std::sort(elements.begin(), elements.end());
  std::vector<Key> nodes = group.nodes;
  std::sort(nodes.begin(), nodes.end());
  if (!elements.empty() || (nodes.empty() && !tag)) text += SetText(false, name, elements);
  if (!nodes.empty()) text += SetText(true, name, nodes);
  report_.Changed("sets of elements and further nodes were written as two",
                  elements.empty() || nodes.empty() ? 0 : 1, group.name,
                  "a set of the format has either");
}

void InpNewText::TellOfNewSet(const std::string& name) {
  if (new_sets_++ > 0) return;
  report_.Assumed("sets were added for sections and masses, such as " + name,
                  "the format assigns them to sets");
}

void InpNewText::AppendGroups(std::string& text, const std::function<void()>& pass) {
  InpNames of_nodes;  // apart from those of elements
  std::uint64_t parents = 0;
  std::string first;
  for (std::size_t i = 0; i < now_.groups.size(); ++i) {
    const Mesh::Group& group = now_.groups[i];
    InpNames& names = group.elements.empty() && !group.nodes.empty() ? of_nodes : names_;
    group_names_.push_back(names.Fit(group.name, fmt::format("Set-{}", i + 1), "sets", report_));
    if (group.parent != Mesh::Group::kNone && parents++ == 0) first = group.name;
    AppendGroup(text, group, i);
    pass();
  }
  report_.Lost("places of sets in others", parents, first, "the members of each are listed");
}

std::string InpNewText::Masses() {
  std::map<double, std::vector<Key>> by_mass;
  std::uint64_t more = 0;
  std::uint64_t of_others = 0;
  Key first = 0, first_of_others = 0;
  for (const Mesh::Element& element : now_.elements) {
    const auto found = masses_.find(element.key);
    if (found == masses_.end()) continue;
    if (element.type != element::kPoint) {
      if (of_others++ == 0) first_of_others = element.key;
      continue;
    }
    const tagTSprop& mass = now_.Of<tagTSprop>()[found->second];
    more += mass.has_offset != 0 || std::any_of(std::begin(mass.inertia), std::end(mass.inertia),
                                                [](double i) { return i != 0; });
    if (more == 1 && first == 0) first = element.key;
    const double value = mass.mass;  // packed in the record: no reference may bind to it
    by_mass[value].push_back(element.key);
  }
  report_.Lost("inertias and offsets of masses were left out", more,
               fmt::format("element {}", first), "a mass element has its mass only");
  report_.Lost("masses and stiffnesses of elements that are no points", of_others,
               fmt::format("element {}", first_of_others), "the format has none");
  std::string text;
  for (auto& [mass, elements] : by_mass) {
    std::sort(elements.begin(), elements.end());
    const std::string name = names_.New(fmt::format("Mass-{}", InpReal(mass, 6)));
    TellOfNewSet(name);
    text += SetText(false, name, elements);
    text += fmt::format("*Mass, elset={}\n{}\n", InpName(name), InpReal(mass));
  }
  return text;
}

void InpNewText::All(const PutText& put) {
  std::uint64_t offsets = 0;
  for (const tagTE2DOffset& offset : now_.Of<tagTE2DOffset>()) offsets += offset.elements.size();
  report_.Lost("offsets of shells were left out", offsets, "", "sections are written without them");
  std::string text = "*Heading\nmesh of a model\n*Node\n";
  const auto pass = [&] {
    constexpr std::size_t kPiece = std::size_t{1} << 18;
    if (text.size() < kPiece) return;
    put(text);
    text.clear();
  };
  for (std::size_t i = 0; i < now_.node_keys.size(); ++i) {
    steps_.Step();
    AppendNode(text, now_.node_keys[i], Vector3(&now_.coordinates[3 * i]));
    pass();
  }
  std::vector<std::size_t> all(now_.elements.size());
  for (std::size_t i = 0; i < all.size(); ++i) all[i] = i;
  AppendElements(
      all, [](Key key) { return key; }, [](Key key) { return fmt::format("{}", key); }, text, pass);
  AppendGroups(text, pass);
  for (const tagTCord& system : now_.Of<tagTCord>()) {
    if (system.key != DPoolCord::kDefaultKey) text += System(system);
  }
  for (const tagTMeshCsys& assigned : now_.Of<tagTMeshCsys>()) {
    const auto group = static_cast<std::size_t>(assigned.mesh_set);
    const auto points = systems_.find(static_cast<Key>(assigned.coordinate_system));
    if (group == 0 || group > now_.groups.size() || points == systems_.end()) continue;
    if (now_.groups[group - 1].nodes.empty()) {
      report_.Lost("systems of the nodes of elements were left out", 1, now_.groups[group - 1].name,
                   "the format has them for sets of nodes");
      continue;
    }
    text += TransformText(points->second, group_names_[group - 1]);
  }
  for (const tagTMatl& material : now_.Of<tagTMatl>()) text += Material(material);
  std::map<Key, std::vector<Key>> of_property;
  for (std::size_t i = 0; i < now_.elements.size(); ++i) {
    const Mesh::Element& element = now_.elements[i];
    if (element.property != 0 && Writes(element.key)) {
      of_property[element.property].push_back(element.key);
    }
  }
  for (const tagTProp& property : now_.Of<tagTProp>()) {
    const auto found = of_property.find(property.key);
    if (found == of_property.end()) {
      report_.Lost("properties of no element were left out", 1, Utf8(property.name.View()),
                   "a section is of elements");
      continue;
    }
    auto& elements = found->second;
    std::sort(elements.begin(), elements.end());
    const std::string wish = Utf8(property.name.View());
    std::size_t set = 0;
    for (; set < now_.groups.size(); ++set) {
      const Mesh::Group& group = now_.groups[set];
      std::vector<Key> members = group.elements;
      if (group.name != wish || members.size() != elements.size()) continue;
      std::sort(members.begin(), members.end());
      if (members == elements) break;
    }
    const bool has_set = set < now_.groups.size();
    const std::string name =
        has_set ? group_names_[set]
                : names_.New(wish.empty() ? fmt::format("Section-{}", property.key) : wish);
    const std::string section = Section(property, name, elements);
    if (section.empty()) continue;
    if (!has_set) text += SetText(false, name, elements);
    if (!has_set) TellOfNewSet(name);
    text += section;
    pass();
  }
  put(text + Masses());
}

}  // namespace qx::exchange
