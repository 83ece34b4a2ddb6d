// Looking at a model in a browser, and pictures of it.

#include <fmt/format.h>
#include <sstream>

#include "qx_db/platform/file.h"
#include "qx_db/qx_db.h"

#include "apps/qxdb/command/output.h"
#include "apps/qxdb/commands.h"
#include "apps/qxdb/files/cad_input.h"
#include "host/seed_preview.h"

#ifdef QX_HAS_VIEWER
#include "viewer/html_file.h"
#include "viewer/picture.h"
#include "viewer/seeds.h"
#include "viewer/server.h"
#endif

namespace qx::app {
namespace {

struct ViewOptions {
  std::string model;
  std::string html;
  bool force = false;
  std::string cad;
  std::string host = "127.0.0.1";
  int port = 0;
  bool edit = false;
  bool stay = false;
  bool no_browser = false;
};

struct PictureCommand {
  std::string model;
  std::string png;
  bool force = false;
  std::string size = "1600x1000";
  std::string cut;
  std::vector<std::string> views;
  std::vector<std::string> sets;
  std::string color;
  std::vector<double> range;
  std::string palette;
  std::int64_t step = -1;
  bool changes = false, findings = false, no_edges = false, dark = false, perspective = false;
};

#ifdef QX_HAS_VIEWER

/// What was typed makes sense by now: what stops the work is the model or the machine.
Outcome StoppedAt(const std::string& model, const Outcome& done) {
  if (done || !done.Error().file.empty()) return done;
  Failure failure = done.Error();
  failure.file = model;
  return failure;
}

/// Gives the page the edges of a CAD file with the seeds that the model's size controls make.
Outcome AddSeeds(viewer::Source& source, const std::string& path) {
  Model model(source.Path());
  if (Outcome opened = model.Open(); !opened) return opened;
  auto cad = OpenCad(path, model.session);
  if (!cad) return cad.AsOutcome();
  host::SeedPreview preview;
  preview.cad = cad->get();
  auto keys = FindCadGeometry(model.session, **cad, FileName(path));
  if (!keys) return keys.AsOutcome();
  preview.keys = std::move(*keys);
  host::SeedPart(model.session, **cad, preview);
  std::vector<viewer::SeededEdge> edges;
  for (int edge = 1; edge <= (*cad)->GetEdgeCount(); ++edge) {
    viewer::SeededEdge& drawn = edges.emplace_back();
    drawn.curve = host::SampleEdge(**cad, edge);
    if (const auto seeds = preview.seeds.find(edge); seeds != preview.seeds.end()) {
      drawn.seeds = seeds->second.points;
      drawn.control = preview.sources.at(edge).control;
    }
  }
  source.SetSeeds(viewer::SeedPack(edges, model.session.Units().Out(unit::kLength, 1.0)));
  return {};
}

Outcome WriteHtml(viewer::Source& source, const ViewOptions& options, const Context& context) {
  if (Outcome free = CheckOutput(options.html, OutputKind::kHtml, options.force, {options.model});
      !free)
    return free;
  viewer::HtmlReport report;
  const auto page = viewer::HtmlPage(source, {}, report);
  if (!page) return page.Error();
  if (Outcome written = WriteWholeFile(options.html, *page); !written) return written;
  std::string text =
      fmt::format("{}: {}, works without a network; surface of {} corners\n", options.html,
                  Bytes(report.bytes), Grouped(static_cast<std::int64_t>(report.surface_corners)));
  JsonText json;
  json.Begin().Text("model", options.model).Text("html", options.html);
  json.Integer("bytes", static_cast<std::int64_t>(report.bytes));
  json.Integer("surface_corners", static_cast<std::int64_t>(report.surface_corners));
  json.Integer("surface_bytes", static_cast<std::int64_t>(report.base_bytes));
  json.BeginArray("left_out");
  for (const std::string& what : report.left_out) {
    text += "left out: " + what + "\n";
    json.Text({}, what);
  }
  context.Print(text, json.End().End());
  return {};
}

Outcome View(const ViewOptions& options, const Context& context) {
  auto opened = viewer::Source::Open(FileOf(options.model), options.edit, LastRefusal);
  if (!opened) return opened.Error();
  viewer::Source& source = **opened;
  if (!options.cad.empty()) {
    if (Outcome seeded = AddSeeds(source, options.cad); !seeded) return seeded;
  }
  if (!options.html.empty()) return WriteHtml(source, options, context);
  viewer::ServeOptions serve;
  serve.host = options.host;
  serve.port = options.port;
  serve.stay = options.stay;
  serve.on_ready = [&](const std::string& address) {
    const bool shown = !options.no_browser && viewer::OpenBrowser(address);
    JsonText json;
    json.Begin().Text("model", options.model).Text("address", address).Bool("edit", options.edit);
    const bool is_all = options.host == "0.0.0.0" || options.host == "::";
    context.Print(fmt::format("{} is at {}{}\n{}\n", options.model, address,
                              is_all ? ", and there at every address of this machine" : "",
                              shown          ? "ends when the page is closed, or with Ctrl-C"
                              : options.stay ? "ends with Ctrl-C"
                                             : "open it in a browser; ends with it, or Ctrl-C"),
                  json.End());
    std::fflush(stdout);
  };
  return StoppedAt(options.model, viewer::Serve(source, serve));
}

Outcome DrawPicture(const PictureCommand& command, const Context& context) {
  if (Outcome free = CheckOutput(command.png, OutputKind::kPng, command.force, {command.model});
      !free)
    return free;
  viewer::PictureOptions options;
  char by = 0;
  std::istringstream size(command.size);
  if (!(size >> options.width >> by >> options.height) || by != 'x' || !size.eof() ||
      options.width < 64 || options.height < 64 || options.width > 8192 || options.height > 8192) {
    return Failure{"", "--size", "\"" + command.size + "\" is no WIDTHxHEIGHT from 64 to 8192",
                   "write --size 1600x1000"};
  }
  if (!command.views.empty()) options.views = command.views;
  if (!command.cut.empty()) {
    const std::size_t equals = command.cut.find('=');
    options.cut_axis = command.cut.substr(0, equals);
    std::istringstream at(equals == std::string::npos ? "0.5" : command.cut.substr(equals + 1));
    if ((options.cut_axis != "x" && options.cut_axis != "y" && options.cut_axis != "z") ||
        !(at >> options.cut_at) || !at.eof()) {
      return Failure{"", "--cut", "\"" + command.cut + "\" is no AXIS=SHARE",
                     "write --cut x=0.5 to take away the upper half"};
    }
  }
  if (command.range.size() == 2 && !(command.range[0] < command.range[1])) {
    return Failure{"", "--range",
                   fmt::format("{} is not below {}", command.range[0], command.range[1]),
                   "write the lower value first, as --range 10 60"};
  }
  options.color = command.color;
  options.range = command.range;
  options.palette = command.palette;
  options.sets = command.sets;
  options.step = command.step;
  options.changes = command.changes;
  options.findings = command.findings;
  options.no_edges = command.no_edges;
  options.dark = command.dark;
  options.perspective = command.perspective;
  Outcome drawn =
      StoppedAt(command.model, viewer::DrawPicture(FileOf(command.model), options, command.png));
  if (!drawn) return drawn;
  JsonText json;
  json.Begin().Text("model", command.model).Text("picture", command.png);
  context.Print(fmt::format("{}: {} x {} pixels\n", command.png, options.width, options.height),
                json.End());
  return {};
}

#else

/// Built without the viewer: said, rather than missing.
Failure NoViewer(const std::string& model) {
  return {model, "", "this qxdb was built without the viewer (QX_VIEWER)",
          "export for another one: qxdb export " + model + " out.vtu"};
}
Outcome View(const ViewOptions& options, const Context&) { return NoViewer(options.model); }
Outcome DrawPicture(const PictureCommand& command, const Context&) {
  return NoViewer(command.model);
}

#endif

}  // namespace

void AddView(Command& app, Context& context) {
  const auto [command, options] = AddCommand<ViewOptions>(
      app, context, "view", "Show a model in the browser", "qxdb view wing.qxm", View);
  command->Add("model", &options->model, "Model file").OpenModel().Required();
  Option& html = command
                     ->Add("--html", &options->html,
                           "Write a page into this file instead, to be opened without a server")
                     .File({".html"});
  AddForce(*command, options->force);
  command->Add("--edit", &options->edit, "Let the page change the model").Excludes(html);
  command
      ->Add("--cad", &options->cad, "Show the edges of this CAD file too, as the model seeds them")
      .File({".step", ".stp", ".iges", ".igs", ".brep"});
  command->Add("--port", &options->port, "Port to listen at; any that is free unless given")
      .Range(1, 65535);
  command->Add("--host", &options->host, "Address to listen at").ShowDefault();
  command->Add("--stay", &options->stay, "Go on when the page is closed");
  command->Add("--no-browser", &options->no_browser, "Only print the address");
}

void AddPicture(Command& app, Context& context) {
  const auto [command, options] = AddCommand<PictureCommand>(
      app, context, "picture", "Draw a model into a PNG file",
      "qxdb picture wing.qxm wing.png --view iso top --color aspect-ratio", DrawPicture);
  command->Add("model", &options->model, "Model file").OpenModel().Required();
  command->Add("png", &options->png, "Picture to write").File({".png"}).Required();
  AddForce(*command, options->force);
  command->Add("--view", &options->views, "Where to look from; several share the picture")
      .OneOf({"iso", "front", "back", "left", "right", "top", "bottom"});
  command->Add("--size", &options->size, "Pixels, WIDTHxHEIGHT").ShowDefault();
  command->Add("--color", &options->color,
               "none, set, property, material, kind, part, thickness, x, y, z, a measure of qxdb "
               "check, or field:NAME, a field of the model; unless given set, property or kind, "
               "whichever tells most");
  command->Add("--range", &options->range, "Lowest and highest value of the colours").Count(2);
  command->Add("--palette", &options->palette, "Colours of a range")
      .OneOf({"viridis", "cividis", "blue-orange", "grey"});
  command->Add("--set", &options->sets, "Show these mesh sets only, by name").Set();
  command->Add("--cut", &options->cut, "Take away what lies above: AXIS=SHARE, as x=0.5");
  command->Add("--step", &options->step, "Show the state after so many steps of the history")
      .Range(0, std::int64_t{1} << 31);
  command->Add("--changes", &options->changes, "Mark what the last step changed");
  command->Add("--findings", &options->findings,
               "Mark what qxdb check finds, each kind in its colour");
  command->Add("--no-edges", &options->no_edges, "Leave the edges of elements out");
  command->Add("--dark", &options->dark, "On a dark ground");
  command->Add("--perspective", &options->perspective, "As the eye sees it");
}

}  // namespace qx::app
