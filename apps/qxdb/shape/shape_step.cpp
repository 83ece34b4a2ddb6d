#include "apps/qxdb/shape/shape_step.h"

#include <fmt/format.h>
#include <map>

#include "apps/qxdb/command/output.h"
#include "apps/qxdb/model/selection.h"
#include "apps/qxdb/model/where.h"

namespace qx::app {
namespace {

using OfPool = std::map<std::uint16_t, std::vector<const MadeKey*>>;

OfPool ByPool(const ShapeReport& report) {
  OfPool by_pool;
  for (const MadeKey& made : report.made) by_pool[made.type].push_back(&made);
  return by_pool;
}

/// {"ELEM": {"1": [101, 201], ...}, ...}: what was made of each record, by gateway table.
std::string MapText(const CQXDBSession& session, const ShapeReport& report) {
  JsonText json;
  json.Begin();
  for (const auto& [type, made] : ByPool(report)) {
    json.Begin(session.GetDataPool(type)->GetAPIName().ToUtf8());
    for (std::size_t i = 0; i < made.size();) {
      const Key of = made[i]->of;
      json.BeginArray(std::to_string(of));
      for (; i < made.size() && made[i]->of == of; ++i) json.Integer("", made[i]->made);
      json.End();
    }
    json.End();
  }
  return json.End().Result();
}

void DescribeMade(const CQXDBSession& session, const ShapeReport& report, std::string& text,
                  JsonText& json) {
  constexpr std::size_t kMostRanges = 6;
  json.Begin("made");
  for (const auto& [type, made] : ByPool(report)) {
    std::vector<Key> of, keys;
    for (const MadeKey* each : made) {
      of.push_back(each->of);
      keys.push_back(each->made);
    }
    const std::string pool = PoolLabel(*session.GetDataPool(type));
    const std::string from = KeyRangesText(std::move(of), kMostRanges);
    const std::string to = KeyRangesText(std::move(keys), kMostRanges);
    text += fmt::format("{} {} -> {}\n", pool, from, to);
    json.Begin(pool).Text("of", from).Text("keys", to).End();
  }
  json.End();
}

}  // namespace

void AddShapeOptions(Command& command, ShapeOptions& options, const std::string& what,
                     bool makes_records) {
  AddWhere(command, options.where, what);
  command.Add("--dry-run", &options.dry_run, "Say what would change, save nothing");
  if (!makes_records) return;
  command.Add("--key-map", &options.key_map, "Write the old and new keys to a JSON file")
      .File({".json"});
  AddForce(command, options.force);
}

Result<Selection> PickShape(const Model& model, const std::string& where,
                            std::optional<SelectKind> wanted) {
  auto selection = SelectIn(model, where.empty() ? "all" : where, wanted);
  if (!selection || selection->Count() > 0) return selection;
  return Failure{model.path, "where", fmt::format("selects no {}", NameOf(selection->kind)),
                 "see what it selects with: qxdb select " + model.path};
}

Outcome ShapeStep(Model& model, const ShapeOptions& options, const Context& context,
                  const std::u16string& name,
                  const std::function<Outcome(CQXDBSession&, ShapeReport&)>& work) {
  if (Outcome free = CheckOutput(options.key_map, OutputKind::kKeyMap, options.force, {model.path});
      !free) {
    return free;
  }
  Edit edit(model);
  ShapeReport report;
  Outcome done = edit.Do(name, [&]() -> Outcome {
    const Outcome shaped = work(model.session, report);
    if (shaped) return {};
    // Why a pool refuses, the last message says better.
    if (shaped.Error().what == "the model refuses the change") return RefusalOf(model.path);
    Failure failure = shaped.Error();
    failure.file = model.path;
    return failure;
  });
  if (done) done = edit.Save(options.dry_run, options.key_map, MapText(model.session, report));
  if (!done) return done;
  std::string text;
  JsonText json;
  json.Begin().Text("model", model.path);
  edit.WriteStates(json);
  DescribeMade(model.session, report, text, json);
  json.BeginArray("notes");
  for (const ShapeNote& note : report.notes) {
    json.Begin().Text("what", note.what).Integer("count", note.count).End();
  }
  json.End();
  edit.Changes().Write(json);
  text += edit.Changes().Text();
  for (const ShapeNote& note : report.notes) {
    text += fmt::format("note: {} ({})\n", note.what, Grouped(note.count));
  }
  context.Print(text + edit.StateLine(), json.End());
  return {};
}

}  // namespace qx::app
