#include "exchange/exodus/exodus_model.h"

#include <algorithm>
#include <fmt/format.h>
#include <limits>

#include "qx_db/record/element_types.h"
#include "qx_db/record/verbs.h"

#include "exchange/exodus/exodus_kinds.h"
#include "exchange/exodus/exodus_reader.h"
#include "exchange/field_values.h"
#include "host/records.h"

namespace qx::exchange {
namespace {

constexpr double kNoValue = std::numeric_limits<double>::quiet_NaN();

}  // namespace

ExodusModel::ExodusModel(const CQXDBSession& session, LossReport& report, const Progress& progress)
    : session_(session), report_(report), deck_(DeckOf(session, progress)) {
  report_.Append(deck_.report);
  for (std::size_t i = 0; i < deck_.node_keys.size(); ++i) node_place_[deck_.node_keys[i]] = i;
  FindTags();
  MakeBlocks();
  MakeSets();
  MakeVariables();
  TellOfTheRest();
}

std::vector<double> ExodusModel::Values(const Variable& variable, std::size_t step,
                                        bool of_nodes) const {
  std::vector<double> values(of_nodes ? deck_.node_keys.size() : Elements(), kNoValue);
  const auto found = variable.at.find(step);
  if (found == variable.at.end()) return values;
  const tagTField* const field = found->second.first;
  const std::int32_t wanted = found->second.second;
  const auto scatter = [&](const auto& list, const auto& places) {
    std::int32_t component = 0;
    ITR last = 0;
    for (const auto& entry : list) {
      component = entry.target == last ? component + 1 : 0;
      last = entry.target;
      const auto place = places.find(static_cast<Key>(ITR{entry.target}));
      if (component == wanted && place != places.end()) values[place->second] = entry.value;
    }
  };
  if (of_nodes) {
    scatter(field->node_values, node_place_);
  } else {
    scatter(field->element_values, element_place_);
  }
  return values;
}

void ExodusModel::FindTags() {
  host::ForEach<tagTSetTag>(const_cast<CQXDBSession*>(&session_), [&](ITR, const tagTSetTag& tag) {
    const bool is_ours = tag.format.View() == u"exodus" && tag.set &&
                         !KeyedSetBase::IsRemoved(tag.set) && tag.tag > 0;
    if (is_ours) tags_[KeyOf(tag.set)].push_back(&tag);
    return true;
  });
}

const tagTSetTag* ExodusModel::TagOf(const Mesh::Group& group, std::int32_t kind,
                                     bool is_block) const {
  const auto tags = tags_.find(group.key);
  if (tags == tags_.end()) return nullptr;
  for (const tagTSetTag* tag : tags->second) {
    if (tag->kind == kind && (tag->dimension >= 0) == is_block) return tag;
  }
  return nullptr;
}

std::string ExodusModel::NameOf(const Mesh::Group& group, const tagTSetTag* tag, const char* what) {
  const bool is_unnamed =
      tag && tag->named == 0 && group.name == fmt::format("{} {}", what, tag->tag);
  return is_unnamed ? "" : group.name;
}

void ExodusModel::MakeBlocks() {
  std::unordered_map<Key, std::size_t> index;
  UnwrittenElements others;
  std::uint64_t with_property = 0;
  Key first_with_property = 0;
  for (std::size_t i = 0; i < deck_.elements.size(); ++i) {
    const Mesh::Element& element = deck_.elements[i];
    index[element.key] = i;
    if (!FindElementType(element.type)) others.Add(element.type, element.key);
    if (element.property != 0 && with_property++ == 0) first_with_property = element.key;
  }
  others.Report(report_);
  report_.Lost("elements were written without their property", with_property,
               fmt::format("element {}", first_with_property), "the format has no place for it");
  std::vector<bool> is_taken(deck_.elements.size());
  Ids ids(report_);
  for (const auto& group : deck_.groups) ids.Reserve(TagOf(group, tagTSetTag::kElements, true));
  const auto try_block = [&](const Mesh::Group& group, const tagTSetTag* tag) {
    std::int32_t code = 0;
    for (const Key key : group.elements) {
      const std::size_t i = index.at(key);
      const std::int32_t type = deck_.elements[i].type;
      if (is_taken[i] || !FindElementType(type) || (code != 0 && type != code)) return false;
      code = type;
    }
    Block block{ids.Take(tag), NameOf(group, tag, "block"), code};
    for (const Key key : group.elements) {
      block.elements.push_back(index.at(key));
      is_taken[index.at(key)] = true;
    }
    blocks_.push_back(std::move(block));
    return true;
  };
  is_block_.assign(deck_.groups.size(), false);
  for (const bool tagged : {true, false}) {
    for (std::size_t g = 0; g < deck_.groups.size(); ++g) {
      const auto& group = deck_.groups[g];
      const tagTSetTag* const tag = TagOf(group, tagTSetTag::kElements, true);
      if ((tag != nullptr) != tagged) continue;
      if (!tagged && (group.elements.empty() || tags_.contains(group.key))) continue;
      is_block_[g] = try_block(group, tag);
      if (tagged && !is_block_[g]) {
        report_.Changed("blocks whose elements overlap or differ in type became element sets", 1,
                        group.name, "a block has elements of one type, each in one block");
      }
    }
  }
  std::map<std::int32_t, std::vector<std::size_t>> rest;
  for (std::size_t i = 0; i < deck_.elements.size(); ++i) {
    if (!is_taken[i] && FindElementType(deck_.elements[i].type)) {
      rest[deck_.elements[i].type].push_back(i);
    }
  }
  for (auto& [code, elements] : rest) {
    blocks_.push_back({ids.Take(nullptr), "", code, std::move(elements)});
  }
  std::size_t place = 0;
  for (const Block& block : blocks_) {
    for (const std::size_t i : block.elements) element_place_[deck_.elements[i].key] = place++;
  }
  for (const auto& [key, i] : index) types_[key] = deck_.elements[i].type;
}

void ExodusModel::MakeSets() {
  Ids node_ids(report_), element_ids(report_), side_ids(report_);
  for (const auto& group : deck_.groups) {
    node_ids.Reserve(TagOf(group, tagTSetTag::kNodes, false));
    element_ids.Reserve(TagOf(group, tagTSetTag::kElements, false));
    side_ids.Reserve(TagOf(group, tagTSetTag::kSides, false));
  }
  std::uint64_t parents = 0;
  std::uint64_t twice = 0;
  std::string first_parent, first_twice;
  for (std::size_t g = 0; g < deck_.groups.size(); ++g) {
    const auto& group = deck_.groups[g];
    if (group.parent != Mesh::Group::kNone && parents++ == 0) first_parent = group.name;
    const tagTSetTag* const of_nodes = TagOf(group, tagTSetTag::kNodes, false);
    const tagTSetTag* const of_elements = TagOf(group, tagTSetTag::kElements, false);
    const tagTSetTag* const of_sides = TagOf(group, tagTSetTag::kSides, false);
    bool is_written = is_block_[g];
    if (of_sides) {
      AddSides(group, *of_sides, side_ids.Take(of_sides));
      is_written = true;
    }
    if (!is_block_[g] && (of_elements || !group.elements.empty())) {
      Set set{element_ids.Take(of_elements), NameOf(group, of_elements, "element set")};
      for (const Key key : group.elements) {
        const auto place = element_place_.find(key);
        if (place != element_place_.end()) {
          set.members.push_back(static_cast<std::int32_t>(place->second) + 1);
        }
      }
      element_sets_.push_back(std::move(set));
      is_written = true;
    }
    const bool has_nodes = of_nodes || (!group.nodes.empty() && !of_sides);
    if (!has_nodes && is_written) continue;
    if (is_written && twice++ == 0) first_twice = group.name;
    Set set{node_ids.Take(of_nodes), NameOf(group, of_nodes, "node set")};
    for (const Key key : group.nodes) {
      set.members.push_back(static_cast<std::int32_t>(node_place_.at(key)) + 1);
    }
    node_sets_.push_back(std::move(set));
  }
  report_.Changed("sets of elements and further nodes were written as two", twice, first_twice,
                  "a set of the format has either");
  report_.Lost("places of sets in others", parents, first_parent, "the format has no hierarchy");
}

void ExodusModel::AddSides(const Mesh::Group& group, const tagTSetTag& tag, std::int32_t id) {
  Set set{id, NameOf(group, &tag, "side set")};
  std::uint64_t gone = 0;
  for (const tagTElemSide& side : tag.sides) {
    const ITR element = side.element;
    const bool is_there = element && !KeyedSetBase::IsRemoved(element);
    const auto place = is_there ? element_place_.find(KeyOf(element)) : element_place_.end();
    const std::int32_t number =
        place == element_place_.end() ? 0 : ExodusSideOf(types_.at(KeyOf(element)), side.side);
    if (number == 0) {
      ++gone;
      continue;
    }
    set.members.push_back(static_cast<std::int32_t>(place->second) + 1);
    set.sides.push_back(number);
  }
  report_.Lost("sides of elements that are not there", gone, group.name,
               "they were deleted, or have no place there");
  side_sets_.push_back(std::move(set));
}

void ExodusModel::MakeVariables() {
  const auto is_attribute = [](const tagTField& field) {
    return field.place == tagTField::kElements && field.components == 1 &&
           Utf8(field.name.View()).starts_with(kExodusAttribute);
  };
  LossReport unfit;
  std::set<std::pair<std::int32_t, double>> steps;
  for (const tagTField& field : deck_.Of<tagTField>()) {
    if (IsTable(field, unfit) && !is_attribute(field)) {
      steps.insert({field.step, double{field.time}});
    }
  }
  steps_.assign(steps.begin(), steps.end());
  std::uint64_t split = 0;
  std::string first_split;
  for (const tagTField& field : deck_.Of<tagTField>()) {
    const std::string name = Utf8(field.name.View());
    if (!IsTable(field, report_)) continue;
    if (is_attribute(field)) {
      attributes_.push_back({name.substr(kExodusAttribute.size()), {{0, {&field, 0}}}});
      continue;
    }
    const auto step = static_cast<std::size_t>(
        std::lower_bound(steps_.begin(), steps_.end(),
                         std::pair(std::int32_t{field.step}, double{field.time})) -
        steps_.begin());
    if (field.components > 1 && split++ == 0) first_split = name;
    for (std::int32_t c = 0; c < field.components; ++c) {
      std::string part = name;
      if (field.components == 3) {
        part += fmt::format("_{}", "xyz"[c]);
      } else if (field.components > 1) {
        part += fmt::format("_{}", c + 1);
      }
      AddVariable(field, std::move(part), step, c);
    }
  }
  report_.Changed("fields of several components were written as a variable for each", split,
                  first_split, "a variable has one number");
}

void ExodusModel::AddVariable(const tagTField& field, std::string name, std::size_t step,
                              std::int32_t c) {
  auto& variables = field.place == tagTField::kNodes ? node_variables_ : element_variables_;
  const auto find = [&] {
    return std::find_if(variables.begin(), variables.end(),
                        [&](const Variable& variable) { return variable.name == name; });
  };
  auto found = find();
  if (found != variables.end() && found->at.contains(step)) {
    report_.Changed("fields that share a name and a step got the field's number behind it", 1, name,
                    "variables are told apart by name");
    name += fmt::format(" (field {})", field.key);
    found = find();
  }
  if (found == variables.end()) {
    variables.push_back({std::move(name), {}});
    found = std::prev(variables.end());
  }
  found->at[step] = {&field, c};
}

void ExodusModel::TellOfTheRest() {
  constexpr std::uint16_t kWritten[] = {code::kNode,   code::kElem,  code::kMset,
                                        code::kSetTag, code::kField, code::kCarried};
  ReportUnwritten(session_, "exodus", kWritten, report_);
}

}  // namespace qx::exchange
