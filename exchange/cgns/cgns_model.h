#pragma once
// A model as the sections, boundary conditions, regions and families of a CGNS file.

#include <initializer_list>
#include <map>
#include <set>
#include <string>
#include <unordered_map>
#include <vector>

#include "exchange/cgns/cgns_solutions.h"
#include "exchange/cgns/cgns_tree.h"
#include "exchange/deck.h"

namespace qx::exchange {

/// Name of the only zone of a file of ours.
inline constexpr const char* kCgnsZone = "Zone1";

/// A name that a node of the file can have: 32 bytes at most, no slash, and none twice below one
/// node.
class CgnsNames {
 public:
  /// Some names are taken by nodes that mean something.
  CgnsNames(std::initializer_list<const char*> taken) : taken_(taken.begin(), taken.end()) {}
  std::string Take(const std::string& name);

 private:
  std::set<std::string> taken_;
};

class CgnsModel {
 public:
  struct Named {
    std::string name;  ///< of the node
    std::string full;  ///< of the set
    std::string family = {};
  };
  struct Section : Named {
    bool is_set = false;
    std::int32_t code = 0;
    std::vector<std::size_t> elements = {};  ///< places in the deck
  };
  struct Set : Named {
    std::int32_t type = 0;           ///< of a boundary condition or family: its number
    std::string_view location = {};  ///< "Vertex", "EdgeCenter", "FaceCenter", "CellCenter"
    std::int32_t dimension = 0;
    std::vector<std::int32_t> members = {};  ///< numbers in the file
  };

  CgnsModel(const CQXDBSession& session, LossReport& report, const Progress& progress);

  const Deck& Source() const { return deck_; }
  /// Of the elements that cells are of.
  std::int32_t CellDimension() const { return cell_dimension_; }
  std::size_t Elements() const { return number_of_.size(); }
  std::int32_t NodeNumber(Key key) const { return node_number_.at(key); }
  const std::vector<Section>& Sections() const { return sections_; }
  const std::vector<Set>& Conditions() const { return conditions_; }
  const std::vector<Set>& Regions() const { return regions_; }
  const std::vector<Set>& Families() const { return families_; }
  const CgnsSolutions& Solutions() const { return solutions_; }

 private:
  void FindFamilies();
  void MakeSections();
  void MakeSets();
  std::int32_t TagOf(const Mesh::Group& group) const;
  Named NamedOf(std::size_t group, CgnsNames& names);

  LossReport& report_;
  Deck deck_;
  std::map<Key, std::int32_t> tags_;  // of our format, by key of the set
  std::int32_t cell_dimension_ = 0;
  std::unordered_map<Key, std::int32_t> node_number_;
  std::unordered_map<Key, std::size_t> place_of_;    // in the deck
  std::unordered_map<Key, std::int32_t> number_of_;  // in the file
  std::vector<std::string> family_names_;            // of each group that is one, or ""
  std::vector<bool> is_section_;
  std::vector<Section> sections_;
  std::vector<Set> conditions_, regions_, families_;
  CgnsSolutions solutions_;
  CgnsNames zone_names_{"ZoneType",         "GridCoordinates",      "ZoneBC",
                        kCgnsOwn,           "FamilyName",           "DataClass",
                        "DimensionalUnits", "ZoneGridConnectivity", "ZoneIterativeData"};
  CgnsNames condition_names_{"FamilyName", "DataClass", "DimensionalUnits"};
  CgnsNames family_node_names_{kCgnsZone, kCgnsOwn, "DataClass", "DimensionalUnits",
                               "BaseIterativeData"};
  std::uint64_t renamed_ = 0;
  std::string first_renamed_;
};

}  // namespace qx::exchange
