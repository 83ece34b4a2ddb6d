#include "apps/qxdb/seed/seed_output.h"

#include <algorithm>
#include <fmt/format.h>

#include "qx_db/qx_db.h"
#include "qx_db/record/element_types.h"

#include "exchange/vtk/vtu_writer.h"

namespace qx::app {

std::span<const MethodNameEntry> MethodNames() {
  static constexpr MethodNameEntry kNames[] = {
      {tagTSzct::kBySize, "size"},           {tagTSzct::kByDivisions, "divisions"},
      {tagTSzct::kLinearGrading, "linear"},  {tagTSzct::kGeometricGrading, "geometric"},
      {tagTSzct::kHyperbolic, "hyperbolic"}, {tagTSzct::kByPositions, "positions"},
  };
  return kNames;
}

const char* MethodName(std::int32_t method) {
  for (const MethodNameEntry& entry : MethodNames()) {
    if (entry.method == method) return entry.name;
  }
  return "unknown";
}

namespace {

/// Length of the piece of an edge between two neighbouring seeds.
double Interval(const SeedPreview& preview, int edge, std::size_t from) {
  const EdgeSeeds& seeds = preview.seeds.at(edge);
  double a = 0;
  double b = 0;
  preview.cad->GetLengthAt(edge, seeds.parameters[from], a);
  preview.cad->GetLengthAt(edge, seeds.parameters[from + 1], b);
  return b - a;
}

std::string MismatchText(const SeedPreview& preview, const SeedMismatch& mismatch) {
  const std::string other =
      mismatch.other ? fmt::format(" and {}", preview.KeyOf(mismatch.other)) : "";
  return fmt::format("edge {}{}: {}", preview.KeyOf(mismatch.edge), other, mismatch.what);
}

/// The keys of edges that are seeded by a size of which they have not half the length.
std::vector<Key> CoarseEdges(const SeedPreview& preview, const CQXDBSession& session) {
  const auto& controls = Pool<tagTSzct>(session);
  std::vector<Key> keys;
  for (const auto& [edge, source] : preview.sources) {
    if (source.method != tagTSzct::kBySize) continue;
    const tagTSzct& control = controls.GetAtNU(controls.Find(source.control));
    if (2 * preview.cad->GetEdgeLength(edge) < control.dbl_params[0])
      keys.push_back(preview.KeyOf(edge));
  }
  return keys;
}

}  // namespace

std::string SeedTable(const SeedPreview& preview, const CQXDBSession& session) {
  const std::string_view length_unit = session.Units().GetUnitName(unit::kLength);
  Table table({">edge", "kind", fmt::format(">length/{}", length_unit), ">control", "method",
               ">divisions", ">first", ">last", ""});
  for (const auto& [edge, seeds] : preview.seeds) {
    const SeedPreview::Source& source = preview.sources.at(edge);
    table.Row({std::to_string(preview.KeyOf(edge)), EdgeKindName(preview.cad->GetEdgeKind(edge)),
               Short(preview.cad->GetEdgeLength(edge)), std::to_string(source.control),
               MethodName(source.method), std::to_string(seeds.Divisions()),
               Short(Interval(preview, edge, 0)),
               Short(Interval(preview, edge, seeds.Divisions() - 1)),
               source.reversed ? "reversed" : ""});
  }
  std::string text = table.IsEmpty() ? "no edge is seeded\n" : table.Text();
  const auto pointlike =
      std::count_if(preview.keys.edges.begin(), preview.keys.edges.end(), [&](const auto& entry) {
        return preview.cad->GetEdgeKind(entry.first) == EdgeKind::kDegenerate;
      });
  if (pointlike > 0)
    text += pointlike == 1 ? std::string("1 edge has no length and no seeds\n")
                           : fmt::format("{} edges have no length and no seeds\n", pointlike);
  text += fmt::format("{} of {} edges seeded, {} pairs of edges lie on each other\n",
                      preview.seeds.size(), preview.cad->GetEdgeCount(), preview.twins.size());
  if (const std::vector<Key> coarse = CoarseEdges(preview, session); !coarse.empty()) {
    text += fmt::format("note: one division on {} shorter than half the size asked for: {}\n",
                        coarse.size() == 1 ? "an edge" : fmt::format("{} edges", coarse.size()),
                        fmt::join(coarse, ","));
  }
  for (const SeedPreview::Fault& fault : preview.faults) {
    text += "not seeded: " + fault.failure.Line() + '\n';
  }
  for (const SeedMismatch& mismatch : preview.mismatches) {
    text += "mismatch: " + MismatchText(preview, mismatch) + '\n';
  }
  return text;
}

void WriteSeedJson(const SeedPreview& preview, JsonText& json) {
  json.BeginArray("edges");
  for (const auto& [edge, seeds] : preview.seeds) {
    const SeedPreview::Source& source = preview.sources.at(edge);
    json.Begin().Integer("key", preview.KeyOf(edge));
    json.Text("kind", EdgeKindName(preview.cad->GetEdgeKind(edge)));
    json.Real("length", preview.cad->GetEdgeLength(edge)).Integer("control", source.control);
    json.Text("method", MethodName(source.method)).Bool("reversed", source.reversed);
    json.Integer("divisions", static_cast<std::int64_t>(seeds.Divisions()));
    json.Real("first", Interval(preview, edge, 0));
    json.Real("last", Interval(preview, edge, seeds.Divisions() - 1)).End();
  }
  json.End().BeginArray("faults");
  for (const SeedPreview::Fault& fault : preview.faults) {
    json.Begin().Integer("key", preview.KeyOf(fault.edge)).Integer("control", fault.control);
    json.Text("what", fault.failure.what).Text("remedy", fault.failure.remedy).End();
  }
  json.End().BeginArray("mismatches");
  for (const SeedMismatch& mismatch : preview.mismatches) {
    json.Text({}, MismatchText(preview, mismatch));
  }
  json.End();
}

std::string SeedPointsJson(const SeedPreview& preview) {
  JsonText json;
  json.Begin().BeginArray("edges");
  for (const auto& [edge, seeds] : preview.seeds) {
    json.Begin().Integer("key", preview.KeyOf(edge));
    json.Integer("control", preview.sources.at(edge).control);
    json.BeginArray("fractions");
    for (const double fraction : seeds.fractions) json.Real({}, fraction);
    json.End().BeginArray("points");
    for (const CadPoint& point : seeds.points) {
      json.BeginArray().Real({}, point.x).Real({}, point.y).Real({}, point.z).End();
    }
    json.End().End();
  }
  json.End().End();
  return json.Result() + '\n';
}

Outcome WriteSeedVtu(const SeedPreview& preview, const UnitSystem& units, const std::string& path) {
  // A model of its own: a node a seed, a line an interval.
  CQXDBSession lines(AddStandardPools);
  lines.EnableRecording(false);
  lines.Units().SetModel(units);
  lines.Units().SetCurrent(units);
  auto& nodes = Pool<tagTNode>(lines);
  auto& elements = Pool<tagTElem>(lines);
  exchange::CellData edge_keys{"edge_key", {}};
  exchange::CellData control_keys{"size_control_key", {}};
  for (const auto& [edge, seeds] : preview.seeds) {
    ITR former = 0;
    for (const CadPoint& point : seeds.points) {
      tagTNode node;
      node.key = nodes.GetNewKey();
      node.position = point.As<tagTVector3<double>>();
      const ITR at = nodes.InsertNU(node);
      if (former) {
        tagTElem line;
        line.key = elements.GetNewKey();
        line.type = element::kLine2;
        line.nodes = {former, at};
        elements.InsertNU(line);
        edge_keys.values.push_back(preview.KeyOf(edge));
        control_keys.values.push_back(preview.sources.at(edge).control);
      }
      former = at;
    }
  }
  return exchange::WriteVtu(lines, path, exchange::VtuEncoding::kAppendedBase64,
                            {edge_keys, control_keys});
}

}  // namespace qx::app
