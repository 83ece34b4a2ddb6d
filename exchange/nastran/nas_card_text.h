#pragma once
// The cards of a deck's records, written.

#include <map>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "exchange/deck.h"
#include "exchange/system_frames.h"

namespace qx::exchange {

/// Fields of one card; writes small fields where all fit, large ones otherwise.
class NasFields {
 public:
  NasFields(std::string name, int digits) : name_(std::move(name)), digits_(digits) {}
  NasFields& Number(Key key);  ///< blank for 0
  NasFields& Real(double value);
  NasFields& Blank(int count = 1);
  NasFields& Word(std::string text);
  std::string Text() const;

 private:
  std::string name_;
  int digits_;
  std::vector<std::string> fields_;
};

/// What the card of a node says that the model has no place for.
struct NasGridRest {
  std::string_view system;             ///< field of the system that the node is given in
  const SystemFrame* frame = nullptr;  ///< that system; null for the basic one
  std::string_view constraints;        ///< permanent ones
  std::string_view superelement;
};

/// Writes the cards of one deck. Two decks say the same of a node, an element, and so on, when the
/// cards are equal.
class NasCardText {
 public:
  /// `digits` of real numbers: 0 for as many as they need.
  NasCardText(const Deck& deck, int digits);

  std::string Node(Key key, const NasGridRest& rest = {}) const;
  /// Blank fields of nodes' cards stand for other numbers than 0: a card of defaults is there.
  void MindGridDefaults() { has_grid_defaults_ = true; }
  std::string Element(Key key) const;
  std::string Property(Key key) const;
  std::string Material(Key key) const;
  /// By the number that the format knows it by.
  std::string System(Key number) const;

  const std::map<Key, const tagTCord*>& Systems() const { return systems_; }
  /// Elements that no card is for, by type.
  const std::map<std::int32_t, std::uint64_t>& Unwritten() const { return unwritten_; }
  bool Writes(Key element) const;

 private:
  std::string NameOf(std::size_t element) const;
  Key NumberOf(ITR system) const;

  const Deck& deck_;
  int digits_;
  bool has_grid_defaults_ = false;
  std::unordered_map<Key, std::size_t> nodes_;
  std::unordered_map<Key, std::size_t> elements_;
  std::unordered_map<Key, const tagTProp*> properties_;
  std::unordered_map<Key, const tagTMatl*> materials_;
  std::map<Key, const tagTCord*> systems_;
  std::unordered_map<Key, Key> system_numbers_;  // by key
  std::unordered_map<Key, Key> outputs_;         // of nodes
  std::unordered_map<Key, const tagTEcrd*> orientations_;
  std::unordered_map<Key, const tagTE1DOffset*> offsets_;
  std::unordered_map<Key, const tagTE1DRelease*> releases_;
  std::unordered_map<Key, const tagTSprop*> masses_;
  std::unordered_map<Key, std::string> names_;  // of the cards that elements came from
  std::map<std::int32_t, std::uint64_t> unwritten_;
};

}  // namespace qx::exchange
