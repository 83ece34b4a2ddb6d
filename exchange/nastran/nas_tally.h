#pragma once
// How often something is so with the cards of each name, and where first.
// Threads: shares nothing; one at a time for each object.

#include <fmt/format.h>
#include <map>
#include <string>

#include "exchange/nastran/nas_cards.h"

namespace qx::exchange {

class NasTally {
 public:
  struct Told {
    std::uint64_t count = 0;
    std::string where;  ///< of the first
  };

  void Add(const NasText& text, const NasCard& card) {
    auto of = by_name_.find(card.name);
    if (of == by_name_.end()) of = by_name_.emplace(card.name, Told()).first;
    Told& told = of->second;
    if (++told.count == 1) told.where = text.Place(card);
  }
  std::uint64_t Total() const {
    std::uint64_t total = 0;
    for (const auto& [name, told] : by_name_) total += told.count;
    return total;
  }
  bool IsEmpty() const { return by_name_.empty(); }
  auto begin() const { return by_name_.begin(); }
  auto end() const { return by_name_.end(); }
  /// "FORCE 3, SPC1 1".
  std::string List() const {
    std::string list;
    for (const auto& [name, told] : by_name_) {
      list += fmt::format("{}{} {}", list.empty() ? "" : ", ", name, told.count);
    }
    return list;
  }

 private:
  std::map<std::string, Told, std::less<>> by_name_;
};

}  // namespace qx::exchange
