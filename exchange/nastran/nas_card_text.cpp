#include "exchange/nastran/nas_card_text.h"

#include <algorithm>
#include <fmt/format.h>
#include <numeric>

#include "qx_db/record/element_types.h"

#include "exchange/nastran/nas_properties.h"
#include "exchange/nastran/nas_reader.h"
#include "exchange/nastran/nas_rules.h"

namespace qx::exchange {
namespace {

/// Whether elements of that card and type may have a property of that one.
bool Fits(const NasElementCard& element, std::int32_t type, std::string_view property) {
  if (property.empty()) return true;
  if (!element.has_property) return type == element::kPoint;
  bool is_wanted = false;  // by any card of the type
  for (const NasElementCard& card : NasElementCards()) {
    if (card.Makes(type) && card.properties.find(property) != std::string_view::npos) {
      is_wanted = true;
      if (card.name == element.name) return true;
    }
  }
  return !is_wanted && (element.properties.empty() || type == element::kLine2);
}

}  // namespace

void NasIndex::Set(std::vector<Key> keys) {
  keys_ = std::move(keys);
  if (std::is_sorted(keys_.begin(), keys_.end())) return;
  places_.resize(keys_.size());
  std::iota(places_.begin(), places_.end(), 0u);
  std::sort(places_.begin(), places_.end(),
            [this](std::uint32_t a, std::uint32_t b) { return keys_[a] < keys_[b]; });
  std::sort(keys_.begin(), keys_.end());
}

std::size_t NasIndex::Find(Key key) const {
  const auto found = std::lower_bound(keys_.begin(), keys_.end(), key);
  if (found == keys_.end() || *found != key) return kNone;
  const auto at = static_cast<std::size_t>(found - keys_.begin());
  return places_.empty() ? at : places_[at];
}

NasCardText::NasCardText(const Deck& deck, Names property_cards, Names material_cards)
    : deck_(deck),
      systems_(deck.Of<tagTCord>()),
      shells_(deck),
      property_cards_(std::move(property_cards)),
      material_cards_(std::move(material_cards)) {
  nodes_.Set(deck.node_keys);
  std::vector<Key> keys;
  for (const Mesh::Element& element : deck.elements) keys.push_back(element.key);
  elements_.Set(std::move(keys));
  came_from_.resize(deck.elements.size());
  for (const tagTBlock& block : deck.Of<tagTBlock>()) {
    if (block.format.View() != u"nastran") continue;
    if (blocks_.size() == UINT16_MAX) break;
    blocks_.push_back(Utf8(block.name.View()));
    for (const ITR element : block.elements) {
      const std::size_t at = elements_.Find(static_cast<Key>(element));
      if (at != NasIndex::kNone) came_from_[at] = static_cast<std::uint16_t>(blocks_.size());
    }
  }
  for (const tagTProp& property : deck.Of<tagTProp>()) properties_[property.key] = &property;
  for (const tagTMatl& material : deck.Of<tagTMatl>()) materials_[material.key] = &material;
  for (const tagTCord& system : deck.Of<tagTCord>()) records_[system.key] = &system;
  std::unordered_map<Key, Key> of_elements;
  for (const tagTMeshCsys& assigned : deck.Of<tagTMeshCsys>()) {
    const auto group = static_cast<std::size_t>(assigned.mesh_set);
    if (group == 0 || group > deck.groups.size() || assigned.coordinate_system == 0) continue;
    const auto system = static_cast<Key>(assigned.coordinate_system);
    for (const Key node : deck.groups[group - 1].nodes) outputs_[node] = system;
    for (const Key element : deck.groups[group - 1].elements) of_elements[element] = system;
  }
  for (const tagTEcrd& record : deck.Of<tagTEcrd>()) lines_[record.key].orientation = &record;
  for (const tagTE1DOffset& record : deck.Of<tagTE1DOffset>()) {
    for (const ITR element : record.elements) {
      NasLineRecords& line = lines_[static_cast<Key>(element)];
      if (record.end_a) line.offsets[0] = &record;
      if (record.end_b) line.offsets[1] = &record;
    }
  }
  for (const tagTE1DRelease& record : deck.Of<tagTE1DRelease>()) {
    for (const ITR element : record.elements) lines_[static_cast<Key>(element)].release = &record;
  }
  for (const tagTSprop& record : deck.Of<tagTSprop>()) masses_[record.key] = &record;
  for (std::size_t i = 0; i < deck.elements.size(); ++i) {
    const Mesh::Element& element = deck.elements[i];
    if (const auto system = of_elements.find(element.key); system != of_elements.end()) {
      for (std::size_t n = 0; n < deck.NodesOf(i); ++n) {
        outputs_.emplace(deck.connectivity[element.first + n], system->second);
      }
    }
    const std::string name = NameOf(i);
    if (name.empty()) {
      auto& [count, first] = unwritten_[element.type];
      if (++count == 1) first = element.key;
    }
    // A new property is of the kind that the cards of its elements want.
    const tagTProp* property = PropertyOf(element.property);
    if (!property || property_cards_.contains(element.property)) continue;
    const bool is_beam = name == "CBEAM" && property->type == tagTProp::kBeam;
    const bool is_shear = name == "CSHEAR" && property->type == tagTProp::kMembrane;
    if (is_beam) property_cards_[element.property] = "PBEAM";
    if (is_shear) property_cards_[element.property] = "PSHEAR";
  }
}

const tagTProp* NasCardText::PropertyOf(Key key) const {
  const auto found = properties_.find(key);
  return found == properties_.end() ? nullptr : found->second;
}
const tagTMatl* NasCardText::MaterialOf(Key key) const {
  const auto found = materials_.find(key);
  return found == materials_.end() ? nullptr : found->second;
}
const tagTCord* NasCardText::SystemOf(Key number) const {
  const auto found = records_.find(number);
  return found == records_.end() ? nullptr : found->second;
}

std::string NasCardText::PropertyCard(Key key) const {
  const tagTProp* property = PropertyOf(key);
  if (!property) return {};
  const auto came_from = property_cards_.find(key);
  const bool fits = came_from != property_cards_.end() && NasCardFits(came_from->second, *property);
  return fits ? came_from->second : std::string(NasCardOfProperty(*property));
}

bool NasCardText::HasProperty(Key key) const { return !PropertyCard(key).empty(); }

std::string NasCardText::NameOf(std::size_t index) const {
  const Mesh::Element& element = deck_.elements[index];
  const std::string property = PropertyCard(element.property);
  const std::uint16_t block = came_from_[index];
  const std::string_view came_from = block ? std::string_view(blocks_[block - 1]) : "";
  const NasElementCard* chosen = nullptr;
  for (const NasElementCard& card : NasElementCards()) {
    if (!card.Makes(element.type) || !Fits(card, element.type, property)) continue;
    // A point is a mass, or a bush to the ground, only when something says so.
    const bool is_mass = card.name == "CONM2";
    if (is_mass && !masses_.contains(element.key)) continue;
    if (!is_mass && element.type == element::kPoint && property.empty() && came_from.empty())
      continue;
    if (came_from == card.name) return std::string(card.name);
    if (!chosen) chosen = &card;
  }
  return chosen ? std::string(chosen->name) : std::string();
}

bool NasCardText::HasElement(Key key) const {
  const std::size_t found = elements_.Find(key);
  return found != NasIndex::kNone && !NameOf(found).empty();
}

Key NasCardText::PropertyOfElement(Key key) const {
  const std::size_t found = elements_.Find(key);
  return found == NasIndex::kNone ? 0 : deck_.elements[found].property;
}

bool NasCardText::IsMass(Key key) const {
  const std::size_t found = elements_.Find(key);
  return found != NasIndex::kNone && NameOf(found) == "CONM2";
}

bool NasCardText::IsAcross(const tagTEcrd& record) const {
  if (record.method != tagTEcrd::kByCoordinateSystem) return false;
  const std::size_t found = elements_.Find(record.key);
  if (found == NasIndex::kNone) return false;
  const std::string name = NameOf(found);
  if (name != "CBAR" && name != "CBEAM") return false;
  const std::size_t first = deck_.elements[found].first;
  Vector3 along = PointOf(deck_.connectivity[first + 1]) - PointOf(deck_.connectivity[first]);
  const auto system = static_cast<Key>(record.coordinate_system);
  const auto frame = systems_.FrameOf(system);
  constexpr double kParallel = 1e-9;
  return !frame || !systems_.IsRectangular(system) || !Normalize(along) ||
         Distance(along, frame->axes.x) > kParallel;
}

// ---- cards --------------------------------------------------------------------------------------

Vector3 NasCardText::PointOf(Key node) const {
  const std::size_t found = nodes_.Find(node);
  return found == NasIndex::kNone ? Vector3() : Vector3(&deck_.coordinates[3 * found]);
}

Key NasCardText::OutputOf(Key node) const {
  const auto found = outputs_.find(node);
  return found == outputs_.end() ? 0 : found->second;
}

NasNodeFrame NasCardText::FrameOf(Key node) const {
  const Vector3 at = PointOf(node);
  return {at, systems_.AxesAt(OutputOf(node), at).value_or(Triad())};
}

NasFields NasCardText::Node(Key key, bool says_zero) const {
  const Vector3 at = PointOf(key);
  const Key output = OutputOf(key);
  const char* const none = says_zero ? "0" : "";
  NasFields card("GRID");
  card.Number(key).Word(none).Real(at.x).Real(at.y).Real(at.z);
  if (output == 0) {
    card.Word(none);
  } else {
    card.Number(output);
  }
  return card;
}

NasFields NasCardText::Element(Key key, const NasLineForm& form) const {
  const std::size_t found = elements_.Find(key);
  if (found == NasIndex::kNone) return NasFields();
  const Mesh::Element& element = deck_.elements[found];
  NasFields card(NameOf(found));
  if (card.IsEmpty()) return card;
  const std::size_t count = deck_.NodesOf(found);
  const std::int8_t* order = NasOrder(element.type);
  const auto node = [&](std::size_t i) {
    return deck_.connectivity[element.first + (order ? static_cast<std::size_t>(order[i]) : i)];
  };
  const auto frames = [this](Key of) { return FrameOf(of); };
  card.Number(key);
  if (card.Name() == "CONM2") {
    card.Number(node(0));
    const auto mass = masses_.find(key);
    if (mass != masses_.end()) AddNasMass(card, *mass->second, form, node(0), frames);
    return card;
  }
  if (FindNasElementCard(card.Name())->has_property) card.Number(element.property);
  for (std::size_t i = 0; i < count; ++i) card.Number(node(i));
  shells_.Add(card, key);
  if (!IsNasLine(card.Name()) || count == 1) return card;
  const auto records = lines_.find(key);
  AddNasLine(card, records == lines_.end() ? NasLineRecords() : records->second, form,
             {node(0), node(1)}, frames, systems_);
  return card;
}

NasFields NasCardText::Property(Key key) const {
  const std::string name = PropertyCard(key);
  return name.empty() ? NasFields() : NasPropertyCard(name, *properties_.at(key));
}

NasFields NasCardText::Material(Key key) const {
  const tagTMatl* material = MaterialOf(key);
  if (!material) return NasFields();
  const auto came_from = material_cards_.find(key);
  return NasMaterialCard(came_from == material_cards_.end() ? "MAT1" : came_from->second,
                         *material);
}

NasFields NasCardText::System(Key number) const {
  const tagTCord* system = SystemOf(number);
  if (!system) return NasFields();
  constexpr char kLetters[] = {'R', 'C', 'S'};
  const char letter = system->type >= 0 && system->type < 3 ? kLetters[system->type] : 'R';
  NasFields card(std::string("CORD2") + letter);
  card.Number(number);
  std::array<Vector3, 3> points{system->origin, system->axis_point, system->plane_point};
  Key reference = static_cast<Key>(system->reference);
  constexpr std::int32_t kByAxisZ = 2;
  const bool is_plain = system->plane == kByAxisZ && system->method == tagTCord::kByPoints;
  const std::optional<Frame> frame = systems_.FrameOf(number);
  if (!is_plain && frame) {
    reference = 0;
    points = {frame->origin, frame->origin + frame->axes.z, frame->origin + frame->axes.x};
  }
  card.Number(reference);
  for (const Vector3& p : points) {
    const double size = std::max(Length(p), Length(p - points[0]));
    for (int i = 0; i < 3; ++i) card.Real(p[i], size);
  }
  return card;
}

}  // namespace qx::exchange
