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

/// Commands whose numbers are those of no SET, and titles, by their first four letters.
constexpr std::string_view kOfNoSet[] = {
    "SUBC", "SUBT", "SUBS", "LOAD", "SPC",  "MPC",  "METH", "CMET", "FREQ", "TSTE", "NLPA",
    "NLPC", "DLOA", "TEMP", "IC",   "SUPO", "SDAM", "STAT", "TRIM", "FMET", "DESO", "DESS",
    "DEFO", "BC",   "CLOA", "GUST", "RAND", "TFL",  "REPC", "SYM",  "LINE", "MAXL", "TITL",
    "LABE", "ECHO", "NSM",  "ANAL", "MODE", "SOL",  "TIME", "DIAG", "ID",   "PARA"};
/// Statements before the case control, by their first four letters.
constexpr std::string_view kExecutive[] = {"NAST", "ID",   "SOL",  "TIME", "DIAG",
                                           "APP",  "ASSI", "INIT", "COMP", "LINK"};

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
    NasRuns except;  ///< in whatever order
  };
  Key number = 0;
  std::vector<Range> ranges;
  bool is_list = true;  ///< of numbers: not of something else, and the only one with its number
  std::size_t begin = 0;
  std::size_t end = 0;

  /// Those of an ascending list that are in it.
  std::vector<Key> Of(const std::vector<Key>& all) const {
    std::vector<Key> found;
    for (const Range& range : ranges) {
      const NasRuns except = NasJoined(range.except);
      auto run = except.begin();
      for (auto at = std::lower_bound(all.begin(), all.end(), range.from);
           at != all.end() && *at <= range.to; ++at) {
        while (run != except.end() && run->to < *at) ++run;
        if (run == except.end() || *at < run->from) found.push_back(*at);
      }
    }
    std::sort(found.begin(), found.end());
    found.erase(std::unique(found.begin(), found.end()), found.end());
    return found;
  }
  bool HasAny(const std::vector<Key>& all) const {
    return std::any_of(ranges.begin(), ranges.end(), [&](const Range& range) {
      TextSet one;
      one.ranges = {range};
      const auto at = std::lower_bound(all.begin(), all.end(), range.from);
      if (at == all.end() || *at > range.to) return false;
      return range.except.empty() || !one.Of(all).empty();
    });
  }
  /// How many of an ascending list Of looks at.
  std::size_t Cost(const std::vector<Key>& all) const {
    std::size_t cost = 0;
    for (const Range& range : ranges) {
      const auto from = std::lower_bound(all.begin(), all.end(), range.from);
      const auto to = std::upper_bound(from, all.end(), range.to);
      cost += static_cast<std::size_t>(to - from);
    }
    return cost;
  }
};

/// The control section taken apart.
struct Control {
  std::vector<TextSet> sets;
  std::map<Key, Title> titles;
  std::set<Key> by_nodes;  ///< sets that commands about nodes name
  std::set<Key> by_elements;
  std::set<Key> named;         ///< that any command names
  std::size_t behind = 0;      ///< where new sets go: behind CEND, or before all commands
  std::size_t plot_lines = 0;  ///< of sections that draw, which list things in their own way
  bool is_there = false;

  explicit Control(const NasText& text);
  /// Leaves sets text when all together list many times more than there is, as no deck does that
  /// somebody works with: a small file must not fill the memory.
  void Limit(const std::vector<Key>& nodes, const std::vector<Key>& elements) {
    std::size_t left = std::clamp<std::size_t>(100 * (nodes.size() + elements.size()), 1 << 20,
                                               std::size_t{1} << 26);
    for (TextSet& set : sets) {
      const std::size_t cost = set.Cost(nodes) + set.Cost(elements);
      set.is_list = set.is_list && cost <= left;
      left -= std::min(left, cost);
    }
  }

 private:
  void AddSet(std::string_view items, TextSet set);
  void AddCommand(std::string_view line);

  std::map<Key, std::size_t> index_;  // of sets, by number
  bool has_end_ = false;              // CEND
};

/// Whether a line begins a section that draws, or ends one; none for another line.
std::optional<bool> IsPlot(std::string_view line) {
  if (!Take(line, "OUTPUT")) return std::nullopt;
  line = Trim(line);
  if (!Take(line, "(")) return std::nullopt;
  return !Trim(line).starts_with("POST");
}

Control::Control(const NasText& text) {
  const std::string_view all = std::string_view(text.Text()).substr(0, text.BulkBegin());
  is_there = !all.empty();
  bool is_plot = false;
  std::optional<std::size_t> first;  // line that is no remark
  for (std::size_t at = 0; at < all.size();) {
    std::size_t end = std::min(all.find('\n', at), all.size() - 1) + 1;
    const std::string_view whole = Trim(all.substr(at, end - at));
    if (auto title = Title::Of(whole)) {
      title->begin = at;
      title->end = end;
      titles[title->number] = *title;
    }
    std::string line = AsciiUpper(Trim(whole.substr(0, whole.find('$'))));
    if (!line.empty() && !first) first = at;
    const std::string_view word =
        std::string_view(line).substr(0, std::min<std::size_t>(line.find_first_of(" ,=("), 4));
    const bool is_end = line.starts_with("CEND");
    if (is_end || (!has_end_ && IsIn(kExecutive, word))) behind = end;
    has_end_ = has_end_ || is_end;
    if (const auto plots = IsPlot(line)) is_plot = *plots;
    std::string_view rest = line;
    if (is_plot) {
      plot_lines += !line.empty() && !line.starts_with("BEGIN");
    } else if (Take(rest, "SET") && rest.starts_with(' ')) {
      TextSet set;
      set.begin = at;
      while (line.ends_with(',') && end < all.size()) {
        const std::size_t next = std::min(all.find('\n', end), all.size() - 1) + 1;
        const std::string_view more = Trim(all.substr(end, next - end));
        line += " " + AsciiUpper(Trim(more.substr(0, more.find('$'))));
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
  if (behind == 0 && first) behind = *first;
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
      if (!set.is_list) break;
      TextSet::Range& range = set.ranges.back();
      const bool of_except = is_except && !range.except.empty();
      Key& end = of_except ? range.except.back().to : range.to;
      set.is_list = *to >= end;
      end = static_cast<Key>(*to);
      ++i;
      is_except = of_except;
      continue;
    }
    const auto number = DeckInteger(words[i]);
    set.is_list = number && *number > 0 && *number <= kMaxKey;
    if (!set.is_list) break;
    const auto key = static_cast<Key>(*number);
    if (is_except && key <= set.ranges.back().to) {
      set.ranges.back().except.push_back({key, key});
    } else {
      is_except = false;
      set.ranges.push_back({key, key, {}});
    }
  }
  set.is_list = set.is_list && !set.ranges.empty();
  const auto [twin, is_new] = index_.emplace(set.number, sets.size());
  if (!is_new) sets[twin->second].is_list = set.is_list = false;
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
  if (IsIn(kOfNoSet, word)) return;
  if (IsIn(kOfNodes, word)) by_nodes.insert(set);
  if (IsIn(kOfElements, word)) by_elements.insert(set);
  named.insert(set);
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
  if (control.named.contains(set.number)) return std::nullopt;
  const bool any_nodes = set.HasAny(nodes);
  if (any_nodes == set.HasAny(elements)) return std::nullopt;
  return any_nodes ? NasKind::kNode : NasKind::kElement;
}

}  // namespace

// ---- in -----------------------------------------------------------------------------------------

namespace {

/// Takes the parent from a group of each circle of them.
void CutCircles(std::vector<Mesh::Group>& groups) {
  std::vector<std::size_t> seen_from(groups.size(), 0);  // the walk that came by, from 1
  for (std::size_t i = 0; i < groups.size(); ++i) {
    for (std::size_t at = i; seen_from[at] == 0;) {
      seen_from[at] = i + 1;
      if (groups[at].parent < 0) break;
      const auto above = static_cast<std::size_t>(groups[at].parent);
      if (seen_from[above] == i + 1) groups[at].parent = Mesh::Group::kNone;
      at = above;
    }
  }
}

}  // namespace

void ReadNasSets(const NasText& text, Deck& deck) {
  Control control(text);
  if (control.plot_lines > 0) {
    deck.report.Assumed("plot sections of the case control are carried as text",
                        "they are not checked against renumbering");
  }
  if (control.sets.empty() && control.titles.empty()) return;
  std::vector<Key> nodes = deck.node_keys;
  std::vector<Key> elements;
  for (const Mesh::Element& element : deck.elements) elements.push_back(element.key);
  std::sort(nodes.begin(), nodes.end());
  std::sort(elements.begin(), elements.end());
  control.Limit(nodes, elements);
  std::map<Key, std::int32_t> group_of;  // by the number of the set
  std::string unread;
  std::string guessed;
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
    if (!control.titles.contains(set.number) && !control.named.contains(set.number)) {
      guessed += fmt::format("{}{}", guessed.empty() ? "" : ", ", set.number);
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
    deck.groups[static_cast<std::size_t>(child->second)].parent = parent->second;
  }
  CutCircles(deck.groups);
  if (!guessed.empty()) {
    deck.report.Assumed(
        "sets of the case control were taken for what alone has their numbers: SET " + guessed,
        "no command names them");
  }
  if (!unread.empty()) {
    deck.report.Assumed("sets of the case control carried as text: SET " + unread,
                        "they list no numbers, or too many, or it is not known what of");
  }
}

// ---- out ----------------------------------------------------------------------------------------

namespace {

/// "SET 5 = 1 THRU 20, 25" in lines of at most 72 columns.
std::string SetLines(Key number, const NasRuns& runs) {
  constexpr std::size_t kWidth = 71;
  std::string text = fmt::format("SET {} = ", number);
  std::size_t line = 0;
  const auto add = [&](const std::string& item) {
    if (text.size() + item.size() + 1 - line > kWidth) {
      while (text.ends_with(' ')) text.pop_back();
      text += "\n      ";
      line = text.size() - 6;
    }
    text += item + ' ';
  };
  for (const NasRun& run : runs) {
    const char* const mark = &run == &runs.back() ? "" : ",";
    if (run.to - run.from > 1) {
      add(fmt::format("{} THRU {}{}", run.from, run.to, mark));
      continue;
    }
    add(fmt::format("{}{}", run.from, run.from == run.to ? mark : ","));
    if (run.to != run.from) add(fmt::format("{}{}", run.to, mark));
  }
  while (text.ends_with(' ')) text.pop_back();
  return text + '\n';
}

NasRuns RunsOf(const std::vector<Key>& numbers) {
  NasRuns runs;
  AddNasRuns(numbers, runs);
  return runs;
}

/// Adds what of a run is in none of some others, which are joined.
void AddWithout(NasRun run, const NasRuns& except, NasRuns& to) {
  for (const NasRun& gap : except) {
    if (gap.to < run.from) continue;
    if (gap.from > run.to) break;
    if (gap.from > run.from) to.push_back({run.from, gap.from - 1});
    if (gap.to >= run.to) return;
    run.from = gap.to + 1;
  }
  to.push_back(run);
}

/// A group as sets of the format.
struct Wanted {
  Title title;
  NasKind kind = NasKind::kElement;
  std::vector<Key> members;
};

class SetWriter {
 public:
  SetWriter(const NasText& text, NasNumbers& numbers, const Deck& now,
            const std::vector<Mesh::Group>& groups, const NasSetTags& tags)
      : text_(text), control_(text), numbers_(numbers), now_(now), groups_(groups), tags_(tags) {
    control_.Limit(numbers.Were(NasKind::kNode), numbers.Were(NasKind::kElement));
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
      if (wanted != wanted_.end() &&
          (wanted->second.title.lists != Title::Lists::kNothing || ListsTextOnly(set, *kind))) {
        if (wanted->second.title.lists == Title::Lists::kNothing) {
          wanted->second.kind = *kind;
          wanted->second.title.lists =
              *kind == NasKind::kNode ? Title::Lists::kNodes : Title::Lists::kElements;
        }
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
      if (!is_empty) added += SetLines(number, RunsOf(wanted.members));
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
    if (numbers_.HasChanged()) {
      report.Changed("lines of plot sections were not checked against renumbering",
                     control_.plot_lines, "before BEGIN BULK",
                     "it is not known which of their numbers follow the model's");
    }
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
      // One of neither keeps the number that it has.
      const bool by_nodes = group.elements.empty() &&
                            (!group.nodes.empty() || (number.elements == 0 && number.nodes != 0));
      Key& own = by_nodes ? number.nodes : number.elements;
      // Sets of two decks may have come with one number.
      if (own == 0 || wanted_.contains(own)) own = NewNumber();
      first.title.number = own;
      number_of[index] = own;
      first.kind = by_nodes ? NasKind::kNode : NasKind::kElement;
      first.title.lists = !group.elements.empty() ? Title::Lists::kElements
                          : !group.nodes.empty()  ? Title::Lists::kNodes
                                                  : Title::Lists::kNothing;
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

  /// Whether a set lists what only the text has, such as scalar points.
  bool ListsTextOnly(const TextSet& set, NasKind kind) {
    numbers_.ListTextOnly(text_);
    return std::any_of(set.ranges.begin(), set.ranges.end(), [&](const TextSet::Range& range) {
      NasRuns pieces;
      AddWithout({range.from, range.to}, NasJoined(range.except), pieces);
      return std::any_of(pieces.begin(), pieces.end(), [&](const NasRun& piece) {
        bool is_same = true;
        return !numbers_.TextOnlyIn(kind, piece.from, piece.to, 1, is_same).empty();
      });
    });
  }

  void Change(const TextSet& set, NasKind kind, const Wanted& wanted, std::vector<NasEdit>& edits) {
    std::vector<Key> members = wanted.members;
    std::sort(members.begin(), members.end());
    bool is_same = kind == wanted.kind && set.Of(numbers_.Are(kind)) == members;
    if (!is_same || numbers_.HasChanged(kind)) numbers_.ListTextOnly(text_);
    // What only the text has, such as rigid elements and scalar points, stays.
    NasRuns runs;
    for (const TextSet::Range& range : set.ranges) {
      NasRuns pieces;  // what is excepted has its number of the text, as the range has
      AddWithout({range.from, range.to}, NasJoined(range.except), pieces);
      for (const NasRun& piece : pieces) {
        const NasRuns only = numbers_.TextOnlyIn(kind, piece.from, piece.to, 1, is_same);
        runs.insert(runs.end(), only.begin(), only.end());
      }
      const bool is_known = range.from != range.to || numbers_.WasAnyIn(kind, range.from, range.to);
      if (is_known || numbers_.Is(kind, range.from)) continue;
      runs.push_back({range.from, range.from});
    }
    if (!is_same) {
      AddNasRuns(std::move(members), runs);
      edits.push_back({set.begin, set.end, SetLines(set.number, NasJoined(std::move(runs)))});
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

  const NasText& text_;
  Control control_;
  NasNumbers& numbers_;
  const Deck& now_;
  const std::vector<Mesh::Group>& groups_;
  const NasSetTags& tags_;
  std::set<Key> taken_;
  std::map<Key, Wanted> wanted_;
  Key next_ = 1;
};

}  // namespace

void WriteNasSets(const NasText& text, NasNumbers& numbers, const Deck& now,
                  const std::vector<Mesh::Group>& groups, const NasSetTags& tags,
                  std::vector<NasEdit>& edits, std::string& head, LossReport& report) {
  SetWriter(text, numbers, now, groups, tags).Write(edits, head, report);
}

}  // namespace qx::exchange
