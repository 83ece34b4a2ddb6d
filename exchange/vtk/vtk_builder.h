#pragma once
// Gathers the pieces of a VTK file, XML or legacy, into a deck.

#include <array>
#include <map>
#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

#include "exchange/deck.h"
#include "exchange/vtk/vtk_array.h"
#include "exchange/vtk/vtk_kinds.h"
#include "exchange/vtk/vtk_notes.h"

namespace qx::exchange {

/// A deck in the making. Arrays that our own files have keep their meaning: "node_key",
/// "element_key" and "property_key" are keys, arrays that the notes name are sets. All others
/// become fields.
class VtkBuilder {
 public:
  /// `merge`: points of different pieces at one place are one node.
  explicit VtkBuilder(bool merge) : merge_(merge) {}

  void SetNotes(VtkNotes notes) { notes_ = std::move(notes); }
  bool HasNotes() const { return notes_.units.has_value(); }
  /// Files older than version 2.1 of the format; see FindVtkKind.
  void SetOldHexahedra(bool old) { old_hexahedra_ = old; }
  void SetTime(double time) { time_ = time; }
  void SetPieces(std::size_t pieces) { pieces_ = pieces; }
  LossReport& Report() { return deck_.report; }

  /// Adds a piece, whose arrays have the lengths that it says. False, with all points and cells
  /// that cannot be in `faults`, up to the bound: what is added then is of no use.
  bool Add(const VtkPiece& piece, const std::string& file, std::vector<Failure>& faults);

  /// The deck, not checked yet.
  Deck Finish(const char* format);

 private:
  enum class Role { kField, kNodeKey, kElementKey, kElementType, kPropertyKey, kSet };
  using FieldKey = std::pair<bool, std::string>;  // of points, name of the array

  /// Where the faults of a piece go.
  struct Faults {
    const VtkPiece& piece;
    const std::string& file;
    std::vector<Failure>& all;
    std::size_t before = 0;

    bool None() const { return all.size() == before; }
    bool AreFull() const { return all.size() >= LossReport::kMostFaults; }
    void Add(std::string where, std::string what);
  };

  void AddPoints(const VtkPiece& piece, Faults& faults);
  void AddCells(const VtkPiece& piece, Faults& faults);
  void AddNodes(const VtkPiece& piece, const std::vector<std::int64_t>& offsets, Faults& faults);
  void AddElement(std::int32_t code, std::size_t count, const Key* nodes, const std::int8_t* order,
                  std::size_t cell);
  void SplitCell(int number, const VtkKind& kind, const Key* nodes, std::size_t count,
                 std::size_t cell);
  Role RoleOf(const VtkArray& array, bool of_points) const;
  template <class Visit>
  void ForEachOfElement(const VtkArray& array, Visit&& visit) const;
  void AddData(const VtkArray& array, bool of_points);
  void AddField(const VtkArray& array, bool of_points);
  std::vector<bool> WithValueOfAnother(const tagTField& field, const std::vector<double>& values,
                                       const std::string& place);
  void AddMembers(const VtkArray& array, bool of_points);
  tagTField& FieldFor(const VtkArray& array, bool of_points);
  void GiveKeys(std::vector<Key>& wishes, std::size_t count, const char* what,
                std::vector<Key>& keys);
  void Rename(const std::vector<Key>& nodes, const std::vector<Key>& elements);
  void AddSets();
  void FillReport();

  bool merge_;
  bool old_hexahedra_ = false;
  double time_ = 0;
  std::size_t pieces_ = 1;
  VtkNotes notes_;
  Deck deck_;  // nodes and elements have their places, from 1, as keys until the end

  // Of the piece that is being added.
  std::vector<Key> point_keys_;         // 0 never
  std::vector<bool> is_repeated_;       // points that an earlier piece has; empty for none
  std::vector<std::uint32_t> cell_of_;  // the cell of each element from first_element_ on
  std::size_t first_element_ = 0;
  std::size_t node_end_ = 0;  // of the connectivity that elements have

  std::vector<Key> node_wishes_;
  std::vector<Key> element_wishes_;
  std::map<FieldKey, tagTField> fields_;
  std::vector<FieldKey> field_order_;
  std::map<std::string, std::pair<std::vector<Key>, std::vector<Key>>> members_;  // cells, points

  /// Where the pieces so far have points, by the bits of their coordinates.
  struct Place {
    std::array<std::uint64_t, 3> bits;
    friend bool operator==(const Place&, const Place&) = default;
  };
  struct PlaceHash {
    std::size_t operator()(const Place& place) const;
  };
  struct Occupant {
    Key key;
    std::size_t piece;
    bool is_double;  // in its piece
  };
  std::unordered_map<Place, Occupant, PlaceHash> places_;
  std::size_t piece_ = 0;
  std::uint64_t shared_ = 0;
  std::uint64_t doubles_ = 0;  // where a piece has two points, so that none is shared

  struct Told {
    std::uint64_t count = 0;
    std::string where;  // the first
  };
  void Tell(Told& told, const VtkPiece& piece, std::size_t cell);
  std::map<std::string, Told> left_out_;
  std::map<std::pair<std::string, std::int32_t>, Told> reduced_;
  std::map<std::pair<std::string, std::int32_t>, std::uint64_t> renamed_;
  Told differing_;
  std::uint64_t ghosts_ = 0;
  std::uint64_t rounded_ = 0;
  std::string rounded_where_;
};

}  // namespace qx::exchange
