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
  stretches_[Index(kind)].reset();
  if (now != was) renamed_[Index(kind)][was] = now;
}

void NasNumbers::Rename(NasKind kind, Key was, Key now) {
  stretches_[Index(kind)].reset();
  if (now != was) renamed_[Index(kind)][was] = now;
}

bool NasNumbers::Was(NasKind kind, Key number) const { return NasHas(Were(kind), number); }
bool NasNumbers::Is(NasKind kind, Key number) const { return NasHas(Are(kind), number); }

bool NasNumbers::WasAnyIn(NasKind kind, Key from, Key to) const {
  const auto first = std::lower_bound(Were(kind).begin(), Were(kind).end(), from);
  return (first != Were(kind).end() && *first <= to) || HasTextOnlyIn(kind, from, to);
}

bool NasNumbers::HasChanged(NasKind kind) const {
  return !renamed_[Index(kind)].empty() || Were(kind) != Are(kind);
}
bool NasNumbers::HasChanged() const {
  for (std::size_t kind = 0; kind < kNasKinds; ++kind) {
    if (HasChanged(static_cast<NasKind>(kind))) return true;
  }
  return false;
}

void NasNumbers::ListTextOnly(const NasText& text) {
  if (has_text_only_) return;
  has_text_only_ = true;
  for (const NasCard& card : text.Cards()) {
    if (card.name.starts_with("PLOTEL")) continue;  // may have numbers of other elements
    const NasKeys keys = NasKeysOf(text, card);
    for (const NasKeyField& key : keys.fields) {
      if (!key.is_own || At(card.fields[key.field].at)) continue;
      const auto number = static_cast<Key>(*DeckInteger(text.FieldText(card, key.field)));
      text_only_[Index(key.kind)].push_back({number, number});
    }
    for (const NasKeyList& list : keys.lists) {
      if (!list.is_own) continue;
      for (const NasItems::Item& item : NasItemsOf(text, card, list).items) {
        if (item.to >= item.from) text_only_[Index(list.kind)].push_back({item.from, item.to});
      }
    }
  }
  for (NasRuns& runs : text_only_) runs = NasJoined(std::move(runs));
  for (std::size_t kind = 0; kind < kNasKinds; ++kind) {
    std::set_difference(are_[kind].begin(), are_[kind].end(), were_[kind].begin(),
                        were_[kind].end(), std::back_inserter(newcomers_[kind]));
  }
}

bool NasNumbers::IsTextOnly(NasKind kind, Key number) const {
  const NasRuns& runs = text_only_[Index(kind)];
  const auto behind = std::upper_bound(runs.begin(), runs.end(), number,
                                       [](Key key, const NasRun& run) { return key < run.from; });
  return behind != runs.begin() && std::prev(behind)->to >= number;
}

bool NasNumbers::HasTextOnlyIn(NasKind kind, Key from, Key to) const {
  bool is_same = true;
  return from <= to && !TextOnlyIn(kind, from, to, 1, is_same).empty();
}

Key NasNumbers::NewNumber(NasKind kind) {
  const NasRuns& only = text_only_[Index(kind)];
  const std::vector<Key>& are = Are(kind);
  Key& newest = newest_[Index(kind)];
  if (newest == 0) {
    newest = std::max(are.empty() ? 0 : are.back(), only.empty() ? 0 : only.back().to);
  }
  if (newest < kNasMaxNumber) return ++newest;
  Key& gap = newest_gap_[Index(kind)];
  while (++gap <= kNasMaxNumber) {
    const auto run = std::lower_bound(only.begin(), only.end(), gap,
                                      [](const NasRun& r, Key number) { return r.to < number; });
    if (run != only.end() && run->from <= gap) {
      gap = std::min(run->to, kNasMaxNumber);
    } else if (!NasHas(are, gap)) {
      return gap;
    }
  }
  gap = kNasMaxNumber;
  return 0;
}

std::size_t NasNumbers::CountTextOnly(NasKind kind, Key from, Key to) const {
  bool is_same = true;
  std::size_t count = 0;
  for (const NasRun& run : TextOnlyIn(kind, from, to, 1, is_same)) {
    count += static_cast<std::size_t>(run.to - run.from) + 1;
  }
  return count;
}

NasRuns NasNumbers::TextOnlyIn(NasKind kind, Key from, Key to, Key step, bool& is_same) const {
  NasRuns found;
  const std::map<Key, Key>& renamed = renamed_[Index(kind)];
  const NasRuns& runs = text_only_[Index(kind)];
  auto run = std::lower_bound(runs.begin(), runs.end(), from,
                              [](const NasRun& a, Key number) { return a.to < number; });
  std::vector<Key> single;
  const auto add = [&](Key number) {
    if (const Key now = Now(kind, number)) single.push_back(now);
    is_same = is_same && Now(kind, number) == number;
  };
  for (; run != runs.end() && run->from <= to; ++run) {
    Key begin = std::max(run->from, from);
    const Key end = std::min(run->to, to);
    if (step > 1) {
      for (std::int64_t at = std::int64_t{begin} + (step - (begin - from) % step) % step; at <= end;
           at += step) {
        add(static_cast<Key>(at));
      }
      continue;
    }
    bool is_whole = false;
    for (auto at = renamed.lower_bound(begin); at != renamed.end() && at->first <= end; ++at) {
      if (begin < at->first) found.push_back({begin, at->first - 1});
      add(at->first);
      if (at->first == end) {
        is_whole = true;
        break;
      }
      begin = at->first + 1;
    }
    if (!is_whole && begin <= end) found.push_back({begin, end});
  }
  AddNasRuns(std::move(single), found);
  return found;
}

NasRuns NasNumbers::InRange(NasKind kind, Key from, Key to, Key step, bool& is_same) const {
  const auto has_any = [&](const auto& numbers, auto first, auto key_of) {
    return first != numbers.end() && key_of(*first) <= to;
  };
  const auto& renamed = renamed_[Index(kind)];
  const std::vector<Key>& newcomers = newcomers_[Index(kind)];
  is_same = !has_any(renamed, renamed.lower_bound(from), [](const auto& r) { return r.first; }) &&
            !has_any(newcomers, std::lower_bound(newcomers.begin(), newcomers.end(), from),
                     [](Key key) { return key; });
  if (is_same) return {};
  NasRuns runs =
      step > 1 ? MovedBySteps(kind, from, to, step, is_same) : Moved(kind, from, to, is_same);
  const NasRuns only = TextOnlyIn(kind, from, to, step, is_same);
  runs.insert(runs.end(), only.begin(), only.end());
  return NasJoined(std::move(runs));
}

NasRuns NasNumbers::Moved(NasKind kind, Key from, Key to, bool& is_same) const {
  const std::vector<Stretch>& stretches = StretchesOf(kind);
  auto at = std::lower_bound(stretches.begin(), stretches.end(), from,
                             [](const Stretch& s, Key number) { return s.to < number; });
  // The same range names these where the model has them all, and no others, in it.
  const std::vector<Key>& are = Are(kind);
  const auto count_of = [&are](Key first, Key last) {
    const auto begin = std::lower_bound(are.begin(), are.end(), first);
    return std::upper_bound(begin, are.end(), last) - begin;
  };
  NasRuns runs;
  is_same = true;
  for (; at != stretches.end() && at->from <= to; ++at) {
    if (at->now == 0) continue;
    const Key shift = at->now - at->from;
    const NasRun run{std::max(at->from, from) + shift, std::min(at->to, to) + shift};
    is_same = is_same && run.from >= from && run.to <= to &&
              count_of(run.from, run.to) == run.to - run.from + 1;
    runs.push_back(run);
  }
  if (!is_same) return runs;
  std::ptrdiff_t count = 0;
  for (const NasRun& run : NasJoined(runs)) count += run.to - run.from + 1;
  is_same = count_of(from, to) == count;
  return runs;
}

NasRuns NasNumbers::MovedBySteps(NasKind kind, Key from, Key to, Key step, bool& is_same) const {
  const auto members = [&](const std::vector<Key>& list) {
    std::vector<Key> found;
    auto at = std::lower_bound(list.begin(), list.end(), from);
    while (at != list.end() && *at <= to) {
      const Key beyond = (*at - from) % step;
      if (beyond == 0) found.push_back(*at);
      const std::int64_t next = std::int64_t{*at} - beyond + step;
      if (next > to) break;
      // Numbers are mostly in a row: the next is no further on in the list than it is greater.
      const auto most = std::min<std::int64_t>(list.end() - at, next - *at);
      at = std::lower_bound(at + 1, at + most, static_cast<Key>(next));
    }
    return found;
  };
  std::vector<Key> now;
  for (const Key was : members(Were(kind))) {
    if (const Key number = Now(kind, was)) now.push_back(number);
  }
  std::sort(now.begin(), now.end());
  is_same = now == members(Are(kind));
  NasRuns runs;
  AddNasRuns(std::move(now), runs);
  return runs;
}

const std::vector<NasNumbers::Stretch>& NasNumbers::StretchesOf(NasKind kind) const {
  auto& stretches = stretches_[Index(kind)];
  if (stretches) return *stretches;
  stretches.emplace();
  const std::map<Key, Key>& renamed = renamed_[Index(kind)];
  auto change = renamed.begin();
  for (const Key was : Were(kind)) {
    while (change != renamed.end() && change->first < was) ++change;
    const Key now = change != renamed.end() && change->first == was ? change->second : was;
    if (!stretches->empty()) {
      Stretch& last = stretches->back();
      const bool follows = last.to != kMaxKey && last.to + 1 == was;
      const bool moves_along =
          now == 0 ? last.now == 0 : last.now != 0 && now - was == last.now - last.from;
      if (last.to == was) continue;  // of two that the text describes under one number
      if (follows && moves_along) {
        last.to = was;
        continue;
      }
    }
    stretches->push_back({was, was, now});
  }
  return *stretches;
}

NasRuns NasJoined(NasRuns runs) {
  std::sort(runs.begin(), runs.end(),
            [](const NasRun& a, const NasRun& b) { return a.from < b.from; });
  NasRuns joined;
  for (const NasRun& run : runs) {
    if (!joined.empty() && run.from - 1 <= joined.back().to) {
      joined.back().to = std::max(joined.back().to, run.to);
    } else {
      joined.push_back(run);
    }
  }
  return joined;
}

void AddNasRuns(std::vector<Key> numbers, NasRuns& runs) {
  std::sort(numbers.begin(), numbers.end());
  for (std::size_t i = 0; i < numbers.size();) {
    std::size_t end = i + 1;
    while (end < numbers.size() && numbers[end] - 1 <= numbers[end - 1]) ++end;
    runs.push_back({numbers[i], numbers[end - 1]});
    i = end;
  }
}

// ---- following ----------------------------------------------------------------------------------

namespace {

class Follower {
 public:
  Follower(NasText& text, NasNumbers& numbers, std::vector<NasEdit>& edits,
           const Progress& progress)
      : text_(text), numbers_(numbers), edits_(edits), steps_(progress, text.Cards().size()) {
    // As many as no deck has that somebody works with: a few cards must not fill the memory.
    const std::size_t all =
        numbers.Are(NasKind::kNode).size() + numbers.Are(NasKind::kElement).size();
    room_ = static_cast<std::int64_t>(std::clamp<std::size_t>(10 * all, 1 << 20, 1 << 24));
  }

  Outcome Follow(const std::string& path, LossReport& report) {
    if (!numbers_.HasChanged()) return {};
    numbers_.ListTextOnly(text_);
    MakeRoom();
    ListSetKinds();
    for (std::size_t i = 0; i < text_.Cards().size(); ++i) {
      steps_.Step();
      FollowCard(i);
      if (room_ >= 0) continue;
      std::string file;
      return Failure{path, text_.Place(text_.Cards()[i].begin, file),
                     "its ranges, and those before it, come to many times more numbers than the "
                     "model has",
                     "renumber nodes and elements that ranges name in the order that they had"};
    }
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
    return {};
  }

 private:
  /// Numbers that only the text has, and that new records have now.
  void MakeRoom() {
    std::map<std::pair<NasKind, Key>, Key> made;
    for (const NasKind kind :
         {NasKind::kNode, NasKind::kElement, NasKind::kProperty, NasKind::kMaterial}) {
      for (const Key number : numbers_.Are(kind)) {
        if (numbers_.Was(kind, number) || !numbers_.IsTextOnly(kind, number)) continue;
        made[{kind, number}] = numbers_.NewNumber(kind);
      }
    }
    for (const auto& [of, now] : made) numbers_.Rename(of.first, of.second, now);
    if (made.empty()) return;
    for (const NasCard& card : text_.Cards()) {
      const NasKeys keys = NasKeysOf(text_, card);
      bool is_renamed = false;
      for (const NasKeyField& key : keys.fields) {
        is_renamed = is_renamed || (key.is_own && !numbers_.At(card.fields[key.field].at) &&
                                    made.contains({key.kind, NumberAt(card, key.field)}));
      }
      for (const NasKeyList& list : keys.lists) {
        if (!list.is_own) continue;
        for (const NasItems::Item& item : NasItemsOf(text_, card, list).items) {
          const auto first = made.lower_bound({list.kind, item.from});
          is_renamed = is_renamed || (first != made.end() && first->first.first == list.kind &&
                                      first->first.second <= item.to);
        }
      }
      if (is_renamed) renumbered_.Add(text_, card);
    }
  }

  /// What each SET1 lists: what the cards that name it want.
  void ListSetKinds() {
    for (const NasCard& card : text_.Cards()) {
      for (const NasSetField& set : NasKeysOf(text_, card).sets) {
        set_kinds_[NumberAt(card, set.field)].insert(set.kind);
      }
    }
  }

  /// The kind of the list of a card; none where it is not known: what names it wants both, or
  /// nothing does and not just one kind has all of its numbers.
  std::optional<NasKind> KindOf(const NasCard& card, const NasKeyList& list) const {
    if (!list.is_of_users) return list.kind;
    const auto named = set_kinds_.find(NumberAt(card, 0));
    if (named != set_kinds_.end()) {
      if (named->second.size() == 1) return *named->second.begin();
      return std::nullopt;
    }
    std::optional<NasKind> kind;
    for (const NasKind each : {NasKind::kNode, NasKind::kElement}) {
      bool has_all = true;
      for (const NasItems::Item& item : NasItemsOf(text_, card, list).items) {
        has_all = has_all && numbers_.WasAnyIn(each, item.from, item.to);
      }
      if (has_all && kind) return std::nullopt;
      if (has_all) kind = each;
    }
    return kind;
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

  /// False when nothing of the list is left.
  bool FollowList(std::size_t index, const NasKeyList& list) {
    const NasCard& card = text_.Cards()[index];
    const std::optional<NasKind> kind = KindOf(card, list);
    if (!kind) {
      unchecked_.Add(text_, card);
      return true;
    }
    if (!numbers_.HasChanged(*kind)) return true;
    if (list.form == NasKeyList::Form::kFirstLast) return FollowFirstLast(index, list);
    const NasItems items = NasItemsOf(text_, card, list);
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
    for (const NasItems::Item& item : items.items) {
      if (!item.is_range) {
        const Key now = numbers_.Now(*kind, item.from);
        is_same = is_same && now == item.from;
        gone += now == 0;
        if (now != 0) singles.push_back(now);
        continue;
      }
      constexpr std::size_t kMostBySteps = 1 << 20;
      if (item.step > 1 && numbers_.CountTextOnly(*kind, item.from, item.to) > kMostBySteps) {
        unchecked_.Add(text_, card);
        return true;
      }
      bool as_was = true;
      const NasRuns now = InRange(*kind, item.from, item.to, item.step, as_was);
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

  NasRuns InRange(NasKind kind, Key from, Key to, Key step, bool& is_same) {
    NasRuns runs = numbers_.InRange(kind, from, to, step, is_same);
    for (std::size_t i = 0; i < runs.size(); ++i) steps_.Step();
    room_ -= static_cast<std::int64_t>(runs.size());
    if (room_ < 0) runs.clear();
    return runs;
  }

  /// Runs of three and more as ranges, others one by one.
  static void AddRuns(const NasRuns& runs, std::vector<Key>& singles,
                      std::vector<std::vector<std::string>>& ranges) {
    for (const NasRun& run : runs) {
      if (run.to - run.from > 1) {
        ranges.push_back({fmt::format("{}", run.from), "THRU", fmt::format("{}", run.to)});
        continue;
      }
      singles.push_back(run.from);
      if (run.to != run.from) singles.push_back(run.to);
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
    const NasRuns now =
        InRange(list.kind, NumberAt(card, list.first), NumberAt(card, list.end - 1), 1, is_same);
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
  StepCounter steps_;
  std::int64_t room_;                           // numbers and ranges that ranges may still become
  std::map<Key, std::set<NasKind>> set_kinds_;  // of SET1, by number
  NasTally left_out_;
  NasTally shortened_;
  NasTally renumbered_;
  NasTally unchecked_;
};

}  // namespace

Outcome FollowNasNumbers(NasText& text, NasNumbers& numbers, std::vector<NasEdit>& edits,
                         const std::string& path, LossReport& report, const Progress& progress) {
  return Follower(text, numbers, edits, progress).Follow(path, report);
}

}  // namespace qx::exchange
