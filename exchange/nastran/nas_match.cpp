#include "exchange/nastran/nas_match.h"

#include <fmt/format.h>
#include <map>
#include <set>

#include "exchange/nastran/nas_properties.h"

namespace qx::exchange {
namespace {

/// Where the cards of properties or materials stand in a text, and what the records of them are
/// called that a reader makes.
struct Described {
  struct Card {
    std::size_t index;
    Key number;
    std::string name;
  };
  std::vector<Card> cards;

  Described(const NasText& text, NasKind kind, const std::vector<NasName>& names) {
    for (std::size_t i = 0; i < text.Cards().size(); ++i) {
      const NasCard& card = text.Cards()[i];
      if (!(kind == NasKind::kMaterial ? IsNasMaterial(card.name) : IsNasProperty(card.name))) {
        continue;
      }
      const auto number = DeckInteger(text.FieldText(card, 0));
      if (!number || *number < 1 || *number > kMaxKey) continue;
      cards.push_back({i, static_cast<Key>(*number), fmt::format("{} {}", card.name, *number)});
      for (const NasName& name : names) {
        if (name.kind == kind && name.number == *number) cards.back().name = name.name;
      }
    }
  }
};

/// Finds the records of cards again: by the name that a reader gives, else by the number.
template <class T>
void Match(const NasText& text, NasKind kind, const std::vector<T>& now,
           const std::vector<NasName>& names, NasNumbers& numbers, NasCardText::Names& cards) {
  const Described described(text, kind, names);
  std::multimap<std::string, Key> by_name;
  std::set<Key> there;
  for (const T& record : now) {
    by_name.emplace(Utf8(record.name.View()), record.key);
    there.insert(record.key);
  }
  std::vector<Key> found(described.cards.size(), 0);
  std::set<Key> used;
  for (const bool same_number : {true, false}) {
    for (std::size_t i = 0; i < found.size(); ++i) {
      const auto [begin, end] = by_name.equal_range(described.cards[i].name);
      for (auto at = begin; at != end && found[i] == 0; ++at) {
        if (used.contains(at->second) || (same_number && at->second != described.cards[i].number))
          continue;
        used.insert(found[i] = at->second);
      }
    }
  }
  for (std::size_t i = 0; i < found.size(); ++i) {
    const Described::Card& card = described.cards[i];
    if (found[i] == 0 && there.contains(card.number) && used.insert(card.number).second) {
      found[i] = card.number;
    }
    const NasCard& of = text.Cards()[card.index];
    numbers.Describe(kind, of.fields[0].at, card.number, found[i]);
    if (found[i] != 0) cards[found[i]] = std::string(of.name);
  }
}

}  // namespace

void MatchNasRecords(const NasText& text, const Deck& now, const std::vector<NasName>& names,
                     NasNumbers& numbers, NasCardText::Names& property_cards,
                     NasCardText::Names& material_cards) {
  Match(text, NasKind::kProperty, now.Of<tagTProp>(), names, numbers, property_cards);
  Match(text, NasKind::kMaterial, now.Of<tagTMatl>(), names, numbers, material_cards);
}

}  // namespace qx::exchange
