// Materials, coordinate systems and the numbers of sections brought up to the model.

#include <algorithm>
#include <cmath>
#include <fmt/format.h>

#include "qx_db/model/coordinate_pool.h"
#include "qx_db/record/element_types.h"

#include "exchange/abaqus/inp_edit.h"

namespace qx::exchange {
namespace {

bool AreDifferent(double a, double b) {
  return std::abs(a - b) > 1e-13 * std::max(std::abs(a), std::abs(b));
}

bool AreDifferent(const tagTVector3<double>& a, const tagTVector3<double>& b) {
  return AreDifferent(a.x, b.x) || AreDifferent(a.y, b.y) || AreDifferent(a.z, b.z);
}

bool DifferInOption(const tagTMatl& a, const tagTMatl& b, std::string_view option) {
  if (option == "ELASTIC") {
    return AreDifferent(a.elastic_modulus, b.elastic_modulus) ||
           AreDifferent(a.poisson_ratio, b.poisson_ratio);
  }
  if (option == "EXPANSION") {
    return AreDifferent(a.thermal_expansion, b.thermal_expansion) ||
           AreDifferent(a.reference_temperature, b.reference_temperature);
  }
  if (option == "DENSITY") return AreDifferent(a.density, b.density);
  if (option == "CONDUCTIVITY") return AreDifferent(a.conductivity, b.conductivity);
  return AreDifferent(a.specific_heat, b.specific_heat);
}

/// What a property has besides thickness, area, material and system.
bool DifferInRest(const tagTProp& a, const tagTProp& b) {
  bool differ = a.type != b.type || AreDifferent(a.inertia_y, b.inertia_y) ||
                AreDifferent(a.inertia_z, b.inertia_z) ||
                AreDifferent(a.inertia_yz, b.inertia_yz) || AreDifferent(a.torsion, b.torsion);
  for (std::size_t i = 0; i < 6; ++i) {
    differ = differ || AreDifferent(a.stiffness[i], b.stiffness[i]) ||
             AreDifferent(a.damping[i], b.damping[i]);
  }
  return differ;
}

bool HasUnwritten(const tagTProp& a, const tagTProp& b) {
  return AreDifferent(a.non_structural_mass, b.non_structural_mass) ||
         AreDifferent(a.mass, b.mass) || AreDifferent(a.shear_area_y, b.shear_area_y) ||
         AreDifferent(a.shear_area_z, b.shear_area_z);
}

}  // namespace

void InpEditor::SetParameter(std::size_t scope, const InpBlock& block, const char* name,
                             const std::string& value) {
  const std::string text =
      value.empty() ? std::string() : fmt::format(", {}={}", name, InpName(value));
  for (const InpParameter& parameter : text_.Parameters(block)) {
    if (parameter.name == InpLabel(name)) {
      return AddTo(scope, {parameter.begin, parameter.end, text});
    }
  }
  std::size_t end = block.data;
  while (end > block.begin && (text_.Text()[end - 1] == '\n' || text_.Text()[end - 1] == '\r' ||
                               text_.Text()[end - 1] == ' ')) {
    --end;
  }
  AddTo(scope, {end, end, text});
}

void InpEditor::SetField(std::size_t scope, const InpBlock& block, std::size_t row,
                         std::size_t field, const std::string& value) {
  InpLines lines(text_.Text(), block.data, block.end);
  for (std::size_t i = 0; lines.Next(); ++i) {
    if (i != row) continue;
    const auto fields = lines.Fields();
    if (field >= fields.size()) break;
    const auto at = static_cast<std::size_t>(fields[field].data() - text_.Text().data());
    return AddTo(scope, {at, at + fields[field].size(), value});
  }
  AddTo(scope, {block.data, block.data, value + "\n"});
}

void InpEditor::EditSectionValues(std::size_t index, const tagTProp& then, const tagTProp& now) {
  const InpSection& section = model_.sections[index];
  const InpBlock& block = Block(section.block);
  const tagTMatl* material = new_.MaterialOf(now);
  const std::string name = material ? new_.MaterialName(material->key) : std::string();
  // A material that the deck has no record of keeps its name.
  const auto material_then = static_cast<std::size_t>(then.material);
  const std::string name_then = material_then == 0
                                    ? std::string()
                                    : Utf8(then_.Of<tagTMatl>()[material_then - 1].name.View());
  if (InpLabel(name) != InpLabel(name_then)) {
    SetParameter(section.scope, block, "material", name);
  }
  const std::string system = new_.SystemOf(now);
  const auto system_then = static_cast<std::size_t>(then.coordinate_system);
  const std::string its_name =
      system_then == 0 ? std::string() : Utf8(then_.Of<tagTCord>()[system_then - 2].name.View());
  if (InpLabel(system) != InpLabel(its_name)) {
    SetParameter(section.scope, block, "orientation", system);
  }
  report_.Lost("parts of changed properties were left out", HasUnwritten(then, now) ? 1 : 0,
               section_names_[index], "the section has no place for them");
  const bool has_size =
      AreDifferent(then.thickness, now.thickness) || AreDifferent(then.area, now.area);
  if (!has_size && !DifferInRest(then, now)) return;
  const bool is_simple = now.type == then.type && !text_.Parameter(block, "COMPOSITE") &&
                         (now.type == tagTProp::kPlate || now.type == tagTProp::kMembrane ||
                          now.type == tagTProp::kTruss || now.type == tagTProp::kPlaneStress ||
                          now.type == tagTProp::kPlaneStrain);
  if (is_simple) {
    return SetField(section.scope, block, 0, 0,
                    InpReal(now.type == tagTProp::kTruss ? now.area : now.thickness));
  }
  const std::string text = SectionText(
      now, model_.sets[section.set].name, name, material ? material->elastic_modulus : 0,
      material ? material->ShearModulus() : 0, system, section.direction);
  if (text.empty()) {
    return report_.Lost("changes of properties were left out", 1, section_names_[index],
                        "the format has no section for them");
  }
  AddTo(section.scope, {block.begin, DataEnd(block), text});
  report_.Changed("sections of changed properties were written as general ones", 1,
                  section_names_[index], "the model has no shape of theirs");
}

/// Masses of a section change together or, which is told, not at all.
void InpEditor::EditMasses() {
  std::map<Key, const tagTSprop*> now;
  for (const tagTSprop& mass : now_.Of<tagTSprop>()) now[mass.key] = &mass;
  std::map<std::int32_t, std::set<double>> masses;
  std::map<std::int32_t, std::uint64_t> elements;
  for (std::size_t p = 0; p < states_.size(); ++p) {
    const InpScope& scope = ScopeOf(p);
    for (std::size_t i = 0; i < scope.elements.size(); ++i) {
      const std::int32_t section = scope.elements[i].section;
      if (section < 0 || !model_.sections[static_cast<std::size_t>(section)].is_mass) continue;
      if (states_[p].elements[i] == kNoPlace) continue;
      const auto found = now.find(now_.elements[states_[p].elements[i]].key);
      masses[section].insert(found == now.end() ? 0 : found->second->mass);
      ++elements[section];
    }
  }
  for (const auto& [index, values] : masses) {
    const InpSection& section = model_.sections[static_cast<std::size_t>(index)];
    const bool differs = std::any_of(values.begin(), values.end(),
                                     [&](double mass) { return AreDifferent(mass, section.mass); });
    if (!differs) continue;
    if (values.size() == 1) {
      SetField(section.scope, Block(section.block), 0, 0, InpReal(*values.begin()));
    } else {
      report_.Lost("changes of masses were left out", elements[index],
                   model_.sets[section.set].name, "their section has one mass for all");
    }
  }
}

// ---- materials ----------------------------------------------------------------------------------

void InpEditor::EditMaterials() {
  std::map<std::string, const tagTMatl*> now;
  for (const tagTMatl& material : now_.Of<tagTMatl>()) {
    now.emplace(InpLabel(new_.MaterialName(material.key)), &material);
  }
  std::set<std::string> of_deck;
  for (const InpMaterial& then : model_.materials) {
    const std::string label = InpLabel(Utf8(then.record.name.View()));
    of_deck.insert(label);
    const auto found = now.find(label);
    if (found == now.end()) {
      // What else the deck states of it goes with it.
      std::size_t last = then.block;
      for (std::size_t i = then.block + 1; i <= then.last; ++i) last = i;
      for (std::size_t i = then.block; i <= last; ++i) Replace(i, edits_, {});
      report_.Changed("materials that the model has no more were left out", 1, label,
                      "they were deleted or renamed");
      continue;
    }
    const tagTMatl& material = *found->second;
    std::string added;
    for (const auto& [option, title] : kInpMaterialOptions) {
      if (!DifferInOption(then.record, material, option)) continue;
      const std::string data = MaterialOption(material, option);
      const auto block = then.options.find(std::string(option));
      if (block == then.options.end()) {
        if (!data.empty()) added += MaterialOptionHead(material, option, title) + data;
        continue;
      }
      InpLines lines(text_.Text(), Block(block->second).data, Block(block->second).end);
      std::uint64_t rows = 0;
      while (lines.Next()) ++rows;
      report_.Changed("tables of changed materials were written as one line", rows > 1, label,
                      "the model has one value of each");
      Replace(block->second, edits_,
              data.empty() ? std::string() : MaterialOptionHead(material, option, title) + data);
    }
    if (!added.empty()) {
      const std::size_t behind = DataEnd(Block(then.last));
      edits_.push_back({behind, behind, std::move(added)});
    }
    tagTMatl rest = material;
    if (const std::string parts = UnwrittenPartsOf(rest); !parts.empty()) {
      report_.Lost("parts of materials were left out: " + parts, 1, label,
                   "their options are not among those that are written");
    }
  }
  std::string text;
  for (const tagTMatl& material : now_.Of<tagTMatl>()) {
    if (!of_deck.contains(InpLabel(new_.MaterialName(material.key))))
      text += new_.Material(material);
  }
  if (!text.empty()) edits_.push_back({model_.model_end, model_.model_end, std::move(text)});
}

// ---- coordinate systems -------------------------------------------------------------------------

void InpEditor::EditSystems() {
  std::map<std::string, const tagTCord*> now;
  for (const tagTCord& system : now_.Of<tagTCord>()) {
    if (system.key != DPoolCord::kDefaultKey) now.emplace(new_.SystemName(system.key), &system);
  }
  std::set<std::string> of_deck;
  for (const InpSystem& then : model_.systems) {
    const std::string name = Utf8(then.record.name.View());
    of_deck.insert(name);
    const InpBlock& block = Block(then.block);
    std::size_t scope = 0;
    for (std::size_t s = 0; s < model_.scopes.size(); ++s) {
      const InpScope& of = model_.scopes[s];
      if (s > 0 && block.begin > Block(of.begin_block).begin && block.begin < of.end) scope = s;
    }
    const auto found = now.find(name);
    if (found == now.end()) {
      AddTo(scope, {block.begin, DataEnd(block), {}});
      report_.Changed("coordinate systems that the model has no more were left out", 1, name,
                      "they were deleted or renamed");
      continue;
    }
    const tagTCord& system = *found->second;
    const tagTCord& record = then.record;
    const bool is_same = system.type == record.type && system.method == record.method &&
                         system.plane == record.plane && system.reference == 0 &&
                         !AreDifferent(system.origin, record.origin) &&
                         !AreDifferent(system.axis_point, record.axis_point) &&
                         !AreDifferent(system.plane_point, record.plane_point);
    const auto points = systems_.find(system.key);
    if (is_same || points == systems_.end()) continue;
    const std::string text = then.set == kNoPlace
                                 ? OrientationText(points->second, name)
                                 : TransformText(points->second, model_.sets[then.set].name);
    AddTo(scope, {block.begin, DataEnd(block), text});
  }
  std::string text;
  for (const auto& [name, system] : now) {
    if (!of_deck.contains(name)) text += new_.System(*system);
  }
  if (!text.empty()) edits_.push_back({model_.model_end, model_.model_end, std::move(text)});
}

/// Properties that no section of the text stands for.
void InpEditor::ReportProperties() {
  std::set<Key> used;
  for (const Mesh::Element& element : now_.elements) used.insert(element.property);
  for (const tagTProp& property : now_.Of<tagTProp>()) {
    const bool is_lost = !used.contains(property.key) && !section_of_.contains(property.key);
    report_.Lost("properties of no element were left out", is_lost ? 1 : 0,
                 Utf8(property.name.View()), "a section is of elements");
  }
}

/// Masses of elements that no *MASS of the text is over.
void InpEditor::ReportMasses() {
  std::set<Key> written;
  for (std::size_t p = 0; p < states_.size(); ++p) {
    const InpScope& scope = ScopeOf(p);
    for (std::size_t i = 0; i < scope.elements.size(); ++i) {
      const std::int32_t section = scope.elements[i].section;
      const bool has_mass =
          section >= 0 && model_.sections[static_cast<std::size_t>(section)].is_mass;
      if (has_mass && states_[p].elements[i] != kNoPlace) {
        written.insert(now_.elements[states_[p].elements[i]].key);
      }
    }
  }
  for (const tagTSprop& mass : now_.Of<tagTSprop>()) {
    report_.Lost("new masses and stiffnesses of elements were left out",
                 written.contains(mass.key) ? 0 : 1, fmt::format("element {}", mass.key),
                 "the deck has no keyword for them");
  }
}

/// What changed and has no way into the text is told.
void InpEditor::ReportRest() {
  std::map<Key, const tagTEcrd*> directions;
  for (const tagTEcrd& record : now_.Of<tagTEcrd>()) directions[record.key] = &record;
  std::set<Key> new_keys;
  for (std::size_t p = 0; p < states_.size(); ++p) {
    for (const std::size_t element : states_[p].new_elements) {
      new_keys.insert(now_.elements[element].key);
    }
  }
  // Elements are known by the keys they have now; then_ has those of the text.
  std::map<Key, const tagTEcrd*> then;
  for (const tagTEcrd& record : then_.Of<tagTEcrd>()) then[record.key] = &record;
  std::uint64_t changed = 0;
  Key first_changed = 0;
  for (std::size_t p = 0; p < states_.size(); ++p) {
    const InpScope& scope = ScopeOf(p);
    for (std::size_t i = 0; i < scope.elements.size(); ++i) {
      if (states_[p].elements[i] == kNoPlace || scope.elements[i].type > element::kLine3) continue;
      const auto before = then.find(scope.elements[i].number + model_.placements[p].element_shift);
      const auto after = directions.find(now_.elements[states_[p].elements[i]].key);
      if (before == then.end() && after == directions.end()) continue;
      changed += before == then.end() || after == directions.end() ||
                 after->second->method != tagTEcrd::kByVector ||
                 AreDifferent(before->second->reference_vector, after->second->reference_vector);
      if (changed == 1 && first_changed == 0) {
        first_changed = now_.elements[states_[p].elements[i]].key;
      }
    }
  }
  report_.Lost("changed orientations of lines were left out", changed,
               fmt::format("element {}", first_changed),
               "a section has one direction for all its elements");
  const auto offset_of = [](const Deck& deck) {
    std::vector<std::pair<double, std::int64_t>> all;
    for (const tagTE2DOffset& offset : deck.Of<tagTE2DOffset>()) {
      const double value = offset.offset;  // packed in the record: no reference may bind to it
      all.emplace_back(value, offset.elements.GetSize());
    }
    std::sort(all.begin(), all.end());
    return all;
  };
  const auto before = offset_of(then_);
  const auto after = offset_of(now_);
  bool is_same = before.size() == after.size();
  for (std::size_t i = 0; is_same && i < before.size(); ++i) {
    is_same = !AreDifferent(before[i].first, after[i].first) && before[i].second == after[i].second;
  }
  report_.Lost("changed offsets of plates were left out", is_same ? 0 : 1, "OFFSET",
               "a section has one offset for all its elements");
  const bool same_transforms = then_.Of<tagTMeshCsys>().size() == now_.Of<tagTMeshCsys>().size();
  report_.Lost("changed systems of nodes were left out", same_transforms ? 0 : 1, "*TRANSFORM",
               "what the deck says of them stays");
  std::set<std::string> conditions(model_.conditions.begin(), model_.conditions.end());
  std::uint64_t others = 0;
  std::string first_other;
  std::set<std::string> still;
  for (const tagTBset& set : now_.Of<tagTBset>()) {
    // A name in the model may be a shorter one.
    const std::string name = Utf8(set.name.View());
    const auto at = conditions.lower_bound(name);
    const bool is_other = at == conditions.end() || !at->starts_with(name);
    if (is_other && others++ == 0) first_other = name;
    if (!is_other) still.insert(*at);
  }
  report_.Lost("boundary sets were left out", others, first_other,
               "the deck has no keywords for them");
  for (const std::string& condition : conditions) {
    report_.Changed("loads and constraints whose boundary sets are gone stay in the deck",
                    still.contains(condition) ? 0 : 1, condition,
                    "the text of the deck is kept: take them out there");
  }
  ReportProperties();
  ReportMasses();
}

}  // namespace qx::exchange
