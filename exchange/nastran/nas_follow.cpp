#include "exchange/nastran/nas_follow.h"

#include <algorithm>
#include <fmt/format.h>
#include <set>

#include "qx_db/platform/text.h"
#include "qx_db/record/verbs.h"

#include "exchange/nastran/nas_tally.h"

namespace qx::exchange {

bool NasHas(const std::vector<Key>& list, Key number) {
  return std::binary_search(list.begin(), list.end(), number);
}

// ---- numbers ------------------------------------------------------------------------------------

NasNumbers::NasNumbers(const tagTCarried& carried, const NasText& text, const Deck& now,
                       const std::map<Key, Key>& systems) {
  const auto are = [&](NasKind kind) -> std::vector<Key>& { return are_[Index(kind)]; };
  are(NasKind::kNode) = now.node_keys;
  for (const Mesh::Element& element : now.elements) are(NasKind::kElement).push_back(element.key);
  for (const tagTCord& system : now.Of<tagTCord>()) are(NasKind::kSystem).push_back(system.key);
  for (const tagTProp& property : now.Of<tagTProp>()) {
    if (property.type != tagTProp::kUndefined) are(NasKind::kProperty).push_back(property.key);
  }
  for (const tagTMatl& material : now.Of<tagTMatl>())
    are(NasKind::kMaterial).push_back(material.key);
  for (auto& list : are_) std::sort(list.begin(), list.end());

  const auto count = static_cast<std::size_t>(carried.places.GetSize());
  std::vector<Key> at_place(count, 0);
  const auto list = [&](const auto& keys, NasKind of) {
    for (const auto& entry : keys) {
      if (entry.place < 0 || static_cast<std::size_t>(entry.place) >= count) continue;
      if (!entry.target || KeyedSetBase::IsRemoved(entry.target)) continue;
      Key number = KeyOf(entry.target);
      if (of == NasKind::kSystem) {
        const auto found = systems.find(number);
        number = found == systems.end() ? 0 : found->second;
      }
      at_place[static_cast<std::size_t>(entry.place)] = number;
    }
  };
  list(carried.node_keys, NasKind::kNode);
  list(carried.element_keys, NasKind::kElement);
  list(carried.system_keys, NasKind::kSystem);
  for (std::size_t i = 0; i < count; ++i) {
    const std::int32_t at = carried.places[static_cast<std::ptrdiff_t>(i)].at;
    places_.emplace_back(static_cast<std::size_t>(std::max(at, 0)), at_place[i]);
  }
  std::sort(places_.begin(), places_.end());
  for (const NasCard& card : text.Cards()) {
    for (const NasKeyField& key : NasKeysOf(text, card).fields) {
      const auto number = key.is_own ? At(card.fields[key.field].at) : std::nullopt;
      if (!number) continue;
      const auto was = static_cast<Key>(*DeckInteger(text.FieldText(card, key.field)));
      were_[Index(key.kind)].push_back(was);
      if (*number != was) renamed_[Index(key.kind)][was] = *number;
    }
  }
  for (auto& numbers : were_) std::sort(numbers.begin(), numbers.end());
}

std::optional<Key> NasNumbers::At(std::size_t place) const {
  const auto described = described_.find(place);
  if (described != described_.end()) return described->second;
  const auto found = std::lower_bound(
      places_.begin(), places_.end(), place,
      [](const std::pair<std::size_t, Key>& a, std::size_t at) { return a.first < at; });
  if (found == places_.end() || found->first != place) return std::nullopt;
  return found->second;
}

Key NasNumbers::Now(NasKind kind, Key was) const {
  const auto& renamed = renamed_[Index(kind)];
  const auto found = renamed.find(was);
  return found == renamed.end() ? was : found->second;
}

void NasNumbers::Describe(NasKind kind, std::size_t place, Key was, Key now) {
  described_[place] = now;
  auto& were = were_[Index(kind)];
  were.insert(std::upper_bound(were.begin(), were.end(), was), was);
  if (now != was) renamed_[Index(kind)][was] = now;
}

void NasNumbers::Rename(NasKind kind, Key was, Key now) {
  if (now != was) renamed_[Index(kind)][was] = now;
}

bool NasNumbers::Was(NasKind kind, Key number) const { return NasHas(Were(kind), number); }
bool NasNumbers::Is(NasKind kind, Key number) const { return NasHas(Are(kind), number); }

bool NasNumbers::HasChanged(NasKind kind) const {
  return !renamed_[Index(kind)].empty() || Were(kind) != Are(kind);
}
bool NasNumbers::HasChanged() const {
  for (std::size_t kind = 0; kind < kNasKinds; ++kind) {
    if (HasChanged(static_cast<NasKind>(kind))) return true;
  }
  return false;
}

std::vector<Key> NasNumbers::InRange(NasKind kind, Key from, Key to, Key step,
                                     bool& is_same) const {
  const auto members = [&](const std::vector<Key>& list) {
    std::vector<Key> found;
    for (auto at = std::lower_bound(list.begin(), list.end(), from); at != list.end() && *at <= to;
         ++at) {
      if ((*at - from) % std::max(step, 1) == 0) found.push_back(*at);
    }
    return found;
  };
  std::vector<Key> now;
  for (const Key was : members(Were(kind))) {
    const Key number = Now(kind, was);
    if (number != 0) now.push_back(number);
  }
  std::sort(now.begin(), now.end());
  is_same = now == members(Are(kind));
  return now;
}

// ---- following ----------------------------------------------------------------------------------

namespace {

/// A list of numbers taken apart.
struct Items {
  struct Item {
    Key from;
    Key to;
    Key step;
    bool is_range;
  };
  std::vector<Item> items;
  std::vector<std::string> rest;  ///< what follows the numbers: a real one
  bool is_odd = false;            ///< something is between them that is no number
  bool has_ranges = false;
};

class Follower {
 public:
  Follower(NasText& text, NasNumbers& numbers, std::vector<NasEdit>& edits)
      : text_(text), numbers_(numbers), edits_(edits) {}

  void Follow(LossReport& report) {
    if (!numbers_.HasChanged()) return;
    MakeRoom();
    for (std::size_t i = 0; i < text_.Cards().size(); ++i) FollowCard(i);
    for (const auto& [name, told] : left_out_) {
      report.Lost(name + " cards were left out", told.count, told.where,
                  "a node, an element or a system that they name is gone");
    }
    for (const auto& [name, told] : shortened_) {
      report.Lost("numbers of what is gone were taken out of " + name + " cards", told.count,
                  told.where, "the nodes, elements or systems are not there any more");
    }
    for (const auto& [name, told] : renumbered_) {
      report.Changed("numbers of " + name + " cards, which only their text has, were changed",
                     told.count, told.where, "the model uses the old ones now");
    }
    for (const auto& [name, told] : unchecked_) {
      report.Changed(name + " cards were not checked against renumbering", told.count, told.where,
                     "it is not known which of their numbers follow the model's");
    }
  }

 private:
  /// Numbers of elements and properties that only the text has, and that new records have now.
  void MakeRoom() {
    for (const NasKind kind : {NasKind::kElement, NasKind::kProperty, NasKind::kMaterial}) {
      if (!numbers_.HasChanged(kind)) continue;
      std::map<Key, std::size_t> taken;
      Key highest = numbers_.Are(kind).empty() ? 0 : numbers_.Are(kind).back();
      for (std::size_t i = 0; i < text_.Cards().size(); ++i) {
        const NasCard& card = text_.Cards()[i];
        for (const NasKeyField& key : NasKeysOf(text_, card).fields) {
          if (!key.is_own || key.kind != kind || numbers_.At(card.fields[key.field].at)) continue;
          const Key number = NumberAt(card, key.field);
          highest = std::max(highest, number);
          const bool may_be_shared = card.name.starts_with("PLOTEL");
          if (!may_be_shared && numbers_.Is(kind, number) && !numbers_.Was(kind, number)) {
            taken.emplace(number, i);
          }
        }
      }
      for (const auto& [number, card] : taken) {
        if (highest == kMaxKey) break;
        numbers_.Rename(kind, number, ++highest);
        renumbered_.Add(text_, text_.Cards()[card]);
      }
    }
  }

  Key NumberAt(const NasCard& card, std::size_t field) const {
    return static_cast<Key>(DeckInteger(text_.FieldText(card, field)).value_or(0));
  }

  void FollowCard(std::size_t index) {
    const NasKeys keys = NasKeysOf(text_, text_.Cards()[index]);
    const NasCard& card = text_.Cards()[index];
    if (!keys.is_known) {
      unchecked_.Add(text_, card);
      return;
    }
    // Cards of defaults go on without a number that is gone.
    bool is_read = card.name == "GRDSET" || card.name == "BAROR" || card.name == "BEAMOR";
    bool is_there = is_read;
    for (const NasKeyField& key : keys.fields) {
      if (!key.is_own) continue;
      const Key was = NumberAt(card, key.field);
      const auto at = numbers_.At(card.fields[key.field].at);
      // A number that only the text has follows where it had to make room.
      const bool is_shared = card.name.starts_with("PLOTEL");
      const Key now = at ? *at : is_shared ? was : numbers_.Now(key.kind, was);
      is_read = is_read || at;
      is_there = is_there || now != 0;
      if (now != was) text_.Change(index, key.field, now == 0 ? "" : fmt::format("{}", now));
    }
    if (is_read && !is_there) return text_.Remove(index);
    if (!FollowFields(index, keys, is_read)) return;
    bool any_list = keys.lists.empty();
    for (const NasKeyList& list : keys.lists) any_list = FollowList(index, list) || any_list;
    if (!any_list) LeaveOut(index);
  }

  void LeaveOut(std::size_t index) {
    left_out_.Add(text_, text_.Cards()[index]);
    text_.Remove(index);
  }

  /// False when the card goes.
  bool FollowFields(std::size_t index, const NasKeys& keys, bool is_read) {
    const NasCard& card = text_.Cards()[index];
    std::size_t groups = 0;
    std::size_t gone_groups = 0;
    for (const NasKeyField& key : keys.fields) {
      if (key.is_own) continue;
      groups += key.group > 0;
      const Key was = NumberAt(card, key.field);
      const Key now = numbers_.Now(key.kind, was);
      if (now == was) continue;
      if (now != 0) {
        text_.Change(index, key.field, fmt::format("{}", now));
        continue;
      }
      if (is_read) {  // what the model holds of it is written anew
        text_.Change(index, key.field, "");
        continue;
      }
      if (key.group == 0) {
        LeaveOut(index);
        return false;
      }
      for (std::size_t f = 0; f < key.group; ++f) text_.Change(index, key.field + f, "");
      ++gone_groups;
    }
    if (gone_groups == 0) return true;
    if (gone_groups == groups) {
      LeaveOut(index);
      return false;
    }
    shortened_.Add(text_, card);
    return true;
  }

  Items ItemsOf(const NasCard& card, const NasKeyList& list) const {
    Items found;
    const auto word = [&](std::size_t f) {
      return AsciiUpper(std::string(text_.FieldText(card, f)));
    };
    std::size_t f = list.first;
    const auto next = [&] {
      for (++f; f < list.end && text_.FieldText(card, f).empty();) ++f;
      return f < list.end ? NumberAt(card, f) : 0;
    };
    for (; f < list.end; ++f) {
      const std::string text = word(f);
      if (text.empty()) continue;
      if (text == "THRU" && !found.items.empty() && !found.items.back().is_range) {
        found.items.back().to = next();
        found.items.back().is_range = found.has_ranges = true;
        found.is_odd = found.is_odd || found.items.back().to == 0;
      } else if (text == "BY" && !found.items.empty() && found.items.back().is_range) {
        found.items.back().step = next();
      } else if (const auto number = DeckInteger(text);
                 number && *number > 0 && *number <= kMaxKey) {
        found.items.push_back({static_cast<Key>(*number), static_cast<Key>(*number), 1, false});
        found.is_odd = found.is_odd || !found.rest.empty();
      } else if (DeckReal(text) && !number) {
        found.rest.emplace_back(text_.FieldText(card, f));
      } else {
        found.is_odd = true;
      }
    }
    return found;
  }

  /// False when nothing of the list is left.
  bool FollowList(std::size_t index, const NasKeyList& list) {
    const NasCard& card = text_.Cards()[index];
    if (!numbers_.HasChanged(list.kind)) return true;
    if (list.form == NasKeyList::Form::kFirstLast) return FollowFirstLast(index, list);
    const Items items = ItemsOf(card, list);
    if (items.items.empty() && !items.is_odd) return true;
    if (items.is_odd || (items.has_ranges && list.form == NasKeyList::Form::kHoles)) {
      unchecked_.Add(text_, card);
      return true;
    }
    if (list.form == NasKeyList::Form::kHoles) return FollowHoles(index, list);
    std::vector<Key> singles;
    std::vector<std::vector<std::string>> ranges;
    bool is_same = true;
    std::size_t gone = 0;
    for (const Items::Item& item : items.items) {
      if (!item.is_range) {
        const Key now = numbers_.Now(list.kind, item.from);
        is_same = is_same && now == item.from;
        gone += now == 0;
        if (now != 0) singles.push_back(now);
        continue;
      }
      bool as_was = true;
      const std::vector<Key> now =
          numbers_.InRange(list.kind, item.from, item.to, item.step, as_was);
      if (as_was) {
        std::vector<std::string> words{fmt::format("{}", item.from), "THRU",
                                       fmt::format("{}", item.to)};
        if (item.step > 1) words.insert(words.end(), {"BY", fmt::format("{}", item.step)});
        ranges.push_back(std::move(words));
      } else {
        is_same = false;
        AddRuns(now, singles, ranges);
      }
    }
    if (is_same) return true;
    if (singles.empty() && ranges.empty()) return false;
    if (gone > 0) shortened_.Add(text_, card);
    WriteList(index, list, singles, ranges, items.rest);
    return true;
  }

  /// Numbers that follow each other as ranges, others one by one.
  static void AddRuns(const std::vector<Key>& numbers, std::vector<Key>& singles,
                      std::vector<std::vector<std::string>>& ranges) {
    for (std::size_t i = 0; i < numbers.size();) {
      std::size_t end = i + 1;
      while (end < numbers.size() && numbers[end] == numbers[end - 1] + 1) ++end;
      if (end - i > 2) {
        ranges.push_back(
            {fmt::format("{}", numbers[i]), "THRU", fmt::format("{}", numbers[end - 1])});
      } else {
        singles.insert(singles.end(), numbers.begin() + static_cast<std::ptrdiff_t>(i),
                       numbers.begin() + static_cast<std::ptrdiff_t>(end));
      }
      i = end;
    }
  }

  void WriteList(std::size_t index, const NasKeyList& list, const std::vector<Key>& singles,
                 const std::vector<std::vector<std::string>>& ranges,
                 const std::vector<std::string>& rest) {
    std::vector<std::vector<std::string>> cards(1);
    for (const Key key : singles) cards[0].push_back(fmt::format("{}", key));
    for (const auto& range : ranges) {
      if (list.form == NasKeyList::Form::kAlone && !cards.back().empty()) cards.emplace_back();
      cards.back().insert(cards.back().end(), range.begin(), range.end());
    }
    cards[0].insert(cards[0].end(), rest.begin(), rest.end());
    const NasCard& card = text_.Cards()[index];
    std::vector<std::string> head;
    for (std::size_t f = 0; f < list.first; ++f) head.emplace_back(text_.FieldText(card, f));
    for (std::size_t f = list.first; f < std::max(list.end, list.first + cards[0].size()); ++f) {
      const std::size_t i = f - list.first;
      text_.Change(index, f, i < cards[0].size() ? cards[0][i] : "");
    }
    cards.erase(cards.begin());
    AddCopies(index, head, cards);
  }

  void AddCopies(std::size_t index, const std::vector<std::string>& head,
                 const std::vector<std::vector<std::string>>& tails) {
    const NasCard& card = text_.Cards()[index];
    const std::size_t end = card.lines.back().end;
    std::string more;
    for (const auto& tail : tails) {
      std::vector<std::string> fields = head;
      fields.insert(fields.end(), tail.begin(), tail.end());
      more += NasCardLines(card.name, std::move(fields));
    }
    if (more.empty()) return;
    if (!std::string_view(text_.Text()).substr(0, end).ends_with('\n')) more.insert(0, "\n");
    edits_.push_back({end, end, std::move(more)});
  }

  bool FollowHoles(std::size_t index, const NasKeyList& list) {
    const NasCard& card = text_.Cards()[index];
    bool any = false;
    bool any_gone = false;
    for (std::size_t f = list.first; f < list.end; ++f) {
      const Key was = NumberAt(card, f);
      if (was == 0) continue;
      const Key now = numbers_.Now(list.kind, was);
      any = any || now != 0;
      any_gone = any_gone || now == 0;
      if (now != was) text_.Change(index, f, now == 0 ? "" : fmt::format("{}", now));
    }
    if (!any) {  // the weight and the components that stand before
      text_.Change(index, list.first - 2, "");
      text_.Change(index, list.first - 1, "");
    } else if (any_gone) {
      shortened_.Add(text_, card);
    }
    return any;
  }

  bool FollowFirstLast(std::size_t index, const NasKeyList& list) {
    const NasCard& card = text_.Cards()[index];
    bool is_same = true;
    const std::vector<Key> now = numbers_.InRange(list.kind, NumberAt(card, list.first),
                                                  NumberAt(card, list.end - 1), 1, is_same);
    if (is_same) return true;
    std::vector<Key> singles;
    std::vector<std::vector<std::string>> runs;
    AddRuns(now, singles, runs);
    for (const Key key : singles) runs.push_back({fmt::format("{}", key), "", ""});
    if (runs.empty()) return false;
    std::vector<std::string> fields;
    for (std::size_t f = 0; f < card.fields.size(); ++f)
      fields.emplace_back(text_.FieldText(card, f));
    std::vector<std::vector<std::string>> copies;
    for (std::size_t i = 0; i < runs.size(); ++i) {
      const std::size_t at[] = {list.first, list.thru, list.end - 1};
      for (std::size_t k = 0; k < 3; ++k) {
        if (i == 0) text_.Change(index, at[k], runs[i][k]);
        if (i > 0) fields[at[k]] = runs[i][k];
      }
      if (i > 0) copies.push_back(fields);
    }
    AddCopies(index, {}, copies);
    return true;
  }

  NasText& text_;
  NasNumbers& numbers_;
  std::vector<NasEdit>& edits_;
  NasTally left_out_;
  NasTally shortened_;
  NasTally renumbered_;
  NasTally unchecked_;
};

}  // namespace

void FollowNasNumbers(NasText& text, NasNumbers& numbers, std::vector<NasEdit>& edits,
                      LossReport& report) {
  Follower(text, numbers, edits).Follow(report);
}

}  // namespace qx::exchange
