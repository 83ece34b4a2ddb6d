#include "exchange/msh_builder.h"

#include <algorithm>
#include <cstdlib>
#include <fmt/format.h>

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
  if (nodes.size() > count) ++reduced_[kind.number];
}

void MshBuilder::AddElement(const MshKind& kind, Key key, std::span<const Key> nodes) {
  if (kind.code == 0) {
    LeaveOut(kind.number);
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
                            std::int32_t entity, std::int32_t group) {
  if (kind.code == 0 || group == 0) {
    AddElement(kind, key, nodes);
    last_entity_ = 0;
    return;
  }
  const int dimension = FindElementType(kind.code)->dimension;
  std::vector<Key>& members = groups_[{dimension, Unsigned(group)}];
  const bool further_group = entity != 0 && entity == last_entity_ && RepeatsLast(kind, nodes) &&
                             (members.empty() || members.back() != mesh_.elements.back().key);
  last_entity_ = entity;
  if (further_group) {
    ++repeated_;
  } else {
    PushElement(kind, key, nodes);
  }
  members.push_back(mesh_.elements.back().key);
}

// ---- groups -------------------------------------------------------------------------------------

void MshBuilder::AddEntity(Tag entity, std::vector<std::int32_t> groups) {
  std::transform(groups.begin(), groups.end(), groups.begin(), Unsigned);
  std::erase(groups, 0);  // in none
  std::sort(groups.begin(), groups.end());
  groups.erase(std::unique(groups.begin(), groups.end()), groups.end());
  if (!groups.empty()) entities_[entity] = std::move(groups);
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
    for (const std::int32_t group : entity->second) {
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
      groups_.erase(group);
    }
    mesh_.groups.push_back(std::move(set.set));
  }
}

Mesh MshBuilder::Finish(MshCursor& in, std::size_t file_bytes) {
  PutBlocksIntoGroups(in, file_bytes);
  for (const auto& [tag, name] : names_) groups_[tag];  // a named group may be empty
  PutGroupsIntoSets(in);
  for (auto& [tag, elements] : groups_) {
    std::string name = fmt::format("{}-{}", tag.first, tag.second);
    const auto named = names_.find(tag);
    if (named != names_.end() && !named->second.empty()) name = named->second;
    mesh_.groups.push_back({std::move(name), tag.first, std::move(elements)});
  }
  if (sets_.empty()) NestGroups(mesh_);
  WriteNotes();
  return std::move(mesh_);
}

void MshBuilder::WriteNotes() {
  std::vector<std::string>& notes = mesh_.notes;
  for (const auto& [number, count] : reduced_) {
    const MshKind kind = *FindMshKind(number);
    notes.push_back(fmt::format("{} were read as {}: {}", kind.Name(),
                                FindElementType(kind.code)->plural, count));
  }
  for (const auto& [number, count] : left_out_) {
    const auto kind = FindMshKind(number);
    notes.push_back(fmt::format("elements of type {} ({}) were left out: {}", number,
                                kind ? kind->Name() : "an unknown kind", count));
  }
  if (!notes.empty()) {
    const KeySet used(mesh_.connectivity);
    const auto unused = std::count_if(mesh_.node_keys.begin(), mesh_.node_keys.end(),
                                      [&](Key key) { return !used.Contains(key); });
    if (unused > 0) {
      notes.push_back(fmt::format("nodes that belong to no element that was read: {}", unused));
    }
  }
  if (repeated_ > 0) {
    notes.push_back(fmt::format(
        "elements that the file repeats for a further group were read once: {}", repeated_));
  }
  const auto empty = std::count_if(
      mesh_.groups.begin(), mesh_.groups.end(),
      [](const Mesh::Group& group) { return group.elements.empty() && group.nodes.empty(); });
  if (empty > 0) notes.push_back(fmt::format("physical groups without elements: {}", empty));
}

}  // namespace qx::exchange
