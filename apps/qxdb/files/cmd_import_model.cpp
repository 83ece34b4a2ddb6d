// Records that travel between models: parts of another model, pools in files of their own.

#include <fmt/format.h>

#include "qx_db/bulk/record_file.h"
#include "qx_db/gateway/key_map_file.h"
#include "qx_db/model/set_rules.h"
#include "qx_db/platform/file.h"
#include "qx_db/platform/plain_text.h"
#include "qx_db/qx_db.h"

#include "apps/qxdb/command/output.h"
#include "apps/qxdb/commands.h"
#include "apps/qxdb/files/import_text.h"
#include "apps/qxdb/model/history_bounds.h"
#include "apps/qxdb/model/selection.h"

namespace qx::app {
namespace {

struct ImportOptionsText {
  std::string from;
  std::string model;
  std::vector<std::string> choices;  // "node" or "node:1-100"
  std::string key_map;
  bool force = false;
  bool only = false;
  ImportOptions options;
};

/// The keys that a choice like "node:1-100" names in the model it comes from.
Result<ImportChoice> ParseChoice(CQXDBSession& from, const std::string& path,
                                 const std::string& text) {
  const std::size_t colon = text.find(':');
  const auto pool = FindPool(from, text.substr(0, colon));
  if (!pool) return pool.Error();
  ImportChoice choice{(*pool)->GetTypeCode(), {}};
  if (colon == std::string::npos) return choice;
  const std::string keys = text.substr(colon + 1);
  const auto ranges = KeyRanges::Parse(keys);
  if (!ranges) return ranges.Error();
  for (const ITR item : ranges->Select(**pool)) choice.keys.push_back(KeyOf(item));
  if (choice.keys.empty()) return NothingSelected(path, **pool, keys);
  return choice;
}

/// Says what came, saves the model unless this was a dry run.
Outcome Finish(Model& model, const ImportOptionsText& asked, const ImportReport& report,
               const Context& context) {
  const CQXDBSession& session = model.session;
  const bool dry = asked.options.dry_run;
  JsonText json;
  json.Begin().Text("model", asked.model).Bool("saved", !dry);
  const std::string text = DescribeImport(report, session, json);
  Outcome stored = model.Save(dry, asked.key_map, report.KeyMapJson(session));
  if (!stored) return stored;
  context.Print(text + (dry ? "(not saved)\n" : ""), json.End());
  return {};
}

Outcome RunImportModel(Model& model, const ImportOptionsText& asked, const Context& context) {
  if (Outcome free =
          CheckOutput(asked.key_map, OutputKind::kKeyMap, asked.force, {asked.from, asked.model});
      !free)
    return free;
  auto from = ExternalModel::Open(asked.from, host::SetUpModel, MakeAllPlain);
  if (!from) return from.AsOutcome();
  ImportOptions options = asked.options;
  options.with_references = !asked.only;
  for (const std::string& text : asked.choices) {
    auto choice = ParseChoice((*from)->Records(), asked.from, text);
    if (!choice) return choice.AsOutcome();
    options.choices.push_back(std::move(*choice));
  }
  const auto report = ImportRecords(model.session, **from, options);
  if (!report) {
    Failure failure = report.Error();
    if (failure.file.empty()) failure.file = asked.model;
    return failure;
  }
  return Finish(model, asked, *report, context);
}

Outcome RunPoolImport(Model& model, const ImportOptionsText& asked, const Context& context) {
  if (Outcome free =
          CheckOutput(asked.key_map, OutputKind::kKeyMap, asked.force, {asked.from, asked.model});
      !free)
    return free;
  const auto report = ImportRecordFile(model.session, asked.from, asked.options);
  if (!report) return report.AsOutcome();
  return Finish(model, asked, *report, context);
}

struct PoolOptions {
  std::string model, pool, file;
  bool force = false;
};

Outcome RunPoolExport(Model& model, const PoolOptions& options, const Context& context) {
  const std::string& file = options.file;
  if (Outcome free = CheckOutput(file, OutputKind::kPool, options.force, {model.path}); !free)
    return free;
  const auto pool = FindPool(model.session, options.pool);
  if (!pool) return pool.Error();
  CQXBulkHandler handler(file);
  Outcome outcome;
  if (!qxSaveDPool(handler, **pool, &outcome)) return outcome;
  const BulkHeader& header = handler.Header();
  JsonText json;
  json.Begin().Text("file", file).Text("record", header.record).Integer("records", header.records);
  context.Print(fmt::format("{}: {} records of {}\n", file, Grouped(header.records), header.record),
                json.End());
  return {};
}

Outcome RunPoolInfo(const PoolOptions& options, const Context& context) {
  const std::string& file = options.file;
  CQXBulkHandler handler(file);
  if (Outcome opened = handler.Open(); !opened) return opened;
  const BulkHeader& header = handler.Header();
  const std::string length(
      UnitsOf(UnitBase::kLength)[static_cast<std::size_t>(header.units[UnitBase::kLength])].name);
  JsonText json;
  json.Begin().Text("file", file).Text("record", header.record).Text("pool", header.pool);
  json.Integer("records", header.records).Integer("bytes", static_cast<std::int64_t>(header.bytes));
  json.Text("length", length);
  context.Print(
      fmt::format("{}: {} records of {} (pool {}), {}, lengths in {}\n", file,
                  Grouped(header.records), header.record, header.pool, Bytes(header.bytes), length),
      json.End());
  return {};
}

/// The options that every import takes.
void AddImportOptions(Command& command, ImportOptionsText& asked) {
  command.Add("--keep-keys", &asked.options.keep_keys,
              "Keep the keys, overwriting records of the same key; otherwise new ones");
  command.Add("--dry-run", &asked.options.dry_run,
              "Say what would come, clash and be renumbered; save nothing");
  AddForce(command, asked.force);
  command.Add("--key-map", &asked.key_map, "Write the old and new keys to a JSON file")
      .File({".json"});
}

}  // namespace

void AddImportModel(Command& app, Context& context) {
  const auto run = [](const ImportOptionsText& asked, const Context& to) {
    Model model(asked.model);
    model.yes = to.yes;
    if (Outcome opened = model.Open(); !opened) return opened;
    return RunImportModel(model, asked, to);
  };
  const auto [command, asked] = AddCommand<ImportOptionsText>(
      app, context, "import-model", "Bring records of another model into a model",
      "qxdb import-model wheel.qxm car.qxm --pool elem:1-500", run);
  command->Add("from", &asked->from, "Model file to take from").Model().Required();
  command->Add("into", &asked->model, "Model file to bring into").OpenModel().Required();
  command->Add("--pool", &asked->choices,
               "A pool, or some of its keys: node, elem:1-500; all pools without");
  command->Add("--only", &asked->only,
               "Leave behind what the chosen records refer to and what belongs to them");
  command->Add("--link-existing", &asked->options.link_existing,
               "Lead references to what stays behind to the model's records of the same key");
  AddImportOptions(*command, *asked);
}

void AddPool(Command& app, Context& context) {
  Command* command = AddCommand(app, context, "pool", "Single pools in files of their own",
                                "qxdb pool export car.qxm viewpoint views.qxr");
  const auto [exported, names] =
      AddModelCommand<PoolOptions>(*command, context, "export", "Write a pool to a record file",
                                   "qxdb pool export car.qxm viewpoint views.qxr", RunPoolExport);
  exported->Add("pool", &names->pool, "Pool, e.g. viewpoint").Pool().Required();
  exported->Add("file", &names->file, "Record file to write").File({".qxr"}).Required();
  AddForce(*exported, names->force);

  const auto [imported, asked] = AddModelCommand<ImportOptionsText>(
      *command, context, "import", "Bring a record file into a model",
      "qxdb pool import car.qxm views.qxr", RunPoolImport);
  imported->Add("file", &asked->from, "Record file").File({".qxr"}).Required();
  AddImportOptions(*imported, *asked);

  const auto [info, looked_at] =
      AddCommand<PoolOptions>(*command, context, "info", "Say what a record file holds",
                              "qxdb pool info views.qxr", RunPoolInfo);
  info->Add("file", &looked_at->file, "Record file").File({".qxr"}).Required();
}

}  // namespace qx::app
