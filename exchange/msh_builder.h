#pragma once
// Gathers what the sections of a MSH file say into a mesh.

#include <array>
#include <cstdint>
#include <map>
#include <span>
#include <string>
#include <utility>
#include <vector>

#include "exchange/mesh.h"
#include "exchange/msh_cursor.h"
#include "exchange/msh_kinds.h"

namespace qx::exchange {

/// Elements and groups in the making. The sections may come in any order: what they say of one
/// another is put together at the end.
class MshBuilder {
 public:
  /// A dimension from 0 to 3 and a tag: names a geometric entity or a physical group.
  using Tag = std::pair<int, std::int32_t>;
  using Point = std::array<double, 3>;

  // ---- nodes ------------------------------------------------------------------------------------

  void ReserveNodes(std::uint64_t count);
  void AddNodeKey(Key key) { mesh_.node_keys.push_back(key); }
  /// Coordinates of the nodes, in the order of their keys.
  void AddPoint(const Point& point);

  // ---- elements ---------------------------------------------------------------------------------

  void ReserveElements(std::uint64_t count) { mesh_.elements.reserve(count); }
  /// Adds an element with the nodes that the file lists, kind.nodes of them, or counts it as left
  /// out.
  void AddElement(const MshKind& kind, Key key, std::span<const Key> nodes);
  /// The same where the file tells entity and group with the element, 0 for none. An element that
  /// follows its like of the same entity stands for a further group of that one.
  void AddElement(const MshKind& kind, Key key, std::span<const Key> nodes, std::int32_t entity,
                  std::int32_t group);
  /// Counts elements of a kind that is not read, whatever its number.
  void LeaveOut(std::int64_t kind, std::uint64_t count = 1) { left_out_[kind] += count; }

  // ---- groups -----------------------------------------------------------------------------------

  /// False when the group has a name already.
  bool NameGroup(Tag group, std::string name) {
    return names_.emplace(group, std::move(name)).second;
  }
  /// A mesh set as $QXMeshSets tells it: the physical groups that it was written as, and what
  /// these do not tell. `set.parent` is an index among these sets.
  struct MeshSet {
    Mesh::Group set;
    std::vector<Tag> groups;
  };
  void AddMeshSet(MeshSet set) { sets_.push_back(std::move(set)); }

  /// The physical groups that an entity belongs to.
  void AddEntity(Tag entity, std::vector<std::int32_t> groups);
  /// From here until the next call, elements belong to this entity.
  void BeginBlock(Tag entity);

  /// The mesh with its groups and notes. Fails through `in` when the groups outgrow the file, of
  /// `file_bytes`: then a few lines would say that everything is in everything.
  Mesh Finish(MshCursor& in, std::size_t file_bytes);

 private:
  struct Block {
    Tag entity;
    std::size_t first;  // index of its first element; it ends where the next block begins
  };

  void PushElement(const MshKind& kind, Key key, std::span<const Key> nodes);
  bool RepeatsLast(const MshKind& kind, std::span<const Key> nodes) const;
  void PutBlocksIntoGroups(MshCursor& in, std::size_t file_bytes);
  void PutGroupsIntoSets(MshCursor& in);
  void WriteNotes();

  Mesh mesh_;
  std::map<Tag, std::string> names_;
  std::map<Tag, std::vector<Key>> groups_;
  std::map<Tag, std::vector<std::int32_t>> entities_;
  std::vector<Block> blocks_;
  std::vector<MeshSet> sets_;
  std::int32_t last_entity_ = 0;  // of the last element that told one
  std::uint64_t repeated_ = 0;
  std::map<int, std::uint64_t> reduced_;            // by type number
  std::map<std::int64_t, std::uint64_t> left_out_;  // by type number
};

}  // namespace qx::exchange
