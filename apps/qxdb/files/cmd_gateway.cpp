// The JSON gateway: write, read, describe.

#include <fmt/format.h>

#include "qx_db/platform/plain_text.h"
#include "qx_db/qx_db.h"

#include "apps/qxdb/command/output.h"
#include "apps/qxdb/commands.h"
#include "apps/qxdb/model/selection.h"
#include "apps/qxdb/sets/turns.h"

namespace qx::app {
namespace {

struct GatewayOptions {
  std::string model;
  std::string file;
  std::vector<std::string> tables;
  bool strict = false;
  bool remove = false;
  bool schema = false;
  bool force = false;
  bool yes = false;
  bool dry_run = false;
};

/// The pools of the tables asked for; empty, for all, when none was.
Result<std::vector<DPoolBase*>> Selected(CQXDBSession& session,
                                         const std::vector<std::string>& tables) {
  std::vector<DPoolBase*> pools;
  for (const std::string& table : tables) {
    const auto pool = FindPool(session, table);
    if (!pool) return pool.Error();
    pools.push_back(*pool);
  }
  return pools;
}

Outcome Write(Model& model, const GatewayOptions& options, const Context& context) {
  if (Outcome free =
          CheckOutput(options.file, OutputKind::kGateway, options.force, {options.model});
      !free)
    return free;
  const auto pools = Selected(model.session, options.tables);
  if (!pools) return pools.Error();
  dbgateway::DataBase out;
  if (Outcome whole = WriteDocument(model.session, out, *pools); !whole) return whole;
  if (Outcome written = out.WriteFile(options.file, true); !written) return written;
  std::string text = options.model + " -> " + options.file;
  JsonText json;
  json.Begin().Text("file", options.file).Begin("records");
  for (const std::string& name : out.CollectionNames()) {
    const auto count = static_cast<std::int64_t>(out.FindCollection(name)->Size());
    text += fmt::format("\n  {:>9}  {}", Grouped(count), name);
    json.Integer(name, count);
  }
  context.Print(text, json.End().End());
  return {};
}

Outcome Read(Model& model, const GatewayOptions& options, const Context& context) {
  CQXDBSession& session = model.session;
  const auto pools = Selected(session, options.tables);
  if (!pools) return pools.Error();
  dbgateway::DataBase in;
  if (Outcome read = in.ReadFile(options.file); !read) return read;
  in.SetStrict(options.strict);
  std::vector<Turn> turns;
  if (options.remove) {
    const std::string document = in.ToText();  // what is tried is what is done
    turns = TurnsOf(session, [&](CQXDBSession& rehearsed) {
      dbgateway::DataBase tried;  // a document is told what became of it
      tried.SetStrict(options.strict);
      return tried.Parse(document) && ApplyDeletions(rehearsed, tried, *pools);
    });
    const bool may = options.yes || options.dry_run;
    if (Outcome asked = AskForTurns(turns, may, options.model, options.file); !asked) return asked;
  }
  Edit edit(model);
  const auto apply = options.remove ? ApplyDeletions : ReadDocument;
  if (Outcome done = apply(session, in, *pools); !done) {
    Failure failure = done.Error();
    failure.file = options.file;
    return failure;
  }
  if (Outcome read = CheckRead(options.file, !edit.Changes().IsEmpty(), in); !read) return read;
  if (Outcome saved = edit.Save(options.dry_run); !saved) return saved;
  std::string text = options.file + " -> " + options.model;
  JsonText json;
  json.Begin().Text("model", options.model).BeginArray("report");
  for (const auto& entry : in.Report()) {
    text += "\nnote: " + OneLine(entry.Line());
    json.Text({}, entry.Line());
  }
  json.End();
  WriteTurns(turns, json);
  if (!turns.empty()) text += "\n" + TurnsText(turns, false);
  if (options.dry_run) text += "\n(not saved)";
  context.Print(text, json.Text("state", HashText(session.StateHash())).End());
  return {};
}

Outcome Describe(const GatewayOptions& options, const Context& context) {
  CQXDBSession session(host::SetUpModel);
  if (options.schema) {
    JsonText json;
    const std::string text = GatewayJsonSchema(session);
    context.Print(text, json.Raw({}, text));
    return {};
  }
  const auto pools = Selected(session, options.tables);
  if (!pools) return pools.Error();
  dbgateway::DataBase out;
  std::vector<DPoolBase*> described = *pools;
  if (described.empty()) described.assign(session.Pools().begin(), session.Pools().end());
  for (DPoolBase* pool : described) {
    auto description = out.NewDescription(pool->GetAPIName().ToUtf8());
    pool->DescAPI(&description);
    if (description.Size() > 0) out.AddDescription(description);
  }
  JsonText json;
  json.Raw({}, out.ToText());
  context.Print(out.ToText(true), json);
  return {};
}

}  // namespace

void AddGateway(Command& app, Context& context) {
  Command* command = AddCommand(app, context, "gateway", "Exchange records as JSON tables",
                                "qxdb gateway write bracket.qxm bracket.json");
  const auto [write, write_options] = AddModelCommand<GatewayOptions>(
      *command, context, "write", "Write tables to a file",
      "qxdb gateway write bracket.qxm bracket.json --table NODE", Write);
  const auto [read, read_options] = AddModelCommand<GatewayOptions>(
      *command, context, "read", "Read tables into a model as one step",
      "qxdb gateway read bracket.qxm changes.json --strict", Read);
  const auto [describe, describe_options] =
      AddCommand<GatewayOptions>(*command, context, "describe", "Print the fields of every table",
                                 "qxdb gateway describe --table ELEM", Describe);
  const std::pair<Command*, GatewayOptions*> all[] = {
      {write, write_options}, {read, read_options}, {describe, describe_options}};
  for (const auto& [sub, options] : all) {
    sub->Add("--table", &options->tables, "Only these tables, e.g. NODE").Pool();
    if (sub == describe) continue;
    sub->Add("file", &options->file, "Gateway text (.json)").File({".json"}).Required();
  }
  AddForce(*write, write_options->force);
  read->Add("--strict", &read_options->strict, "Refuse where a value would be coerced or skipped");
  read->Add("--delete", &read_options->remove, "Apply the deletion tables (__CMD_DEL_...)");
  AddYes(*read, read_options->yes);
  read->Add("--dry-run", &read_options->dry_run, "Say what would be told, save nothing");
  describe->Add("--schema", &describe_options->schema,
                "Print the JSON Schema (draft 4) of all tables");
}

}  // namespace qx::app
