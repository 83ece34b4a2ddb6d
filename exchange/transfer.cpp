#include "exchange/transfer.h"

#include <algorithm>
#include <charconv>
#include <filesystem>
#include <fmt/format.h>

#include "qx_db/core/image_stream.h"
#include "qx_db/core/transaction.h"
#include "qx_db/lib/message.h"
#include "qx_db/platform/file.h"
#include "qx_db/platform/new_file.h"
#include "qx_db/platform/text.h"

namespace qx::exchange {
namespace {

/// Gives a session a file's units while it is added, within a transaction: the old ones come back
/// unless they are kept.
class NewUnits {
 public:
  NewUnits(CQXDBSession& session, const UnitSystem& units, bool of_model)
      : units_(session.Units()), before_(units_), of_model_(of_model) {
    if (of_model_) units_.SetModel(units);
    units_.SetCurrent(units);
  }
  ~NewUnits() {
    if (!is_kept_) units_ = before_;
  }
  /// The deck is in: of what was for a while the former units come back.
  void Keep() { is_kept_ = of_model_; }
  NewUnits(const NewUnits&) = delete;
  NewUnits& operator=(const NewUnits&) = delete;

 private:
  CQXUnitCtrl& units_;
  const CQXUnitCtrl before_;
  bool of_model_;
  bool is_kept_ = false;
};

std::string_view NameOf(const UnitSystem& units, UnitBase base) {
  return UnitsOf(base)[static_cast<std::size_t>(units[base])].name;
}

/// The units to read a deck with; tells what was taken for granted.
Result<UnitSystem> UnitsOf(const Deck& deck, const CQXDBSession& session,
                           const ImportOptions& options, LossReport& report, bool& assumed) {
  const UnitSystem rest = deck.units.value_or(session.Units().Current());
  assumed = options.units.empty() && !deck.units;
  if (!options.units.empty()) return ParseUnits(options.units, rest);
  if (assumed) AssumeUnits(rest, report);
  return rest;
}

/// Every import leaves a record of where it came from.
void AddOrigin(Deck& deck, const std::string& path, const UnitSystem& units, bool assumed) {
  std::vector<tagTOrigin>& origins = deck.Of<tagTOrigin>();
  if (origins.empty()) origins.emplace_back();
  tagTOrigin& origin = origins.front();
  origin.key = 1;
  origin.format.Set(Utf16(deck.format));
  origin.file.Set(Utf16(Utf8FromPath(PathFromUtf8(path).filename())));
  std::copy(units.index.begin(), units.index.end(), origin.units);
  origin.units_assumed = assumed;
}

/// "mm,N,ton,s,K".
std::string NamesOf(const UnitSystem& units) {
  std::string names;
  for (int i = 0; i < kUnitBaseCount; ++i) {
    names += fmt::format("{}{}", i > 0 ? "," : "", NameOf(units, static_cast<UnitBase>(i)));
  }
  return names;
}

/// Thrown from where progress is told, which every reader and writer does, and caught in the two
/// functions below: none can forget to ask. What they hold cleans up after itself.
struct Cancelled {};

/// A share of the progress, from `begin` to `end`, that asks whether to go on.
Progress Watched(const Progress& tell, const IsCancelled& is_cancelled, double begin, double end) {
  if (!tell && !is_cancelled) return {};
  return [=](double done) {
    // What tells of its end is done.
    if (done < 1 && is_cancelled && is_cancelled()) throw Cancelled();
    if (tell) tell(begin + (end - begin) * done);
  };
}

Failure WasCancelled(const std::string& path, const char* what) {
  return {path, "", what, "run it again"};
}

/// The line that a place tells; the last one where it tells none.
std::size_t LineOf(const Failure& fault) {
  std::size_t line = 0;
  constexpr std::string_view kLine = "line ";
  const std::size_t found = fault.place.find(kLine);
  if (found == std::string::npos) return std::string::npos;
  const char* const at = fault.place.data() + found + kLine.size();
  const auto parsed = std::from_chars(at, fault.place.data() + fault.place.size(), line);
  return parsed.ec == std::errc() ? line : std::string::npos;
}

/// Puts faults in the order of their files and lines, each once; files in the order in which they
/// were come upon.
void SortFaults(std::vector<Failure>& faults) {
  std::vector<std::string> files;
  const auto file = [&](const Failure& fault) {
    return std::find(files.begin(), files.end(), fault.file) - files.begin();
  };
  for (const Failure& fault : faults) {
    if (file(fault) == std::ssize(files)) files.push_back(fault.file);
  }
  std::stable_sort(faults.begin(), faults.end(), [&](const Failure& a, const Failure& b) {
    return std::pair(file(a), LineOf(a)) < std::pair(file(b), LineOf(b));
  });
  const auto same = [](const Failure& a, const Failure& b) { return a.Line() == b.Line(); };
  faults.erase(std::unique(faults.begin(), faults.end(), same), faults.end());
}

/// Whether a deck says nothing of a model: no node, no element, no record but where it is from.
bool IsEmpty(const Deck& deck) {
  bool is_empty = deck.node_keys.empty() && deck.elements.empty() && deck.groups.empty();
  const auto count = [&](const auto& records) {
    using T = typename std::decay_t<decltype(records)>::value_type;
    if (T::kType != code::kOrigin && T::kType != code::kCarried) is_empty &= records.empty();
  };
  std::apply([&](const auto&... records) { (count(records), ...); }, deck.records);
  return is_empty;
}

Failure Refused(const std::string& path) {
  return {path, "", "the model refuses the file", "see the message above"};
}

Outcome Import(CQXDBSession& session, const std::string& path, const ImportOptions& options,
               LossReport& report) {
  const Format* format = options.format;
  if (!format) {
    const auto found = FormatToRead(path);
    if (!found) return found.Error();
    format = *found;
  }
  ReadOptions read = options.read;
  read.progress = Watched(options.read.progress, options.read.is_cancelled, 0, 0.6);
  const Progress add = Watched(options.read.progress, options.read.is_cancelled, 0.6, 1);
  if (read.progress) read.progress(0);
  Result<Deck> deck = format->read(path, read, report.faults);
  if (!deck) {
    if (read.is_cancelled && read.is_cancelled()) throw Cancelled();
    SortFaults(report.faults);
    return report.faults.empty() ? deck.AsOutcome() : report.faults.front();
  }
  if (IsEmpty(*deck)) {
    return Failure{path, "", fmt::format("there is nothing in this {}", format->title),
                   "check that it is the file that you mean"};
  }
  bool assumed = false;
  const Result<UnitSystem> units = UnitsOf(*deck, session, options, report, assumed);
  if (!units) return units.AsOutcome();
  AddOrigin(*deck, path, *units, assumed);
  if (options.strict) {
    LossReport so_far = report;
    so_far.Append(deck->report);
    if (Outcome lossless = so_far.CheckLossless(path); !lossless) {
      report = std::move(so_far);
      return lossless;
    }
  }
  // Units and deck are one step, so that nobody who keeps steps has the one without the other.
  CTransaction step(&session);
  if (!step.Begin(qxLoadText("IDS_QX_TRANS_Import_Mesh").c_str())) return Refused(path);
  {
    NewUnits in_units(session, *units, options.set_model_units);
    if (Outcome added = AddDeck(session, std::move(*deck), path, report, add); !added) return added;
    in_units.Keep();
  }
  return step.Commit() ? Outcome() : Refused(path);
}

/// Refused where two records of a pool share a key, which no file could tell apart; names the first
/// such key.
Outcome CheckAllKeys(const CQXDBSession& session, const std::string& path) {
  for (const DPoolBase* pool : session.Pools()) {
    if (Outcome apart = CheckKeys(*pool, path); !apart) return apart;
  }
  return {};
}

Outcome Export(CQXDBSession& session, const std::string& path, const ExportOptions& options,
               LossReport& report) {
  const Format* format = options.format;
  if (!format) {
    const auto found = FormatToWrite(path);
    if (!found) return found.Error();
    format = *found;
  }
  const Result<UnitSystem> units = options.units.empty()
                                       ? Result<UnitSystem>(session.Units().Current())
                                       : ParseUnits(options.units, session.Units().Current());
  if (!units) return units.AsOutcome();
  if (Outcome apart = CheckAllKeys(session, path); !apart) return apart;
  const UnitsShown in_units(session, *units);
  WriteOptions write = options.write;
  write.progress = Watched(options.write.progress, options.write.is_cancelled, 0, 1);
  LossReport found;
  if (!(format->capabilities & capability::kUnits)) {
    found.Assumed(fmt::format("the numbers are in {}", NamesOf(*units)),
                  "the file names none, or that of lengths alone");
  }
  for (const Format& other : Formats()) {
    if (other.tell_text && other.name != format->name) other.tell_text(session, found);
  }
  if (write.progress) write.progress(0);
  if (!options.strict) {
    Outcome written = format->write(session, path, write, found);
    if (written) report.Append(found);
    return written;
  }
  // Written beside it first, so that a loss leaves what was there.
  const auto beside = NewFile::Create(path);
  if (!beside) return beside.AsOutcome();
  Outcome written = format->write(session, (*beside)->Name(), write, found);
  report.Append(found);
  if (written) written = report.CheckLossless(path);
  return written ? (*beside)->TakePlace() : written;
}

}  // namespace

void AssumeUnits(const UnitSystem& units, LossReport& report) {
  report.Assumed(fmt::format("lengths were taken as {}; name the units if they are not",
                             NameOf(units, UnitBase::kLength)),
                 "the file names no unit");
}

Result<UnitSystem> ParseUnits(const std::string& names, const UnitSystem& rest) {
  UnitSystem units = rest;
  for (std::size_t at = 0; at <= names.size();) {
    const std::size_t end = std::min(names.find(',', at), names.size());
    const std::string name = names.substr(at, end - at);
    at = end + 1;
    bool is_known = false;
    for (int i = 0; i < kUnitBaseCount && !is_known; ++i) {
      const auto base = static_cast<UnitBase>(i);
      const int index = FindUnit(base, name);
      is_known = index >= 0;
      if (is_known) units[base] = index;
    }
    if (is_known) continue;
    std::string known;
    for (const UnitDefinition& unit : qx::UnitsOf(UnitBase::kLength)) {
      known += (known.empty() ? "" : ", ") + std::string(unit.name);
    }
    return Failure{"", "", fmt::format("'{}' is no unit", name),
                   fmt::format("name one of length ({}), or several as in mm,N,ton", known)};
  }
  return units;
}

Outcome ImportFile(CQXDBSession& session, const std::string& path, const ImportOptions& options,
                   LossReport& report) {
  try {
    return Import(session, path, options, report);
  } catch (const Cancelled&) {
    return WasCancelled(path, "the import was stopped; the model is as it was");
  }
}

Outcome ExportFile(CQXDBSession& session, const std::string& path, const ExportOptions& options,
                   LossReport& report) {
  try {
    return Export(session, path, options, report);
  } catch (const Cancelled&) {
    return WasCancelled(path, "the export was stopped; nothing was written");
  }
}

}  // namespace qx::exchange
