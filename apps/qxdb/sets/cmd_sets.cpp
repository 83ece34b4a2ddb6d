// Mesh sets: the tree of them, and what one does with them.

#include <algorithm>
#include <fmt/format.h>
#include <map>
#include <memory>
#include <set>

#include "qx_db/model/set_rules.h"
#include "qx_db/platform/stdio_file.h"
#include "qx_db/qx_db.h"

#include "apps/qxdb/commands.h"
#include "apps/qxdb/files/import_text.h"
#include "apps/qxdb/model/where.h"
#include "apps/qxdb/sets/turns.h"

namespace qx::app {
namespace {

struct SetsOptions {
  std::string model;
  std::vector<std::string> sets;  ///< by key or name
  std::string name;
  std::string parent;
  std::string nodes;
  std::string elements;
  std::string where;
  std::string rule;
  std::string other;
  bool no_rule = false;
  bool keep_keys = false;
  bool with_children = false;
  bool dry_run = false;
  bool yes = false;
};

// ---- the tree -----------------------------------------------------------------------------------

/// A set and how deep it is; the children of a set follow it.
struct TreeRow {
  ITR set;
  int depth;
};

/// Every set once. Sets in a ring of parents, which only a damaged file brings, come at the end.
std::vector<TreeRow> Tree(const DPoolMset& sets) {
  std::map<Key, std::vector<ITR>> children;
  std::vector<TreeRow> open;
  TArray<ITR> roots;
  sets.GetItrListByNoParentMsetK(0, roots);
  std::set<ITR> met(roots.begin(), roots.end());
  for (ITR pos = sets.GetHeadPosition(); pos; sets.Next(pos)) {
    if (!met.contains(pos)) children[sets.GetAtNU(pos).parent_key].push_back(pos);
  }
  std::vector<TreeRow> rows;
  const auto walk_from = [&](ITR root) {
    open.push_back({root, 0});
    while (!open.empty()) {
      const TreeRow row = open.back();
      open.pop_back();
      rows.push_back(row);
      const std::vector<ITR>& below = children[sets.GetAtNU(row.set).key];
      for (auto child = below.rbegin(); child != below.rend(); ++child) {
        if (met.insert(*child).second) open.push_back({*child, row.depth + 1});
      }
    }
  };
  for (const ITR root : roots) walk_from(root);
  for (ITR pos = sets.GetHeadPosition(); pos; sets.Next(pos)) {
    if (met.insert(pos).second) walk_from(pos);
  }
  return rows;
}

/// What belongs to no set.
template <std::uint16_t Type>
std::int64_t CountFree(const DPoolBase& pool, const DPoolMset& sets,
                       TRefArray<Type> tagTMset::*list) {
  ItemMarks listed(pool);
  for (ITR pos = sets.GetHeadPosition(); pos; sets.Next(pos)) {
    const TArray<ITR>& items = sets.GetAtNU(pos).*list;
    listed.Add({items.data(), items.size()});
  }
  std::int64_t count = 0;
  for (ITR pos = pool.GetHeadPosition(); pos; pool.Next(pos)) count += !listed.Has(pos);
  return count;
}

Outcome List(const std::string& path, const Context& context) {
  Model model(path);
  if (Outcome opened = model.Open(); !opened) return opened;
  const CQXDBSession& session = model.session;
  const auto& sets = *session.GetPool<DPoolMset>(code::kMset);
  const DPoolBase* const rules = session.GetDataPool(code::kSetRule);
  const bool any_rule = rules && rules->GetSize() > 0;
  std::vector<std::string> columns{">key", ">nodes", ">elements", "colour", "name"};
  if (any_rule) columns.push_back("rule");
  Table table(columns);
  std::string faults;
  JsonText json;
  json.Begin().Text("model", path).BeginArray("sets");
  for (const TreeRow& row : Tree(sets)) {
    const tagTMset& set = sets.GetAtNU(row.set);
    const std::string name = Utf8(set.name.View());
    const auto c = static_cast<std::uint32_t>(set.color);  // blue above green above red
    const std::string color =
        fmt::format("#{:02X}{:02X}{:02X}", c & 0xFF, c >> 8 & 0xFF, c >> 16 & 0xFF);
    const SetMembers members = MembersOf(session, row.set);
    const std::int64_t nodes = CountOf(members.Nodes());
    const std::int64_t elements = CountOf(members.Elements());
    const std::string rule = RuleOf(session, row.set);
    std::vector<std::string> cells{
        std::to_string(set.key), Grouped(nodes), Grouped(elements), color,
        std::string(2 * static_cast<std::size_t>(row.depth), ' ') + name};
    if (any_rule) cells.push_back(rule);
    table.Row(cells);
    if (const auto& fault = members.Fault()) {
      faults += fmt::format("the rule of \"{}\" has no answer: {}: {}; {}\n", name, fault->place,
                            fault->what, fault->remedy);
    }
    json.Begin().Integer("key", set.key).Text("name", name).Integer("parent", set.parent_key);
    json.Integer("depth", row.depth).Text("colour", color).Integer("nodes", nodes);
    json.Integer("elements", elements);
    if (!rule.empty()) json.Text("rule", rule);
    if (members.Fault()) json.Text("fault", members.Fault()->what);
    json.End();
  }
  const std::int64_t nodes = CountFree(*session.GetDataPool(code::kNode), sets, &tagTMset::nodes);
  const std::int64_t elements =
      CountFree(*session.GetDataPool(code::kElem), sets, &tagTMset::elements);
  json.End().Integer("nodes_of_no_set", nodes).Integer("elements_of_no_set", elements);
  std::string text = table.IsEmpty() ? "no mesh sets\n" : table.Text();
  text += faults;
  text += fmt::format("in no set: {} node{}, {} element{}", Grouped(nodes), nodes == 1 ? "" : "s",
                      Grouped(elements), elements == 1 ? "" : "s");
  context.Print(text, json.End());
  return {};
}

// ---- editing ------------------------------------------------------------------------------------

/// The set of a key or a name.
Result<ITR> FindSet(const DPoolMset& sets, const std::string& text, const std::string& model) {
  std::vector<ITR> found;
  for (ITR pos = sets.GetHeadPosition(); pos; sets.Next(pos)) {
    const tagTMset& set = sets.GetAtNU(pos);
    if (std::to_string(set.key) == text) return pos;
    if (Utf8(set.name.View()) == text) found.push_back(pos);
  }
  if (found.size() == 1) return found.front();
  const std::string place = "mesh set \"" + text + "\"";
  if (found.empty()) return Failure{model, place, "is not there", "see qxdb sets " + model};
  std::string keys;
  for (const ITR set : found) keys += fmt::format(" {}", sets.GetAtNU(set).key);
  return Failure{model, place, "is the name of several sets", "use one of the keys" + keys};
}

struct Editing {
  Model& model;
  DPoolMset& sets;
  const SetsOptions& options;
  std::vector<ITR> chosen;  ///< the sets that the options name
  Key parent = 0;
  std::string told = {};  ///< what there is to tell beyond the changes
  JsonText json = {};     ///< and as members of the result
};

/// Does the work; 0 when the model refuses.
using SetsEdit = Result<int> (*)(Editing&);

/// Records of a pool by ranges of keys; none for an empty text.
Result<TArray<ITR>> PickAny(const Model& model, std::uint16_t type, const std::string& keys) {
  if (keys.empty()) return TArray<ITR>();
  return PickItems(model, *model.session.GetDataPool(type), keys);
}

/// What a mesh set can list of a selection.
Result<Selection> SelectMembers(const Model& model, const std::string& where) {
  auto selection = SelectIn(model, where);
  if (!selection) return selection.Error();
  if (selection->kind == SelectKind::kFaces) {
    return Failure{"", "where", "selects faces, and mesh sets list nodes and elements",
                   "write nodes of (...) or elements of (...)"};
  }
  if (selection->Count() > 0) return std::move(*selection);
  return Failure{model.path, "where", fmt::format("selects no {}", NameOf(selection->kind)),
                 "see what it selects with: qxdb select " + model.path};
}

/// What a set has now that it has another rule, or none.
void TellMembers(Editing& edit, ITR set) {
  const SetMembers members = MembersOf(edit.model.session, set);
  const std::string rule = RuleOf(edit.model.session, set);
  edit.told +=
      fmt::format("\"{}\": {} nodes, {} elements, {}\n", Utf8(edit.sets.GetAtNU(set).name.View()),
                  Grouped(CountOf(members.Nodes())), Grouped(CountOf(members.Elements())),
                  rule.empty() ? "listed" : "by the rule: " + rule);
}

/// Gives a set a rule. A fault of the text is one of what was typed and has no file.
Outcome Give(Editing& edit, ITR set, const std::string& rule) {
  const auto read = SelectionRule::Parse(rule);
  const Outcome given = SetRule(edit.model.session, set, rule);
  if (given || (!rule.empty() && (!read || read->Kind() == SelectKind::kFaces))) return given;
  Failure failure = given.Error();
  failure.file = edit.model.path;
  return failure;
}

Result<int> AddOne(Editing& edit) {
  const SetsOptions& options = edit.options;
  auto nodes = PickAny(edit.model, code::kNode, options.nodes);
  if (!nodes) return nodes.Error();
  auto elements = PickAny(edit.model, code::kElem, options.elements);
  if (!elements) return elements.Error();
  if (!options.where.empty()) {
    const auto selection = SelectMembers(edit.model, options.where);
    if (!selection) return selection.Error();
    (selection->kind == SelectKind::kNodes ? *nodes : *elements).Append(selection->items);
  }
  for (const ITR element : *elements) {
    nodes->Append(static_cast<const tagTElem*>(KeyedSetBase::RecordAt(element))->nodes);
  }
  ITR set = 0;
  if (!edit.sets.TR_Add(Utf16(options.name).c_str(), edit.parent, set) ||
      !edit.sets.Private_Add_NodeElem(set, *nodes, *elements)) {
    return 0;
  }
  if (options.rule.empty()) return 1;
  if (Outcome given = Give(edit, set, options.rule); !given) return given.Error();
  TellMembers(edit, set);
  return 1;
}

Result<int> GiveRule(Editing& edit) {
  const SetsOptions& options = edit.options;
  if (options.no_rule == !options.where.empty()) {
    return Failure{"", "rule", "one of --where and --none is required",
                   "see: qxdb sets rule --help"};
  }
  const ITR set = edit.chosen.front();
  if (Outcome given = Give(edit, set, options.where); !given) return given.Error();
  TellMembers(edit, set);
  return 1;
}

Result<int> ToList(Editing& edit) {
  for (const ITR set : edit.chosen) {
    if (Outcome made = MakePlain(edit.model.session, set); !made) return made.Error();
    TellMembers(edit, set);
  }
  return 1;
}

Result<int> Rename(Editing& edit) {
  return edit.sets.TR_Rename(edit.chosen.front(), Utf16(edit.options.name).c_str());
}

Result<int> Move(Editing& edit) { return edit.sets.TR_SetParent(edit.chosen.front(), edit.parent); }

Result<int> Merge(Editing& edit) {
  return edit.sets.Merge(edit.chosen.front(),
                         std::list<ITR>(edit.chosen.begin() + 1, edit.chosen.end()));
}

Result<int> Delete(Editing& edit) {
  const auto remove = [&](CQXDBSession& session) {
    return DeleteRecords(session, code::kMset, edit.chosen);
  };
  const std::vector<Turn> turns = TurnsOf(edit.model.session, remove);
  const SetsOptions& options = edit.options;
  const bool may = options.yes || options.dry_run;
  if (Outcome asked = AskForTurns(turns, may, options.model, "delete"); !asked) {
    return asked.Error();
  }
  edit.told += TurnsText(turns, false);
  WriteTurns(turns, edit.json);
  return remove(edit.model.session);
}

Result<int> Clean(Editing& edit) { return edit.sets.TR_Del_EmptyMset(); }

Result<int> Rebuild(Editing& edit) { return edit.sets.RebuildMeshset(1); }

Result<int> ImportSets(Editing& edit) {
  const SetsOptions& options = edit.options;
  TArray<Key> keys;
  CStringArray names;
  if (!edit.sets.LoadExtDB(Utf16(options.other).c_str(), keys, names)) {
    return RefusalOf(options.other);
  }
  TArray<Key> chosen;
  for (const std::string& wanted : options.sets) {
    const std::int32_t before = chosen.GetSize();
    for (std::int32_t i = 0; i < keys.GetSize(); ++i) {
      if (names[i].ToUtf8() == wanted || std::to_string(keys[i]) == wanted) chosen.Add(keys[i]);
    }
    if (chosen.GetSize() > before) continue;
    return Failure{options.other, "mesh set \"" + wanted + "\"", "is not there",
                   "see qxdb sets " + options.other};
  }
  if (!edit.sets.TR_Import(options.sets.empty() ? keys : chosen, options.keep_keys,
                           options.with_children, edit.parent)) {
    return 0;
  }
  edit.told += DescribeImport(*edit.sets.LastImport(), edit.model.session, edit.json);
  return 1;
}

/// Finds the sets that the options name.
Outcome FindSets(Editing& edit, bool in_model) {
  const SetsOptions& options = edit.options;
  for (std::size_t i = 0; in_model && i < options.sets.size(); ++i) {
    const auto set = FindSet(edit.sets, options.sets[i], options.model);
    if (!set) return set.Error();
    if (std::count(edit.chosen.begin(), edit.chosen.end(), *set) > 0) {
      return Failure{options.model, "mesh set \"" + options.sets[i] + "\"", "is named twice",
                     "name each set once"};
    }
    edit.chosen.push_back(*set);
  }
  if (options.parent.empty() || options.parent == "0") return {};
  const auto parent = FindSet(edit.sets, options.parent, options.model);
  if (!parent) return parent.Error();
  edit.parent = edit.sets.GetAtNU(*parent).key;
  return {};
}

Outcome RunEdit(Model& model, const SetsOptions& options, const std::u16string& step, SetsEdit work,
                const Context& context) {
  Editing editing{model, *model.session.GetPool<DPoolMset>(code::kMset), options, {}};
  editing.json.Begin().Text("model", options.model);
  if (Outcome found = FindSets(editing, work != ImportSets); !found) return found;
  Edit edit(model);
  Outcome done = edit.Do(step, [&]() -> Outcome {
    const Result<int> worked = work(editing);
    if (!worked) return worked.Error();
    return *worked ? Outcome() : RefusalOf(options.model);
  });
  if (done) done = edit.Save(options.dry_run);
  if (!done) return done;
  const ChangeCounter& changes = edit.Changes();
  JsonText& json = editing.json;
  json.Bool("saved", edit.IsSaved());
  changes.Write(json);
  const char* ending = edit.IsSaved() ? "saved" : changes.IsEmpty() ? "" : "(not saved)";
  context.Print(editing.told + changes.Text() + ending, json.End());
  return {};
}

}  // namespace

void AddSets(Command& app, Context& context) {
  Command* command = AddCommand(app, context, "sets", "Show and change the mesh sets of a model",
                                "qxdb sets bracket.qxm");
  auto model = std::make_shared<std::string>();
  command->Add("model", model.get(), "Model file").OpenModel();
  command->work = [model, &context] {
    context.Conclude(model->empty()
                         ? Failure{"", "sets", "model is required", "see: qxdb sets --help"}
                         : List(*model, context));
  };
  const auto add = [&](const char* name, const char* what, const char* example, SetsEdit work) {
    const auto run = [step = Utf16(std::string(what)), work](Model& on, const SetsOptions& options,
                                                             const Context& to) {
      return RunEdit(on, options, step, work, to);
    };
    auto added = AddModelCommand<SetsOptions>(*command, context, name, what, example, run);
    added.first->Add("--dry-run", &added.second->dry_run, "Say what would change, save nothing");
    return added;
  };
  constexpr const char* kUnder = "Set to put it under, by key or name; 0 for none";
  const auto add_set = [](Command* sub, SetsOptions& options) {
    sub->Add("set", &options.sets, "Set, by key or name").Set().Count(1).Required();
  };
  const auto add_sets = [](Command* sub, SetsOptions& options, const char* what) -> Option& {
    return sub->Add("sets", &options.sets, what).Set();
  };

  const auto [added, add_options] =
      add("add", "Add a mesh set", "qxdb sets add bracket.qxm upright --elements 1-500", AddOne);
  added->Add("name", &add_options->name, "Name of the set").Required();
  added->Add("--under", &add_options->parent, kUnder).Set();
  added->Add("--nodes", &add_options->nodes, "Keys of nodes: 1-5,9,100- or all").Keys();
  added->Add("--elements", &add_options->elements, "Keys of elements, with their nodes").Keys();
  AddWhere(*added, add_options->where, "Nodes, or elements with their nodes, by a selection");

  added->Add("--rule", &add_options->rule,
             "A selection that the set's members follow from, besides what it lists");

  const auto [ruled, rule_options] =
      add("rule", "Let the members of a mesh set follow from a selection",
          "qxdb sets rule bracket.qxm upright --where 'hex8 and z > 5mm'", GiveRule);
  add_set(ruled, *rule_options);
  AddWhere(*ruled, rule_options->where, "Nodes, or elements with their nodes, by a selection");
  ruled->Add("--none", &rule_options->no_rule, "Take the rule away; what the set lists stays");

  const auto [listed, list_options] =
      add("to-list", "Make what mesh sets have by their rules now their lists, without the rules",
          "qxdb sets to-list bracket.qxm upright", ToList);
  add_sets(listed, *list_options, "Sets, by key or name").Count(1, 1 << 20).Required();

  const auto [renamed, rename_options] =
      add("rename", "Rename a mesh set", "qxdb sets rename bracket.qxm 2 upright", Rename);
  add_set(renamed, *rename_options);
  renamed->Add("name", &rename_options->name, "New name").Required();

  const auto [moved, move_options] = add("move", "Put a mesh set under another",
                                         "qxdb sets move bracket.qxm upright --under 0", Move);
  add_set(moved, *move_options);
  moved->Add("--under", &move_options->parent, kUnder).Set().Required();

  const auto [merged, merge_options] =
      add("merge", "Merge mesh sets into the first",
          "qxdb sets merge bracket.qxm upright \"left side\" \"right side\"", Merge);
  add_sets(merged, *merge_options, "Sets, by key or name").Count(2, 1 << 20).Required();

  const auto [deleted, delete_options] = add("delete", "Delete mesh sets with what only they hold",
                                             "qxdb sets delete bracket.qxm upright", Delete);
  add_sets(deleted, *delete_options, "Sets, by key or name").Count(1, 1 << 20).Required();
  AddYes(*deleted, delete_options->yes);

  add("clean", "Remove mesh sets that hold nothing", "qxdb sets clean bracket.qxm", Clean);
  add("rebuild", "Bring mesh sets in line with the mesh; what is in none goes to the default one",
      "qxdb sets rebuild bracket.qxm", Rebuild);

  const auto [imported, import_options] =
      add("import", "Bring mesh sets of another model in, with their mesh",
          "qxdb sets import assembly.qxm bracket.qxm upright", ImportSets);
  imported->Add("other", &import_options->other, "Model file to take them from").Model().Required();
  add_sets(imported, *import_options, "Sets, by key or name; all when none is named");
  imported->Add("--under", &import_options->parent, kUnder).Set();
  imported->Add("--keep-keys", &import_options->keep_keys,
                "Nodes and elements keep their keys, which must be free");
  imported->Add("--with-children", &import_options->with_children, "With all sets below them");
}

}  // namespace qx::app
