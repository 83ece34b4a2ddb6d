// select: what a selection picks out of a model.

#include <array>
#include <fmt/format.h>
#include <limits>
#include <map>

#include "qx_db/model/item_marks.h"
#include "qx_db/qx_db.h"
#include "qx_db/record/element_types.h"

#include "apps/qxdb/commands.h"
#include "apps/qxdb/model/where.h"

namespace qx::app {
namespace {

struct SelectOptions {
  std::string model;
  std::string where;
  bool keys = false, count = false;
};

/// The least box about some nodes, in current units; empty of none.
class NodeBox {
 public:
  NodeBox(const CQXDBSession& session, const Selection& selection) {
    const auto add_all = [&](const tagTElem& element) {
      for (const ITR node : element.nodes) Add(node);
    };
    const auto element_at = [](ITR item) -> const tagTElem& {
      return *static_cast<const tagTElem*>(KeyedSetBase::RecordAt(item));
    };
    for (const ITR item : selection.items) {
      if (selection.kind == SelectKind::kNodes) {
        Add(item);
      } else {
        add_all(element_at(item));
      }
    }
    for (const tagTElemSide& face : selection.faces) {
      const tagTElem& element = element_at(face.element);
      const ElementTopology type(element.type);
      if (!type.HasFace(face.side)) {
        add_all(element);  // a surface element is its face
        continue;
      }
      for (const std::int32_t place : type.Face(face.side, true)) Add(element.nodes[place]);
    }
    const double factor = session.Units().Out(unit::kLength, 1.0);
    for (int i = 0; i < 3; ++i) {
      low_[i] *= factor;
      high_[i] *= factor;
    }
  }

  bool IsEmpty() const { return is_empty_; }
  double Low(int axis) const { return low_[axis]; }
  double High(int axis) const { return high_[axis]; }

 private:
  void Add(ITR node) {
    if (!IsLive(node)) return;
    const Vector3 p(static_cast<const tagTNode*>(KeyedSetBase::RecordAt(node))->position);
    if (!IsFinite(p)) return;
    for (int i = 0; i < 3; ++i) {
      low_[i] = is_empty_ ? p[i] : std::min(low_[i], p[i]);
      high_[i] = is_empty_ ? p[i] : std::max(high_[i], p[i]);
    }
    is_empty_ = false;
  }

  Vector3 low_, high_;
  bool is_empty_ = true;
};

/// "17.3,18.0"
std::string FacesText(const Selection& selection, std::int32_t most) {
  std::string text;
  for (std::int32_t i = 0; i < selection.faces.GetSize(); ++i) {
    if (i == most) return text + ",...";
    const tagTElemSide& face = selection.faces[i];
    text += fmt::format("{}{}.{}", i ? "," : "", KeyOf(face.element), +face.side);
  }
  return text;
}

std::string KeysText(const Selection& selection, int most) {
  return selection.kind == SelectKind::kFaces
             ? FacesText(selection, most)
             : KeyRangesText(selection.Keys(), static_cast<std::size_t>(most));
}

/// How many elements of each type there are: "100 hex8, 20 tet4".
std::string TypesText(const Selection& selection, JsonText& json) {
  std::map<std::int32_t, std::int64_t> counts;
  for (const ITR item : selection.items) {
    ++counts[static_cast<const tagTElem*>(KeyedSetBase::RecordAt(item))->type];
  }
  std::string text;
  json.Begin("types");
  for (const auto& [type, count] : counts) {
    const ElementType* const known = FindElementType(type);
    const std::string name = known ? std::string(known->name) : fmt::format("type {}", type);
    text += fmt::format("{}{} {}", text.empty() ? "" : ", ", Grouped(count), name);
    json.Integer(name, count);
  }
  json.End();
  return text;
}

std::string BoxText(const CQXDBSession& session, const NodeBox& box, JsonText& json) {
  const std::string_view unit = session.Units().GetUnitName(unit::kLength);
  std::string text;
  json.BeginArray("box");
  for (int i = 0; i < 3; ++i) {
    text += fmt::format("{}{} {} .. {} {}", i ? ", " : "", "xyz"[i], Short(box.Low(i)),
                        Short(box.High(i)), unit);
    json.BeginArray().Real({}, box.Low(i)).Real({}, box.High(i)).End();
  }
  json.End();
  return text;
}

void WriteKeys(const Selection& selection, JsonText& json) {
  if (selection.kind == SelectKind::kFaces) {
    json.BeginArray("faces");
    for (const tagTElemSide& face : selection.faces) {
      json.BeginArray().Integer({}, KeyOf(face.element)).Integer({}, face.side).End();
    }
    json.End();
    return;
  }
  json.BeginArray("keys");
  for (const Key key : selection.Keys()) json.Integer({}, key);
  json.End();
}

Outcome Run(Model& model, const SelectOptions& options, const Context& context) {
  const auto selection = SelectIn(model, options.where);
  if (!selection) return selection.Error();
  JsonText json;
  json.Begin().Text("model", model.path).Text("where", options.where);
  json.Text("kind", NameOf(selection->kind)).Integer("count", selection->Count());
  if (options.count) {
    context.Print(std::to_string(selection->Count()), json.End());
    return {};
  }
  if (options.keys) {
    WriteKeys(*selection, json);
    context.Print(KeysText(*selection, std::numeric_limits<int>::max()), json.End());
    return {};
  }
  constexpr int kMostShown = 12;
  const std::int64_t count = selection->Count();
  std::string name(NameOf(selection->kind));
  if (count == 1) name.pop_back();
  std::string text = fmt::format("{}: {} {}\n", model.path, Grouped(count), name);
  json.Text("unit", model.session.Units().GetUnitName(unit::kLength));
  if (selection->kind == SelectKind::kElements && count > 0) {
    text += fmt::format("  types  {}\n", TypesText(*selection, json));
  }
  if (count > 0) text += fmt::format("  keys   {}\n", KeysText(*selection, kMostShown));
  const NodeBox box(model.session, *selection);
  if (!box.IsEmpty()) text += fmt::format("  box    {}\n", BoxText(model.session, box, json));
  WriteKeys(*selection, json);
  context.Print(text, json.End());
  return {};
}

}  // namespace

void AddSelect(Command& app, Context& context) {
  const auto [command, options] = AddModelCommand<SelectOptions>(
      app, context, "select", "Say which nodes, elements or faces a selection picks",
      "qxdb select bracket.qxm 'hex8 and box 0,0,0 10mm,10mm,2mm'", Run);
  command->notes =
      "A selection is of elements unless it begins with nodes or faces, or fits only these.\n"
      "Conditions are joined by and, or, not and parentheses. Put all of it into single quotes.\n"
      "What has several nodes is in a place when all of them are.\n\n" +
      ConditionHelp();
  command->Add("where", &options->where, "The selection").Selection().Required();
  Option& count = command->Add("--count", &options->count, "Print how many there are, alone");
  command->Add("--keys", &options->keys, "Print the keys alone, all of them").Excludes(count);
}

}  // namespace qx::app
