// The properties of a model: listing them with what they weigh, adding them, giving them to
// elements.

#include <cmath>
#include <fmt/format.h>
#include <map>

#include "qx_db/qx_db.h"

#include "apps/qxdb/commands.h"

namespace qx::app {
namespace {

struct PropertyOptions {
  std::string model;
  std::string kind;
  std::string name;
  std::vector<double> values;
  Key material = 0;
  Key property = 0;
  std::string keys;
};

std::string KindName(const tagTProp& property) {
  const host::PropertyKind* kind = host::FindPropertyKind(property.type);
  return kind ? std::string(kind->name) : std::to_string(property.type);
}

Outcome List(Model& model, const PropertyOptions&, const Context& context) {
  CQXDBSession& session = model.session;
  std::map<ITR, TArray<ITR>> elements;
  auto& mesh = Pool<tagTElem>(session);
  for (ITR pos = mesh.GetHeadPosition(); pos; mesh.Next(pos)) {
    const ITR property = mesh.GetAtNU(pos).property;  // by value: it may lie at any address
    elements[property].Add(pos);
  }
  const auto& pool = *session.GetPool<DPoolProp>(code::kProp);
  Table table({">key", "name", "kind", "material", ">elements", ">mass"});
  JsonText json;
  json.Begin().BeginArray("properties");
  for (ITR pos = pool.GetHeadPosition(); pos; pool.Next(pos)) {
    const tagTProp& property = pool.GetAtNU(pos);
    TString<64> material;
    IAppDB::Instance()->GetMatlName(&session, property.material, material);
    const TArray<ITR>& users = elements[pos];
    const double mass =
        session.Units().Out(unit::kMass, IAppDB::Instance()->GetMSetMass(&session, users));
    table.Row({std::to_string(property.GetKey()), Utf8(property.name.View()), KindName(property),
               Utf8(material.View()), Grouped(users.GetSize()), Short(mass)});
    json.Begin().Integer("key", property.GetKey()).Text("name", Utf8(property.name.View()));
    json.Text("kind", KindName(property)).Text("material", Utf8(material.View()));
    json.Integer("elements", users.GetSize()).Real("mass", mass).End();
  }
  context.Print(table.IsEmpty() ? "no properties\n" : table.Text(), json.End().End());
  return {};
}

using Change = Outcome (*)(Model&, const PropertyOptions&, std::string& done);

Outcome Add(Model& model, const PropertyOptions& options, std::string& done) {
  CQXDBSession& session = model.session;
  const host::PropertyKind* kind = nullptr;
  std::string known;
  for (const host::PropertyKind& one : host::PropertyKinds()) {
    if (EqualNoCase(one.name, options.kind)) kind = &one;
    known += (known.empty() ? "" : ", ") + std::string(one.name);
  }
  if (!kind) return Failure{"", "kind \"" + options.kind + "\"", "is not known", "use " + known};
  IAppDB& host = *IAppDB::Instance();
  const ITR material = host.MatlFindItr(&session, options.material);
  if (options.material != 0 && !material) {
    return Failure{options.model, "material " + std::to_string(options.material),
                   "there is no such material", "see them with: qxdb show MODEL matl"};
  }
  for (const double value : options.values) {
    if (std::isfinite(value) && (value >= 0 || kind->name == "spring")) continue;
    return Failure{"", "value " + Short(value), "is no size or mass of a property",
                   "give finite values from 0 on"};
  }
  if (TString<64> name; !options.name.empty()) {
    name.Set(Utf16(options.name));
    if (Utf8(name.View()) != options.name) {
      return Failure{"", "name", "is longer than 63 characters", "shorten it"};
    }
  }
  TArray<double> values;
  values.Assign(options.values.data(), options.values.size());
  const ITR added = host.AddProperty(&session, kind->type, Utf16(options.name), values);
  if (!added) {
    return Failure{"", "kind \"" + options.kind + "\"", "has fewer values than were given",
                   "see the values of each kind in: qxdb property add --help"};
  }
  auto& pool = *session.GetPool<DPoolProp>(code::kProp);
  tagTProp property = pool.GetAtNU(added);
  property.ConvertUnitIn(&session.Units());
  property.material = material;
  pool.SetAtNU(added, property);
  done = fmt::format("added property {}\n", property.GetKey());
  return {};
}

Outcome Assign(Model& model, const PropertyOptions& options, std::string& done) {
  CQXDBSession& session = model.session;
  const ITR property = IAppDB::Instance()->PropFindItr(&session, options.property);
  if (!property && options.property != 0) {
    return Failure{options.model, "property " + std::to_string(options.property),
                   "there is no such property", "see them with: qxdb property list MODEL"};
  }
  auto& mesh = Pool<tagTElem>(session);
  const auto items = PickItems(model, mesh, options.keys);
  if (!items) return items.Error();
  for (const ITR item : *items) {
    tagTElem element = mesh.GetAtNU(item);
    element.property = property;
    mesh.SetAtNU(item, element);
  }
  done = fmt::format("gave property {} to {} element{}\n", options.property,
                     Grouped(items->GetSize()), items->GetSize() == 1 ? "" : "s");
  return {};
}

Outcome Run(Model& model, const PropertyOptions& options, Change change, const Context& context) {
  Edit edit(model);
  std::string text;
  Outcome done = edit.Do(qxLoadText("IDS_QX_TRANS_Modify_Property").c_str(),
                         [&] { return change(model, options, text); });
  if (done) done = edit.Save();
  if (!done) return done;
  JsonText json;
  json.Begin().Text("model", options.model).Text("done", text.substr(0, text.size() - 1));
  context.Print(text, json.End());
  return {};
}

}  // namespace

void AddProperty(Command& app, Context& context) {
  Command* command = AddCommand(app, context, "property", "List, add and assign properties",
                                "qxdb property list bracket.qxm");
  AddModelCommand<PropertyOptions>(*command, context, "list",
                                   "List the properties with their elements and masses",
                                   "qxdb property list bracket.qxm", List);
  const auto sub = [&](const char* name, const char* what, const char* example, Change change) {
    const auto run = [change](Model& model, const PropertyOptions& options, const Context& to) {
      return Run(model, options, change, to);
    };
    return AddModelCommand<PropertyOptions>(*command, context, name, what, example, run);
  };
  const auto [add, add_options] = sub(
      "add", "Add a property", "qxdb property add bracket.qxm plate Web 0.012 --material 1", Add);
  add->Add("kind", &add_options->kind, "Kind: plate, beam, solid, ...").Required();
  add->Add("name", &add_options->name, "Name").Required();
  add->Add("values", &add_options->values,
           "In current units. Surfaces: thickness, mass per area. Lines: area, second "
           "moments about y and z, torsional constant, mass per length. Point mass: mass. "
           "Springs: six stiffnesses");
  add->Add("--material", &add_options->material, "Key of its material");

  const auto [assign, assign_options] = sub("assign", "Give a property to elements",
                                            "qxdb property assign bracket.qxm 1 all", Assign);
  assign->Add("property", &assign_options->property, "Key of the property, 0 for none").Required();
  assign->Add("keys", &assign_options->keys, "Keys of elements: 1-5,9,100- or all")
      .Keys()
      .Required();
}

}  // namespace qx::app
