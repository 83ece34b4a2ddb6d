#include "exchange/abaqus/inp_writer.h"

#include <algorithm>
#include <fmt/format.h>
#include <iterator>

#include "qx_db/platform/file.h"
#include "qx_db/record/verbs.h"

#include "exchange/abaqus/inp_edit.h"
#include "host/records.h"

namespace qx::exchange {
namespace {

template <class Entry>
Key KeyNow(const Entry& entry) {
  return entry.target && !KeyedSetBase::IsRemoved(entry.target) ? KeyOf(entry.target) : 0;
}

/// The deck's text with the numbers that the nodes and elements named in it have now. Lines of
/// which one is gone go with it, where each line is of one.
std::string Followed(const tagTCarried& carried, bool is_flat, LossReport& report) {
  const std::string_view text(carried.text.data(), carried.text.size());
  std::vector<Key> now(carried.places.size());
  const auto list = [&](const auto& keys) {
    for (const auto& key : keys) {
      if (key.place < 0 || key.place >= carried.places.GetSize()) continue;
      now[static_cast<std::size_t>(key.place)] = KeyNow(key);
    }
  };
  list(carried.node_keys);
  list(carried.element_keys);
  std::vector<InpEdit> edits;
  std::uint64_t gone = 0;
  std::string first_gone;
  for (std::size_t i = 0; i < now.size(); ++i) {
    const tagTTextPlace& place = carried.places[static_cast<std::ptrdiff_t>(i)];
    const auto at = static_cast<std::size_t>(place.at);
    const auto length = static_cast<std::size_t>(place.length);
    if (place.at < 0 || place.length < 0 || at > text.size() || length > text.size() - at) continue;
    if (now[i] == 0) {
      if (gone++ == 0) first_gone = text.substr(at, length);
      const std::size_t before = at == 0 ? std::string_view::npos : text.rfind('\n', at - 1);
      const std::size_t line = before == std::string_view::npos ? 0 : before + 1;
      const std::size_t end = std::min(text.find('\n', at), text.size() - 1) + 1;
      const bool is_first =
          text.substr(line, at - line).find_first_of(",*") == std::string_view::npos;
      if (is_first) edits.push_back({line, end, {}});
      continue;
    }
    const auto was = DeckInteger(text.substr(at, length));
    if (!is_flat || (was && *was == now[i])) continue;
    edits.push_back({at, at + length, fmt::format("{}", now[i])});
  }
  report.Lost("numbers of nodes and elements that are gone, in carried keywords", gone, first_gone,
              "they were deleted");
  return Apply(text, std::move(edits));
}

bool HasNumber(const InpText& text, const InpBlock& block) {
  InpLines lines(text.Text(), block.data, block.end);
  while (lines.Next()) {
    const auto fields = lines.Fields();
    if (std::any_of(fields.begin(), fields.end(),
                    [](std::string_view field) { return DeckReal(field).value_or(0) != 0; })) {
      return true;
    }
  }
  return false;
}

/// Tells of keywords that stay text, and so in the units of the deck, where others are written.
void CheckUnits(CQXDBSession& session, const InpText& text, const InpModel& model,
                LossReport& report) {
  const UnitSystem& current = session.Units().Current();
  bool is_same = true;
  host::ForEach<tagTOrigin>(&session, [&](ITR, const tagTOrigin& origin) {
    if (origin.format.View() != kInpFormat) return true;
    is_same = std::equal(current.index.begin(), current.index.end(), std::begin(origin.units));
    return false;
  });
  if (is_same) return;
  std::map<std::string, std::pair<std::uint64_t, std::size_t>> kept;  // how many, and the first
  for (const InpBlock& block : text.Blocks()) {
    if (!model.carried.contains(block.title) || !HasNumber(text, block)) continue;
    ++kept.try_emplace(block.title, 0, block.begin).first->second.first;
  }
  for (const auto& [title, told] : kept) {
    std::string file;
    report.Changed(fmt::format("*{} keywords keep the units that the deck was read in", title),
                   told.first, text.Place(told.second, file),
                   "only what the model knows is converted");
  }
}

/// Tells that the nodes and elements of an assembly keep the numbers that they have in their parts,
/// which are not those of the model.
void ReportNumbers(const InpModel& model,
                   const std::map<std::int32_t, const tagTCarried*>& instances,
                   LossReport& report) {
  std::uint64_t others = 0, renumbered = 0;
  std::string first, first_renumbered;
  for (std::size_t p = 0; p < model.placements.size(); ++p) {
    const InpPlacement& placement = model.placements[p];
    const auto found = instances.find(static_cast<std::int32_t>(p));
    if (found == instances.end()) continue;
    const InpScope& scope = model.scopes[placement.scope];
    const auto count = [&](const char* what, const auto& entries, const auto& number_at,
                           std::size_t size, Key shift) {
      for (const auto& entry : entries) {
        const auto place = static_cast<std::size_t>(entry.place);
        const Key now = KeyNow(entry);
        if (place >= size || now == 0) continue;
        const Key number = number_at(place);
        if (now == number) continue;
        const std::string name = fmt::format("{} {}, in {} {}", what, now, placement.name, number);
        const bool is_shifted = now == number + shift;
        if (is_shifted && others++ == 0) first = name;
        if (!is_shifted && renumbered++ == 0) first_renumbered = name;
      }
    };
    const auto node = [&](std::size_t i) { return scope.numbers[i]; };
    const auto element = [&](std::size_t i) { return scope.elements[i].number; };
    count("node", found->second->node_keys, node, scope.numbers.size(), placement.node_shift);
    count("element", found->second->element_keys, element, scope.elements.size(),
          placement.element_shift);
  }
  if (others > 0) {
    report.Assumed(fmt::format("{} nodes and elements have the numbers of their parts again, such "
                               "as {}",
                               others, first),
                   "each instance counts for itself");
  }
  report.Changed("nodes and elements that were renumbered keep the numbers of their parts",
                 renumbered, first_renumbered, "instances of a part share its numbers");
}

/// Puts the deck that the model came from, with what changed in its place; false when it cannot be
/// read any more.
bool PutRenewed(CQXDBSession& session, const Deck& now, const SystemFrames& systems,
                const tagTCarried& carried, const std::string& path, LossReport& report,
                const Progress& progress, const PutText& put) {
  std::map<std::int32_t, const tagTCarried*> instances;
  host::ForEach<tagTCarried>(&session, [&](ITR, const tagTCarried& record) {
    if (record.format.View() == kInpFormat && record.keyword.View() == kInpInstance) {
      instances.emplace(record.part, &record);
    }
    return true;
  });
  LossReport unused;
  const InpText text(Followed(carried, instances.empty(), report), path);
  std::vector<Failure> faults;
  ReadOptions read;
  read.progress = ShareOf(progress, 0, 0.5);
  Result<InpModel> model = ParseInp(text, path, read, faults);
  if (!model) {
    report.Lost("the deck that the model came from", 1, model.Error().place, model.Error().what);
    return false;
  }
  if (model->placements.empty()) model->placements.emplace_back();
  CheckUnits(session, text, *model, report);
  ReportNumbers(*model, instances, report);
  std::vector<InpKeysNow> keys(instances.empty() ? 0 : model->placements.size());
  for (std::size_t p = 0; p < keys.size(); ++p) {
    const InpScope& scope = model->scopes[model->placements[p].scope];
    keys[p].nodes.resize(scope.numbers.size());
    keys[p].elements.resize(scope.elements.size());
    const auto found = instances.find(static_cast<std::int32_t>(p));
    if (found == instances.end()) continue;
    const auto list = [](const auto& entries, std::vector<Key>& to) {
      for (const auto& entry : entries) {
        const auto place = static_cast<std::size_t>(entry.place);
        if (place < to.size()) to[place] = KeyNow(entry);
      }
    };
    list(found->second->node_keys, keys[p].nodes);
    list(found->second->element_keys, keys[p].elements);
  }
  const Progress edit = ShareOf(progress, 0.5, 1);
  InpEditor(text, *model, now, keys, systems, report, edit).Write(put);
  return true;
}

}  // namespace

Outcome WriteAbaqus(CQXDBSession& session, const std::string& path, const WriteOptions& options,
                    LossReport& report) {
  if (Outcome fits = CheckCanBeWritten(session, path); !fits) return fits;
  LossReport found;
  Deck now = DeckOf(session, ShareOf(options.progress, 0, 0.3));
  now.Of<tagTCarried>() = {};  // its text may be most of the deck, and is there already
  const SystemFrames systems = SystemsOf(session);
  found.Append(now.report);
  if (options.progress) options.progress(0.3);
  const tagTCarried* carried = nullptr;
  host::ForEach<tagTCarried>(&session, [&](ITR, const tagTCarried& record) {
    if (record.format.View() != kInpFormat || record.keyword.View() != kInpDeck) return true;
    if (!carried) {
      carried = &record;
    } else {
      found.Lost("decks besides the first that the model came from", 1,
                 fmt::format("carried text {}", record.key), "a deck is one");
    }
    return true;
  });
  constexpr std::uint16_t kWritten[] = {
      code::kCord,  code::kNode,     code::kElem,    code::kMset,      code::kProp,
      code::kMatl,  code::kMeshCsys, code::kEcrd,    code::kE2DOffset, code::kSprop,
      code::kBlock, code::kSetTag,   code::kCarried, code::kBset};
  ReportUnwritten(session, "abaqus", kWritten, found);
  const Progress tell = ShareOf(options.progress, 0.3, 0.9);
  Outcome done = WriteFileBy(path, [&](std::ostream& file) {
    DeckOut of_deck(file, kInpComment, false);
    if (carried && PutRenewed(session, now, systems, *carried, path, found, tell,
                              [&](std::string_view piece) { of_deck.Put(piece); })) {
      return of_deck.Finish();
    }
    DeckOut anew(file, kInpComment, true);
    InpNewText(now, systems, found, tell).All([&](std::string_view piece) { anew.Put(piece); });
    anew.Finish();
  });
  if (!done) return done;
  report.Append(found);
  if (options.progress) options.progress(1.0);
  return {};
}

}  // namespace qx::exchange
