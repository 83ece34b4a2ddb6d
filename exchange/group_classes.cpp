#include "exchange/group_classes.h"

#include <algorithm>
#include <unordered_map>

namespace qx::exchange {

void ElementClasses::AddGroup(std::span<const std::uint32_t> members) {
  const std::uint32_t group = group_count_++;
  std::unordered_map<std::uint32_t, std::uint32_t> joined;  // class by the class it came from
  for (const std::uint32_t member : members) {
    std::uint32_t& own = class_of_[member];
    const Class before = classes_[own];
    if (before.depth > 0 && before.group == group) continue;  // repeated
    const auto [entry, is_new] = joined.emplace(own, static_cast<std::uint32_t>(classes_.size()));
    if (is_new) classes_.push_back({own, group, before.depth + 1});
    own = entry->second;
  }
}

std::vector<std::uint32_t> ElementClasses::GroupsOf(std::uint32_t element_class) const {
  std::vector<std::uint32_t> groups(classes_[element_class].depth);
  for (auto at = groups.rbegin(); at != groups.rend(); ++at) {
    *at = classes_[element_class].group;
    element_class = classes_[element_class].from;
  }
  return groups;
}

namespace {

/// Numbers of elements by their keys.
class ElementNumbers {
 public:
  explicit ElementNumbers(const Mesh& mesh) {
    for (std::size_t i = 0; i < mesh.elements.size(); ++i) {
      sorted_.emplace_back(mesh.elements[i].key, static_cast<std::uint32_t>(i));
    }
    const auto by_key = [](const Entry& a, const Entry& b) { return a.first < b.first; };
    if (!std::is_sorted(sorted_.begin(), sorted_.end(), by_key)) {
      std::sort(sorted_.begin(), sorted_.end(), by_key);
    }
  }
  /// Keys that are not there are passed over.
  std::vector<std::uint32_t> Of(std::span<const Key> keys) const {
    std::vector<std::uint32_t> numbers;
    numbers.reserve(keys.size());
    for (const Key key : keys) {
      const auto at = std::lower_bound(sorted_.begin(), sorted_.end(), key,
                                       [](const Entry& a, Key k) { return a.first < k; });
      if (at != sorted_.end() && at->first == key) numbers.push_back(at->second);
    }
    return numbers;
  }

 private:
  using Entry = std::pair<Key, std::uint32_t>;
  std::vector<Entry> sorted_;
};

}  // namespace

void NestGroups(Mesh& mesh) {
  const auto count = static_cast<std::uint32_t>(mesh.groups.size());
  const ElementNumbers numbers(mesh);
  ElementClasses classes(mesh.elements.size());
  std::uint64_t work = mesh.elements.size() + count;
  for (const Mesh::Group& group : mesh.groups) {
    classes.AddGroup(numbers.Of(group.elements));
    work += group.elements.size();
  }
  work *= 64;  // steps that may be spent; meshes of the field need fewer than they have members
  const auto groups_of = [&](std::uint32_t c) {
    std::vector<std::uint32_t> groups = classes.GroupsOf(c);
    work -= std::min<std::uint64_t>(work, groups.size());
    return groups;
  };

  std::vector<std::size_t> size_of(classes.Count());
  for (std::size_t i = 0; i < mesh.elements.size(); ++i) ++size_of[classes.ClassOf(i)];
  std::vector<std::size_t> elements(count);
  std::vector<std::vector<std::uint32_t>> classes_of(count);
  for (std::uint32_t c = 0; c < classes.Count() && work > 0; ++c) {
    if (size_of[c] == 0) continue;
    for (const std::uint32_t group : groups_of(c)) {
      elements[group] += size_of[c];
      classes_of[group].push_back(c);
    }
  }
  std::vector<std::int32_t> parents(count, Mesh::Group::kNone);
  for (std::uint32_t part = 0; part < count && work > 0; ++part) {
    if (classes_of[part].empty()) continue;
    // Whoever has all elements of the part is in every class of it, so also in the first.
    std::vector<std::uint32_t> wholes = groups_of(classes_of[part].front());
    std::erase_if(wholes, [&](std::uint32_t whole) { return elements[whole] <= elements[part]; });
    for (const std::uint32_t c : classes_of[part]) {
      if (wholes.empty() || work == 0) break;
      const std::vector<std::uint32_t> there = groups_of(c);
      std::erase_if(wholes, [&](std::uint32_t whole) {
        return !std::binary_search(there.begin(), there.end(), whole);
      });
    }
    const auto least = std::min_element(
        wholes.begin(), wholes.end(),
        [&](std::uint32_t a, std::uint32_t b) { return elements[a] < elements[b]; });
    if (least != wholes.end()) parents[part] = static_cast<std::int32_t>(*least);
  }
  if (work == 0 && count > 0) {
    mesh.report.Assumed("the groups overlap too much to be arranged in a hierarchy");
    return;
  }
  for (std::uint32_t part = 0; part < count; ++part) mesh.groups[part].parent = parents[part];
}

void FillParents(Mesh& mesh) {
  for (std::size_t g = 0; g < mesh.groups.size(); ++g) {
    const std::int32_t parent = mesh.groups[g].parent;
    if (parent == Mesh::Group::kNone) continue;
    Mesh::Group& whole = mesh.groups[static_cast<std::size_t>(parent)];
    const Mesh::Group& part = mesh.groups[g];
    whole.elements.insert(whole.elements.end(), part.elements.begin(), part.elements.end());
    whole.nodes.insert(whole.nodes.end(), part.nodes.begin(), part.nodes.end());
  }
  for (Mesh::Group& group : mesh.groups) {
    for (std::vector<Key>* members : {&group.elements, &group.nodes}) {
      std::sort(members->begin(), members->end());
      members->erase(std::unique(members->begin(), members->end()), members->end());
    }
  }
}

}  // namespace qx::exchange
