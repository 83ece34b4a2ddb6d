#include "exchange/nastran/nas_control.h"

#include <algorithm>
#include <charconv>
#include <fmt/format.h>
#include <set>

#include "qx_db/platform/text.h"

#include "exchange/nastran/nas_names.h"
#include "exchange/nastran/nas_reader.h"

namespace qx::exchange {
namespace {

/// Output commands by their first four letters: what the sets that they name list.
constexpr std::string_view kOfNodes[] = {"DISP", "VELO", "ACCE", "SPCF", "MPCF", "OLOA", "GPFO",
                                         "VECT", "PRES", "THER", "SDIS", "SVEL", "SACC", "NLLO"};
constexpr std::string_view kOfElements[] = {"STRE", "STRA", "FORC", "ELFO", "ELST", "ESE",
                                            "EKE",  "EDE",  "NLST", "FLUX", "ELSD"};

template <class List>
bool IsIn(const List& list, std::string_view word) {
  return std::find(std::begin(list), std::end(list), word) != std::end(list);
}

std::string_view Trim(std::string_view text) {
  constexpr std::string_view kBlanks = " \t\r\n";
  const std::size_t begin = text.find_first_not_of(kBlanks);
  if (begin == std::string_view::npos) return {};
  return text.substr(begin, text.find_last_not_of(kBlanks) - begin + 1);
}

bool Take(std::string_view& text, std::string_view word) {
  if (!text.starts_with(word)) return false;
  text.remove_prefix(word.size());
  return true;
}

Key TakeNumber(std::string_view& text) {
  Key number = 0;
  const char* stop = std::from_chars(text.data(), text.data() + text.size(), number).ptr;
  text.remove_prefix(static_cast<std::size_t>(stop - text.data()));
  return number;
}

/// What the comment before a set says.
struct Title {
  Key number = 0;
  enum class Lists { kElements, kNodes, kNothing } lists = Lists::kElements;
  std::string name;
  Key more_of = 0;  ///< the set whose nodes these are
  Key parent = 0;
  std::size_t begin = 0;
  std::size_t end = 0;

  std::string Line() const {
    constexpr std::string_view kWords[] = {"elements", "nodes", "nothing"};
    std::string line = fmt::format("$ Set {}: {} of ", number, kWords[static_cast<int>(lists)]);
    line += more_of ? fmt::format("set {}", more_of) : NasQuoted(name);
    if (parent) line += fmt::format(", part of set {}", parent);
    return line + '\n';
  }
  static std::optional<Title> Of(std::string_view line) {
    Title title;
    if (!Take(line, "$ Set ")) return std::nullopt;
    title.number = TakeNumber(line);
    if (title.number < 1 || !Take(line, ": ")) return std::nullopt;
    if (Take(line, "nodes of ")) {
      title.lists = Lists::kNodes;
    } else if (Take(line, "nothing of ")) {
      title.lists = Lists::kNothing;
    } else if (!Take(line, "elements of ")) {
      return std::nullopt;
    }
    if (Take(line, "set ")) {
      title.more_of = TakeNumber(line);
    } else if (auto name = NasUnquoted(line)) {
      title.name = std::move(*name);
    } else {
      return std::nullopt;
    }
    if (Take(line, ", part of set ")) title.parent = TakeNumber(line);
    return title;
  }
};

/// A set as the text has it.
struct TextSet {
  struct Range {
    Key from;
    Key to;
    std::vector<Key> except;
  };
  Key number = 0;
  std::vector<Range> ranges;
  bool is_list = true;  ///< of numbers: not of something else, and the only one with its number
  std::size_t begin = 0;
  std::size_t end = 0;

  /// Those of an ascending list that are in it.
  std::vector<Key> Of(const std::vector<Key>& all) const {
    std::set<Key> found;
    for (const Range& range : ranges) {
      for (auto at = std::lower_bound(all.begin(), all.end(), range.from);
           at != all.end() && *at <= range.to; ++at) {
        if (!NasHas(range.except, *at)) found.insert(*at);
      }
    }
    return {found.begin(), found.end()};
  }
};

/// The control section taken apart.
struct Control {
  std::vector<TextSet> sets;
  std::map<Key, Title> titles;
  std::set<Key> by_nodes;  ///< sets that commands about nodes name
  std::set<Key> by_elements;
  std::set<Key> named;     ///< that any command names
  std::size_t behind = 0;  ///< where new sets go: behind CEND
  bool is_there = false;

  explicit Control(const NasText& text);

 private:
  void AddSet(std::string_view items, TextSet set);
  void AddCommand(std::string_view line);
};

Control::Control(const NasText& text) {
  const std::string_view all = std::string_view(text.Text()).substr(0, text.BulkBegin());
  is_there = !all.empty();
  bool is_plot = false;
  for (std::size_t at = 0; at < all.size();) {
    std::size_t end = std::min(all.find('\n', at), all.size() - 1) + 1;
    const std::string_view whole = Trim(all.substr(at, end - at));
    if (auto title = Title::Of(whole)) {
      title->begin = at;
      title->end = end;
      titles[title->number] = *title;
    }
    std::string line = AsciiUpper(std::string(Trim(whole.substr(0, whole.find('$')))));
    if (line.starts_with("BEGIN") && behind == 0) behind = at;
    if (line.starts_with("CEND")) behind = end;
    is_plot = is_plot || line.starts_with("OUTPUT(") || line.starts_with("OUTPUT (");
    std::string_view rest = line;
    if (!is_plot && Take(rest, "SET") && rest.starts_with(' ')) {
      TextSet set;
      set.begin = at;
      while (line.ends_with(',') && end < all.size()) {
        const std::size_t next = std::min(all.find('\n', end), all.size() - 1) + 1;
        const std::string_view more = Trim(all.substr(end, next - end));
        line += " " + AsciiUpper(std::string(Trim(more.substr(0, more.find('$')))));
        end = next;
      }
      rest = std::string_view(line).substr(3);
      rest = Trim(rest);
      set.number = TakeNumber(rest);
      rest = Trim(rest);
      set.end = end;
      if (set.number > 0 && Take(rest, "=")) AddSet(rest, std::move(set));
    } else {
      AddCommand(line);
    }
    at = end;
  }
}

void Control::AddSet(std::string_view items, TextSet set) {
  std::vector<std::string_view> words;
  while (!items.empty()) {
    const std::size_t begin = items.find_first_not_of(" ,\t");
    if (begin == std::string_view::npos) break;
    items.remove_prefix(begin);
    const std::size_t end = std::min(items.find_first_of(" ,\t"), items.size());
    words.push_back(items.substr(0, end));
    items.remove_prefix(end);
  }
  bool is_except = false;
  for (std::size_t i = 0; i < words.size() && set.is_list; ++i) {
    if (words[i] == "EXCEPT") {
      is_except = !set.ranges.empty();
      set.is_list = is_except;
      continue;
    }
    if (words[i] == "THRU") {
      const auto to = i + 1 < words.size() ? DeckInteger(words[i + 1]) : std::nullopt;
      set.is_list = to && *to > 0 && *to <= kMaxKey && !set.ranges.empty();
      if (set.is_list) set.ranges.back().to = static_cast<Key>(*to);
      ++i;
      is_except = false;
      continue;
    }
    const auto number = DeckInteger(words[i]);
    set.is_list = number && *number > 0 && *number <= kMaxKey;
    if (!set.is_list) break;
    const auto key = static_cast<Key>(*number);
    if (is_except && key <= set.ranges.back().to) {
      auto& except = set.ranges.back().except;
      except.insert(std::upper_bound(except.begin(), except.end(), key), key);
    } else {
      is_except = false;
      set.ranges.push_back({key, key, {}});
    }
  }
  set.is_list = set.is_list && !set.ranges.empty();
  for (TextSet& other : sets) {
    if (other.number == set.number) other.is_list = set.is_list = false;
  }
  sets.push_back(std::move(set));
}

/// "DISP(PLOT) = 5".
void Control::AddCommand(std::string_view line) {
  const std::size_t equals = line.rfind('=');
  if (equals == std::string_view::npos) return;
  const auto number = DeckInteger(Trim(line.substr(equals + 1)));
  if (!number || *number < 1 || *number > kMaxKey) return;
  const auto set = static_cast<Key>(*number);
  const std::size_t end = line.find_first_of(" (=");
  const std::string_view word = line.substr(0, std::min<std::size_t>(end, 4));
  const bool is_nodes = IsIn(kOfNodes, word);
  const bool is_elements = IsIn(kOfElements, word);
  if (is_nodes) by_nodes.insert(set);
  if (is_elements) by_elements.insert(set);
  if (is_nodes || is_elements) named.insert(set);
}

/// What a set lists: what its comment says, what the commands that name it are about, or what alone
/// has all of its numbers.
std::optional<NasKind> KindOf(const TextSet& set, const Control& control,
                              const std::vector<Key>& nodes, const std::vector<Key>& elements) {
  if (!set.is_list) return std::nullopt;
  const auto title = control.titles.find(set.number);
  if (title != control.titles.end()) {
    return title->second.lists == Title::Lists::kNodes ? NasKind::kNode : NasKind::kElement;
  }
  const bool is_nodes = control.by_nodes.contains(set.number);
  const bool is_elements = control.by_elements.contains(set.number);
  if (is_nodes != is_elements) return is_nodes ? NasKind::kNode : NasKind::kElement;
  const bool any_nodes = !set.Of(nodes).empty();
  const bool any_elements = !set.Of(elements).empty();
  if (is_nodes || any_nodes == any_elements) return std::nullopt;
  return any_nodes ? NasKind::kNode : NasKind::kElement;
}

}  // namespace

// ---- in -----------------------------------------------------------------------------------------

void ReadNasSets(const NasText& text, Deck& deck) {
  const Control control(text);
  if (control.sets.empty() && control.titles.empty()) return;
  std::vector<Key> nodes = deck.node_keys;
  std::vector<Key> elements;
  for (const Mesh::Element& element : deck.elements) elements.push_back(element.key);
  std::sort(nodes.begin(), nodes.end());
  std::sort(elements.begin(), elements.end());
  std::map<Key, std::int32_t> group_of;  // by the number of the set
  std::string unread;
  const auto title_of = [&](Key number) {
    const auto title = control.titles.find(number);
    return title == control.titles.end() ? Title{} : title->second;
  };
  const auto new_group = [&](Key number) -> Mesh::Group& {
    const Title title = title_of(number);
    group_of[number] = static_cast<std::int32_t>(deck.groups.size());
    Mesh::Group& group = deck.groups.emplace_back();
    group.name = title.number ? title.name : fmt::format("SET {}", number);
    return group;
  };
  for (const TextSet& set : control.sets) {
    const auto kind = KindOf(set, control, nodes, elements);
    if (!kind) {
      unread += fmt::format("{}{}", unread.empty() ? "" : ", ", set.number);
      continue;
    }
    const auto more_of = group_of.find(title_of(set.number).more_of);
    Mesh::Group& group = more_of == group_of.end()
                             ? new_group(set.number)
                             : deck.groups[static_cast<std::size_t>(more_of->second)];
    const bool of_nodes = *kind == NasKind::kNode;
    (of_nodes ? group.nodes : group.elements) = set.Of(of_nodes ? nodes : elements);
    group.tags.push_back({of_nodes ? tagTSetTag::kNodes : tagTSetTag::kElements,
                          -1,
                          set.number,
                          control.titles.contains(set.number),
                          {}});
  }
  for (const auto& [number, title] : control.titles) {
    if (title.lists == Title::Lists::kNothing && !group_of.contains(number)) {
      new_group(number).tags.push_back({tagTSetTag::kElements, -1, number, true, {}});
    }
  }
  for (const auto& [number, title] : control.titles) {
    const auto child = group_of.find(number);
    const auto parent = group_of.find(title.parent);
    if (child == group_of.end() || parent == group_of.end()) continue;
    std::int32_t above = parent->second;
    while (above >= 0 && above != child->second) {
      above = deck.groups[static_cast<std::size_t>(above)].parent;
    }
    if (above >= 0) continue;  // it would be a part of itself
    deck.groups[static_cast<std::size_t>(child->second)].parent = parent->second;
  }
  if (!unread.empty()) {
    deck.report.Assumed("sets of the case control carried as text: SET " + unread,
                        "they list no numbers, or it is not known whether of nodes or of elements");
  }
}

// ---- out ----------------------------------------------------------------------------------------

namespace {

/// "SET 5 = 1 THRU 20, 25" in lines of at most 72 columns.
std::string SetLines(Key number, std::vector<Key> members) {
  constexpr std::size_t kWidth = 71;
  std::sort(members.begin(), members.end());
  members.erase(std::unique(members.begin(), members.end()), members.end());
  std::string text = fmt::format("SET {} = ", number);
  std::size_t line = 0;
  for (std::size_t i = 0; i < members.size();) {
    std::size_t end = i + 1;
    while (end < members.size() && members[end] == members[end - 1] + 1) ++end;
    if (end - i < 3) end = i + 1;
    std::string item = end - i > 1 ? fmt::format("{} THRU {}", members[i], members[end - 1])
                                   : fmt::format("{}", members[i]);
    if (end < members.size()) item += ',';
    if (text.size() + item.size() + 1 - line > kWidth) {
      while (text.ends_with(' ')) text.pop_back();
      text += "\n      ";
      line = text.size() - 6;
    }
    text += item;
    if (end < members.size()) text += ' ';
    i = end;
  }
  return text + '\n';
}

/// A group as sets of the format.
struct Wanted {
  Title title;
  NasKind kind = NasKind::kElement;
  std::vector<Key> members;
};

class SetWriter {
 public:
  SetWriter(const NasText& text, const NasNumbers& numbers, const Deck& now,
            const std::vector<Mesh::Group>& groups, const NasSetTags& tags)
      : control_(text), numbers_(numbers), now_(now), groups_(groups), tags_(tags) {
    for (const TextSet& set : control_.sets) taken_.insert(set.number);
    for (const auto& [key, of] : tags) {
      if (of.elements) taken_.insert(of.elements);
      if (of.nodes) taken_.insert(of.nodes);
    }
  }

  void Write(std::vector<NasEdit>& edits, std::string& head, LossReport& report) {
    ListWanted();
    std::set<Key> kept;
    std::string stay;
    std::uint64_t unchecked = 0;
    for (const TextSet& set : control_.sets) {
      kept.insert(set.number);
      const auto kind =
          KindOf(set, control_, numbers_.Were(NasKind::kNode), numbers_.Were(NasKind::kElement));
      if (!kind) {
        unchecked += numbers_.HasChanged() && !set.ranges.empty();
        continue;
      }
      const auto wanted = wanted_.find(set.number);
      if (wanted != wanted_.end() && wanted->second.title.lists != Title::Lists::kNothing) {
        Change(set, *kind, wanted->second, edits);
      } else if (control_.named.contains(set.number)) {
        stay += fmt::format("{}{}", stay.empty() ? "" : ", ", set.number);
      } else {
        edits.push_back({set.begin, set.end, ""});
        if (wanted == wanted_.end()) {
          Drop(set.number, edits);
        } else {
          Retitle(wanted->second.title, set.begin, edits);
        }
      }
    }
    std::string added;
    for (const auto& [number, wanted] : wanted_) {
      if (kept.contains(number)) continue;
      const bool is_empty = wanted.title.lists == Title::Lists::kNothing;
      const auto title = control_.titles.find(number);
      if (is_empty && title != control_.titles.end()) {
        Retitle(wanted.title, title->second.begin, edits);
        continue;
      }
      added += wanted.title.Line();
      if (!is_empty) added += SetLines(number, wanted.members);
    }
    for (const auto& [number, title] : control_.titles) {
      if (title.lists == Title::Lists::kNothing && !wanted_.contains(number)) Drop(number, edits);
    }
    if (!added.empty() && control_.is_there) {
      edits.push_back({control_.behind, control_.behind, added});
    } else if (!added.empty()) {
      head = "SOL 101\nCEND\n" + added + "BEGIN BULK\n";
      report.Assumed("a control section was put before the deck", "mesh sets are sets of it");
    }
    report.Lost("sets of the case control were not checked against renumbering", unchecked,
                "before BEGIN BULK", "it is not known whether they list nodes or elements");
    if (!stay.empty()) {
      report.Changed("sets of mesh sets that are gone or empty were left in the case control", 1,
                     "SET " + stay, "commands name them");
    }
  }

 private:
  Key NewNumber() {
    while (taken_.contains(next_)) ++next_;
    taken_.insert(next_);
    return next_;
  }

  void ListWanted() {
    std::set<std::int32_t> of_outputs;
    for (const tagTMeshCsys& assigned : now_.Of<tagTMeshCsys>()) {
      of_outputs.insert(static_cast<std::int32_t>(assigned.mesh_set) - 1);
    }
    std::map<std::int32_t, Key> number_of;
    for (std::size_t i = 0; i < groups_.size(); ++i) {
      const Mesh::Group& group = groups_[i];
      const auto index = static_cast<std::int32_t>(i);
      if (of_outputs.contains(index) && group.name.starts_with(kNasOutputSet)) continue;
      const auto tag = tags_.find(group.key);
      NasSetNumbers number = tag == tags_.end() ? NasSetNumbers() : tag->second;
      Wanted first;
      first.title.name = group.name;
      const bool by_nodes = group.elements.empty() && !group.nodes.empty();
      Key& own = by_nodes ? number.nodes : number.elements;
      // Sets of two decks may have come with one number.
      if (own == 0 || wanted_.contains(own)) own = NewNumber();
      first.title.number = own;
      number_of[index] = own;
      first.kind = by_nodes ? NasKind::kNode : NasKind::kElement;
      first.title.lists = by_nodes                 ? Title::Lists::kNodes
                          : group.elements.empty() ? Title::Lists::kNothing
                                                   : Title::Lists::kElements;
      first.members = by_nodes ? group.nodes : group.elements;
      wanted_[own] = first;
      if (by_nodes || group.nodes.empty()) continue;
      Wanted more;
      const bool is_free = number.nodes != 0 && !wanted_.contains(number.nodes);
      more.title.number = is_free ? number.nodes : NewNumber();
      more.title.lists = Title::Lists::kNodes;
      more.title.more_of = own;
      more.kind = NasKind::kNode;
      more.members = group.nodes;
      wanted_[more.title.number] = std::move(more);
    }
    for (const auto& [index, number] : number_of) {
      const auto parent = number_of.find(groups_[static_cast<std::size_t>(index)].parent);
      if (parent != number_of.end()) wanted_[number].title.parent = parent->second;
    }
  }

  void Change(const TextSet& set, NasKind kind, const Wanted& wanted, std::vector<NasEdit>& edits) {
    std::vector<Key> members = wanted.members;
    std::sort(members.begin(), members.end());
    const bool is_same = kind == wanted.kind && set.Of(numbers_.Are(kind)) == members;
    if (!is_same) {
      // What only the text has, such as rigid elements, stays.
      for (const TextSet::Range& range : set.ranges) {
        if (range.from != range.to || numbers_.Was(kind, range.from)) continue;
        const Key now = numbers_.Now(kind, range.from);
        if (!numbers_.Is(kind, now)) members.push_back(now);
      }
      edits.push_back({set.begin, set.end, SetLines(set.number, members)});
    }
    const auto title = control_.titles.find(set.number);
    const bool is_plain = wanted.title.name == fmt::format("SET {}", set.number) &&
                          !wanted.title.more_of && !wanted.title.parent;
    const bool is_clear = control_.named.contains(set.number) || !numbers_.HasChanged();
    if (title == control_.titles.end() && is_plain && is_clear) return;
    Retitle(wanted.title, set.begin, edits);
  }

  void Retitle(const Title& title, std::size_t before, std::vector<NasEdit>& edits) {
    const auto was = control_.titles.find(title.number);
    if (was == control_.titles.end()) {
      edits.push_back({before, before, title.Line()});
    } else if (was->second.Line() != title.Line()) {
      edits.push_back({was->second.begin, was->second.end, title.Line()});
    }
  }

  void Drop(Key number, std::vector<NasEdit>& edits) {
    const auto title = control_.titles.find(number);
    if (title != control_.titles.end())
      edits.push_back({title->second.begin, title->second.end, ""});
  }

  const Control control_;
  const NasNumbers& numbers_;
  const Deck& now_;
  const std::vector<Mesh::Group>& groups_;
  const NasSetTags& tags_;
  std::set<Key> taken_;
  std::map<Key, Wanted> wanted_;
  Key next_ = 1;
};

}  // namespace

void WriteNasSets(const NasText& text, const NasNumbers& numbers, const Deck& now,
                  const std::vector<Mesh::Group>& groups, const NasSetTags& tags,
                  std::vector<NasEdit>& edits, std::string& head, LossReport& report) {
  SetWriter(text, numbers, now, groups, tags).Write(edits, head, report);
}

}  // namespace qx::exchange
