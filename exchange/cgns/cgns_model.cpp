#include "exchange/cgns/cgns_model.h"

#include <algorithm>
#include <fmt/format.h>

#include "qx_db/record/element_types.h"

#include "exchange/cgns/cgns_kinds.h"
#include "host/records.h"

namespace qx::exchange {
namespace {

constexpr std::size_t kMostName = 32;  // bytes

/// At most so many bytes, and no part of a character.
std::string Cut(const std::string& text, std::size_t most) {
  if (text.size() <= most) return text;
  while (most > 0 && (static_cast<unsigned char>(text[most]) & 0xc0) == 0x80) --most;
  return text.substr(0, most);
}

}  // namespace

std::string CgnsNames::Take(const std::string& name) {
  std::string own = name;
  for (char& c : own) c = c == '/' || c == '\0' ? '_' : c;
  // A node whose name begins with a blank is the container's own.
  own.erase(0, std::min(own.find_first_not_of(' '), own.size()));
  own.resize(own.find_last_not_of(' ') + 1);
  if (own.empty() || own == "." || own == "..") own = "set";
  own = Cut(own, kMostName);
  for (int n = 2; !taken_.insert(own).second; ++n) {
    const std::string behind = fmt::format(" {}", n);
    own = Cut(own, kMostName - 12);
    if (const std::size_t before = own.rfind(' '); n > 2 && before != own.npos) own.resize(before);
    own += behind;
  }
  return own;
}

CgnsModel::CgnsModel(const CQXDBSession& session, LossReport& report, const Progress& progress)
    : report_(report), deck_(DeckOf(session, progress)) {
  report_.Append(deck_.report);
  for (const Key key : deck_.node_keys) {
    node_number_.emplace(key, static_cast<std::int32_t>(node_number_.size()) + 1);
  }
  UnwrittenElements others;
  std::uint64_t with_property = 0;
  Key first_with_property = 0;
  for (std::size_t i = 0; i < deck_.elements.size(); ++i) {
    const Mesh::Element& element = deck_.elements[i];
    place_of_[element.key] = i;
    const ElementType* const type = FindElementType(element.type);
    if (!type) others.Add(element.type, element.key);
    if (type) cell_dimension_ = std::max(cell_dimension_, type->dimension);
    if (element.property != 0 && with_property++ == 0) first_with_property = element.key;
  }
  if (cell_dimension_ == 0) cell_dimension_ = deck_.elements.empty() ? 3 : 1;
  others.Report(report_);
  report_.Lost("elements were written without their property", with_property,
               fmt::format("element {}", first_with_property), "the format has no place for it");
  auto* const mutable_session = const_cast<CQXDBSession*>(&session);
  host::ForEach<tagTSetTag>(mutable_session, [&](ITR, const tagTSetTag& tag) {
    if (tag.format.View() == u"cgns" && tag.set && !KeyedSetBase::IsRemoved(tag.set)) {
      tags_.emplace(KeyOf(tag.set), tag.tag);
    }
    return true;
  });
  FindFamilies();
  MakeSections();
  MakeSets();
  std::vector<std::int32_t> cells;
  for (const Section& section : sections_) {
    if (FindElementType(section.code)->dimension != cell_dimension_) continue;
    for (const std::size_t i : section.elements) {
      cells.push_back(number_of_.at(deck_.elements[i].key));
    }
  }
  solutions_ = SolutionsOf(deck_, node_number_, number_of_, cells, zone_names_, report_);
  report_.Changed("names of sets were shortened for other programs", renamed_, first_renamed_,
                  "a node's name has 32 bytes and is the only one; a node below has the whole");
  constexpr std::uint16_t kWritten[] = {code::kNode, code::kElem, code::kMset, code::kSetTag,
                                        code::kField};
  ReportUnwritten(session, "cgns", kWritten, report_);
}

std::int32_t CgnsModel::TagOf(const Mesh::Group& group) const {
  const auto found = tags_.find(group.key);
  return found == tags_.end() ? -1 : found->second;
}

CgnsModel::Named CgnsModel::NamedOf(std::size_t group, CgnsNames& names) {
  const Mesh::Group& of = deck_.groups[group];
  Named named{names.Take(of.name), of.name};
  if (named.name != named.full && renamed_++ == 0)
    first_renamed_ = named.full.empty() ? "an empty one" : named.full;
  if (of.parent != Mesh::Group::kNone) {
    named.family = family_names_[static_cast<std::size_t>(of.parent)];
  }
  return named;
}

/// A group is a family when it has what those below it have, and stands below none itself.
void CgnsModel::FindFamilies() {
  const std::size_t count = deck_.groups.size();
  std::vector<std::set<Key>> elements(count), nodes(count);
  std::vector<bool> has_parts(count);
  for (const Mesh::Group& group : deck_.groups) {
    if (group.parent == Mesh::Group::kNone) continue;
    const auto parent = static_cast<std::size_t>(group.parent);
    has_parts[parent] = true;
    elements[parent].insert(group.elements.begin(), group.elements.end());
    nodes[parent].insert(group.nodes.begin(), group.nodes.end());
  }
  family_names_.resize(count);
  std::uint64_t lost = 0;
  std::string first_lost;
  for (std::size_t g = 0; g < count; ++g) {
    const Mesh::Group& group = deck_.groups[g];
    const bool is_empty = group.elements.empty() && group.nodes.empty();
    const bool is_family =
        (has_parts[g] || is_empty) && group.parent == Mesh::Group::kNone &&
        std::set<Key>(group.elements.begin(), group.elements.end()) == elements[g] &&
        std::all_of(group.nodes.begin(), group.nodes.end(),
                    [&](Key key) { return nodes[g].contains(key); });
    if (!is_family) continue;
    const std::int32_t tag = TagOf(group);
    Set family{NamedOf(g, family_node_names_), tag >= cgns::kFamily ? tag - cgns::kFamily : 0};
    family_names_[g] = family.name;
    families_.push_back(std::move(family));
  }
  for (const Mesh::Group& group : deck_.groups) {
    if (group.parent == Mesh::Group::kNone) continue;
    if (!family_names_[static_cast<std::size_t>(group.parent)].empty()) continue;
    if (lost++ == 0) first_lost = group.name;
  }
  report_.Lost("places of sets in others", lost, first_lost,
               "a family has no members besides those of its sets, and is in none");
}

void CgnsModel::MakeSections() {
  std::vector<bool> is_taken(deck_.elements.size());
  is_section_.assign(deck_.groups.size(), false);
  const auto try_section = [&](std::size_t g) {
    const Mesh::Group& group = deck_.groups[g];
    Section section;
    for (const Key key : group.elements) {
      const std::size_t i = place_of_.at(key);
      const std::int32_t type = deck_.elements[i].type;
      if (is_taken[i] || !FindElementType(type) || (section.code != 0 && type != section.code)) {
        return false;
      }
      section.code = type;
      section.elements.push_back(i);
    }
    for (const std::size_t i : section.elements) is_taken[i] = true;
    static_cast<Named&>(section) = NamedOf(g, zone_names_);
    section.family.clear();
    section.is_set = true;
    sections_.push_back(std::move(section));
    return true;
  };
  std::uint64_t no_sections = 0;
  std::string first;
  for (const bool tagged : {true, false}) {
    for (std::size_t g = 0; g < deck_.groups.size(); ++g) {
      const Mesh::Group& group = deck_.groups[g];
      const std::int32_t tag = TagOf(group);
      const bool may_be = tagged ? tag == cgns::kSection : tag < 0;
      const bool has_family = group.parent != Mesh::Group::kNone &&
                              !family_names_[static_cast<std::size_t>(group.parent)].empty();
      if (!may_be || has_family || !family_names_[g].empty() || group.elements.empty()) continue;
      is_section_[g] = try_section(g);
      if (tagged && !is_section_[g] && no_sections++ == 0) first = group.name;
    }
  }
  report_.Changed("sections whose elements overlap or differ in type became regions", no_sections,
                  first, "a section has elements of one type, each in one section");
  std::map<std::int32_t, std::vector<std::size_t>> rest;
  for (std::size_t i = 0; i < deck_.elements.size(); ++i) {
    if (!is_taken[i] && FindElementType(deck_.elements[i].type)) {
      rest[deck_.elements[i].type].push_back(i);
    }
  }
  for (auto& [code, elements] : rest) {
    Section section;
    section.full = std::string(FindCgnsKind(CgnsNumberOf(code))->name);
    section.name = section.full = zone_names_.Take(section.full);
    section.code = code;
    section.elements = std::move(elements);
    sections_.push_back(std::move(section));
  }
  std::int32_t number = 0;
  for (const Section& section : sections_) {
    for (const std::size_t i : section.elements) number_of_[deck_.elements[i].key] = ++number;
  }
}

void CgnsModel::MakeSets() {
  std::uint64_t twice = 0, zones = 0;
  std::string first_twice, first_zone;
  for (std::size_t g = 0; g < deck_.groups.size(); ++g) {
    const Mesh::Group& group = deck_.groups[g];
    const std::int32_t tag = TagOf(group);
    if (!family_names_[g].empty()) continue;
    if (tag == cgns::kZone && zones++ == 0) first_zone = group.name;
    const bool is_condition = tag >= cgns::kCondition && tag < cgns::kFamily;
    bool is_written = is_section_[g];
    if (!is_section_[g] && !group.elements.empty()) {
      Set set;
      set.dimension = -1;
      bool is_mixed = false;
      for (const Key key : group.elements) {
        const auto number = number_of_.find(key);
        if (number == number_of_.end()) continue;  // it was told of
        const auto dimension = FindElementType(deck_.elements[place_of_.at(key)].type)->dimension;
        is_mixed = is_mixed || (set.dimension >= 0 && set.dimension != dimension);
        set.dimension = std::max(set.dimension, dimension);
        set.members.push_back(number->second);
      }
      const bool is_boundary = !is_mixed && set.dimension >= 1 && set.dimension < cell_dimension_;
      set.type = is_condition ? tag - cgns::kCondition : 1;
      set.location = !is_boundary && !is_condition ? "CellCenter"
                     : set.dimension == 1          ? "EdgeCenter"
                     : set.dimension == 2          ? "FaceCenter"
                                                   : "CellCenter";
      auto& sets = is_boundary || is_condition ? conditions_ : regions_;
      static_cast<Named&>(set) = NamedOf(g, &sets == &regions_ ? zone_names_ : condition_names_);
      is_written = true;
      if (!set.members.empty()) sets.push_back(std::move(set));
    }
    if (group.nodes.empty() && is_written) continue;
    if (is_written && twice++ == 0) first_twice = group.name;
    Set set;
    static_cast<Named&>(set) = NamedOf(g, condition_names_);
    set.type = is_condition ? tag - cgns::kCondition : 1;
    set.location = "Vertex";
    for (const Key key : group.nodes) set.members.push_back(node_number_.at(key));
    if (!set.members.empty()) conditions_.push_back(std::move(set));
  }
  report_.Changed("sets of elements and further nodes were written as two", twice, first_twice,
                  "a set of the format has either");
  report_.Changed("sets that came as zones became sets of one zone", zones, first_zone,
                  "the nodes of zones are apart");
}

}  // namespace qx::exchange
