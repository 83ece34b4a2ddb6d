#include "exchange/msh/msh_model.h"

#include <algorithm>
#include <fmt/format.h>

#include "qx_db/record/element_types.h"

#include "host/records.h"

namespace qx::exchange {
namespace {

bool IsMissing(ITR itr) { return itr == 0 || KeyedSetBase::IsRemoved(itr); }

/// A name without line ends and other control characters, which a line of text cannot hold.
std::string OneLine(std::u16string_view name, bool& changed) {
  std::string line = Utf8(name);
  for (char& c : line) {
    if (static_cast<unsigned char>(c) >= 0x20) continue;
    c = '?';
    changed = true;
  }
  return line;
}

int DimensionOf(const tagTElem& element) { return FindElementType(element.type)->dimension; }

}  // namespace

MshModel::MshModel(const CQXDBSession& session)
    : session_(session),
      nodes_(*session.GetPool<DPoolNode>(code::kNode)),
      elements_(*session.GetPool<DPoolElem>(code::kElem)),
      length_unit_(session.Units().GetConvertFactorCurrent(CQXNodeUnit::Instance().Code(0))) {
  ListCells();
  classes_ = ElementClasses(cells_.size());
  ListSets(*session.GetPool<DPoolMset>(code::kMset));
  GiveTags();
  ListBlocks();
  FindEntities();
}

void MshModel::ListCells() {
  for (ITR at = elements_.GetHeadPosition(); at; elements_.Next(at)) {
    elements_.SetParamIdx(at, KeyedSetBase::kParamMask);
    const tagTElem& element = elements_.GetAtNU(at);
    const ElementType* type = FindElementType(element.type);
    if (!type) {
      others_.Add(element.type, element.key);
    } else if (element.nodes.GetSize() != type->nodes ||
               std::any_of(element.nodes.begin(), element.nodes.end(), IsMissing)) {
      if (incomplete_++ == 0) first_incomplete_ = element.key;
    } else {
      elements_.SetParamIdx(at, static_cast<std::uint32_t>(cells_.size()));
      cells_.push_back({&element});
      if (element.property != 0 && with_property_++ == 0) first_with_property_ = element.key;
    }
  }
}

bool MshModel::HasCell(ITR element) const {
  return !IsMissing(element) && elements_.GetParamIdx(element) < cells_.size();
}

/// Numbers of the cells that a set has.
std::vector<std::uint32_t> MshModel::Members(const SetMembers& set) const {
  std::vector<std::uint32_t> members;
  for (const ITR element : set.Elements()) {
    if (HasCell(element)) members.push_back(elements_.GetParamIdx(element));
  }
  return members;
}

void MshModel::ListSets(const DPoolMset& pool) {
  std::map<ITR, std::size_t> place;
  const ITR by_default = pool.DefaultItr();
  for (ITR at = pool.GetHeadPosition(); at; pool.Next(at)) {
    const tagTMset& record = pool.GetAtNU(at);
    const SetMembers of_set = MembersOf(session_, at);
    if (at == by_default && of_set.Nodes().IsEmpty() && of_set.Elements().IsEmpty()) continue;
    bool changed = false;
    Set set{&record, OneLine(record.name.View(), changed)};
    if (changed && renamed_++ == 0) first_renamed_ = set.name;
    const std::vector<std::uint32_t> members = Members(of_set);
    classes_.AddGroup(members);
    ItemMarks told(nodes_);
    for (const std::uint32_t cell : members) {
      set.tags[DimensionOf(*cells_[cell].element)];
      told.Add({cells_[cell].element->nodes.data(), cells_[cell].element->nodes.size()});
    }
    for (const ITR node : of_set.Nodes()) {
      if (!IsMissing(node) && told.Insert(node)) set.extra_nodes.push_back(KeyOf(node));
    }
    place[at] = sets_.size();
    sets_.push_back(std::move(set));
  }
  host::ForEach<tagTSetTag>(const_cast<CQXDBSession*>(&session_), [&](ITR, const tagTSetTag& tag) {
    const auto found = place.find(tag.set);
    if (tag.format.View() != u"msh" || tag.dimension < 0 || tag.dimension > 3 || tag.tag < 1 ||
        found == place.end()) {
      return true;
    }
    Set& set = sets_[found->second];
    const bool still_unnamed =
        tag.named == 0 && set.name == fmt::format("{}-{}", tag.dimension, tag.tag);
    set.tags[tag.dimension] = {tag.tag, !still_unnamed};
    return true;
  });
}

/// Every set has one tag for each dimension that it has elements of. Those that came with the model
/// stay; the others get the key of their set where that is free.
void MshModel::GiveTags() {
  std::array<std::set<std::int32_t>, 4> used;
  for (Set& set : sets_) {
    if (set.tags.empty()) set.tags[0];  // without elements it still has a name to be known by
    for (auto& [dimension, tag] : set.tags) {
      if (tag.number == 0) continue;
      if (used[static_cast<std::size_t>(dimension)].insert(tag.number).second) continue;
      if (retagged_++ == 0) first_retagged_ = fmt::format("{}, tag {}", set.name, tag.number);
      tag.number = 0;
    }
  }
  for (Set& set : sets_) {
    for (auto& [dimension, tag] : set.tags) {
      if (tag.number != 0) continue;
      auto& taken = used[static_cast<std::size_t>(dimension)];
      std::int32_t number = std::max(set.record->key, 1);
      if (taken.contains(number)) number = *taken.rbegin() < kMaxKey ? *taken.rbegin() + 1 : 1;
      while (!taken.insert(number).second) ++number;
      tag.number = number;
    }
  }
}

void MshModel::ListBlocks() {
  block_of_.assign(cells_.size(), kNone);
  for (ITR at = nodes_.GetHeadPosition(); at; nodes_.Next(at)) {
    nodes_.SetParamIdx(at, KeyedSetBase::kParamMask);
  }
  host::ForEach<tagTBlock>(const_cast<CQXDBSession*>(&session_), [&](ITR, const tagTBlock& block) {
    if (block.format.View() != u"msh" || block.dimension < 0 || block.dimension > 3) return true;
    const auto entity = static_cast<std::uint32_t>(entities_.size());
    std::int32_t& last = last_tag_[static_cast<std::size_t>(block.dimension)];
    last = std::max(last, block.tag);
    entities_.push_back({block.dimension, block.tag, &block});
    for (const ITR node : block.nodes) {
      if (!IsMissing(node)) nodes_.SetParamIdx(node, entity);
    }
    for (const ITR element : block.elements) {
      if (HasCell(element)) block_of_[elements_.GetParamIdx(element)] = entity;
    }
    return true;
  });
}

std::array<double, 3> MshModel::PositionOf(ITR node) const {
  const tagTVector3<double> p = nodes_.GetAtNU(node).position;
  return {p.x / length_unit_, p.y / length_unit_, p.z / length_unit_};
}

void MshModel::Widen(Entity& entity, const std::array<double, 3>& point) {
  for (std::size_t i = 0; i < 3; ++i) {
    entity.low[i] = entity.is_empty ? point[i] : std::min(entity.low[i], point[i]);
    entity.high[i] = entity.is_empty ? point[i] : std::max(entity.high[i], point[i]);
  }
  entity.is_empty = false;
}

/// The entity of a cell: that of its block, which takes the sets of its first cell; a further one
/// where the block's cells are in different sets.
std::uint32_t MshModel::EntityFor(std::size_t cell) {
  const int dimension = DimensionOf(*cells_[cell].element);
  const std::uint32_t element_class = classes_.ClassOf(cell);
  const std::uint32_t block = block_of_[cell];
  const auto next = static_cast<std::uint32_t>(entities_.size());
  const bool is_of_block = block != kNone && entities_[block].dimension == dimension;
  std::uint32_t found = next;
  if (is_of_block && !entities_[block].has_class) {
    found =
        known_
            .emplace(std::array{static_cast<std::uint32_t>(dimension), block, element_class}, block)
            .first->second;
  } else if (dimension > 0 || is_of_block) {
    const std::array key{static_cast<std::uint32_t>(dimension), is_of_block ? block : kNone,
                         element_class};
    found = known_.emplace(key, next).first->second;
  }
  if (found == next) {
    std::int32_t& last = last_tag_[static_cast<std::size_t>(dimension)];
    entities_.push_back({dimension, ++last});
    if (is_of_block) entities_.back().block = entities_[block].block;
  }
  if (!entities_[found].has_class) entities_[found].sets = classes_.GroupsOf(element_class);
  entities_[found].has_class = true;
  return found;
}

void MshModel::FindEntities() {
  for (std::size_t i = 0; i < cells_.size(); ++i) {
    cells_[i].entity = EntityFor(i);
    for (const ITR node : cells_[i].element->nodes) {
      Widen(entities_[cells_[i].entity], PositionOf(node));
    }
  }
  // The box of an entity is that of its elements; one without any has its nodes.
  for (Entity& entity : entities_) {
    if (!entity.is_empty || !entity.block) continue;
    for (const ITR node : entity.block->nodes) {
      if (!IsMissing(node)) Widen(entity, PositionOf(node));
    }
  }
  if (entities_.empty()) {  // nodes need one to be on
    entities_.push_back({3, 1});
    for (ITR at = nodes_.GetHeadPosition(); at; nodes_.Next(at)) {
      Widen(entities_.back(), PositionOf(at));
    }
  }
  const auto main =
      std::max_element(entities_.begin(), entities_.end(),
                       [](const Entity& a, const Entity& b) { return a.dimension < b.dimension; });
  main_entity_ = static_cast<std::uint32_t>(main - entities_.begin());
}

const MshModel::Entity& MshModel::EntityOf(ITR node) const {
  const std::uint32_t entity = nodes_.GetParamIdx(node);
  return entities_[entity == KeyedSetBase::kParamMask ? main_entity_ : entity];
}

void MshModel::FillReport(LossReport& report) const {
  others_.Report(report);
  ReportIncomplete(incomplete_, first_incomplete_, report);
  report.Lost("elements were written without their property", with_property_,
              fmt::format("element {}", first_with_property_), "the format has no place for it");
  report.Changed("line ends and the like in names of mesh sets became question marks", renamed_,
                 first_renamed_, "a name is one line");
  report.Changed("tags of sets that another set has too", retagged_, first_retagged_,
                 "a tag names one set");
  constexpr std::uint16_t kWritten[] = {code::kNode,  code::kElem,  code::kMset,   code::kSetTag,
                                        code::kBlock, code::kField, code::kCarried};
  ReportUnwritten(session_, "msh", kWritten, report);
}

}  // namespace qx::exchange
