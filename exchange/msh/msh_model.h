#pragma once
// What of a model goes into a MSH file: cells, sets with their tags, and the entities they lie on.
// Threads: shares nothing; one at a time for each object.

#include <array>
#include <cstdint>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "qx_db/model/mesh_set_pool.h"
#include "qx_db/model/set_rules.h"

#include "exchange/deck.h"
#include "exchange/group_classes.h"

namespace qx::exchange {

/// Elements that the file has, in the entities it needs: those that the model's blocks tell of, and
/// new ones for elements of one dimension in the same sets that lie on none. Uses the parameter
/// indices of nodes and elements as scratch numbers.
class MshModel {
 public:
  static constexpr std::uint32_t kNone = 0xFFFFFFFF;

  struct Cell {
    const tagTElem* element;
    std::uint32_t entity = 0;
  };
  struct Tag {
    std::int32_t number = 0;
    bool named = true;
  };
  struct Set {
    const tagTMset* record;
    std::string name;
    std::map<int, Tag> tags = {};  ///< by dimension
    std::vector<Key> extra_nodes = {};
  };
  struct Entity {
    int dimension;
    std::int32_t tag;
    const tagTBlock* block = nullptr;  ///< that it is told by
    std::vector<std::uint32_t> sets = {};
    std::array<double, 3> low{};
    std::array<double, 3> high{};
    bool is_empty = true;  ///< no point widened its box
    bool has_class = false;
  };

  explicit MshModel(const CQXDBSession& session);

  const CQXDBSession& Session() const { return session_; }
  DPoolNode& Nodes() const { return nodes_; }
  const std::vector<Cell>& Cells() const { return cells_; }
  const std::vector<Set>& Sets() const { return sets_; }
  const std::vector<Entity>& Entities() const { return entities_; }
  /// The entity that a node lies on, whichever where none is told.
  const Entity& EntityOf(ITR node) const;
  /// Whether the file has the element.
  bool HasCell(ITR element) const;
  std::array<double, 3> PositionOf(ITR node) const;
  std::uint64_t Items() const {
    return cells_.size() + static_cast<std::uint64_t>(nodes_.GetSize());
  }
  /// What is left out of a file of any version.
  void FillReport(LossReport& report) const;

 private:
  void ListCells();
  void ListSets(const DPoolMset& pool);
  void GiveTags();
  void ListBlocks();
  void FindEntities();
  std::uint32_t EntityFor(std::size_t cell);
  std::vector<std::uint32_t> Members(const SetMembers& set) const;
  static void Widen(Entity& entity, const std::array<double, 3>& point);

  const CQXDBSession& session_;
  DPoolNode& nodes_;
  DPoolElem& elements_;
  double length_unit_;
  std::vector<Cell> cells_;
  ElementClasses classes_{0};
  std::vector<Set> sets_;
  std::vector<Entity> entities_;
  std::uint32_t main_entity_ = 0;        // of nodes that lie on no other
  std::vector<std::uint32_t> block_of_;  // entity of a cell's block, or kNone
  std::map<std::array<std::uint32_t, 3>, std::uint32_t> known_;
  std::array<std::int32_t, 4> last_tag_{};  // by dimension
  UnwrittenElements others_;
  std::uint64_t incomplete_ = 0;
  Key first_incomplete_ = 0;
  std::uint64_t with_property_ = 0;
  Key first_with_property_ = 0;
  std::uint64_t renamed_ = 0;
  std::string first_renamed_;
  std::uint64_t retagged_ = 0;
  std::string first_retagged_;
};

}  // namespace qx::exchange
