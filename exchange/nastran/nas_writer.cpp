#include "exchange/nastran/nas_writer.h"

#include <algorithm>
#include <fmt/format.h>
#include <map>

#include "qx_db/platform/file.h"
#include "qx_db/record/verbs.h"

#include "exchange/deck_text.h"
#include "exchange/nastran/nas_card_text.h"
#include "exchange/nastran/nas_reader.h"
#include "exchange/nastran/nas_renew.h"
#include "host/records.h"

namespace qx::exchange {
namespace {

/// The deck of a model that came from none.
constexpr std::string_view kEmptyDeck = "SOL 101\nCEND\nBEGIN BULK\nENDDATA\n";

/// Whether a record holds the text of a deck.
bool IsDeck(const tagTCarried& record) {
  return record.format.View() == u"nastran" && record.keyword.View() == kNasDeck;
}

/// Gives systems the numbers that the format knows them by, which are their keys but for the one
/// that came with the number of the global one; returns them by the keys that they had.
std::map<Key, Key> NumberSystems(Deck& deck, const tagTCarried& carried) {
  std::map<Key, Key> numbers{{kNasGlobalSystem, 0}};
  for (const tagTCord& system : deck.Of<tagTCord>()) {
    if (system.key != kNasGlobalSystem) numbers[system.key] = system.key;
  }
  const std::string_view text(carried.text.data(), carried.text.size());
  for (const tagTCordInText& in : carried.system_keys) {
    if (in.place < 0 || in.place >= carried.places.GetSize() || !in.target) continue;
    if (KeyedSetBase::IsRemoved(in.target)) continue;
    const tagTTextPlace& place = carried.places[in.place];
    const auto at = static_cast<std::size_t>(std::max(place.at, 0));
    if (at > text.size()) continue;
    const auto was = DeckInteger(text.substr(at, static_cast<std::size_t>(place.length)));
    const Key key = KeyOf(in.target);
    if (was == kNasGlobalSystem && key != kNasGlobalSystem) numbers[key] = kNasGlobalSystem;
  }
  const auto rename = [&](auto& reference) {
    const auto found = numbers.find(static_cast<Key>(reference));
    if (found != numbers.end()) reference = static_cast<ITR>(found->second);
  };
  std::erase_if(deck.Of<tagTCord>(),
                [](const tagTCord& system) { return system.key == kNasGlobalSystem; });
  for (tagTCord& system : deck.Of<tagTCord>()) {
    system.key = numbers.at(system.key);
    rename(system.reference);
  }
  for (tagTMeshCsys& assigned : deck.Of<tagTMeshCsys>()) rename(assigned.coordinate_system);
  for (tagTEcrd& orientation : deck.Of<tagTEcrd>()) rename(orientation.coordinate_system);
  for (tagTSprop& mass : deck.Of<tagTSprop>()) rename(mass.coordinate_system);
  for (tagTE2DMatlCsys& shell : deck.Of<tagTE2DMatlCsys>()) rename(shell.coordinate_system);
  for (tagTProp& property : deck.Of<tagTProp>()) rename(property.coordinate_system);
  return numbers;
}

/// The numbers that sets came with, or got when they were written.
NasSetTags SetTags(CQXDBSession& session) {
  NasSetTags tags;
  host::ForEach<tagTSetTag>(&session, [&](ITR, const tagTSetTag& tag) {
    if (tag.format.View() != u"nastran" || !tag.set || KeyedSetBase::IsRemoved(tag.set))
      return true;
    NasSetNumbers& numbers = tags[KeyOf(tag.set)];
    (tag.kind == tagTSetTag::kNodes ? numbers.nodes : numbers.elements) = tag.tag;
    return true;
  });
  return tags;
}

/// The units that the deck was read in as those of the model, and those to write as current ones.
CQXUnitCtrl UnitsOfText(CQXDBSession& session) {
  CQXUnitCtrl units;
  units.SetModel(session.Units().Current());
  units.SetCurrent(session.Units().Current());
  host::ForEach<tagTOrigin>(&session, [&](ITR, const tagTOrigin& origin) {
    if (origin.format.View() != u"nastran") return true;
    UnitSystem of_text;
    std::copy(std::begin(origin.units), std::end(origin.units), of_text.index.begin());
    if (IsValid(of_text)) units.SetModel(of_text);
    return false;
  });
  return units;
}

}  // namespace

Result<std::string> NasDeckText(CQXDBSession& session, const std::string& path, LossReport& report,
                                const Progress& progress) {
  Deck deck = DeckOf(session, ShareOf(progress, 0, 0.3));
  report.Append(deck.report);
  deck.Of<tagTCarried>() = {};  // it is read where it is
  deck.Of<tagTField>() = {};    // which the format has no place for
  tagTCarried empty;
  empty.text.Assign(kEmptyDeck.data(), kEmptyDeck.size());
  const tagTCarried* carried = nullptr;
  host::ForEach<tagTCarried>(&session, [&](ITR, const tagTCarried& record) {
    if (!IsDeck(record)) return true;
    if (carried) {
      report.Lost("decks besides the first that the model came from were left out", 1,
                  fmt::format("carried text {}", record.key),
                  "their carried cards have no place in one deck");
    } else {
      carried = &record;
    }
    return true;
  });
  const tagTCarried& source = carried ? *carried : empty;
  const std::map<Key, Key> systems = NumberSystems(deck, source);
  if (Outcome numbers = CheckNumbers(deck, path); !numbers) return numbers.Error();
  const Progress renew = ShareOf(progress, 0.3, 1);
  return RenewNasDeck(source, deck, systems, SetTags(session), UnitsOfText(session), path, report,
                      renew);
}

Outcome WriteNastran(CQXDBSession& session, const std::string& path, const WriteOptions& options,
                     LossReport& report) {
  if (Outcome fits = CheckCanBeWritten(session, path); !fits) return fits;
  LossReport found;
  const Result<std::string> text =
      NasDeckText(session, path, found, ShareOf(options.progress, 0, 0.9));
  if (!text) return text.AsOutcome();
  if (options.progress) options.progress(0.9);
  constexpr std::uint16_t kWritten[] = {
      code::kCord,  code::kNode,      code::kElem,     code::kMset,        code::kProp,
      code::kMatl,  code::kMeshCsys,  code::kEcrd,     code::kBset,        code::kE1DOffset,
      code::kSprop, code::kE2DOffset, code::kE2DThick, code::kE2DMatlCsys, code::kE1DRelease,
      code::kBlock, code::kSetTag,    code::kCarried};
  ReportUnwritten(session, "nastran", kWritten, found);
  // A deck of ours stays one; one that came from somebody is his.
  bool is_new = true;
  host::ForEach<tagTCarried>(&session, [&](ITR, const tagTCarried& record) {
    is_new = !IsDeck(record);
    return is_new;
  });
  Outcome written = WriteFileBy(path, [&](std::ostream& file) {
    DeckOut out(file, "$", is_new);
    out.Put(*text);
    out.Finish();
  });
  if (!written) return written;
  report.Append(found);
  if (options.progress) options.progress(1.0);
  return {};
}

void TellNasText(CQXDBSession& session, LossReport& report) {
  host::ForEach<tagTCarried>(&session, [&](ITR, const tagTCarried& record) {
    if (!IsDeck(record)) return true;
    const std::string name = "deck that the model came from";
    const NasText text(std::string(record.text.data(), record.text.size()), name);
    std::vector<Failure> faults;
    NasReading reading;
    reading.leaves_text = true;
    if (const Result<Deck> deck = ParseNastran(text, name, faults, reading)) {
      report.Append(deck->report);
    }
    return true;
  });
}

}  // namespace qx::exchange
