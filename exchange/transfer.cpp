#include "exchange/transfer.h"

#include <filesystem>
#include <fmt/format.h>

#include "qx_db/platform/file.h"
#include "qx_db/platform/new_file.h"
#include "qx_db/platform/text.h"

namespace qx::exchange {
namespace {

/// Gives a session other current units for as long as it lives.
class CurrentUnits {
 public:
  CurrentUnits(CQXDBSession& session, const UnitSystem& units)
      : units_(session.Units()), before_(units_.Current()) {
    units_.SetCurrent(units);
  }
  ~CurrentUnits() { units_.SetCurrent(before_); }
  CurrentUnits(const CurrentUnits&) = delete;
  CurrentUnits& operator=(const CurrentUnits&) = delete;

 private:
  CQXUnitCtrl& units_;
  UnitSystem before_;
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
  if (assumed) {
    report.Assumed(fmt::format("lengths were taken as {}; say --units if they are not",
                               NameOf(rest, UnitBase::kLength)),
                   "the file names no unit");
  }
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

}  // namespace

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
  const Format* format = options.format;
  if (!format) {
    const auto found = FormatToRead(path);
    if (!found) return found.Error();
    format = *found;
  }
  Result<Deck> deck = format->read(path, options.read, report.faults);
  if (!deck) return deck.AsOutcome();
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
  const UnitSystem model_before = session.Units().Model();
  const UnitSystem current_before = session.Units().Current();
  if (options.set_model_units) session.Units().SetModel(*units);
  session.Units().SetCurrent(*units);
  Outcome added = AddDeck(session, *deck, path, report);
  if (!added && options.set_model_units) session.Units().SetModel(model_before);
  if (!added || !options.set_model_units) session.Units().SetCurrent(current_before);
  return added;
}

Outcome ExportFile(CQXDBSession& session, const std::string& path, const ExportOptions& options,
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
  const CurrentUnits in_units(session, *units);
  for (const Format& other : Formats()) {
    if (other.tell_text && other.name != format->name) other.tell_text(session, report);
  }
  if (!options.strict) return format->write(session, path, options.write, report);
  // Written beside it first, so that a loss leaves what was there.
  const auto beside = NewFile::Create(path);
  if (!beside) return beside.AsOutcome();
  Outcome written = format->write(session, (*beside)->Name(), options.write, report);
  if (written) written = report.CheckLossless(path);
  return written ? (*beside)->TakePlace() : written;
}

}  // namespace qx::exchange
