#pragma once
// Gathers what the sections of a MSH file say into a mesh.
// Threads: shares nothing; one at a time for each object.

#include <array>
#include <cstdint>
#include <map>
#include <span>
#include <string>
#include <utility>
#include <vector>

#include "exchange/deck.h"
#include "exchange/msh/msh_cursor.h"
#include "exchange/msh/msh_kinds.h"

namespace qx::exchange {

/// Field of the partitions of elements where the elements tell them: ghosts are negative.
inline constexpr const char16_t* kPartitionField = u"msh:partition";

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
  /// From here until the next call, nodes lie on this entity.
  void BeginNodeBlock(Tag entity);
  /// Counts parameters of the node of the last point on its entity, which are not kept.
  void LeaveOutParameters() {
    const std::size_t points = mesh_.coordinates.size() / 3;
    parameters_.Add(points > 0 && points <= mesh_.node_keys.size() ? mesh_.node_keys[points - 1]
                                                                   : 0);
  }
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
                  std::int32_t group, std::span<const std::int32_t> partitions = {});
  /// Counts elements of a kind that is not read, whatever its number; the first has this key.
  void LeaveOut(std::int64_t kind, Key key, std::uint64_t count = 1) {
    left_out_[kind].Add(key, count);
  }

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

  /// What a file says of an entity besides the mesh on it.
  struct Entity {
    std::vector<std::int32_t> groups = {};  ///< physical ones
    Tag parent{-1, 0};                      ///< the entity that it is a partition of
    std::vector<std::int32_t> partitions = {};
    std::vector<std::int32_t> boundary = {};
  };
  void AddEntity(Tag entity, Entity described);
  /// From here until the next call, elements belong to this entity.
  void BeginBlock(Tag entity);

  // ---- what is carried --------------------------------------------------------------------------

  void AddField(tagTField field) { mesh_.Of<tagTField>().push_back(std::move(field)); }
  void AddCarried(tagTCarried carried);
  void SetUnits(const UnitSystem& units) { mesh_.units = units; }
  void Lost(std::string what, std::uint64_t count, std::string where, std::string why) {
    mesh_.report.Lost(std::move(what), count, std::move(where), std::move(why));
  }

  /// The mesh with its groups and report. Fails through `in` when the groups outgrow the file, of
  /// `file_bytes`: then a few lines would say that everything is in everything.
  Deck Finish(MshCursor& in, std::size_t file_bytes);

 private:
  /// How many, and the first.
  struct Told {
    std::uint64_t count = 0;
    Key first = 0;
    void Add(Key key, std::uint64_t more = 1) {
      if (count == 0) first = key;
      count += more;
    }
  };
  struct Block {
    Tag entity;
    std::size_t first;  // index of its first element; it ends where the next block begins
  };

  void PushElement(const MshKind& kind, Key key, std::span<const Key> nodes);
  void AddToGroup(const MshKind& kind, Key key, std::span<const Key> nodes, std::int32_t entity,
                  Tag group);
  Mesh::SetTag TagOf(Tag group) const;
  bool RepeatsLast(const MshKind& kind, std::span<const Key> nodes) const;
  void PutBlocksIntoGroups(MshCursor& in, std::size_t file_bytes);
  void PutGroupsIntoSets(MshCursor& in);
  void FillReport();

  void ListBlocks();
  void OrderFields();

  Deck mesh_;
  std::map<Tag, std::string> names_;
  std::map<Tag, std::vector<Key>> groups_;
  std::map<Tag, Entity> entities_;
  std::vector<Block> node_blocks_;
  std::map<Tag, std::vector<Key>> elements_on_;  // entities, where elements tell them
  tagTField partitions_;                         // the same
  Told parameters_;                              // of nodes
  std::vector<Block> blocks_;
  std::vector<MeshSet> sets_;
  std::int32_t last_entity_ = 0;  // of the last element that told one
  Told repeated_;
  std::map<int, Told> reduced_;            // by type number
  std::map<std::int64_t, Told> left_out_;  // by type number
};

}  // namespace qx::exchange
