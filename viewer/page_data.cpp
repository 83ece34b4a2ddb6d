#include "viewer/page_data.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <map>
#include <optional>

#include "qx_db/app/mesh_findings.h"
#include "qx_db/lib/units.h"
#include "qx_db/mesh/mesh_adjacency.h"
#include "qx_db/mesh/mesh_quality.h"
#include "qx_db/mesh/quality_values.h"
#include "qx_db/model/coordinate_pool.h"
#include "qx_db/model/mesh_pools.h"
#include "qx_db/model/mesh_set_pool.h"
#include "qx_db/model/set_rules.h"
#include "qx_db/platform/parallel.h"
#include "qx_db/record/element_types.h"

#include "host/material_records.h"
#include "host/property_records.h"
#include "viewer/field_values.h"

namespace qx::viewer {
namespace {

/// Most axes that are drawn; more would be a carpet.
constexpr std::uint32_t kMostGlyphs = 20000;

constexpr float kNoValue = std::numeric_limits<float>::quiet_NaN();

std::string TypeLabel(std::int32_t type) {
  const ElementType* known = FindElementType(type);
  return known ? std::string(known->plural) : "elements of type " + std::to_string(type);
}

/// 0x00BBGGRR as 0xRRGGBB.
std::int32_t RgbOfBgr(std::int32_t color) {
  const auto c = static_cast<std::uint32_t>(color);
  return static_cast<std::int32_t>((c & 0xFF) << 16 | (c & 0xFF00) | (c >> 16 & 0xFF));
}

std::vector<std::int32_t> Signed(std::span<const std::uint32_t> values) {
  return {values.begin(), values.end()};
}

void WriteVector(Json& json, const Vector3& v) {
  json.StartArray();
  for (int i = 0; i < 3; ++i) json.Number(v[i]);
  json.EndArray();
}

/// Numbers of properties by iterator, in the order of their pool.
std::map<ITR, std::int32_t> PropertyNumbers(const CQXDBSession& session) {
  std::map<ITR, std::int32_t> numbers;
  const DPoolBase* pool = session.GetDataPool(code::kProp);
  for (ITR at = pool ? pool->GetHeadPosition() : 0; at; pool->Next(at)) {
    numbers.emplace(at, static_cast<std::int32_t>(numbers.size()));
  }
  return numbers;
}

/// The pool of a host's records; null when the session's holds something else.
template <class T>
const DPoolBase* PoolOfHost(const CQXDBSession& session) {
  const DPoolBase* pool = session.GetDataPool(T::kType);
  return pool && &pool->GetSchema() == &T::GetSchema() ? pool : nullptr;
}

void WriteHostRecords(Json& json, const CQXDBSession& session) {
  json.Name("properties").StartArray();
  if (const DPoolBase* pool = PoolOfHost<tagTProp>(session)) {
    for (ITR at = pool->GetHeadPosition(); at; pool->Next(at)) {
      const auto& property = *static_cast<const tagTProp*>(KeyedSetBase::RecordAt(at));
      const host::PropertyKind* kind = host::FindPropertyKind(property.type);
      json.StartObject();
      json.Integer("key", property.key).Text("name", property.GetName().ToUtf8());
      json.Integer("color", RgbOfBgr(property.color)).Integer("material", KeyOf(property.material));
      json.Text("kind", kind ? kind->name : std::string_view());
      json.EndObject();
    }
  }
  json.EndArray();
  json.Name("materials").StartArray();
  if (const DPoolBase* pool = PoolOfHost<tagTMatl>(session)) {
    for (ITR at = pool->GetHeadPosition(); at; pool->Next(at)) {
      const auto& material = *static_cast<const tagTMatl*>(KeyedSetBase::RecordAt(at));
      json.StartObject();
      json.Integer("key", material.key).Text("name", material.GetName().ToUtf8());
      json.Integer("color", RgbOfBgr(material.color)).EndObject();
    }
  }
  json.EndArray();
}

/// All of them; those that are somewhere with their origin and axes.
void WriteSystems(Json& json, const CQXDBSession& session, double length, const Point3& origin) {
  const auto& systems = *session.GetPool<DPoolCord>(code::kCord);
  json.Name("systems").StartArray();
  for (ITR at = systems.GetHeadPosition(); at; systems.Next(at)) {
    const tagTCord& system = systems.GetAtNU(at);
    Frame frame;
    json.StartObject();
    json.Integer("key", system.key).Text("name", system.GetName().ToUtf8());
    json.Integer("kind", system.type);
    if (systems.GetFrame(at, frame) && Length(length * frame.origin) <= kFarthest) {
      json.Name("origin");
      WriteVector(json, length * frame.origin - origin);
      json.Name("axes").StartArray();
      for (const Vector3* axis : {&frame.axes.x, &frame.axes.y, &frame.axes.z}) {
        WriteVector(json, *axis);
      }
      json.EndArray();
    }
    json.EndObject();
  }
  json.EndArray();
}

void WriteMeasures(Json& json) {
  json.Name("measures").StartArray();
  for (const MeasureInfo& info : Measures()) {
    json.StartObject();
    json.Text("name", info.name).Text("label", info.label).Text("unit", info.unit);
    json.Flag("high_is_bad", info.high_is_bad);
    json.Flag("common", info.shown == Shown::kByDefault);
    if (info.acceptable) json.Number("acceptable", *info.acceptable);
    json.EndObject();
  }
  json.EndArray();
}

/// Whether an element is anywhere to be drawn: special ones may have no nodes.
bool HasPlace(const DenseMesh& mesh, std::uint32_t e) {
  return mesh.IsUsable(e) && !mesh.Nodes(e).empty();
}

}  // namespace

PageData::PageData(const CQXDBSession& session)
    : session_(session),
      length_(session.Units().Out(unit::kLength, 1.0)),
      mesh_(session),
      extent_(ExtentOf(mesh_, length_)) {
  if (extent_.left_out_count > 0) mesh_.LeaveOutAt(extent_.left_out);
  surface_ = SurfaceOf(mesh_);
  std::erase_if(surface_.lone_nodes, [&](std::uint32_t n) { return !extent_.Has(n); });
  constexpr std::uint32_t kUnseen = ~0u;
  number_.assign(mesh_.NodeCount(), kUnseen);
  const auto see = [&](std::uint32_t n) {
    if (number_[n] == kUnseen) number_[n] = 0;
  };
  for (const FaceList& list : surface_.faces)
    std::for_each(list.nodes.begin(), list.nodes.end(), see);
  for (const auto* list : {&surface_.line_nodes, &surface_.point_nodes, &surface_.lone_nodes}) {
    std::for_each(list->begin(), list->end(), see);
  }
  order_.reserve(number_.size());
  for (const bool seen : {true, false}) {
    for (std::uint32_t n = 0; n < number_.size(); ++n) {
      if ((number_[n] != kUnseen) == seen) order_.push_back(n);
    }
    if (seen) seen_ = static_cast<std::uint32_t>(order_.size());
  }
  for (std::uint32_t i = 0; i < order_.size(); ++i) number_[order_[i]] = i;
  // The middle of what is seen.
  Point3 low, high;
  bool empty = true;
  for (std::uint32_t i = 0; i < seen_; ++i) {
    const Point3& p = mesh_.Position(order_[i]);
    if (!extent_.Has(order_[i])) continue;
    if (empty) low = high = p;
    empty = false;
    low = {std::min(low.x, p.x), std::min(low.y, p.y), std::min(low.z, p.z)};
    high = {std::max(high.x, p.x), std::max(high.y, p.y), std::max(high.z, p.z)};
  }
  origin_ = 0.5 * length_ * (low + high);
}

std::uint32_t PageData::SolidCount() const {
  std::uint32_t count = 0;
  for (std::uint32_t e = 0; e < mesh_.ElementCount(); ++e) {
    count += mesh_.IsUsable(e) && mesh_.Shape(e) >= CornerShape::kTetrahedron;
  }
  return count;
}

std::vector<std::int32_t> PageData::Renumbered(std::span<const std::uint32_t> nodes) const {
  std::vector<std::int32_t> out(nodes.size());
  std::transform(nodes.begin(), nodes.end(), out.begin(),
                 [&](std::uint32_t n) { return static_cast<std::int32_t>(number_[n]); });
  return out;
}

void PageData::AddPositions(Pack& pack, std::uint32_t begin, std::uint32_t end) const {
  std::vector<float> positions(std::size_t{3} * (end - begin));
  std::vector<std::int32_t> keys(end - begin);
  ParallelFor(end - begin, 10000, [&](std::size_t from, std::size_t to) {
    for (std::size_t i = from; i < to; ++i) {
      const std::uint32_t n = order_[begin + i];
      const Point3 p = length_ * mesh_.Position(n) - origin_;
      for (int axis = 0; axis < 3; ++axis) {
        positions[3 * i + static_cast<std::size_t>(axis)] =
            extent_.Has(n) ? ToFloat(p[axis]) : kNoValue;
      }
      keys[i] = mesh_.NodeKey(n);
    }
  });
  pack.Floats("node_position", positions);
  pack.Integers("node_key", keys);
}

void PageData::AddMesh(Pack& pack) const {
  AddPositions(pack, 0, seen_);
  for (const FaceList& list : surface_.faces) {
    const std::string suffix = std::to_string(list.nodes_per_face);
    pack.Integers("face_node" + suffix, Renumbered(list.nodes),
                  static_cast<int>(list.nodes_per_face));
    pack.Integers("face_element" + suffix, Signed(list.elements));
    pack.Bytes("face_side" + suffix, list.sides);
  }
  pack.Integers("line_node", Renumbered(surface_.line_nodes), 2);
  pack.Integers("line_element", Signed(surface_.line_elements));
  pack.Integers("point_node", Renumbered(surface_.point_nodes));
  pack.Integers("point_element", Signed(surface_.point_elements));
  pack.Integers("lone_node", Renumbered(surface_.lone_nodes));

  const std::uint32_t count = mesh_.ElementCount();
  std::vector<std::int32_t> keys(count), properties(count);
  std::vector<std::uint8_t> types(count);
  std::map<std::int32_t, std::int64_t> per_type;
  const auto numbers = PropertyNumbers(session_);
  ITR last = 0;
  std::int32_t last_number = -1;
  for (std::uint32_t e = 0; e < count; ++e) {
    const tagTElem& element = mesh_.Element(e);
    keys[e] = element.key;
    types[e] = static_cast<std::uint8_t>(std::clamp(element.type, 0, 255));
    ++per_type[types[e]];
    if (element.property != last) {
      last = element.property;
      const auto found = numbers.find(last);
      last_number = found == numbers.end() ? -1 : found->second;
    }
    properties[e] = last_number;
  }
  pack.Integers("element_key", keys);
  pack.Integers("element_property", properties);
  pack.Bytes("element_type", types);
  Json& json = pack.Text();
  json.Name("types").StartArray();
  for (const auto& [type, elements] : per_type) {
    json.StartObject();
    json.Integer("code", type).Text("name", TypeLabel(type)).Integer("elements", elements);
    json.EndObject();
  }
  json.EndArray();
}

void PageData::AddSets(Pack& pack) const {
  const auto& sets = *session_.GetPool<DPoolMset>(code::kMset);
  const PoolNumbers elements(session_.GetDataPool(code::kElem)->Set());
  std::vector<std::int32_t> of_elements, of_nodes;
  Json& json = pack.Text();
  json.Name("sets").StartArray();
  for (ITR at = sets.GetHeadPosition(); at; sets.Next(at)) {
    const tagTMset& set = sets.GetAtNU(at);
    const SetMembers members = MembersOf(session_, at);
    const std::size_t elements_before = of_elements.size(), nodes_before = of_nodes.size();
    for (const ITR element : members.Elements()) {
      const std::uint32_t e = elements.Find(element);
      if (e != PoolNumbers::kNone) of_elements.push_back(static_cast<std::int32_t>(e));
    }
    for (const ITR node : members.Nodes()) {
      const std::uint32_t n = mesh_.Numbers().Find(node);
      if (n != PoolNumbers::kNone) of_nodes.push_back(static_cast<std::int32_t>(number_[n]));
    }
    // Ascending, so that differences are small.
    std::sort(of_elements.begin() + static_cast<std::ptrdiff_t>(elements_before),
              of_elements.end());
    std::sort(of_nodes.begin() + static_cast<std::ptrdiff_t>(nodes_before), of_nodes.end());
    json.StartObject();
    json.Integer("key", set.key).Text("name", set.GetName().ToUtf8());
    json.Integer("color", RgbOfBgr(set.color)).Integer("parent", set.parent_key);
    json.Integer("elements", static_cast<std::int64_t>(of_elements.size() - elements_before));
    json.Integer("nodes", static_cast<std::int64_t>(of_nodes.size() - nodes_before));
    if (const std::string rule = RuleOf(session_, at); !rule.empty()) json.Text("rule", rule);
    json.EndObject();
  }
  json.EndArray();
  pack.Integers("set_element", of_elements);
  pack.Integers("set_node", of_nodes);
}

void PageData::AddBox(Json& json) const {
  json.Name("origin");
  WriteVector(json, origin_);
  json.Text("length_unit", session_.Units().GetUnitName(unit::kLength));
}

std::string PageData::Base(const PageInfo& info) const {
  Pack pack;
  Json& json = pack.Text();
  json.Text("name", info.name)
      .Flag("editable", info.editable)
      .Flag("served", info.served)
      .Flag("seeds", info.seeds);
  json.Integer("nodes", mesh_.NodeCount()).Integer("elements", mesh_.ElementCount());
  std::uint32_t drawn = 0;
  for (std::uint32_t e = 0; e < mesh_.ElementCount(); ++e) drawn += HasPlace(mesh_, e);
  json.Integer("left_out_elements", mesh_.ElementCount() - drawn);
  json.Integer("left_out_nodes", extent_.left_out_count);
  json.Integer("seen_nodes", seen_).Integer("solids", SolidCount());
  json.Integer("step", static_cast<std::int64_t>(info.step));
  AddBox(json);
  AddMesh(pack);
  AddSets(pack);
  WriteHostRecords(json, session_);
  WriteSystems(json, session_, length_, origin_);
  WriteMeasures(json);
  WriteFields(json, session_);
  json.Name("steps");
  WriteSteps(json, session_);
  return pack.Finish();
}

std::string PageData::Volume() const {
  Pack pack;
  AddPositions(pack, seen_, mesh_.NodeCount());
  for (const std::uint32_t corners : {4u, 5u, 6u, 8u}) {
    std::vector<std::int32_t> elements;
    for (std::uint32_t e = 0; e < mesh_.ElementCount(); ++e) {
      if (!mesh_.IsUsable(e) || mesh_.Shape(e) < CornerShape::kTetrahedron) continue;
      if (mesh_.Corners(e).size() == corners) elements.push_back(static_cast<std::int32_t>(e));
    }
    pack.IntegersBy("solid_node" + std::to_string(corners), corners * elements.size(),
                    static_cast<int>(corners), [&](std::size_t i) {
                      const auto e = static_cast<std::uint32_t>(elements[i / corners]);
                      return number_[mesh_.Corners(e)[i % corners]];
                    });
    pack.Integers("solid_element" + std::to_string(corners), elements);
  }
  return pack.Finish();
}

namespace {

std::vector<float> MeasureValues(const DenseMesh& mesh, const MeasureInfo& info, double length) {
  const std::vector<double> values = ValuesOf(mesh, info, length);
  std::vector<float> out(values.size());
  std::transform(values.begin(), values.end(), out.begin(), ToFloat);
  return out;
}

Point3 MiddleOf(const DenseMesh& mesh, std::uint32_t e) {
  Point3 sum;
  const auto nodes = mesh.Nodes(e);
  for (const std::uint32_t n : nodes) sum = sum + mesh.Position(n);
  return (1.0 / static_cast<double>(std::max<std::size_t>(nodes.size(), 1))) * sum;
}

std::vector<float> PartValues(const DenseMesh& mesh) {
  const Parts parts = ConnectedParts(mesh);
  std::vector<float> values(mesh.ElementCount(), kNoValue);
  for (std::size_t e = 0; e < values.size(); ++e) {
    if (parts.of_element[e] != ~0u) values[e] = static_cast<float>(parts.of_element[e] + 1);
  }
  return values;
}

/// Of surface elements: their own, the mean over the corners, or else their property's.
std::vector<float> ThicknessValues(const CQXDBSession& session, const DenseMesh& mesh,
                                   double length) {
  std::vector<float> values(mesh.ElementCount(), kNoValue);
  const DPoolBase* properties = PoolOfHost<tagTProp>(session);
  for (std::uint32_t e = 0; e < mesh.ElementCount(); ++e) {
    const bool is_surface =
        mesh.Shape(e) == CornerShape::kTriangle || mesh.Shape(e) == CornerShape::kQuadrilateral;
    const ITR at = mesh.Element(e).property;
    if (!is_surface || !properties || at == 0 || KeyedSetBase::IsRemoved(at)) continue;
    const double own = static_cast<const tagTProp*>(KeyedSetBase::RecordAt(at))->thickness;
    if (own > 0) values[e] = ToFloat(length * own);
  }
  const PoolNumbers elements(session.GetDataPool(code::kElem)->Set());
  const auto& pool = *session.GetDataPool(code::kE2DThick);
  for (ITR at = pool.GetHeadPosition(); at; pool.Next(at)) {
    const auto& thick = *static_cast<const tagTE2DThick*>(KeyedSetBase::RecordAt(at));
    const auto& t = thick.thickness;
    const double mean = thick.uniform ? double{t[0]} : 0.25 * (t[0] + t[1] + t[2] + t[3]);
    for (const ITR element : thick.elements) {
      const std::uint32_t e = elements.Find(element);
      if (e != PoolNumbers::kNone) values[e] = ToFloat(length * mean);
    }
  }
  return values;
}

}  // namespace

std::string PageData::Values(std::string_view name) const {
  Pack pack;
  std::vector<float> values;
  if (auto field = FindField(session_, mesh_, name)) {
    values = std::move(field->elements);
    pack.Text().Text("label", field->label).Text("unit", field->unit);
    std::vector<float> nodes(field->nodes.size());
    for (std::size_t n = 0; n < nodes.size(); ++n) nodes[number_[n]] = field->nodes[n];
    pack.Floats("node_values", nodes);
  } else if (const MeasureInfo* info = FindMeasure(name)) {
    values = MeasureValues(mesh_, *info, length_);
  } else if (name == "part") {
    values = PartValues(mesh_);
  } else if (name == "thickness") {
    values = ThicknessValues(session_, mesh_, length_);
  } else if (name == "x" || name == "y" || name == "z") {
    values.assign(mesh_.ElementCount(), kNoValue);
    for (std::uint32_t e = 0; e < values.size(); ++e) {
      if (HasPlace(mesh_, e)) {
        values[e] = ToFloat(length_ * MiddleOf(mesh_, e)[name[0] - 'x']);
      }
    }
  } else {
    return {};
  }
  pack.Floats("values", values);
  return pack.Finish();
}

std::string PageData::Findings() const {
  // What is left out of the picture is checked none the less.
  std::optional<DenseMesh> whole;
  if (extent_.left_out_count > 0) whole.emplace(session_);
  const DenseMesh& mesh = whole ? *whole : mesh_;
  // The tolerance of `check`: what rounding makes of one point.
  const double tolerance = 1e-10 * Length(extent_.high - extent_.low);
  Pack pack;
  Json& json = pack.Text();
  json.Name("findings").StartArray();
  for (const Finding& finding : FindFaults(mesh, tolerance)) {
    if (finding.keys.empty()) continue;
    json.StartObject();
    json.Text("name", finding.name).Text("label", finding.label).Text("remedy", finding.remedy);
    json.Flag("fault", finding.is_fault).Flag("of_nodes", finding.of_nodes);
    json.Integer("count", static_cast<std::int64_t>(finding.keys.size())).EndObject();
    pack.Integers(finding.name, finding.keys);
  }
  json.EndArray();
  const LooseSides edges = LooseEdges(mesh_);
  for (const auto& [name, sides] :
       {std::pair{"free_edge", &edges.free}, std::pair{"shared_edge", &edges.shared}}) {
    std::vector<std::int32_t> nodes, of;
    for (const DenseSide& side : *sides) {
      of.push_back(static_cast<std::int32_t>(side.element));
      const auto own = mesh_.Nodes(side.element);
      const auto edge = ElementTopology(mesh_.Element(side.element).type)
                            .Edge(static_cast<std::int32_t>(side.side), false);
      for (const std::int32_t place : edge) {
        nodes.push_back(static_cast<std::int32_t>(number_[own[static_cast<std::size_t>(place)]]));
      }
    }
    pack.Integers(name, nodes, 2);
    pack.Integers(std::string(name) + "_of", of);
  }
  return pack.Finish();
}

std::string PageData::Glyphs() const {
  const auto& elements = *session_.GetPool<DPoolElem>(code::kElem);
  Pack pack;
  const auto add = [&](const char* name, auto&& wanted, auto&& axes_of) {
    std::vector<std::int32_t> of;
    std::vector<float> triads;  // origin, then the three axes
    bool cut = false;
    for (std::uint32_t e = 0; e < mesh_.ElementCount() && !cut; ++e) {
      if (!mesh_.IsUsable(e) || !wanted(e)) continue;
      double axes[3][3]{};
      if (!axes_of(mesh_.ElementItr(e), axes)) continue;
      cut = of.size() == kMostGlyphs;
      if (cut) break;
      of.push_back(static_cast<std::int32_t>(e));
      const Point3 middle = length_ * MiddleOf(mesh_, e) - origin_;
      for (int i = 0; i < 3; ++i) triads.push_back(ToFloat(middle[i]));
      for (const auto& axis : axes) {
        for (const double c : axis) triads.push_back(ToFloat(c));
      }
    }
    pack.Integers(std::string(name) + "_element", of);
    pack.Floats(name, triads);
    pack.Text().Flag(std::string(name) + "_cut", cut);
  };
  const auto any = [](std::uint32_t) { return true; };
  add("axes", any,
      [&](ITR at, double axes[3][3]) { return elements.GetElemLocalVector(at, axes); });
  add("material", any,
      [&](ITR at, double axes[3][3]) { return elements.GetElemMatlVector(at, axes); });
  const DPoolBase& orientations = *session_.GetDataPool(code::kEcrd);
  add(
      "orientation", [&](std::uint32_t e) { return orientations.Find(mesh_.Element(e).key) != 0; },
      [&](ITR at, double axes[3][3]) { return elements.GetElemLocalVector(at, axes); });
  return pack.Finish();
}

}  // namespace qx::viewer
