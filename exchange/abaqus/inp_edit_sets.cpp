// Sets, surfaces and sections of a deck brought up to the model.

#include <algorithm>
#include <cmath>
#include <fmt/format.h>

#include "qx_db/record/element_types.h"

#include "exchange/abaqus/inp_edit.h"

namespace qx::exchange {
namespace {

bool IsOfNodes(const InpSet& set) {
  return set.kind == InpSet::Kind::kNodes || set.kind == InpSet::Kind::kSurfaceNodes;
}

}  // namespace

void InpEditor::EditSets() {
  std::map<std::int32_t, const Mesh::Group*> by_tag;
  std::set<const Mesh::Group*> of_deck;
  for (const Mesh::Group& group : now_.groups) {
    for (const Mesh::SetTag& tag : group.tags) {
      const auto place = static_cast<std::size_t>(tag.tag) - 1;
      if (tag.tag < 1 || place >= then_.groups.size()) continue;
      // A name in the model may be a shorter one.
      const bool is_it = then_.groups[place].name.starts_with(group.name.substr(0, 50)) ||
                         then_.groups[place].name == group.name;
      if (is_it && by_tag.emplace(tag.tag, &group).second) of_deck.insert(&group);
    }
  }
  for (std::size_t g = 0; g < groups_.size(); ++g) {
    if (groups_[g].set == kNoPlace) continue;
    const auto found = by_tag.find(static_cast<std::int32_t>(g) + 1);
    EditSet(g, found == by_tag.end() ? nullptr : found->second);
  }
  for (const Mesh::Group& group : now_.groups) {
    if (!of_deck.contains(&group)) AppendNewSet(group);
  }
}

/// The members of a set of the deck as the model has them, in the deck's numbers.
std::vector<InpMember> InpEditor::MembersNow(const InpGroup& what, const Mesh::Group& now) {
  const InpSet& set = model_.sets[what.set];
  std::vector<InpMember> members;
  std::uint64_t elsewhere = 0;
  const auto add = [&](const Local& local, std::int32_t side) {
    if (local.placement == kNoPlace) return;
    InpMember member{local.number, -1, side};
    if (local.placement != what.placement) {
      if (set.scope != kAssembly) {
        ++elsewhere;
        return;
      }
      member.instance = static_cast<std::int32_t>(local.placement);
    }
    members.push_back(member);
  };
  if (IsOfNodes(set)) {
    for (const Key key : now.nodes) add(LocalNode(key), -1);
    // Nodes that belong to elements of the set stand with these.
    for (const Key key : now.elements) {
      const std::size_t element = element_place_.Find(key);
      for (std::size_t i = 0; element != kNoPlace && i < now_.NodesOf(element); ++i) {
        add(LocalNode(now_.connectivity[now_.elements[element].first + i]), -1);
      }
    }
  } else if (set.kind == InpSet::Kind::kElements) {
    for (const Key key : now.elements) {
      if (new_.Writes(key)) add(LocalElement(key), -1);
    }
  } else {
    for (const Mesh::SetTag& tag : now.tags) {
      for (const auto& [key, side] : tag.sides) add(LocalElement(key), side);
    }
  }
  report_.Lost("members of a part's set that belong to another instance were left out", elsewhere,
               now.name, "the set is one of its part");
  std::sort(members.begin(), members.end());
  members.erase(std::unique(members.begin(), members.end()), members.end());
  return members;
}

void InpEditor::EditSet(std::size_t g, const Mesh::Group* now) {
  const InpGroup& what = groups_[g];
  const InpSet& set = model_.sets[what.set];
  std::vector<InpMember> members;
  if (now) members = MembersNow(what, *now);
  if (set.kind == InpSet::Kind::kElements) {
    auto& numbers = set_now_[{what.set, what.placement}];
    for (const InpMember& member : members) numbers.push_back(member.number);
  }
  const bool has_written_out =
      std::any_of(set.parameters.begin(), set.parameters.end(),
                  [&](std::size_t block) { return written_out_.contains(block); });
  if (now && members == set.members && !has_written_out) return;
  if (!now) {
    report_.Changed("sets that the model has no more were left out", 1, then_.groups[g].name,
                    "keywords that are carried may name them");
    members.clear();
  }
  RewriteSet(what, members);
}

/// Lists a set anew where it stood; no members remove it.
void InpEditor::RewriteSet(const InpGroup& what, const std::vector<InpMember>& members) {
  const InpSet& set = model_.sets[what.set];
  std::vector<InpEdit>& edits = EditsOf(set.scope, what.placement);
  std::string text = SetOrSurface(set, members);
  for (const std::size_t block : set.blocks) {
    Replace(block, edits, std::exchange(text, {}));
  }
  for (const std::size_t block : set.parameters) {
    if (!written_out_.contains(block)) {
      for (const InpParameter& parameter : text_.Parameters(Block(block))) {
        const bool names_it =
            (parameter.name == "NSET" || parameter.name == "ELSET" || parameter.name == "NEWSET") &&
            InpLabel(parameter.value) == InpLabel(set.name);
        if (names_it) edits.push_back({parameter.begin, parameter.end, {}});
      }
    }
    if (block == set.parameters.back() && !text.empty()) {
      const std::size_t behind = DataEnd(Block(block));
      edits.push_back({behind, behind, std::exchange(text, {})});
    }
  }
}

std::string InpEditor::SetOrSurface(const InpSet& set,
                                    const std::vector<InpMember>& members) const {
  if (members.empty()) return {};
  if (set.kind == InpSet::Kind::kNodes || set.kind == InpSet::Kind::kElements) {
    std::map<std::int32_t, std::vector<Key>> by_instance;
    for (const InpMember& member : members) by_instance[member.instance].push_back(member.number);
    std::string text;
    for (const auto& [instance, numbers] : by_instance) {
      text += SetText(set.kind == InpSet::Kind::kNodes, set.name, numbers,
                      instance < 0 ? std::string_view()
                                   : model_.placements[static_cast<std::size_t>(instance)].name);
    }
    return text;
  }
  const bool is_nodes = IsOfNodes(set);
  std::string text =
      fmt::format("*Surface, name={}, type={}\n", InpName(set.name), is_nodes ? "NODE" : "ELEMENT");
  for (const InpMember& member : members) {
    if (member.instance >= 0) {
      text += model_.placements[static_cast<std::size_t>(member.instance)].name + ".";
    }
    text += fmt::format("{}", member.number);
    if (!is_nodes) {
      const std::size_t scope =
          member.instance < 0 ? set.scope
                              : model_.placements[static_cast<std::size_t>(member.instance)].scope;
      const std::size_t e = model_.scopes[scope].element_index.Find(member.number);
      const std::int32_t type = e == kNoPlace ? 0 : model_.scopes[scope].elements[e].type;
      const auto known = e == kNoPlace
                             ? std::nullopt
                             : FindInpElement(InpLabel(model_.type_names[static_cast<std::size_t>(
                                   model_.scopes[scope].elements[e].type_name)]));
      const bool is_shell =
          type != 0 && known &&
          (known->family == InpFamily::kShell || known->family == InpFamily::kMembrane);
      text += ", " + SideName(member.side, is_shell);
    }
    text += '\n';
  }
  return text;
}

void InpEditor::AppendNewSet(const Mesh::Group& group) {
  std::vector<InpEdit>* edits = &edits_;
  std::size_t end = model_.model_end;
  const bool in_assembly = model_.has_assembly && !model_.IsFlat();
  if (in_assembly) {
    end = model_.scopes[kAssembly].end;
  } else {
    edits = &states_[0].edits;
    end = ScopeOf(0).end;
  }
  const std::string own = names_.Fit(group.name, "Set", "sets", report_);
  std::string text;
  for (const bool is_nodes : {false, true}) {
    std::map<std::size_t, std::vector<Key>> by_placement;
    for (const Key key : is_nodes ? group.nodes : group.elements) {
      if (!is_nodes && !new_.Writes(key)) continue;
      const Local local = is_nodes ? LocalNode(key) : LocalElement(key);
      by_placement[local.placement].push_back(local.number);
    }
    for (auto& [p, numbers] : by_placement) {
      std::sort(numbers.begin(), numbers.end());
      if (p == kNoPlace || (!in_assembly && p != 0)) {
        report_.Lost("members of sets were left out", numbers.size(), group.name,
                     "they belong to another part");
        continue;
      }
      const bool has_instance = in_assembly && model_.placements[p].scope != kAssembly;
      text +=
          SetText(is_nodes, own, numbers,
                  has_instance ? std::string_view(model_.placements[p].name) : std::string_view());
    }
  }
  if (!text.empty()) edits->push_back({end, end, std::move(text)});
}

// ---- sections -----------------------------------------------------------------------------------

void InpEditor::EditSections() {
  std::map<std::string, std::size_t> by_name;
  for (std::size_t s = 0; s < model_.sections.size(); ++s) {
    if (!model_.sections[s].is_mass) by_name.emplace(section_names_[s], s);
  }
  for (const tagTProp& property : now_.Of<tagTProp>()) {
    const auto found = by_name.find(Utf8(property.name.View()));
    if (found == by_name.end()) continue;
    section_of_[property.key] = static_cast<std::int32_t>(found->second);
    for (const tagTProp& then : then_.Of<tagTProp>()) {
      if (then.key != static_cast<Key>(found->second) + 1) continue;
      EditSectionValues(found->second, then, property);
    }
  }
  for (std::size_t p = 0; p < states_.size(); ++p) EditSectionMembers(p);
}

/// A section is over a set; where its elements are no longer those of the set, it gets one of its
/// own.
void InpEditor::EditSectionMembers(std::size_t p) {
  const InpScope& scope = ScopeOf(p);
  State& state = states_[p];
  std::set<std::int32_t> changed;
  std::map<std::int32_t, std::vector<Key>> members;
  std::map<Key, std::vector<Key>> of_new;  // elements of properties without a section
  std::map<Key, std::vector<Key>> keys_of_new;
  const auto list = [&](Key number, std::int32_t then, const Mesh::Element& now) {
    const auto found = section_of_.find(now.property);
    const std::int32_t section = found == section_of_.end() ? -1 : found->second;
    const bool was_mass = then >= 0 && model_.sections[static_cast<std::size_t>(then)].is_mass;
    if (section >= 0) members[section].push_back(number);
    if (section < 0 && now.property != 0) {
      of_new[now.property].push_back(number);
      keys_of_new[now.property].push_back(now.key);
    }
    if (then == section || was_mass) return;
    changed.insert(then);
    changed.insert(section);
  };
  for (std::size_t i = 0; i < scope.elements.size(); ++i) {
    if (state.elements[i] == kNoPlace) {
      changed.insert(scope.elements[i].section);
      continue;
    }
    list(scope.elements[i].number, scope.elements[i].section, now_.elements[state.elements[i]]);
  }
  for (const std::size_t element : state.new_elements) {
    const Mesh::Element& now = now_.elements[element];
    if (scope.element_index.Find(LocalElement(now.key).number) != kNoPlace) continue;
    if (!new_.Writes(now.key)) continue;
    list(LocalElement(now.key).number, -1, now);
  }
  changed.erase(-1);
  for (const std::int32_t index : changed) {
    const InpSection& section = model_.sections[static_cast<std::size_t>(index)];
    if (section.is_mass) continue;
    if (model_.sets[section.set].scope != model_.placements[p].scope) continue;
    std::vector<Key>& numbers = members[index];
    std::sort(numbers.begin(), numbers.end());
    std::vector<InpEdit>& edits = EditsOf(section.scope, p);
    if (numbers.empty()) {
      Replace(section.block, edits, {});
      continue;
    }
    const auto of_set = set_now_.find({section.set, p});
    if (of_set != set_now_.end() && of_set->second == numbers) continue;
    const InpBlock& block = Block(section.block);
    const std::string name = names_.New(section_names_[static_cast<std::size_t>(index)]);
    edits.push_back({block.begin, block.begin, SetText(false, name, numbers)});
    for (const InpParameter& parameter : text_.Parameters(block)) {
      if (parameter.name != "ELSET") continue;
      edits.push_back({parameter.begin, parameter.end, ", elset=" + InpName(name)});
    }
  }
  for (auto& [key, numbers] : of_new) {
    const tagTProp* property = Property(key);
    if (!property) continue;
    std::sort(numbers.begin(), numbers.end());
    const std::string wish = Utf8(property->name.View());
    const std::string name = names_.New(wish.empty() ? fmt::format("Section-{}", key) : wish);
    const std::string text = new_.Section(*property, name, keys_of_new[key]);
    if (text.empty()) continue;
    state.edits.push_back({scope.end, scope.end, SetText(false, name, numbers) + text});
  }
}

}  // namespace qx::exchange
