#pragma once
// The cards of a deck's records.
// Threads: shares nothing; one at a time for each object.

#include <map>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "exchange/deck.h"
#include "exchange/nastran/nas_lines.h"
#include "exchange/nastran/nas_shells.h"
#include "exchange/nastran/nas_systems.h"
#include "exchange/nastran/nas_values.h"

namespace qx::exchange {

/// Where the things of a list are that has so many that a map of them would need more room.
class NasIndex {
 public:
  static constexpr std::size_t kNone = SIZE_MAX;

  void Set(std::vector<Key> keys);
  /// The place of a key in the list; kNone for another.
  std::size_t Find(Key key) const;

 private:
  std::vector<Key> keys_;              // ascending
  std::vector<std::uint32_t> places_;  // of them; empty where they came so
};

/// The cards of one deck, whose systems have the numbers that the format knows them by as keys. Two
/// decks say the same of a node, an element, and so on, when the fields are the same.
class NasCardText {
 public:
  /// `cards` names the cards that properties and materials came from: by their keys.
  using Names = std::map<Key, std::string>;
  explicit NasCardText(const Deck& deck, Names property_cards = {}, Names material_cards = {});

  const Deck& GetDeck() const { return deck_; }
  const NasSystems& Systems() const { return systems_; }

  /// A node in the basic system. `says_zero`: blank fields stand for other numbers than 0, as a
  /// card of defaults is there.
  NasFields Node(Key key, bool says_zero) const;
  Vector3 PointOf(Key node) const;
  /// The number of the system that a node's displacements are in.
  Key OutputOf(Key node) const;
  /// `form` of the card that the element came from. No fields for an element without a card.
  NasFields Element(Key key, const NasLineForm& form = {}) const;
  /// The card that the property came from, with the fields that the model has a place for.
  NasFields Property(Key key) const;
  NasFields Material(Key key) const;
  /// A system as it is given where the format can say so, by its place otherwise.
  NasFields System(Key number) const;

  bool HasNode(Key key) const { return nodes_.Find(key) != NasIndex::kNone; }
  bool HasElement(Key key) const;  ///< and a card for it
  bool HasProperty(Key key) const;
  bool HasMaterial(Key key) const { return materials_.contains(key); }
  bool HasSystem(Key number) const { return records_.contains(number); }
  const tagTProp* PropertyOf(Key key) const;
  const tagTMatl* MaterialOf(Key key) const;
  const tagTCord* SystemOf(Key number) const;
  Key PropertyOfElement(Key key) const;  ///< 0 for none
  /// Whether a record gives a bar or a beam the axes of a system of which the first is not along
  /// it: no card can say so.
  bool IsAcross(const tagTEcrd& record) const;
  /// Whether the element is written as a mass.
  bool IsMass(Key element) const;

  /// Elements that no card is for, by type, with the first of each.
  const std::map<std::int32_t, std::pair<std::uint64_t, Key>>& Unwritten() const {
    return unwritten_;
  }
  NasNodeFrame FrameOf(Key node) const;

 private:
  std::string NameOf(std::size_t element) const;
  std::string PropertyCard(Key key) const;

  const Deck& deck_;
  NasSystems systems_;
  NasIndex nodes_;
  NasIndex elements_;
  std::map<Key, const tagTProp*> properties_;
  std::map<Key, const tagTMatl*> materials_;
  std::map<Key, const tagTCord*> records_;
  std::unordered_map<Key, Key> outputs_;  // of nodes
  std::unordered_map<Key, NasLineRecords> lines_;
  NasShellRecords shells_;
  std::unordered_map<Key, const tagTSprop*> masses_;
  std::vector<std::uint16_t> came_from_;  // block of each element, from 1; 0 for none
  std::vector<std::string> blocks_;       // cards that elements came from
  Names property_cards_;
  Names material_cards_;
  std::map<std::int32_t, std::pair<std::uint64_t, Key>> unwritten_;
};

/// The key of a model's global system, which needs no card.
inline constexpr Key kNasGlobalSystem = 1;

}  // namespace qx::exchange
