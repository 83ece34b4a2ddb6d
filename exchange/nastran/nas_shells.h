#pragma once
// Material directions, offsets and thicknesses of single shells: both ways.
// Threads: shares nothing.

#include <array>
#include <map>
#include <string_view>
#include <unordered_map>

#include "exchange/deck.h"
#include "exchange/nastran/nas_fields.h"
#include "exchange/nastran/nas_systems.h"
#include "exchange/nastran/nas_values.h"

namespace qx::exchange {

/// Whether the card has fields for them.
bool IsNasShell(std::string_view card);

/// Reads them of the cards of a deck, one after another: shells that say the same are in one
/// record. What the model has no word for stays in the card: thicknesses of some corners only, or
/// relative to the property's, and systems that the deck lacks.
class NasShellReader {
 public:
  NasShellReader(NasFieldReader& in, Deck& deck) : in_(in), deck_(deck) {}
  void Read(const NasCard& card, Key element, const NasSystems& systems);

 private:
  NasFieldReader& in_;
  Deck& deck_;
  // Places of records, by what they say.
  std::map<double, std::size_t> by_angle_;
  std::map<Key, std::size_t> by_system_;
  std::map<double, std::size_t> by_offset_;
  std::map<std::array<double, 4>, std::size_t> by_thickness_;
};

/// The records of the shells of a deck.
class NasShellRecords {
 public:
  explicit NasShellRecords(const Deck& deck);
  /// Adds the fields behind the nodes of a shell.
  void Add(NasFields& card, Key element) const;
  /// Tells of records of which no card says all.
  static void Tell(const Deck& deck, LossReport& report);

 private:
  struct Records {
    const tagTE2DMatlCsys* direction = nullptr;
    const tagTE2DOffset* offset = nullptr;
    const tagTE2DThick* thickness = nullptr;
  };
  std::unordered_map<Key, Records> of_;
};

}  // namespace qx::exchange
