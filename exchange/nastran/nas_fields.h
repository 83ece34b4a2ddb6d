#pragma once
// The fields of cards as numbers; what is none is a fault.

#include <array>
#include <cmath>
#include <fmt/format.h>
#include <string>
#include <vector>

#include "exchange/nastran/nas_cards.h"

namespace qx::exchange {

/// Reads fields of the cards of a text, and gathers faults up to a bound.
class NasFieldReader {
 public:
  NasFieldReader(const NasText& text, const std::string& file, std::vector<Failure>& faults)
      : text_(text), file_(file), faults_(faults) {}

  bool IsFull() const { return faults_.size() >= LossReport::kMostFaults; }

  void Fault(const NasCard& card, std::string what, std::string remedy) {
    if (IsFull()) return;
    std::string file;
    std::string place = text_.Place(card.begin, file) + ", " + card.name;
    faults_.push_back(
        {file.empty() ? file_ : file, std::move(place), std::move(what), std::move(remedy)});
  }
  std::string_view Text(const NasCard& card, std::size_t field) const {
    return text_.FieldText(card, field);
  }
  double Real(const NasCard& card, std::size_t field, double none = 0) {
    const std::string_view text = Text(card, field);
    if (text.empty()) return none;
    const auto value = DeckReal(text);
    if (value && std::isfinite(*value)) return *value;
    Fault(card, fmt::format("field {} is '{}', not a number", field + 2, text), "correct it");
    return none;
  }
  Key Number(const NasCard& card, std::size_t field, Key none = 0) {
    const std::string_view text = Text(card, field);
    if (text.empty()) return none;
    const auto value = DeckInteger(text);
    if (value && *value >= 0 && *value <= kMaxKey) return static_cast<Key>(*value);
    Fault(card,
          fmt::format("field {} is '{}', not a number from 0 to {}", field + 2, text, kMaxKey),
          "correct it");
    return none;
  }
  Key Number(const NasCard& card, std::size_t field, const NasCard* defaults, Key none = 0) {
    return Text(card, field).empty() && defaults ? Number(*defaults, field, none)
                                                 : Number(card, field, none);
  }
  std::array<double, 3> Vector(const NasCard& card, std::size_t field) {
    return {Real(card, field), Real(card, field + 1), Real(card, field + 2)};
  }

 protected:
  const NasText& text_;
  const std::string& file_;
  std::vector<Failure>& faults_;
};

}  // namespace qx::exchange
