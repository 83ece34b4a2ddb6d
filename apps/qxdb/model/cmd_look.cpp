// Looking at models: info, show, verify.

#include <algorithm>
#include <fmt/format.h>
#include <limits>
#include <map>
#include <optional>

#include "qx_db/core/model_check.h"
#include "qx_db/core/model_summary.h"
#include "qx_db/model/set_rules.h"
#include "qx_db/platform/plain_text.h"
#include "qx_db/platform/text.h"
#include "qx_db/qx_db.h"
#include "qx_db/record/describe.h"
#include "qx_db/record/element_types.h"

#include "apps/qxdb/commands.h"
#include "apps/qxdb/model/info_text.h"
#include "apps/qxdb/model/selection.h"
#include "apps/qxdb/model/where.h"

namespace qx::app {
namespace {

struct LookOptions {
  std::string model;
  std::string pool;
  std::string keys = "all";
  std::string where;
};

// ---- info ---------------------------------------------------------------------------------------

/// What info tells of a model as a whole; lengths in current units.
struct Figures {
  using Box = ModelSummary::Box;
  std::uint64_t state = 0;
  std::int64_t nodes = 0;
  std::map<std::int32_t, std::int64_t> elements;
  std::optional<Box> box;
};

tagTVector3<double> InCurrentUnits(const tagTVector3<double>& position, const CQXUnitCtrl& units) {
  tagTNode node;
  node.position = position;
  node.ConvertUnitOut(&units);
  return node.position;
}

std::optional<Figures::Box> BoundingBox(const CQXDBSession& session) {
  std::optional<Figures::Box> box;
  auto& nodes = *session.GetPool<DPoolNode>(code::kNode);
  for (ITR pos = nodes.GetHeadPosition(); pos;) {
    const tagTVector3<double> p = InCurrentUnits(nodes.GetNextNU(pos).position, session.Units());
    if (!box) box = Figures::Box{p, p};
    auto& [low, high] = *box;
    low = {std::min<double>(low.x, p.x), std::min<double>(low.y, p.y),
           std::min<double>(low.z, p.z)};
    high = {std::max<double>(high.x, p.x), std::max<double>(high.y, p.y),
            std::max<double>(high.z, p.z)};
  }
  return box;
}

std::map<std::int32_t, std::int64_t> ElementCounts(const CQXDBSession& session) {
  std::map<std::int32_t, std::int64_t> counts;
  auto& elements = *session.GetPool<DPoolElem>(code::kElem);
  for (ITR pos = elements.GetHeadPosition(); pos;) ++counts[elements.GetNextNU(pos).type];
  return counts;
}

Figures FiguresOf(const CQXDBSession& session) {
  return {session.StateHash(), session.GetDataPool(code::kNode)->GetSize(), ElementCounts(session),
          BoundingBox(session)};
}

/// The same from what the file says of itself.
Figures FiguresOf(const ModelGlance& glance, const CQXUnitCtrl& units) {
  const ModelSummary& summary = glance.summary;
  Figures figures{summary.state, 0, summary.elements, std::nullopt};
  for (const ModelFileReport::Pool& pool : glance.report.pools) {
    if (pool.type == code::kNode) figures.nodes = pool.records;
  }
  if (summary.box) {
    figures.box = Figures::Box{InCurrentUnits(summary.box->low, units),
                               InCurrentUnits(summary.box->high, units)};
  }
  return figures;
}

std::string TypeLabel(std::int32_t type) {
  const ElementType* known = FindElementType(type);
  return known ? std::string(known->plural) : fmt::format("elements of type {}", type);
}

void InfoMesh(const Figures& figures, std::string_view unit, std::string& text, JsonText& json) {
  json.Integer("nodes", figures.nodes).Begin("elements");
  text += fmt::format("nodes     {:>11}\n", Grouped(figures.nodes));
  for (const auto& [type, count] : figures.elements) {
    text += fmt::format("elements  {:>11}  {}\n", Grouped(count), TypeLabel(type));
    json.Integer(std::to_string(type), count);
  }
  json.End();
  if (!figures.box) return;
  const auto& [low, high] = *figures.box;
  const std::pair<double, double> sides[] = {{low.x, high.x}, {low.y, high.y}, {low.z, high.z}};
  const char* label = "box     x";
  json.BeginArray("box");
  for (const auto& [from, to] : sides) {
    text += fmt::format("{}  {} .. {} {}\n", label, Short(from), Short(to), unit);
    label = label[0] == 'b' ? "        y" : "        z";
    json.BeginArray().Real({}, from).Real({}, to).End();
  }
  json.End();
}

template <class Pool, class Elements>
void InfoSetsOf(const Pool& sets, const char* label, const char* name, const Elements& elements_of,
                std::string& text, JsonText& json) {
  json.BeginArray(name);
  for (ITR pos = sets.GetHeadPosition(); pos; sets.Next(pos)) {
    const auto& set = sets.GetAtNU(pos);
    const std::int64_t elements = elements_of(pos);
    text += fmt::format("{:<9} {:>11}  \"{}\"\n", label, Grouped(elements),
                        OneLine(set.GetName().ToUtf8()));
    json.Begin().Integer("key", set.key).Text("name", set.GetName().ToUtf8());
    json.Integer("elements", elements).End();
  }
  json.End();
}

/// Elements in each mesh set and in each active element set.
void InfoSets(const CQXDBSession& session, std::string& text, JsonText& json) {
  InfoSetsOf(
      *session.GetPool<DPoolMset>(code::kMset), "set", "sets",
      [&](ITR set) { return CountOf(MembersOf(session, set).Elements()); }, text, json);
  const auto& active = *session.GetPool<DPoolActiveElemSet>(code::kActiveElemSet);
  InfoSetsOf(
      active, "active", "active_sets",
      [&](ITR set) { return CountOf(active.GetAtNU(set).elements); }, text, json);
}

void PrintInfo(const std::string& path, const ModelFileReport& report, const InfoSource& source,
               const Figures& figures, const Context& context) {
  const CQXDBSession& session = source.session;
  std::string text = fmt::format("{}: {}, saved {} time{}\n", path, Bytes(report.file_bytes),
                                 report.revision, report.revision == 1 ? "" : "s");
  JsonText json;
  json.Begin().Text("model", path).Integer("bytes", static_cast<std::int64_t>(report.file_bytes));
  json.Integer("revision", report.revision);
  InfoMesh(figures, session.Units().GetUnitName(unit::kLength), text, json);
  InfoSets(session, text, json);
  InfoRest(source, text, json);
  text += "units     ";
  json.Begin("units");
  for (int b = 0; b < kUnitBaseCount; ++b) {
    const auto base = static_cast<UnitBase>(b);
    const auto& unit = UnitsOf(base)[static_cast<std::size_t>(session.Units().Current()[base])];
    text += fmt::format(" {}", unit.name);
    json.Text(UnitBaseName(base), unit.name);
  }
  json.End();
  const std::string hash = HashText(figures.state);
  text += "\nstate      " + hash + "\n";
  context.Print(text, json.Text("state", hash).End());
}

bool HoldsRules(const ModelFileReport& report) {
  return std::any_of(report.pools.begin(), report.pools.end(), [](const auto& pool) {
    return pool.type == code::kSetRule && pool.records > 0;
  });
}

/// From what the file says of itself, without reading nodes and elements; false where that does not
/// say enough, as of sets whose members follow from a rule.
bool InfoAtAGlance(const std::string& path, const Context& context) {
  CQXDBSession session(host::SetUpModel);
  std::vector<std::uint16_t> needed;
  for (const DPoolBase* pool : session.Pools()) {
    if (IsNeededForInfo(*pool)) needed.push_back(pool->GetTypeCode());
  }
  const auto glance = GlanceAtModel(path, session, needed);
  if (!glance || HoldsRules(glance->report)) return false;
  const auto steps = static_cast<std::int64_t>(glance->report.stamp.steps);
  PrintInfo(path, glance->report, {session, steps, 0, &glance->report},
            FiguresOf(*glance, session.Units()), context);
  return true;
}

Outcome Info(const LookOptions& options, const Context& context) {
  if (!OpenModel::Current() && InfoAtAGlance(options.model, context)) return {};
  Model model(options.model);
  if (Outcome opened = model.Open(); !opened) return opened;
  const Journal& history = model.session.History();
  PrintInfo(model.path, model.report,
            {model.session, static_cast<std::int64_t>(history.Done().size()),
             static_cast<std::int64_t>(history.Undone().size())},
            FiguresOf(model.session), context);
  return {};
}

// ---- show ---------------------------------------------------------------------------------------

/// Records that have no form of their own in the gateway, as the members that their schema names.
Outcome ShowMembers(DPoolBase& pool, const TArray<Key>& keys, const Context& context) {
  const std::string label = PoolLabel(pool);
  std::string text = fmt::format("{} has no gateway table; its records by their members:\n", label);
  JsonText json;
  json.Begin().Begin(label);
  for (const Key key : keys) {
    const TStructBase& record = *KeyedSetBase::RecordAt(pool.Find(key));
    Table table({"member", "value"});
    json.Begin(std::to_string(key));
    for (const Row& row : pool.GetSchema().Rows()) {
      const std::string value = MemberValueText(row, record);
      table.Row({Utf8(row.name), value});
      json.Text(Utf8(row.name), value);
    }
    json.End();
    text += fmt::format("\n{} {}\n{}", label, key, table.Text());
  }
  context.Print(keys.IsEmpty() ? label + " holds no records\n" : text, json.End().End());
  return {};
}

Outcome Show(Model& model, const LookOptions& options, const Context& context) {
  const auto pool = FindPool(model.session, options.pool);
  if (!pool) return pool.Error();
  TArray<Key> keys;
  if ((*pool)->GetSize() > 0 || options.keys != "all" || !options.where.empty()) {
    const auto items = options.where.empty() ? PickItems(model, **pool, options.keys)
                                             : PickWhere(model, **pool, options.where);
    if (!items) return items.Error();
    for (const ITR item : *items) keys.Add(KeyOf(item));
  }
  if ((*pool)->GetSchema().Gateway().empty()) return ShowMembers(**pool, keys, context);
  dbgateway::DataBase out;
  (*pool)->WriteAPI(&out, keys, 0);
  JsonText json;
  json.Raw({}, out.ToText());
  context.Print(out.ToText(true), json);
  return {};
}

// ---- verify -------------------------------------------------------------------------------------

/// Problems of a model that its file does not show: references that lead nowhere, elements with a
/// wrong number of nodes.
std::vector<std::string> FindProblems(const CQXDBSession& session, const ModelFileReport& report) {
  std::vector<std::string> problems;
  for (const auto& pool : report.pools) {
    if (pool.unresolved_references == 0) continue;
    problems.push_back(fmt::format("pool {}: {} references name no record", pool.io_name,
                                   pool.unresolved_references));
  }
  auto& elements = *session.GetPool<DPoolElem>(code::kElem);
  for (ITR pos = elements.GetHeadPosition(); pos;) {
    const tagTElem& element = elements.GetNextNU(pos);
    const ElementType* type = FindElementType(element.type);
    if (type && element.nodes.GetSize() != type->nodes) {
      problems.push_back(fmt::format("element {}: {} nodes where a {} has {}", element.key,
                                     element.nodes.GetSize(), type->name, type->nodes));
    }
    if (std::find(element.nodes.begin(), element.nodes.end(), ITR{0}) != element.nodes.end()) {
      problems.push_back(fmt::format("element {}: has a node that is not there", element.key));
    }
  }
  auto& nodes = *session.GetPool<DPoolNode>(code::kNode);
  for (ITR pos = nodes.GetHeadPosition(); pos;) {
    const tagTNode& node = nodes.GetNextNU(pos);
    if (IsFinite(Vector3(node.position))) continue;
    problems.push_back(fmt::format("node {}: a coordinate is not a finite number", node.key));
  }
  if (const std::string fault = session.Validate(); !fault.empty()) problems.push_back(fault);
  return problems;
}

Outcome Verify(Model& model, const LookOptions&, Context& context) {
  if (Outcome read = model.Reread(); !read) return read;
  const ModelFileReport& report = model.report;
  auto problems = FindProblems(model.session, report);
  const Outcome straight = CheckCircles(model.session, ReferenceForm::kIterators, model.path);
  if (!straight) problems.push_back(straight.Error().what);
  const std::string summary = FindSummaryFault(model.path, model.session);
  if (!summary.empty()) problems.push_back(summary);
  std::int64_t records = 0;
  std::size_t pools = 0;
  for (const auto& pool : report.pools) {
    records += pool.records;
    pools += pool.records > 0;
  }
  constexpr std::size_t kMostShown = 20;
  std::string text = fmt::format(
      "{}: {} bytes and {} records in {} pools read, every checksum right\n", model.path,
      Grouped(static_cast<std::int64_t>(report.file_bytes)), Grouped(records), pools);
  JsonText json;
  json.Begin().Text("model", model.path).Integer("records", records).BeginArray("problems");
  for (std::size_t i = 0; i < problems.size(); ++i) {
    if (i < kMostShown) text += problems[i] + '\n';
    json.Text({}, problems[i]);
  }
  if (problems.size() > kMostShown) {
    text += fmt::format("... and {} more\n", problems.size() - kMostShown);
  }
  text += problems.empty() ? "no problems found" : fmt::format("{} problems", problems.size());
  context.exit_code = problems.empty() ? kDone : kNo;
  context.Print(text, json.End().End());
  return {};
}

}  // namespace

void AddInfo(Command& app, Context& context) {
  const auto [command, options] = AddCommand<LookOptions>(app, context, "info", "Summarise a model",
                                                          "qxdb info bracket.qxm", Info);
  command->Add("model", &options->model, "Model file").OpenModel().Required();
}

void AddShow(Command& app, Context& context) {
  const auto [command, options] =
      AddModelCommand<LookOptions>(app, context, "show", "Print records by pool and key",
                                   "qxdb show bracket.qxm node 1-5,9", Show);
  command->Add("pool", &options->pool, "Pool, e.g. node or elem").Pool().Required();
  Option& keys =
      command->Add("keys", &options->keys, "Keys: 1-5,9,100- or all").Keys().ShowDefault();
  AddWhere(*command, options->where, "Nodes or elements by a selection").Excludes(keys);
}

void AddVerify(Command& app, Context& context) {
  AddModelCommand<LookOptions>(app, context, "verify", "Check a model file and its references",
                               "qxdb verify bracket.qxm", Verify);
}

}  // namespace qx::app
