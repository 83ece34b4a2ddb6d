// Looking at models: info, show, verify.

#include <algorithm>
#include <array>
#include <fmt/format.h>
#include <limits>
#include <map>

#include "qx_db/core/model_check.h"
#include "qx_db/platform/plain_text.h"
#include "qx_db/platform/text.h"
#include "qx_db/qx_db.h"
#include "qx_db/record/describe.h"
#include "qx_db/record/element_types.h"

#include "apps/qxdb/commands.h"
#include "apps/qxdb/model/history_bounds.h"
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

struct Box {
  std::array<double, 3> low{};
  std::array<double, 3> high{};
  bool empty = true;
};

Box BoundingBox(const CQXDBSession& session) {
  Box box;
  auto& nodes = *session.GetPool<DPoolNode>(code::kNode);
  for (ITR pos = nodes.GetHeadPosition(); pos;) {
    tagTNode node = nodes.GetNextNU(pos);
    node.ConvertUnitOut(&session.Units());
    const double p[3] = {node.position.x, node.position.y, node.position.z};
    for (std::size_t i = 0; i < 3; ++i) {
      box.low[i] = box.empty ? p[i] : std::min(box.low[i], p[i]);
      box.high[i] = box.empty ? p[i] : std::max(box.high[i], p[i]);
    }
    box.empty = false;
  }
  return box;
}

std::map<std::int32_t, std::int64_t> ElementCounts(const CQXDBSession& session) {
  std::map<std::int32_t, std::int64_t> counts;
  auto& elements = *session.GetPool<DPoolElem>(code::kElem);
  for (ITR pos = elements.GetHeadPosition(); pos;) ++counts[elements.GetNextNU(pos).type];
  return counts;
}

std::string TypeLabel(std::int32_t type) {
  const ElementType* known = FindElementType(type);
  return known ? std::string(known->plural) : fmt::format("elements of type {}", type);
}

void InfoMesh(const CQXDBSession& session, std::string& text, JsonText& json) {
  const std::string_view unit = session.Units().GetUnitName(unit::kLength);
  json.Integer("nodes", session.GetDataPool(code::kNode)->GetSize()).Begin("elements");
  text += fmt::format("nodes     {:>11}\n", Grouped(session.GetDataPool(code::kNode)->GetSize()));
  for (const auto& [type, count] : ElementCounts(session)) {
    text += fmt::format("elements  {:>11}  {}\n", Grouped(count), TypeLabel(type));
    json.Integer(std::to_string(type), count);
  }
  json.End();
  const Box box = BoundingBox(session);
  if (box.empty) return;
  json.BeginArray("box");
  for (std::size_t i = 0; i < 3; ++i) {
    text += fmt::format("{}  {} .. {} {}\n",
                        i == 0   ? "box     x"
                        : i == 1 ? "        y"
                                 : "        z",
                        Short(box.low[i]), Short(box.high[i]), unit);
    json.BeginArray().Real({}, box.low[i]).Real({}, box.high[i]).End();
  }
  json.End();
}

template <class Pool>
void InfoSetsOf(const Pool& sets, const char* label, const char* name, std::string& text,
                JsonText& json) {
  json.BeginArray(name);
  for (ITR pos = sets.GetHeadPosition(); pos; sets.Next(pos)) {
    const auto& set = sets.GetAtNU(pos);
    const std::int64_t elements = CountOf(set.elements);
    text += fmt::format("{:<9} {:>11}  \"{}\"\n", label, Grouped(elements),
                        OneLine(set.GetName().ToUtf8()));
    json.Begin().Integer("key", set.key).Text("name", set.GetName().ToUtf8());
    json.Integer("elements", elements).End();
  }
  json.End();
}

/// Elements in each mesh set and in each active element set.
void InfoSets(const CQXDBSession& session, std::string& text, JsonText& json) {
  InfoSetsOf(*session.GetPool<DPoolMset>(code::kMset), "set", "sets", text, json);
  InfoSetsOf(*session.GetPool<DPoolActiveElemSet>(code::kActiveElemSet), "active", "active_sets",
             text, json);
}

Outcome Info(Model& model, const LookOptions&, const Context& context) {
  const ModelFileReport& report = model.report;
  const CQXDBSession& session = model.session;
  std::string text = fmt::format("{}: {}, saved {} time{}\n", model.path, Bytes(report.file_bytes),
                                 report.revision, report.revision == 1 ? "" : "s");
  JsonText json;
  json.Begin()
      .Text("model", model.path)
      .Integer("bytes", static_cast<std::int64_t>(report.file_bytes));
  json.Integer("revision", report.revision);
  InfoMesh(session, text, json);
  InfoSets(session, text, json);
  text += "units     ";
  json.Begin("units");
  for (int b = 0; b < kUnitBaseCount; ++b) {
    const auto base = static_cast<UnitBase>(b);
    const auto& unit = UnitsOf(base)[static_cast<std::size_t>(session.Units().Current()[base])];
    text += fmt::format(" {}", unit.name);
    json.Text(UnitBaseName(base), unit.name);
  }
  json.End();
  const std::string hash = HashText(session.StateHash());
  text += "\nhistory    " + HistoryText(session);
  text.pop_back();
  WriteHistory(session, json);
  text += "\nstate      " + hash + "\n";
  context.Print(text, json.Text("state", hash).End());
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
  const ModelFileReport& report = model.report;
  auto problems = FindProblems(model.session, report);
  const Outcome straight = CheckCircles(model.session, ReferenceForm::kIterators, model.path);
  if (!straight) problems.push_back(straight.Error().what);
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
  AddModelCommand<LookOptions>(app, context, "info", "Summarise a model", "qxdb info bracket.qxm",
                               Info);
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
