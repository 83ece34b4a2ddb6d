#pragma once
// A model as the blocks, sets and variables of an Exodus file.

#include <fmt/format.h>
#include <map>
#include <set>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

#include "exchange/deck.h"

namespace qx::exchange {

/// What the blocks, sets and variables of a model's file are.
class ExodusModel {
 public:
  struct Block {
    std::int32_t id;
    std::string name;
    std::int32_t code = 0;
    std::vector<std::size_t> elements = {};  ///< places in the deck
  };
  struct Set {
    std::int32_t id;
    std::string name;
    std::vector<std::int32_t> members = {};  ///< places in the file, from 1
    std::vector<std::int32_t> sides = {};    ///< of side sets
  };
  /// A field as a variable of one component.
  struct Variable {
    std::string name;
    std::map<std::size_t, std::pair<const tagTField*, std::int32_t>> at;  ///< field, by step
  };

  ExodusModel(const CQXDBSession& session, LossReport& report, const Progress& progress = {});

  const Deck& Source() const { return deck_; }
  std::size_t NodePlace(Key key) const { return node_place_.at(key); }
  const std::vector<Block>& Blocks() const { return blocks_; }
  std::size_t Elements() const { return element_place_.size(); }
  const std::vector<Set>& NodeSets() const { return node_sets_; }
  const std::vector<Set>& ElementSets() const { return element_sets_; }
  const std::vector<Set>& SideSets() const { return side_sets_; }
  const std::vector<std::pair<std::int32_t, double>>& Steps() const { return steps_; }
  const std::vector<Variable>& NodeVariables() const { return node_variables_; }
  const std::vector<Variable>& ElementVariables() const { return element_variables_; }
  const std::vector<Variable>& Attributes() const { return attributes_; }

  /// The values of a variable by node or element in the file's order, NaN where there is none.
  std::vector<double> Values(const Variable& variable, std::size_t step, bool of_nodes) const;

 private:
  void FindTags();

  /// The tag of a set of a kind: of blocks, those of elements with a dimension.
  const tagTSetTag* TagOf(const Mesh::Group& group, std::int32_t kind, bool is_block) const;

  /// The name for the file: that of a set which had none there is left out while it is unchanged.
  static std::string NameOf(const Mesh::Group& group, const tagTSetTag* tag, const char* what);

  /// Ids of one kind: those that came with the model, then the least that are free.
  class Ids {
   public:
    explicit Ids(LossReport& report) : report_(report) {}
    std::int32_t Take(const tagTSetTag* tag) {
      if (tag && used_.insert(tag->tag).second) return tag->tag;
      if (tag) {
        report_.Changed("numbers of sets that another set has too", 1,
                        fmt::format("number {}", tag->tag), "a number names one set");
      }
      while (used_.contains(next_)) ++next_;
      used_.insert(next_);
      return next_;
    }
    void Reserve(const tagTSetTag* tag) {
      if (tag) next_ = std::max(next_, tag->tag == kMaxKey ? 1 : tag->tag + 1);
    }

   private:
    LossReport& report_;
    std::set<std::int32_t> used_;
    std::int32_t next_ = 1;
  };

  void MakeBlocks();

  void MakeSets();

  void AddSides(const Mesh::Group& group, const tagTSetTag& tag, std::int32_t id);

  // ---- fields -------------------------------------------------------------------------------

  void MakeVariables();

  void AddVariable(const tagTField& field, std::string name, std::size_t step, std::int32_t c);

  void TellOfTheRest();

  const CQXDBSession& session_;
  LossReport& report_;
  Deck deck_;
  std::map<Key, std::vector<const tagTSetTag*>> tags_;
  std::unordered_map<Key, std::size_t> node_place_;
  std::unordered_map<Key, std::size_t> element_place_;
  std::unordered_map<Key, std::int32_t> types_;
  std::vector<bool> is_block_;
  std::vector<Block> blocks_;
  std::vector<Set> node_sets_;
  std::vector<Set> element_sets_;
  std::vector<Set> side_sets_;
  std::vector<std::pair<std::int32_t, double>> steps_;
  std::vector<Variable> node_variables_;
  std::vector<Variable> element_variables_;
  std::vector<Variable> attributes_;
};

}  // namespace qx::exchange
