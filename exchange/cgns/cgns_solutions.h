#pragma once
// Fields of CGNS files: solutions of a zone, each with arrays of one number for every vertex, every
// cell, or every point of a list. Three arrays whose names end in X, Y and Z are a vector. Steps
// are told by lists of the solutions' names, one for each step. (SIDS, "Flow solution structure",
// "Time-dependent flow".)

#include <map>
#include <string>
#include <unordered_map>
#include <vector>

#include "exchange/cgns/cgns_tree.h"
#include "exchange/deck.h"
#include "exchange/field_values.h"

namespace qx::exchange {

/// The keys of a zone's cells, which are of the dimension, in the order in which solutions have
/// their values; 0 for a cell that was left out. The zone's elements are the last of the deck, in
/// the order of their numbers; `key_of` has a key or 0 for each number, and is empty in a
/// structured zone; `is_lost` says of which there is a value all the same.
std::vector<Key> CgnsCellKeys(const Deck& deck, std::size_t first_element,
                              const std::vector<Key>& key_of, const std::vector<bool>& is_lost,
                              std::int64_t dimension);

class CgnsSolutionReader {
 public:
  CgnsSolutionReader(CgnsTree& tree, Deck& deck) : tree_(tree), deck_(deck) {}

  /// Takes the numbers and times of the steps of a base.
  void ReadSteps(const std::vector<CgnsTree::Child>& of_base);

  /// A zone whose nodes and elements the deck has.
  struct Zone {
    std::size_t first_node = 0;
    std::size_t nodes = 0;
    std::vector<Key> cells;            ///< elements of the cells' dimension, in order
    const std::vector<Key>& elements;  ///< by number, 0 for none; empty in a structured zone
  };
  /// Adds its solutions to the deck's fields. Those that cannot be are left out and told of.
  void ReadZone(const Zone& zone, const std::vector<CgnsTree::Child>& of_zone);

 private:
  struct Array {
    std::string name;
    std::string path;
    bool is_whole;
  };
  void ReadPointers(const CgnsTree::Child& node);
  std::size_t StepOf(const std::string& solution) const;
  void ReadSolution(const Zone& zone, const CgnsTree::Child& solution);
  bool FindTargets(const Zone& zone, const std::vector<CgnsTree::Child>& below, bool is_of_nodes,
                   std::vector<Key>& targets);
  void ReadArrays(const Array* first, std::size_t count, std::string name, std::int32_t place,
                  std::size_t step, const std::vector<Key>& targets);
  void LeaveOut(const CgnsTree::Child& solution, const char* why);

  CgnsTree& tree_;
  Deck& deck_;
  std::vector<double> times_;
  std::vector<std::int64_t> numbers_;
  std::map<std::string, std::size_t> step_of_;  // by name of a solution of the zone
  struct FieldKey {
    std::string name;
    std::int32_t place;
    std::int32_t components;
    std::size_t step;
    std::size_t nth;  // of these in its zone
    auto operator<=>(const FieldKey&) const = default;
  };
  std::map<FieldKey, std::size_t> fields_;  // place in the deck
  std::map<FieldKey, std::size_t> in_zone_;
};

/// A solution to be written.
struct CgnsSolution {
  struct Array {
    std::string name;  ///< of the node
    std::string full;
    std::size_t table = 0;
    std::int32_t component = 0;
    bool is_whole = false;
  };
  std::string name;
  bool is_of_nodes = false;
  std::vector<std::int32_t> points;  ///< numbers of what it is of; empty for all
  std::size_t step = 0;              ///< place among the steps, from 1; 0 for none
  std::vector<Array> arrays;
};

/// The fields of a deck as solutions.
struct CgnsSolutions {
  std::vector<FieldTable> tables;
  std::vector<CgnsSolution> all;
  std::vector<std::pair<std::int32_t, double>> steps;  ///< number and time, ascending
};

class CgnsNames;

/// Divides fields among solutions. Nodes and elements have their numbers in the file; `cells` are
/// the numbers of elements that are cells, ascending. `names` are those of the zone's nodes.
CgnsSolutions SolutionsOf(const Deck& deck,
                          const std::unordered_map<Key, std::int32_t>& node_number,
                          const std::unordered_map<Key, std::int32_t>& element_number,
                          const std::vector<std::int32_t>& cells, CgnsNames& names,
                          LossReport& report);

}  // namespace qx::exchange
