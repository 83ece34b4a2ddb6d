// Records that travel between models: parts of another model, pools in files of their own.

#include <fmt/format.h>
#include <tuple>

#include "qx_db/bulk/record_file.h"
#include "qx_db/platform/file.h"
#include "qx_db/platform/plain_text.h"
#include "qx_db/qx_db.h"

#include "apps/qxdb/commands.h"
#include "apps/qxdb/key_map_file.h"
#include "apps/qxdb/output.h"
#include "apps/qxdb/selection.h"

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

/// A line for the references of one member of a record that lead the same way; those that were
/// cleared stand first.
std::vector<std::string> LooseLines(const ImportReport& report, const CQXDBSession& session) {
  constexpr int kNamed = 6;
  std::vector<std::string> lines;
  for (const bool linked : {false, true}) {
    const ImportReport::Loose* former = nullptr;
    int count = 0;
    const auto end = [&] {
      if (count > kNamed) lines.back() += fmt::format(" and {} more", count - kNamed);
      if (former) lines.back() += linked ? ": the model's own" : ": do not come along; cleared";
    };
    for (const ImportReport::Loose& loose : report.loose) {
      if (loose.linked != linked) continue;
      if (!former || std::tie(former->type, former->key, former->member) !=
                         std::tie(loose.type, loose.key, loose.member)) {
        end();
        count = 0;
        lines.push_back(fmt::format("{} {} {}: {}", PoolLabel(*session.GetDataPool(loose.type)),
                                    loose.key, Utf8(loose.member),
                                    PoolLabel(*session.GetDataPool(loose.target))));
      }
      former = &loose;
      if (++count <= kNamed)
        lines.back() += fmt::format("{} {}", count > 1 ? "," : "", loose.target_key);
    }
    end();
  }
  return lines;
}

/// Says what came, saves the model unless this was a dry run.
Outcome Finish(Model& model, const ImportOptionsText& asked, const ImportReport& report,
               const Context& context) {
  constexpr std::size_t kShown = 20;
  const CQXDBSession& session = model.session;
  const bool dry = asked.options.dry_run;
  Table table({"pool", ">records", ">overwritten", ">renumbered", ">joined"});
  JsonText json;
  json.Begin().Text("model", asked.model).Bool("saved", !dry).Begin("pools");
  for (const ImportReport::Pool& pool : report.pools) {
    const auto renumbered = std::count_if(pool.keys.begin(), pool.keys.end(),
                                          [](const auto& key) { return key.first != key.second; });
    const auto records = static_cast<std::int64_t>(pool.keys.size()) - pool.joined;
    const std::string label = PoolLabel(*session.GetDataPool(pool.type));
    table.Row({label, Grouped(records), Grouped(pool.overwritten), Grouped(renumbered),
               Grouped(pool.joined)});
    json.Begin(label).Integer("records", records).Integer("overwritten", pool.overwritten);
    json.Integer("renumbered", renumbered).Integer("joined", pool.joined).End();
  }
  json.End().BeginArray("renamed");
  std::string text = table.IsEmpty() ? "nothing came\n" : table.Text();
  for (std::size_t i = 0; i < report.renamed.size(); ++i) {
    const std::string line = report.renamed[i].Line(session);
    json.Text({}, line);
    if (i < kShown) text += OneLine(line) + "\n";
  }
  if (report.renamed.size() > kShown) {
    text += fmt::format("and {} names more\n", report.renamed.size() - kShown);
  }
  json.End().BeginArray("left");
  for (const auto& [type, key] : report.left) {
    json.Text({}, PoolLabel(*session.GetDataPool(type)) + " " + std::to_string(key));
  }
  for (const ImportReport::Pool& pool : report.pools) {
    const auto left = std::count_if(report.left.begin(), report.left.end(),
                                    [&](const auto& record) { return record.first == pool.type; });
    if (left == 0) continue;
    text += fmt::format("{} {} stay behind, being nothing without what does not come\n",
                        Grouped(left), PoolLabel(*session.GetDataPool(pool.type)));
  }
  json.End().BeginArray("loose");
  for (const ImportReport::Loose& loose : report.loose) json.Text({}, loose.Line(session));
  json.End().BeginArray("unconverted");
  const std::vector<std::string> lines = LooseLines(report, session);
  for (std::size_t i = 0; i < std::min(lines.size(), kShown); ++i) text += lines[i] + "\n";
  if (lines.size() > kShown) {
    text += fmt::format("and {} lists of references more; --json has them all\n",
                        lines.size() - kShown);
  }
  for (const auto& [type, key] : report.unconverted) {
    const std::string record = PoolLabel(*session.GetDataPool(type)) + " " + std::to_string(key);
    json.Text({}, record);
    text += record + ": numbers of a kind that is not known kept the units they had\n";
  }
  json.End();
  Outcome stored = SaveWith(model.document, asked.key_map, report.KeyMapJson(session), dry);
  if (!stored) return stored;
  context.Print(text + (dry ? "nothing was saved: a dry run\n" : ""), json.End());
  return {};
}

Outcome RunImportModel(Model& model, const ImportOptionsText& asked, const Context& context) {
  if (Outcome free =
          CheckOutput(asked.key_map, OutputKind::kGateway, asked.force, {asked.from, asked.model});
      !free)
    return free;
  auto from = ExternalModel::Open(asked.from, host::SetUpModel);
  if (!from) return from.AsOutcome();
  ImportOptions options = asked.options;
  options.with_references = !asked.only;
  for (const std::string& text : asked.choices) {
    auto choice = ParseChoice((*from)->Records(), asked.from, text);
    if (!choice) return choice.AsOutcome();
    options.choices.push_back(std::move(*choice));
  }
  const auto report = ImportRecords(model.session, **from, options);
  if (!report) return report.AsOutcome();
  return Finish(model, asked, *report, context);
}

Outcome RunPoolImport(Model& model, const ImportOptionsText& asked, const Context& context) {
  if (Outcome free =
          CheckOutput(asked.key_map, OutputKind::kGateway, asked.force, {asked.from, asked.model});
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
    if (Outcome opened = model.Open(); !opened) return opened;
    return RunImportModel(model, asked, to);
  };
  const auto [command, asked] = AddCommand<ImportOptionsText>(
      app, context, "import-model", "Bring records of another model into a model",
      "qxdb import-model wheel.qxm car.qxm --pool elem:1-500", run);
  command->Add("from", &asked->from, "Model file to take from").Model().Required();
  command->Add("into", &asked->model, "Model file to bring into").Model().Required();
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
