#include "viewer/picture.h"

#include <algorithm>
#include <future>

#include "qx_db/mesh/mesh_quality.h"
#include "qx_db/model/mesh_set_pool.h"
#include "qx_db/platform/file.h"

#include "viewer/assets.h"
#include "viewer/base64.h"
#include "viewer/field_values.h"
#include "viewer/headless.h"
#include "viewer/png_mark.h"

namespace qx::viewer {
namespace {

std::string SceneText(const PictureOptions& options) {
  Json json;
  json.StartObject();
  const auto list = [&](const char* name, const std::vector<std::string>& texts) {
    json.Name(name).StartArray();
    for (const std::string& text : texts) json.Text(text);
    json.EndArray();
  };
  list("views", options.views);
  list("sets", options.sets);
  json.Text("color", options.color).Text("palette", options.palette);
  if (options.range.size() == 2) {
    json.Name("range").StartArray();
    for (const double bound : options.range) json.Number(bound);
    json.EndArray();
  }
  if (!options.cut_axis.empty()) {
    json.Text("cut_axis", options.cut_axis).Number("cut_at", options.cut_at);
  }
  json.Flag("changes", options.changes).Flag("findings", options.findings);
  json.Flag("edges", !options.no_edges).Flag("dark", options.dark);
  json.Flag("perspective", options.perspective);
  json.EndObject();
  return json.Result();
}

/// The page with its script at work: it asks for its data and waits.
Outcome OpenPicture(HeadlessBrowser& browser, const PictureOptions& options) {
  std::string html = "<!doctype html><html lang=\"en\"><head><meta charset=\"utf-8\"><style>";
  html += PageStyle();
  html += "</style></head><body><div id=\"app\"></div><i id=\"scene\" data-scene=\"" +
          EscapedHtml(SceneText(options)) + "\"></i></body></html>";
  if (Outcome opened = browser.OpenPage(options.width, options.height, html); !opened) {
    return opened;
  }
  if (Outcome exposed = browser.Expose("qxAsk"); !exposed) return exposed;
  return browser.Evaluate(PageScript());
}

Outcome CheckSets(const Source& source, const std::vector<std::string>& names) {
  const auto& sets = *source.Session().GetPool<DPoolMset>(code::kMset);
  for (const std::string& name : names) {
    bool found = false;
    for (ITR at = sets.GetHeadPosition(); at && !found; sets.Next(at)) {
      found = sets.GetAtNU(at).GetName().ToUtf8() == name;
    }
    if (!found) {
      return Failure{"", "--set", "there is no mesh set \"" + name + "\"",
                     "see qxdb sets " + source.Path()};
    }
  }
  return {};
}

/// Why a model has no such colours, with those that it has.
Failure NoColors(const CQXDBSession& session, const std::string& name) {
  std::string known;
  const auto add = [&](std::string_view one) {
    if (!known.empty()) known += ", ";
    known += one;
  };
  for (const std::string& field : FieldNames(session)) add(field);
  if (name.starts_with(kFieldPrefix)) {
    return {"", "--color", "there is no \"" + name + '"',
            known.empty() ? "leave it out, the model has no fields" : "give one of " + known};
  }
  for (const MeasureInfo& info : Measures()) add(info.name);
  return {"", "--color", "there is nothing named \"" + name + "\" to tell by colours",
          "give none, set, property, material, kind, part, thickness, x, y, z, or one of " + known};
}

}  // namespace

Outcome DrawPicture(const std::string& model, const PictureOptions& options,
                    const std::string& png) {
  auto browser = HeadlessBrowser::Start();
  if (!browser) return browser.AsOutcome();
  // While the browser starts, the model is read, and what is asked first is made.
  auto page = std::async(std::launch::async, [&] { return OpenPicture(**browser, options); });
  const auto made = [&]() -> Result<std::unique_ptr<Source>> {
    auto source = Source::Open(model, false, {});
    if (!source) return source;
    (*source)->SetServed(false);
    if (Outcome known = CheckSets(**source, options.sets); !known) return known.Error();
    if (auto base = (*source)->Get("base", options.step); !base) return base.Error();
    return source;
  };
  auto source = made();
  if (!source) {
    (*browser)->Stop();
    return source.AsOutcome();
  }
  if (Outcome opened = page.get(); !opened) return opened;
  const auto answer = [&](std::string_view name) -> Result<std::string> {
    auto pack = (*source)->Get(name, options.step);
    if (!pack && name.starts_with(kValuesPrefix)) {
      return NoColors((*source)->Session(), std::string(name.substr(kValuesPrefix.size())));
    }
    if (!pack) return pack;
    Json text;  // a JSON text is one of JavaScript
    text.Text(name);
    return "qx.app.data.give(" + text.Result() + ",\"" + ToBase64(*pack) + "\")";
  };
  if (Outcome drawn = (*browser)->Evaluate("qx.shown", answer); !drawn) return drawn;
  const auto bytes = (*browser)->Screenshot();
  return bytes ? WriteWholeFile(png, MarkedPng(*bytes)) : bytes.AsOutcome();
}

}  // namespace qx::viewer
