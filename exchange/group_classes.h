#pragma once
// Elements told apart by the groups they are in, and groups by what they have in common.
// Threads: shares nothing; one at a time for each object.

#include <cstdint>
#include <span>
#include <vector>

#include "exchange/mesh.h"

namespace qx::exchange {

/// Divides `elements` elements, numbered from 0, into classes: two are in one class when they are
/// in the same groups. Class 0 is in no group. Cost proportional to the number of members.
class ElementClasses {
 public:
  explicit ElementClasses(std::size_t elements) : class_of_(elements) {}

  /// Adds the next group by the numbers of its elements, which may repeat.
  void AddGroup(std::span<const std::uint32_t> members);

  std::uint32_t ClassOf(std::size_t element) const { return class_of_[element]; }
  /// The groups of a class, ascending; some classes may have lost all their elements to others.
  std::vector<std::uint32_t> GroupsOf(std::uint32_t element_class) const;
  std::size_t Count() const { return classes_.size(); }

 private:
  /// A class has the groups of the one that it came from, and one more.
  struct Class {
    std::uint32_t from;
    std::uint32_t group;
    std::uint32_t depth;  ///< number of its groups
  };

  std::uint32_t group_count_ = 0;
  std::vector<std::uint32_t> class_of_;
  std::vector<Class> classes_{{0, 0, 0}};
};

/// Gives each group what the groups that are parts of it have, all members ascending and once.
void FillParents(Mesh& mesh);

/// Makes each group a part of the smallest group that has all its elements and more, the first of
/// several. Groups without elements, and equal ones, are parts of none on that account. Groups that
/// overlap so much that finding out would take much longer than reading them stay apart, with a
/// note.
void NestGroups(Mesh& mesh);

}  // namespace qx::exchange
