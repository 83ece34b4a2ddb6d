#include "exchange/nastran/nas_card_text.h"

#include <algorithm>
#include <array>
#include <fmt/format.h>

#include "qx_db/record/element_types.h"

#include "exchange/nastran/nas_reader.h"

namespace qx::exchange {
namespace {

constexpr std::size_t kLargeField = 16;

/// A real number in at most `width` characters, with the point that makes it one.
std::string RealText(double value, int digits, std::size_t width) {
  for (int d = digits > 0 ? digits : 17; d > 0; --d) {
    std::string text =
        digits == 0 && d == 17 ? fmt::format("{}", value) : fmt::format("{:.{}g}", value, d);
    const std::size_t exponent = text.find('e');
    std::string mantissa = text.substr(0, exponent);
    if (mantissa.find('.') == std::string::npos) mantissa += '.';
    text = exponent == std::string::npos ? mantissa : mantissa + text.substr(exponent);
    if (text.size() <= width) return text;
  }
  return "0.";
}

struct CardName {
  std::string_view name;
  std::int32_t type;
};
/// The card of each type, the first of several unless an element came from another.
constexpr CardName kCardNames[] = {
    {"CONM2", element::kPoint},      {"CBUSH", element::kPoint},   {"CBAR", element::kLine2},
    {"CROD", element::kLine2},       {"CTUBE", element::kLine2},   {"CONROD", element::kLine2},
    {"CBEAM", element::kLine2},      {"CBUSH", element::kLine2},   {"PLOTEL", element::kLine2},
    {"CTRIA3", element::kTri3},      {"CTRIAR", element::kTri3},   {"CTRIA6", element::kTri3},
    {"CTRIA6", element::kTri6},      {"CQUAD4", element::kQuad4},  {"CQUADR", element::kQuad4},
    {"CSHEAR", element::kQuad4},     {"CQUAD8", element::kQuad4},  {"CQUAD8", element::kQuad8},
    {"CTETRA", element::kTet4},      {"CTETRA", element::kTet10},  {"CPYRAM", element::kPyramid5},
    {"CPYRAM", element::kPyramid13}, {"CPENTA", element::kWedge6}, {"CPENTA", element::kWedge15},
    {"CHEXA", element::kHex8},       {"CHEXA", element::kHex20},
};

}  // namespace

// ---- fields -------------------------------------------------------------------------------------

NasFields& NasFields::Number(Key key) {
  fields_.push_back(key == 0 ? std::string() : fmt::format("{}", key));
  return *this;
}
NasFields& NasFields::Real(double value) {
  fields_.push_back(RealText(value, digits_, kLargeField));
  return *this;
}
NasFields& NasFields::Blank(int count) {
  fields_.resize(fields_.size() + static_cast<std::size_t>(count));
  return *this;
}
NasFields& NasFields::Word(std::string text) {
  fields_.push_back(std::move(text));
  return *this;
}

std::string NasFields::Text() const {
  std::size_t count = fields_.size();
  while (count > 0 && fields_[count - 1].empty()) --count;
  const bool is_large = std::any_of(fields_.begin(), fields_.end(),
                                    [](const std::string& field) { return field.size() > 8; });
  const std::size_t width = is_large ? kLargeField : 8;
  const std::size_t per_line = is_large ? 4 : 8;
  std::string text = fmt::format("{:<8}", is_large ? name_ + "*" : name_);
  for (std::size_t i = 0; i < count; ++i) {
    if (i > 0 && i % per_line == 0) {
      while (text.back() == ' ') text.pop_back();
      text += is_large ? "\n*       " : "\n+       ";
    }
    text += fmt::format("{:<{}}", fields_[i], width);
  }
  while (text.back() == ' ') text.pop_back();
  // A card of large fields has an even number of lines.
  const std::size_t lines = std::max<std::size_t>(1, (count + per_line - 1) / per_line);
  if (is_large && lines % 2 == 1) text += "\n*";
  return text + '\n';
}

// ---- cards --------------------------------------------------------------------------------------

NasCardText::NasCardText(const Deck& deck, int digits) : deck_(deck), digits_(digits) {
  for (std::size_t i = 0; i < deck.node_keys.size(); ++i) nodes_[deck.node_keys[i]] = i;
  for (const tagTBlock& block : deck.Of<tagTBlock>()) {
    if (block.format.View() != u"nastran") continue;
    for (const ITR element : block.elements) {
      names_[static_cast<Key>(element)] = Utf8(block.name.View());
    }
  }
  for (const tagTProp& property : deck.Of<tagTProp>()) properties_[property.key] = &property;
  for (const tagTMatl& material : deck.Of<tagTMatl>()) materials_[material.key] = &material;
  for (const tagTCord& system : deck.Of<tagTCord>()) {
    const bool is_global = system.key == 1 && !system.name.View().starts_with(u"CORD");
    if (is_global) continue;
    const Key number = NasSystemNumber(system);
    if (!systems_.emplace(number, &system).second) continue;
    system_numbers_[system.key] = number;
  }
  for (const tagTMeshCsys& assigned : deck.Of<tagTMeshCsys>()) {
    const auto group = static_cast<std::size_t>(assigned.mesh_set);
    const Key number = NumberOf(assigned.coordinate_system);
    if (group == 0 || group > deck.groups.size() || number == 0) continue;
    for (const Key node : deck.groups[group - 1].nodes) outputs_[node] = number;
  }
  for (const tagTEcrd& record : deck.Of<tagTEcrd>()) orientations_[record.key] = &record;
  for (const tagTE1DOffset& record : deck.Of<tagTE1DOffset>()) {
    for (const ITR element : record.elements) offsets_[static_cast<Key>(element)] = &record;
  }
  for (const tagTE1DRelease& record : deck.Of<tagTE1DRelease>()) {
    for (const ITR element : record.elements) releases_[static_cast<Key>(element)] = &record;
  }
  for (const tagTSprop& record : deck.Of<tagTSprop>()) masses_[record.key] = &record;
  for (std::size_t i = 0; i < deck.elements.size(); ++i) {
    elements_[deck.elements[i].key] = i;
    if (NameOf(i).empty()) ++unwritten_[deck.elements[i].type];
  }
}

Key NasCardText::NumberOf(ITR system) const {
  const auto found = system_numbers_.find(static_cast<Key>(system));
  return found == system_numbers_.end() ? 0 : found->second;
}

std::string NasCardText::NameOf(std::size_t index) const {
  const Mesh::Element& element = deck_.elements[index];
  const auto came_from = names_.find(element.key);
  std::string_view first;
  for (const CardName& card : kCardNames) {
    if (card.type != element.type) continue;
    if (came_from != names_.end() && came_from->second == card.name) return std::string(card.name);
    if (first.empty()) first = card.name;
  }
  if (element.type == element::kLine2) {
    const auto property = properties_.find(element.property);
    const std::int32_t type = property == properties_.end() ? 0 : property->second->type;
    if (type == tagTProp::kTruss) return "CROD";
    if (type == tagTProp::kElasticLink || type == tagTProp::kSpring) return "CBUSH";
  }
  if (element.type == element::kPoint && !masses_.contains(element.key)) return {};
  return std::string(first);
}

bool NasCardText::Writes(Key element) const {
  const auto found = elements_.find(element);
  return found != elements_.end() && !NameOf(found->second).empty();
}

std::string NasCardText::Node(Key key, const NasGridRest& rest) const {
  const Vector3 basic(&deck_.coordinates[3 * nodes_.at(key)]);
  const Vector3 at = rest.frame ? rest.frame->FromGlobal(basic) : basic;
  const auto output = outputs_.find(key);
  const char* const none = has_grid_defaults_ ? "0" : "";
  NasFields card("GRID", digits_);
  card.Number(key).Word(rest.frame ? std::string(rest.system) : none);
  card.Real(at.x).Real(at.y).Real(at.z);
  card.Word(output == outputs_.end() ? none : fmt::format("{}", output->second));
  card.Word(std::string(rest.constraints)).Word(std::string(rest.superelement));
  return card.Text();
}

std::string NasCardText::Element(Key key) const {
  const std::size_t index = elements_.at(key);
  const Mesh::Element& element = deck_.elements[index];
  const std::string name = NameOf(index);
  NasFields card(name, digits_);
  const std::size_t count = deck_.NodesOf(index);
  const std::int8_t* order = NasOrder(element.type);
  const auto node = [&](std::size_t i) {
    return deck_.connectivity[element.first + (order ? static_cast<std::size_t>(order[i]) : i)];
  };
  card.Number(key);
  if (name == "CONM2") {
    card.Number(node(0));
    const auto mass = masses_.find(key);
    if (mass == masses_.end()) return card.Text();
    card.Number(NumberOf(mass->second->coordinate_system)).Real(mass->second->mass);
    for (const double x :
         {mass->second->offset.x, mass->second->offset.y, mass->second->offset.z}) {
      card.Real(x);
    }
    card.Blank();
    for (const double inertia : mass->second->inertia) card.Real(inertia);
    return card.Text();
  }
  if (name != "PLOTEL" && name != "CONROD") card.Number(element.property);
  for (std::size_t i = 0; i < count; ++i) card.Number(node(i));
  if (name != "CBAR" && name != "CBEAM" && name != "CBUSH") return card.Text();
  if (count == 1) card.Blank();
  const auto orientation = orientations_.find(key);
  if (orientation != orientations_.end() && orientation->second->method == tagTEcrd::kByNode) {
    card.Number(static_cast<Key>(orientation->second->reference_node)).Blank(2);
  } else {
    const tagTVector3<double> v = orientation == orientations_.end()
                                      ? tagTVector3<double>{0, 0, 1}
                                      : orientation->second->reference_vector;
    card.Real(v.x).Real(v.y).Real(v.z);
  }
  if (name == "CBUSH") return card.Text();
  card.Blank();
  const auto release = releases_.find(key);
  for (std::size_t end = 0; end < 2; ++end) {
    std::string pins;
    for (std::size_t i = 0; release != releases_.end() && i < 6; ++i) {
      if (release->second->released[end * 6 + i]) pins += static_cast<char>('1' + i);
    }
    card.Word(pins);
  }
  if (const auto offset = offsets_.find(key); offset != offsets_.end()) {
    for (const double x : offset->second->offset_a) card.Real(x);
    for (const double x : offset->second->offset_b) card.Real(x);
  }
  return card.Text();
}

std::string NasCardText::Property(Key key) const {
  const tagTProp& p = *properties_.at(key);
  const auto material = static_cast<Key>(p.material);
  switch (p.type) {
    case tagTProp::kPlate:
    case tagTProp::kMembrane:
    case tagTProp::kPlaneStress:
    case tagTProp::kPlaneStrain: {
      NasFields card("PSHELL", digits_);
      card.Number(key).Number(material).Real(p.thickness);
      card.Number(p.type == tagTProp::kPlate ? material : 0).Blank();
      card.Number(p.type == tagTProp::kPlate ? material : 0).Blank();
      if (p.non_structural_mass != 0) card.Real(p.non_structural_mass);
      return card.Text();
    }
    case tagTProp::kSolid:
      return NasFields("PSOLID", digits_).Number(key).Number(material).Text();
    case tagTProp::kTruss: {
      NasFields card("PROD", digits_);
      card.Number(key).Number(material).Real(p.area).Real(p.torsion).Blank();
      if (p.non_structural_mass != 0) card.Real(p.non_structural_mass);
      return card.Text();
    }
    case tagTProp::kBeam: {
      NasFields card("PBAR", digits_);
      card.Number(key).Number(material).Real(p.area).Real(p.inertia_z).Real(p.inertia_y);
      card.Real(p.torsion).Real(p.non_structural_mass);
      return card.Text();
    }
    case tagTProp::kSpring:
    case tagTProp::kPointSpring:
    case tagTProp::kElasticLink: {
      NasFields card("PBUSH", digits_);
      card.Number(key).Word("K");
      for (const double stiffness : p.stiffness) card.Real(stiffness);
      return card.Text();
    }
    default:
      return {};
  }
}

std::string NasCardText::Material(Key key) const {
  const tagTMatl& m = *materials_.at(key);
  NasFields card("MAT1", digits_);
  card.Number(key).Real(m.elastic_modulus);
  if (m.shear_modulus != 0) {
    card.Real(m.shear_modulus);
  } else {
    card.Blank();
  }
  card.Real(m.poisson_ratio).Real(m.density).Real(m.thermal_expansion);
  card.Real(m.reference_temperature).Real(m.structural_damping);
  const std::array strengths{m.tensile_strength, m.compressive_strength, m.shear_strength};
  if (strengths != std::array{0.0, 0.0, 0.0}) {
    for (const double strength : strengths) card.Real(strength);
  }
  return card.Text();
}

std::string NasCardText::System(Key number) const {
  const tagTCord& system = *systems_.at(number);
  constexpr char kLetters[] = {'R', 'C', 'S'};
  const char letter = system.type >= 0 && system.type < 3 ? kLetters[system.type] : 'R';
  NasFields card(std::string("CORD2") + letter, digits_);
  card.Number(number).Number(NumberOf(system.reference));
  for (const tagTVector3<double>& p : {system.origin, system.axis_point, system.plane_point}) {
    card.Real(p.x).Real(p.y).Real(p.z);
  }
  return card.Text();
}

}  // namespace qx::exchange
