// Checking a mesh: what is wrong with it, how well its elements are shaped, what it weighs.

#include <algorithm>
#include <charconv>
#include <cmath>
#include <fmt/format.h>
#include <limits>
#include <map>
#include <optional>
#include <tuple>
#include <unordered_set>

#include "qx_db/app/mesh_findings.h"
#include "qx_db/app/mesh_mass.h"
#include "qx_db/mesh/mesh_adjacency.h"
#include "qx_db/mesh/usual_reach.h"
#include "qx_db/qx_db.h"
#include "qx_db/record/element_types.h"

#include "apps/qxdb/command/option_values.h"
#include "apps/qxdb/command/output.h"
#include "apps/qxdb/commands.h"
#include "apps/qxdb/mesh/histogram_text.h"
#include "apps/qxdb/model/where.h"
#include "exchange/vtk/vtu_writer.h"

namespace qx::app {
namespace {

struct CheckOptions {
  std::string model;
  std::string where;
  std::vector<std::string> measures;
  std::vector<std::string> limits;
  std::string vtu;
  bool force = false;
  int bins = 10;
  std::size_t worst = 5;
  std::optional<double> tolerance;
  bool no_histograms = false;
  bool mass = false;
  std::optional<double> density, thickness, section_area;
};

/// What GetElemDim says of codes that are neither ordinary nor special.
constexpr int kUnknownDimension = 5;

/// The bound on a measure or on the number of a kind of finding.
struct Limit {
  std::string name;
  double value = 0;
};

std::string KnownNames() {
  std::string names;
  for (const MeasureInfo& info : Measures()) names += fmt::format("{} ", info.name);
  for (const std::string_view name : FindingNames()) names += fmt::format("{} ", name);
  names.pop_back();
  return names;
}

/// Reads NAME=NUMBER; what is wrong with it otherwise, empty when nothing is.
std::string ReadLimit(const std::string& text, Limit& limit) {
  const auto known = FindingNames();
  const std::size_t equals = text.find('=');
  limit.name = text.substr(0, equals);
  const char* begin = text.data() + std::min(text.size(), equals + 1);
  const char* end = text.data() + text.size();
  const auto [stop, error] = std::from_chars(begin, end, limit.value);
  if (equals == std::string::npos || begin == end || error != std::errc() || stop != end ||
      !std::isfinite(limit.value)) {
    return fmt::format("\"{}\" is no NAME=NUMBER; write --limit aspect-ratio=5", text);
  }
  if (FindMeasure(limit.name)) return "";
  if (std::find(known.begin(), known.end(), limit.name) == known.end()) {
    return fmt::format("\"{}\" names no measure or finding; choose from: {}", limit.name,
                       KnownNames());
  }
  return limit.value >= 0 ? "" : fmt::format("\"{}\": there are never fewer than 0", text);
}

/// Stands for every measure there is.
constexpr std::string_view kAllMeasures = "all";

std::string ReadMeasure(const std::string& name) {
  if (FindMeasure(name) || name == kAllMeasures) return "";
  std::string all;
  for (const MeasureInfo& known : Measures()) all += fmt::format(" {}", known.name);
  return fmt::format("\"{}\" names no measure; choose from:{} {}", name, all, kAllMeasures);
}

std::vector<const MeasureInfo*> ChooseMeasures(const std::vector<std::string>& names) {
  std::vector<const MeasureInfo*> chosen;
  const auto choose = [&](const MeasureInfo& info) {
    if (std::find(chosen.begin(), chosen.end(), &info) == chosen.end()) chosen.push_back(&info);
  };
  for (const std::string& name : names) {
    if (const MeasureInfo* info = FindMeasure(name)) {
      choose(*info);
    } else {
      for (const MeasureInfo& each : Measures()) choose(each);
    }
  }
  if (names.empty()) {
    for (const MeasureInfo& info : Measures()) {
      if (info.shown == Shown::kByDefault) chosen.push_back(&info);
    }
  }
  return chosen;
}

/// "1-5, 9, 12, ..." of ascending keys.
std::string KeysText(const std::vector<Key>& keys) {
  constexpr int kMostRanges = 4;
  std::string text;
  int ranges = 0;
  for (std::size_t i = 0; i < keys.size();) {
    if (ranges++ == kMostRanges) return text + ", ...";
    std::size_t last = i;
    while (last + 1 < keys.size() && keys[last + 1] == keys[last] + 1) ++last;
    text += fmt::format("{}{}", text.empty() ? "" : ", ", keys[i]);
    if (last > i) text += fmt::format("-{}", keys[last]);
    i = last + 1;
  }
  return text;
}

/// A tenth of a billionth of the mesh without misplaced nodes, so that rounding is no difference.
double DefaultTolerance(const DenseMesh& mesh) {
  std::vector<double> reaches;
  for (std::uint32_t n = 0; n < mesh.NodeCount(); ++n) reaches.push_back(ReachOf(mesh.Position(n)));
  const double usual = UsualReach(std::move(reaches));
  Point3 low, high;
  bool empty = true;
  for (std::uint32_t n = 0; n < mesh.NodeCount(); ++n) {
    const Point3& p = mesh.Position(n);
    if (!(ReachOf(p) <= usual)) continue;  // misplaced, or no number
    if (empty) low = high = p;
    empty = false;
    low = {std::min(low.x, p.x), std::min(low.y, p.y), std::min(low.z, p.z)};
    high = {std::max(high.x, p.x), std::max(high.y, p.y), std::max(high.z, p.z)};
  }
  return 1e-10 * Length(high - low);
}

/// A number, or 0 where it is only the rounding of numbers as large as `scale`.
double WithoutRounding(double value, double scale) {
  constexpr double kRounding = 1e-12;
  return std::abs(value) <= kRounding * scale ? 0.0 : value;
}

/// One check: collects text and JSON section by section.
class Check {
 public:
  /// Of the elements that were selected and their nodes, or of all.
  Check(CQXDBSession& session, const CheckOptions& options, const Selection* selected)
      : session_(session),
        options_(options),
        mesh_(session),
        length_factor_(session.Units().Out(unit::kLength, 1.0)),
        chosen_(mesh_.ElementCount(), selected == nullptr) {
    if (!selected) return;
    is_part_ = true;
    ItemMarks marks(*session.GetDataPool(code::kElem));
    marks.Add({selected->items.data(), selected->items.size()});
    for (std::uint32_t e = 0; e < mesh_.ElementCount(); ++e) {
      chosen_[e] = marks.Has(mesh_.ElementItr(e));
      if (!chosen_[e]) continue;
      element_keys_.insert(mesh_.Element(e).key);
      for (const std::uint32_t n : mesh_.Nodes(e)) {
        if (n != PoolNumbers::kNone) node_keys_.insert(mesh_.NodeKey(n));
      }
    }
  }

  void Overview() {
    std::map<std::int32_t, std::int64_t> counts;
    std::int64_t checked = 0;
    for (std::uint32_t e = 0; e < mesh_.ElementCount(); ++e) {
      if (!chosen_[e]) continue;
      ++checked;
      ++counts[mesh_.Element(e).type];
    }
    const Parts parts = ConnectedParts(mesh_);
    text_ += fmt::format("{}: {} nodes, {} elements in {} connected part{}\n", options_.model,
                         Grouped(mesh_.NodeCount()), Grouped(mesh_.ElementCount()), parts.count,
                         parts.count == 1 ? "" : "s");
    json_.Begin().Text("model", options_.model).Integer("nodes", mesh_.NodeCount());
    json_.Integer("elements", mesh_.ElementCount()).Integer("parts", parts.count);
    if (is_part_) {
      text_ += fmt::format("checked: {} elements, and their nodes, where {}\n", Grouped(checked),
                           options_.where);
      json_.Text("where", options_.where).Integer("checked", checked);
    }
    json_.Begin("types");
    for (const auto& [type, count] : counts) {
      const ElementType* known = FindElementType(type);
      const bool is_special = !known && CQXMeshUtil::GetElemDim(type) != kUnknownDimension;
      const std::string label =
          known ? std::string(known->plural)
                : fmt::format("{}elements of type {}", is_special ? "special " : "", type);
      text_ += fmt::format("  {:>11}  {}\n", Grouped(count), label);
      json_.Integer(std::to_string(type), count);
    }
    json_.End();
  }

  void Findings() {
    const double tolerance = options_.tolerance
                                 ? session_.Units().In(unit::kLength, *options_.tolerance)
                                 : DefaultTolerance(mesh_);
    findings_ = FindFaults(mesh_, tolerance);
    Table table({"", ">count", "finding", "keys", "remedy"});
    json_.Begin("findings");
    for (Finding& finding : findings_) {
      const auto& keys = finding.of_nodes ? node_keys_ : element_keys_;
      if (is_part_) std::erase_if(finding.keys, [&](Key key) { return !keys.contains(key); });
      std::sort(finding.keys.begin(), finding.keys.end());
      const auto count = static_cast<std::int64_t>(finding.keys.size());
      json_.Begin(finding.name).Bool("fault", finding.is_fault).Integer("count", count);
      json_.BeginArray("keys");
      for (const Key key : finding.keys) json_.Integer({}, key);
      json_.End().End();
      if (count == 0) continue;
      table.Row({finding.is_fault ? "!" : " ", Grouped(count), std::string(finding.label),
                 KeysText(finding.keys),
                 finding.remedy.empty() ? std::string() : fmt::format("qxdb {}", finding.remedy)});
    }
    json_.End();
    text_ += table.IsEmpty() ? "\nno findings\n" : "\n" + table.Text();
    const bool faults = std::any_of(findings_.begin(), findings_.end(),
                                    [](const Finding& f) { return f.is_fault && !f.keys.empty(); });
    if (!table.IsEmpty()) text_ += faults ? "(! is a fault)\n" : "no faults\n";
  }

  void Quality(const std::vector<const MeasureInfo*>& measures) {
    std::vector<char> rated;
    for (const MeasureInfo* info : measures) {
      const std::vector<double> values = Values(*info);
      MeasureSummary summary = Summarise(mesh_, *info, values, options_.bins, options_.worst);
      if (summary.elements > 0) summaries_.push_back(std::move(summary));
      rated.resize(values.size(), 0);
      for (std::size_t e = 0; e < values.size(); ++e) rated[e] |= !std::isnan(values[e]);
    }
    Table table({"measure", ">elements", ">worst", ">of element", ">mean", ">best", "good",
                 ">outside", ">share"});
    for (const MeasureSummary& s : summaries_) table.Row(RowOf(s));
    if (!table.IsEmpty()) text_ += "\n" + table.Text();
    NotMeasured(rated);
    if (!options_.no_histograms) {
      for (const MeasureSummary& s : summaries_) Histogram(s);
    }
    json_.Begin("measures");
    for (const MeasureSummary& s : summaries_) Write(s);
    json_.End();
  }

  void Mass() {
    const CQXUnitCtrl& units = session_.Units();
    MassAssumptions assumptions;
    const auto take = [&](const std::optional<double>& from, std::optional<double>& to, int unit) {
      if (from) to = units.In(unit, *from);
    };
    take(options_.density, assumptions.density, unit::kMassDensity);
    take(options_.thickness, assumptions.thickness, unit::kLength);
    take(options_.section_area, assumptions.section_area, unit::kArea);
    const MassReport report = ComputeMass(session_, mesh_, assumptions);
    Table table(
        {">property", ">elements", ">length", ">area", ">volume", ">mass", ">x", ">y", ">z"});
    json_.Begin("mass").BeginArray("properties");
    for (const MassOfProperty& mass : report.by_property) {
      table.Row(RowOf(mass.property_key ? std::to_string(mass.property_key) : "none", mass));
      Write(mass);
    }
    json_.End().Begin("total");
    table.Row(RowOf("all", report.total));
    const RigidBody body = ToRigidBody(report.total.mass);
    json_.Real("mass", units.Out(unit::kMass, body.mass));
    text_ += fmt::format("\nmass in {}, lengths in {}\n{}", units.GetUnitName(unit::kMass),
                         units.GetUnitName(unit::kLength), table.Text());
    const std::int64_t curved = report.total.curved;
    text_ += fmt::format(
        "measured {}\n",
        curved ? fmt::format("along their curved sides: {} of {} elements; the others are straight",
                             Grouped(curved), Grouped(report.total.elements))
               : "from corner to corner: no element has curved sides");
    json_.Integer("curved", curved);
    const std::pair<const char*, double> inertia[] = {{"xx", body.xx}, {"yy", body.yy},
                                                      {"zz", body.zz}, {"xy", body.xy},
                                                      {"yz", body.yz}, {"zx", body.zx}};
    text_ += "inertia about the centre:";
    json_.Begin("inertia");
    for (const auto& [name, value] : inertia) {
      const double of_it = WithoutRounding(value, std::max({body.xx, body.yy, body.zz}));
      const double shown = units.Out(unit::kMass, of_it) * length_factor_ * length_factor_;
      text_ += fmt::format(" {} {}", name, Short(shown));
      json_.Real(name, shown);
    }
    text_ += "\n";
    json_.End().End();
    json_.Integer("without_density", report.without_density);
    json_.Integer("without_section", report.without_section).End();
    Unknown(report.without_density, "density", "--density");
    Unknown(report.without_section, "thickness or section", "--thickness or --section-area");
  }

  void Limits(const std::vector<Limit>& limits) {
    json_.BeginArray("exceeded");
    if (!limits.empty()) text_ += "\n";
    for (const Limit& limit : limits) {
      const auto reached = ValueOf(limit.name);
      const std::int64_t unmeasured = FindMeasure(limit.name) ? Unmeasured() : 0;
      const bool is_beyond = reached && Exceeds(limit, reached->value);
      std::string verdict = reached ? "kept" : "no element has it";
      if (is_beyond) verdict = "EXCEEDED, " + reached->text;
      if (unmeasured > 0) {
        verdict = fmt::format("{}, {} too broken to be measured", is_beyond ? verdict : "EXCEEDED",
                              Grouped(unmeasured));
      }
      text_ += fmt::format("limit {} = {}: {}\n", limit.name, Short(limit.value), verdict);
      if (!is_beyond && unmeasured == 0) continue;
      exceeded_ = true;
      json_.Begin().Text("name", limit.name).Real("limit", limit.value);
      if (reached) json_.Real("value", reached->value);
      json_.Integer("unmeasured", unmeasured).End();
    }
    json_.End();
  }

  Outcome WriteVtu() {
    std::vector<exchange::CellData> extra;
    for (const MeasureSummary& s : summaries_) {
      std::string name(s.info->name);
      std::replace(name.begin(), name.end(), '-', '_');
      extra.push_back({name, Values(*s.info)});
    }
    exchange::LossReport losses;
    Outcome written = exchange::WriteVtu(session_, options_.vtu,
                                         exchange::VtuEncoding::kAppendedRaw, extra, &losses);
    if (!written) return written;
    text_ += fmt::format("\n{}: measures as cell data: {}\n", options_.vtu, extra.size());
    for (const std::string& note : losses.Lines()) text_ += "  " + note + "\n";
    json_.Text("vtu", options_.vtu);
    return {};
  }

  bool Exceeded() const { return exceeded_; }
  const std::string& Text() const { return text_; }
  JsonText& Json() { return json_; }

 private:
  /// Says which elements no measure of the table was taken of, and why.
  void NotMeasured(const std::vector<char>& rated) {
    std::int64_t broken = 0, special = 0, others = 0;
    for (std::uint32_t e = 0; e < rated.size(); ++e) {
      if (rated[e] || !chosen_[e]) continue;
      const bool is_special = mesh_.IsUsable(e) && !FindElementType(mesh_.Element(e).type);
      ++(!mesh_.IsUsable(e) ? broken : is_special ? special : others);
    }
    const std::tuple<const char*, const char*, std::int64_t> reasons[] = {
        {"broken", "broken, see above", broken},
        {"special", "special, whose shape is the application's", special},
        {"without_measure", "of a shape that has none of these measures", others}};
    json_.Begin("unmeasured");
    std::string text;
    for (const auto& [name, label, count] : reasons) {
      json_.Integer(name, count);
      if (count == 0) continue;
      text += fmt::format("{}{} {}", text.empty() ? "elements not measured: " : "; ",
                          Grouped(count), label);
    }
    json_.End();
    if (!text.empty()) text_ += text + "\n";
  }

  static std::string Cell(double value) { return value >= kUnbounded ? "unbounded" : Short(value); }

  static std::vector<std::string> RowOf(const MeasureSummary& s) {
    const std::string unit = s.info->unit.empty() ? "" : fmt::format(" {}", s.info->unit);
    std::string good, outside, share;
    if (s.info->acceptable) {
      good = fmt::format("{} {}{}", s.info->high_is_bad ? "<=" : ">=", Short(*s.info->acceptable),
                         unit);
      outside = Grouped(s.outside);
      share = fmt::format("{:.1f} %",
                          100.0 * static_cast<double>(s.outside) / static_cast<double>(s.elements));
    }
    const bool named = !s.worst.empty();
    return {std::string(s.info->label),
            Grouped(s.elements),
            named ? Cell(s.worst[0].value) : "",
            named ? std::to_string(s.worst[0].key) : "",
            Cell(s.mean),
            Cell(s.best),
            good,
            outside,
            share};
  }

  void Histogram(const MeasureSummary& s) {
    text_ += fmt::format("\n{}{}\n{}", s.info->label,
                         s.info->unit.empty() ? "" : fmt::format(" ({})", s.info->unit),
                         HistogramText(s));
    if (s.worst.empty() || s.worst[0].value == s.best) return;
    text_ += "  worst:";
    const char* separator = " ";
    for (const RatedElement& rated : s.worst) {
      text_ += separator + TextOf(rated);
      separator = ", ";
    }
    text_ += "\n";
  }

  void Write(const MeasureSummary& s) {
    json_.Begin(s.info->name).Integer("elements", s.elements).Integer("outside", s.outside);
    json_.Integer("unbounded", s.unbounded).Real("best", s.best).Real("mean", s.mean);
    json_.BeginArray("worst");
    for (const RatedElement& rated : s.worst) {
      json_.Begin().Integer("element", rated.key).Real("value", rated.value).End();
    }
    json_.End().BeginArray("histogram");
    for (const HistogramBin& bin : s.histogram) {
      json_.Begin().Real("low", bin.low).Real("high", bin.high).Integer("count", bin.count);
      json_.Integer("outside", bin.outside).End();
    }
    json_.End().End();
  }

  /// The centre of a mass, without the rounding of numbers as large as it is wide.
  static Point3 CenterOf(const MassOfProperty& m) {
    const RigidBody body = ToRigidBody(m.mass);
    const double width = body.mass > 0 ? std::sqrt((body.xx + body.yy + body.zz) / body.mass) : 0;
    const double scale = std::max(width, Length(body.center));
    return {WithoutRounding(body.center.x, scale), WithoutRounding(body.center.y, scale),
            WithoutRounding(body.center.z, scale)};
  }

  std::vector<std::string> RowOf(const std::string& name, const MassOfProperty& m) {
    const CQXUnitCtrl& units = session_.Units();
    const Point3 center = CenterOf(m);
    return {name,
            Grouped(m.elements),
            Short(units.Out(unit::kLength, m.length)),
            Short(units.Out(unit::kArea, m.area)),
            Short(units.Out(unit::kVolume, m.volume)),
            Short(units.Out(unit::kMass, m.mass.size)),
            Short(units.Out(unit::kLength, center.x)),
            Short(units.Out(unit::kLength, center.y)),
            Short(units.Out(unit::kLength, center.z))};
  }

  void Write(const MassOfProperty& m) {
    const CQXUnitCtrl& units = session_.Units();
    const Point3 center = CenterOf(m);
    json_.Begin().Integer("property", m.property_key).Integer("elements", m.elements);
    json_.Real("length", units.Out(unit::kLength, m.length));
    json_.Real("area", units.Out(unit::kArea, m.area));
    json_.Real("volume", units.Out(unit::kVolume, m.volume));
    json_.Real("mass", units.Out(unit::kMass, m.mass.size)).BeginArray("center");
    for (const double c : {center.x, center.y, center.z}) {
      json_.Real({}, units.Out(unit::kLength, c));
    }
    json_.End().End();
  }

  void Unknown(std::int64_t elements, const char* what, const char* option) {
    if (elements == 0) return;
    text_ += fmt::format("{} elements without a known {} weigh nothing here; give {}\n",
                         Grouped(elements), what, option);
  }

  /// A value that a limit is held against, and how to say it.
  struct Reached {
    double value;
    std::string text;
  };

  /// The worst value of a measure, or the number of a kind of finding; nothing when no element has
  /// the measure.
  std::optional<Reached> ValueOf(const std::string& name) const {
    for (const Finding& finding : findings_) {
      if (finding.name != name) continue;
      const auto count = static_cast<std::int64_t>(finding.keys.size());
      return Reached{static_cast<double>(count), fmt::format("there are {}", Grouped(count))};
    }
    const MeasureInfo& info = *FindMeasure(name);
    const MeasureSummary s = Summarise(mesh_, info, Values(info), 1, 1);
    if (s.worst.empty()) return {};
    return Reached{s.worst[0].value, "the worst is " + TextOf(s.worst[0])};
  }

  /// "quad4 17 1.25"
  static std::string TextOf(const RatedElement& rated) {
    const ElementType* type = FindElementType(rated.type);
    return fmt::format("{} {} {}", type ? type->name : "element", rated.key, Cell(rated.value));
  }

  /// Elements too broken to be measured.
  std::int64_t Unmeasured() const {
    std::int64_t count = 0;
    for (std::uint32_t e = 0; e < mesh_.ElementCount(); ++e)
      count += chosen_[e] && !mesh_.IsUsable(e);
    return count;
  }

  /// A measure of what is checked; NaN of the rest.
  std::vector<double> Values(const MeasureInfo& info) const {
    std::vector<double> values = ValuesOf(mesh_, info, length_factor_);
    for (std::size_t e = 0; is_part_ && e < values.size(); ++e) {
      if (!chosen_[e]) values[e] = std::numeric_limits<double>::quiet_NaN();
    }
    return values;
  }

  static bool Exceeds(const Limit& limit, double value) {
    const MeasureInfo* info = FindMeasure(limit.name);
    return info ? IsBeyond(*info, value, limit.value) : value > limit.value;
  }

  CQXDBSession& session_;
  const CheckOptions& options_;
  DenseMesh mesh_;
  double length_factor_;
  bool is_part_ = false;
  std::vector<char> chosen_;  ///< by element
  std::unordered_set<Key> element_keys_, node_keys_;
  std::vector<Finding> findings_;
  std::vector<MeasureSummary> summaries_;
  std::string text_;
  JsonText json_;
  bool exceeded_ = false;
};

Outcome Run(Model& model, const CheckOptions& options, Context& context) {
  if (Outcome free =
          CheckOutput(options.vtu, *exchange::FindFormat("vtu"), options.force, {options.model});
      !free)
    return free;
  std::vector<Limit> limits(options.limits.size());
  for (std::size_t i = 0; i < limits.size(); ++i) ReadLimit(options.limits[i], limits[i]);
  std::optional<Selection> selected;
  if (!options.where.empty()) {
    auto found = SelectIn(model, options.where, SelectKind::kElements);
    if (!found) return found.Error();
    selected = std::move(*found);
  }
  Check check(model.session, options, selected ? &*selected : nullptr);
  check.Overview();
  check.Findings();
  check.Quality(ChooseMeasures(options.measures));
  if (options.mass || options.density || options.thickness || options.section_area) check.Mass();
  check.Limits(limits);
  if (!options.vtu.empty()) {
    if (Outcome written = check.WriteVtu(); !written) return written;
  }
  context.Print(check.Text(), check.Json().End());
  if (check.Exceeded()) context.exit_code = kNo;
  return {};
}

}  // namespace

void AddCheck(Command& app, Context& context) {
  const auto [command, options] = AddModelCommand<CheckOptions>(
      app, context, "check", "Find faults of a mesh and rate its elements",
      "qxdb check bracket.qxm --limit aspect-ratio=8 --limit inverted-solids=0", Run);
  command->notes = "Measures and findings that a limit can name:\n  " + KnownNames();
  command
      ->Add("--measure", &options->measures,
            "Show these measures only, apart by commas, or all; without it those that most "
            "ask for")
      .SplitAtCommas()
      .OneAtATime()
      .Check({ReadMeasure, ""});
  command
      ->Add("--limit", &options->limits,
            "NAME=NUMBER: exit with 1 when an element is worse or broken, or there are "
            "more; may be given again")
      .OneAtATime()
      .Check({[](const std::string& text) {
                Limit limit;
                return ReadLimit(text, limit);
              },
              ""});
  command->Add("--vtu", &options->vtu, "Write the mesh with the measures as cell data")
      .File({".vtu"});
  AddForce(*command, options->force);
  command->Add("--worst", &options->worst, "How many of the worst elements to name")
      .Range(0, 1000)
      .ShowDefault();
  command->Add("--bins", &options->bins, "Bars of a histogram, at most")
      .Range(1, 100)
      .ShowDefault();
  command->Add("--no-histograms", &options->no_histograms, "Tables only");
  command->Add("--tolerance", &options->tolerance, "Distance within which nodes are duplicates")
      .Check(NonNegativeReal());
  Option& where = AddWhere(*command, options->where, "Check these elements only");
  command->Add("--mass", &options->mass, "Masses, centres and inertia by property").Excludes(where);
  command
      ->Add("--density", &options->density,
            "Mass density where no property gives one, in current units")
      .Check(NonNegativeReal())
      .Excludes(where);
  command
      ->Add("--thickness", &options->thickness, "Thickness of surfaces where no property gives one")
      .Check(NonNegativeReal())
      .Excludes(where);
  command
      ->Add("--section-area", &options->section_area,
            "Section of lines where no property gives one")
      .Check(NonNegativeReal())
      .Excludes(where);
}

}  // namespace qx::app
