#include "viewer/field_values.h"

#include <charconv>
#include <cmath>
#include <fmt/format.h>
#include <limits>
#include <map>

#include "qx_db/lib/units.h"
#include "qx_db/model/deck_pools.h"
#include "qx_db/platform/text.h"

#include "viewer/extent.h"

namespace qx::viewer {
namespace {

/// More components than this are no vector or tensor, and a list of them is no reading matter.
constexpr std::int32_t kMostComponents = 9;

std::int32_t ComponentsOf(const tagTField& field) { return std::max(field.components, 1); }

/// Numbers that a field has for each of its places: its components, after their magnitude where
/// there are several.
std::int32_t FirstComponent(const tagTField& field) { return ComponentsOf(field) > 1 ? 0 : 1; }
std::int32_t LastComponent(const tagTField& field) {
  return std::min(ComponentsOf(field), kMostComponents);
}

std::string ComponentText(const tagTField& field, std::int32_t component) {
  if (component == 0) return ", magnitude";
  if (ComponentsOf(field) == 1) return "";
  if (ComponentsOf(field) <= 3) return std::string(", ") + "xyz"[component - 1];
  return fmt::format(", component {}", component);
}

std::string LabelOf(const tagTField& field, std::int32_t component, bool of_many) {
  std::string label = Utf8(field.name.View());
  if (label.empty()) label = fmt::format("field {}", field.key);
  label += ComponentText(field, component);
  if (of_many) label += fmt::format(" (step {}, {:g})", field.step, +field.time);
  return label;
}

std::string NameOf(const tagTField& field, std::int32_t component) {
  std::string name = fmt::format("{}{}", kFieldPrefix, field.key);
  if (component != FirstComponent(field)) name += fmt::format(":{}", component);
  return name;
}

template <class Visit>
void ForEachField(const CQXDBSession& session, Visit&& visit) {
  const DPoolBase& pool = *session.GetDataPool(code::kField);
  for (ITR at = pool.GetHeadPosition(); at; pool.Next(at)) {
    visit(*static_cast<const tagTField*>(KeyedSetBase::RecordAt(at)));
  }
}

/// How many fields have a name: those of several steps are told apart by them.
std::map<std::u16string, int> CountNames(const CQXDBSession& session) {
  std::map<std::u16string, int> counts;
  ForEachField(session,
               [&](const tagTField& field) { ++counts[std::u16string(field.name.View())]; });
  return counts;
}

/// Visits each field with its components and their labels.
template <class Visit>
void ForEachComponent(const CQXDBSession& session, Visit&& visit) {
  auto counts = CountNames(session);
  ForEachField(session, [&](const tagTField& field) {
    const bool of_many = counts[std::u16string(field.name.View())] > 1;
    for (std::int32_t c = FirstComponent(field); c <= LastComponent(field); ++c) {
      visit(NameOf(field, c), LabelOf(field, c, of_many));
    }
  });
}

/// The values of one place, `count` numbers, as one: means over the places within, if there are
/// several.
template <class Entry>
double ValueOf(const Entry* entries, std::int32_t count, const tagTField& field,
               std::int32_t component) {
  const std::int32_t components = ComponentsOf(field);
  double sum = 0;
  std::int32_t places = 0;
  for (std::int32_t i = 0; i + components <= count; i += components, ++places) {
    if (component > 0) {
      sum += entries[i + component - 1].value;
      continue;
    }
    double squares = 0;
    for (std::int32_t c = 0; c < components; ++c) {
      squares += entries[i + c].value * entries[i + c].value;
    }
    sum += std::sqrt(squares);
  }
  return places > 0 ? sum / places : std::numeric_limits<double>::quiet_NaN();
}

/// Values by the number of what they belong to.
template <class Entries>
std::vector<float> Gathered(const Entries& entries, const PoolNumbers& numbers, std::size_t size,
                            const tagTField& field, std::int32_t component,
                            const CQXUnitCtrl& units) {
  std::vector<float> out(size, std::numeric_limits<float>::quiet_NaN());
  const std::int32_t count = entries.GetSize();
  for (std::int32_t begin = 0, end = 0; begin < count; begin = end) {
    const ITR target = entries[begin].target;
    while (end < count && entries[end].target == target) ++end;
    const std::uint32_t n = numbers.Find(target);
    if (n >= size) continue;
    const double value = ValueOf(&entries[begin], end - begin, field, component);
    out[n] = ToFloat(field.category == unit::kUnknown ? value : units.Out(field.category, value));
  }
  return out;
}

std::vector<float> MeansOfNodes(const DenseMesh& mesh, const std::vector<float>& nodes) {
  std::vector<float> out(mesh.ElementCount(), std::numeric_limits<float>::quiet_NaN());
  for (std::uint32_t e = 0; e < out.size(); ++e) {
    if (!mesh.IsUsable(e) || mesh.Nodes(e).empty()) continue;
    double sum = 0;
    for (const std::uint32_t n : mesh.Nodes(e)) sum += nodes[n];
    out[e] = ToFloat(sum / static_cast<double>(mesh.Nodes(e).size()));
  }
  return out;
}

bool ReadInteger(std::string_view text, std::int32_t& value) {
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
  return error == std::errc() && end == text.data() + text.size();
}

}  // namespace

void WriteFields(Json& json, const CQXDBSession& session) {
  json.Name("fields").StartArray();
  ForEachComponent(session, [&](const std::string& name, const std::string& label) {
    json.StartObject();
    json.Text("name", name).Text("label", label).EndObject();
  });
  json.EndArray();
}

std::vector<std::string> FieldNames(const CQXDBSession& session) {
  std::vector<std::string> names;
  ForEachComponent(session,
                   [&](const std::string& name, const std::string&) { names.push_back(name); });
  return names;
}

std::optional<FieldValues> FindField(const CQXDBSession& session, const DenseMesh& mesh,
                                     std::string_view name) {
  if (!name.starts_with(kFieldPrefix)) return {};
  name.remove_prefix(kFieldPrefix.size());
  const tagTField* field = nullptr;
  std::optional<std::int32_t> component;
  const auto look_for = [&](std::string_view wanted) {
    Key key = 0;
    const bool is_key = ReadInteger(wanted, key);
    ForEachField(session, [&](const tagTField& each) {
      if (is_key ? each.key == key : Utf8(each.name.View()) == wanted) field = &each;
    });
  };
  look_for(name);  // a name may have colons of its own
  const std::size_t colon = name.rfind(':');
  std::int32_t number = 0;
  if (!field && colon != std::string_view::npos && ReadInteger(name.substr(colon + 1), number)) {
    look_for(name.substr(0, colon));
    component = number;
  }
  if (!field) return {};
  if (!component) component = FirstComponent(*field);
  if (*component < FirstComponent(*field) || *component > LastComponent(*field)) return {};

  FieldValues out;
  out.label =
      LabelOf(*field, *component, CountNames(session)[std::u16string(field->name.View())] > 1);
  const CQXUnitCtrl& units = session.Units();
  if (field->category != unit::kUnknown) out.unit = units.GetUnitName(field->category);
  if (field->place == tagTField::kNodes) {
    out.nodes =
        Gathered(field->node_values, mesh.Numbers(), mesh.NodeCount(), *field, *component, units);
    out.elements = MeansOfNodes(mesh, out.nodes);
  } else {
    const PoolNumbers elements(session.GetDataPool(code::kElem)->Set());
    out.elements =
        Gathered(field->element_values, elements, mesh.ElementCount(), *field, *component, units);
  }
  return out;
}

}  // namespace qx::viewer
