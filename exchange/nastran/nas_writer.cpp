#include "exchange/nastran/nas_writer.h"

#include <algorithm>
#include <fmt/format.h>
#include <map>
#include <ostream>
#include <set>
#include <unordered_map>

#include "qx_db/platform/file.h"
#include "qx_db/record/verbs.h"

#include "exchange/nastran/nas_card_text.h"
#include "exchange/nastran/nas_reader.h"
#include "host/records.h"

namespace qx::exchange {
namespace {

using Kind = NasSource::Kind;

/// A stretch of a text and what stands there instead.
struct Edit {
  std::size_t begin;
  std::size_t end;
  std::string text;
};

std::string Apply(std::string_view text, std::vector<Edit> edits) {
  std::sort(edits.begin(), edits.end(),
            [](const Edit& a, const Edit& b) { return a.begin < b.begin; });
  std::string out;
  std::size_t done = 0;
  for (const Edit& edit : edits) {
    if (edit.begin < done || edit.end > text.size()) continue;
    out += text.substr(done, edit.begin - done);
    out += edit.text;
    done = edit.end;
  }
  return out += text.substr(done);
}

/// Replaces a number in its field: over the field's whole width where fields have one.
Edit InField(std::string_view text, std::size_t at, std::size_t length, const std::string& number) {
  const std::size_t before = at == 0 ? std::string_view::npos : text.rfind('\n', at - 1);
  const std::size_t line = before == std::string_view::npos ? 0 : before + 1;
  const std::size_t end = std::min(text.find('\n', at), text.size());
  const std::string_view content = text.substr(line, end - line);
  const bool has_columns =
      content.substr(0, content.find('$')).find(',') == std::string_view::npos &&
      content.find('\t') == std::string_view::npos;
  const std::size_t column = at - line;
  if (!has_columns || column < 8) return {at, at + length, number};
  const bool is_large = content.substr(0, 8).find('*') != std::string_view::npos;
  const std::size_t width = is_large ? 16 : 8;
  const std::size_t first = line + 8 + (column - 8) / width * width;
  const std::size_t stop = std::min(first + width, end);
  if (number.size() > width || first + width < at + length) return {at, at + length, number};
  const bool at_end = stop < first + width;
  return {first, stop, at_end ? number : fmt::format("{:<{}}", number, width)};
}

/// The deck's text with the numbers that the records named in it have now.
std::string Followed(const tagTCarried& carried, LossReport& report) {
  const std::string_view text(carried.text.data(), carried.text.size());
  std::vector<Key> now(carried.places.size());
  const auto list = [&](const auto& keys) {
    for (const auto& key : keys) {
      const bool is_there = key.target && !KeyedSetBase::IsRemoved(key.target);
      if (key.place < 0 || key.place >= carried.places.GetSize()) continue;
      now[static_cast<std::size_t>(key.place)] = is_there ? KeyOf(key.target) : 0;
    }
  };
  list(carried.node_keys);
  list(carried.element_keys);
  std::vector<Edit> edits;
  std::uint64_t gone = 0;
  for (std::size_t i = 0; i < now.size(); ++i) {
    const tagTTextPlace& place = carried.places[static_cast<std::ptrdiff_t>(i)];
    const auto at = static_cast<std::size_t>(place.at);
    const auto length = static_cast<std::size_t>(place.length);
    if (place.at < 0 || place.length < 0 || at + length > text.size()) continue;
    const auto was = DeckInteger(text.substr(at, length));
    if (was && *was == now[i]) continue;
    gone += now[i] == 0;
    edits.push_back(InField(text, at, length, now[i] == 0 ? "" : fmt::format("{}", now[i])));
  }
  report.Lost("numbers of nodes and elements that are gone, in carried cards", gone);
  return Apply(text, std::move(edits));
}

/// What of a deck has a card of its own.
class Entities {
 public:
  explicit Entities(const Deck& deck) : compared_(deck, 13), exact_(deck, 0) {
    for (const Key key : deck.node_keys) keys_[0].insert(key);
    for (const Mesh::Element& element : deck.elements) {
      if (exact_.Writes(element.key)) keys_[1].insert(element.key);
    }
    for (const tagTProp& property : deck.Of<tagTProp>()) {
      if (property.type != tagTProp::kUndefined) keys_[2].insert(property.key);
    }
    for (const tagTMatl& material : deck.Of<tagTMatl>()) keys_[3].insert(material.key);
    for (const auto& [number, system] : exact_.Systems()) keys_[4].insert(number);
  }

  const std::set<Key>& Keys(Kind kind) const { return keys_[Index(kind)]; }
  std::string Card(Kind kind, Key key) const { return Of(exact_, kind, key); }
  std::string Compared(Kind kind, Key key) const { return Of(compared_, kind, key); }
  const NasCardText& Cards() const { return exact_; }
  NasCardText& Cards() { return exact_; }

 private:
  static std::size_t Index(Kind kind) {
    switch (kind) {
      case Kind::kNode:
        return 0;
      case Kind::kElement:
        return 1;
      case Kind::kProperty:
        return 2;
      case Kind::kMaterial:
        return 3;
      default:
        return 4;
    }
  }
  static std::string Of(const NasCardText& cards, Kind kind, Key key) {
    switch (kind) {
      case Kind::kNode:
        return cards.Node(key);
      case Kind::kElement:
        return cards.Element(key);
      case Kind::kProperty:
        return cards.Property(key);
      case Kind::kMaterial:
        return cards.Material(key);
      default:
        return cards.System(key);
    }
  }

  NasCardText compared_;
  NasCardText exact_;
  std::set<Key> keys_[5];
};

constexpr Kind kOrder[] = {Kind::kSystem, Kind::kNode, Kind::kElement, Kind::kProperty,
                           Kind::kMaterial};

/// The cards that are not in `done`.
std::string NewCards(const Entities& now, const std::set<std::pair<Kind, Key>>& done) {
  std::string text;
  for (const Kind kind : kOrder) {
    for (const Key key : now.Keys(kind)) {
      if (!done.contains({kind, key})) text += now.Card(kind, key);
    }
  }
  return text;
}

/// What a node's card keeps when the node changes.
NasGridRest RestOf(const NasText& source, std::size_t index, const NasCard* defaults,
                   const NasCardText& now, const SystemFrames& systems) {
  const NasCard& card = source.Cards()[index];
  NasGridRest rest{source.FieldText(card, 1), nullptr, source.FieldText(card, 6),
                   source.FieldText(card, 7)};
  const std::string_view system =
      rest.system.empty() && defaults ? source.FieldText(*defaults, 1) : rest.system;
  const Key number = static_cast<Key>(DeckInteger(system).value_or(0));
  const auto found = now.Systems().find(number);
  if (number == 0 || found == now.Systems().end()) return rest;
  const auto frame = systems.find(found->second->key);
  if (frame != systems.end()) rest.frame = &frame->second;
  return rest;
}

/// How many fields a card has that its new text leaves blank.
std::uint64_t DroppedFields(const NasText& source, const NasCard& card, const std::string& text) {
  const NasText now(text, "");
  if (now.Cards().empty()) return 0;
  std::uint64_t dropped = 0;
  for (std::size_t f = 0; f < card.fields.size(); ++f) {
    dropped += !source.FieldText(card, f).empty() && now.FieldText(now.Cards()[0], f).empty();
  }
  return dropped;
}

/// The deck that the model came from, with what changed in its place.
Result<std::string> Renewed(const std::string& followed, Entities& now, const SystemFrames& systems,
                            const std::string& path, LossReport& report) {
  const NasText source(followed, path);
  std::vector<NasSource> sources;
  std::vector<Failure> faults;
  const Result<Deck> before = ParseNastran(source, path, faults, &sources);
  std::set<std::pair<Kind, Key>> done;
  if (!before) {  // never a deck without the text that came with it
    return Failure{path, before.Error().place,
                   "cannot be written: the deck that the model came from does not read any more: " +
                       before.Error().what,
                   "export to another format, or delete the CARRIED record to write a new deck"};
  }
  const Entities then(*before);
  const NasCard* defaults = nullptr;
  for (const NasCard& card : source.Cards()) {
    if (card.name == "GRDSET") defaults = &card;
  }
  if (defaults) now.Cards().MindGridDefaults();
  std::vector<Edit> edits;
  std::uint64_t rewritten = 0;
  std::map<std::string, std::uint64_t> dropped;
  for (std::size_t i = 0; i < sources.size(); ++i) {
    const NasSource& from = sources[i];
    if (from.kind == Kind::kCarried || from.part > 0) continue;
    std::string text;
    bool is_same = true;
    for (std::size_t j = i; j < sources.size() && sources[j].card == from.card; ++j) {
      const Key key = sources[j].key;
      done.insert({from.kind, key});
      const bool is_there = now.Keys(from.kind).contains(key);
      const bool was_there = then.Keys(from.kind).contains(key);
      is_same = is_same && is_there && was_there &&
                now.Compared(from.kind, key) == then.Compared(from.kind, key);
      if (is_there && from.kind == Kind::kNode) {
        text += now.Cards().Node(key, RestOf(source, from.card, defaults, now.Cards(), systems));
      } else if (is_there) {
        text += now.Card(from.kind, key);
      }
    }
    if (is_same) continue;
    const NasCard& card = source.Cards()[from.card];
    const std::string_view name = std::string_view(text).substr(0, text.find_first_of(" *\n"));
    const bool is_other = !text.empty() && name != card.name;
    rewritten += is_other;
    if (!is_other && !text.empty()) {
      dropped[card.name] += DroppedFields(source, card, text);
    }
    for (std::size_t line = 0; line < card.lines.size(); ++line) {
      edits.push_back({card.lines[line].first, card.lines[line].second, line == 0 ? text : ""});
    }
  }
  report.Changed("cards of changed records were written as simpler ones", rewritten);
  for (const auto& [name, count] : dropped) {
    report.Lost(fmt::format("fields of changed {} cards were left out", name), count, {},
                "the model has no place for them");
  }
  std::string added = NewCards(now, done);
  if (!added.empty() &&
      !std::string_view(source.Text()).substr(0, source.BulkEnd()).ends_with('\n'))
    added = "\n" + added;
  edits.push_back({source.BulkEnd(), source.BulkEnd(), std::move(added)});
  return Apply(source.Text(), std::move(edits));
}

}  // namespace

Outcome WriteNastran(CQXDBSession& session, const std::string& path, const WriteOptions& options,
                     LossReport& report) {
  if (Outcome fits = CheckCanBeWritten(session, path); !fits) return fits;
  LossReport found;
  const Deck deck = DeckOf(session);
  found.Append(deck.report);
  if (options.progress) options.progress(0.3);
  Entities now(deck);
  const SystemFrames systems = SystemsOf(session);
  Result<std::string> text = std::string();
  host::ForEach<tagTCarried>(&session, [&](ITR, const tagTCarried& carried) {
    if (carried.format.View() != u"nastran" || carried.keyword.View() != kNasDeck) return true;
    if (!text || !text->empty()) {
      found.Lost("decks besides the first that the model came from", 1);
      return true;
    }
    text = Renewed(Followed(carried, found), now, systems, path, found);
    return true;
  });
  if (!text) return text.AsOutcome();
  if (text->empty()) {
    *text = MarkedDeck("$", "SOL 101\nCEND\nBEGIN BULK\n" + NewCards(now, {}) + "ENDDATA\n");
  } else if (const std::string_view rest = WithoutDeckMark("$", *text);
             rest.size() < text->size()) {
    *text = MarkedDeck("$", rest);  // a deck of ours stays one
  }
  for (const auto& [type, count] : now.Cards().Unwritten()) {
    found.Lost(fmt::format("elements of type {} were left out", type), count,
               fmt::format("type {}", type), "the format has no card for them");
  }
  std::uint64_t sets = 0;
  std::string first;
  for (const Mesh::Group& group : deck.groups) {
    const bool is_of_deck = group.name.starts_with("displacements in system ");
    if (!is_of_deck && sets++ == 0) first = group.name;
  }
  found.Lost("mesh sets were left out", sets, first, "bulk data has no place for them");
  constexpr std::uint16_t kWritten[] = {
      code::kCord,  code::kNode,       code::kElem,  code::kMset,   code::kProp,
      code::kMatl,  code::kMeshCsys,   code::kEcrd,  code::kBset,   code::kE1DOffset,
      code::kSprop, code::kE1DRelease, code::kBlock, code::kSetTag, code::kCarried};
  ReportUnwritten(session, "nastran", kWritten, found);
  Outcome written = WriteWholeFile(path, *text);
  if (!written) return written;
  report.Append(found);
  if (options.progress) options.progress(1.0);
  return {};
}

}  // namespace qx::exchange
