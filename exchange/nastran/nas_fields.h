#pragma once
// The fields of cards as numbers; what is none is a fault.

#include <array>
#include <cmath>
#include <fmt/format.h>
#include <map>
#include <string>
#include <vector>

#include "exchange/nastran/nas_cards.h"

namespace qx::exchange {

/// Reads fields of the cards of a text, and gathers faults up to a bound.
class NasFieldReader {
 public:
  NasFieldReader(const NasText& text, const std::string& file, std::vector<Failure>& faults)
      : text_(text), file_(file), faults_(faults) {}

  bool IsFull() const { return found_.size() >= LossReport::kMostFaults; }
  bool HasFaults() const { return !found_.empty(); }
  const NasText& Source() const { return text_; }

  /// A fault of a card; only the first of each is kept.
  void Fault(const NasCard& card, std::string what, std::string remedy) {
    if (IsFull() || found_.contains(card.begin)) return;
    std::string file;
    std::string place = fmt::format("{}, {}", text_.Place(card.begin, file), card.name);
    found_.insert(
        {card.begin,
         {file.empty() ? file_ : file, std::move(place), std::move(what), std::move(remedy)}});
  }
  /// Hands the faults over in the order of the file.
  void TellFaults() {
    for (auto& [at, fault] : found_) faults_.push_back(std::move(fault));
    found_.clear();
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

 private:
  std::map<std::size_t, Failure> found_;  // by the place of the card
};

}  // namespace qx::exchange
