// The units of a model: what its numbers are stored and shown in, and changing either.

#include <fmt/format.h>

#include "qx_db/qx_db.h"
#include "qx_db/record/set_rule_record.h"

#include "apps/qxdb/commands.h"
#include "apps/qxdb/model/history_bounds.h"
#include "apps/qxdb/model/units_text.h"
#include "exchange/transfer.h"

namespace qx::app {
namespace {

struct UnitsOptions {
  std::string model;
  std::string units;
  bool dry_run = false;
};

std::string_view NameOf(const UnitSystem& system, UnitBase base) {
  return UnitsOf(base)[static_cast<std::size_t>(system[base])].name;
}

Outcome Show(Model& model, const UnitsOptions&, const Context& context) {
  const CQXUnitCtrl& units = model.session.Units();
  Table table({"base", "stored in", "shown in"});
  JsonText json;
  json.Begin().Text("model", model.path);
  for (int b = 0; b < kUnitBaseCount; ++b) {
    const auto base = static_cast<UnitBase>(b);
    table.Row({std::string(UnitBaseName(base)), std::string(NameOf(units.Model(), base)),
               std::string(NameOf(units.Current(), base))});
    json.Begin(UnitBaseName(base)).Text("stored", NameOf(units.Model(), base));
    json.Text("shown", NameOf(units.Current(), base)).End();
  }
  context.Print(table.Text(), json.End());
  return {};
}

/// Another meaning of the same numbers, or other numbers for the same sizes.
enum class Change { kMeaning, kNumbers };

Outcome ChangeUnits(Model& model, const UnitsOptions& options, Change change,
                    const Context& context) {
  SessionUnits& units = model.session.Units();
  const UnitSystem before = units.Current();
  const auto wanted = exchange::ParseUnits(options.units, before);
  if (!wanted) return wanted.AsOutcome();
  const bool sets = change == Change::kMeaning;
  if (sets && units.Model() != before) {
    return Failure{model.path, "units",
                   "are stored in " + UnitsText(units.Model()) + " and shown in " +
                       UnitsText(before) + ", so that new ones would not say of which",
                   "show the stored ones first: qxdb units convert " + model.path + " " +
                       UnitsText(units.Model())};
  }
  Edit edit(model);
  Outcome done = edit.Do(sets ? u"Set units" : u"Convert units", [&]() -> Outcome {
    if (sets) units.SetModel(*wanted);
    units.SetCurrent(*wanted);
    return {};
  });
  const bool is_same = before == *wanted;
  if (done) done = model.Save(options.dry_run || is_same);
  if (!done) return done;
  const bool is_saved = !options.dry_run && !is_same;
  JsonText json;
  json.Begin().Text("model", model.path).Text("before", UnitsText(before));
  json.Text("after", UnitsText(*wanted)).Bool("saved", is_saved).End();
  std::string text =
      fmt::format("{}: {} -> {}: ", model.path, UnitsText(before), UnitsText(*wanted));
  text += is_same ? "nothing changes"
          : sets  ? "every number stays, and means something else"
                  : "every size stays, and is shown as another number";
  const DPoolBase* const rules = model.session.GetDataPool(code::kSetRule);
  if (sets && !is_same && rules && rules->GetSize() > 0) {
    text +=
        "\nrules of mesh sets say the unit of their lengths, which are the sizes they were: see "
        "what they select now with qxdb sets " +
        model.path;
  }
  context.Print(text + (is_saved ? "\nsaved; take it back with qxdb undo" : "\n(not saved)"), json);
  return {};
}

}  // namespace

std::string UnitsText(const UnitSystem& system) {
  std::string text;
  for (int b = 0; b < kUnitBaseCount; ++b) {
    text += (b ? "," : "") + std::string(NameOf(system, static_cast<UnitBase>(b)));
  }
  return text;
}

void AddModelUnits(Command& units, Context& context) {
  AddModelCommand<UnitsOptions>(units, context, "show",
                                "Show what the numbers of a model are stored and shown in",
                                "qxdb units show wing.qxm", Show);
  const auto add = [&](const char* name, const char* what, const char* example, Change change) {
    const auto run = [change](Model& model, const UnitsOptions& options, const Context& to) {
      return ChangeUnits(model, options, change, to);
    };
    const auto [command, options] =
        AddModelCommand<UnitsOptions>(units, context, name, what, example, run);
    command->Add("units", &options->units, "Those that change, apart by commas: mm or mm,N,ton")
        .Required();
    command->Add("--dry-run", &options->dry_run, "Say what would change, save nothing");
  };
  add("set", "Say what the numbers mean: they stay, the sizes change", "qxdb units set wing.qxm mm",
      Change::kMeaning);
  add("convert", "Show the sizes in other units: they stay, the numbers change",
      "qxdb units convert wing.qxm m", Change::kNumbers);
}

}  // namespace qx::app
