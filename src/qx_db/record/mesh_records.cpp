#include "qx_db/record/mesh_records.h"

#include <cstring>

#include "qx_db/lib/variants.h"
#include "qx_db/record/element_types.h"
#include "qx_db/record/record_impl.h"

namespace qx {

// ---- tagTNode -----------------------------------------------------------------------------------

QX_RECORD(tagTNode) {
  rows.Add(u"_POSITION", &tagTNode::position).In(unit::kLength).Add(u"_FLAGS", &tagTNode::flags);
  fields.Add("POS", &tagTNode::position, "X, Y, Z");
}

int tagTNode::REad(char* buffer, int length) const { return Data2Stream(buffer, length); }

bool tagTNode::api_convert_data(CQXDBSession*, DBG_NODE* value, bool out) {
  if (out) {
    value->SetX(position.x);
    value->SetY(position.y);
    value->SetZ(position.z);
  } else if (value->Present()) {
    position = {value->X(), value->Y(), value->Z()};
  }
  return true;
}

// ---- tagTElem -----------------------------------------------------------------------------------

QX_RECORD(tagTElem) {
  rows.Add(u"_TYPE", &tagTElem::type)
      .Add(u"_NODE_IDS", &tagTElem::nodes)
      .When(OnRemoval::kDie)
      .Add(u"_PROPERTY", &tagTElem::property)
      .Add(u"_FLAGS", &tagTElem::flags)
      .Add(u"_OVERLAP", &tagTElem::overlap);
  fields.Add("TYPE", &tagTElem::type)
      .Add("NODE_KEY_ARRAY", &tagTElem::nodes)
      .LookUp("PROPERTY", &tagTElem::property);
}

namespace {

/// Takes over the records of `keys`: as many entries as keys, an unknown key keeping the entry.
void ReferencesFromKeys(CQXDBSession& session, std::uint16_t target, const std::vector<Key>& keys,
                        TArray<ITR>& references) {
  references.SetSize(static_cast<std::int64_t>(keys.size()));
  for (std::size_t i = 0; i < keys.size(); ++i) {
    if (const ITR found = FindRecord(session, target, keys[i])) {
      references[static_cast<std::ptrdiff_t>(i)] = found;
    }
  }
}

std::vector<Key> KeysOf(const TArray<ITR>& references) {
  std::vector<Key> keys;
  keys.reserve(references.size());
  for (const ITR itr : references) keys.push_back(KeyOf(itr));
  return keys;
}

}  // namespace

bool tagTElem::api_convert_data(CQXDBSession* session, DBG_ELEM* value, bool out) {
  if (out) {
    value->type = type;
    value->node_keys = KeysOf(nodes);
    if (property) value->property_key = KeyOf(property);
    return true;
  }
  if (value->type) type = *value->type;
  if (value->node_keys) ReferencesFromKeys(*session, code::kNode, *value->node_keys, nodes);
  // An absent key is looked up as 0 on purpose, so that a property with key 0 would be taken.
  if (const ITR found = FindRecord(*session, code::kProp, value->property_key.value_or(0))) {
    property = found;
  }
  return true;
}

// ---- tagTEcrd -----------------------------------------------------------------------------------

tagTEcrd::tagTEcrd() {
  const bool by_angle = IsVariantA() || IsVariantC();
  method = by_angle ? kByBetaAngle : kByVector;
  beta_angle_deg = by_angle ? 90.0 : 0.0;
}

namespace {

bool TakesOrientation(const TStructBase& element) {
  return element::CarriesOrientation(static_cast<const tagTElem&>(element).type);
}

bool IsBy(const TStructBase& record, std::int32_t method) {
  return static_cast<const tagTEcrd&>(record).method == method;
}

/// Back to what counts for an element without an orientation of its own, rather than to what the
/// method would make of no target: that would be the axes of another system.
void ResetOrientation(TStructBase& record) {
  auto& orientation = static_cast<tagTEcrd&>(record);
  tagTEcrd fresh;
  fresh.key = orientation.key;
  fresh.element_type = orientation.element_type;
  orientation = fresh;
}

constexpr ResetRule kWithItsNode = {
    [](const TStructBase& record) { return IsBy(record, tagTEcrd::kByNode); }, ResetOrientation};
constexpr ResetRule kWithItsSystem = {
    [](const TStructBase& record) { return IsBy(record, tagTEcrd::kByCoordinateSystem); },
    ResetOrientation};

}  // namespace

QX_RECORD(tagTEcrd) {
  rows.KeyOf(code::kElem)
      .GoesWithOwner(TakesOrientation)
      .Add(u"_IELEMTYPE", &tagTEcrd::element_type)
      .Add(u"_ITYPE", &tagTEcrd::method)
      .Add(u"_ITRRNODE", &tagTEcrd::reference_node)
      .Resets(kWithItsNode)
      .Add(u"_VREFVEC", &tagTEcrd::reference_vector)
      .Add(u"_BETAANGLE", &tagTEcrd::beta_angle_deg)
      .Listed(unit::kAngle);
  // Deliberate: neither conversion of the record touches its coordinate system. Hosts
  // hand such records around within a session; only the model file converts the member.
  rows.Add(u"_ITRCORD", &tagTEcrd::coordinate_system)
      .Converts(ReferenceRule::kLeftAlone)
      .Resets(kWithItsSystem)
      .Add(u"_VECINTERX", &tagTEcrd::intersection_x);
  fields.Add("ELEM_TYPE", &tagTEcrd::element_type)
      .Add("TYPE", &tagTEcrd::method)
      .Add("REF_NODE", &tagTEcrd::reference_node)
      .Add("REF", &tagTEcrd::reference_vector)
      .Add("BETA_ANGLE", &tagTEcrd::beta_angle_deg)
      .Add("CORD", &tagTEcrd::coordinate_system)
      .Add("INTER_X", &tagTEcrd::intersection_x);
}

bool tagTEcrd::api_convert_data(CQXDBSession* session, DBG_ERCD* value, bool out) {
  if (out) {
    *value = {element_type,     method,         KeyOf(reference_node),
              reference_vector, beta_angle_deg, KeyOf(coordinate_system),
              intersection_x};
    return true;
  }
  if (value->element_type) element_type = *value->element_type;
  if (value->method) method = *value->method;
  if (value->reference_node_key) {
    reference_node = FindRecord(*session, code::kNode, *value->reference_node_key);
  }
  if (value->reference_vector) reference_vector = *value->reference_vector;
  if (value->beta_angle_deg) beta_angle_deg = *value->beta_angle_deg;
  if (value->coordinate_system_key) {
    coordinate_system = FindRecord(*session, code::kCord, *value->coordinate_system_key);
  }
  if (value->intersection_x) intersection_x = *value->intersection_x;
  return true;
}

// ---- tagTActiveElemSet --------------------------------------------------------------------------

QX_RECORD(tagTActiveElemSet) {
  rows.Add(u"_NAME", &tagTActiveElemSet::name).Add(u"_ELEM_IDS", &tagTActiveElemSet::elements);
  fields.Add("NAME", &tagTActiveElemSet::name).Add("ELEM_KEY_ARRAY", &tagTActiveElemSet::elements);
}

bool tagTActiveElemSet::api_convert_data(CQXDBSession* session, DBG_ACTIVEELEMSET* value,
                                         bool out) {
  if (out) {
    *value = {name.Text(), KeysOf(elements)};
    return true;
  }
  if (value->name) name.Set(value->name->View());
  if (value->element_keys) {
    ReferencesFromKeys(*session, code::kElem, *value->element_keys, elements);
  }
  return true;
}

// ---- tagTESid -----------------------------------------------------------------------------------

QX_RECORD(tagTESid) {
  // Deliberate: a side never fails to convert; a null node is 0.
  rows.Add(u"_TARR_NODE", &tagTESid::nodes)
      .Converts(ReferenceRule::kTolerant)
      .When(OnRemoval::kDie);
}

template class TUnitDescriptor<tagTNode, 1>;
template class TUnitDescriptor<tagTEcrd, 1>;

}  // namespace qx
