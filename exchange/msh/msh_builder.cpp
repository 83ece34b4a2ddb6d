#include "exchange/msh/msh_builder.h"

#include <algorithm>
#include <cstdlib>
#include <fmt/format.h>
#include <unordered_map>

#include "qx_db/record/element_types.h"

#include "exchange/group_classes.h"
#include "exchange/key_set.h"

namespace qx::exchange {
namespace {

/// A group's number without the sign, by which the format marks a reversed orientation.
std::int32_t Unsigned(std::int32_t group) {
  return group == INT32_MIN ? INT32_MAX : std::abs(group);
}

}  // namespace

void MshBuilder::ReserveNodes(std::uint64_t count) {
  mesh_.node_keys.reserve(count);
  mesh_.coordinates.reserve(count * 3);
}

void MshBuilder::AddPoint(const Point& point) {
  mesh_.coordinates.insert(mesh_.coordinates.end(), point.begin(), point.end());
}

// ---- elements -----------------------------------------------------------------------------------

void MshBuilder::PushElement(const MshKind& kind, Key key, std::span<const Key> nodes) {
  const auto count = static_cast<std::size_t>(FindElementType(kind.code)->nodes);
  mesh_.elements.push_back({key, kind.code, mesh_.connectivity.size()});
  for (std::size_t i = 0; i < count; ++i) {
    mesh_.connectivity.push_back(nodes[kind.order ? static_cast<std::size_t>(kind.order[i]) : i]);
  }
  if (nodes.size() > count) reduced_[kind.number].Add(key);
}

void MshBuilder::AddElement(const MshKind& kind, Key key, std::span<const Key> nodes) {
  if (kind.code == 0) {
    LeaveOut(kind.number, key);
  } else {
    PushElement(kind, key, nodes);
  }
}

bool MshBuilder::RepeatsLast(const MshKind& kind, std::span<const Key> nodes) const {
  if (mesh_.elements.empty() || mesh_.elements.back().type != kind.code) return false;
  const Key* last = mesh_.connectivity.data() + mesh_.elements.back().first;
  const auto count = static_cast<std::size_t>(FindElementType(kind.code)->nodes);
  for (std::size_t i = 0; i < count; ++i) {
    if (last[i] != nodes[kind.order ? static_cast<std::size_t>(kind.order[i]) : i]) return false;
  }
  return true;
}

void MshBuilder::AddElement(const MshKind& kind, Key key, std::span<const Key> nodes,
                            std::int32_t entity, std::int32_t group,
                            std::span<const std::int32_t> partitions) {
  if (kind.code == 0) return AddElement(kind, key, nodes);
  const int dimension = FindElementType(kind.code)->dimension;
  const std::size_t before = mesh_.elements.size();
  if (group == 0) {
    AddElement(kind, key, nodes);
    last_entity_ = 0;
  } else {
    AddToGroup(kind, key, nodes, entity, {dimension, Unsigned(group)});
  }
  if (mesh_.elements.size() == before) return;
  if (entity > 0) elements_on_[{dimension, entity}].push_back(key);
  for (const std::int32_t partition : partitions) {
    partitions_.element_values.Add({static_cast<double>(partition), static_cast<ITR>(key)});
  }
}

void MshBuilder::AddToGroup(const MshKind& kind, Key key, std::span<const Key> nodes,
                            std::int32_t entity, Tag group) {
  std::vector<Key>& members = groups_[group];
  const bool further_group = entity != 0 && entity == last_entity_ && RepeatsLast(kind, nodes) &&
                             (members.empty() || members.back() != mesh_.elements.back().key);
  last_entity_ = entity;
  if (further_group) {
    repeated_.Add(key);
  } else {
    PushElement(kind, key, nodes);
  }
  members.push_back(mesh_.elements.back().key);
}

// ---- groups -------------------------------------------------------------------------------------

void MshBuilder::AddEntity(Tag entity, Entity described) {
  std::vector<std::int32_t>& groups = described.groups;
  std::transform(groups.begin(), groups.end(), groups.begin(), Unsigned);
  std::erase(groups, 0);  // in none
  std::sort(groups.begin(), groups.end());
  groups.erase(std::unique(groups.begin(), groups.end()), groups.end());
  entities_[entity] = std::move(described);
}

void MshBuilder::BeginBlock(Tag entity) {
  if (!blocks_.empty() && blocks_.back().first == mesh_.elements.size()) blocks_.pop_back();
  blocks_.push_back({entity, mesh_.elements.size()});
}

void MshBuilder::PutBlocksIntoGroups(MshCursor& in, std::size_t file_bytes) {
  std::uint64_t room = std::uint64_t{4} * file_bytes;
  for (std::size_t b = 0; b < blocks_.size(); ++b) {
    const std::size_t first = blocks_[b].first;
    const std::size_t end = b + 1 < blocks_.size() ? blocks_[b + 1].first : mesh_.elements.size();
    const auto entity = entities_.find(blocks_[b].entity);
    if (entity == entities_.end()) continue;
    for (const std::int32_t group : entity->second.groups) {
      if (end - first > room) {
        in.Fail("the physical groups overlap too much to be read", "write fewer physical groups");
        return;
      }
      room -= end - first;
      std::vector<Key>& members = groups_[{entity->first.first, group}];
      for (std::size_t i = first; i < end; ++i) members.push_back(mesh_.elements[i].key);
    }
  }
}

void MshBuilder::PutGroupsIntoSets(MshCursor& in) {
  for (MeshSet& set : sets_) {
    for (const Tag& tag : set.groups) {
      const auto group = groups_.find(tag);
      if (group == groups_.end()) {
        in.Fail(fmt::format("$QXMeshSets: mesh set \"{}\" has no physical group {} {}",
                            set.set.name, tag.first, tag.second),
                "remove the section or write the file again");
        return;
      }
      std::vector<Key>& elements = set.set.elements;
      elements.insert(elements.end(), group->second.begin(), group->second.end());
      set.set.dimension = set.groups.size() == 1 ? tag.first : -1;
      set.set.tags.push_back(TagOf(tag));
      groups_.erase(group);
    }
    mesh_.groups.push_back(std::move(set.set));
  }
}

void MshBuilder::BeginNodeBlock(Tag entity) {
  node_blocks_.push_back({entity, mesh_.node_keys.size()});
}

void MshBuilder::AddCarried(tagTCarried carried) {
  carried.format.Set(u"msh");
  carried.order = static_cast<std::int32_t>(mesh_.Of<tagTCarried>().size()) + 1;
  carried.key = carried.order;
  mesh_.Of<tagTCarried>().push_back(std::move(carried));
}

Mesh::SetTag MshBuilder::TagOf(Tag group) const {
  const auto named = names_.find(group);
  return {tagTSetTag::kElements, group.first, group.second, named != names_.end(), {}};
}

/// The entities as blocks, in the order of their dimensions and tags.
void MshBuilder::ListBlocks() {
  std::map<Tag, tagTBlock> blocks;
  for (const auto& [tag, entity] : entities_) {
    tagTBlock& block = blocks[tag];
    block.parent_dimension = entity.parent.first;
    block.parent_tag = entity.parent.second;
    block.boundary.Assign(entity.boundary.data(), entity.boundary.size());
    block.partitions.Assign(entity.partitions.data(), entity.partitions.size());
  }
  const auto add = [](TArray<ITR>& to, std::span<const Key> keys) {
    for (const Key key : keys) to.Add(static_cast<ITR>(key));
  };
  for (std::size_t b = 0; b < node_blocks_.size(); ++b) {
    const std::size_t first = node_blocks_[b].first;
    const std::size_t end =
        b + 1 < node_blocks_.size() ? node_blocks_[b + 1].first : mesh_.node_keys.size();
    add(blocks[node_blocks_[b].entity].nodes,
        std::span(mesh_.node_keys).subspan(first, end - first));
  }
  for (std::size_t b = 0; b < blocks_.size(); ++b) {
    const std::size_t end = b + 1 < blocks_.size() ? blocks_[b + 1].first : mesh_.elements.size();
    TArray<ITR>& elements = blocks[blocks_[b].entity].elements;
    for (std::size_t i = blocks_[b].first; i < end; ++i) {
      elements.Add(static_cast<ITR>(mesh_.elements[i].key));
    }
  }
  for (const auto& [tag, keys] : elements_on_) add(blocks[tag].elements, keys);
  Key key = 0;
  for (auto& [tag, block] : blocks) {
    block.key = ++key;
    block.format.Set(u"msh");
    block.dimension = tag.first;
    block.tag = tag.second;
    mesh_.Of<tagTBlock>().push_back(std::move(block));
  }
}

/// Drops values of what was not read, and brings the nodes of elements into our order.
void MshBuilder::OrderFields() {
  if (mesh_.Of<tagTField>().empty()) return;
  const KeySet nodes(mesh_.node_keys);
  std::unordered_map<Key, std::size_t> elements;
  for (std::size_t i = 0; i < mesh_.elements.size(); ++i) elements[mesh_.elements[i].key] = i;
  for (tagTField& field : mesh_.Of<tagTField>()) {
    const std::int32_t components = std::max(field.components, 1);
    std::uint64_t dropped = 0;
    const auto order = [&](auto& from) {
      auto kept = from;
      kept.SetSize(0);
      for (std::int32_t i = 0; i < from.GetSize();) {
        std::int32_t end = i;
        while (end < from.GetSize() && from[end].target == from[i].target) ++end;
        const auto target = static_cast<Key>(static_cast<ITR>(from[i].target));
        const auto element = elements.find(target);
        const bool by_node = field.place == tagTField::kNodes;
        if (by_node ? !nodes.Contains(target) : element == elements.end()) {
          ++dropped;
        } else if (field.place == tagTField::kElementNodes) {
          const auto kind = MshKindOf(mesh_.elements[element->second].type);
          for (std::int32_t node = 0; node < kind->nodes; ++node) {
            const std::int32_t place = kind->order ? kind->order[node] : node;
            for (std::int32_t c = 0; c < components; ++c) {
              auto entry = from[i];
              const std::int32_t at = i + place * components + c;
              entry.value = at < end ? from[at].value : 0.0;
              kept.Add(entry);
            }
          }
        } else {
          for (std::int32_t at = i; at < end; ++at) kept.Add(from[at]);
        }
        i = end;
      }
      from.Swap(kept);
    };
    order(field.node_values);
    order(field.element_values);
    mesh_.report.Lost("values of nodes and elements that were not read", dropped,
                      Utf8(field.name.View()), "the model does not have them");
  }
}

Deck MshBuilder::Finish(MshCursor& in, std::size_t file_bytes) {
  PutBlocksIntoGroups(in, file_bytes);
  for (const auto& [tag, name] : names_) groups_[tag];  // a named group may be empty
  PutGroupsIntoSets(in);
  for (auto& [tag, elements] : groups_) {
    std::string name = fmt::format("{}-{}", tag.first, tag.second);
    const auto named = names_.find(tag);
    if (named != names_.end() && !named->second.empty()) name = named->second;
    mesh_.groups.push_back({std::move(name), tag.first, std::move(elements)});
    mesh_.groups.back().tags.push_back(TagOf(tag));
  }
  if (sets_.empty()) NestGroups(mesh_);
  OrderFields();
  ListBlocks();
  if (!partitions_.element_values.IsEmpty()) {
    partitions_.name.Set(kPartitionField);
    partitions_.place = tagTField::kElements;
    partitions_.components = 0;
    partitions_.integers = 1;
    mesh_.Of<tagTField>().push_back(std::move(partitions_));
  }
  Key field_key = 0;
  for (tagTField& field : mesh_.Of<tagTField>()) field.key = ++field_key;
  mesh_.format = "msh";
  FillReport();
  return std::move(mesh_);
}

void MshBuilder::FillReport() {
  LossReport& report = mesh_.report;
  for (const auto& [number, told] : reduced_) {
    const MshKind kind = *FindMshKind(number);
    report.Changed(
        fmt::format("{} were read as {}", kind.Name(), FindElementType(kind.code)->plural),
        told.count, fmt::format("element {}", told.first),
        "the model has no such element: nodes that it lacks are left over");
  }
  for (const auto& [number, told] : left_out_) {
    const auto kind = FindMshKind(number);
    report.Lost(fmt::format("elements of type {} ({}) were left out", number,
                            kind ? kind->Name() : "an unknown kind"),
                told.count, fmt::format("element {}", told.first), "the model has no such element");
  }
  if (!reduced_.empty() || !left_out_.empty()) ReportUnused(mesh_, report);
  report.Changed("elements that the file repeats for a further group were read once",
                 repeated_.count, fmt::format("element {}", repeated_.first),
                 "an element is in several sets here");
  report.Lost("parameters of nodes on their entities", parameters_.count,
              fmt::format("node {}", parameters_.first),
              "the model has no geometry that they belong to");
  const auto empty = std::count_if(
      mesh_.groups.begin(), mesh_.groups.end(),
      [](const Mesh::Group& group) { return group.elements.empty() && group.nodes.empty(); });
  if (empty > 0) report.Assumed(fmt::format("physical groups without elements: {}", empty));
}

}  // namespace qx::exchange
