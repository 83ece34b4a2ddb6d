// The JSON gateway: write, read, describe.

#include <fmt/format.h>
#include <memory>

#include "qx_db/qx_db.h"

#include "apps/qxdb/commands.h"
#include "apps/qxdb/selection.h"

namespace qx::app {
namespace {

struct GatewayOptions {
  std::string model;
  std::string file;
  std::vector<std::string> tables;
  bool strict = false;
  bool remove = false;
  bool schema = false;
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

void Write(const GatewayOptions& options, Context& context) {
  CQXDocBase document(host::SetUpModel);
  if (Outcome opened = document.Open(options.model); !opened) {
    return context.Refuse(opened.Error());
  }
  const auto pools = Selected(*document.GetDBSession(), options.tables);
  if (!pools) return context.Refuse(pools.Error());
  dbgateway::DataBase out;
  WriteDocument(*document.GetDBSession(), out, *pools);
  if (Outcome free = CheckOutput(options.file, {options.model}); !free) {
    return context.Refuse(free.Error());
  }
  if (Outcome written = out.WriteFile(options.file, true); !written) {
    return context.Refuse(written.Error());
  }
  std::string text = options.model + " -> " + options.file;
  JsonText json;
  json.Begin().Text("file", options.file).Begin("records");
  for (const std::string& name : out.CollectionNames()) {
    const auto count = static_cast<std::int64_t>(out.FindCollection(name)->Size());
    text += fmt::format("\n  {:>9}  {}", Grouped(count), name);
    json.Integer(name, count);
  }
  context.Print(text, json.End().End());
}

void Read(const GatewayOptions& options, Context& context) {
  CQXDocBase document(host::SetUpModel);
  if (Outcome opened = document.Open(options.model); !opened) {
    return context.Refuse(opened.Error());
  }
  CQXDBSession& session = *document.GetDBSession();
  const auto pools = Selected(session, options.tables);
  if (!pools) return context.Refuse(pools.Error());
  dbgateway::DataBase in;
  if (Outcome read = in.ReadFile(options.file); !read) return context.Refuse(read.Error());
  in.SetStrict(options.strict);
  const auto apply = options.remove ? ApplyDeletions : ReadDocument;
  if (Outcome done = apply(session, in, *pools); !done) {
    Failure failure = done.Error();
    failure.file = options.file;
    return context.Refuse(failure);
  }
  if (Outcome saved = document.Save(); !saved) return context.Refuse(saved.Error());
  std::string text = options.file + " -> " + options.model;
  JsonText json;
  json.Begin().Text("model", options.model).BeginArray("report");
  for (const auto& entry : in.Report()) {
    text += "\nnote: " + entry.Line();
    json.Text({}, entry.Line());
  }
  context.Print(text, json.End().Text("state", HashText(session.StateHash())).End());
}

void Describe(const GatewayOptions& options, Context& context) {
  CQXDBSession session(host::SetUpModel);
  if (options.schema) {
    JsonText json;
    const std::string text = GatewayJsonSchema(session);
    return context.Print(text, json.Raw({}, text));
  }
  const auto pools = Selected(session, options.tables);
  if (!pools) return context.Refuse(pools.Error());
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
}

}  // namespace

void AddGateway(CLI::App& app, Context& context) {
  CLI::App* command = AddCommand(app, context, "gateway", "Exchange records as JSON tables",
                                 "qxdb gateway write bracket.qxm bracket.json");
  command->require_subcommand(1);
  auto options = std::make_shared<GatewayOptions>();
  const auto add = [&](const char* name, const char* what, const char* example,
                       void (*run)(const GatewayOptions&, Context&)) {
    CLI::App* sub = AddCommand(*command, context, name, what, example);
    sub->add_option("--table", options->tables, "Only these tables, e.g. NODE");
    sub->callback([options, run, &context] { run(*options, context); });
    return sub;
  };
  CLI::App* write = add("write", "Write tables to a file",
                        "qxdb gateway write bracket.qxm bracket.json --table NODE", Write);
  CLI::App* read = add("read", "Read tables into a model as one step",
                       "qxdb gateway read bracket.qxm changes.json --strict", Read);
  for (CLI::App* sub : {write, read}) {
    sub->add_option("model", options->model, "Model file")->required();
    sub->add_option("file", options->file, "Gateway text (.json)")->required();
  }
  read->add_flag("--strict", options->strict, "Refuse where a value would be coerced or skipped");
  read->add_flag("--delete", options->remove, "Apply the deletion tables (__CMD_DEL_...)");
  CLI::App* describe = add("describe", "Print the fields of every table",
                           "qxdb gateway describe --table ELEM", Describe);
  describe->add_flag("--schema", options->schema, "Print the JSON Schema (draft 4) of all tables");
}

}  // namespace qx::app
