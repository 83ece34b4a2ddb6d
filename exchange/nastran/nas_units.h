#pragma once
// Cards of a deck that is written in other units than it was read in: what the model holds of them
// is converted, their other numbers stay.
// Threads: shares nothing; one at a time for each object.

#include <optional>

#include "qx_db/lib/units.h"

#include "exchange/nastran/nas_tally.h"
#include "exchange/nastran/nas_values.h"

namespace qx::exchange {

class NasUnits {
 public:
  /// The units of the text as those of the model, and those of what is written as current ones.
  explicit NasUnits(const CQXUnitCtrl& units)
      : units_(units), are_same_(units.Model() == units.Current()) {}

  /// What a card was read as, in the units that are written.
  template <class T>
  std::optional<T> Written(const T* record) const {
    if (!record) return std::nullopt;
    T converted = *record;
    if (!are_same_) converted.ConvertUnitOut(&units_);
    return converted;
  }
  /// Counts a card that goes on, of which the model holds `held`, if other numbers are in it.
  void Count(const NasText& text, const NasCard& card, const NasFields& held);
  void Tell(LossReport& report) const;

 private:
  const CQXUnitCtrl units_;
  const bool are_same_;
  NasTally whole_;
  NasTally in_part_;
};

}  // namespace qx::exchange
