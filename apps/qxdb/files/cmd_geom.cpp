// Geometry: what a CAD file holds, and bringing it into a model.

#include <fmt/format.h>

#include "qx_db/model/cad_keys.h"
#include "qx_db/qx_db.h"

#include "apps/qxdb/commands.h"
#include "apps/qxdb/files/cad_input.h"
#include "apps/qxdb/model/history_bounds.h"

namespace qx::app {
namespace {

struct GeomOptions {
  std::string cad;
  std::string model;
  TargetOptions target;
};

Key KeyOf(ITR itr) { return KeyedSetBase::RecordAt(itr)->GetKey(); }

std::string EdgeList(const CadFace& face, const CadInstance& keys) {
  std::string text;
  int loop = 0;
  for (const CadEdgeUse& use : face.edges) {
    if (!text.empty()) text += use.loop == loop ? " " : " | ";
    loop = use.loop;
    text += fmt::format("{}{}", use.reversed ? "-" : "", KeyOf(keys.edges.at(use.edge)));
  }
  return text;
}

void ListBodies(const ICADSession& cad, const CadInstance& keys, std::string& text,
                JsonText& json) {
  const CadTopology& topology = cad.GetTopology();
  Table table({">key", "body", ">faces", ">edges"});
  json.BeginArray("bodies");
  for (const auto& entry : keys.bodies) {
    const int body = entry.first;
    const ITR itr = entry.second;
    const auto faces = std::count_if(topology.faces.begin(), topology.faces.end(),
                                     [&](const CadFace& face) { return face.body == body; });
    const auto edges = std::count(topology.edge_bodies.begin(), topology.edge_bodies.end(), body);
    const std::string& kind = topology.bodies[static_cast<std::size_t>(body - 1)];
    table.Row({std::to_string(KeyOf(itr)), kind, std::to_string(faces), std::to_string(edges)});
    json.Begin().Integer("key", KeyOf(itr)).Text("kind", kind).Integer("faces", faces);
    json.Integer("edges", edges).End();
  }
  json.End();
  text += table.Text();
}

void ListFaces(const ICADSession& cad, const CadInstance& keys, std::string& text, JsonText& json) {
  Table table({">key", "face", ">body", "edges, - for reversed, | between loops"});
  json.BeginArray("faces");
  for (const CadFace& face : cad.GetTopology().faces) {
    const Key key = KeyOf(keys.faces.at(face.number));
    const Key body = face.body ? KeyOf(keys.bodies.at(face.body)) : 0;
    table.Row({std::to_string(key), face.kind, std::to_string(body), EdgeList(face, keys)});
    json.Begin().Integer("key", key).Text("kind", face.kind).Integer("body", body);
    json.BeginArray("edges");
    for (const CadEdgeUse& use : face.edges) {
      json.Begin().Integer("key", KeyOf(keys.edges.at(use.edge))).Bool("reversed", use.reversed);
      json.Integer("loop", use.loop).End();
    }
    json.End().End();
  }
  json.End();
  if (!table.IsEmpty()) text += '\n' + table.Text();
}

void ListEdges(const ICADSession& cad, const CadInstance& keys, std::string_view unit,
               std::string& text, JsonText& json) {
  Table table({">key", "edge", ">body", fmt::format(">length/{}", unit), ""});
  json.BeginArray("edges");
  for (const auto& [edge, itr] : keys.edges) {
    const int owner = cad.GetTopology().edge_bodies[static_cast<std::size_t>(edge - 1)];
    const Key body = owner ? KeyOf(keys.bodies.at(owner)) : 0;
    const char* kind = EdgeKindName(cad.GetEdgeKind(edge));
    const bool closed = cad.IsClosed(edge);
    table.Row({std::to_string(KeyOf(itr)), kind, std::to_string(body),
               Short(cad.GetEdgeLength(edge)), closed ? "closed" : ""});
    json.Begin().Integer("key", KeyOf(itr)).Text("kind", kind).Integer("body", body);
    json.Real("length", cad.GetEdgeLength(edge)).Bool("closed", closed).End();
  }
  json.End();
  text += '\n' + table.Text();
}

Outcome Geom(const GeomOptions& options, const Context& context) {
  Model model(options.model);
  model.yes = context.yes;
  if (Outcome opened = OpenTarget(model, options.target); !opened) return opened;
  CQXDBSession& session = model.session;
  if (model.document.Path().empty()) UseMillimetres(session);
  const auto cad = OpenCad(options.cad, session);
  if (!cad) return cad.AsOutcome();
  const auto keys = AddCadGeometry(session, **cad, FileName(options.cad));
  if (!keys) return keys.AsOutcome();
  if (!options.model.empty()) {
    if (Outcome saved = model.SaveAs(); !saved) return saved;
  }
  std::string text;
  JsonText json;
  json.Begin().Text("file", options.cad).Text("model", options.model);
  ListBodies(**cad, *keys, text, json);
  ListFaces(**cad, *keys, text, json);
  ListEdges(**cad, *keys, session.Units().GetUnitName(unit::kLength), text, json);
  text += options.model.empty() ? "\nnot stored: name a model to bring the geometry into it\n"
                                : fmt::format("\n{} -> {}\n", options.cad, options.model);
  context.Print(text, json.End());
  return {};
}

}  // namespace

void AddGeom(Command& app, Context& context) {
  const auto [command, options] = AddCommand<GeomOptions>(
      app, context, "geom", "List the geometry of a CAD file and bring it into a model",
      "qxdb geom joint.step joint.qxm", Geom);
  command->Add("file", &options->cad, "CAD file: STEP, IGES or BREP")
      .File(kCadExtensions)
      .Required();
  command->Add("model", &options->model, "Model file to write").OpenModel();
  AddTarget(*command, options->target);
}

}  // namespace qx::app
